// The shell tool as people use it: from a shell, on real lock files, with real commands.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/process_lock.h"

namespace {

using namespace testsupport;

class ZlockTest : public WithProcessLock {
  protected:
    /// Becomes a shell in the lock's directory that runs the line.
    [[nodiscard]] int become(std::string const& line) const {
        std::string const tools = std::filesystem::path(ZFC_TEST_ZLOCK).parent_path();
        setenv("PATH", (tools + ":" + std::getenv("PATH")).c_str(), 1);
        return chdir(directory.path().c_str()) == 0 ? becomeProgram("/bin/sh", {"-c", line}) : 127;
    }
    [[nodiscard]] Captured run(std::string const& line) const {
        return captureChild([&] { return become(line); });
    }
    /// The line that a command writes to "pipe"; waits for it.
    [[nodiscard]] std::string lineFromPipe() const {
        std::ifstream pipe(directory.file("pipe"));
        std::string line;
        std::getline(pipe, line);
        return line;
    }
};

TEST_F(ZlockTest, RunsCommandsUnderTheLock) {
    struct {
        Lock::zlockstate held;  // by the test
        char const* line;
        int status;
        unsigned int after;  // the number
        char const* told;    // all of standard output, or a part of the errors' for 2 and 3
    } const rows[] = {
        {unset, "zlock config -- true", 0, 1, ""},
        {unset, "zlock --write config -- true", 0, 2, ""},
        {unset, "zlock --write config -- false", 1, 2, ""},
        {unset, "zlock --protect config -- sh -c 'echo $ZLOCK_SEQUENCE'", 0, 3, "2\n"},
        {unset, "zlock --read config -- sh -c 'echo $ZLOCK_SEQUENCE'", 0, 3, "3\n"},
        {unset, "zlock config -- sh -c 'exit 7'", 7, 3, ""},
        {unset, "zlock config -- sh -c 'kill -TERM $$'", 128 + SIGTERM, 3, ""},
        {unset, "zlock config -- printf '%s|' '[a,b]' {} '' -- -x %%", 0, 4, "[a,b]|{}||--|-x|%%|"},
        {unset, "zlock config -- /no/such/command", 3, 4, "/no/such/command: "},
        {unset, "zlock config -- /tmp", 3, 4, "/tmp: "},
        {unset, "zlock --dir ./none config -- echo ran", 3, 4, "./none: "},
        {unset, "ln -s /etc/hostname ._zpl2; zlock 2 -- echo ran", 3, 4, "./._zpl2: "},
        {unset, "zlock --status 2", 3, 4, "./._zpl2: "},
        {reading, "zlock --read --no-wait config -- echo ran", 0, 4, "ran\n"},
        {reading, "zlock --no-wait config -- echo ran", 1, 4, ""},
        {reading, "zlock --protect --wait 0.01 config -- echo ran", 1, 4, ""},
        {writing, "zlock --read --wait 0 --conflict-exit 9 config -- echo ran", 9, 4, ""},
        {unset, "zlock --help >text", 0, 4, ""},
        {unset, "zlock", 2, 4, "NAME"},
        {unset, "zlock config", 2, 4, "no command"},
        {unset, "zlock config --", 2, 4, "no command"},
        {unset, "zlock config true", 2, 4, ""},
        {unset, "zlock -- true", 2, 4, "NAME"},
        {unset, "zlock '' -- true", 2, 4, "name"},
        {unset, "zlock a/b -- true", 2, 4, "a name is not empty"},
        {unset, "zlock --read --write config -- true", 2, 4, "--write"},
        {unset, "zlock --status config -- true", 2, 4, "--status"},
        {unset, "zlock --status --read config", 2, 4, "--status"},
        {unset, "zlock --wait -1 config -- true", 2, 4, "a time is"},
        {unset, "zlock --wait nan config -- true", 2, 4, "a time is"},
        {unset, "zlock --wait 1s config -- true", 2, 4, "a time is"},
        {unset, "zlock --wait 1 --no-wait config -- true", 2, 4, "--no-wait"},
        {unset, "zlock --conflict-exit 256 config -- true", 2, 4, "256"},
        {unset, "zlock --unknown config -- true", 2, 4, "--unknown"},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.line);
        if (row.held != unset) lock.lock(row.held);
        auto const ran = run(row.line);
        if (row.held != unset) lock.unlock(0);
        bool const isError = row.status == 2 || row.status == 3;
        EXPECT_EQ(row.status, ran.status);
        EXPECT_EQ(isError ? "" : row.told, ran.out);
        EXPECT_EQ(isError, !ran.err.empty()) << ran.err;
        EXPECT_TRUE(!isError || ran.err.find(row.told) != ran.err.npos) << ran.err;
        EXPECT_EQ(row.after, lockWords(path).sequence);
        EXPECT_TRUE(isFree());
    }
}

