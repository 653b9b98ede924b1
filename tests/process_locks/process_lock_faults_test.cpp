// link: static
// wrap: fcntl64,open64,lseek64,read,write,pread64,pthread_mutex_lock,pthread_mutex_unlock
// wrap: pthread_mutex_trylock,pthread_mutex_clocklock,pthread_mutex_timedlock,pthread_cond_wait
// wrap: pthread_cond_timedwait,pthread_cond_broadcast

// What process locks do when the system's calls fail: the N-th of an operation, once or from there
// on, for every N until the operation runs untouched.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <functional>
#include <ostream>
#include <set>
#include <string>
#include <string_view>

#include "Z/ZException.h"
#include "Z/ZFileLock.h"
#include "support/process_lock.h"
#include "support/reports.h"
#include "support/threads.h"

namespace {

/// The calls that fail, of the thread that is armed: those from the `first`-th on, `count` of them.
struct Plan {
    long first = 0;
    long count = 0;
    int rc = EIO;
    bool shortWrite = false;
};
Plan plan;
long seen = 0;           // calls of the operation
std::string lastFailed;  // the last one that failed; empty for none
thread_local bool armed = false;

/// Called before each call that is not planned to fail; whether it fails all the same.
std::function<bool(std::string_view call)> beforeCall;

bool failsUnplanned(std::string_view call) {
    if (!beforeCall) return false;
    armed = false;
    bool const failing = beforeCall(call);
    armed = true;
    return failing;
}

bool fails(std::string_view call) {
    if (!armed) return false;
    ++seen;
    // Once only: a mutex that can never be unlocked is nobody's again, whatever the library does.
    long const count = call == "pthread_mutex_unlock" ? std::min(plan.count, 1L) : plan.count;
    bool const isPlanned = seen >= plan.first && seen < plan.first + count;
    if (!isPlanned && !failsUnplanned(call)) return false;
    lastFailed = call.substr(0, call.find("64"));
    errno = plan.rc;
    return true;
}

}  // namespace

#define WRAP(function, failure, Result, parameters, arguments)             \
    extern "C" decltype(function) __real_##function;                       \
    extern "C" Result __wrap_##function parameters {                       \
        return fails(#function) ? (failure) : __real_##function arguments; \
    }
WRAP(lseek64, -1, off64_t, (int f, off64_t o, int w), (f, o, w))
WRAP(pread64, -1, ssize_t, (int f, void* b, size_t n, off64_t o), (f, b, n, o))
WRAP(read, -1, ssize_t, (int f, void* b, size_t n), (f, b, n))
WRAP(write, plan.shortWrite ? __real_write(f, b, n - 1) : -1, ssize_t,
     (int f, void const* b, size_t n), (f, b, n))
#define WRAP_PTHREAD(function, parameters, arguments) \
    WRAP(function, plan.rc, int, parameters, arguments)
WRAP_PTHREAD(pthread_mutex_lock, (pthread_mutex_t * m), (m))
WRAP_PTHREAD(pthread_mutex_unlock, (pthread_mutex_t * m), (m))
WRAP_PTHREAD(pthread_mutex_trylock, (pthread_mutex_t * m), (m))
WRAP_PTHREAD(pthread_mutex_clocklock, (pthread_mutex_t * m, clockid_t c, timespec const* t),
             (m, c, t))
WRAP_PTHREAD(pthread_mutex_timedlock, (pthread_mutex_t * m, timespec const* t), (m, t))
WRAP_PTHREAD(pthread_cond_wait, (pthread_cond_t * c, pthread_mutex_t* m), (c, m))
WRAP_PTHREAD(pthread_cond_timedwait, (pthread_cond_t * c, pthread_mutex_t* m, timespec const* t),
             (c, m, t))
WRAP_PTHREAD(pthread_cond_broadcast, (pthread_cond_t * c), (c))

#define WRAP_VARIADIC(function, First, Last)                                   \
    extern "C" decltype(function) __real_##function;                           \
    extern "C" int __wrap_##function(First first, int second, ...) {           \
        va_list arguments;                                                     \
        va_start(arguments, second);                                           \
        Last const last = va_arg(arguments, Last);                             \
        va_end(arguments);                                                     \
        return fails(#function) ? -1 : __real_##function(first, second, last); \
    }
