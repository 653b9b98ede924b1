#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <vector>

#include "Z/ZCondition.h"
#include "Z/ZLock.h"
#include "support/locks.h"

namespace {

using namespace testsupport;
using Clock = std::chrono::steady_clock;

constexpr long longest = std::numeric_limits<long>::max();

TEST(LockTest, ReentersAndIsFreeAfterAsManyUnlocksAsLocks) {
    ZLock lock;
    lock.lock();
    EXPECT_TRUE(lock.try_lock() && lock.lockFor(0));
    for (int depth = 3; depth > 0; --depth) {
        onThread([&] {
            EXPECT_EQ(thrownBy([&] { lock.unlock(); }), unlockRefused);
            EXPECT_FALSE(lock.try_lock()) << depth;
            for (long const milliseconds : {-1L, 0L, 20L}) {
                auto const start = Clock::now();
                EXPECT_FALSE(lock.lockFor(milliseconds)) << milliseconds;
                EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(milliseconds));
            }
        });
        lock.unlock();
    }
    EXPECT_TRUE(isFree(lock));
    EXPECT_EQ(thrownBy([&] { lock.unlock(); }), unlockRefused);
}

TEST(LockTest, KeepsManyThreadsApart) {
    constexpr int rounds = 2000;
    ZLock lock;
    int sum = 0;
    Crew crew;
    lock.lock();
    for (int i = 0; i < 4; ++i)
        crew.add([&, isTimed = i % 2 == 0] {
            for (int round = 0; round < rounds; ++round) {
                if (!isTimed) lock.lock();
                EXPECT_TRUE(!isTimed || lock.lockFor(longest));
                ++sum;
                lock.unlock();
            }
        });
    EXPECT_FALSE(isFree(lock));
    EXPECT_EQ(sum, 0) << "they wait for the release";
    lock.unlock();
    crew.join();
    EXPECT_EQ(sum, 4 * rounds);
}

TEST(LockTest, ACopyIsAFreeLockAndAssignmentChangesNothing) {
    ZLock held;
    held.lock();
    ZLock copy(held);
    EXPECT_TRUE(isFree(copy));
    copy.lock();
    copy.lock();
    copy = held;
    EXPECT_EQ(unwind(copy), 2);
    EXPECT_EQ(unwind(held), 1);
}

struct BrokenLock : ZLockInterface {
    void lock() override {}
    void unlock() override { throw std::runtime_error("unlock"); }
};

TEST(LockTest, GuardsHoldItForTheScopeAndOursThrowsNothingAtItsEnd) {
    Reports reports;
    ZLock lock;
    ZLock other;
    ZLock lost;
    BrokenLock broken;
    {
        std::scoped_lock const both(lock, other);
        ZResourceLock const again(lock);
        ZResourceLock const isBroken(broken);
        ZResourceLock const isLost(lost);
        EXPECT_FALSE(isFree(lock) || isFree(other) || isFree(lost));
        lost.unlock();  // behind its back
    }
    EXPECT_EQ(reports.take(),
              (std::vector<Report>{{"ZUnlockResourceException", 6, {}}, {"src/Z/ZLock", 19, {}}}));
    EXPECT_TRUE(isFree(lock) && isFree(other));
}

/// A thread that waits by `waits`, with the condition's lock at depth 2 before and after. The
/// caller holds the lock then, which it could only take because the thread waits.
Beside startWaiter(ZCondition& condition, std::function<void()> const& waits) {
    Gate inside;
    Beside waiter([&condition, &inside, waits] {
        condition.lock();
        condition.getResource()->lock();
        inside.open();
        waits();
        EXPECT_EQ(unwind(condition), 2);
    });
    inside.await();
    condition.lock();
    return waiter;
}

/// Expects a wait of `seconds` to end at its deadline.
void expectTimeOut(ZCondition& condition, long seconds, int value = 0) {
    int timedOut = 0;
    EXPECT_EQ(condition.wait(seconds, timedOut), value) << seconds;
    EXPECT_EQ(timedOut, 1) << seconds;
}

TEST(ConditionTest, EveryOperationThatNeedsTheLockRefusesWithoutIt) {
    ZBooleanCondition condition;
    auto const expectRefusals = [&] {
        timespec past{1, 0};
        int timedOut = 0;
        EXPECT_EQ(thrownBy([&] { condition.wait(); }), lockRefused);
        EXPECT_EQ(thrownBy([&] { condition.ZCondition::wait(past, timedOut); }), lockRefused);
        EXPECT_EQ(thrownBy([&] { condition.initCondition(); }), lockRefused);
        EXPECT_EQ(thrownBy([&] { condition.setCondition(1); }), lockRefused);
    };
    expectRefusals();
    condition.lock();
    onThread(expectRefusals);
    EXPECT_EQ(condition.testCondition(), 0) << "nothing was changed";
    EXPECT_EQ(unwind(condition), 1);
}

TEST(ConditionTest, AWaitFreesTheLockFromAnyDepthUntilASignalWakesOneAndABroadcastAll) {
    ZCondition condition;
    int woken = 0;  // under the condition's lock, as the next one
    int tickets = 0;
    Gate firstWoken;
    std::vector<Beside> waiters;
    for (bool const limited : {false, true, true}) {
        waiters.push_back(startWaiter(condition, [&, limited] {
            int timedOut = 0;
            while (tickets == 0)
                EXPECT_EQ(limited ? condition.wait(longest, timedOut) : condition.wait(), 0);
            EXPECT_EQ(timedOut, 0);
            --tickets;
            ++woken;
            firstWoken.open();
        }));
        condition.unlock();
    }
    condition.lock();
    tickets = 1;
    condition.signal();
    condition.unlock();
    firstWoken.await();
    condition.lock();
    EXPECT_EQ(woken, 1);
    tickets = 2;
    condition.broadcast();
    condition.unlock();
    for (Beside& waiter : waiters)
        waiter.join();
    EXPECT_EQ(woken, 3);
    EXPECT_TRUE(isFree(*condition.getResource()));
}

TEST(BooleanConditionTest, ThePredicateIsTrueAfterATimeOutUntilItIsInitialised) {
    ZLock lent;
    lent.lock();
    {
        ZBooleanCondition condition(lent);
        expectTimeOut(condition, 0, 1);
        EXPECT_EQ(condition.testCondition(), 1);
        EXPECT_EQ(condition.setCondition(7), 1);
        EXPECT_EQ(condition.wait(), 7) << "there is nothing to wait for";
        condition.initCondition();
        EXPECT_EQ(condition.testCondition(), 0);
    }
    EXPECT_EQ(unwind(lent), 1) << "left alone";
    EXPECT_TRUE(isFree(lent));
}

/// Counts the tests of its predicate; its hook does not force it.
struct WatchedCondition : ZBooleanCondition {
    int testCondition() override { return ++tests, ZBooleanCondition::testCondition(); }
    void waitTimedOut() override { validateLock(); }
    std::atomic<int> tests{0};
};

TEST(BooleanConditionTest, WaitsOnWhenItIsWokenWithAPredicateThatIsFalse) {
    WatchedCondition condition;
    Beside waiter = startWaiter(condition, [&] { EXPECT_EQ(condition.wait(), 3); });
    condition.broadcast();
    condition.unlock();
    awaitThat([&] { return condition.tests == 2; });
    condition.lock();  // it waits again
    expectTimeOut(condition, 0);
    condition.setCondition(3);
    condition.broadcast();
    condition.unlock();
    waiter.join();
}

}  // namespace
