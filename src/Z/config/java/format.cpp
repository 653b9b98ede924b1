/// The format of a properties file: the reader, whose table stands in the header, and the writer.
#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

#include "Z/ZException.h"
#include "Z/ZJavaProperties.h"
#include "Z/config/java/pairs.h"
#include "Z/config/java/strings.h"
#include "Z/zutfconvert.h"

namespace {

using zfc::java::append;
using zfc::java::viewOf;

constexpr char sourceName[] = "src/Z/ZJavaProperties";

// -------------------------------------------------------------------------------------- the reader

constexpr std::size_t blockSize = 32768;

constexpr bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\v' || c == '\f'; }
constexpr bool isLineEnd(char c) { return c == '\n' || c == '\r'; }
constexpr bool isSeparator(char c) { return c == ':' || c == '='; }
constexpr bool isCommentMark(char c) { return c == '!' || c == '#'; }

/// Which runs of characters end before a character.
enum EndedRuns : unsigned char { endsComment = 1, endsKey = 2, endsValue = 4 };

constexpr unsigned char runsEndedBy(char c) {
    if (isLineEnd(c)) return endsComment | endsKey | endsValue;
    // A NUL is no end, but append() would not go past it.
    if (c == '\\' || c == '\0') return endsKey | endsValue;
    return isBlank(c) || isSeparator(c) ? endsKey : 0;
}

constexpr std::array<unsigned char, 256> makeRunTable() {
    std::array<unsigned char, 256> table{};
    for (std::size_t i = 0; i < table.size(); ++i)
        table[i] = runsEndedBy(static_cast<char>(i));
    return table;
}
constexpr std::array<unsigned char, 256> runTable = makeRunTable();

/// Where from `from` on the run ends, or the text does.
std::size_t runEnd(std::string_view text, std::size_t from, EndedRuns run) {
    while (from < text.size() && (runTable[static_cast<unsigned char>(text[from])] & run) == 0)
        ++from;
    return from;
}

std::size_t blanksEnd(std::string_view text, std::size_t from) {
    while (from < text.size() && isBlank(text[from]))
        ++from;
    return from;
}

/// A line "key = value" without escapes; the blanks may be missing.
struct PlainLine {
    std::string_view key;
    std::string_view value;
    char lineEnd;
};

/// The bytes of a stream, a block at a time.
class Input {
  public:
    Input(FILE* read, char const* name) : stream(read), path(name) {}

    /// False at the end. Raises ZUnexpectedEndOfFile when reading fails.
    [[nodiscard]] bool hasMore() {
        if (!rest.empty()) return true;
        rest = {block, std::fread(block, 1, sizeof block, stream)};
        // Bytes that came before an error are read first; it is still there at the next call.
        if (rest.empty() && std::ferror(stream) != 0)
            zraise(ZUnexpectedEndOfFile(path), sourceName, __LINE__);
        return !rest.empty();
    }
    /// There must be more.
    [[nodiscard]] char take() {
        char const c = rest.front();
        rest.remove_prefix(1);
        return c;
    }
    /// The bytes of this block that do not end the run; perhaps none.
    [[nodiscard]] std::string_view takeRun(EndedRuns run) {
        std::string_view const taken = rest.substr(0, runEnd(rest, 0, run));
        rest.remove_prefix(taken.size());
        return taken;
    }
    /// At the start of a line: takes a plain one that ends in this block. Nothing for any other.
    [[nodiscard]] std::optional<PlainLine> takePlainLine() {
        std::size_t const keyEnd = runEnd(rest, 0, endsKey);
        if (keyEnd == 0 || isCommentMark(rest[0])) return std::nullopt;
        std::size_t const separator = blanksEnd(rest, keyEnd);
        if (separator == rest.size() || !isSeparator(rest[separator])) return std::nullopt;
        std::size_t const start = blanksEnd(rest, separator + 1);
        std::size_t const end = runEnd(rest, start, endsValue);
        if (end == rest.size() || !isLineEnd(rest[end])) return std::nullopt;
        PlainLine const line{rest.substr(0, keyEnd), rest.substr(start, end - start), rest[end]};
        rest.remove_prefix(end + 1);
        return line;
    }

