/// Shared. A scope in which the calling thread is not cancelled.
#ifndef Z_UTILITY_CANCELLATION_OFF_H
#define Z_UTILITY_CANCELLATION_OFF_H

#include <pthread.h>

/// Keeps the calling thread from being cancelled for its lifetime. Where files are half-written,
/// and where destructors write or close, an unwinding thread would do harm; nothing there waits
/// long.
class ZCancellationOff {
  public:
    ZCancellationOff() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before); }
    ~ZCancellationOff() {
        int ignored = 0;
        pthread_setcancelstate(before, &ignored);
    }
    ZCancellationOff(ZCancellationOff const&) = delete;
    ZCancellationOff& operator=(ZCancellationOff const&) = delete;

  private:
    int before = PTHREAD_CANCEL_ENABLE;  // the state to go back to
};

#endif
