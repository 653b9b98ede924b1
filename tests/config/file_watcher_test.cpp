// Settings that follow their files, whatever happens to these.
// link: static
// wrap: inotify_init1,inotify_add_watch,timerfd_create
#include "Z/ZFileWatcher.h"

#include <poll.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/timerfd.h>

#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <optional>

#include "Z/platform/descriptor.h"
#include "support/faults.h"
#include "support/properties.h"
#include "support/reports.h"
#include "support/threads.h"

WRAP(inotify_init1, int, -1, (int flags), (flags))
WRAP(timerfd_create, int, -1, (int clock, int flags), (clock, flags))
WRAP(inotify_add_watch, int, -1, (int fd, char const* path, uint32_t mask), (fd, path, mask))

namespace {

using namespace testsupport;
using Event = ZFileWatched::Event;

using namespace std::chrono_literals;
constexpr auto longEnough = 60s;

std::string text(ZPropertyChanged const& change) {
    bool const isGone = change.getChangeType() == ZPropertyChanged::deleted;
    std::string const key = change.getKey() != nullptr ? change.getKey() : "";
    return (isGone ? "-" : "+") + std::string(change.getStanza()) + "." + key;
}

std::string text(ZFileWatched const& file) {
    constexpr char const* names[] = {"reloaded", "failed", "conflict", "missing", "polled"};
    std::string told = names[static_cast<int>(file.getEvent())];
    auto const* const io = dynamic_cast<ZPropertiesIOException const*>(file.getFailure());
    if (io != nullptr) return told + " " + io->api() + " " + std::to_string(io->excerrno());
    if (file.getFailure() == nullptr) return told;
    return told + " " + std::to_string(file.getFailure()->getCode());
}

/// What observers are told, in its order.
class Log : public ZObserverInterface {
  public:
    void update(ZAbstractObservable*, ZObservedParm const& parm) override {
        auto const* const file = dynamic_cast<ZFileWatched const*>(&parm);
        std::lock_guard const guard(mutex);
        lines.push_back(file != nullptr ? text(*file)
                                        : text(dynamic_cast<ZPropertyChanged const&>(parm)));
        grown.notify_all();
    }
    void clear() {
        std::lock_guard const guard(mutex);
        lines.clear();
    }
    /// All lines so far, when the last of them is `last`; nothing when it does not come.
    std::optional<Texts> takeUntil(std::string const& last, std::chrono::milliseconds limit) {
        std::unique_lock guard(mutex);
        bool const isThere =
            grown.wait_for(guard, limit, [&] { return !lines.empty() && lines.back() == last; });
        return isThere ? std::optional(std::exchange(lines, {})) : std::nullopt;
    }

  private:
    std::mutex mutex;
    std::condition_variable grown;
    Texts lines;
};

class FileWatcherTest : public testing::Test {
  protected:
    explicit FileWatcherTest(std::string name = "settings") : path(file.beside(name)) {
        settings.setAttributes(ZPCache::keepLastGood, nullptr);
        settings.addObserver(&log);
        watcher.addObserver(&log);
    }
    ~FileWatcherTest() override {
        fault = {};
        watcher.remove(settings);
        settings.deleteObserver(&log);
    }
    void watch() {
        settings.load(path.c_str());
        watcher.add(settings);
        watcher.reloadChanged();
    }
    static std::string bytes(int value) { return "[s]\nk = " + std::to_string(value) + "\n"; }
    [[nodiscard]] std::string value() const { return valueOf(settings, "s", "k"); }

    void work(int milliseconds) {
        pollfd one{watcher.getDescriptor(), POLLIN, 0};
        poll(&one, 1, milliseconds);
        watcher.reloadChanged();
    }
    /// Works until observers are told `last`; what they were told by then.
    Texts told(std::string const& last) {
        auto const end = std::chrono::steady_clock::now() + longEnough;
        while (std::chrono::steady_clock::now() < end) {
            if (auto lines = log.takeUntil(last, {})) return *lines;
            work(1000);
        }
        ADD_FAILURE() << last << " was not told";
        return {};
    }
    void expectReloaded(int expected) {
        EXPECT_EQ(told("reloaded"), (Texts{"+s.k", "reloaded"}));
        EXPECT_EQ(value(), std::to_string(expected));
    }

