// link: static
// wrap: pthread_mutex_init,pthread_mutex_destroy,pthread_mutex_lock,pthread_mutex_trylock
// wrap: pthread_mutex_unlock,pthread_cond_init,pthread_cond_destroy,pthread_cond_wait
// wrap: pthread_cond_timedwait,pthread_cond_signal,pthread_cond_broadcast,pthread_create
// wrap: pthread_join,pthread_attr_init,pthread_attr_destroy,pthread_attr_setdetachstate
// wrap: pthread_key_create,pthread_setspecific
#include "Z/ZReadWriteLock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <thread>
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
    Holder(Holder const&) = delete;
    Holder& operator=(Holder const&) = delete;
    void release() {
        leave.open();
        thread.join();
    }

  private:
    Gate inside;
    Gate leave;
    Beside thread;
};

/// Who may enter: by held and requested state.
constexpr bool admitted[][4] = {
    {false, true, true, true},
    {false, true, true, false},
    {false, true, false, false},
    {false, false, false, false},
};

/// Calls `body` for every pair of a held and a requested state.
void forEachPair(std::function<void(State, State, bool)> const& body) {
    for (State const held : {unset, read, protect, write})
        for (State const requested : {read, protect, write}) {
            SCOPED_TRACE(std::to_string(held) + " held, " + std::to_string(requested));
            body(held, requested, admitted[held][requested]);
        }
}

TEST(ReadWriteLockTest, AdmitsByItsTableWithoutWaiting) {
    forEachPair([](State held, State requested, bool isAdmitted) {
        ZReadWriteLock lock;
        Holder holder(lock, held);
        int const readers = lock.getReaderCount();
        for (long const milliseconds : {std::numeric_limits<long>::min(), 0L, 1L}) {
            EXPECT_EQ(lock.lockFor(requested, milliseconds), isAdmitted) << milliseconds;
            if (isAdmitted) lock.unlock();
            EXPECT_EQ(stateOf(lock), held) << "nothing is left of the attempt";
            EXPECT_EQ(lock.getReaderCount(), readers);
        }
        EXPECT_EQ(lock.tryLock(requested), isAdmitted);
        if (isAdmitted) lock.unlock();
        holder.release();
        EXPECT_EQ(stateOf(lock), unset);
        EXPECT_TRUE(lock.tryReadLock());
        EXPECT_FALSE(onThread([&] { return lock.tryWriteLock(); }));
        lock.unlock();
    });
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
    forEachPair([&](State held, State requested, bool isAdmitted) {
        if (isAdmitted) return;
        for (Take const take : ways) {
            ZReadWriteLock lock;
            Holder holder(lock, held);
            int const before = waitsBegun;
            Beside waiter([&] {
                EXPECT_TRUE(take(lock, requested));
                EXPECT_EQ(stateOf(lock), requested);
                lock.unlock();
            });
            awaitWaits(before);
            holder.release();
            waiter.join();
            EXPECT_EQ(stateOf(lock), unset);
        }
    });
}

TEST(ReadWriteLockTest, RefusesTheHolderOfProtectOrWriteInEveryMode) {
    for (State const held : {protect, write}) {
        ZReadWriteLock lock;
        lock.lock(held);
        for (State const requested : {read, protect, write}) {
            EXPECT_EQ(thrownBy([&] { lock.lock(requested); }), lockRefused) << held << requested;
            EXPECT_EQ(thrownBy([&] { static_cast<void>(lock.tryLock(requested)); }), lockRefused);
        }
        EXPECT_EQ(stateOf(lock), held);
        EXPECT_EQ(lock.getReaderCount(), 0);
        lock.unlock();
        EXPECT_EQ(stateOf(lock), unset);
    }
}

TEST(ReadWriteLockTest, RefusesAPromotionByAnybodyButTheHolderOfProtect) {
    for (State const held : {unset, read, protect, write}) {
        ZReadWriteLock lock;
        Holder const holder(lock, held);
        EXPECT_EQ(thrownBy([&] { lock.promoteReadToWriteLock(); }), lockRefused) << held;
        EXPECT_EQ(stateOf(lock), held);
        if (held == read) continue;
        EXPECT_EQ(thrownBy([&] { lock.unlock(); }), unlockRefused) << held << ", or an unlock";
        EXPECT_EQ(thrownBy([&] { lock.lock(unset); }), unlockRefused) << held;
        EXPECT_EQ(stateOf(lock), held);
        EXPECT_EQ(lock.getReaderCount(), 0);
    }
    ZReadWriteLock lock;
    lock.writeLock();
    EXPECT_EQ(thrownBy([&] { lock.promoteReadToWriteLock(); }), lockRefused) << "is write already";
    lock.unlock();
}

