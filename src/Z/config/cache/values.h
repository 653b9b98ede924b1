/// Shared. The values of keys, plain and obfuscated.
///
/// Most keys have one plain value, which stands in the key's record; all others are in lists. Every
/// function takes the record of the key that is meant.
#ifndef Z_CONFIG_CACHE_VALUES_H
#define Z_CONFIG_CACHE_VALUES_H

#include <cstdint>
#include <string_view>

#include "Z/config/cache/names.h"
#include "Z/config/cache/pool.h"
#include "Z/config/cache/texts.h"

namespace zfc::cache {

enum class Obfuscated : bool { no, yes };
[[nodiscard]] constexpr Obfuscated kindOf(int obfuscated) {
    return obfuscated != 0 ? Obfuscated::yes : Obfuscated::no;
}

struct Value {
    char const* text;
    std::uint32_t length;
    Index next;  // none: the last one

    [[nodiscard]] std::string_view getText() const { return {text, length}; }
};

/// The values of a key that its record has no room for.
struct ValueList {
    Index first;
    Index last;
    std::uint32_t count;  // never 0
    Index key;            // whose they are
    Index prev;           // obfuscated values: the chain of all such lists
    Index next;
};

class Values {
  public:
    /// The texts of the values lie in `memory`, whose use is counted there.
    explicit Values(Texts& memory) : texts(memory) {}
    /// A copy whose values lie where the other's do, until they are moved.
    Values(Values const& other, Texts& memory);
    Values(Values const&) = delete;
    Values& operator=(Values const&) = delete;

    [[nodiscard]] std::uint32_t count(Key const& key, Obfuscated kind) const;
    /// The kind of values that get() type 0 shows.
    [[nodiscard]] static Obfuscated visibleKind(Key const& key) {
        bool const isPlain = key.value != nullptr || key.obfuscated == none;
        return isPlain ? Obfuscated::no : Obfuscated::yes;
    }
    [[nodiscard]] static bool isObfuscated(Key const& key) { return key.obfuscated != none; }
    /// Value number `i` of the kind; its data is null when there is none.
    [[nodiscard]] std::string_view at(Key const& key, Obfuscated kind, std::uint32_t i) const;
    /// The last value of the kind; its data is null when there is none.
    [[nodiscard]] std::string_view last(Key const& key, Obfuscated kind) const {
        Index const list = kind == Obfuscated::yes ? key.obfuscated : key.more;
        if (list != none) return values[lists[list].last].getText();
        if (kind == Obfuscated::yes || key.value == nullptr) return {};
        return {key.value, key.valueLength};
    }
    template <class Visit>  // visit(std::string_view value), in file order
    void each(Key const& key, Obfuscated kind, Visit visit) const;

    /// Number of keys with obfuscated values: of all, of one stanza.
    [[nodiscard]] std::uint32_t obfuscatedKeys() const { return obfuscatedKeyCount; }
    [[nodiscard]] std::uint32_t obfuscatedKeys(Index stanza) const {
        return stanza < obfuscatedOfStanza.size() ? obfuscatedOfStanza[stanza] : 0;
    }
    template <class Visit>  // visit(Index key), in the order in which they got the values
    void eachObfuscatedKey(Visit visit) const;

    /// Appends a text that lies in the memory; `number` is the key's. Without memory nothing is
    /// changed.
    void add(Key& key, Index number, std::string_view text, Obfuscated kind);
    /// Value number `i` must be there, here and for remove(); `text` lies in the memory.
    void change(Key& key, Obfuscated kind, std::uint32_t i, std::string_view text);
    void remove(Key& key, Obfuscated kind, std::uint32_t i);
    void clear(Key& key);
    /// As Records::overwriteValue().
    [[nodiscard]] bool overwrite(Key& key, std::string_view text);

    /// Moves all values of the key.
    void move(Texts& fresh, Key& key);

  private:
    /// A value of a list.
    struct Place {
        Index list = none;  // none: no value
        Index value = none;
        std::uint32_t number = 0;
    };

    template <class Visit>
    void eachOf(Index list, Visit visit) const;
    [[nodiscard]] std::uint32_t countOf(Index list) const {
        return list == none ? 0 : lists[list].count;
    }
    [[nodiscard]] Index valueNumber(Index list, std::uint32_t i) const;
    [[nodiscard]] Index valueBefore(Index list, std::uint32_t i) const;
    [[nodiscard]] Index newValue(std::string_view text);
    [[nodiscard]] Index newList(Index key);
    void append(Index list, Index value);
    void replaceText(Index list, std::uint32_t i, std::string_view text);
    /// Takes value number `i` out; the list itself stays, even when it is empty then.
    void takeOut(Index list, std::uint32_t i);
    void dropList(Index list);
    void moveList(Texts& fresh, Index list);

    void setFirstPlain(Key& key, std::string_view text);
    void shiftPlain(Key& key);
    void addPlain(Key& key, Index number, std::string_view text);
    void removeFurther(Key& key, std::uint32_t i);
    void clearPlain(Key& key);
    void addObfuscated(Key& key, Index number, std::string_view text);
    void clearObfuscated(Key& key);

    Texts& texts;
    Pool<Value> values;
    Pool<ValueList> lists;
    mutable Place recentValue;                 // found last: programs walk from value to value
    Chain obfuscatedLists;                     // in the order of their coming
    std::uint32_t obfuscatedKeyCount = 0;      // members of obfuscatedLists
    Vector<std::uint32_t> obfuscatedOfStanza;  // how many of them; 0 behind the end
};

template <class Visit>
void Values::eachOf(Index list, Visit visit) const {
    if (list == none) return;
    for (Index i = lists[list].first; i != none; i = values[i].next)
        visit(values[i].getText());
}

template <class Visit>
void Values::each(Key const& key, Obfuscated kind, Visit visit) const {
    if (kind == Obfuscated::yes) return eachOf(key.obfuscated, visit);
    if (key.value == nullptr) return;
    visit(std::string_view(key.value, key.valueLength));
    eachOf(key.more, visit);
}

template <class Visit>
void Values::eachObfuscatedKey(Visit visit) const {
    for (Index i = obfuscatedLists.first; i != none; i = lists[i].next)
        visit(lists[i].key);
}

}  // namespace zfc::cache

#endif
