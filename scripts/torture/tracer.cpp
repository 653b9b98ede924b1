#include "torture/tracer.h"

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>

#include "torture/process.h"

namespace torture {
namespace {

// Calls that nobody makes, with arguments that nobody has: they only tell the tracer.
constexpr long markerCall = SYS_getpgid;
constexpr unsigned long beginMark = 0x70000001;
constexpr unsigned long endMark = 0x70000002;

constexpr std::size_t endlessCalls = 50000;

struct CallName {
    unsigned long number;
    char const* name;
    bool moves;  // bytes, as many as its third argument says
};
constexpr CallName fileCalls[] = {
    {SYS_open, "open", false},
    {SYS_openat, "openat", false},
    {SYS_creat, "creat", false},
    {SYS_close, "close", false},
    {SYS_read, "read", true},
    {SYS_pread64, "pread", true},
    {SYS_write, "write", true},
    {SYS_pwrite64, "pwrite", true},
    {SYS_readv, "readv", false},
    {SYS_writev, "writev", false},
    {SYS_preadv, "preadv", false},
    {SYS_pwritev, "pwritev", false},
    {SYS_pwritev2, "pwritev2", false},
    {SYS_lseek, "lseek", false},
    {SYS_truncate, "truncate", false},
    {SYS_ftruncate, "ftruncate", false},
    {SYS_fallocate, "fallocate", false},
    {SYS_fsync, "fsync", false},
    {SYS_fdatasync, "fdatasync", false},
    {SYS_sync_file_range, "sync_file_range", false},
    {SYS_syncfs, "syncfs", false},
    {SYS_unlink, "unlink", false},
    {SYS_unlinkat, "unlinkat", false},
    {SYS_rename, "rename", false},
    {SYS_renameat, "renameat", false},
    {SYS_renameat2, "renameat2", false},
    {SYS_link, "link", false},
    {SYS_linkat, "linkat", false},
    {SYS_chmod, "chmod", false},
    {SYS_fchmod, "fchmod", false},
    {SYS_fchmodat, "fchmodat", false},
    {SYS_chown, "chown", false},
    {SYS_fchown, "fchown", false},
    {SYS_fchownat, "fchownat", false},
    {SYS_stat, "stat", false},
    {SYS_lstat, "lstat", false},
    {SYS_fstat, "fstat", false},
    {SYS_newfstatat, "newfstatat", false},
    {SYS_statx, "statx", false},
    {SYS_access, "access", false},
    {SYS_faccessat, "faccessat", false},
    {SYS_fcntl, "fcntl", false},
    {SYS_flock, "flock", false},
    {SYS_getcwd, "getcwd", false},
    {SYS_getdents64, "getdents64", false},
    {SYS_sendfile, "sendfile", false},
    {SYS_copy_file_range, "copy_file_range", false},
};

[[nodiscard]] CallName const* fileCall(unsigned long number) {
    auto const* const end = std::end(fileCalls);
    auto const* const found = std::find_if(
        fileCalls, end, [number](CallName const& call) { return call.number == number; });
    return found != end ? found : nullptr;
}

/// One run of the child.
class Tracer {
  public:
    Tracer(pid_t tracedChild, Plan const& thePlan, OnFlush const& whenFlushed)
        : child(tracedChild), plan(thePlan), onFlush(whenFlushed) {}

    Traced run() {
        if (!awaitStop()) return result;
        constexpr long options = PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL;
        ask(PTRACE_SETOPTIONS, options);
        while (!isDone) {
            if (!isKilled) resume();
            if (!awaitStop()) break;
            if (stopSignal == (SIGTRAP | 0x80)) atCall();
        }
        return result;
    }

  private:
    static constexpr int none = 0;

    void ask(__ptrace_request request, long data) const {
        if (ptrace(request, child, nullptr, reinterpret_cast<void*>(data)) != 0)
            die(std::string("ptrace(): ") + std::strerror(errno));
    }

    void resume() const {
        bool const isOurs =
            stopSignal == SIGSTOP || stopSignal == SIGTRAP || stopSignal == (SIGTRAP | 0x80);
        ask(PTRACE_SYSCALL, isOurs ? none : stopSignal);
    }

    /// False when the child has ended.
    bool awaitStop() {
        int const status = waitFor(child);
        if (WIFSTOPPED(status)) {
            stopSignal = WSTOPSIG(status);
            return true;
        }
        result.hasEnded = true;
        result.status = status;
        return false;
    }

    void atCall() {
        __ptrace_syscall_info info{};
        if (ptrace(PTRACE_GET_SYSCALL_INFO, child, reinterpret_cast<void*>(sizeof info), &info) < 0)
            die("PTRACE_GET_SYSCALL_INFO");
        if (info.op == PTRACE_SYSCALL_INFO_ENTRY) return atEntry(info.entry.nr, info.entry.args);
        if (info.op == PTRACE_SYSCALL_INFO_EXIT) atExit(info.exit.rval);
    }

