// link: static
// wrap: pthread_mutex_init,pthread_mutex_destroy,pthread_mutex_lock,pthread_mutex_trylock
// wrap: pthread_mutex_unlock,pthread_cond_init,pthread_cond_destroy,pthread_cond_wait
// wrap: pthread_cond_timedwait,pthread_cond_signal,pthread_cond_broadcast
//
// What locks and conditions do when the system's calls fail.
#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <cerrno>
#include <ctime>
#include <functional>
#include <limits>
#include <ostream>
#include <utility>
#include <vector>

#include "Z/ZCondition.h"
#include "Z/ZLock.h"
#include "support/reports.h"
#include "support/threads.h"

#if defined(__clang__)
// The tests hold locks across scopes on purpose.
#pragma clang diagnostic ignored "-Wthread-safety-analysis"
#endif

namespace {

enum Call {
    mutexInit,
    mutexDestroy,
    mutexLock,
    mutexTrylock,
    mutexUnlock,
    condInit,
    condDestroy,
    condWait,
    condTimedwait,
    condSignal,
    condBroadcast,
    callCount
};

// What the calling thread's next call of each kind returns instead of running; 0: it runs.
thread_local std::array<int, callCount> faults{};
thread_local timespec lastDeadline{};  // of the calling thread's last timed wait

template <class Function, class... Arguments>
int unlessPlanted(Call call, Function* real, Arguments... arguments) {
    int const planted = std::exchange(faults.at(call), 0);
    return planted != 0 ? planted : real(arguments...);
}

}  // namespace

extern "C" {
decltype(pthread_mutex_init) __real_pthread_mutex_init;
decltype(pthread_mutex_destroy) __real_pthread_mutex_destroy;
decltype(pthread_mutex_lock) __real_pthread_mutex_lock;
decltype(pthread_mutex_trylock) __real_pthread_mutex_trylock;
decltype(pthread_mutex_unlock) __real_pthread_mutex_unlock;
decltype(pthread_cond_init) __real_pthread_cond_init;
decltype(pthread_cond_destroy) __real_pthread_cond_destroy;
decltype(pthread_cond_wait) __real_pthread_cond_wait;
decltype(pthread_cond_timedwait) __real_pthread_cond_timedwait;
decltype(pthread_cond_signal) __real_pthread_cond_signal;
decltype(pthread_cond_broadcast) __real_pthread_cond_broadcast;

int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, pthread_mutexattr_t const* attributes) {
    return unlessPlanted(mutexInit, __real_pthread_mutex_init, mutex, attributes);
}
int __wrap_pthread_mutex_destroy(pthread_mutex_t* mutex) {
    return unlessPlanted(mutexDestroy, __real_pthread_mutex_destroy, mutex);
}
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    return unlessPlanted(mutexLock, __real_pthread_mutex_lock, mutex);
}
int __wrap_pthread_mutex_trylock(pthread_mutex_t* mutex) {
    return unlessPlanted(mutexTrylock, __real_pthread_mutex_trylock, mutex);
}
int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    return unlessPlanted(mutexUnlock, __real_pthread_mutex_unlock, mutex);
}
int __wrap_pthread_cond_init(pthread_cond_t* cond, pthread_condattr_t const* attributes) {
    return unlessPlanted(condInit, __real_pthread_cond_init, cond, attributes);
}
int __wrap_pthread_cond_destroy(pthread_cond_t* cond) {
    return unlessPlanted(condDestroy, __real_pthread_cond_destroy, cond);
}
int __wrap_pthread_cond_wait(pthread_cond_t* cond, pthread_mutex_t* mutex) {
    return unlessPlanted(condWait, __real_pthread_cond_wait, cond, mutex);
}
int __wrap_pthread_cond_timedwait(pthread_cond_t* cond, pthread_mutex_t* mutex,
                                  timespec const* deadline) {
    lastDeadline = *deadline;
    return unlessPlanted(condTimedwait, __real_pthread_cond_timedwait, cond, mutex, deadline);
}
int __wrap_pthread_cond_signal(pthread_cond_t* cond) {
    return unlessPlanted(condSignal, __real_pthread_cond_signal, cond);
}
int __wrap_pthread_cond_broadcast(pthread_cond_t* cond) {
    return unlessPlanted(condBroadcast, __real_pthread_cond_broadcast, cond);
}
}

