/// Read-write locks with three modes, for the threads of one process, and their guard.
///
/// The modes are read, protect (read, with the intent to write) and write. Who may enter while the
/// lock is held:
///
///     held \ requested | read  | protect | write
///     -----------------+-------+---------+------
///     unset            | yes   | yes     | yes
///     read             | yes   | yes     | waits
///     protect          | yes   | waits   | waits
///     write            | waits | waits   | waits
///
/// Who may move where:
///
///     from      | by                              | to
///     ----------+---------------------------------+---------------------------------------------
///     read      | unlock() of the last reader     | unset
///     protect   | promoteReadToWriteLock(), owner | write; waits for the readers inside to leave,
///               |                                 | and no new reader enters meanwhile
///     protect   | unlock() of the owner           | read while readers are inside, else unset
///     write     | unlock() of the owner           | the same
///
/// What may surprise:
/// - The holder of protect or write never enters again, in any mode: ZLockResourceException
///   (message 5, rc 0).
/// - A thread that reads and asks for write waits for itself, for ever; so does one that reads,
///   takes protect and promotes, and one that reads and asks for protect while another one
///   promotes. A thread that may write takes protect first, and no read beside it.
/// - There is no writer preference: readers that keep coming keep a writer waiting. A promotion
///   does shut new readers out.
/// - Woken threads enter in no particular order.
/// - Readers are counted, not known: any thread that holds neither protect nor write gives a read
///   back with unlock(), also one that another thread took.
/// - Destroying a lock that is held or waited for, or whose unlock() has not returned yet, is an
///   error of the program.
#ifndef Z_ZREADWRITELOCK_H
#define Z_ZREADWRITELOCK_H

#include "Z/ztags.h"

#include <pthread.h>

#include <atomic>
#include <optional>

#include "Z/ZCondition.h"
#include "Z/ZObject.h"
#include "Z/ZObserve.h"
#include "Z/zexport.h"

/// What every lock with modes offers.
class ZFC_API ZReadWriteLockInterface {
  public:
    /// The states of a lock, which are also its modes. Any number may arrive in such a variable.
    enum zlockstate : unsigned int {
        zlockUnset = 0,    ///< nobody holds the lock
        zlockRead = 1,     ///< many threads, which change nothing
        zlockProtect = 2,  ///< one thread that may change something later; readers beside it
        zlockWrite = 3     ///< one thread alone
    };

    // in slot order: do not sort
    /// Takes the lock for writing.
    virtual void lock() = 0;
    /// Releases what the calling thread holds.
    virtual void unlock() = 0;
    /// Takes the lock in a mode; zlockUnset releases it.
    virtual void lock(zlockstate state) = 0;
    /// Takes the lock for reading.
    virtual void readLock() = 0;
    /// Takes the lock for writing.
    virtual void writeLock() = 0;
    /// Takes the lock for protect.
    virtual void readWithIntentToWriteLock() = 0;
    /// From protect, which the calling thread holds, to write.
    virtual void promoteReadToWriteLock() = 0;

  protected:
    ZReadWriteLockInterface() = default;
    ZReadWriteLockInterface(ZReadWriteLockInterface const&) = default;
    ZReadWriteLockInterface& operator=(ZReadWriteLockInterface const&) = default;
    ~ZReadWriteLockInterface() = default;  // locks are not deleted through this interface
};

