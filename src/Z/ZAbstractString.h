/// The read-only face of every string: searching, comparing and hashing.
#ifndef Z_ZABSTRACTSTRING_H
#define Z_ZABSTRACTSTRING_H

#include "Z/ztags.h"

#include <atomic>
#include <type_traits>

#include "Z/ZObject.h"
#include "Z/zexport.h"
#include "Z/zqcsutil.h"

namespace zfc::strings {

/// `Result` for a number, a character or an enumerator.
template <class Operand, class Result = int>
using IfNumber = std::enable_if_t<std::is_arithmetic_v<Operand> || std::is_enum_v<Operand>, Result>;

/// Whether the type is one of the three of one byte.
template <class Operand>
inline constexpr bool isByte =
    std::is_same_v<Operand, char> || std::is_same_v<Operand, signed char> ||
    std::is_same_v<Operand, unsigned char>;

/// The same without characters of one byte.
template <class Operand>
using IfNoByte = std::enable_if_t<!isByte<Operand>, IfNumber<Operand>>;

}  // namespace zfc::strings

/// Text of a known codeset, read as bytes that end at a NUL.
///
/// Every concrete class belongs to one of two families, the process's local codeset or UTF-8, and
/// says which through getCodesetHandle(). The first string of a process sets the codesets up;
/// without them the process ends there (see zqcsutil.h).
///
/// What holds for all strings: lengths and offsets are bytes, only getCharCount() counts
/// characters; a `const char*` argument is NUL-terminated text in this string's codeset, read
/// during the call only; null stands for no text and is never read, each operation says what it
/// answers then. Nothing is locked: a string is used by one thread at a time.
class ZFC_API ZAbstractString : public ZObject {
  public:
    // in slot order: do not sort
    ~ZAbstractString() override;
    /// A 32-bit hash of the bytes: from 5381 on, h * 33 XOR byte (D. J. Bernstein's string hash).
    [[nodiscard]] unsigned long hash() const override;
    /// With a string: compare() of its text, which a concrete class converts first when it is of
    /// the other family. With any other object: ZObject::compare(), by address.
    [[nodiscard]] int compare(ZObject const& other) const override;
    [[nodiscard]] ZObject* clone() const override = 0;
    /// Whether `other` is a string of the same bytes, whatever its family. Never converts, so it
    /// agrees with hash().
    [[nodiscard]] bool equals(ZObject const& other) const override;
    /// The collation order of the process's locale (POSIX strcoll): negative, 0 or positive. Null
    /// is empty text.
    [[nodiscard]] virtual int compare(char const* other) const;
    /// As compare(), without regard to case (zstricmp() in this string's codeset).
    [[nodiscard]] virtual int compareignorecase(char const* other) const;
    /// The text; never null. It belongs to the string and lives until its next change.
    [[nodiscard]] virtual char const* getChars() const = 0;
    /// Makes this string show the text of `other`; each class says how.
    virtual void setChars(ZAbstractString const& other) = 0;
    /// Length in bytes.
    [[nodiscard]] virtual unsigned int getLength() const = 0;
    /// Number of characters up to the end or the first malformed one.
    [[nodiscard]] virtual int getCharCount() const;
    /// Whether the byte `c` (the text `text`) occurs. False for null. These two and the
    /// four searches below compare bytes, as ISO C strchr and strstr do.
    [[nodiscard]] virtual bool contains(int c) const;
    [[nodiscard]] virtual bool contains(char const* text) const;
    /// Offset of the first hit at or after `from`, which is cut to the length; -1 when there is
    /// none, and for null. A `c` of 0 is found at the end. An offset above INT_MAX raises
    /// ZOutOfMemoryException (message 1).
    [[nodiscard]] virtual int indexOf(int c, unsigned int from = 0) const;
    [[nodiscard]] virtual int indexOf(char const* text, unsigned int from = 0) const;
    /// Offset of the last hit, else as indexOf(). Searching a byte in a codeset with multibyte
    /// characters steps over the character at each hit; a malformed one there raises
    /// ZQCSMBLenException (message 46).
    [[nodiscard]] virtual int lastIndexOf(int c) const;
    [[nodiscard]] virtual int lastIndexOf(char const* text) const;
    /// True for null; false when this string is empty, even for empty `text`.
    [[nodiscard]] virtual bool beginsWith(char const* text) const;
    /// True for null; false for empty `text`.
    [[nodiscard]] virtual bool endsWith(char const* text) const;
    /// Whether the bytes are the same; false for null.
    [[nodiscard]] virtual bool equals(char const* other) const;
    /// Whether the length is 0.
    [[nodiscard]] virtual bool isEmpty() const;
    /// The same as getChars().
    [[nodiscard]] virtual operator char const*() const;
    /// The same as getChars(), under the name of ISO C++.
    [[nodiscard]] virtual char const* data() const;
    /// The codeset of the text: the class-wide handle of this string's family.
    [[nodiscard]] virtual ZCodesetHandle getCodesetHandle() const = 0;

    /// As beginsWith(char const*) with the bytes of `other`, no conversion.
    [[nodiscard]] bool beginsWith(ZAbstractString const& other) const;
    /// As endsWith(char const*) with the bytes of `other`, no conversion.
    [[nodiscard]] bool endsWith(ZAbstractString const& other) const;
    /// Without regard to case (zstrnicmp() in this string's codeset); false when `other` is empty.
    [[nodiscard]] bool beginsWithCaseIgnored(ZAbstractString const& other) const;
    /// The same at the end.
    [[nodiscard]] bool endsWithCaseIgnored(ZAbstractString const& other) const;

    /// setChars(); assigning a string to itself does nothing.
    ZAbstractString& operator=(ZAbstractString const& other) {
        if (this != &other) setChars(other);
        return *this;
    }

