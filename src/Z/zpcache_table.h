/// The hash index of the property cache.
#ifndef Z_ZPCACHE_TABLE_H
#define Z_ZPCACHE_TABLE_H

#include "Z/zpcache_texts.h"

#include <cstdint>
#include <string_view>

namespace zpcache {

/// The number of a record in its pool.
using Index = std::uint32_t;
constexpr Index none = 0xffffffff;

/// SipHash-1-3 (Aumasson, Bernstein: a fast short-input PRF) under a key drawn once per process, so
/// that nobody can write a file whose names collide. `salt` keeps equal names of different owners
/// apart.
[[nodiscard]] std::uint32_t hashName(std::uint32_t salt, std::string_view name);

/// Finds records by hash: open addressing over 32-bit slots. A slot holds the record's number in
/// the bits that count the slots, and in the others those bits of the hash that do not choose the
/// slot: nearly every mismatch is seen without a look at the record.
///
/// Numbers must be smaller than the greatest count of entries so far, as a pool with a free list
/// gives them out.
class Table {
  public:
    /// The entry of this hash for which isWanted(number) holds; none when there is none.
    template <class IsWanted>
    [[nodiscard]] Index find(std::uint32_t hash, IsWanted isWanted) const {
        if (slots.empty()) return none;
        for (std::uint32_t at = hash & mask; slots[at] != none; at = (at + 1) & mask) {
            if (((slots[at] ^ hash) & ~mask) == 0 && isWanted(slots[at] & mask))
                return slots[at] & mask;
        }
        return none;
    }

    /// Makes room for one more entry; hashOf(number) gives the hash of one that is there, and
    /// placeOf(number) tells where in memory that hash is.
    template <class HashOf, class PlaceOf>
    void makeRoom(HashOf hashOf, PlaceOf placeOf) {
        if ((count + 1) * std::uint64_t{4} <= slots.size() * std::uint64_t{3}) return;
        Vector<std::uint32_t> const old = grow();
        std::uint32_t const oldMask = static_cast<std::uint32_t>(old.size()) - 1;
        for (std::size_t i = 0; i < old.size(); ++i) {
            // The records come in no order: ask for those of later slots before they are needed.
            std::uint32_t const later = old[(i + prefetched) & oldMask];
            if (later != none) __builtin_prefetch(placeOf(later & oldMask));
            if (old[i] != none) put(hashOf(old[i] & oldMask), old[i] & oldMask);
        }
    }
    /// Enters a record that is not there; needs makeRoom() before.
    void insert(std::uint32_t hash, Index number) {
        put(hash, number);
        ++count;
    }

    /// Drops the entry of `number`, which must be there, and closes the gap behind it.
    template <class HashOf>
    void erase(Index number, HashOf hashOf) {
        std::uint32_t gap = hashOf(number) & mask;
        while ((slots[gap] & mask) != number)
            gap = (gap + 1) & mask;
        for (std::uint32_t at = (gap + 1) & mask; slots[at] != none; at = (at + 1) & mask) {
            std::uint32_t const home = hashOf(slots[at] & mask) & mask;
            if (((at - home) & mask) < ((at - gap) & mask)) continue;  // would leave its run
            slots[gap] = slots[at];
            gap = at;
        }
        slots[gap] = none;
        --count;
    }

    [[nodiscard]] std::uint32_t size() const { return count; }

  private:
    static constexpr std::size_t prefetched = 16;

    /// Doubles the slots, all empty, and returns the old ones.
    Vector<std::uint32_t> grow();
    void put(std::uint32_t hash, Index number) {
        std::uint32_t at = hash & mask;
        while (slots[at] != none)
            at = (at + 1) & mask;
        slots[at] = (hash & ~mask) | number;
    }

    Vector<std::uint32_t> slots;  // none: free; a power of two of them, a quarter always free
    std::uint32_t mask = 0;       // slots - 1
    std::uint32_t count = 0;      // entries
};

}  // namespace zpcache

#endif
