/// A process lock for a test, how it looks to others, and what stands in its file.
#ifndef ZFC_TESTS_SUPPORT_PROCESS_LOCK_H
#define ZFC_TESTS_SUPPORT_PROCESS_LOCK_H

#include <gtest/gtest.h>

#include <string>

#include "Z/ZFileLock.h"
#include "support/processes.h"
#include "support/reports.h"

namespace testsupport {

inline Report const notHeld{"ZUnlockResourceException", 6, {"0"}};
inline Report const reentry{"ZLockResourceException", 5, {"0"}};

/// What a lock file holds.
struct LockWords {
    unsigned int sequence = 0;
    int pid = 0;
};

[[nodiscard]] inline LockWords lockWords(std::string const& path) {
    LockWords words;
    readFile(path).copy(reinterpret_cast<char*>(&words), sizeof words);
    return words;
}

/// Makes a lock file with this number.
inline void writeSequence(std::string const& path, unsigned int sequence) {
    LockWords const words{sequence, 0};
    writeFile(path, {reinterpret_cast<char const*>(&words), sizeof words});
}

class NoReload : public ZObserverInterface {
  public:
    void update(ZAbstractObservable* /*source*/, ZObservedParm const& /*parm*/) override {}
};

class WithProcessLock : public testing::Test {
  protected:
    using Lock = ZUnixProcessReadWriteFileLock;
    static constexpr auto unset = Lock::zlockUnset;
    static constexpr auto reading = Lock::zlockRead;
    static constexpr auto protecting = Lock::zlockProtect;
    static constexpr auto writing = Lock::zlockWrite;

    /// Whether the calling thread gets the lock in that time; it has given it back then.
    [[nodiscard]] static bool couldTake(ZAbstractProcessReadWriteLock& taken, Lock::zlockstate mode,
                                        long milliseconds) {
        bool const good = taken.lockFor(mode, milliseconds);
        if (good) taken.unlock(0);
        return good;
    }
    /// Whether somebody else could take the lock now.
    [[nodiscard]] bool couldTake(Lock::zlockstate mode) { return couldTake(other, mode, 0); }
    [[nodiscard]] bool isFree() { return couldTake(writing); }

    TempDir directory;
    std::string path = directory.file("._zplconfig");
    Lock lock{"config", directory.path().c_str()};
    Lock other{"config", directory.path().c_str()};  // as another process has it
};

}  // namespace testsupport

#endif
