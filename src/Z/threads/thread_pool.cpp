/// Thread pools.
#include <algorithm>
#include <cerrno>
#include <ctime>
#include <new>

#include "Z/ZException.h"
#include "Z/ZList.h"
#include "Z/ZThread.h"
#include "Z/exceptions/report.h"
#include "Z/threads/deadline.h"
#include "Z/threads/pthread_objects.h"
#include "Z/threads/thread_state.h"
#include "Z/utility/cancellation_off.h"
#include "Z/utility/undo.h"

namespace {

constexpr char sourceName[] = "src/Z/ZThread";

constexpr int borrowed = 0;  // members of containers
constexpr unsigned int usualIdle = 10;
/// A pool may be bounded by a number that nobody reaches; its map need not be made for that many.
constexpr unsigned int largestMap = 4096;

/// Every change is signalled. Should the system refuse a signal, whoever waits still looks again.
constexpr long longestWait = 200;  // milliseconds

}  // namespace

/// Holds a pool's mutex. The system has no reason to refuse a plain mutex; should it do so, callers
/// are told where they can be, and a thread that ends is counted out all the same.
class ZThreadPool::Lock {
  public:
    /// Throws when the mutex cannot be locked.
    explicit Lock(ZThreadPool& locked) : pool(locked), mayLackMutex(false) { take(); }
    /// Goes on without the mutex when it cannot be locked at the second try either, because a
    /// number would stay wrong for ever.
    Lock(ZThreadPool& locked, std::nothrow_t /*tag*/) : pool(locked), mayLackMutex(true) { take(); }
    ~Lock() {
        if (held) reportRefusal(Message::mutexUnlockFailed, release());
    }
    Lock(Lock const&) = delete;
    Lock& operator=(Lock const&) = delete;

    /// What the system answered when it refused to lock the mutex, if it did, else 0.
    [[nodiscard]] int failure() const { return lockRc; }
    [[nodiscard]] bool isHeld() const { return held; }

    /// Throws when the mutex cannot be unlocked.
    void unlock() {
        if (int const rc = release())
            zraise(refused(Message::mutexUnlockFailed, rc), sourceName, __LINE__);
    }

    /// Waits once. The wait may end without a reason. Throws as the constructor when the mutex,
    /// which a wait that failed has given up, cannot be locked again.
    void wait() {
        timespec const deadline = zdeadlineIn(CLOCK_MONOTONIC, longestWait);
        int const rc =
            zfc::threads::waitOn(pool.cond.get(), pool.mutex.get(), CLOCK_MONOTONIC, &deadline);
        if (rc == 0 || rc == ETIMEDOUT) return;
        reportRefusal(Message::conditionWaitFailed, rc);
        letOthersIn();
    }

  private:
    static ZThreadException refused(Message message, int rc) { return {numberOf(message), rc}; }
    static void reportRefusal(Message message, int rc) noexcept {
        if (rc != 0) zreportFailure(sourceName, __LINE__, message, rc);
    }

    void take() {
        if (tryTake()) return;
        if (mayLackMutex) return static_cast<void>(tryTake());
        zraise(refused(Message::mutexLockFailed, lockRc), sourceName, __LINE__);
    }

    bool tryTake() noexcept {
        int const rc = pthread_mutex_lock(pool.mutex.get());
        if (rc != 0) lockRc = rc;
        held = rc == 0;
        return held;
    }

    /// A wait that does not wait would shut out those whose change it waits for, and report without
    /// a pause.
    void letOthersIn() {
        reportRefusal(Message::mutexUnlockFailed, release());
        {
            ZCancellationOff const inDestructors;  // nanosleep() is a cancellation point
            timespec const aMillisecond{0, 1000000};
            nanosleep(&aMillisecond, nullptr);
        }
        take();
    }

    /// A refused unlock is tried once more: nobody else could ever free the mutex.
    int release() noexcept {
        held = false;
        int const rc = pthread_mutex_unlock(pool.mutex.get());
        if (rc != 0) pthread_mutex_unlock(pool.mutex.get());
        return rc;
    }

    ZThreadPool& pool;
    bool const mayLackMutex;
    int lockRc = 0;
    bool held = false;  // whether the destructor unlocks
};

class ZThreadPool::KeepNone {
  public:
    explicit KeepNone(ZThreadPool& emptied) : pool(emptied) {
        Lock const lock(pool);
        saved = pool.maxIdle.exchange(0);
    }
    ~KeepNone() {
        if (saved == 0) return;  // somebody else waits too, and will put it back
        Lock const lock(pool, std::nothrow);
        pool.maxIdle = saved;
    }
    KeepNone(KeepNone const&) = delete;
    KeepNone& operator=(KeepNone const&) = delete;

