// The example programs do what their first lines say.
#include "support/transcript.h"

namespace {

using namespace testsupport;

/// On the sample files, in a directory of their own.
void expectExample(std::vector<Step> const& steps) {
    TempDir const dir;
    for (char const* const name : {"app.conf", "broken.conf"})
        writeFile(dir.file(name), readFile(ZFC_TEST_SAMPLES "/" + std::string(name)));
    expectTranscript(dir.path(), ZFC_TEST_EXAMPLES, steps);
}

TEST(ExamplesTest, ReadAndEditTheSampleFileAndFailClearlyOnABadOne) {
    expectExample({{"settings app.conf", 0,
                    "east.example:8080, rotating logs\nlistens on 10.0.0.1\n"
                    "listens on 10.0.0.2\n"},
                   {"head -n 1 app.conf", 0, "# Settings of the sample server.\n"},
                   {"grep -A 2 '# timeout' app.conf", 0, "# timeout = 30\ntimeout = 60\n\n"},
                   {"settings_c app.conf", 0,
                    "east.example:8081\nlistens on 10.0.0.1\nlistens on 10.0.0.2\n"},
                   {"grep port app.conf", 0, "port = 8082\n"},
                   {"settings broken.conf", 1},
                   {"settings_c broken.conf", 1},
                   {"settings_c gone", 1}});
}

TEST(ExamplesTest, CountInTwoProcessesAndReloadWhenTheOtherWrote) {
    expectExample({{"shared_counter .", 0,
                    "at first: 0\nanother process added 5: 5, reloads: 1\n"
                    "nobody wrote since: 5, reloads: 1\nboth added 50 at once: 105\n"},
                   {"cat counter", 0, "105\n"},
                   {"shared_counter . | head -n 1", 0, "at first: 105\n"},
                   {"shared_counter gone", 1}});
}

TEST(ExamplesTest, GreetFromAPluginLoadedByNameAndTellOthersApart) {
    expectExample({{"plugins " ZFC_TEST_EXAMPLES "/libgreeter Ada Bo | sed 's/ (.*_.*)//'", 0,
                    "Hello, Ada!\nHello, Bo!\n"},
                   {"plugins ./libnone", 1, "", "load/unload error (./libnone)"},
                   {"plugins libm.so.6", 1, "", "resolve error (libm.so.6:greeter_greet)"}});
}

TEST(ExamplesTest, CheckFilesSeveralAtATimeAndPrintThemInOrder) {
    expectExample({{"printf %s Wikipedia > w; : > empty; checksums w empty w", 0,
                    "11e60398 w\n00000001 empty\n11e60398 w\n"},
                   {"checksums w gone", 1, "", "gone"}});
}

}  // namespace
