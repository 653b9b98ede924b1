/// A string that owns its text and can be edited.
#ifndef Z_ZABSTRACTMUTABLESTRING_H
#define Z_ZABSTRACTMUTABLESTRING_H

#include "Z/ztags.h"

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iosfwd>

#include "Z/ZAbstractString.h"
#include "Z/zexport.h"

class ZStringIterator;
class ZStringTokenizer;

/// A growable text, kept inside the object up to 95 bytes and on the heap beyond.
///
/// Arguments of every operation may point into the string itself. Positions are bytes, and an edit
/// at a position inside a multibyte character cuts it: the caller chooses positions. Growth past
/// what 32 bits or the memory hold raises ZOutOfMemoryException (message 1) before anything
/// changes. The editing operations return the string itself.
class ZFC_API ZAbstractMutableString : public ZAbstractString {
  public:
    // in slot order: do not sort
    ~ZAbstractMutableString() override { release(); }
    [[nodiscard]] ZFC_API char const* getChars() const override { return chars; }
    /// Replaces the contents by the text of `other`, converted when it is of the other family,
    /// which in a UTF-8 locale is a check alone; what cannot be converted leaves an empty string.
    void setChars(ZAbstractString const& other) override;
    [[nodiscard]] ZFC_API unsigned int getLength() const override { return length; }
    /// Replaces every byte that occurs in `set` by `to`. Null and empty sets replace nothing.
    virtual ZAbstractMutableString& replaceAll(char const* set, char to);
    /// Replaces every byte `from` by `to`.
    virtual ZAbstractMutableString& replace(char from, char to);
    /// Replaces every occurrence of `from`, found from left to right and never inside a multibyte
    /// character, by `to`. Null or empty `from` replaces nothing; null `to` is empty text.
    virtual ZAbstractMutableString& replace(char const* from, char const* to);
    /// Replaces every character that occurs in `set` by `to`. A malformed character in `set` raises
    /// ZQCSMBLenException (message 46). Null as for replace().
    virtual ZAbstractMutableString& replaceAll(char const* set, char const* to) = 0;
    /// Replaces every character that does not occur in `set` by `to`. A malformed character in this
    /// string or in `set` raises ZQCSMBLenException (message 46). A null `set` is empty: every
    /// character is replaced; null `to` is empty text.
    virtual ZAbstractMutableString& replaceOther(char const* set, char const* to) = 0;
    /// Removes leading (trailing) white space: single-byte characters for which ISO C isspace
    /// holds.
    virtual ZAbstractMutableString& stripLeading();
    /// The same at the end.
    virtual ZAbstractMutableString& stripTrailing();
    /// Replaces the contents by `source`, converted from its codeset into this one. An empty source
    /// changes nothing; one that cannot be converted leaves an empty string. The capacity becomes
    /// at least three times the source's bytes and one for UTF-8, twice and one for the local
    /// codeset.
    virtual void convertFromCodeSet(ZAbstractString const& source);

    /// Back to a new string: empty, capacity 95, nothing on the heap.
    void init();
    /// Empties the string; capacity and buffer stay.
    void clear() { setLength(0); }
    /// Bytes that the buffer holds, not counting the NUL; at least 95.
    [[nodiscard]] unsigned int getCapacity() const { return capacity; }
    /// The capacity of a new string.
    [[nodiscard]] static constexpr unsigned int getDefaultLength() { return defaultLength; }
    /// Grows the buffer to exactly `bytes` when it is smaller, never shrinks it; the capacity.
    unsigned int setCapacity(unsigned int bytes);

    /// Replaces the contents, no conversion; null empties.
    void setChars(char const* text);

    /// The bytes of `text`, no conversion; null empties.
    ZAbstractMutableString& operator=(char const* text);
    /// As setChars(): a string of the other family is converted.
    ZAbstractMutableString& operator=(ZAbstractMutableString const& other);
    using ZAbstractString::operator=;
    /// The one byte.
    ZAbstractMutableString& operator=(char c);
    /// Sets the number as decimal text.
    ZAbstractMutableString& operator=(int number);
    ZAbstractMutableString& operator=(unsigned int number);
    ZAbstractMutableString& operator=(long number);
    ZAbstractMutableString& operator=(unsigned long number);

