#include "Z/ZLCString.h"

#include "Z/ZLCConstString.h"
#include "Z/ZStringIterator.h"

ZLCString::~ZLCString() = default;

int ZLCString::compare(const ZObject& other) const {
    if (const ZAbstractString* const foreign = foreignText(other)) {
        ZLCString const converted(*foreign);
        if (!converted.isEmpty() || foreign->isEmpty()) return compare(converted);
    }
    return ZAbstractString::compare(other);
}

ZLCString* ZLCString::clone() const { return new ZLCString(*this); }

int ZLCString::compare(const char* other) const { return ZAbstractString::compare(other); }
int ZLCString::compareignorecase(const char* other) const {
    return ZAbstractString::compareignorecase(other);
}
int ZLCString::compare(const ZLCConstString& other) const { return compare(other.getChars()); }
int ZLCString::compareignorecase(const ZLCConstString& other) const {
    return compareignorecase(other.getChars());
}

ZCodesetHandle ZLCString::getCodesetHandle() const { return localHandle(); }

ZAbstractMutableString& ZLCString::replaceAll(const char* set, char to) {
    return ZAbstractMutableString::replaceAll(set, to);
}

ZAbstractMutableString& ZLCString::replaceAll(const char* set, const char* to) {
    ZLCString const characters(set);
    ZLCString character;
    ZStringIterator iterator(characters, character);
    return replaceAllOf(iterator, to);
}

ZAbstractMutableString& ZLCString::replaceOther(const char* set, const char* to) {
    replaceCharacters(Characters::notIn, set, to);
    return *this;
}

ZLCString ZLCString::operator+(const char* text) const& { return ZLCString(*this) + text; }
ZLCString ZLCString::operator+(const ZLCString& other) const& { return ZLCString(*this) + other; }
ZLCString ZLCString::operator+(const ZLCConstString& other) const& {
    return ZLCString(*this) + other;
}
ZLCString ZLCString::operator+(const ZLCConstString& other) && { return std::move(*this += other); }

ZLCString ZLCString::subString(unsigned int start) const { return subString(start, getLength()); }

ZLCString ZLCString::subString(unsigned int start, unsigned int count) const {
    return start < getLength() ? ZLCString(getChars() + start, count) : ZLCString();
}
