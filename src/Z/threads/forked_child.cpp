#include "Z/threads/forked_child.h"

#include <pthread.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <mutex>
#include <utility>

#include "Z/threads/persistent_guard.h"
#include "Z/threads/pthread_objects.h"
#include "Z/utility/cancellation_off.h"
#include "qcs/qcs.h"

namespace {

constexpr char sourceName[] = "src/Z/ZLock";

/// Long enough for whatever is done in memory, also on a machine that is busy.
constexpr std::chrono::milliseconds moment{100};

// Neither made nor destroyed at run time, and plain: the child may unlock it.
pthread_mutex_t forkMutex = PTHREAD_MUTEX_INITIALIZER;
std::atomic<ZForkedChild::Handlers const*> processLocks{nullptr};  // null: there are none yet
std::atomic<unsigned int> forkCount{0};
ZWholeOverFork* firstObject = nullptr;  // guarded by forkMutex

/// The system has no reason to refuse a plain mutex. If it does, it is asked once more: without the
/// mutex only a fork could do harm, with it for ever nobody would get on.
bool twiceIfRefused(int (*operation)(pthread_mutex_t*)) noexcept {
    int rc = operation(&forkMutex);
    if (rc != 0) rc = operation(&forkMutex);
    return rc == 0;
}

using OwnLocks = std::array<ZLock, 2>;  // by ZOwnLock

void stop() {
    if (auto const* const handlers = processLocks.load()) handlers->stop();
    pthread_mutex_lock(&forkMutex);
    qcs_before_fork();
}

void goOn() {
    qcs_unlock();
    pthread_mutex_unlock(&forkMutex);
    if (auto const* const handlers = processLocks.load()) handlers->goOn();
}

void pause() {
    constexpr timespec pauseLength{0, 50000};
    ZCancellationOff const inFork;
    nanosleep(&pauseLength, nullptr);
}

void beforeFork() {
    using Clock = std::chrono::steady_clock;
    stop();
    auto const end = Clock::now() + moment;
    // Nothing is held while an object is waited for: who is in it may want any of this.
    while (!ZWholeOverFork::holdAll() && Clock::now() < end) {
        ZWholeOverFork::releaseAll();
        goOn();
        pause();
        stop();
    }
}

void inParent() {
    ZWholeOverFork::releaseAll();
    goOn();
}

void inChild() {
    ++forkCount;
    ZWholeOverFork::beChild();
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

ZWholeOverFork::ZWholeOverFork(ZLock& inUse, ZAbstractObservable& observers) noexcept
    : lock(inUse), observable(observers) {
    ZNoFork const whileChanged;
    next = firstObject;
    if (next != nullptr) next->place = &next;
    place = &firstObject;
    firstObject = this;
}

void ZWholeOverFork::forget() noexcept {
    ZNoFork const whileChanged;
    if (place == nullptr) return;
    *place = next;
    if (next != nullptr) next->place = place;
    place = nullptr;
}

// What is held from one handler to the next is beyond the analysis.

bool ZWholeOverFork::holdAll() noexcept ZNO_THREAD_SAFETY_ANALYSIS {
    bool all = true;
    for (ZWholeOverFork* object = firstObject; object != nullptr; object = object->next) {
        static_cast<void>(
            zreturned(sourceName, __LINE__, [&] { object->isHeld = object->lock.try_lock(); }));
        all = all && object->isHeld;
    }
    return all;
}

void ZWholeOverFork::releaseAll() noexcept ZNO_THREAD_SAFETY_ANALYSIS {
    for (ZWholeOverFork* object = firstObject; object != nullptr; object = object->next) {
        if (!std::exchange(object->isHeld, false)) continue;
        ZPersistentGuard const held(object->lock, std::adopt_lock);
    }
}

void ZWholeOverFork::beChild() noexcept {
    for (ZWholeOverFork* object = firstObject; object != nullptr; object = object->next) {
        if (!object->isHeld) ZForkedChild::leaveBehind(object->lock);
        ZForkedChild::release(object->observable);
    }
    releaseAll();
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

bool ZForkedChild::release(ZReadWriteLock& lock) noexcept ZNO_THREAD_SAFETY_ANALYSIS {
    bool const wasMine = lock.state >= ZReadWriteLock::zlockProtect && lock.ownWriteLock();
    release(lock.condition);
    lock.readerCount = 0;
    lock.state = ZReadWriteLock::zlockUnset;
    lock.waiters = 0;
    return wasMine;
}

struct ZAbstractObservable::OverFork {
    static constexpr ZLock ZAbstractObservable::*lock = &ZAbstractObservable::observersLock;
};

void ZForkedChild::release(ZAbstractObservable& observable) noexcept ZNO_THREAD_SAFETY_ANALYSIS {
    release(observable.*ZAbstractObservable::OverFork::lock);
}

void ZForkedChild::leaveBehind(ZLock& lock) noexcept {
    release(lock);
    zfc::threads::blockOf(lock.mutex.get()).isLeftBehind = true;
}

bool ZForkedChild::isLeftBehind(ZLock const& lock) noexcept {
    return zfc::threads::blockOf(lock.mutex.get()).isLeftBehind.load(std::memory_order_relaxed);
}

void ZForkedChild::requireWhole(ZLock const& lock) {
    if (isLeftBehind(lock))
        zraise(ZLockResourceException(numberOf(Message::mutexLockFailed), EOWNERDEAD), sourceName,
               __LINE__);
}

bool ZForkedChild::takeForgotten(ZAbstractReadWriteLock const& lock) {
    auto const* const handlers = processLocks.load();
    return handlers != nullptr && handlers->takeForgotten(lock);
}
