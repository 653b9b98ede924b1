/// Owned, growable text in the local codeset.
#ifndef Z_ZLCSTRING_H
#define Z_ZLCSTRING_H

#include "Z/ztags.h"

#include <utility>

#include "Z/ZAbstractMutableString.h"
#include "Z/zexport.h"

class ZLCConstString;

/// A string in the local codeset. A `const char*` is taken to be in that codeset already; a string
/// of the other family is converted, and leaves this one empty when it cannot be (a character that
/// the local codeset lacks).
class ZFC_API ZLCString : public ZAbstractMutableString {
  public:
    ZLCString() = default;
    /// Null is empty text.
    ZLCString(char const* text) : ZAbstractMutableString(text) {}
    /// At most `maxLength` bytes of `text`.
    ZLCString(char const* text, unsigned int maxLength) : ZAbstractMutableString(text, maxLength) {}
    /// The same of a string of either family, converted.
    ZLCString(ZAbstractString const& other, unsigned int maxLength) {
        setChars(other);
        trunc(maxLength);
    }
    /// The one byte.
    explicit ZLCString(char c) : ZAbstractMutableString(c) {}
    /// The number as decimal text.
    explicit ZLCString(int number) : ZAbstractMutableString(number) {}
    explicit ZLCString(unsigned int number) : ZAbstractMutableString(number) {}
    explicit ZLCString(long number) : ZAbstractMutableString(number) {}
    explicit ZLCString(unsigned long number) : ZAbstractMutableString(number) {}
    ZLCString(ZLCString const& other) = default;
    ZLCString(ZLCString&& other) noexcept = default;
    /// Takes any string, of either family.
    ZLCString(ZAbstractString const& other) { setChars(other); }

    // in slot order: do not sort
    ~ZLCString() override;
    /// A string of the other family is converted first; one that cannot be is compared as bytes.
    [[nodiscard]] int compare(ZObject const& other) const override;
    [[nodiscard]] ZLCString* clone() const override;
    [[nodiscard]] int compare(char const* other) const override;
    [[nodiscard]] int compareignorecase(char const* other) const override;
    [[nodiscard]] ZCodesetHandle getCodesetHandle() const override;
    ZAbstractMutableString& replaceAll(char const* set, char to) override;
    ZAbstractMutableString& replaceAll(char const* set, char const* to) override;
    ZAbstractMutableString& replaceOther(char const* set, char const* to) override;

    /// The order of the texts, as compare(char const*) has it.
    [[nodiscard]] int compare(ZLCString const& other) const { return compare(other.getChars()); }
    [[nodiscard]] int compare(ZLCConstString const& other) const;
    /// The same without regard to case.
    [[nodiscard]] int compareignorecase(ZLCString const& other) const {
        return compareignorecase(other.getChars());
    }
    [[nodiscard]] int compareignorecase(ZLCConstString const& other) const;

    using ZAbstractString::operator==;
    using ZAbstractString::operator!=;
    /// Whether the bytes are the same.
    [[nodiscard]] bool operator==(ZLCString const& other) const { return hasBytesOf(other); }
    [[nodiscard]] bool operator!=(ZLCString const& other) const { return !hasBytesOf(other); }

    ZLCString& operator=(ZLCString const& other) = default;
    /// Takes the text over; `other` is empty afterwards.
    ZLCString& operator=(ZLCString&& other) noexcept {
        take(other);
        return *this;
    }
    /// As setChars(): a string of the other family is converted.
    ZLCString& operator=(ZAbstractString const& other) {
        ZAbstractString::operator=(other);
        return *this;
    }
    /// The bytes of `text`; null empties.
    ZLCString& operator=(char const* text) {
        setChars(text);
        return *this;
    }
    /// The one byte.
    ZLCString& operator=(char c) {
        ZAbstractMutableString::operator=(c);
        return *this;
    }
    /// Sets the number as decimal text.
    ZLCString& operator=(int number) {
        ZAbstractMutableString::operator=(number);
        return *this;
    }
    ZLCString& operator=(unsigned int number) {
        ZAbstractMutableString::operator=(number);
        return *this;
    }
    ZLCString& operator=(long number) {
        ZAbstractMutableString::operator=(number);
        return *this;
    }
    ZLCString& operator=(unsigned long number) {
        ZAbstractMutableString::operator=(number);
        return *this;
    }

    /// Adds one byte, or text, at the end; null adds nothing.
    ZLCString& operator+=(char c) {
        append(c);
        return *this;
    }
    ZLCString& operator+=(char const* text) {
        append(text);
        return *this;
    }
    /// Adds the bytes of `other`, no conversion.
    ZLCString& operator+=(ZAbstractString const& other) {
        ZAbstractMutableString::operator+=(other);
        return *this;
    }
    /// A number is no character: `s = n` gives its decimal text, and `s += char(n)` adds a byte.
    template <class Number, zfc::strings::IfNoByte<Number> = 0>
    void operator+=(Number) = delete;

    /// This text followed by the other, or by one character; null adds nothing.
    [[nodiscard]] ZLCString operator+(char const* text) const&;
    [[nodiscard]] ZLCString operator+(char character) const& {
        return ZLCString(*this) + character;
    }
    [[nodiscard]] ZLCString operator+(ZLCString const& other) const&;
    [[nodiscard]] ZLCString operator+(ZLCConstString const& other) const&;
    /// A temporary is extended, not copied.
    [[nodiscard]] ZLCString operator+(char const* text) && { return std::move(*this += text); }
    [[nodiscard]] ZLCString operator+(char character) && { return std::move(*this += character); }
    [[nodiscard]] ZLCString operator+(ZLCString const& other) && {
        return std::move(*this += other);
    }
    [[nodiscard]] ZLCString operator+(ZLCConstString const& other) &&;

    /// The bytes from `start` on, at most `count` of them; both are cut to the length.
    [[nodiscard]] ZLCString subString(unsigned int start) const;
    [[nodiscard]] ZLCString subString(unsigned int start, unsigned int count) const;
};

#endif
