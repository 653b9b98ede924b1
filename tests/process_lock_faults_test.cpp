// link: static
// wrap: fcntl,fcntl64,open,open64,lseek,lseek64,read,write
//
// What process locks do when the system's calls fail.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <functional>
#include <ostream>
#include <string>

#include "Z/ZException.h"
#include "Z/ZFileLock.h"
#include "support/lock_files.h"
#include "support/processes.h"
#include "support/reports.h"

namespace {

/// The calls that fail: those from the `first`-th on, `count` of them. The tests' own thread alone
/// calls anything.
struct Plan {
    long first = 0;
    long count = 0;
    int rc = EIO;
    long seen = 0;
    std::string lastFailed;  // the call
    bool shortWrite = false;
};
Plan plan;

bool fails(char const* call) {
    ++plan.seen;
    if (plan.seen < plan.first || plan.seen >= plan.first + plan.count) return false;
    plan.lastFailed = call;
    errno = plan.rc;
    return true;
}

}  // namespace

extern "C" {
int __real_fcntl(int fd, int command, ...);
int __real_fcntl64(int fd, int command, ...);
int __real_open(char const* path, int flags, ...);
int __real_open64(char const* path, int flags, ...);
off_t __real_lseek(int fd, off_t offset, int whence);
off64_t __real_lseek64(int fd, off64_t offset, int whence);
ssize_t __real_read(int fd, void* buffer, size_t length);
ssize_t __real_write(int fd, void const* buffer, size_t length);

int __wrap_fcntl(int fd, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return fails("fcntl") ? -1 : __real_fcntl(fd, command, argument);
}
int __wrap_fcntl64(int fd, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return fails("fcntl") ? -1 : __real_fcntl64(fd, command, argument);
}
int __wrap_open(char const* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    mode_t const mode = va_arg(arguments, mode_t);
    va_end(arguments);
    return fails("open") ? -1 : __real_open(path, flags, mode);
}
int __wrap_open64(char const* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    mode_t const mode = va_arg(arguments, mode_t);
    va_end(arguments);
    return fails("open") ? -1 : __real_open64(path, flags, mode);
}
off_t __wrap_lseek(int fd, off_t offset, int whence) {
    return fails("lseek") ? -1 : __real_lseek(fd, offset, whence);
}
off64_t __wrap_lseek64(int fd, off64_t offset, int whence) {
    return fails("lseek") ? -1 : __real_lseek64(fd, offset, whence);
}
ssize_t __wrap_read(int fd, void* buffer, size_t length) {
    return fails("read") ? -1 : __real_read(fd, buffer, length);
}
ssize_t __wrap_write(int fd, void const* buffer, size_t length) {
    if (!fails("write")) return __real_write(fd, buffer, length);
    return plan.shortWrite ? __real_write(fd, buffer, length - 1) : -1;
}
}

namespace {

using Lock = ZUnixProcessReadWriteFileLock;
using testsupport::inChild;
using testsupport::lockWords;
using testsupport::Report;
using testsupport::Reports;
using testsupport::TempDir;
using testsupport::thrownBy;

/// Runs the operation with the planned failures, and with none before and after.
Report thrownWith(Plan const& planned, const std::function<void()>& operation) {
    plan = planned;
    Report const thrown = thrownBy(operation);
    plan.first = 0;
    plan.count = 0;
    return thrown;
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
};
std::ostream& operator<<(std::ostream& out, Operation const& row) { return out << row.name; }

void nothingBefore(Lock& /*lock*/) {}

Operation const operations[] = {
    {"ReadLock", nothingBefore, [](Lock& l) { l.readLock(); }},
    {"WriteLock", nothingBefore, [](Lock& l) { l.writeLock(); }},
    {"TryLock", nothingBefore, [](Lock& l) { static_cast<void>(l.tryWriteLock()); }},
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
        bool const startsFree = lock.haveLock(Lock::zlockUnset);
        Report const thrown =
            thrownWith({n, count, rc, 0, {}, false}, [&] { GetParam().run(lock); });
        bool const reached = !plan.lastFailed.empty();
        SCOPED_TRACE(std::string(plan.lastFailed) + " " + std::to_string(n));
        check(lock, thrown, startsFree, reached);
        lock.deleteObservers();
        return reached;
    }

    void check(Lock& lock, Report const& thrown, bool startsFree, bool reached) {
        bool const threw = !thrown.what.empty();
        EXPECT_LE(threw, reached) << thrown;
        EXPECT_TRUE(!threw || thrown.number == 33 || thrown.number == 34 || thrown.number == 35)
            << thrown;
        if (startsFree && !threw) {
            EXPECT_FALSE(lock.haveLock(Lock::zlockUnset));
            lock.unlock(0);
        }
        // Whatever failed: nothing is held, neither here nor in the file, and no descriptor lost.
        EXPECT_TRUE(lock.haveLock(Lock::zlockUnset));
        EXPECT_EQ(0, lock.getReaderCount());
        EXPECT_EQ(0, lock.getUpdate());
        EXPECT_EQ(descriptors, testsupport::openDescriptors());
        Lock other("config", directory.path().c_str());
        EXPECT_TRUE(other.tryWriteLock());
        other.unlock(0);
        EXPECT_TRUE(lock.lockFor(Lock::zlockWrite, 1000));
        lock.unlock(0);
    }

    TempDir directory;
    int descriptors = testsupport::openDescriptors();
};

