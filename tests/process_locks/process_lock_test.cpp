#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <thread>

#include "Z/ZException.h"
#include "Z/ZFileLock.h"
#include "support/process_lock.h"
#include "support/reports.h"
#include "support/threads.h"

namespace {

using Lock = ZUnixProcessReadWriteFileLock;
using testsupport::Beside;
using testsupport::Companion;
using testsupport::Gate;
using testsupport::inChild;
using testsupport::lockWords;
using testsupport::onThread;
using testsupport::Report;
using testsupport::TempDir;
using testsupport::thrownBy;

Report const nothing{"", 0, {}};
Report const notHeld{"ZUnlockResourceException", 6, {"0"}};
Report const isReading{"ZInvalidResourceStateException", 32, {"read", "-1"}};
Report const invalidParameter{"ZInvalidParameterException", 22, {}};
Report const notOpened{"ZLockResourceException", 33, {std::to_string(EBADF)}};

class ProcessLockTest : public testsupport::WithProcessLock {};

TEST_F(ProcessLockTest, NamesItsFileByDirectoryAndName) {
    EXPECT_EQ(path, lock.getLockFileName().getChars());
    EXPECT_STREQ("._zplconfig", Lock("config", nullptr).getLockFileName().getChars());
    EXPECT_STREQ("./._zplconfig", Lock("config").getLockFileName().getChars());
    TempDir const other;
    lock.setLockDirName(other.path().c_str());
    EXPECT_EQ(other.file("._zplconfig"), lock.getLockFileName().getChars());
    EXPECT_EQ(other.path(), lock.getLockDirName().getChars());
}

TEST_F(ProcessLockTest, TakesOnlyDirectoriesThatTheOwnerMayWrite) {
    testsupport::writeFile(directory.file("plain"), "");
    mkdir(directory.file("closed").c_str(), 0500);
    for (char const* const name : {"plain", "closed", "missing"}) {
        auto const refused = directory.file(name);
        EXPECT_EQ(invalidParameter, thrownBy([&] { lock.setLockDirName(refused.c_str()); }))
            << name;
        EXPECT_EQ(invalidParameter, thrownBy([&] { Lock("config", refused.c_str()); })) << name;
    }
    EXPECT_EQ(path, lock.getLockFileName().getChars());
}

TEST_F(ProcessLockTest, WritersAdvanceTheNumberAndLeaveTheirPid) {
    unsigned int number = 0;
    for (auto const mode : {Lock::zlockWrite, Lock::zlockProtect}) {  // which is write in the file
        lock.lock(mode);
        lock.promoteReadToWriteLock();
        EXPECT_EQ(number, lock.getSequence());
        EXPECT_EQ(1, lock.getUpdate());
        EXPECT_EQ(Lock::zlockWrite, lock.getLockState());
        EXPECT_FALSE(couldTake(Lock::zlockRead));
        lock.unlock();
        EXPECT_EQ(++number, lockWords(path).sequence);
        EXPECT_EQ(getpid(), lockWords(path).pid);
        EXPECT_EQ(-1, lock.getFileHandle());
        EXPECT_EQ(0, lock.getUpdate());
    }
    lock.writeLock();
    lock.unlock(0);
    EXPECT_EQ(number, lockWords(path).sequence) << "released without a change";
    struct stat status {};
    ASSERT_EQ(0, stat(path.c_str(), &status));
    EXPECT_EQ(02600U, status.st_mode & 07777U);
}

/// What a lock that is held in a mode by this thread answers.
struct Refusal {
    char const* name;
    Lock::zlockstate held;
    std::function<void(Lock&)> request;
    Report thrown;
};
std::ostream& operator<<(std::ostream& out, Refusal const& row) { return out << row.name; }

Report const reentry{"ZLockResourceException", 5, {"0"}};

Refusal const refusals[] = {
    {"WriteByReader", Lock::zlockRead, [](Lock& l) { l.writeLock(); }, isReading},
    {"ProtectByReader", Lock::zlockRead, [](Lock& l) { l.readWithIntentToWriteLock(); }, isReading},
    {"TryWriteByReader", Lock::zlockRead, [](Lock& l) { static_cast<void>(l.tryWriteLock()); },
     isReading},
    {"ReadByWriter", Lock::zlockWrite, [](Lock& l) { l.readLock(); }, reentry},
    {"WriteByWriter", Lock::zlockWrite, [](Lock& l) { l.lock(); }, reentry},
    {"NoSuchMode", Lock::zlockWrite, [](Lock& l) { l.lock(static_cast<Lock::zlockstate>(7)); },
     invalidParameter},
    {"NoSuchTimedMode", Lock::zlockRead,
     [](Lock& l) { static_cast<void>(l.tryLock(Lock::zlockUnset)); }, invalidParameter},
    {"NoSuchRangeMode",
     Lock::zlockWrite,
     [](Lock& l) { l.lockFileRange(static_cast<Lock::zlockstate>(4), 0, 4); },
     {"ZInvalidResourceStateException", 32, {"", "-1"}}},
    {"OtherDirectory", Lock::zlockRead, [](Lock& l) { l.setLockDirName("/"); }, isReading},
    {"NumberByReader", Lock::zlockRead, [](Lock& l) { l.incSequence(); }, isReading},
    {"UnlockReadOfOther", Lock::zlockRead, [](Lock& l) { onThread([&] { l.unlock(); }); }, notHeld},
    {"UnlockWriteOfOther", Lock::zlockWrite, [](Lock& l) { onThread([&] { l.unlock(); }); },
     notHeld},
};

class ProcessLockRefusalTest : public ProcessLockTest,
                               public testing::WithParamInterface<Refusal> {};

TEST_P(ProcessLockRefusalTest, ChangesNothing) {
    lock.lock(GetParam().held);
    int const update = lock.getUpdate();
    EXPECT_EQ(GetParam().thrown, thrownBy([&] { GetParam().request(lock); }));
    EXPECT_EQ(GetParam().held, lock.getLockState());
    EXPECT_EQ(update, lock.getUpdate());
    EXPECT_FALSE(isFree());
    EXPECT_EQ(GetParam().held == Lock::zlockRead, couldTake(Lock::zlockRead));
    lock.unlock(0);
    EXPECT_TRUE(isFree());
    EXPECT_EQ(0U, lockWords(path).sequence);
}

INSTANTIATE_TEST_SUITE_P(Requests, ProcessLockRefusalTest, testing::ValuesIn(refusals),
                         [](auto const& row) { return std::string(row.param.name); });

TEST_F(ProcessLockTest, RefusesToReleaseWhatIsFree) {
    EXPECT_EQ(notHeld, thrownBy([&] { lock.unlock(); }));
    EXPECT_EQ(notHeld, thrownBy([&] { lock.lock(Lock::zlockUnset); }));
    EXPECT_NE(0, access(path.c_str(), F_OK)) << "the file was touched";
}

TEST_F(ProcessLockTest, OnlyAHeldLockTakesANewName) {
    ZLCString name("other");
    lock.setLockName(name);
    EXPECT_STREQ("config", lock.getLockName().getChars());
    lock.writeLock();
    lock.setLockName(name);
    EXPECT_STREQ("other", lock.getLockName().getChars());
    EXPECT_EQ(path, lock.getLockFileName().getChars());
    EXPECT_TRUE(isFree());
}

TEST_F(ProcessLockTest, ExcludesOtherObjectsOfTheNameInTheProcess) {
    lock.readLock();
    EXPECT_TRUE(couldTake(Lock::zlockRead));
    EXPECT_FALSE(couldTake(Lock::zlockWrite));
    lock.unlock();
    lock.writeLock();
    close(open(path.c_str(), O_RDONLY));  // a classic record lock would be lost
    EXPECT_FALSE(couldTake(Lock::zlockRead));
    lock.unlock();
    EXPECT_TRUE(isFree());
}

TEST_F(ProcessLockTest, SharesTheFileAmongReadersOfTheProcess) {
    lock.readLock();
    int const handle = lock.getFileHandle();
    onThread([&] {
        lock.readLock();
        lock.readLock();
        lock.unlock();
        lock.unlock();
    });
    EXPECT_EQ(handle, lock.getFileHandle());
    lock.readLock();
    EXPECT_EQ(2, lock.getReaderCount());
    lock.unlock();
    EXPECT_FALSE(isFree());
    EXPECT_EQ(Lock::zlockRead, lock.getLockState());
    lock.unlock();
    EXPECT_TRUE(isFree());
    EXPECT_TRUE(lock.haveLock(Lock::zlockUnset));
}

TEST_F(ProcessLockTest, DoesNotOpenPlantedFiles) {
    std::string const target = directory.file("target");
    std::function<int()> const plants[] = {
        [&] { return symlink(target.c_str(), path.c_str()); },
        [&] { return link(target.c_str(), path.c_str()); },
        [&] { return mkdir(path.c_str(), 0700); },
        [&] { return mkfifo(path.c_str(), 0600); },
    };
    testsupport::writeFile(target, "precious");
    int const descriptors = testsupport::openDescriptors();
    for (auto const& plant : plants) {
        ASSERT_EQ(0, plant());
        for (auto const mode : {Lock::zlockRead, Lock::zlockWrite})
            EXPECT_EQ(notOpened, thrownBy([&] { lock.lock(mode); }));
        EXPECT_EQ(0, lock.getReaderCount());
        ASSERT_EQ(0, remove(path.c_str()));
    }
    EXPECT_EQ("precious", testsupport::readFile(target));
    EXPECT_EQ(descriptors, testsupport::openDescriptors());
    EXPECT_TRUE(isFree());
}

TEST_F(ProcessLockTest, OpensAFileAnewThatWasRemovedOrReplaced) {
    for (bool const replaced : {false, true}) {
        lock.createLockFile();
        ASSERT_NE(-1, lock.getFileHandle());
        ASSERT_EQ(0, unlink(path.c_str()));
        if (replaced) testsupport::writeSequence(path, 7);
        lock.readLock();
        EXPECT_EQ(replaced ? 7U : 0U, lock.getSequence());
        EXPECT_FALSE(isFree()) << "the lock is on a file without a name";
        lock.unlock();
    }
}

TEST_F(ProcessLockTest, GivesUpWhenTheTimeIsUp) {
    auto const other = another();
    other->writeLock();
    for (auto const mode : {Lock::zlockRead, Lock::zlockProtect, Lock::zlockWrite}) {
        EXPECT_FALSE(lock.tryLock(mode));
        EXPECT_FALSE(lock.lockFor(mode, 5));
        EXPECT_FALSE(lock.lockFor(mode, -1));
        EXPECT_EQ(-1, lock.getFileHandle());
    }
    EXPECT_FALSE(onThread([&] { return other->lockFor(Lock::zlockRead, 5); })) << "same object";
    other->unlock();
    EXPECT_TRUE(lock.tryReadLock());
    EXPECT_FALSE(other->tryWriteLock()) << "the gate was free, the data was not";
    EXPECT_TRUE(other->tryReadLock()) << "the gate was kept";
    other->unlock();
    lock.unlock();
    EXPECT_TRUE(lock.tryWriteLock());
    lock.unlock();
}

TEST_F(ProcessLockTest, WaitsUpToItsLimitForOtherProcesses) {
    for (bool const isKilled : {false, true}) {
        Companion holder([&](Companion& parent) {
            lock.writeLock();
            parent.signal();
            if (!parent.await()) return 1;
            lock.unlock();
            return 0;
        });
        ASSERT_TRUE(holder.await());
        EXPECT_FALSE(lock.lockFor(Lock::zlockWrite, 20));
        isKilled ? static_cast<void>(kill(holder.pid(), SIGKILL)) : holder.signal();
        EXPECT_TRUE(lock.lockFor(Lock::zlockWrite, 60000));
        EXPECT_EQ(1U, lock.getSequence());
        lock.unlock(0);
        EXPECT_EQ(isKilled ? -SIGKILL : 0, holder.join());
    }
}

TEST_F(ProcessLockTest, TellsWhoHoldsTheFile) {
    EXPECT_EQ(0, lock.holderPid());
    EXPECT_EQ(Lock::zlockUnset, lock.fileStatus().state);
    EXPECT_NE(0, access(path.c_str(), F_OK)) << "asking made the file";
    auto const other = another();
    for (auto const mode : {Lock::zlockWrite, Lock::zlockRead}) {
        other->lock(mode);
        EXPECT_EQ(mode, lock.fileStatus().state);
        EXPECT_EQ(getpid(), lock.holderPid());
        other->unlock();
        EXPECT_EQ(Lock::zlockUnset, lock.fileStatus().state);
        EXPECT_EQ(1U, lock.fileStatus().sequence);
    }
    testsupport::writeFile(path, "abc");
    EXPECT_EQ((Report{"ZReadResourceException", 35, {"-1"}}),
              thrownBy([&] { static_cast<void>(lock.holderPid()); }));
}

TEST_F(ProcessLockTest, ClonesAreFreeLocksOfTheSameFile) {
    lock.writeLock();
    std::unique_ptr<ZObject> const copy(lock.clone());
    auto& cloned = dynamic_cast<Lock&>(*copy);
    EXPECT_EQ(path, cloned.getLockFileName().getChars());
    EXPECT_TRUE(cloned.haveLock(Lock::zlockUnset));
    EXPECT_EQ(Lock::invalidSequence, cloned.getLastSequence());
    EXPECT_FALSE(cloned.tryReadLock());
    lock.unlock();
    EXPECT_TRUE(cloned.tryReadLock());
    cloned.unlock();
}

// ---------------------------------------------------------------------------------------- forks

TEST_F(ProcessLockTest, ForkedChildrenHoldNothing) {
    for (auto const mode : {Lock::zlockRead, Lock::zlockWrite}) {
        lock.lock(mode);
        EXPECT_EQ(
            0, inChild([&] {
                bool const unset = lock.haveLock(Lock::zlockUnset) && lock.getReaderCount() == 0;
                bool const refused = thrownBy([&] { lock.unlock(); }) == notHeld;
                bool const reads = lock.tryReadLock();
                if (reads) lock.unlock();
                bool const writes = lock.tryWriteLock();
                return unset && refused && reads == (mode == Lock::zlockRead) && !writes ? 0 : 1;
            }));
        EXPECT_FALSE(isFree()) << "the child took the parent's lock along";
        lock.unlock(0);
    }
    EXPECT_EQ(0U, lockWords(path).sequence);
}

TEST_F(ProcessLockTest, ForkedChildrenLockWhateverOtherThreadsOfTheParentDid) {
    auto const other = another();
    other->writeLock();
    Gate leave;
    Gate reading;
    ZStubProcessReadWriteLock stub("config");
    Beside waiter([&] {
        lock.writeLock();
        lock.unlock(0);
    });  // waits in the file for `other`
    Beside holder([&] {
        stub.readLock();
        reading.open();
        leave.await();
        stub.unlock();
    });
    reading.await();
    EXPECT_EQ(0, inChild([&] { return !lock.tryReadLock() && stub.tryWriteLock() ? 0 : 1; }));
    leave.open();
    other->unlock(0);
    waiter.join();
    holder.join();
    EXPECT_TRUE(isFree());
}

TEST_F(ProcessLockTest, ForkedChildrenDoNotKeepTheLockOfADeadParent) {
    Companion holder([&](Companion& parent) {
        lock.writeLock();
        if (fork() == 0) {
            parent.signal();
            return parent.await() ? 1 : 0;  // ends with the test
        }
        return pause();
    });
    ASSERT_TRUE(holder.await());
    EXPECT_FALSE(isFree());
    kill(holder.pid(), SIGKILL);
    EXPECT_EQ(-SIGKILL, holder.join());
    EXPECT_TRUE(isFree());
}

// --------------------------------------------------------------------------------- cancellation

/// Runs `body` in a thread that cancels itself first; whether the thread was then cancelled.
bool isCancelledIn(std::function<void()> const& body) {
    pthread_t thread{};
    auto const run = [](void* argument) -> void* {
        pthread_cancel(pthread_self());
        (*static_cast<std::function<void()> const*>(argument))();
        return nullptr;
    };
    std::function<void()> copy(body);
    EXPECT_EQ(0, pthread_create(&thread, nullptr, run, &copy));
    void* result = nullptr;
    EXPECT_EQ(0, pthread_join(thread, &result));
    return result == PTHREAD_CANCELED;
}

TEST_F(ProcessLockTest, GivesEverythingBackWhenTheWaitingThreadIsCancelled) {
    for (auto const mode : {Lock::zlockRead, Lock::zlockWrite})
        EXPECT_TRUE(isCancelledIn([&] { lock.lock(mode); }));
    EXPECT_TRUE(lock.haveLock(Lock::zlockUnset));
    EXPECT_EQ(0, lock.getReaderCount());
    EXPECT_EQ(0, lock.getUpdate());
    EXPECT_TRUE(lock.tryWriteLock());
    lock.unlock();
}

TEST_F(ProcessLockTest, ReleasesUnderAGuardOfACancelledThread) {
    EXPECT_TRUE(isCancelledIn([&] {
        int before = 0;
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
        {
            lock.writeLock();
            ZStackReadWriteLock const guard(lock, 1);
            pthread_setcancelstate(before, &before);
        }
        EXPECT_EQ(1U, lockWords(path).sequence);
        pthread_testcancel();
    }));
    EXPECT_TRUE(isFree());
}

// ---------------------------------------------------------------------------------------- stubs

TEST(StubProcessLockTest, KeepsItsNumberInMemory) {
    ZStubProcessReadWriteFileLock lock("config");
    for (unsigned long round = 0; round < 2; ++round) {
        lock.writeLock();
        EXPECT_EQ(round, lock.getSequence());
        EXPECT_EQ(Lock::zlockWrite, lock.getLockState());
        lock.unlock();
    }
    lock.readSequenceNumber(nullptr);
    EXPECT_NE(0, access("./._zplconfig", F_OK));
}

TEST(StubProcessLockTest, OrdersTheThreadsOfTheProcess) {
    ZStubProcessReadWriteLock lock("config");
    for (auto const mode : {Lock::zlockRead, Lock::zlockProtect, Lock::zlockWrite}) {
        lock.lock(mode);
        EXPECT_EQ(mode, lock.getLockState());
        bool const shares = mode == Lock::zlockRead;
        EXPECT_EQ(shares ? isReading : reentry, thrownBy([&] { lock.writeLock(); }));
        onThread([&] {
            EXPECT_EQ(notHeld, thrownBy([&] { lock.unlock(); }));
            EXPECT_EQ(shares, lock.tryReadLock());
            if (shares) lock.unlock();
        });
        EXPECT_EQ(mode, lock.getLockState());
        lock.unlock();
        EXPECT_EQ(Lock::zlockUnset, lock.getLockState());
    }
    EXPECT_EQ(1U, lock.getSequence()) << "of the write alone";
}

}  // namespace