    /// Adds text at the end; null adds nothing. The buffer grows by about a fifth more than needed.
    ZAbstractMutableString& append(char const* text) {
        if (text != nullptr) appendBytes(text, checkedLength(std::strlen(text)));
        return *this;
    }
    /// At most `count` bytes of `text`, none behind its NUL.
    ZAbstractMutableString& append(char const* text, unsigned int count);
    /// Adds one byte.
    ZAbstractMutableString& append(char c) {
        if (length == capacity) bump(checkedLength(std::uint64_t{length} + 1), 0);
        chars[length] = c;
        setLength(length + 1);
        return *this;
    }
    /// As append().
    ZAbstractMutableString& operator+=(char c) { return append(c); }
    ZAbstractMutableString& operator+=(char const* text) { return append(text); }
    /// Adds the bytes of `other`, no conversion.
    ZAbstractMutableString& operator+=(ZAbstractString const& other);
    /// A number is no character: `s = n` gives its decimal text, and `s += char(n)` adds a byte.
    template <class Number, zfc::strings::IfNoByte<Number> = 0>
    void operator+=(Number) = delete;
    template <class Number, zfc::strings::IfNoByte<Number> = 0>
    void append(Number) = delete;
    /// Adds text in front; null adds nothing.
    ZAbstractMutableString& prepend(char const* text);
    /// Adds text at offset `position`; beyond the end, and with null, nothing happens.
    ZAbstractMutableString& insert(unsigned int position, char const* text);
    /// Removes `count` bytes from `start` on; a `count` of 0 cuts the string off at `start`. When
    /// start + count is beyond the end nothing happens.
    ZAbstractMutableString& remove(unsigned int start, unsigned int count);
    /// Cuts the string off at `bytes`; beyond the end nothing happens.
    ZAbstractMutableString& trunc(unsigned int bytes);

    /// Calls replace(element, to) for every element that the iterator still yields.
    ZAbstractMutableString& replaceAllOf(ZStringIterator& elements, char const* to);
    /// Replaces every character that the iterator still yields and that does not occur in `set` by
    /// `to`; a null `set` is empty. In one pass: what `to` brings in is not looked at again.
    ZAbstractMutableString& replaceNoneOf(ZStringIterator& elements, char const* set,
                                          char const* to);
    /// Removes white space at both ends, as stripLeading() and stripTrailing() do.
    ZAbstractMutableString& stripWhiteSpace();
    /// Case mapping in place, in this string's codeset; a character whose other case has another
    /// byte length stays.
    ZAbstractMutableString& lower();
    /// The same into upper case.
    ZAbstractMutableString& upper();
    /// Replaces the contents by formatted text (zvsprintf()). The arguments may lie in this string.
    /// When formatting fails (a null or faulty format, no memory) the string stays as it was.
    ZAbstractMutableString& format(char const* fmt, ...) ZFC_PRINTF(2, 3);
    /// Replaces the contents by the bytes up to the next line feed, carriage return or NUL, which
    /// is consumed and not stored, or up to the end of the stream. A non-zero `skipWhiteSpace` sets
    /// the stream's skipws flag, which stays set. Returns the stream. Waits as the stream does.
    std::istream& readLine(std::istream& stream, int skipWhiteSpace = 0);
    /// The same for loops: `while (line.readNext(stream))`. False, and the string is empty, when
    /// the stream has no byte left; a line feed behind a carriage return belongs to it.
    [[nodiscard]] bool readNext(std::istream& stream);

  protected:
    /// Which characters replaceCharacters() means: those in the set, or all others.
    enum class Characters { in, notIn };