    StanzaFile file{bytes(0)};
    std::string path;
    Log log;
    ZStanzaFileProperties settings{1};
    ZFileWatcher watcher;
};

/// With the links that container platforms make.
class WayTest : public FileWatcherTest {
  protected:
    WayTest() : FileWatcherTest("d/settings") {
        run("mkdir -p d/v1; put d/v1/settings; ln -s v1 d/..data; ln -s ..data/settings d", 1);
    }
    /// `put FILE` writes the value.
    void run(std::string const& commands, int value) const {
        std::string const put =
            "; put() { printf '[s]\\nk = " + std::to_string(value) + "\\n' >$1; }; ";
        EXPECT_EQ(std::system(("cd " + file.place() + put + commands).c_str()), 0);
    }
};

TEST_F(WayTest, AChangeOfAFileOrOfTheWayToItIsSeen) {
    constexpr char const* ways[] = {
        "put d/settings",
        "put d/new; mv d/new d/v1/settings",
        "ln d/v1/settings other; put other",
        "rm d/v1/settings",
        "put d/v1/settings",
        "mkdir d/v2; put d/v2/settings; ln -s v2 d/new; mv -T d/new d/..data",
        "put d/new; mv d/new d/v2/settings",
        "mv d old",
        "mkdir d; put d/settings",
    };
    watch();
    int value = 1;
    for (char const* const way : ways) {
        SCOPED_TRACE(way);
        run(way, ++value);
        if (std::filesystem::exists(path)) {
            expectReloaded(value);
        } else {
            EXPECT_EQ(told("missing fopen(r) 2"), Texts{"missing fopen(r) 2"});
        }
    }
    for (int secret : {10, 11}) {  // the second changes nothing but the companion
        expectInChild([&] {
            ZStanzaFileProperties other(path.c_str(), 1);
            other.deleteKey("s", "k");
            other.setValue("s", "k", std::to_string(secret).c_str(), 1);
            other.store();
        });
        told("reloaded");
        EXPECT_EQ(this->value(), std::to_string(secret));
    }
}

TEST_F(FileWatcherTest, AFileIsNotReadBeforeItIsWhole) {
    using Clock = std::chrono::steady_clock;
    watch();
    // A second is given to who writes; when the test itself takes it, it has to try again.
    for (auto begin = Clock::now() - longEnough; Clock::now() - begin > 900ms;) {
        begin = Clock::now();
        writeFile(path, bytes(0));
        settings.reload();
        log.clear();
        FILE* const writer = std::fopen(path.c_str(), "w");
        std::fputs("[s]\nother = 1\n", writer);
        std::fflush(writer);
        work(100);
        work(100);
        std::fputs("k = 1\n", writer);
        std::fclose(writer);
    }
    EXPECT_EQ(told("reloaded"), (Texts{"+s.other", "+s.k", "reloaded"}));
}

TEST_F(FileWatcherTest, ABrokenFileIsToldAtEveryEditAndLeavesTheValues) {
    writeFile(path, bytes(3));
    watch();
    writeFile(path, "nonsense\n");
    EXPECT_EQ(told("failed 44"), Texts{"failed 44"});
    writeFile(path, "nonsense\n\n");
    EXPECT_EQ(told("failed 44"), Texts{"failed 44"});
    EXPECT_EQ(value(), "3");
    writeFile(path, bytes(3));
    EXPECT_EQ(told("reloaded"), Texts{"reloaded"}) << "nothing has changed, but it is mended";
    writeFile(path, "# comments are no settings\n" + bytes(3));
    writeFile(path, bytes(4));
    expectReloaded(4);
}

TEST_F(FileWatcherTest, AFileThatIsLockedIsReadWhenItIsFree) {
    watch();
    int const holder = lockWhole(path, F_OFD_SETLK, F_WRLCK);
    auto const begin = std::chrono::steady_clock::now();
    writeFile(path, bytes(1));
    EXPECT_EQ(told("failed fcntl() 11"), Texts{"failed fcntl() 11"});
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 1s) << "stores of others are no failures";
    struct flock freed {};
    freed.l_type = F_UNLCK;
    EXPECT_EQ(fcntl(holder, F_OFD_SETLK, &freed), 0);  // which is no event
    expectReloaded(1);
    close(holder);
}

TEST_F(FileWatcherTest, EditsThatAreNotStoredStayAndOwnStoresAreNoNews) {
    watch();
    settings.setValue("s", "k", "mine");
    watcher.checkAll();
    watcher.reloadChanged();
    EXPECT_TRUE(log.takeUntil("+s.k", 0ms)) << "the file has not changed";
    writeFile(path, bytes(1));
    EXPECT_EQ(told("conflict reload() 16"), Texts{"conflict reload() 16"});
    EXPECT_EQ(value(), "mine");
    settings.store();
    EXPECT_EQ(told("reloaded"), Texts{"reloaded"});
    settings.setValue("s", "own", "1");
    settings.store();
    writeFile(file.beside("new"), bytes(2));
    std::filesystem::rename(file.beside("new"), path);
    EXPECT_EQ(told("reloaded"), (Texts{"+s.own", "-s.own", "+s.k", "reloaded"}));
}

