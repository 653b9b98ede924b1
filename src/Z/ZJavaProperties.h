/// Flat "key = value" files in the manner of the Java platform's .properties format.
#ifndef Z_ZJAVAPROPERTIES_H
#define Z_ZJAVAPROPERTIES_H

#include "Z/ztags.h"

#include <cstdio>
#include <string_view>

#include "Z/ZKeyMap.h"
#include "Z/ZList.h"
#include "Z/ZObject.h"
#include "Z/ZUTF8String.h"
#include "Z/zexport.h"

namespace zfc::java {
class Pairs;
}  // namespace zfc::java

/// Pairs of text that are read from and written to a properties file.
///
/// The reader is a machine of sixteen states that is fed one character after the other. B is a
/// blank (space, tab, vertical tab, form feed), E a line end (line feed, carriage return, or both
/// in either order); a pair is stored when a line ends in state 7, 8 or 10.
///
///     state                         character: next state
///      1  start of a line           B 2, ! # 3, E 1, any other begins the key, even : = \ 4
///      2  blanks at its start       B 2, ! # 3, E 1, : = fault, any other begins the key 4
///      3  comment, bad line         E 1, any other 3
///      4  key                       \ 5, B 6, : = 7, E fault, any other belongs to the key 4
///      5  behind \ in the key       \ B : = belongs to the key 4, any other fault
///      6  blanks behind the key     B 6, : = 7, \ 9, E fault, any other begins the value 8
///      7  behind the separator      B 7, \ 9, E end of the pair 1, any other begins the value 8
///      8  value                     \ 9, E end of the pair 1, any other belongs to the value 8
///      9  behind \ in the value     \ B : " ' belongs to the value 8, E 10, u U 11, other fault
///     10  line that continues it    B 10, \ 9, E end of the pair 1, any other 8
///     11 to 14  four digits of \u   0-9 a-f A-F next one, at last 8, any other fault
///     15  the searched key is read  (end)
///     16  fault                     the rest of the line is passed over, its pair dropped
///
/// What surprises: keys know \= and values do not, values know \" and \' and keys do not; \n, \t
/// and \r are faults in both; \u stands in values alone. A line without a line end, the last one of
/// a file, is dropped. A \u escape gives one UTF-16 unit, converted by itself: the halves of a
/// surrogate pair become three bytes each, and are written back as they were read.
///
/// Text is UTF-8; bytes of a file that are no UTF-8 are read as they are. An object is used by one
/// thread at a time; other processes are kept out by a lock on the file while it is open.
class ZFC_API ZJavaProperties : public ZObject {
  public:
    /// What the reader passes over.
    enum class Skipped {
        comment,        // not a fault, but not kept either
        emptyKey,       // a separator behind blanks
        noSeparator,    // a key and nothing behind it
        keyEscape,      // a backslash before what needs none, in a key
        valueEscape,    // the same in a value
        unicodeEscape,  // \u without four hexadecimal digits
        noLineEnd       // the last line
    };

    /// Is told of every line that the reader passes over.
    class SkippedLines {
      public:
        virtual ~SkippedLines() = default;
        /// `line` counts from 1; in a pair of several lines it is the one with the fault.
        virtual void skipped(unsigned int line, Skipped what) = 0;
    };

    /// Without pairs. Throws ZOutOfMemoryException (message 1).
    ZJavaProperties();
    /// A copy has copies of the pairs.
    ZJavaProperties(ZJavaProperties const&) = default;
    ZJavaProperties& operator=(ZJavaProperties const&) = default;

    // in slot order: do not sort
    ~ZJavaProperties() override;
    [[nodiscard]] ZObject* clone() const override;

    /// Reads a file, whose pairs are added and take the place of those with the same keys. Bad
    /// lines are passed over without a word. 1 when done, also for a null or empty path, which
    /// reads nothing; else 0, and what read() throws went to the message service. Never waits.
    int load(char const* path);
    /// Reads up to the end of the first line with the key `searched`, or all without one. A null or
    /// empty key searches nothing. The last line counts here even without a line end, and a pair
    /// that ends on a continuation line without text is taken only when it is the one searched.
    int load(char const* path, char const* searched);
    /// As load(), but throws, and tells `lines`, when it is not null, of every line passed over.
    /// Throws ZPropertiesIOException (message 43) with "fopen(r)" when the file cannot be opened or
    /// is no regular file, and with "fcntl()" when another process writes it; ZUnexpectedEndOfFile
    /// (message 53) for a read error; ZOutOfMemoryException (message 1). Pairs read before a
    /// failure stay.
    void read(char const* path, SkippedLines* lines);
    /// Runs the reader over an open stream, to its end unless a key is searched; `path` is for
    /// messages. Always true: it ends in state 15. Throws ZUnexpectedEndOfFile (message 53) for a
    /// read error and ZOutOfMemoryException (message 1).
    bool loadProperties(FILE* stream, char const* path);

