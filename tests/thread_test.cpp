#include "Z/ZThread.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/reports.h"
#include "support/threads.h"

#if defined(__clang__)
// Locks are misused on purpose, and looked at from outside.
#pragma clang diagnostic ignored "-Wthread-safety-analysis"
#endif

namespace {

using testsupport::Beside;
using testsupport::Gate;
using testsupport::onThread;
using testsupport::Report;
using testsupport::Reports;
using testsupport::thrownBy;

constexpr int asJoinable = 0;
constexpr int asDetached = 1;
constexpr int kept = 0;
constexpr int deleted = 1;

Report const nothing{"", 0, {}};
Report const notJoined{"ZThreadException", 20, {}};

/// A thread with a body; opens gates when it ends and when it is deleted.
class TestThread : public ZThread {
  public:
    TestThread(int isDetached, int deletes, std::function<void(TestThread&)> work)
        : ZThread(isDetached, deletes), body(std::move(work)) {}
    ~TestThread() override {
        if (gone != nullptr) gone->open();
    }
    void run() override { body(*this); }
    void exit() override {
        ++exits;
        if (atExit) atExit();
        if (ended != nullptr) ended->open();
    }

    std::function<void(TestThread&)> body;
    std::function<void()> atExit;
    std::atomic<int> exits{0};
    Gate* ended = nullptr;
    Gate* gone = nullptr;
};

TEST(ThreadTest, RunsItsBodyInAThreadOfItsIdAndCallsExitOnce) {
    pthread_t seen{};
    pthread_t own{};
    TestThread thread(asJoinable, kept, [&](TestThread& self) {
        seen = pthread_self();
        own = self.getPThreadID();
    });
    EXPECT_EQ(thread.hash(), 0UL) << "not started";
    thread.start();
    pthread_t const id = thread.getPThreadID();
    thread.waitForExit();
    EXPECT_TRUE(pthread_equal(seen, id));
    EXPECT_TRUE(pthread_equal(own, id));
    EXPECT_FALSE(pthread_equal(id, pthread_self()));
    EXPECT_EQ(thread.hash(), static_cast<unsigned long>(id));
    EXPECT_EQ(thread.exits, 1);
    EXPECT_EQ(thread.clone(), nullptr);
}

TEST(ThreadTest, MayBeStartedAgain) {
    int runs = 0;
    TestThread thread(asJoinable, kept, [&](TestThread&) { ++runs; });
    for (int i = 0; i < 3; ++i) {
        thread.start();
        thread.waitForExit();
    }
    EXPECT_EQ(runs, 3);
    EXPECT_EQ(thread.exits, 3);
}

TEST(ThreadTest, JoinsOnceAndNeverItself) {
    TestThread thread(asJoinable, kept, [](TestThread& self) {
        EXPECT_EQ(thrownBy([&] { self.waitForExit(); }), notJoined) << "itself";
    });
    EXPECT_EQ(thrownBy([&] { thread.waitForExit(); }), notJoined) << "not started";
    thread.start();
    thread.waitForExit();
    EXPECT_EQ(thrownBy([&] { thread.waitForExit(); }), notJoined) << "twice";
}

TEST(ThreadTest, OnlyOneOfTwoThreadsJoins) {
    Gate go;
    TestThread thread(asJoinable, kept, [&](TestThread&) { go.await(); });
    thread.start();
    std::atomic<int> refusals{0};
    auto const join = [&] {
        if (thrownBy([&] { thread.waitForExit(); }) == nothing) return;
        ++refusals;
        go.open();  // the other one waits by now, or has still to ask and will find it joined
    };
    Beside first(join);
    Beside second(join);
    first.join();
    second.join();
    EXPECT_EQ(refusals, 1);
}

/// Opens a gate as its last step, and does not touch itself afterwards.
class Unjoined : public ZThread {
  public:
    explicit Unjoined(std::shared_ptr<Gate> gate)
        : ZThread(asJoinable, kept), last(std::move(gate)) {}
    void run() override {}
    void exit() override {
        auto const gate = last;
        gate->open();
    }

