/// Threads are cancelled at random in every call that waits or opens something: nothing stays held,
/// counted or open.
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <memory>

#include "Z/ZException.h"
#include "Z/ZFileLock.h"
#include "Z/ZFileMap.h"
#include "Z/ZSharedLibrary.h"
#include "Z/ZStanzaFileProperties.h"
#include "Z/ZThread.h"
#include "Z/zutils.h"
#include "torture/modes.h"
#include "torture/storms.h"

namespace torture {
namespace {

constexpr unsigned int doomedThreads = 3;
constexpr long longEnough = 20000;  // milliseconds

class Told : public ZObserverInterface {
  public:
    void update(ZAbstractObservable* /*source*/, ZObservedParm const& /*parm*/) override {
        ++times;
    }
    std::atomic<unsigned int> times{0};
};

struct Nap : ZThread {
    Nap() : ZThread(0, 0) {}
    void run() override { ++runs; }
    std::atomic<unsigned int> runs{0};
};

/// All that threads are cancelled in.
class World {
  public:
    explicit World(std::string const& place)
        : directory(place), process("storm", place.c_str()), other("storm", place.c_str()) {
        std::ofstream(place + "/settings") << "[s]\nnumber = 0\n";
        settings = std::make_unique<ZStanzaFileProperties>((place + "/settings").c_str(), 1);
        process.addObserver(&told);
    }
    ~World() { process.deleteObservers(); }
    World(World const&) = delete;
    World& operator=(World const&) = delete;

    [[nodiscard]] std::vector<Deed> deeds() {
        using Lock = ZReadWriteLock;
        return {
            {"lock", [this] { ZResourceLock const guard(lock); }},
            {"condition", [this] { waitOn(condition); }},
            {"condition, with a limit", [this] { waitOn(condition, 1L); }},
            {"condition with a predicate", [this] { waitOn(truth); }},
            {"read", [this] { take(local, Lock::zlockRead); }},
            {"protect and promote", [this] { promote(); }},
            {"write, with a limit", [this] { takeFor(local, Lock::zlockWrite); }},
            {"process lock, read", [this] { take(process, Lock::zlockRead); }},
            {"process lock, write", [this] { take(other, Lock::zlockWrite); }},
            {"process lock, read with a limit", [this] { takeFor(process, Lock::zlockRead); }},
            {"process lock, write with a limit", [this] { takeFor(other, Lock::zlockWrite); }},
            {"settings, loaded", [this] { settings->reload(); }},
            {"settings, updated", [this] { update(); }},
            {"file map", [this] { map(); }},
            {"plug-in", [] { loadLibrary(); }},
            {"thread, joined", [] { join(); }},
            {"pool", [] { pool(); }},
            {"hexadecimal dump", [] { dump(); }},
            {"report", [] { ZResourceException(5, 1).dumpException(); }},
        };
    }

    /// What has to hold when no thread is left.
    [[nodiscard]] std::string fault() {
        if (!lock.lockFor(longEnough)) return "the lock is held";
        lock.unlock();
        for (ZCondition* const one : {&condition, static_cast<ZCondition*>(&truth)}) {
            if (!one->getResource()->lockFor(longEnough)) return "a condition's lock is held";
            one->unlock();
        }
        if (local.getReaderCount() != 0 || !local.haveLock(ZReadWriteLock::zlockUnset))
            return "the read-write lock is held";
        for (ZUnixProcessReadWriteFileLock* const one : {&process, &other}) {
            if (one->getReaderCount() != 0 || !one->haveLock(ZReadWriteLock::zlockUnset))
                return "the process lock is held";
            if (!one->lockFor(ZReadWriteLock::zlockWrite, longEnough))
                return "the process lock's file is held";
            one->unlock(1);
            if (one->getFileHandle() >= 0) return "the lock file is open";
        }
        update();
        return "";
    }

