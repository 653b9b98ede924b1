/// Replacing in a string. Its storage is in ZAbstractMutableString.cpp.
#include <algorithm>
#include <bitset>
#include <climits>
#include <cstring>
#include <new>
#include <string_view>
#include <vector>

#include "Z/ZAbstractMutableString.h"
#include "Z/ZException.h"
#include "Z/ZLCString.h"
#include "Z/ZStringIterator.h"
#include "Z/utility/place_bits.h"

namespace {

constexpr char sourceName[] = "src/Z/ZAbstractMutableString";

char const* textOf(char const* text) { return text != nullptr ? text : ""; }

/// As strstr(), in a text whose NUL is at `end`, where that takes longer to begin than to find:
/// where hits are many, they are near. `part` is not empty and ends with a NUL.
char const* findNear(char const* at, char const* end, std::string_view part) {
    constexpr std::ptrdiff_t nearby = 256;
    using zfc::utility::bitPlaces;
    std::size_t const last = part.size() - 1;
    std::size_t const second = std::min<std::size_t>(last, 1);
    char const firstByte = part[0];
    char const secondByte = part[second];
    char const lastByte = part[last];
    char const* const nearEnd = at + std::min(end - at, nearby);
    for (; nearEnd - at >= static_cast<std::ptrdiff_t>(last + bitPlaces); at += bitPlaces) {
        // By three of its bytes: what looks like it and is not costs as much as what is.
        unsigned places = zfc::utility::placeBits([=](std::size_t i) {
            return (at[i] == '\0') | ((at[i] == firstByte) & (at[i + second] == secondByte) &
                                      (at[i + last] == lastByte));
        });
        for (; places != 0; places &= places - 1) {
            char const* const place = at + __builtin_ctz(places);
            if (*place == '\0') return nullptr;
            if (std::memcmp(place, part.data(), part.size()) == 0) return place;
        }
    }
    return strstr(at, part.data());
}

/// A text to be replaced and its substitute.
struct Exchange {
    char const *from, *to;
    unsigned int fromLength, toLength;
};

/// Replaces what is not shorter than its substitute, so that what is written never overtakes what
/// is to be read. The new end.
template <class Find>
char* replaceForwards(char* text, char const* end, Find const& find, Exchange const& exchange) {
    char* write = text;
    char const* read = text;
    auto const move = [&](char const* to) {
        // Nothing has moved before the first hit.
        if (write != read) std::memmove(write, read, static_cast<std::size_t>(to - read));
        write += to - read;
    };
    for (char const* hit = find(read); hit != nullptr; hit = find(read)) {
        move(hit);
        write = std::copy_n(exchange.to, exchange.toLength, write);
        read = hit + exchange.fromLength;
    }
    move(end);
    return write;
}

/// As many offsets as may be remembered; with more hits the text is searched twice instead.
constexpr std::size_t mostRemembered = 0x10000;

/// Offsets of the hits, of which it is more than `mostRemembered` when that many come back.
template <class Find>
std::vector<unsigned int> hitsIn(char const* text, Find const& find, Exchange const& exchange) {
    try {
        std::vector<unsigned int> hits;
        char const* hit = find(text);
        for (; hit != nullptr && hits.size() <= mostRemembered; hit = find(hit))
            hits.push_back(static_cast<unsigned int>(hit - text)), hit += exchange.fromLength;
        return hits;
    } catch (std::bad_alloc const&) {  // no exception of the library's tree
        zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    }
}

/// Makes longer what stands at the offsets, the last first: every byte moves once, to where nothing
/// is read any more.
void replaceBackwards(char* text, unsigned int length, std::vector<unsigned int> const& hits,
                      Exchange const& exchange) {
    unsigned int const growth = exchange.toLength - exchange.fromLength;
    unsigned int end = length;
    for (std::size_t i = hits.size(); i > 0; --i) {
        unsigned int const start = hits[i - 1];
        unsigned int const behind = start + exchange.fromLength;
        char* const place = text + start + growth * (i - 1);
        std::memmove(place + exchange.toLength, text + behind, end - behind);
        std::memcpy(place, exchange.to, exchange.toLength);
        end = start;
    }
}

}  // namespace

ZAbstractMutableString& ZAbstractMutableString::replace(char from, char to) {
    std::replace(chars, chars + length, from, to);
    return *this;
}

ZAbstractMutableString& ZAbstractMutableString::replaceAll(char const* set, char to) {
    // The set is read whole before anything changes: it may lie in this string.
    std::bitset<UCHAR_MAX + 1> wanted;
    for (char const* byte = textOf(set); *byte != '\0'; ++byte)
        wanted.set(static_cast<unsigned char>(*byte));
    std::replace_if(
        chars, chars + length, [&](char byte) { return wanted[static_cast<unsigned char>(byte)]; },
        to);
    return *this;
}

