// link: static
// wrap: pthread_cond_wait,pthread_cond_timedwait
#include "Z/ZReadWriteLock.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/reports.h"
#include "support/threads.h"

namespace {

std::atomic<int> waitsBegun{0};  // waits of the library, counted with the waiting lock's guard held

}  // namespace

extern "C" {
decltype(pthread_cond_wait) __real_pthread_cond_wait;
decltype(pthread_cond_timedwait) __real_pthread_cond_timedwait;

int __wrap_pthread_cond_wait(pthread_cond_t* cond, pthread_mutex_t* mutex) {
    ++waitsBegun;
    return __real_pthread_cond_wait(cond, mutex);
}
int __wrap_pthread_cond_timedwait(pthread_cond_t* cond, pthread_mutex_t* mutex,
                                  timespec const* deadline) {
    ++waitsBegun;
    return __real_pthread_cond_timedwait(cond, mutex, deadline);
}
}

namespace {

using testsupport::Beside;
using testsupport::Gate;
using testsupport::onThread;
using testsupport::Report;
using testsupport::Reports;
using testsupport::thrownBy;
using State = ZReadWriteLockInterface::zlockstate;

constexpr State unset = ZReadWriteLockInterface::zlockUnset;
constexpr State read = ZReadWriteLockInterface::zlockRead;
constexpr State protect = ZReadWriteLockInterface::zlockProtect;
constexpr State write = ZReadWriteLockInterface::zlockWrite;
constexpr State noState = static_cast<State>(7);
constexpr long longEnough = 60000;  // milliseconds; reached only by a test that fails

Report const nothing{"", 0, {}};
Report const refused{"ZLockResourceException", 5, {"0"}};
Report const notHeld{"ZUnlockResourceException", 6, {"0"}};
Report const invalid{"ZInvalidParameterException", 22, {}};

State stateOf(ZReadWriteLock const& lock) {
    for (State const state : {unset, read, protect, write})
        if (lock.haveLock(state)) return state;
    return noState;
}

/// Until `count` waits have begun since `before`. The next operation on the lock then finds the
/// threads waiting, because it needs the guard that they give up by waiting.
void awaitWaits(int before, int count = 1) {
    while (waitsBegun < before + count)
        std::this_thread::yield();
}

/// Another thread that holds a lock in a mode until it is told to release it.
class Holder {
  public:
    Holder(ZReadWriteLock& lock, State mode)
        : thread([this, &lock, mode] {
              if (mode == unset) return inside.open();
              lock.lock(mode);
              inside.open();
              leave.await();
              lock.unlock();
          }) {
        inside.await();
    }
    ~Holder() { leave.open(); }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;
    void release() {
        leave.open();
        thread.join();
    }

