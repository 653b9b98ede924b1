#include "Z/ZLCString.h"

#include <cstring>
#include <typeinfo>

#include "Z/ZLCConstString.h"
#include "Z/ZStringIterator.h"

ZLCString::~ZLCString() = default;

int ZLCString::compare(ZObject const& other) const {
    // Nearly always: of one family for certain, and nothing overridden.
    if (typeid(other) == typeid(ZLCString) && typeid(*this) == typeid(ZLCString))
        return strcoll(text(), static_cast<ZLCString const&>(other).text());
    if (ZAbstractString const* const foreign = foreignText(other)) {
        ZLCString const converted(*foreign);
        // Conversion that failed leaves nothing; then the bytes decide, or all that fail would be
        // equal.
        if (!converted.isEmpty() || foreign->isEmpty()) return compare(converted);
    }
    return ZAbstractString::compare(other);
}

ZLCString* ZLCString::clone() const { return new ZLCString(*this); }

int ZLCString::compare(char const* other) const {
    // As ZAbstractString::compare(), without its calls.
    return strcoll(text(), other != nullptr ? other : "");
}
int ZLCString::compareignorecase(char const* other) const {
    return ZAbstractString::compareignorecase(other);
}
int ZLCString::compare(ZLCConstString const& other) const { return compare(other.getChars()); }
int ZLCString::compareignorecase(ZLCConstString const& other) const {
    return compareignorecase(other.getChars());
}

ZCodesetHandle ZLCString::getCodesetHandle() const { return localHandle(); }

ZAbstractMutableString& ZLCString::replaceAll(char const* set, char to) {
    return ZAbstractMutableString::replaceAll(set, to);
}

ZAbstractMutableString& ZLCString::replaceAll(char const* set, char const* to) {
    // A copy: `set` may lie in this string, which changes while it is walked.
    ZLCString const characters(set);
    ZLCString character;
    ZStringIterator iterator(characters, character);
    return replaceAllOf(iterator, to);
}

ZAbstractMutableString& ZLCString::replaceOther(char const* set, char const* to) {
    replaceCharacters(Characters::notIn, set, to);
    return *this;
}

ZLCString ZLCString::operator+(char const* text) const& { return ZLCString(*this) + text; }
ZLCString ZLCString::operator+(ZLCString const& other) const& { return ZLCString(*this) + other; }
ZLCString ZLCString::operator+(ZLCConstString const& other) const& {
    return ZLCString(*this) + other;
}
ZLCString ZLCString::operator+(ZLCConstString const& other) && { return std::move(*this += other); }

ZLCString ZLCString::subString(unsigned int start) const { return subString(start, getLength()); }

ZLCString ZLCString::subString(unsigned int start, unsigned int count) const {
    return start < getLength() ? ZLCString(getChars() + start, count) : ZLCString();
}
