#include "Z/zforked_child.h"

// The analysis has no notion of locks whose holders are gone.

void ZForkedChild::free(ZLock& lock) noexcept ZNO_THREAD_SAFETY_ANALYSIS {
    if (lock.isHeldBy(pthread_self())) return;
    pthread_mutex_init(lock.mutex.get(), nullptr);
    lock.hold(ZLock::noOwner, 0);
}

void ZForkedChild::free(ZCondition& condition) noexcept ZNO_THREAD_SAFETY_ANALYSIS {
    free(*condition.lock_);
    pthread_cond_init(condition.cond.get(), nullptr);
}

void ZForkedChild::free(ZReadWriteLock& lock) noexcept ZNO_THREAD_SAFETY_ANALYSIS {
    free(lock.condition);
    lock.readerCount = 0;
    lock.state = ZReadWriteLock::zlockUnset;
    lock.waiters = 0;
}

void ZForkedChild::free(ZAbstractObservable& observable) noexcept ZNO_THREAD_SAFETY_ANALYSIS {
    free(observable.observersLock);
}
