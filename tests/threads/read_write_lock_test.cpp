// link: static
// wrap: pthread_mutex_init,pthread_mutex_destroy,pthread_mutex_lock,pthread_mutex_trylock
// wrap: pthread_mutex_unlock,pthread_cond_init,pthread_cond_destroy,pthread_cond_wait
// wrap: pthread_cond_timedwait,pthread_cond_signal,pthread_cond_broadcast,pthread_create
// wrap: pthread_join,pthread_attr_init,pthread_attr_destroy,pthread_attr_setdetachstate
// wrap: pthread_key_create,pthread_setspecific
#include "Z/ZReadWriteLock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

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

/// Until `count` waits have begun since `before`. The next operation on the lock then finds the
/// threads waiting, because it needs the guard that they give up by waiting.
void awaitWaits(int before, int count = 1) {
    awaitThat([&] { return waitsBegun >= before + count; });
}

/// Another thread that holds a lock in a mode until it is told to release it.
class Holder {
  public:
    Holder(ZReadWriteLock& lock, State mode)
        : thread([this, &lock, mode] {
              if (mode != unset) lock.lock(mode);
              inside.open();
              leave.await();
              if (mode != unset) lock.unlock();
          }) {
        inside.await();
    }
    ~Holder() { leave.open(); }
    Holder(Holder const&) = delete;
    Holder& operator=(Holder const&) = delete;
    void release() {
        leave.open();
        if (std::exchange(isHolding, false)) thread.join();
    }

  private:
    Gate inside;
    Gate leave;
    bool isHolding = true;
    Beside thread;
};

/// Who may enter beside another thread: by held and requested state.
constexpr bool admitted[][4] = {
    {false, true, true, true},
    {false, true, true, false},
    {false, true, false, false},
    {false, false, false, false},
};

/// What another thread than the holder is told at once, with nothing left of the attempt.
void expectAnswer(ZReadWriteLock& lock, State held, State requested) {
    int const readers = lock.getReaderCount();
    int const before = waitsBegun;
    for (long const milliseconds : {shortest, -1L, 0L, 1L}) {
        EXPECT_EQ(waitsBegun, before) << "a wait without time";
        bool const taken =
            milliseconds == 0 ? lock.tryLock(requested) : lock.lockFor(requested, milliseconds);
        EXPECT_EQ(taken, admitted[held][requested]);
        if (taken) lock.unlock();
        EXPECT_EQ(thrownBy([&] { lock.promoteReadToWriteLock(); }), lockRefused);
        if (held != read) {
            EXPECT_EQ(thrownBy([&] { lock.lock(unset); }), unlockRefused);
        }
        EXPECT_EQ(stateOf(lock), held);
        EXPECT_EQ(lock.getReaderCount(), readers);
    }
}

/// Threads that wait enter with the release, but for one that is cancelled.
void expectWaits(ZReadWriteLock& lock, Holder& holder, State held, State requested) {
    Crew waiters;
    int const before = waitsBegun;
    for (long const milliseconds : {0L, longEnough, longest})
        waiters.add([&, milliseconds] {
            if (milliseconds == 0) lock.lock(requested);
            EXPECT_TRUE(milliseconds == 0 || lock.lockFor(requested, milliseconds));
            EXPECT_EQ(stateOf(lock), requested);
            lock.unlock();
        });
    Doomed const doomed([&] { lock.lock(requested); });
    awaitWaits(before, 4);
    EXPECT_TRUE(doomed.cancel());
    EXPECT_EQ(stateOf(lock), held);
    holder.release();
    waiters.join();
}

/// The holder of protect or write never enters again.
void expectRefusal(ZReadWriteLock& lock, State held, State requested) {
    lock.lock(held);
    EXPECT_EQ(thrownBy([&] { lock.lock(requested); }), lockRefused);
    EXPECT_EQ(thrownBy([&] { static_cast<void>(lock.tryLock(requested)); }), lockRefused);
    if (held == write) {
        EXPECT_EQ(thrownBy([&] { lock.promoteReadToWriteLock(); }), lockRefused);
    }
    EXPECT_EQ(stateOf(lock), held);
    lock.unlock();
}

