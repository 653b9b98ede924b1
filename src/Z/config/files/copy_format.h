/// The bytes of a recovery copy.
#ifndef Z_CONFIG_FILES_COPY_FORMAT_H
#define Z_CONFIG_FILES_COPY_FORMAT_H

#include <cstdint>
#include <string_view>

#include "Z/config/files/recovery_copy.h"

namespace zfc::config {

/// Which files a copy was made of and as; others when these were copied, or the main file replaced.
struct CopyOf {
    zfc::platform::Identity mainFile;
    zfc::platform::Identity copy;
};

/// The copy of a store of these files, the main file first.
[[nodiscard]] String encodeCopy(Vector<FileRecord> const& files, CopyOf const& of);

constexpr std::size_t copyHeadSize = 24;

enum class CopyFault { none, cutOff, damaged };

/// What the first copyHeadSize bytes, fewer of a smaller file, say of a copy of that size.
[[nodiscard]] CopyFault faultOfHead(std::string_view head, std::uint64_t size);

/// False for bytes that are no whole copy. The texts of `files` are in `bytes`.
[[nodiscard]] bool decodeCopy(std::string_view bytes, Vector<FileRecord>& files, CopyOf& of);

}  // namespace zfc::config

#endif
