/// Shared. What may be stored in a stanza file, for texts whose length is known. The rules are said
/// at the isStorable functions of ZPCategoryBasedCache.
#ifndef Z_CONFIG_CACHE_STORABLE_H
#define Z_CONFIG_CACHE_STORABLE_H

#include <string_view>

#include "Z/config/cache/values.h"

namespace zfc::cache {

[[nodiscard]] bool isStorableStanza(std::string_view name);
[[nodiscard]] bool isStorableKey(std::string_view name);
[[nodiscard]] bool isStorableValue(std::string_view key, std::string_view value, Obfuscated kind);

}  // namespace zfc::cache

#endif
