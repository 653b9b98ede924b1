#include "Z/ZAbstractMutableString.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstring>
#include <functional>

#include "Z/ZException.h"
#include "Z/ZLCString.h"

namespace {

constexpr char sourceName[] = "src/Z/ZAbstractMutableString";

}  // namespace

void ZAbstractMutableString::raiseTooLong() {
    zraise(ZOutOfMemoryException(), sourceName, __LINE__);
}

ZAbstractMutableString::ZAbstractMutableString(char const* text, unsigned int maxLength)
    : ZAbstractMutableString() {
    if (text != nullptr) setBytes(text, checkedLength(strnlen(text, maxLength)));
}

ZAbstractMutableString::ZAbstractMutableString(char c) : ZAbstractMutableString() {
    setBytes(&c, 1);
}

ZAbstractMutableString::ZAbstractMutableString(int number) : ZAbstractMutableString() {
    setNumber(number);
}

ZAbstractMutableString::ZAbstractMutableString(unsigned int number) : ZAbstractMutableString() {
    setNumber(number);
}

ZAbstractMutableString::ZAbstractMutableString(long number) : ZAbstractMutableString() {
    setNumber(number);
}

ZAbstractMutableString::ZAbstractMutableString(unsigned long number) : ZAbstractMutableString() {
    setNumber(number);
}

ZAbstractMutableString::ZAbstractMutableString(ZAbstractMutableString const& other)
    : ZAbstractString(other) {
    inlineBuffer[0] = '\0';
    setBytes(other.chars, other.length);
}

ZAbstractMutableString::ZAbstractMutableString(ZAbstractMutableString&& other) noexcept
    : ZAbstractString(other) {
    inlineBuffer[0] = '\0';
    take(other);
}

void ZAbstractMutableString::take(ZAbstractMutableString& other) noexcept {
    // The block would be released and then taken.
    if (this == &other) return;
    if (other.onHeap()) {
        release();
        chars = other.chars;
        capacity = other.capacity;
        length = other.length;
        other.reset();
    } else {
        // Short text lies in the object, where there is no block to take. Any buffer has room for
        // it.
        memcpy(chars, other.chars, other.length + 1);
        length = other.length;
        other.clear();
    }
}

void ZAbstractMutableString::init() {
    release();
    reset();
}

void ZAbstractMutableString::reset() {
    chars = inlineBuffer;
    capacity = defaultLength;
    clear();
}

unsigned int ZAbstractMutableString::setCapacity(unsigned int bytes) {
    bump(bytes, 1);
    return capacity;
}

char* ZAbstractMutableString::bump(unsigned int requested, int exact) {
    // Kept: the start is the capacity, so that asking a heap buffer for less than it has makes it
    // larger when `exact` is 0; programs count on the room that gives.
    std::uint64_t need = std::max(capacity, checkedLength(requested));
    // Every buffer has as much, the one in the object too.
    if (need <= defaultLength) return chars;
    // A fifth more, so that appending byte by byte copies each a bounded number of times. In 64
    // bits, where it cannot wrap; cut to what the length can tell below.
    if (exact == 0) need += (std::uint64_t{requested} + 7) / 5;
    if (need > capacity) reallocate(std::min<std::uint64_t>(need, greatestLength));
    return chars;
}

void ZAbstractMutableString::reallocate(std::uint64_t bytes) {
    // With the NUL; greatestLength leaves one for it on 32 bits.
    auto const size = static_cast<std::size_t>(bytes + 1);
    void* const block = onHeap() ? realloc(chars, size) : malloc(size);
    // realloc() has left the old block alone, and so has this: the text is as it was.
    if (block == nullptr) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    if (!onHeap()) memcpy(block, inlineBuffer, length + 1);
    chars = static_cast<char*>(block);
    capacity = static_cast<unsigned int>(bytes);
}

bool ZAbstractMutableString::holds(char const* address) const {
    std::less<> const before;  // ordered for unrelated pointers too
    // The place of the NUL counts too: an empty tail of this text moves with it.
    return address != nullptr && !before(address, chars) && !before(chars + length, address);
}

template <class Number>
void ZAbstractMutableString::setNumber(Number number) {
    // No check of the room: the least there is holds any number. No locale either: to_chars()
    // groups no digits.
    setLength(
        static_cast<unsigned int>(std::to_chars(chars, chars + defaultLength, number).ptr - chars));
}

void ZAbstractMutableString::setChars(char const* text) {
    if (text == nullptr) return clear();
    setBytes(text, checkedLength(strlen(text)));
}

void ZAbstractMutableString::setChars(ZAbstractString const& other) {
    if (!isOfOtherFamily(other)) {
        setBytes(other.getChars(), other.getLength());
        // Apart, because a conversion of nothing changes nothing.
    } else if (other.isEmpty()) {
        clear();
    } else {
        convertFromCodeSet(other);
    }
}

ZAbstractMutableString& ZAbstractMutableString::operator=(char const* text) {
    setChars(text);
    return *this;
}

ZAbstractMutableString& ZAbstractMutableString::operator=(ZAbstractMutableString const& other) {
    ZAbstractString::operator=(other);
    return *this;
}

ZAbstractMutableString& ZAbstractMutableString::operator=(char c) {
    setBytes(&c, 1);
    return *this;
}

ZAbstractMutableString& ZAbstractMutableString::operator=(int number) {
    setNumber(number);
    return *this;
}

ZAbstractMutableString& ZAbstractMutableString::operator=(unsigned int number) {
    setNumber(number);
    return *this;
}

ZAbstractMutableString& ZAbstractMutableString::operator=(long number) {
    setNumber(number);
    return *this;
}

ZAbstractMutableString& ZAbstractMutableString::operator=(unsigned long number) {
    setNumber(number);
    return *this;
}

void ZAbstractMutableString::convertFromCodeSet(ZAbstractString const& source) {
    if (source.isEmpty()) return;
    char const* const bytes = source.getChars();
    unsigned int const count = source.getLength();
    if (!isOfOtherFamily(source)) {
        setBytes(bytes, count);
        // A view of this very text as another codeset: converted in place it would overwrite what
        // is still to be read. The copy serves as a holder of bytes, of whatever codeset.
    } else if (holds(bytes)) {
        convertBytes(ZLCString(bytes, count).getChars(), count);
    } else {
        convertBytes(bytes, count);
    }
}

void ZAbstractMutableString::convertBytes(char const* bytes, unsigned int count) {
    bool const toUtf8 = getCodesetHandle() == utf8Handle();
    // A local byte becomes at most three of UTF-8, a UTF-8 byte at most two local ones.
    unsigned int const room = checkedLength(std::uint64_t{count} * (toUtf8 ? 3 : 2) + 1);
    char* const out = bump(room, 1);
    int const written = toUtf8 ? zlcs_to_utf8(bytes, count, out, capacity)
                               : zlcs_from_utf8(bytes, count, out, capacity);
    // What failed on the way has left part of the result there.
    setLength(written > 0 ? static_cast<unsigned int>(written) : 0);
}
