#include "Z/containers/map_bucket.h"

#include <cstdlib>
#include <cstring>
#include <optional>
#include <utility>

#include "Z/ZAbstractString.h"
#include "Z/ZException.h"
#include "Z/ZKeyMap.h"
#include "Z/containers/members.h"
#include "Z/utility/keyed_hash.h"

namespace zfc::containers {
namespace {

constexpr char sourceName[] = "src/Z/ZMap";

constexpr unsigned int bucketCapacity = 5;  // a table of the right size has few entries a bucket
constexpr unsigned int greatestScan = 16;   // entries that are searched one by one
constexpr std::uint32_t leastSlots = 4 * greatestScan;           // half full with twice as many
constexpr std::uint64_t greatestSlots = std::uint64_t{1} << 32;  // what a mask of 32 bits reaches

unsigned long hashOf(ZObject const* object) { return object != nullptr ? object->hash() : 0; }

/// Of the bytes of a text, or of the text that is the key of an entry. Nothing for an object that
/// is no text, or has another hash than that of its bytes: its class may take texts of other bytes
/// for equal.
std::optional<std::uint32_t> bytesHash(ZObject const* object, unsigned long hash) {
    auto const* const entry = dynamic_cast<ZKeyEntry const*>(object);
    auto const* const text =
        dynamic_cast<ZAbstractString const*>(entry != nullptr ? entry->getKey() : object);
    if (text == nullptr || text->ZAbstractString::hash() != hash) return std::nullopt;
    return zfc::utility::keyedHash({text->getChars(), text->getLength()});
}

/// Half the table on 64 bits; where two hashes meet in 32, equals() still decides.
std::optional<std::uint32_t> indexHash(bool ofTexts, ZObject const* entry, unsigned long hash) {
    return ofTexts ? bytesHash(entry, hash) : static_cast<std::uint32_t>(hash);
}

template <class Block>
void resizeOrThrow(Block& block, std::size_t bytes) {
    if (!resizeBlock(block, bytes)) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
}

}  // namespace

// --------------------------------------------------------------------------------- PlaceIndex

void PlaceIndex::reserve(unsigned int count) {
    std::size_t const had = slotCount();
    // In 64 bits: twice the count wraps in 32.
    std::uint64_t wanted = had == 0 ? leastSlots : had;
    while (wanted < std::uint64_t{count} * 2)
        wanted *= 2;
    if (wanted == had) return;
    if (wanted > greatestSlots) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    auto const room = static_cast<std::size_t>(wanted);
    resizeOrThrow(hashes, room / 2 * sizeof hashes[0]);
    Slots fresh(static_cast<Slot*>(std::calloc(room, sizeof(Slot))));  // number 0: free
    if (fresh == nullptr) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    slots.swap(fresh);
    mask = static_cast<std::uint32_t>(wanted - 1);
    for (std::size_t i = 0; i < had; ++i) {
        if (fresh[i].isUsed()) enter(fresh[i]);
    }
}

void PlaceIndex::enter(Slot entered) {
    std::uint32_t at = home(entered.hash);
    while (slots[at].isUsed())
        at = next(at);
    slots[at] = entered;
}

void PlaceIndex::add(std::uint32_t hash, unsigned int place) {
    hashes[place] = hash;
    enter({hash, place + 1});
}

void PlaceIndex::remove(unsigned int place) {
    std::uint32_t at = home(hashes[place]);
    while (slots[at].number != place + 1)
        at = next(at);
    closeGap(at);
}

/// Frees the slot and moves those behind it up that would not be found across a free one.
void PlaceIndex::closeGap(std::uint32_t gap) {
    for (std::uint32_t at = next(gap); slots[at].isUsed(); at = next(at)) {
        std::uint32_t const wish = home(slots[at].hash);
        // Distances from the gap, modulo the table, since a row of used slots may go round its end.
        bool const liesBehindGap = ((wish - gap - 1) & mask) < ((at - gap) & mask);
        if (liesBehindGap) continue;
        slots[gap] = slots[at];
        gap = at;
    }
    slots[gap] = {0, 0};
}

void PlaceIndex::clear() { *this = PlaceIndex(); }

void PlaceIndex::empty() { std::memset(slots.get(), 0, slotCount() * sizeof(Slot)); }

// ------------------------------------------------------------------------------------- Bucket

Bucket::Bucket(int owns) : entries(bucketCapacity, 0), ownsMembers(owns) {}

/// Delegates, so that the destructor takes the clones back when a later one fails.
Bucket::Bucket(Bucket const& other) : Bucket(other.ownsMembers) {
    if (other.index.exists()) index.reserve(other.size());
    isOfTexts = other.isOfTexts;
    for (unsigned int place = 0; place < other.entries.size(); ++place) {
        if (other.isHole(place)) continue;
        auto copy = ownsMembers != 0 ? cloneOf(other.entries.get(place)) : nullptr;
        entries.addNoCopy(ownsMembers != 0 ? copy.get() : other.entries.get(place));
        static_cast<void>(copy.release());
        // The hash of the original: a clone is not asked, which could throw.
        if (index.exists()) index.add(other.index.hashAt(place), entries.size() - 1);
    }
}

Bucket::~Bucket() { removeAll(); }

ZObject* Bucket::clone() const { return new Bucket(*this); }

int Bucket::scan(ZObject const* key) const {
    for (unsigned int place = 0; place < entries.size(); ++place) {
        if (!isHole(place) && matches(key, entries.get(place))) return static_cast<int>(place);
    }
    return -1;
}

int Bucket::find(ZObject const* key, unsigned long hash) const {
    if (!index.exists()) return scan(key);
    auto const known = indexHash(isOfTexts, key, hash);
    // A probe of another kind than the entries, which its own equals() may accept nevertheless.
    if (!known) return scan(key);
    return index.find(*known, [&](unsigned int place) { return matches(key, entries.get(place)); });
}

ZObject* Bucket::get(ZObject const* key, unsigned long hash) const {
    return entries.get(static_cast<unsigned int>(find(key, hash)));  // -1 is beyond the end: null
}

bool Bucket::contains(ZObject const* key, unsigned long hash) const { return find(key, hash) >= 0; }

/// Always the last step: the destructor may change the bucket.
void Bucket::end(ZObject* entry) const {
    if (ownsMembers != 0) delete entry;
}

void Bucket::replace(unsigned int place, ZObject* entry) {
    ZObject* const old = entries.get(place);
    entries.setNoCopy(place, entry);
    if (old != entry) end(old);
}

/// Whether all entries are texts with the hash of their bytes.
bool Bucket::holdsTextsAlone() const {
    for (unsigned int place = 0; place < entries.size(); ++place) {
        ZObject const* const entry = entries.get(place);
        if (!isHole(place) && !bytesHash(entry, hashOf(entry))) return false;
    }
    return true;
}

/// Gives all entries a new index. It asks each for its hash, and takes the old one's place only
/// when all have answered.
void Bucket::indexAll(bool byTexts) {
    PlaceIndex fresh;
    fresh.reserve(entries.size() + 1);
    for (unsigned int place = 0; place < entries.size(); ++place) {
        ZObject const* const entry = entries.get(place);
        if (isHole(place)) continue;
        fresh.add(indexHash(byTexts, entry, hashOf(entry)).value_or(0), place);
    }
    index = std::move(fresh);
    isOfTexts = byTexts;
}

/// Makes room in the index for one more, `entry`, and the index itself when it is time: an entry
/// that it lacks would never be found again.
void Bucket::indexWith(ZObject const* entry, unsigned long hash) {
    // A small bucket keeps no hashes, so all are asked again when it gets its index.
    if (!index.exists()) return indexAll(bytesHash(entry, hash) && holdsTextsAlone());
    // The others go by the same hash as this one from now on.
    if (!indexHash(isOfTexts, entry, hash)) return indexAll(false);
    index.reserve(entries.size() + 1);
}

void Bucket::append(ZObject* entry, unsigned long hash) {
    if (index.exists() || entries.size() >= greatestScan) indexWith(entry, hash);
    entries.addNoCopy(entry);
    if (!index.exists()) return;
    index.add(indexHash(isOfTexts, entry, hash).value_or(0), entries.size() - 1);
}

void Bucket::put(ZObject* entry, unsigned long hash) {
    if (ownsMembers == 0) return putNoCopy(entry, hash);
    int const place = find(entry, hash);
    auto copy = cloneOf(entry);
    if (place >= 0) return replace(static_cast<unsigned int>(place), copy.release());
    append(copy.get(), hash);
    static_cast<void>(copy.release());
}

void Bucket::putNoCopy(ZObject* entry, unsigned long hash) {
    int const place = find(entry, hash);
    if (place >= 0) return replace(static_cast<unsigned int>(place), entry);
    append(entry, hash);
}

/// Takes an entry out of row and index and gives it to the caller. A bucket with an index leaves a
/// hole: moving all that is behind up, and their numbers in the index down, would cost more than
/// the search that it spared.
ZObject* Bucket::takeOut(unsigned int place) {
    ZObject* const entry = entries.get(place);
    bool const isLast = place + 1 == entries.size();
    if (index.exists()) index.remove(place);
    if (!index.exists() || isLast) {
        entries.remove(place);
        return entry;
    }
    entries.setNoCopy(place, hole());
    if (++holes > size() + greatestScan) compact();
    return entry;
}

void Bucket::compact() {
    unsigned int kept = 0;
    index.empty();
    for (unsigned int place = 0; place < entries.size(); ++place) {
        if (isHole(place)) continue;
        index.add(index.hashAt(place), kept);
        entries.setNoCopy(kept++, entries.get(place));
    }
    // From the end, where nothing has to move up.
    while (entries.size() > kept)
        entries.remove(entries.size() - 1);
    holes = 0;
}

void Bucket::drop(ZObject const* key, unsigned long hash) {
    int const place = find(key, hash);
    // The entry ends last: it may be `key` itself.
    if (place >= 0) end(takeOut(static_cast<unsigned int>(place)));
}

void Bucket::removeAll() {
    while (entries.size() > 0) {
        unsigned int const last = entries.size() - 1;
        if (isHole(last)) {
            entries.remove(last);
            --holes;
        } else {
            end(takeOut(last));
        }
    }
    index.clear();
}

void Bucket::list(ZList& out) const {
    for (unsigned int place = 0; place < entries.size(); ++place) {
        if (!isHole(place)) out.add(entries.get(place));
    }
}

}  // namespace zfc::containers