  private:
    std::shared_ptr<Gate> last;
};

TEST(ThreadTest, AThreadThatNobodyJoinedIsGivenUpByItsDestructorAndTheNextStart) {
    // What stays behind is seen by the thread sanitizer, and by the system's limit on threads.
    for (bool const startsAgain : {false, true}) {
        auto const ended = std::make_shared<Gate>();
        Unjoined thread(ended);
        thread.start();
        ended->await();
        if (!startsAgain) continue;
        thread.start();
        thread.waitForExit();
    }
}

TEST(ThreadTest, ADetachedThreadIsNotWaitedFor) {
    Gate go;
    Gate ended;
    Gate gone;
    auto* const thread = new TestThread(asDetached, deleted, [&](TestThread&) { go.await(); });
    thread->ended = &ended;
    thread->gone = &gone;
    thread->start();
    thread->waitForExit();
    go.open();
    ended.await();
    gone.await();
}

TEST(ThreadTest, AJoinableThreadKeepsItsObjectWhateverTheFlag) {
    TestThread thread(asJoinable, deleted, [](TestThread&) {});
    thread.start();
    thread.waitForExit();
    EXPECT_EQ(thread.exits, 1);
}

TEST(ThreadTest, ThreadsShorterThanTheirStartLeaveNothingBehind) {
    constexpr int count = 500;
    std::atomic<int> left{count};
    Gate done;
    struct Short : ZThread {
        Short(std::atomic<int>& number, Gate& last)
            : ZThread(asDetached, deleted), left(number), done(last) {}
        ~Short() override {
            if (--left == 0) done.open();
        }
        void run() override {}
        std::atomic<int>& left;
        Gate& done;
    };
    for (int i = 0; i < count; ++i)
        (new Short(left, done))->start();
    done.await();
    EXPECT_EQ(left, 0);
}

TEST(ThreadTest, ReportsWhatEscapesFromRunAndExit) {
    struct Row {
        std::function<void()> fails;
        Report reported;
    };
    Row const rows[] = {
        {[] { ZLock().unlock(); }, {"ZUnlockResourceException", 6, {}}},
        {[] { throw std::runtime_error("mine"); }, {"src/Z/ZThread", 19, {}}},
        {[] { throw 7; }, {"src/Z/ZThread", 19, {}}},
    };
    for (Row const& row : rows) {
        Reports reports;
        TestThread thread(asJoinable, kept, [&](TestThread&) { row.fails(); });
        thread.start();
        thread.waitForExit();
        EXPECT_EQ(reports.take(), (std::vector<Report>{row.reported}));
        EXPECT_EQ(thread.exits, 1);
        thread.body = [](TestThread&) {};
        thread.atExit = row.fails;
        thread.start();
        thread.waitForExit();
        EXPECT_EQ(reports.take(), (std::vector<Report>{row.reported}));
    }
}

TEST(ThreadTest, PthreadExitAndCancellationPassThroughAndCleanUpOnce) {
    Gate inside;
    std::function<void(TestThread&)> const bodies[] = {
        [](TestThread&) { pthread_exit(nullptr); },
        [&](TestThread&) {
            inside.open();
            while (true)
                pause();
        },
        [](TestThread& self) { self.atExit = [] { pthread_exit(nullptr); }; },
    };
    for (auto const& body : bodies) {
        Reports reports;
        TestThread thread(asJoinable, kept, body);
        thread.start();
        if (&body == &bodies[1]) {
            inside.await();
            ASSERT_EQ(pthread_cancel(thread.getPThreadID()), 0);
        }
        thread.waitForExit();
        EXPECT_EQ(thread.exits, 1);
        EXPECT_TRUE(reports.take().empty());
    }
}

TEST(ThreadTest, ACancelledJoinMayBeRepeated) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the thread sanitizer loses count when a join is cancelled";
#endif
    Gate go;
    TestThread thread(asJoinable, kept, [&](TestThread&) { go.await(); });
    thread.start();
    TestThread joiner(asJoinable, kept, [&](TestThread&) { thread.waitForExit(); });
    joiner.start();
    ASSERT_EQ(pthread_cancel(joiner.getPThreadID()), 0);
    joiner.waitForExit();
    go.open();
    thread.waitForExit();
}

/// Stands for a thread that it did not start.
class Wrapped : public ZThread {
  public:
    using ZThread::ZThread;
    void run() override {}
};

void* endAtOnce(void*) { return nullptr; }

