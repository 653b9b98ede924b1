#include "Z/ZLCConstString.h"

#include "Z/ZLCString.h"

ZLCConstString::ZLCConstString(ZLCString const& other) : ZAbstractConstString(other.getChars()) {}

int ZLCConstString::compare(ZObject const& other) const {
    // A view cannot convert; its owning twin can.
    return foreignText(other) != nullptr ? ZLCString(*this).compare(other)
                                         : ZAbstractString::compare(other);
}

ZLCConstString* ZLCConstString::clone() const { return new ZLCConstString(*this); }

int ZLCConstString::compare(char const* other) const { return ZAbstractString::compare(other); }
int ZLCConstString::compareignorecase(char const* other) const {
    return ZAbstractString::compareignorecase(other);
}
int ZLCConstString::compare(ZLCString const& other) const { return compare(other.getChars()); }
int ZLCConstString::compareignorecase(ZLCString const& other) const {
    return compareignorecase(other.getChars());
}

ZCodesetHandle ZLCConstString::getCodesetHandle() const { return localHandle(); }

ZLCString ZLCConstString::operator+(char const* text) const { return ZLCString(*this) + text; }
ZLCString ZLCConstString::operator+(char character) const { return ZLCString(*this) + character; }
ZLCString ZLCConstString::operator+(ZLCConstString const& other) const {
    return ZLCString(*this) + other;
}
ZLCString ZLCConstString::operator+(ZLCString const& other) const {
    return ZLCString(*this) + other;
}

ZLCString ZLCConstString::subString(unsigned int start) const {
    return subString(start, getLength());
}

ZLCString ZLCConstString::subString(unsigned int start, unsigned int count) const {
    return start < getLength() ? ZLCString(getChars() + start, count) : ZLCString();
}