TEST(ReadWriteLockTest, AdmitsMakesWaitOrRefusesByItsTable) {
    Reports reports;
    for (State const held : {unset, read, protect, write})
        for (State const requested : {read, protect, write}) {
            SCOPED_TRACE(std::to_string(held) + " held, " + std::to_string(requested));
            ZReadWriteLock lock;
            Holder holder(lock, held);
            expectAnswer(lock, held, requested);
            if (!admitted[held][requested]) expectWaits(lock, holder, held, requested);
            holder.release();
            if (held >= protect) expectRefusal(lock, held, requested);
            EXPECT_EQ(stateOf(lock), unset);
            EXPECT_EQ(lock.getReaderCount(), 0);
        }
    EXPECT_TRUE(reports.take().empty());
}

/// Ends a promotion in its thread.
struct Promoted {
    ~Promoted() {
        if (isCancelled) awaitThat([this] { return lock.getReaderCount() == 4; });
        EXPECT_EQ(stateOf(lock), isCancelled ? protect : write);
        EXPECT_TRUE(isCancelled || lock.getReaderCount() == 0);
        lock.unlock();
    }
    ZReadWriteLock& lock;
    bool isCancelled;
};

TEST(ReadWriteLockTest, APromotionShutsReadersOutUntilThoseInsideHaveLeftOrItIsCancelled) {
    for (bool const isCancelled : {false, true}) {
        ZReadWriteLock lock;
        Holder first(lock, read);
        Holder second(lock, read);
        int const before = waitsBegun;
        Doomed const promoter([&] {
            lock.readWithIntentToWriteLock();
            Promoted const promoted{lock, isCancelled};
            lock.promoteReadToWriteLock();
        });
        awaitWaits(before);
        EXPECT_EQ(stateOf(lock), write) << "at once";
        EXPECT_EQ(lock.getReaderCount(), 2);
        EXPECT_FALSE(lock.tryReadLock());
        Crew readers;
        for (int i = 0; i < 2; ++i)
            readers.add([&] { lock.readLock(); });
        awaitWaits(before, 3);
        if (isCancelled) {
            EXPECT_TRUE(promoter.cancel());
        }
        first.release();
        EXPECT_EQ(stateOf(lock), isCancelled ? read : write);
        second.release();
        readers.join();
        if (!isCancelled) {
            EXPECT_FALSE(promoter.cancel()) << "it is through";
        }
        EXPECT_EQ(stateOf(lock), read);
        EXPECT_EQ(lock.getReaderCount(), 2) << "one release lets both in";
        lock.unlock();
        lock.unlock();
    }
}

TEST(ReadWriteLockTest, ReleasesOneHoldAtATimeAndProtectFirst) {
    ZReadWriteLock lock;
    Holder reader(lock, read);
    lock.readLock();
    lock.readWithIntentToWriteLock();
    EXPECT_EQ(stateOf(lock), protect);
    EXPECT_EQ(lock.getReaderCount(), 2) << "protect does not count";
    lock.unlock();
    EXPECT_EQ(stateOf(lock), read);
    lock.unlock(1);
    EXPECT_EQ(lock.getReaderCount(), 1);
    reader.release();
    EXPECT_EQ(stateOf(lock), unset);
}

TEST(ReadWriteLockTest, KeepsItsLastWriterAfterTheRelease) {
    ZReadWriteLock lock;
    EXPECT_FALSE(lock.ownWriteLock());
    lock.lock();
    lock.unlock();
    EXPECT_FALSE(onThread([&] { return lock.ownWriteLock(); }));
    Holder const reader(lock, read);
    EXPECT_TRUE(lock.ownWriteLock()) << "a reader does not matter";
    Holder const protector(lock, protect);
    EXPECT_FALSE(lock.ownWriteLock());
}

TEST(ReadWriteLockTest, NamesItsStatesAndRefusesOtherNumbers) {
    ZReadWriteLock lock;
    char const* const names[] = {"unset", "read", "protect", "write"};
    for (State const state : {unset, read, protect, write})
        EXPECT_STREQ(lock.getLockStateName(state), names[state]);
    EXPECT_EQ(lock.getLockStateName(noState), nullptr);
    EXPECT_EQ(thrownBy([&] { lock.lock(noState); }), invalidParameter);
    for (State const state : {unset, noState})
        EXPECT_EQ(thrownBy([&] { static_cast<void>(lock.tryLock(state)); }), invalidParameter);
    EXPECT_EQ(stateOf(lock), unset);
}

