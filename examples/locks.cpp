// Locks of threads: guards, limits, reading that may become writing, and a process lock.
#include <chrono>
#include <iostream>
#include <mutex>
#include <shared_mutex>
#include <string>

#include "Z/ZFileLock.h"
#include "Z/ZLock.h"
#include "Z/ZReadWriteLock.h"
#include "Z/zstd.h"

namespace {

using namespace std::chrono_literals;

// [protect]
class Cache {
  public:
    int value() {
        lock.readWithIntentToWriteLock();          // beside readers, without other writers
        ZStackReadWriteLock const guard(lock, 1);  // gives it back at the end of the scope
        if (isOld) {
            lock.promoteReadToWriteLock();  // waits for the readers to leave
            cached = 42;
            isOld = false;
        }
        return cached;
    }

  private:
    ZReadWriteLock lock;
    int cached = 0;
    bool isOld = true;
};
// [/protect]

}  // namespace

int main() {
    // [guards]
    ZLock lock;
    {
        ZResourceLock const guard(lock);  // to the end of the scope; so does std::scoped_lock
    }
    if (lock.lockFor(zfc::milliseconds(2s))) {  // false when the time is up
        std::cout << "had it in time\n";
        lock.unlock();
    }
    // [/guards]
    // [standard]
    ZReadWriteLock readWrite;
    {
        std::shared_lock const reading(readWrite);
        std::cout << (readWrite.tryWriteLock() ? "wrote\n" : "readers are inside\n");
    }
    std::scoped_lock const writing(readWrite);
    // [/standard]
    std::cout << Cache().value() << "\n";
    // [process]
    ZUnixProcessReadWriteFileLock shared("counter", ".");  // the file ./._zplcounter
    {
        ZStackWriteLock const guard(shared);  // waits for all processes; they hear of the change
        std::cout << "alone among all processes\n";
    }
    // [/process]
}
