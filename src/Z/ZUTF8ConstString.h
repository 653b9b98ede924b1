/// A view of text in UTF-8.
#ifndef Z_ZUTF8CONSTSTRING_H
#define Z_ZUTF8CONSTSTRING_H

#include "Z/ztags.h"

#include "Z/ZAbstractConstString.h"
#include "Z/zexport.h"

class ZUTF8String;

/// Shows text in UTF-8 that somebody else keeps. Assigning a string of the other family
/// changes nothing.
class ZFC_API ZUTF8ConstString : public ZAbstractConstString {
  public:
    /// Shows the empty text.
    ZUTF8ConstString() = default;
    /// Null shows the empty text.
    ZUTF8ConstString(char const* text) : ZAbstractConstString(text) {}
    ZUTF8ConstString(ZUTF8ConstString const& other) = default;
    /// Shows the text of `other`, which outlives the view or stays unchanged.
    ZUTF8ConstString(ZUTF8String const& other);

    // in slot order: do not sort
    ZFC_API ~ZUTF8ConstString() override = default;
    /// A string of the other family is converted first; one that cannot be is compared as bytes.
    [[nodiscard]] int compare(ZObject const& other) const override;
    /// Another view of the same text.
    [[nodiscard]] ZUTF8ConstString* clone() const override;
    [[nodiscard]] int compare(char const* other) const override;
    [[nodiscard]] int compareignorecase(char const* other) const override;
    [[nodiscard]] ZCodesetHandle getCodesetHandle() const override;

    /// The order of the texts, as compare(char const*) has it.
    [[nodiscard]] int compare(ZUTF8ConstString const& other) const {
        return compare(other.getChars());
    }
    [[nodiscard]] int compare(ZUTF8String const& other) const;
    /// The same without regard to case.
    [[nodiscard]] int compareignorecase(ZUTF8ConstString const& other) const {
        return compareignorecase(other.getChars());
    }
    [[nodiscard]] int compareignorecase(ZUTF8String const& other) const;

    ZUTF8ConstString& operator=(ZUTF8ConstString const& other) = default;
    /// Shows the text of `other` when it is of this family; else changes nothing.
    ZUTF8ConstString& operator=(ZAbstractString const& other) {
        ZAbstractString::operator=(other);
        return *this;
    }
    /// Shows `text` from now on; null shows the empty text.
    ZUTF8ConstString& operator=(char const* text) {
        ZAbstractConstString::operator=(text);
        return *this;
    }

    /// A new string: this text followed by the other, or by one character; null adds nothing.
    [[nodiscard]] ZUTF8String operator+(char const* text) const;
    [[nodiscard]] ZUTF8String operator+(char character) const;
    [[nodiscard]] ZUTF8String operator+(ZUTF8ConstString const& other) const;
    [[nodiscard]] ZUTF8String operator+(ZUTF8String const& other) const;

    /// The bytes from `start` on, at most `count` of them; both are cut to the length. A copy,
    /// since a view of part of a text would not end in NUL.
    [[nodiscard]] ZUTF8String subString(unsigned int start) const;
    [[nodiscard]] ZUTF8String subString(unsigned int start, unsigned int count) const;
};

#endif
