#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "support/process_lock.h"
#include "support/threads.h"

namespace {

using namespace testsupport;
using Lock = ZUnixProcessReadWriteFileLock;

TEST(SequenceUpdateTest, ComparesInThirtyTwoBits) {
    struct {
        ZSequenceUpdate one, other;
        int sign;
    } const rows[] = {
        {{5, 3}, {5, 4}, -1},         {{6, 0}, {5, 9}, 1},
        {{0, 0}, {0xFFFFFFFE, 0}, 1},  // later, across the wrap
        {{0x80000005, 0}, {6, 0}, 1}, {{}, {0xFFFFFFFF, 0xFFFFFFFF}, 0},
    };
    for (auto const& row : rows) {
        int const difference = row.one.compare(row.other);
        EXPECT_EQ(row.sign, (difference > 0) - (difference < 0)) << row.one.getSequence();
    }
}

using Numbers = std::vector<std::pair<unsigned long, unsigned long>>;  // now and last time

/// Notes what it is told and how the lock was held then, and does what the test wants.
struct Reloader : ZObserverInterface {
    explicit Reloader(Lock& observed) : lock(observed) { lock.addObserver(this); }
    ~Reloader() { lock.deleteObserver(this); }
    Reloader(Reloader const&) = delete;
    Reloader& operator=(Reloader const&) = delete;
    void update(ZAbstractObservable* /*source*/, ZObservedParm const& parm) override {
        auto const& notice = dynamic_cast<ZSequenceUpdate const&>(parm);
        told.emplace_back(notice.getSequence(), notice.getLastSequence());
        EXPECT_TRUE(lock.haveLock(Lock::zlockWrite));
        if (onUpdate) onUpdate();
    }

    Lock& lock;
    Numbers told;
    std::function<void()> onUpdate;
};

void read(Lock& lock) {
    lock.readLock();
    lock.unlock();
}

class SequenceTest : public WithProcessLock {
  protected:
    SequenceTest() { read(lock); }  // current with number 0

    void othersWrite(int times) {
        for (int i = 0; i < times; ++i) {
            other.writeLock();
            other.unlock();
        }
    }
};

TEST_F(SequenceTest, TellsObserversOfWhatOthersWrote) {
    struct {
        char const* name;
        bool isNew;           // never locked before
        unsigned int number;  // in the file at first
        int writes;           // of others, then
        Lock::zlockstate mode;
        Numbers told;
        unsigned int after;  // the number behind the release
    } const rows[] = {
        {"read", false, 0, 2, reading, {{2, 0}}, 2},
        {"write", false, 0, 1, writing, {{1, 0}}, 2},
        {"protect", false, 0, 1, protecting, {{1, 0}}, 1},
        {"the wrap", false, 0xFFFFFFFE, 1, reading, {{0, 0xFFFFFFFE}}, 0},
        {"nobody wrote", false, 3, 0, reading, {}, 3},
        {"before the first read", true, 0, 3, reading, {}, 3},
        {"before the first protect", true, 0, 3, protecting, {}, 4},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        writeSequence(path, row.number);
        Lock observed("config", directory.path().c_str());
        if (!row.isNew) read(observed);
        Reloader one(observed);
        Reloader two(observed);
        othersWrite(row.writes);
        observed.lock(row.mode);
        EXPECT_TRUE(one.told == row.told && two.told == row.told);
        bool const isShared = row.mode == reading && row.told.empty();
        EXPECT_TRUE(observed.haveLock(isShared ? reading : writing));
        observed.unlock();
        EXPECT_EQ(row.after, lockWords(path).sequence);
        EXPECT_EQ(row.after, observed.getLastSequence());
        observed.lock(row.mode);
        EXPECT_EQ(row.told, one.told) << "told again of the same";
        observed.unlock();
    }
}

TEST_F(SequenceTest, TellsOfAWriterThatWasKilledBeforeItsRelease) {
    Reloader observer(lock);
    EXPECT_EQ(-SIGKILL, inChild([&] {
        ZStackWriteLock const guard(other);
        return raise(SIGKILL);
    }));
    read(lock);
    EXPECT_EQ((Numbers{{1, 0}}), observer.told);
    { ZStackWriteLock const guard(lock); }
    read(lock);
    EXPECT_EQ(2U, lockWords(path).sequence) << "once for a write";
    EXPECT_EQ(1U, observer.told.size()) << "of its own";
}

TEST_F(SequenceTest, FollowsTheNumberWhereNobodyIsTold) {
    othersWrite(1);
    lock.readLock();
    EXPECT_TRUE(lock.haveLock(reading) && lock.isCurrent() == 0);
    Reloader observer(lock);
    lock.readLock();  // by a thread that reads already
    EXPECT_TRUE(lock.haveLock(reading));
    lock.unlock();
    lock.unlock();
    EXPECT_TRUE(lock.isCurrent());
    read(lock);
    EXPECT_EQ(Numbers(), observer.told);
}

TEST_F(SequenceTest, ReleasesTheLockWhenAnObserverThrowsAndTellsAgain) {
    for (auto const mode : {reading, writing}) {
        Reloader thrower(lock);
        Reloader behind(lock);
        thrower.onUpdate = [] { throw std::runtime_error("cannot reload"); };
        othersWrite(1);
        EXPECT_THROW(lock.lock(mode), std::runtime_error);
        EXPECT_TRUE(behind.told.empty() && lock.haveLock(unset) && isFree());
        thrower.onUpdate = nullptr;
        lock.lock(mode);
        EXPECT_EQ(1U, behind.told.size());
        lock.unlock(0);
    }
}

TEST_F(SequenceTest, ObserversTakeOtherLocksWithoutTheirRequestsLimitAndNeverTheSame) {
    Lock unlike("unlike", directory.path().c_str());
    Reloader observer(lock);
    othersWrite(1);
    observer.onUpdate = [&] {
        EXPECT_EQ(reentry, thrownBy([&] { lock.readLock(); }));
        lock.writeLock();
    };
    EXPECT_EQ(reentry, thrownBy([&] { lock.readLock(); })) << "passed on";
    EXPECT_TRUE(isFree());
    observer.onUpdate = [&] {
        unlike.writeLock();
        unlike.unlock();
    };
    EXPECT_TRUE(lock.tryReadLock());
    EXPECT_EQ(1U, unlike.getSequence());
    lock.unlock();
}

TEST_F(SequenceTest, OneOfManyReadersReloadsForAll) {
    Reloader observer(lock);
    for (unsigned int round = 1; round <= 20; ++round) {
        othersWrite(1);
        Crew readers;
        for (int i = 0; i < 2; ++i)
            readers.add([&] { read(lock); });
        readers.join();
        ASSERT_EQ(round, observer.told.size());
    }
}

}  // namespace
