/// Shared. The names of one file: its stanzas and the keys of each, found by hash.
#ifndef Z_CONFIG_CACHE_NAMES_H
#define Z_CONFIG_CACHE_NAMES_H

#include <cstdint>
#include <string_view>

#include "Z/config/cache/pool.h"
#include "Z/config/cache/table.h"
#include "Z/config/cache/texts.h"

namespace zfc::cache {

/// Where a stanza file names its companion file: the last plain value of this key.
constexpr char companionStanza[] = "configuration-database";
constexpr char companionKey[] = "file";
[[nodiscard]] inline bool namesCompanion(std::string_view stanza, std::string_view key) {
    return stanza == companionStanza && key == companionKey;
}

struct Stanza {
    char const* name;
    std::uint32_t nameLength;

    [[nodiscard]] std::string_view getName() const { return {name, nameLength}; }
};

/// A key's name, and what the other parts keep of it: in one record, so that whoever has found the
/// key has all of it in the processor's cache.
struct Key {
    char const* name;
    char const* value;  // of Values: the first plain value; null: no plain values
    std::uint32_t nameLength;
    std::uint32_t valueLength;
    Index stanza;
    Index line;        // of Lines: its line, placed or not
    Index more;        // of Values: further plain values, a ValueList; none: no more
    Index obfuscated;  // of Values: the obfuscated values, a ValueList; none: none

    [[nodiscard]] std::string_view getName() const { return {name, nameLength}; }
};

/// Gives stanzas and keys their numbers, which all parts of the cache know them by. The number of
/// one that was removed is given out again.
class Names {
  public:
    /// The texts of the names lie in `memory`, whose use is counted there.
    explicit Names(Texts& memory) : texts(memory) {}
    /// A copy whose names lie where the other's do, until they are moved.
    Names(Names const& other, Texts& memory);
    Names(Names const&) = delete;
    Names& operator=(Names const&) = delete;

    /// None when it is absent; likewise below.
    [[nodiscard]] Index findStanza(std::string_view name) const {
        return isRecent(name) ? recentStanza : searchStanza(name);
    }
    [[nodiscard]] Index findKey(std::string_view stanza, std::string_view name) const;
    [[nodiscard]] Index findKey(Index stanza, std::string_view name, std::uint32_t hash) const {
        return keyTables[stanza].find(hash, stanzas[stanza].name,
                                      [&](Index i) { return keyName(i) == name; });
    }

    struct Sought {
        Index key;  // none: absent
        std::uint32_t hash;
    };
    /// For an edit: what it needs for a key that is there or will be; of a stanza that is to come,
    /// none, the hash.
    [[nodiscard]] Sought seekKey(Index stanza, std::string_view name) const;
    /// For what is asked before an edit: as findKey(), and the edit has its answer at once.
    [[nodiscard]] Index findKeyToEdit(std::string_view stanza, std::string_view name) const;

    [[nodiscard]] std::string_view stanzaName(Index stanza) const {
        return stanzas[stanza].getName();
    }
    [[nodiscard]] std::string_view keyName(Index key) const { return keys[key].getName(); }
    [[nodiscard]] Key const& key(Index i) const { return keys[i]; }
    [[nodiscard]] std::uint32_t stanzaCount() const { return stanzaTable.size(); }
    [[nodiscard]] std::uint32_t keyCount(Index stanza) const { return keyTables[stanza].size(); }

    /// What is added is not there yet, and its name lies in the memory. Without memory nothing is
    /// changed.
    [[nodiscard]] Index addStanza(std::string_view name);
    /// The new key has no values.
    [[nodiscard]] Index addKey(Index stanza, std::string_view name, std::uint32_t hash, Index line);
    void removeKey(Index key);
    /// It has no keys any more.
    void removeStanza(Index stanza);
    [[nodiscard]] Key& key(Index i) { return keys[i]; }

    /// Moves one name that is in use.
    void moveStanza(Texts& fresh, Index stanza);
    void moveKey(Texts& fresh, Index key);

  private:
    friend struct RecordsCheck;  // the tests' invariants

    [[nodiscard]] Index searchStanza(std::string_view name) const;
    [[nodiscard]] bool isRecent(std::string_view stanza) const {
        return recentStanza != none && stanzaName(recentStanza) == stanza;
    }

    /// The last answer of findKeyToEdit().
    struct Asked {
        Index stanza = none;  // none: there is no answer, or the keys have changed since
        Sought answer{none, 0};
        String name;
    };

    Texts& texts;
    Pool<Stanza, 16> stanzas;  // few in most files
    Pool<Key> keys;
    mutable Index recentStanza = none;  // found last: programs ask for key after key of one
    mutable Asked asked;
    Table stanzaTable;        // all stanzas
    Vector<Table> keyTables;  // by stanza, its keys: close together, as they are used
};

/// For the names that callers give: none for null.
[[nodiscard]] inline Index findStanza(Names const& names, char const* stanza) {
    return stanza == nullptr ? none : names.findStanza(stanza);
}
[[nodiscard]] inline Index findKey(Names const& names, char const* stanza, char const* key) {
    return stanza == nullptr || key == nullptr ? none : names.findKey(stanza, key);
}
[[nodiscard]] inline Index findKeyToEdit(Names const& names, char const* stanza, char const* key) {
    return stanza == nullptr || key == nullptr ? none : names.findKeyToEdit(stanza, key);
}

}  // namespace zfc::cache

#endif
