#include "Z/ZCondition.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <limits>
#include <memory>
#include <stdexcept>
#include <vector>

#include "support/reports.h"
#include "support/threads.h"

#if defined(__clang__)
// The tests hold locks at several depths, from several threads, and misuse them on purpose.
#pragma clang diagnostic ignored "-Wthread-safety-analysis"
#endif

namespace {

using testsupport::Beside;
using testsupport::Gate;
using testsupport::onThread;
using testsupport::Report;
using testsupport::Reports;
using testsupport::thrownBy;

constexpr long longEnough = 60;  // seconds; reached only by a test that fails

Report const notHeld{"ZLockResourceException", 5, {"0"}};
Report const nothing{"", 0, {}};

bool isFree(ZLock& lock) {
    return onThread([&] {
        bool const taken = lock.try_lock();
        if (taken) lock.unlock();
        return taken;
    });
}

/// The calling thread's depth; the lock is free afterwards.
int unwind(ZCondition& condition) {
    int depth = 0;
    while (thrownBy([&] { condition.unlock(); }) == nothing)
        ++depth;
    return depth;
}

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
        EXPECT_EQ(thrownBy([&] { condition.wait(); }), notHeld);
        EXPECT_EQ(thrownBy([&] { condition.wait(0, timedOut); }), notHeld);
        EXPECT_EQ(thrownBy([&] { condition.wait(deadline, timedOut); }), notHeld);
        EXPECT_EQ(thrownBy([&] { condition.ZCondition::wait(deadline, timedOut); }), notHeld);
        EXPECT_EQ(thrownBy([&] { condition.validateLock(); }), notHeld);
        EXPECT_EQ(thrownBy([&] { condition.initCondition(); }), notHeld);
        EXPECT_EQ(thrownBy([&] { (void)condition.testCondition(); }), notHeld);
        EXPECT_EQ(thrownBy([&] { condition.setCondition(1); }), notHeld);
    };
    expectRefusals();
    condition.lock();
    onThread(expectRefusals);
    condition.validateLock();
    EXPECT_EQ(condition.testCondition(), 0) << "nothing was changed";
    EXPECT_EQ(unwind(condition), 1);
}

TEST(ConditionTest, AWaitFreesTheLockFromAnyDepthAndGivesTheDepthBack) {
    ZCondition condition;
    Gate inside;
    int depth = 0;
    Beside waiter([&] {
        condition.lock();
        condition.getResource()->lock();
        inside.open();
        EXPECT_EQ(condition.wait(), 0);
        depth = unwind(condition);
    });
    lockWhenWaiting(condition, inside);
    condition.signal();
    condition.unlock();
    waiter.join();
    EXPECT_EQ(depth, 2);
    EXPECT_TRUE(isFree(*condition.getResource()));
}

TEST(ConditionTest, WaitsWithALentLockAndLeavesItAlone) {
    ZLock lent;
    {
        ZCondition condition(lent);
        EXPECT_EQ(condition.getResource(), &lent);
        ZResourceLock const guard(lent);
        int timedOut = 0;
        condition.wait(0, timedOut);
        EXPECT_EQ(timedOut, 1);
        condition.validateLock();
    }
    lent.lock();
    lent.unlock();
}

