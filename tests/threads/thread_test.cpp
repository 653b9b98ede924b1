#include "Z/ZThread.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <fstream>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/workers.h"

namespace {

using namespace testsupport;

Report notJoined(int rc) { return {"ZThreadException", 20, {std::to_string(rc)}}; }

TEST(ThreadTest, RunsItsBodyInAThreadOfItsIdAndCallsExitOnceHoweverOftenItIsStarted) {
    Tally tally;
    pthread_t seen{};
    Task thread(tally, nullptr, asJoinable, deletesObject);  // the flag means nothing here
    thread.body = [&] {
        seen = pthread_self();
        EXPECT_TRUE(pthread_equal(seen, thread.getPThreadID()));
    };
    EXPECT_EQ(thread.hash(), 0UL) << "not started";
    EXPECT_EQ(thread.clone(), nullptr);
    for (int i = 1; i <= 3; ++i) {
        thread.start();
        pthread_t const id = thread.getPThreadID();
        thread.waitForExit();
        EXPECT_TRUE(pthread_equal(seen, id) && !pthread_equal(id, pthread_self()));
        EXPECT_EQ(thread.hash(), static_cast<unsigned long>(id));
        EXPECT_EQ(tally.works, i);
        EXPECT_EQ(tally.ended, i);
    }
}

TEST(ThreadTest, IsJoinedOnceByOneThread) {
    Tally tally;
    Gate go;
    std::atomic<int> refusals{0};
    Task thread(tally, [&] { go.await(); });
    EXPECT_EQ(thrownBy([&] { thread.waitForExit(); }), notJoined(ESRCH)) << "not started";
    thread.start();
    auto const join = [&] {
        Report const thrown = thrownBy([&] { thread.waitForExit(); });
        if (thrown == nothing) return;
        EXPECT_TRUE(thrown == notJoined(EINVAL) || thrown == notJoined(ESRCH)) << thrown;
        ++refusals;
        go.open();  // the other one waits by now, or has still to ask and will find it joined
    };
    Crew crew;
    crew.add(join);
    crew.add(join);
    crew.join();
    EXPECT_EQ(refusals, 1);
}

/// Bytes of addresses that the process uses, of which every thread has some for its stack.
std::size_t addressSpace() {
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

TEST(ThreadTest, AThreadThatNobodyJoinedIsGivenUpByItsDestructorAndTheNextStart) {
    constexpr int count = 100;
    pthread_attr_t usual;
    std::size_t stack = 0;
    ASSERT_EQ(pthread_attr_init(&usual), 0);
    ASSERT_EQ(pthread_attr_getstacksize(&usual, &stack), 0);
    std::size_t before = 0;
    Tally tally;
    for (int i = 0; i <= count; ++i) {
        Task thread(tally);
        for (int start = 1; start <= 2; ++start) {
            thread.start();
            awaitThat([&] { return tally.ended == 2 * i + start; });
        }
        if (i == 0) before = addressSpace();
    }
    EXPECT_LT(addressSpace(), before + count / 2 * stack);
}

TEST(ThreadTest, ADetachedThreadIsNotWaitedForAndMayBeShorterThanItsStart) {
    Tally tally;
    Gate go;
    std::function<void()> body = [&] { go.await(); };
    for (int i = 0; i < 500; ++i) {
        auto* const thread =
            new Task(tally, std::exchange(body, nullptr), asDetached, deletesObject);
        thread->start();
        if (i == 0) thread->waitForExit();
    }
    awaitThat([&] { return tally.living == 1; });
    go.open();
    awaitThat([&] { return tally.living == 0; });
    EXPECT_EQ(tally.ended, 500);
}

TEST(ThreadTest, CallsExitOnceHoweverItEndsAndReportsWhatEscapesButNoUnwinding) {
    std::function<void()> const leave = [] { pthread_exit(nullptr); };
    std::function<void()> const isCancelled = [] { pthread_cancel(pthread_self()), pause(); };
    std::function<void()> const fails = [] { ZLock().unlock(); };
    std::function<void()> const throws = [] { throw std::runtime_error("mine"); };
    std::function<void()> const throwsNumber = [] { throw 7; };
    Report const failure{"ZUnlockResourceException", 6, {}};
    struct {
        std::function<void()> run;
        std::function<void()> exit;
        std::vector<Report> reported;
    } const rows[] = {
        {fails, fails, {failure, failure}},
        {throws, throws, {unknownInThread, unknownInThread}},
        {throwsNumber, throwsNumber, {unknownInThread, unknownInThread}},
        {leave, nullptr, {}},
        {isCancelled, nullptr, {}},
        {nullptr, leave, {}},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(&row - rows);
        Reports reports;
        Tally tally;
        int exits = 0;
        Task thread(tally, row.run);
        thread.atExit = [&] {
            ++exits;
            if (row.exit) row.exit();
        };
        thread.start();
        thread.waitForExit();
        EXPECT_EQ(exits, 1);
        EXPECT_EQ(reports.take(), row.reported);
    }
}

// The thread sanitizer takes a cancelled pthread_join() for an error, in any program: its own part
// of the call is not unwound.
#if !defined(__SANITIZE_THREAD__)
TEST(ThreadTest, ACancelledJoinMayBeRepeated) {
    Tally tally;
    Gate go;
    Task thread(tally, [&] { go.await(); });
    thread.start();
    EXPECT_TRUE(Doomed([&] { thread.waitForExit(); }).cancel());
    go.open();
    thread.waitForExit();
    EXPECT_EQ(tally.ended, 1);
}
#endif

/// Stands for a thread that it did not start.
struct Wrapped : ZThread {
    using ZThread::ZThread;
    void run() override {}
};

TEST(ThreadTest, StandsForAThreadThatSomebodyElseStarted) {
    pthread_t id{};
    auto* const run = +[](void*) -> void* { return nullptr; };
    ASSERT_EQ(pthread_create(&id, nullptr, run, nullptr), 0);
    Wrapped wrapped(id);
    { Wrapped const other(id); }
    EXPECT_TRUE(pthread_equal(wrapped.getPThreadID(), id));
    wrapped.waitForExit();
    EXPECT_EQ(thrownBy([&] { wrapped.waitForExit(); }), notJoined(ESRCH));
}

TEST(ThreadTest, OrdersByIdUnsigned) {
    Wrapped const low(1);
    Wrapped const high(std::numeric_limits<pthread_t>::max());
    EXPECT_EQ(low.compare(high), -1);
    EXPECT_EQ(high.compare(low), 1);
    EXPECT_TRUE(low.equals(Wrapped(1)));
    ZLock const other;
    EXPECT_EQ(low.compare(other), low.ZObject::compare(other)) << "of another class: by address";
}

TEST(ThreadKeyTest, EachThreadHasItsObjectWhichEndsWithTheThread) {
    Tally tally;
    unsigned int key = 0;
    ZThread::createThreadKey(key);
    Task mine(tally);
    ZThread::setThreadObject(key, &mine);
    Task thread(tally, [&] {
        EXPECT_EQ(ZThread::getThreadObject(key), nullptr);
        auto* const theirs = new Task(tally);
        ZThread::setThreadObject(key, theirs);
        EXPECT_EQ(ZThread::getThreadObject(key), theirs);
        EXPECT_EQ(tally.living, 3);
    });
    thread.start();
    thread.waitForExit();
    EXPECT_EQ(tally.living, 2);
    EXPECT_EQ(ZThread::getThreadObject(key), &mine);
    ZThread::setThreadObject(key, nullptr);
    pthread_key_delete(key);
}

TEST(SleeperThreadTest, WorksOnceForEachTimeItIsWokenAndMayBeStartedAgain) {
    Tally tally;
    Worker sleeper(tally);
    for (int i = 1; i <= 10; ++i) {
        sleeper.start();
        for (int works : {2 * i - 1, 2 * i}) {
            sleeper.wakeUp();
            awaitThat([&] { return tally.works == works; });
        }
        sleeper.waitForExit();
        EXPECT_EQ(thrownBy([&] { sleeper.waitForExit(); }), notJoined(ESRCH)) << "ended already";
    }
    for (int i = 0; i < 50; ++i) {
        sleeper.start();
        sleeper.waitForExit();
    }
    EXPECT_EQ(tally.works, 20) << "not woken";
}

TEST(SleeperThreadTest, WorksWhenItsIntervalHasElapsedAndWakesUpDuringItsWorkAreAbsorbed) {
    Tally often;
    Worker sleeper(often, 1UL);
    sleeper.start();
    Tally once;
    Worker absorbing(once);
    absorbing.body = [&] { absorbing.wakeUp(); };
    absorbing.start();
    absorbing.wakeUp();
    awaitThat([&] { return often.works >= 2 && once.works > 0; });
    sleeper.waitForExit();
    absorbing.waitForExit();
    EXPECT_EQ(once.works, 1);
}

TEST(SleeperThreadTest, ADetachedOneEndsWhenItIsToldOrBeforeItsStartReturns) {
    Tally tally;
    Worker sleeper(tally, asDetached, keepsObject);
    sleeper.start();
    sleeper.waitForExit();
    awaitThat([&] { return tally.ended == 1; });
    Reports reports;
    for (int i = 0; i < 200; ++i) {
        auto* const own = new Worker(tally, asDetached, deletesObject);
        own->body = [] { throw std::runtime_error("ends at once"); };
        own->wakeUp();  // works as soon as it runs
        own->start();
        awaitThat([&] { return tally.living == 1; });
    }
    EXPECT_EQ(reports.take(), std::vector<Report>(200, unknownInThread));
}

TEST(SleeperThreadTest, SleepsWithTheLockThatItsMakerLends) {
    Tally tally;
    ZLock lent;
    Worker sleeper(tally, std::ref(lent));
    sleeper.body = [&] { EXPECT_FALSE(isFree(lent)); };
    {
        ZResourceLock const guard(lent);
        sleeper.start();
        sleeper.wakeUp();
        EXPECT_EQ(tally.works, 0) << "kept from working";
    }
    awaitThat([&] { return tally.works == 1; });
    sleeper.waitForExit();
    EXPECT_TRUE(isFree(lent));
}

TEST(SleeperThreadTest, EndsByCancellationInItsSleepAndByAnExceptionOfItsWork) {
    Reports reports;
    Tally tally;
    Worker sleeper(tally);
    sleeper.start();
    ASSERT_EQ(pthread_cancel(sleeper.getPThreadID()), 0);
    awaitThat([&] { return tally.ended == 1; });
    sleeper.waitForExit();
    EXPECT_TRUE(reports.take().empty());
    sleeper.body = [] { ZLock().unlock(); };
    sleeper.start();
    sleeper.wakeUp();
    awaitThat([&] { return tally.ended == 2; });
    sleeper.waitForExit();
    EXPECT_EQ(reports.take(), (std::vector<Report>{{"ZUnlockResourceException", 6, {}}}));
}

}  // namespace