WRAP_VARIADIC(fcntl64, int, void*)
WRAP_VARIADIC(open64, char const*, mode_t)

namespace {

using Lock = ZUnixProcessReadWriteFileLock;
using testsupport::Beside;
using testsupport::Gate;
using testsupport::inChild;
using testsupport::lockWords;
using testsupport::onThread;
using testsupport::Report;
using testsupport::TempDir;
using testsupport::thrownBy;

Report const notHeld{"ZUnlockResourceException", 6, {"0"}};

/// Runs the operation with the planned failures, and with none before and after.
Report thrownWith(Plan const& planned, std::function<void()> const& operation,
                  std::function<bool(std::string_view)> const& before = nullptr) {
    plan = planned;
    seen = 0;
    lastFailed.clear();
    beforeCall = before;
    return thrownBy([&] {
        struct Armed {
            Armed() { armed = true; }
            ~Armed() { armed = false; }
        } const here;
        operation();
    });
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

class Nobody : public ZObserverInterface {
  public:
    void update(ZAbstractObservable* /*source*/, ZObservedParm const& /*parm*/) override {}
};

/// An operation, with what it needs done before.
struct Operation {
    char const* name;
    std::function<void(Lock&)> prepare;
    std::function<void(Lock&)> run;
    bool beside = false;  // while another thread writes, which leaves when the operation waits
};
std::ostream& operator<<(std::ostream& out, Operation const& row) { return out << row.name; }

void nothingBefore(Lock& /*lock*/) {}

Operation const operations[] = {
    {"ReadLock", nothingBefore, [](Lock& l) { l.readLock(); }},
    {"WriteLock", nothingBefore, [](Lock& l) { l.writeLock(); }},
    {"TryLock", nothingBefore, [](Lock& l) { static_cast<void>(l.tryWriteLock()); }},
    {"WaitForAThread", nothingBefore, [](Lock& l) { l.readLock(); }, true},
    {"WaitForAThreadNotForEver", nothingBefore,
     [](Lock& l) { static_cast<void>(l.lockFor(Lock::zlockWrite, 60000)); }, true},
    {"UnlockRead", [](Lock& l) { l.readLock(); }, [](Lock& l) { l.unlock(); }},
    {"UnlockWrite", [](Lock& l) { l.writeLock(); }, [](Lock& l) { l.unlock(); }},
    {"ConvertForObservers", [](Lock& l) { l.setLastSequence(17); }, [](Lock& l) { l.readLock(); }},
};

class ProcessLockFaultTest : public testing::TestWithParam<Operation> {
  protected:
    /// Fails `count` calls from the `n`-th on; whether any was reached.
    bool reaches(long n, long count, int rc) {
        Lock lock("config", directory.path().c_str());
        Nobody observer;
        lock.addObserver(&observer);
        GetParam().prepare(lock);
        bool const locks = lock.haveLock(Lock::zlockUnset);
        Report const thrown = runBesideAWriter(lock, {n, count, rc});
        SCOPED_TRACE(lastFailed + " " + std::to_string(n) + " of " + std::to_string(count));
        bool const reached = !lastFailed.empty();
        EXPECT_TRUE(reached || thrown.what.empty()) << thrown;
        EXPECT_TRUE(isDescribed(thrown)) << thrown;
        bool const isHeld = thrownBy([&] { lock.unlock(0); }) != notHeld;
        // Where locks inside cannot be had any more, or not at once, the thread keeps its hold.
        bool const mayKeep = !thrown.what.empty() && (count > 1 || (!locks && thrown.number == 5));
        EXPECT_TRUE(mayKeep || isHeld == (locks && thrown.what.empty())) << thrown;
        checkFree(lock);
        lock.deleteObservers();
        return reached;
    }

    Report runBesideAWriter(Lock& lock, Plan const& planned) {
        Gate writing;
        Gate leave;
        Beside writer([&] {
            if (GetParam().beside) lock.writeLock();
            writing.open();
            leave.await();
            if (GetParam().beside) lock.unlock(0);
        });
        writing.await();
        auto const leaveWhenWaitedFor = [&](std::string_view call) {
            if (call.find("wait") != call.npos) leave.open();
            return false;
        };
        Report const thrown = thrownWith(
            planned, [&] { GetParam().run(lock); }, leaveWhenWaitedFor);
        leave.open();
        writer.join();
        return thrown;
    }

    void checkFree(Lock& lock) {
        EXPECT_TRUE(lock.haveLock(Lock::zlockUnset));
        EXPECT_EQ(0, lock.getReaderCount());
        EXPECT_EQ(0, lock.getUpdate());
        EXPECT_EQ(descriptors, testsupport::openDescriptors());
        Lock other("config", directory.path().c_str());
        for (Lock* const taken : {&lock, &other}) {
            taken->setLastSequence(17);  // for the lock over the observers
            EXPECT_TRUE(onThread([&] {
                bool const good = taken->lockFor(Lock::zlockWrite, 1000);
                if (good) taken->unlock(0);
                return good;
            }));
        }
    }

    TempDir directory;
    int descriptors = testsupport::openDescriptors();
};

TEST_P(ProcessLockFaultTest, LeavesTheLockToOthersWhicheverCallFails) {
    testsupport::Silence const silence;
    constexpr long all = 1000;
    for (long const count : {1L, all}) {
        for (int const rc : {EIO, EINVAL}) {
            long n = 1;
            while (reaches(n, count, rc))
                ++n;
            EXPECT_GT(n, 1) << "the operation made no calls";
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Operations, ProcessLockFaultTest, testing::ValuesIn(operations),
                         [](auto const& row) { return std::string(row.param.name); });

class ProcessLockFailureTest : public testsupport::WithProcessLock {
  protected:
    /// What is thrown when the `nth` call of this name fails, on a new lock file; `run` is the
    /// operation, `prepare` what it needs done before.
    Report thrownAt(
        char const* name, int nth, Plan planned, std::function<void()> const& run,
        std::function<void()> const& prepare = [] {}) {
        planned.first = callOf(name, nth, run, prepare);
        return onNewFile(planned, run, prepare);
    }
    /// Tries to read, in vain, and leaves nothing locked; `isBusy` says whether a try for a lock
    /// inside finds another holder.
    void triesToRead(std::function<bool()> const& isBusy) {
        auto const run = [&] { EXPECT_FALSE(lock.tryReadLock()); };
        auto const atTry = [&](std::string_view call) {
            return call == "pthread_mutex_trylock" && isBusy();
        };
        EXPECT_EQ("", thrownWith({0, 0, EBUSY}, run, atTry).what);
        EXPECT_TRUE(lock.haveLock(Lock::zlockUnset) && isFree());
    }

    testsupport::Silence silence;
    std::function<void()> const read = [this] { lock.readLock(); };
    std::function<void()> const write = [this] { lock.writeLock(); };
    std::function<void()> const unlock = [this] { lock.unlock(); };

  private:
    Report onNewFile(Plan const& planned, std::function<void()> const& run,
                     std::function<void()> const& prepare) {
        remove(path.c_str());
        prepare();
        return thrownWith(planned, run);
    }
    long callOf(char const* name, int nth, std::function<void()> const& run,
                std::function<void()> const& prepare) {
        for (long n = 1; n < 1000; ++n) {
            onNewFile({n, 1}, run, prepare);
            static_cast<void>(thrownBy(unlock));  // what a failure of this kind left
            if (lastFailed == name && --nth == 0) return n;
        }
        ADD_FAILURE() << "not called: " << name;
        return 0;
    }
};

TEST_F(ProcessLockFailureTest, TellsTheSystemsCode) {
    std::string const code = std::to_string(ENOSPC);
    struct {
        char const* call;
        int nth;
        Report thrown;
    } const rows[] = {
        {"open", 1, {"ZLockResourceException", 33, {std::to_string(EBADF)}}},
        {"fcntl", 1, {"ZLockResourceException", 33, {code}}},
        {"fcntl", 2, {"ZLockResourceException", 33, {code}}},
        {"fcntl", 3, {"ZUnlockResourceException", 34, {code}}},
        {"lseek", 1, {"ZWriteResourceException", 33, {code}}},
        {"write", 1, {"ZWriteResourceException", 33, {code}}},
        {"lseek", 2, {"ZReadResourceException", 35, {code}}},
        {"read", 1, {"ZReadResourceException", 35, {code}}},
        {"pthread_mutex_lock", 1, {"ZLockResourceException", 5, {code}}},
    };
    for (auto const& row : rows)
        EXPECT_EQ(row.thrown, thrownAt(row.call, row.nth, {0, 1, ENOSPC}, read)) << row.call;
}

TEST_F(ProcessLockFailureTest, ReleasesTheLockThatCannotWriteItsNumber) {
    struct {
        Plan plan;
        Report thrown;
    } const rows[] = {
        {{0, 1, ENOSPC}, {"ZWriteResourceException", 33, {std::to_string(ENOSPC)}}},
        {{0, 1, EIO, true}, {"ZWriteResourceException", 33, {std::to_string(EIO)}}},
    };
    for (auto const& row : rows) {
        EXPECT_EQ(row.thrown, thrownAt("write", 1, row.plan, unlock, [&] {
                      lock.writeLock();
                      lock.setLastSequence(5);
                  }));
        EXPECT_EQ(0U, lock.getSequence());
        EXPECT_EQ(5U, lock.getLastSequence());
        EXPECT_TRUE(lock.haveLock(Lock::zlockUnset) && isFree());
    }
}

TEST_F(ProcessLockFailureTest, RepeatsInterruptedWork) {
    for (char const* const call : {"read", "write"}) {
        EXPECT_EQ("", thrownAt(call, 1, {0, 3, EINTR}, read).what) << call;
        lock.unlock();
    }
    EXPECT_EQ("", thrownAt("fcntl", 1, {0, 3, EINTR}, unlock, read).what);
}

TEST_F(ProcessLockFailureTest, AnInterruptedWaitIsTold) {
    Report const interrupted{"ZLockResourceException", 33, {std::to_string(EINTR)}};
    for (auto const& request : {read, write}) {
        EXPECT_EQ(interrupted, thrownAt("fcntl", 1, {0, 1, EINTR}, request));
        EXPECT_TRUE(lock.haveLock(Lock::zlockUnset) && isFree());
    }
}

TEST_F(ProcessLockFailureTest, UsesClassicRecordLocksWhereThereAreNoOthers) {
    struct flock record {};
    record.l_type = F_WRLCK;
    record.l_whence = SEEK_SET;
    record.l_len = 4;
    EXPECT_EQ("", thrownAt("fcntl", 2, {0, 1, EINVAL}, write).what);
    EXPECT_EQ(0, inChild([&] {
                  int const fd = open(path.c_str(), O_RDWR);
                  return fcntl(fd, F_GETLK, &record) == 0 && record.l_type == F_WRLCK ? 0 : 1;
              }));
    lock.unlock();
}

TEST_F(ProcessLockFailureTest, AReaderThatGivesUpDoesNotKeepTheFileOfTheLastOneToLeave) {
    Gate reading;
    Gate leave;
    Beside last([&] {
        lock.readLock();
        reading.open();
        leave.await();
        lock.unlock();
    });
    reading.await();
    triesToRead([&] {  // the other one leaves while this one, which counts already, tries
        leave.open();
        last.join();
        return true;
    });
}

TEST_F(ProcessLockFailureTest, ALimitDoesNotHoldForGivingBack) {
    Nobody observer;
    lock.addObserver(&observer);
    lock.setLastSequence(17);
    int tries = 0;
    triesToRead([&] { return ++tries > 1; });  // from when the read was had
    EXPECT_EQ(2, tries) << "the read was not to become a write";
}

TEST_F(ProcessLockFailureTest, IsNotEndedByTheLimitOfFileSizes) {
    EXPECT_EQ(0, inChild([&] {
                  rlimit const tight{4, 4};
                  if (setrlimit(RLIMIT_FSIZE, &tight) != 0) return 2;
                  Report const tooBig{"ZWriteResourceException", 33, {std::to_string(EFBIG)}};
                  return thrownBy([&] { lock.readLock(); }) == tooBig ? 0 : 1;
              }));
}

TEST_F(ProcessLockFailureTest, DoesNotReadPastAFileThatIsCutOff) {
    lock.createLockFile();
    testsupport::writeFile(path, "abc");
    unsigned long number = 0;
    EXPECT_EQ((Report{"ZReadResourceException", 35, {"-1"}}),
              thrownBy([&] { lock.readSequenceNumber(&number); }));
    testsupport::writeFile(path, "");
    number = 9;
    lock.readSequenceNumber(&number);
    EXPECT_EQ(9U, number);
    lock.closeLockFile();
}

}  // namespace
