/// A guard for the locks inside of the library's own objects.
#ifndef Z_ZLOCK_GUARD_H
#define Z_ZLOCK_GUARD_H

#include "Z/ZCondition.h"
#include "Z/ZException.h"
#include "Z/zlock_report.h"

/// As ZResourceLock, but a release that fails is tried once more: the object's user does not know
/// of the lock inside, and if that stayed closed would be shut out for ever.
class ZSCOPED_CAPABILITY ZPersistentGuard {
  public:
    explicit ZPersistentGuard(ZCondition& guarded) ZACQUIRE(guarded) : condition(guarded) {
        guarded.lock();
    }
    ~ZPersistentGuard() ZRELEASE() {
        if (!release()) release();
    }
    ZPersistentGuard(const ZPersistentGuard&) = delete;
    ZPersistentGuard& operator=(const ZPersistentGuard&) = delete;

  private:
    // Not analysed: the destructor says that it releases.
    bool release() noexcept ZNO_THREAD_SAFETY_ANALYSIS {
        try {
            condition.unlock();
            return true;
        } catch (ZException& exception) {
            zreportException(exception);
            return false;
        }
    }

    ZCondition& condition;
};

#endif
