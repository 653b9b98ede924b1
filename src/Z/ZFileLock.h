/// Process locks that reach across processes through a lock file. ZProcessLock.h says how they look
/// to the threads of one process; this is how they look in the file.
///
/// The file of the lock NAME is "._zplNAME" in the lock directory:
///
///     bytes | content, in host byte order                | record lock on them
///     ------+--------------------------------------------+---------------------------------------
///     0-3   | sequence number; an empty file has 0       | data: shared by readers, exclusive for
///           |                                            | a writer
///     4-7   | pid of the last process to take the gate,  | gate: always exclusive
///           | or, with a limit, to take the lock         |
///
/// What an object holds in the file, by its state:
///
///     state | data      | gate                      | descriptor
///     ------+-----------+---------------------------+-----------
///     unset | -         | -                         | closed
///     read  | shared    | only while taking the data | open
///     write | exclusive | exclusive                 | open
///
/// Everybody passes the gate first, in the order of the system's queue. A writer keeps it while it
/// waits for the readers in front of it, so that no new reader overtakes it, and until it leaves.
///
/// The record locks are of the open-file-description kind (fcntl(2), F_OFD_SETLKW), which hold off
/// classic ones and the other way round: two objects of one name exclude each other in one process
/// as in two, and a lock is not lost when somebody closes the file elsewhere in the process. Where
/// the system has no such kind the classic one serves, without these two properties.
///
/// What may surprise:
/// - A lock file that somebody planted, anything but a regular file with one link, is not opened:
///   the request fails with EBADF (message 33), as for every file that cannot be opened.
/// - A lock file that is removed or replaced while it is not locked is made anew by the next
///   request. While it is locked that takes the lock apart: do not.
/// - Different processes never notice a dead-lock between them.
/// - Waiting for other processes is interrupted by a signal whose handler does not restart calls:
///   ZLockResourceException (message 33) with EINTR, nothing held.
#ifndef Z_ZFILELOCK_H
#define Z_ZFILELOCK_H

#include "Z/ztags.h"

#include <sys/types.h>

#include <atomic>

#include "Z/ZLCString.h"
#include "Z/ZLock.h"
#include "Z/ZProcessLock.h"
#include "Z/zexport.h"

/// The protocol on the lock file, over a few operations that its kinds provide.
///
/// Unless they say otherwise, operations are called with the lock as they need it by this class
/// alone; they are open to kinds of their own. `start`, `offset` and `length` count bytes.
class ZFC_API ZAbstractProcessReadWriteFileLock : public ZAbstractProcessReadWriteLock {
  public:
    /// The lock `name` in `directory`. Throws as setLockDirName(). Opens nothing.
    ZAbstractProcessReadWriteFileLock(char const* name, char const* directory);
    /// The lock `name` in the working directory, which is not looked at. Opens nothing.
    explicit ZAbstractProcessReadWriteFileLock(char const* name);
    /// A lock of the same name and directory that is not held.
    ZAbstractProcessReadWriteFileLock(ZAbstractProcessReadWriteFileLock const& other);
    ZAbstractProcessReadWriteFileLock& operator=(ZAbstractProcessReadWriteFileLock const&) = delete;

    using ZAbstractProcessReadWriteLock::lock;
    using ZAbstractProcessReadWriteLock::setLastSequence;

    // in slot order: do not sort
    ~ZAbstractProcessReadWriteFileLock() override;
    /// Takes the lock in a mode and tells observers, as the tables say; zlockUnset ends the calling
    /// thread's hold, without looking at the sequence number. Waits for other holders.
    ///
    /// Throws ZLockResourceException (message 33) with the code of fcntl(2), EBADF for a file that
    /// could not be opened, ZReadResourceException (message 35) and ZWriteResourceException
    /// (message 33) with the code of what failed on the file, ZLockResourceException (message 5)
    /// when a lock inside this one fails, ZInvalidParameterException (message 22) for a number that
    /// is no state, and what an observer throws.
    void lock(zlockstate requested) override;
    /// Writes the next number to the file. Throws ZInvalidResourceStateException (message 32) when
    /// write is not held, else as writeSequenceNumber().
    unsigned long incSequence() override;
    /// The directory of the lock file.
    [[nodiscard]] virtual ZLCString const& getLockDirName() const;
    /// Moves the lock to another directory, null for the empty name. Called while no other thread
    /// uses the lock. Throws ZInvalidParameterException (message 22) unless `directory` is one,
    /// with write and search permission for its owner, ZInvalidResourceStateException (message 32)
    /// while the lock is held.
    virtual void setLockDirName(char const* directory);
    /// The path of the lock file.
    [[nodiscard]] virtual ZLCString const& getLockFileName() const;
    /// Takes gate and data for reading or, for the other modes, writing, and leaves a pid. Throws
    /// as lockFileRange() and writeBytes(); then neither is held.
    virtual void lockFile(zlockstate mode);
    /// Releases data and, with write held, the gate. Both are tried; throws what the first failure
    /// was.
    virtual void unlockFile();
    /// lock() without a word to the observers.
    virtual void dolock(zlockstate requested);
    /// Makes the path of the lock file from the directory and `name`.
    virtual void setLockFileName(char const* name);
    /// Changes the record lock on a range to that for a state, waiting for other holders. Throws
    /// ZLockResourceException (message 33) or, for zlockUnset, ZUnlockResourceException (message
    /// 34) with the system's code, ZInvalidResourceStateException (message 32) for a number that is
    /// no state.
    virtual void lockFileRange(zlockstate mode, unsigned int start, unsigned int length) = 0;
    /// As lockFileRange() with zlockUnset: gives the range up.
    virtual void unlockFileRange(unsigned int start, unsigned int length) = 0;
    /// Reads the file's number to `*number`, which keeps its value when the file is empty. Throws
    /// as readBytes().
    virtual void readSequenceNumber(unsigned long* number);
    /// Writes the lower 32 bits. Throws as writeBytes().
    virtual void writeSequenceNumber(unsigned long number);
    /// Writes this process's id behind the number. Throws as writeBytes().
    virtual void writePid();
    /// Makes sure that the open file has these bytes. Throws ZWriteResourceException (message 33),
    /// with getSequence() 0.
    virtual void writeBytes(void* buffer, unsigned int offset, unsigned int length) = 0;
    /// Reads from the open file; nothing from an empty one. Throws ZReadResourceException (message
    /// 35), with rc -1 when the file ends too early.
    virtual void readBytes(void* buffer, unsigned int offset, unsigned int length) = 0;

