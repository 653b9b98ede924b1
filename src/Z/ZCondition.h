/// Conditions: threads that hold a lock wait, with the lock given up, until another thread wakes
/// them.
///
/// What a condition does for a thread T, by T's hold of the condition's lock:
///
///     T's hold     | wait                                          | signal, broadcast
///     -------------+-----------------------------------------------+------------------
///     none         | refused                                       | wake one, all
///     depth n >= 1 | the lock is free during the wait, whatever n; | wake one, all
///                  | T has it at depth n again when it ends        |
///
/// "Refused" is ZLockResourceException (message 5) with rc 0. A wait ends by a signal, by its
/// deadline, by a failure, by cancellation of the thread, or by itself: POSIX allows a wait to end
/// without a signal, and ZCondition passes that on. Its callers loop over their own predicate;
/// ZBooleanCondition brings loop and predicate with it:
///
///     predicate | wait            | deadline passes         | setCondition(v) | initCondition
///     ----------+-----------------+-------------------------+-----------------+--------------
///     0         | waits           | predicate 1, wait ends  | predicate v     | stays 0
///     not 0     | returns it      | -                       | predicate v     | 0
///
/// What may surprise:
/// - After a wait that timed out the predicate reads true until somebody calls initCondition().
/// - setCondition() wakes nobody; signal() or broadcast() does.
/// - Seconds are counted by the monotonic clock, to the nanosecond: `wait(1, timedOut)` takes one
///   second, whatever somebody sets the time of day to meanwhile, and `wait(0, timedOut)` gives the
///   lock up and normally returns at once, timed out. An absolute `deadline` is a time of day
///   (CLOCK_REALTIME), and moves with it; waitUntil() takes one of the monotonic clock.
/// - A failed wait, signal or broadcast is reported to the message service and then thrown.
#ifndef Z_ZCONDITION_H
#define Z_ZCONDITION_H

#include "Z/ztags.h"

#include <pthread.h>

#include <ctime>
#include <memory>

#include "Z/ZLock.h"
#include "Z/ZObject.h"
#include "Z/zexport.h"

/// What every condition offers; ZCondition says what the operations do.
class ZFC_API ZConditionInterface {
  public:
    // in slot order: do not sort
    /// Waits without a limit.
    virtual int wait() = 0;
    /// Waits `seconds` at most; `timedOut` says whether they were up.
    virtual int wait(long seconds, int& timedOut) = 0;
    /// Waits until the absolute time `deadline`; `timedOut` says whether it came.
    virtual int wait(timespec& deadline, int& timedOut) = 0;
    /// Wakes one waiting thread.
    virtual void signal() = 0;
    /// Wakes all waiting threads.
    virtual void broadcast() = 0;
    /// Called when a wait ended by its deadline.
    virtual void waitTimedOut() = 0;

  protected:
    ~ZConditionInterface() = default;  // conditions are not deleted through this interface
};

/// Base of the conditions: each is a lock as well.
class ZFC_API ZAbstractCondition : public ZObject,
                                   public ZConditionInterface,
                                   public ZLockInterface {};

/// A POSIX condition variable bound to a ZLock, its own or one that is lent.
class ZFC_API ZCondition : public ZAbstractCondition {
  public:
    /// A condition with a lock of its own. Throws ZConditionException (message 7) with the code of
    /// pthread_cond_init, and as ZLock() does.
    ZCondition();
    /// Waits with `l`, which is not owned and must outlive the condition. Throws as above.
    explicit ZCondition(ZLock& l);
    ZCondition(ZCondition const&) = delete;
    ZCondition& operator=(ZCondition const&) = delete;

