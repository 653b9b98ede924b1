#include "Z/ZLCConstString.h"

#include "Z/ZLCString.h"

ZLCConstString::ZLCConstString(const ZLCString& other) : ZAbstractConstString(other.getChars()) {}

ZLCConstString::~ZLCConstString() = default;

int ZLCConstString::compare(const ZObject& other) const {
    return foreignText(other) != nullptr ? ZLCString(*this).compare(other)
                                         : ZAbstractString::compare(other);
}

ZLCConstString* ZLCConstString::clone() const { return new ZLCConstString(*this); }

int ZLCConstString::compare(const char* other) const { return ZAbstractString::compare(other); }
int ZLCConstString::compareignorecase(const char* other) const {
    return ZAbstractString::compareignorecase(other);
}
int ZLCConstString::compare(const ZLCString& other) const { return compare(other.getChars()); }
int ZLCConstString::compareignorecase(const ZLCString& other) const {
    return compareignorecase(other.getChars());
}

ZCodesetHandle ZLCConstString::getCodesetHandle() const { return localHandle(); }

ZLCString ZLCConstString::operator+(const char* text) const { return ZLCString(*this) + text; }
ZLCString ZLCConstString::operator+(const ZLCConstString& other) const {
    return ZLCString(*this) + other;
}
ZLCString ZLCConstString::operator+(const ZLCString& other) const {
    return ZLCString(*this) + other;
}

ZLCString ZLCConstString::subString(unsigned int start) const {
    return subString(start, getLength());
}

ZLCString ZLCConstString::subString(unsigned int start, unsigned int count) const {
    return start < getLength() ? ZLCString(getChars() + start, count) : ZLCString();
}
