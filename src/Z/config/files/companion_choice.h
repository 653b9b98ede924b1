/// Shared. Which companion file a stanza file has, whose it is, and how it is read. A companion
/// named `X.obf` belongs to `X` where X names it: a copy of X, which names it too, gets its own
/// with the first store. How it is written is said in companion_file.h, what its bytes mean in
/// companion_format.h.
#ifndef Z_CONFIG_FILES_COMPANION_CHOICE_H
#define Z_CONFIG_FILES_COMPANION_CHOICE_H

#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "Z/ZLCString.h"
#include "Z/ZPropertiesImpl.h"

namespace zfc::config {

/// The values as a stored file shows them, and the companion file that it names then: none without
/// obfuscated values; else the one that the values name or used to name, unless that one belongs to
/// another file, or is gone while the file has one of its own beside it; else its own. Where the
/// file's word on its companion changes, this holds a changed copy of the values.
class StoredValues {
  public:
    /// `ofObject` is used until the end. Raises ZPropertiesIOException (message 43) with "getcwd()"
    /// when a companion would stand beside a file whose directory cannot be told.
    StoredValues(ZPCategoryBasedCache& ofObject, char const* file);

    /// Empty: the values need none.
    [[nodiscard]] ZLCString const& companionName() const { return companion; }
    [[nodiscard]] ZPCategoryBasedCache& values() const { return copy ? *copy : *cache; }
    /// What the object holds once both files are stored; null: nothing changed.
    [[nodiscard]] std::unique_ptr<ZPCategoryBasedCache> takeChanged() { return std::move(copy); }

  private:
    void forgetCompanion();
    void chooseCompanion(char const* file);
    [[nodiscard]] ZPCategoryBasedCache& changeable();

    ZPCategoryBasedCache* cache;
    std::unique_ptr<ZPCategoryBasedCache> copy;  // null: as in `cache`
    ZLCString companion;
};

/// Whether the companion is for another file than `file` to write or remove: it is named `X.obf`,
/// X is a regular file but not `file`, whatever their names, and X names it. An X that cannot be
/// read, or is too large to look for the name, counts as naming it. Never waits.
[[nodiscard]] bool belongsToOther(char const* companion, char const* file);

/// The companion that a load of `file` reads, where the file names `named`: that one, or, when it
/// is gone, the file's own, where there is one: directory or file were moved. Raises as
/// StoredValues does.
[[nodiscard]] ZLCString companionToLoad(char const* named, char const* file);

/// Whether an existing companion that the object does not know may be overwritten by a store of
/// `file`: it bears the file's own name, is a regular file with one link, of the file's owner or
/// ours, reached through no link itself, and is empty, a companion, or the beginning of one, as a
/// killed store leaves it. Never waits.
[[nodiscard]] bool mayTakeOver(char const* companion, char const* file);

/// Adds the values of the companion that `file` names to the cache. Raises
/// ZPropertiesCompanionIOException (message 55) with "mapFile()" when it cannot be read or is
/// empty, and ZPropertiesCompanionDataException (message 56) when it is damaged or larger than the
/// cache's getCompanionLimit(); nothing is added then. Never waits. `recovered` is what the
/// companion holds when its last store is finished; nothing: what it holds now.
void readCompanionInto(ZPCategoryBasedCache& cache, char const* companion, char const* file,
                       std::optional<std::string_view> recovered);

}  // namespace zfc::config

#endif
