#include "Z/ZLock.h"

#include <cerrno>
#include <ctime>

#include "Z/ZException.h"
#include "Z/exceptions/report.h"
#include "Z/threads/deadline.h"
#include "Z/threads/pthread_objects.h"

namespace {

constexpr char sourceName[] = "src/Z/ZLock";

/// The thread sanitizer of today's compilers does not know pthread_mutex_clocklock and would see a
/// race behind every timed lock; under it the wall clock has to serve.
#if defined(__SANITIZE_THREAD__)
#define ZFC_LOCK_BY_WALL_CLOCK 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ZFC_LOCK_BY_WALL_CLOCK 1
#endif
#endif

#if defined(ZFC_LOCK_BY_WALL_CLOCK)
constexpr clockid_t lockClock = CLOCK_REALTIME;
int lockUntil(pthread_mutex_t* mutex, timespec const& deadline) {
    return pthread_mutex_timedlock(mutex, &deadline);
}
#else
// Whoever sets the clock of the system must not make a wait longer or end it.
constexpr clockid_t lockClock = CLOCK_MONOTONIC;
int lockUntil(pthread_mutex_t* mutex, timespec const& deadline) {
    return pthread_mutex_clocklock(mutex, lockClock, &deadline);
}
#endif

}  // namespace

ZLockInterface::~ZLockInterface() = default;

void ZLock::MutexDelete::operator()(pthread_mutex_t* initialised) const noexcept {
    zfc::threads::endObject(initialised, pthread_mutex_destroy, Message::mutexDestroyFailed,
                            sourceName, __LINE__);
}

void ZLock::OwnerDelete::operator()(std::atomic<pthread_t>* word) const noexcept {
    ZObject::operator delete(word);
}

ZLock::Mutex ZLock::createMutex() {
    return Mutex(zfc::threads::makeObject(pthread_mutex_init, [](int rc) {
        zraise(ZCreateResourceException(numberOf(Message::mutexInitFailed), rc), sourceName,
               __LINE__);
    }));
}

ZLock::Owner ZLock::createOwner() {
    // Through ZObject, whose failure is an exception of the library.
    void* const block = ZObject::operator new(sizeof(std::atomic<pthread_t>));
    return Owner(::new (block) std::atomic<pthread_t>(noOwner));
}

ZLock::ZLock() : mutex(createMutex()), owner(createOwner()) {}
ZLock::ZLock(ZLock const&) : ZLock() {}
ZLock& ZLock::operator=(ZLock const&) { return *this; }
ZLock::~ZLock() {
    // Both or none: who gets a mutex that is kept notes that it is the owner.
    if (!zfc::threads::endObject(mutex.release(), pthread_mutex_destroy,
                                 Message::mutexDestroyFailed, sourceName, __LINE__))
        zfc::threads::keepForever(owner.release());
}

void ZLock::acquire(pthread_t /*self*/) ZNO_THREAD_SAFETY_ANALYSIS { ZLock::lock(); }
void ZLock::release(pthread_t /*self*/) ZNO_THREAD_SAFETY_ANALYSIS { ZLock::unlock(); }

void ZLock::refuseLock(int rc) {
    zraise(ZLockResourceException(numberOf(Message::mutexLockFailed), rc), sourceName, __LINE__);
}

void ZLock::refuseUnlock(int rc) {
    zraise(ZUnlockResourceException(numberOf(Message::mutexUnlockFailed), rc), sourceName,
           __LINE__);
}

bool ZLock::tookIt(int rc, int refusal, pthread_t self) {
    if (rc == refusal) return false;
    if (rc != 0) refuseLock(rc);
    hold(self, 1);
    return true;
}

// As in the header: the analysis does not know that a capability may be held at several depths.

bool ZLock::try_lock() ZNO_THREAD_SAFETY_ANALYSIS {
    pthread_t const self = pthread_self();
    if (!isHeldBy(self)) return tookIt(pthread_mutex_trylock(mutex.get()), EBUSY, self);
    deepen();
    return true;
}

bool ZLock::lockFor(long milliseconds) ZNO_THREAD_SAFETY_ANALYSIS {
    if (try_lock()) return true;  // a free lock does not look at the clock
    if (milliseconds <= 0) return false;
    return tookIt(lockUntil(mutex.get(), zdeadlineIn(lockClock, milliseconds)), ETIMEDOUT,
                  pthread_self());
}

ZResourceLock::~ZResourceLock() {
    try {
        resource.unlock();
    } catch (ZException& exception) {
        zreportException(exception);
    } catch (...) {
        zreportUnknownException(sourceName, __LINE__);
    }
}
