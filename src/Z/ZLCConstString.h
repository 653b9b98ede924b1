/// A view of text in the local codeset.
#ifndef Z_ZLCCONSTSTRING_H
#define Z_ZLCCONSTSTRING_H

#include "Z/ztags.h"
//
#include "Z/ZAbstractConstString.h"
#include "Z/zexport.h"

class ZLCString;

/// Shows text in the local codeset that somebody else keeps. Assigning a string in another codeset
/// changes nothing.
class ZFC_API ZLCConstString : public ZAbstractConstString {
  public:
    /// Shows the empty text.
    ZLCConstString() = default;
    /// Null shows the empty text.
    ZLCConstString(const char* text) : ZAbstractConstString(text) {}
    ZLCConstString(const ZLCConstString& other) = default;
    ZLCConstString(const ZLCString& other);

    // in slot order: do not sort
    ~ZLCConstString() override;
    /// A string of the other family is converted first; one that cannot be is compared as bytes.
    [[nodiscard]] int compare(const ZObject& other) const override;
    /// Another view of the same text.
    [[nodiscard]] ZLCConstString* clone() const override;
    [[nodiscard]] int compare(const char* other) const override;
    [[nodiscard]] int compareignorecase(const char* other) const override;
    [[nodiscard]] ZCodesetHandle getCodesetHandle() const override;

    [[nodiscard]] int compare(const ZLCConstString& other) const {
        return compare(other.getChars());
    }
    [[nodiscard]] int compare(const ZLCString& other) const;
    [[nodiscard]] int compareignorecase(const ZLCConstString& other) const {
        return compareignorecase(other.getChars());
    }
    [[nodiscard]] int compareignorecase(const ZLCString& other) const;

    ZLCConstString& operator=(const ZLCConstString& other) = default;
    ZLCConstString& operator=(const ZAbstractString& other) {
        ZAbstractString::operator=(other);
        return *this;
    }
    ZLCConstString& operator=(const char* text) {
        ZAbstractConstString::operator=(text);
        return *this;
    }

    /// A new string: this text followed by the other; null adds nothing.
    [[nodiscard]] ZLCString operator+(const char* text) const;
    [[nodiscard]] ZLCString operator+(const ZLCConstString& other) const;
    [[nodiscard]] ZLCString operator+(const ZLCString& other) const;

    /// The bytes from `start` on, at most `count` of them; both are cut to the length. A copy,
    /// since a view of part of a text would not end in NUL.
    [[nodiscard]] ZLCString subString(unsigned int start) const;
    [[nodiscard]] ZLCString subString(unsigned int start, unsigned int count) const;
};

#endif
