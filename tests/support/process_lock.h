/// A process lock for a test, and how it looks to others.
#ifndef ZFC_TESTS_SUPPORT_PROCESS_LOCK_H
#define ZFC_TESTS_SUPPORT_PROCESS_LOCK_H

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Z/ZFileLock.h"
#include "support/lock_files.h"
#include "support/processes.h"

namespace testsupport {

class WithProcessLock : public testing::Test {
  protected:
    using Lock = ZUnixProcessReadWriteFileLock;

    /// Another object of the same name.
    [[nodiscard]] std::unique_ptr<Lock> another() const {
        return std::make_unique<Lock>("config", directory.path().c_str());
    }
    /// Whether somebody else could take the lock now.
    [[nodiscard]] bool couldTake(Lock::zlockstate mode) const {
        auto const other = another();
        if (!other->tryLock(mode)) return false;
        other->unlock(0);
        return true;
    }
    [[nodiscard]] bool isFree() const { return couldTake(Lock::zlockWrite); }

    TempDir directory;
    std::string path = directory.file("._zplconfig");
    Lock lock{"config", directory.path().c_str()};
};

}  // namespace testsupport

#endif
