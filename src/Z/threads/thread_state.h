/// What a thread object shares with whoever starts or tells its thread.
#ifndef Z_THREADS_THREAD_STATE_H
#define Z_THREADS_THREAD_STATE_H

#include <pthread.h>

#include <atomic>
#include <cstddef>

#include "Z/ZThread.h"

/// Whether a thread can be joined.
enum class ZThread::JoinState {
    none,      // not started, or detached
    starting,  // joinable, but its id is not known yet
    mine,      // started by the object; to be joined or detached
    foreign,   // started by somebody else
    joining,   // somebody is waiting for its end
    joined
};

/// The id of a thread and whether it can be joined. The object has one share; start() another one,
/// because a thread that deletes its object may do so before start() has noted the id.
class ZThread::State {
  public:
    explicit State(pthread_t thread, JoinState initial) : id(thread), joinState(initial) {}
    State(State const&) = delete;
    State& operator=(State const&) = delete;

    static void* operator new(std::size_t size) { return ZObject::operator new(size); }
    static void operator delete(void* block) noexcept { ZObject::operator delete(block); }

    /// From now on the thread can be joined, unless it was meanwhile or never can.
    void noteStarted() {
        auto expected = JoinState::starting;
        joinState.compare_exchange_strong(expected, JoinState::mine);
    }

    void share() { ++shares; }
    void release() {
        if (--shares == 0) delete this;
    }

    std::atomic<pthread_t> id;
    std::atomic<JoinState> joinState;
    // Of an idle worker, for its pool and under that one's mutex, if it can be had.
    std::atomic<bool> told{false};    // somebody tells it to exit: it is no longer offered
    std::atomic<bool> lost{false};    // it ended when the mutex could not be had
    std::atomic<bool> pinned{false};  // it must not end, because it would delete itself

  private:
    ~State() = default;

    std::atomic<int> shares{1};
};

#endif