/// Base of the locks with modes: names of the states, what a lock without shared data answers, and
/// observers.
class ZFC_API ZAbstractReadWriteLock : public ZObject,
                                       public ZReadWriteLockInterface,
                                       public ZAbstractObservable {
  public:
    ZAbstractReadWriteLock() = default;
    /// A lock without observers, whatever the other one has.
    ZAbstractReadWriteLock(ZAbstractReadWriteLock const& other) = default;
    ZAbstractReadWriteLock& operator=(ZAbstractReadWriteLock const&) = delete;

    // in slot order: do not sort
    ~ZAbstractReadWriteLock() override;
    /// As lock(zlockWrite).
    void lock() override;
    void lock(zlockstate state) override = 0;
    /// The name of a state: "unset", "read", "protect" or "write"; null for another value.
    [[nodiscard]] virtual char const* getLockStateName(zlockstate state) const;
    // Layout: isCurrent(), unlock(int), getUpdate() and setUpdate() are slots for locks across
    // processes, which guard data that others change.
    /// Non-zero while the data that the lock guards is what this process knows; here always 1.
    [[nodiscard]] virtual int isCurrent() const;
    /// As unlock(getUpdate()).
    void unlock() override;
    /// Releases the lock; with `update` not 0 shared data counts as changed. Does nothing here.
    virtual void unlock(int update);
    /// Whether the lock, held by whomever, is in this state.
    [[nodiscard]] virtual bool haveLock(zlockstate state) const = 0;
    /// Whether the calling thread is the one that holds protect or write; asked by holders.
    [[nodiscard]] virtual bool ownWriteLock() const = 0;
    /// Whether the next unlock() marks shared data as changed; here always 0.
    [[nodiscard]] virtual int getUpdate() const;
    /// Says what getUpdate() is to answer. Does nothing here.
    virtual void setUpdate(int update);
    void readLock() override = 0;
    void writeLock() override = 0;
    void readWithIntentToWriteLock() override = 0;
    void promoteReadToWriteLock() override = 0;
};

/// The lock of the table above. An operation that waits for nobody and for which nobody waits makes
/// one atomic step. The others take the lock's own guard, and throw what that throws:
/// ZLockResourceException (message 5) with the system's code, the lock as it was; with EAGAIN for a
/// reader beside 2^29 - 1 others. Taking the lock waits without a limit, but for the operations
/// whose names say otherwise. A wait that fails (ZConditionException, message 9), or whose thread
/// is cancelled, leaves the lock as if it had not been asked for.
class ZFC_API ZReadWriteLock : public ZAbstractReadWriteLock {
  public:
    /// A free lock. Throws as ZCondition().
    ZReadWriteLock();
    /// A free lock that has nothing to do with `other`. Throws as ZCondition().
    ZReadWriteLock(ZReadWriteLock const& other);

    // in slot order: do not sort
    ~ZReadWriteLock() override;
    /// A new, free lock.
    [[nodiscard]] ZObject* clone() const override;
    void lock() override;
    /// readLock(), readWithIntentToWriteLock(), writeLock() or, for zlockUnset, unlock(). Throws
    /// ZInvalidParameterException (message 22) for a number that is no state.
    void lock(zlockstate requested) override;
    /// Releases what the calling thread holds: its protect or write, else one reader. Never waits
    /// for other holders. Throws ZUnlockResourceException (message 6, rc 0) when the lock is free
    /// or has no reader to release, ZConditionException (message 27) when waiting threads could not
    /// be woken: the lock is then released, and they wait for the next release.
    void unlock() override;
    /// unlock(); the argument does not matter here.
    void unlock(int update) override;
    [[nodiscard]] bool haveLock(zlockstate wanted) const override;
    /// Whether the calling thread was the last one to take protect or write. It stays so after the
    /// release, until another thread takes one of them.
    [[nodiscard]] bool ownWriteLock() const override;
    /// Each throws ZLockResourceException (message 5, rc 0) when the calling thread holds protect
    /// or write.
    void readLock() override;
    /// As readLock(), alone.
    void writeLock() override;
    /// As readLock(), beside readers, but as the only one that may go on to write.
    void readWithIntentToWriteLock() override;
    /// From protect to write: shuts new readers out and waits for those inside. Throws
    /// ZLockResourceException (message 5, rc 0) when the calling thread does not hold protect;
    /// after any other failure it still does.
    void promoteReadToWriteLock() override;
    /// The readers inside; holders of protect and write do not count.
    [[nodiscard]] virtual int getReaderCount();

