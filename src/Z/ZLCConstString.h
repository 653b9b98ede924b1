/// A view of text in the local codeset.
#ifndef Z_ZLCCONSTSTRING_H
#define Z_ZLCCONSTSTRING_H

#include "Z/ztags.h"

#include "Z/ZAbstractConstString.h"
#include "Z/zexport.h"

class ZLCString;

/// Shows text in the local codeset that somebody else keeps. Assigning a string of the other family
/// changes nothing.
class ZFC_API ZLCConstString : public ZAbstractConstString {
  public:
    /// Shows the empty text.
    ZLCConstString() = default;
    /// Null shows the empty text.
    ZLCConstString(char const* text) : ZAbstractConstString(text) {}
    ZLCConstString(ZLCConstString const& other) = default;
    /// Shows the text of `other`, which outlives the view or stays unchanged.
    ZLCConstString(ZLCString const& other);

    // in slot order: do not sort
    ZFC_API ~ZLCConstString() override = default;
    /// A string of the other family is converted first; one that cannot be is compared as bytes.
    [[nodiscard]] int compare(ZObject const& other) const override;
    /// Another view of the same text.
    [[nodiscard]] ZLCConstString* clone() const override;
    [[nodiscard]] int compare(char const* other) const override;
    [[nodiscard]] int compareignorecase(char const* other) const override;
    [[nodiscard]] ZCodesetHandle getCodesetHandle() const override;

    /// The order of the texts, as compare(char const*) has it.
    [[nodiscard]] int compare(ZLCConstString const& other) const {
        return compare(other.getChars());
    }
    [[nodiscard]] int compare(ZLCString const& other) const;
    /// The same without regard to case.
    [[nodiscard]] int compareignorecase(ZLCConstString const& other) const {
        return compareignorecase(other.getChars());
    }
    [[nodiscard]] int compareignorecase(ZLCString const& other) const;

    ZLCConstString& operator=(ZLCConstString const& other) = default;
    /// Shows the text of `other` when it is of this family; else changes nothing.
    ZLCConstString& operator=(ZAbstractString const& other) {
        ZAbstractString::operator=(other);
        return *this;
    }
    /// Shows `text` from now on; null shows the empty text.
    ZLCConstString& operator=(char const* text) {
        ZAbstractConstString::operator=(text);
        return *this;
    }

    /// A new string: this text followed by the other, or by one character; null adds nothing.
    [[nodiscard]] ZLCString operator+(char const* text) const;
    [[nodiscard]] ZLCString operator+(char character) const;
    [[nodiscard]] ZLCString operator+(ZLCConstString const& other) const;
    [[nodiscard]] ZLCString operator+(ZLCString const& other) const;

    /// The bytes from `start` on, at most `count` of them; both are cut to the length. A copy,
    /// since a view of part of a text would not end in NUL.
    [[nodiscard]] ZLCString subString(unsigned int start) const;
    [[nodiscard]] ZLCString subString(unsigned int start, unsigned int count) const;
};

#endif
