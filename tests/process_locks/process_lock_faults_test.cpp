// link: static
// wrap: fcntl64,open64,read,pread64,pwrite64,pthread_mutex_lock,pthread_mutex_unlock
// wrap: pthread_mutex_trylock,pthread_mutex_clocklock,pthread_mutex_timedlock,pthread_cond_wait
// wrap: pthread_cond_clockwait,pthread_cond_broadcast

// What process locks do when the system's calls fail.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "support/faults.h"
#include "support/process_lock.h"
#include "support/threads.h"

namespace {

using namespace testsupport;
using Lock = ZUnixProcessReadWriteFileLock;

thread_local bool armed = false;                   // the calls of this thread may fail
std::function<void(std::string_view)> beforeCall;  // of an armed thread; empty for nothing
std::function<void()> afterOpen;                   // once; empty for nothing

bool mayFail(std::string_view call) {
    if (!armed) return false;
    armed = false;
    if (beforeCall) beforeCall(call);
    armed = true;
    // Once only: a mutex that can never be unlocked is nobody's again, whatever the library does.
    return call != "pthread_mutex_unlock" || fault.struck.empty();
}
// Set before there is a second thread, which would look at the plan of an armed one.
[[maybe_unused]] int const hooked = (testsupport::mayStrike = mayFail, 0);

}  // namespace

#define WRAP_PTHREAD(function, parameters, arguments) \
    WRAP(function, int, testsupport::fault.error, parameters, arguments)
WRAP_VARIADIC(fcntl64, int, void*)
extern "C" decltype(open64) __real_open64;
extern "C" int __wrap_open64(char const* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    mode_t const mode = va_arg(arguments, mode_t);
    va_end(arguments);
    int const fd = testsupport::fault.strikes("open64") ? -1 : __real_open64(path, flags, mode);
    if (afterOpen) std::exchange(afterOpen, nullptr)();
    return fd;
}
WRAP(pread64, ssize_t, -1, (int f, void* b, size_t n, off64_t o), (f, b, n, o))
WRAP(read, ssize_t, -1, (int f, void* b, size_t n), (f, b, n))
WRAP(pwrite64, ssize_t, fault.error == 0 ? __real_pwrite64(f, b, n - 1, o) : -1,
     (int f, void const* b, size_t n, off64_t o), (f, b, n, o))
WRAP_PTHREAD(pthread_mutex_lock, (pthread_mutex_t * m), (m))
WRAP_PTHREAD(pthread_mutex_unlock, (pthread_mutex_t * m), (m))
WRAP_PTHREAD(pthread_mutex_trylock, (pthread_mutex_t * m), (m))
WRAP_PTHREAD(pthread_mutex_clocklock, (pthread_mutex_t * m, clockid_t c, timespec const* t),
             (m, c, t))
WRAP_PTHREAD(pthread_mutex_timedlock, (pthread_mutex_t * m, timespec const* t), (m, t))
WRAP_PTHREAD(pthread_cond_wait, (pthread_cond_t * c, pthread_mutex_t* m), (c, m))
WRAP_PTHREAD(pthread_cond_clockwait,
             (pthread_cond_t * c, pthread_mutex_t* m, clockid_t k, timespec const* t), (c, m, k, t))
WRAP_PTHREAD(pthread_cond_broadcast, (pthread_cond_t * c), (c))

namespace {

Report withCode(std::string const& what, int number, int code) {
    return {what, number, {std::to_string(code)}};
}

/// What the operation throws with the planned failures, which nothing before and after has.
Report thrownWith(Fault const& planned, std::function<void()> const& operation) {
    fault = planned;
    armed = true;
    Report const thrown = thrownBy(operation);
    armed = false;
    beforeCall = nullptr;
    return thrown;
}

/// Whether it is nothing, or what a process lock may throw.
bool isDescribed(Report const& thrown) {
    static std::set<std::string> const described{
        "ZLockResourceException 33",  "ZUnlockResourceException 34", "ZReadResourceException 35",
        "ZWriteResourceException 33", "ZLockResourceException 5",    "ZConditionException 9",
        "ZConditionException 10",     "ZConditionException 27"};
    return thrown.what.empty() ||
           described.count(thrown.what + " " + std::to_string(thrown.number)) != 0;
}

/// An operation, with what it needs done before.
struct Operation {
    char const* name;
    void (*prepare)(Lock&);
    void (*run)(Lock&);
    bool beside = false;  // while another thread writes, which leaves when the operation waits
};

void nothing(Lock& /*lock*/) {}
void toRead(Lock& lock) { lock.readLock(); }
void toWrite(Lock& lock) { lock.writeLock(); }
void toWriteInTime(Lock& lock) { static_cast<void>(lock.lockFor(Lock::zlockWrite, 60000)); }
void toTry(Lock& lock) { static_cast<void>(lock.tryWriteLock()); }
void toUnlock(Lock& lock) { lock.unlock(); }
void toBeOutdated(Lock& lock) { lock.setLastSequence(17); }

class ProcessLockFaultTest : public WithProcessLock {
  protected:
    ProcessLockFaultTest() { lock.addObserver(&observer); }
    ~ProcessLockFaultTest() override { lock.deleteObservers(); }

