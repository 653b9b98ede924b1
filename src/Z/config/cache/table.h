/// Shared. The hash index of the property cache.
#ifndef Z_CONFIG_CACHE_TABLE_H
#define Z_CONFIG_CACHE_TABLE_H

#include <cstdint>
#include "Z/config/cache/name_hash.h"
#include "Z/config/cache/texts.h"

namespace zfc::cache {

/// The number of a record in its pool.
using Index = std::uint32_t;
constexpr Index none = 0xffffffff;

/// Finds records by their names: open addressing.
///
/// A slot holds the hash of the name, so that a mismatch is seen, and the table grows, without a
/// look at any record; and the low half of the name's address, so that the name is on its way from
/// memory while the record that points at it still is. Of a large file, nearly all the time goes
/// into such waiting.
class Table {
  public:
    /// The entry of this hash for which isWanted(number) holds; none when there is none. `near` is
    /// an address whose high half is probably that of the names.
    template <class IsWanted>
    [[nodiscard]] Index find(std::uint32_t hash, char const* near, IsWanted isWanted) const {
        if (slots.empty()) return none;
        for (std::size_t at = home(hash);; at = next(at)) {
            Slot const& slot = slots[at];
            if (slot.number == none) return none;
            if (slot.hash != hash) continue;
            fetch(near, slot.lowAddress);
            if (isWanted(slot.number)) return slot.number;
        }
    }

    /// Makes room for one more entry.
    void makeRoom() {
        if (count >= mostEntries) grow();
    }
    /// Enters a record that is not there; needs makeRoom() before.
    void insert(std::uint32_t hash, Index number, char const* name) {
        put({hash, number, static_cast<std::uint32_t>(addressOf(name))});
        ++count;
    }
    /// Drops the entry of `number`, which must be there with this hash, and closes the gap behind
    /// it.
    void erase(std::uint32_t hash, Index number);

    [[nodiscard]] std::uint32_t size() const { return count; }

  private:
    struct Slot {
        std::uint32_t hash = 0;
        Index number = none;  // none: free
        // Of the name when it was entered. It may have moved since: nobody reads what is there.
        std::uint32_t lowAddress = 0;
    };

    static std::uintptr_t addressOf(char const* text) {
        return reinterpret_cast<std::uintptr_t>(text);
    }
    static void fetch(char const* near, std::uint32_t lowAddress) {
        std::uintptr_t const highHalf = addressOf(near) & ~std::uintptr_t{0xffffffff};
        __builtin_prefetch(reinterpret_cast<void const*>(highHalf | lowAddress));
    }
    [[nodiscard]] std::size_t home(std::uint32_t hash) const { return hash & mask; }
    [[nodiscard]] std::size_t next(std::size_t at) const { return (at + 1) & mask; }
    void grow();
    void put(Slot entry) {
        std::size_t at = home(entry.hash);
        while (slots[at].number != none)
            at = next(at);
        slots[at] = entry;
    }

    Vector<Slot> slots;             // a power of two of them, a quarter always free; or none at all
    std::uint32_t mask = 0;         // their number less 1
    std::uint32_t count = 0;        // entries
    std::uint32_t mostEntries = 0;  // for the slots that there are
};

}  // namespace zfc::cache

#endif