TEST(ThreadTest, StandsForAThreadThatSomebodyElseStarted) {
    pthread_t id{};
    ASSERT_EQ(pthread_create(&id, nullptr, endAtOnce, nullptr), 0);
    Wrapped wrapped(id);
    { Wrapped const other(id); }
    EXPECT_TRUE(pthread_equal(wrapped.getPThreadID(), id));
    wrapped.waitForExit();
    EXPECT_EQ(thrownBy([&] { wrapped.waitForExit(); }), notJoined);
}

TEST(ThreadTest, OrdersByIdUnsigned) {
    Wrapped const low(1);
    Wrapped const sameAsLow(1);
    Wrapped const high(std::numeric_limits<pthread_t>::max());
    EXPECT_EQ(low.compare(high), -1);
    EXPECT_EQ(high.compare(low), 1);
    EXPECT_EQ(low.compare(sameAsLow), 0);
    EXPECT_TRUE(low.equals(sameAsLow));
    ZLock const other;
    EXPECT_EQ(low.compare(other), low.ZObject::compare(other)) << "of another class: by address";
}

/// Counts how many of it live.
class Counted : public ZObject {
  public:
    explicit Counted(std::atomic<int>& number) : living(number) { ++living; }
    ~Counted() override { --living; }

  private:
    std::atomic<int>& living;
};

TEST(ThreadKeyTest, EachThreadHasItsObjectWhichEndsWithTheThread) {
    std::atomic<int> living{0};
    unsigned int key = 0;
    ZThread::createThreadKey(key);
    auto* const mine = new Counted(living);
    ZThread::setThreadObject(key, mine);
    TestThread thread(asJoinable, kept, [&](TestThread&) {
        EXPECT_EQ(ZThread::getThreadObject(key), nullptr);
        auto* const theirs = new Counted(living);
        ZThread::setThreadObject(key, theirs);
        EXPECT_EQ(ZThread::getThreadObject(key), theirs);
        EXPECT_EQ(living, 2);
    });
    thread.start();
    thread.waitForExit();
    EXPECT_EQ(living, 1);
    EXPECT_EQ(ZThread::getThreadObject(key), mine);
    ZThread::setThreadObject(key, nullptr);
    EXPECT_EQ(living, 1) << "is the caller's again";
    delete mine;
    pthread_key_delete(key);
}

TEST(ThreadKeyTest, RefusesAKeyThatIsNone) {
    unsigned int noKey = std::numeric_limits<unsigned int>::max();
    EXPECT_EQ(thrownBy([&] { ZThread::setThreadObject(noKey, nullptr); }),
              (Report{"ZThreadException", 30, {}}));
    EXPECT_EQ(ZThread::getThreadObject(noKey), nullptr);
    std::vector<unsigned int> keys;
    Report thrown = nothing;
    while (thrown == nothing && keys.size() < 100000) {
        unsigned int key = 0;
        thrown = thrownBy([&] { ZThread::createThreadKey(key); });
        if (thrown == nothing) keys.push_back(key);
    }
    EXPECT_EQ(thrown, (Report{"ZThreadException", 29, {}}));
    for (unsigned int const key : keys)
        pthread_key_delete(key);
}

/// Counts its units of work, and can be awaited.
class Sleeper : public ZSleeperThread {
  public:
    using ZSleeperThread::ZSleeperThread;
    ~Sleeper() override {
        if (gone != nullptr) gone->open();
    }
    void doWork() override {
        ZResourceLock const guard(changed);
        ++works;
        if (atWork) atWork();
        changed.broadcast();
    }
    void exit() override {
        if (ended != nullptr) ended->open();
    }
    void awaitWorks(int count) {
        ZResourceLock const guard(changed);
        while (works < count)
            changed.wait();
    }
    int worked() {
        ZResourceLock const guard(changed);
        return works;
    }

    std::function<void()> atWork;
    Gate* ended = nullptr;
    Gate* gone = nullptr;

  private:
    ZCondition changed;
    int works ZGUARDED_BY(changed) = 0;
};

TEST(SleeperThreadTest, WorksOnceForEachTimeItIsWoken) {
    Sleeper sleeper;
    sleeper.start();
    for (int i = 1; i <= 3; ++i) {
        sleeper.wakeUp();
        sleeper.awaitWorks(i);
    }
    sleeper.waitForExit();
    EXPECT_EQ(sleeper.worked(), 3);
}

TEST(SleeperThreadTest, DoesNotWorkUnlessItIsWoken) {
    for (int i = 0; i < 50; ++i) {
        Sleeper sleeper;
        sleeper.start();
        sleeper.waitForExit();
        EXPECT_EQ(sleeper.worked(), 0);
    }
}

