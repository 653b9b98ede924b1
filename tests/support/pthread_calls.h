/// The system's calls of the library, on their way from it: a test can wait for them and let them
/// fail. For the one source of a program whose "// wrap:" lines name all the functions below.
#ifndef ZFC_TESTS_SUPPORT_PTHREAD_CALLS_H
#define ZFC_TESTS_SUPPORT_PTHREAD_CALLS_H

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <ctime>
#include <functional>
#include <string_view>
#include <utility>

#include "support/threads.h"

namespace testsupport {

enum class Repeat { once, fromThereOn };

/// Which calls fail. Calls of the test's own, which use the same functions, are kept out of it.
struct Faults {
    std::atomic<bool> everywhere{false};  // calls of all threads count, else of the armed ones
    std::atomic<bool> armed{false};
    std::atomic<int> calls{0};
    std::atomic<int> failing{0};  // number of the first call that fails
    std::atomic<Repeat> repeat{Repeat::once};
};

/// What the calling thread's next call of one function returns instead of running; rc 0: it runs.
struct Planted {
    std::string_view function;
    int rc = 0;
};

inline Faults faults;
inline thread_local Planted planted;
inline thread_local timespec lastDeadline{};  // of the calling thread's last timed wait
inline thread_local std::function<void()> beforeCreate;
inline thread_local bool armedHere = false;
inline thread_local int spared = 0;  // depth of what the test itself does
// Waits and joins of the library are noted before they give anything up.
inline std::atomic<int> waitsBegun{0};
inline std::atomic<Gate*> openedByWait{nullptr};

/// What a call is to return instead of running; 0: it runs.
inline int fault(std::string_view function) {
    if (planted.function == function && planted.rc != 0) return std::exchange(planted.rc, 0);
    if (spared > 0 || !faults.armed || !(armedHere || faults.everywhere)) return 0;
    int const call = ++faults.calls;
    // Once only: a mutex that can never be unlocked is nobody's again, whatever the library does.
    bool const again = call > faults.failing && faults.repeat == Repeat::fromThereOn &&
                       function != "pthread_mutex_unlock";
    return call == faults.failing || again ? EINVAL : 0;
}

inline void noteWait() {
    ++spared;
    ++waitsBegun;
    if (Gate* const gate = openedByWait) gate->open();
    --spared;
}

#define WRAP(function, parameters, arguments, ...)         \
    extern "C" decltype(function) __real_##function;       \
    extern "C" int __wrap_##function parameters {          \
        __VA_ARGS__;                                       \
        int const rc = fault(#function);                   \
        return rc != 0 ? rc : __real_##function arguments; \
    }
WRAP(pthread_mutex_init, (pthread_mutex_t * m, pthread_mutexattr_t const* a), (m, a), )
WRAP(pthread_mutex_destroy, (pthread_mutex_t * m), (m), )
WRAP(pthread_mutex_lock, (pthread_mutex_t * m), (m), )
WRAP(pthread_mutex_trylock, (pthread_mutex_t * m), (m), )
WRAP(pthread_mutex_unlock, (pthread_mutex_t * m), (m), )
WRAP(pthread_cond_init, (pthread_cond_t * c, pthread_condattr_t const* a), (c, a), )
WRAP(pthread_cond_destroy, (pthread_cond_t * c), (c), )
WRAP(pthread_cond_signal, (pthread_cond_t * c), (c), )
WRAP(pthread_cond_broadcast, (pthread_cond_t * c), (c), )
WRAP(pthread_cond_wait, (pthread_cond_t * c, pthread_mutex_t* m), (c, m), noteWait())
WRAP(pthread_cond_timedwait, (pthread_cond_t * c, pthread_mutex_t* m, timespec const* t), (c, m, t),
     noteWait(), lastDeadline = *t)
WRAP(pthread_create, (pthread_t * t, pthread_attr_t const* a, void* (*f)(void*), void* x),
     (t, a, f, x), if (beforeCreate) std::exchange(beforeCreate, nullptr)())
WRAP(pthread_join, (pthread_t t, void** r), (t, r), noteWait())
WRAP(pthread_attr_init, (pthread_attr_t * a), (a), )
WRAP(pthread_attr_destroy, (pthread_attr_t * a), (a), )
WRAP(pthread_attr_setdetachstate, (pthread_attr_t * a, int s), (a, s), )
WRAP(pthread_key_create, (pthread_key_t * k, void (*f)(void*)), (k, f), )
WRAP(pthread_setspecific, (pthread_key_t k, void const* v), (k, v), )
#undef WRAP

}  // namespace testsupport

#endif