  private:
    ZThreadPool& pool;
    unsigned int saved = 0;
};

void ZThreadPool::MutexDelete::operator()(pthread_mutex_t* initialised) const noexcept {
    zfc::threads::endObject(initialised, pthread_mutex_destroy, Message::mutexDestroyFailed,
                            sourceName, __LINE__);
}

void ZThreadPool::CondDelete::operator()(pthread_cond_t* initialised) const noexcept {
    zfc::threads::endObject(initialised, pthread_cond_destroy, Message::conditionDestroyFailed,
                            sourceName, __LINE__);
}

ZThreadPool::Mutex ZThreadPool::createMutex() {
    return Mutex(zfc::threads::makeObject(pthread_mutex_init, [](int rc) {
        zraise(ZThreadException(numberOf(Message::mutexInitFailed), rc), sourceName, __LINE__);
    }));
}

ZThreadPool::Cond ZThreadPool::createCond() {
    return Cond(zfc::threads::makeObject(pthread_cond_init, [](int rc) {
        zraise(ZThreadException(numberOf(Message::conditionInitFailed), rc), sourceName, __LINE__);
    }));
}

ZThreadPool::ZThreadPool(unsigned int a, unsigned int b)
    : idleThreads(std::min(std::max(a, b), largestMap), borrowed),
      activeCount(0),
      mutex(createMutex()),
      cond(createCond()),
      maxThreads(std::max(a, b)),
      maxIdle(std::min(a, b)),
      idleCount(0) {}

ZThreadPool::~ZThreadPool() {
    if (!zfc::threads::isWaitedFor(cond.get())) return;
    zreportFailure(sourceName, __LINE__, Message::conditionDestroyFailed, EBUSY);
    zfc::threads::blockOf(cond.get()).isKept = true;
    zfc::threads::blockOf(mutex.get()).isKept = true;
}

ZThread* ZThreadPool::createThread() { return nullptr; }

// Kept: a start that fails is reported and not thrown, so that whoever feeds a pool from a queue
// goes on with the next thread.
void ZThreadPool::start(ZThread& t) {
    registerThread(t);
    ZUndo takeOut([&] { unregisterThread(t); });
    // The mutex is not held: a sleeper's start waits for its thread, and other threads' work may
    // need the pool meanwhile.
    if (zreturned(sourceName, __LINE__, [&t] { t.start(); })) takeOut.keep();
}

/// Counts the thread, and lets it know its pool, before it can run.
void ZThreadPool::registerThread(ZThread& t) {
    if (maxThreads == 0) zraise(ZInvalidParameterException(), sourceName, __LINE__);
    while (!takePlace(t)) {
        if (ZThread* const idle = nextToTell()) tell(*idle);
    }
}

/// False when there is none before an idle worker ends.
bool ZThreadPool::takePlace(ZThread& t) {
    Lock lock(*this);
    while (static_cast<unsigned int>(activeCount) >= maxThreads) {
        if (findIdle() != nullptr) return false;
        lock.wait();
    }
    dropIdle(t);  // left behind by an earlier end
    t.threadId->lost = false;
    ++activeCount;
    t.pool = this;
    try {
        lock.unlock();
    } catch (ZException&) {
        unregisterThread(t);
        throw;
    }
    return true;
}

/// Undoes registerThread(), unless the thread ran all the same and has told its end itself.
void ZThreadPool::unregisterThread(ZThread& t) noexcept {
    Lock const lock(*this, std::nothrow);
    if (t.pool.exchange(nullptr) == nullptr) return;
    if (lock.isHeld()) dropIdle(t);
    --activeCount;
    announceChange();
}

/// To all who wait; they look again soon, should the system refuse.
void ZThreadPool::announceChange() noexcept {
    if (int const rc = pthread_cond_broadcast(cond.get()))
        zreportFailure(sourceName, __LINE__, Message::conditionSignalFailed, rc);
}

/// Any of the idle workers that nobody is telling to exit, under the mutex; null when there is
/// none.
ZThread* ZThreadPool::findIdle() {
    if (idleCount == 0) return nullptr;
    ZArrayList idle(usualIdle, borrowed);
    idleThreads.list(idle);
    for (unsigned int i = 0; i < idle.size(); ++i) {
        auto* const thread = static_cast<ZThread*>(idle.get(i));
        if (!thread->threadId->told && !thread->threadId->lost) return thread;
    }
    return nullptr;
}

