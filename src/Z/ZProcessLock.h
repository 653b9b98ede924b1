/// Named read-write locks for the threads of one process and for several processes: what all of
/// them share, the number that tells when shared data changed, and the stub that stays within the
/// process. ZFileLock.h has the locks that reach across processes.
///
/// What one lock object does; its state is the same for all threads of the process:
///
///     state \ requested | read             | protect, write   | unlock() by a holder, by others
///     ------------------+------------------+------------------+--------------------------------
///     unset             | read             | write            | refused (6)   | refused (6)
///     read, not by T    | joins            | waits            | -             | refused (6)
///     read, by T        | T reads twice    | refused (32)     | T's read ends | refused (6)
///     write, not by T   | waits            | waits            | -             | refused (6)
///     write, by T       | refused (5)      | refused (5)      | unset         | refused (6)
///
/// T is the calling thread, the numbers are those of the messages. The state turns to unset when
/// the last read ends. For other processes, and for other objects of the same name, an object that
/// reads is one reader, and one that writes is the writer.
///
/// Every lock carries a sequence number. A writer's unlock() advances it; who takes the lock and
/// finds that the number moved since its data was current has its observers told, with a
/// ZSequenceUpdate:
///
///     lastSequence  | observers | lock() of read, protect              | lock() of write
///     --------------+-----------+--------------------------------------+----------------
///     never set     | any       | adopts the number                    | the same
///     the number    | any       | -                                    | -
///     another       | none      | -                                    | -
///     another       | some      | drops what it took, takes write with | tells them
///                   |           | update 0, tells them, keeps write    |
///
/// What may surprise:
/// - A writer that is killed between its change and unlock() leaves the number as it was, and the
///   others never read what it has changed. incSequence() before the first change is the cure; a
///   ZStackWriteLock does that by itself.
/// - Protect is write here, and promoteReadToWriteLock() does nothing.
/// - A request that came back with write, because observers were told, is released as any other;
///   its release does not advance the number unless setUpdate(1) is called before.
/// - A thread that reads already is not told: it cannot write. Its data counts as current when it
///   unlocks.
/// - unlock() by a thread that does not itself hold the lock is refused, also where another thread
///   reads: it would take that one's lock away.
/// - The flag of setUpdate() belongs to the lock, not to the thread. Who sets it before taking the
///   lock, as ZStackReadWriteLock does, changes it for a writer that is still inside.
/// - The child of a fork holds nothing: its object is unset, whatever the parent has locked, and
///   the parent keeps its lock. A guard whose scope the child leaves does nothing there.
/// - A thread must not end while it holds a lock. Nobody finds out about dead-locks.
#ifndef Z_ZPROCESSLOCK_H
#define Z_ZPROCESSLOCK_H

#include "Z/ztags.h"

#include <atomic>

#include "Z/ZLCString.h"
#include "Z/ZObserve.h"
#include "Z/ZReadWriteLock.h"
#include "Z/zexport.h"

namespace zfc::process_locks {
class Read;
class Register;
struct Record;
}  // namespace zfc::process_locks

/// What the observers of a process lock are told: the number that the shared data has now, and the
/// one that the process's own copy was current with.
class ZFC_API ZSequenceUpdate : public ZObservedParm {
  public:
    /// Both numbers are ZAbstractProcessReadWriteLock::invalidSequence.
    ZSequenceUpdate();
    /// Of both numbers the lower 32 bits count.
    ZSequenceUpdate(unsigned long sequence, unsigned long lastSequence);

    // in slot order: do not sort
    ~ZSequenceUpdate() override;
    /// The difference of the two records' numbers, or, where these are equal, of their last
    /// numbers: taken in 32 bits and read as signed, so that a number counts as later than one up
    /// to 2^31 - 1 before it, across the wrap as well. Other objects are compared by address.
    [[nodiscard]] int compare(ZObject const& other) const override;
    [[nodiscard]] ZObject* clone() const override;
    /// The number of the shared data.
    [[nodiscard]] virtual unsigned long getSequence() const;
    /// The number that the process's data is current with.
    [[nodiscard]] virtual unsigned long getLastSequence() const;

  private:
    unsigned int sequence;      // of the shared data now
    unsigned int lastSequence;  // of the process's own copy
};

