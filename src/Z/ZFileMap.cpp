#include "Z/ZFileMap.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

namespace {

constexpr int noDescriptor = 0;
constexpr int firstKeptDescriptor = 3;
constexpr mode_t ownerReadWrite = S_IRUSR | S_IWUSR;

/// Size of the named file; 0 for one that is empty or cannot be asked.
off_t sizeOf(char const* path) {
    struct stat status {};
    return stat(path, &status) == 0 ? status.st_size : 0;
}

int openRepeatedly(char const* path, int flags) {
    int fd = -1;
    do {
        fd = open(path, flags | O_NONBLOCK | O_CLOEXEC, ownerReadWrite);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

/// Moves a descriptor out of the range of the standard streams: a program that closed one of them
/// would print into the file. -1 with `errno` when there is no other.
int aboveStandardStreams(int fd) {
    if (fd < 0 || fd >= firstKeptDescriptor) return fd;
    int const moved = fcntl(fd, F_DUPFD_CLOEXEC, firstKeptDescriptor);
    int const reason = errno;
    close(fd);
    errno = reason;
    return moved;
}

/// A write behind the limit would be answered with SIGXFSZ, not with a code.
bool exceedsFileSizeLimit(off_t size) {
    rlimit limit{};
    return getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
           static_cast<rlim_t>(size) > limit.rlim_cur;
}

/// Makes the file `size` bytes long by its last byte. 0 or an `errno` value.
int extend(int fd, off_t size) {
    if (exceedsFileSizeLimit(size)) return EFBIG;
    char const zero = 0;
    ssize_t written = -1;
    do {
        written = pwrite(fd, &zero, 1, size - 1);
    } while (written < 0 && errno == EINTR);
    return written == 1 ? 0 : errno;
}

}  // namespace

ZAbstractFileMap::ZAbstractFileMap(const ZLCString& name, zmapmode mapMode, int mapFlags)
    : fileName(name), mode(mapMode), flags(mapFlags) {}
ZAbstractFileMap::~ZAbstractFileMap() = default;

ZUnixFileMap::ZUnixFileMap(const ZLCString& name, zmapmode mapMode, int mapFlags)
    : ZAbstractFileMap(name, mapMode, mapFlags) {}

ZUnixFileMap& ZUnixFileMap::operator=(const ZUnixFileMap& other) {
    if (&other != this && other.address != nullptr) mapfile(nullptr, 0);
    return *this;
}

ZUnixFileMap::~ZUnixFileMap() {
    int ignored = 0;
    ZUnixFileMap::unmapfile(&ignored);
}

/// 0 with `fd` set, or an `errno` value.
int ZUnixFileMap::openFile(int extraFlags) {
    int const access = mode == readWrite ? O_RDWR : O_RDONLY;
    int const opened =
        aboveStandardStreams(openRepeatedly(fileName.getChars(), access | extraFlags));
    if (opened < 0) return errno;
    fd = opened;
    return 0;
}

/// Sets `length`, and makes the open file that long in a write map. The file is measured anew: it
/// may have been changed, or be another one, since its name was asked.
int ZUnixFileMap::fit(unsigned long requested) {
    struct stat status {};
    if (fstat(fd, &status) != 0) return errno;
    if (requested == 0 && status.st_size == 0) return EINVAL;
    auto const bytes = requested == 0 ? static_cast<unsigned long long>(status.st_size) : requested;
    if (bytes > std::numeric_limits<unsigned int>::max()) return EOVERFLOW;
    length = static_cast<unsigned int>(bytes);
    off_t const wanted = length;
    return mode == readWrite && wanted > status.st_size ? extend(fd, wanted) : 0;
}

int ZUnixFileMap::mapOpened() {
    int const protection = mode == readWrite ? PROT_READ | PROT_WRITE : PROT_READ;
    void* const mapped = mmap(nullptr, length, protection, MAP_SHARED, fd, 0);
    if (mapped == MAP_FAILED) return errno;
    address = mapped;
    return 0;
}

void* ZUnixFileMap::mapfile(int* rc, unsigned long requested) {
    int scratch = 0;
    int& result = rc == nullptr ? scratch : *rc;
    result = 0;
    unmapfile(&result);
    if (result != 0) return nullptr;

    // Kept: an empty file counts as missing, so that a write map of it passes O_CREAT and a map
    // without a length refuses both alike.
    bool const missing = sizeOf(fileName.getChars()) == 0;
    if (missing && requested == 0) {
        result = EINVAL;
        return nullptr;
    }
    result = openFile(missing && mode == readWrite ? O_CREAT : 0);
    if (result == 0) result = fit(requested);
    if (result == 0) result = mapOpened();
    if (result != 0) unmapfile(&scratch);
    return address;
}

void ZUnixFileMap::unmapfile(int* rc) {
    int result = 0;
    if (address != nullptr) {
        if (munmap(address, length) == 0)
            address = nullptr;
        else
            result = errno;
    }
    if (fd != noDescriptor) {
        // Whatever close says, the number is given up: another thread may have it by now.
        if (close(fd) != 0) result = errno;
        fd = noDescriptor;
    }
    if (result != 0 && rc != nullptr) *rc = result;
}