    /// Writes a line "#" and "key = value" for each pair, in the order of listKeys(). Keys are
    /// written as they are, so they must be simple. In values "\" and ":" get a backslash, and
    /// characters of the Basic Multilingual Plane above "~" are written as \u escapes of four lower
    /// case digits; of a byte 0x7F and of any character beyond that plane nothing but "\u" is left.
    /// isStorable() tells what survives.
    ///
    /// The file is created when missing, rewritten in place under an exclusive lock and flushed to
    /// the device; when that fails it keeps its old bytes. Never waits for the lock. Throws
    /// ZInvalidParameterException (message 22) for a null or empty path, ZPropertiesIOException
    /// (message 43) with "fopen(wt)", "fcntl()" or the operation that failed, and
    /// ZOutOfMemoryException (message 1).
    void store(char const* path) const;

    /// Empties `out`, then gives it the value of the key `wanted`, converted to its codeset; it
    /// stays empty when there is no such key, or no such text in that codeset.
    void getValue(ZAbstractString const& wanted, ZAbstractMutableString& out) const;
    /// Adds the pair, or replaces the one with the same key. Both are converted to UTF-8; malformed
    /// text raises ZToUTF8Exception (message 49). Throws ZOutOfMemoryException (message 1).
    void setValue(ZAbstractString const& key, ZAbstractString const& value);
    /// Whether the object has the key.
    [[nodiscard]] bool contains(ZAbstractString const& wanted) const;
    /// Appends every key, a ZUTF8String, with the list's add(). They live until the object is
    /// assigned to or ends.
    void listKeys(ZList& out) const;

    /// Whether the pair, stored and loaded again, is what it was.
    [[nodiscard]] static bool isStorable(ZAbstractString const& key, ZAbstractString const& value);
    /// The value of a hexadecimal digit, upper or lower case; -1 for any other character.
    [[nodiscard]] static int hexConv(char digit);

  private:
    enum State {
        startLine = 1,
        startLineBlanks,
        commentLine,
        keyChars,
        keyCharEscape,
        keyEndBlanksFirst,
        keyEndBlanksFinal,
        valChars,
        valEscape,
        multiLineVal,
        uu0,
        uu1,
        uu2,
        uu3,
        stop,
        error
    };
    using StateHandler = State (ZJavaProperties::*)(char c);
    class Reader;

    bool readFrom(FILE* stream, char const* path, SkippedLines* lines);
    void write(ZUTF8String& image) const;
    [[nodiscard]] zfc::java::Pairs& pairs();
    [[nodiscard]] zfc::java::Pairs const& pairs() const;
    void storePair();
    [[nodiscard]] bool isSearched() const { return key == searchKey; }
    [[nodiscard]] State endPair();
    [[nodiscard]] State takePair(std::string_view plainKey, std::string_view plainValue);
    [[nodiscard]] State unicodeDigit(char c, State next);

    State doStartLineState(char c);
    State doStartLineBlanksState(char c);
    State doCommentLineState(char c);
    State doKeyCharsState(char c);
    State doKeyCharEscapeState(char c);
    State doKeyEndBlanksFirstState(char c);
    State doKeyEndBlanksFinalState(char c);
    State doValCharsState(char c);
    State doValEscapeState(char c);
    State doMultiLineValState(char c);
    State doUU0State(char c);
    State doUU1State(char c);
    State doUU2State(char c);
    State doUU3State(char c);

    StateHandler stateHandlers[16];  // by state; null for 0 and 15. Layout: a table in each object
    ZHashKeyMap properties;          // Layout: a map; its one value is the pairs, copied with it
    ZUTF8String key;                 // of the line that is read
    ZUTF8String value;               // likewise
    ZUTF8String searchKey;           // where reading stops; empty: at the end of the file
    unsigned short unicodeUnit = 0;  // of the \u escape that is read
    unsigned short unicodeEnd = 0;   // Layout: always 0, the word has its place behind the unit
};

#endif
