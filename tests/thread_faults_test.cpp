// link: static
// wrap: pthread_mutex_init,pthread_mutex_destroy,pthread_mutex_lock,pthread_mutex_unlock
// wrap: pthread_cond_init,pthread_cond_destroy,pthread_cond_wait,pthread_cond_timedwait
// wrap: pthread_cond_signal,pthread_cond_broadcast,pthread_create,pthread_join
// wrap: pthread_attr_init,pthread_attr_destroy,pthread_attr_setdetachstate
//
// What read-write locks, threads and pools do when any of the system's calls fails: the N-th of an
// operation, once or from there on, for every N until the operation runs untouched.
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <optional>
#include <set>
#include <string>

#include "Z/ZReadWriteLock.h"
#include "Z/ZThread.h"
#include "support/reports.h"
#include "support/threads.h"

namespace {

enum class Repeat { once, fromThereOn };

/// Which calls fail. Calls of the test's own, which use the same functions, are kept out of it.
struct Faults {
    std::atomic<bool> everywhere{false};  // calls of all threads count, else of the armed ones
    std::atomic<bool> armed{false};
    std::atomic<int> calls{0};
    std::atomic<int> failing{0};  // number of the first call that fails
    std::atomic<Repeat> repeat{Repeat::once};
} faults;

thread_local bool armedHere = false;
thread_local int spared = 0;  // depth of what the test itself does
std::atomic<void (*)()> beforeWait{nullptr};

/// The calling thread does something for the test.
struct Spared {
    Spared() { ++spared; }
    ~Spared() { --spared; }
};

bool fails(bool mayFailForEver = true) {
    if (spared > 0 || !faults.armed || !(armedHere || faults.everywhere)) return false;
    int const call = ++faults.calls;
    if (call < faults.failing) return false;
    return call == faults.failing || (faults.repeat == Repeat::fromThereOn && mayFailForEver);
}

void noteWait() {
    Spared const own;
    if (auto* const hook = beforeWait.load()) hook();
}

}  // namespace

#define WRAP(function, parameters, arguments)                  \
    extern "C" decltype(function) __real_##function;           \
    extern "C" int __wrap_##function parameters {              \
        return fails() ? EINVAL : __real_##function arguments; \
    }
WRAP(pthread_mutex_init, (pthread_mutex_t * m, pthread_mutexattr_t const* a), (m, a))
WRAP(pthread_mutex_destroy, (pthread_mutex_t * m), (m))
WRAP(pthread_mutex_lock, (pthread_mutex_t * m), (m))
WRAP(pthread_cond_init, (pthread_cond_t * c, pthread_condattr_t const* a), (c, a))
WRAP(pthread_cond_destroy, (pthread_cond_t * c), (c))
WRAP(pthread_cond_signal, (pthread_cond_t * c), (c))
WRAP(pthread_cond_broadcast, (pthread_cond_t * c), (c))
WRAP(pthread_create, (pthread_t * t, pthread_attr_t const* a, void* (*f)(void*), void* x),
     (t, a, f, x))
WRAP(pthread_join, (pthread_t t, void** r), (t, r))
WRAP(pthread_attr_init, (pthread_attr_t * a), (a))
WRAP(pthread_attr_destroy, (pthread_attr_t * a), (a))
WRAP(pthread_attr_setdetachstate, (pthread_attr_t * a, int s), (a, s))

extern "C" {
decltype(pthread_mutex_unlock) __real_pthread_mutex_unlock;
decltype(pthread_cond_wait) __real_pthread_cond_wait;
decltype(pthread_cond_timedwait) __real_pthread_cond_timedwait;

// Once only: a mutex that can never be unlocked is nobody's again, whatever the library does.
int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    return fails(false) ? EPERM : __real_pthread_mutex_unlock(mutex);
}
int __wrap_pthread_cond_wait(pthread_cond_t* cond, pthread_mutex_t* mutex) {
    if (fails()) return EINVAL;
    noteWait();
    return __real_pthread_cond_wait(cond, mutex);
}
int __wrap_pthread_cond_timedwait(pthread_cond_t* cond, pthread_mutex_t* mutex,
                                  timespec const* deadline) {
    if (fails()) return EINVAL;
    noteWait();
    return __real_pthread_cond_timedwait(cond, mutex, deadline);
}
}

namespace {

using testsupport::Beside;
using testsupport::Gate;
using testsupport::onThread;
using testsupport::Report;
using testsupport::thrownBy;

/// Ends the process when a test hangs.
class Watchdog : public testing::Environment {
  public:
    void SetUp() override { alarm(100); }
    void TearDown() override { alarm(0); }
};
[[maybe_unused]] auto* const watchdog = testing::AddGlobalTestEnvironment(new Watchdog);

/// The message service while it lives: drops the reports, of which there may be many.
class Silence : public ZMessageService {
  public:
    Silence() : before(messageService()) { setMessageService(this); }
    ~Silence() { setMessageService(before); }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

