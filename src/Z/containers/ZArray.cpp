#include "Z/ZArray.h"

#include <algorithm>
#include <utility>

#include "Z/ZException.h"
#include "Z/containers/members.h"

namespace {

constexpr char sourceName[] = "src/Z/ZArray";

void checkIndex(unsigned int i, unsigned int size) {
    if (i >= size) zraise(ZInvalidParameterException(), sourceName, __LINE__);
}

}  // namespace

ZArrayInterface::~ZArrayInterface() = default;

// ------------------------------------------------------------------------------ ZAbstractArray

ZAbstractArray::~ZAbstractArray() = default;

void ZAbstractArray::set(unsigned int i, ZObject* obj) {
    if (ownsMembers() == 0) return setNoCopy(i, obj);
    auto copy = zfc::containers::cloneOf(obj);
    // Throws for a bad index; only behind it the clone is the array's.
    setNoCopy(i, copy.get());
    static_cast<void>(copy.release());
}

void ZAbstractArray::removeAll() {
    for (unsigned int i = 0; i < size(); ++i)
        remove(i);
}

bool ZAbstractArray::contains(ZObject const* obj) const { return indexOf(obj) != -1; }

// -------------------------------------------------------------------------------------- ZArray

ZArray::ZArray(unsigned int slots, int owns)
    // ISO C lets calloc() of nothing answer null, which would pass for no memory.
    : data(zfc::containers::newRow(std::max(slots, 1U))),
      ownsMembers_(owns),
      length(std::max(slots, 1U)) {}

/// Delegates, so that the destructor takes the clones back when a later one fails.
ZArray::ZArray(ZArray const& other) : ZArray(other.length, other.ownsMembers_) {
    for (unsigned int i = 0; i < length; ++i)
        ZAbstractArray::set(i, other.data[i]);
}

ZArray& ZArray::operator=(ZArray const& other) {
    // The old members end with `copy`, when this array is whole again.
    ZArray copy(other);
    zfc::containers::exchange(*this, copy, &ZArray::data, &ZArray::ownsMembers_, &ZArray::length);
    return *this;
}

ZArray::~ZArray() { ZAbstractArray::removeAll(); }

ZObject* ZArray::clone() const { return new ZArray(*this); }

ZObject* ZArray::get(unsigned int i) const {
    checkIndex(i, length);
    return data[i];
}

void ZArray::setNoCopy(unsigned int i, ZObject* obj) {
    checkIndex(i, length);
    // The slot first: the destructor of a member may look into the array.
    ZObject* const old = std::exchange(data[i], obj);
    if (ownsMembers_ != 0 && old != obj) delete old;  // its own slot again?
}

void ZArray::remove(unsigned int i) { ZArray::setNoCopy(i, nullptr); }

void ZArray::swap(unsigned int i, unsigned int j) {
    // Both before either moves.
    checkIndex(std::max(i, j), length);
    std::swap(data[i], data[j]);
}

int ZArray::indexOf(ZObject const* obj) const {
    return zfc::containers::firstMatch(data, length, obj);
}

int ZArray::lastIndexOf(ZObject const* obj) const {
    return zfc::containers::lastMatch(data, length, obj);
}
