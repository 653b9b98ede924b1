#include "Z/ZCondition.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

#include "support/locks.h"

namespace {

using namespace testsupport;

/// Takes the condition's lock after `inside` was opened under it: the opener waits then.
void lockWhenWaiting(ZCondition& condition, Gate& inside) {
    inside.await();
    condition.lock();
}

TEST(ConditionTest, EveryOperationThatNeedsTheLockRefusesWithoutIt) {
    ZBooleanCondition condition;
    timespec deadline{1, 0};
    int timedOut = 7;
    auto const expectRefusals = [&] {
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
    constexpr long unlimited = -1;
    for (long const seconds : {unlimited, longEnough, std::numeric_limits<long>::max()}) {
        ZCondition condition;
        Gate inside;
        Beside waiter([&] {
            int timedOut = seconds == unlimited ? 0 : 7;
            condition.lock();
            condition.getResource()->lock();
            inside.open();
            EXPECT_EQ(seconds == unlimited ? condition.wait() : condition.wait(seconds, timedOut),
                      0);
            EXPECT_EQ(timedOut, 0);
            EXPECT_EQ(unwind(condition), 2);
        });
        lockWhenWaiting(condition, inside);
        condition.signal();
        condition.unlock();
        waiter.join();
        EXPECT_TRUE(isFree(*condition.getResource()));
    }
}

TEST(ConditionTest, EndsAtItsDeadlineWhateverSignalsCameBefore) {
    ZLock lent;
    {
        ZCondition condition(lent);
        EXPECT_EQ(condition.getResource(), &lent);
        condition.signal();
        condition.broadcast();
        ZResourceLock const guard(lent);
        for (long const seconds : {0L, -1L, std::numeric_limits<long>::min()}) {
            int timedOut = 0;
            EXPECT_EQ(condition.wait(seconds, timedOut), 0);
            EXPECT_EQ(timedOut, 1) << seconds;
        }
        timespec past{1, 0};
        int timedOut = 0;
        condition.wait(past, timedOut);
        EXPECT_EQ(timedOut, 1);
    }
    EXPECT_TRUE(isFree(lent)) << "lent, and left alone";
}

TEST(ConditionTest, SignalWakesOneAndBroadcastAll) {
    constexpr int waiters = 3;
    ZCondition condition;
    int woken = 0;  // under the condition's lock, as the next one
    int tickets = 0;
    Gate firstWoken;
    Gate inside[waiters];
    Crew crew;
    for (Gate& gate : inside)
        crew.add([&] {
            ZResourceLock const guard(condition);
            gate.open();
            while (tickets == 0)
                condition.wait();
            --tickets;
            ++woken;
            firstWoken.open();
        });
    for (Gate& gate : inside)
        lockWhenWaiting(condition, gate), condition.unlock();
    condition.lock();
    tickets = 1;
    condition.signal();
    condition.unlock();
    firstWoken.await();
    condition.lock();
    EXPECT_EQ(woken, 1);
    tickets = waiters - 1;
    condition.broadcast();
    condition.unlock();
    crew.join();
    EXPECT_EQ(woken, waiters);
}

/// Throws from its hook, after it has seen that the lock is held again.
class ThrowingCondition : public ZCondition {
  public:
    void waitTimedOut() override {
        validateLock();
        throw std::runtime_error("hook");
    }
};

TEST(ConditionTest, TheHookRunsWithTheLockHeldAndMayThrow) {
    ThrowingCondition condition;
    condition.lock();
    condition.lock();
    int timedOut = 0;
    EXPECT_THROW(condition.wait(0, timedOut), std::runtime_error);
    EXPECT_EQ(timedOut, 1);
    EXPECT_EQ(unwind(condition), 2);
}

TEST(ConditionTest, ACancelledWaitUnwindsWithTheLockHeldAtItsDepth) {
    Reports reports;
    ZCondition condition;
    Gate inside;
    Doomed const waiter([&] {
        ZResourceLock const outer(condition);
        ZResourceLock const inner(condition);
        inside.open();
        while (true)
            condition.wait();
    });
    lockWhenWaiting(condition, inside);
    condition.unlock();
    EXPECT_TRUE(waiter.cancel());
    EXPECT_TRUE(reports.take().empty()) << "both guards could unlock";
    EXPECT_TRUE(isFree(*condition.getResource()));
}

TEST(BooleanConditionTest, ThePredicateIsTrueAfterATimeOutUntilItIsInitialised) {
    ZLock lent;
    ZBooleanCondition condition(lent);
    ZResourceLock const guard(lent);
    EXPECT_EQ(condition.testCondition(), 0);
    int timedOut = 0;
    EXPECT_EQ(condition.wait(0, timedOut), 1);
    EXPECT_EQ(timedOut, 1);
    EXPECT_EQ(condition.testCondition(), 1);
    EXPECT_EQ(condition.setCondition(7), 1);
    EXPECT_EQ(condition.wait(), 7);
    EXPECT_EQ(condition.wait(longEnough, timedOut), 7);
    EXPECT_EQ(timedOut, 0) << "there was nothing to wait for";
    condition.initCondition();
    EXPECT_EQ(condition.testCondition(), 0);
}

/// Opens a gate at each of the first two tests of its predicate, and does not force it.
class WatchedCondition : public ZBooleanCondition {
  public:
    int testCondition() override {
        (tests++ == 0 ? first : second).open();
        return ZBooleanCondition::testCondition();
    }
    void waitTimedOut() override {}
    Gate first;
    Gate second;

  private:
    int tests = 0;
};

TEST(BooleanConditionTest, WaitsOnWhenItIsWokenWithAPredicateThatIsFalse) {
    WatchedCondition condition;
    Beside waiter([&] {
        ZResourceLock const guard(condition);
        EXPECT_EQ(condition.wait(), 3);
    });
    lockWhenWaiting(condition, condition.first);
    condition.broadcast();
    condition.unlock();
    lockWhenWaiting(condition, condition.second);
    condition.setCondition(3);
    condition.broadcast();
    condition.unlock();
    waiter.join();
}

TEST(BooleanConditionTest, EndsAtItsDeadlineAlsoWhenTheHookLeavesThePredicateFalse) {
    WatchedCondition condition;
    ZResourceLock const guard(condition);
    int timedOut = 0;
    EXPECT_EQ(condition.wait(0, timedOut), 0);
    EXPECT_EQ(timedOut, 1);
}

}  // namespace
