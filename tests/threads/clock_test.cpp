// Somebody sets the time of day while every kind of limit, sleep and interval runs. The functions
// that tell it are the program's own here, so that all that is linked finds these.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <functional>
#include <string>

#include "Z/ZReadWriteLock.h"
#include "support/process_lock.h"
#include "support/properties.h"
#include "support/workers.h"

namespace {

constexpr long anHour = 3600;
std::atomic<long> setForward{0};  // seconds, now
std::atomic<long> step{0};        // at each look at the time of day
std::atomic<long> looks{0};

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* now) noexcept {
    static auto* const real =
        reinterpret_cast<decltype(&clock_gettime)>(dlsym(RTLD_NEXT, "clock_gettime"));
    int const rc = real(clock, now);
    if (clock == CLOCK_REALTIME) {
        now->tv_sec += static_cast<time_t>(setForward += step);
        ++looks;
    }
    return rc;
}
extern "C" int gettimeofday(timeval* now, void* /*zone*/) noexcept {
    timespec exact{};
    clock_gettime(CLOCK_REALTIME, &exact);
    *now = {exact.tv_sec, exact.tv_nsec / 1000};
    return 0;
}
extern "C" time_t time(time_t* now) noexcept {
    timespec exact{};
    clock_gettime(CLOCK_REALTIME, &exact);
    if (now != nullptr) *now = exact.tv_sec;
    return exact.tv_sec;
}

namespace {

using namespace testsupport;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

class ClockTest : public WithProcessLock {
  protected:
    ClockTest() {
        writeFile(settingsPath, "[s]\nk = v\n");
        editor = lockWhole(settingsPath, F_OFD_SETLK, F_WRLCK);
        held.lock();
        local.readLock();
        other.writeLock();
    }
    ~ClockTest() override {
        step = setForward = 0;
        other.unlock(0);
        local.unlock();
        held.unlock();
        close(editor);
    }

    /// Runs all of `waits`, each of which ends by its limit alone, at a time.
    void expectAll(milliseconds limit, std::vector<std::function<bool()>> const& waits) {
        Crew crew;
        for (auto const& wait : waits)
            crew.add([&] {
                auto const begin = Clock::now();
                EXPECT_TRUE(wait()) << &wait - waits.data();
                auto const elapsed = Clock::now() - begin;
                EXPECT_GE(elapsed, limit) << &wait - waits.data();
                EXPECT_LT(elapsed, milliseconds(60000)) << &wait - waits.data();
            });
        crew.join();
    }

    ZLock held;
    ZReadWriteLock local;
    ZCondition condition;
    Tally tally;
    std::string const settingsPath = directory.file("settings");
    int editor = -1;  // has them open and locked
};

TEST_F(ClockTest, NoLimitSleepOrIntervalMovesWithTheTimeOfDay) {
    constexpr long second = 1000;
    auto const timedOut = [](auto& waited, auto&&... wait) {
        ZResourceLock const guard(waited);
        int over = 0;
        waited.wait(wait..., over);
        return over == 1;
    };
    std::vector<std::function<bool()>> const waits {
#if !defined(__SANITIZE_THREAD__)
        [&] { return !held.lockFor(second); },  // which takes the time of day there
#endif
            [&] { return !local.lockFor(ZReadWriteLock::zlockWrite, second); },
            [&] { return timedOut(condition, 1L); },
            [&] {
                ZBooleanCondition truth;  // which is true afterwards
                return timedOut(truth, 1L);
            },

            [&] { return !lock.lockFor(writing, second); },
            [&] { return !lock.lockFor(reading, second); },
            [&] {
                Worker sleeper(tally, 1UL);
                Gate worked;
                sleeper.body = [&] { worked.open(); };
                sleeper.start();
                worked.await();
                sleeper.waitForExit();
                return true;
            },
            [&] {
                ZStanzaFileProperties settings(0);
                auto const edit = [](ZStanzaFileProperties&) {};
                return thrownBy([&] {
                           settings.updateFile(edit, second, settingsPath.c_str());
                       }).number == 43;
            },
    };
    for (long const hours : {1, -1}) {
        step = hours * anHour;
        expectAll(milliseconds(second), waits);
    }
    std::chrono::system_clock::now();
    EXPECT_GT(looks, 0) << "the time of day is asked of somebody else";
}

}  // namespace
