/// The bytes of a recovery copy.
#ifndef Z_CONFIG_COPY_FORMAT_H
#define Z_CONFIG_COPY_FORMAT_H

#include <string_view>

#include "Z/config/recovery_copy.h"

namespace zfc::config {

/// The copy of a store of these files, of which the main file, the first, is `mainFile`.
[[nodiscard]] String encodeCopy(Vector<FileRecord> const& files,
                                zfc::platform::Identity const& mainFile);

enum class CopyFault { none, cutOff, damaged };

/// The texts of `files`, which is empty for a copy with a fault, are in `bytes`.
[[nodiscard]] CopyFault decodeCopy(std::string_view bytes, Vector<FileRecord>& files,
                                   zfc::platform::Identity& mainFile);

}  // namespace zfc::config

#endif
