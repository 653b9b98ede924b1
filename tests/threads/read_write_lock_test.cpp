// link: static
// wrap: pthread_mutex_init,pthread_mutex_destroy,pthread_mutex_lock,pthread_mutex_trylock
// wrap: pthread_mutex_unlock,pthread_cond_init,pthread_cond_destroy,pthread_cond_wait
// wrap: pthread_cond_clockwait,pthread_cond_signal,pthread_cond_broadcast,pthread_create
// wrap: pthread_join,pthread_attr_init,pthread_attr_destroy,pthread_attr_setdetachstate
// wrap: pthread_key_create,pthread_setspecific
#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <utility>
#include <vector>

#include "Z/ZReadWriteLock.h"
#include "support/locks.h"
#include "support/pthread_calls.h"

namespace {

using namespace testsupport;
using State = ZReadWriteLockInterface::zlockstate;

constexpr State unset = ZReadWriteLockInterface::zlockUnset;
constexpr State read = ZReadWriteLockInterface::zlockRead;
constexpr State protect = ZReadWriteLockInterface::zlockProtect;
constexpr State write = ZReadWriteLockInterface::zlockWrite;
constexpr State noState = static_cast<State>(4);

constexpr long shortest = std::numeric_limits<long>::min();
constexpr long longest = std::numeric_limits<long>::max();

State stateOf(ZReadWriteLock const& lock) {
    for (State const state : {unset, read, protect, write})
        if (lock.haveLock(state)) return state;
    return noState;
}

/// Until `count` waits have begun since `before`. The next release then finds the threads waiting,
/// because it needs the guard that they give up by waiting.
void awaitWaits(int before, int count = 1) {
    awaitThat([&] { return waitsBegun >= before + count; });
}

/// Another thread that holds a lock in a mode until this ends.
class Holder {
  public:
    Holder(ZReadWriteLock& lock, State mode)
        : thread([this, &lock, mode] {
              lock.lock(mode);
              inside.open();
              leave.await();
              lock.unlock();
          }) {
        inside.await();
    }
    ~Holder() { leave.open(); }

