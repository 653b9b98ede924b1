#include "Z/ZAbstractString.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <typeinfo>

#include "Z/ZException.h"
#include "Z/ZLCConstString.h"
#include "Z/ZLCString.h"
#include "Z/ZUTF8ConstString.h"
#include "Z/ZUTF8String.h"
#include "Z/strings/plain_text.h"
#include "Z/utility/ascii.h"

namespace {

constexpr char sourceName[] = "src/Z/ZAbstractString";

/// `other` as a string; null when it is none. Objects of one class need no search in the tree.
ZAbstractString const* asString(ZAbstractString const& like, ZObject const& other) {
    if (typeid(like) == typeid(other)) return static_cast<ZAbstractString const*>(&other);
    return dynamic_cast<ZAbstractString const*>(&other);
}

std::string_view bytesOf(ZAbstractString const& string) {
    std::string_view const plain = zfc::strings::plainText(string);
    if (plain.data() != nullptr) return plain;
    return {string.getChars(), string.getLength()};
}

bool sameBytes(ZAbstractString const& a, ZAbstractString const& b) {
    // Not strcmp(): different lengths are the rule and decide at once.
    return bytesOf(a) == bytesOf(b);
}

/// The offset as searches give it: -1 for a null `hit`.
int offsetIn(char const* text, char const* hit) {
    if (hit == nullptr) return -1;
    std::ptrdiff_t const offset = hit - text;
    if (offset > INT_MAX) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    return static_cast<int>(offset);
}

/// The place in the text where a search from offset `from` begins.
char const* startAt(ZAbstractString const& string, unsigned int from) {
    if (from == 0) return string.getChars();  // needs no length, which a view has to measure
    unsigned int const length = string.getLength();
    return string.getChars() + (from < length ? from : length);
}

constexpr std::size_t places = 64;

/// Whether `part`, which has bytes, begins at one of the `places` from `at` on, as far as three of
/// its bytes tell. Without a branch, so that the compiler makes vector code of it.
bool mayBegin(char const* at, std::string_view part) {
    std::size_t const last = part.size() - 1;
    std::size_t const second = std::min<std::size_t>(last, 1);
    char const wanted[] = {part[0], part[second], part[last]};
    unsigned char hits = 0;
    for (std::size_t i = 0; i < places; ++i) {
        bool const isHit =
            (at[i] == wanted[0]) & (at[i + second] == wanted[1]) & (at[i + last] == wanted[2]);
        hits |= static_cast<unsigned char>(isHit);
    }
    return hits != 0;
}

/// The last place of `part` in `whole`; null when there is none.
char const* lastPlace(std::string_view whole, std::string_view part) {
    if (part.size() > whole.size()) return nullptr;
    char const* at = whole.data() + (whole.size() - part.size());  // places from here on are done
    if (part.empty()) return at;
    auto const begins = [=](char const* place) {
        return *place == part.front() && std::memcmp(place, part.data(), part.size()) == 0;
    };
    if (begins(at)) return at;
    for (auto left = static_cast<std::size_t>(at - whole.data()); left > 0;) {
        std::size_t const step = std::min(left, places);
        left -= step;
        at -= step;
        if (step == places && !mayBegin(at, part)) continue;
        for (std::size_t i = step; i > 0; --i)
            if (begins(at + (i - 1))) return at + (i - 1);
    }
    return nullptr;
}

template <class Class>
bool isA(ZAbstractString const& string) {
    return dynamic_cast<Class const*>(&string) != nullptr;
}

bool isLocal(ZAbstractString const& string) {
    return isA<ZLCString>(string) || isA<ZLCConstString>(string);
}

bool isUtf8(ZAbstractString const& string) {
    return isA<ZUTF8String>(string) || isA<ZUTF8ConstString>(string);
}

bool hasTail(ZAbstractString const& string, char const* tail, std::size_t tailLength) {
    unsigned int const length = string.getLength();
    return tailLength <= length &&
           memcmp(string.getChars() + (length - tailLength), tail, tailLength) == 0;
}

}  // namespace

std::atomic<ZCodesetHandle> ZAbstractString::utf8_handle_{0};
std::atomic<ZCodesetHandle> ZAbstractString::lcs_handle_{0};

ZAbstractString::~ZAbstractString() = default;

void ZAbstractString::fetchHandles() {
    ZCodesetHandle const utf8 = zgetUTF8Handle();
    // The UTF-8 handle goes last: who sees it takes both as fetched.
    lcs_handle_.store(zgetLCSHandle(), std::memory_order_relaxed);
    utf8_handle_.store(utf8, std::memory_order_release);
}

ZAbstractString const* ZAbstractString::foreignText(ZObject const& other) const {
    ZAbstractString const* const string = asString(*this, other);
    bool const isForeign = string != nullptr && string->getCodesetHandle() != getCodesetHandle();
    return isForeign ? string : nullptr;
}

