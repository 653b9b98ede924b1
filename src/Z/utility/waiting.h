/// Shared. Threads that wait for what may be destroyed meanwhile, as when the process exits.
#ifndef Z_UTILITY_WAITING_H
#define Z_UTILITY_WAITING_H

#include <unistd.h>

#include <atomic>

#include "Z/utility/cancellation_off.h"

/// Counts the calling thread among those that wait, for its lifetime.
class ZWaiting {
  public:
    explicit ZWaiting(std::atomic<int>& number) noexcept : waiters(number) { ++waiters; }
    ~ZWaiting() { --waiters; }
    ZWaiting(ZWaiting const&) = delete;
    ZWaiting& operator=(ZWaiting const&) = delete;

  private:
    std::atomic<int>& waiters;
};

/// Does not come back: what was waited for is destroyed, and with it all it could come back to.
[[noreturn]] inline void zstayForever() {
    ZCancellationOff const forEver;  // unwinding would touch what is gone
    for (;;)
        pause();
}

#endif
