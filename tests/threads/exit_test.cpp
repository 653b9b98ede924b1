// What exit() does while threads wait for static objects.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

#include "Z/ZFileLock.h"
#include "support/processes.h"
#include "support/workers.h"

namespace {

using namespace testsupport;

/// Runs `wait` in a thread until it sleeps.
void waitBeside(std::function<void()> const& wait) {
    std::atomic<pid_t> id{0};
    std::thread([&id, wait] {
        id = gettid();
        wait();
    }).detach();
    awaitThat([&] { return id != 0 && stateOf(id) == 'S'; });
}

TEST(ExitTest, EndsTheProcessWhateverWaitsForWhatIsDestroyed) {
    using Mode = ZReadWriteLock;
    TempDir const directory;
    std::function<void()> const waits[] = {
        [] {
            static ZLock lock;
            lock.lock();
            waitBeside([] { lock.lock(); });
        },
        [] {
            static ZLock lent;
            static ZCondition condition(lent);
            waitBeside([] { lent.lock(), condition.wait(); });
        },
        [] {
            static ZCondition condition;
            waitBeside([] {
                ZResourceLock const guard(condition);
                for (int timedOut = 0;;)
                    condition.wait(1, timedOut);
            });
        },
        [] {
            static ZReadWriteLock lock;
            lock.readLock();
            waitBeside([] { lock.writeLock(); });
            waitBeside([] { static_cast<void>(lock.lockFor(Mode::zlockWrite, longEnough)); });
        },
        [] {
            static Tally& tally = *new Tally;
            static Worker sleeper(tally);
            sleeper.start();
        },
        [] {
            static Tally& tally = *new Tally;
            static ZThreadPool pool(1, 0);
            static Worker sleeper(tally);
            pool.start(sleeper);
            waitBeside([] { pool.waitForExit(); });
        },
        [&] {
            static ZUnixProcessReadWriteFileLock lock("config", directory.path().c_str());
            static ZUnixProcessReadWriteFileLock other("config", directory.path().c_str());
            lock.writeLock();
            waitBeside([] { lock.readLock(); });
            waitBeside([] { other.writeLock(); });
        },
    };
    for (auto const& wait : waits) {
        SCOPED_TRACE(&wait - waits);
        Captured const child = captureChild([&] {
            alarm(20);  // behind this it hangs
            wait();
            std::exit(7);
            return 0;
        });
        EXPECT_EQ(child.status, 7);
        EXPECT_NE(child.err.find("\n" + std::to_string(EBUSY) + "\n"), std::string::npos);
    }
}

}  // namespace