  private:
    FILE* stream;
    char const* path;
    std::string_view rest;  // of the block
    char block[blockSize];
};

}  // namespace

/// One run of the machine.
class ZJavaProperties::Reader {
  public:
    Reader(ZJavaProperties& read, FILE* stream, char const* name, SkippedLines* told)
        : owner(read), input(stream, name), path(name), lines(told) {}

    State run() {
        while (state >= startLine && state < stop) {
            if (!input.hasMore())
                state = endOfFile();
            else if (state != startLine || !takePlainLine())
                state = step(input.take());
        }
        return state;
    }

  private:
    /// What the states from 1 to 8 make of a whole line, which spares a step for each of its parts:
    /// nearly all lines are plain. False for any other, which is left.
    bool takePlainLine() {
        std::optional<PlainLine> const plain = input.takePlainLine();
        if (!plain) return false;
        lineEnd = plain->lineEnd;
        ++line;
        state = owner.takePair(plain->key, plain->value);
        return true;
    }

    State step(char c) {
        // CR LF is one line end; two of the same kind are two.
        bool const isSecondHalf = isLineEnd(c) && lineEnd != '\0' && lineEnd != c;
        lineEnd = isLineEnd(c) && !isSecondHalf ? c : '\0';
        if (isSecondHalf) return state;
        State const next = follow(c);
        line += isLineEnd(c) ? 1U : 0U;
        takeRun(next);
        return next;
    }

    State follow(char c) {
        State const next = (owner.*handlerOf(state))(c);
        if (next == commentLine && state != commentLine) tell(Skipped::comment);
        if (next != error) return next;
        tell(faultOf(state));
        owner.key.clear();  // the pair is dropped
        // The rest of a faulty line is passed over as a comment is.
        return isLineEnd(c) ? startLine : commentLine;
    }

    [[nodiscard]] StateHandler handlerOf(State of) const {
        StateHandler const handler = owner.stateHandlers[of];
        if (handler == nullptr) zraise(ZJavaPropertyParseException(path), sourceName, __LINE__);
        return handler;
    }

    /// What the state's handler would take one by one.
    void takeRun(State of) {
        // Whole runs, which spares a call through the table for each byte.
        if (of != commentLine && of != keyChars && of != valChars) return;
        // A state without a handler has to be found out here as in follow().
        static_cast<void>(handlerOf(of));
        if (of == commentLine) static_cast<void>(input.takeRun(endsComment));
        if (of == keyChars) append(owner.key, input.takeRun(endsKey));
        if (of == valChars) append(owner.value, input.takeRun(endsValue));
    }

    State endOfFile() {
        // Kept: the last line counts only with a line end, unless it is the one searched; callers
        // end files with a line end.
        if (!owner.key.isEmpty() && owner.isSearched())
            owner.storePair();
        else if (state >= keyChars)
            tell(Skipped::noLineEnd);
        return stop;
    }

    void tell(Skipped what) const {
        if (lines != nullptr) lines->skipped(line, what);
    }

    /// What a fault means in each state that knows one.
    [[nodiscard]] static Skipped faultOf(State in) {
        switch (in) {
            case startLineBlanks:
                return Skipped::emptyKey;
            case keyChars:
            case keyEndBlanksFirst:
                return Skipped::noSeparator;
            case keyCharEscape:
                return Skipped::keyEscape;
            case valEscape:
                return Skipped::valueEscape;
            default:
                return Skipped::unicodeEscape;
        }
    }

    ZJavaProperties& owner;
    Input input;
    char const* path;
    SkippedLines* lines;  // may be null
    State state = startLine;
    unsigned int line = 1;
    char lineEnd = '\0';  // the line end read last, when the other one would belong to it
};

