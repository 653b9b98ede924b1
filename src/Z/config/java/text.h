/// The text of a properties file as the Java platform reads it: its lines, escapes and encodings.
#ifndef Z_CONFIG_JAVA_TEXT_H
#define Z_CONFIG_JAVA_TEXT_H

#include <cstddef>
#include <string_view>

#include "Z/config/cache/texts.h"

namespace zfc::java {

using zfc::cache::String;
using zfc::cache::Vector;

enum class Encoding { utf8, latin1 };

enum class Fault {
    none,
    encoding,       // bytes that are no UTF-8
    unicodeEscape,  // \u without four hexadecimal digits
    halfSurrogate   // a \u escape that is half a character, without the other half
};

/// Where the first byte stands that is no UTF-8; npos when there is none.
[[nodiscard]] std::size_t malformedAt(std::string_view bytes);

/// What an escaped text stands for, in UTF-8; the half of a surrogate pair is three bytes there.
struct Plain {
    String text;
    Fault fault = Fault::none;
    std::size_t at = 0;  // of the fault, in the escaped text
};
/// Stops at a bad escape. In UTF-8 the bytes must not be malformed.
[[nodiscard]] Plain unescape(std::string_view escaped, Encoding encoding);

enum class Kind { blank, comment, pair };

/// What the platform takes for one line: blanks, a comment, or a pair with all the lines that
/// continue it.
struct Line {
    Kind kind = Kind::blank;
    std::string_view bytes;  // as they stand in the file, with the line end
    bool isOpen = false;     // ends behind a backslash that continues it, at the end of the file
    // Of a pair:
    String text;                 // key, separator and value, without what continues the line
    Vector<std::size_t> places;  // of each byte of `text` in `bytes`
    std::size_t keyEnd = 0;      // in `text`
    std::size_t valueStart = 0;  // likewise

    /// Reads the line that `rest` begins with, which is not empty.
    void read(std::string_view rest);
    [[nodiscard]] std::string_view key() const { return std::string_view(text).substr(0, keyEnd); }
    [[nodiscard]] std::string_view value() const {
        return std::string_view(text).substr(valueStart);
    }
    /// The bytes up to a place of `text`.
    [[nodiscard]] std::string_view bytesUpTo(std::size_t place) const;

  private:
    bool readPiece(std::size_t& at);
    void take(std::size_t from, std::size_t to);
    void split();
};

/// The line end that the text has at its end; empty when it has none.
[[nodiscard]] std::string_view lineEndOf(std::string_view bytes);
/// The first line end of the text; "\n" when it has none.
[[nodiscard]] std::string_view firstLineEnd(std::string_view bytes);
/// How many lines begin in the text behind its first one: an editor's number, less one.
[[nodiscard]] std::size_t lineEndsIn(std::string_view bytes);

/// What the file's last line lacks to let another one follow; its meaning stays.
[[nodiscard]] String missingEnd(Line const& last, std::string_view lineEnd);

/// A new line for the pair, both in UTF-8.
[[nodiscard]] String lineFor(std::string_view key, std::string_view value,
                             std::string_view lineEnd);
/// The line of a pair with another value: indentation, key, separator and line end stay.
[[nodiscard]] String withValue(Line const& line, std::string_view value);
/// A comment line of text in UTF-8 without line ends. As the platform has it, what the encoding
/// lacks becomes an escape that a reader will not undo.
[[nodiscard]] String commentLine(std::string_view text, Encoding encoding,
                                 std::string_view lineEnd);

/// A walk over the lines of a file, with what is wrong in each.
class Lines {
  public:
    Lines(std::string_view file, Encoding itsEncoding) : rest(file), encoding(itsEncoding) {}
    /// Reads the next line; false behind the last one.
    [[nodiscard]] bool next();

    [[nodiscard]] Line const& line() const { return current; }
    /// Of a pair without a fault that breaks off; half a surrogate pair does not.
    [[nodiscard]] Plain const& key() const { return currentKey; }
    [[nodiscard]] Fault fault() const { return found; }
    /// The number that an editor shows for the line of the fault, and that line without its end.
    [[nodiscard]] std::size_t faultNumber() const;
    [[nodiscard]] std::string_view faultText() const;

  private:
    void examine();
    void note(Plain const& part, std::size_t start);

    std::string_view rest;
    Encoding encoding;
    Line current;
    Plain currentKey;
    Fault found = Fault::none;
    std::size_t faultAt = 0;    // in the bytes of the line
    std::size_t endsAbove = 0;  // line ends above the line
};

}  // namespace zfc::java

#endif
