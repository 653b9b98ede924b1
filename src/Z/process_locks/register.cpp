#include "Z/process_locks/register.h"

#include <sched.h>
#include <unistd.h>

#include <new>
#include <unordered_map>
#include <utility>

#include "Z/ZException.h"
#include "Z/ZProcessLock.h"
#include "Z/threads/forked_child.h"
#include "Z/threads/persistent_guard.h"

namespace zfc::process_locks {
namespace {

constexpr char sourceName[] = "src/Z/ZFileLock";

template <class Change>
void orOutOfMemory(Change const& change) {
    try {
        change();
    } catch (std::bad_alloc const&) {
        zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    }
}

/// What a thread has found, good until a lock ends: the next one may have its address.
struct Found {
    ZAbstractProcessReadWriteLock const* lock;
    Record* record;
    unsigned int ended;  // locks, when it was looked for
};
// One cycle of a lock asks for its record a dozen times.
[[gnu::tls_model("initial-exec")]] thread_local Found last{nullptr, nullptr, 0};
// Changes under the register's lock. Who uses a lock knows already that one before it, of that
// address, ended.
std::atomic<unsigned int> ended{0};

}  // namespace

Readers::~Readers() {
    for (Read* read = first(); read != nullptr;)
        delete std::exchange(read, read->next);
}

Read& Readers::add() {
    pthread_t const self = pthread_self();
    for (Read* read = first(); read != nullptr; read = read->next) {
        pthread_t expected = Read::nobody;
        // An entry of a read that ended: the list grows no longer than the most reads at one time.
        if (read->thread.compare_exchange_strong(expected, self)) return *read;
    }
    Read* fresh = nullptr;
    orOutOfMemory([&] { fresh = new Read(self, first()); });
    // In front, and never taken out: a thread that walks the list meanwhile finds every read that
    // was there, without a lock.
    // A failure puts the head of now into `next`.
    while (!head.compare_exchange_weak(fresh->next, fresh)) {
    }
    return *fresh;
}

Read* Readers::mine() const {
    Read* read = first();
    // Relaxed: an entry with this thread's id was written by this thread.
    while (read != nullptr && read->thread.load(std::memory_order_relaxed) != pthread_self())
        read = read->next;
    return read;
}

template <class Counted>
int Readers::count(Counted const& counted) const {
    int found = 0;
    for (Read const* read = first(); read != nullptr; read = read->next)
        found += counted(*read) ? 1 : 0;
    return found;
}

int Readers::own() const {
    return count([self = pthread_self()](Read const& read) {
        return read.thread.load(std::memory_order_relaxed) == self;
    });
}

int Readers::sharing() const {
    return count([](Read const& read) { return read.sharesFile; });
}

void Readers::forget() noexcept {
    for (Read* read = first(); read != nullptr; read = read->next) {
        read->sharesFile = false;
        read->end();
    }
}

class Register {
  public:
    /// Never destroyed: locks may outlive every static object.
    static Register& instance() {
        static Register& only = *new Register;
        return only;
    }

    void registerLock(ZAbstractProcessReadWriteLock& lock) {
        // In the base's constructor, before the derived ones: a fork in another thread may find a
        // lock half made, and then a record without a file, which needs nothing.
        ZPersistentGuard const guard(lockOverAll);
        records.try_emplace(&lock);
    }
    void unregisterLock(ZAbstractProcessReadWriteLock& lock) {
        ZPersistentGuard const guard(lockOverAll);
        ++ended;
        auto record = records.extract(&lock);
        if (!record.empty() && record.mapped().isKept) kept.insert(std::move(record));
    }
    Found find(ZAbstractProcessReadWriteLock const& lock) {
        ZPersistentGuard const guard(lockOverAll);
        return {&lock, &records.at(const_cast<ZAbstractProcessReadWriteLock*>(&lock)), ended};
    }

  private:
    // Of nodes, because recordOf() hands out references that stay good while others come and go.
    using Records = std::unordered_map<ZAbstractProcessReadWriteLock*, Record>;

    // Around a fork nothing here is half done. What the handlers hold from one to the next is
    // beyond the analysis.
    Register() {
        static constexpr ZForkedChild::Handlers handlers{
            [] { instance().stop(); }, [] { instance().goOn(); }, [] { instance().beChild(); },
            [](ZAbstractReadWriteLock const& lock) { return instance().takeForgotten(lock); }};
        ZForkedChild::tellProcessLocks(handlers);
    }

    /// Holds everything. A change of state may come to ask for a record, in what a class of the
    /// user's overrides, so one that is going on is waited for with nothing held.
    void stop() ZNO_THREAD_SAFETY_ANALYSIS {
        while (!tryStop())
            sched_yield();
    }
    bool tryStop() ZNO_THREAD_SAFETY_ANALYSIS {
        lockOverAll.lock();
        for (auto at = records.begin(); at != records.end(); ++at) {
            if (at->second.transition.try_lock()) continue;
            letGo(at);
            return false;
        }
        return true;
    }
    void goOn() ZNO_THREAD_SAFETY_ANALYSIS { letGo(records.end()); }
    /// Ends a stop that holds the records before `end`.
    void letGo(Records::iterator end) ZNO_THREAD_SAFETY_ANALYSIS {
        for (auto at = records.begin(); at != end; ++at)
            at->second.transition.unlock();
        lockOverAll.unlock();
    }
    /// What the parent holds is not the child's. The descriptors are closed at once: with one of
    /// them left open, the parent's locks would outlive the parent.
    void beChild() ZNO_THREAD_SAFETY_ANALYSIS {
        for (auto& [lock, record] : records) {
            // The readers first, then the locks over them: what is freed must find nobody inside.
            record.forgotten += record.readers.own();
            record.readers.forget();
            if (record.fileLock != nullptr) ZForkedChild::release(*record.fileLock);
            if (record.handle != nullptr) closeHandle(*record.handle);
            closeHandle(record.timer);
            if (lock->forgetParent()) ++record.forgotten;
        }
        goOn();
    }
    /// Of what the forker held: whether there was one more hold of it.
    bool takeForgotten(ZAbstractReadWriteLock const& lock) {
        auto const* const ours = dynamic_cast<ZAbstractProcessReadWriteLock const*>(&lock);
        if (ours == nullptr) return false;
        Record& record = recordOf(*ours);
        ZPersistentGuard const guard(lockOverAll);
        if (record.forgotten == 0) return false;
        --record.forgotten;
        return true;
    }
    static void closeHandle(std::atomic<int>& handle) {
        // Not through the object: its closing waits for nothing, but it may be half made.
        int const fd = handle.exchange(-1);
        if (fd >= 0) ::close(fd);
    }

    ZLock lockOverAll;
    Records records ZGUARDED_BY(lockOverAll);
    // Of locks that were destroyed while threads waited for them, which are in their records still.
    std::unordered_multimap<ZAbstractProcessReadWriteLock*, Record> kept ZGUARDED_BY(lockOverAll);
};

namespace {

/// When the library is loaded: no fork comes while the register is made.
[[gnu::constructor]] void atLoad() { Register::instance(); }

}  // namespace

void registerLock(ZAbstractProcessReadWriteLock& lock) {
    orOutOfMemory([&] { Register::instance().registerLock(lock); });
}
void unregisterLock(ZAbstractProcessReadWriteLock& lock) noexcept {
    Register::instance().unregisterLock(lock);
}
Record& recordOf(ZAbstractProcessReadWriteLock const& lock) {
    if (last.lock != &lock || last.ended != ended) last = Register::instance().find(lock);
    return *last.record;
}

}  // namespace zfc::process_locks