TEST(SleeperThreadTest, WorksWhenItsIntervalHasElapsed) {
    Sleeper sleeper(1UL);
    sleeper.start();
    sleeper.awaitWorks(2);
    sleeper.waitForExit();
    Sleeper patient(asJoinable, kept, std::numeric_limits<unsigned long>::max());
    patient.start();
    patient.wakeUp();
    patient.awaitWorks(1);
    patient.waitForExit();
    EXPECT_EQ(patient.worked(), 1) << "an interval that no clock reaches";
}

TEST(SleeperThreadTest, AWakeUpDuringTheWorkIsAbsorbed) {
    Sleeper sleeper;
    sleeper.atWork = [&] { sleeper.wakeUp(); };
    sleeper.start();
    sleeper.wakeUp();
    sleeper.awaitWorks(1);
    sleeper.waitForExit();
    EXPECT_EQ(sleeper.worked(), 1);
}

TEST(SleeperThreadTest, MayBeStartedAgainWhenItHasEnded) {
    Sleeper sleeper;
    for (int i = 1; i <= 3; ++i) {
        sleeper.start();
        sleeper.wakeUp();
        sleeper.awaitWorks(i);
        sleeper.waitForExit();
        EXPECT_EQ(thrownBy([&] { sleeper.waitForExit(); }), notJoined) << "ended already";
    }
    EXPECT_EQ(sleeper.worked(), 3);
}

TEST(SleeperThreadTest, ADetachedOneEndsWhenItIsTold) {
    Gate ended;
    Sleeper sleeper(asDetached, kept);
    sleeper.ended = &ended;
    sleeper.start();
    sleeper.waitForExit();
    ended.await();
    // Detached threads have no join: give the last steps the time until the next one has ended.
    Gate gone;
    auto* const own = new Sleeper(asDetached, deleted);
    own->gone = &gone;
    own->start();
    own->waitForExit();
    gone.await();
}

TEST(SleeperThreadTest, OneThatDeletesItselfMayEndBeforeItsStartReturns) {
    for (int i = 0; i < 200; ++i) {
        Gate gone;
        auto* const sleeper = new Sleeper(asDetached, deleted, 0);
        sleeper->gone = &gone;
        sleeper->atWork = [] { throw std::runtime_error("ends at once"); };
        Reports reports;
        sleeper->wakeUp();  // works as soon as it runs
        sleeper->start();
        gone.await();
        EXPECT_EQ(reports.take(), (std::vector<Report>{{"src/Z/ZThread", 19, {}}}));
    }
}

TEST(SleeperThreadTest, SleepsWithTheLockThatItsMakerLends) {
    ZLock lent;
    Sleeper sleeper(lent);
    bool seen = false;
    bool ready = false;
    sleeper.atWork = [&] { seen = ready && !onThread([&] { return lent.try_lock(); }); };
    {
        ZResourceLock const guard(lent);
        sleeper.start();
        sleeper.wakeUp();
        EXPECT_EQ(sleeper.worked(), 0) << "kept from working";
        ready = true;
    }
    sleeper.awaitWorks(1);
    sleeper.waitForExit();
    EXPECT_TRUE(seen) << "works with the lock held";
    EXPECT_TRUE(lent.try_lock());
    lent.unlock();
}

TEST(SleeperThreadTest, WorkThatThrowsEndsTheThread) {
    Reports reports;
    Gate ended;
    Sleeper sleeper;
    sleeper.ended = &ended;
    sleeper.atWork = [] { ZLock().unlock(); };
    sleeper.start();
    sleeper.wakeUp();
    ended.await();
    EXPECT_EQ(reports.take(), (std::vector<Report>{{"ZUnlockResourceException", 6, {}}}));
    sleeper.waitForExit();
}

TEST(SleeperThreadTest, IsCancelledInItsSleep) {
    Gate ended;
    Sleeper sleeper;
    sleeper.ended = &ended;
    sleeper.start();
    ASSERT_EQ(pthread_cancel(sleeper.getPThreadID()), 0);
    ended.await();
    sleeper.waitForExit();
    sleeper.start();
    sleeper.wakeUp();
    sleeper.awaitWorks(1);
    sleeper.waitForExit();
}

}  // namespace
