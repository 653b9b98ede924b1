#include "Z/platform/descriptor.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace zfc::platform {

void Descriptor::close() noexcept {
    if (!isOpen()) return;
    ZCancellationOff const inDestructors;  // close() is a cancellation point
    int const kept = errno;
    // Linux frees the number whatever close() answers; trying again could close somebody else's.
    ::close(release());
    errno = kept;
}

Descriptor openFile(char const* path, int flags, mode_t mode) {
    // Else a thread that is cancelled when the file is open, but open() has not returned, would
    // leave it open.
    ZCancellationOff const untilOwned;
    Descriptor opened(uninterrupted([&] { return ::open(path, flags | O_CLOEXEC, mode); }));
    if (!opened.isOpen() || opened.get() > STDERR_FILENO) return opened;
    // If that fails, errno says so to the caller: the closing of `opened` keeps it.
    return Descriptor(fcntl(opened.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

bool exceedsSizeLimit(off_t size) {
    rlimit limit{};
    return getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
           static_cast<rlim_t>(size) > limit.rlim_cur;
}

}  // namespace zfc::platform
