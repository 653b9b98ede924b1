#include "Z/config/java/text.h"

#include <algorithm>

namespace zfc::java {
namespace {

constexpr auto npos = std::string_view::npos;

// ------------------------------------------------------------------------------------- characters

constexpr bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\f'; }
constexpr bool isLineEnd(char c) { return c == '\n' || c == '\r'; }
constexpr bool isSeparator(char c) { return c == '=' || c == ':'; }
constexpr bool isCommentMark(char c) { return c == '#' || c == '!'; }

constexpr bool isHigh(unsigned int unit) { return unit >= 0xD800 && unit < 0xDC00; }
constexpr bool isLow(unsigned int unit) { return unit >= 0xDC00 && unit < 0xE000; }

constexpr unsigned int byteOf(char c) { return static_cast<unsigned char>(c); }

/// Bytes of the character of UTF-8 that begins with `lead`; 0 when none does.
constexpr std::size_t lengthFor(char lead) {
    unsigned int const byte = byteOf(lead);
    if (byte < 0x80) return 1;
    if (byte < 0xC2 || byte > 0xF4) return 0;
    return byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
}

struct Character {
    unsigned int code;
    std::size_t length;  // 0: malformed
};

/// The character that `text` begins with.
Character firstOf(std::string_view text) {
    constexpr unsigned int least[] = {0, 0, 0x80, 0x800, 0x10000};
    std::size_t const length = lengthFor(text[0]);
    if (length < 2) return {byteOf(text[0]), length};
    if (text.size() < length) return {0, 0};
    unsigned int code = byteOf(text[0]) & (0x7FU >> length);
    for (char const c : text.substr(1, length - 1)) {
        if ((byteOf(c) & 0xC0U) != 0x80) return {0, 0};
        code = code << 6U | (byteOf(c) & 0x3FU);
    }
    bool const isGood =
        code >= least[length] && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
    return {code, isGood ? length : 0};
}

void appendUtf8(String& out, unsigned int code) {
    auto const add = [&out](unsigned int byte) { out.push_back(static_cast<char>(byte)); };
    if (code < 0x80) return add(code);
    if (code < 0x800) {
        add(0xC0U | code >> 6U);
    } else if (code < 0x10000) {
        add(0xE0U | code >> 12U);
        add(0x80U | (code >> 6U & 0x3FU));
    } else {
        add(0xF0U | code >> 18U);
        add(0x80U | (code >> 12U & 0x3FU));
        add(0x80U | (code >> 6U & 0x3FU));
    }
    add(0x80U | (code & 0x3FU));
}

void appendUnit(String& out, unsigned int unit) {
    out += "\\u";
    for (int shift = 12; shift >= 0; shift -= 4)
        out.push_back("0123456789abcdef"[unit >> static_cast<unsigned int>(shift) & 0xFU]);
}

void appendUnits(String& out, unsigned int code) {
    if (code < 0x10000) return appendUnit(out, code);
    appendUnit(out, 0xD800 + ((code - 0x10000) >> 10U));
    appendUnit(out, 0xDC00 + (code & 0x3FFU));
}

// ---------------------------------------------------------------------------------------- reading

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

/// The number that the four hexadecimal digits at the start of `text` write; -1 when they do not.
int unitOf(std::string_view text) {
    if (text.size() < 4) return -1;
    int unit = 0;
    for (char const c : text.substr(0, 4)) {
        int const digit = hexDigit(c);
        if (digit < 0) return -1;
        unit = unit * 16 + digit;
    }
    return unit;
}

char escaped(char c) {
    switch (c) {
        case 't':
            return '\t';
        case 'n':
            return '\n';
        case 'r':
            return '\r';
        case 'f':
            return '\f';
        default:
            return c;
    }
}

/// Puts units of UTF-16 and bytes of the file together.
class Unescaper {
  public:
    Unescaper(std::string_view escapedText, Encoding itsEncoding)
        : source(escapedText), encoding(itsEncoding) {}

    Plain run() {
        while (at < source.size() && result.fault != Fault::unicodeEscape)
            step();
        endHalf();
        return std::move(result);
    }

  private:
    void step() {
        if (source[at] != '\\' || at + 1 == source.size()) return addByte(source[at++]);
        if (source[at + 1] == 'u') return addUnit();
        addByte(escaped(source[at + 1]));
        at += 2;
    }

    void addByte(char c) {
        endHalf();
        if (encoding == Encoding::utf8)
            result.text.push_back(c);
        else
            appendUtf8(result.text, byteOf(c));
    }

    void addUnit() {
        int const read = unitOf(source.substr(at + 2));
        if (read < 0) return note(Fault::unicodeEscape, at);
        auto const unit = static_cast<unsigned int>(read);
        if (high != 0 && isLow(unit)) {
            appendUtf8(result.text, 0x10000 + ((high - 0xD800) << 10U) + (unit - 0xDC00));
            high = 0;
        } else {
            endHalf();
            startCharacter(unit);
        }
        at += 6;
    }