    ZAbstractMutableString() { inlineBuffer[0] = '\0'; }
    /// The text; null is empty.
    explicit ZAbstractMutableString(char const* text) : ZAbstractMutableString() {
        if (text != nullptr) setBytes(text, checkedLength(std::strlen(text)));
    }
    /// At most `maxLength` bytes of `text`; null is empty.
    ZAbstractMutableString(char const* text, unsigned int maxLength);
    /// The one byte.
    explicit ZAbstractMutableString(char c);
    /// The number as decimal text.
    explicit ZAbstractMutableString(int number);
    explicit ZAbstractMutableString(unsigned int number);
    explicit ZAbstractMutableString(long number);
    explicit ZAbstractMutableString(unsigned long number);
    /// The text of a string of the same family.
    ZAbstractMutableString(ZAbstractMutableString const& other);
    /// Takes the text of a string of the same family, which is empty afterwards.
    ZAbstractMutableString(ZAbstractMutableString&& other) noexcept;
    /// What moving does: takes the text of `other`, which is empty afterwards.
    void take(ZAbstractMutableString& other) noexcept;

    /// Replaces every character that is (is not) in `set` by `to`, in one pass. Null is empty text.
    void replaceCharacters(Characters which, char const* set, char const* to);
    /// Whether `other`, of the same family, holds the same bytes.
    [[nodiscard]] bool hasBytesOf(ZAbstractMutableString const& other) const {
        return length == other.length && std::memcmp(chars, other.chars, length) == 0;
    }
    /// The text, for editing in place.
    [[nodiscard]] char* text() { return chars; }
    /// As getChars(), without a call.
    [[nodiscard]] char const* text() const { return chars; }
    /// Grows the buffer for `requested` bytes and returns it. When `exact` is 0 a fifth of
    /// `requested` comes on top, even when a heap buffer was large enough already.
    char* bump(unsigned int requested, int exact);

  private:
    // They set their target again and again.
    friend class ZStringIterator;
    friend class ZStringTokenizer;

    static constexpr unsigned int defaultLength = 95;
    static constexpr unsigned int greatestLength = UINT_MAX - 1;  // the NUL has to be counted too

    /// What a search finds: `count` copies of the new text take the place of `length` bytes at
    /// `place`; null when nothing is found.
    struct Hit {
        char const* place;
        unsigned int length, count;
    };

    [[nodiscard]] bool onHeap() const { return chars != inlineBuffer; }
    void release() {
        if (onHeap()) std::free(chars);
    }
    void reset();
    void setLength(unsigned int bytes) {
        length = bytes;
        chars[bytes] = '\0';
    }
    void reallocate(std::uint64_t bytes);
    void setBytes(char const* bytes, unsigned int count) {
        if (count > capacity) bump(count, 1);  // then the bytes cannot lie in this string
        std::memmove(chars, bytes, count);
        setLength(count);
    }
    /// One byte, for which there is room in every buffer.
    void setByte(char byte) {
        char* const at = chars;
        at[0] = byte;
        at[1] = '\0';
        length = 1;
    }
    void appendBytes(char const* bytes, unsigned int count) {
        if (count > capacity - length) return appendGrowing(bytes, count);
        std::memcpy(chars + length, bytes, count);
        setLength(length + count);
    }
    void appendGrowing(char const* bytes, unsigned int count);
    void insertBytes(unsigned int position, char const* bytes, unsigned int count);
    void convertBytes(char const* bytes, unsigned int count);
    template <class Number>
    void setNumber(Number number);
    [[nodiscard]] bool holds(char const* address) const;
    [[nodiscard]] static unsigned int checkedLength(std::uint64_t bytes) {
        if (bytes > greatestLength) raiseTooLong();
        return static_cast<unsigned int>(bytes);
    }
    [[noreturn]] static void raiseTooLong();

    [[nodiscard]] bool bytesAreCharacters() const;
    [[nodiscard]] bool isSpaceByte(char byte) const;
    [[nodiscard]] unsigned int spaceEnd() const;
    [[nodiscard]] unsigned int textEnd() const;
    [[nodiscard]] Hit findRun(char const* from, Characters which, char const* set) const;
    unsigned int countCharacters(char const* bytes, unsigned int count) const;
    template <class Find>
    void substitute(Find const& find, char const* to);

    char* chars = inlineBuffer;             // the text: inlineBuffer, or an owned malloc block
    unsigned int length = 0;                // bytes in use; chars[length] is always NUL
    unsigned int capacity = defaultLength;  // bytes that chars holds besides the NUL
    char inlineBuffer[defaultLength + 1];   // not initialised beyond the NUL, to stay cheap
};

#endif