    // in slot order: do not sort
    /// Nobody may be waiting, or another thread hold the condition's own lock. Else, as when the
    /// process exits meanwhile, that is reported (message 8 with EBUSY), memory of what is waited
    /// for stays, and threads that wait do not come back. A failure of pthread_cond_destroy is
    /// reported too (message 8), not thrown.
    ~ZCondition() override;
    /// Waits without a limit. Returns and throws as the third form.
    int wait() override;
    /// Waits `seconds` at most, from now on; an end that no clock reaches, or that is over, is
    /// moved to the last, or first, one there is. Sets `timedOut`, returns and throws as the third
    /// form, and calls waitTimedOut() as that, but does not call it.
    int wait(long seconds, int& timedOut) override;
    /// Gives the lock up from whatever depth, waits for a wake-up or for the absolute time
    /// `deadline` (both fields 0: without a limit), and takes the lock back. `timedOut` is then 1
    /// when the deadline passed, else 0. Returns 0. A cancellation point: the lock is held again
    /// while the thread unwinds. Throws ZLockResourceException (message 5, rc 0) when the caller
    /// does not hold the lock, ZConditionException (message 9) with the system's code, such as
    /// EINVAL for a deadline whose nanoseconds are none.
    int wait(timespec& deadline, int& timedOut) override;
    /// Wakes one waiting thread, if there is one. Does not ask for the lock and does not wait.
    /// Throws ZConditionException (message 10).
    void signal() override;
    /// As signal(), for all waiting threads. Throws ZConditionException (message 27).
    void broadcast() override;
    /// As ZLock::lock() and unlock() of the condition's lock.
    void lock() override ZACQUIRE();
    /// Gives back what lock() took; throws as ZLock::unlock().
    void unlock() override ZRELEASE();
    /// The condition's lock; not owned by the caller.
    [[nodiscard]] virtual ZLock* getResource() const;
    /// Called, with the lock held at the caller's depth, when a wait ended by its deadline. Does
    /// nothing here.
    void waitTimedOut() override;
    /// Throws ZLockResourceException (message 5, rc 0) when the caller does not hold the lock.
    virtual void validateLock() ZASSERTS_HELD();

    /// As the third form of wait(), for a `deadline` of the monotonic clock (CLOCK_MONOTONIC).
    int waitUntil(timespec const& deadline, int& timedOut);

  private:
    friend struct ZForkedChild;  // makes it new in the child of a fork
    friend class ZSleeperThread;

    struct CondDelete {
        void operator()(pthread_cond_t* initialised) const noexcept;
    };
    using Cond = std::unique_ptr<pthread_cond_t, CondDelete>;

    explicit ZCondition(std::unique_ptr<ZLock> own);
    void awaitWaiter() const noexcept;
    [[nodiscard]] bool isInUse() const noexcept;
    void keep() noexcept;
    [[nodiscard]] static Cond createCond();
    [[nodiscard]] int waitOnce(clockid_t clock, timespec const* deadline);
    void waitBy(clockid_t clock, timespec const& deadline, int& timedOut);

    // Layout: a pointer and a flag, where an owner of its own kind would need but the pointer.
    ZLock* lock_;  // waits use its mutex; never null. The method has the plain name.
    int ownsLock;  // 1 when this object deletes lock_, 0 when it is lent
    Cond cond;     // never null
};

/// A condition with its own predicate, a number that is false when 0, and the loop over it. Every
/// operation on the predicate throws ZLockResourceException (message 5, rc 0) when the caller does
/// not hold the lock.
class ZFC_API ZBooleanCondition : public ZCondition {
  public:
    /// As ZCondition; the predicate starts as 0.
    ZBooleanCondition();
    explicit ZBooleanCondition(ZLock& l);

    // in slot order: do not sort
    ~ZBooleanCondition() override;
    /// As the forms of ZCondition, but they end when testCondition() gives a value that is not 0,
    /// which they return, or when the deadline has passed.
    int wait() override;
    int wait(long seconds, int& timedOut) override;
    int wait(timespec& deadline, int& timedOut) override;
    /// Calls setCondition(1): a wait whose deadline passed ends with the predicate true.
    void waitTimedOut() override;
    /// Makes the predicate 0.
    virtual void initCondition();
    /// The predicate.
    [[nodiscard]] virtual int testCondition();
    /// Makes the predicate `value` and returns 1. Wakes nobody.
    virtual int setCondition(int value);

    /// As the forms of wait().
    int waitUntil(timespec const& deadline, int& timedOut);

  private:
    int condition ZGUARDED_BY(this) = 0;  // the predicate
};

#endif
