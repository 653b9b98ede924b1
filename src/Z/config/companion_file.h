/// The companion file of a stanza file, which holds its obfuscated values, as it is written and
/// removed. Which file it is is said in companion_choice.h, what its bytes mean in
/// companion_format.h.
#ifndef Z_CONFIG_COMPANION_FILE_H
#define Z_CONFIG_COMPANION_FILE_H

#include <optional>
#include <string_view>

#include "Z/platform/locked_file.h"
#include "Z/platform/rewrite.h"

namespace zfc::config {

/// Removes the file; one that is gone already is no failure. Raises ZPropertiesIOException (message
/// 43) with "unlink()", for a link and for what is no regular file too.
void removeCompanion(char const* path);

/// A companion file that is written: open, and until keep() is called put back by the destructor,
/// which removes a new one.
class CompanionFile {
  public:
    /// One that the object knows is opened, or made when it is gone; any other must not exist, or
    /// be one that a killed store of `file` left: nobody's file is overwritten because of its name.
    /// Raises ZPropertiesIOException (message 43) with "fopen(w)". The path is used until the end.
    CompanionFile(char const* companionPath, char const* file, bool isKnown);
    ~CompanionFile();
    CompanionFile(CompanionFile const&) = delete;
    CompanionFile& operator=(CompanionFile const&) = delete;

    /// Makes the file hold `image`, flushed to the device, and gives it to whom the main file
    /// belongs. Raises what Rewrite::apply() does. The image is used until the end.
    void write(std::string_view image, zfc::platform::Status const& mainFile);
    void keep() noexcept;

  private:
    void open();
    void create();
    [[noreturn]] void refuse(int error) const;
    void giveTo(zfc::platform::Status const& mainFile) const;

    char const* path;
    zfc::platform::Descriptor file;
    bool isNew = false;                             // made here, and to be removed
    std::optional<zfc::platform::Rewrite> rewrite;  // none before write()
};

}  // namespace zfc::config

#endif
