#include "Z/containers/map_bucket.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "Z/ZException.h"
#include "Z/containers/members.h"

namespace zfc::containers {
namespace {

constexpr char sourceName[] = "src/Z/ZMap";

constexpr unsigned int bucketCapacity = 5;  // a table of the right size has few entries a bucket
constexpr unsigned int greatestScan = 16;   // entries that are searched one by one
constexpr std::uint32_t leastSlots = 4 * greatestScan;  // half full with twice as many

// Half the table on 64 bits; where two hashes meet in 32, equals() still decides.
std::uint32_t shortHash(unsigned long hash) { return static_cast<std::uint32_t>(hash); }

std::uint32_t hashOf(ZObject const* object) {
    return object != nullptr ? shortHash(object->hash()) : 0;
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

// ------------------------------------------------------------------------------------- Bucket

Bucket::Bucket(int owns) : ZArrayMap(bucketCapacity, owns) {}

ZObject* Bucket::clone() const { return new Bucket(*this); }

int Bucket::find(ZObject const* key, unsigned long hash) const {
    if (!index.exists()) return ZArrayMap::getIndex(key);
    return index.find(shortHash(hash),
                      [&](unsigned int place) { return matches(key, get(place)); });
}

/// Makes room for one more in the index, and the index itself when it is time.
void Bucket::reserveOne() {
    unsigned int const entries = ZArrayMap::size();
    if (entries < greatestScan) return;
    bool const isNew = !index.exists();
    // A small bucket keeps no hashes, so all are asked again when it gets its index.
    index.reserve(entries + 1);
    for (unsigned int i = 0; isNew && i < entries; ++i)
        index.add(hashOf(get(i)), i);
}

void Bucket::put(ZObject* entry, unsigned long hash) {
    int const place = find(entry, hash);
    if (place >= 0) return set(static_cast<unsigned int>(place), entry);
    reserveOne();
    // Room in the index comes first: an entry that it lacks would never be found again.
    add(entry);
    if (index.exists()) index.add(shortHash(hash), ZArrayMap::size() - 1);
}

void Bucket::putNoCopy(ZObject* entry, unsigned long hash) {
    int const place = find(entry, hash);
    if (place >= 0) return setNoCopy(static_cast<unsigned int>(place), entry);
    reserveOne();
    addNoCopy(entry);
    if (index.exists()) index.add(shortHash(hash), ZArrayMap::size() - 1);
}

void Bucket::drop(ZObject const* key, unsigned long hash) {
    int const place = find(key, hash);
    if (place < 0) return;
    // Before the entry goes, which may be `key` itself.
    if (index.exists()) index.remove(shortHash(hash), static_cast<unsigned int>(place));
    remove(place);
}

void Bucket::removeAll() {
    // Before the members end: it tells their places.
    index.clear();
    ZArrayMap::removeAll();
}

}  // namespace zfc::containers
