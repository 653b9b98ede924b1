#include "Z/platform/rewrite.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "Z/ZException.h"
#include "Z/containers/members.h"
#include "Z/platform/descriptor.h"
#include "Z/platform/locked_file.h"

namespace zfc::platform {
namespace {

constexpr char sourceName[] = "src/Z/ZProperties";
constexpr std::size_t pageSize = 4096;  // of x86, and of its file systems

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

/// How many bytes two texts have in common at their beginning.
[[nodiscard]] std::size_t commonLength(std::string_view a, std::string_view b) {
    std::size_t const most = std::min(a.size(), b.size());
    std::size_t at = 0;
    // memcmp() is several times faster than a loop over bytes, but tells no place.
    while (at + pageSize <= most && std::memcmp(a.data() + at, b.data() + at, pageSize) == 0)
        at += pageSize;
    while (at < most && a[at] == b[at])
        ++at;
    return at;
}

/// The same at the end of texts of one length.
[[nodiscard]] std::size_t commonTail(std::string_view a, std::string_view b) {
    std::size_t left = a.size();
    while (left >= pageSize &&
           std::memcmp(a.data() + left - pageSize, b.data() + left - pageSize, pageSize) == 0)
        left -= pageSize;
    while (left > 0 && a[left - 1] == b[left - 1])
        --left;
    return a.size() - left;
}

[[nodiscard]] int setSize(int fd, std::size_t size) {
    return uninterrupted([&] { return ftruncate(fd, static_cast<off_t>(size)); });
}

[[noreturn]] void refuse(char const* path, char const* operation, int error) {
    zraise(ZPropertiesIOException(path, operation, error), sourceName, __LINE__);
}

}  // namespace

FilePages::FilePages(std::size_t offset, std::size_t size) : count(size) {
    std::size_t const lead = offset % pageSize;
    void* made = nullptr;
    bool const fits = size <= SIZE_MAX - 2 * pageSize;
    if (!fits || posix_memalign(&made, pageSize, lead + size + 1) != 0)
        zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    block.reset(static_cast<char*>(made));
    containers::askForLargePages(block.get(), size);
    first = block.get() + lead;
}

ssize_t readAll(int fd, char* into, std::size_t size) {
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

FilePages readWhole(char const* path, int fd) {
    auto const status = statusOf(fd);
    if (!status) refuse(path, "fread()", errno);
    // Lengths of the library are 32 bits wide.
    if (status->size > static_cast<unsigned int>(-1))
        zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    FilePages pages(0, static_cast<std::size_t>(status->size));
    ssize_t const got = readAll(fd, pages.data(), pages.bytes().size());
    if (got < 0) refuse(path, "fread()", errno);
    // Shorter than it was said to be: a lock does not hold those off that do not ask for it.
    pages.shorten(static_cast<std::size_t>(got));
    return pages;
}

void writeRange(char const* path, int fd, ChangedRange const& range) {
    if (int const error = writeAll(fd, range.start, range.after); error != 0)
        refuse(path, "write()", error);
    // Behind the line feeds that are there now: who reads without a lock meets the end of the old
    // text at no time.
    if (range.newSize < range.oldSize && setSize(fd, range.newSize) != 0)
        refuse(path, "ftruncate()", errno);
    flush(path, fd);
}

// ----------------------------------------------------------------------------------------- Rewrite

Rewrite::Rewrite(char const* filePath, int descriptor, std::string_view newImage)
    : path(filePath), fd(descriptor), image(newImage), old(readWhole(filePath, descriptor)) {
    findRange();
}

Rewrite::~Rewrite() { static_cast<void>(undo()); }

void Rewrite::findRange() {
    std::string_view const bytes = old.bytes();
    changed.oldSize = bytes.size();
    changed.newSize = image.size();
    changed.start = commonLength(bytes, image);
    if (changed.start == std::max(bytes.size(), image.size())) return;
    std::size_t const end = std::max(bytes.size(), image.size());
    written = FilePages(changed.start, end - changed.start);
    std::string_view const text = image.substr(changed.start);
    std::copy(text.begin(), text.end(), written.data());
    padToOldSize();
    std::size_t tail = 0;
    changed.before = bytes.substr(changed.start);
    if (changed.oldSize == changed.newSize) tail = commonTail(changed.before, written.bytes());
    changed.before.remove_suffix(tail);
    written.shorten(written.bytes().size() - tail);
    changed.after = written.bytes();
}

void Rewrite::padToOldSize() {
    if (changed.newSize >= changed.oldSize) return;
    std::size_t const text = changed.newSize - changed.start;
    // A write behind the process's limit, even of bytes that are there, is a signal.
    if (exceedsSizeLimit(static_cast<off_t>(changed.oldSize))) return written.shorten(text);
    std::fill(written.data() + text, written.data() + written.bytes().size(), '\n');
}

void Rewrite::prepare() {
    auto const start = static_cast<off_t>(changed.start);
    auto const size = static_cast<off_t>(changed.after.size());
    if (exceedsSizeLimit(static_cast<off_t>(changed.newSize))) refuse(path, "write()", EFBIG);
    if (size == 0) return;
    stage = Stage::reserved;
    // The size is kept: a process that ends here leaves no zeros behind its text.
    int const rc = uninterrupted([&] { return fallocate(fd, FALLOC_FL_KEEP_SIZE, start, size); });
    if (rc == 0) return;
    // Any other error says that this file system reserves nothing: it is written as it is.
    bool const isFull = errno == ENOSPC || errno == EDQUOT || errno == EFBIG || errno == EIO;
    if (isFull) refuse(path, "fallocate()", errno);
}

void Rewrite::apply() {
    // Bytes that are there already may not have reached the device yet.
    if (changed.isEmpty()) return flush(path, fd);
    // Noted before the first byte: what breaks off within has to be undone.
    stage = Stage::overwritten;
    writeRange(path, fd, changed);
}

bool Rewrite::undo() noexcept {
    Stage const left = stage;
    stage = Stage::untouched;
    if (left == Stage::untouched) return true;
    if (left == Stage::reserved) return isReleased();
    // A file that was longer than the limit has not grown; what was cut off it cannot be written.
    bool const isTooLong = exceedsSizeLimit(static_cast<off_t>(changed.oldSize));
    std::string_view const before =
        isTooLong ? changed.before.substr(0, changed.after.size()) : changed.before;
    if (writeAll(fd, changed.start, before) != 0) return false;
    // Not behind old bytes that are missing: there it would put zeros, which are neither old nor
    // new.
    if (isTooLong || setSize(fd, changed.oldSize) != 0) return false;
    return fsync(fd) == 0 || errno == EINVAL;
}

/// Gives back what was reserved behind the end, wherever that is by now.
bool Rewrite::isReleased() const noexcept {
    auto const now = statusOf(fd);
    return now && setSize(fd, static_cast<std::size_t>(now->size)) == 0;
}

}  // namespace zfc::platform