    void outputMessage(char const*, int, int, int, ZLCString const*, ZLCString const*,
                       ZLCString const*, ZLCString const*, ZLCString const*,
                       ZLCString const*) const override {}
    void outputMessageUTF8(char const*, int, int, int, ZUTF8String const*, ZUTF8String const*,
                           ZUTF8String const*, ZUTF8String const*, ZUTF8String const*,
                           ZUTF8String const*) const override {}
    void outputException(ZException&) const override {}
    void outputException(ZZException const*, va_list) const override {}

  private:
    ZMessageService const* before;
};

/// Whether it is nothing, or an exception that locks, conditions and threads may throw.
bool isDescribed(Report const& thrown) {
    static std::set<std::string> const described{
        "ZLockResourceException 5",   "ZConditionException 9", "ZConditionException 10",
        "ZConditionException 27",     "ZThreadException 3",    "ZThreadException 5",
        "ZThreadException 6",         "ZThreadException 7",    "ZThreadException 15",
        "ZThreadException 16",        "ZThreadException 17",   "ZThreadException 20",
        "ZCreateResourceException 3", "ZConditionException 7"};
    return thrown.what.empty() ||
           described.count(thrown.what + " " + std::to_string(thrown.number)) != 0;
}

/// One try of an operation. `undisturbed()` lets the system's calls work again.
class Attempt {
  public:
    Attempt(int call, Repeat repeat, bool everywhere) {
        faults.calls = 0;
        faults.failing = call;
        faults.repeat = repeat;
        faults.everywhere = everywhere;
        armedHere = true;
        faults.armed = true;
    }
    ~Attempt() { undisturbed(); }
    Attempt(const Attempt&) = delete;
    Attempt& operator=(const Attempt&) = delete;
    void undisturbed() {
        faults.armed = false;
        armedHere = false;
    }
};

/// Runs `body` with every call failing in turn, once and from there on. `body` gets the number of
/// the call, makes its Attempt, and checks.
void failEveryCall(std::function<void(int, Repeat)> const& body) {
    Silence const silence;
    for (Repeat const repeat : {Repeat::once, Repeat::fromThereOn}) {
        int call = 0;
        do {
            ++call;
            SCOPED_TRACE(std::to_string(call) +
                         (repeat == Repeat::once ? ", once" : ", from there on"));
            body(call, repeat);
            if (testing::Test::HasFatalFailure() || testing::Test::HasNonfatalFailure()) return;
        } while (faults.calls >= call && call < 500);
        EXPECT_GT(call, 1) << "nothing was called";
        EXPECT_LT(call, 500) << "never untouched";
    }
}

// ------------------------------------------------------------------------------ read-write locks

using State = ZReadWriteLockInterface::zlockstate;
constexpr State read = ZReadWriteLockInterface::zlockRead;
constexpr State protect = ZReadWriteLockInterface::zlockProtect;
constexpr State write = ZReadWriteLockInterface::zlockWrite;

/// What the thread under test holds, as far as it was told.
struct Hold {
    ZReadWriteLock& lock;
    bool held = false;