    /// What the operation throws. The lock has to be held then exactly when the operation was to
    /// take it and did.
    Report thrownIn(Operation const& operation, Fault const& planned) {
        lock.setLastSequence(Lock::invalidSequence);
        operation.prepare(lock);
        bool const locks = lock.haveLock(unset);
        Gate leave;
        Beside writer([&] {
            if (operation.beside) lock.writeLock();
            leave.await();
            if (operation.beside) lock.unlock(0);
        });
        awaitThat([&] { return !operation.beside || lock.haveLock(writing); });
        beforeCall = [&](std::string_view call) {
            if (call.find("wait") != call.npos) leave.open();
        };
        Report const thrown = thrownWith(planned, [&] { operation.run(lock); });
        leave.open();
        writer.join();
        SCOPED_TRACE(std::string(operation.name) + ", call " + std::to_string(planned.first) +
                     ", which is " + std::string(fault.struck));
        bool const failed = !thrown.what.empty();
        bool const isHeld = thrownBy([&] { lock.unlock(0); }) != notHeld;
        // Where locks inside cannot be had any more, or not at once, the thread keeps its hold.
        bool const mayKeep = failed && (planned.count > 1 || (!locks && thrown.number == 5));
        EXPECT_TRUE(mayKeep || isHeld == (locks && !failed)) << thrown;
        expectFree();
        return thrown;
    }

    /// With a lock inside that another thread has longer than for a moment.
    void givesUp(Fault const& planned) {
        auto const before = beforeCall;
        beforeCall = [before](std::string_view call) {
            if (before) before(call);
            bool const tries = call == "pthread_mutex_trylock";
            bool const waits =
                call == "pthread_mutex_clocklock" || call == "pthread_mutex_timedlock";
            if (fault.struck.empty() || !(tries || waits)) return;
            fault = {call, 1, tries ? EBUSY : ETIMEDOUT, 1, 0, call};
        };
        auto const run = [&] { EXPECT_FALSE(lock.tryReadLock()); };
        EXPECT_EQ("", thrownWith(planned, run).what);
        expectFree();
    }

    void expectFree() {
        EXPECT_TRUE(lock.haveLock(unset));
        EXPECT_TRUE(lock.getReaderCount() == 0 && lock.getUpdate() == 0);
        EXPECT_EQ(descriptors, openDescriptors());
        for (Lock* const taken : {&lock, &other}) {
            toBeOutdated(*taken);  // for the lock over the observers
            EXPECT_TRUE(onThread([&] { return couldTake(*taken, writing, 1000); }));
        }
    }

    Silence silence;
    NoReload observer;
    int descriptors = openDescriptors();
};

TEST_F(ProcessLockFaultTest, LeavesTheLockToOthersWhicheverCallFails) {
    Operation const operations[] = {
        {"read", nothing, toRead},
        {"write", nothing, toWrite},
        {"try", nothing, toTry},
        {"wait for a thread", nothing, toRead, true},
        {"wait for a thread, not for ever", nothing, toWriteInTime, true},
        {"unlock a read", toRead, toUnlock},
        {"unlock a write", toWrite, toUnlock},
        {"convert for observers", toBeOutdated, toRead},
    };
    for (auto const& operation : operations)
        for (Fault planned : {Fault{"", 0, EIO}, {"", 0, EINVAL}, {"", 0, EIO, everyone}}) {
            do {
                ++planned.first;
                Report const thrown = thrownIn(operation, planned);
                bool const isHarmed = !fault.struck.empty();
                EXPECT_TRUE(isHarmed ? isDescribed(thrown) : thrown.what.empty()) << thrown;
            } while (!fault.struck.empty());
            EXPECT_GT(planned.first, 1) << operation.name;
        }
}

TEST_F(ProcessLockFaultTest, TellsTheSystemsCodeAndRepeatsWhatWasInterrupted) {
    struct {
        Fault planned;
        Report thrown;
        bool atRelease = false;
    } const rows[] = {
        {{"open64", 1, ENOSPC}, withCode("ZLockResourceException", 33, EBADF)},
        {{"fcntl64", 1, ENOSPC}, withCode("ZLockResourceException", 33, ENOSPC)},
        {{"fcntl64", 3, ENOSPC}, withCode("ZUnlockResourceException", 34, ENOSPC)},
        {{"pwrite64", 1, ENOSPC}, withCode("ZWriteResourceException", 33, ENOSPC)},
        {{"pread64", 2, ENOSPC}, withCode("ZReadResourceException", 35, ENOSPC)},
        {{"pthread_mutex_lock", 1, EIO}, withCode("ZLockResourceException", 5, EIO)},
        {{"fcntl64", 1, EINTR}, withCode("ZLockResourceException", 33, EINTR)},  // ends the wait
        {{"pread64", 2, EINTR, 3}, {}},
        {{"pwrite64", 1, EINTR, 3}, {}},
        {{"fcntl64", 1, EINTR, 3}, {}, true},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.planned.function);
        remove(path.c_str());  // only a new file gets the pid
        auto const& operation = row.atRelease ? Operation{"leave", toRead, toUnlock}
                                              : Operation{"read", nothing, toRead};
        EXPECT_EQ(row.thrown, thrownIn(operation, row.planned));
        EXPECT_EQ(row.planned.function, fault.struck);
    }
}

