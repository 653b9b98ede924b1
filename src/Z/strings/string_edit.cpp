/// Editing a string in place: adding, removing, white space, case, formatted text, lines of a
/// stream. Its storage is in ZAbstractMutableString.cpp.
#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstring>
#include <istream>
#include <memory>

#include "Z/ZAbstractMutableString.h"
#include "Z/utility/ascii.h"
#include "Z/zfree.h"
#include "Z/zsnprintf.h"

void ZAbstractMutableString::appendGrowing(char const* bytes, unsigned int count) {
    unsigned int const newLength = checkedLength(std::uint64_t{length} + count);
    // Noted as an offset before the buffer may move.
    bool const isOwn = holds(bytes);
    std::ptrdiff_t const offset = isOwn ? bytes - chars : 0;
    bump(newLength, 0);
    appendBytes(isOwn ? chars + offset : bytes, count);
}

void ZAbstractMutableString::insertBytes(unsigned int position, char const* bytes,
                                         unsigned int count) {
    unsigned int const newLength = checkedLength(std::uint64_t{length} + count);
    bool const isOwn = holds(bytes);
    auto const offset = isOwn ? static_cast<unsigned int>(bytes - chars) : 0;
    // bump() would enlarge a buffer that is large enough.
    if (newLength > capacity) bump(newLength, 0);
    char* const gap = chars + position;
    memmove(gap + count, gap, length - position);
    if (isOwn) {  // what lay behind the gap has moved
        unsigned int const before = offset < position ? std::min(count, position - offset) : 0;
        memcpy(gap, chars + offset, before);
        memcpy(gap + before, chars + offset + before + count, count - before);
    } else {
        memcpy(gap, bytes, count);
    }
    setLength(newLength);
}

ZAbstractMutableString& ZAbstractMutableString::append(char const* text, unsigned int count) {
    if (text != nullptr) appendBytes(text, checkedLength(strnlen(text, count)));
    return *this;
}

ZAbstractMutableString& ZAbstractMutableString::operator+=(ZAbstractString const& other) {
    appendBytes(other.getChars(), other.getLength());
    return *this;
}

ZAbstractMutableString& ZAbstractMutableString::prepend(char const* text) {
    return insert(0, text);
}

ZAbstractMutableString& ZAbstractMutableString::insert(unsigned int position, char const* text) {
    if (text != nullptr && position <= length)
        insertBytes(position, text, checkedLength(strlen(text)));
    return *this;
}

ZAbstractMutableString& ZAbstractMutableString::remove(unsigned int start, unsigned int count) {
    if (count == 0) return trunc(start);
    // Not start + count, which wraps.
    if (start > length || count > length - start) return *this;
    memmove(chars + start, chars + start + count, length - start - count);
    setLength(length - count);
    return *this;
}

ZAbstractMutableString& ZAbstractMutableString::trunc(unsigned int bytes) {
    if (bytes <= length) setLength(bytes);
    return *this;
}

/// Whether every byte that could be part of an ASCII text is a character: true of UTF-8, where no
/// part of a longer character looks like one, and of a local codeset of single bytes.
bool ZAbstractMutableString::bytesAreCharacters() const {
    ZCodesetHandle const codeset = getCodesetHandle();
    return codeset == utf8Handle() || (codeset == localHandle() && zlcs_mb_max() == 1);
}

/// Whether the byte is white space by itself; part of a UTF-8 character never is, whatever the
/// process's locale takes it for.
bool ZAbstractMutableString::isSpaceByte(char byte) const {
    bool const isSpace = isspace(static_cast<unsigned char>(byte)) != 0;
    return isSpace && (zisAscii(byte) || getCodesetHandle() != utf8Handle());
}

/// Offset of the first character that is no white space.
unsigned int ZAbstractMutableString::spaceEnd() const {
    bool const isSimple = bytesAreCharacters();
    unsigned int at = 0;
    while (at < length && isSpaceByte(chars[at]) &&
           (isSimple || zmblen(getCodesetHandle(), chars + at, length - at) == 1))
        ++at;
    return at;
}

/// Offset behind the last character that is no white space. Where the last byte of a character may
/// look like a blank, characters are known only from the front.
unsigned int ZAbstractMutableString::textEnd() const {
    unsigned int end = length;
    if (bytesAreCharacters()) {
        while (end > 0 && isSpaceByte(chars[end - 1]))
            --end;
        return end;
    }
    end = 0;
    for (unsigned int at = 0; at < length;) {
        int const size = zmblen(getCodesetHandle(), chars + at, length - at);
        unsigned int const next = at + (size > 0 ? static_cast<unsigned int>(size) : 1);
        if (size != 1 || !isSpaceByte(chars[at])) end = next;
        at = next;
    }
    return end;
}

ZAbstractMutableString& ZAbstractMutableString::stripLeading() {
    unsigned int const start = spaceEnd();
    // Onto itself: setBytes() allows for that.
    if (start > 0) setBytes(chars + start, length - start);
    return *this;
}

ZAbstractMutableString& ZAbstractMutableString::stripTrailing() { return trunc(textEnd()); }

ZAbstractMutableString& ZAbstractMutableString::stripWhiteSpace() {
    // The end first: the less is left to move up.
    stripTrailing();
    return stripLeading();
}

ZAbstractMutableString& ZAbstractMutableString::lower() {
    zstrlower(getCodesetHandle(), chars);
    return *this;
}

ZAbstractMutableString& ZAbstractMutableString::upper() {
    zstrupper(getCodesetHandle(), chars);
    return *this;
}

ZAbstractMutableString& ZAbstractMutableString::format(char const* fmt, ...) {
    char* formatted = nullptr;
    va_list list;
    va_start(list, fmt);
    zvsprintf(&formatted, fmt, list);
    va_end(list);
    // Formatted apart, since the arguments may be parts of this string.
    std::unique_ptr<char, ZFree> const block(formatted);
    if (block != nullptr) setChars(block.get());
    return *this;
}

std::istream& ZAbstractMutableString::readLine(std::istream& stream, int skipWhiteSpace) {
    constexpr int endOfFile = std::istream::traits_type::eof();
    clear();
    std::ios::fmtflags const saved = stream.flags();
    if (skipWhiteSpace != 0) stream.setf(std::ios::skipws);
    while (stream.peek() != endOfFile) {
        auto const byte = static_cast<char>(stream.get());
        // Kept: a NUL ends the line as a line feed does; it ends every text here.
        if (byte == '\n' || byte == '\r' || byte == '\0') break;
        append(byte);
    }
    // Kept: the flags are added back, not put back, so skipws stays set; reading says nothing else.
    if (skipWhiteSpace != 0) stream.setf(saved);
    return stream;
}

bool ZAbstractMutableString::readNext(std::istream& stream) {
    constexpr int endOfFile = std::istream::traits_type::eof();
    clear();
    if (stream.peek() == endOfFile) return false;
    while (stream.peek() != endOfFile) {
        auto const byte = static_cast<char>(stream.get());
        if (byte == '\r' && stream.peek() == '\n') stream.get();
        if (byte == '\n' || byte == '\r' || byte == '\0') break;
        append(byte);
    }
    return true;
}
