#include "Z/ZFileMap.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <limits>

#include "Z/platform/descriptor.h"
#include "Z/platform/locked_file.h"
#include "Z/utility/cancellation_off.h"

namespace {

// Never the number of a file here: openFile() keeps away from 0, 1 and 2.
constexpr int noDescriptor = 0;
/// What an object may have, so that the difference of two pointers into it is right.
constexpr unsigned long long mostBytes = std::min<unsigned long long>(
    std::numeric_limits<unsigned int>::max(), std::numeric_limits<std::ptrdiff_t>::max());
constexpr mode_t ownerReadWrite = S_IRUSR | S_IWUSR;

/// Size of the named file; 0 for one that is empty or cannot be asked.
unsigned long long sizeOf(char const* path) {
    auto const status = zfc::platform::statusOf(path);
    return status ? status->size : 0;
}

/// Adds room behind the end, on a file system that can only write it. 0 or an `errno` value.
int addRoom(int fd, off_t size, off_t wanted) {
    int rc = 0;
    do {
        rc = posix_fallocate(fd, size, wanted - size);
    } while (rc == EINTR);
    return rc;
}

/// Makes the file at least `wanted` bytes long, and gives these bytes their room on the device, the
/// holes among them too: what is written to a map has no other place where it could fail than in a
/// signal. 0 or an `errno` value; the file is then as long as before.
int reserve(int fd, off_t size, off_t wanted) {
    // Beyond the limit the system would end the process by a signal.
    if (wanted > size && zfc::platform::exceedsSizeLimit(wanted)) return EFBIG;
    auto const allocate = [&] { return fallocate(fd, 0, 0, wanted); };
    int rc = zfc::platform::uninterrupted(allocate) == 0 ? 0 : errno;
    if (rc == EOPNOTSUPP) rc = wanted > size ? addRoom(fd, size, wanted) : 0;
    // Part of it may have been had. What cannot be given back does no harm.
    if (rc != 0 && wanted > size) static_cast<void>(ftruncate(fd, size) == 0);
    return rc;
}

}  // namespace

ZAbstractFileMap::ZAbstractFileMap(ZLCString const& name, zmapmode mapMode, int mapFlags)
    : fileName(name), mode(mapMode), flags(mapFlags) {}
ZAbstractFileMap::~ZAbstractFileMap() = default;

ZUnixFileMap::ZUnixFileMap(ZLCString const& name, zmapmode mapMode, int mapFlags)
    : ZAbstractFileMap(name, mapMode, mapFlags) {}

ZUnixFileMap& ZUnixFileMap::operator=(ZUnixFileMap const& other) {
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
    // Non-blocking, so that a FIFO in the file's place does not hold the caller.
    auto opened = zfc::platform::openFile(fileName.getChars(), access | extraFlags | O_NONBLOCK,
                                          ownerReadWrite);
    if (!opened.isOpen()) return errno;
    fd = opened.release();
    return 0;
}

/// Sets `length`, and makes the open file that long in a write map. The file is measured anew: it
/// may have been changed, or be another one, since its name was asked.
int ZUnixFileMap::fit(unsigned long requested) {
    auto const status = zfc::platform::statusOf(fd);
    if (!status) return errno;
    if (requested == 0 && status->size == 0) return EINVAL;
    auto const bytes = requested == 0 ? status->size : requested;
    // Layout: the length is a field of 32 bits.
    if (bytes > mostBytes) return EOVERFLOW;
    length = static_cast<unsigned int>(bytes);
    // What has no room to reserve, such as a device, is for mmap to judge.
    if (mode != readWrite || !status->isRegular()) return 0;
    return reserve(fd, static_cast<off_t>(status->size), length);
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
    // Not into `result`, which tells the first failure, whatever closing says.
    if (result != 0) unmapfile(&scratch);
    return address;
}

void ZUnixFileMap::unmapfile(int* rc) {
    ZCancellationOff const whileClosing;  // close() is a cancellation point, and destructors close
    int result = 0;
    if (address != nullptr) {
        // An address that could not be unmapped stays, to be tried again.
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
