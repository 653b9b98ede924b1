#include "Z/ZBuffer.h"

#include <malloc.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <utility>

#include "Z/ZException.h"

namespace {

constexpr char sourceName[] = "src/Z/ZBuffer";

// Layout: the length is a field of 32 bits, where a long may have 64. No block of 32 bits is longer
// than what its pointers can be apart.
constexpr unsigned long greatestLength =
    std::min<unsigned long>(std::numeric_limits<unsigned int>::max(), PTRDIFF_MAX);

unsigned int checkedLength(unsigned long n) {
    if (n > greatestLength) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    return static_cast<unsigned int>(n);
}

void checkData(unsigned long n, void const* data) {
    if (n != 0 && data == nullptr) zraise(ZInvalidParameterException(), sourceName, __LINE__);
}

int sign(bool less) { return less ? -1 : 1; }

}  // namespace

ZBufferInterface::~ZBufferInterface() = default;

// ----------------------------------------------------------------------------- ZAbstractBuffer

ZAbstractBuffer::~ZAbstractBuffer() = default;

int ZAbstractBuffer::compare(ZObject const& other) const {
    auto const* const that = dynamic_cast<ZAbstractBuffer const*>(&other);
    if (that == nullptr) return ZObject::compare(other);
    unsigned long const length = getLength();
    if (length != that->getLength()) return sign(length < that->getLength());
    void const* const block = getBuffer();
    void const* const thatBlock = that->getBuffer();
    // ISO C forbids memcmp() a null pointer even for no bytes, and a view may have a length without
    // a block: both are dealt with before it.
    if (length == 0 || block == thatBlock) return 0;
    if (block == nullptr || thatBlock == nullptr) return sign(block == nullptr);
    int const difference = std::memcmp(block, thatBlock, length);
    return difference == 0 ? 0 : sign(difference < 0);
}

// ------------------------------------------------------------------------------------- ZBuffer

ZBuffer::ZBuffer(unsigned long n, void* data) { ZBuffer::setBuffer(n, data); }

ZBuffer::ZBuffer(char const* text) { setBuffer(text); }

ZBuffer::ZBuffer(ZBuffer const& other) : ZBuffer(other.length, other.buffer.get()) {}

ZBuffer& ZBuffer::operator=(ZBuffer const& other) {
    if (this != &other) ZBuffer::setBuffer(other.length, other.buffer.get());
    return *this;
}

ZBuffer::~ZBuffer() = default;

ZObject* ZBuffer::clone() const { return new ZBuffer(*this); }

void ZBuffer::grow(unsigned int wanted) {
    void* const block = std::realloc(buffer.get(), wanted);
    if (block == nullptr) {
        // Kept: the old bytes go too, so that a buffer is either as long as was asked or empty.
        buffer.reset();
        length = 0;
        zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    }
    static_cast<void>(buffer.release());  // realloc has freed it
    buffer.reset(block);
}

void ZBuffer::setLength(unsigned long n) {
    unsigned int const wanted = checkedLength(n);
    if (wanted > length) grow(wanted);
    if (wanted == 0) buffer.reset();
    length = wanted;
}

void ZBuffer::setBuffer(unsigned long n, void* data) {
    checkData(n, data);
    // The old block stays until its bytes are copied: behind a length that was cut it holds more of
    // them, and growing in place would take them away.
    std::unique_ptr<void, ZFree> old;
    if (checkedLength(n) > length) {
        old = std::move(buffer);
        length = 0;
    }
    ZBuffer::setLength(n);
    if (n != 0) std::memmove(buffer.get(), data, n);
}

void ZBuffer::takeBuffer(unsigned long& n, void*& data) {
    n = std::exchange(length, 0U);
    data = buffer.release();
}

void ZBuffer::setBuffer(char const* text) {
    ZBuffer::setBuffer(text != nullptr ? std::strlen(text) + 1 : 0, const_cast<char*>(text));
}

void ZBuffer::setBufferNoCopy(unsigned long n, void* data) {
    // Both checks first: a block that is refused stays the caller's.
    checkData(n, data);
    length = checkedLength(n);
    // Its own block given back: reset() would free it.
    if (!holds(data)) return buffer.reset(data);
    std::memmove(buffer.get(), data, n);
}

/// Whether `data` lies in the block, which may be longer than the length tells.
bool ZBuffer::holds(void const* data) const {
    auto const* const begin = static_cast<char const*>(buffer.get());
    if (begin == nullptr) return false;
    // By `less`: the operator promises nothing about pointers into different blocks.
    std::less<void const*> const before;
    return !before(data, begin) && before(data, begin + malloc_usable_size(buffer.get()));
}

// -------------------------------------------------------------------------------- ZConstBuffer

ZConstBuffer::ZConstBuffer(unsigned long n, void* data) : length(checkedLength(n)), buffer(data) {}

ZConstBuffer::~ZConstBuffer() = default;

ZObject* ZConstBuffer::clone() const { return new ZConstBuffer(*this); }

void ZConstBuffer::setLength(unsigned long n) { length = checkedLength(n); }

void ZConstBuffer::setBuffer(unsigned long n, void* data) {
    // The check first, so that a view that is refused its new length keeps the old block too.
    length = checkedLength(n);
    buffer = data;
}

void ZConstBuffer::takeBuffer(unsigned long& n, void*& data) {
    n = std::exchange(length, 0U);
    data = std::exchange(buffer, nullptr);
}