  private:
    Gate inside;
    Gate leave;
    Beside thread;
};

struct Pair {
    State held;
    State requested;
    bool admitted;
};

constexpr Pair table[] = {
    {unset, read, true},   {unset, protect, true},    {unset, write, true},
    {read, read, true},    {read, protect, true},     {read, write, false},
    {protect, read, true}, {protect, protect, false}, {protect, write, false},
    {write, read, false},  {write, protect, false},   {write, write, false},
};

std::string describe(ZReadWriteLock const& lock, Pair const& pair) {
    return std::string(lock.getLockStateName(pair.held)) + " held, " +
           lock.getLockStateName(pair.requested) + " requested";
}

TEST(ReadWriteLockTest, AdmitsByItsTableWithoutWaiting) {
    for (Pair const& pair : table) {
        ZReadWriteLock lock;
        SCOPED_TRACE(describe(lock, pair));
        Holder holder(lock, pair.held);
        int const readers = lock.getReaderCount();
        for (long const milliseconds : {std::numeric_limits<long>::min(), 0L, 1L}) {
            EXPECT_EQ(lock.lockFor(pair.requested, milliseconds), pair.admitted) << milliseconds;
            if (pair.admitted) lock.unlock();
            EXPECT_EQ(stateOf(lock), pair.held) << "nothing is left of the attempt";
            EXPECT_EQ(lock.getReaderCount(), readers);
        }
        holder.release();
        EXPECT_EQ(stateOf(lock), unset);
    }
}

TEST(ReadWriteLockTest, WhoMustWaitEntersWithTheRelease) {
    using Take = bool (*)(ZReadWriteLock&, State);
    Take const ways[] = {
        [](ZReadWriteLock& lock, State mode) { return lock.lock(mode), true; },
        [](ZReadWriteLock& lock, State mode) { return lock.lockFor(mode, longEnough); },
        [](ZReadWriteLock& lock, State mode) {
            return lock.lockFor(mode, std::numeric_limits<long>::max());
        },
    };
    for (Pair const& pair : table) {
        if (pair.admitted) continue;
        for (Take const take : ways) {
            ZReadWriteLock lock;
            SCOPED_TRACE(describe(lock, pair));
            Holder holder(lock, pair.held);
            int const before = waitsBegun;
            State found = unset;
            Beside waiter([&] {
                if (!take(lock, pair.requested)) return;
                found = stateOf(lock);
                lock.unlock();
            });
            awaitWaits(before);
            holder.release();
            waiter.join();
            EXPECT_EQ(found, pair.requested);
            EXPECT_EQ(stateOf(lock), unset);
        }
    }
}

TEST(ReadWriteLockTest, TryingIsLockingForNoTime) {
    ZReadWriteLock lock;
    ASSERT_TRUE(lock.tryReadLock());
    EXPECT_TRUE(onThread([&] {
        bool const taken = lock.tryReadLock();
        if (taken) lock.unlock();
        return taken;
    }));
    EXPECT_FALSE(onThread([&] { return lock.tryWriteLock(); }));
    lock.unlock();
    ASSERT_TRUE(lock.tryWriteLock());
    EXPECT_FALSE(onThread([&] { return lock.tryLock(protect); }));
    lock.unlock();
}

TEST(ReadWriteLockTest, RefusesTheHolderOfProtectOrWriteInEveryMode) {
    for (State const held : {protect, write}) {
        ZReadWriteLock lock;
        lock.lock(held);
        for (State const requested : {read, protect, write}) {
            EXPECT_EQ(thrownBy([&] { lock.lock(requested); }), refused) << held << requested;
            EXPECT_EQ(thrownBy([&] { (void)lock.tryLock(requested); }), refused);
            EXPECT_EQ(thrownBy([&] { (void)lock.lockFor(requested, 1); }), refused);
        }
        EXPECT_EQ(stateOf(lock), held);
        EXPECT_EQ(lock.getReaderCount(), 0);
        lock.unlock();
        EXPECT_EQ(stateOf(lock), unset);
    }
}

TEST(ReadWriteLockTest, PromotesTheHolderOfProtectAlone) {
    for (State const held : {unset, read, protect, write}) {
        ZReadWriteLock lock;
        Holder holder(lock, held);
        EXPECT_EQ(thrownBy([&] { lock.promoteReadToWriteLock(); }), refused) << held;
        EXPECT_EQ(stateOf(lock), held);
    }
    ZReadWriteLock lock;
    lock.writeLock();
    EXPECT_EQ(thrownBy([&] { lock.promoteReadToWriteLock(); }), refused) << "is write already";
    lock.unlock();
}

TEST(ReadWriteLockTest, APromotionShutsReadersOutAndWaitsForThoseInside) {
    ZReadWriteLock lock;
    Holder first(lock, read);
    Holder second(lock, read);
    int readersAtWrite = -1;
    Gate release;
    int const before = waitsBegun;
    Beside promoter([&] {
        lock.readWithIntentToWriteLock();
        lock.promoteReadToWriteLock();
        readersAtWrite = lock.getReaderCount();
        release.await();
        lock.unlock();
    });
    awaitWaits(before);
    EXPECT_EQ(stateOf(lock), write) << "at once";
    EXPECT_EQ(lock.getReaderCount(), 2);
    EXPECT_FALSE(lock.tryReadLock()) << "no new reader";
    Beside reader([&] { lock.readLock(); });
    awaitWaits(before, 2);
    first.release();
    EXPECT_EQ(stateOf(lock), write);
    second.release();
    release.open();
    promoter.join();
    EXPECT_EQ(readersAtWrite, 0);
    reader.join();
    EXPECT_EQ(stateOf(lock), read);
    lock.unlock();
    EXPECT_EQ(stateOf(lock), unset);
}

TEST(ReadWriteLockTest, ReleasesOneHoldAtATime) {
    ZReadWriteLock lock;
    Holder reader(lock, read);
    lock.readLock();
    lock.readWithIntentToWriteLock();
    EXPECT_EQ(stateOf(lock), protect);
    EXPECT_EQ(lock.getReaderCount(), 2) << "protect does not count";
    lock.unlock();
    EXPECT_EQ(stateOf(lock), read) << "protect goes first";
    EXPECT_EQ(lock.getReaderCount(), 2);
    lock.unlock(1);
    EXPECT_EQ(lock.getReaderCount(), 1);
    reader.release();
    EXPECT_EQ(stateOf(lock), unset);
}

TEST(ReadWriteLockTest, RefusesAnUnlockWithNothingToRelease) {
    for (State const held : {unset, protect, write}) {
        ZReadWriteLock lock;
        Holder holder(lock, held);
        EXPECT_EQ(thrownBy([&] { lock.unlock(); }), notHeld) << held;
        EXPECT_EQ(thrownBy([&] { lock.lock(unset); }), notHeld) << held;
        EXPECT_EQ(stateOf(lock), held);
        EXPECT_EQ(lock.getReaderCount(), 0);
    }
}

TEST(ReadWriteLockTest, KeepsItsLastWriterAfterTheRelease) {
    ZReadWriteLock lock;
    EXPECT_FALSE(lock.ownWriteLock());
    lock.lock();
    EXPECT_TRUE(lock.ownWriteLock());
    lock.unlock();
    EXPECT_TRUE(lock.ownWriteLock());
    EXPECT_FALSE(onThread([&] { return lock.ownWriteLock(); }));
    Holder const reader(lock, read);
    EXPECT_TRUE(lock.ownWriteLock()) << "a reader does not matter";
    Holder const protector(lock, protect);
    EXPECT_FALSE(lock.ownWriteLock());
}

TEST(ReadWriteLockTest, NamesItsStatesAndRefusesOtherNumbers) {
    ZReadWriteLock lock;
    EXPECT_STREQ(lock.getLockStateName(unset), "unset");
    EXPECT_STREQ(lock.getLockStateName(read), "read");
    EXPECT_STREQ(lock.getLockStateName(protect), "protect");
    EXPECT_STREQ(lock.getLockStateName(write), "write");
    EXPECT_EQ(lock.getLockStateName(static_cast<State>(4)), nullptr);
    EXPECT_EQ(lock.getLockStateName(noState), nullptr);
    EXPECT_EQ(thrownBy([&] { lock.lock(noState); }), invalid);
    for (State const state : {unset, noState}) {
        EXPECT_EQ(thrownBy([&] { (void)lock.tryLock(state); }), invalid);
        EXPECT_EQ(thrownBy([&] { (void)lock.lockFor(state, 1); }), invalid);
    }
    EXPECT_EQ(stateOf(lock), unset);
}

struct Deaf : ZObserverInterface {
    void update(ZAbstractObservable*, ZObservedParm const&) override {}
};

TEST(ReadWriteLockTest, ACopyIsAFreeLockWithoutObservers) {
    Deaf observer;
    ZReadWriteLock held;
    held.addObserver(&observer);
    held.writeLock();
    ZReadWriteLock copy(held);
    std::unique_ptr<ZObject> const cloned(held.clone());
    auto* const clone = dynamic_cast<ZReadWriteLock*>(cloned.get());
    ASSERT_NE(clone, nullptr);
    for (ZReadWriteLock* const free : {&copy, clone}) {
        EXPECT_EQ(stateOf(*free), unset);
        EXPECT_FALSE(free->ownWriteLock());
        EXPECT_EQ(free->countObservers(), 0U);
        EXPECT_TRUE(free->tryWriteLock());
        free->unlock();
    }
    EXPECT_EQ(stateOf(held), write);
    held.unlock();
}

TEST(ReadWriteLockTest, HasTheAnswersOfALockWithoutSharedData) {
    ZReadWriteLock lock;
    lock.setUpdate(1);
    EXPECT_EQ(lock.getUpdate(), 0);
    EXPECT_EQ(lock.isCurrent(), 1);
}

struct Cancelled {
    ZReadWriteLock lock;
    State mode = unset;
};

/// Waits for the lock until it is cancelled; for protect, in its promotion.
void* waitForCancellation(void* argument) {
    auto& shared = *static_cast<Cancelled*>(argument);
    if (shared.mode != protect) {
        shared.lock.lock(shared.mode);
        return nullptr;
    }
    ZStackReadWriteLock guard(shared.lock, 0);
    guard.readWithIntentToWriteLock();
    guard.promoteReadToWriteLock();
    return nullptr;
}

TEST(ReadWriteLockTest, ACancelledWaitLeavesTheLockAsIfItHadNotBeenAskedFor) {
    struct Row {
        State held;
        State requested;
    };
    for (Row const row : {Row{read, write}, Row{write, read}, Row{read, protect}}) {
        SCOPED_TRACE(row.requested);
        Reports reports;
        Cancelled shared;
        shared.mode = row.requested;
        Holder holder(shared.lock, row.held);
        int const before = waitsBegun;
        pthread_t thread{};
        ASSERT_EQ(pthread_create(&thread, nullptr, waitForCancellation, &shared), 0);
        awaitWaits(before);
        bool const sharedByReaders = row.requested == protect;
        Beside reader([&] {  // shut out by the promotion, and let in when it is given up
            if (sharedByReaders) shared.lock.readLock();
        });
        if (sharedByReaders) awaitWaits(before, 2);
        ASSERT_EQ(pthread_cancel(thread), 0);
        void* result = nullptr;
        ASSERT_EQ(pthread_join(thread, &result), 0);
        EXPECT_EQ(result, PTHREAD_CANCELED);
        reader.join();
        EXPECT_EQ(stateOf(shared.lock), row.held);
        if (sharedByReaders) shared.lock.unlock();
        holder.release();
        EXPECT_EQ(stateOf(shared.lock), unset);
        EXPECT_TRUE(shared.lock.tryWriteLock());
        shared.lock.unlock();
        EXPECT_TRUE(reports.take().empty());
    }
}

TEST(ReadWriteLockTest, KeepsWritersApartAndReadersWhole) {
    constexpr int rounds = 2000;
    ZReadWriteLock lock;
    int first = 0;
    int second = 0;
    std::atomic<int> torn{0};
    auto const check = [&] { torn += first != second ? 1 : 0; };
    auto const change = [&] {
        ++first;
        ++second;
    };
    std::function<void()> const work[] = {
        [&] {
            lock.readLock();
            check();
        },
        [&] {
            lock.writeLock();
            change();
        },
        [&] {
            lock.readWithIntentToWriteLock();
            check();
            lock.promoteReadToWriteLock();
            change();
        },
        [&] {
            while (!lock.lockFor(write, 1))
                std::this_thread::yield();
            change();
        },
    };
    std::vector<std::unique_ptr<Beside>> workers;
    for (auto const& one : work)
        workers.push_back(std::make_unique<Beside>([&] {
            for (int round = 0; round < rounds; ++round) {
                one();
                lock.unlock();
            }
        }));
    for (auto const& worker : workers)
        worker->join();
    EXPECT_EQ(torn, 0);
    EXPECT_EQ(first, 3 * rounds);
    EXPECT_EQ(second, 3 * rounds);
    EXPECT_EQ(stateOf(lock), unset);
}

/// Notes the calls of a guard.
class NotingLock : public ZReadWriteLock {
  public:
    void setUpdate(int update) override { calls += "setUpdate " + std::to_string(update) + ", "; }
    int getUpdate() const override { return 5; }
    void unlock() override {
        calls += "unlock";
        ZReadWriteLock::unlock();
    }

