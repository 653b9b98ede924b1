#include "Z/ZLock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <vector>

#include "Z/ZCondition.h"
#include "support/locks.h"

namespace {

using namespace testsupport;

constexpr long longest = std::numeric_limits<long>::max();
constexpr long shortest = std::numeric_limits<long>::min();

TEST(LockTest, ReentersAndIsFreeAfterAsManyUnlocksAsLocks) {
    ZLock lock;
    lock.lock();
    lock.lock();
    EXPECT_TRUE(lock.try_lock() && lock.lockFor(0));
    for (int depth = 4; depth > 0; --depth) {
        onThread([&] {
            EXPECT_EQ(thrownBy([&] { lock.unlock(); }), unlockRefused);
            EXPECT_FALSE(lock.try_lock()) << depth;
            for (long const milliseconds : {shortest, -1L, 0L, 1L})
                EXPECT_FALSE(lock.lockFor(milliseconds)) << milliseconds;
            auto const start = std::chrono::steady_clock::now();
            EXPECT_FALSE(lock.lockFor(20));
            EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
        });
        lock.unlock();
    }
    EXPECT_TRUE(isFree(lock));
    EXPECT_EQ(thrownBy([&] { lock.unlock(); }), unlockRefused);
}

TEST(LockTest, KeepsManyThreadsApartHoweverTheyTakeIt) {
    constexpr int rounds = 2000;
    for (auto* const take : {+[](ZLock& lock) { return lock.lock(), true; },
                             +[](ZLock& lock) { return lock.lockFor(longEnough); },
                             +[](ZLock& lock) { return lock.lockFor(longest); }}) {
        ZLock lock;
        int sum = 0;
        auto const run = [&] {
            for (int round = 0; round < rounds; ++round) {
                EXPECT_TRUE(take(lock) && take(lock));
                ++sum;
                lock.unlock();
                lock.unlock();
            }
        };
        Crew crew;
        lock.lock();
        for (int i = 0; i < 4; ++i)
            crew.add(run);
        EXPECT_FALSE(isFree(lock));
        EXPECT_EQ(sum, 0) << "they wait for the release";
        lock.unlock();
        crew.join();
        EXPECT_EQ(sum, 4 * rounds);
    }
}

TEST(LockTest, ACopyIsAFreeLockAndAssignmentChangesNothing) {
    ZLock held;
    held.lock();
    std::unique_ptr<ZLockInterface> const copied(new ZLock(held));
    auto& copy = dynamic_cast<ZLock&>(*copied);
    EXPECT_TRUE(isFree(copy));
    copy.lock();
    copy.lock();
    copy = held;
    EXPECT_EQ(unwind(copy), 2);
    held = copy;
    EXPECT_EQ(unwind(held), 1);
    EXPECT_EQ(held.clone(), nullptr);
}

struct BrokenLock : ZLockInterface {
    void lock() override {}
    void unlock() override { throw std::runtime_error("unlock"); }
};

TEST(LockTest, GuardsHoldItForTheScopeAndOursThrowsNothingAtItsEnd) {
    Reports reports;
    ZLock lock;
    ZLock other;
    BrokenLock broken;
    {
        std::scoped_lock const both(lock, other);
        std::unique_lock const again(lock, std::try_to_lock);
        ZResourceLock const guard(lock);
        ZResourceLock const isBroken(broken);
        EXPECT_TRUE(again.owns_lock() && !isFree(lock) && !isFree(other));
    }
    EXPECT_EQ(reports.take(), (std::vector<Report>{{"src/Z/ZLock", 19, {}}}));
    EXPECT_TRUE(isFree(lock) && isFree(other));
    {
        ZResourceLock const guard(lock);
        EXPECT_FALSE(isFree(lock));
        lock.unlock();  // behind its back
    }
    EXPECT_EQ(reports.take(), (std::vector<Report>{{"ZUnlockResourceException", 6, {}}}));
}

/// A thread that waits by `waits`, with the condition's lock at depth 2 before and after. The
/// caller holds the lock then, which it could only take because the thread waits.
Beside startWaiter(ZCondition& condition, std::function<void()> const& waits) {
    auto const inside = std::make_shared<Gate>();
    Beside waiter([&condition, waits, inside] {
        condition.lock();
        condition.getResource()->lock();
        inside->open();
        waits();
        EXPECT_EQ(unwind(condition), 2);
    });
    inside->await();
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
        timespec deadline{1, 0};
        int timedOut = 0;
        EXPECT_EQ(thrownBy([&] { condition.wait(); }), lockRefused);
        EXPECT_EQ(thrownBy([&] { condition.wait(0, timedOut); }), lockRefused);
        EXPECT_EQ(thrownBy([&] { condition.wait(deadline, timedOut); }), lockRefused);
        EXPECT_EQ(thrownBy([&] { condition.ZCondition::wait(deadline, timedOut); }), lockRefused);
        EXPECT_EQ(thrownBy([&] { condition.validateLock(); }), lockRefused);
        EXPECT_EQ(thrownBy([&] { condition.initCondition(); }), lockRefused);
        EXPECT_EQ(thrownBy([&] { static_cast<void>(condition.testCondition()); }), lockRefused);
        EXPECT_EQ(thrownBy([&] { condition.setCondition(1); }), lockRefused);
    };
    expectRefusals();
    condition.lock();
    onThread(expectRefusals);
    condition.validateLock();
    EXPECT_EQ(condition.testCondition(), 0) << "nothing was changed";
    EXPECT_EQ(unwind(condition), 1);
}

