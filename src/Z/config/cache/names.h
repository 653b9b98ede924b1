/// Shared. Finding records by the names that callers give.
#ifndef Z_CONFIG_CACHE_NAMES_H
#define Z_CONFIG_CACHE_NAMES_H

#include "Z/config/cache/records.h"

namespace zfc::cache {

/// None for null.
[[nodiscard]] inline Index findStanza(Records const& records, char const* stanza) {
    return stanza == nullptr ? none : records.findStanza(stanza);
}

/// None when either is null or absent.
[[nodiscard]] inline Index findKey(Records const& records, char const* stanza, char const* key) {
    return stanza == nullptr || key == nullptr ? none : records.findKey(stanza, key);
}

/// The kind of values that get() type 0 shows.
[[nodiscard]] inline Obfuscated visibleKind(Records const& records, Index key) {
    bool const isPlain = records.key(key).value != nullptr || records.obfuscatedCount(key) == 0;
    return isPlain ? Obfuscated::no : Obfuscated::yes;
}

/// Where a stanza file names its companion file: the last plain value of this key.
constexpr char companionStanza[] = "configuration-database";
constexpr char companionKey[] = "file";
[[nodiscard]] inline bool namesCompanion(std::string_view stanza, std::string_view key) {
    return stanza == companionStanza && key == companionKey;
}

}  // namespace zfc::cache

#endif
