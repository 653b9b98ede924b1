// link: static
// wrap: pthread_mutex_init,pthread_mutex_destroy,pthread_mutex_lock,pthread_mutex_trylock
// wrap: pthread_mutex_unlock,pthread_cond_init,pthread_cond_destroy,pthread_cond_wait
// wrap: pthread_cond_timedwait,pthread_cond_signal,pthread_cond_broadcast,pthread_create
// wrap: pthread_join,pthread_attr_init,pthread_attr_destroy,pthread_attr_setdetachstate
// wrap: pthread_key_create,pthread_setspecific

// What locks, conditions, threads and pools do when the system's calls fail: one that is planted,
// or the N-th of an operation, once or from there on, for every N until it runs untouched.
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <functional>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Z/ZReadWriteLock.h"
#include "support/pthread_calls.h"
#include "support/workers.h"

namespace {

using namespace testsupport;

[[maybe_unused]] auto* const watchdog = testing::AddGlobalTestEnvironment(new Watchdog);

// ---------------------------------------------------------------------------- planted failures

/// A lock that is held at depth 2 and its condition, and a lock that is free.
struct Held {
    Held() {
        lock.lock();
        lock.lock();
    }
    ZLock lock;
    ZCondition condition{lock};
    ZLock other;
};

void makeLock(Held&) { ZLock const lock; }
void makeCondition(Held&) { ZCondition const condition; }
void lock(Held& held) { held.other.lock(); }
void tryLock(Held& held) { static_cast<void>(held.other.try_lock()); }
void lockAndUnlock(Held& held) {
    held.other.lock();
    held.other.unlock();
}
void wait(Held& held) { held.condition.wait(); }
void waitFor(Held& held) {
    struct Flag {
        ~Flag() { EXPECT_EQ(timedOut, 0); }
        int timedOut = 7;
    } flag;
    held.condition.wait(60, flag.timedOut);
}
void signal(Held& held) { held.condition.signal(); }
void broadcast(Held& held) { held.condition.broadcast(); }

void startAndEnd(ZThread& thread) {
    thread.start();
    if (auto* const sleeper = dynamic_cast<Worker*>(&thread)) sleeper->wakeUp();
    thread.waitForExit();
}
void startAndEnd(int isDetached) {
    struct Last {
        ~Last() {
            static_cast<void>(thrownBy([&] { thread.waitForExit(); }));
        }
        ZThread& thread;
    };
    Tally tally;
    Task task(tally, nullptr, isDetached);
    Last const last{task};
    startAndEnd(task);
}
void startJoinable(Held&) { startAndEnd(asJoinable); }
void startDetached(Held&) { startAndEnd(asDetached); }
void makeKey(Held&) {
    unsigned int key = 0;
    ZThread::createThreadKey(key);
}
void setObject(Held&) {
    unsigned int key = 0;
    ZThread::setThreadObject(key, nullptr);
}
void makePool(Held&) { ZThreadPool const pool(2, 1); }
void askPool(Held&) {
    ZThreadPool pool(2, 1);
    ZThread* thread = nullptr;
    pool.getAvailableIdleThread(thread);
}

struct Row {
    char const* function;
    int rc;
    void (*operation)(Held&);
    int number;
    char const* thrown;    // class; null: nothing
    char const* reported;  // source; null: nothing
};

constexpr char inLock[] = "src/Z/ZLock";
constexpr char inCondition[] = "src/Z/ZCondition";
constexpr char inThread[] = "src/Z/ZThread";

constexpr Row rows[] = {
    {"pthread_mutex_init", ENOMEM, makeLock, 3, "ZCreateResourceException", nullptr},
    {"pthread_mutex_init", EAGAIN, makeCondition, 3, "ZCreateResourceException", nullptr},
    {"pthread_mutex_destroy", EBUSY, makeLock, 4, nullptr, inLock},
    {"pthread_mutex_lock", EINVAL, lock, 5, "ZLockResourceException", nullptr},
    {"pthread_mutex_trylock", EAGAIN, tryLock, 5, "ZLockResourceException", nullptr},
    {"pthread_mutex_unlock", EPERM, lockAndUnlock, 6, "ZUnlockResourceException", nullptr},
    {"pthread_cond_init", ENOMEM, makeCondition, 7, "ZConditionException", nullptr},
    {"pthread_cond_destroy", EBUSY, makeCondition, 8, nullptr, inCondition},
    // Number 9 also for a timed wait; a time-out without a deadline is a failure.
    {"pthread_cond_wait", ETIMEDOUT, wait, 9, "ZConditionException", inCondition},
    {"pthread_cond_timedwait", EPERM, waitFor, 9, "ZConditionException", inCondition},
    {"pthread_cond_signal", EINVAL, signal, 10, "ZConditionException", inCondition},
    {"pthread_cond_broadcast", EINVAL, broadcast, 27, "ZConditionException", inCondition},
    {"pthread_attr_init", ENOMEM, startJoinable, 15, "ZThreadException", nullptr},
    {"pthread_attr_setdetachstate", EINVAL, startDetached, 16, "ZThreadException", nullptr},
    {"pthread_create", EAGAIN, startJoinable, 17, "ZThreadException", nullptr},
    {"pthread_attr_destroy", EINVAL, startJoinable, 18, nullptr, inThread},
    {"pthread_join", EDEADLK, startJoinable, 20, "ZThreadException", nullptr},
    {"pthread_key_create", EAGAIN, makeKey, 29, "ZThreadException", nullptr},
    {"pthread_setspecific", ENOMEM, setObject, 30, "ZThreadException", nullptr},
    {"pthread_mutex_init", ENOMEM, makePool, 3, "ZThreadException", nullptr},
    {"pthread_mutex_destroy", EBUSY, makePool, 4, nullptr, inThread},
    {"pthread_mutex_lock", EINVAL, askPool, 5, "ZThreadException", nullptr},
    {"pthread_mutex_unlock", EPERM, askPool, 6, "ZThreadException", nullptr},
    {"pthread_cond_init", ENOMEM, makePool, 7, "ZThreadException", nullptr},
    {"pthread_cond_destroy", EBUSY, makePool, 8, nullptr, inThread},
};

TEST(FaultTest, IsThrownOrReportedAndLeavesEveryHoldAsItWas) {
    for (Row const& row : rows) {
        SCOPED_TRACE(row.function);
        Report const thrown{row.thrown ? row.thrown : "", row.number, {std::to_string(row.rc)}};
        Report const reported{row.reported ? row.reported : "", row.number, thrown.inserts};
        Reports reports;
        Held held;
        planted = {row.function, row.rc};
        EXPECT_EQ(thrownBy([&] { row.operation(held); }), row.thrown ? thrown : nothing);
        EXPECT_EQ(planted.rc, 0) << "the call was not made";
        EXPECT_EQ(reports.take(), std::vector<Report>(row.reported ? 1 : 0, reported));
        EXPECT_FALSE(isFree(held.lock));
        EXPECT_EQ(unwind(held.lock), 2);
        static_cast<void>(unwind(held.other));  // held by an unlock that failed
        EXPECT_TRUE(isFree(held.other));
    }
}

/// The deadline that a wait of `seconds` asks the system for.
timespec deadlineFor(long seconds) {
    Held held;
    planted = {"pthread_cond_timedwait", ETIMEDOUT};
    int timedOut = 0;
    held.condition.wait(seconds, timedOut);
    EXPECT_EQ(timedOut, 1);
    EXPECT_EQ(unwind(held.lock), 2);
    return lastDeadline;
}

TEST(FaultTest, DeadlinesAreWholeSecondsFromNowAndNeverOverflow) {
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

// ------------------------------------------------------------------------------- every call

/// Whether it is nothing, or an exception that locks, conditions and threads may throw.
bool isDescribed(Report const& thrown) {
    constexpr std::string_view described =
        "ZCreateResourceException 3, ZLockResourceException 5, "
        "ZConditionException 7, ZConditionException 9, ZConditionException 10, "
        "ZConditionException 27, ZThreadException 3, ZThreadException 5, ZThreadException 6, "
        "ZThreadException 7, ZThreadException 15, ZThreadException 16, ZThreadException 17, "
        "ZThreadException 20, ";
    auto const name = thrown.what + " " + std::to_string(thrown.number) + ",";
    return thrown == nothing || described.find(name) != described.npos;
}

enum class Where { here, everywhere };

/// Runs `operation` once, with its `call`-th call failing; what it throws must be described.
Report attempt(int call, Repeat repeat, Where where, std::function<void()> const& operation) {
    faults.calls = 0;
    faults.failing = call;
    faults.repeat = repeat;
    faults.everywhere = where == Where::everywhere;
    armedHere = true;
    faults.armed = true;
    Report const thrown = thrownBy(operation);
    faults.armed = false;
    armedHere = false;
    EXPECT_TRUE(isDescribed(thrown)) << thrown;
    return thrown;
}

/// Runs `body`, which makes one attempt and checks, with every call failing in turn, once and from
/// there on.
void failEveryCall(std::function<void(int, Repeat)> const& body) {
    Reports const dropped;
    for (Repeat const repeat : {Repeat::once, Repeat::fromThereOn}) {
        int call = 0;
        do {
            ++call;
            SCOPED_TRACE(std::to_string(call) +
                         (repeat == Repeat::once ? ", once" : ", from there on"));
            body(call, repeat);
            if (testing::Test::HasFailure()) return;
        } while (faults.calls >= call && call < 500);
        EXPECT_GT(call, 1) << "nothing was called";
        EXPECT_LT(call, 500) << "never untouched";
    }
}

// ------------------------------------------------------------------------------ read-write locks

using State = ZReadWriteLockInterface::zlockstate;
constexpr State unset = ZReadWriteLockInterface::zlockUnset;
constexpr State read = ZReadWriteLockInterface::zlockRead;
constexpr State protect = ZReadWriteLockInterface::zlockProtect;
constexpr State write = ZReadWriteLockInterface::zlockWrite;

/// What the thread under test holds, as far as it was told.
struct Hold {
    ZReadWriteLock lock;
    bool held = false;

    void take(State mode) {
        lock.lock(mode);
        held = true;
    }
    void give() {
        try {
            lock.unlock();
        } catch (ZConditionException const&) {
            held = false;  // released; waiting threads were not woken
            throw;
        }
        held = false;
    }
};

/// All of them beside a reader that leaves when the operation waits.
void (*const takingsAndGivings[])(Hold&) = {
    [](Hold& hold) {
        hold.take(read);
        hold.give();
    },
    [](Hold& hold) {
        hold.take(write);
        hold.give();
    },
    [](Hold& hold) {
        hold.held = hold.lock.lockFor(write, longEnough);
        hold.give();
    },
    [](Hold& hold) {
        hold.take(protect);
        hold.lock.promoteReadToWriteLock();
        hold.give();
    },
};

TEST(ReadWriteLockFaultTest, IsDescribedAndLeavesTheLockToOthers) {
    for (auto* const takeAndGive : takingsAndGivings)
        failEveryCall([&](int call, Repeat repeat) {
            Hold hold;
            Gate reading;
            Gate leave;
            openedByWait = &leave;
            Beside reader([&] {
                hold.lock.readLock();
                reading.open();
                leave.await();
                hold.lock.unlock();
            });
            reading.await();
            Report const thrown = attempt(call, repeat, Where::here, [&] { takeAndGive(hold); });
            leave.open();
            reader.join();
            openedByWait = nullptr;
            EXPECT_TRUE(faults.calls >= call || thrown == nothing) << thrown;
            if (hold.held) hold.lock.unlock();
            EXPECT_TRUE(onThread([&] {
                bool const taken = hold.lock.lockFor(write, 1000);
                if (taken) hold.lock.unlock();
                return taken;
            }));
            EXPECT_TRUE(hold.lock.haveLock(unset));
        });
}

// ---------------------------------------------------------------------------- threads and sleepers

/// Ends a thread of which it is not known how far it got.
void end(ZThread& thread) {
    Report const thrown = thrownBy([&] { thread.waitForExit(); });
    EXPECT_TRUE(thrown == nothing || thrown.number == 20) << "not started, or joined";
}

template <class Thread>
void failStartAndEnd() {
    failEveryCall([](int call, Repeat repeat) {
        Tally tally;
        Thread thread(tally);
        attempt(call, repeat, Where::everywhere, [&] { startAndEnd(thread); });
        end(thread);
        startAndEnd(thread);  // as if nothing had been
    });
}

TEST(ThreadFaultTest, AThreadCanBeStartedAfterAnyFailure) {
    failStartAndEnd<Task>();
    failStartAndEnd<Worker>();
}

TEST(ThreadFaultTest, ADetachedThreadThatCannotBeStartedStaysItsMakers) {
    Tally tally;
    failEveryCall([&](int call, Repeat repeat) {
        auto* const task = new Task(tally, nullptr, asDetached, deletesObject);
        if (attempt(call, repeat, Where::here, [&] { task->start(); }) != nothing) delete task;
    });
}

TEST(ThreadFaultTest, AThreadThatIsBeingStartedOrIsJoinedIsNotJoined) {
    Tally tally;
    Gate joining;
    Task task(tally);
    auto const join = [&] { return thrownBy([&] { task.waitForExit(); }); };
    auto const refusal = [](int rc) {
        return Report{"ZThreadException", 20, {std::to_string(rc)}};
    };
    auto const expectUnasked = [&] {  // the system, whose id of the thread is not valid now
        int const before = waitsBegun;
        EXPECT_EQ(onThread(join), refusal(ESRCH));
        EXPECT_EQ(waitsBegun, before);
    };
    beforeCreate = expectUnasked;
    task.body = [&] {
        joining.await();
        EXPECT_EQ(join(), refusal(EDEADLK));
        EXPECT_EQ(onThread(join), refusal(EINVAL));
    };
    openedByWait = &joining;
    startAndEnd(task);
    openedByWait = nullptr;
    expectUnasked();
}

// ------------------------------------------------------------------------------------------ pools

TEST(ThreadPoolFaultTest, CountsComeBackToZeroAfterAnyFailure) {
    failEveryCall([](int call, Repeat repeat) {
        Tally tally;
        Task task(tally);
        Worker worker(tally);
        std::optional<ZThreadPool> pool;
        attempt(call, repeat, Where::everywhere, [&] {
            pool.emplace(2U, 1U);
            pool->start(task);
            pool->start(worker);
            if (worker.hash() == 0) return;  // reported, and nothing to wake
            worker.wakeUp();
            pool->waitForExit();
        });
        if (!pool) return;
        end(worker);
        pool->waitForExit();
        end(task);
        // Both places are free, and so is the one for an idle worker.
        for (int round = 0; round < 2; ++round) {
            pool->start(task);
            pool->start(worker);
            worker.wakeUp();
            pool->waitForExit();
        }
        ZThread* idle = &task;
        pool->getAvailableIdleThread(idle);
        EXPECT_EQ(idle, nullptr);
        end(task);
    });
}

/// Cannot be told to exit at first.
class Stubborn : public Worker {
  public:
    using Worker::Worker;
    void waitForExit() override {
        if (told.isOpened()) {
            Worker::waitForExit();
            throw std::runtime_error("but it has ended");
        }
        told.open();
        refuse.await();
        throw std::runtime_error("not yet");
    }
    Gate told;
    Gate refuse;
};

TEST(ThreadPoolFaultTest, WhoWaitsForTheEndTellsAWorkerThatAnotherCouldNotTell) {
    Reports reports;
    Tally tally;
    ZThreadPool pool(1, 1);
    Stubborn worker(tally);
    pool.start(worker);
    int keep = 0;
    pool.threadDoneNotification(worker, keep);
    ASSERT_EQ(keep, 1);
    Beside first([&] { EXPECT_THROW(pool.waitForExit(), std::runtime_error); });
    worker.told.await();
    Gate waits;
    openedByWait = &waits;
    Beside second([&] { pool.waitForExit(); });
    waits.await();
    openedByWait = nullptr;
    worker.refuse.open();
    first.join();
    second.join();
    EXPECT_EQ(reports.take(), (std::vector<Report>{unknownInThread}))
        << "what ended it all the same";
}

}  // namespace
