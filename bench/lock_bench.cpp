// The library's locks and conditions beside those of the C++ and C libraries.
#include <benchmark/benchmark.h>
#include <pthread.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "Z/ZCondition.h"
#include "Z/ZLock.h"

#if defined(__clang__)
// Re-entry is what is measured.
#pragma clang diagnostic ignored "-Wthread-safety-analysis"
#endif

namespace {

// A mutex of a process that never had a second thread saves its atomic operations; no program that
// locks is such a one.
[[maybe_unused]] bool const hadAThread = (std::thread([] {}).join(), true);

/// The floor: what any of the others rests on.
class BareMutex {
  public:
    void lock() { pthread_mutex_lock(&mutex); }
    void unlock() { pthread_mutex_unlock(&mutex); }

  private:
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
};

/// As most code of the library sees a lock.
class LockBehindInterface {
  public:
    void lock() { seen->lock(); }
    void unlock() { seen->unlock(); }

  private:
    ZLock held;
    ZLockInterface* seen = &held;
};

template <class Lock>
void lockAndUnlock(benchmark::State& state) {
    static Lock lock;  // shared by the threads of one run
    for (auto _ : state) {
        lock.lock();
        benchmark::ClobberMemory();
        lock.unlock();
    }
}
BENCHMARK_TEMPLATE(lockAndUnlock, BareMutex)->ThreadRange(1, 2)->UseRealTime();
BENCHMARK_TEMPLATE(lockAndUnlock, std::mutex)->ThreadRange(1, 2)->UseRealTime();
BENCHMARK_TEMPLATE(lockAndUnlock, std::recursive_mutex)->ThreadRange(1, 2)->UseRealTime();
BENCHMARK_TEMPLATE(lockAndUnlock, ZLock)->ThreadRange(1, 2)->UseRealTime();
BENCHMARK_TEMPLATE(lockAndUnlock, LockBehindInterface)->ThreadRange(1, 2)->UseRealTime();

template <class Lock>
void reenter(benchmark::State& state) {
    Lock lock;
    lock.lock();
    for (auto _ : state) {
        lock.lock();
        benchmark::ClobberMemory();
        lock.unlock();
    }
    lock.unlock();
}
BENCHMARK_TEMPLATE(reenter, std::recursive_mutex);
BENCHMARK_TEMPLATE(reenter, ZLock);
BENCHMARK_TEMPLATE(reenter, LockBehindInterface);

template <class Lock, class Guard>
void guardAScope(benchmark::State& state) {
    Lock lock;
    for (auto _ : state) {
        Guard const guard(lock);
        benchmark::ClobberMemory();
    }
}
BENCHMARK_TEMPLATE(guardAScope, std::recursive_mutex, std::lock_guard<std::recursive_mutex>);
BENCHMARK_TEMPLATE(guardAScope, ZLock, std::lock_guard<ZLock>);
BENCHMARK_TEMPLATE(guardAScope, ZLock, ZResourceLock);

enum class Turn { mine, theirs, over };

/// Two threads take turns, by the C++ library's means.
class StandardTurns {
  public:
    /// Waits for its turn and gives it on; false when the game is over.
    bool pass(Turn from, Turn to) {
        std::unique_lock guard(mutex);
        changed.wait(guard, [&] { return turn == from || turn == Turn::over; });
        if (turn == Turn::over) return false;
        turn = to;
        changed.notify_one();
        return true;
    }

  private:
    std::recursive_mutex mutex;
    std::condition_variable_any changed;
    Turn turn = Turn::mine;
};

/// The same by the library's.
class LibraryTurns {
  public:
    bool pass(Turn from, Turn to) {
        ZResourceLock const guard(changed);
        while (turn != from && turn != Turn::over)
            changed.wait();
        if (turn == Turn::over) return false;
        turn = to;
        changed.signal();
        return true;
    }

  private:
    ZCondition changed;
    Turn turn = Turn::mine;
};

template <class Turns>
void conditionRoundTrip(benchmark::State& state) {
    Turns turns;
    std::thread other([&] {
        while (turns.pass(Turn::theirs, Turn::mine)) {
        }
    });
    for (auto _ : state)
        turns.pass(Turn::mine, Turn::theirs);
    turns.pass(Turn::mine, Turn::over);
    other.join();
}
BENCHMARK_TEMPLATE(conditionRoundTrip, StandardTurns)->UseRealTime();
BENCHMARK_TEMPLATE(conditionRoundTrip, LibraryTurns)->UseRealTime();

}  // namespace
