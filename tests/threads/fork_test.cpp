// link: static

// What a child finds that is forked while other threads are in the library, and how a process ends
// whose threads wait for static objects.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>

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
            std::string const path = directory.file(std::to_string(++number));
            writeFile(path, "[a]\nb = c\n");
            ZProperties::getPropertiesFor(path.c_str(), factory);
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
        for (int i = 0; i < 60 && status == 0; ++i)
            status = inChild([&] {
                alarm(20);  // behind this it hangs
                operation();
                return lock.countObservers() > 1 ? 1 : 0;
            });
        EXPECT_EQ(status, 0) << &operation - operations;
        isOver = true;
    }
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
