// Guards without a name release the lock before the next statement.
#include "Z/ZLock.h"
#include "Z/ZReadWriteLock.h"

void increment(ZLock& lock, ZReadWriteLock& other, int& shared) {
    ZResourceLock NAME(first){lock};
    other.writeLock();
    ZStackReadWriteLock NAME(second)(other, 0);
    ++shared;
}