namespace {

using testsupport::onThread;
using testsupport::Report;
using testsupport::Reports;
using testsupport::thrownBy;

Report const nothing{"", 0, {}};

/// A lock that is held at depth 1 and its condition.
struct Held {
    Held() { lock.lock(); }
    ZLock lock;
    ZCondition condition{lock};
};

struct Row {
    char const* name;
    Call call;
    int rc;
    std::function<void(Held&)> operation;
    Report thrown;
    std::vector<Report> reported;
};

std::ostream& operator<<(std::ostream& out, Row const& row) { return out << row.name; }

void waitOneMinute(Held& held) {
    int timedOut = 0;
    held.condition.wait(60, timedOut);
}

std::vector<Row> const rows{
    {"CreateLock",
     mutexInit,
     ENOMEM,
     [](Held&) { ZLock const lock; },
     {"ZCreateResourceException", 3, {"12"}},
     {}},
    {"CreateConditionWithLock",
     mutexInit,
     EAGAIN,
     [](Held&) { ZCondition const condition; },
     {"ZCreateResourceException", 3, {"11"}},
     {}},
    {"DestroyLock",
     mutexDestroy,
     EBUSY,
     [](Held&) { ZLock const lock; },
     nothing,
     {{"src/Z/ZLock", 4, {"16"}}}},
    {"Lock",
     mutexLock,
     EINVAL,
     [](Held&) { ZLock().lock(); },
     {"ZLockResourceException", 5, {"22"}},
     {}},
    {"TryLock",
     mutexTrylock,
     EAGAIN,
     [](Held&) { (void)ZLock().try_lock(); },
     {"ZLockResourceException", 5, {"11"}},
     {}},
    {"Unlock",
     mutexUnlock,
     EPERM,
     [](Held& held) { held.lock.unlock(); },
     {"ZUnlockResourceException", 6, {"1"}},
     {}},
    {"CreateCondition",
     condInit,
     ENOMEM,
     [](Held&) { ZCondition const condition; },
     {"ZConditionException", 7, {}},
     {}},
    {"CreateConditionOnLentLock",
     condInit,
     EAGAIN,
     [](Held& held) { ZCondition const condition(held.lock); },
     {"ZConditionException", 7, {}},
     {}},
    {"DestroyCondition",
     condDestroy,
     EBUSY,
     [](Held&) { ZCondition const condition; },
     nothing,
     {{"src/Z/ZCondition", 8, {"16"}}}},
    {"Wait",
     condWait,
     EINVAL,
     [](Held& held) { held.condition.wait(); },
     {"ZConditionException", 9, {}},
     {{"src/Z/ZCondition", 9, {"22"}}}},
    {"WaitThatClaimsATimeOutWithoutADeadline",
     condWait,
     ETIMEDOUT,
     [](Held& held) { held.condition.wait(); },
     {"ZConditionException", 9, {}},
     {{"src/Z/ZCondition", 9, {"110"}}}},
    // Number 9 also for a timed wait.
    {"TimedWait",
     condTimedwait,
     EPERM,
     waitOneMinute,
     {"ZConditionException", 9, {}},
     {{"src/Z/ZCondition", 9, {"1"}}}},
    {"Signal",
     condSignal,
     EINVAL,
     [](Held& held) { held.condition.signal(); },
     {"ZConditionException", 10, {}},
     {{"src/Z/ZCondition", 10, {"22"}}}},
    {"Broadcast",
     condBroadcast,
     EINVAL,
     [](Held& held) { held.condition.broadcast(); },
     {"ZConditionException", 27, {}},
     {{"src/Z/ZCondition", 27, {"22"}}}},
};

class LockFault : public testing::TestWithParam<Row> {};

TEST_P(LockFault, IsThrownOrReportedAndLeavesTheHoldAsItWas) {
    Row const& row = GetParam();
    Reports reports;
    Held held;
    faults.at(row.call) = row.rc;
    EXPECT_EQ(thrownBy([&] { row.operation(held); }), row.thrown);
    EXPECT_EQ(faults.at(row.call), 0) << "the call was not made";
    EXPECT_EQ(reports.take(), row.reported);

    EXPECT_FALSE(onThread([&] { return held.lock.try_lock(); })) << "still held";
    held.lock.unlock();
    EXPECT_EQ(thrownBy([&] { held.lock.unlock(); }),
              (Report{"ZUnlockResourceException", 6, {"0"}}));
}

INSTANTIATE_TEST_SUITE_P(Calls, LockFault, testing::ValuesIn(rows),
                         [](auto const& row) { return row.param.name; });

TEST(LockFaultTest, ALockThatCouldNotBeTakenIsFree) {
    ZLock lock;
    faults.at(mutexLock) = EINVAL;
    EXPECT_EQ(thrownBy([&] { lock.lock(); }), (Report{"ZLockResourceException", 5, {"22"}}));
    onThread([&] {
        EXPECT_TRUE(lock.try_lock());
        lock.unlock();
    });
}

TEST(LockFaultTest, AFailedWaitKeepsTheDepth) {
    Reports const reports;
    Held held;
    held.lock.lock();
    faults.at(condWait) = EINVAL;
    EXPECT_NE(thrownBy([&] { held.condition.wait(); }), nothing);
    held.lock.unlock();
    held.condition.validateLock();
    held.lock.unlock();
    EXPECT_NE(thrownBy([&] { held.condition.validateLock(); }), nothing);
}

TEST(LockFaultTest, AGuardReportsAnUnlockThatFails) {
    Reports reports;
    ZLock lock;
    {
        ZResourceLock const guard(lock);
        faults.at(mutexUnlock) = EPERM;
    }
    EXPECT_EQ(reports.take(), (std::vector<Report>{{"ZUnlockResourceException", 6, {}}}));
    lock.unlock();
}

/// The deadline that a wait of `seconds` asks the system for.
timespec deadlineFor(long seconds) {
    Held held;
    faults.at(condTimedwait) = ETIMEDOUT;
    int timedOut = 0;
    held.condition.wait(seconds, timedOut);
    EXPECT_EQ(timedOut, 1);
    held.lock.unlock();
    return lastDeadline;
}

TEST(LockFaultTest, DeadlinesAreWholeSecondsFromNowAndNeverOverflow) {
    time_t const before = time(nullptr);
    timespec const inAMinute = deadlineFor(60);
    time_t const after = time(nullptr);
    EXPECT_GE(inAMinute.tv_sec, before + 60);
    EXPECT_LE(inAMinute.tv_sec, after + 60);
    EXPECT_EQ(inAMinute.tv_nsec, 0);
    EXPECT_EQ(deadlineFor(std::numeric_limits<long>::max()).tv_sec,
              std::numeric_limits<time_t>::max());
    timespec const first = deadlineFor(std::numeric_limits<long>::min());
    EXPECT_EQ(first.tv_sec, 0);
    EXPECT_EQ(first.tv_nsec, 1) << "both 0 would be no limit";
    EXPECT_EQ(deadlineFor(-time(nullptr) - 5).tv_nsec, 1);
}

}  // namespace
