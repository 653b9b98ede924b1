/// What process locks undo when a request fails.
#ifndef Z_PROCESS_LOCKS_HOLD_H
#define Z_PROCESS_LOCKS_HOLD_H

#include <exception>

#include "Z/ZException.h"
#include "Z/ZProcessLock.h"
#include "Z/process_locks/register.h"
#include "Z/utility/cancellation_off.h"

namespace zfc::process_locks {

/// Runs steps that must all run, whatever one of them throws. Used where threads are not cancelled.
class AllOf {
  public:
    template <class Step>
    void run(Step const& step) {
        try {
            step();
        } catch (...) {
            if (!first) first = std::current_exception();
        }
    }
    /// Throws what the first of the failed steps threw.
    void finish() const {
        if (first) std::rethrow_exception(first);
    }

  private:
    std::exception_ptr first;
};

/// Takes a step back after a failure: not cancelled, and what it throws is dropped, because it
/// would hide the failure that made it necessary.
template <class Step>
void stepBack(Step const& step) noexcept {
    ZCancellationOff const inDestructors;
    try {
        step();
    } catch (ZException const&) {
        return;
    }
}

/// While it lives, the calling thread ends a hold that it was found to have.
///
/// Layout: what was found out would be an argument, but release() is reached by way of slots whose
/// signatures are fixed.
class Ending {
  public:
    Ending(ZAbstractProcessReadWriteLock const& ended, Record& found);
    ~Ending();
    Ending(Ending const&) = delete;
    Ending& operator=(Ending const&) = delete;

    /// The record of `lock`, once, when the calling thread is ending its hold of it; else null.
    [[nodiscard]] static Record* take(ZAbstractProcessReadWriteLock const& lock) noexcept;

  private:
    ZAbstractProcessReadWriteLock const& lock;
    Record* record;       // null once it is taken
    Ending* const outer;  // of the calling thread, for whatever lock; null for none
};

/// A read of the calling thread, noted from before it is waited for, and over at the end of the
/// scope unless it is kept.
class ReadEntry {
  public:
    /// Notes nothing when `isRead` is false.
    ReadEntry(Readers& readers, bool isRead) : read(isRead ? &readers.add() : nullptr) {}
    ~ReadEntry() {
        if (read != nullptr && !kept) read->end();
    }
    ReadEntry(ReadEntry const&) = delete;
    ReadEntry& operator=(ReadEntry const&) = delete;
    void keep() { kept = true; }
    /// Null for none.
    [[nodiscard]] Read* get() const { return read; }

  private:
    Read* const read;
    bool kept = false;
};

}  // namespace zfc::process_locks

/// The in-process lock taken for reading or writing, and given back at the end of the scope unless
/// it is kept.
class ZAbstractProcessReadWriteLock::InProcess {
  public:
    /// Throws ZInvalidResourceStateException (message 32) when the calling thread reads and asks
    /// for write, which it would wait for for ever, and as ZReadWriteLock::lock().
    InProcess(ZAbstractProcessReadWriteLock& lock, zlockstate mode);
    ~InProcess();
    InProcess(InProcess const&) = delete;
    InProcess& operator=(InProcess const&) = delete;
    void keep() { kept = true; }
    /// Null for a write.
    [[nodiscard]] zfc::process_locks::Read* read() const { return entry.get(); }

    /// The mode that serves a request: protect is taken as write.
    [[nodiscard]] static zlockstate modeFor(zlockstate requested) {
        return requested == zlockProtect ? zlockWrite : requested;
    }

  private:
    InProcess(ZAbstractProcessReadWriteLock& lock, zfc::process_locks::Readers& readers,
              zlockstate mode);
    void take(zlockstate mode);

    ZAbstractProcessReadWriteLock& owner;
    zfc::process_locks::ReadEntry entry;
    int updateBefore = 0;
    bool kept = false;
};

#endif
