#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include "support/workers.h"

namespace {

using namespace testsupport;

/// Makes its own workers.
struct WorkerPool : ZThreadPool {
    WorkerPool(Tally& shared, unsigned int most, unsigned int idle)
        : ZThreadPool(most, idle), tally(shared) {}
    ZThread* createThread() override { return new Worker(tally, asDetached, deletesObject); }
    Tally& tally;
};

/// An idle worker of the pool; null when it has none.
ZThread* takeIdle(ZThreadPool& pool) {
    ZThread* thread = nullptr;
    pool.getAvailableIdleThread(thread);
    return thread;
}

/// An idle worker, as soon as there is one.
Worker& awaitIdle(ZThreadPool& pool) {
    ZThread* thread = nullptr;
    awaitThat([&] { return (thread = takeIdle(pool)) != nullptr; });
    return dynamic_cast<Worker&>(*thread);
}

/// Lets a worker that is idle go back to its pool, to be idle there.
void offer(ZThreadPool& pool, Worker& worker) {
    int keep = 0;
    pool.threadDoneNotification(worker, keep);
    EXPECT_EQ(keep, 1);
}

/// Starts a worker in the pool, which is idle there afterwards.
void makeIdle(ZThreadPool& pool, Worker& worker) {
    pool.start(worker);
    worker.wakeUp();
    offer(pool, awaitIdle(pool));
}

TEST(ThreadPoolTest, BoundsWhatRunsHoweverShortItIsAndHoweverItEnds) {
    std::function<void()> const ends[] = {
        [] {},
        [] { pthread_exit(nullptr); },
        [] { throw std::runtime_error("mine"); },
    };
    Reports reports;
    ZThreadPool pool(2, 5);
    Tally tally;
    Gate go;
    std::atomic<int> started{0};
    Beside starter([&] {
        for (; started < 300; ++started) {
            auto const run = [&, number = started % 3] {
                EXPECT_LE(tally.works - tally.ended, 5);
                go.await();
                ends[number]();
            };
            pool.start(*new Task(tally, run, asDetached, deletesObject));
        }
    });
    awaitThat([&] { return tally.works >= 5; });
    EXPECT_LE(started, 5) << "the next one blocks";
    go.open();
    starter.join();
    pool.waitForExit();
    EXPECT_EQ(tally.ended, 300);
    EXPECT_EQ(reports.take(), std::vector<Report>(100, unknownInThread));
}

TEST(ThreadPoolTest, TheLargerNumberBoundsWhatRunsAndTheSmallerTheIdle) {
    for (auto const& [a, b] : {std::pair(2U, 4U), std::pair(4U, 2U)}) {
        ZThreadPool pool(a, b);
        Tally tally;
        std::deque<Worker> workers;
        Gate go;
        for (int i = 0; i < 4; ++i) {
            Worker& worker = workers.emplace_back(tally);
            worker.body = [&] { go.await(); };
            pool.start(worker);
            worker.wakeUp();
        }
        go.open();
        awaitThat([&] { return tally.ended == 2; });
        Worker* const idle[] = {&awaitIdle(pool), &awaitIdle(pool)};
        EXPECT_NE(idle[0], idle[1]);
        EXPECT_EQ(takeIdle(pool), nullptr) << "only two are kept, and it makes none by itself";
        for (Worker* const worker : idle)
            offer(pool, *worker);
        pool.waitForExit();
        EXPECT_EQ(tally.ended, 4);
    }
}

TEST(ThreadPoolTest, AnIdleWorkerIsUsedAgainAndCountedOnceUntilItEnds) {
    ZThreadPool pool(1, 1);
    Tally tally;
    Worker worker(tally);
    pool.start(worker);
    for (int i = 1; i <= 20; ++i) {
        worker.wakeUp();
        EXPECT_EQ(&awaitIdle(pool), &worker);
        EXPECT_EQ(tally.works, i);
        offer(pool, worker);
        offer(pool, worker);
        EXPECT_EQ(takeIdle(pool), &worker);
        EXPECT_EQ(takeIdle(pool), nullptr) << "offered twice, idle once";
    }
    offer(pool, worker);
    worker.waitForExit();
    EXPECT_EQ(takeIdle(pool), nullptr);
    pool.waitForExit();
}

TEST(ThreadPoolTest, AnEndedThreadIsNotTakenForTheOneThatHasGotItsId) {
    ZThreadPool pool(2, 1);
    Tally tally;
    Worker ended(tally);
    pool.start(ended);
    ended.waitForExit();
    Worker idle(tally);
    makeIdle(pool, idle);
    pool.start(ended);  // the system has given its old id to the idle one, as a rule
    EXPECT_EQ(takeIdle(pool), &idle);
    offer(pool, idle);
    ended.waitForExit();
    pool.waitForExit();
}

struct Unstartable : Task {
    using Task::Task;
    void start() override { throw 7; }
};

TEST(ThreadPoolTest, AStartThatFailsIsReportedAndNotCounted) {
    Reports reports;
    Tally tally;
    ZThreadPool pool(1, 0);
    Unstartable unstartable(tally);
    pool.start(unstartable);
    EXPECT_EQ(reports.take(), (std::vector<Report>{unknownInThread}));
    Task task(tally);
    pool.start(task);  // there is a place for it
    task.waitForExit();
    task.start();  // now without the pool
    task.waitForExit();
    pool.start(task);
    pool.waitForExit();
    EXPECT_EQ(tally.works, 3);
    EXPECT_EQ(thrownBy([&] { ZThreadPool(0, 0).start(task); }), invalidParameter);
}

TEST(ThreadPoolTest, WaitForExitEndsWorkersOfEveryKindIdleOrBusyAndKeepsThoseThatComeAfter) {
    constexpr int count = 3;
    struct {
        int detached;
        int deletes;
        unsigned long interval;
        bool busy;
    } const kinds[] = {
        {asJoinable, keepsObject, 0, false},   {asDetached, keepsObject, 0, false},
        {asDetached, deletesObject, 0, false}, {asJoinable, keepsObject, 1, true},
        {asDetached, keepsObject, 0, true},    {asDetached, deletesObject, 1, true},
    };
    ZThreadPool pool(count, count);
    for (auto const& kind : kinds) {
        Tally tally;
        Gate go;
        std::vector<std::unique_ptr<Worker>> kept;
        for (int i = 0; i < count; ++i) {
            auto* const worker = new Worker(tally, kind.detached, kind.deletes, kind.interval);
            if (kind.deletes == keepsObject) kept.emplace_back(worker);
            if (kind.busy) worker->body = [&] { go.await(); };
            worker->wakeUp();  // before it can be busy of itself
            pool.start(*worker);
        }
        awaitThat([&] { return tally.works >= count; });
        Beside end([&] { pool.waitForExit(); });
        if (!kind.busy) pool.waitForExit();
        go.open();
        end.join();
        EXPECT_EQ(tally.ended, count);
        EXPECT_EQ(takeIdle(pool), nullptr);
    }
    Tally tally;
    Worker worker(tally);
    makeIdle(pool, worker);
    pool.waitForExit();
}

/// Cannot be told to exit at first.
struct Stubborn : Worker {
    using Worker::Worker;
    void waitForExit() override {
        if (++tries == 1) throw std::runtime_error("not yet");
        Worker::waitForExit();
        throw std::runtime_error("but it has ended");
    }
    int tries = 0;
};

TEST(ThreadPoolTest, AWorkerThatCouldNotBeToldToExitIsToldByTheNextWaitForTheEnd) {
    Reports reports;
    Tally tally;
    ZThreadPool pool(1, 1);
    Stubborn worker(tally);
    makeIdle(pool, worker);
    EXPECT_THROW(pool.waitForExit(), std::runtime_error);
    pool.waitForExit();
    EXPECT_EQ(reports.take(), (std::vector<Report>{unknownInThread})) << "it has ended";
}

// The address sanitizer of g++ takes what a cancelled wait left on its stack for in use, in any
// program: the frames below the first destructor are not unwound as it knows it.
#if !defined(__SANITIZE_ADDRESS__)
TEST(ThreadPoolTest, ACancelledStartOrWaitLeavesThePoolAsItWas) {
    ZThreadPool pool(1, 1);
    Tally tally;
    Gate go;
    Task running(tally, [&] { go.await(); });
    Task never(tally);
    pool.start(running);
    EXPECT_TRUE(Doomed([&] { pool.start(never); }).cancel());
    EXPECT_TRUE(Doomed([&] { pool.waitForExit(); }).cancel());
    go.open();
    pool.waitForExit();
    EXPECT_EQ(never.hash(), 0UL);
}
#endif

TEST(ThreadPoolTest, ServesManyProducersWithFewWorkersThatItMakes) {
    Tally tally;
    WorkerPool pool(tally, 4, 2);
    Crew producers;
    for (int i = 0; i < 3; ++i)
        producers.add([&] {
            for (int task = 0; task < 100; ++task) {
                auto& worker = dynamic_cast<Worker&>(*takeIdle(pool));
                bool const isNew = worker.hash() == 0;
                worker.wakeUp();
                if (isNew) pool.start(worker);
            }
        });
    producers.join();
    pool.waitForExit();
    EXPECT_EQ(tally.works, 300);
}

}  // namespace
