/// Threads use all of the library while others fork: each child does one of everything.
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>

#include "Z/ZBuffer.h"
#include "Z/ZException.h"
#include "Z/ZFileLock.h"
#include "Z/ZQCSUTF8Converter.h"
#include "Z/ZStanzaFileProperties.h"
#include "Z/ZThread.h"
#include "Z/ZUTF8String.h"
#include "Z/zutils.h"
#include "torture/modes.h"
#include "torture/storms.h"

namespace torture {
namespace {

constexpr unsigned int threadsOfEach = 2;
constexpr unsigned int forkers = 2;
constexpr long longEnough = 30000;  // milliseconds

struct Factory : ZAbstractPropertiesFactory {
    ZProperties* makePropertiesInstance() override { return new ZStanzaFileProperties(0); }
};

struct Count : ZThread {
    Count() : ZThread(0, 0) {}
    void run() override { ++done; }
    std::atomic<int> done{0};
};

void require(bool holds, char const* what) {
    if (holds) return;
    shared().tell(what);
    _exit(8);
}

/// Whether this process has a lock file open.
bool hasLockFile() {
    std::error_code gone;
    for (auto const& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        auto const target = std::filesystem::read_symlink(entry.path(), gone).string();
        if (target.find("/._zpl") != std::string::npos) return true;
    }
    return false;
}

/// What the threads and the children share.
class World {
  public:
    explicit World(std::string const& place)
        : directory(place), lock("storm", place.c_str()), settingsPath(place + "/settings") {
        for (std::string const& path : {settingsPath, place + "/shared"})
            std::ofstream(path) << "[s]\nnumber = 0\nfixed = constant\n";
        sharedSettings = std::make_unique<ZStanzaFileProperties>((place + "/shared").c_str(), 1);
    }

    [[nodiscard]] std::vector<Deed> deeds() {
        return {{"strings of both families", [] { strings(); }},
                {"codesets", [] { codesets(); }},
                {"registry of settings", [this] { registry(); }},
                {"settings in memory", [this] { memory(); }},
                {"settings updated in their file", [this] { update(); }},
                {"process lock, read", [this] { take(ZReadWriteLock::zlockRead); }},
                {"process lock, write", [this] { take(ZReadWriteLock::zlockWrite); }},
                {"hexadecimal dump", [this] { dump(); }},
                {"report", [] { ZResourceException(5, 1).dumpException(); }},
                {"thread pool", [] { pool(); }}};
    }

    /// That nobody keeps the lock from the others.
    void probe() {
        ZUnixProcessReadWriteFileLock mine("storm", directory.c_str());
        require(mine.lockFor(ZReadWriteLock::zlockWrite, longEnough), "the lock is kept");
        mine.unlock(0);
    }

  private:
    static void strings() {
        ZLCString local("gr\303\266\303\237er");
        ZUTF8String const unicode(local);
        local += ZLCString(unicode);
        local.upper();
        require(local.getLength() > unicode.getLength(), "text is lost");
    }
    static void codesets() {
        ZQCSUTF8Converter converter("ISO-8859-1", nullptr);
        ZBuffer converted;
        converter.convertToUTF8("gr\366\337er", converted);
        require(std::strstr(static_cast<char const*>(converted.getBuffer()), "\303\266") != nullptr,
                "a codeset is lost");
    }
    void registry() {
        ZLCString value;
        ZProperties* const known = ZProperties::getPropertiesFor(settingsPath.c_str(), factory);
        inChildOrHere([&] { known->getValue("s", "fixed", value); });
        require(value == "constant" || value == "", "settings are lost");
    }
    void memory() {
        inChildOrHere([&] {
            sharedSettings->setValue("s", "k", "a longer value than it was before");
            sharedSettings->setValue("s", "k", "short");
            ZLCString value;
            sharedSettings->getValue("s", "k", value);
        });
    }
    void update() {
        ZStanzaFileProperties mine(0);
        auto const count = [](ZStanzaFileProperties& settings) {
            settings.setIntegerValue("s", "number", settings.getIntegerValue("s", "number") + 1);
        };
        mine.updateFile(count, longEnough, (directory + "/shared").c_str());
    }
    void take(ZReadWriteLock::zlockstate mode) {
        lock.lock(mode);
        ZStackReadWriteLock const guard(lock, 0);
    }
    void dump() {
        std::unique_ptr<FILE, int (*)(FILE*)> const nowhere(std::fopen("/dev/null", "we"),
                                                            std::fclose);
        unsigned char const bytes[] = "sixteen bytes and more";
        zhex_dump(nowhere.get(), sizeof bytes, bytes, "");
    }
    static void pool() {
        Count one;
        Count two;
        ZThreadPool pool(2, 0);
        pool.start(one);
        pool.start(two);
        pool.waitForExit();
        require(one.done == 1 && two.done == 1, "work is lost");
    }

