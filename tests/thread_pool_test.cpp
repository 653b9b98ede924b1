#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <memory>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "Z/ZThread.h"
#include "support/reports.h"
#include "support/threads.h"

namespace {

using testsupport::Beside;
using testsupport::Gate;
using testsupport::Report;
using testsupport::Reports;
using testsupport::thrownBy;

constexpr int asJoinable = 0;
constexpr int asDetached = 1;
constexpr int keepsObject = 0;
constexpr int deletesObject = 1;

/// Ends the process when a test hangs.
class Watchdog : public testing::Environment {
  public:
    void SetUp() override { alarm(100); }
    void TearDown() override { alarm(0); }
};
[[maybe_unused]] auto* const watchdog = testing::AddGlobalTestEnvironment(new Watchdog);

/// How many threads are in their bodies now, and the most there were.
class Gauge {
  public:
    void enter() {
        int const now = ++inside;
        int before = most;
        while (before < now && !most.compare_exchange_weak(before, now)) {
        }
    }
    void leave() { --inside; }

    std::atomic<int> inside{0};
    std::atomic<int> most{0};
};

/// A thread that runs a body.
class Task : public ZThread {
  public:
    Task(int isDetached, int deletes, std::function<void()> work)
        : ZThread(isDetached, deletes), body(std::move(work)) {}
    void run() override { body(); }

  private:
    std::function<void()> body;
};

/// What the workers of a test did.
struct Tally {
    std::atomic<int> works{0};
    std::atomic<int> ended{0};
    std::atomic<int> living{0};
};

class Worker : public ZSleeperThread {
  public:
    Worker(Tally& shared, int isDetached, int deletes, unsigned long seconds)
        : ZSleeperThread(isDetached, deletes, seconds), tally(shared) {
        ++tally.living;
    }
    ~Worker() override { --tally.living; }
    void doWork() override {
        ++tally.works;
        if (atWork) atWork();
    }
    void exit() override { ++tally.ended; }

    std::function<void()> atWork;

  private:
    Tally& tally;
};

/// Makes its own workers.
class WorkerPool : public ZThreadPool {
  public:
    WorkerPool(Tally& shared, unsigned int most, unsigned int idle)
        : ZThreadPool(most, idle), tally(shared) {}
    ZThread* createThread() override {
        ++created;
        return new Worker(tally, asDetached, deletesObject, 0);
    }

    std::atomic<int> created{0};