    std::string calls;
};

TEST(StackReadWriteLockTest, LocksNothingAndUnlocksOnce) {
    NotingLock lock;
    {
        ZStackReadWriteLock guard(lock, 1);
        EXPECT_EQ(stateOf(lock), unset);
        EXPECT_EQ(&guard.getReadWriteLock(), &lock);
        EXPECT_EQ(guard.getUpdate(), 5);
        guard.readWithIntentToWriteLock();
        EXPECT_EQ(stateOf(lock), protect);
        guard.promoteReadToWriteLock();
        EXPECT_EQ(stateOf(lock), write);
        guard.setUpdate(0);
    }
    EXPECT_EQ(stateOf(lock), unset);
    EXPECT_EQ(lock.calls, "setUpdate 1, setUpdate 0, unlock");
}

TEST(StackReadWriteLockTest, ForwardsEachModeAndReportsAnUnlockWithNothingToRelease) {
    Reports reports;
    ZReadWriteLock lock;
    {
        ZStackReadWriteLock guard(lock, 0);
        guard.readLock();
        EXPECT_EQ(stateOf(lock), read);
        guard.unlock(0);
        guard.writeLock();
        EXPECT_EQ(stateOf(lock), write);
    }
    EXPECT_TRUE(reports.take().empty());
    EXPECT_EQ(stateOf(lock), unset);
    { ZStackReadWriteLock const guard(lock, 0); }
    EXPECT_EQ(reports.take(), (std::vector<Report>{{"ZUnlockResourceException", 6, {}}}));
}

}  // namespace
