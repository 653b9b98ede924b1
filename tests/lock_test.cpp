#include "Z/ZLock.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/reports.h"
#include "support/threads.h"

#if defined(__clang__)
// Re-entry, and misuse on purpose, are what the analysis exists to find.
#pragma clang diagnostic ignored "-Wthread-safety-analysis"
#endif

namespace {

using testsupport::Beside;
using testsupport::Gate;
using testsupport::onThread;
using testsupport::Report;
using testsupport::Reports;
using testsupport::thrownBy;

constexpr long longEnough = 60000;  // milliseconds; reached only by a test that fails

Report const notHeld{"ZUnlockResourceException", 6, {"0"}};
Report const nothing{"", 0, {}};

/// Whether another thread can have the lock now.
bool isFree(ZLock& lock) {
    return onThread([&] {
        bool const taken = lock.try_lock();
        if (taken) lock.unlock();
        return taken;
    });
}

/// The calling thread's depth; the lock is free afterwards.
int unwind(ZLock& lock) {
    int depth = 0;
    while (thrownBy([&] { lock.unlock(); }) == nothing)
        ++depth;
    return depth;
}

TEST(LockTest, IsFreeAfterAsManyUnlocksAsLocks) {
    ZLock lock;
    for (int i = 0; i < 3; ++i)
        lock.lock();
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(isFree(lock)) << i;
        lock.unlock();
    }
    EXPECT_TRUE(isFree(lock));
}

TEST(LockTest, RefusesTheUnlockOfAThreadThatDoesNotHoldIt) {
    ZLock lock;
    EXPECT_EQ(thrownBy([&] { lock.unlock(); }), notHeld) << "nobody holds it";
    lock.lock();
    lock.lock();
    EXPECT_EQ(onThread([&] { return thrownBy([&] { lock.unlock(); }); }), notHeld);
    EXPECT_FALSE(isFree(lock));
    EXPECT_EQ(unwind(lock), 2) << "the refusal left the state as it was";
}

TEST(LockTest, NamesThePlaceOfTheThrow) {
    ZLock lock;
    try {
        lock.unlock();
        FAIL();
    } catch (ZUnlockResourceException const& e) {
        EXPECT_STREQ(e.who(), "src/Z/ZLock");
        EXPECT_GT(e.where(), 0);
    }
}

TEST(LockTest, AnotherThreadWaitsForTheRelease) {
    struct Way {
        char const* name;
        bool (*take)(ZLock&);
    };
    for (Way const& way : {Way{"lock", [](ZLock& lock) { return lock.lock(), true; }},
                           Way{"lockFor", [](ZLock& lock) { return lock.lockFor(longEnough); }},
                           Way{"lockFor without end", [](ZLock& lock) {
                                   return lock.lockFor(std::numeric_limits<long>::max());
                               }}}) {
        SCOPED_TRACE(way.name);
        ZLock lock;
        Gate started;
        std::string order;
        bool taken = false;
        lock.lock();
        Beside other([&] {
            started.open();
            taken = way.take(lock);
            order += "second";
            lock.unlock();
        });
        started.await();
        order += "first ";
        lock.unlock();
        other.join();
        EXPECT_TRUE(taken);
        EXPECT_EQ(order, "first second");
    }
}

TEST(LockTest, TryingDoesNotWaitAndReenters) {
    ZLock lock;
    ASSERT_TRUE(lock.try_lock());
    EXPECT_TRUE(lock.try_lock());
    EXPECT_TRUE(lock.lockFor(0));
    onThread([&] {
        EXPECT_FALSE(lock.try_lock());
        for (long const milliseconds : {std::numeric_limits<long>::min(), -1L, 0L, 1L})
            EXPECT_FALSE(lock.lockFor(milliseconds)) << milliseconds;
    });
    EXPECT_EQ(unwind(lock), 3);
    EXPECT_TRUE(isFree(lock));
}

TEST(LockTest, ServesTheStandardGuards) {
    ZLock first;
    ZLock second;
    {
        std::scoped_lock const both(first, second);
        std::unique_lock const again(first, std::try_to_lock);
        EXPECT_TRUE(again.owns_lock());
        EXPECT_FALSE(isFree(second));
    }
    EXPECT_TRUE(isFree(first));
    EXPECT_TRUE(isFree(second));
}

TEST(LockTest, ACopyIsAFreeLockAndAssignmentChangesNothing) {
    ZLock held;
    held.lock();
    ZLock copy(held);
    EXPECT_TRUE(isFree(copy));
    copy.lock();
    copy.lock();
    copy = held;
    EXPECT_EQ(unwind(copy), 2);
    held = copy;
    EXPECT_EQ(unwind(held), 1);
    EXPECT_EQ(held.clone(), nullptr);
}

TEST(LockTest, IsDeletedThroughItsInterfaces) {
    std::unique_ptr<ZLockInterface> const asLock(new ZLock);
    asLock->lock();
    asLock->unlock();
    std::unique_ptr<ZObject> const asObject(new ZLock);
    EXPECT_TRUE(asObject->equals(*asObject));
}

TEST(LockTest, KeepsManyThreadsApart) {
    constexpr int threads = 4;
    constexpr int rounds = 5000;
    ZLock lock;
    int sum = 0;
    {
        std::vector<std::unique_ptr<Beside>> workers;
        for (int i = 0; i < threads; ++i)
            workers.push_back(std::make_unique<Beside>([&] {
                for (int round = 0; round < rounds; ++round) {
                    ZResourceLock const outer(lock);
                    ZResourceLock const inner(lock);
                    ++sum;
                }
            }));
        for (auto const& worker : workers)
            worker->join();
    }
    EXPECT_EQ(sum, threads * rounds);
}

TEST(ResourceLockTest, HoldsItsLockForTheScopeAlsoWhenItEndsByAnException) {
    ZLock lock;
    {
        ZResourceLock const guard(lock);
        EXPECT_FALSE(isFree(lock));
    }
    EXPECT_TRUE(isFree(lock));
    try {
        ZResourceLock const guard(lock);
        throw std::runtime_error("leaves the scope");
    } catch (std::runtime_error const&) {
        EXPECT_TRUE(isFree(lock));
    }
}

/// A lock whose operations throw when told to.
class BrokenLock : public ZLockInterface {
  public:
    void lock() override {
        if (lockThrows) throw std::runtime_error("lock");
        ++holds;
    }
    void unlock() override {
        --holds;
        if (unlockThrows) throw std::runtime_error("unlock");
    }

    bool lockThrows = false;
    bool unlockThrows = false;
    int holds = 0;
};

TEST(ResourceLockTest, ReportsAFailingUnlockAndThrowsAFailingLock) {
    Reports reports;
    ZLock lock;
    {
        ZResourceLock const guard(lock);
        lock.unlock();  // behind the guard's back
    }
    EXPECT_EQ(reports.take(), (std::vector<Report>{{"ZUnlockResourceException", 6, {}}}));

    BrokenLock broken;
    broken.unlockThrows = true;
    { ZResourceLock const guard(broken); }
    EXPECT_EQ(reports.take(), (std::vector<Report>{{"src/Z/ZLock", 19, {}}}));

    broken.lockThrows = true;
    EXPECT_THROW(ZResourceLock const guard(broken), std::runtime_error);
    EXPECT_EQ(broken.holds, 0);
    EXPECT_TRUE(reports.take().empty());
}

}  // namespace
