/// What a hash map keeps in one bucket.
#ifndef Z_CONTAINERS_MAP_BUCKET_H
#define Z_CONTAINERS_MAP_BUCKET_H

#include <cstdint>
#include <memory>
#include <optional>

#include "Z/ZMap.h"
#include "Z/zfree.h"

namespace zfc::containers {

/// The places of hashed members in a row: an open-addressing table that is at most half full.
class PlaceIndex {
  public:
    PlaceIndex() = default;
    PlaceIndex(PlaceIndex const& other);
    PlaceIndex& operator=(PlaceIndex const&) = delete;

    /// False before the first reserve().
    [[nodiscard]] bool exists() const { return slots != nullptr; }
    /// Makes room for `count` places in all. Throws ZOutOfMemoryException and changes nothing.
    void reserve(unsigned int count);
    /// There must be room for it.
    void add(std::uint32_t hash, unsigned int place);
    /// Takes `place`, which must be there, out; all behind it are one less from now on.
    void remove(std::uint32_t hash, unsigned int place);
    /// Gives the table back.
    void clear();
    /// Takes all places out; the room stays.
    void empty();

    /// The place of that hash that `isIt(place)` accepts; -1 when there is none.
    template <class IsIt>
    [[nodiscard]] int find(std::uint32_t hash, IsIt isIt) const {
        // Ends, because half of the slots are free.
        for (std::uint32_t at = home(hash); slots[at].isUsed(); at = next(at)) {
            unsigned int const place = slots[at].number - 1;
            if (slots[at].hash == hash && isIt(place)) return static_cast<int>(place);
        }
        return -1;
    }

  private:
    struct Slot {
        std::uint32_t hash;
        std::uint32_t number;  // place + 1; 0 in a free slot

        [[nodiscard]] bool isUsed() const { return number != 0; }
    };
    using Slots = std::unique_ptr<Slot[], ZFree>;

    [[nodiscard]] static Slots newSlots(std::size_t count);
    [[nodiscard]] std::size_t slotCount() const { return exists() ? std::size_t{mask} + 1 : 0; }
    /// The hashes of one bucket have a remainder in common: their bits are mixed.
    [[nodiscard]] std::uint32_t home(std::uint32_t hash) const {
        return static_cast<std::uint32_t>((hash * std::uint64_t{0x9E3779B97F4A7C15}) >> 32) & mask;
    }
    [[nodiscard]] std::uint32_t next(std::uint32_t at) const { return (at + 1) & mask; }
    void closeGap(std::uint32_t gap);

    Slots slots;             // a power of two of them; null before the first reserve()
    std::uint32_t mask = 0;  // their number less 1
};

/// Entries in the order of insertion. A bucket that fills up far beyond what a table of the right
/// size has is searched through an index, so that a map made too small stays as fast. Where all
/// entries are texts, or have texts for keys, the index goes by a keyed hash of their bytes: nobody
/// can write a file whose keys crowd in one place. The `hash` of the operations is that of the
/// entry or probe.
class Bucket : public ZArrayMap {
  public:
    explicit Bucket(int ownsMembers);
    Bucket(Bucket const&) = default;
    Bucket& operator=(Bucket const&) = delete;

    [[nodiscard]] ZObject* clone() const override;
    void removeAll() override;

    // As getIndex(), putEntry(), putEntryNoCopy() and removeEntry() of the base.
    [[nodiscard]] int find(ZObject const* key, unsigned long hash) const;
    void put(ZObject* entry, unsigned long hash);
    void putNoCopy(ZObject* entry, unsigned long hash);
    void drop(ZObject const* key, unsigned long hash);

  private:
    [[nodiscard]] std::optional<std::uint32_t> indexHash(ZObject const* entry,
                                                         unsigned long hash) const;
    [[nodiscard]] bool holdsTextsAlone() const;
    void reserveOne();
    void enterLast(unsigned long hash);
    void enterAll();

    PlaceIndex index;        // none while the bucket is small
    bool isOfTexts = false;  // what the index has goes by their bytes
};

}  // namespace zfc::containers

#endif
