#include "Z/ZKeyMap.h"

#include <typeinfo>

#include "Z/containers/map_bucket.h"
#include "Z/containers/members.h"
#include "Z/utility/undo.h"

namespace {

using zfc::containers::Cell;

/// `object` as an entry; null when it is none. The comparison of types spares the search through
/// the class tree that a dynamic_cast makes.
ZKeyEntry const* asEntry(ZObject const& object) {
    if (typeid(object) == typeid(ZKeyEntry)) return static_cast<ZKeyEntry const*>(&object);
    return dynamic_cast<ZKeyEntry const*>(&object);
}

}  // namespace

ZKeyMap::~ZKeyMap() = default;

// ----------------------------------------------------------------------------- ZAbstractKeyMap

ZAbstractKeyMap::~ZAbstractKeyMap() = default;

bool ZAbstractKeyMap::isEmpty() const { return size() == 0; }

void ZAbstractKeyMap::putAll(ZKeyMap const& other) {
    ZArrayList keys(other.size(), 0);
    // Listed first: `other` may be this very map, and putting changes it.
    other.listKeys(keys);
    for (unsigned int i = 0; i < keys.size(); ++i)
        putEntry(keys.get(i), other.getEntry(keys.get(i)));
}

// ----------------------------------------------------------------------------------- ZKeyEntry

/// An entry that does not copy gives the caller's own objects back, which the caller may change.
ZKeyEntry::ZKeyEntry(ZObject const* keyGiven, ZObject const* valueGiven, int copyFlag)
    : key(const_cast<ZObject*>(keyGiven)), value(const_cast<ZObject*>(valueGiven)), copy(copyFlag) {
    if (copy == 0) return;
    // Held until the value is cloned too: no destructor runs for what a constructor leaves by
    // throwing.
    auto keyCopy = zfc::containers::cloneOf(keyGiven);
    value = zfc::containers::cloneOf(valueGiven).release();
    key = keyCopy.release();
}

ZKeyEntry::ZKeyEntry(ZKeyEntry const& other) : ZKeyEntry(other.key, other.value, other.copy) {
    // Without it equals() would take the copy for another key than the original's.
    hashValue = other.hashValue;
}

ZKeyEntry& ZKeyEntry::operator=(ZKeyEntry const& other) {
    ZKeyEntry same(other);
    zfc::containers::exchange(*this, same, &ZKeyEntry::key, &ZKeyEntry::value, &ZKeyEntry::copy,
                              &ZKeyEntry::hashValue);
    return *this;
}

ZKeyEntry::~ZKeyEntry() {
    if (copy == 0) return;
    delete key;
    delete value;
}

unsigned long ZKeyEntry::hash() const {
    unsigned long const hash = key != nullptr ? key->hash() : 0;
    hashValue = static_cast<unsigned int>(hash);
    return hash;
}

int ZKeyEntry::compare(ZObject const& other) const {
    ZKeyEntry const* const entry = asEntry(other);
    if (entry == nullptr) return ZObject::compare(other);
    if (key != nullptr && entry->key != nullptr) return key->compare(*entry->key);
    return static_cast<int>(key != nullptr) - static_cast<int>(entry->key != nullptr);
}

ZObject* ZKeyEntry::clone() const { return new ZKeyEntry(*this); }

bool ZKeyEntry::equals(ZObject const& other) const {
    ZKeyEntry const* const entry = asEntry(other);
    // The numbers first: they nearly always decide, without a walk through two keys.
    return entry != nullptr && entry->hashValue == hashValue &&
           zfc::containers::matches(key, entry->key);
}

// --------------------------------------------------------------------------------- ZHashKeyMap

ZHashKeyMap::ZHashKeyMap(unsigned int size, int copyFlag) : map(size, 1), copy(copyFlag) {}

ZHashKeyMap& ZHashKeyMap::operator=(ZHashKeyMap const& other) {
    // The flag first: destructors of the old pairs may put others.
    ZUndo restoring([this, copied = copy] { copy = copied; });
    copy = other.copy;
    map = other.map;
    restoring.keep();
    return *this;
}

ZHashKeyMap::~ZHashKeyMap() {
    // While it is a map: destructors of keys and values may put others into it.
    map.removeAll();
}

ZObject* ZHashKeyMap::clone() const { return new ZHashKeyMap(*this); }

void ZHashKeyMap::putEntry(ZObject const* key, ZObject const* value) {
    zfc::containers::Arrival arrival(key, value, copy != 0);
    // By what is stored: an object without content has the hash of its place.
    map.put(arrival, zfc::containers::Probe(arrival.key()), copy);
}

ZObject* ZHashKeyMap::getEntry(ZObject const* key) const {
    Cell const* const cell = map.find(key);
    return cell != nullptr ? cell->value : nullptr;
}

void ZHashKeyMap::removeEntry(ZObject const* key) { map.remove(key); }

bool ZHashKeyMap::contains(ZObject const* key) const { return map.find(key) != nullptr; }

unsigned int ZHashKeyMap::size() const { return map.size(); }

bool ZHashKeyMap::isEmpty() const { return map.isEmpty(); }

void ZHashKeyMap::removeAll() { map.removeAll(); }

void ZHashKeyMap::listKeys(ZList& out) const { map.appendTo(out, &Cell::key); }

void ZHashKeyMap::listObjects(ZList& out) const { map.appendTo(out, &Cell::value); }
