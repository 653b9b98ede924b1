#include "Z/ZMap.h"

#include <algorithm>
#include <cstdint>
#include <limits>

#include "Z/containers/map_bucket.h"
#include "Z/containers/members.h"
#include "Z/utility/undo.h"

namespace {

using zfc::containers::Arrival;
using zfc::containers::Bucket;
using zfc::containers::BucketTable;
using zfc::containers::Cell;
using zfc::containers::Probe;

constexpr unsigned int leastSize = 2;

/// A number of buckets above 32 bits stays above what an array can have, and is refused there.
unsigned int bucketCount(unsigned int size) {
    std::uint64_t const count = std::uint64_t{std::max(size, leastSize)} * 3 / 2;
    return static_cast<unsigned int>(
        std::min<std::uint64_t>(count, std::numeric_limits<unsigned int>::max()));
}

void putEntries(ZMap& from, ZMap& to) {
    ZArrayList entries(from.size(), 0);
    // Listed first: both may be the same map, and putting changes it.
    from.list(entries);
    for (unsigned int i = 0; i < entries.size(); ++i)
        to.putEntry(entries.get(i));
}

}  // namespace

ZMap::~ZMap() = default;

// -------------------------------------------------------------------------------- ZAbstractMap

ZAbstractMap::~ZAbstractMap() = default;

bool ZAbstractMap::isEmpty() const { return size() == 0; }

void ZAbstractMap::putAll(ZMap& other) { putEntries(other, *this); }

// ----------------------------------------------------------------------------------- ZArrayMap

ZArrayMap::ZArrayMap(unsigned int room, int owns) : ZArrayList(room, owns) {}

ZArrayMap::~ZArrayMap() {
    // While it is a map: destructors of entries may put others into it.
    ZArrayMap::removeAll();
}

ZObject* ZArrayMap::clone() const { return new ZArrayMap(*this); }

int ZArrayMap::getIndex(ZObject const* key) const { return indexOf(key); }

void ZArrayMap::putEntry(ZObject* entry) {
    int const index = getIndex(entry);
    if (index < 0) return add(entry);
    set(static_cast<unsigned int>(index), entry);
}

void ZArrayMap::putEntryNoCopy(ZObject* entry) {
    int const index = getIndex(entry);
    if (index < 0) return addNoCopy(entry);
    setNoCopy(static_cast<unsigned int>(index), entry);
}

ZObject* ZArrayMap::getEntry(ZObject const* key) const {
    return get(static_cast<unsigned int>(getIndex(key)));  // -1 is beyond the end: null
}

void ZArrayMap::removeEntry(ZObject* key) { ZArrayList::remove(static_cast<ZObject const*>(key)); }

bool ZArrayMap::contains(ZObject const* key) const { return getIndex(key) != -1; }

unsigned int ZArrayMap::size() const { return ZArrayList::size(); }

bool ZArrayMap::isEmpty() const { return ZArrayList::isEmpty(); }

void ZArrayMap::removeAll() { ZArrayList::removeAll(); }

void ZArrayMap::putAll(ZMap& other) { putEntries(other, *this); }

void ZArrayMap::list(ZList& out) const { out.addList(*this); }

// ------------------------------------------------------------------------------------ ZHashMap

// The array has one slot, for the table.
ZHashMap::ZHashMap(unsigned int size, int owns) : buckets(1, 1), ownsMembers(owns) {
    buckets.data[0] = new BucketTable(bucketCount(size));
}

ZHashMap& ZHashMap::operator=(ZHashMap const& other) {
    // The flag first: destructors of the old entries may put others into the new buckets.
    ZUndo restoring([this, owned = ownsMembers] { ownsMembers = owned; });
    ownsMembers = other.ownsMembers;
    buckets = other.buckets;
    restoring.keep();
    return *this;
}

ZHashMap::~ZHashMap() {
    // While it is a map: destructors of entries may put others into it.
    ZHashMap::removeAll();
}

ZObject* ZHashMap::clone() const { return new ZHashMap(*this); }

BucketTable& ZHashMap::table() const { return static_cast<BucketTable&>(*buckets.data[0]); }

Cell const* ZHashMap::find(ZObject const* key) const {
    Probe const probe(key);
    return table().bucketOf(probe.hash).get(probe);
}

void ZHashMap::put(Arrival& arrival, Probe const& probe, int owns) {
    Bucket& bucket = table().bucketOf(probe.hash);
    __builtin_prefetch(&bucket, 1);  // is there when the texts are cloned
    arrival.settle(table().pool());
    bucket.put(arrival, probe, owns != 0);
}

void ZHashMap::remove(ZObject const* key) {
    Probe const probe(key);
    table().bucketOf(probe.hash).drop(probe, table().pool());
}

void ZHashMap::putEntry(ZObject* entry) {
    Probe const probe(entry);
    Arrival arrival(entry, nullptr, ownsMembers != 0);
    put(arrival, probe, ownsMembers);
}

void ZHashMap::putEntryNoCopy(ZObject* entry) {
    Arrival arrival(entry, nullptr, false);
    put(arrival, Probe(entry), ownsMembers);
}

ZObject* ZHashMap::getEntry(ZObject const* key) const {
    Cell const* const cell = find(key);
    return cell != nullptr ? cell->key : nullptr;
}

void ZHashMap::removeEntry(ZObject* key) { remove(key); }

bool ZHashMap::contains(ZObject const* key) const { return find(key) != nullptr; }

unsigned int ZHashMap::size() const {
    // Layout: the object has no field for a count.
    unsigned int entries = 0;
    for (Bucket const& bucket : table())
        entries += bucket.size();
    return entries;
}

bool ZHashMap::isEmpty() const {
    // Not by size(), which looks into every bucket.
    return std::all_of(table().begin(), table().end(),
                       [](Bucket const& bucket) { return bucket.size() == 0; });
}

void ZHashMap::removeAll() { table().removeAll(); }

void ZHashMap::appendTo(ZList& out, ZObject* Cell::*part) const {
    zfc::containers::Appending appending(out);
    for (Bucket const& bucket : table())
        bucket.list(out, part);
    appending.keep();
}

void ZHashMap::list(ZList& out) const { appendTo(out, &Cell::key); }

// ----------------------------------------------------------------------------------- iterators

ZMapIterator::ZMapIterator(ZMap const& map) : entries(map.size(), 0), iterator(entries) {
    map.list(entries);
}

ZMapIterator::~ZMapIterator() = default;

bool ZMapIterator::hasMore() { return iterator.hasMore(); }
ZObject* ZMapIterator::getNext() { return iterator.getNext(); }
void ZMapIterator::reset() { iterator.reset(); }

ZArrayMapIterator::ZArrayMapIterator(ZArrayMap& map) : ZListIterator(map) {}

ZArrayMapIterator::~ZArrayMapIterator() = default;

ZObject* ZArrayMapIterator::clone() const { return new ZArrayMapIterator(*this); }
