#include "Z/ZUTF8String.h"

#include <algorithm>
#include <cstring>
#include <typeinfo>

#include "Z/ZException.h"
#include "Z/ZStringIterator.h"
#include "Z/ZUTF8ConstString.h"
#include "Z/utility/ascii.h"

namespace {

constexpr char sourceName[] = "src/Z/ZUTF8String";

/// Maps leading ASCII in place; the place behind it.
template <class Map>
char* mapAscii(char* text, Map map) {
    for (; *text != '\0' && zisAscii(*text); ++text)
        *text = map(*text);
    return text;
}

}  // namespace

ZUTF8String::~ZUTF8String() = default;

int ZUTF8String::compare(ZObject const& other) const {
    // Nearly always: of one family for certain, and nothing overridden.
    if (typeid(other) == typeid(ZUTF8String) && typeid(*this) == typeid(ZUTF8String))
        return strcoll(text(), static_cast<ZUTF8String const&>(other).text());
    if (ZAbstractString const* const foreign = foreignText(other)) {
        ZUTF8String const converted(*foreign);
        // Conversion that failed leaves nothing; then the bytes decide, or all that fail would be
        // equal.
        if (!converted.isEmpty() || foreign->isEmpty()) return compare(converted);
    }
    return ZAbstractString::compare(other);
}

ZUTF8String* ZUTF8String::clone() const { return new ZUTF8String(*this); }

int ZUTF8String::compare(char const* other) const {
    // As ZAbstractString::compare(), without its calls.
    return strcoll(text(), other != nullptr ? other : "");
}
int ZUTF8String::compareignorecase(char const* other) const {
    return ZAbstractString::compareignorecase(other);
}
int ZUTF8String::compare(ZUTF8ConstString const& other) const { return compare(other.getChars()); }
int ZUTF8String::compareignorecase(ZUTF8ConstString const& other) const {
    return compareignorecase(other.getChars());
}

ZCodesetHandle ZUTF8String::getCodesetHandle() const { return utf8Handle(); }

ZUTF8String& ZUTF8String::lower() {
    // Most text is ASCII alone, which needs no codeset; the rest is for the codeset layer.
    zstrlower(getCodesetHandle(), mapAscii(text(), zlowerAscii));
    return *this;
}

ZUTF8String& ZUTF8String::upper() {
    zstrupper(getCodesetHandle(), mapAscii(text(), zupperAscii));
    return *this;
}

ZAbstractMutableString& ZUTF8String::replaceAll(char const* set, char to) {
    // Bytes of longer characters would be replaced one by one, and leave malformed text.
    if (set != nullptr && !std::all_of(set, set + strlen(set), zisAscii))
        zraise(ZInvalidParameterException(), sourceName, __LINE__);
    return ZAbstractMutableString::replaceAll(set, to);
}

ZAbstractMutableString& ZUTF8String::replace(char from, char to) {
    if (!zisAscii(from)) zraise(ZInvalidParameterException(), sourceName, __LINE__);
    return ZAbstractMutableString::replace(from, to);
}

ZAbstractMutableString& ZUTF8String::replace(char const* from, char const* to) {
    return ZAbstractMutableString::replace(from, to);
}

ZAbstractMutableString& ZUTF8String::replaceAll(char const* set, char const* to) {
    // A copy: `set` may lie in this string, which changes while it is walked.
    ZUTF8String const characters(set);
    ZUTF8String character;
    ZStringIterator iterator(characters, character);
    return replaceAllOf(iterator, to);
}

ZAbstractMutableString& ZUTF8String::replaceOther(char const* set, char const* to) {
    replaceCharacters(Characters::notIn, set, to);
    return *this;
}

ZUTF8String ZUTF8String::operator+(char const* text) const& { return ZUTF8String(*this) + text; }
ZUTF8String ZUTF8String::operator+(ZUTF8String const& other) const& {
    return ZUTF8String(*this) + other;
}
ZUTF8String ZUTF8String::operator+(ZUTF8ConstString const& other) const& {
    return ZUTF8String(*this) + other;
}
ZUTF8String ZUTF8String::operator+(ZUTF8ConstString const& other) && {
    return std::move(*this += other);
}

ZUTF8String ZUTF8String::subString(unsigned int start) const {
    return subString(start, getLength());
}

ZUTF8String ZUTF8String::subString(unsigned int start, unsigned int count) const {
    return start < getLength() ? ZUTF8String(getChars() + start, count) : ZUTF8String();
}
