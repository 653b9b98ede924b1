/// Shared. A guard for the locks inside of the library's own objects.
#ifndef Z_THREADS_PERSISTENT_GUARD_H
#define Z_THREADS_PERSISTENT_GUARD_H

#include <mutex>

#include "Z/ZException.h"
#include "Z/ZLock.h"
#include "Z/exceptions/report.h"

/// As ZResourceLock, but a release that fails is tried once more: the object's user does not know
/// of the lock inside, and if that stayed closed would be shut out for ever.
class ZSCOPED_CAPABILITY ZPersistentGuard {
  public:
    explicit ZPersistentGuard(ZLockInterface& guarded) ZACQUIRE(guarded) : lock(guarded) {
        guarded.lock();
    }
    /// Releases a lock that the calling thread has taken.
    ZPersistentGuard(ZLockInterface& held, std::adopt_lock_t /*tag*/) ZREQUIRES(held)
        : lock(held) {}
    ~ZPersistentGuard() ZRELEASE() {
        if (!release()) release();
    }
    ZPersistentGuard(ZPersistentGuard const&) = delete;
    ZPersistentGuard& operator=(ZPersistentGuard const&) = delete;

  private:
    // Not analysed: the destructor says that it releases.
    bool release() noexcept ZNO_THREAD_SAFETY_ANALYSIS {
        try {
            lock.unlock();
            return true;
        } catch (ZException& exception) {
            zreportException(exception);
            return false;
        }
    }

    ZLockInterface& lock;
};

#endif
