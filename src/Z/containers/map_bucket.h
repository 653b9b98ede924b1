/// What a hash map keeps in one bucket.
#ifndef Z_CONTAINERS_MAP_BUCKET_H
#define Z_CONTAINERS_MAP_BUCKET_H

#include <cstdint>
#include <memory>
#include <string_view>

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
        // Ends, because half of the slots are free. Whom isIt() asks may take the table away.
        for (std::uint32_t at = home(hash); exists() && slots[at].isUsed(); at = next(at)) {
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

/// One entry of a bucket: a key with its value, or the entry of a map without values, which is a
/// key to itself.
struct Cell {
    ZObject* key;
    ZObject* value;
    std::uint32_t hash;  // of the key
};

/// A key and its value on their way into a map: clones, which end here unless release() says that
/// the map has them, or the objects themselves.
class Arrival {
  public:
    /// Throws as cloneOf().
    Arrival(ZObject const* givenKey, ZObject const* givenValue, bool clones);

    [[nodiscard]] ZObject* key() const { return keyHeld; }
    [[nodiscard]] ZObject* value() const { return valueHeld; }
    void release();

  private:
    std::unique_ptr<ZObject> keyClone;
    std::unique_ptr<ZObject> valueClone;
    ZObject* keyHeld;
    ZObject* valueHeld;
};

/// Entries in the order of insertion. A bucket that fills up far beyond what a table of the right
/// size has is searched through an index, so that a map made too small stays as fast. Where all
/// keys are texts, or entries that have texts for keys, the index goes by a keyed hash of their
/// bytes: nobody can write a file whose keys crowd in one place. The `hash` of the operations is
/// that of the key.
///
/// Cells and index agree whenever a member's own functions run: these may throw, and may come back
/// into the map.
class Bucket : public ZObject {
  public:
    explicit Bucket(int owns) : ownsMembers(owns != 0) {}
    Bucket(Bucket const& other);
    Bucket& operator=(Bucket const&) = delete;

    ~Bucket() override;
    [[nodiscard]] ZObject* clone() const override;

    /// The entry whose key `key->equals()` accepts; null when there is none. It is valid until the
    /// next call of whatever may change the bucket. `text` is the plainText() of the key.
    [[nodiscard]] Cell const* get(ZObject const* key, std::string_view text,
                                  unsigned long hash) const {
        return startsWith(text) ? cells() : search(key, hash);
    }
    /// Stores it in the place of the entry with an equal key if there is one. An owning bucket
    /// takes it over, unless it throws.
    void put(Arrival& arrival, unsigned long hash);
    // As removeEntry() and removeAll() of a map.
    void drop(ZObject const* key, unsigned long hash);
    void removeAll();
    /// Appends that part of every entry with the list's add().
    void list(ZList& out, ZObject* Cell::*part) const;
    [[nodiscard]] unsigned int size() const { return isCrowded() ? count - crowd->holes : count; }

  private:
    /// What a bucket with many entries has besides. Once made it stays: a key that is compared may
    /// empty the map meanwhile.
    struct Crowd {
        PlaceIndex index;        // of all entries; none while they are few
        unsigned int holes = 0;  // cells without an entry
        bool isOfTexts = false;  // what the index has goes by their bytes
    };

    [[nodiscard]] Cell* cells() { return block != nullptr ? block.get() : &first; }
    [[nodiscard]] Cell const* cells() const { return block != nullptr ? block.get() : &first; }
    [[nodiscard]] bool isCrowded() const { return crowd != nullptr && crowd->index.exists(); }
    [[nodiscard]] unsigned int room() const { return (1U << doublings) - 1; }
    /// Half of it on 64 bits; where two hashes meet in 32, equals() still decides.
    [[nodiscard]] static std::uint32_t shortHash(unsigned long hash) {
        return static_cast<std::uint32_t>(hash);
    }
    /// Whether the key of the first entry is a plain text of these bytes, some at least.
    [[nodiscard]] bool startsWith(std::string_view text) const {
        return !text.empty() && text == std::string_view(firstText, firstTextLength);
    }
    /// Called after every change of the first cell.
    void noteFirst();
    [[nodiscard]] Cell const* search(ZObject const* key, unsigned long hash) const;
    [[nodiscard]] int find(ZObject const* key, std::uint32_t hash) const;
    [[nodiscard]] int scan(ZObject const* key, std::uint32_t hash) const;
    [[nodiscard]] bool holdsAt(unsigned int place, ZObject const* key) const;
    /// Stands for the key of an entry that was taken out: no map holds a bucket for a key, null
    /// however is one.
    [[nodiscard]] ZObject* hole() const { return const_cast<Bucket*>(this); }
    [[nodiscard]] bool isHole(unsigned int place) const { return cells()[place].key == hole(); }
    void end(Cell const& cell) const;
    void makeRoom();
    [[nodiscard]] Crowd& makeCrowd();
    void append(Cell const& cell);
    [[nodiscard]] std::uint32_t indexWith(Cell const& cell);
    void indexAll(bool byTexts);
    [[nodiscard]] bool holdsTextsAlone() const;
    Cell takeOut(unsigned int place);
    void compact();

    // In the order in which a look-up wants them, from the second on: most of it in one cache line.
    std::unique_ptr<Crowd> crowd;          // null before it was crowded
    Cell first{};                          // in most buckets the only one
    std::unique_ptr<Cell[], ZFree> block;  // the cells; null while there is room in `first`
    unsigned int count = 0;                // of cells, with holes; none while it is not crowded
    unsigned char doublings = 1;           // room for 2^doublings - 1 cells: blocks of malloc sizes
    bool const ownsMembers;                // it deletes its keys and values
    unsigned char firstTextLength = 0;     // 0 as well when there is no such text
    // The text of the first key when it is a plain one: most look-ups end here, and in a large map
    // spare the way to the key itself, which is no longer in the processor's cache.
    char firstText[32];
};

}  // namespace zfc::containers

#endif
