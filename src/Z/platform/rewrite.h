/// Shared. New bytes for an open and locked file, such that a failure loses nothing. Failures are
/// ZPropertiesIOException (message 43) with the file's name as it was given, the operation and its
/// errno.
#ifndef Z_PLATFORM_REWRITE_H
#define Z_PLATFORM_REWRITE_H

#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <string_view>

#include "Z/zfree.h"

namespace zfc::platform {

/// Bytes of a file in memory whose pages are cut as those of the file are. A write from here that
/// breaks off, because the process is killed, breaks off between two pages of the file: memory
/// that is not there when the kernel copies from it ends a write early too.
class FilePages {
  public:
    FilePages() = default;
    /// Room for `size` bytes that lie at `offset` of a file; raises ZOutOfMemoryException (message
    /// 1).
    FilePages(std::size_t offset, std::size_t size);

    [[nodiscard]] char* data() { return first; }
    [[nodiscard]] std::string_view bytes() const { return {first, count}; }
    void shorten(std::size_t size) { count = size; }

  private:
    std::unique_ptr<char, ZFree> block;
    char* first = nullptr;
    std::size_t count = 0;
};

/// Reads from the beginning of a file, as many bytes as it has there; how many, -1 with errno.
[[nodiscard]] ssize_t readAll(int fd, char* into, std::size_t size);

/// The bytes of a file; fewer when it is cut off meanwhile. "fread()"; a file that memory cannot
/// hold raises ZOutOfMemoryException (message 1).
[[nodiscard]] FilePages readWhole(char const* path, int fd);

/// All that a change of a file writes: the bytes from the first to the last that differ, in one
/// piece, and the size that the file gets then.
struct ChangedRange {
    std::size_t oldSize = 0;
    std::size_t newSize = 0;
    std::size_t start = 0;  // of the range in the file
    // To the last byte that differs; where the sizes differ, each to its file's end.
    std::string_view before;
    std::string_view after;  // where the file shrinks, with line feeds to its old end

    [[nodiscard]] bool isEmpty() const { return after.empty() && oldSize == newSize; }
};

/// Puts the range into the file, gives it the new size and flushes it to the device. "write()",
/// "ftruncate()", "fsync()".
void writeRange(char const* path, int fd, ChangedRange const& range);

/// New bytes for an open file. Until keep() is called, the destructor puts the old ones back.
class Rewrite {
  public:
    /// Reads the old bytes ("fread()"). Name, descriptor and image are used until the end.
    Rewrite(char const* filePath, int descriptor, std::string_view newImage);
    ~Rewrite();
    Rewrite(Rewrite const&) = delete;
    Rewrite& operator=(Rewrite const&) = delete;

    [[nodiscard]] ChangedRange const& range() const { return changed; }
    [[nodiscard]] std::string_view oldBytes() const { return old.bytes(); }

    /// What can fail before a byte is overwritten: the process's file size limit ("write()",
    /// EFBIG) and the space on the device ("fallocate()").
    void prepare();
    /// Makes the file hold the image, as writeRange() does, and flushes it in any case.
    void apply();
    void keep() noexcept { stage = Stage::untouched; }
    /// Puts back what apply() changed; false when that fails.
    [[nodiscard]] bool undo() noexcept;

  private:
    enum class Stage { untouched, reserved, overwritten };

    void findRange();
    void padToOldSize();
    [[nodiscard]] bool isReleased() const noexcept;

    char const* path;
    int fd;
    std::string_view image;
    FilePages old;
    FilePages written;  // the range's new bytes
    ChangedRange changed;
    Stage stage = Stage::untouched;  // what has to be undone
};

}  // namespace zfc::platform

#endif
