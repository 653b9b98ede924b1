#include "Z/ZMap.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string_view>

#include "Z/containers/map_bucket.h"
#include "Z/containers/members.h"
#include "Z/strings/plain_text.h"
#include "Z/utility/undo.h"

namespace {

using zfc::containers::Arrival;
using zfc::containers::Bucket;
using zfc::containers::Cell;

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

ZHashMap::ZHashMap(unsigned int size, int owns)
    : buckets(bucketCount(size), 1), ownsMembers(owns) {}

ZHashMap& ZHashMap::operator=(ZHashMap const& other) {
    // The flag first: destructors of the old entries may put others into the new buckets.
    ZUndo restoring([this, owned = ownsMembers] { ownsMembers = owned; });
    ownsMembers = other.ownsMembers;
    buckets = other.buckets;
    restoring.keep();
    return *this;
}

ZHashMap::~ZHashMap() { dropBuckets(); }

void ZHashMap::dropBuckets() {
    bool more = true;
    // Again, where an entry's destructor has put another into a bucket before its own.
    while (more) {
        more = false;
        for (unsigned int i = 0; i < buckets.size(); ++i) {
            if (bucketAt(i) == nullptr) continue;
            more = true;
            buckets.remove(i);
        }
    }
}

ZObject* ZHashMap::clone() const { return new ZHashMap(*this); }

unsigned int ZHashMap::bucketIndex(unsigned long hash) const {
    // Most hashes have 32 bits, and a division of these takes less time.
    auto const low = static_cast<std::uint32_t>(hash);
    return low == hash ? low % buckets.size() : static_cast<unsigned int>(hash % buckets.size());
}

Bucket* ZHashMap::bucketAt(unsigned int index) const {
    return static_cast<Bucket*>(buckets.data[index]);
}

Bucket& ZHashMap::makeBucket(unsigned long hash, int owns) {
    unsigned int const index = bucketIndex(hash);
    // Made with the first entry, so that an empty one costs a null pointer.
    if (Bucket* const present = bucketAt(index)) return *present;
    auto* const bucket = new Bucket(owns);
    buckets.data[index] = bucket;
    return *bucket;
}

Cell const* ZHashMap::find(ZObject const* key) const {
    std::string_view const text =
        key != nullptr ? zfc::strings::plainText(*key) : std::string_view();
    // Taken once and handed on: hash() may walk a long text.
    unsigned long const hash =
        text.empty() ? zfc::containers::hashOf(key) : zfc::strings::textHash(text);
    Bucket const* const bucket = bucketAt(bucketIndex(hash));
    return bucket != nullptr ? bucket->get(key, text, hash) : nullptr;
}

void ZHashMap::put(Arrival& arrival, unsigned long hash, int owns) {
    makeBucket(hash, owns).put(arrival, hash);
}

void ZHashMap::remove(ZObject const* key) {
    unsigned long const hash = zfc::containers::hashOf(key);
    if (Bucket* const bucket = bucketAt(bucketIndex(hash))) bucket->drop(key, hash);
}

void ZHashMap::putEntry(ZObject* entry) {
    unsigned long const hash = zfc::containers::hashOf(entry);
    Arrival arrival(entry, nullptr, ownsMembers != 0);
    put(arrival, hash, ownsMembers);
}

void ZHashMap::putEntryNoCopy(ZObject* entry) {
    Arrival arrival(entry, nullptr, false);
    put(arrival, zfc::containers::hashOf(entry), ownsMembers);
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
    for (unsigned int i = 0; i < buckets.size(); ++i) {
        if (Bucket const* const bucket = bucketAt(i)) entries += bucket->size();
    }
    return entries;
}

bool ZHashMap::isEmpty() const {
    // Not by size(), which looks into every bucket.
    for (unsigned int i = 0; i < buckets.size(); ++i) {
        Bucket const* const bucket = bucketAt(i);
        if (bucket != nullptr && bucket->size() != 0) return false;
    }
    return true;
}

void ZHashMap::removeAll() {
    // Again, where an entry's destructor has put another into a bucket before its own.
    do {
        for (unsigned int i = 0; i < buckets.size(); ++i) {
            // Emptied, not dropped: a map that is filled again needs them.
            if (Bucket* const bucket = bucketAt(i)) bucket->removeAll();
        }
    } while (!ZHashMap::isEmpty());
}

void ZHashMap::appendTo(ZList& out, ZObject* Cell::*part) const {
    zfc::containers::Appending appending(out);
    for (unsigned int i = 0; i < buckets.size(); ++i) {
        if (Bucket const* const bucket = bucketAt(i)) bucket->list(out, part);
    }
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