/// Base of the process locks; see the tables above. Operations may be called from any thread.
///
/// Taking the lock waits without a limit, but for the operations whose names say otherwise. Besides
/// what the tables say it throws what the lock's kind throws; whatever it throws, also when an
/// observer does or the waiting thread is cancelled, the lock is as if it had not been asked for.
/// What cannot be given back then is reported, and stays the thread's until it calls unlock().
class ZFC_API ZAbstractProcessReadWriteLock : public ZAbstractReadWriteLock {
  public:
    /// Never the number of shared data: the number of an object that never held its lock.
    static constexpr unsigned int invalidSequence = 0xFFFFFFFF;

    /// A lock that is not held. `name` is copied; null is the empty name. Throws
    /// ZInvalidParameterException (message 22) for ".", ".." and a name with "/".
    explicit ZAbstractProcessReadWriteLock(char const* name);
    /// A lock of the same name that is not held and was never current.
    ZAbstractProcessReadWriteLock(ZAbstractProcessReadWriteLock const& other);
    ZAbstractProcessReadWriteLock& operator=(ZAbstractProcessReadWriteLock const&) = delete;

    using ZAbstractReadWriteLock::lock;
    using ZAbstractReadWriteLock::unlock;

    // in slot order: do not sort
    /// Nobody may hold the lock or wait for it.
    ~ZAbstractProcessReadWriteLock() override;
    /// Whether getLastSequence() is getSequence().
    [[nodiscard]] int isCurrent() const override;
    /// sync(bump), then the calling thread's hold ends. Waits for no other holder and is no
    /// cancellation point. Throws ZUnlockResourceException (message 6, rc 0) when the calling
    /// thread holds nothing, which changes nothing. When the number cannot be written, the lock is
    /// released all the same, and then that is thrown. ZLockResourceException (message 5) with the
    /// system's code tells that a lock inside this one failed: the thread still counts as holder,
    /// and has to call unlock() again.
    void unlock(int bump) override;
    /// Whether getLockState() is `state`.
    [[nodiscard]] bool haveLock(zlockstate state) const override;
    /// Whether the object holds write; asked by holders.
    [[nodiscard]] bool ownWriteLock() const override;
    /// Whether unlock() will advance the number: 1 from when write or protect was taken on, else 0.
    [[nodiscard]] int getUpdate() const override;
    void setUpdate(int newUpdate) override;
    /// As lock() with zlockRead, with zlockWrite, with zlockProtect.
    void readLock() override;
    /// As lock() with zlockWrite.
    void writeLock() override;
    /// As lock() with zlockProtect, which is write here.
    void readWithIntentToWriteLock() override;
    /// Does nothing: protect is write already.
    void promoteReadToWriteLock() override;
    /// The state of this object: zlockUnset, zlockRead or zlockWrite.
    [[nodiscard]] virtual zlockstate getLockState() const;
    /// The lock's name; lives until the lock gets another one.
    [[nodiscard]] virtual ZLCString const& getLockName() const;
    /// Renames a lock that is held, after releasing it as unlock() does and with what that throws.
    /// An idle lock keeps its name. The lock's file stays the same. Throws as the constructor, and
    /// then keeps lock and name.
    virtual void setLockName(ZLCString& name);
    /// The reads inside, of this process.
    [[nodiscard]] virtual int getReaderCount();
    /// The number last read or written under the lock; 0 before.
    [[nodiscard]] virtual unsigned long getSequence() const;
    /// Advances the number, from 0xFFFFFFFE to 0, and returns it.
    virtual unsigned long incSequence();
    /// The number that this process's data is current with.
    [[nodiscard]] virtual unsigned long getLastSequence() const;
    /// Says that this process's data is current with `number`, or with getSequence().
    virtual void setLastSequence(unsigned long number);
    virtual void setLastSequence();
    /// With write held and `bump` not 0, incSequence(). Then, with any lock held,
    /// setLastSequence().
    virtual void sync(int bump);

