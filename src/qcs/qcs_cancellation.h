/// A scope in which the calling thread is not cancelled.
#ifndef QCS_QCS_CANCELLATION_H
#define QCS_QCS_CANCELLATION_H

#include <pthread.h>

namespace qcs {

/// For functions that let no exception out: cancelling a thread unwinds it as an exception does,
/// and ends the process where that is caught and dropped. Reading aliases and making codesets is
/// full of cancellation points, and none of it waits long.
class CancellationOff {
  public:
    CancellationOff() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before); }
    ~CancellationOff() {
        int ignored = 0;
        pthread_setcancelstate(before, &ignored);
    }
    CancellationOff(CancellationOff const&) = delete;
    CancellationOff& operator=(CancellationOff const&) = delete;

  private:
    int before = PTHREAD_CANCEL_ENABLE;  // the state to go back to
};

}  // namespace qcs

#endif
