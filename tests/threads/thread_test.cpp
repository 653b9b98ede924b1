#include "Z/ZThread.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/workers.h"

namespace {

using namespace testsupport;

Report const notJoined{"ZThreadException", 20, {std::to_string(ESRCH)}};

TEST(ThreadTest, RunsItsBodyInAThreadOfItsIdAndCallsExitOnceHoweverOftenItIsStarted) {
    Tally tally;
    pthread_t seen{};
    Task thread(tally, nullptr, asJoinable, deletesObject);  // the flag means nothing here
    thread.body = [&] {
        seen = pthread_self();
        EXPECT_EQ(seen, thread.getPThreadID());
    };
    EXPECT_EQ(thread.hash(), 0UL) << "not started";
    for (int i = 1; i <= 3; ++i) {
        thread.start();
        EXPECT_NE(thread.getPThreadID(), pthread_self());
        thread.waitForExit();
        EXPECT_EQ(seen, thread.getPThreadID());
        EXPECT_EQ(thread.hash(), static_cast<unsigned long>(seen));
        EXPECT_EQ(tally.works, i);
        EXPECT_EQ(tally.ended, i);
    }
}

/// Bytes of addresses that the process uses, of which every thread has some for its stack.
std::size_t addressSpace() {
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

TEST(ThreadTest, AThreadThatNobodyJoinedIsGivenUpByItsDestructorAndTheNextStart) {
    constexpr std::size_t halfOfTheStacks = std::size_t{400} << 20;
    std::size_t before = 0;
    Tally tally;
    for (int i = 0; i <= 100; ++i) {
        Task thread(tally);
        for (int start = 1; start <= 2; ++start) {
            thread.start();
            awaitThat([&] { return tally.ended == 2 * i + start; });
        }
        if (i == 0) before = addressSpace();
    }
    EXPECT_LT(addressSpace(), before + halfOfTheStacks);
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
    Report const failure{"ZUnlockResourceException", 6, {}};
    struct {
        std::function<void()> run;
        std::function<void()> exit;
        std::vector<Report> reported;
    } const rows[] = {
        {fails, throws, {failure, unknownInThread}},
        {throws, fails, {unknownInThread, failure}},
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
    EXPECT_EQ(wrapped.getPThreadID(), id);
    wrapped.waitForExit();
    EXPECT_EQ(thrownBy([&] { wrapped.waitForExit(); }), notJoined);
}

TEST(ThreadTest, OrdersByIdUnsigned) {
    Wrapped const low(1);
    Wrapped const high(std::numeric_limits<pthread_t>::max());
    EXPECT_EQ(low.compare(high), -1);
    EXPECT_EQ(high.compare(low), 1);
    EXPECT_TRUE(low.equals(Wrapped(1)));
}

TEST(ThreadKeyTest, EachThreadHasItsObjectWhichEndsWithTheThread) {
    Tally tally;
    unsigned int key = 0;
    ZThread::createThreadKey(key);
    Task thread(tally, [&] {
        EXPECT_EQ(ZThread::getThreadObject(key), nullptr);
        auto* const object = new Task(tally);
        ZThread::setThreadObject(key, object);
        EXPECT_EQ(ZThread::getThreadObject(key), object);
    });
    ZThread::setThreadObject(key, &thread);
    thread.start();
    thread.waitForExit();
    EXPECT_EQ(tally.living, 1);
    EXPECT_EQ(ZThread::getThreadObject(key), &thread);
    ZThread::setThreadObject(key, nullptr);
    pthread_key_delete(key);
}

TEST(SleeperThreadTest, WorksOnceForEachTimeItIsWokenAndMayBeStartedAgain) {
    Tally tally;
    Worker sleeper(tally);
    sleeper.body = [&] { sleeper.wakeUp(); };  // absorbed
    for (int i = 1; i <= 50; ++i) {
        sleeper.start();
        sleeper.wakeUp();
        awaitThat([&] { return tally.works >= i; });
        sleeper.waitForExit();
        EXPECT_EQ(thrownBy([&] { sleeper.waitForExit(); }), notJoined) << "ended already";
        sleeper.start();
        sleeper.waitForExit();
        EXPECT_EQ(tally.works, i) << "not woken";
    }
}

TEST(SleeperThreadTest, WorksWhenItsIntervalHasElapsed) {
    Tally tally;
    Worker sleeper(tally, 1UL);
    sleeper.start();
    awaitThat([&] { return tally.works >= 2; });
    sleeper.waitForExit();
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

TEST(SleeperThreadTest, CancelledInItsSleepEndsWithTheLockInItsHands) {
    Reports reports;
    Tally tally;
    Worker sleeper(tally);
    sleeper.start();
    ASSERT_EQ(pthread_cancel(sleeper.getPThreadID()), 0);
    awaitThat([&] { return tally.ended == 1; });
    sleeper.waitForExit();
    EXPECT_TRUE(reports.take().empty()) << "it could be released";
}

}  // namespace