TEST_P(ProcessLockFaultTest, LeavesTheLockFreeWhicheverCallFails) {
    Reports const reports;
    constexpr long all = 1000;
    for (long const count : {1L, all}) {
        for (int const rc : {EIO, ENOLCK, EINVAL}) {
            long n = 1;
            while (reaches(n, count, rc))
                ++n;
            EXPECT_GT(n, 1) << "the operation made no calls";
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Operations, ProcessLockFaultTest, testing::ValuesIn(operations),
                         [](auto const& row) { return std::string(row.param.name); });

class ProcessLockFailureTest : public testing::Test {
  protected:
    /// Which call of the operation, from 1 on, is the `nth` of this name.
    static long callOf(char const* name, int nth, const std::function<void()>& operation,
                       const std::function<void()>& before) {
        for (long n = 1;; ++n) {
            before();
            thrownWith({n, 1, EIO, 0, {}, false}, operation);
            if (plan.lastFailed.empty()) return 0;
            if (plan.lastFailed == name && --nth == 0) return n;
        }
    }

    TempDir directory;
    std::string path = directory.file("._zplconfig");
    Lock lock{"config", directory.path().c_str()};
};

TEST_F(ProcessLockFailureTest, TellsTheSystemsCode) {
    auto const read = [&] { lock.readLock(); };
    auto const noPreparation = [] {};
    struct {
        char const* call;
        int nth;
        Report thrown;
    } const rows[] = {
        {"open", 1, {"ZLockResourceException", 33, {std::to_string(EBADF)}}},
        {"fcntl", 1, {"ZLockResourceException", 33, {std::to_string(ENOSPC)}}},
        {"fcntl", 2, {"ZLockResourceException", 33, {std::to_string(ENOSPC)}}},
        {"fcntl", 3, {"ZUnlockResourceException", 34, {std::to_string(ENOSPC)}}},
        {"lseek", 1, {"ZWriteResourceException", 33, {std::to_string(ENOSPC)}}},
        {"write", 1, {"ZWriteResourceException", 33, {std::to_string(ENOSPC)}}},
        {"lseek", 2, {"ZReadResourceException", 35, {std::to_string(ENOSPC)}}},
        {"read", 1, {"ZReadResourceException", 35, {std::to_string(ENOSPC)}}},
    };
    for (auto const& row : rows) {
        long const n = callOf(row.call, row.nth, read, noPreparation);
        ASSERT_GT(n, 0) << row.call;
        EXPECT_EQ(row.thrown, thrownWith({n, 1, ENOSPC, 0, {}, false}, read)) << row.call;
    }
}

TEST_F(ProcessLockFailureTest, ReleasesTheLockThatCannotWriteItsNumber) {
    long number = 0;
    auto const release = [&] { lock.unlock(); };
    auto const take = [&] { lock.writeLock(); };
    number = callOf("write", 1, release, take);
    ASSERT_GT(number, 0);
    take();
    lock.setLastSequence(5);
    EXPECT_EQ((Report{"ZWriteResourceException", 33, {"28"}}),
              thrownWith({number, 1, ENOSPC, 0, {}, false}, release));
    EXPECT_TRUE(lock.haveLock(Lock::zlockUnset));
    EXPECT_EQ(0U, lock.getSequence());
    EXPECT_EQ(5U, lock.getLastSequence());
    take();
    EXPECT_EQ((Report{"ZWriteResourceException", 33, {"5"}}),
              thrownWith({number, 1, EIO, 0, {}, true}, release))
        << "written short";
    EXPECT_TRUE(lock.tryWriteLock());
    lock.unlock(0);
}

TEST_F(ProcessLockFailureTest, RepeatsInterruptedWork) {
    for (char const* const call : {"read", "write"}) {
        long const n = callOf(
            call, 1, [&] { lock.readLock(); }, [] {});
        EXPECT_EQ("", thrownWith({n, 3, EINTR, 0, {}, false}, [&] { lock.readLock(); }).what)
            << call;
        lock.unlock();
    }
    lock.readLock();
    EXPECT_EQ("", thrownWith({1, 3, EINTR, 0, {}, false}, [&] { lock.unlock(); }).what);
}

TEST_F(ProcessLockFailureTest, AnInterruptedWaitIsTold) {
    for (auto const mode : {Lock::zlockRead, Lock::zlockWrite}) {
        long const n = callOf(
            "fcntl", 1, [&] { lock.lock(mode); }, [] {});
        EXPECT_EQ((Report{"ZLockResourceException", 33, {std::to_string(EINTR)}}),
                  thrownWith({n, 1, EINTR, 0, {}, false}, [&] { lock.lock(mode); }));
        EXPECT_TRUE(lock.haveLock(Lock::zlockUnset));
    }
}

TEST_F(ProcessLockFailureTest, UsesClassicRecordLocksWhereThereAreNoOthers) {
    struct flock record {};
    record.l_type = F_WRLCK;
    record.l_whence = SEEK_SET;
    record.l_len = 4;
    long const n = callOf(
        "fcntl", 2, [&] { lock.writeLock(); }, [] {});
    EXPECT_EQ("", thrownWith({n, 1, EINVAL, 0, {}, false}, [&] { lock.writeLock(); }).what);
    EXPECT_EQ(0, inChild([&] {
                  int const fd = open(path.c_str(), O_RDWR);
                  return fcntl(fd, F_GETLK, &record) == 0 && record.l_type == F_WRLCK ? 0 : 1;
              }));
    lock.unlock();
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
