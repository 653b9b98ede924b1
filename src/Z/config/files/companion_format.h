/// What the bytes of a companion file are: records in a zlib stream.
#ifndef Z_CONFIG_FILES_COMPANION_FORMAT_H
#define Z_CONFIG_FILES_COMPANION_FORMAT_H

#include <string_view>

#include "Z/ZLCString.h"

namespace zfc::config {

/// Why the bytes are no companion that expands to at most `limit` bytes, in words; empty when they
/// are one. Takes memory for `limit` bytes at most.
[[nodiscard]] ZLCString companionFault(std::string_view bytes, unsigned long limit);

/// Why a companion of that many bytes cannot be read with this limit, in words.
[[nodiscard]] ZLCString tooLarge(unsigned long limit);

/// Whether the bytes are a companion, or one that was cut off, or that breaks behind a record.
[[nodiscard]] bool beginsLikeCompanion(std::string_view bytes);

}  // namespace zfc::config

#endif
