// Thread pools.
#include <algorithm>
#include <cerrno>
#include <ctime>
#include <new>
#include <utility>

#include "Z/ZException.h"
#include "Z/ZList.h"
#include "Z/ZThread.h"
#include "Z/zlock_deadline.h"
#include "Z/zlock_report.h"
#include "Z/zthread_guarded.h"
#include "Z/zthread_word.h"

namespace {

constexpr char sourceName[] = "src/Z/ZThread";

constexpr int borrowed = 0;  // members of containers
constexpr unsigned int usualIdle = 10;
// A pool may be bounded by a number that nobody reaches; its map need not be made for that many.
constexpr unsigned int largestMap = 4096;

// Every change is signalled. Should the system refuse a signal, whoever waits still looks again.
constexpr long longestWait = 1000;  // milliseconds

struct FreeBlock {
    void operator()(void* block) const { ZObject::operator delete(block); }
};

/// Storage for a `T` that is not initialised.
template <class T>
std::unique_ptr<T, FreeBlock> allocate() {
    return std::unique_ptr<T, FreeBlock>(static_cast<T*>(ZObject::operator new(sizeof(T))));
}

}  // namespace

/// Holds a pool's mutex.
class ZThreadPool::Lock {
  public:
    /// Throws when the mutex cannot be locked.
    explicit Lock(ZThreadPool& locked) : Lock(locked, std::nothrow) {
        if (!held) zraise(ZThreadException(5, rc), sourceName, __LINE__);
    }
    /// For what has to be done in any case: goes on without the mutex, and failure() tells.
    Lock(ZThreadPool& locked, std::nothrow_t const&) noexcept : pool(locked) { take(); }
    ~Lock() {
        if (!held) return;
        if (int const unlockRc = release()) zreportFailure(sourceName, __LINE__, 6, unlockRc);
    }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    [[nodiscard]] int failure() const { return rc; }

    /// Throws when the mutex cannot be unlocked.
    void unlock() {
        if (!held) return;
        if (int const unlockRc = release())
            zraise(ZThreadException(6, unlockRc), sourceName, __LINE__);
    }

    /// Waits once. The wait may end without a reason. Throws when the mutex cannot be locked.
    void wait() {
        if (!held) lockAgain();
        timespec const deadline = zdeadlineIn(CLOCK_REALTIME, longestWait);
        int const waited = pthread_cond_timedwait(pool.cond.get(), pool.mutex.get(), &deadline);
        if (waited == 0 || waited == ETIMEDOUT) return;
        zreportFailure(sourceName, __LINE__, 9, waited);
        letOthersIn();
    }

  private:
    void take() noexcept {
        rc = pthread_mutex_lock(pool.mutex.get());
        held = rc == 0;
    }

    /// A wait that does not wait would shut out those whose change it waits for.
    void letOthersIn() {
        if (int const unlockRc = release()) zreportFailure(sourceName, __LINE__, 6, unlockRc);
        timespec const pause{0, 10000000};
        nanosleep(&pause, nullptr);
        lockAgain();
    }

    void lockAgain() {
        take();
        if (!held) zraise(ZThreadException(5, rc), sourceName, __LINE__);
    }

    /// A refused unlock is tried once more: nobody else could ever free the mutex.
    int release() noexcept {
        held = false;
        int const unlockRc = pthread_mutex_unlock(pool.mutex.get());
        if (unlockRc != 0) pthread_mutex_unlock(pool.mutex.get());
        return unlockRc;
    }

    ZThreadPool& pool;
    int rc = 0;         // of the last attempt to lock
    bool held = false;  // whether the destructor unlocks
};

class ZThreadPool::KeepNone {
  public:
    explicit KeepNone(ZThreadPool& emptied) : pool(emptied) {
        Lock const lock(pool);
        saved = std::exchange(pool.maxIdle, 0U);
    }
    ~KeepNone() {
        if (saved == 0) return;  // somebody else waits too, and will put it back
        Lock const lock(pool, std::nothrow);
        if (int const rc = lock.failure()) zreportFailure(sourceName, __LINE__, 5, rc);
        pool.maxIdle = saved;
    }
    KeepNone(const KeepNone&) = delete;
    KeepNone& operator=(const KeepNone&) = delete;

  private:
    ZThreadPool& pool;
    unsigned int saved = 0;
};

void ZThreadPool::MutexDelete::operator()(pthread_mutex_t* initialised) const noexcept {
    if (int const rc = pthread_mutex_destroy(initialised))
        zreportFailure(sourceName, __LINE__, 4, rc);
    ZObject::operator delete(initialised);
}

void ZThreadPool::CondDelete::operator()(pthread_cond_t* initialised) const noexcept {
    if (int const rc = pthread_cond_destroy(initialised))
        zreportFailure(sourceName, __LINE__, 8, rc);
    ZObject::operator delete(initialised);
}

ZThreadPool::Mutex ZThreadPool::createMutex() {
    auto block = allocate<pthread_mutex_t>();
    if (int const rc = pthread_mutex_init(block.get(), nullptr))
        zraise(ZThreadException(3, rc), sourceName, __LINE__);
    return Mutex(block.release());
}

ZThreadPool::Cond ZThreadPool::createCond() {
    auto block = allocate<pthread_cond_t>();
    if (int const rc = pthread_cond_init(block.get(), nullptr))
        zraise(ZThreadException(7, rc), sourceName, __LINE__);
    return Cond(block.release());
}

