#include "Z/ZReadWriteLock.h"

#include <ctime>
#include <iterator>

#include "Z/ZException.h"
#include "Z/exceptions/report.h"
#include "Z/threads/deadline.h"
#include "Z/threads/forked_child.h"
#include "Z/threads/persistent_guard.h"

namespace {

constexpr char sourceName[] = "src/Z/ZReadWriteLock";
constexpr pthread_t noOwner = static_cast<pthread_t>(-1);

constexpr char const* stateNames[] = {"unset", "read", "protect", "write"};

}  // namespace

// ------------------------------------------------------------------------------------- the base

ZAbstractReadWriteLock::~ZAbstractReadWriteLock() = default;

void ZAbstractReadWriteLock::lock() { lock(zlockWrite); }

char const* ZAbstractReadWriteLock::getLockStateName(zlockstate state) const {
    auto const index = static_cast<unsigned int>(state);
    return index < std::size(stateNames) ? stateNames[index] : nullptr;
}

int ZAbstractReadWriteLock::isCurrent() const { return 1; }
void ZAbstractReadWriteLock::unlock() { unlock(getUpdate()); }
void ZAbstractReadWriteLock::unlock(int /*update*/) {}
int ZAbstractReadWriteLock::getUpdate() const { return 0; }
void ZAbstractReadWriteLock::setUpdate(int /*update*/) {}

// ------------------------------------------------------------------------------------- the lock

/// Until when to wait.
class ZReadWriteLock::Deadline {
  public:
    static Deadline never() { return {znoDeadline, false}; }
    static Deadline in(long milliseconds) {
        if (milliseconds <= 0) return {znoDeadline, true};
        return {zdeadlineIn(CLOCK_MONOTONIC, milliseconds), false};
    }

    timespec time;  // of the monotonic clock
    bool passed;    // nothing is waited for
};

/// Made and destroyed under the guard, which the analysis cannot see from here.
class ZReadWriteLock::Promotion {
  public:
    explicit Promotion(ZReadWriteLock& promoted) ZNO_THREAD_SAFETY_ANALYSIS : lock(promoted) {
        lock.state = zlockWrite;  // from now on no new reader enters
    }
    ~Promotion() ZNO_THREAD_SAFETY_ANALYSIS {
        if (complete) return;
        lock.state = zlockProtect;  // the owner has not changed
        try {
            if (lock.waiters > 0) lock.condition.broadcast();  // readers may enter again
        } catch (ZException& exception) {
            zreportException(exception);
        }
    }
    Promotion(Promotion const&) = delete;
    Promotion& operator=(Promotion const&) = delete;

    bool complete = false;

  private:
    ZReadWriteLock& lock;
};

ZReadWriteLock::ZReadWriteLock() : owner(noOwner) {}
ZReadWriteLock::ZReadWriteLock(ZReadWriteLock const&) : ZReadWriteLock() {}
ZReadWriteLock::~ZReadWriteLock() = default;

ZObject* ZReadWriteLock::clone() const { return new ZReadWriteLock(*this); }

void ZReadWriteLock::lock() { lock(zlockWrite); }

void ZReadWriteLock::lock(zlockstate requested) {
    switch (requested) {
        case zlockUnset:
            return unlock();
        case zlockRead:
            return readLock();
        case zlockProtect:
            return readWithIntentToWriteLock();
        case zlockWrite:
            return writeLock();
    }
    zraise(ZInvalidParameterException(), sourceName, __LINE__);
}

void ZReadWriteLock::readLock() { static_cast<void>(acquire(zlockRead, Deadline::never())); }

void ZReadWriteLock::writeLock() { static_cast<void>(acquire(zlockWrite, Deadline::never())); }

void ZReadWriteLock::readWithIntentToWriteLock() {
    static_cast<void>(acquire(zlockProtect, Deadline::never()));
}

bool ZReadWriteLock::tryLock(zlockstate requested) { return lockFor(requested, 0); }

bool ZReadWriteLock::lockFor(zlockstate requested, long milliseconds) {
    if (requested < zlockRead || requested > zlockWrite)
        zraise(ZInvalidParameterException(), sourceName, __LINE__);
    return acquire(requested, Deadline::in(milliseconds));
}