    using ZObject::operator==;
    using ZObject::operator!=;
    using ZObject::operator<;
    using ZObject::operator>;
    using ZObject::operator<=;
    using ZObject::operator>=;
    /// By content: the same bytes in one family, else compare() after conversion.
    [[nodiscard]] bool operator==(ZAbstractString const& other) const;
    [[nodiscard]] bool operator!=(ZAbstractString const& other) const { return !(*this == other); }
    [[nodiscard]] bool operator==(char const* other) const { return equals(other); }
    [[nodiscard]] bool operator!=(char const* other) const { return !equals(other); }
    /// The order is that of compare(). Text has operators of its own, since without them `s < "x"`
    /// would compare addresses by way of the conversion.
    [[nodiscard]] bool operator<(ZAbstractString const& other) const {
        return ZObject::operator<(other);
    }
    [[nodiscard]] bool operator>(ZAbstractString const& other) const {
        return ZObject::operator>(other);
    }
    [[nodiscard]] bool operator<=(ZAbstractString const& other) const {
        return ZObject::operator<=(other);
    }
    [[nodiscard]] bool operator>=(ZAbstractString const& other) const {
        return ZObject::operator>=(other);
    }
    [[nodiscard]] bool operator<(char const* other) const { return compare(other) < 0; }
    [[nodiscard]] bool operator>(char const* other) const { return compare(other) > 0; }
    [[nodiscard]] bool operator<=(char const* other) const { return compare(other) <= 0; }
    [[nodiscard]] bool operator>=(char const* other) const { return compare(other) >= 0; }
    /// The same with the text on the left.
    [[nodiscard]] friend bool operator==(char const* a, ZAbstractString const& b) { return b == a; }
    [[nodiscard]] friend bool operator!=(char const* a, ZAbstractString const& b) { return b != a; }
    [[nodiscard]] friend bool operator<(char const* a, ZAbstractString const& b) { return b > a; }
    [[nodiscard]] friend bool operator>(char const* a, ZAbstractString const& b) { return b < a; }
    [[nodiscard]] friend bool operator<=(char const* a, ZAbstractString const& b) { return b >= a; }
    [[nodiscard]] friend bool operator>=(char const* a, ZAbstractString const& b) { return b <= a; }

    // What would ask or move the address of the text, by way of the conversion, not the text. ISO
    // C++ takes the number 0 for a null pointer: `s == 0` would be false for every string.
    explicit operator bool() const = delete;
    template <class Number, zfc::strings::IfNumber<Number> = 0>
    bool operator==(Number) const = delete;
    template <class Number, zfc::strings::IfNumber<Number> = 0>
    bool operator!=(Number) const = delete;
    template <class Number, zfc::strings::IfNumber<Number> = 0>
    bool operator<(Number) const = delete;
    template <class Number, zfc::strings::IfNumber<Number> = 0>
    bool operator>(Number) const = delete;
    template <class Number, zfc::strings::IfNumber<Number> = 0>
    bool operator<=(Number) const = delete;
    template <class Number, zfc::strings::IfNumber<Number> = 0>
    bool operator>=(Number) const = delete;
    template <class Number>
    friend zfc::strings::IfNumber<Number, bool> operator==(Number, ZAbstractString const&) = delete;
    template <class Number>
    friend zfc::strings::IfNumber<Number, bool> operator!=(Number, ZAbstractString const&) = delete;
    template <class Number>
    friend zfc::strings::IfNumber<Number, bool> operator<(Number, ZAbstractString const&) = delete;
    template <class Number>
    friend zfc::strings::IfNumber<Number, bool> operator>(Number, ZAbstractString const&) = delete;
    template <class Number>
    friend zfc::strings::IfNumber<Number, bool> operator<=(Number, ZAbstractString const&) = delete;
    template <class Number>
    friend zfc::strings::IfNumber<Number, bool> operator>=(Number, ZAbstractString const&) = delete;
    template <class Number>
    friend zfc::strings::IfNumber<Number, void> operator+(ZAbstractString const&, Number) = delete;
    template <class Number>
    friend zfc::strings::IfNumber<Number, void> operator+(Number, ZAbstractString const&) = delete;
    template <class Other>
    friend void operator-(ZAbstractString const&, Other const&) = delete;

  protected:
    ZAbstractString() {
        // Acquire pairs with the release that publishes both handles, this one last.
        if (utf8_handle_.load(std::memory_order_acquire) == 0) fetchHandles();
    }
    /// For the copies of derived classes, which take the text themselves.
    ZAbstractString(ZAbstractString const& other) : ZObject(other) {}

    /// UTF-8, class-wide.
    [[nodiscard]] static ZCodesetHandle utf8Handle() {
        return utf8_handle_.load(std::memory_order_relaxed);
    }
    /// The local codeset, class-wide.
    [[nodiscard]] static ZCodesetHandle localHandle() {
        return lcs_handle_.load(std::memory_order_relaxed);
    }
    /// `other` as a string of another codeset than this one's; null when it is no such thing.
    [[nodiscard]] ZAbstractString const* foreignText(ZObject const& other) const;
    /// Whether `other` is of the other family, which in a UTF-8 locale has the same codeset, or of
    /// another codeset.
    [[nodiscard]] bool isOfOtherFamily(ZAbstractString const& other) const;

    static std::atomic<ZCodesetHandle> utf8_handle_;  // UTF-8; 0 before the first string
    static std::atomic<ZCodesetHandle> lcs_handle_;  // the local codeset; 0 before the first string

  private:
    static void fetchHandles();
    [[nodiscard]] int lastCharacter(int c) const;
};

#endif
