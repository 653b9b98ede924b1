// A guard without a name ends before the next statement.
#include "Z/ZLock.h"

int increment(ZLock& lock, int& shared) {
#if defined(RIGHT)
    ZResourceLock const guard(lock);
#else
    ZResourceLock{lock};
#endif
    return ++shared;
}