bool ZAbstractString::isOfOtherFamily(ZAbstractString const& other) const {
    if (other.getCodesetHandle() != getCodesetHandle()) return true;
    // The codesets tell the families apart everywhere else; and most strings are of one class.
    if (utf8Handle() != localHandle() || typeid(*this) == typeid(other)) return false;
    return (isLocal(*this) && isUtf8(other)) || (isUtf8(*this) && isLocal(other));
}

unsigned long ZAbstractString::hash() const { return zfc::strings::textHash(bytesOf(*this)); }

int ZAbstractString::compare(ZObject const& other) const {
    ZAbstractString const* const string = asString(*this, other);
    return string != nullptr ? compare(string->getChars()) : ZObject::compare(other);
}

bool ZAbstractString::equals(ZObject const& other) const {
    std::string_view const plain = zfc::strings::plainText(other);
    if (plain.data() != nullptr) return bytesOf(*this) == plain;
    auto const* const string = dynamic_cast<ZAbstractString const*>(&other);
    return string != nullptr && sameBytes(*this, *string);
}

bool ZAbstractString::operator==(ZAbstractString const& other) const {
    // Bytes of different codesets are not comparable; compare() converts.
    bool const isForeign = other.getCodesetHandle() != getCodesetHandle();
    return isForeign ? compare(static_cast<ZObject const&>(other)) == 0 : sameBytes(*this, other);
}

int ZAbstractString::compare(char const* other) const {
    return strcoll(getChars(), other != nullptr ? other : "");
}

int ZAbstractString::compareignorecase(char const* other) const {
    return zstricmp(getCodesetHandle(), getChars(), other);
}

int ZAbstractString::getCharCount() const { return zstrcount(getCodesetHandle(), getChars()); }

bool ZAbstractString::contains(int c) const { return strchr(getChars(), c) != nullptr; }

bool ZAbstractString::contains(char const* text) const {
    return text != nullptr && strstr(getChars(), text) != nullptr;
}

int ZAbstractString::indexOf(int c, unsigned int from) const {
    return offsetIn(getChars(), strchr(startAt(*this, from), c));
}

int ZAbstractString::indexOf(char const* text, unsigned int from) const {
    if (text == nullptr) return -1;
    return offsetIn(getChars(), strstr(startAt(*this, from), text));
}

int ZAbstractString::lastIndexOf(int c) const {
    ZCodesetHandle const codeset = getCodesetHandle();
    // Where a byte is a character, the system's search from the end is by far the fastest;
    // elsewhere characters are known only from the front.
    bool const bytesAreCharacters = (codeset == localHandle() && zlcs_mb_max() == 1) ||
                                    (codeset == utf8Handle() && zisAsciiCharacter(c));
    return bytesAreCharacters ? offsetIn(getChars(), strrchr(getChars(), c)) : lastCharacter(c);
}

int ZAbstractString::lastCharacter(int c) const {
    unsigned int const length = getLength();
    int last = -1;
    for (unsigned int from = 0; from <= length;) {
        int const hit = indexOf(c, from);
        if (hit < 0) break;
        last = hit;
        auto const offset = static_cast<unsigned int>(hit);
        // The NUL was looked for, and nothing is behind it.
        if (offset == length) break;
        int const step = zmblen(getCodesetHandle(), getChars() + offset, length - offset);
        if (step < 0) zraise(ZQCSMBLenException(), sourceName, __LINE__);
        // On by a whole character, so that none of its later bytes passes for a hit; always on.
        from = offset + static_cast<unsigned int>(step > 0 ? step : 1);
    }
    return last;
}

int ZAbstractString::lastIndexOf(char const* text) const {
    if (text == nullptr) return -1;
    char const* const chars = getChars();
    return offsetIn(chars, lastPlace({chars, getLength()}, text));
}

bool ZAbstractString::beginsWith(char const* text) const {
    if (text == nullptr) return true;
    return !isEmpty() && strncmp(getChars(), text, strlen(text)) == 0;
}

bool ZAbstractString::endsWith(char const* text) const {
    if (text == nullptr) return true;
    return *text != '\0' && hasTail(*this, text, strlen(text));
}

bool ZAbstractString::equals(char const* other) const {
    return other != nullptr && strcmp(getChars(), other) == 0;
}

bool ZAbstractString::isEmpty() const { return getLength() == 0; }

ZAbstractString::operator char const*() const { return getChars(); }
char const* ZAbstractString::data() const { return getChars(); }

bool ZAbstractString::beginsWith(ZAbstractString const& other) const {
    return beginsWith(other.getChars());
}

bool ZAbstractString::endsWith(ZAbstractString const& other) const {
    return endsWith(other.getChars());
}

bool ZAbstractString::beginsWithCaseIgnored(ZAbstractString const& other) const {
    if (isEmpty() || other.isEmpty()) return false;
    return zstrnicmp(getCodesetHandle(), getChars(), other.getChars(), other.getLength()) == 0;
}

bool ZAbstractString::endsWithCaseIgnored(ZAbstractString const& other) const {
    unsigned int const count = other.getLength();
    if (count == 0 || count > getLength()) return false;
    char const* const tail = getChars() + (getLength() - count);
    return zstrnicmp(getCodesetHandle(), tail, other.getChars(), count) == 0;
}
