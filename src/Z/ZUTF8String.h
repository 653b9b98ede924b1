/// Owned, growable text in UTF-8.
#ifndef Z_ZUTF8STRING_H
#define Z_ZUTF8STRING_H

#include "Z/ztags.h"
//
#include "Z/ZAbstractMutableString.h"
#include "Z/zexport.h"

#include <utility>

class ZUTF8ConstString;

/// A string in UTF-8. A `const char*` is taken to be in that codeset already; a string of the
/// other family is converted, and leaves this one empty when it cannot be (malformed text).
class ZFC_API ZUTF8String : public ZAbstractMutableString {
  public:
    ZUTF8String() = default;
    /// Null is empty text.
    ZUTF8String(const char* text) : ZAbstractMutableString(text) {}
    /// At most `maxLength` bytes of `text`.
    ZUTF8String(const char* text, unsigned int maxLength)
        : ZAbstractMutableString(text, maxLength) {}
    explicit ZUTF8String(char c) : ZAbstractMutableString(c) {}
    /// Decimal text.
    explicit ZUTF8String(int number) : ZAbstractMutableString(number) {}
    explicit ZUTF8String(unsigned int number) : ZAbstractMutableString(number) {}
    explicit ZUTF8String(long number) : ZAbstractMutableString(number) {}
    explicit ZUTF8String(unsigned long number) : ZAbstractMutableString(number) {}
    ZUTF8String(const ZUTF8String& other) = default;
    ZUTF8String(ZUTF8String&& other) noexcept = default;
    /// Any string, of either family.
    ZUTF8String(const ZAbstractString& other) { setChars(other); }

    // in slot order: do not sort
    ~ZUTF8String() override;
    /// A string of the other family is converted first; one that cannot be is compared as bytes.
    [[nodiscard]] int compare(const ZObject& other) const override;
    [[nodiscard]] ZUTF8String* clone() const override;
    [[nodiscard]] int compare(const char* other) const override;
    [[nodiscard]] int compareignorecase(const char* other) const override;
    [[nodiscard]] ZCodesetHandle getCodesetHandle() const override;
    /// A byte of 0x80 or above in `set` is no character and raises ZInvalidParameterException
    /// (message 22).
    ZAbstractMutableString& replaceAll(const char* set, char to) override;
    /// A `from` of 0x80 or above is no character and raises ZInvalidParameterException (message
    /// 22).
    ZAbstractMutableString& replace(char from, char to) override;
    ZAbstractMutableString& replace(const char* from, const char* to) override;
    ZAbstractMutableString& replaceAll(const char* set, const char* to) override;
    ZAbstractMutableString& replaceOther(const char* set, const char* to) override;

    [[nodiscard]] int compare(const ZUTF8String& other) const { return compare(other.getChars()); }
    [[nodiscard]] int compare(const ZUTF8ConstString& other) const;
    [[nodiscard]] int compareignorecase(const ZUTF8String& other) const {
        return compareignorecase(other.getChars());
    }
    [[nodiscard]] int compareignorecase(const ZUTF8ConstString& other) const;

    /// Case mapping in place: leading ASCII directly, the rest as in ZAbstractMutableString.
    ZUTF8String& lower();
    ZUTF8String& upper();

    using ZAbstractString::operator==;
    using ZAbstractString::operator!=;
    [[nodiscard]] bool operator==(const ZUTF8String& other) const { return hasBytesOf(other); }
    [[nodiscard]] bool operator!=(const ZUTF8String& other) const { return !hasBytesOf(other); }

    ZUTF8String& operator=(const ZUTF8String& other) = default;
    ZUTF8String& operator=(ZUTF8String&& other) noexcept {
        take(other);
        return *this;
    }
    ZUTF8String& operator=(const ZAbstractString& other) {
        ZAbstractString::operator=(other);
        return *this;
    }
    ZUTF8String& operator=(const char* text) {
        setChars(text);
        return *this;
    }
    ZUTF8String& operator=(char c) {
        ZAbstractMutableString::operator=(c);
        return *this;
    }
    /// Decimal text.
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

    ZUTF8String& operator+=(char c) {
        append(c);
        return *this;
    }
    ZUTF8String& operator+=(const char* text) {
        append(text);
        return *this;
    }
    /// Adds the bytes of `other`, no conversion.
    ZUTF8String& operator+=(const ZAbstractString& other) {
        ZAbstractMutableString::operator+=(other);
        return *this;
    }

    /// This text followed by the other; null adds nothing.
    [[nodiscard]] ZUTF8String operator+(const char* text) const&;
    [[nodiscard]] ZUTF8String operator+(const ZUTF8String& other) const&;
    [[nodiscard]] ZUTF8String operator+(const ZUTF8ConstString& other) const&;
    // A temporary is extended, not copied.
    [[nodiscard]] ZUTF8String operator+(const char* text) && { return std::move(*this += text); }
    [[nodiscard]] ZUTF8String operator+(const ZUTF8String& other) && {
        return std::move(*this += other);
    }
    [[nodiscard]] ZUTF8String operator+(const ZUTF8ConstString& other) &&;

    /// The bytes from `start` on, at most `count` of them; both are cut to the length.
    [[nodiscard]] ZUTF8String subString(unsigned int start) const;
    [[nodiscard]] ZUTF8String subString(unsigned int start, unsigned int count) const;
};

#endif
