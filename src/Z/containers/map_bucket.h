/// What a hash map keeps in one bucket.
#ifndef Z_CONTAINERS_MAP_BUCKET_H
#define Z_CONTAINERS_MAP_BUCKET_H

#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>

#include "Z/ZList.h"
#include "Z/ZObject.h"
#include "Z/containers/members.h"
#include "Z/containers/text_pool.h"
#include "Z/strings/plain_text.h"
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

/// Who ends a key or a value: nobody here, who deletes what the heap gave, or the map's pool.
enum class Owner : unsigned char { caller, heap, pool };

constexpr std::size_t cacheLine = 64;

/// memcmp() of short texts, without its call for the usual lengths.
[[nodiscard]] inline bool sameBytes(char const* a, char const* b, std::size_t length) {
    if (length < 8 || length > 16) return std::memcmp(a, b, length) == 0;
    // Two words that overlap.
    return std::memcmp(a, b, 8) == 0 && std::memcmp(a + length - 8, b + length - 8, 8) == 0;
}

/// One entry of a bucket: a key with its value, or the entry of a map without values, which is a
/// key to itself. All zero where there is none: null is a key, too.
struct Cell {
    ZObject* key;
    ZObject* value;
    std::uint32_t hash;  // of the key
    bool isUsed;
    Owner keyOwner, valueOwner;
    unsigned char textLength;  // 0 as well when there is no such text
    // The plainText() of the key when it is short: most look-ups end here, and in a large map spare
    // the way to the key itself, which is no longer in the processor's cache. A line with a
    // pointer.
    char text[cacheLine - 3 * sizeof(ZObject*) - 8];

    /// Whether the key is a plain text of these bytes, some at least, as far as it is known here.
    [[nodiscard]] bool hasText(std::string_view bytes) const {
        return bytes.size() == textLength && !bytes.empty() &&
               sameBytes(bytes.data(), text, textLength);
    }
};

/// A key and a value, and who ends them.
struct Pair {
    ZObject* key;
    ZObject* value;
    Owner keyOwner, valueOwner;
};

/// What an entry is found by. The text is the plainText() of the key, its bytes not copied.
struct Probe {
    ZObject const* key;
    std::string_view text;
    unsigned long hash;  // taken once and handed on: hash() may walk a long text

    explicit Probe(ZObject const* asked)
        : key(asked),
          text(asked != nullptr ? zfc::strings::plainText(*asked) : std::string_view()),
          hash(text.empty() ? hashOf(asked) : zfc::strings::textHash(text)) {}
    /// Half of it on 64 bits; where two hashes meet in 32, equals() still decides.
    [[nodiscard]] std::uint32_t shortHash() const { return static_cast<std::uint32_t>(hash); }
};

/// A key and its value on their way into a map: clones, which end here unless a cell gets them, or
/// the objects themselves.
class Arrival {
  public:
    /// Leaves the strings that a pool takes for settle(). Throws as cloneOf().
    Arrival(ZObject const* givenKey, ZObject const* givenValue, bool copies);
    Arrival(Arrival const&) = delete;
    Arrival& operator=(Arrival const&) = delete;
    ~Arrival();

    /// Clones these. Apart, because a member that is cloned or asked for its hash may exchange the
    /// map's whole content, and its pool. Throws ZOutOfMemoryException.
    void settle(TextPool& pool);
    [[nodiscard]] ZObject* key() const { return held.key; }
    /// What is cloned belongs to the cell then, the rest with `owns`. Cannot fail.
    void moveTo(Cell& cell, std::uint32_t hash, bool owns);
    /// Of settle().
    [[nodiscard]] TextPool& pool() const { return *home; }

  private:
    bool const clones;
    std::unique_ptr<ZObject> keyClone;
    std::unique_ptr<ZObject> valueClone;
    Pair held;  // owned by the pool or, as far as this says, by nobody
    TextPool* home = nullptr;
};

