/// Ends of timed waits.
#ifndef Z_THREADS_DEADLINE_H
#define Z_THREADS_DEADLINE_H

#include <ctime>
#include <limits>

/// How conditions are told to wait without a limit.
constexpr timespec znoDeadline{0, 0};

inline bool zisNoDeadline(timespec const& deadline) {
    return deadline.tv_sec == znoDeadline.tv_sec && deadline.tv_nsec == znoDeadline.tv_nsec;
}

/// The monotonic clock's time in `seconds`. Never znoDeadline: a time before the clock's begin has
/// passed.
inline timespec zdeadlineInSeconds(long seconds) {
    constexpr timespec first{0, 1};
    timespec deadline{};
    // The exact time: whole seconds would end up to one of them too early.
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    if (__builtin_add_overflow(deadline.tv_sec, seconds, &deadline.tv_sec))
        return seconds < 0 ? first : timespec{std::numeric_limits<time_t>::max(), 0};
    return deadline.tv_sec < 0 || zisNoDeadline(deadline) ? first : deadline;
}

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
