/// Shared. The lists of strings that the property cache has handed out, and what else the object
/// has no fields for.
#ifndef Z_CONFIG_CACHE_HANDED_OUT_H
#define Z_CONFIG_CACHE_HANDED_OUT_H

#include <memory>
#include <unordered_map>
#include <utility>

#include "Z/ZList.h"
#include "Z/ZPropertiesImpl.h"
#include "Z/config/cache/table.h"

/// Made when they are asked for, kept until the cache changes.
struct ZPCategoryBasedCache::Lists : zfc::cache::Allocated {
    template <class Object>
    using ByNumber = std::unordered_map<
        std::uint64_t, std::unique_ptr<Object>, std::hash<std::uint64_t>, std::equal_to<>,
        zfc::cache::Allocator<std::pair<std::uint64_t const, std::unique_ptr<Object>>>>;

    /// Record and kind of list in one number.
    static std::uint64_t numberOf(zfc::cache::Index record, get_type_e type) {
        return std::uint64_t{record} * 4 + type;
    }
    void clear() {
        // Called for each edit: clear() goes over all buckets even of an empty one.
        if (!values.empty()) values.clear();
        if (!stanzas.empty()) stanzas.clear();
        if (!names.empty()) names.clear();
    }

    ByNumber<ZArrayList> values;  // of keys
    ByNumber<ZPKVList> stanzas;   // the key maps of stanzas
    ByNumber<ZArrayList> names;   // the key names of stanzas

    // Here because the object has no field for it; copies have it, and clear() keeps it.
    unsigned long companionLimit = defaultCompanionLimit;
};

#endif
