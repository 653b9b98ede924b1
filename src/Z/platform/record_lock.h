/// Shared. Record locks on files (fcntl(2)), of the open-file-description kind.
///
/// They conflict with the classic locks of other programs, but are not lost when another part of
/// the process closes the same file, and keep two opens of one file in one process apart. Where the
/// kernel has none, classic locks serve.
#ifndef Z_PLATFORM_RECORD_LOCK_H
#define Z_PLATFORM_RECORD_LOCK_H

#include <sys/types.h>

namespace zfc::platform {

/// Bytes of a file; length 0 reaches to the end, wherever that will be.
struct LockRange {
    off_t start;
    off_t length;
};
constexpr LockRange wholeFile{0, 0};

enum class LockMode { shared, exclusive, none };
enum class LockWait { no, yes };

/// Changes the open file's lock on the range to `mode`. 0 when done, else the errno: EAGAIN for a
/// lock of somebody else that is in the way, with LockWait::yes EINTR when a signal came first.
[[nodiscard]] int setRecordLock(int fd, LockMode mode, LockRange range, LockWait wait);

/// The mode of a lock of somebody else that would be in the way of an exclusive one on the range;
/// LockMode::none when there is none. 0 when found out, else the errno.
[[nodiscard]] int findRecordLock(int fd, LockRange range, LockMode& mode);

}  // namespace zfc::platform

#endif
