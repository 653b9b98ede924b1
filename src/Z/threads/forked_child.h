/// Shared. Locks in the child of a fork: what threads of the parent held is held by nobody there.
#ifndef Z_THREADS_FORKED_CHILD_H
#define Z_THREADS_FORKED_CHILD_H

#include "Z/ZReadWriteLock.h"

/// Makes the locks that a child inherited as good as new, in their place: nothing is allocated and
/// nothing destroyed, because destroying them could wait for threads that are not there. Called
/// before the child has a second thread.
struct ZForkedChild {
    /// A lock that the calling thread holds stays held: it is the thread that forked, and will
    /// release it.
    static void release(ZLock& lock) noexcept;
    static void release(ZCondition& condition) noexcept;
    static void release(ZReadWriteLock& lock) noexcept;
    /// Frees the lock over the observers; they stay registered.
    static void release(ZAbstractObservable& observable) noexcept;
};

#endif