/// Under the mutex. The map finds a thread by its id, which a thread that has ended may share with
/// one that runs.
bool ZThreadPool::isIdle(ZThread const& t) const { return idleThreads.getEntry(&t) == &t; }

/// Under the mutex. Does nothing for a thread that is not idle.
void ZThreadPool::dropIdle(ZThread& t) {
    if (!isIdle(t)) return;
    idleThreads.removeEntry(&t);
    --idleCount;
    t.threadId->told = false;
}

void ZThreadPool::getAvailableIdleThread(ZThread*& t) {
    t = nullptr;
    if (maxIdle != 0) {
        Lock lock(*this);
        t = findIdle();
        if (t != nullptr) dropIdle(*t);
        lock.unlock();
    }
    if (t == nullptr) t = createThread();
}

void ZThreadPool::threadDoneNotification(ZThread& t, int& keep) {
    keep = 0;
    Lock lock(*this);
    // A worker with an interval may be idle already when it has done more work.
    bool stays = isIdle(t);
    if (!stays && static_cast<unsigned int>(idleCount) < maxIdle) {
        idleThreads.putEntry(&t);
        ++idleCount;
        stays = true;
        announceChange();  // who waits for a place may end it
    }
    lock.unlock();
    keep = stays ? 1 : 0;
}

void ZThreadPool::threadDeathNotification(ZThread& t) {
    Lock lock(*this, std::nothrow);
    if (lock.isHeld()) {
        dropIdle(t);
    } else {
        t.threadId->lost = true;  // if it is idle, it stays in the map, but nobody looks at it
    }
    while (lock.isHeld() && t.threadId->pinned)
        lock.wait();
    --activeCount;
    // All: those who wait for a place and those who wait for the end wait here alike, and a signal
    // that reached the wrong one would be lost. Under the mutex: once it is free, the pool may be
    // gone.
    int const signalRc = pthread_cond_broadcast(cond.get());
    if (int const rc = lock.failure())
        zraise(ZThreadException(numberOf(Message::mutexLockFailed), rc), sourceName, __LINE__);
    if (signalRc != 0)
        zraise(ZThreadException(numberOf(Message::conditionSignalFailed), signalRc), sourceName,
               __LINE__);
    lock.unlock();
}

/// An idle worker that has to be told to exit. It is offered to nobody meanwhile, and, if it
/// deletes itself, does not end before it is unpinned.
ZThread* ZThreadPool::nextToTell() {
    Lock const lock(*this);
    ZThread* const thread = findIdle();
    if (thread == nullptr) return nullptr;
    thread->threadId->told = true;
    thread->threadId->pinned = thread->deletesItself();
    return thread;
}

/// After a failure to tell `t`: whether it is, or could be, still idle.
bool ZThreadPool::isStillIdle(ZThread& t) {
    Lock const lock(*this, std::nothrow);
    bool const idle = lock.isHeld() ? isIdle(t) : !t.threadId->lost;
    if (!idle) return false;
    t.threadId->told = false;
    pthread_cond_broadcast(cond.get());  // others who wait for the end may tell it
    return true;
}

void ZThreadPool::unpin(ZThread& t) {
    Lock const lock(*this, std::nothrow);
    t.threadId->pinned = false;
    pthread_cond_broadcast(cond.get());
}

/// Without the mutex: telling waits for a worker's work, and the worker for the mutex.
void ZThreadPool::tell(ZThread& t) {
    // Once it is told, a worker that is not pinned may be its owner's to delete.
    bool const isPinned = t.deletesItself();
    ZUndo const release([&] {
        if (isPinned) unpin(t);
    });
    try {
        t.waitForExit();
    } catch (...) {
        if (isStillIdle(t)) throw;  // waiting for its end would be for ever
        static_cast<void>(zreturned(sourceName, __LINE__, [] { throw; }));
    }
}

/// Waits for a change unless no thread runs; whether none runs.
bool ZThreadPool::awaitEnds() {
    Lock lock(*this);
    if (activeCount != 0) lock.wait();
    bool const allEnded = activeCount == 0;
    lock.unlock();
    return allEnded;
}

void ZThreadPool::waitForExit() {
    KeepNone const none(*this);
    // Looked for again after each change: somebody else who waited for the end, and could not tell
    // a worker, has made workers idle again by giving up.
    do {
        while (ZThread* const thread = nextToTell())
            tell(*thread);
    } while (!awaitEnds());
}
