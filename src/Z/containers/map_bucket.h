/// What a hash map keeps in one bucket.
#ifndef Z_CONTAINERS_MAP_BUCKET_H
#define Z_CONTAINERS_MAP_BUCKET_H

#include <cstdint>
#include <memory>

#include "Z/ZList.h"
#include "Z/ZObject.h"
#include "Z/zfree.h"

namespace zfc::containers {

/// The places of hashed members in a row: an open-addressing table that is at most half full, and
/// the hash of each place beside it. Nothing here asks a member: once reserve() has returned, the
/// rest cannot fail.
class PlaceIndex {
  public:
    /// False before the first reserve().
    [[nodiscard]] bool exists() const { return slots != nullptr; }
    /// Makes room for the places below `count`. Throws ZOutOfMemoryException and changes nothing
    /// that is found.
    void reserve(unsigned int count);
    /// There must be room for it.
    void add(std::uint32_t hash, unsigned int place);
    /// Takes `place`, which must be there, out; the others stay what they are.
    void remove(unsigned int place);
    /// Gives the table back.
    void clear();
    /// Takes all places out; the room stays, and hashAt() too.
    void empty();
    /// The hash that `place` was added with.
    [[nodiscard]] std::uint32_t hashAt(unsigned int place) const { return hashes[place]; }

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

    [[nodiscard]] std::size_t slotCount() const { return exists() ? std::size_t{mask} + 1 : 0; }
    /// The hashes of one bucket have a remainder in common: their bits are mixed.
    [[nodiscard]] std::uint32_t home(std::uint32_t hash) const {
        return static_cast<std::uint32_t>((hash * std::uint64_t{0x9E3779B97F4A7C15}) >> 32) & mask;
    }
    [[nodiscard]] std::uint32_t next(std::uint32_t at) const { return (at + 1) & mask; }
    void enter(Slot entered);
    void closeGap(std::uint32_t gap);

    std::unique_ptr<std::uint32_t[], ZFree> hashes;  // of each place; half as many as slots
    Slots slots;             // a power of two of them; null before the first reserve()
    std::uint32_t mask = 0;  // their number less 1
};

/// Entries in the order of insertion. A bucket that fills up far beyond what a table of the right
/// size has is searched through an index, so that a map made too small stays as fast. Where all
/// entries are texts, or have texts for keys, the index goes by a keyed hash of their bytes: nobody
/// can write a file whose keys crowd in one place. The `hash` of the operations is that of the
/// entry or probe.
///
/// Row and index agree whenever an entry's own functions run: these may throw, and destructors may
/// come back into the map.
class Bucket : public ZObject {
  public:
    explicit Bucket(int owns);
    Bucket(Bucket const& other);
    Bucket& operator=(Bucket const&) = delete;

    ~Bucket() override;
    [[nodiscard]] ZObject* clone() const override;

    /// The entry that `key->equals()` accepts; null when there is none, or null is the entry.
    [[nodiscard]] ZObject* get(ZObject const* key, unsigned long hash) const;
    [[nodiscard]] bool contains(ZObject const* key, unsigned long hash) const;
    // As putEntry(), putEntryNoCopy(), removeEntry(), removeAll() and list() of a map.
    void put(ZObject* entry, unsigned long hash);
    void putNoCopy(ZObject* entry, unsigned long hash);
    void drop(ZObject const* key, unsigned long hash);
    void removeAll();
    void list(ZList& out) const;
    [[nodiscard]] unsigned int size() const { return entries.size() - holes; }

  private:
    [[nodiscard]] int find(ZObject const* key, unsigned long hash) const;
    [[nodiscard]] int scan(ZObject const* key) const;
    /// Stands in the row for an entry that was taken out: no map holds a bucket for an entry, null
    /// however is one.
    [[nodiscard]] ZObject* hole() const { return const_cast<Bucket*>(this); }
    [[nodiscard]] bool isHole(unsigned int place) const { return entries.get(place) == hole(); }
    void end(ZObject* entry) const;
    void replace(unsigned int place, ZObject* entry);
    void append(ZObject* entry, unsigned long hash);
    void indexWith(ZObject const* entry, unsigned long hash);
    void indexAll(bool byTexts);
    [[nodiscard]] bool holdsTextsAlone() const;
    ZObject* takeOut(unsigned int place);
    void compact();

    ZArrayList entries;      // with holes; not their owner, so that a hole is no object to delete
    unsigned int holes = 0;  // in `entries`; none while there is no index
    int ownsMembers;         // non-zero: clones and deletes its entries
    PlaceIndex index;        // of all entries; none while the bucket is small
    bool isOfTexts = false;  // what the index has goes by their bytes
};

}  // namespace zfc::containers

#endif