/// Entries in the order of insertion. A bucket that fills up far beyond what a table of the right
/// size has is searched through an index, so that a map made too small stays as fast. Where all
/// keys are texts, or entries that have texts for keys, the index goes by a keyed hash of their
/// bytes: nobody can write a file whose keys crowd in one place.
///
/// Cells and index agree whenever a member's own functions run: these may throw, and may come back
/// into the map.
///
/// A block of zeros is a row of empty buckets, and nothing ends with a bucket by itself: the table
/// of a large map is made and given back without a step for each.
class alignas(cacheLine) Bucket {
  public:
    /// The entry whose key `probe.key->equals()` accepts; null when there is none. It is valid
    /// until the next call of whatever may change the bucket.
    [[nodiscard]] Cell const* get(Probe const& probe) const {
        return first.hasText(probe.text) ? &first : search(probe);
    }
    /// Stores it in the place of the entry with an equal key if there is one. With `owns` the
    /// bucket takes it over, unless it throws.
    void put(Arrival& arrival, Probe probe, bool owns);
    // As removeEntry() and removeAll() of a map.
    void drop(Probe const& probe, TextPool& pool);
    void removeAll(TextPool& pool);
    /// Fills this bucket, which is empty, with copies of what the other owns and with its pointers
    /// else. What is here already when it throws, stays.
    void copy(Bucket const& other, TextPool& pool);
    /// Gives back what the bucket, which is empty, has besides itself.
    void giveBack();
    /// Appends that part of every entry with the list's add().
    void list(ZList& out, ZObject* Cell::*part) const;
    [[nodiscard]] unsigned int size() const {
        return isCrowded() ? count() - rest->crowd->holes : count();
    }

  private:
    /// What a bucket with many entries has besides. Once made it stays: a key that is compared may
    /// empty the map meanwhile.
    struct Crowd {
        PlaceIndex index;        // of all entries; none while they are few
        unsigned int holes = 0;  // cells without an entry, never the last
        bool isOfTexts = false;  // what the index has goes by their bytes
    };
    /// The head of a block with the cells behind the first.
    struct Rest {
        Crowd* crowd;             // null before it was crowded
        unsigned int count;       // of these cells, with holes; none while it is not crowded
        unsigned char doublings;  // room for 2^doublings - 1 of them: blocks of malloc's sizes

        [[nodiscard]] Cell* cells() { return reinterpret_cast<Cell*>(this + 1); }
        [[nodiscard]] unsigned int room() const { return (1U << doublings) - 1; }
    };

    /// Of cells, with holes.
    [[nodiscard]] unsigned int count() const {
        return rest != nullptr && rest->count > 0 ? rest->count + 1 : first.isUsed;
    }
    [[nodiscard]] Cell& at(unsigned int place) {
        return place == 0 ? first : rest->cells()[place - 1];
    }
    [[nodiscard]] Cell const& at(unsigned int place) const {
        return place == 0 ? first : rest->cells()[place - 1];
    }
    [[nodiscard]] bool isCrowded() const {
        return rest != nullptr && rest->crowd != nullptr && rest->crowd->index.exists();
    }
    [[nodiscard]] Cell const* search(Probe const& probe) const;
    [[nodiscard]] int find(Probe const& probe) const;
    [[nodiscard]] int scan(Probe const& probe) const;
    [[nodiscard]] bool holdsAt(unsigned int place, Probe const& probe) const;
    void resizeRest(unsigned char doublings);
    void makeRoom();
    [[nodiscard]] Crowd& makeCrowd();
    [[nodiscard]] Cell& append(ZObject const* key, std::uint32_t hash);
    [[nodiscard]] Cell& newCell();
    [[nodiscard]] std::uint32_t indexWith(ZObject const* key, std::uint32_t hash);
    void indexAll(bool byTexts);
    [[nodiscard]] bool holdsTextsAlone() const;
    Pair takeOut(unsigned int place);
    void closeUp(unsigned int place);
    void dropHolesAtEnd();
    void compact();

    Cell first;  // in most buckets the only one
    Rest* rest;  // null before there was a second
};

/// The buckets of a map side by side. It ends what they own.
class BucketTable : public ZObject {
  public:
    /// Throws ZOutOfMemoryException, also above maxCount.
    explicit BucketTable(unsigned int wanted);
    /// As copy() of each bucket.
    BucketTable(BucketTable const& other);
    BucketTable& operator=(BucketTable const&) = delete;

    ~BucketTable() override;
    [[nodiscard]] ZObject* clone() const override;

    [[nodiscard]] Bucket& bucketOf(unsigned long hash) const {
        // Most hashes have 32 bits, and a division of these takes less time.
        auto const low = static_cast<std::uint32_t>(hash);
        return buckets[low == hash ? low % count : hash % count];
    }
    [[nodiscard]] Bucket* begin() const { return buckets; }
    [[nodiscard]] Bucket* end() const { return buckets + count; }
    /// As that of a map.
    void removeAll();
    /// Where the clones of strings lie.
    [[nodiscard]] TextPool& pool() { return texts; }

  private:
    TextPool texts;
    std::unique_ptr<char[], ZFree> block;
    Bucket* buckets;  // in the block, at the first address that suits
    unsigned int const count;
};

}  // namespace zfc::containers

#endif
