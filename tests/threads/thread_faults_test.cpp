// link: static
// wrap: pthread_mutex_init,pthread_mutex_destroy,pthread_mutex_lock,pthread_mutex_trylock
// wrap: pthread_mutex_unlock,pthread_cond_init,pthread_cond_destroy,pthread_cond_wait
// wrap: pthread_cond_clockwait,pthread_cond_signal,pthread_cond_broadcast,pthread_create
// wrap: pthread_join,pthread_attr_init,pthread_attr_destroy,pthread_attr_setdetachstate
// wrap: pthread_key_create,pthread_setspecific

// What locks, conditions, threads and pools do when the system's calls fail: one that is planned,
// or the N-th of an operation, once or from there on, for every N until it runs untouched.
#include <gtest/gtest.h>

#include <cerrno>
#include <initializer_list>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Z/ZReadWriteLock.h"
#include "Z/ZWorkerPool.h"
#include "support/pthread_calls.h"
#include "support/workers.h"

namespace {

using namespace testsupport;
using Lock = ZReadWriteLock;

/// Ends a thread of which it is not known how far it got.
void end(ZThread& thread) {
    Report const thrown = thrownBy([&] { thread.waitForExit(); });
    EXPECT_TRUE(thrown == nothing || thrown.number == 20) << "not started, or joined";
}

/// A lock that is held at depth 2 and its condition, a lock that is free, and a thread.
struct Held {
    Held() {
        lock.lock();
        lock.lock();
    }
    ~Held() { end(task); }
    ZLock lock;
    ZCondition condition{lock};
    ZLock other;
    Tally tally;
    Task task{tally};
    ZThread* idle = nullptr;
    int timedOut = 0;
    unsigned int key = 0;
};

void startAndEnd(ZThread& thread) {
    thread.start();
    if (auto* const sleeper = dynamic_cast<Worker*>(&thread)) sleeper->wakeUp();
    thread.waitForExit();
}

void makeLock(Held&) { ZLock const lock; }
void makeCondition(Held&) { ZCondition const condition; }
void makePool(Held&) { ZThreadPool const pool(2, 1); }
void makeKey(Held& held) { ZThread::createThreadKey(held.key); }
void setObject(Held& held) { ZThread::setThreadObject(held.key, nullptr); }
void lock(Held& held) { held.other.lock(); }
void tryLock(Held& held) { static_cast<void>(held.other.try_lock()); }
void unlock(Held& held) { lock(held), held.other.unlock(); }
void wait(Held& held) { held.condition.wait(); }
void waitFor(Held& held) { held.condition.wait(60, held.timedOut = 7); }
void signal(Held& held) { held.condition.signal(); }
void broadcast(Held& held) { held.condition.broadcast(); }
void startDetached(Held& held) { Task(held.tally, nullptr, asDetached).start(); }
void runThread(Held& held) { startAndEnd(held.task); }
void askPool(Held& held) { ZThreadPool(2, 1).getAvailableIdleThread(held.idle); }
void awaitPool(Held& held) {
    ZThreadPool pool(1, 1);
    int const before = waitsBegun;
    held.task.body = [&] { awaitThat([&] { return waitsBegun > before; }); };
    pool.start(held.task);
    pool.waitForExit();
    EXPECT_EQ(held.tally.ended, 1);
}

struct Row {
    char const* function;
    int rc;
    void (*operation)(Held&);
    int number;
    char const* thrown;    // class; empty: nothing
    char const* reported;  // source; null: nothing
};

constexpr char waiting[] = "ZConditionException";
constexpr char threading[] = "ZThreadException";
constexpr char inLock[] = "src/Z/ZLock";
constexpr char inCondition[] = "src/Z/ZCondition";
constexpr char inThread[] = "src/Z/ZThread";

constexpr Row rows[] = {
    {"pthread_mutex_init", ENOMEM, makeLock, 3, "ZCreateResourceException", nullptr},
    {"pthread_mutex_destroy", EBUSY, makeLock, 4, "", inLock},
    {"pthread_mutex_lock", EINVAL, lock, 5, "ZLockResourceException", nullptr},
    {"pthread_mutex_trylock", EAGAIN, tryLock, 5, "ZLockResourceException", nullptr},
    {"pthread_mutex_unlock", EPERM, unlock, 6, "ZUnlockResourceException", nullptr},
    {"pthread_cond_init", ENOMEM, makeCondition, 7, waiting, nullptr},
    {"pthread_cond_destroy", EBUSY, makeCondition, 8, "", inCondition},
    // Number 9 also for a timed wait; a time-out without a deadline is a failure.
    {"pthread_cond_wait", ETIMEDOUT, wait, 9, waiting, inCondition},
    {"pthread_cond_clockwait", EPERM, waitFor, 9, waiting, inCondition},
    {"pthread_cond_signal", EINVAL, signal, 10, waiting, inCondition},
    {"pthread_cond_broadcast", EINVAL, broadcast, 27, waiting, inCondition},
    {"pthread_attr_init", ENOMEM, runThread, 15, threading, nullptr},
    {"pthread_attr_setdetachstate", EINVAL, startDetached, 16, threading, nullptr},
    {"pthread_create", EAGAIN, runThread, 17, threading, nullptr},
    {"pthread_attr_destroy", EINVAL, runThread, 18, "", inThread},
    {"pthread_join", EDEADLK, runThread, 20, threading, nullptr},
    {"pthread_key_create", EAGAIN, makeKey, 29, threading, nullptr},
    {"pthread_setspecific", ENOMEM, setObject, 30, threading, nullptr},
    {"pthread_mutex_init", ENOMEM, makePool, 3, threading, nullptr},
    {"pthread_mutex_destroy", EBUSY, makePool, 4, "", inThread},
    {"pthread_mutex_lock", EINVAL, askPool, 5, threading, nullptr},
    {"pthread_mutex_unlock", EPERM, askPool, 6, threading, nullptr},
    {"pthread_cond_init", ENOMEM, makePool, 7, threading, nullptr},
    {"pthread_cond_destroy", EBUSY, makePool, 8, "", inThread},
    {"pthread_cond_clockwait", EPERM, awaitPool, 9, "", inThread},
};

TEST(FaultTest, IsThrownOrReportedAndLeavesEveryHoldAsItWas) {
    for (Row const& row : rows) {
        SCOPED_TRACE(std::string(row.function) + " " + std::to_string(row.number));
        Report const thrown{row.thrown, row.number, {std::to_string(row.rc)}};
        Report const reported{row.reported ? row.reported : "", row.number, thrown.inserts};
        Reports reports;
        Held held;
        {
            Failing const failing({row.function, 1, row.rc});
            EXPECT_EQ(thrownBy([&] { row.operation(held); }), *row.thrown ? thrown : nothing);
        }
        EXPECT_GE(fault.seen, 1) << "the call was not made";
        EXPECT_EQ(reports.take(), std::vector<Report>(row.reported ? 1 : 0, reported));
        EXPECT_EQ(held.timedOut, 0);
        EXPECT_EQ(attributesLeft.exchange(0), row.number == 15 ? 1 : 0);
        EXPECT_FALSE(isFree(held.lock));
        EXPECT_EQ(unwind(held.lock), 2);
        static_cast<void>(unwind(held.other));  // held by an unlock that failed
        EXPECT_TRUE(isFree(held.other));
    }
}

/// The limit that an operation, which fails to get what it waits for, has asked the system for:
/// seconds from now by the clock that nobody sets, rounded up; -1 for a time of day.
template <class Operation>
long limitOf(Operation const& operation) {
    timespec now{};
    Failing const failing({"pthread_cond_clockwait", 1, ETIMEDOUT});
    operation();
    clock_gettime(CLOCK_MONOTONIC, &now);
    if (lastClock != CLOCK_MONOTONIC) return -1;
    return lastDeadline.tv_sec - now.tv_sec + (lastDeadline.tv_nsec > now.tv_nsec ? 1 : 0);
}

TEST(FaultTest, LimitsAreExactAndNeverOverflow) {
    Tally tally;
    Lock lock;
    lock.readLock();
    ZBooleanCondition condition;
    ZResourceLock const guard(condition);
    int timedOut = 0;
    auto const waitFor = [&](long seconds) { condition.ZCondition::wait(seconds, timedOut); };
    auto const runWith = [&](unsigned long interval) {
        Worker sleeper(tally, asDetached, keepsObject, interval);
        sleeper.body = [&] { sleeper.waitForExit(); };
        sleeper.run();
    };
    EXPECT_EQ(limitOf([&] { waitFor(60); }), 60);
    EXPECT_EQ(limitOf([&] { condition.wait(60, timedOut); }), 60);
    EXPECT_EQ(limitOf([&] { EXPECT_FALSE(lock.lockFor(Lock::zlockWrite, 60000)); }), 60);
    EXPECT_EQ(limitOf([&] { runWith(60); }), 60);
    EXPECT_GT(limitOf([&] { runWith(std::numeric_limits<unsigned long>::max()); }), 1000000);
    EXPECT_EQ(tally.works, 2) << "when the interval has elapsed";
    limitOf([&] { waitFor(std::numeric_limits<long>::max()); });
    EXPECT_EQ(lastDeadline.tv_sec, std::numeric_limits<time_t>::max());
    for (long const past : {std::numeric_limits<long>::min(), -lastDeadline.tv_sec}) {
        limitOf([&] { waitFor(past); });
        EXPECT_EQ(lastDeadline.tv_sec, 0);
        EXPECT_EQ(lastDeadline.tv_nsec, 1) << "both 0 would be no limit";
    }
    timespec const noon{43200, 0};
    EXPECT_EQ(limitOf([&] { condition.ZCondition::wait(lastDeadline = noon, timedOut); }), -1);
    EXPECT_EQ(lastDeadline.tv_sec, noon.tv_sec) << "the caller's own time of day";
}

/// Whether it is nothing, or an exception of the table above.
bool isDescribed(Report const& thrown) {
    for (Row const& row : rows)
        if (thrown.what == row.thrown && thrown.number == row.number) return true;
    return thrown == nothing;
}

constexpr bool here = false;
constexpr bool everywhere = true;

/// Runs `operation` once, with calls failing as planned; what it throws must be described.
Report attempt(Fault const& planned, bool where, std::function<void()> const& operation) {
    Failing const failing(planned, where);
    Report const thrown = thrownBy(operation);
    EXPECT_TRUE(isDescribed(thrown)) << thrown;
    return thrown;
}

/// Runs `body`, which makes one attempt and checks, with every call failing in turn, once and from
/// there on, or `counts` times.
void failEveryCall(std::function<void(Fault const&)> const& body,
                   std::initializer_list<long> counts = {1L, everyone}) {
    Reports const dropped;
    for (long const count : counts) {
        long number = 0;
        do {
            ++number;
            SCOPED_TRACE(std::to_string(number) + (count > 1 ? ", from there on" : ", once"));
            body({"", number, EINVAL, count});
        } while (fault.seen >= number && !testing::Test::HasFailure());
        EXPECT_GT(number, 1) << "nothing was called";
    }
}

TEST(ReadWriteLockFaultTest, IsDescribedAndLeavesTheLockToOthers) {
    for (auto const mode : {Lock::zlockRead, Lock::zlockProtect, Lock::zlockWrite})
        failEveryCall([&](Fault const& planned) {
            Lock lock;
            bool held = false;
            Gate inside;
            std::atomic<bool> isHeld{false};
            std::atomic<bool> isOver{false};
            int const before = waitsBegun;
            Beside other([&] {  // in the way until that is waited for; waits itself then
                lock.lock(mode == Lock::zlockRead ? Lock::zlockWrite : Lock::zlockRead);
                inside.open();
                awaitThat([&] { return isOver || waitsBegun > before; });
                lock.unlock();
                awaitThat([&] { return isOver || isHeld; });
                if (isHeld) lock.writeLock(), lock.unlock();
            });
            inside.await();
            Report const thrown = attempt(planned, here, [&] {
                if (mode != Lock::zlockWrite) lock.lock(mode);
                held = mode != Lock::zlockWrite || lock.lockFor(mode, longEnough);
                if (mode == Lock::zlockProtect) lock.promoteReadToWriteLock();
                int const ownWaits = waitsBegun;
                isHeld = true;
                awaitThat([&] { return waitsBegun > ownWaits; });
                lock.unlock();
                held = false;
            });
            isOver = true;
            EXPECT_TRUE(fault.seen >= planned.first || thrown == nothing) << thrown;
            bool const isReleased = thrown.number == 27;  // but waiting threads were not woken
            if (held && !isReleased) lock.unlock();
            EXPECT_TRUE(onThread(
                [&] { return lock.lockFor(Lock::zlockWrite, 1000) && (lock.unlock(), true); }));
        });
}

TEST(ThreadFaultTest, AThreadCanBeStartedAfterAnyFailure) {
    Tally tally;
    Task task(tally);
    Worker worker(tally);
    for (ZThread* const thread : std::initializer_list<ZThread*>{&task, &worker})
        failEveryCall([&](Fault const& planned) {
            attempt(planned, everywhere, [&] { startAndEnd(*thread); });
            end(*thread);
            startAndEnd(*thread);  // as if nothing had been
        });
}

TEST(ThreadFaultTest, ADetachedThreadThatCannotBeStartedStaysItsMakers) {
    Tally tally;
    failEveryCall([&](Fault const& planned) {
        auto* const task = new Task(tally, nullptr, asDetached, deletesObject);
        if (attempt(planned, here, [&] { task->start(); }) != nothing) delete task;
    });
}

TEST(ThreadFaultTest, AThreadThatDoesNotRunYetOrIsJoinedIsNotJoined) {
    Tally tally;
    Task task(tally);
    int const before = waitsBegun;
    auto const refused = [&] { return thrownBy([&] { task.waitForExit(); }).inserts.at(0); };
    beforeCreate = [&] {
        EXPECT_EQ(onThread(refused), std::to_string(ESRCH));
        EXPECT_EQ(waitsBegun, before) << "the system was asked, with an id that is not valid";
    };
    task.body = [&] {
        awaitThat([&] { return waitsBegun > before; });
        EXPECT_EQ(refused(), std::to_string(EDEADLK));
        EXPECT_EQ(onThread(refused), std::to_string(EINVAL));
    };
    EXPECT_EQ(refused(), std::to_string(ESRCH));
    startAndEnd(task);
    EXPECT_EQ(refused(), std::to_string(ESRCH));
    EXPECT_EQ(waitsBegun, before + 1);
}

TEST(ThreadPoolFaultTest, CountsComeBackToZeroAfterAnyFailure) {
    failEveryCall([](Fault const& planned) {
        Tally tally;
        Task task(tally);
        Worker worker(tally);
        std::optional<ZThreadPool> pool;
        auto const runBoth = [&] {
            pool->start(task);
            pool->start(worker);
            if (worker.hash() == 0) return;  // reported, and nothing to wake
            worker.wakeUp();
            pool->waitForExit();
        };
        attempt(planned, everywhere, [&] {
            pool.emplace(2U, 1U);
            runBoth();
        });
        if (!pool) return;
        end(worker);
        pool->waitForExit();
        runBoth();  // both places are free, and so is the one for an idle worker
        runBoth();
        ZThread* idle = &task;
        pool->getAvailableIdleThread(idle);
        EXPECT_EQ(idle, nullptr);
        end(task);
    });
}

/// Cannot be told to exit at first.
struct Stubborn : Worker {
    using Worker::Worker;
    void waitForExit() override {
        bool const isFirst = !wasTold.exchange(true);
        isFirst ? refuse.await() : Worker::waitForExit();
        throw std::runtime_error(isFirst ? "not yet" : "but it has ended");
    }
    std::atomic<bool> wasTold{false};
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
    Beside first([&] { EXPECT_THROW(pool.waitForExit(), std::runtime_error); });
    awaitThat([&] { return worker.wasTold.load(); });
    int const before = waitsBegun;
    Beside second([&] { pool.waitForExit(); });
    awaitThat([&] { return waitsBegun > before + 2; });  // one of them may be the worker's
    worker.refuse.open();
    first.join();
    second.join();
    EXPECT_EQ(reports.take(), (std::vector<Report>{unknownInThread})) << "it has ended";
}

TEST(WorkerPoolFaultTest, RunsWhatItTookAfterAnyFailure) {
    auto const tryIt = [](Fault const& planned) {
        std::atomic<int> ran{0};
        int taken = 0;
        std::optional<ZWorkerPool> pool;
        auto const runOne = [&] { pool->run([&] { ++ran; }), ++taken; };
        attempt(planned, everywhere, [&] {
            pool.emplace(2U, 1U);
            for (int i = 0; i < 5; ++i)
                runOne();
            pool->waitForAll();
        });
        if (!pool) return;
        runOne();
        pool->waitForAll();
        EXPECT_EQ(ran, taken);
        EXPECT_EQ(pool->getFailureCount(), 0U);
    };
    failEveryCall(tryIt, {1L});
}

TEST(WorkerPoolFaultTest, GoesOnWithTheWorkersThatCanBeStartedAndSaysWhenThereIsNone) {
    Report const notStarted{threading, 17, {std::to_string(EAGAIN)}};
    Fault const noSecond{"pthread_create", 2, EAGAIN, everyone};
    Reports reports;
    Gate go;
    std::atomic<int> ran{0};
    auto const leaves = [&] { go.await(), pthread_exit(nullptr); };
    auto const runs = [&] { ++ran; };
    {
        Failing const failing(noSecond, everywhere);
        EXPECT_EQ(thrownBy([] { ZWorkerPool(3); }), notStarted);
    }
    ZWorkerPool pool(1);
    auto ending = std::make_unique<ZWorkerPool>(1);
    {
        Failing const failing({"pthread_create", 1, EAGAIN, everyone}, everywhere);
        for (ZWorkerPool* const each : {&pool, ending.get()}) {
            each->run(leaves);
            each->run(runs);
        }
        go.open();
        EXPECT_EQ(thrownBy([&] { pool.waitForAll(); }), notStarted);
        EXPECT_EQ(thrownBy([&] { pool.run(runs); }), notStarted);
        ending.reset();
        std::vector<Report> reported;
        awaitThat([&] {
            for (Report const& report : reports.take())
                reported.push_back(report);
            return reported.size() == 2;
        });
        EXPECT_EQ(reported, std::vector<Report>(2, {threading, 17, {}})) << "workers left";
    }
    pool.run(runs);
    pool.waitForAll();
    EXPECT_EQ(ran, 2) << "one was queued when there was no worker";
}

}  // namespace