TEST_F(ZlockTest, DoesNotHandTheLockToTheCommand) {
    auto const open = run("zlock config -- ls -l /proc/self/fd").out;
    EXPECT_EQ(std::string::npos, open.find("._zpl")) << open;
    EXPECT_NE(std::string::npos, open.find("pipe")) << open;
}

TEST_F(ZlockTest, WaitsForTheLock) {
    for (char const* const line : {"zlock config -- true", "zlock --wait 60 config -- true"}) {
        lock.writeLock();
        Companion waiting([&](Companion&) { return become(line); });
        lock.unlock(0);
        EXPECT_EQ(0, waiting.join());
    }
    EXPECT_EQ(2U, lockWords(path).sequence);
}

TEST_F(ZlockTest, HandsSignalsToTheCommand) {
    ASSERT_EQ(0, mkfifo(directory.file("pipe").c_str(), 0600));
    // KILL: a shell may lose what else reaches its child before that has become another program.
    Companion running([&](Companion&) {
        return become(
            "exec zlock config -- sh -c "
            "\"trap 'kill -KILL \\$!; exit 42' TERM; sleep 60 & echo ready >pipe; wait\"");
    });
    EXPECT_EQ("ready", lineFromPipe());
    EXPECT_FALSE(couldTake(reading));
    kill(running.pid(), SIGTERM);
    EXPECT_EQ(42, running.join());
    EXPECT_TRUE(isFree());
}

TEST_F(ZlockTest, FreesTheLockWhenItIsKilled) {
    ASSERT_EQ(0, mkfifo(directory.file("pipe").c_str(), 0600));
    Companion running([&](Companion&) {
        return become("exec zlock config -- sh -c 'echo $$ >pipe; exec sleep 60'");
    });
    int const command = std::stoi(lineFromPipe());
    EXPECT_FALSE(isFree());
    kill(running.pid(), SIGKILL);
    EXPECT_EQ(-SIGKILL, running.join());
    EXPECT_EQ(0, kill(command, 0)) << "the command goes on";
    EXPECT_TRUE(isFree());
    kill(command, SIGKILL);
}

TEST_F(ZlockTest, TellsNumberHolderAndState) {
    std::string const command = "zlock --status config";
    EXPECT_EQ("sequence: 0\nlast holder: none\nstate: free\n", run(command).out);
    EXPECT_NE(0, access(path.c_str(), F_OK)) << "asking made the file";
    std::string const me = "last holder: " + std::to_string(getpid()) + " (running)\n";
    lock.writeLock();
    EXPECT_EQ("sequence: 0\n" + me + "state: written\n", run(command).out);
    lock.unlock();
    lock.readLock();
    EXPECT_EQ("sequence: 1\n" + me + "state: read\n", run(command).out);
    lock.unlock();
    EXPECT_EQ(0, run("zlock config -- true").status);
    std::string const gone = std::to_string(lockWords(path).pid);
    EXPECT_EQ("sequence: 2\nlast holder: " + gone + " (gone)\nstate: free\n", run(command).out);
}

}  // namespace