bool ZReadWriteLock::acquire(zlockstate requested, Deadline const& deadline) {
    ZPersistentGuard const guard(condition);
    // Else it would wait for itself. A reader that asks again is not known here and is let in
    // beside itself; one that asks for more waits for ever, as the header says.
    if (state >= zlockProtect && isMine())
        zraise(ZLockResourceException(numberOf(Message::mutexLockFailed), 0), sourceName, __LINE__);
    while (!admits(requested)) {
        // What was asked for may have come free with the deadline.
        if (!wait(deadline) && !admits(requested)) return false;
    }
    enter(requested);
    return true;
}

void ZReadWriteLock::promoteReadToWriteLock() {
    ZPersistentGuard const guard(condition);
    if (state != zlockProtect || !isMine())
        zraise(ZLockResourceException(numberOf(Message::mutexLockFailed), 0), sourceName, __LINE__);
    Promotion promotion(*this);
    while (readerCount > 0)
        static_cast<void>(wait(Deadline::never()));
    promotion.complete = true;
}

void ZReadWriteLock::unlock() {
    bool wakes = false;
    {
        ZPersistentGuard const guard(condition);
        leave();
        wakes = letsSomebodyIn();
    }
    // Without the guard, which the woken ones want at once.
    // All of them: each tests for itself, and one that cannot enter would swallow a single signal.
    if (wakes) condition.broadcast();
}

void ZReadWriteLock::unlock(int /*update*/) { unlock(); }

bool ZReadWriteLock::haveLock(zlockstate wanted) const {
    ZPersistentGuard const guard(condition);
    return state == wanted;
}

// Kept: true after the release as well. Who holds the lock learns whether it writes; for others the
// answer means nothing.
bool ZReadWriteLock::ownWriteLock() const {
    ZPersistentGuard const guard(condition);
    return isMine();
}

int ZReadWriteLock::getReaderCount() {
    ZPersistentGuard const guard(condition);
    return readerCount;
}

bool ZReadWriteLock::isMine() const { return pthread_equal(owner, pthread_self()) != 0; }

bool ZReadWriteLock::admits(zlockstate requested) const {
    if (requested == zlockRead) return state != zlockWrite;
    if (requested == zlockProtect) return state < zlockProtect;
    return state == zlockUnset;
}

void ZReadWriteLock::enter(zlockstate requested) {
    if (requested == zlockRead) {
        ++readerCount;
        if (state == zlockUnset) state = zlockRead;  // beside a protect holder it stays protect
        return;
    }
    state = requested;
    owner = pthread_self();
}

void ZReadWriteLock::leave() {
    if (state >= zlockProtect && isMine()) {
        state = readerCount > 0 ? zlockRead : zlockUnset;
        return;
    }
    // A reader, maybe beside a protect holder or with a promotion waiting for it.
    if (readerCount < 1)
        zraise(ZUnlockResourceException(numberOf(Message::mutexUnlockFailed), 0), sourceName,
               __LINE__);
    --readerCount;
    if (readerCount == 0 && state == zlockRead) state = zlockUnset;
}

bool ZReadWriteLock::letsSomebodyIn() const {
    if (waiters == 0 || state == zlockProtect) return false;
    return state != zlockWrite || readerCount == 0;
}

/// One wait; false when the deadline has passed.
bool ZReadWriteLock::wait(Deadline const& deadline) {
    struct Waiter {
        explicit Waiter(int& number) : waiters(number) { ++waiters; }
        ~Waiter() { --waiters; }  // the lock is held again, however the wait ended
        Waiter(Waiter const&) = delete;
        Waiter& operator=(Waiter const&) = delete;
        int& waiters;
    };
    if (deadline.passed) return false;
    Waiter const waiter(waiters);
    int timedOut = 0;
    condition.waitUntil(deadline.time, timedOut);
    return timedOut == 0;
}

// ------------------------------------------------------------------------------------ the guard

ZStackReadWriteLock::ZStackReadWriteLock(ZAbstractReadWriteLock& l, int update) : readWriteLock(l) {
    readWriteLock.setUpdate(update);
}

ZStackReadWriteLock::~ZStackReadWriteLock() {
    ZForkedChild::endHold(readWriteLock, sourceName, __LINE__, [this] { readWriteLock.unlock(); });
}