/// Whether this process has the file open.
bool hasOpen(std::string const& path) {
    std::error_code gone;
    for (auto const& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        if (std::filesystem::read_symlink(entry, gone) == path) return true;
    return false;
}

TEST_F(ProcessLockFaultTest, LosesNoDescriptorByACancellationOrForkWhileItIsOpened) {
    std::atomic<pid_t> forking{0};
    Gate opened;
    Gate opening;
    afterOpen = [&] {
        pthread_cancel(pthread_self());
        opened.open();
        pthread_testcancel();
    };
    Doomed const doomed([&] { lock.readLock(); });
    opened.await();
    EXPECT_TRUE(doomed.cancel());
    expectFree();
    Beside forker([&] {
        forking = gettid();
        opening.await();
        EXPECT_EQ(0, inChild([&] { return hasOpen(path) ? 1 : 0; }));
    });
    awaitThat([&] { return forking != 0; });
    afterOpen = [&] {
        opening.open();
        // Until there is a child, which is waited for, or it waits for the descriptor to be noted.
        awaitThat([&] { return stateOf(forking) == 'S'; });
    };
    lock.readLock();
    forker.join();
    lock.unlock();
}

TEST_F(ProcessLockFaultTest, ReleasesTheLockThatCannotWriteItsNumber) {
    for (int const code : {ENOSPC, 0}) {  // 0: not all was written
        writeSequence(path, 7);
        lock.writeLock();
        lock.setLastSequence(5);
        EXPECT_EQ(withCode("ZWriteResourceException", 33, code),
                  thrownWith({"pwrite64", 1, code}, [&] { lock.unlock(); }));
        EXPECT_EQ(0U, lock.getSequence());
        EXPECT_EQ(5U, lock.getLastSequence());
        expectFree();
    }
}

TEST_F(ProcessLockFaultTest, UsesClassicRecordLocksWhereThereAreNoOthers) {
    EXPECT_EQ("", thrownWith({"fcntl64", 2, EINVAL}, [&] { lock.writeLock(); }).what);
    EXPECT_EQ(writing, other.fileStatus().state);
    lock.unlock();
}

TEST_F(ProcessLockFaultTest, AReaderThatGivesUpDoesNotKeepTheFileOfTheLastOneToLeave) {
    Gate leave;
    Beside last([&] {
        lock.readLock();
        leave.await();
        lock.unlock();
    });
    awaitThat([&] { return lock.haveLock(reading); });
    beforeCall = [&](std::string_view call) {
        if (call != "pthread_mutex_trylock" || !lock.haveLock(reading)) return;
        leave.open();  // while this one, which counts already, tries
        awaitThat([&] { return lock.getReaderCount() == 1; });
    };
    givesUp({"pthread_mutex_trylock", 1, EBUSY});
}

TEST_F(ProcessLockFaultTest, ALimitDoesNotHoldForGivingBack) {
    toBeOutdated(lock);
    // From when the read was had, which is then to become a write.
    givesUp({"pthread_mutex_trylock", 2, EBUSY, everyone});
}

TEST_F(ProcessLockFaultTest, ATryIsNotRefusedForWhatIsHeldForAMoment) {
    for (Fault const& moment :
         {Fault{"pthread_mutex_trylock", 1, EBUSY}, {"fcntl64", 1, EAGAIN, 3}})
        for (auto const mode : {reading, writing}) {
            SCOPED_TRACE(moment.function);
            bool taken = false;
            EXPECT_EQ("", thrownWith(moment, [&] { taken = lock.tryLock(mode); }).what);
            EXPECT_TRUE(taken && !fault.struck.empty());
            if (taken) lock.unlock(0);
        }
}

TEST_F(ProcessLockFaultTest, IsNotEndedByTheLimitOfFileSizes) {
    EXPECT_EQ(0, inChild([&] {
                  rlimit const tight{4, 4};
                  if (setrlimit(RLIMIT_FSIZE, &tight) != 0) return 2;
                  Report const tooBig = withCode("ZWriteResourceException", 33, EFBIG);
                  return thrownBy([&] { lock.readLock(); }) == tooBig ? 0 : 1;
              }));
}

TEST_F(ProcessLockFaultTest, DoesNotReadPastAFileThatIsCutOff) {
    lock.createLockFile();
    writeFile(path, "abc");
    unsigned long number = 9;
    Report const cutOff = withCode("ZReadResourceException", 35, -1);
    EXPECT_EQ(cutOff, thrownBy([&] { lock.readSequenceNumber(&number); }));
    EXPECT_EQ(cutOff, thrownBy([&] { return lock.holderPid(); }));
    writeFile(path, "");
    lock.readSequenceNumber(&number);
    EXPECT_EQ(9U, number);
    lock.closeLockFile();
}

}  // namespace