TEST_F(FileWatcherTest, AFileThatMayNotBeReadIsReadWhenItMay) {
    EXPECT_EQ(geteuid() == 0 ? chown(path.c_str(), nobody, nobody) : 0, 0);
    EXPECT_EQ(chmod(file.place().c_str(), 0755), 0);
    expectInChild([&] {
        becomeNobody();
        ZFileWatcher own;
        own.addObserver(&log);
        settings.load(path.c_str());
        own.add(settings);
        own.start();
        EXPECT_TRUE(chmod(path.c_str(), 0) == 0 && log.takeUntil("failed fopen(r) 13", longEnough));
        EXPECT_TRUE(chmod(path.c_str(), 0644) == 0 && log.takeUntil("reloaded", longEnough));
        writeFile(path, bytes(1));
        EXPECT_TRUE(log.takeUntil("reloaded", longEnough));
        EXPECT_EQ(value(), "1");
    });
}

TEST_F(FileWatcherTest, NoEventIsMissedWhenTooManyCome) {
    watch();
    long const most = std::stol(readFile("/proc/sys/fs/inotify/max_queued_events"));
    for (long i = 0; i <= most; ++i)
        writeFile(file.beside(i % 2 == 0 ? "a" : "b"), "");
    writeFile(path, bytes(1));
    expectReloaded(1);
}

TEST_F(FileWatcherTest, ObjectsOfOneFileAreToldEachAndOneAddedTwiceIsRemovedTwice) {
    ZStanzaFileProperties second(path.c_str(), 0);
    EXPECT_THROW(watcher.add(settings), ZInvalidParameterException) << "it has no file";
    watch();
    {
        ZFileWatcher::Watch const guard(watcher, second);
        ZFileWatcher::Watch const again(watcher, settings);
        writeFile(path, bytes(1));
        while (value() != "1" || valueOf(second, "s", "k") != "1")
            work(1000);
    }
    EXPECT_TRUE(log.takeUntil("reloaded", 0ms));
    writeFile(path, bytes(2));
    expectReloaded(2);
    EXPECT_EQ(valueOf(second, "s", "k"), "1");
}

TEST_F(FileWatcherTest, WhereInotifyCannotBeHadFilesArePolledUntilItCan) {
    std::pair<Fault, char const*> const rows[] = {
        {{"inotify_init1", 1, EMFILE, everyone}, "polled inotify_init1() 24"},
        {{"inotify_add_watch", 1, ENOSPC, everyone}, "polled inotify_add_watch() 28"},
    };
    constexpr unsigned int anHour = 3600000;
    int value = 0;
    settings.load(path.c_str());
    for (auto const& [failing, reason] : rows) {
        SCOPED_TRACE(reason);
        ZFileWatcher::Watch const guard(watcher, settings);
        watcher.setPolling(ZFileWatcher::Polling::whereNeeded, 10);
        fault = failing;
        EXPECT_EQ(told(reason), Texts{reason});
        writeFile(path, bytes(++value));
        expectReloaded(value);
        fault = {};
        for (fault.first = everyone; fault.seen == 0;)  // until it is asked for again
            watcher.reloadChanged();
        watcher.setPolling(ZFileWatcher::Polling::whereNeeded, anHour);
        watcher.reloadChanged();
        writeFile(path, bytes(++value));
        expectReloaded(value);
    }
    fault = {};
    watcher.setPolling(ZFileWatcher::Polling::always, 10);
    watcher.add(settings);
    watcher.reloadChanged();
    zfc::platform::Descriptor const opened = zfc::platform::openFile(path.c_str(), O_RDWR);
    void* const mapped = mmap(nullptr, 10, PROT_WRITE, MAP_SHARED, opened.get(), 0);
    static_cast<char*>(mapped)[8] = '9';  // which is no event
    expectReloaded(9);
    munmap(mapped, 10);
    EXPECT_THROW(watcher.setPolling(ZFileWatcher::Polling::always, 0), ZInvalidParameterException);
    fault = {"timerfd_create", 1, EMFILE};
    EXPECT_EQ(ioFailure([] { ZFileWatcher const other; }), ioText("", "timerfd_create()", EMFILE));
}