    /// As lock(), without waiting for other holders: false when the mode is not to be had now.
    /// Throws ZInvalidParameterException (message 22) also for zlockUnset.
    [[nodiscard]] bool tryLock(zlockstate requested);
    /// As tryLock() with zlockRead.
    [[nodiscard]] bool tryReadLock() { return tryLock(zlockRead); }
    /// As tryLock() with zlockWrite.
    [[nodiscard]] bool tryWriteLock() { return tryLock(zlockWrite); }
    /// As tryLock(), waiting `milliseconds` at most, by the monotonic clock. Zero and less do not
    /// wait. Nothing is held when it gives false.
    [[nodiscard]] bool lockFor(zlockstate requested, long milliseconds);

    /// Writing and reading by the names of ISO C++: the lock is a SharedLockable for
    /// `std::shared_lock`, `std::unique_lock` and `std::scoped_lock`. Each throws as the operation
    /// that it stands for.
    [[nodiscard]] bool try_lock() { return tryWriteLock(); }
    /// As readLock().
    void lock_shared() { readLock(); }
    /// As tryReadLock().
    [[nodiscard]] bool try_lock_shared() { return tryReadLock(); }
    /// As unlock().
    void unlock_shared() { unlock(); }

  private:
    friend struct ZForkedChild;  // frees it in the child of a fork

    class Waiter;     // one of `waiters`
    class Promotion;  // write, taken from protect and given back unless all readers have left
    enum class Waiters { none, some };

    [[nodiscard]] bool isMine() const;
    [[nodiscard]] bool enter(zlockstate requested);
    [[nodiscard]] bool enterInAMoment(zlockstate requested);
    void await(zlockstate requested);
    [[nodiscard]] bool awaitUntil(zlockstate requested, timespec const& deadline);
    void noteOwner(zlockstate taken);
    [[nodiscard]] bool promoteAtOnce();
    void promoteAfterReaders();
    [[nodiscard]] std::optional<unsigned int> leave(Waiters expected);
    [[nodiscard]] std::optional<unsigned int> leaveAsOwner(Waiters expected);
    [[nodiscard]] std::optional<unsigned int> leaveAsReader(Waiters expected, unsigned int guess);
    void leaveAndWake();
    [[nodiscard]] bool wait(timespec const& deadline) ZREQUIRES(condition);

    std::atomic<unsigned int> readerCount{0};   // readers inside, and below them mode and waiters
    std::atomic<zlockstate> state{zlockUnset};  // what the owner holds; changes after `owner`
    std::atomic<pthread_t> owner;            // last to take protect or write; noOwner before; kept
    int waiters ZGUARDED_BY(condition) = 0;  // threads that wait or are about to
    mutable ZCondition condition;            // its lock is the guard; every waiter waits here
};

/// Releases a lock when its scope ends. The scope takes exactly one lock, through this object or
/// just before it is made.
class ZFC_API ZStackReadWriteLock : public ZObject {
  public:
    /// Calls `l.setUpdate(update)` and locks nothing. `l` is not owned and must outlive the object.
    [[nodiscard]] ZStackReadWriteLock(ZAbstractReadWriteLock& l, int update);
    ZStackReadWriteLock(ZStackReadWriteLock const&) = delete;
    ZStackReadWriteLock& operator=(ZStackReadWriteLock const&) = delete;
    /// Calls `unlock()` once, whatever is locked; what that throws is reported, not thrown.
    ~ZStackReadWriteLock() override;

    ///@{
    /// The lock's own operation of the same name.
    void readLock() { readWriteLock.readLock(); }
    void writeLock() { readWriteLock.writeLock(); }
    void readWithIntentToWriteLock() { readWriteLock.readWithIntentToWriteLock(); }
    void promoteReadToWriteLock() { readWriteLock.promoteReadToWriteLock(); }
    void unlock(int update) { readWriteLock.unlock(update); }
    [[nodiscard]] int getUpdate() const { return readWriteLock.getUpdate(); }
    void setUpdate(int update) { readWriteLock.setUpdate(update); }
    ///@}
    /// The lock; not owned.
    [[nodiscard]] ZAbstractReadWriteLock& getReadWriteLock() const { return readWriteLock; }

  private:
    ZAbstractReadWriteLock& readWriteLock;
};

#endif
