// Short jobs on workers that are there already, through each pool that a program could use: what
// it costs to hand a job over and to wait for all of them, per job.
#include <benchmark/benchmark.h>

#include <QRunnable>
#include <QThreadPool>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "Z/ZThread.h"
#include "Z/ZWorkerPool.h"

namespace {

constexpr unsigned int workers = 2;
constexpr std::int64_t jobs = 2000;  // of a round

using Counter = std::atomic<std::int64_t>;

class Ours {
  public:
    void run(Counter& done) {
        pool.run([&done] { ++done; });
    }
    void waitForAll() { pool.waitForAll(); }

  private:
    ZWorkerPool pool{workers, static_cast<unsigned int>(jobs)};
};

class Qt {
  public:
    Qt() { pool.setMaxThreadCount(workers); }
    void run(Counter& done) { pool.start(new Job(done)); }
    void waitForAll() { pool.waitForDone(); }

  private:
    struct Job : QRunnable {
        explicit Job(Counter& counter) : done(counter) {}
        void run() override { ++done; }
        Counter& done;
    };
    QThreadPool pool;
};

/// A mutex, a condition and a queue: no pool has less.
class Floor {
  public:
    Floor() {
        for (unsigned int i = 0; i < workers; ++i)
            threads.emplace_back([this] { work(); });
    }
    ~Floor() {
        {
            std::lock_guard const guard(mutex);
            isOver = true;
        }
        changed.notify_all();
        for (auto& thread : threads)
            thread.join();
    }
    Floor(Floor const&) = delete;
    Floor& operator=(Floor const&) = delete;

    void run(Counter& done) {
        {
            std::lock_guard const guard(mutex);
            queue.emplace_back([&done] { ++done; });
            ++unfinished;
        }
        changed.notify_one();
    }
    void waitForAll() {
        std::unique_lock guard(mutex);
        allDone.wait(guard, [this] { return unfinished == 0; });
    }

  private:
    void work() {
        std::unique_lock guard(mutex);
        for (;;) {
            changed.wait(guard, [this] { return isOver || !queue.empty(); });
            if (queue.empty()) return;
            auto const job = std::move(queue.front());
            queue.pop_front();
            guard.unlock();
            job();
            guard.lock();
            if (--unfinished == 0) allDone.notify_all();
        }
    }

    std::mutex mutex;
    std::condition_variable changed, allDone;
    std::deque<std::function<void()>> queue;
    std::int64_t unfinished = 0;
    bool isOver = false;
    std::vector<std::thread> threads;
};

/// The library's pool of threads, whose workers are taken from the idle ones.
class Threads {
  public:
    void run(Counter& done) {
        ZThread* thread = nullptr;
        pool.getAvailableIdleThread(thread);
        auto* const worker = static_cast<Worker*>(thread);
        bool const isNew = worker->getPThreadID() == 0;
        worker->done = &done;
        worker->wakeUp();
        if (isNew) pool.start(*worker);
        ++given;
    }
    /// Without an end of the pool, which has no other way: by the count.
    void waitForAll() {
        while (finished < given)
            std::this_thread::yield();
    }
    ~Threads() { pool.waitForExit(); }

  private:
    struct Worker : ZSleeperThread {
        explicit Worker(Counter& counter) : ZSleeperThread(1, 1), finished(counter) {}
        void doWork() override {
            ++*done;
            ++finished;
        }
        Counter* done = nullptr;
        Counter& finished;
    };
    struct Pool : ZThreadPool {
        explicit Pool(Counter& counter) : ZThreadPool(workers + 1, workers), finished(counter) {}
        ZThread* createThread() override { return new Worker(finished); }
        Counter& finished;
    };
    Counter finished{0};
    std::int64_t given = 0;
    Pool pool{finished};
};

template <class Pool>
void shortJobs(benchmark::State& state) {
    Pool pool;
    Counter done{0};
    for (auto _ : state) {
        for (std::int64_t i = 0; i < jobs; ++i)
            pool.run(done);
        pool.waitForAll();
    }
    if (done != state.iterations() * jobs) state.SkipWithError("jobs are missing");
    state.SetItemsProcessed(done);
}
// A line of the report is the time of `jobs`; items per second count each.
BENCHMARK_TEMPLATE(shortJobs, Floor)->Name("2000 short jobs on two workers/floor")->UseRealTime();
BENCHMARK_TEMPLATE(shortJobs, Ours)->Name("2000 short jobs on two workers/ours")->UseRealTime();
BENCHMARK_TEMPLATE(shortJobs, Qt)->Name("2000 short jobs on two workers/qt")->UseRealTime();
BENCHMARK_TEMPLATE(shortJobs, Threads)->UseRealTime();

/// One job, and the wait for its end: what a wake-up costs each.
template <class Pool>
void oneJob(benchmark::State& state) {
    Pool pool;
    Counter done{0};
    for (auto _ : state) {
        pool.run(done);
        pool.waitForAll();
    }
}
BENCHMARK_TEMPLATE(oneJob, Floor)->Name("one job at a time/floor")->UseRealTime();
BENCHMARK_TEMPLATE(oneJob, Ours)->Name("one job at a time/ours")->UseRealTime();
BENCHMARK_TEMPLATE(oneJob, Qt)->Name("one job at a time/qt")->UseRealTime();

}  // namespace
