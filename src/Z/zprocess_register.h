/// All process locks of this process, with what each knows besides its fields: who reads under it,
/// and what a forked child has to let go.
#ifndef Z_ZPROCESS_REGISTER_H
#define Z_ZPROCESS_REGISTER_H

#include "Z/ztags.h"
//
#include <pthread.h>

#include <atomic>
#include <mutex>
#include <vector>

class ZAbstractProcessReadWriteLock;
class ZLock;

namespace zprocess {

/// The threads that read under one lock.
class Readers {
  public:
    /// Notes one more read of the calling thread. Throws ZOutOfMemoryException (message 1).
    void add();
    /// Forgets one read of the calling thread, if there is one.
    void remove() noexcept;
    /// Reads of the calling thread.
    [[nodiscard]] int own() const;

  private:
    friend class Register;

    mutable std::mutex mutex;
    std::vector<pthread_t> threads;  // one entry for each read; guarded by mutex
};

/// What the register keeps of one lock.
struct Record {
    Readers readers;
    std::mutex transition;               // a stub lock's changes of state; nobody waits under it
    int sharing = 0;                     // reads that the file's lock stands for; under fileLock
    ZLock* fileLock = nullptr;           // of a file lock, else null
    std::atomic<int>* handle = nullptr;  // its descriptor; null where there is none
};

/// Enters a lock under construction, and strikes it out. Throws ZOutOfMemoryException (message 1).
void enter(ZAbstractProcessReadWriteLock& lock);
void strike(ZAbstractProcessReadWriteLock& lock) noexcept;

/// The record of a lock that is entered; lives until the lock is struck out.
[[nodiscard]] Record& recordOf(ZAbstractProcessReadWriteLock const& lock);

}  // namespace zprocess

#endif