TEST(ConditionTest, AWaitFreesTheLockFromAnyDepthAndGivesTheDepthBack) {
    for (long const seconds : {0L, longEnough, longest}) {  // 0: without a limit
        ZCondition condition;
        Beside waiter = startWaiter(condition, [&] {
            int timedOut = seconds == 0 ? 0 : 7;
            EXPECT_EQ(seconds == 0 ? condition.wait() : condition.wait(seconds, timedOut), 0);
            EXPECT_EQ(timedOut, 0);
        });
        condition.signal();
        condition.unlock();
        waiter.join();
        EXPECT_TRUE(isFree(*condition.getResource()));
    }
}

TEST(ConditionTest, EndsAtItsDeadlineWhateverSignalsCameBefore) {
    ZLock lent;
    auto condition = std::make_unique<ZCondition>(lent);
    EXPECT_EQ(condition->getResource(), &lent);
    condition->signal();
    condition->broadcast();
    lent.lock();
    for (long const seconds : {0L, -1L, shortest})
        expectTimeOut(*condition, seconds);
    timespec past{1, 0};
    int timedOut = 0;
    condition->wait(past, timedOut);
    EXPECT_EQ(timedOut, 1);
    condition.reset();
    EXPECT_EQ(unwind(lent), 1) << "lent, and left alone";
    EXPECT_TRUE(isFree(lent));
}

TEST(ConditionTest, SignalWakesOneAndBroadcastAll) {
    ZCondition condition;
    int woken = 0;  // under the condition's lock, as the next one
    int tickets = 0;
    Gate firstWoken;
    std::vector<Beside> waiters;
    for (int i = 0; i < 3; ++i) {
        waiters.push_back(startWaiter(condition, [&] {
            while (tickets == 0)
                condition.wait();
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
}

/// Throws from its hook, after it has seen that the lock is held again.
struct ThrowingCondition : ZCondition {
    void waitTimedOut() override {
        validateLock();
        throw std::runtime_error("hook");
    }
};

TEST(ConditionTest, AWaitThatIsCancelledOrWhoseHookThrowsHoldsTheLockAtItsDepth) {
    Reports reports;
    ThrowingCondition condition;
    Gate inside;
    Doomed const waiter([&] {
        ZResourceLock const outer(condition);
        ZResourceLock const inner(condition);
        EXPECT_THROW(expectTimeOut(condition, 0), std::runtime_error);
        inside.open();
        while (true)
            condition.wait();
    });
    inside.await();
    { ZResourceLock const whenItWaits(condition); }
    EXPECT_TRUE(waiter.cancel());
    EXPECT_TRUE(reports.take().empty()) << "both guards could unlock";
    EXPECT_TRUE(isFree(*condition.getResource()));
}

TEST(BooleanConditionTest, ThePredicateIsTrueAfterATimeOutUntilItIsInitialised) {
    ZLock lent;
    ZBooleanCondition condition(lent);
    ZResourceLock const guard(lent);
    EXPECT_EQ(condition.testCondition(), 0);
    expectTimeOut(condition, 0, 1);
    EXPECT_EQ(condition.testCondition(), 1);
    EXPECT_EQ(condition.setCondition(7), 1);
    EXPECT_EQ(condition.wait(), 7);
    int timedOut = 7;
    EXPECT_EQ(condition.wait(longEnough, timedOut), 7);
    EXPECT_EQ(timedOut, 0) << "there was nothing to wait for";
    condition.initCondition();
    EXPECT_EQ(condition.testCondition(), 0);
}

/// Says when its predicate is tested for the second time; its hook does not force it.
struct WatchedCondition : ZBooleanCondition {
    int testCondition() override {
        if (++tests == 2) testedAgain.open();
        return ZBooleanCondition::testCondition();
    }
    void waitTimedOut() override {}
    int tests = 0;
    Gate testedAgain;
};

TEST(BooleanConditionTest, WaitsOnWhenItIsWokenWithAPredicateThatIsFalse) {
    WatchedCondition condition;
    Beside waiter = startWaiter(condition, [&] { EXPECT_EQ(condition.wait(), 3); });
    condition.broadcast();
    condition.unlock();
    condition.testedAgain.await();
    condition.lock();  // it waits again
    expectTimeOut(condition, 0);
    condition.setCondition(3);
    condition.broadcast();
    condition.unlock();
    waiter.join();
}

}  // namespace
