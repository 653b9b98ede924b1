#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Z/ZFileMap.h"
#include "support/process_lock.h"
#include "support/threads.h"

namespace {

using namespace testsupport;

Report const isReading{"ZInvalidResourceStateException", 32, {"read", "-1"}};
Report const noState{"ZInvalidResourceStateException", 32, {"", "-1"}};
Report const invalidParameter{"ZInvalidParameterException", 22, {}};
Report const notOpened{"ZLockResourceException", 33, {std::to_string(EBADF)}};

using ProcessLockTest = WithProcessLock;

TEST_F(ProcessLockTest, NamesItsFileByDirectoryAndName) {
    EXPECT_EQ(path, lock.getLockFileName().getChars());
    EXPECT_STREQ("._zplconfig", Lock("config", nullptr).getLockFileName().getChars());
    EXPECT_STREQ("./._zplconfig", Lock("config").getLockFileName().getChars());
    ZLCString name("other");
    lock.setLockName(name);
    EXPECT_STREQ("config", lock.getLockName().getChars()) << "without the lock";
    lock.writeLock();
    lock.setLockName(name);
    lock.setLockName(name);  // which it has already
    EXPECT_STREQ("other", lock.getLockName().getChars());
    EXPECT_TRUE(isFree() && path == lock.getLockFileName().getChars());
    for (char const* const bad : {"a/b", ".", ".."})
        EXPECT_EQ(invalidParameter, thrownBy([&] { Lock const refused(bad); })) << bad;
    TempDir const elsewhere;
    lock.setLockDirName(elsewhere.path().c_str());
    EXPECT_EQ(elsewhere.file("._zplother"), lock.getLockFileName().getChars());
}

TEST_F(ProcessLockTest, TakesOnlyDirectoriesThatTheOwnerMayWriteAndSearch) {
    ASSERT_EQ(0, close(open(directory.file("plain").c_str(), O_CREAT | O_RDWR, 0700)));
    mkdir(directory.file("closed").c_str(), 0500);
    mkdir(directory.file("hidden").c_str(), 0600);
    for (char const* const name : {"plain", "closed", "hidden", "missing"}) {
        auto const bad = directory.file(name);
        EXPECT_EQ(invalidParameter, thrownBy([&] { lock.setLockDirName(bad.c_str()); })) << name;
        EXPECT_EQ(invalidParameter, thrownBy([&] { Lock("config", bad.c_str()); })) << name;
    }
    EXPECT_EQ(path, lock.getLockFileName().getChars());
}

TEST_F(ProcessLockTest, GivesItsFileTheModeThatWasAskedForAndTellsWhoMayNotOpenIt) {
    mode_t const before = umask(0077);
    lock.setLockFileMode(0660);
    EXPECT_TRUE(couldTake(*std::make_unique<Lock>(lock), writing, 0));
    umask(before);
    struct stat status {};
    ASSERT_EQ(0, stat(path.c_str(), &status));
    EXPECT_EQ(02660U, status.st_mode & 07777U);
    EXPECT_EQ(invalidParameter, thrownBy([&] { lock.setLockFileMode(S_ISUID); }));
    ASSERT_EQ(0, chmod(path.c_str(), 0));
    EXPECT_EQ(EACCES, inChild([&] {
                  static_cast<void>(setuid(65534) == 0);  // as root it may open anything
                  bool const isRefused = thrownBy([&] { lock.readLock(); }) == notOpened;
                  return isRefused ? lock.lockFileError() : 0;
              }));
}

TEST_F(ProcessLockTest, ALockInThePlaceOfOneThatEndedHasNothingOfIt) {
    std::optional<Lock> lockAgain;
    for (int const mode : {0660, 0600}) {
        lockAgain.emplace("config", directory.path().c_str());
        if (mode != 0600) lockAgain->setLockFileMode(0660);
        lockAgain->readLock();
        struct stat status {};
        EXPECT_EQ(0, stat(path.c_str(), &status));
        EXPECT_EQ(static_cast<mode_t>(mode), status.st_mode & 0777U);
        lockAgain->unlock();
        ASSERT_EQ(0, unlink(path.c_str()));
    }
}

TEST_F(ProcessLockTest, TakesFilesAndDirectoriesOfAnyDate) {
    writeSequence(path, 7);
    ASSERT_EQ(0, system(("touch -d 2100-01-01 '" + path + "' " + directory.path()).c_str()));
    lock.setLockDirName((directory.path() + "/.").c_str());
    EXPECT_TRUE(lock.tryReadLock() && lock.getSequence() == 7);
    lock.unlock();
    ZUnixFileMap map(ZLCString(path.c_str()), ZAbstractFileMap::readOnly, 0);
    int rc = 0;
    EXPECT_NE(nullptr, map.mapfile(&rc, 0)) << rc;
}

TEST_F(ProcessLockTest, WritersAdvanceTheNumberAndLeaveTheirPid) {
    unsigned int number = 0;
    for (auto const mode : {writing, protecting}) {  // which is write in the file
        lock.lock(mode);
        lock.promoteReadToWriteLock();
        EXPECT_EQ(number, lock.getSequence());
        EXPECT_TRUE(lock.haveLock(writing) && lock.getUpdate() == 1);
        close(open(path.c_str(), O_RDONLY));  // a classic record lock would be lost
        EXPECT_FALSE(couldTake(reading));
        lock.unlock();
        EXPECT_EQ(++number, lockWords(path).sequence);
        EXPECT_EQ(getpid(), lockWords(path).pid);
        EXPECT_TRUE(lock.getFileHandle() == -1 && lock.getUpdate() == 0);
    }
    lock.writeLock();
    writeSequence(path, 17);
    unsigned long found = 0;
    lock.readSequenceNumber(&found);
    EXPECT_EQ(17U, found) << "what the file has now";
    writeSequence(path, number);
    lock.unlock(0);
    EXPECT_EQ(number, lockWords(path).sequence) << "released without a change";
    struct stat status {};
    ASSERT_EQ(0, stat(path.c_str(), &status));
    EXPECT_EQ(02600U, status.st_mode & 07777U);
}

TEST_F(ProcessLockTest, RefusedRequestsChangeNothing) {
    EXPECT_EQ(notHeld, thrownBy([&] { lock.unlock(); }));
    EXPECT_EQ(notHeld, thrownBy([&] { lock.lock(unset); }));
    EXPECT_NE(0, access(path.c_str(), F_OK)) << "the file was touched";
    auto const unlockBeside = [&] { onThread([&] { lock.unlock(); }); };
    auto const noMode = static_cast<Lock::zlockstate>(4);
    struct {
        char const* name;
        Lock::zlockstate held;  // by this thread
        std::function<void()> request;
        Report thrown;
    } const rows[] = {
        {"try write", reading, [&] { return lock.tryWriteLock(); }, isReading},
        {"read", writing, [&] { lock.readLock(); }, reentry},
        {"write", writing, [&] { lock.lock(); }, reentry},
        {"no mode", writing, [&] { lock.lock(noMode); }, invalidParameter},
        {"try to unlock", reading, [&] { return lock.tryLock(unset); }, invalidParameter},
        {"range in no mode", writing, [&] { lock.lockFileRange(noMode, 0, 4); }, noState},
        {"move", reading, [&] { lock.setLockDirName("/"); }, isReading},
        {"number", reading, [&] { lock.incSequence(); }, isReading},
        {"unlock another's read", reading, unlockBeside, notHeld},
        {"unlock another's write", writing, unlockBeside, notHeld},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        lock.lock(row.held);
        int const update = lock.getUpdate();
        EXPECT_EQ(row.thrown, thrownBy(row.request));
        EXPECT_TRUE(lock.haveLock(row.held) && lock.getUpdate() == update && !isFree());
        EXPECT_EQ(row.held == reading, couldTake(reading));
        lock.unlock(0);
        EXPECT_TRUE(isFree());
        EXPECT_EQ(0U, lockWords(path).sequence);
    }
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
    other.lockFileRange(writing, 4, 4);  // the gate, as a writer that waits for the readers
    EXPECT_TRUE(lock.tryReadLock());
    other.closeLockFile();
    EXPECT_EQ(handle, lock.getFileHandle());
    EXPECT_EQ(2, lock.getReaderCount());
    lock.unlock();
    EXPECT_TRUE(lock.haveLock(reading) && !isFree());
    lock.unlock();
    EXPECT_TRUE(lock.haveLock(unset) && isFree());
}

/// Notes the beginnings of the ranges that it gives back.
struct Noting : ZUnixProcessReadWriteFileLock {
    using ZUnixProcessReadWriteFileLock::ZUnixProcessReadWriteFileLock;
    void unlockFileRange(unsigned int start, unsigned int length) override {
        givenBack += std::to_string(start);
        ZUnixProcessReadWriteFileLock::unlockFileRange(start, length);
    }
    std::string givenBack;
};

TEST_F(ProcessLockTest, AReaderGivesTheGateBackAtOnceAndAWriterAtTheEnd) {
    Noting noting("config", directory.path().c_str());
    for (auto const mode : {reading, writing}) {
        noting.lock(mode);
        noting.unlock();
    }
    EXPECT_EQ("4004", noting.givenBack);
}

TEST_F(ProcessLockTest, DoesNotOpenPlantedFiles) {
    std::string const target = directory.file("target");
    std::function<int()> const plants[] = {
        [&] { return symlink(target.c_str(), path.c_str()); },
        [&] { return link(target.c_str(), path.c_str()); },
        [&] { return mkdir(path.c_str(), 0700); },
        [&] { return mkfifo(path.c_str(), 0600); },
    };
    writeFile(target, "precious");
    lock.setUpdate(1);
    int const descriptors = openDescriptors();
    for (auto const& plant : plants) {
        ASSERT_EQ(0, plant());
        EXPECT_EQ(notOpened, thrownBy([&] { lock.readLock(); }));
        EXPECT_TRUE(lock.getReaderCount() == 0 && lock.getUpdate() == 1);
        ASSERT_EQ(0, remove(path.c_str()));
    }
    EXPECT_EQ("precious", readFile(target));
    EXPECT_EQ(descriptors, openDescriptors());
    EXPECT_TRUE(isFree());
}

TEST_F(ProcessLockTest, OpensAFileAnewThatWasRemovedOrReplaced) {
    for (bool const replaced : {false, true}) {
        lock.createLockFile();
        ASSERT_EQ(0, unlink(path.c_str()));
        if (replaced) writeSequence(path, 7);
        lock.readLock();
        EXPECT_EQ(replaced ? 7U : 0U, lock.getSequence());
        EXPECT_FALSE(isFree()) << "the lock is on a file without a name";
        lock.unlock();
    }
    lock.writeLock();
    ASSERT_EQ(0, unlink(path.c_str()));
    lock.unlock();
    EXPECT_NE(0, access(path.c_str(), F_OK)) << "made anew by a release";
}

TEST_F(ProcessLockTest, GivesUpWhenTheTimeIsUp) {
    other.writeLock();
    for (auto const mode : {reading, protecting, writing}) {
        EXPECT_FALSE(lock.tryLock(mode));
        EXPECT_FALSE(lock.lockFor(mode, 5));
        EXPECT_FALSE(lock.lockFor(mode, -1));
        EXPECT_EQ(-1, lock.getFileHandle());
    }
    EXPECT_FALSE(onThread([&] { return other.lockFor(reading, 5); })) << "same object";
    other.unlock();
    EXPECT_TRUE(lock.tryReadLock());
    EXPECT_FALSE(other.tryWriteLock()) << "the gate was free, the data was not";
    int pid = 1;
    lock.writeBytes(&pid, 4, 4);
    EXPECT_FALSE(other.tryWriteLock());
    EXPECT_EQ(1, lockWords(path).pid) << "of who did not get it";
    EXPECT_TRUE(other.tryReadLock()) << "the gate was kept";
    other.unlock();
    lock.unlock();
    EXPECT_TRUE(couldTake(lock, writing, 0));
}

TEST_F(ProcessLockTest, ClonesAreFreeLocksOfTheSameFile) {
    lock.writeLock();
    std::unique_ptr<ZObject> const copy(lock.clone());
    auto& cloned = dynamic_cast<Lock&>(*copy);
    EXPECT_TRUE(cloned.haveLock(unset) && !cloned.tryReadLock());
    EXPECT_EQ(Lock::invalidSequence, cloned.getLastSequence());
    lock.unlock();
    EXPECT_TRUE(cloned.tryReadLock() && !isFree());
}

TEST_F(ProcessLockTest, WaitsUpToItsLimitForAProcessWhoseLockEndsWithIt) {
    Companion holder([&](Companion& parent) {
        lock.writeLock();
        if (fork() != 0) parent.signal();  // a child that lives longer does not keep the lock
        return parent.await() ? 0 : 1;
    });
    ASSERT_TRUE(holder.await());
    EXPECT_FALSE(lock.lockFor(writing, 20));
    kill(holder.pid(), SIGKILL);
    EXPECT_TRUE(lock.lockFor(writing, 10000));
    lock.unlock(0);
    EXPECT_EQ(-SIGKILL, holder.join());
}

// The thread sanitizer runs a handler when the call that it interrupts has returned, and the kernel
// restarts that one.
#if !defined(__SANITIZE_THREAD__)
Companion* told = nullptr;  // by a handler of signals

TEST_F(ProcessLockTest, SignalsEndAWaitWithALimitAsOneWithout) {
    for (int const flags : {0, SA_RESTART})
        for (bool const limited : {false, true}) {
            SCOPED_TRACE(std::to_string(flags) + (limited ? ", limited" : ""));
            other.writeLock();
            Companion waiter([&](Companion& parent) {
                told = &parent;
                struct sigaction action {};
                action.sa_flags = flags;
                action.sa_handler = [](int) { told->signal(); };
                sigaction(SIGUSR1, &action, nullptr);
                parent.signal();
                Report const thrown = thrownBy([&] {
                    if (!limited) lock.readLock();
                    if (limited && !lock.lockFor(reading, 60000)) _exit(2);
                });
                return thrown.inserts == std::vector<std::string>{std::to_string(EINTR)} ? 1 : 0;
            });
            // It tells first that it is ready, then of every signal.
            for (int i = 0; waiter.await() && (flags == 0 || i < 5); ++i) {
                awaitThat([&] { return stateOf(waiter.pid()) != 'R'; });
                kill(waiter.pid(), SIGUSR1);
            }
            other.unlock(0);
            EXPECT_EQ(flags == 0 ? 1 : 0, waiter.join());
        }
}
#endif

TEST_F(ProcessLockTest, ForkedChildrenHoldNothing) {
    ZStubProcessReadWriteLock stub("config");
    Lock copy(lock);
    struct {
        ZAbstractProcessReadWriteLock& held;  // by the parent
        Lock::zlockstate mode;
        bool mayRead, mayWrite;  // the child
    } const rows[] = {
        {lock, reading, true, false}, {lock, writing, false, false}, {copy, writing, false, false},
        {stub, reading, true, true},  {stub, writing, true, true},
    };
    for (auto const& row : rows) {
        auto const wrongInChild = [&] {
            return inChild([&] {
                if (!row.held.haveLock(unset) || row.held.getReaderCount() != 0) return 1;
                if (row.held.getUpdate() != 0) return 2;
                if (thrownBy([&] { row.held.unlock(); }) != notHeld) return 3;
                if (couldTake(row.held, reading, 0) != row.mayRead) return 4;
                return row.held.tryWriteLock() == row.mayWrite ? 0 : 5;
            });
        };
        row.held.lock(row.mode);
        EXPECT_EQ(0, wrongInChild()) << row.mode;
        EXPECT_EQ(0, onThread(wrongInChild)) << row.mode << ", by a thread that holds nothing";
        EXPECT_EQ(row.mayWrite, isFree()) << "the child took the parent's lock along";
        row.held.unlock(0);
    }
    EXPECT_EQ(0U, lockWords(path).sequence);
}

TEST_F(ProcessLockTest, ForkedChildrenDoNotWaitForAThreadThatWaitsInTheParent) {
    other.writeLock();
    Beside waiter([&] {
        lock.writeLock();
        lock.unlock(0);
    });
    awaitThat([&] { return lock.getFileHandle() >= 0; });  // it has all but the file's range
    EXPECT_EQ(0, inChild([&] { return lock.tryReadLock() ? 1 : 0; }));
    other.unlock(0);
    waiter.join();
    EXPECT_TRUE(isFree());
}

TEST_F(ProcessLockTest, CancelledThreadsGiveBackWhatTheyWaitForAndWhatTheirGuardsHold) {
    auto const isCancelledIn = [](std::function<void()> const& body) {
        auto const cancelled = [&] {
            pthread_cancel(pthread_self());
            body();
        };
        return Doomed(cancelled).cancel();
    };
    for (auto const mode : {reading, writing})
        EXPECT_TRUE(isCancelledIn([&] { lock.lock(mode); }));
    EXPECT_TRUE(lock.haveLock(unset) && lock.getReaderCount() == 0 && lock.getUpdate() == 0);
    EXPECT_TRUE(couldTake(lock, writing, 0));
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

TEST_F(ProcessLockTest, StubsOrderTheThreadsOfTheProcessAndCountInMemory) {
    char const* const place = directory.path().c_str();
    std::unique_ptr<ZObject> const file(ZStubProcessReadWriteFileLock("config", place).clone());
    std::unique_ptr<ZObject> const plain(ZStubProcessReadWriteLock("config").clone());
    auto& fileStub = dynamic_cast<ZStubProcessReadWriteFileLock&>(*file);
    auto& plainStub = dynamic_cast<ZStubProcessReadWriteLock&>(*plain);
    struct {
        ZAbstractProcessReadWriteLock& stub;
        Lock::zlockstate protect;  // how it tells that mode
        unsigned long number;      // behind a release from each mode
    } const rows[] = {{fileStub, writing, 2}, {plainStub, protecting, 1}};
    for (auto const& row : rows) {
        for (auto const mode : {reading, protecting, writing}) {
            row.stub.lock(mode);
            EXPECT_EQ(mode == protecting ? row.protect : mode, row.stub.getLockState());
            onThread([&] {
                EXPECT_EQ(notHeld, thrownBy([&] { row.stub.unlock(); }));
                EXPECT_EQ(mode == reading, couldTake(row.stub, reading, 0));
            });
            row.stub.unlock();
            EXPECT_TRUE(row.stub.haveLock(unset) && row.stub.getUpdate() == 0);
        }
        EXPECT_EQ(row.number, row.stub.getSequence());
    }
    EXPECT_NE(0, access(path.c_str(), F_OK));
}

}  // namespace