    /// As lock(), waiting `milliseconds` at most: false when the time is up, and then nothing is
    /// held that was not before. Zero and less do not wait. Other processes' record locks are asked
    /// for again and again, after 1 ms at first and 50 ms at last, because the system has no timed
    /// wait for them; among such waiters there is no order. Telling the observers is not limited.
    /// A signal ends the wait as it ends one without a limit: if its handler does not restart
    /// calls. Throws ZInvalidParameterException (message 22) for a state that is not a mode.
    [[nodiscard]] bool lockFor(zlockstate requested, long milliseconds);
    /// As lockFor(), but without waiting for holders: what is held for the moment in which others
    /// take the lock or give it back is waited for, some milliseconds. A read is refused only when
    /// somebody writes or waits for that.
    [[nodiscard]] bool tryLock(zlockstate requested) { return lockFor(requested, 0); }
    /// As tryLock() with zlockRead.
    [[nodiscard]] bool tryReadLock() { return tryLock(zlockRead); }
    /// As tryLock() with zlockWrite.
    [[nodiscard]] bool tryWriteLock() { return tryLock(zlockWrite); }

    /// Writing and reading by the names of ISO C++: the lock is a SharedLockable for
    /// `std::shared_lock`, `std::unique_lock` and `std::scoped_lock`. Each throws as the operation
    /// that it stands for.
    [[nodiscard]] bool try_lock() { return tryWriteLock(); }
    void lock_shared() { readLock(); }
    [[nodiscard]] bool try_lock_shared() { return tryReadLock(); }
    void unlock_shared() { unlock(); }

  protected:
    class InProcess;  // the in-process part of a hold

    /// The number after `number`; the one that is never valid is left out.
    [[nodiscard]] static unsigned int sequenceAfter(unsigned int number);
    /// Whether the calling thread holds the lock.
    [[nodiscard]] bool isHolder() const;
    /// What the register keeps of this lock. Throws ZUnlockResourceException (message 6, rc 0) when
    /// the calling thread holds nothing.
    zfc::process_locks::Record& requireHolder() const;
    /// Ends the calling thread's hold of rwLock, which was noted as `read`; null for a write.
    void leaveProcess(zfc::process_locks::Read* read);

    // Atomic, because they are asked for without a lock; they change under the file lock's own
    // lock, or under the register's for a stub.
    std::atomic<zlockstate> lockState{zlockUnset};            // row of the first table
    ZLCString lockName;                                       // never changes while others use it
    std::atomic<unsigned int> sequence{0};                    // of the shared data, when last seen
    std::atomic<unsigned int> lastSequence{invalidSequence};  // of this process's data
    std::atomic<int> update{0};     // 1: the holder's unlock() advances the number
    mutable ZReadWriteLock rwLock;  // orders the threads of this process; taken first

  private:
    friend class zfc::process_locks::Register;

    bool forgetParent() noexcept;
};

/// Holds write for its scope, in which shared data is changed: the number is advanced before
/// anything can be, so that a change is told to the others also when its writer is killed.
class ZFC_API ZStackWriteLock : public ZObject {
  public:
    /// Takes write and calls incSequence(); throws what these throw, with nothing held. `l` is not
    /// owned and must outlive the object. Observers are told before, as with any lock().
    [[nodiscard]] explicit ZStackWriteLock(ZAbstractProcessReadWriteLock& l);
    ZStackWriteLock(ZStackWriteLock const&) = delete;
    ZStackWriteLock& operator=(ZStackWriteLock const&) = delete;
    /// Calls `unlock(0)`, since the number is advanced already; what that throws is reported, not
    /// thrown.
    ~ZStackWriteLock() override;

  private:
    ZAbstractProcessReadWriteLock& processLock;
};

/// A process lock without a file: it holds off the other threads of its process, on this object,
/// alone. Its state is protect, not write, when that was asked for.
class ZFC_API ZStubProcessReadWriteLock : public ZAbstractProcessReadWriteLock {
  public:
    /// A lock that is not held. Throws as ZAbstractProcessReadWriteLock().
    explicit ZStubProcessReadWriteLock(char const* name);
    /// A lock of the same name that is not held.
    ZStubProcessReadWriteLock(ZStubProcessReadWriteLock const& other);

    using ZAbstractProcessReadWriteLock::lock;

    // in slot order: do not sort
    ~ZStubProcessReadWriteLock() override;
    /// A lock of the same name that is not held.
    [[nodiscard]] ZObject* clone() const override;
    /// As writeLock().
    void lock() override;
    /// Takes the lock in a mode; zlockUnset ends the calling thread's hold. Throws
    /// ZInvalidParameterException (message 22) for a number that is no state.
    void lock(zlockstate requested) override;

  private:
    void release();
};

#endif
