#include "Z/platform/rewrite.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

#include "Z/ZException.h"
#include "Z/platform/descriptor.h"
#include "Z/platform/locked_file.h"

namespace zfc::platform {
namespace {

constexpr char sourceName[] = "src/Z/ZProperties";

/// 0, or the errno of the write that failed.
[[nodiscard]] int writeAll(int fd, std::size_t offset, std::string_view bytes) {
    while (!bytes.empty()) {
        auto const at = static_cast<off_t>(offset);
        ssize_t const done =
            uninterrupted([&] { return pwrite(fd, bytes.data(), bytes.size(), at); });
        if (done < 0) return errno;
        if (done == 0) return ENOSPC;  // POSIX allows it; trying again would never end
        bytes.remove_prefix(static_cast<std::size_t>(done));
        offset += static_cast<std::size_t>(done);
    }
    return 0;
}

/// How many bytes could be read; -1 with errno.
[[nodiscard]] ssize_t readAll(int fd, char* into, std::size_t size) {
    std::size_t have = 0;
    while (have < size) {
        auto const at = static_cast<off_t>(have);
        ssize_t const got = uninterrupted([&] { return pread(fd, into + have, size - have, at); });
        if (got < 0) return -1;
        if (got == 0) break;
        have += static_cast<std::size_t>(got);
    }
    return static_cast<ssize_t>(have);
}

}  // namespace

Rewrite::Rewrite(char const* filePath, int descriptor, std::string_view newImage)
    : path(filePath), fd(descriptor), image(newImage) {
    auto const status = statusOf(fd);
    if (!status) zraise(ZPropertiesIOException(path, "fread()", errno), sourceName, __LINE__);
    // What a buffer cannot hold could not be put back.
    if (status->size > static_cast<unsigned int>(-1))
        zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    auto const size = static_cast<std::size_t>(status->size);
    old.setLength(size);
    ssize_t const got = readAll(fd, static_cast<char*>(old.getBuffer()), size);
    if (got < 0) zraise(ZPropertiesIOException(path, "fread()", errno), sourceName, __LINE__);
    // Shorter than it was said to be: a lock does not hold those off that do not ask for it.
    old.setLength(static_cast<unsigned long>(got));
}

Rewrite::~Rewrite() {
    if (stage != Stage::untouched) putBack();
}

std::string_view Rewrite::oldBytes() const {
    if (old.getLength() == 0) return {};
    return {static_cast<char const*>(old.getBuffer()), old.getLength()};
}

void Rewrite::apply() {
    if (oldBytes() == image) return;
    std::size_t const shared = std::min<std::size_t>(old.getLength(), image.size());
    checkSizeLimit();
    // Each stage is noted before its first byte: what breaks off within has to be undone.
    stage = Stage::grown;
    reserve();
    // Behind the old bytes first: a full disk is found out while they are whole.
    writeAt(shared, image.substr(shared));
    stage = Stage::overwritten;
    writeAt(0, image.substr(0, shared));
    cutAndFlush();
}

void Rewrite::checkSizeLimit() const {
    if (exceedsSizeLimit(static_cast<off_t>(image.size())))
        zraise(ZPropertiesIOException(path, "write()", EFBIG), sourceName, __LINE__);
}

void Rewrite::reserve() const {
    if (image.empty()) return;
    auto const size = static_cast<off_t>(image.size());
    // The size is kept: a process that ends here leaves no zeros behind its text.
    int const rc = uninterrupted([&] { return fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, size); });
    if (rc == 0) return;
    // Any other error says that this file system reserves nothing: it is written as it is.
    bool const isFull = errno == ENOSPC || errno == EDQUOT || errno == EFBIG || errno == EIO;
    if (isFull) zraise(ZPropertiesIOException(path, "fallocate()", errno), sourceName, __LINE__);
}

void Rewrite::writeAt(std::size_t offset, std::string_view bytes) const {
    int const error = writeAll(fd, offset, bytes);
    if (error != 0) zraise(ZPropertiesIOException(path, "write()", error), sourceName, __LINE__);
}

void Rewrite::cutAndFlush() const {
    auto const size = static_cast<off_t>(image.size());
    if (uninterrupted([&] { return ftruncate(fd, size); }) != 0)
        zraise(ZPropertiesIOException(path, "ftruncate()", errno), sourceName, __LINE__);
    // EINVAL: a file system that has nothing to flush to.
    if (uninterrupted([&] { return fsync(fd); }) != 0 && errno != EINVAL)
        zraise(ZPropertiesIOException(path, "fsync()", errno), sourceName, __LINE__);
}

void Rewrite::putBack() const noexcept {
    std::string_view const bytes = oldBytes();
    auto const size = static_cast<off_t>(bytes.size());
    // A file that was longer than the limit has not grown; what was cut off it cannot be written.
    bool const isTooLong = exceedsSizeLimit(size);
    if (stage == Stage::overwritten)
        static_cast<void>(writeAll(fd, 0, isTooLong ? bytes.substr(0, image.size()) : bytes));
    // Also gives back what was reserved behind the end.
    if (!isTooLong) static_cast<void>(uninterrupted([&] { return ftruncate(fd, size); }));
    // What fails here has no remedy, and the error that brought us here is the one to tell.
    fsync(fd);
}

}  // namespace zfc::platform
