#include "Z/ZMap.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>

#include "Z/containers/map_bucket.h"
#include "Z/containers/members.h"
#include "Z/utility/undo.h"

namespace {

using zfc::containers::Bucket;

constexpr unsigned int leastSize = 2;

/// A number of buckets above 32 bits stays above what an array can have, and is refused there.
unsigned int bucketCount(unsigned int size) {
    std::uint64_t const count = std::uint64_t{std::max(size, leastSize)} * 3 / 2;
    return static_cast<unsigned int>(
        std::min<std::uint64_t>(count, std::numeric_limits<unsigned int>::max()));
}

unsigned long hashOf(ZObject const* key) { return key != nullptr ? key->hash() : 0; }

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

ZHashMap::~ZHashMap() {
    // While there are buckets, for the same reason.
    ZHashMap::removeAll();
}

ZObject* ZHashMap::clone() const { return new ZHashMap(*this); }

unsigned int ZHashMap::bucketIndex(unsigned long hash) const {
    return static_cast<unsigned int>(hash % buckets.size());
}

Bucket* ZHashMap::bucketAt(unsigned int index) const {
    return static_cast<Bucket*>(buckets.get(index));
}

Bucket& ZHashMap::makeBucket(unsigned long hash) {
    unsigned int const index = bucketIndex(hash);
    // Made with the first entry, so that an empty one costs a null pointer.
    if (Bucket* const present = bucketAt(index)) return *present;
    auto bucket = std::make_unique<Bucket>(ownsMembers);
    buckets.setNoCopy(index, bucket.get());
    return *bucket.release();
}

void ZHashMap::putEntry(ZObject* entry) {
    // Taken once and handed on: hash() may walk a long text.
    unsigned long const hash = hashOf(entry);
    makeBucket(hash).put(entry, hash);
}

void ZHashMap::putEntryNoCopy(ZObject* entry) {
    unsigned long const hash = hashOf(entry);
    makeBucket(hash).putNoCopy(entry, hash);
}

ZObject* ZHashMap::getEntry(ZObject const* key) const {
    unsigned long const hash = hashOf(key);
    Bucket const* const bucket = bucketAt(bucketIndex(hash));
    return bucket != nullptr ? bucket->get(key, hash) : nullptr;
}

void ZHashMap::removeEntry(ZObject* key) {
    unsigned long const hash = hashOf(key);
    if (Bucket* const bucket = bucketAt(bucketIndex(hash))) bucket->drop(key, hash);
}

bool ZHashMap::contains(ZObject const* key) const {
    unsigned long const hash = hashOf(key);
    Bucket const* const bucket = bucketAt(bucketIndex(hash));
    return bucket != nullptr && bucket->contains(key, hash);
}

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

void ZHashMap::list(ZList& out) const {
    zfc::containers::Appending appending(out);
    for (unsigned int i = 0; i < buckets.size(); ++i) {
        if (Bucket const* const bucket = bucketAt(i)) bucket->list(out);
    }
    appending.keep();
}

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
