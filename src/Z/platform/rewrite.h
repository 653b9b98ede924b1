/// Shared. New bytes for an open and locked file, such that a failure loses nothing. Failures are
/// ZPropertiesIOException (message 43) with the file's name as it was given, the operation and its
/// errno.
#ifndef Z_PLATFORM_REWRITE_H
#define Z_PLATFORM_REWRITE_H

#include <cstddef>
#include <string_view>

#include "Z/ZBuffer.h"

namespace zfc::platform {

/// New bytes for an open file. Until keep() is called, the destructor puts the old ones back.
class Rewrite {
  public:
    /// Reads the old bytes ("fread()"). Name, descriptor and image are used until the end.
    Rewrite(char const* filePath, int descriptor, std::string_view newImage);
    ~Rewrite();
    Rewrite(Rewrite const&) = delete;
    Rewrite& operator=(Rewrite const&) = delete;

    /// Makes the file hold the image, flushed to the device; a file that holds it already is not
    /// written. Before a byte is overwritten, the space is reserved ("fallocate()"), the process's
    /// file size limit looked at ("write()", EFBIG), and what is longer than the old bytes written
    /// behind them: a file system that reserves nothing runs full there. Then "write()",
    /// "ftruncate()", "fsync()".
    void apply();
    void keep() noexcept { stage = Stage::untouched; }

  private:
    enum class Stage { untouched, grown, overwritten };

    [[nodiscard]] std::string_view oldBytes() const;
    void checkSizeLimit() const;
    void reserve() const;
    void writeAt(std::size_t offset, std::string_view bytes) const;
    void cutAndFlush() const;
    void putBack() const noexcept;

    char const* path;
    int fd;
    std::string_view image;
    ZBuffer old;
    Stage stage = Stage::untouched;  // what has to be undone
};

}  // namespace zfc::platform

#endif