    void startCharacter(unsigned int unit) {
        if (isLow(unit)) note(Fault::halfSurrogate, at);
        if (!isHigh(unit)) return appendUtf8(result.text, unit);
        high = unit;
        highAt = at;
    }

    /// The high half that was read last stays alone.
    void endHalf() {
        if (high == 0) return;
        appendUtf8(result.text, high);
        high = 0;
        note(Fault::halfSurrogate, highAt);
    }

    /// The first one is told, but for a bad escape, which ends it all.
    void note(Fault fault, std::size_t place) {
        if (result.fault != Fault::none && fault != Fault::unicodeEscape) return;
        result.fault = fault;
        result.at = place;
    }

    std::string_view source;
    Encoding encoding;
    std::size_t at = 0;
    unsigned int high = 0;  // half that waits for the other one; 0: none
    std::size_t highAt = 0;
    Plain result;
};

/// Where the line end at `at` ends.
std::size_t behindLineEnd(std::string_view bytes, std::size_t at) {
    return at + (bytes.substr(at, 2) == "\r\n" ? 2 : 1);
}

std::size_t lineEndFrom(std::string_view bytes, std::size_t at) {
    return std::min(bytes.find_first_of("\r\n", at), bytes.size());
}

/// Whether the piece of a line ends with a backslash that no other one protects.
bool endsOpen(std::string_view piece) {
    std::size_t const last = piece.find_last_not_of('\\');
    return (piece.size() - (last == npos ? 0 : last + 1)) % 2 == 1;
}

}  // namespace

std::size_t malformedAt(std::string_view bytes) {
    for (std::size_t at = 0; at < bytes.size();) {
        std::size_t const length = firstOf(bytes.substr(at)).length;
        if (length == 0) return at;
        at += length;
    }
    return npos;
}

Plain unescape(std::string_view escapedText, Encoding encoding) {
    return Unescaper(escapedText, encoding).run();
}

void Line::read(std::string_view rest) {
    kind = Kind::blank;
    isOpen = false;
    text.clear();
    places.clear();
    bytes = rest;
    std::size_t at = 0;
    bool goesOn = true;
    while (goesOn)
        goesOn = readPiece(at);
    bytes = rest.substr(0, at);
    split();
}

/// Reads up to the next line end; whether the line goes on behind it.
///
/// What the platform does, and its description does not tell: a line of a backslash alone is
/// continued even by a comment or a blank line, which it then belongs to, and at the end of the
/// file it is a pair of two empty texts, but not before CR LF.
bool Line::readPiece(std::size_t& at) {
    while (at < bytes.size() && isBlank(bytes[at]))
        ++at;
    if (at == bytes.size()) return false;
    std::size_t const end = lineEndFrom(bytes, at);
    bool const isComment = text.empty() && isCommentMark(bytes[at]);
    if (isComment) kind = Kind::comment;
    bool const continues = !isComment && endsOpen(bytes.substr(at, end - at));
    if (!isComment) take(at, continues ? end - 1 : end);
    at = end == bytes.size() ? end : behindLineEnd(bytes, end);
    isOpen = continues && at == bytes.size();
    bool const isEmptyPair = isOpen && at - end < 2;
    if (isEmptyPair || !text.empty()) kind = Kind::pair;
    return continues && !isOpen;
}

void Line::take(std::size_t from, std::size_t to) {
    text += bytes.substr(from, to - from);
    for (std::size_t at = from; at < to; ++at)
        places.push_back(at);
}

void Line::split() {
    keyEnd = 0;
    while (keyEnd < text.size() && !isBlank(text[keyEnd]) && !isSeparator(text[keyEnd]))
        keyEnd = std::min(keyEnd + (text[keyEnd] == '\\' ? 2 : 1), text.size());
    valueStart = keyEnd;
    bool hasSeparator = false;
    for (; valueStart < text.size(); ++valueStart) {
        bool const separates = !hasSeparator && isSeparator(text[valueStart]);
        if (!separates && !isBlank(text[valueStart])) break;
        hasSeparator = hasSeparator || separates;
    }
}

std::string_view Line::bytesUpTo(std::size_t place) const {
    if (place < places.size()) return bytes.substr(0, places[place]);
    return bytes.substr(0, places.empty() ? 0 : places.back() + 1);
}

std::string_view lineEndOf(std::string_view bytes) {
    std::size_t const length = bytes.size();
    if (length >= 2 && bytes.substr(length - 2) == "\r\n") return bytes.substr(length - 2);
    return length != 0 && isLineEnd(bytes.back()) ? bytes.substr(length - 1) : std::string_view();
}

std::string_view firstLineEnd(std::string_view bytes) {
    std::size_t const at = bytes.find_first_of("\r\n");
    return at == npos ? "\n" : bytes.substr(at, behindLineEnd(bytes, at) - at);
}

std::size_t lineEndsIn(std::string_view bytes) {
    std::size_t count = 0;
    for (std::size_t at = bytes.find_first_of("\r\n"); at != npos; ++count)
        at = bytes.find_first_of("\r\n", behindLineEnd(bytes, at));
    return count;
}

// ---------------------------------------------------------------------------------------- writing

namespace {

/// Whether the character stands in a text of either kind as it is.
bool isPlain(unsigned int code) { return code > ' ' && code < 0x7F && code != '\\' && code != ':'; }

void appendCharacter(String& out, unsigned int code) {
    if (isPlain(code)) return out.push_back(static_cast<char>(code));
    // Control characters by their numbers too: ZJavaProperties knows no \n.
    if (code != '\\' && code != ':' && code != ' ') return appendUnits(out, code);
    out.push_back('\\');
    out.push_back(static_cast<char>(code));
}

void appendKey(String& out, std::string_view key) {
    for (std::size_t at = 0; at < key.size();) {
        Character const character = firstOf(key.substr(at));
        bool const begins = at == 0 && isCommentMark(key[0]);
        if (begins || key[at] == '=') out.push_back('\\');
        appendCharacter(out, character.code);
        at += character.length;
    }
}

/// In values no mark needs a backslash but ":", which other programs put one before: what others
/// have no name for, ZJavaProperties among them, stands as it is.
void appendValue(String& out, std::string_view value) {
    for (std::size_t at = 0; at < value.size();) {
        Character const character = firstOf(value.substr(at));
        if (at != 0 && character.code == ' ')
            out.push_back(' ');
        else
            appendCharacter(out, character.code);
        at += character.length;
    }
}

}  // namespace

String missingEnd(Line const& last, std::string_view lineEnd) {
    std::string_view const own = lineEndOf(last.bytes);
    String missing(own.empty() ? lineEnd : "");
    if (!last.isOpen) return missing;
    // A blank line ends what is continued, and would hide a pair of two empty texts.
    if (last.kind == Kind::pair && last.text.empty()) missing.push_back('=');
    // The same as above it: a line feed would only complete a carriage return.
    missing += own.empty() ? lineEnd : own;
    return missing;
}

String lineFor(std::string_view key, std::string_view value, std::string_view lineEnd) {
    String line;
    appendKey(line, key);
    line += value.empty() ? " =" : " = ";
    appendValue(line, value);
    line += lineEnd;
    return line;
}

String withValue(Line const& line, std::string_view value) {
    std::string_view const text = line.text;
    std::string_view const between = text.substr(line.keyEnd, line.valueStart - line.keyEnd);
    bool const wasEmpty = line.valueStart == text.size();
    String result(line.bytesUpTo(line.valueStart));
    // Blanks alone separate too, but not an empty value, and none that begins with a separator.
    bool const hasSeparator = between.find_first_of("=:") != npos;
    bool const needsOne = !hasSeparator && (wasEmpty || value.empty() || isSeparator(value[0]));
    if (needsOne) result += between.empty() ? " =" : "=";
    bool const isSpaced = !between.empty() ? isBlank(between[0]) : needsOne;
    if (wasEmpty && isSpaced && !value.empty() && isSeparator(result.back())) result.push_back(' ');
    appendValue(result, value);
    result += lineEndOf(line.bytes);
    return result;
}

String commentLine(std::string_view text, Encoding encoding, std::string_view lineEnd) {
    String line;
    if (text.empty() || !isCommentMark(text[0])) line.push_back('#');
    for (std::size_t at = 0; at < text.size();) {
        Character const character = firstOf(text.substr(at));
        if (encoding == Encoding::utf8)
            line += text.substr(at, character.length);
        else if (character.code < 0x100)
            line.push_back(static_cast<char>(character.code));
        else
            appendUnits(line, character.code);
        at += character.length;
    }
    line += lineEnd;
    return line;
}

// --------------------------------------------------------------------------------------- the walk

bool Lines::next() {
    endsAbove += lineEndsIn(current.bytes);
    if (rest.empty()) return false;
    current.read(rest);
    rest.remove_prefix(current.bytes.size());
    found = Fault::none;
    examine();
    return true;
}

void Lines::examine() {
    std::size_t const malformed =
        encoding == Encoding::utf8 ? malformedAt(current.bytes) : std::string_view::npos;
    if (malformed != npos) {
        found = Fault::encoding;
        faultAt = malformed;
        return;
    }
    if (current.kind != Kind::pair) return;
    currentKey = unescape(current.key(), encoding);
    note(currentKey, 0);
    note(unescape(current.value(), encoding), current.valueStart);
}

/// A bad escape outweighs half a surrogate pair, with which the rest can be read.
void Lines::note(Plain const& part, std::size_t start) {
    bool const isWorse = found == Fault::none || part.fault == Fault::unicodeEscape;
    if (part.fault == Fault::none || !isWorse || found == Fault::unicodeEscape) return;
    found = part.fault;
    faultAt = current.places[start + part.at];
}

std::size_t Lines::faultNumber() const {
    return endsAbove + lineEndsIn(current.bytes.substr(0, faultAt)) + 1;
}

std::string_view Lines::faultText() const {
    std::string_view const above = current.bytes.substr(0, faultAt);
    std::size_t const last = above.find_last_of("\r\n");
    std::size_t const start = last == npos ? 0 : last + 1;
    return current.bytes.substr(start, lineEndFrom(current.bytes, faultAt) - start);
}

}  // namespace zfc::java
