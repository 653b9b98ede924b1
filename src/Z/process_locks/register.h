/// All process locks of this process, with what each knows besides its fields: who reads under it,
/// and what a forked child has to let go.
///
/// Layout: all this would stand in the lock object, but on 32 bits its size and the places of its
/// fields are part of the interface, and programs derive from it. So a lock has a record here,
/// found by its address. The register would be needed anyway: the child of a fork has to find every
/// lock.
#ifndef Z_PROCESS_LOCKS_REGISTER_H
#define Z_PROCESS_LOCKS_REGISTER_H

#include "Z/ztags.h"

#include <pthread.h>

#include <atomic>

#include "Z/ZLock.h"
#include "Z/platform/locked_file.h"
#include "Z/process_locks/lock_file.h"

class ZAbstractProcessReadWriteLock;

namespace zfc::process_locks {

/// A read of one thread under a lock.
class Read {
  public:
    /// The read is over; also where nothing may fail.
    void end() noexcept { thread.store(nobody, std::memory_order_relaxed); }

    /// Whether the file's lock stands for it. Changes under fileLock; false when the read is over.
    bool sharesFile = false;

  private:
    friend class Readers;
    static constexpr pthread_t nobody = static_cast<pthread_t>(-1);

    Read(pthread_t reader, Read* behind) : thread(reader), next(behind) {}

    // Relaxed: a thread finds its own id only where it wrote it itself, and any other value says no
    // more than "not mine".
    std::atomic<pthread_t> thread;  // nobody: over, and free for the next
    Read* next;                     // null: the last; unchanged once the list has the read
};

/// The reads under one lock: a list that only grows, to the most there ever were at a time. It has
/// no lock of its own, so noting the end of a read cannot fail.
class Readers {
  public:
    Readers() = default;
    ~Readers();
    Readers(Readers const&) = delete;
    Readers& operator=(Readers const&) = delete;

    /// Notes one more read of the calling thread. Throws ZOutOfMemoryException (message 1).
    [[nodiscard]] Read& add();
    /// A read of the calling thread; null when it has none.
    [[nodiscard]] Read* mine() const;
    /// Reads of the calling thread.
    [[nodiscard]] int own() const;
    /// Reads that the file's lock stands for. Called under fileLock.
    [[nodiscard]] int sharing() const;
    /// Ends all reads: of threads that a forked child does not have.
    void forget() noexcept;

  private:
    template <class Counted>
    [[nodiscard]] int count(Counted const& counted) const;
    [[nodiscard]] Read* first() const { return head.load(std::memory_order_acquire); }

    std::atomic<Read*> head{nullptr};
};

/// What the register keeps of one lock.
struct Record {
    Readers readers;
    ZLock transition;                    // a stub lock's changes of state; nobody waits under it
    ZLock* fileLock = nullptr;           // of a file lock, else null
    std::atomic<int>* handle = nullptr;  // its descriptor; null where there is none
    platform::Identity opened;           // the file behind the handle, if that is open
    FileWords words;                     // and what it holds; these two change under fileLock
    std::atomic<int> timer{-1};          // descriptor of a request that waits with a limit
    std::atomic<int> openError{0};       // of the last opening: an errno, -1: not plain, 0: none
    std::atomic<int> fileMode{-1};       // permissions of a new file; -1: the usual ones
    std::atomic<int> waiters{0};         // threads that ask for the file
    std::atomic<bool> isKept{false};     // the lock has ended, and a thread still asks
    int forgotten = 0;  // holds, in the parent, of the thread that forked; guarded by the register
};

/// Registers a lock under construction, and unregisters it. Throws ZOutOfMemoryException (message
/// 1), and as ZLock().
void registerLock(ZAbstractProcessReadWriteLock& lock);
/// The record stays where it is if it is kept.
void unregisterLock(ZAbstractProcessReadWriteLock& lock) noexcept;

/// The record of a registered lock; lives until the lock is unregistered. Throws as
/// ZLock::lock().
[[nodiscard]] Record& recordOf(ZAbstractProcessReadWriteLock const& lock);

}  // namespace zfc::process_locks

#endif