/// Replaces what `find`, asked for a place in the text, finds from there on.
///
/// The first walk counts, so that the buffer grows once, at most, and before anything changes. For
/// the second the text is moved up as far as the result ever gets ahead of it; the result is then
/// written from the front and never overtakes what is still to be read.
template <class Find>
void ZAbstractMutableString::substitute(Find const& find, char const* to) {
    auto const toLength = checkedLength(strlen(to));
    Hit const first = find(chars);
    if (first.place == nullptr) return;
    // In 64 bits, to be checked once: the greatest one can pass 32.
    std::uint64_t newLength = length;
    std::uint64_t greatest = length;
    for (Hit hit = first; hit.place != nullptr; hit = find(hit.place + hit.length)) {
        newLength += std::uint64_t{toLength} * hit.count;
        newLength -= hit.length;
        greatest = std::max(greatest, newLength);
    }
    bump(checkedLength(greatest), 1);

    unsigned int const shift = static_cast<unsigned int>(greatest) - length;
    char const* const end = chars + length + shift;
    char const* read = chars + shift;
    char* write = chars;
    // With the NUL, which ends the searches of the second walk.
    memmove(chars + shift, chars, length + 1);
    for (Hit hit = find(read); hit.place != nullptr; hit = find(read)) {
        write = std::copy(read, hit.place, write);
        for (unsigned int i = 0; i < hit.count; ++i)
            write = std::copy_n(to, toLength, write);
        read = hit.place + hit.length;
    }
    std::copy(read, end, write);
    setLength(static_cast<unsigned int>(newLength));
}

ZAbstractMutableString& ZAbstractMutableString::replace(char const* from, char const* to) {
    if (from == nullptr || *from == '\0') return *this;
    // Arguments within this text are copied first, since it changes under them; whatever their
    // codeset, the copy just holds bytes.
    if (holds(from) || holds(to))
        return replace(ZLCString(from).getChars(), ZLCString(to).getChars());
    to = textOf(to);
    Exchange const exchange{from, to, checkedLength(strlen(from)), checkedLength(strlen(to))};
    ZCodesetHandle const codeset = getCodesetHandle();
    auto const find = [=, isSimple = bytesAreCharacters(), end = chars + length](char const* at) {
        return isSimple ? findNear(at, end, {from, exchange.fromLength})
                        : zstrstr(codeset, at, from);
    };
    if (exchange.toLength <= exchange.fromLength) {
        char const* const end = replaceForwards(chars, chars + length, find, exchange);
        setLength(static_cast<unsigned int>(end - chars));
        return *this;
    }
    auto const hits = hitsIn(chars, find, exchange);
    if (hits.size() > mostRemembered) {
        // The text moves meanwhile, and its end.
        auto const findMoved = [=, isSimple = bytesAreCharacters()](char const* at) {
            return Hit{isSimple ? strstr(at, from) : zstrstr(codeset, at, from),
                       exchange.fromLength, 1};
        };
        substitute(findMoved, to);
        return *this;
    }
    std::uint64_t const growth = exchange.toLength - exchange.fromLength;
    unsigned int const newLength = checkedLength(length + growth * hits.size());
    if (!hits.empty()) bump(newLength, 1);
    replaceBackwards(chars, length, hits, exchange);
    setLength(newLength);
    return *this;
}

unsigned int ZAbstractMutableString::countCharacters(char const* bytes, unsigned int count) const {
    unsigned int characters = 0;
    for (unsigned int at = 0; at < count; ++characters) {
        int const size = zmblen(getCodesetHandle(), bytes + at, count - at);
        // Before the text changes: substitute() counts in its first walk.
        if (size < 1) zraise(ZQCSMBLenException(), sourceName, __LINE__);
        at += static_cast<unsigned int>(size);
    }
    return characters;
}

/// The next run of characters that are, or are not, in the set.
ZAbstractMutableString::Hit ZAbstractMutableString::findRun(char const* from, Characters which,
                                                            char const* set) const {
    auto const skip = which == Characters::in ? zstrcspn : zstrspn;
    auto const match = which == Characters::in ? zstrspn : zstrcspn;
    char const* const place = from + skip(getCodesetHandle(), from, set);
    if (*place == '\0') return {nullptr, 0, 0};
    unsigned int const run = match(getCodesetHandle(), place, set);
    if (run == 0) zraise(ZQCSMBLenException(), sourceName, __LINE__);  // a malformed character
    return {place, run, countCharacters(place, run)};
}

void ZAbstractMutableString::replaceCharacters(Characters which, char const* set, char const* to) {
    if (holds(set) || holds(to))
        return replaceCharacters(which, ZLCString(set).getChars(), ZLCString(to).getChars());
    set = textOf(set);
    countCharacters(set, checkedLength(strlen(set)));  // none of them malformed
    substitute([&](char const* at) { return findRun(at, which, set); }, textOf(to));
}

ZAbstractMutableString& ZAbstractMutableString::replaceAllOf(ZStringIterator& elements,
                                                             char const* to) {
    if (holds(to)) return replaceAllOf(elements, ZLCString(to).getChars());
    while (elements.hasMore())
        replace(elements.getNext()->getChars(), to);
    return *this;
}

ZAbstractMutableString& ZAbstractMutableString::replaceNoneOf(ZStringIterator& elements,
                                                              char const* set, char const* to) {
    ZCodesetHandle const codeset = getCodesetHandle();
    ZLCString wanted;  // bytes of this string's codeset: each character once
    while (elements.hasMore()) {
        char const* const element = elements.getNext()->getChars();
        if (zstrspn(codeset, element, set) == 0 &&
            zstrspn(codeset, element, wanted.getChars()) == 0)
            wanted.append(element);
    }
    replaceCharacters(Characters::in, wanted, to);
    return *this;
}
