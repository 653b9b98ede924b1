/// A process ends while its threads wait for what ends with it: every way, again and again.
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "Z/ZException.h"
#include "Z/ZFileLock.h"
#include "Z/ZStanzaFileProperties.h"
#include "Z/ZThread.h"
#include "torture/modes.h"
#include "torture/storms.h"

namespace torture {
namespace {

constexpr int wanted = 7;
constexpr unsigned int limit = 30;  // seconds

struct Sleeper : ZSleeperThread {
    using ZSleeperThread::ZSleeperThread;
    void doWork() override {}
};

struct Long : ZThread {
    Long() : ZThread(0, 0) {}
    void run() override { pause(); }
};

/// What threads wait for.
struct Objects {
    explicit Objects(std::string const& place)
        : process("storm", place.c_str()),
          other("storm", place.c_str()),
          settings((place + "/settings").c_str(), 0),
          settingsPath(place + "/settings") {}

    ZLock lock, lent;
    ZCondition condition, withLent{lent};
    ZBooleanCondition truth;
    ZReadWriteLock local;
    Sleeper sleeper, hourly{3600UL};
    Long working, queued;
    ZThreadPool pool{1, 0};
    ZUnixProcessReadWriteFileLock process, other;
    ZStanzaFileProperties settings;
    std::string settingsPath;
};

struct Wait {
    char const* name;
    void (*begin)(Objects& objects);
};

constexpr Wait waits[] = {
    {"lock",
     [](Objects& o) {
         o.lock.lock();
         sleepBeside([&] { o.lock.lock(); });
         sleepBeside([&] { static_cast<void>(o.lock.lockFor(3600000)); });
     }},
    {"condition",
     [](Objects& o) {
         sleepBeside([&] { o.condition.lock(), o.condition.wait(); });
         sleepBeside([&] { o.lent.lock(), o.withLent.wait(); });
     }},
    {"condition with a predicate and a limit",
     [](Objects& o) {
         sleepBeside([&] {
             int timedOut = 0;
             o.truth.lock();
             o.truth.wait(3600, timedOut);
         });
     }},
    {"read-write lock",
     [](Objects& o) {
         o.local.writeLock();
         for (auto const mode : {ZReadWriteLock::zlockRead, ZReadWriteLock::zlockProtect})
             sleepBeside([&, mode] { o.local.lock(mode); });
         sleepBeside(
             [&] { static_cast<void>(o.local.lockFor(ZReadWriteLock::zlockWrite, 3600000)); });
     }},
    {"promotion",
     [](Objects& o) {
         o.local.readLock();
         sleepBeside([&] {
             o.local.readWithIntentToWriteLock();
             o.local.promoteReadToWriteLock();
         });
     }},
    {"sleeper", [](Objects& o) { o.sleeper.start(), o.hourly.start(); }},
    {"pool",
     [](Objects& o) {
         o.pool.start(o.working);
         sleepBeside([&] { o.pool.start(o.queued); });
         sleepBeside([&] { o.pool.waitForExit(); });
     }},
    {"process lock, threads of one object",
     [](Objects& o) {
         o.process.writeLock();
         sleepBeside([&] { o.process.readLock(); });
         sleepBeside(
             [&] { static_cast<void>(o.process.lockFor(ZReadWriteLock::zlockWrite, 3600000)); });
     }},
    {"process lock, its file",
     [](Objects& o) {
         o.process.readLock();
         sleepBeside([&] { o.other.writeLock(); });
     }},
    {"settings, which another thread edits",
     [](Objects& o) {
         sleepBeside([&] {
             auto const edit = [](ZStanzaFileProperties&) { pause(); };
             o.settings.updateFile(edit, 0);
         });
         sleepBeside([&] { static_cast<void>(o.settings.count()); });
     }},
};

struct Way {
    char const* name;
    void (*leave)();
};

constexpr Way ways[] = {
    {"exit()", [] { std::exit(wanted); }},
    {"exit() in a thread", [] { std::thread([] { std::exit(wanted); }).join(); }},
    {"quick_exit()", [] { std::quick_exit(wanted); }},
};

/// The objects are static, or on the heap and left alone.
int endOnce(std::string const& place, Wait const& wait, Way const& way, bool isStatic) {
    return inChild([&] {
        alarm(limit);
        if (isStatic) {
            static Objects objects(place);
            wait.begin(objects);
        } else {
            wait.begin(*new Objects(place));
        }
        way.leave();
    });
}

}  // namespace

bool runExits(Options const& options) {
    dropReports();
    StormTable table("processes that end while threads wait");
    std::mt19937 random(options.seed);
    Until const until(std::chrono::seconds(static_cast<int>(options.seconds)));
    Directory const directory(options.directories.front());
    std::ofstream(directory.path() + "/settings") << "[s]\nk = v\n";
    while (!until.isOver())
        for (Wait const& wait : waits)
            for (Way const& way : ways) {
                int const status = endOnce(directory.path(), wait, way, random() % 3 != 0);
                table.add(std::string(wait.name) + ", " + way.name, faultOf(status, wanted));
            }
    return table.finish();
}

}  // namespace torture
