// The shell tool as people use it: from a shell, on real lock files, with real commands.
#include <csignal>
#include <filesystem>

#include "support/process_lock.h"
#include "support/transcript.h"

namespace {

using namespace testsupport;

class ZlockTest : public WithProcessLock {
  protected:
    void runs(std::vector<Step> const& steps) const {
        static std::string const tools = std::filesystem::path(ZFC_TEST_ZLOCK).parent_path();
        expectTranscript(directory.path(), tools, steps);
    }
};

TEST_F(ZlockTest, RunsCommandsUnderTheLockAndCountsThoseThatWroteAndSucceeded) {
    runs({
        {"zlock config -- true"},
        {"zlock --write config -- sh -c 'echo $ZLOCK_SEQUENCE'", 0, "1\n"},
        {"zlock --protect config -- sh -c 'echo $ZLOCK_SEQUENCE'", 0, "2\n"},
        {"zlock --read config -- sh -c 'echo $ZLOCK_SEQUENCE'", 0, "3\n"},
        {"zlock config -- sh -c 'echo $ZLOCK_SEQUENCE; exit 7'", 7, "3\n"},
        {"zlock config -- sh -c 'echo $ZLOCK_SEQUENCE; kill -TERM $$'", 128 + SIGTERM, "3\n"},
        {"zlock config -- sh -c 'echo $ZLOCK_SEQUENCE; kill -KILL $PPID'", 128 + SIGKILL, "4\n",
         "Killed"},
        {"zlock config -- sh -c 'echo $ZLOCK_SEQUENCE; exit 127'", 127, "5\n"},
        {"zlock config -- /no/such/command", 3, "", "/no/such/command: "},
        {"zlock config -- /tmp", 3, "", "/tmp: "},
        {"zlock --dir ./none config -- echo ran", 3, "", "./none: "},
        {"ln -s /etc/hostname ._zpl2; zlock 2 -- echo ran", 3, "", "./._zpl2: "},
        {"zlock --status 2", 3, "", "./._zpl2: "},
        {"zlock --help >text"},
        {"zlock --version | grep -c '^zlock [0-9.]*$'", 0, "1\n"},
        {"zlock --mode 0660 new -- stat -c %a ._zplnew", 0, "2660\n"},
        {"zlock config -- ls -l /proc/self/fd | grep _zpl || echo hidden", 0, "hidden\n"},
        {"zlock config -- printf '%s|' '[a,b]' {} '' -- -x %%", 0, "[a,b]|{}||--|-x|%%|"},
    });
    EXPECT_EQ(7U, lockWords(path).sequence);
    EXPECT_TRUE(isFree());
}

TEST_F(ZlockTest, WaitsAsLongAsItIsTold) {
    runs({
        {"zlock --read config -- zlock --read --no-wait config -- echo ran", 0, "ran\n"},
        {"zlock --read config -- zlock --no-wait config -- echo ran || echo $?", 0, "1\n"},
        {"zlock --read config -- zlock --protect --wait 0.01 config -- echo ran || echo $?", 0,
         "1\n"},
        {"zlock config -- zlock --read --wait 0 --conflict-exit 9 config -- echo ran || echo $?", 0,
         "9\n"},
    });
    for (char const* const line : {"zlock config -- true", "zlock --wait 60 config -- true"}) {
        lock.writeLock();
        Companion waiting([&](Companion&) {
            runs({{line}});
            return HasFailure() ? 1 : 0;
        });
        lock.unlock(0);
        EXPECT_EQ(0, waiting.join());
    }
    EXPECT_EQ(2U, lockWords(path).sequence);
}

TEST_F(ZlockTest, RefusesWrongUsage) {
    struct {
        char const *arguments, *told;
    } const rows[] = {
        {"", "NAME"},
        {"config", "no command"},
        {"config --", "no command"},
        {"'' -- true", "name"},
        {"a/b -- true", "a name is not empty"},
        {".. -- true", "a name is not empty"},
        {"--mode 888 config -- true", "permissions are"},
        {"--read --write config -- true", "--write"},
        {"--status config -- true", "--status"},
        {"--wait -1 config -- true", "a time is"},
        {"--wait nan config -- true", "a time is"},
        {"--wait 1s config -- true", "a time is"},
        {"--wait 1 --no-wait config -- true", "--no-wait"},
        {"--conflict-exit 256 config -- true", "256"},
    };
    for (auto const& row : rows)
        runs({{std::string("zlock ") + row.arguments, 2, "", row.told}});
    EXPECT_NE(0, access(path.c_str(), F_OK)) << "the lock was touched";
}

TEST_F(ZlockTest, HandsSignalsToTheCommand) {
    runs(
        {{"zlock config -- sh -c 'trap \"echo told; exit 42\" TERM; kill -TERM $PPID;"
          " for i in $(seq 500); do sleep 0.01; done'",
          42, "told\n"}});
    EXPECT_TRUE(isFree());
}

TEST_F(ZlockTest, TellsNumberHolderAndState) {
    std::string const asked = " config -- sh -c 'zlock --status config | sed s/$PPID/ME/'";
    runs({
        {"zlock --status config", 0, "sequence: 0\nlast holder: none\nstate: free\n"},
        {"test -e ._zplconfig || echo none", 0, "none\n"},
        {"zlock" + asked, 0, "sequence: 1\nlast holder: ME (running)\nstate: written\n"},
        {"zlock --read" + asked, 0, "sequence: 1\nlast holder: ME (running)\nstate: read\n"},
        {"zlock --status config | sed 's/[0-9]* (/ONE (/'", 0,
         "sequence: 1\nlast holder: ONE (gone)\nstate: free\n"},
    });
}

TEST_F(ZlockTest, CompletionOffersOptionsLocksAndCommands) {
    auto const offered = [](std::string const& words, std::string const& what) {
        return Step{"bash -c 'source " ZFC_TEST_COMPLETION "; COMP_WORDS=(zlock " + words +
                        "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _zlock;"
                        " echo \"${COMPREPLY[*]}\"'",
                    0, what + "\n"};
    };
    runs({{"mkdir d && zlock --dir d \"a b\" -- true && zlock config -- true"},
          offered("--st", "--status"),
          offered("--ver", "--version"),
          offered("\"\"", "config"),
          offered("--wait 5 --dir d \"\"", "a\\ b"),
          offered("--dir \"\"", "d"),
          offered("config \"\"", ""),
          offered("config -- mkfif", "mkfifo"),
          offered("config -- true --st", "")});
}

}  // namespace
