// A guard without a name releases the lock before the next statement.
#include "Z/ZReadWriteLock.h"

int increment(ZReadWriteLock& lock, int& shared) {
    lock.writeLock();
#if defined(RIGHT)
    ZStackReadWriteLock const guard(lock, 0);
#else
    ZStackReadWriteLock(lock, 0);
#endif
    return ++shared;
}
