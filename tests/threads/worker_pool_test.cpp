#include "Z/ZWorkerPool.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Z/ZLock.h"
#include "support/locks.h"

namespace {
thread_local bool isExhausted = false;  // no memory for jobs of this thread
}

void* operator new(std::size_t size, std::nothrow_t const&) noexcept {
    try {
        return isExhausted ? nullptr : ::operator new(size);
    } catch (...) {
        return nullptr;
    }
}

namespace {

using namespace testsupport;

Report const waitsForItself{"ZThreadException", 20, {std::to_string(EDEADLK)}};
Report const notThere{"ZThreadException", 20, {std::to_string(ESRCH)}};
Report const unknownInJob{"src/Z/ZWorkerPool", 19, {}};
auto const doesNothing = [] {};

/// Keeps workers of the pool busy until `go` is opened.
void keepBusy(ZWorkerPool& pool, int workers, Gate const& go) {
    std::atomic<int> begun{0};
    for (int i = 0; i < workers; ++i)
        pool.run([&] { ++begun, go.await(); });
    awaitThat([&] { return begun == workers; });
}

TEST(WorkerPoolTest, RunsJobsInTheirOrderRoundAfterRoundAndGivesBackWhatTheyHeld) {
    ZWorkerPool pool(1);
    std::vector<int> ran;
    for (int round = 0; round < 3; ++round) {
        auto held = std::make_shared<int>(0);
        std::weak_ptr<int> const seen = held;
        pool.run([&ran, mine = std::make_unique<int>(1)] { ran.push_back(*mine); });
        pool.run([&ran, held = std::move(held)] { ran.push_back(2); });
        std::function<int()> const returning = [&ran] { return ran.push_back(3), 7; };
        EXPECT_TRUE(pool.tryRun(returning));
        pool.waitForAll();
        EXPECT_EQ(ran, (std::vector{1, 2, 3}));
        EXPECT_TRUE(seen.expired());
        ran.clear();
    }
    pool.waitForAll();  // nothing to wait for
}

TEST(WorkerPoolTest, TakesAsManyAsItsWorkersAndItsQueueHoldAndRefusesOrWaitsBeyond) {
    for (unsigned int const limit : {0U, 1U, 3U}) {
        std::atomic<int> ran{0};
        Gate go;
        ZWorkerPool pool(2, limit);
        keepBusy(pool, 2, go);
        auto job = [&ran, mine = std::make_unique<int>(1)] { ran += *mine; };
        for (unsigned int i = 0; i < limit; ++i)
            EXPECT_TRUE(pool.tryRun([&ran] { ++ran; }));
        EXPECT_FALSE(pool.tryRun(std::move(job)));
        std::atomic<pid_t> giver{0};
        Beside blocked([&] {
            giver = gettid();
            pool.run(std::move(job));  // which the refusal has left whole
        });
        awaitThat([&] { return giver != 0 && stateOf(giver) == 'S'; });
        EXPECT_EQ(ran, 0);
        go.open();
        blocked.join();
        pool.waitForAll();
        EXPECT_EQ(ran, static_cast<int>(limit) + 1);
        EXPECT_TRUE(pool.tryRun(doesNothing)) << "a worker is idle";
    }
}

TEST(WorkerPoolTest, AJobAddsOthersBeyondTheLimitAndNeverWaitsForItself) {
    std::atomic<int> ran{0};
    std::function<void(int)> grow;
    ZWorkerPool pool(2, 0);
    grow = [&](int depth) {
        ++ran;
        for (int i = 0; i < 2 && depth > 0; ++i)
            pool.run([&grow, depth] { grow(depth - 1); });
    };
    pool.run([&] { grow(9); });
    pool.waitForAll();
    EXPECT_EQ(ran, 1023);
    pool.run([&] { EXPECT_EQ(thrownBy([&] { pool.waitForAll(); }), waitsForItself); });
    pool.waitForAll();
}

TEST(WorkerPoolTest, ReportsAndCountsJobsThatFailAndKeepsItsWorkers) {
    struct {
        std::function<void()> job;
        std::vector<Report> reported;
    } const rows[] = {
        {[] { throw std::runtime_error("mine"); }, {unknownInJob}},
        {[] { throw 7; }, {unknownInJob}},
        {[] { ZLock().unlock(); }, {{"ZUnlockResourceException", 6, {}}}},
        {[] { pthread_exit(nullptr); }, {}},
        {[] { pthread_cancel(pthread_self()), pthread_testcancel(); }, {}},
    };
    Reports reports;
    ZWorkerPool pool(1);
    unsigned long failures = 0;
    for (int round = 0; round < 3; ++round)
        for (auto const& row : rows) {
            SCOPED_TRACE(&row - rows);
            bool hasRun = false;
            pool.run(row.job);
            pool.run([&] { hasRun = true; });
            pool.waitForAll();
            EXPECT_TRUE(hasRun);
            EXPECT_EQ(reports.take(), row.reported);
            EXPECT_EQ(pool.getFailureCount(), ++failures);
        }
}

TEST(WorkerPoolTest, RefusesWhatIsNoJobAndKeepsOneForWhichThereIsNoMemory) {
    EXPECT_EQ(thrownBy([] { ZWorkerPool(0); }), invalidParameter);
    ZWorkerPool pool(1, 0);
    EXPECT_EQ(thrownBy([&] { pool.run(std::function<void()>()); }), invalidParameter);
    void (*const null)() = nullptr;
    EXPECT_EQ(thrownBy([&] { static_cast<void>(pool.tryRun(null)); }), invalidParameter);
    int ran = 0;
    auto job = [&ran, mine = std::make_unique<int>(3)] { ran += *mine; };
    isExhausted = true;
    int const error = thrownBy([&] { pool.run(std::move(job)); }).number;
    isExhausted = false;
    EXPECT_EQ(error, 1);
    EXPECT_TRUE(pool.tryRun(std::move(job))) << "the place is free again";
    pool.waitForAll();
    EXPECT_EQ(ran, 3);
}

TEST(WorkerPoolTest, EndsWhenAllJobsAreDoneAlsoInAJob) {
    Reports reports;
    std::atomic<int> ran{0};
    Gate isGone;
    for (bool const isInside : {false, true}) {
        auto pool = std::make_unique<ZWorkerPool>(2);
        auto& workers = *pool;
        for (int i = 0; i < 50; ++i)
            workers.run([&ran, leaves = i % 10 == 7] {
                ++ran;
                if (leaves) pthread_exit(nullptr);
            });
        if (isInside)
            workers.run([&isGone, pool = std::move(pool)]() mutable {
                pool.reset();
                isGone.open();
            });
    }
    isGone.await();
    awaitThat([&] { return ran == 100; });
    EXPECT_TRUE(reports.take().empty());
}

TEST(WorkerPoolTest, AChildOfAForkHasNothingOfItsParentsAndTheParentKeepsAll) {
    std::atomic<int> ran{0};
    Gate go;
    auto pool = std::make_unique<ZWorkerPool>(2, 1);
    keepBusy(*pool, 2, go);
    pool->run([&] { ++ran; });
    auto const fork = [&] {
        return inChild([&] {
            alarm(20);  // behind this it hangs
            std::function<void()> const calls[] = {
                [&] { pool->run(doesNothing); },
                [&] { static_cast<void>(pool->tryRun(doesNothing)); },
                [&] { pool->waitForAll(); },
                [&] { static_cast<void>(pool->getFailureCount()); },
            };
            int wrong = 0;
            for (auto const& call : calls)
                wrong += thrownBy(call) == notThere ? 0 : 1;
            pool.reset();
            return wrong;
        });
    };
    EXPECT_EQ(fork(), 0);
    int status = -1;
    go.open();
    pool->run([&] { status = fork(); });
    pool->waitForAll();
    EXPECT_EQ(status, 0);
    EXPECT_EQ(ran, 1);
}

TEST(WorkerPoolTest, ServesManyCallersAtOnceAndLosesNothing) {
    constexpr int each = 400;
    Reports const dropped;
    std::atomic<int> ran{0};
    std::atomic<int> failed{0};
    ZWorkerPool pool(3, 2);
    Crew callers;
    for (int caller = 0; caller < 3; ++caller)
        callers.add([&] {
            for (int i = 0; i < each; ++i) {
                auto const job = [&, i] {
                    ++ran;
                    if (i % 10 == 3) pool.run([&] { ++ran; });
                    if (i % 20 == 5) ++failed, throw i;
                    if (i % 100 == 7) ++failed, pthread_exit(nullptr);
                };
                if (i % 2 == 0 || !pool.tryRun(job)) pool.run(job);
                if (i % 50 == 0) pool.waitForAll();
            }
        });
    callers.join();
    pool.waitForAll();
    EXPECT_EQ(ran, 3 * (each + each / 10));
    EXPECT_EQ(pool.getFailureCount(), static_cast<unsigned long>(failed));
}

}  // namespace