bool ZJavaProperties::readFrom(FILE* stream, char const* path, SkippedLines* lines) {
    key.clear();
    return Reader(*this, stream, path, lines).run() == stop;
}

int ZJavaProperties::hexConv(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return -1;
}

void ZJavaProperties::storePair() { pairs().set(viewOf(key), viewOf(value)); }

ZJavaProperties::State ZJavaProperties::takePair(std::string_view plainKey,
                                                 std::string_view plainValue) {
    key.clear();  // what an earlier line left there is not searched at the end of the file
    pairs().set(plainKey, plainValue);
    return plainKey == viewOf(searchKey) ? stop : startLine;
}

ZJavaProperties::State ZJavaProperties::endPair() {
    storePair();
    return isSearched() ? stop : startLine;
}

// --------------------------------------------------------------------- the handlers of the states

ZJavaProperties::State ZJavaProperties::doStartLineState(char c) {
    key.clear();
    value.clear();
    // Kept: a separator at the very start of a line begins a key; behind blanks it is a fault.
    if (isSeparator(c)) {
        key.append(c);
        return keyChars;
    }
    return doStartLineBlanksState(c);
}

ZJavaProperties::State ZJavaProperties::doStartLineBlanksState(char c) {
    if (isBlank(c)) return startLineBlanks;
    if (isCommentMark(c)) return commentLine;
    if (isLineEnd(c)) return startLine;
    if (isSeparator(c)) return error;
    key.append(c);
    return keyChars;
}

ZJavaProperties::State ZJavaProperties::doCommentLineState(char c) {
    return isLineEnd(c) ? startLine : commentLine;
}

ZJavaProperties::State ZJavaProperties::doKeyCharsState(char c) {
    if (c == '\\') return keyCharEscape;
    if (isBlank(c)) return keyEndBlanksFirst;
    if (isSeparator(c)) return keyEndBlanksFinal;
    if (isLineEnd(c)) return error;
    key.append(c);
    return keyChars;
}

ZJavaProperties::State ZJavaProperties::doKeyCharEscapeState(char c) {
    // Kept: no quotes and no \u, unlike in values.
    if (c != '\\' && !isBlank(c) && !isSeparator(c)) return error;
    key.append(c);
    return keyChars;
}

ZJavaProperties::State ZJavaProperties::doKeyEndBlanksFirstState(char c) {
    if (isBlank(c)) return keyEndBlanksFirst;
    if (isSeparator(c)) return keyEndBlanksFinal;
    if (c == '\\') return valEscape;
    if (isLineEnd(c)) return error;
    value.append(c);
    return valChars;
}

ZJavaProperties::State ZJavaProperties::doKeyEndBlanksFinalState(char c) {
    return isBlank(c) ? keyEndBlanksFinal : doValCharsState(c);
}

ZJavaProperties::State ZJavaProperties::doValCharsState(char c) {
    if (c == '\\') return valEscape;
    if (isLineEnd(c)) return endPair();
    value.append(c);
    return valChars;
}

ZJavaProperties::State ZJavaProperties::doValEscapeState(char c) {
    if (isLineEnd(c)) return multiLineVal;
    if (c == 'u' || c == 'U') return uu0;
    // Kept: ":" and quotes but not "=", unlike in keys; \n, \t and \r are faults.
    if (c != '\\' && !isBlank(c) && c != ':' && c != '"' && c != '\'') return error;
    value.append(c);
    return valChars;
}

ZJavaProperties::State ZJavaProperties::doMultiLineValState(char c) {
    if (isBlank(c)) return multiLineVal;
    if (!isLineEnd(c)) return doValCharsState(c);
    // Kept: unlike in the states before it, a search does not stop here, and stores no other pair.
    if (searchKey.isEmpty() || isSearched()) storePair();
    return startLine;
}

