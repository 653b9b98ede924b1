/// The library's lock: a re-entrant mutex that knows its owner, and the guard for any lock.
///
/// What a ZLock does, for a thread T (depth n means that T has locked it n times more than it has
/// unlocked it):
///
///     held            | lock() by T | lock() by others | unlock() by T | unlock() by others
///     ----------------+-------------+------------------+---------------+-------------------
///     free            | depth 1     | theirs, depth 1  | refused       | refused
///     by T, depth 1   | depth 2     | waits            | free          | refused
///     by T, depth n>1 | depth n + 1 | waits            | depth n - 1   | refused
///
/// "Refused" is ZUnlockResourceException with rc 0, and the lock stays as it was.
///
/// A wait on a condition (ZCondition.h) frees the lock from whatever depth and gives that depth
/// back when it ends, in whatever way it ends. What may surprise:
/// - A copy of a lock is a new lock, free, whoever holds the original; assignment changes nothing.
/// - A thread must not end while it holds a lock: the lock would never be free again.
/// - Waiting threads are served in no particular order.
/// - clang's thread-safety analysis takes re-entry within one function for a mistake.
#ifndef Z_ZLOCK_H
#define Z_ZLOCK_H

#include "Z/ztags.h"

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <limits>
#include <memory>

#include "Z/ZObject.h"
#include "Z/zexport.h"

/// What every lock offers. Whether a thread may enter twice, and what is thrown, says the lock.
class ZFC_API ZCAPABILITY("mutex") ZLockInterface {
  public:
    ZLockInterface() = default;
    ZLockInterface(ZLockInterface const&) = default;
    ZLockInterface& operator=(ZLockInterface const&) = default;

    // in slot order: do not sort
    /// Takes the lock; waits while another thread holds it.
    virtual void lock() ZACQUIRE() = 0;
    /// Gives back what lock() took.
    virtual void unlock() ZRELEASE() = 0;
    virtual ~ZLockInterface();
};

/// Base of the locks; adds nothing of its own.
class ZFC_API ZAbstractLock : public ZLockInterface {};

/// A re-entrant mutex; see the table above. Also a Lockable in the sense of ISO C++, so that
/// `std::unique_lock`, `std::scoped_lock` and `std::lock` take it.
class ZFC_API ZLock : public ZAbstractLock, public ZObject {
  public:
    /// A free lock. Throws ZCreateResourceException (message 3) with the code of
    /// pthread_mutex_init, ZOutOfMemoryException (message 1).
    ZLock();
    /// A free lock that has nothing to do with `other`. Throws as ZLock().
    ZLock(ZLock const& other);
    /// Does nothing: both locks stay as they are.
    ZLock& operator=(ZLock const& other);

    // Inline, because counting costs more to call than to do, and taking a free lock not much less.
    // The bodies are not analysed: the analysis does not know that a capability may be held at
    // several depths.

    // in slot order: do not sort
    /// Takes the lock, or goes one level deeper when the calling thread holds it. Waits while
    /// another thread holds it. Throws ZLockResourceException (message 5) with the code of
    /// pthread_mutex_lock, or with EAGAIN when the depth is INT_MAX; the lock is then as it was.
    void lock() override ZACQUIRE() ZNO_THREAD_SAFETY_ANALYSIS {
        pthread_t const self = pthread_self();
        // The mutex is a plain one, on which its holder would wait for itself.
        if (isHeldBy(self)) return deepen();
        if (int const rc = pthread_mutex_lock(mutex.get())) refuseLock(rc);
        hold(self, 1);
    }
    /// Releases one level of the calling thread's hold; the last one frees the lock. Never waits.
    /// Throws ZUnlockResourceException (message 6): rc 0 when this thread does not hold the lock,
    /// which is left as it was; else the code of pthread_mutex_unlock, and the hold is restored.
    void unlock() override ZRELEASE() ZNO_THREAD_SAFETY_ANALYSIS {
        pthread_t const self = pthread_self();
        if (!isHeldBy(self) || count <= 0) refuseUnlock(0);
        if (--count > 0) return;
        // Before the mutex is free: behind it, the next holder's id would be overwritten.
        hold(noOwner, 0);
        if (int const rc = pthread_mutex_unlock(mutex.get())) {
            hold(self, 1);
            refuseUnlock(rc);
        }
    }
    /// Nobody may hold the lock. A failure of pthread_mutex_destroy is reported (message 4), not
    /// thrown; after EBUSY, as when the process exits meanwhile, the mutex stays for its waiters.
    ~ZLock() override;

