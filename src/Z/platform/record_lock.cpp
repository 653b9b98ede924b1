#include "Z/platform/record_lock.h"

#include <fcntl.h>

#include <cerrno>

namespace zfc::platform {
namespace {

short systemType(LockMode mode) {
    switch (mode) {
        case LockMode::shared:
            return F_RDLCK;
        case LockMode::exclusive:
            return F_WRLCK;
        case LockMode::none:
            break;
    }
    return F_UNLCK;
}

struct flock recordFor(LockMode mode, LockRange range) {
    struct flock record {};  // the process field must be 0 for the open-file-description kind
    record.l_type = systemType(mode);
    record.l_whence = SEEK_SET;
    record.l_start = range.start;
    record.l_len = range.length;
    return record;
}

int request(int fd, int command, LockMode mode, LockRange range) {
    struct flock record = recordFor(mode, range);
    return fcntl(fd, command, &record) == 0 ? 0 : errno;
}

}  // namespace

int setRecordLock(int fd, LockMode mode, LockRange range, LockWait wait) {
    bool const waits = wait == LockWait::yes;
    int rc = request(fd, waits ? F_OFD_SETLKW : F_OFD_SETLK, mode, range);
    // What a kernel without this kind answers.
    if (rc == EINVAL) rc = request(fd, waits ? F_SETLKW : F_SETLK, mode, range);
    // POSIX lets a system answer either for a lock that is taken.
    return rc == EACCES ? EAGAIN : rc;
}

int findRecordLock(int fd, LockRange range, LockMode& mode) {
    // Asked for an exclusive one, since any lock is in its way.
    struct flock record = recordFor(LockMode::exclusive, range);
    int rc = fcntl(fd, F_OFD_GETLK, &record) == 0 ? 0 : errno;
    if (rc == EINVAL) rc = fcntl(fd, F_GETLK, &record) == 0 ? 0 : errno;
    if (rc != 0) return rc;
    if (record.l_type == F_UNLCK) {
        mode = LockMode::none;
    } else {
        mode = record.l_type == F_RDLCK ? LockMode::shared : LockMode::exclusive;
    }
    return 0;
}

}  // namespace zfc::platform
