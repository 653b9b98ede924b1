#include "qcs/qcs_fork.h"

#include <pthread.h>

#include <atomic>
#include <mutex>

#include "qcs/qcs_locale.h"

namespace {

constexpr pthread_t nobody = 0;

// Neither made nor destroyed at run time: text is handled from the very beginning to the very end.
// Plain, and nested by hand: a recursive mutex knows its owner by an id that the child of a fork
// does not have, and could not be unlocked there.
std::mutex layer;
std::atomic<pthread_t> owner{nobody};  // relaxed: its own id can be found only by who wrote it
int depth = 0;                         // the owner's

}  // namespace

void qcs_lock() {
    if (owner.load(std::memory_order_relaxed) != pthread_self()) {
        layer.lock();
        owner.store(pthread_self(), std::memory_order_relaxed);
    }
    ++depth;
}

void qcs_unlock() {
    if (--depth > 0) return;
    owner.store(nobody, std::memory_order_relaxed);
    layer.unlock();
}

void qcs_before_fork() {
    // Made now if they were not yet: at their first use they are made without the lock.
    qcs::findLocale(0);
    qcs::characterLocale();
    qcs_lock();
}
