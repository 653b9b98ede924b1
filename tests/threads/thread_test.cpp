#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <fstream>
#include <functional>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Z/ZThread.h"
#include "support/workers.h"

namespace {

using namespace testsupport;

Report const notJoined{"ZThreadException", 20, {std::to_string(ESRCH)}};

TEST(ThreadTest, RunsItsBodyInAThreadOfItsIdAndCallsExitOnceHoweverOftenItIsStarted) {
    Tally tally;
    pthread_t seen{};
    Task thread(tally, nullptr, asJoinable, deletesObject);  // the flag means nothing here
    thread.body = [&] {
        seen = pthread_self();
        EXPECT_EQ(seen, thread.getPThreadID());
    };
    EXPECT_EQ(thread.hash(), 0UL) << "not started";
    for (int i = 1; i <= 3; ++i) {
        thread.start();
        EXPECT_NE(thread.getPThreadID(), pthread_self());
        thread.waitForExit();
        EXPECT_EQ(seen, thread.getPThreadID());
        EXPECT_EQ(thread.hash(), static_cast<unsigned long>(seen));
        EXPECT_EQ(tally.works, i);
        EXPECT_EQ(tally.ended, i);
    }
}

TEST(ThreadTest, AThreadThatNobodyJoinedIsGivenUpByItsDestructorAndTheNextStart) {
    auto const pagesInUse = [] {  // some of them for the stack of every thread
        long pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        return pages;
    };
    long const halfOfTheStacks = (400L << 20) / sysconf(_SC_PAGESIZE);
    long before = 0;
    Tally tally;
    for (int i = 0; i <= 100; ++i) {
        Task thread(tally);
        for (int start = 1; start <= 2; ++start) {
            thread.start();
            awaitThat([&] { return tally.ended == 2 * i + start; });
        }
        if (i == 0) before = pagesInUse();
    }
    EXPECT_LT(pagesInUse(), before + halfOfTheStacks);
}

TEST(ThreadTest, ADetachedThreadIsNotWaitedForAndMayBeShorterThanItsStart) {
    Tally tally;
    Gate go;
    Task waiting(
        tally, [&] { go.await(); }, asDetached);
    waiting.start();
    waiting.waitForExit();
    for (int i = 0; i < 500; ++i)
        (new Task(tally, nullptr, asDetached, deletesObject))->start();
    awaitThat([&] { return tally.living == 1; });
    go.open();
    awaitThat([&] { return tally.ended == 501; });
}

TEST(ThreadTest, CallsExitOnceHoweverItEndsAndReportsWhatEscapesButNoUnwinding) {
    std::function<void()> const leave = [] { pthread_exit(nullptr); };
    std::function<void()> const isCancelled = [] { pthread_cancel(pthread_self()), pause(); };
    std::function<void()> const fails = [] { ZLock().unlock(); };
    std::function<void()> const throws = [] { throw std::runtime_error("mine"); };
    Report const failure{"ZUnlockResourceException", 6, {}};
    struct {
        std::function<void()> run;
        std::function<void()> exit;
        std::vector<Report> reported;
    } const rows[] = {
        {fails, throws, {failure, unknownInThread}},
        {throws, fails, {unknownInThread, failure}},
        {leave, nullptr, {}},
        {isCancelled, nullptr, {}},
        {nullptr, leave, {}},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(&row - rows);
        Reports reports;
        Tally tally;
        int exits = 0;
        Task thread(tally, row.run);
        thread.atExit = [&] {
            ++exits;
            if (row.exit) row.exit();
        };
        thread.start();
        thread.waitForExit();
        EXPECT_EQ(exits, 1);
        EXPECT_EQ(reports.take(), row.reported);
    }
}

// The thread sanitizer takes a cancelled pthread_join() for an error, in any program: its own part
// of the call is not unwound.
#if !defined(__SANITIZE_THREAD__)
TEST(ThreadTest, ACancelledJoinMayBeRepeated) {
    Tally tally;
    Gate go;
    Task thread(tally, [&] { go.await(); });
    thread.start();
    EXPECT_TRUE(Doomed([&] { thread.waitForExit(); }).cancel());
    go.open();
    thread.waitForExit();
    EXPECT_EQ(tally.ended, 1);
}
#endif

/// Stands for a thread that it did not start.
struct Wrapped : ZThread {
    using ZThread::ZThread;
    void run() override {}
};

TEST(ThreadTest, StandsForAThreadThatSomebodyElseStarted) {
    pthread_t id{};
    auto* const run = +[](void*) -> void* { return nullptr; };
    ASSERT_EQ(pthread_create(&id, nullptr, run, nullptr), 0);
    Wrapped wrapped(id);
    { Wrapped const other(id); }
    EXPECT_EQ(wrapped.getPThreadID(), id);
    wrapped.waitForExit();
    EXPECT_EQ(thrownBy([&] { wrapped.waitForExit(); }), notJoined);
    constexpr auto highest = std::numeric_limits<pthread_t>::max();
    EXPECT_EQ(Wrapped(1).compare(Wrapped(highest)), -1) << "by unsigned ids";
    EXPECT_EQ(Wrapped(highest).compare(Wrapped(1)), 1);
}

TEST(ThreadKeyTest, EachThreadHasItsObjectWhichEndsWithTheThread) {
    Tally tally;
    unsigned int key = 0;
    ZThread::createThreadKey(key);
    Task thread(tally, [&] {
        EXPECT_EQ(ZThread::getThreadObject(key), nullptr);
        auto* const object = new Task(tally);
        ZThread::setThreadObject(key, object);
        EXPECT_EQ(ZThread::getThreadObject(key), object);
    });
    ZThread::setThreadObject(key, &thread);
    thread.start();
    thread.waitForExit();
    EXPECT_EQ(tally.living, 1);
    EXPECT_EQ(ZThread::getThreadObject(key), &thread);
    ZThread::setThreadObject(key, nullptr);
    pthread_key_delete(key);
}

TEST(SleeperThreadTest, WorksOnceForEachTimeItIsWokenAndMayBeStartedAgain) {
    Tally tally;
    Worker sleeper(tally);
    sleeper.body = [&] { sleeper.wakeUp(); };  // absorbed
    for (int i = 1; i <= 50; ++i) {
        sleeper.start();
        sleeper.wakeUp();
        awaitThat([&] { return tally.works >= i; });
        sleeper.waitForExit();
        EXPECT_EQ(thrownBy([&] { sleeper.waitForExit(); }), notJoined) << "ended already";
        sleeper.start();
        sleeper.waitForExit();
        EXPECT_EQ(tally.works, i) << "not woken";
    }
}

TEST(SleeperThreadTest, ADetachedOneMayEndBeforeItsStartReturns) {
    Reports reports;
    Tally tally;
    for (int i = 0; i < 200; ++i) {
        auto* const own = new Worker(tally, asDetached, deletesObject);
        own->body = [] { throw std::runtime_error("ends at once"); };
        own->wakeUp();  // works as soon as it runs
        own->start();
        awaitThat([&] { return tally.living == 0; });
    }
    EXPECT_EQ(reports.take(), std::vector<Report>(200, unknownInThread));
}

TEST(SleeperThreadTest, SleepsWithTheLockThatItsMakerLends) {
    Tally tally;
    ZLock lent;
    Worker sleeper(tally, std::ref(lent));
    sleeper.body = [&] { EXPECT_FALSE(isFree(lent)); };
    {
        ZResourceLock const guard(lent);
        sleeper.start();
        sleeper.wakeUp();
    }
    awaitThat([&] { return tally.works == 1; });
    sleeper.waitForExit();
    EXPECT_TRUE(isFree(lent));
}

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

TEST(ThreadPoolTest, KeepsAsManyIdleAsTheSmallerNumberSaysAndUsesThemAgain) {
    for (auto const& [a, b] : {std::pair(1U, 2U), std::pair(2U, 1U)}) {
        ZThreadPool pool(a, b);
        Tally tally;
        Worker worker(tally);
        makeIdle(pool, worker);
        Worker surplus(tally);
        pool.start(surplus);
        surplus.wakeUp();
        awaitThat([&] { return tally.ended == 1; });
        for (int works = 3; works <= 20; ++works) {
            offer(pool, worker);
            EXPECT_EQ(takeIdle(pool), &worker);
            EXPECT_EQ(takeIdle(pool), nullptr) << "offered twice, idle once";
            worker.wakeUp();
            offer(pool, awaitIdle(pool));
            EXPECT_EQ(tally.works, works);
        }
        worker.waitForExit();
        EXPECT_EQ(takeIdle(pool), nullptr);
        pool.waitForExit();
    }
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
    void start() override {
        if (runsFirst) Task::start(), Task::waitForExit();
        throw 7;
    }
    bool runsFirst = false;
};

TEST(ThreadPoolTest, AStartThatFailsIsReportedAndNotCounted) {
    Reports reports;
    Tally tally;
    ZThreadPool pool(1, 0);
    Unstartable unstartable(tally);
    for (bool const runsFirst : {false, true}) {
        unstartable.runsFirst = runsFirst;
        pool.start(unstartable);
        EXPECT_EQ(reports.take(), (std::vector<Report>{unknownInThread}));
    }
    Task task(tally);
    pool.start(task);  // there is a place for it
    task.waitForExit();
    task.start();  // now without the pool
    task.waitForExit();
    pool.waitForExit();
    EXPECT_EQ(tally.works, 3);
    EXPECT_EQ(thrownBy([&] { ZThreadPool(0, 0).start(task); }), invalidParameter);
}

TEST(ThreadPoolTest, WaitForExitEndsWorkersOfEveryKindIdleOrBusyAndKeepsThoseThatComeAfter) {
    constexpr int count = 3;
    struct {
        int detached;
        int deletes;
        bool busy;
    } const kinds[] = {
        {asJoinable, keepsObject, false},   {asJoinable, keepsObject, true},
        {asDetached, keepsObject, false},   {asDetached, keepsObject, true},
        {asDetached, deletesObject, false}, {asDetached, deletesObject, true},
    };
    ZThreadPool pool(count, count);
    for (auto const& kind : kinds) {
        Tally tally;
        Gate go;
        std::vector<std::unique_ptr<Worker>> kept;
        for (int i = 0; i < count; ++i) {
            auto* const worker =
                new Worker(tally, kind.detached, kind.deletes, kind.busy ? 1UL : 0UL);
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

TEST(ThreadPoolTest, AStartEndsAnIdleWorkerWhenThereIsNoOtherPlace) {
    for (bool const isIdleBefore : {true, false}) {
        ZThreadPool pool(1, 1);
        Tally tally;
        Gate go;
        Worker worker(tally);
        if (!isIdleBefore) worker.body = [&] { go.await(); };
        pool.start(worker);
        worker.wakeUp();
        if (isIdleBefore) offer(pool, awaitIdle(pool));
        awaitThat([&] { return tally.works == 1; });
        Task task(tally);
        Beside start([&] { pool.start(task); });
        go.open();
        start.join();
        pool.waitForExit();
        EXPECT_EQ(tally.ended, 2);
    }
}

struct MakingPool : ZThreadPool {
    MakingPool(Tally& shared, unsigned int idle) : ZThreadPool(4, idle), tally(shared) {}
    ZThread* createThread() override { return new Worker(tally, asDetached, deletesObject); }
    Tally& tally;
};

class PoolOfMakersTest : public testing::TestWithParam<unsigned int> {};
INSTANTIATE_TEST_SUITE_P(SomeOrAllIdle, PoolOfMakersTest, testing::Values(2U, 4U));

TEST_P(PoolOfMakersTest, ServesManyProducersWithFewWorkersThatItMakes) {
    Tally tally;
    MakingPool pool(tally, GetParam());
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
