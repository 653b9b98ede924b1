/// Shared. The pairs of ZJavaProperties in memory.
#ifndef Z_CONFIG_JAVA_PAIRS_H
#define Z_CONFIG_JAVA_PAIRS_H

#include <array>
#include <cstdint>
#include <deque>
#include <string_view>

#include "Z/ZList.h"
#include "Z/ZObject.h"
#include "Z/ZUTF8String.h"
#include "Z/config/cache/name_hash.h"
#include "Z/config/cache/texts.h"

namespace zfc::java {

/// A key with its value. Both are any bytes.
struct Pair {
    char const* text = nullptr;  // the key, a NUL, the value, a NUL; null: a free slot
    std::uint32_t keyLength = 0;
    std::uint32_t valueLength = 0;
    std::uint32_t hash = 0;   // of the key
    std::uint32_t place = 0;  // in the order in which the keys came

    [[nodiscard]] bool isUsed() const { return text != nullptr; }
    [[nodiscard]] std::string_view key() const { return {text, keyLength}; }
    [[nodiscard]] std::string_view value() const { return {text + keyLength + 1, valueLength}; }
    /// Without the last NUL.
    [[nodiscard]] std::size_t textLength() const {
        return std::size_t{keyLength} + 1 + valueLength;
    }
};

/// A map of texts: a table by open addressing, and one text for each pair. Of a large file nearly
/// all time goes into waiting for memory, and a look-up waits twice here, for the slot and for the
/// text; a map of two string objects for a pair takes eight times the memory, and waits for each of
/// them too. An object, because a map of objects holds it.
///
/// What raises ZOutOfMemoryException (message 1) has changed nothing.
class Pairs : public ZObject {
  public:
    Pairs() = default;
    Pairs(Pairs const& other);
    Pairs& operator=(Pairs const&) = delete;

    ~Pairs() override;
    [[nodiscard]] ZObject* clone() const override;

    [[nodiscard]] std::size_t size() const { return count; }
    /// Null when there is none; it lives until the next set().
    [[nodiscard]] Pair const* find(std::string_view key) const {
        if (count == 0) return nullptr;
        Pair const& slot = slots[slotOf(key, cache::hashName(key))];
        return slot.isUsed() ? &slot : nullptr;
    }
    /// Adds the pair, or gives the one with this key that value. Neither text lies in here.
    void set(std::string_view key, std::string_view value);

    /// Calls visit(Pair const&) for each, in the order of a ZHashKeyMap made for 10 pairs: one
    /// bucket after the other, in each the order in which the keys came.
    template <class Visit>
    void each(Visit visit) const {
        for (Numbers const& bucket : buckets()) {
            for (std::uint32_t const slot : bucket)
                visit(slots[slot]);
        }
    }
    /// Appends the keys, in the order of each(), as strings that live as long as this object.
    void listKeys(ZList& out) const;

  private:
    using Numbers = cache::Vector<std::uint32_t>;  // of slots
    static constexpr std::size_t bucketCount = 15;

    /// The slot of the key, or a free one for it; there are slots.
    [[nodiscard]] std::size_t slotOf(std::string_view key, std::uint32_t hash) const {
        std::size_t at = hash & (slots.size() - 1);
        // Ends, because a quarter of the slots is free.
        while (slots[at].isUsed() && (slots[at].hash != hash || slots[at].key() != key))
            at = (at + 1) & (slots.size() - 1);
        return at;
    }
    void makeRoom();
    [[nodiscard]] char const* textOf(std::string_view key, std::string_view value);
    void add(Pair& slot, std::string_view key, std::uint32_t hash, std::string_view value);
    void replaceValue(Pair& pair, std::string_view value);
    void compact(std::size_t bytes);
    void tryCompact();
    [[nodiscard]] Numbers inOrder() const;
    [[nodiscard]] std::array<Numbers, bucketCount> buckets() const;
    void handOut() const;

    cache::Texts texts;         // of the pairs
    cache::String fresh;        // a text on its way there; kept for its memory
    cache::Vector<Pair> slots;  // a power of two of them, a quarter always free; or none at all
    std::uint32_t count = 0;    // of pairs
    // Keys of the first pairs as strings, made when they are listed: whoever lists keys may change
    // the values while going through them.
    mutable std::deque<ZUTF8String, cache::Allocator<ZUTF8String>> handedOut;
};

}  // namespace zfc::java

#endif
