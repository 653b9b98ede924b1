#include "Z/ZLock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/locks.h"

namespace {

using namespace testsupport;

TEST(LockTest, IsFreeAfterAsManyUnlocksAsLocks) {
    ZLock lock;
    for (int i = 0; i < 3; ++i)
        lock.lock();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(onThread([&] { return thrownBy([&] { lock.unlock(); }); }), unlockRefused);
        EXPECT_FALSE(isFree(lock)) << i;
        lock.unlock();
    }
    EXPECT_TRUE(isFree(lock));
    try {
        lock.unlock();
        FAIL() << "nobody holds it";
    } catch (ZUnlockResourceException const& e) {
        EXPECT_EQ(e.resourceRc(), 0);
        EXPECT_STREQ(e.who(), "src/Z/ZLock");
        EXPECT_GT(e.where(), 0);
    }
}

TEST(LockTest, AnotherThreadWaitsForTheRelease) {
    using Take = bool (*)(ZLock&);
    for (Take const take : {
             Take([](ZLock& lock) { return lock.lock(), true; }),
             Take([](ZLock& lock) { return lock.lockFor(longEnough); }),
             Take([](ZLock& lock) { return lock.lockFor(std::numeric_limits<long>::max()); }),
         }) {
        ZLock lock;
        Gate started;
        std::string order;
        lock.lock();
        Beside other([&] {
            started.open();
            EXPECT_TRUE(take(lock));
            order += "second";
            lock.unlock();
        });
        started.await();
        order += "first ";
        lock.unlock();
        other.join();
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
        auto const start = std::chrono::steady_clock::now();
        EXPECT_FALSE(lock.lockFor(20));
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
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
    std::unique_ptr<ZLockInterface> const copied(new ZLock(held));
    auto& copy = dynamic_cast<ZLock&>(*copied);
    EXPECT_TRUE(isFree(copy));
    copy.lock();
    copy.lock();
    copy = held;
    EXPECT_EQ(unwind(copy), 2);
    held = copy;
    EXPECT_EQ(unwind(held), 1);
    EXPECT_EQ(held.clone(), nullptr);
}

TEST(LockTest, KeepsManyThreadsApart) {
    constexpr int threads = 4;
    constexpr int rounds = 5000;
    ZLock lock;
    int sum = 0;
    Crew crew;
    for (int i = 0; i < threads; ++i)
        crew.add([&] {
            for (int round = 0; round < rounds; ++round) {
                ZResourceLock const outer(lock);
                ZResourceLock const inner(lock);
                ++sum;
            }
        });
    crew.join();
    EXPECT_EQ(sum, threads * rounds);
}

class BrokenLock : public ZLockInterface {
  public:
    void lock() override {}
    void unlock() override { throw std::runtime_error("unlock"); }
};

TEST(ResourceLockTest, HoldsItsLockForTheScopeAndThrowsNothingAtItsEnd) {
    Reports reports;
    ZLock lock;
    {
        ZResourceLock const guard(lock);
        EXPECT_FALSE(isFree(lock));
    }
    EXPECT_TRUE(isFree(lock));
    {
        ZResourceLock const guard(lock);
        lock.unlock();  // behind the guard's back
    }
    EXPECT_EQ(reports.take(), (std::vector<Report>{{"ZUnlockResourceException", 6, {}}}));

    BrokenLock broken;
    { ZResourceLock const guard(broken); }
    EXPECT_EQ(reports.take(), (std::vector<Report>{{"src/Z/ZLock", 19, {}}}));
}

}  // namespace
