// The example programs do what their first lines say.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "support/processes.h"

namespace {

using testsupport::captureChild;
using testsupport::readFile;
using testsupport::TempDir;
using testsupport::writeFile;

struct Example {
    char const* program;
    char const* out;
    char const* changed;  // the line that the program changes, afterwards
};

class ExampleProgram : public testing::TestWithParam<Example> {};

TEST_P(ExampleProgram, ReadsAndEditsTheSampleFileAndFailsClearlyOnABadOne) {
    std::string const program = std::string(ZFC_TEST_EXAMPLES "/") + GetParam().program;
    auto const run = [&](std::string const& file) {
        return captureChild([&] {
            unsetenv("QCSDIR");
            execl(program.c_str(), program.c_str(), file.c_str(), nullptr);
            return 127;
        });
    };
    TempDir const dir;
    auto const file = dir.file("app.conf");
    writeFile(file, readFile(ZFC_TEST_SAMPLES "/app.conf"));

    auto const result = run(file);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, GetParam().out);
    auto const edited = readFile(file);
    EXPECT_NE(edited.find(GetParam().changed), std::string::npos) << edited;
    EXPECT_EQ(edited.rfind("# Settings of the sample server.\n", 0), 0U) << edited;

    auto const refused = run(ZFC_TEST_SAMPLES "/broken.conf");
    EXPECT_EQ(refused.status, 1);
    EXPECT_FALSE(refused.err.empty());
    EXPECT_EQ(run(dir.file("gone")).status, 1);
}

INSTANTIATE_TEST_SUITE_P(
    Programs, ExampleProgram,
    testing::Values(Example{"settings",
                            "east.example:8080, rotating logs\nlistens on 10.0.0.1\n"
                            "listens on 10.0.0.2\n",
                            "# timeout = 30\ntimeout = 60\n\n"},
                    Example{"settings_c",
                            "east.example:8080\nlistens on 10.0.0.1\nlistens on 10.0.0.2\n",
                            "port = 8081\n"}));

}  // namespace
