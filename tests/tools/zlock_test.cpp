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

using namespace testsupport;
using Words = std::vector<std::string>;

int becomeZlock(Words const& words) { return becomeProgram(ZFC_TEST_ZLOCK, words); }
Captured zlock(Words const& words) {
    return captureChild([&] { return becomeZlock(words); });
}

class ZlockTest : public WithProcessLock {
  protected:
    /// The options, this test's lock, and the command.
    [[nodiscard]] Words onLock(Words words, Words const& command) const {
        words.insert(words.end(), {"--dir", directory.path(), "config", "--"});
        words.insert(words.end(), command.begin(), command.end());
        return words;
    }
    /// As zlock() with a command that writes to the path in $0, of which a line is awaited.
    struct Running {
        Running(ZlockTest const& test, char const* script)
            : zlock([&](Companion&) {
                  return becomeZlock(test.onLock({}, {"sh", "-c", script, test.pipePath}));
              }) {
            std::ifstream pipe(test.pipePath);
            std::getline(pipe, line);
        }
        Companion zlock;
        std::string line;
    };

    std::string pipePath = directory.file("pipe");
};

TEST_F(ZlockTest, RunsCommandsUnderTheLock) {
    struct {
        Words options;
        Words command;
        int status;
        unsigned int after;  // the number
        std::string out;
    } const rows[] = {
        {{}, {"true"}, 0, 1, ""},
        {{"--write"}, {"true"}, 0, 2, ""},
        {{"--write"}, {"false"}, 1, 2, ""},
        {{"--protect"}, {"sh", "-c", "printf %s $ZLOCK_SEQUENCE"}, 0, 3, "2"},
        {{"--read"}, {"sh", "-c", "printf %s $ZLOCK_SEQUENCE"}, 0, 3, "3"},
        {{}, {"sh", "-c", "exit 7"}, 7, 3, ""},
        {{}, {"sh", "-c", "kill -TERM $$"}, 128 + SIGTERM, 3, ""},
        {{}, {"/no/such/command"}, 3, 3, ""},
        {{}, {directory.path()}, 3, 3, ""},
        {{"--read"},
         {"printf", "%s|", "[a,b]", "{}", "", "--", "-x", "%%"},
         0,
         3,
         "[a,b]|{}||--|-x|%%|"},
        {{}, {"sh", "-c", "ls -l /proc/self/fd | grep -c '[.]_zpl'"}, 1, 3, "0\n"},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.options) + testing::PrintToString(row.command));
        auto const ran = zlock(onLock(row.options, row.command));
        EXPECT_EQ(row.status, ran.status);
        EXPECT_EQ(row.out, ran.out);
        EXPECT_EQ(row.status == 3, ran.err.find(row.command[0] + ": ") != ran.err.npos) << ran.err;
        EXPECT_EQ(row.after, lockWords(path).sequence);
        EXPECT_TRUE(isFree());
    }
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
        {"--wait", "1s", "config", "--", "true"},
        {"--wait", "1", "--no-wait", "config", "--", "true"},
        {"--conflict-exit", "256", "config", "--", "true"},
        {"--unknown", "config", "--", "true"},
    };
    for (auto const& row : rows) {
        auto const refused = zlock(row);
        EXPECT_EQ(2, refused.status) << testing::PrintToString(row);
        EXPECT_NE("", refused.err) << testing::PrintToString(row);
    }
    EXPECT_EQ(0, zlock({"--help"}).status);
}

TEST_F(ZlockTest, GivesUpOnALockThatIsHeld) {
    struct {
        Lock::zlockstate held;
        Words options;
        int status;
    } const rows[] = {
        {reading, {"--read", "--no-wait"}, 0},
        {reading, {"--no-wait"}, 1},
        {reading, {"--protect", "--wait", "0.01"}, 1},
        {writing, {"--read", "--wait", "0", "--conflict-exit", "9"}, 9},
    };
    for (auto const& row : rows) {
        lock.lock(row.held);
        auto const ran = zlock(onLock(row.options, {"echo", "ran"}));
        EXPECT_EQ(row.status, ran.status) << testing::PrintToString(row.options);
        EXPECT_EQ(row.status == 0 ? "ran\n" : "", ran.out);
        lock.unlock();
    }
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
    Running running(*this,
                    "trap 'kill -KILL $!; exit 42' TERM; sleep 60 & echo ready > \"$0\"; wait");
    EXPECT_EQ("ready", running.line);
    EXPECT_FALSE(couldTake(reading));
    kill(running.zlock.pid(), SIGTERM);
    EXPECT_EQ(42, running.zlock.join());
    EXPECT_TRUE(isFree());
}

TEST_F(ZlockTest, FreesTheLockWhenItIsKilled) {
    ASSERT_EQ(0, mkfifo(pipePath.c_str(), 0600));
    Running running(*this, "echo $$ > \"$0\"; exec sleep 60");
    int const command = std::stoi(running.line);
    EXPECT_FALSE(isFree());
    kill(running.zlock.pid(), SIGKILL);
    EXPECT_EQ(-SIGKILL, running.zlock.join());
    EXPECT_EQ(0, kill(command, 0)) << "the command goes on";
    EXPECT_TRUE(isFree());
    kill(command, SIGKILL);
}

TEST_F(ZlockTest, TellsNumberHolderAndState) {
    Words const status{"--status", "--dir", directory.path(), "config"};
    EXPECT_EQ("sequence: 0\nlast holder: none\nstate: free\n", zlock(status).out);
    EXPECT_NE(0, access(path.c_str(), F_OK)) << "asking made the file";
    std::string const me = std::to_string(getpid());
    lock.writeLock();
    EXPECT_EQ("sequence: 0\nlast holder: " + me + " (running)\nstate: written\n",
              zlock(status).out);
    lock.unlock();
    lock.readLock();
    EXPECT_EQ("sequence: 1\nlast holder: " + me + " (running)\nstate: read\n", zlock(status).out);
    lock.unlock();
    EXPECT_EQ(0, zlock(onLock({}, {"true"})).status);
    std::string const gone = std::to_string(lockWords(path).pid);
    EXPECT_EQ("sequence: 2\nlast holder: " + gone + " (gone)\nstate: free\n", zlock(status).out);
}

TEST_F(ZlockTest, TellsWhatIsWrongWithTheFile) {
    std::string const none = directory.file("none");
    ASSERT_EQ(0, symlink("/etc/hostname", path.c_str()));
    struct {
        Words words;
        std::string told;
    } const rows[] = {
        {{"--dir", none, "config", "--", "echo", "ran"}, none},
        {onLock({}, {"echo", "ran"}), path},
        {{"--status", "--dir", directory.path(), "config"}, path},
    };
    for (auto const& row : rows) {
        auto const failed = zlock(row.words);
        EXPECT_EQ(3, failed.status);
        EXPECT_EQ("", failed.out);
        EXPECT_NE(std::string::npos, failed.err.find(row.told)) << failed.err;
    }
}

}  // namespace