TEST(ConditionTest, EndsAtItsDeadline) {
    ZCondition condition;
    ZResourceLock const guard(condition);
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

TEST(ConditionTest, ASignalBeforeTheDeadlineIsNoTimeOut) {
    for (long const seconds : {longEnough, std::numeric_limits<long>::max()}) {
        ZCondition condition;
        Gate inside;
        int timedOut = 7;
        Beside waiter([&] {
            ZResourceLock const guard(condition);
            inside.open();
            condition.wait(seconds, timedOut);
        });
        lockWhenWaiting(condition, inside);
        condition.broadcast();
        condition.unlock();
        waiter.join();
        EXPECT_EQ(timedOut, 0) << seconds;
    }
}

TEST(ConditionTest, WakeUpsWithoutAWaiterAreLost) {
    ZCondition condition;
    condition.signal();
    condition.broadcast();
    ZResourceLock const guard(condition);
    int timedOut = 0;
    condition.wait(0, timedOut);
    EXPECT_EQ(timedOut, 1);
}

TEST(ConditionTest, SignalWakesOneAndBroadcastAll) {
    constexpr int waiters = 3;
    ZCondition condition;
    int woken = 0;  // under the condition's lock, as the next two
    int tickets = 0;
    Gate firstWoken;
    std::vector<std::unique_ptr<Gate>> inside;
    std::vector<std::unique_ptr<Beside>> threads;
    for (int i = 0; i < waiters; ++i) {
        Gate& gate = *inside.emplace_back(std::make_unique<Gate>());
        threads.push_back(std::make_unique<Beside>([&] {
            ZResourceLock const guard(condition);
            gate.open();
            while (tickets == 0)
                condition.wait();
            --tickets;
            ++woken;
            firstWoken.open();
        }));
    }
    for (auto const& gate : inside)
        lockWhenWaiting(condition, *gate), condition.unlock();

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
    for (auto const& thread : threads)
        thread->join();
    EXPECT_EQ(woken, waiters);
}

TEST(ConditionTest, ADeadlineThatIsNoneIsReportedAndThrownAndKeepsTheHold) {
    Reports reports;
    ZCondition condition;
    condition.lock();
    condition.lock();
    timespec noTime{1, 1000000000};
    int timedOut = 7;
    EXPECT_EQ(thrownBy([&] { condition.wait(noTime, timedOut); }),
              (Report{"ZConditionException", 9, {}}));
    EXPECT_EQ(reports.take(), (std::vector<Report>{{"src/Z/ZCondition", 9, {"22"}}}));
    EXPECT_EQ(timedOut, 0);
    EXPECT_EQ(unwind(condition), 2);
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

struct Cancelled {
    ZCondition condition;
    Gate inside;
};

void* waitForCancellation(void* argument) {
    auto& shared = *static_cast<Cancelled*>(argument);
    ZResourceLock const outer(shared.condition);
    ZResourceLock const inner(shared.condition);
    shared.inside.open();
    while (true)
        shared.condition.wait();
}

TEST(ConditionTest, ACancelledWaitUnwindsWithTheLockHeldAtItsDepth) {
    Reports reports;
    Cancelled shared;
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, waitForCancellation, &shared), 0);
    lockWhenWaiting(shared.condition, shared.inside);
    ASSERT_EQ(pthread_cancel(thread), 0);
    shared.condition.unlock();
    void* result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_TRUE(reports.take().empty()) << "both guards could unlock";
    EXPECT_TRUE(isFree(*shared.condition.getResource()));
}

TEST(BooleanConditionTest, ReturnsAPredicateThatIsTrueWithoutWaiting) {
    ZBooleanCondition condition;
    ZResourceLock const guard(condition);
    EXPECT_EQ(condition.testCondition(), 0);
    EXPECT_EQ(condition.setCondition(7), 1);
    EXPECT_EQ(condition.wait(), 7);
    int timedOut = 1;
    EXPECT_EQ(condition.wait(longEnough, timedOut), 7);
    EXPECT_EQ(timedOut, 0);
    condition.initCondition();
    EXPECT_EQ(condition.testCondition(), 0);
}

TEST(BooleanConditionTest, ThePredicateIsTrueAfterATimeOutUntilItIsInitialised) {
    ZLock lent;
    ZBooleanCondition condition(lent);
    ZResourceLock const guard(lent);
    int timedOut = 0;
    EXPECT_EQ(condition.wait(0, timedOut), 1);
    EXPECT_EQ(timedOut, 1);
    EXPECT_EQ(condition.testCondition(), 1);
    EXPECT_EQ(condition.wait(0, timedOut), 1);
    EXPECT_EQ(timedOut, 0) << "there was nothing to wait for";
    condition.initCondition();
    EXPECT_EQ(condition.testCondition(), 0);
}

/// Opens a gate at each of the first two tests of its predicate.
class WatchedCondition : public ZBooleanCondition {
  public:
    int testCondition() override {
        (tests++ == 0 ? first : second).open();
        return ZBooleanCondition::testCondition();
    }
    Gate first;
    Gate second;

  private:
    int tests = 0;
};

TEST(BooleanConditionTest, WaitsOnWhenItIsWokenWithAPredicateThatIsFalse) {
    WatchedCondition condition;
    int result = 0;
    Beside waiter([&] {
        ZResourceLock const guard(condition);
        result = condition.wait();
    });
    lockWhenWaiting(condition, condition.first);
    condition.broadcast();
    condition.unlock();
    lockWhenWaiting(condition, condition.second);
    condition.setCondition(3);
    condition.broadcast();
    condition.unlock();
    waiter.join();
    EXPECT_EQ(result, 3);
}

/// Does not force its predicate at a time-out.
class UnforcedCondition : public ZBooleanCondition {
  public:
    void waitTimedOut() override {}
};

TEST(BooleanConditionTest, EndsAtItsDeadlineAlsoWhenTheHookLeavesThePredicateFalse) {
    UnforcedCondition condition;
    ZResourceLock const guard(condition);
    int timedOut = 0;
    EXPECT_EQ(condition.wait(0, timedOut), 0);
    EXPECT_EQ(timedOut, 1);
}

}  // namespace
