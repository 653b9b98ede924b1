#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Z/ZException.h"
#include "Z/ZFileLock.h"
#include "support/process_lock.h"
#include "support/reports.h"
#include "support/threads.h"

namespace {

using Lock = ZUnixProcessReadWriteFileLock;
using testsupport::Beside;
using testsupport::inChild;
using testsupport::lockWords;
using testsupport::Report;
using testsupport::thrownBy;

TEST(SequenceUpdateTest, ComparesInThirtyTwoBits) {
    struct {
        ZSequenceUpdate one, other;
        int sign;
    } const rows[] = {
        {{5, 3}, {5, 4}, -1},         {{6, 0}, {5, 9}, 1},
        {{5, 3}, {5, 3}, 0},          {{0, 0}, {0xFFFFFFFE, 0}, 1},  // later, across the wrap
        {{0x80000005, 0}, {6, 0}, 1}, {{}, {0xFFFFFFFF, 0xFFFFFFFF}, 0},
    };
    for (auto const& row : rows) {
        int const difference = row.one.compare(row.other);
        EXPECT_EQ(row.sign, (difference > 0) - (difference < 0)) << row.one.getSequence();
        EXPECT_EQ(row.sign == 0, row.one == row.other);
    }
    std::unique_ptr<ZObject> const copy(ZSequenceUpdate(5, 3).clone());
    EXPECT_EQ(ZSequenceUpdate(5, 3), *copy);
}

using Numbers = std::pair<unsigned long, unsigned long>;

/// Notes what it is told and how the lock was held then, and does what the test wants.
class Reloader : public ZObserverInterface {
  public:
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

    std::vector<Numbers> told;
    std::function<void()> onUpdate;