/// Does something when it is told.
class Hook : public ZObserverInterface {
  public:
    explicit Hook(std::function<void()> does) : body(std::move(does)) {}
    void update(ZAbstractObservable*, ZObservedParm const&) override { body(); }

  private:
    std::function<void()> body;
};

TEST_F(FileWatcherTest, ObserversMayThrowAndChangeWhatIsObserved) {
    Reports reports;
    int calls = 0;
    Hook thrower([&] {
        if (++calls == 1) throw 1;
        zraise(ZOutOfMemoryException(), "", 1);
    });
    Hook changer([&] {
        settings.deleteObserver(&changer);
        watcher.add(settings);
        watcher.checkAll();
    });
    watch();
    settings.addObserver(&changer);
    settings.addObserver(&thrower);
    watcher.start();
    for (int value : {1, 2}) {
        writeFile(path, bytes(value));
        EXPECT_EQ(log.takeUntil("reloaded", longEnough),
                  (Texts{"+s.k", value == 1 ? "failed" : "failed 1", "reloaded"}));
    }
    watcher.stop();
    settings.deleteObserver(&thrower);
    EXPECT_EQ(reports.take(), (std::vector<Report>{{"src/Z/ZFileWatcher", 19, {}}}));
    watcher.remove(settings);  // it was added twice
    watcher.deleteObserver(&log);
    writeFile(path, "nonsense\n");
    while (reports.take().empty())  // of what nobody else is told
        work(1000);
}

TEST_F(FileWatcherTest, NothingIsToldOfAnObjectThatAnObserverHasRemoved) {
    Hook remover([&] { watcher.remove(settings); });
    watch();
    settings.addObserver(&remover);
    writeFile(path, bytes(1));
    while (value() != "1")
        work(1000);
    settings.deleteObserver(&remover);
    watcher.add(settings);
    writeFile(path, bytes(2));
    EXPECT_EQ(told("reloaded"), (Texts{"+s.k", "+s.k", "reloaded"}));
}

TEST_F(FileWatcherTest, RemovingWaitsForWhoeverIsTold) {
    Gate entered;
    std::atomic<bool> isOver{false}, isLeft{false};
    int const remover = static_cast<int>(gettid());
    Hook slow([&] {
        entered.open();
        awaitThat([&] { return stateOf(remover) == 'S' || isLeft.load(); });
        isOver = true;
    });
    watch();
    settings.addObserver(&slow);
    watcher.start();
    writeFile(path, bytes(1));
    entered.await();
    watcher.remove(settings);
    EXPECT_TRUE(isOver);
    isLeft = true;
    settings.deleteObserver(&slow);
}

TEST_F(FileWatcherTest, TheThreadTakesNoSignalsStopsAndStartsAndIsNoChilds) {
    watch();
    watcher.start();
    watcher.start();
    writeFile(path, bytes(3));
    EXPECT_TRUE(log.takeUntil("reloaded", longEnough)) << "it runs";
    sigset_t wish;
    sigemptyset(&wish);
    sigaddset(&wish, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &wish, nullptr);
    kill(getpid(), SIGUSR1);  // ends the process, were there a thread to take it
    int taken = 0;
    EXPECT_EQ(sigwait(&wish, &taken), 0);
    pthread_sigmask(SIG_UNBLOCK, &wish, nullptr);
    EXPECT_NE(fcntl(watcher.getDescriptor(), F_GETFD) & FD_CLOEXEC, 0);
    expectInChild([&] {
        EXPECT_EQ(thrownBy([&] { watcher.start(); }), (Report{"ZThreadException", 20, {"3"}}));
        int const before = openDescriptors();
        std::optional<ZFileWatcher> own(std::in_place);
        own.reset();
        watcher.stop();
        watcher.remove(settings);
        EXPECT_EQ(openDescriptors(), before);
        watcher.~ZFileWatcher();
        EXPECT_EQ(openDescriptors(), before - 3) << "none is left to whoever comes next";
        _exit(testing::Test::HasFailure() ? 1 : 0);
    });
    Hook stopper([&] { watcher.stop(); });
    settings.addObserver(&stopper);
    for (int value : {1, 2}) {
        writeFile(path, bytes(value));
        EXPECT_TRUE(log.takeUntil("reloaded", longEnough)) << "in the thread that ends itself";
        watcher.start();
    }
    watcher.stop();
    settings.deleteObserver(&stopper);
    watcher.start();  // and ended by the destructor
}

}  // namespace