  private:
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
    while ((thread = takeIdle(pool)) == nullptr)
        std::this_thread::yield();
    return dynamic_cast<Worker&>(*thread);
}

/// Lets a worker that is idle go back to its pool, to be idle there.
void offer(ZThreadPool& pool, Worker& worker) {
    int keep = 0;
    pool.threadDoneNotification(worker, keep);
    EXPECT_EQ(keep, 1);
}

TEST(ThreadPoolTest, TheLargerNumberBoundsWhatRunsWhateverTheOrder) {
    for (auto const& bounds : {std::pair(2U, 5U), std::pair(5U, 2U)}) {
        ZThreadPool pool(bounds.first, bounds.second);
        Gauge gauge;
        Gate full;
        Gate go;
        std::vector<std::unique_ptr<Task>> tasks;
        for (int i = 0; i < 20; ++i)
            tasks.push_back(std::make_unique<Task>(asJoinable, keepsObject, [&] {
                gauge.enter();
                if (gauge.inside == 5) full.open();
                go.await();
                gauge.leave();
            }));
        std::atomic<int> started{0};
        Beside starter([&] {
            for (auto const& task : tasks) {
                pool.start(*task);
                ++started;
            }
        });
        full.await();
        EXPECT_LE(started, 5) << "the next one blocks";
        go.open();
        starter.join();
        pool.waitForExit();
        EXPECT_EQ(started, 20);
        EXPECT_EQ(gauge.most, 5);
        EXPECT_EQ(gauge.inside, 0);
        for (auto const& task : tasks)
            task->waitForExit();
    }
}

TEST(ThreadPoolTest, TheSmallerNumberBoundsTheIdleWhateverTheOrder) {
    for (auto const& bounds : {std::pair(2U, 5U), std::pair(5U, 2U)}) {
        ZThreadPool pool(bounds.first, bounds.second);
        Tally tally;
        std::vector<std::unique_ptr<Worker>> workers;
        for (int i = 0; i < 4; ++i) {
            workers.push_back(std::make_unique<Worker>(tally, asJoinable, keepsObject, 0UL));
            pool.start(*workers.back());
            workers.back()->wakeUp();
        }
        while (tally.ended < 2)
            std::this_thread::yield();
        Worker* const idle[] = {&awaitIdle(pool), &awaitIdle(pool)};
        EXPECT_NE(idle[0], idle[1]);
        EXPECT_EQ(takeIdle(pool), nullptr) << "only two are kept";
        for (Worker* const worker : idle)
            offer(pool, *worker);
        pool.waitForExit();
        EXPECT_EQ(tally.works, 4);
    }
}

TEST(ThreadPoolTest, AnIdleWorkerIsUsedAgainAndCountedOnce) {
    ZThreadPool pool(1, 1);
    Tally tally;
    Worker worker(tally, asJoinable, keepsObject, 0);
    pool.start(worker);
    for (int i = 1; i <= 50; ++i) {
        worker.wakeUp();
        Worker& idle = awaitIdle(pool);
        EXPECT_EQ(&idle, &worker);
        EXPECT_EQ(tally.works, i);
        EXPECT_EQ(takeIdle(pool), nullptr);
        offer(pool, idle);
        offer(pool, idle);
        EXPECT_EQ(takeIdle(pool), &worker);
        EXPECT_EQ(takeIdle(pool), nullptr) << "offered twice, idle once";
    }
    offer(pool, worker);
    pool.waitForExit();
    EXPECT_EQ(takeIdle(pool), nullptr);
}

TEST(ThreadPoolTest, AnEndedThreadIsNotTakenForTheOneThatHasGotItsId) {
    ZThreadPool pool(2, 1);
    Tally tally;
    Worker ended(tally, asJoinable, keepsObject, 0);
    pool.start(ended);
    ended.waitForExit();
    Worker idle(tally, asJoinable, keepsObject, 0);
    pool.start(idle);
    idle.wakeUp();
    offer(pool, awaitIdle(pool));
    pool.start(ended);  // the system has given its old id to the idle one, as a rule
    EXPECT_EQ(takeIdle(pool), &idle);
    offer(pool, idle);
    ended.waitForExit();
    pool.waitForExit();
}

TEST(ThreadPoolTest, WithoutIdleWorkersItMakesNewOnes) {
    Tally tally;
    WorkerPool pool(tally, 2, 0);
    for (int i = 1; i <= 20; ++i) {
        auto* const worker = dynamic_cast<Worker*>(takeIdle(pool));
        ASSERT_NE(worker, nullptr);
        EXPECT_EQ(pool.created, i);
        worker->wakeUp();
        pool.start(*worker);
    }
    pool.waitForExit();
    EXPECT_EQ(tally.works, 20);
    while (tally.living > 0)
        std::this_thread::yield();
    ZThreadPool plain(2, 1);
    EXPECT_EQ(takeIdle(plain), nullptr) << "makes none by itself";
}

TEST(ThreadPoolTest, ThrowingBodiesAndShortThreadsAreCountedOut) {
    Reports reports;
    ZThreadPool pool(3, 1);
    std::atomic<int> ran{0};
    for (int i = 0; i < 300; ++i) {
        auto* const task = new Task(asDetached, deletesObject, [&ran, i] {
            ++ran;
            if (i % 3 == 0) throw std::runtime_error("mine");
            if (i % 3 == 1) pthread_exit(nullptr);
        });
        pool.start(*task);
    }
    pool.waitForExit();
    EXPECT_EQ(ran, 300);
    EXPECT_EQ(reports.take(), std::vector<Report>(100, Report{"src/Z/ZThread", 19, {}}));
    pool.waitForExit();
}

struct Unstartable : ZThread {
    explicit Unstartable(std::function<void()> failure)
        : ZThread(asJoinable, keepsObject), fail(std::move(failure)) {}
    void start() override { fail(); }
    void run() override {}
    std::function<void()> fail;
};

TEST(ThreadPoolTest, AStartThatFailsIsReportedAndNotCounted) {
    Reports reports;
    ZThreadPool pool(1, 0);
    Unstartable mine([] { zraise(ZThreadException(17, 11), "test", 1); });
    Unstartable theirs([] { throw 7; });
    pool.start(mine);
    EXPECT_EQ(reports.take(), (std::vector<Report>{{"ZThreadException", 17, {}}}));
    pool.start(theirs);
    EXPECT_EQ(reports.take(), (std::vector<Report>{{"src/Z/ZThread", 19, {}}}));
    bool ran = false;
    Task task(asJoinable, keepsObject, [&] { ran = true; });
    pool.start(task);  // there is a place for it
    task.waitForExit();
    pool.waitForExit();
    EXPECT_TRUE(ran);
}

TEST(ThreadPoolTest, APoolForNoThreadsRefusesToStartOne) {
    ZThreadPool pool(0, 0);
    Task task(asJoinable, keepsObject, [] {});
    EXPECT_EQ(thrownBy([&] { pool.start(task); }), (Report{"ZInvalidParameterException", 22, {}}));
    pool.waitForExit();
}

TEST(ThreadPoolTest, ATaskOfOnePoolMayRunWithoutItLater) {
    ZThreadPool pool(1, 0);
    std::atomic<int> runs{0};
    Task task(asJoinable, keepsObject, [&] { ++runs; });
    pool.start(task);
    task.waitForExit();
    task.start();
    task.waitForExit();
    pool.start(task);
    pool.waitForExit();
    EXPECT_EQ(runs, 3);
}

/// One kind of worker at the end of a pool.
struct Ending {
    char const* name;
    int detached;
    int autoDelete;
    unsigned long interval;
};

constexpr Ending endings[] = {
    {"joinable", asJoinable, keepsObject, 0},
    {"detached", asDetached, keepsObject, 0},
    {"deletes itself", asDetached, deletesObject, 0},
    {"joinable, periodic", asJoinable, keepsObject, 1},
    {"deletes itself, periodic", asDetached, deletesObject, 1},
};

TEST(ThreadPoolTest, WaitForExitEndsWorkersOfEveryKindIdleOrBusy) {
    constexpr int count = 3;
    for (Ending const& ending : endings) {
        for (bool const busy : {false, true}) {
            SCOPED_TRACE(ending.name);
            Tally tally;
            Gate working;
            Gate go;
            ZThreadPool pool(count, count);
            std::vector<std::unique_ptr<Worker>> kept;
            std::atomic<int> begun{0};
            for (int i = 0; i < count; ++i) {
                auto worker = std::make_unique<Worker>(tally, ending.detached, ending.autoDelete,
                                                       ending.interval);
                worker->atWork = [&] {
                    if (++begun == count) working.open();
                    if (busy) go.await();
                };
                pool.start(*worker);
                worker->wakeUp();
                if (ending.autoDelete == deletesObject)
                    (void)worker.release();
                else
                    kept.push_back(std::move(worker));
            }
            working.await();
            Beside end([&] { pool.waitForExit(); });
            go.open();
            end.join();
            EXPECT_GE(tally.works, count);
            EXPECT_EQ(takeIdle(pool), nullptr);
            while (tally.living > static_cast<int>(kept.size()))
                std::this_thread::yield();
        }
    }
}

TEST(ThreadPoolTest, KeepsIdleWorkersAgainAfterAWaitForExit) {
    ZThreadPool pool(2, 2);
    Tally tally;
    Worker worker(tally, asJoinable, keepsObject, 0);
    for (int round = 0; round < 5; ++round) {
        pool.start(worker);
        worker.wakeUp();
        offer(pool, awaitIdle(pool));
        Beside other([&] { pool.waitForExit(); });
        pool.waitForExit();
        other.join();
    }
    EXPECT_EQ(tally.works, 5);
}

TEST(ThreadPoolTest, AnIdleWorkerThatIsEndedByItselfIsNoLongerOffered) {
    ZThreadPool pool(2, 2);
    Tally tally;
    Worker worker(tally, asJoinable, keepsObject, 0);
    pool.start(worker);
    worker.wakeUp();
    offer(pool, awaitIdle(pool));
    worker.waitForExit();
    EXPECT_EQ(takeIdle(pool), nullptr);
    pool.waitForExit();
}

TEST(ThreadPoolTest, WhoCannotTellAnIdleWorkerToExitReportsIt) {
    Reports reports;
    struct Stubborn : Worker {
        using Worker::Worker;
        void waitForExit() override {
            Worker::waitForExit();
            throw std::runtime_error("but it has ended");
        }
    };
    ZThreadPool pool(1, 1);
    Tally tally;
    Stubborn worker(tally, asJoinable, keepsObject, 0);
    pool.start(worker);
    worker.wakeUp();
    offer(pool, awaitIdle(pool));
    pool.waitForExit();
    EXPECT_EQ(reports.take(), (std::vector<Report>{{"src/Z/ZThread", 19, {}}}));
}

TEST(ThreadPoolTest, ACancelledStartLeavesThePoolAsItWas) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP()
        << "the address sanitizer takes the stack that an unwinding thread left for in use";
#endif
    ZThreadPool pool(1, 1);
    Gate go;
    Task running(asJoinable, keepsObject, [&] { go.await(); });
    Task never(asJoinable, keepsObject, [] {});
    pool.start(running);
    Task blocked(asJoinable, keepsObject, [&] { pool.start(never); });
    blocked.start();
    ASSERT_EQ(pthread_cancel(blocked.getPThreadID()), 0);
    blocked.waitForExit();
    Task ending(asJoinable, keepsObject, [&] { pool.waitForExit(); });
    ending.start();
    ASSERT_EQ(pthread_cancel(ending.getPThreadID()), 0);
    ending.waitForExit();
    go.open();
    pool.waitForExit();
    EXPECT_EQ(never.hash(), 0UL);
}

TEST(ThreadPoolTest, ServesManyProducersWithFewWorkers) {
    constexpr int producers = 3;
    constexpr int tasks = 100;
    Tally tally;
    WorkerPool pool(tally, 4, 2);
    {
        std::vector<std::unique_ptr<Beside>> threads;
        for (int i = 0; i < producers; ++i)
            threads.push_back(std::make_unique<Beside>([&] {
                for (int task = 0; task < tasks; ++task) {
                    ZThread* thread = nullptr;
                    pool.getAvailableIdleThread(thread);
                    auto& worker = dynamic_cast<Worker&>(*thread);
                    bool const isNew = worker.hash() == 0;
                    worker.wakeUp();
                    if (isNew) pool.start(worker);
                }
            }));
        for (auto const& thread : threads)
            thread->join();
    }
    pool.waitForExit();
    EXPECT_EQ(tally.works, producers * tasks);
    while (tally.living > 0)
        std::this_thread::yield();
}

}  // namespace
