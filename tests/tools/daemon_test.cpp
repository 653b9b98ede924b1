// The daemon of the examples, beside people and programs that change its file.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <optional>

#include "support/properties.h"

namespace {

using namespace testsupport;

/// The program, and the lines that it prints.
class RunningDaemon {
  public:
    explicit RunningDaemon(std::string const& file) {
        std::array<int, 2> pipe{};
        EXPECT_EQ(::pipe(pipe.data()), 0);
        auto const run = [&](Companion&) {
            dup2(pipe[1], STDOUT_FILENO);
            close(pipe[1]);
            return execl(ZFC_TEST_DAEMON, "daemon", file.c_str(), nullptr);
        };
        process.emplace(run);
        close(pipe[1]);
        output = fdopen(pipe[0], "r");
    }
    ~RunningDaemon() { std::fclose(output); }
    RunningDaemon(RunningDaemon const&) = delete;
    RunningDaemon& operator=(RunningDaemon const&) = delete;

    /// Waits for the next line; empty at the end.
    [[nodiscard]] std::string line() {
        std::array<char, 500> text{};
        alarm(60);  // a test that hangs ends
        bool const isRead = std::fgets(text.data(), text.size(), output) != nullptr;
        alarm(0);
        return isRead ? text.data() : "";
    }
    void send(int signal) { EXPECT_EQ(kill(process->pid(), signal), 0); }
    [[nodiscard]] int join() { return process->join(); }

  private:
    std::optional<Companion> process;
    FILE* output = nullptr;
};

TEST(DaemonTest, FollowsItsFileAndKeepsItsSettingsWhenThatIsBroken) {
    StanzaFile const file("[server]\nhost = east\nport = 8080\n");
    RunningDaemon daemon(file.path());
    EXPECT_EQ(daemon.line(), "serving east:8080\n");

    writeFile(file.beside("new"), "[server]\nport = 8081\n");
    std::filesystem::rename(file.beside("new"), file.path());
    EXPECT_EQ(daemon.line(), "deleted: server host\n");
    EXPECT_EQ(daemon.line(), "set: server port\n");
    EXPECT_EQ(daemon.line(), "serving localhost:8081\n");

    writeFile(file.path(), "[server\n");
    for (bool isAsked : {false, true}) {
        if (isAsked) daemon.send(SIGHUP);
        EXPECT_EQ(daemon.line().rfind("settings kept: ", 0), 0U) << isAsked;
        EXPECT_EQ(daemon.line(), "Data: \"[server\"\n");
    }

    ZStanzaFileProperties editor(1);
    editor.setValue("server", "host", "west");
    editor.store(file.beside("new").c_str());
    std::filesystem::rename(file.beside("new"), file.path());
    EXPECT_EQ(daemon.line(), "deleted: server port\n");
    EXPECT_EQ(daemon.line(), "set: server host\n");
    EXPECT_EQ(daemon.line(), "serving west:80\n");

    daemon.send(SIGTERM);
    EXPECT_EQ(daemon.line(), "");
    EXPECT_EQ(daemon.join(), 0);
}

TEST(DaemonTest, DoesNotBeginWithoutItsFile) {
    RunningDaemon daemon("/nowhere/settings");
    EXPECT_EQ(daemon.line(), "");
    EXPECT_EQ(daemon.join(), 1);
}

}  // namespace
