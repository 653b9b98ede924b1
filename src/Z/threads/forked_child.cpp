#include "Z/threads/forked_child.h"

#include <pthread.h>

#include <array>
#include <atomic>

#include "Z/threads/pthread_objects.h"
#include "qcs/qcs.h"

namespace {

// Neither made nor destroyed at run time, and plain: the child may unlock it.
pthread_mutex_t forkMutex = PTHREAD_MUTEX_INITIALIZER;
std::atomic<ZForkedChild::Handlers const*> processLocks{nullptr};  // null: there are none yet
std::atomic<unsigned int> forkCount{0};

/// The system has no reason to refuse a plain mutex. If it does, it is asked once more: without the
/// mutex only a fork could do harm, with it for ever nobody would get on.
bool twiceIfRefused(int (*operation)(pthread_mutex_t*)) noexcept {
    int rc = operation(&forkMutex);
    if (rc != 0) rc = operation(&forkMutex);
    return rc == 0;
}

using OwnLocks = std::array<ZLock, 2>;  // by ZOwnLock

void beforeFork() {
    if (auto const* const handlers = processLocks.load()) handlers->stop();
    pthread_mutex_lock(&forkMutex);
    qcs_before_fork();
}

void inParent() {
    qcs_unlock();
    pthread_mutex_unlock(&forkMutex);
    if (auto const* const handlers = processLocks.load()) handlers->goOn();
}

void inChild() {
    ++forkCount;
    qcs_unlock();
    pthread_mutex_unlock(&forkMutex);
    for (auto const lock : {ZOwnLock::hexDump, ZOwnLock::registry})
        ZForkedChild::release(ZForkedChild::own(lock));
    if (auto const* const handlers = processLocks.load()) handlers->beChild();
}

OwnLocks& makeOwnLocks() {
    pthread_atfork(beforeFork, inParent, inChild);
    return *new OwnLocks;
}

OwnLocks& ownLocks() {
    static OwnLocks& only = makeOwnLocks();
    return only;
}

/// When the library is loaded: no fork comes in the midst of it, and handlers of the program, which
/// may wait for threads that use the library, run before ours, since the last registered is first.
[[gnu::constructor]] void atLoad() { ownLocks(); }

}  // namespace

ZNoFork::ZNoFork() noexcept : isHeld(twiceIfRefused(pthread_mutex_lock)) {}
ZNoFork::~ZNoFork() {
    if (isHeld) static_cast<void>(twiceIfRefused(pthread_mutex_unlock));
}

ZLock& ZForkedChild::own(ZOwnLock lock) { return ownLocks()[static_cast<std::size_t>(lock)]; }

void ZForkedChild::tellProcessLocks(Handlers const& handlers) noexcept { processLocks = &handlers; }

unsigned int ZForkedChild::forks() noexcept { return forkCount.load(std::memory_order_relaxed); }

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
    zfc::threads::blockOf(condition.cond.get()).waiters = 0;
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
