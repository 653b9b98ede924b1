// link: static

// What a child finds that is forked while other threads are in the library, and how a process ends
// whose threads wait for static objects.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>

#include "Z/ZFileLock.h"
#include "Z/ZStanzaFileProperties.h"
#include "Z/zutils.h"
#include "qcs/qcs.h"
#include "support/process_lock.h"
#include "support/workers.h"

namespace {

using namespace testsupport;

struct Factory : ZAbstractPropertiesFactory {
    ZProperties* makePropertiesInstance() override { return new ZStanzaFileProperties(0); }
};

TEST(ForkTest, AChildNeverWaitsForAThreadOfItsParentNorFindsItsWorkHalfDone) {
    TempDir const directory;
    std::unique_ptr<FILE, int (*)(FILE*)> const nowhere(fopen("/dev/null", "w"), fclose);
    unsigned char const bytes[] = "content";
    Factory factory;
    NoReload observer;
    ZStubProcessReadWriteLock lock("config");
    int number = 0;
    std::function<void()> const operations[] = {
        [&] { zhex_dump(nowhere.get(), sizeof bytes, bytes, ""); },
        [&] {
            // A bounded number: the thread sanitizer lets nobody hold more than 64 locks, as a
            // fork.
            std::string const name = std::to_string(getpid()) + "." + std::to_string(++number % 40);
            std::string const path = directory.file(name);
            writeFile(path, "[a]\nb = c\n"), ZProperties::getPropertiesFor(path.c_str(), factory);
        },
        [&] { qcs_cs_free(qcs_cs_new("ISO-8859-1")); },
        [&] { static_cast<void>(qcs_loc_new("C.utf8")); },
        [&] { lock.addObserver(&observer), lock.deleteObserver(&observer); },
    };
    for (auto const& operation : operations) {
        operation();
        std::atomic<bool> isOver{false};
        Beside busy([&] {
            while (!isOver)
                operation();
        });
        int status = 0;
        for (int i = 0; i < 30 && status == 0; ++i)
            status = inChild([&] {
                alarm(20);  // behind this it hangs
                operation();
                return lock.countObservers() > 1 ? 1 : 0;
            });
        EXPECT_EQ(status, 0) << &operation - operations;
        isOver = true;
    }
}

/// Forks in the scope of a guard, which both processes leave; what they print. The child leaves one
/// more scope, in which it holds nothing.
template <class Guard, class Lock, class... Arguments>
std::string printedWhere(Lock& lock, void (*take)(Lock&), Arguments... arguments) {
    Captured const printed = captureChild([&] {
        pid_t child = 0;
        {
            take(lock);
            Guard const guard(lock, arguments...);
            child = fork();
        }
        if (child != 0) return waitpid(child, nullptr, 0) == child ? 0 : 1;
        if constexpr (std::is_same_v<Guard, ZStackReadWriteLock>) Guard const mistaken(lock, 0);
        return 0;
    });
    EXPECT_EQ(printed.status, 0);
    return printed.err;
}

TEST(ForkTest, AGuardWhoseScopeTheChildLeavesIsSilentAndOtherMistakesAreTold) {
    TempDir const directory;
    ZLock lock;
    ZCondition condition;
    ZUnixProcessReadWriteFileLock process("config", directory.path().c_str());
    ZStubProcessReadWriteLock stub("config");
    ZReadWriteLock local;
    EXPECT_EQ("", printedWhere<ZResourceLock>(
                      lock, +[](ZLock&) {}));
    EXPECT_EQ("", printedWhere<ZResourceLock>(
                      condition, +[](ZCondition&) {}));
    EXPECT_EQ("", printedWhere<ZStackWriteLock>(
                      process, +[](decltype(process)&) {}));
    for (auto const mode : {ZReadWriteLock::zlockRead, ZReadWriteLock::zlockWrite}) {
        static auto asked = mode;
        asked = mode;
        for (ZAbstractReadWriteLock* const taken :
             std::initializer_list<ZAbstractReadWriteLock*>{&process, &stub, &local}) {
            auto const printed = printedWhere<ZStackReadWriteLock>(
                *taken, +[](ZAbstractReadWriteLock& l) { l.lock(asked); }, 0);
            auto const first = printed.find("Exception: ZUnlockResourceException\n");
            EXPECT_EQ(first, 0U) << "of the mistake";
            EXPECT_EQ(printed.find("Exception: ", 1), std::string::npos) << printed;
        }
    }
}

constexpr int leftBehind = 2;

TEST(ForkTest, AChildFindsTheSettingsThatAnotherThreadEditsWhole) {
    TempDir const directory;
    ZStanzaFileProperties settings(0);
    std::string const longer(2000, 'x');
    std::atomic<bool> isOver{false};
    auto const edit = [&] {
        for (char const* const value : {"short", longer.c_str()})
            settings.setValue("stanza", "key", value);
    };
    edit();
    Beside busy([&] {
        while (!isOver)
            edit();
    });
    Report const refused{"ZLockResourceException", 5, {std::to_string(EOWNERDEAD)}};
    int whole = 0;
    for (int i = 0; i < 30; ++i) {
        int const status = inChild([&] {
            alarm(20);
            ZLCString value;
            Report const thrown = thrownBy([&] { settings.getValue("stanza", "key", value); });
            if (thrown == refused) return leftBehind;  // no processor was free for so long
            edit();
            return thrown == nothing && (value == "short" || value == longer.c_str()) ? 0 : 1;
        });
        EXPECT_TRUE(status == 0 || status == leftBehind) << status;
        if (status == 0) ++whole;
    }
    EXPECT_GT(whole, 15);
    isOver = true;
}

/// Whose edits take long.
struct Slow : ZStanzaFileProperties {
    Slow() : ZStanzaFileProperties(0) {}
    void checkAccess(char const* /*stanza*/, char const* /*key*/,
                     int /*obfuscated*/) const override {
        inside.open();
        over.await();
    }
    mutable Gate inside;
    Gate over;
};

TEST(ForkTest, AChildIsToldOfSettingsThatAThreadWasInForLongAndGetsNewOnes) {
    struct SlowFactory : ZAbstractPropertiesFactory {
        ZProperties* makePropertiesInstance() override { return new Slow; }
    };
    TempDir const directory;
    std::string const path = directory.file("conf");
    writeFile(path, "[a]\nb = c\n");
    SlowFactory factory;
    ZProperties& known = *ZProperties::getPropertiesFor(path.c_str(), factory);
    auto& slow = dynamic_cast<Slow&>(known);
    ZLCString value;
    Beside editing([&] { slow.setValue("a", "b", "c"); });
    slow.inside.await();
    Report const refused{"ZLockResourceException", 5, {std::to_string(EOWNERDEAD)}};
    int const status = inChild([&] {
        alarm(20);
        auto const read = [&](ZProperties& from) { from.getValue("a", "b", value); };
        if (thrownBy([&] { read(known); }) != refused || known.countObservers() != 0) return 1;
        auto& fresh = *ZProperties::getPropertiesFor(path.c_str(), factory);
        if (&fresh == &known || &fresh != ZProperties::getPropertiesFor(path.c_str(), factory))
            return 2;
        read(fresh);
        delete &known;
        return value == "c" ? 0 : 3;
    });
    EXPECT_EQ(status, 0);
    slow.over.open();
    editing.join();
    known.getValue("a", "b", value);
    EXPECT_EQ(value, "c");
}

// The thread sanitizer reports the program's fault, which this is about: that it destroys what its
// threads wait for.
#if !defined(__SANITIZE_THREAD__)
struct Objects {
    explicit Objects(char const* place) : process("config", place), other("config", place) {}
    Tally& tally = *new Tally;  // which waits at its end
    ZLock lock, lent;
    ZCondition condition, withLent{lent};
    ZReadWriteLock readWrite;
    Worker sleeper{tally}, inPool{tally};
    ZThreadPool pool{1, 0};
    ZUnixProcessReadWriteFileLock process, other;
    int timedOut = 0;
};

/// Runs `wait` in a thread until it sleeps.
void waitBeside(std::function<void()> const& wait) {
    std::atomic<pid_t> id{0};
    std::thread([&id, wait] { id = gettid(), wait(); }).detach();
    awaitThat([&] { return id != 0 && stateOf(id) == 'S'; });
}

TEST(ExitTest, EndsTheProcessWhateverWaitsForWhatIsDestroyed) {
    std::function<void(Objects&)> const waits[] = {
        [](Objects& o) { o.lock.lock(), waitBeside([&] { o.lock.lock(); }); },
        [](Objects& o) { waitBeside([&] { o.lent.lock(), o.withLent.wait(); }); },
        [](Objects& o) {
            waitBeside([&] {
                for (o.condition.lock();;)
                    o.condition.wait(1, o.timedOut);
            });
        },
        [](Objects& o) { o.readWrite.readLock(), waitBeside([&] { o.readWrite.writeLock(); }); },
        [](Objects& o) { o.sleeper.start(); },
        [](Objects& o) { o.pool.start(o.inPool), waitBeside([&] { o.pool.waitForExit(); }); },
        [](Objects& o) { o.process.writeLock(), waitBeside([&] { o.other.readLock(); }); },
    };
    TempDir const directory;
    for (auto const& wait : waits) {
        Captured const child = captureChild([&] {
            static Objects objects(directory.path().c_str());
            alarm(20);
            wait(objects);
            std::exit(7);
            return 0;
        });
        EXPECT_EQ(child.status, 7) << &wait - waits << child.err;
        EXPECT_NE(child.err.find("\n" + std::to_string(EBUSY) + "\n"), std::string::npos);
    }
}
#endif

}  // namespace
