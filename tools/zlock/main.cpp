/// zlock: runs a command under a read-write lock that processes share, or tells how it is held.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <limits>
#include <string>
#include <system_error>

#include "Z/ZException.h"
#include "Z/ZFileLock.h"
#include "common/datadir.h"
#include "zlock/run.h"

namespace zlock {
namespace {

using Lock = ZUnixProcessReadWriteFileLock;

constexpr int done = 0;
constexpr int wrongUsage = 2;
constexpr int failed = 3;

constexpr char description[] =
    "Runs a command under a read-write lock that processes share:\n"
    "  zlock [OPTIONS] NAME -- COMMAND [ARG...]\n"
    "  zlock --status [--dir DIR] NAME";

constexpr char footer[] =
    "The command finds the lock's change number in ZLOCK_SEQUENCE. Under --write and --protect "
    "the\n"
    "number advances, unless the command ends with a status from 1 to 127.\n"
    "Exit status: the command's, 128 and the signal's number when one ended it; 1, or that of\n"
    "--conflict-exit, when the lock was not to be had; 2 wrong usage, 3 error.\n"
    "Example: zlock --dir /var/lock/app --wait 10 config -- vi /etc/app.conf";

struct Request {
    std::string name;
    std::string directory = ".";
    Lock::zlockstate mode = Lock::zlockWrite;
    bool status = false;
    bool noWait = false;
    double waitSeconds = -1;  // negative: without a limit
    int conflictExit = 1;
    std::string fileMode;  // octal; empty: the usual one
};

/// Fills the request; the command is not among what is parsed here.
class CommandLine {
  public:
    explicit CommandLine(Request& filled) : request(filled) {
        app.footer(footer);
        app.add_option("NAME", request.name, "name of the lock: its file is DIR/._zplNAME")
            ->required()
            ->check(isFileName);
        app.add_option("--dir", request.directory, "directory of the lock file (default .)");
        app.add_option("--mode", request.fileMode,
                       "permissions of a lock file that is made, in octal (0660)")
            ->check(isPermissions);
        addModes();
        addWaits();
        app.set_version_flag("--version", "zlock " ZLOCK_VERSION, "print the version and exit");
    }

    /// Whether to go on; else `exitStatus` is the program's.
    [[nodiscard]] bool parse(int argc, char** argv, int& exitStatus) {
        try {
            app.parse(argc, argv);
            return true;
        } catch (CLI::ParseError& e) {
            exitStatus = e.get_exit_code() == 0 ? done : wrongUsage;
            app.exit(e);
            return false;
        }
    }

  private:
    static std::string isFileName(std::string const& name) {
        bool const good =
            !name.empty() && name.find('/') == std::string::npos && name != "." && name != "..";
        return good ? std::string() : "a name is not empty, \".\" or \"..\", and has no \"/\"";
    }

    static std::string isPermissions(std::string const& text) {
        bool const isOctal = text.find_first_not_of("01234567") == std::string::npos;
        bool const good = isOctal && (text.size() == 3 || (text.size() == 4 && text[0] == '0'));
        return good ? std::string() : "permissions are three octal digits, as 660";
    }

    CLI::Option* addMode(char const* flag, Lock::zlockstate mode, char const* help) {
        return app.add_flag_callback(
            flag, [this, mode] { request.mode = mode; }, help);
    }

    void addModes() {
        auto* const read = addMode("--read", Lock::zlockRead, "together with other readers");
        auto* const protect = addMode("--protect", Lock::zlockProtect, "alone, as --write");
        auto* const write = addMode("--write", Lock::zlockWrite, "alone (default)");
        auto* const status = app.add_flag("--status", request.status,
                                          "tell number and holder, and how the lock is held now");
        for (auto* const one : {read, protect, write, status}) {
            for (auto* const other : {read, protect, write, status}) {
                if (one != other) one->excludes(other);
            }
        }
    }

    static std::string isDuration(std::string const& text) {
        char* end = nullptr;
        double const seconds = std::strtod(text.c_str(), &end);
        bool const good = !text.empty() && *end == '\0' && seconds >= 0;  // no number is not
        return good ? std::string() : "a time is a number of seconds, 0 or more";
    }

    void addWaits() {
        auto* const noWait =
            app.add_flag("--no-wait", request.noWait, "give up at once when the lock is held");
        app.add_option("--wait", request.waitSeconds, "give up after so many seconds")
            ->check(isDuration)
            ->excludes(noWait);
        app.add_option("--conflict-exit", request.conflictExit,
                       "exit status when the lock was not to be had (default 1)")
            ->check(CLI::Range(0, 255));
    }

