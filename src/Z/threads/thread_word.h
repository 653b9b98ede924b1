/// What a thread object shares with whoever starts or tells its thread.
#ifndef Z_THREADS_THREAD_WORD_H
#define Z_THREADS_THREAD_WORD_H

#include <pthread.h>

#include <atomic>
#include <cstddef>

#include "Z/ZThread.h"

/// Whether a thread can be joined.
enum class ZThread::Standing {
    none,      // not started, or detached
    starting,  // joinable, but its id is not known yet
    mine,      // started by the object; to be joined or detached
    foreign,   // started by somebody else
    joining,   // somebody is waiting for its end
    joined
};

/// The id of a thread and whether it can be joined. The object has one share; start() another one,
/// because a thread that deletes its object may do so before start() has noted the id.
class ZThread::Word {
  public:
    explicit Word(pthread_t thread, Standing initial) : id(thread), standing(initial) {}
    Word(const Word&) = delete;
    Word& operator=(const Word&) = delete;

    static void* operator new(std::size_t size) { return ZObject::operator new(size); }
    static void operator delete(void* block) noexcept { ZObject::operator delete(block); }

    /// From now on the thread can be joined, unless it was meanwhile or never can.
    void noteStarted() {
        auto expected = Standing::starting;
        standing.compare_exchange_strong(expected, Standing::mine);
    }

    void share() { ++shares; }
    void release() {
        if (--shares == 0) delete this;
    }

    std::atomic<pthread_t> id;
    std::atomic<Standing> standing;
    // Of an idle worker, for its pool and under that one's mutex, if it can be had.
    std::atomic<bool> told{false};    // somebody tells it to exit: it is no longer offered
    std::atomic<bool> lost{false};    // it ended when the mutex could not be had
    std::atomic<bool> pinned{false};  // it must not end, because it would delete itself

  private:
    ~Word() = default;

    std::atomic<int> shares{1};
};

#endif
