/// Shared. The companion file of a stanza file, which holds its obfuscated values, as it is written
/// and removed. Which file it is is said in companion_choice.h, what its bytes mean in
/// companion_format.h. Failures are ZPropertiesIOException (message 43) with the companion's name.
#ifndef Z_CONFIG_FILES_COMPANION_FILE_H
#define Z_CONFIG_FILES_COMPANION_FILE_H

#include <optional>
#include <string_view>

#include "Z/platform/locked_file.h"
#include "Z/platform/rewrite.h"

namespace zfc::config {

enum class Access { read, write };

/// Opens a companion that is there; not open when there is none. "fopen(r)" or "fopen(w)", for a
/// link and for what is no regular file too.
[[nodiscard]] zfc::platform::Descriptor openCompanion(char const* path, Access access);

/// Makes a companion, empty, with the main file's owner, group and permissions as far as this
/// process may give them; what is not given to another group is not given to its own. "fopen(w)".
[[nodiscard]] zfc::platform::Descriptor createCompanion(char const* path,
                                                        zfc::platform::Status const& mainFile);

/// Gives an open companion to whom createCompanion() gives it.
void giveCompanion(int fd, zfc::platform::Status const& mainFile) noexcept;

/// Takes the permissions from an open companion that the main file has not. "fchmod()".
void narrowCompanion(char const* path, int fd, zfc::platform::Status const& mainFile);

/// Removes the file; one that is gone already is no failure. "unlink()", for a link and for what is
/// no regular file too.
void removeCompanion(char const* path);

/// A companion file that a store writes. Until keep() is called, the destructor puts it back, and
/// removes a new one.
class CompanionFile {
  public:
    /// One that the object knows is opened, and made with apply() when it is gone; any other must
    /// not exist, or be one that a killed store of `file` left: nobody's file is overwritten
    /// because of its name. "fopen(w)". Path and image are used until the end.
    CompanionFile(char const* companionPath, char const* file, bool isKnown,
                  std::string_view newImage);
    ~CompanionFile();
    CompanionFile(CompanionFile const&) = delete;
    CompanionFile& operator=(CompanionFile const&) = delete;

    [[nodiscard]] char const* name() const { return path; }
    /// Whether it is not there before apply().
    [[nodiscard]] bool isNew() const { return !found; }
    /// What it is before apply(), when it is there.
    [[nodiscard]] std::optional<zfc::platform::Status> const& status() const { return found; }
    [[nodiscard]] std::string_view oldBytes() const;
    [[nodiscard]] zfc::platform::ChangedRange range() const;

    /// What Rewrite::prepare() is, for one that is there.
    void prepare();
    /// Makes the file hold the image, flushed to the device. One that is there gets no wider than
    /// the main file first ("fchmod()") and keeps its owner. Else raises what Rewrite::apply()
    /// does.
    void apply(zfc::platform::Status const& mainFile);
    void keep() noexcept;
    /// Puts back what apply() changed; false when that fails.
    [[nodiscard]] bool undo() noexcept;

  private:
    char const* path;
    std::string_view image;
    zfc::platform::Descriptor file;
    std::optional<zfc::platform::Status> found;
    bool isOrphan;                                  // nobody names it
    bool isMade = false;                            // here, and to be removed
    std::optional<zfc::platform::Rewrite> rewrite;  // none for one that is not there yet
};

}  // namespace zfc::config

#endif
