// The shell tool on real lock files, with real commands.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <string>
#include <vector>

#include "support/process_lock.h"

namespace {

using testsupport::captureChild;
using testsupport::Captured;
using testsupport::Companion;
using testsupport::lockWords;
using Words = std::vector<std::string>;

int becomeZlock(Words const& arguments) {
    return testsupport::becomeProgram(ZFC_TEST_ZLOCK, arguments);
}

Captured zlock(Words const& arguments) {
    return captureChild([&] { return becomeZlock(arguments); });
}

class ZlockTest : public testsupport::WithProcessLock {
  protected:
    /// The options, this test's lock, and the command.
    [[nodiscard]] Words onLock(Words words, Words const& command) const {
        words.insert(words.end(), {"--dir", directory.path(), "config", "--"});
        words.insert(words.end(), command.begin(), command.end());
        return words;
    }
    [[nodiscard]] Captured run(Words const& options, Words const& command) const {
        return zlock(onLock(options, command));
    }
    [[nodiscard]] std::string status() const {
        auto const told = zlock({"--status", "--dir", directory.path(), "config"});
        EXPECT_EQ(0, told.status) << told.err;
        return told.out;
    }
    /// One line of what the command of a Companion wrote to the test's pipe.
    [[nodiscard]] std::string lineFromPipe() const {
        std::ifstream pipe(pipePath);
        std::string line;
        std::getline(pipe, line);
        return line;
    }

