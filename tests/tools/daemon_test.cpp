// The daemon of the examples, beside people and programs that change its file.
#include "support/transcript.h"

namespace {

using namespace testsupport;

TEST(DaemonTest, FollowsItsFileAndKeepsItsSettingsWhenThatIsBroken) {
    TempDir const dir;
    writeFile(dir.file("settings"), "[server]\nhost = east\nport = 8080\n");
    writeFile(dir.file("local"), "[server]\nport = 8081\n");
    writeFile(dir.file("far"), "[server]\nport = 65536\n");
    writeFile(dir.file("west"), "[server]\nhost = west\n");
    // Each step is taken when the daemon has told of the one before.
    writeFile(dir.file("drive"), R"(
        { sh -c 'echo $$; exec daemon settings'; echo "ended: $?"; } | {
            read -r pid
            while read -r line; do
                echo "$line"
                case $line in
                'serving east'*) mv local settings ;;
                'serving localhost'*) echo '[server' > settings ;;
                Data*)
                    if mkdir asked; then kill -HUP "$pid"; else mv far settings; fi ;;
                *65536*) mv west settings ;;
                'serving west'*) kill "$pid" ;;
                esac
            done
        } 2> /dev/null
    )");
    std::string const kept =
        "settings kept: The configuration file \"settings\" contains invalid data at line 1.\n"
        "Data: \"[server\"\n";
    expectTranscript(dir.path(), ZFC_TEST_EXAMPLES,
                     {{"sh drive", 0,
                       "serving east:8080\n"
                       "deleted: server host\nset: server port\nserving localhost:8081\n" +
                           kept + kept +
                           "settings kept: The configuration file settings has an invalid numeric "
                           "value 65536 for "
                           "key port in stanza server.\ndeleted: server port\nset: server "
                           "host\nserving west:80\nended: 0\n"},
                      {"daemon gone", 1, "", "fopen(r)"}});
}

}  // namespace