    /// A child is told of what could not be waited for.
    template <class Operation>
    static void inChildOrHere(Operation const& operation) {
        try {
            operation();
        } catch (ZLockResourceException const& left) {
            if (left.resourceRc() != EOWNERDEAD) throw;
        }
    }

    std::string directory;
    ZUnixProcessReadWriteFileLock lock;
    std::string settingsPath;
    Factory factory;
    std::unique_ptr<ZStanzaFileProperties> sharedSettings;
};

/// A signal that ends children, blocked from now on; a pipe's end would be in other children too.
struct Told {
    Told() {
        sigemptyset(&signals);
        sigaddset(&signals, SIGUSR1);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    }
    sigset_t signals{};
} const untilTold;

/// One child; how it ended. While it lives it keeps nobody out.
std::string forkOnce(World& world, std::vector<Deed> const& deeds,
                     std::atomic<unsigned int>& doing) {
    doing = 0;
    pid_t const child = startChild([&] {
        require(!hasLockFile(), "a lock file is open in the child");
        for (; doing < deeds.size(); ++doing)
            deeds[doing].run();
        int signal = 0;
        require(sigwait(&untilTold.signals, &signal) == 0, "no signal comes");
    });
    world.probe();
    kill(child, SIGUSR1);
    std::string const fault = faultOf(waitFor(child), 0);
    if (fault.empty()) return "";
    return (doing < deeds.size() ? deeds[doing].name : "its end") + ": " + fault;
}

std::string storm(std::string const& place, unsigned int seconds, StormTable& table) {
    unsigned int const descriptors = openDescriptors();
    auto const world = std::make_unique<World>(place);
    std::vector<Deed> const deeds = world->deeds();
    Until const until(std::chrono::seconds(static_cast<int>(seconds)));
    std::vector<std::atomic<unsigned int>> runs(deeds.size());
    std::atomic<unsigned int> children{0};
    std::vector<std::string> faults(forkers);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < deeds.size() * threadsOfEach; ++i)
        threads.emplace_back([&, i] {
            std::size_t const which = i % deeds.size();
            for (; !until.isOver(); ++runs[which])
                deeds[which].run();
        });
    for (std::size_t i = 0; i < faults.size(); ++i)
        threads.emplace_back([&, i] {
            for (; faults[i].empty() && !until.isOver(); ++children)
                faults[i] = forkOnce(*world, deeds, shared().doing.at(i));
        });
    for (std::thread& thread : threads)
        thread.join();
    for (std::size_t i = 0; i < deeds.size(); ++i)
        table.add(deeds[i].name, "", runs[i]);
    for (std::string const& fault : faults)
        table.add("children", fault, fault == faults.front() ? children.load() : 0);
    return openDescriptors() == descriptors ? "" : "descriptors are left open";
}

}  // namespace

bool runForks(Options const& options) {
    dropReports();
    StormTable table("forks beside threads that use everything");
    for (std::string const& parent : options.directories) {
        Directory const directory(parent);
        table.add(
            "descriptors of the parent",
            storm(directory.path(),
                  options.seconds / static_cast<unsigned int>(options.directories.size()), table));
    }
    return table.finish();
}

}  // namespace torture
