/// Owned, growable text in UTF-8.
#ifndef Z_ZUTF8STRING_H
#define Z_ZUTF8STRING_H

#include "Z/ztags.h"

#include <utility>

#include "Z/ZAbstractMutableString.h"
#include "Z/zexport.h"

class ZUTF8ConstString;

/// A string in UTF-8. A `const char*` is taken to be in that codeset already; a string of the
/// other family is converted, and leaves this one empty when it cannot be (malformed text).
class ZFC_API ZUTF8String : public ZAbstractMutableString {
  public:
    ZUTF8String() = default;
    /// Null is empty text.
    ZUTF8String(char const* text) : ZAbstractMutableString(text) {}
    /// At most `maxLength` bytes of `text`.
    ZUTF8String(char const* text, unsigned int maxLength)
        : ZAbstractMutableString(text, maxLength) {}
    /// The same of a string of either family, converted.
    ZUTF8String(ZAbstractString const& other, unsigned int maxLength) {
        setChars(other);
        trunc(maxLength);
    }
    /// The one byte.
    explicit ZUTF8String(char c) : ZAbstractMutableString(c) {}
    /// The number as decimal text.
    explicit ZUTF8String(int number) : ZAbstractMutableString(number) {}
    explicit ZUTF8String(unsigned int number) : ZAbstractMutableString(number) {}
    explicit ZUTF8String(long number) : ZAbstractMutableString(number) {}
    explicit ZUTF8String(unsigned long number) : ZAbstractMutableString(number) {}
    ZUTF8String(ZUTF8String const& other) = default;
    ZUTF8String(ZUTF8String&& other) noexcept = default;
    /// Takes any string, of either family.
    ZUTF8String(ZAbstractString const& other) { setChars(other); }

    // in slot order: do not sort
    ~ZUTF8String() override;
    /// A string of the other family is converted first; one that cannot be is compared as bytes.
    [[nodiscard]] int compare(ZObject const& other) const override;
    [[nodiscard]] ZUTF8String* clone() const override;
    [[nodiscard]] int compare(char const* other) const override;
    [[nodiscard]] int compareignorecase(char const* other) const override;
    [[nodiscard]] ZCodesetHandle getCodesetHandle() const override;
    /// A byte of 0x80 or above in `set` is no character and raises ZInvalidParameterException
    /// (message 22).
    ZAbstractMutableString& replaceAll(char const* set, char to) override;
    /// A `from` of 0x80 or above is no character and raises ZInvalidParameterException (message
    /// 22).
    ZAbstractMutableString& replace(char from, char to) override;
    ZAbstractMutableString& replace(char const* from, char const* to) override;
    ZAbstractMutableString& replaceAll(char const* set, char const* to) override;
    ZAbstractMutableString& replaceOther(char const* set, char const* to) override;

    /// The order of the texts, as compare(char const*) has it.
    [[nodiscard]] int compare(ZUTF8String const& other) const { return compare(other.getChars()); }
    [[nodiscard]] int compare(ZUTF8ConstString const& other) const;
    /// The same without regard to case.
    [[nodiscard]] int compareignorecase(ZUTF8String const& other) const {
        return compareignorecase(other.getChars());
    }
    [[nodiscard]] int compareignorecase(ZUTF8ConstString const& other) const;

    /// Case mapping in place: leading ASCII directly, the rest as in ZAbstractMutableString.
    ZUTF8String& lower();
    /// The same into upper case.
    ZUTF8String& upper();

    using ZAbstractString::operator==;
    using ZAbstractString::operator!=;
    /// Whether the bytes are the same.
    [[nodiscard]] bool operator==(ZUTF8String const& other) const { return hasBytesOf(other); }
    [[nodiscard]] bool operator!=(ZUTF8String const& other) const { return !hasBytesOf(other); }

    ZUTF8String& operator=(ZUTF8String const& other) = default;
    /// Takes the text over; `other` is empty afterwards.
    ZUTF8String& operator=(ZUTF8String&& other) noexcept {
        take(other);
        return *this;
    }
    /// As setChars(): a string of the other family is converted.
    ZUTF8String& operator=(ZAbstractString const& other) {
        ZAbstractString::operator=(other);
        return *this;
    }
    /// The bytes of `text`; null empties.
    ZUTF8String& operator=(char const* text) {
        setChars(text);
        return *this;
    }
    /// The one byte.
    ZUTF8String& operator=(char c) {
        ZAbstractMutableString::operator=(c);
        return *this;
    }
    /// Sets the number as decimal text.
    ZUTF8String& operator=(int number) {
        ZAbstractMutableString::operator=(number);
        return *this;
    }
    ZUTF8String& operator=(unsigned int number) {
        ZAbstractMutableString::operator=(number);
        return *this;
    }
    ZUTF8String& operator=(long number) {
        ZAbstractMutableString::operator=(number);
        return *this;
    }
    ZUTF8String& operator=(unsigned long number) {
        ZAbstractMutableString::operator=(number);
        return *this;
    }

    /// Adds one byte, or text, at the end; null adds nothing.
    ZUTF8String& operator+=(char c) {
        append(c);
        return *this;
    }
    ZUTF8String& operator+=(char const* text) {
        append(text);
        return *this;
    }
    /// Adds the bytes of `other`, no conversion.
    ZUTF8String& operator+=(ZAbstractString const& other) {
        ZAbstractMutableString::operator+=(other);
        return *this;
    }
    /// A number is no character: `s = n` gives its decimal text, and `s += char(n)` adds a byte.
    template <class Number, zfc::strings::IfNoByte<Number> = 0>
    void operator+=(Number) = delete;

    /// This text followed by the other, or by one character; null adds nothing.
    [[nodiscard]] ZUTF8String operator+(char const* text) const&;
    [[nodiscard]] ZUTF8String operator+(char character) const& {
        return ZUTF8String(*this) + character;
    }
    [[nodiscard]] ZUTF8String operator+(ZUTF8String const& other) const&;
    [[nodiscard]] ZUTF8String operator+(ZUTF8ConstString const& other) const&;
    /// A temporary is extended, not copied.
    [[nodiscard]] ZUTF8String operator+(char const* text) && { return std::move(*this += text); }
    [[nodiscard]] ZUTF8String operator+(char character) && { return std::move(*this += character); }
    [[nodiscard]] ZUTF8String operator+(ZUTF8String const& other) && {
        return std::move(*this += other);
    }
    [[nodiscard]] ZUTF8String operator+(ZUTF8ConstString const& other) &&;

    /// The bytes from `start` on, at most `count` of them; both are cut to the length.
    [[nodiscard]] ZUTF8String subString(unsigned int start) const;
    [[nodiscard]] ZUTF8String subString(unsigned int start, unsigned int count) const;
};

#endif