    void take(State mode) {
        lock.lock(mode);
        held = true;
    }
    void give() {
        try {
            lock.unlock();
        } catch (ZConditionException const&) {
            held = false;  // released; waiting threads were not woken
            throw;
        }
        held = false;
    }
};

struct LockRow {
    char const* name;
    bool beside;  // while another thread reads, which leaves when the operation waits for it
    std::function<void(Hold&)> operation;
};

std::ostream& operator<<(std::ostream& out, LockRow const& row) { return out << row.name; }

Gate* readerLeaves = nullptr;

class ReadWriteLockFault : public testing::TestWithParam<LockRow> {};

TEST_P(ReadWriteLockFault, IsDescribedAndLeavesTheLockToOthers) {
    LockRow const& row = GetParam();
    failEveryCall([&](int call, Repeat repeat) {
        ZReadWriteLock lock;
        Gate reading;
        Gate leave;
        readerLeaves = &leave;
        beforeWait = [] { readerLeaves->open(); };
        Beside reader([&] {
            if (row.beside) lock.readLock();
            reading.open();
            leave.await();
            if (row.beside) lock.unlock();
        });
        reading.await();
        Hold hold{lock};
        Report thrown;
        {
            Attempt attempt(call, repeat, false);
            thrown = thrownBy([&] { row.operation(hold); });
        }
        leave.open();
        reader.join();
        beforeWait = nullptr;
        EXPECT_TRUE(faults.calls >= call || thrown.what.empty()) << thrown;
        EXPECT_TRUE(isDescribed(thrown)) << thrown;
        if (hold.held) lock.unlock();
        EXPECT_TRUE(onThread([&] {
            bool const taken = lock.lockFor(write, 1000);
            if (taken) lock.unlock();
            return taken;
        }));
        EXPECT_TRUE(lock.haveLock(ZReadWriteLockInterface::zlockUnset));
    });
}

INSTANTIATE_TEST_SUITE_P(Operations, ReadWriteLockFault,
                         testing::Values(LockRow{"Read", false,
                                                 [](Hold& hold) {
                                                     hold.take(read);
                                                     hold.give();
                                                 }},
                                         LockRow{"WriteBesideReader", true,
                                                 [](Hold& hold) {
                                                     hold.take(write);
                                                     hold.give();
                                                 }},
                                         LockRow{"TimedWriteBesideReader", true,
                                                 [](Hold& hold) {
                                                     hold.held = hold.lock.lockFor(write, 60000);
                                                     hold.give();
                                                 }},
                                         LockRow{"PromoteBesideReader", true,
                                                 [](Hold& hold) {
                                                     hold.take(protect);
                                                     hold.lock.promoteReadToWriteLock();
                                                     hold.give();
                                                 }}),
                         [](auto const& row) { return row.param.name; });

// ---------------------------------------------------------------------------- threads and sleepers

class Task : public ZThread {
  public:
    Task() : ZThread(0, 0) {}
    explicit Task(int isDetached) : ZThread(isDetached, isDetached) {}
    void run() override {}
};

class Sleeper : public ZSleeperThread {
  public:
    void doWork() override {}
};

/// Ends a thread of which it is not known how far it got.
void end(ZThread& thread) {
    try {
        thread.waitForExit();
    } catch (ZThreadException const& e) {
        EXPECT_EQ(e.getCode(), 20U) << "was not started, or has been joined";
    }
}

template <class Thread>
void startAndEnd(Thread& thread) {
    thread.start();
    if constexpr (std::is_same_v<Thread, Sleeper>) thread.wakeUp();
    thread.waitForExit();
}

template <class Thread>
void failStartAndEnd() {
    failEveryCall([](int call, Repeat repeat) {
        Thread thread;
        Report thrown;
        {
            Attempt attempt(call, repeat, true);
            thrown = thrownBy([&] { startAndEnd(thread); });
        }
        EXPECT_TRUE(isDescribed(thrown)) << thrown;
        end(thread);
        startAndEnd(thread);  // as if nothing had been
    });
}

TEST(ThreadFaultTest, AThreadCanBeStartedAfterAnyFailure) { failStartAndEnd<Task>(); }

TEST(ThreadFaultTest, ASleeperCanBeStartedAfterAnyFailure) { failStartAndEnd<Sleeper>(); }

TEST(ThreadFaultTest, ADetachedThreadThatCannotBeStartedStaysItsMakers) {
    failEveryCall([](int call, Repeat repeat) {
        auto* const task = new Task(1);
        Report thrown;
        {
            Attempt attempt(call, repeat, false);
            thrown = thrownBy([&] { task->start(); });
        }
        if (thrown.what.empty()) return;
        EXPECT_TRUE(isDescribed(thrown)) << thrown;
        delete task;
    });
}

// ------------------------------------------------------------------------------------------ pools

TEST(ThreadPoolFaultTest, CountsComeBackToZeroAfterAnyFailure) {
    failEveryCall([](int call, Repeat repeat) {
        Task task;
        Sleeper worker;
        std::optional<ZThreadPool> pool;
        Report thrown;
        {
            Attempt attempt(call, repeat, true);
            thrown = thrownBy([&] {
                pool.emplace(2U, 1U);
                pool->start(task);
                pool->start(worker);
                if (worker.hash() == 0) return;  // reported, and nothing to wake
                worker.wakeUp();
                pool->waitForExit();
            });
        }
        EXPECT_TRUE(isDescribed(thrown)) << thrown;
        if (!pool) return;
        end(worker);
        pool->waitForExit();
        end(task);
        // Both places are free, and so is the one for an idle worker.
        for (int round = 0; round < 2; ++round) {
            pool->start(task);
            pool->start(worker);
            worker.wakeUp();
            pool->waitForExit();
        }
        ZThread* idle = &task;
        pool->getAvailableIdleThread(idle);
        EXPECT_EQ(idle, nullptr);
        end(task);
    });
}

TEST(ThreadPoolFaultTest, WhatCannotBeFreedIsReported) {
    failEveryCall([](int call, Repeat repeat) {
        std::optional<ZThreadPool> pool(std::in_place, 2U, 1U);
        Attempt attempt(call, repeat, false);
        EXPECT_EQ(thrownBy([&] { pool.reset(); }), (Report{"", 0, {}}));
    });
}

}  // namespace
