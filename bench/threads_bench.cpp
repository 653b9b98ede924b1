// Read-write locks, conditions, threads and pools beside what else a program could use.
#include <benchmark/benchmark.h>
#include <pthread.h>

#include <atomic>
#include <shared_mutex>
#include <thread>

#include "Z/ZReadWriteLock.h"
#include "Z/ZThread.h"

#include <boost/thread/shared_mutex.hpp>

#if defined(__clang__)
// Locks are taken and released in separate functions.
#pragma clang diagnostic ignored "-Wthread-safety-analysis"
#endif

namespace {

// ------------------------------------------------------------------------------ read-write locks

/// One face for the three locks; std::shared_mutex has no protect.
struct Standard {
    void read() { lock.lock_shared(); }
    void readDone() { lock.unlock_shared(); }
    void write() { lock.lock(); }
    void writeDone() { lock.unlock(); }
    std::shared_mutex lock;
};

struct Library {
    void read() { lock.readLock(); }
    void readDone() { lock.unlock(); }
    void write() { lock.writeLock(); }
    void writeDone() { lock.unlock(); }
    void protect() { lock.readWithIntentToWriteLock(); }
    void protectDone() { lock.unlock(); }
    void promote() { lock.promoteReadToWriteLock(); }
    ZReadWriteLock lock;
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

/// Nine reads for each write, of each thread.
template <class Lock>
void nineReadsAndAWrite(benchmark::State& state) {
    static Lock lock;  // shared by the threads of one run
    int turn = 0;
    for (auto _ : state) {
        if (++turn % 10 == 0) {
            lock.write();
            benchmark::ClobberMemory();
            lock.writeDone();
        } else {
            lock.read();
            benchmark::ClobberMemory();
            lock.readDone();
        }
    }
}

BENCHMARK_TEMPLATE(read, Standard);
BENCHMARK_TEMPLATE(read, Library);
BENCHMARK_TEMPLATE(write, Standard);
BENCHMARK_TEMPLATE(write, Library);
BENCHMARK_TEMPLATE(protect, Library);
BENCHMARK_TEMPLATE(promote, Library);
BENCHMARK_TEMPLATE(nineReadsAndAWrite, Standard)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK_TEMPLATE(nineReadsAndAWrite, Library)->Threads(1)->Threads(2)->UseRealTime();

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
BENCHMARK_TEMPLATE(read, Boost);
BENCHMARK_TEMPLATE(write, Boost);
BENCHMARK_TEMPLATE(protect, Boost);
BENCHMARK_TEMPLATE(promote, Boost);
BENCHMARK_TEMPLATE(nineReadsAndAWrite, Boost)->Threads(1)->Threads(2)->UseRealTime();

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
BENCHMARK(startAndJoinPthread)->UseRealTime();

void startAndJoinStandard(benchmark::State& state) {
    for (auto _ : state)
        std::thread([] {}).join();
}
BENCHMARK(startAndJoinStandard)->UseRealTime();

void startAndJoinLibrary(benchmark::State& state) {
    EmptyThread thread;
    for (auto _ : state) {
        thread.start();
        thread.waitForExit();
    }
}
BENCHMARK(startAndJoinLibrary)->UseRealTime();

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
BENCHMARK(poolTasks)->UseRealTime();

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
BENCHMARK(poolThreads)->UseRealTime();

}  // namespace