    std::string pipePath = directory.file("pipe");
};

TEST_F(ZlockTest, EndsAsTheCommandDoes) {
    struct {
        Words command;
        int status;
    } const rows[] = {
        {{"true"}, 0},
        {{"sh", "-c", "exit 7"}, 7},
        {{"sh", "-c", "kill -TERM $$"}, 128 + SIGTERM},
        {{"/no/such/command"}, 3},
        {{directory.path()}, 3},
    };
    for (auto const& row : rows)
        EXPECT_EQ(row.status, run({}, row.command).status) << testing::PrintToString(row.command);
    EXPECT_NE(std::string::npos, run({}, {"/no/such/command"}).err.find("/no/such/command"));
    EXPECT_TRUE(isFree());
}

TEST_F(ZlockTest, RefusesWrongUsage) {
    Words const rows[] = {
        {},
        {"config"},
        {"config", "--"},
        {"config", "true"},
        {"--", "true"},
        {"", "--", "true"},
        {"a/b", "--", "true"},
        {"--read", "--write", "config", "--", "true"},
        {"--status", "config", "--", "true"},
        {"--status", "--read", "config"},
        {"--wait", "-1", "config", "--", "true"},
        {"--wait", "nan", "config", "--", "true"},
        {"--wait", "1", "--no-wait", "config", "--", "true"},
        {"--conflict-exit", "256", "config", "--", "true"},
        {"--unknown", "config", "--", "true"},
    };
    for (auto const& row : rows) {
        auto const result = zlock(row);
        EXPECT_EQ(2, result.status) << testing::PrintToString(row);
        EXPECT_NE("", result.err) << testing::PrintToString(row);
    }
    EXPECT_EQ(0, zlock({"--help"}).status);
}

TEST_F(ZlockTest, AdvancesTheNumberForWritersThatSucceed) {
    struct {
        Words options;
        char const* command;
        unsigned int after;
    } const rows[] = {
        {{}, "true", 1},         {{"--write"}, "true", 2},   {{"--write"}, "false", 2},
        {{"--read"}, "true", 2}, {{"--protect"}, "true", 3}, {{}, "/no/such/command", 3},
    };
    for (auto const& row : rows) {
        static_cast<void>(run(row.options, {row.command}));
        EXPECT_EQ(row.after, lockWords(path).sequence) << testing::PrintToString(row.options);
    }
    EXPECT_EQ("3", run({"--read"}, {"sh", "-c", "printf %s $ZLOCK_SEQUENCE"}).out);
}

TEST_F(ZlockTest, HandsTheCommandItsWordsAsTheyAre) {
    EXPECT_EQ("[a,b]|{}||--|-x|%%|",
              run({}, {"printf", "%s|", "[a,b]", "{}", "", "--", "-x", "%%"}).out);
}

TEST_F(ZlockTest, DoesNotHandTheLockToTheCommand) {
    auto const open = run({}, {"sh", "-c", "ls -l /proc/self/fd"});
    EXPECT_EQ(std::string::npos, open.out.find("._zpl")) << open.out;
    EXPECT_NE(std::string::npos, open.out.find("pipe")) << open.out;
}

TEST_F(ZlockTest, GivesUpOnALockThatIsHeld) {
    lock.readLock();
    EXPECT_EQ(0, run({"--read", "--no-wait"}, {"true"}).status);
    EXPECT_EQ(1, run({"--no-wait"}, {"true"}).status);
    EXPECT_EQ(1, run({"--protect", "--wait", "0.01"}, {"true"}).status);
    lock.unlock();
    lock.writeLock();
    auto const refused = run({"--read", "--wait", "0", "--conflict-exit", "9"}, {"echo", "ran"});
    EXPECT_EQ(9, refused.status);
    EXPECT_EQ("", refused.out);
    lock.unlock();
}

TEST_F(ZlockTest, WaitsForTheLock) {
    for (Words const& options : {Words{}, Words{"--wait", "60"}}) {
        lock.writeLock();
        Companion waiting([&](Companion&) { return becomeZlock(onLock(options, {"true"})); });
        lock.unlock(0);
        EXPECT_EQ(0, waiting.join());
    }
    EXPECT_EQ(2U, lockWords(path).sequence);
}

TEST_F(ZlockTest, HandsSignalsToTheCommand) {
    ASSERT_EQ(0, mkfifo(pipePath.c_str(), 0600));
    // KILL: a shell may lose what else reaches its child before that has become another program.
    char const* const script =
        "trap 'kill -KILL $!; exit 42' TERM; sleep 60 & echo ready > \"$0\"; wait";
    Companion running([&](Companion&) {
        return becomeZlock(onLock({}, {"sh", "-c", script, pipePath}));
    });
    EXPECT_EQ("ready", lineFromPipe());
    EXPECT_FALSE(couldTake(Lock::zlockRead));
    kill(running.pid(), SIGTERM);
    EXPECT_EQ(42, running.join());
    EXPECT_TRUE(isFree());
}

TEST_F(ZlockTest, FreesTheLockWhenItIsKilled) {
    ASSERT_EQ(0, mkfifo(pipePath.c_str(), 0600));
    char const* const script = "echo $$ > \"$0\"; exec sleep 60";
    Companion running([&](Companion&) {
        return becomeZlock(onLock({}, {"sh", "-c", script, pipePath}));
    });
    int const command = std::stoi(lineFromPipe());
    EXPECT_EQ(std::string::npos, status().find("free"));
    kill(running.pid(), SIGKILL);
    EXPECT_EQ(-SIGKILL, running.join());
    EXPECT_EQ(0, kill(command, 0)) << "the command goes on";
    EXPECT_TRUE(isFree());
    kill(command, SIGKILL);
}

TEST_F(ZlockTest, TellsNumberHolderAndState) {
    EXPECT_EQ("sequence: 0\nlast holder: none\nstate: free\n", status());
    EXPECT_NE(0, access(path.c_str(), F_OK)) << "asking made the file";
    std::string const me = std::to_string(getpid());
    lock.writeLock();
    EXPECT_EQ("sequence: 0\nlast holder: " + me + " (running)\nstate: written\n", status());
    lock.unlock();
    lock.readLock();
    EXPECT_EQ("sequence: 1\nlast holder: " + me + " (running)\nstate: read\n", status());
    lock.unlock();
    EXPECT_EQ(0, run({}, {"true"}).status);
    std::string const gone = std::to_string(lockWords(path).pid);
    EXPECT_EQ("sequence: 2\nlast holder: " + gone + " (gone)\nstate: free\n", status());
}

TEST_F(ZlockTest, TellsWhatIsWrongWithTheFile) {
    auto const missing = zlock({"--dir", directory.file("none"), "config", "--", "true"});
    EXPECT_EQ(3, missing.status);
    EXPECT_NE(std::string::npos, missing.err.find(directory.file("none"))) << missing.err;
    ASSERT_EQ(0, symlink("/etc/hostname", path.c_str()));
    auto const planted = run({}, {"echo", "ran"});
    EXPECT_EQ(3, planted.status);
    EXPECT_EQ("", planted.out);
    EXPECT_NE(std::string::npos, planted.err.find(path)) << planted.err;
    EXPECT_EQ(3, zlock({"--status", "--dir", directory.path(), "config"}).status);
}

}  // namespace