ZThreadPool::ZThreadPool(unsigned int a, unsigned int b)
    : idleThreads(std::min(std::max(a, b), largestMap), borrowed),
      activeCount(0),
      mutex(createMutex()),
      cond(createCond()),
      maxThreads(std::max(a, b)),
      maxIdle(std::min(a, b)),
      idleCount(0) {}

ZThreadPool::~ZThreadPool() = default;

ZThread* ZThreadPool::createThread() { return nullptr; }

// Kept: a start that fails is reported and not thrown, so that whoever feeds a pool from a queue
// goes on with the next thread.
void ZThreadPool::start(ZThread& t) {
    struct Enrolment {
        ~Enrolment() {
            if (!isKept) pool.strike(thread);
        }
        ZThreadPool& pool;
        ZThread& thread;
        bool isKept;
    };
    enrol(t);
    Enrolment enrolment{*this, t, false};
    // The mutex is not held: a sleeper's start waits for its thread, and other threads' work may
    // need the pool meanwhile.
    enrolment.isKept = zreturned(sourceName, __LINE__, [&t] { t.start(); });
}

/// Counts the thread, and lets it know its pool, before it can run.
void ZThreadPool::enrol(ZThread& t) {
    if (maxThreads == 0) zraise(ZInvalidParameterException(), sourceName, __LINE__);
    Lock lock(*this);
    while (static_cast<unsigned int>(activeCount) >= maxThreads)
        lock.wait();
    ++activeCount;
    t.pool = this;
    try {
        lock.unlock();
    } catch (ZException&) {
        strike(t);
        throw;
    }
}

/// Undoes enrol().
void ZThreadPool::strike(ZThread& t) noexcept {
    Lock const lock(*this, std::nothrow);
    t.pool = nullptr;
    --activeCount;
    if (int const rc = pthread_cond_broadcast(cond.get()))
        zreportFailure(sourceName, __LINE__, 10, rc);
}

/// Takes any of the idle workers out, under the mutex; null when there is none.
ZThread* ZThreadPool::takeIdle() {
    if (idleCount == 0) return nullptr;
    ZArrayList idle(usualIdle, borrowed);
    idleThreads.list(idle);
    auto* const thread = static_cast<ZThread*>(idle.get(0));
    dropIdle(*thread);
    return thread;
}

void ZThreadPool::dropIdle(ZThread& t) {
    idleThreads.removeEntry(&t);
    --idleCount;
}

void ZThreadPool::getAvailableIdleThread(ZThread*& t) {
    t = nullptr;
    {
        Lock lock(*this);
        t = takeIdle();
        lock.unlock();
    }
    if (t == nullptr) t = createThread();
}

void ZThreadPool::threadDoneNotification(ZThread& t, int& keep) {
    keep = 0;
    Lock lock(*this);
    // A worker with an interval may be idle already when it has done more work.
    bool stays = idleThreads.contains(&t);
    if (!stays && static_cast<unsigned int>(idleCount) < maxIdle) {
        idleThreads.putEntry(&t);
        ++idleCount;
        stays = true;
    }
    lock.unlock();
    keep = stays ? 1 : 0;
}

void ZThreadPool::threadDeathNotification(ZThread& t) {
    Lock lock(*this, std::nothrow);
    int const lockRc = lock.failure();
    if (lockRc == 0 && idleThreads.contains(&t)) dropIdle(t);
    awaitUnpinned(lock, t);
    --activeCount;
    // All: those who wait for a place and those who wait for the end wait here alike, and a signal
    // that reached the wrong one would be lost. Under the mutex: once it is free, the pool may be
    // gone.
    int const signalRc = pthread_cond_broadcast(cond.get());
    if (lockRc != 0) zraise(ZThreadException(5, lockRc), sourceName, __LINE__);
    if (signalRc != 0) zraise(ZThreadException(10, signalRc), sourceName, __LINE__);
    lock.unlock();
}

void ZThreadPool::awaitUnpinned(Lock& lock, ZThread const& t) noexcept {
    while (t.threadId->pinned) {
        try {
            lock.wait();
        } catch (ZException& exception) {
            zreportException(exception);
        }
    }
}

/// takeIdle(), and a worker that deletes itself stays until unpin().
ZThread* ZThreadPool::pinIdle() {
    Lock lock(*this);
    ZThread* const thread = takeIdle();
    if (thread != nullptr && thread->deletesItself()) thread->threadId->pinned = true;
    return thread;
}

void ZThreadPool::unpin(ZThread& t) {
    Lock const lock(*this, std::nothrow);
    t.threadId->pinned = false;
    pthread_cond_broadcast(cond.get());
}

/// One by one, and without the mutex: telling waits for a worker's work, and the worker for the
/// mutex.
void ZThreadPool::endIdle() {
    struct Unpin {
        ~Unpin() {
            if (pinned) pool.unpin(thread);
        }
        ZThreadPool& pool;
        ZThread& thread;
        bool pinned;
    };
    while (ZThread* const thread = pinIdle()) {
        // One that could be deleted once it has ended is not looked at any more.
        Unpin const unpin{*this, *thread, thread->deletesItself()};
        (void)zreturned(sourceName, __LINE__, [thread] { thread->waitForExit(); });
    }
}

void ZThreadPool::waitForExit() {
    KeepNone const none(*this);
    endIdle();
    Lock lock(*this);
    while (activeCount != 0)
        lock.wait();
    lock.unlock();
}
