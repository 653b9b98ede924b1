#include "Z/ZUTF8ConstString.h"

#include "Z/ZUTF8String.h"

ZUTF8ConstString::ZUTF8ConstString(ZUTF8String const& other)
    : ZAbstractConstString(other.getChars()) {}

int ZUTF8ConstString::compare(ZObject const& other) const {
    // A view cannot convert; its owning twin can.
    return foreignText(other) != nullptr ? ZUTF8String(*this).compare(other)
                                         : ZAbstractString::compare(other);
}

ZUTF8ConstString* ZUTF8ConstString::clone() const { return new ZUTF8ConstString(*this); }

int ZUTF8ConstString::compare(char const* other) const { return ZAbstractString::compare(other); }
int ZUTF8ConstString::compareignorecase(char const* other) const {
    return ZAbstractString::compareignorecase(other);
}
int ZUTF8ConstString::compare(ZUTF8String const& other) const { return compare(other.getChars()); }
int ZUTF8ConstString::compareignorecase(ZUTF8String const& other) const {
    return compareignorecase(other.getChars());
}

ZCodesetHandle ZUTF8ConstString::getCodesetHandle() const { return utf8Handle(); }

ZUTF8String ZUTF8ConstString::operator+(char const* text) const {
    return ZUTF8String(*this) + text;
}
ZUTF8String ZUTF8ConstString::operator+(char character) const {
    return ZUTF8String(*this) + character;
}
ZUTF8String ZUTF8ConstString::operator+(ZUTF8ConstString const& other) const {
    return ZUTF8String(*this) + other;
}
ZUTF8String ZUTF8ConstString::operator+(ZUTF8String const& other) const {
    return ZUTF8String(*this) + other;
}

ZUTF8String ZUTF8ConstString::subString(unsigned int start) const {
    return subString(start, getLength());
}

ZUTF8String ZUTF8ConstString::subString(unsigned int start, unsigned int count) const {
    return start < getLength() ? ZUTF8String(getChars() + start, count) : ZUTF8String();
}
