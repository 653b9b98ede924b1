/// The parts of a lock file.
#ifndef Z_PROCESS_LOCKS_LOCK_FILE_H
#define Z_PROCESS_LOCKS_LOCK_FILE_H

#include "Z/platform/record_lock.h"

namespace zfc::process_locks {

constexpr platform::LockRange dataRange{0, 4};  // the number; readers and writers compete here
constexpr platform::LockRange gateRange{4, 4};  // the pid; and queue here first

constexpr char filePrefix[] = "._zpl";

}  // namespace zfc::process_locks

#endif
