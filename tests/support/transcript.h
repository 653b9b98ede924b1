/// Transcripts: commands as a user types them at the shell, and what comes of each.
#ifndef ZFC_TESTS_SUPPORT_TRANSCRIPT_H
#define ZFC_TESTS_SUPPORT_TRANSCRIPT_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "support/processes.h"

namespace testsupport {

/// A line for the shell.
struct Step {
    std::string command;
    int status = 0;
    std::string out = {};   ///< all that it prints
    std::string told = {};  ///< a part of what it tells on standard error
};

/// Runs the steps one after the other in `directory`; the shell finds the programs of the folder
/// `programs` by their names. A step without `told` tells nothing when it succeeds or its output
/// says why it failed; a failure that prints nothing must tell something.
inline void expectTranscript(std::string const& directory, std::string const& programs,
                             std::vector<Step> const& steps) {
    for (Step const& step : steps) {
        SCOPED_TRACE(step.command);
        Captured const result = captureChild([&] {
            if (chdir(directory.c_str()) != 0) return 126;
            setenv("PATH", (programs + ":/usr/bin:/bin").c_str(), 1);
            unsetenv("QCSDIR");  // as a user has it
            return execl("/bin/sh", "sh", "-c", step.command.c_str(), nullptr);
        });
        EXPECT_EQ(result.status, step.status) << result.err;
        EXPECT_EQ(result.out, step.out);
        EXPECT_NE(result.err.find(step.told), std::string::npos) << result.err;
        bool const saysEnough = step.status == 0 || !step.out.empty();
        EXPECT_EQ(result.err.empty(), step.told.empty() && saysEnough) << result.err;
    }
}

/// A directory with files, and a copy of them in "before" to compare with, where a tool is called.
class Samples {
  public:
    /// `texts` has a name and what is in it for each file.
    Samples(std::string programFolder, std::string toolName,
            std::vector<std::pair<std::string, std::string>> const& texts)
        : programs(std::move(programFolder)), tool(std::move(toolName)) {
        for (auto const& [name, text] : texts)
            writeFile(dir.file(name), text);
        expect({{"mkdir before && cp *.* before"}});
    }
    void expect(std::vector<Step> const& steps) const {
        expectTranscript(dir.path(), programs, steps);
    }
    /// Each command of the tool ends so, prints nothing, and tells why: `told` is a part of it.
    void refuse(int status, std::vector<std::string> const& commands,
                std::string const& told = {}) const {
        for (std::string const& command : commands)
            expect({{tool + " " + command, status, "", told}});
    }
    TempDir dir;

  private:
    std::string programs;
    std::string tool;
};

}  // namespace testsupport

#endif