TEST(ReadWriteLockTest, APromotionShutsReadersOutAndWaitsForThoseInside) {
    ZReadWriteLock lock;
    Holder first(lock, read);
    Holder second(lock, read);
    Gate release;
    int const before = waitsBegun;
    Beside promoter([&] {
        lock.readWithIntentToWriteLock();
        lock.promoteReadToWriteLock();
        EXPECT_EQ(lock.getReaderCount(), 0);
        release.await();
        lock.unlock();
    });
    awaitWaits(before);
    EXPECT_EQ(stateOf(lock), write) << "at once";
    EXPECT_EQ(lock.getReaderCount(), 2);
    EXPECT_FALSE(lock.tryReadLock()) << "no new reader";
    Crew readers;
    for (int i = 0; i < 2; ++i)
        readers.add([&] { lock.readLock(); });
    awaitWaits(before, 3);
    first.release();
    EXPECT_EQ(stateOf(lock), write);
    second.release();
    release.open();
    promoter.join();
    readers.join();
    EXPECT_EQ(lock.getReaderCount(), 2) << "one release lets both in";
    lock.unlock();
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
    EXPECT_EQ(lock.getLockStateName(noState), nullptr);
    EXPECT_EQ(thrownBy([&] { lock.lock(noState); }), invalidParameter);
    for (State const state : {unset, noState})
        EXPECT_EQ(thrownBy([&] { static_cast<void>(lock.tryLock(state)); }), invalidParameter);
    EXPECT_EQ(stateOf(lock), unset);
}

struct Deaf : ZObserverInterface {
    void update(ZAbstractObservable*, ZObservedParm const&) override {}
};

TEST(ReadWriteLockTest, ACopyIsAFreeLockWithoutObservers) {
    Deaf observer;
    ZReadWriteLock held;
    held.setUpdate(1);
    EXPECT_EQ(held.getUpdate(), 0) << "there are no shared data";
    EXPECT_EQ(held.isCurrent(), 1);
    held.addObserver(&observer);
    held.writeLock();
    std::unique_ptr<ZObject> const cloned(held.clone());
    auto* const clone = dynamic_cast<ZReadWriteLock*>(cloned.get());
    ASSERT_NE(clone, nullptr);
    EXPECT_EQ(stateOf(*clone), unset);
    EXPECT_FALSE(clone->ownWriteLock());
    EXPECT_EQ(clone->countObservers(), 0U);
    EXPECT_TRUE(clone->tryWriteLock());
    clone->unlock();
    EXPECT_EQ(stateOf(held), write);
    held.unlock();
}

TEST(ReadWriteLockTest, ACancelledWaitLeavesTheLockAsIfItHadNotBeenAskedFor) {
    struct Row {
        State held;
        State requested;  // protect: waits in its promotion
    };
    for (Row const row : {Row{read, write}, Row{write, read}, Row{read, protect}}) {
        SCOPED_TRACE(row.requested);
        Reports reports;
        ZReadWriteLock lock;
        Holder holder(lock, row.held);
        Gate readerInside;
        struct Protect {
            ~Protect() {
                readerInside.await();  // shut out by the promotion, let in when it is given up
                EXPECT_EQ(stateOf(lock), protect);
                lock.unlock();
            }
            ZReadWriteLock& lock;
            Gate& readerInside;
        };
        int const before = waitsBegun;
        Doomed const waiter([&] {
            if (row.requested != protect) return lock.lock(row.requested);
            lock.readWithIntentToWriteLock();
            Protect const held{lock, readerInside};
            lock.promoteReadToWriteLock();
        });
        awaitWaits(before);
        bool const promotes = row.requested == protect;
        Beside reader([&] {
            if (promotes) lock.readLock();
            readerInside.open();
        });
        if (promotes) awaitWaits(before, 2);
        EXPECT_TRUE(waiter.cancel());
        reader.join();
        EXPECT_EQ(stateOf(lock), row.held);
        if (promotes) lock.unlock();
        holder.release();
        EXPECT_EQ(stateOf(lock), unset);
        EXPECT_TRUE(lock.tryWriteLock());
        lock.unlock();
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
    auto const inRounds = [&](std::function<void()> take, std::function<void()> use) {
        return [&lock, take = std::move(take), use = std::move(use)] {
            for (int round = 0; round < rounds; ++round) {
                take();
                use();
                lock.unlock();
            }
        };
    };
    auto const promote = [&] {
        lock.readWithIntentToWriteLock();
        check();
        lock.promoteReadToWriteLock();
    };
    auto const writeInTime = [&] {
        while (!lock.lockFor(write, 1))
            std::this_thread::yield();
    };
    Crew crew;
    crew.add(inRounds([&] { lock.readLock(); }, check));
    crew.add(inRounds([&] { lock.writeLock(); }, change));
    crew.add(inRounds(promote, change));
    crew.add(inRounds(writeInTime, change));
    crew.join();
    EXPECT_EQ(torn, 0);
    EXPECT_EQ(first, 3 * rounds);
    EXPECT_EQ(second, 3 * rounds);
    EXPECT_EQ(stateOf(lock), unset);
}

/// A lock that only notes what it is asked for.
class NotingLock : public ZAbstractReadWriteLock {
  public:
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
        EXPECT_EQ(lock.calls, "update1 ");
        guard.readLock();
        guard.writeLock();
        guard.readWithIntentToWriteLock();
        guard.promoteReadToWriteLock();
        guard.setUpdate(0);
        guard.unlock(2);
        EXPECT_EQ(lock.calls, "update1 read write protect promote update0 unlock2 ");
        lock.calls.clear();
    }
    lock.lock();
    EXPECT_EQ(lock.calls, "unlock5 lock3 ") << "by default with the update asked for, and to write";
}

TEST(StackReadWriteLockTest, ReportsAnUnlockWithNothingToRelease) {
    Reports reports;
    ZReadWriteLock lock;
    { ZStackReadWriteLock const guard(lock, 0); }
    EXPECT_EQ(reports.take(), (std::vector<Report>{{"ZUnlockResourceException", 6, {}}}));
}

}  // namespace
