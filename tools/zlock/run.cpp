#include "zlock/run.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

namespace zlock {
namespace {

constexpr int forwarded[] = {SIGHUP,  SIGINT,  SIGQUIT, SIGTERM, SIGUSR1,
                             SIGUSR2, SIGALRM, SIGCONT, SIGWINCH};
constexpr int signalBase = 128;  // as shells tell of a command that a signal ended

sigset_t signalsToWaitFor() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGCHLD);
    for (int const signal : forwarded)
        sigaddset(&set, signal);
    return set;
}

/// Keeps the signals pending until they are waited for.
class Blocked {
  public:
    explicit Blocked(sigset_t const& set) {
        signal(SIGCHLD, SIG_DFL);  // a caller that ignores it would take the command's status away
        sigprocmask(SIG_BLOCK, &set, &before);
    }
    ~Blocked() { sigprocmask(SIG_SETMASK, &before, nullptr); }
    Blocked(Blocked const&) = delete;
    Blocked& operator=(Blocked const&) = delete;
    [[nodiscard]] sigset_t const& maskBefore() const { return before; }

  private:
    sigset_t before{};
};

class SpawnAttributes {
  public:
    explicit SpawnAttributes(sigset_t const& mask) {
        posix_spawnattr_init(&attributes);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
        posix_spawnattr_setsigmask(&attributes, &mask);
    }
    ~SpawnAttributes() { posix_spawnattr_destroy(&attributes); }
    SpawnAttributes(SpawnAttributes const&) = delete;
    SpawnAttributes& operator=(SpawnAttributes const&) = delete;
    [[nodiscard]] posix_spawnattr_t const* get() const { return &attributes; }

  private:
    posix_spawnattr_t attributes{};
};

pid_t start(char* const* command, sigset_t const& mask) {
    SpawnAttributes const attributes(mask);
    pid_t child = 0;
    if (int const rc =
            posix_spawnp(&child, command[0], nullptr, attributes.get(), command, environ))
        throw std::system_error(rc, std::generic_category(), command[0]);
    return child;
}

/// Whether the command has ended; `status` is then its exit status.
bool hasEnded(pid_t child, int& status) {
    int raw = 0;
    if (waitpid(child, &raw, WNOHANG) != child) return false;
    status = WIFEXITED(raw) ? WEXITSTATUS(raw) : signalBase + WTERMSIG(raw);
    return true;
}

void forward(siginfo_t const& info, pid_t child) {
    bool const fromTerminal = info.si_code == SI_KERNEL;
    if (info.si_signo != SIGCHLD && !fromTerminal) kill(child, info.si_signo);
}

}  // namespace

int runCommand(char* const* command) {
    sigset_t const awaited = signalsToWaitFor();
    Blocked const blocked(awaited);
    pid_t const child = start(command, blocked.maskBefore());
    int status = 0;
    while (!hasEnded(child, status)) {
        siginfo_t info{};
        if (sigwaitinfo(&awaited, &info) > 0) forward(info, child);
    }
    return status;
}

}  // namespace zlock