  private:
    Gate inside;
    Gate leave;
    Beside thread;
};

std::unique_ptr<Holder> held(ZReadWriteLock& lock, State mode) {
    return mode != unset ? std::make_unique<Holder>(lock, mode) : nullptr;
}

/// Who may enter beside another thread: by held and requested state.
constexpr bool admitted[][4] = {
    {false, true, true, true},
    {false, true, true, false},
    {false, true, false, false},
    {false, false, false, false},
};

/// What another thread than the holder is told at once, with nothing left of the attempt.
void expectAnswer(ZReadWriteLock& lock, State mode, State requested) {
    int const readers = lock.getReaderCount();
    int const before = waitsBegun;
    for (long const milliseconds : {shortest, 0L, 1L}) {
        EXPECT_EQ(waitsBegun, before) << "a wait without time";
        bool const taken =
            milliseconds == 0 ? lock.tryLock(requested) : lock.lockFor(requested, milliseconds);
        EXPECT_EQ(taken, admitted[mode][requested]);
        if (taken) lock.unlock();
    }
    EXPECT_EQ(thrownBy([&] { lock.promoteReadToWriteLock(); }), lockRefused);
    if (mode != read) {
        EXPECT_EQ(thrownBy([&] { lock.lock(unset); }), unlockRefused);
    }
    EXPECT_EQ(stateOf(lock), mode);
    EXPECT_EQ(lock.getReaderCount(), readers);
}

/// Threads that wait enter with the release, but for one that is cancelled.
void expectWaits(ZReadWriteLock& lock, std::unique_ptr<Holder> holder, State requested) {
    Crew waiters;
    int const before = waitsBegun;
    waiters.add([&] { lock.lock(requested), lock.unlock(); });
    waiters.add([&] {
        EXPECT_TRUE(lock.lockFor(requested, longest));
        EXPECT_EQ(stateOf(lock), requested);
        lock.unlock();
    });
    Doomed const doomed([&] { lock.lock(requested); });
    awaitWaits(before, 3);
    EXPECT_TRUE(doomed.cancel());
    holder.reset();
    waiters.join();
}

TEST(ReadWriteLockTest, AdmitsMakesWaitOrRefusesByItsTable) {
    Reports reports;
    for (State const mode : {unset, read, protect, write})
        for (State const requested : {read, protect, write}) {
            SCOPED_TRACE(std::to_string(mode) + " held, " + std::to_string(requested));
            ZReadWriteLock lock;
            auto holder = held(lock, mode);
            expectAnswer(lock, mode, requested);
            if (!admitted[mode][requested]) expectWaits(lock, std::move(holder), requested);
            holder.reset();
            if (mode >= protect) {
                lock.lock(mode);
                EXPECT_EQ(thrownBy([&] { lock.lock(requested); }), lockRefused);
                EXPECT_EQ(stateOf(lock), mode) << "the holder never enters again";
                lock.unlock();
            }
            EXPECT_EQ(stateOf(lock), unset);
            EXPECT_EQ(lock.getReaderCount(), 0);
        }
    EXPECT_TRUE(reports.take().empty());
}

TEST(ReadWriteLockTest, APromotionShutsReadersOutUntilThoseInsideHaveLeftOrItIsCancelled) {
    for (bool const isCancelled : {false, true}) {
        ZReadWriteLock lock;
        auto first = held(lock, read);
        auto second = held(lock, read);
        int const before = waitsBegun;
        Doomed const promoter([&] {
            lock.readWithIntentToWriteLock();
            std::shared_ptr<void> const atItsEnd(nullptr, [&](void*) {
                awaitThat([&] { return !isCancelled || lock.getReaderCount() == 4; });
                EXPECT_EQ(stateOf(lock), isCancelled ? protect : write);
                lock.unlock();
            });
            lock.promoteReadToWriteLock();
        });
        awaitWaits(before);
        EXPECT_EQ(stateOf(lock), write) << "at once";
        EXPECT_FALSE(lock.tryReadLock());
        Crew readers;
        for (int i = 0; i < 2; ++i)
            readers.add([&] { lock.readLock(); });
        awaitWaits(before, 3);
        EXPECT_TRUE(!isCancelled || promoter.cancel());
        first.reset();
        EXPECT_EQ(stateOf(lock), isCancelled ? read : write);
        second.reset();
        readers.join();
        EXPECT_FALSE(!isCancelled && promoter.cancel()) << "it is through";
        EXPECT_EQ(lock.getReaderCount(), 2) << "one release lets both in";
        lock.unlock();
        lock.unlock();
    }
}

TEST(ReadWriteLockTest, ReleasesOneHoldAtATimeAndProtectFirst) {
    ZReadWriteLock lock;
    auto reader = held(lock, read);
    lock.readLock();
    lock.readWithIntentToWriteLock();
    EXPECT_EQ(lock.getReaderCount(), 2) << "protect does not count";
    lock.unlock();
    EXPECT_EQ(stateOf(lock), read);
    lock.unlock(1);
    EXPECT_EQ(lock.getReaderCount(), 1);
    reader.reset();
    EXPECT_EQ(stateOf(lock), unset);
}

TEST(ReadWriteLockTest, KeepsItsLastWriterAfterTheReleaseButNotInACopy) {
    ZReadWriteLock lock;
    EXPECT_FALSE(lock.ownWriteLock());
    lock.lock();
    EXPECT_EQ(thrownBy([&] { lock.promoteReadToWriteLock(); }), lockRefused) << "it writes";
    lock.unlock();
    EXPECT_FALSE(onThread([&] { return lock.ownWriteLock(); }));
    Holder const reader(lock, read);
    EXPECT_TRUE(lock.ownWriteLock()) << "a reader does not matter";
    std::unique_ptr<ZObject> const cloned(lock.clone());
    auto& clone = dynamic_cast<ZReadWriteLock&>(*cloned);
    EXPECT_TRUE(stateOf(clone) == unset && !clone.ownWriteLock());
    Holder const protector(lock, protect);
    EXPECT_FALSE(lock.ownWriteLock());
}

TEST(ReadWriteLockTest, NamesItsStatesAndRefusesOtherNumbers) {
    ZReadWriteLock lock;
    char const* const names[] = {"unset", "read", "protect", "write", nullptr};
    for (State const state : {unset, read, protect, write, noState})
        EXPECT_STREQ(lock.getLockStateName(state), names[state]);
    EXPECT_EQ(thrownBy([&] { lock.lock(noState); }), invalidParameter);
    for (State const state : {unset, noState})
        EXPECT_EQ(thrownBy([&] { static_cast<void>(lock.tryLock(state)); }), invalidParameter);
}

TEST(ReadWriteLockTest, KeepsWritersApartAndReadersWhole) {
    constexpr int rounds = 2000;
    ZReadWriteLock lock;
    int first = 0;
    int second = 0;
    std::atomic<int> torn{0};
    Crew crew;
    for (State const mode : {read, protect, write, write})
        crew.add([&, mode] {
            for (int round = 0; round < rounds; ++round) {
                if (round % 2 == 0) lock.lock(mode);
                awaitThat([&] { return round % 2 == 0 || lock.lockFor(mode, 1); });
                if (first != second) ++torn;
                if (lock.ownWriteLock() != (mode != read)) ++torn;
                if (mode == protect) lock.promoteReadToWriteLock();
                if (mode != read) second = ++first;
                lock.unlock();
            }
        });
    crew.join();
    EXPECT_EQ(torn, 0);
    EXPECT_EQ(first, 3 * rounds);
    EXPECT_EQ(stateOf(lock), unset);
}

TEST(StackReadWriteLockTest, LocksNothingItselfAndUnlocksOnce) {
    Reports reports;
    ZReadWriteLock lock;
    for (int update : {0, 1}) {
        ZStackReadWriteLock guard(lock, update);
        EXPECT_EQ(stateOf(lock), unset);
        guard.readWithIntentToWriteLock();
        guard.promoteReadToWriteLock();
        EXPECT_EQ(stateOf(lock), write);
        guard.unlock(update);
        guard.readLock();
        EXPECT_EQ(stateOf(lock), read);
    }
    { ZStackReadWriteLock const guard(lock, 0); }
    {
        std::shared_lock const reader(lock);
        EXPECT_TRUE(std::shared_lock(lock, std::try_to_lock).owns_lock());
        EXPECT_FALSE(std::unique_lock(lock, std::try_to_lock).owns_lock());
    }
    EXPECT_TRUE(std::unique_lock(lock, std::try_to_lock).owns_lock());
    EXPECT_EQ(reports.take(), (std::vector<Report>{{"ZUnlockResourceException", 6, {}}}));
}

}  // namespace