    void atEntry(unsigned long number, decltype(__ptrace_syscall_info::entry.args) const& args) {
        if (number == static_cast<unsigned long>(markerCall)) return atMarker(args[0]);
        CallName const* const call = isCounting ? fileCall(number) : nullptr;
        if (call == nullptr) return;
        result.calls.push_back(call->name);
        isFlush = number == SYS_fsync || number == SYS_fdatasync;
        flushed = args[0];
        if (result.calls.size() > endlessCalls) {
            result.isHung = true;
            return killNow();
        }
        bool const isMeant =
            result.calls.size() == plan.at || (isFromThereOn() && result.calls.size() > plan.at);
        if (isMeant) befall(*call, args[2]);
    }

    [[nodiscard]] bool isFromThereOn() const {
        return plan.what == Plan::What::failFrom || plan.what == Plan::What::failBehind;
    }

    void atMarker(unsigned long mark) {
        isCounting = mark == beginMark;
        if (mark != endMark) return;
        ask(PTRACE_DETACH, none);
        isDone = true;
    }

    void befall(CallName const& call, unsigned long length) {
        bool const isWrite = call.moves && std::strstr(call.name, "write") != nullptr;
        switch (plan.what) {
            case Plan::What::nothing:
                return;
            case Plan::What::killWithin:
                killsAtExit = isWrite && length > 1;
                if (killsAtExit) halve(length);
                return;
            case Plan::What::kill:
                return killNow();
            case Plan::What::shorten:
                if (call.moves && length > 1) halve(length);
                return;
            case Plan::What::failBehind:
                if (result.calls.size() > plan.at) return fail(call.number != SYS_close);
                if (call.moves && length > 1) halve(length);
                return;
            case Plan::What::failOnce:
            case Plan::What::failFrom:
                return fail(call.number != SYS_close);
        }
    }

    void killNow() {
        kill(child, SIGKILL);
        isKilled = true;
        result.befell = true;
    }

    void halve(unsigned long length) {
        edit([&](user_regs_struct& registers) { registers.rdx = length / 2; });
        halvedFrom = length;
        result.befell = true;
    }

    void fail(bool isSkipped) {
        // There is no call of this number: the kernel does nothing.
        if (isSkipped) edit([](user_regs_struct& registers) { registers.orig_rax = ~0ULL; });
        failsAtExit = true;
        result.befell = true;
    }

    void atExit(long outcome) {
        if (killsAtExit) return killNow();
        if (isFlush && outcome == 0 && onFlush) onFlush(child, flushed);
        isFlush = false;
        if (failsAtExit)
            edit([&](user_regs_struct& registers) {
                registers.rax =
                    static_cast<unsigned long long>(-static_cast<long long>(plan.error));
            });
        // The program counts on the register being what it was.
        if (halvedFrom != 0) edit([&](user_regs_struct& registers) { registers.rdx = halvedFrom; });
        failsAtExit = false;
        halvedFrom = 0;
    }

    template <class Change>
    void edit(Change change) const {
        user_regs_struct registers{};
        if (ptrace(PTRACE_GETREGS, child, nullptr, &registers) != 0) die("PTRACE_GETREGS");
        change(registers);
        if (ptrace(PTRACE_SETREGS, child, nullptr, &registers) != 0) die("PTRACE_SETREGS");
    }

    pid_t child;
    Plan plan;
    OnFlush const& onFlush;
    Traced result;
    int stopSignal = 0;
    bool isCounting = false;
    bool isDone = false;
    bool isKilled = false;  // what is left to do is to see it end
    bool killsAtExit = false;
    bool failsAtExit = false;
    bool isFlush = false;       // the call that is being made
    unsigned long flushed = 0;  // its descriptor
    unsigned long halvedFrom = 0;
};

}  // namespace

void beginTraced() {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) die("PTRACE_TRACEME");
    static_cast<void>(raise(SIGSTOP));
    syscall(markerCall, beginMark);
}

void endTraced() { syscall(markerCall, endMark); }

Traced traceChild(pid_t child, Plan const& plan, OnFlush const& onFlush) {
    return Tracer(child, plan, onFlush).run();
}

bool befalls(Plan::What what, char const* call) {
    bool const isWrite = std::strstr(call, "write") != nullptr;
    if (what == Plan::What::killWithin) return isWrite;
    bool const isHalf = what == Plan::What::shorten || what == Plan::What::failBehind;
    return !isHalf || isWrite || std::strstr(call, "read") != nullptr;
}

std::string describe(Plan const& plan, Traced const& traced) {
    static char const* const words[] = {"nothing",   "kill before", "kill within", "fail",
                                        "fail from", "fail behind", "shorten"};
    char const* const call =
        plan.at >= 1 && plan.at <= traced.calls.size() ? traced.calls[plan.at - 1] : "the end";
    std::string text = std::string(words[static_cast<int>(plan.what)]) + " call " +
                       std::to_string(plan.at) + " (" + call + ")";
    if (plan.error != 0) text += std::string(" with ") + std::strerror(plan.error);
    return text;
}

}  // namespace torture