    Request& request;
    CLI::App app{description, "zlock"};
};

int complain(std::string const& text) {
    std::cerr << "zlock: " << text << "\n";
    return failed;
}

/// Why the library gave up.
std::string reasonOf(ZException const& e, Request const& request) {
    if (dynamic_cast<ZInvalidParameterException const*>(&e) != nullptr)
        return request.directory + ": no directory that its owner may write and search";
    auto const* const resource = dynamic_cast<ZResourceException const*>(&e);
    std::string const file = request.directory + "/._zpl" + request.name + ": ";
    if (resource == nullptr)
        return file + e.getName() + " (message " + std::to_string(e.getCode()) + ")";
    if (resource->resourceRc() == EBADF) return file + "is no plain file";
    if (resource->resourceRc() < 0) return file + "is no lock file";
    return file + std::strerror(resource->resourceRc());
}

bool takeMode(Lock& lock, Request const& request) {
    constexpr double millisecondsPerSecond = 1000;
    constexpr double longest = std::numeric_limits<int>::max();
    if (request.noWait) return lock.tryLock(request.mode);
    if (request.waitSeconds < 0) {
        lock.lock(request.mode);
        return true;
    }
    return lock.lockFor(request.mode, static_cast<long>(std::min(
                                          request.waitSeconds * millisecondsPerSecond, longest)));
}

/// As takeMode(); tells why the file could not be opened, which the exception does not.
bool take(Lock& lock, Request const& request) {
    try {
        return takeMode(lock, request);
    } catch (ZLockResourceException const& e) {
        int const error = lock.lockFileError();
        bool const isPlanted = error < 0 || error == ELOOP || error == EISDIR;
        if (e.resourceRc() != EBADF || isPlanted) throw;
        zraise(ZLockResourceException(static_cast<int>(e.getCode()), error), "zlock", __LINE__);
    }
}

/// Runs the command; whether it may have changed something, as far as one can tell by its end.
int runAndJudge(char* const* command, bool& mayHaveChanged) {
    constexpr int killed = 128;  // by a signal, itself or what it ran, at who knows which point
    int status = failed;
    mayHaveChanged = false;
    try {
        status = runCommand(command);
        mayHaveChanged = status == 0 || status >= killed;
    } catch (std::system_error const& e) {
        complain(std::string(command[0]) + ": " + e.code().message());
    }
    return status;
}

int run(Request const& request, char* const* command) {
    Lock lock(request.name.c_str(), request.directory.c_str());
    constexpr int octal = 8;
    if (!request.fileMode.empty())
        lock.setLockFileMode(static_cast<mode_t>(std::stoul(request.fileMode, nullptr, octal)));
    if (!take(lock, request)) return request.conflictExit;
    unsigned long const before = lock.getSequence();
    setenv("ZLOCK_SEQUENCE", std::to_string(before).c_str(), 1);
    bool const writes = request.mode != Lock::zlockRead;
    // Now, not at the end: what the command has changed is told to others also when this process
    // is killed.
    if (writes) lock.incSequence();
    bool mayHaveChanged = false;
    int const status = runAndJudge(command, mayHaveChanged);
    if (writes && !mayHaveChanged) lock.writeSequenceNumber(before);
    lock.unlock(0);
    return status;
}

bool isAlive(int pid) { return kill(pid, 0) == 0 || errno == EPERM; }

char const* stateName(Lock::zlockstate state) {
    if (state == Lock::zlockUnset) return "free";
    return state == Lock::zlockRead ? "read" : "written";
}

int tellStatus(Request const& request) {
    Lock const lock(request.name.c_str(), request.directory.c_str());
    Lock::FileStatus const status = lock.fileStatus();
    std::cout << "sequence: " << status.sequence << "\n";
    if (status.holderPid <= 0) {
        std::cout << "last holder: none\n";
    } else {
        std::cout << "last holder: " << status.holderPid
                  << (isAlive(status.holderPid) ? " (running)\n" : " (gone)\n");
    }
    std::cout << "state: " << stateName(status.state) << "\n" << std::flush;
    return std::cout ? done : complain("standard output cannot be written");
}

/// Where the command begins, behind "--"; `argc` when there is none.
int commandStart(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--") == 0) return i + 1;
    }
    return argc;
}

int main(int argc, char** argv) {
    // The command's words are not for the parser, which gives some of them a meaning.
    int const start = commandStart(argc, argv);
    bool const hasMark = start <= argc && std::strcmp(argv[start - 1], "--") == 0 && start > 1;
    Request request;
    int status = done;
    if (!CommandLine(request).parse(hasMark ? start - 1 : argc, argv, status)) return status;
    if (request.status == (start < argc)) {
        complain(request.status ? "--status runs no command"
                                : "no command; it follows \"--\": zlock NAME -- COMMAND");
        return wrongUsage;
    }
    try {
        return request.status ? tellStatus(request) : run(request, argv + start);
    } catch (ZException const& e) {
        return complain(reasonOf(e, request));
    }
}

}  // namespace
}  // namespace zlock

int main(int argc, char** argv) {
    tools::useInstalledDataDirectory();
    return zlock::main(argc, argv);
}
