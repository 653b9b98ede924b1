/// What the tests of locks and threads ask and expect.
#ifndef ZFC_TESTS_SUPPORT_LOCKS_H
#define ZFC_TESTS_SUPPORT_LOCKS_H

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/reports.h"
#include "support/threads.h"

#if defined(__clang__)
// The tests hold locks at several depths, from several threads, and misuse them on purpose.
#pragma clang diagnostic ignored "-Wthread-safety-analysis"
#endif

namespace testsupport {

constexpr long longEnough = 60000;  // milliseconds; reached only by a test that fails

inline Report const nothing{"", 0, {}};
inline Report const lockRefused{"ZLockResourceException", 5, {"0"}};
inline Report const unlockRefused{"ZUnlockResourceException", 6, {"0"}};
inline Report const invalidParameter{"ZInvalidParameterException", 22, {}};
inline Report const unknownInThread{"src/Z/ZThread", 19, {}};  // reported

/// Whether another thread can have the lock now.
template <class Lock>
[[nodiscard]] bool isFree(Lock& lock) {
    return onThread([&] {
        bool const taken = lock.try_lock();
        if (taken) lock.unlock();
        return taken;
    });
}

/// The calling thread's depth; the lock is free afterwards.
template <class Lock>
[[nodiscard]] int unwind(Lock& lock) {
    int depth = 0;
    while (thrownBy([&] { lock.unlock(); }) == nothing)
        ++depth;
    return depth;
}

/// Ends the process when a test hangs.
class Watchdog : public testing::Environment {
  public:
    void SetUp() override { alarm(100); }
    void TearDown() override { alarm(0); }
};
inline auto* const watchdog = testing::AddGlobalTestEnvironment(new Watchdog);

}  // namespace testsupport

#endif
