// Read-write locks, conditions, threads and pools beside what else a program could use.
#include <benchmark/benchmark.h>
#include <pthread.h>

#include <atomic>
#include <shared_mutex>
#include <thread>

#include "Z/ZReadWriteLock.h"
#include "Z/ZThread.h"

#include <QReadWriteLock>
#include <boost/interprocess/sync/interprocess_upgradable_mutex.hpp>
#include <boost/thread/shared_mutex.hpp>

#if defined(__clang__)
// Locks are taken and released in separate functions.
#pragma clang diagnostic ignored "-Wthread-safety-analysis"
#endif

namespace {

// ------------------------------------------------------------------------------ read-write locks

/// One face for all. Protect and promotion have those that offer them.
struct Ours {
    void read() { lock.readLock(); }
    void readDone() { lock.unlock(); }
    void write() { lock.writeLock(); }
    void writeDone() { lock.unlock(); }
    void protect() { lock.readWithIntentToWriteLock(); }
    void protectDone() { lock.unlock(); }
    void promote() { lock.promoteReadToWriteLock(); }
    ZReadWriteLock lock;
};

struct Standard {
    void read() { lock.lock_shared(); }
    void readDone() { lock.unlock_shared(); }
    void write() { lock.lock(); }
    void writeDone() { lock.unlock(); }
    std::shared_mutex lock;
};

struct Boost {
    void read() { lock.lock_shared(); }
    void readDone() { lock.unlock_shared(); }
    void write() { lock.lock(); }
    void writeDone() { lock.unlock(); }
    void protect() { lock.lock_upgrade(); }
    void protectDone() { lock.unlock_upgrade(); }
    void promote() { lock.unlock_upgrade_and_lock(); }
    boost::upgrade_mutex lock;
};

struct Interprocess {
    void read() { lock.lock_sharable(); }
    void readDone() { lock.unlock_sharable(); }
    void write() { lock.lock(); }
    void writeDone() { lock.unlock(); }
    void protect() { lock.lock_upgradable(); }
    void protectDone() { lock.unlock_upgradable(); }
    void promote() { lock.unlock_upgradable_and_lock(); }
    boost::interprocess::interprocess_upgradable_mutex lock;
};

struct Qt {
    void read() { lock.lockForRead(); }
    void readDone() { lock.unlock(); }
    void write() { lock.lockForWrite(); }
    void writeDone() { lock.unlock(); }
    QReadWriteLock lock;
};

/// One atomic step in, one out; nobody could ever sleep.
struct Floor {
    void read() {
        int inside = word.load(std::memory_order_relaxed);
        while (inside < 0 || !word.compare_exchange_weak(inside, inside + 1))
            if (inside < 0) inside = word.load(std::memory_order_relaxed);
    }
    void readDone() { word.fetch_sub(1); }
    void write() {
        for (int nobody = 0; !word.compare_exchange_weak(nobody, -1);)
            nobody = 0;
    }
    void writeDone() { word.store(0); }
    void protect() { write(); }
    void protectDone() { writeDone(); }
    void promote() { word.exchange(-2); }
    std::atomic<int> word{0};  // readers; below 0 a writer
};

template <class Lock>
void read(benchmark::State& state) {
    Lock lock;
    for (auto _ : state) {
        lock.read();
        benchmark::ClobberMemory();
        lock.readDone();
    }
}

template <class Lock>
void write(benchmark::State& state) {
    Lock lock;
    for (auto _ : state) {
        lock.write();
        benchmark::ClobberMemory();
        lock.writeDone();
    }
}

template <class Lock>
void protect(benchmark::State& state) {
    Lock lock;
    for (auto _ : state) {
        lock.protect();
        benchmark::ClobberMemory();
        lock.protectDone();
    }
}

template <class Lock>
void promote(benchmark::State& state) {
    Lock lock;
    for (auto _ : state) {
        lock.protect();
        lock.promote();
        benchmark::ClobberMemory();
        lock.writeDone();
    }
}

/// What a thread does inside and between, some dozens of nanoseconds each.
void work(long steps) {
    for (long i = 0; i < steps; ++i)
        benchmark::DoNotOptimize(i);
}

/// One of `state.range(0)` turns writes, none for 0, with `state.range(1)` steps of work inside and
/// between; of each thread.
template <class Lock>
void takeTurns(benchmark::State& state) {
    static Lock lock;  // shared by the threads of one run
    long const round = state.range(0);
    long const steps = state.range(1);
    long turn = 0;
    for (auto _ : state) {
        bool const writes = round != 0 && ++turn % round == 0;
        writes ? lock.write() : lock.read();
        work(steps);
        writes ? lock.writeDone() : lock.readDone();
        work(steps);
    }
    state.SetItemsProcessed(state.iterations());
}

#define READ_WRITE_LOCK(Lock, side)                            \
    BENCHMARK_TEMPLATE(read, Lock)->Name("read lock/" side);   \
    BENCHMARK_TEMPLATE(write, Lock)->Name("write lock/" side); \
    BENCHMARK_TEMPLATE(takeTurns, Lock)                        \
        ->Name("read lock, two threads/" side)                 \
        ->Args({0, 0})                                         \
        ->Threads(2)                                           \
        ->UseRealTime();                                       \
    BENCHMARK_TEMPLATE(takeTurns, Lock)                        \
        ->Name("nine reads and a write, two threads/" side)    \
        ->Args({10, 0})                                        \
        ->Threads(2)                                           \
        ->UseRealTime();                                       \
    BENCHMARK_TEMPLATE(takeTurns, Lock)                        \
        ->Name("the same with work, two threads/" side)        \
        ->Args({10, 60})                                       \
        ->Threads(2)                                           \
        ->UseRealTime()
#define PROTECT_LOCK(Lock, side)                                   \
    BENCHMARK_TEMPLATE(protect, Lock)->Name("protect lock/" side); \
    BENCHMARK_TEMPLATE(promote, Lock)->Name("protect and promote/" side)

READ_WRITE_LOCK(Ours, "ours");
READ_WRITE_LOCK(Standard, "std::shared_mutex");
READ_WRITE_LOCK(Boost, "boost upgrade_mutex");
READ_WRITE_LOCK(Interprocess, "boost interprocess");
READ_WRITE_LOCK(Qt, "QReadWriteLock");
READ_WRITE_LOCK(Floor, "floor");
PROTECT_LOCK(Ours, "ours");
PROTECT_LOCK(Boost, "boost upgrade_mutex");
PROTECT_LOCK(Interprocess, "boost interprocess");
PROTECT_LOCK(Floor, "floor");

// ---------------------------------------------------------------------------------------- threads

struct EmptyThread : ZThread {
    EmptyThread() : ZThread(0, 0) {}
    void run() override {}
};

void* runEmpty(void*) { return nullptr; }

void startAndJoinPthread(benchmark::State& state) {
    for (auto _ : state) {
        pthread_t thread{};
        pthread_create(&thread, nullptr, runEmpty, nullptr);
        pthread_join(thread, nullptr);
    }
}
BENCHMARK(startAndJoinPthread)->Name("start and join a thread/floor")->UseRealTime();

void startAndJoinStandard(benchmark::State& state) {
    for (auto _ : state)
        std::thread([] {}).join();
}
BENCHMARK(startAndJoinStandard)->Name("start and join a thread/std::thread")->UseRealTime();

void startAndJoinLibrary(benchmark::State& state) {
    EmptyThread thread;
    for (auto _ : state) {
        thread.start();
        thread.waitForExit();
    }
}
BENCHMARK(startAndJoinLibrary)->Name("start and join a thread/ours")->UseRealTime();

/// A worker that says when it has worked.
class Worker : public ZSleeperThread {
  public:
    explicit Worker(std::atomic<long>& counter) : ZSleeperThread(1, 1), done(counter) {}
    void doWork() override { ++done; }

