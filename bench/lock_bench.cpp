// The library's locks and conditions beside those of the C++ and C libraries and Boost.
#include <benchmark/benchmark.h>
#include <pthread.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "Z/ZCondition.h"
#include "Z/ZLock.h"

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/recursive_mutex.hpp>

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
#define LOCK_AND_UNLOCK(Lock, side)         \
    BENCHMARK_TEMPLATE(lockAndUnlock, Lock) \
        ->Name("lock and unlock/" side)     \
        ->ThreadRange(1, 2)                 \
        ->UseRealTime()
LOCK_AND_UNLOCK(ZLock, "ours");
LOCK_AND_UNLOCK(LockBehindInterface, "ours, by the interface");
LOCK_AND_UNLOCK(std::recursive_mutex, "std::recursive_mutex");
LOCK_AND_UNLOCK(boost::recursive_mutex, "boost recursive_mutex");
LOCK_AND_UNLOCK(std::mutex, "std::mutex");
LOCK_AND_UNLOCK(BareMutex, "floor");

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
/// The floor of counting: what a lock does that need not find out who asks.
struct Counter {
    void lock() { ++depth; }
    void unlock() { --depth; }
    int depth = 0;
};
#define REENTER(Lock, side) BENCHMARK_TEMPLATE(reenter, Lock)->Name("lock once more/" side)
REENTER(ZLock, "ours");
REENTER(LockBehindInterface, "ours, by the interface");
REENTER(std::recursive_mutex, "std::recursive_mutex");
REENTER(boost::recursive_mutex, "boost recursive_mutex");
REENTER(Counter, "floor");

template <class Lock, class Guard>
void guardAScope(benchmark::State& state) {
    Lock lock;
    for (auto _ : state) {
        Guard const guard(lock);
        benchmark::ClobberMemory();
    }
}
template <class Lock>
void guardAScopeByStandard(benchmark::State& state) {
    guardAScope<Lock, std::lock_guard<Lock>>(state);
}
BENCHMARK_TEMPLATE(guardAScope, ZLock, ZResourceLock)->Name("guard a scope/ours");
BENCHMARK_TEMPLATE(guardAScopeByStandard, ZLock)->Name("guard a scope/ours by std::lock_guard");
BENCHMARK_TEMPLATE(guardAScopeByStandard, std::recursive_mutex)
    ->Name("guard a scope/std::recursive_mutex");
BENCHMARK_TEMPLATE(guardAScopeByStandard, boost::recursive_mutex)
    ->Name("guard a scope/boost recursive_mutex");
BENCHMARK_TEMPLATE(guardAScopeByStandard, BareMutex)->Name("guard a scope/floor");

enum class Turn { mine, theirs, over };

/// Two threads take turns, by a mutex and a condition as the C++ library has them.
template <class Mutex, class Lock, class Condition>
class StandardTurns {
  public:
    /// Waits for its turn and gives it on; false when the game is over.
    bool pass(Turn from, Turn to) {
        Lock guard(mutex);
        changed.wait(guard, [&] { return turn == from || turn == Turn::over; });
        if (turn == Turn::over) return false;
        turn = to;
        changed.notify_one();
        return true;
    }

  private:
    Mutex mutex;
    Condition changed;
    Turn turn = Turn::mine;
};

/// The floor, by the C library's.
class BareTurns {
  public:
    bool pass(Turn from, Turn to) {
        pthread_mutex_lock(&mutex);
        while (turn != from && turn != Turn::over)
            pthread_cond_wait(&changed, &mutex);
        bool const goesOn = turn != Turn::over;
        if (goesOn) {
            turn = to;
            pthread_cond_signal(&changed);
        }
        pthread_mutex_unlock(&mutex);
        return goesOn;
    }

  private:
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
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

/// The calling thread, and those that it starts, on the first processor for this object's life.
class OnOneProcessor {
  public:
    explicit OnOneProcessor(bool isWanted) {
        pthread_getaffinity_np(pthread_self(), sizeof before, &before);
        cpu_set_t first;
        CPU_ZERO(&first);
        CPU_SET(0, &first);
        if (isWanted) pthread_setaffinity_np(pthread_self(), sizeof first, &first);
    }
    ~OnOneProcessor() { pthread_setaffinity_np(pthread_self(), sizeof before, &before); }
    OnOneProcessor(OnOneProcessor const&) = delete;
    OnOneProcessor& operator=(OnOneProcessor const&) = delete;

  private:
    cpu_set_t before{};
};

/// With `state.range(0)` processors.
template <class Turns>
void conditionRoundTrip(benchmark::State& state) {
    OnOneProcessor const pinned(state.range(0) == 1);
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
using StdTurns = StandardTurns<std::recursive_mutex, std::unique_lock<std::recursive_mutex>,
                               std::condition_variable_any>;
using BoostTurns =
    StandardTurns<boost::mutex, boost::unique_lock<boost::mutex>, boost::condition_variable>;
#define ROUND_TRIP(Turns, side)                   \
    BENCHMARK_TEMPLATE(conditionRoundTrip, Turns) \
        ->Name("condition round trip/" side)      \
        ->DenseRange(1, 2)                        \
        ->UseRealTime()
ROUND_TRIP(LibraryTurns, "ours");
ROUND_TRIP(StdTurns, "std::condition_variable_any");
ROUND_TRIP(BoostTurns, "boost condition_variable");
ROUND_TRIP(BareTurns, "floor");

}  // namespace