    /// As lock(), without waiting: false when another thread holds the lock.
    [[nodiscard]] bool try_lock() ZTRY_ACQUIRE(true);
    /// The same, by the name that all locks of the library have for it.
    [[nodiscard]] bool tryLock() ZTRY_ACQUIRE(true) { return try_lock(); }
    /// As lock(), waiting `milliseconds` at most: false when the time is up and the lock is still
    /// another thread's. Zero and less do not wait. Setting the system's clock does not change the
    /// time.
    [[nodiscard]] bool lockFor(long milliseconds) ZTRY_ACQUIRE(true);

  private:
    friend class ZCondition;     // waits with the mutex
    friend struct ZForkedChild;  // frees it in the child of a fork
    class Suspension;            // the hold given up for a wait

    static constexpr pthread_t noOwner = static_cast<pthread_t>(-1);
    static constexpr int maximumDepth = std::numeric_limits<int>::max();

    struct MutexDelete {
        void operator()(pthread_mutex_t* initialised) const noexcept;
    };
    struct OwnerDelete {
        void operator()(std::atomic<pthread_t>* word) const noexcept;
    };
    using Mutex = std::unique_ptr<pthread_mutex_t, MutexDelete>;
    using Owner = std::unique_ptr<std::atomic<pthread_t>, OwnerDelete>;

    [[nodiscard]] static Mutex createMutex();
    [[nodiscard]] static Owner createOwner();

    [[nodiscard]] bool isHeldBy(pthread_t thread) const {
        return owner->load(std::memory_order_relaxed) == thread;
    }
    void hold(pthread_t holder, int depth) {
        count = depth;
        owner->store(holder, std::memory_order_relaxed);
    }
    void deepen() {
        if (count == maximumDepth) refuseLock(EAGAIN);
        ++count;
    }
    // Kept: programs that were built when lock() and unlock() ended in these call them.
    void acquire(pthread_t self);
    void release(pthread_t self);
    [[noreturn]] static void refuseLock(int rc);
    [[noreturn]] static void refuseUnlock(int rc);
    [[nodiscard]] bool tookIt(int rc, int refusal, pthread_t self);

    // Relaxed throughout. A thread can read its own id here only if it wrote it itself, and it sees
    // its own writes in order; any other value, however old, says no more than "not mine". What the
    // lock protects is ordered by the mutex.
    // Layout: mutex and owner stand in blocks of their own, because the object has a word for each,
    // and a mutex must not move.
    Mutex mutex;    // plain, locked once for any depth; never null
    Owner owner;    // the holding thread, else noOwner; written by the holder alone; never null
    int count = 0;  // depth, 0 when free; read and written by the holder alone
};

/// Holds a lock from its construction to the end of its scope. A guard without a name would end at
/// once; compilers warn of it.
class ZFC_API ZSCOPED_CAPABILITY ZResourceLock : public ZObject {
  public:
    /// Calls `l.lock()` and throws what that throws; then nothing is held. `l` is not owned and
    /// must outlive the guard.
    [[nodiscard]] explicit ZResourceLock(ZLockInterface& l) ZACQUIRE(l) : resource(l) { l.lock(); }
    ZResourceLock(ZResourceLock const&) = delete;
    ZResourceLock& operator=(ZResourceLock const&) = delete;
    /// Calls `unlock()` of the lock; what that throws is reported, not thrown.
    ~ZResourceLock() override ZRELEASE();

  private:
    ZLockInterface& resource;  // held as long as this object lives
};

#endif