  private:
    std::atomic<long>& done;
};

class Workers : public ZThreadPool {
  public:
    explicit Workers(std::atomic<long>& counter) : ZThreadPool(4, 3), done(counter) {}
    ZThread* createThread() override { return new Worker(done); }

  private:
    std::atomic<long>& done;
};

/// Tasks per second of a pool whose workers are used again.
void poolTasks(benchmark::State& state) {
    std::atomic<long> done{0};
    Workers pool(done);
    for (auto _ : state) {
        ZThread* thread = nullptr;
        pool.getAvailableIdleThread(thread);
        auto* const worker = static_cast<Worker*>(thread);
        bool const isNew = worker->getPThreadID() == 0;
        worker->wakeUp();
        if (isNew) pool.start(*worker);
    }
    pool.waitForExit();
    state.SetItemsProcessed(done);
}
BENCHMARK(poolTasks)->Name("task on an idle worker/ours")->UseRealTime();

struct ShortTask : ZThread {
    explicit ShortTask(std::atomic<long>& counter) : ZThread(1, 1), done(counter) {}
    void run() override { ++done; }
    std::atomic<long>& done;
};

/// Tasks per second of a pool with a thread for each task.
void poolThreads(benchmark::State& state) {
    std::atomic<long> done{0};
    ZThreadPool pool(4, 0);
    for (auto _ : state)
        pool.start(*new ShortTask(done));
    pool.waitForExit();
    state.SetItemsProcessed(done);
}
BENCHMARK(poolThreads)->Name("task on a thread of its own/ours")->UseRealTime();

}  // namespace