  private:
    template <class Lock>
    void take(Lock& taken, ZReadWriteLock::zlockstate mode) {
        taken.lock(mode);
        ZStackReadWriteLock const guard(taken, 0);
        pthread_testcancel();
    }
    template <class Lock>
    void takeFor(Lock& taken, ZReadWriteLock::zlockstate mode) {
        if (!taken.lockFor(mode, 3)) return;
        ZStackReadWriteLock const guard(taken, 0);
        pthread_testcancel();
    }
    void promote() {
        local.lock(ZReadWriteLock::zlockProtect);
        ZStackReadWriteLock guard(local, 0);
        guard.promoteReadToWriteLock();
        pthread_testcancel();
    }
    template <class Condition>
    void waitOn(Condition& waited) {
        ZResourceLock const guard(waited);
        waited.wait();
    }
    void waitOn(ZCondition& waited, long seconds) {
        ZResourceLock const guard(waited);
        int timedOut = 0;
        waited.wait(seconds, timedOut);
    }
    void update() {
        auto const count = [](ZStanzaFileProperties& mine) {
            mine.setIntegerValue("s", "number", mine.getIntegerValue("s", "number") + 1);
        };
        settings->updateFile(count, longEnough);
    }
    void map() {
        ZUnixFileMap mapped(ZLCString((directory + "/mapped").c_str()), ZAbstractFileMap::readWrite,
                            0);
        int rc = 0;
        mapped.mapfile(&rc, 5000);
    }
    static void loadLibrary() {
        ZSharedLibrary library("libm.so.6");
        library.loadLibrary();
    }
    static void join() {
        struct Joining {  // the object must outlive its thread, also where the join is cancelled
            ~Joining() {
                int before = 0;
                pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
                try {
                    thread.waitForExit();
                } catch (ZThreadException const&) {  // joined already
                }
                pthread_setcancelstate(before, &before);
            }
            ZThread& thread;
        };
        Nap nap;
        Joining const atEnd{nap};
        nap.start();
        nap.waitForExit();
    }
    static void pool() {
        static ZThreadPool pool(1, 0);
        static Nap naps[doomedThreads];
        static std::atomic<unsigned int> next{0};
        static ZLock one;
        ZResourceLock const alone(one);
        pool.waitForExit();
        pool.start(naps[next++ % doomedThreads]);
        pool.waitForExit();
    }
    static void dump() {
        static FILE* const nowhere = std::fopen("/dev/null", "we");
        unsigned char const bytes[] = "sixteen bytes and more";
        zhex_dump(nowhere, sizeof bytes, bytes, "");
    }

    std::string directory;
    ZLock lock;
    ZCondition condition;
    ZBooleanCondition truth;
    ZReadWriteLock local;
    ZUnixProcessReadWriteFileLock process;
    ZUnixProcessReadWriteFileLock other;
    std::unique_ptr<ZStanzaFileProperties> settings;
    Told told;
};

/// A thread that does one thing until it is cancelled.
class DoomedThread {
  public:
    explicit DoomedThread(Deed const& repeated) : deed(repeated) {
        if (pthread_create(&thread, nullptr, run, this) != 0) die("pthread_create()");
    }
    ~DoomedThread() {
        pthread_cancel(thread);
        pthread_join(thread, nullptr);
    }
    DoomedThread(DoomedThread const&) = delete;
    DoomedThread& operator=(DoomedThread const&) = delete;

  private:
    static void* run(void* self) {
        for (auto const& deed = static_cast<DoomedThread*>(self)->deed;;) {
            deed.run();
            pthread_testcancel();
        }
    }
    Deed const& deed;
    pthread_t thread{};
};

/// Threads that do one thing, cancelled one after the other at random moments.
void round(Deed const& deed, std::mt19937& random) {
    std::vector<std::unique_ptr<DoomedThread>> threads;
    for (unsigned int i = 0; i < doomedThreads; ++i)
        threads.push_back(std::make_unique<DoomedThread>(deed));
    for (auto& thread : threads) {
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 700));
        thread.reset();
    }
}

/// In a child of its own, which a fault may end.
std::string storm(std::string const& place, std::size_t which, std::chrono::milliseconds length,
                  unsigned int seed, unsigned int& rounds) {
    Shared& told = shared();
    told.generation = 0;
    int const status = inChild([&] {
        alarm(static_cast<unsigned int>(length.count() / 1000) + 60);
        World world(place);
        Deed const deed = world.deeds().at(which);
        std::mt19937 random(seed);
        deed.name.find("condition") == 0 ? static_cast<void>(0) : deed.run();  // makes what stays
        unsigned int const descriptors = openDescriptors();
        for (Until const until(length); !until.isOver(); ++told.generation)
            round(deed, random);
        std::string fault = world.fault();
        if (openDescriptors() != descriptors) fault = "descriptors are left open";
        told.tell(fault);
        if (!fault.empty()) _exit(8);
    });
    rounds = told.generation;
    return faultOf(status, 0);
}

}  // namespace

bool runCancels(Options const& options) {
    dropReports();
    StormTable table("threads that are cancelled");
    std::size_t const deeds = [&] {
        Directory const directory(options.directories.front());
        return World(directory.path()).deeds().size();
    }();
    std::chrono::milliseconds const each = std::chrono::milliseconds(options.seconds * 1000L) /
                                           static_cast<long>(deeds * options.directories.size());
    for (std::string const& parent : options.directories)
        for (std::size_t i = 0; i < deeds; ++i) {
            Directory const directory(parent);
            unsigned int rounds = 0;
            std::string const fault = storm(directory.path(), i, each,
                                            options.seed + static_cast<unsigned int>(i), rounds);
            table.add(World(directory.path()).deeds().at(i).name, fault, rounds);
        }
    return table.finish();
}

}  // namespace torture
