/// Owned, growable text in the local codeset.
#ifndef Z_ZLCSTRING_H
#define Z_ZLCSTRING_H

#include "Z/ztags.h"
//
#include "Z/ZAbstractMutableString.h"
#include "Z/zexport.h"

#include <utility>

class ZLCConstString;

/// A string in the local codeset. A `const char*` is taken to be in that codeset already; a string
/// of the other family is converted, and leaves this one empty when it cannot be (a character that
/// the local codeset lacks).
class ZFC_API ZLCString : public ZAbstractMutableString {
  public:
    ZLCString() = default;
    /// Null is empty text.
    ZLCString(const char* text) : ZAbstractMutableString(text) {}
    /// At most `maxLength` bytes of `text`.
    ZLCString(const char* text, unsigned int maxLength) : ZAbstractMutableString(text, maxLength) {}
    explicit ZLCString(char c) : ZAbstractMutableString(c) {}
    /// Decimal text.
    explicit ZLCString(int number) : ZAbstractMutableString(number) {}
    explicit ZLCString(unsigned int number) : ZAbstractMutableString(number) {}
    explicit ZLCString(long number) : ZAbstractMutableString(number) {}
    explicit ZLCString(unsigned long number) : ZAbstractMutableString(number) {}
    ZLCString(const ZLCString& other) = default;
    ZLCString(ZLCString&& other) noexcept = default;
    /// Any string, of either family.
    ZLCString(const ZAbstractString& other) { setChars(other); }

    // in slot order: do not sort
    ~ZLCString() override;
    /// A string of the other family is converted first; one that cannot be is compared as bytes.
    [[nodiscard]] int compare(const ZObject& other) const override;
    [[nodiscard]] ZLCString* clone() const override;
    [[nodiscard]] int compare(const char* other) const override;
    [[nodiscard]] int compareignorecase(const char* other) const override;
    [[nodiscard]] ZCodesetHandle getCodesetHandle() const override;
    ZAbstractMutableString& replaceAll(const char* set, char to) override;
    ZAbstractMutableString& replaceAll(const char* set, const char* to) override;
    ZAbstractMutableString& replaceOther(const char* set, const char* to) override;

    [[nodiscard]] int compare(const ZLCString& other) const { return compare(other.getChars()); }
    [[nodiscard]] int compare(const ZLCConstString& other) const;
    [[nodiscard]] int compareignorecase(const ZLCString& other) const {
        return compareignorecase(other.getChars());
    }
    [[nodiscard]] int compareignorecase(const ZLCConstString& other) const;

    using ZAbstractString::operator==;
    using ZAbstractString::operator!=;
    [[nodiscard]] bool operator==(const ZLCString& other) const { return hasBytesOf(other); }
    [[nodiscard]] bool operator!=(const ZLCString& other) const { return !hasBytesOf(other); }

    ZLCString& operator=(const ZLCString& other) = default;
    ZLCString& operator=(ZLCString&& other) noexcept {
        take(other);
        return *this;
    }
    ZLCString& operator=(const ZAbstractString& other) {
        ZAbstractString::operator=(other);
        return *this;
    }
    ZLCString& operator=(const char* text) {
        setChars(text);
        return *this;
    }
    ZLCString& operator=(char c) {
        ZAbstractMutableString::operator=(c);
        return *this;
    }
    /// Decimal text.
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

    ZLCString& operator+=(char c) {
        append(c);
        return *this;
    }
    ZLCString& operator+=(const char* text) {
        append(text);
        return *this;
    }
    /// Adds the bytes of `other`, no conversion.
    ZLCString& operator+=(const ZAbstractString& other) {
        ZAbstractMutableString::operator+=(other);
        return *this;
    }

    /// This text followed by the other; null adds nothing.
    [[nodiscard]] ZLCString operator+(const char* text) const&;
    [[nodiscard]] ZLCString operator+(const ZLCString& other) const&;
    [[nodiscard]] ZLCString operator+(const ZLCConstString& other) const&;
    // A temporary is extended, not copied.
    [[nodiscard]] ZLCString operator+(const char* text) && { return std::move(*this += text); }
    [[nodiscard]] ZLCString operator+(const ZLCString& other) && {
        return std::move(*this += other);
    }
    [[nodiscard]] ZLCString operator+(const ZLCConstString& other) &&;

    /// The bytes from `start` on, at most `count` of them; both are cut to the length.
    [[nodiscard]] ZLCString subString(unsigned int start) const;
    [[nodiscard]] ZLCString subString(unsigned int start, unsigned int count) const;
};

#endif
