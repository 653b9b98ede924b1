/// Time limits of requests for a process lock.
#ifndef Z_PROCESS_LOCKS_TIME_LIMIT_H
#define Z_PROCESS_LOCKS_TIME_LIMIT_H

#include "Z/ztags.h"

#include <chrono>

class ZAbstractProcessReadWriteLock;

namespace zfc::process_locks {

/// While it lives, requests of the calling thread for one lock, at any depth below, wait no longer
/// than until its end.
///
/// Layout: a limit would be an argument of the operations in between, but these are slots whose
/// signatures are fixed, and which programs override.
class TimeLimit {
  public:
    TimeLimit(ZAbstractProcessReadWriteLock const& limited, long milliseconds);
    ~TimeLimit();
    TimeLimit(TimeLimit const&) = delete;
    TimeLimit& operator=(TimeLimit const&) = delete;

    /// The limit of the calling thread's request for `lock`; null when it waits without one.
    [[nodiscard]] static TimeLimit* of(ZAbstractProcessReadWriteLock const& lock);

    /// Milliseconds to the end, rounded up; 0 at the end and behind it.
    [[nodiscard]] long remaining() const;
    /// The same for what nobody holds longer than for a moment: a request that does not wait gives
    /// that a few milliseconds, or it would be refused beside others that are as short.
    [[nodiscard]] long remainingForMoment() const;
    /// Whether a request gives that up which was refused so many times. On a busy machine the time
    /// alone may pass between two looks, with nobody there any more.
    [[nodiscard]] bool isMomentOver(int refusals) const;
    /// The request failed because its time was up.
    [[nodiscard]] bool wasReached() const { return reached; }
    /// Notes that the time is up; the code of the exception that ends the request.
    [[nodiscard]] int reach();

  private:
    using Clock = std::chrono::steady_clock;

    ZAbstractProcessReadWriteLock const& lock;
    TimeLimit* const outer;  // of the calling thread, for whatever lock; null for none
    Clock::time_point end;
    Clock::time_point momentsEnd;
    int momentsTries;
    bool reached = false;
};

}  // namespace zfc::process_locks

#endif
