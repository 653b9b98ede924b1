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
constexpr std::uint32_t leastSlots = 4 * greatestScan;  // half full with twice as many

// Half the table on 64 bits; where two hashes meet in 32, equals() still decides.
std::uint32_t shortHash(unsigned long hash) { return static_cast<std::uint32_t>(hash); }

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

}  // namespace

// --------------------------------------------------------------------------------- PlaceIndex

PlaceIndex::PlaceIndex(PlaceIndex const& other) {
    if (!other.exists()) return;
    slots = newSlots(other.slotCount());
    mask = other.mask;
    std::memcpy(slots.get(), other.slots.get(), slotCount() * sizeof(Slot));
}

PlaceIndex::Slots PlaceIndex::newSlots(std::size_t count) {
    void* const block = std::calloc(count, sizeof(Slot));  // number 0: free
    if (block == nullptr) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    return Slots(static_cast<Slot*>(block));
}

void PlaceIndex::reserve(unsigned int count) {
    std::size_t const had = slotCount();
    // In 64 bits: twice the count wraps in 32.
    std::uint64_t wanted = had == 0 ? leastSlots : had;
    while (wanted < std::uint64_t{count} * 2)
        wanted *= 2;
    if (wanted == had) return;
    if (wanted > UINT32_MAX) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    // newSlots() throws before anything is exchanged.
    Slots const old = std::exchange(slots, newSlots(static_cast<std::size_t>(wanted)));
    mask = static_cast<std::uint32_t>(wanted - 1);
    for (std::size_t i = 0; i < had; ++i) {
        if (old[i].isUsed()) add(old[i].hash, old[i].number - 1);
    }
}

void PlaceIndex::add(std::uint32_t hash, unsigned int place) {
    std::uint32_t at = home(hash);
    while (slots[at].isUsed())
        at = next(at);
    slots[at] = {hash, place + 1};
}

void PlaceIndex::remove(std::uint32_t hash, unsigned int place) {
    std::uint32_t at = home(hash);
    while (slots[at].number != place + 1)
        at = next(at);
    // Out before the others are counted down: the one behind gets this number.
    closeGap(at);
    for (std::size_t i = 0; i < slotCount(); ++i) {
        if (slots[i].number > place + 1) --slots[i].number;
    }
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

void PlaceIndex::clear() {
    slots.reset();
    mask = 0;
}

void PlaceIndex::empty() { std::memset(slots.get(), 0, slotCount() * sizeof(Slot)); }

// ------------------------------------------------------------------------------------- Bucket

Bucket::Bucket(int owns) : ZArrayMap(bucketCapacity, owns) {}

ZObject* Bucket::clone() const { return new Bucket(*this); }

int Bucket::find(ZObject const* key, unsigned long hash) const {
    if (!index.exists()) return ZArrayMap::getIndex(key);
    auto const known = indexHash(key, hash);
    // A probe of another kind than the entries, which its own equals() may accept nevertheless.
    if (!known) return ZArrayMap::getIndex(key);
    return index.find(*known, [&](unsigned int place) { return matches(key, get(place)); });
}

/// By which an entry stands in the index; nothing for one that cannot stand there.
std::optional<std::uint32_t> Bucket::indexHash(ZObject const* entry, unsigned long hash) const {
    return isOfTexts ? bytesHash(entry, hash) : shortHash(hash);
}

/// Makes room for one more in the index, and the index itself when it is time.
void Bucket::reserveOne() {
    unsigned int const entries = ZArrayMap::size();
    if (entries < greatestScan) return;
    bool const isNew = !index.exists();
    index.reserve(entries + 1);
    if (!isNew) return;
    // A small bucket keeps no hashes, so all are asked again when it gets its index.
    isOfTexts = holdsTextsAlone();
    enterAll();
}

bool Bucket::holdsTextsAlone() const {
    unsigned int i = 0;
    while (i < ZArrayMap::size() && bytesHash(get(i), hashOf(get(i))))
        ++i;
    return i == ZArrayMap::size();
}

/// Needs no memory: the room is there.
void Bucket::enterAll() {
    index.empty();
    for (unsigned int i = 0; i < ZArrayMap::size(); ++i)
        index.add(indexHash(get(i), hashOf(get(i))).value_or(0), i);
}

void Bucket::enterLast(unsigned long hash) {
    if (!index.exists()) return;
    unsigned int const place = ZArrayMap::size() - 1;
    if (auto const known = indexHash(get(place), hash)) return index.add(*known, place);
    // The others go by the same hash as this one from now on.
    isOfTexts = false;
    enterAll();
}

void Bucket::put(ZObject* entry, unsigned long hash) {
    int const place = find(entry, hash);
    if (place >= 0) return set(static_cast<unsigned int>(place), entry);
    reserveOne();
    // Room in the index comes first: an entry that it lacks would never be found again.
    add(entry);
    enterLast(hash);
}

void Bucket::putNoCopy(ZObject* entry, unsigned long hash) {
    int const place = find(entry, hash);
    if (place >= 0) return setNoCopy(static_cast<unsigned int>(place), entry);
    reserveOne();
    addNoCopy(entry);
    enterLast(hash);
}

void Bucket::drop(ZObject const* key, unsigned long hash) {
    int const place = find(key, hash);
    if (place < 0) return;
    auto const at = static_cast<unsigned int>(place);
    // Before the entry goes, which may be `key` itself.
    if (index.exists()) index.remove(indexHash(get(at), hash).value_or(0), at);
    remove(place);
}

void Bucket::removeAll() {
    // Before the members end: it tells their places.
    index.clear();
    ZArrayMap::removeAll();
}

}  // namespace zfc::containers
