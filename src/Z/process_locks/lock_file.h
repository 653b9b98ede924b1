/// The parts of a lock file.
#ifndef Z_PROCESS_LOCKS_LOCK_FILE_H
#define Z_PROCESS_LOCKS_LOCK_FILE_H

namespace zfc::process_locks {

/// Bytes of the lock file, as the lock's operations take them.
struct FileRange {
    unsigned int start;
    unsigned int length;
};
constexpr FileRange dataRange{0, 4};  // the number; readers and writers compete here
constexpr FileRange gateRange{4, 4};  // the pid; and queue here first

constexpr char filePrefix[] = "._zpl";

}  // namespace zfc::process_locks

#endif
