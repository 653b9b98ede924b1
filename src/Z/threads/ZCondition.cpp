#include "Z/ZCondition.h"

#include <cerrno>

#include "Z/ZException.h"
#include "Z/exceptions/report.h"
#include "Z/threads/deadline.h"
#include "Z/threads/pthread_objects.h"

namespace {

constexpr char sourceName[] = "src/Z/ZCondition";

/// Kept: the failure is reported here and once more by whoever catches the exception, because the
/// thread that meets a broken condition is often not the one whose catcher prints.
[[noreturn]] void failed(Message message, int rc, int line) {
    zreportFailure(sourceName, line, message, rc);
    zraise(ZConditionException(numberOf(message), rc), sourceName, line);
}

}  // namespace

/// The whole hold of a lock, from any depth, given up on paper for the time of a wait: the wait
/// itself gives the mutex up and takes it back. The destructor restores owner and depth, also when
/// the waiting thread is cancelled and unwinds.
class ZLock::Suspension {
  public:
    explicit Suspension(ZLock& held) : lock(held), depth(held.count) { lock.hold(noOwner, 0); }
    ~Suspension() { lock.hold(pthread_self(), depth); }
    Suspension(Suspension const&) = delete;
    Suspension& operator=(Suspension const&) = delete;

  private:
    ZLock& lock;
    int const depth;
};

void ZCondition::CondDelete::operator()(pthread_cond_t* initialised) const noexcept {
    zfc::threads::endObject(initialised, pthread_cond_destroy, Message::conditionDestroyFailed,
                            sourceName, __LINE__);
}

ZCondition::Cond ZCondition::createCond() {
    return Cond(zfc::threads::makeObject(pthread_cond_init, [](int rc) {
        zraise(ZConditionException(numberOf(Message::conditionInitFailed), rc), sourceName,
               __LINE__);
    }));
}

ZCondition::ZCondition() : ZCondition(std::make_unique<ZLock>()) {}
ZCondition::ZCondition(ZLock& l) : lock_(&l), ownsLock(0), cond(createCond()) {}
ZCondition::ZCondition(std::unique_ptr<ZLock> own)
    : lock_(own.get()), ownsLock(1), cond(createCond()) {
    static_cast<void>(own.release());  // ours from here on
}

ZCondition::~ZCondition() {
    if (isInUse()) {
        keep();
        return;
    }
    cond.reset();  // before the mutex that its waiters would come back to
    if (ownsLock != 0) delete lock_;
}

/// Until a thread waits, but for a moment only.
void ZCondition::awaitWaiter() const noexcept {
    zfc::threads::lookOften([this] { return zfc::threads::isWaitedFor(cond.get()); });
}

bool ZCondition::isInUse() const noexcept {
    // Those that were woken get a moment to leave.
    zfc::threads::lookOften([this] { return !zfc::threads::isWaitedFor(cond.get()); });
    if (zfc::threads::isWaitedFor(cond.get())) return true;
    pthread_t const holder = lock_->owner->load(std::memory_order_relaxed);
    return ownsLock != 0 && holder != ZLock::noOwner && holder != pthread_self();
}

/// As when the process exits while threads wait: what they wait with has to stay.
void ZCondition::keep() noexcept {
    zreportFailure(sourceName, __LINE__, Message::conditionDestroyFailed, EBUSY);
    zfc::threads::blockOf(cond.get()).isKept = true;
    zfc::threads::blockOf(lock_->mutex.get()).isKept = true;
    if (ownsLock != 0) zfc::threads::keepForever(lock_);
}

int ZCondition::wait() {
    timespec deadline = znoDeadline;
    int timedOut = 0;
    return wait(deadline, timedOut);
}

int ZCondition::wait(long seconds, int& timedOut) {
    return ZCondition::waitUntil(zdeadlineInSeconds(seconds), timedOut);
}

int ZCondition::wait(timespec& deadline, int& timedOut) {
    waitBy(CLOCK_REALTIME, deadline, timedOut);
    return 0;
}

