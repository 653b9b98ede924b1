/// Ends of timed waits.
#ifndef Z_THREADS_DEADLINE_H
#define Z_THREADS_DEADLINE_H

#include <ctime>
#include <limits>

/// The time of `clock` in `milliseconds` (0 or more); the last one there is when it would be later.
inline timespec zdeadlineIn(clockid_t clock, long milliseconds) {
    constexpr long millisecondsPerSecond = 1000;
    constexpr long nanosecondsPerMillisecond = 1000000;
    constexpr long nanosecondsPerSecond = 1000000000;
    timespec deadline{};
    clock_gettime(clock, &deadline);
    deadline.tv_nsec += milliseconds % millisecondsPerSecond * nanosecondsPerMillisecond;
    time_t seconds = milliseconds / millisecondsPerSecond;
    if (deadline.tv_nsec >= nanosecondsPerSecond) {
        deadline.tv_nsec -= nanosecondsPerSecond;
        ++seconds;
    }
    if (__builtin_add_overflow(deadline.tv_sec, seconds, &deadline.tv_sec))
        deadline.tv_sec = std::numeric_limits<time_t>::max();
    return deadline;
}

#endif
