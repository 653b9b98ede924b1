// The example programs do what their first lines say.
#include <gtest/gtest.h>

#include <string>
#include <vector>

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

/// Runs an example program as from a shell.
testsupport::Captured run(std::string const& name, std::vector<std::string> const& arguments) {
    return captureChild(
        [&] { return testsupport::becomeProgram(ZFC_TEST_EXAMPLES "/" + name, arguments); });
}

class ExampleProgram : public testing::TestWithParam<Example> {};

TEST_P(ExampleProgram, ReadsAndEditsTheSampleFileAndFailsClearlyOnABadOne) {
    auto const runOn = [](std::string const& path) { return run(GetParam().program, {path}); };
    TempDir const dir;
    auto const file = dir.file("app.conf");
    writeFile(file, readFile(ZFC_TEST_SAMPLES "/app.conf"));

    auto const result = runOn(file);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, GetParam().out);
    auto const edited = readFile(file);
    EXPECT_NE(edited.find(GetParam().changed), std::string::npos) << edited;
    EXPECT_EQ(edited.rfind("# Settings of the sample server.\n", 0), 0U) << edited;

    auto const refused = runOn(ZFC_TEST_SAMPLES "/broken.conf");
    EXPECT_EQ(refused.status, 1);
    EXPECT_FALSE(refused.err.empty());
    EXPECT_EQ(runOn(dir.file("gone")).status, 1);
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

TEST(SharedCounterExample, CountsInTwoProcessesAndReloadsWhenTheOtherWrote) {
    TempDir const dir;
    auto const first = run("shared_counter", {dir.path()});
    EXPECT_EQ(first.status, 0) << first.err;
    EXPECT_EQ(first.out,
              "at first: 0\nanother process added 5: 5, reloads: 1\n"
              "nobody wrote since: 5, reloads: 1\nboth added 50 at once: 105\n");
    EXPECT_EQ(readFile(dir.file("counter")), "105\n");
    EXPECT_EQ(run("shared_counter", {dir.path()}).out.rfind("at first: 105\n", 0), 0U);
    EXPECT_EQ(run("shared_counter", {dir.file("gone")}).status, 1);
}

TEST(ExamplePlugin, GreetsWhenLoadedByNameAndOthersAreToldApart) {
    auto const result = run("plugins", {ZFC_TEST_EXAMPLES "/libgreeter", "Ada", "Bo"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out.rfind("Hello, Ada! (said with release _", 0), 0U) << result.out;
    EXPECT_NE(result.out.find("\nHello, Bo!"), std::string::npos) << result.out;

    auto const missing = run("plugins", {"./libnone"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.err.find("load/unload error (./libnone)"), std::string::npos) << missing.err;
    auto const other = run("plugins", {"libm.so.6"});
    EXPECT_EQ(other.status, 1);
    EXPECT_NE(other.err.find("resolve error (libm.so.6:greeter_greet)"), std::string::npos)
        << other.err;
}

}  // namespace