TEST(ReadWriteLockTest, ACopyIsAFreeLockWithoutObservers) {
    struct : ZObserverInterface {
        void update(ZAbstractObservable*, ZObservedParm const&) override {}
    } observer;
    ZReadWriteLock held;
    held.setUpdate(1);
    EXPECT_EQ(held.getUpdate(), 0) << "there are no shared data";
    EXPECT_EQ(held.isCurrent(), 1);
    held.addObserver(&observer);
    held.writeLock();
    std::unique_ptr<ZObject> const cloned(held.clone());
    auto& clone = dynamic_cast<ZReadWriteLock&>(*cloned);
    EXPECT_FALSE(clone.ownWriteLock());
    EXPECT_EQ(clone.countObservers(), 0U);
    EXPECT_TRUE(clone.tryWriteLock());
    EXPECT_EQ(stateOf(held), write);
    clone.unlock();
    held.unlock();
}

TEST(ReadWriteLockTest, KeepsWritersApartAndReadersWhole) {
    constexpr int rounds = 2000;
    ZReadWriteLock lock;
    int first = 0;
    int second = 0;
    std::atomic<int> torn{0};
    Crew crew;
    auto const add = [&](State mode, void (*take)(ZReadWriteLock&)) {
        crew.add([&, mode, take] {
            for (int round = 0; round < rounds; ++round) {
                take(lock);
                if (first != second) ++torn;
                if (mode == protect) lock.promoteReadToWriteLock();
                if (mode != read) second = ++first;
                lock.unlock();
            }
        });
    };
    add(read, [](ZReadWriteLock& shared) { shared.readLock(); });
    add(protect, [](ZReadWriteLock& shared) { shared.readWithIntentToWriteLock(); });
    add(write, [](ZReadWriteLock& shared) { shared.writeLock(); });
    add(write, [](ZReadWriteLock& shared) { awaitThat([&] { return shared.lockFor(write, 1); }); });
    crew.join();
    EXPECT_EQ(torn, 0);
    EXPECT_EQ(first, 3 * rounds);
    EXPECT_EQ(stateOf(lock), unset);
}

/// A lock that only notes what it is asked for.
struct NotingLock : ZAbstractReadWriteLock {
    using ZAbstractReadWriteLock::lock;
    using ZAbstractReadWriteLock::unlock;
    void lock(State mode) override { calls += "lock" + std::to_string(mode) + " "; }
    void unlock(int update) override { calls += "unlock" + std::to_string(update) + " "; }
    bool haveLock(State) const override { return false; }
    bool ownWriteLock() const override { return false; }
    int getUpdate() const override { return 5; }
    void setUpdate(int update) override { calls += "update" + std::to_string(update) + " "; }
    void readLock() override { calls += "read "; }
    void writeLock() override { calls += "write "; }
    void readWithIntentToWriteLock() override { calls += "protect "; }
    void promoteReadToWriteLock() override { calls += "promote "; }

    std::string calls;
};

TEST(StackReadWriteLockTest, ForwardsLocksNothingItselfAndUnlocksOnce) {
    NotingLock lock;
    {
        ZStackReadWriteLock guard(lock, 1);
        EXPECT_EQ(&guard.getReadWriteLock(), &lock);
        EXPECT_EQ(guard.getUpdate(), 5);
        guard.readLock();
        guard.writeLock();
        guard.readWithIntentToWriteLock();
        guard.promoteReadToWriteLock();
        guard.setUpdate(0);
        guard.unlock(2);
    }
    lock.lock();
    EXPECT_EQ(lock.calls, "update1 read write protect promote update0 unlock2 unlock5 lock3 ")
        << "by default with the update asked for, and to write";
    Reports reports;
    ZReadWriteLock unlocked;
    { ZStackReadWriteLock const guard(unlocked, 0); }
    EXPECT_EQ(reports.take(), (std::vector<Report>{{"ZUnlockResourceException", 6, {}}}));
}

}  // namespace