ZJavaProperties::State ZJavaProperties::unicodeDigit(char c, State next) {
    int const digit = hexConv(c);
    if (digit < 0) return error;
    unicodeUnit = static_cast<unsigned short>(unicodeUnit << 4 | digit);
    return next;
}

ZJavaProperties::State ZJavaProperties::doUU0State(char c) {
    unicodeUnit = 0;
    return unicodeDigit(c, uu1);
}

ZJavaProperties::State ZJavaProperties::doUU1State(char c) { return unicodeDigit(c, uu2); }

ZJavaProperties::State ZJavaProperties::doUU2State(char c) { return unicodeDigit(c, uu3); }

ZJavaProperties::State ZJavaProperties::doUU3State(char c) {
    State const next = unicodeDigit(c, valChars);
    if (next == error) return error;
    unsigned char bytes[8];
    unsigned char* end = bytes;
    unsigned short const* from = &unicodeUnit;
    if (zconvert_UTF16_to_UTF8(&from, from + 1, &end, bytes + sizeof bytes) != 0)
        zraise(ZToUTF8Exception(), sourceName, __LINE__);
    for (unsigned char const* byte = bytes; byte < end; ++byte)
        value.append(static_cast<char>(*byte));
    return next;
}

// -------------------------------------------------------------------------------------- the writer

namespace {

constexpr unsigned char lastPlain = 126;

unsigned char byteAt(std::string_view text, std::size_t at) {
    // Behind the end of a character that was cut off stands the terminating NUL.
    return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
}

/// Whether the byte goes into the file as it is. A NUL does, but ends what append() takes.
bool isPlain(char c) {
    return c != '\\' && c != ':' && c != '\0' && static_cast<unsigned char>(c) <= lastPlain;
}

/// Length of the plain text that `text` begins with.
std::size_t plainLength(std::string_view text) {
    std::size_t length = 0;
    while (length < text.size() && isPlain(text[length]))
        ++length;
    return length;
}

void appendHex(ZUTF8String& image, unsigned int code) {
    for (int shift = 12; shift >= 0; shift -= 4)
        image.append("0123456789abcdef"[(code >> shift) & 0xF]);
}

/// Writes the byte above 126 that `text` begins with as an escape, with those that belong to it;
/// their number.
std::size_t appendEscape(ZUTF8String& image, std::string_view text) {
    auto const low6 = [text](std::size_t at) { return byteAt(text, at) & 0x3FU; };
    unsigned int const lead = byteAt(text, 0);
    image.append("\\u");
    switch (lead >> 4) {
        case 0xC:
        case 0xD:
            appendHex(image, (lead & 0x1F) << 6 | low6(1));
            return 2;
        case 0xE:
            appendHex(image, (lead & 0xF) << 12 | low6(1) << 6 | low6(2));
            return 3;
        default:
            // Kept: no digits and no byte; four of them name no character beyond the plane.
            return 1;
    }
}

/// Writes the one byte, or escape, that is not plain; the number of bytes it stands for.
std::size_t appendSpecial(ZUTF8String& image, std::string_view text) {
    if (byteAt(text, 0) > lastPlain) return appendEscape(image, text);
    if (text[0] != '\0') image.append('\\');
    image.append(text[0]);
    return 1;
}

void appendValue(ZUTF8String& image, std::string_view text) {
    while (!text.empty()) {
        std::size_t const plain = plainLength(text);
        image.append(text.data(), static_cast<unsigned int>(plain));
        text.remove_prefix(plain);
        // The escape of a character that was cut off counts bytes that are not there.
        if (!text.empty()) text.remove_prefix(std::min(appendSpecial(image, text), text.size()));
    }
}

}  // namespace

void ZJavaProperties::write(ZUTF8String& image) const {
    image = "#\n";
    pairs().each([&image](zfc::java::Pair const& pair) {
        // Kept: a key is written as it is, up to a NUL; callers keep keys simple.
        image.append(pair.text);
        image.append(" = ");
        appendValue(image, pair.value());
        image.append('\n');
    });
}