  private:
    Lock& lock;
};

class SequenceTest : public testsupport::WithProcessLock {
  protected:
    SequenceTest() {  // current with number 0
        lock.readLock();
        lock.unlock();
    }
    /// Other processes write in turn.
    void othersWrite(int times) {
        for (int i = 0; i < times; ++i)
            ASSERT_EQ(0, inChild([&] {
                          auto const other = another();
                          other->writeLock();
                          other->unlock();
                          return 0;
                      }));
    }
};

TEST_F(SequenceTest, TellsEveryObserverOfWhatOthersWrote) {
    Reloader one(lock);
    Reloader two(lock);
    othersWrite(2);
    lock.readLock();
    EXPECT_EQ((std::vector<Numbers>{{2, 0}}), one.told);
    EXPECT_EQ(one.told, two.told);
    EXPECT_EQ(Lock::zlockWrite, lock.getLockState()) << "the read was converted";
    EXPECT_EQ(0, lock.getUpdate());
    lock.unlock();
    EXPECT_EQ(2U, lockWords(path).sequence) << "reloading is no change";
    lock.readLock();
    EXPECT_EQ(Lock::zlockRead, lock.getLockState());
    lock.unlock();
    lock.writeLock();
    lock.unlock();
    lock.readLock();
    lock.unlock();
    EXPECT_EQ(1U, one.told.size()) << "nobody else wrote";
}

TEST_F(SequenceTest, AdoptsTheNumberAtTheFirstLock) {
    othersWrite(3);
    Lock fresh("config", directory.path().c_str());
    Reloader observer(fresh);
    fresh.readLock();
    EXPECT_TRUE(observer.told.empty());
    EXPECT_EQ(Lock::zlockRead, fresh.getLockState());
    EXPECT_EQ(3U, fresh.getLastSequence());
    fresh.unlock();
}

TEST_F(SequenceTest, FollowsTheNumberWithoutObservers) {
    othersWrite(1);
    lock.readLock();
    EXPECT_EQ(Lock::zlockRead, lock.getLockState());
    EXPECT_FALSE(lock.isCurrent());
    lock.unlock();
    EXPECT_TRUE(lock.isCurrent());
    Reloader observer(lock);
    lock.readLock();
    EXPECT_TRUE(observer.told.empty());
    lock.unlock();
}

TEST_F(SequenceTest, OfThoseThatAreToldWritersAloneAdvanceTheNumber) {
    unsigned int number = 0;
    for (auto const mode : {Lock::zlockWrite, Lock::zlockProtect}) {
        Reloader observer(lock);
        othersWrite(1);
        lock.lock(mode);
        EXPECT_EQ((std::vector<Numbers>{{number + 1, number}}), observer.told);
        EXPECT_EQ(mode == Lock::zlockWrite, lock.getUpdate());
        lock.unlock();
        number += mode == Lock::zlockWrite ? 2 : 1;
        EXPECT_EQ(number, lockWords(path).sequence);
    }
}

TEST_F(SequenceTest, TellsAcrossTheWrap) {
    testsupport::writeSequence(path, 0xFFFFFFFE);
    lock.readLock();
    lock.unlock();
    Reloader observer(lock);
    othersWrite(1);
    lock.readLock();
    EXPECT_EQ((std::vector<Numbers>{{0, 0xFFFFFFFE}}), observer.told);
    lock.unlock();
}

TEST_F(SequenceTest, ReleasesTheLockWhenAnObserverThrowsAndTellsAgain) {
    for (auto const mode : {Lock::zlockRead, Lock::zlockWrite}) {
        Reloader thrower(lock);
        Reloader behind(lock);
        thrower.onUpdate = [] { throw std::runtime_error("cannot reload"); };
        othersWrite(1);
        EXPECT_THROW(lock.lock(mode), std::runtime_error);
        EXPECT_TRUE(behind.told.empty());
        EXPECT_EQ(Lock::zlockUnset, lock.getLockState());
        EXPECT_TRUE(isFree());
        thrower.onUpdate = nullptr;
        lock.lock(mode);
        EXPECT_EQ(1U, behind.told.size());
        lock.unlock(0);
        EXPECT_EQ(0, lock.getUpdate());
    }
}

TEST_F(SequenceTest, RefusesAnObserverThatTakesTheLockAgain) {
    Reloader observer(lock);
    Report const refused{"ZLockResourceException", 5, {"0"}};
    observer.onUpdate = [&] {
        EXPECT_EQ(refused, thrownBy([&] { lock.readLock(); }));
        EXPECT_EQ(refused, thrownBy([&] { lock.writeLock(); }));
    };
    othersWrite(1);
    lock.readLock();
    EXPECT_EQ(1U, observer.told.size());
    lock.unlock();
    observer.onUpdate = [&] { lock.readLock(); };
    othersWrite(1);
    EXPECT_EQ(refused, thrownBy([&] { lock.readLock(); })) << "passed on";
    EXPECT_TRUE(isFree());
}

TEST_F(SequenceTest, ObserversOfATimedRequestAskOtherLocksWithoutALimit) {
    Lock other("other", directory.path().c_str());
    Reloader observer(lock);
    observer.onUpdate = [&] {
        other.writeLock();
        other.unlock();
    };
    othersWrite(1);
    EXPECT_TRUE(lock.tryReadLock());
    EXPECT_EQ(1U, other.getSequence());
    lock.unlock();
}

TEST_F(SequenceTest, AThreadThatReadsAlreadyIsNotTold) {
    othersWrite(1);
    lock.readLock();
    Reloader observer(lock);
    lock.readLock();
    EXPECT_TRUE(observer.told.empty());
    EXPECT_EQ(Lock::zlockRead, lock.getLockState());
    lock.unlock();
    lock.unlock();
}

TEST_F(SequenceTest, OneOfManyReadersReloadsForAll) {
    Reloader observer(lock);
    for (int round = 1; round <= 20; ++round) {
        othersWrite(1);
        auto const read = [&] {
            lock.readLock();
            lock.unlock();
        };
        Beside one(read);
        Beside two(read);
        one.join();
        two.join();
        ASSERT_EQ(static_cast<unsigned int>(round), observer.told.size());
    }
}

}  // namespace
