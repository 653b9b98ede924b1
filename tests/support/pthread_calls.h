/// The calls of the system that locks and threads of the library make: a test can count their
/// waits and let them fail. For the one source of a program whose "// wrap:" lines name them all.
#ifndef ZFC_TESTS_SUPPORT_PTHREAD_CALLS_H
#define ZFC_TESTS_SUPPORT_PTHREAD_CALLS_H

#include <pthread.h>

#include <atomic>
#include <ctime>
#include <functional>
#include <string_view>
#include <thread>
#include <utility>

#include "support/faults.h"

namespace testsupport {

inline std::atomic<int> waitsBegun{0};        // and joins; noted before they give anything up
inline std::atomic<int> attributesLeft{0};    // made, or not for a failure, and not destroyed
inline thread_local timespec lastDeadline{};  // of the calling thread's last timed wait
inline thread_local clockid_t lastClock{};    // and the clock it goes by
inline thread_local std::function<void()> beforeCreate;

inline thread_local bool failsHere = false;
inline std::atomic<bool> failsEverywhere{false};

/// Keeps `fault` for the calling thread; no mutex, since locking one is among the calls that fail.
class FaultInUse {
  public:
    FaultInUse() {
        while (isTaken.test_and_set())
            std::this_thread::yield();
    }
    ~FaultInUse() { isTaken.clear(); }
    FaultInUse(FaultInUse const&) = delete;
    FaultInUse& operator=(FaultInUse const&) = delete;

  private:
    static inline std::atomic_flag isTaken = ATOMIC_FLAG_INIT;
};

/// While it lives, calls fail as planned: those of the thread that made it, or of all.
class Failing {
  public:
    explicit Failing(Fault const& planned, bool everywhere = false) {
        FaultInUse const mine;
        fault = planned;
        failsHere = true;
        failsEverywhere = everywhere;
    }
    /// A thread that nobody joins may be in a call still: afterwards none touches `fault`.
    ~Failing() {
        FaultInUse const mine;
        failsHere = failsEverywhere = false;
    }
    Failing(Failing const&) = delete;
    Failing& operator=(Failing const&) = delete;
};

/// What a call is to return instead of running; 0: it runs.
inline int codeOf(std::string_view function) {
    if (!failsHere && !failsEverywhere) return 0;
    FaultInUse const mine;
    if (!failsHere && !failsEverywhere) return 0;  // over while this call waited
    // Once only: a mutex that can never be unlocked is nobody's again, whatever the library does.
    bool const again = function == "pthread_mutex_unlock" && fault.seen >= fault.first;
    return !again && fault.strikes(function) ? fault.error : 0;
}

}  // namespace testsupport

#define PTHREAD_CALL(function, parameters, arguments, ...) \
    extern "C" decltype(function) __real_##function;       \
    extern "C" int __wrap_##function parameters {          \
        using namespace testsupport;                       \
        __VA_ARGS__;                                       \
        int const rc = codeOf(#function);                  \
        return rc != 0 ? rc : __real_##function arguments; \
    }
PTHREAD_CALL(pthread_mutex_init, (pthread_mutex_t * m, pthread_mutexattr_t const* a), (m, a), )
PTHREAD_CALL(pthread_mutex_destroy, (pthread_mutex_t * m), (m), )
PTHREAD_CALL(pthread_mutex_lock, (pthread_mutex_t * m), (m), )
PTHREAD_CALL(pthread_mutex_trylock, (pthread_mutex_t * m), (m), )
PTHREAD_CALL(pthread_mutex_unlock, (pthread_mutex_t * m), (m), )
PTHREAD_CALL(pthread_cond_init, (pthread_cond_t * c, pthread_condattr_t const* a), (c, a), )
PTHREAD_CALL(pthread_cond_destroy, (pthread_cond_t * c), (c), )
PTHREAD_CALL(pthread_cond_signal, (pthread_cond_t * c), (c), )
PTHREAD_CALL(pthread_cond_broadcast, (pthread_cond_t * c), (c), )
PTHREAD_CALL(pthread_cond_wait, (pthread_cond_t * c, pthread_mutex_t* m), (c, m), ++waitsBegun)
PTHREAD_CALL(pthread_cond_clockwait,
             (pthread_cond_t * c, pthread_mutex_t* m, clockid_t k, timespec const* t), (c, m, k, t),
             ++waitsBegun, lastDeadline = *t, lastClock = k)
PTHREAD_CALL(pthread_create, (pthread_t * t, pthread_attr_t const* a, void* (*f)(void*), void* x),
             (t, a, f, x), if (beforeCreate) std::exchange(beforeCreate, nullptr)())
PTHREAD_CALL(pthread_join, (pthread_t t, void** r), (t, r), ++waitsBegun)
PTHREAD_CALL(pthread_attr_init, (pthread_attr_t * a), (a), ++attributesLeft)
PTHREAD_CALL(pthread_attr_destroy, (pthread_attr_t * a), (a), --attributesLeft)
PTHREAD_CALL(pthread_attr_setdetachstate, (pthread_attr_t * a, int s), (a, s), )
PTHREAD_CALL(pthread_key_create, (pthread_key_t * k, void (*f)(void*)), (k, f), )
PTHREAD_CALL(pthread_setspecific, (pthread_key_t k, void const* v), (k, v), )
#undef PTHREAD_CALL

#endif