  private:
    class Hold;  // the whole lock taken, and given back unless it is kept

    void enter();
    void acquire(zlockstate requested);
    void release();
    void takeFileLock() ZACQUIRE(fileLock);
    void takeFile(zlockstate mode);
    [[nodiscard]] bool mustTell() const;
    void notifyLockObservers();

    ZLCString lockDirName;   // empty: the working directory
    ZLCString lockFileName;  // the path; never empty
    ZLock fileLock;          // over the changes of lockState and the file; taken after rwLock
};

/// The lock on a POSIX file.
class ZFC_API ZUnixProcessReadWriteFileLock : public ZAbstractProcessReadWriteFileLock {
  public:
    /// As the base's.
    ZUnixProcessReadWriteFileLock(char const* name, char const* directory);
    explicit ZUnixProcessReadWriteFileLock(char const* name);
    /// As the base's.
    ZUnixProcessReadWriteFileLock(ZUnixProcessReadWriteFileLock const& other);

    // in slot order: do not sort
    /// Closes the file if it is open, and with it gives up what it holds there.
    ~ZUnixProcessReadWriteFileLock() override;
    [[nodiscard]] ZObject* clone() const override;
    /// Closes the file as well.
    void unlockFile() override;
    /// Opens the file if it is not open. Once the gate is taken, a file that is no longer the one
    /// of its path is given up for that.
    void lockFileRange(zlockstate mode, unsigned int start, unsigned int length) override;
    void unlockFileRange(unsigned int start, unsigned int length) override;
    void writeBytes(void* buffer, unsigned int offset, unsigned int length) override;
    void readBytes(void* buffer, unsigned int offset, unsigned int length) override;

    /// Opens the lock file, for its owner to read and write when it is new, unless it is open. A
    /// failure shows in getFileHandle() alone. The descriptor is closed on exec and never 0, 1, 2.
    void createLockFile();
    /// Closes the lock file if it is open.
    void closeLockFile();
    /// Why createLockFile() opened nothing when it was last called: an `errno`, or -1 for a planted
    /// file, of which requests tell EBADF alike; 0 when it did.
    [[nodiscard]] int lockFileError() const;
    /// The permissions that this object gives a lock file which it makes, exactly, whatever the
    /// umask; by default the owner may read and write, within the umask. Whoever takes the lock,
    /// for reading too, needs both. Throws ZInvalidParameterException (message 22) for bits that
    /// are no permissions of user, group and others. A copy has the same.
    void setLockFileMode(mode_t mode);
    /// The descriptor of the lock file, which stays the object's own; -1 when it is closed.
    [[nodiscard]] int getFileHandle() const { return fileHandle; }

    /// What a lock file tells somebody who does not wait for it.
    struct FileStatus {
        unsigned long sequence;  ///< the number; 0 for a missing or empty file
        int holderPid;           ///< last to take the gate, maybe long gone; 0 when nobody did
        zlockstate state;        ///< how somebody, also another object of this process, holds it
    };
    /// Looks at the lock file without taking the lock or waiting. Throws ZReadResourceException
    /// (message 35) with the system's code, -1 for a file that is cut off or not a regular one.
    [[nodiscard]] FileStatus fileStatus() const;
    /// The holderPid of fileStatus().
    [[nodiscard]] int holderPid() const { return fileStatus().holderPid; }

  private:
    [[nodiscard]] bool isReplaced() const;
    [[nodiscard]] int requestRange(zlockstate mode, unsigned int start, unsigned int length);

    std::atomic<int> fileHandle{-1};  // the open lock file; -1 when closed; changes under fileLock
};

/// The same protocol without a file: nothing holds other processes off, and the number is kept in
/// memory.
class ZFC_API ZStubProcessReadWriteFileLock : public ZAbstractProcessReadWriteFileLock {
  public:
    /// As the base's.
    ZStubProcessReadWriteFileLock(char const* name, char const* directory);
    explicit ZStubProcessReadWriteFileLock(char const* name);
    /// The copy starts with the number of `other`.
    ZStubProcessReadWriteFileLock(ZStubProcessReadWriteFileLock const& other);

    // in slot order: do not sort
    ~ZStubProcessReadWriteFileLock() override;
    [[nodiscard]] ZObject* clone() const override;
    // These six do nothing.
    void lockFile(zlockstate mode) override;
    void unlockFile() override;
    void lockFileRange(zlockstate mode, unsigned int start, unsigned int length) override;
    void unlockFileRange(unsigned int start, unsigned int length) override;
    void writeBytes(void* buffer, unsigned int offset, unsigned int length) override;
    void readBytes(void* buffer, unsigned int offset, unsigned int length) override;
    /// Does nothing for null.
    void readSequenceNumber(unsigned long* number) override;
    void writeSequenceNumber(unsigned long number) override;

  private:
    std::atomic<unsigned int> stubSequence{0};  // in place of the file's number
};

#endif