int ZCondition::waitUntil(timespec const& deadline, int& timedOut) {
    waitBy(CLOCK_MONOTONIC, deadline, timedOut);
    return 0;
}

/// One wait of the system; `deadline` null: without a limit.
int ZCondition::waitOnce(clockid_t clock, timespec const* deadline) {
    // The system frees and takes the mutex behind the lock's back: owner and depth must say so
    // while others may hold it.
    ZLock::Suspension const suspension(*lock_);
    return zfc::threads::waitOn(cond.get(), lock_->mutex.get(), clock, deadline);
}

void ZCondition::waitBy(clockid_t clock, timespec const& deadline, int& timedOut) {
    validateLock();
    timedOut = 0;
    bool const limited = !zisNoDeadline(deadline);
    int const rc = waitOnce(clock, limited ? &deadline : nullptr);
    if (limited && rc == ETIMEDOUT) {
        timedOut = 1;
        waitTimedOut();
    } else if (rc != 0) {
        // Kept: this message also when a timed wait failed; administrators know this one number.
        failed(Message::conditionWaitFailed, rc, __LINE__);
    }
}

void ZCondition::signal() {
    if (int const rc = pthread_cond_signal(cond.get()))
        failed(Message::conditionSignalFailed, rc, __LINE__);
}

void ZCondition::broadcast() {
    if (int const rc = pthread_cond_broadcast(cond.get()))
        failed(Message::conditionBroadcastFailed, rc, __LINE__);
}

/// The analysis takes the condition and its lock for two capabilities; they are one.
void ZCondition::lock() ZNO_THREAD_SAFETY_ANALYSIS { lock_->lock(); }
void ZCondition::unlock() ZNO_THREAD_SAFETY_ANALYSIS { lock_->unlock(); }

ZLock* ZCondition::getResource() const { return lock_; }

void ZCondition::waitTimedOut() {}

void ZCondition::validateLock() {
    // The depth is this thread's to read only when it is the owner.
    if (!lock_->isHeldBy(pthread_self()) || lock_->count <= 0)
        zraise(ZLockResourceException(numberOf(Message::mutexLockFailed), 0), sourceName, __LINE__);
}

namespace {

/// The loop over the predicate; `waitOnce` sets `timedOut`.
template <class Wait>
int waitUntilTrue(ZBooleanCondition& condition, int& timedOut, Wait const& waitOnce) {
    timedOut = 0;
    int value = condition.testCondition();
    while (value == 0 && timedOut == 0) {
        waitOnce();
        value = condition.testCondition();
    }
    return value;
}

}  // namespace

ZBooleanCondition::ZBooleanCondition() = default;
ZBooleanCondition::ZBooleanCondition(ZLock& l) : ZCondition(l) {}
ZBooleanCondition::~ZBooleanCondition() = default;

/// Ends in the form with a deadline, which is virtual.
int ZBooleanCondition::wait() { return ZCondition::wait(); }

int ZBooleanCondition::wait(long seconds, int& timedOut) {
    return waitUntil(zdeadlineInSeconds(seconds), timedOut);
}

int ZBooleanCondition::wait(timespec& deadline, int& timedOut) {
    return waitUntilTrue(*this, timedOut, [&] { ZCondition::wait(deadline, timedOut); });
}

int ZBooleanCondition::waitUntil(timespec const& deadline, int& timedOut) {
    return waitUntilTrue(*this, timedOut, [&] { ZCondition::waitUntil(deadline, timedOut); });
}

// Kept: the predicate stays true after a time-out until initCondition(), so that whoever looks at
// it alone, without timedOut, sees that the wait is over.
void ZBooleanCondition::waitTimedOut() { setCondition(1); }

void ZBooleanCondition::initCondition() {
    validateLock();
    condition = 0;
}

int ZBooleanCondition::testCondition() {
    validateLock();
    return condition;
}

int ZBooleanCondition::setCondition(int value) {
    validateLock();
    condition = value;
    return 1;
}
