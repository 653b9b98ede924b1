#include "Z/zprocess_register.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <new>
#include <unordered_map>

#include "Z/ZException.h"
#include "Z/ZProcessLock.h"
#include "Z/zforked_child.h"

namespace zprocess {
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

}  // namespace

void Readers::add() {
    std::lock_guard const guard(mutex);
    orOutOfMemory([this] { threads.push_back(pthread_self()); });
}

void Readers::remove() noexcept {
    std::lock_guard const guard(mutex);
    auto const mine = std::find(threads.begin(), threads.end(), pthread_self());
    if (mine != threads.end()) threads.erase(mine);
}

int Readers::own() const {
    std::lock_guard const guard(mutex);
    return static_cast<int>(std::count(threads.begin(), threads.end(), pthread_self()));
}

class Register {
  public:
    /// Never destroyed: locks may outlive every static object.
    static Register& instance() {
        static Register& only = *new Register;
        return only;
    }

    void enter(ZAbstractProcessReadWriteLock& lock) {
        std::lock_guard const guard(mutex);
        orOutOfMemory([&] { records.try_emplace(&lock); });
    }
    void strike(ZAbstractProcessReadWriteLock& lock) noexcept {
        std::lock_guard const guard(mutex);
        records.erase(&lock);
    }
    Record& recordOf(ZAbstractProcessReadWriteLock const& lock) {
        std::lock_guard const guard(mutex);
        return records.at(const_cast<ZAbstractProcessReadWriteLock*>(&lock));
    }

  private:
    using Records = std::unordered_map<ZAbstractProcessReadWriteLock*, Record>;

    // Around a fork nothing here is half done.
    Register() {
        pthread_atfork([] { instance().stop(); }, [] { instance().goOn(); },
                       [] { instance().beChild(); });
    }

    /// Holds everything. A change of state asks for its record while it holds the record's mutex,
    /// so one that is not free now is waited for with nothing held.
    void stop() {
        while (!tryStop())
            sched_yield();
    }
    bool tryStop() {
        mutex.lock();
        for (auto at = records.begin(); at != records.end(); ++at) {
            if (!at->second.transition.try_lock()) {
                letGo(at);
                return false;
            }
            at->second.readers.mutex.lock();
        }
        return true;
    }
    void goOn() { letGo(records.end()); }
    /// Ends a stop that holds the records before `end`.
    void letGo(Records::iterator end) {
        for (auto at = records.begin(); at != end; ++at) {
            at->second.readers.mutex.unlock();
            at->second.transition.unlock();
        }
        mutex.unlock();
    }
    /// What the parent holds is not the child's. The descriptors are closed at once: with one of
    /// them left open, the parent's locks would outlive the parent.
    void beChild() {
        for (auto& [lock, record] : records) {
            record.readers.threads.clear();
            record.sharing = 0;
            if (record.fileLock != nullptr) ZForkedChild::release(*record.fileLock);
            if (record.handle != nullptr) closeHandle(*record.handle);
            lock->forgetParent();
        }
        goOn();
    }
    static void closeHandle(std::atomic<int>& handle) {
        int const fd = handle.exchange(-1);
        if (fd >= 0) ::close(fd);
    }

    std::mutex mutex;  // over records
    Records records;
};

void enter(ZAbstractProcessReadWriteLock& lock) { Register::instance().enter(lock); }
void strike(ZAbstractProcessReadWriteLock& lock) noexcept { Register::instance().strike(lock); }
Record& recordOf(ZAbstractProcessReadWriteLock const& lock) {
    return Register::instance().recordOf(lock);
}

}  // namespace zprocess
