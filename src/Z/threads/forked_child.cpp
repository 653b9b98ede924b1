#include "Z/threads/forked_child.h"

// The analysis has no notion of locks whose holders are gone.

void ZForkedChild::release(ZLock& lock) noexcept ZNO_THREAD_SAFETY_ANALYSIS {
    // The thread that forked lives on in the child, and so does what it holds.
    if (lock.isHeldBy(pthread_self())) return;
    // Not destroyed before: POSIX forbids that for a locked mutex, and its holder may not exist
    // here.
    pthread_mutex_init(lock.mutex.get(), nullptr);
    lock.hold(ZLock::noOwner, 0);
}

void ZForkedChild::release(ZCondition& condition) noexcept ZNO_THREAD_SAFETY_ANALYSIS {
    release(*condition.lock_);
    // Nor this one: the C library would wait for its waiters, which did not come along.
    pthread_cond_init(condition.cond.get(), nullptr);
}

void ZForkedChild::release(ZReadWriteLock& lock) noexcept ZNO_THREAD_SAFETY_ANALYSIS {
    release(lock.condition);
    lock.readerCount = 0;
    lock.state = ZReadWriteLock::zlockUnset;
    lock.waiters = 0;
}

void ZForkedChild::release(ZAbstractObservable& observable) noexcept ZNO_THREAD_SAFETY_ANALYSIS {
    release(observable.observersLock);
}
