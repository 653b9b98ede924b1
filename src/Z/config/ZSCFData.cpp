#include "Z/ZSCFData.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <string_view>
#include <utility>

#include "Z/ZException.h"
#include "Z/config/cache/handed_out.h"
#include "Z/config/cache/records.h"

namespace {

using zfc::cache::Block;
using zfc::cache::Index;
using zfc::cache::isSpace;
using zfc::cache::Key;
using zfc::cache::Line;
using zfc::cache::none;
using zfc::cache::Obfuscated;
using zfc::cache::Records;
using zfc::cache::String;
using zfc::cache::Values;

constexpr char sourceName[] = "src/Z/ZSCFData";
constexpr std::size_t blockSize = std::size_t{64} * 1024;
// Kept: a longer line is split, as a line reader with a buffer of 8192 bytes does: other programs
// read these files that way, and see the same lines under the same numbers.
constexpr std::size_t longestPiece = ZPCategoryBasedCache::maxLine + 1;

/// A line number as an exception holds it.
int reported(std::size_t number) {
    return static_cast<int>(std::min<std::size_t>(number, INT_MAX));
}

// -------------------------------------------------------------------------------- the file's bytes

struct Image {
    Block bytes;         // one more than `length`, for a NUL
    std::size_t length;  // of the file
};

/// What is probably left in the stream, in bytes.
std::size_t sizeHint(FILE* stream) {
    struct stat status {};
    bool const isFile = fstat(fileno(stream), &status) == 0 && S_ISREG(status.st_mode);
    // A file of more than memory can have is found out when it is read, not by a sum that wraps
    // here.
    bool const fits = isFile && static_cast<std::uint64_t>(status.st_size) < SIZE_MAX / 4;
    return fits ? static_cast<std::size_t>(status.st_size) : blockSize;
}

/// Fills the buffer as far as the stream goes; an interrupted read goes on.
std::size_t readBlock(char const* fileName, FILE* stream, char* buffer, std::size_t room) {
    std::size_t got = 0;
    for (;;) {
        // So that what is found there below is of this very call.
        errno = 0;
        got += std::fread(buffer + got, 1, room - got, stream);
        if (std::ferror(stream) == 0) return got;
        if (errno != EINTR)
            zraise(ZPropertiesIOException(fileName, "fread()", errno), sourceName, __LINE__);
        std::clearerr(stream);
    }
}

Image readImage(char const* fileName, FILE* stream) {
    std::size_t capacity = sizeHint(stream) + 2;  // a NUL, and a byte that shows the end
    Image image{zfc::cache::allocateBlock(capacity), 0};
    for (;;) {
        std::size_t const room = capacity - 1 - image.length;
        image.length += readBlock(fileName, stream, image.bytes.get() + image.length, room);
        if (image.length < capacity - 1) break;
        if (capacity > SIZE_MAX / 2) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
        capacity *= 2;
        zfc::cache::resizeBlock(image.bytes, capacity);
    }
    // The records keep the block for good, so what was too much of it goes back.
    zfc::cache::resizeBlock(image.bytes, image.length + 1);
    return image;
}

// ------------------------------------------------------------------------------------- the reader

/// Reads an image into the records. Texts stay where they lie in it: a NUL is put behind each, over
/// white space, a `=`, a `]` or the end of the line.
class Reader {
  public:
    Reader(Records& target, char const* name, bool keepComments, ZLCString& companion)
        : records(target), fileName(name), keepsComments(keepComments), companionName(companion) {}

    void readLines(char* text, std::size_t length);

  private:
    void readLine();
    void readComment(char* start);
    void readHeader(char* start);
    void readKey(char* start);
    std::string_view terminated(char* from, char* to);
    [[noreturn]] void raiseInvalid(int line) const;

    Records& records;
    char const* fileName;
    bool keepsComments;
    ZLCString& companionName;
    Index stanza = none;      // the current one
    bool isDatabase = false;  // it is the one that names the companion file
    std::size_t number = 0;   // of the current line
    char* begin = nullptr;    // the current line
    char* end = nullptr;      // behind its last byte that is no white space
    char* stop = nullptr;     // its line feed, or where the next one begins
    bool hasRoom = false;     // a NUL can be put at `stop`
};

void Reader::readLines(char* text, std::size_t length) {
    char* const textEnd = text + length;
    // Once for the whole image, not line by line: there is hardly ever one.
    auto* const nul = static_cast<char*>(std::memchr(text, '\0', length));
    for (char* at = text; at < textEnd;) {
        // No further than a piece: a file without line feeds is not searched to its end for each of
        // them.
        std::size_t const longest = std::min(longestPiece, static_cast<std::size_t>(textEnd - at));
        auto* const feed = static_cast<char*>(std::memchr(at, '\n', longest));
        ++number;
        begin = at;
        stop = feed != nullptr ? feed : at + longest;
        // Behind a piece of a long line stands the next piece, which a NUL would damage.
        hasRoom = feed != nullptr || stop == textEnd;
        at = feed != nullptr ? feed + 1 : stop;
        for (end = stop; end > begin && isSpace(end[-1]);)
            --end;
        // A text would end there, and the rest of it be lost without a word.
        if (nul != nullptr && nul < at) raiseInvalid(__LINE__);
        readLine();
    }
}

void Reader::readLine() {
    char* start = begin;
    while (start < end && isSpace(*start))
        ++start;
    if (start == end) {
        if (keepsComments) records.lines().appendBlank();
    } else if (*start == '#') {
        readComment(start);
    } else if (*start == '[') {
        readHeader(start);
    } else {
        readKey(start);
    }
}

void Reader::readComment(char* start) {
    if (!keepsComments) return;
    std::string_view const text = terminated(start, end);
    if (text.size() > ZPCategoryBasedCache::maxLine) records.lines().noteUnfit();
    records.lines().appendComment(text);
}

void Reader::readHeader(char* start) {
    char* const from = start + 1;
    auto* const bracket =
        static_cast<char*>(std::memchr(from, ']', static_cast<std::size_t>(end - from)));
    if (bracket == nullptr) raiseInvalid(__LINE__);
    std::string_view const name(from, static_cast<std::size_t>(bracket - from));
    if (records.names().findStanza(name) != none) raiseInvalid(__LINE__);
    if (name.size() + 2 > ZPCategoryBasedCache::maxLine) records.lines().noteUnfit();
    stanza = records.adoptStanza(terminated(from, bracket));
    records.lines().placeStanza(stanza);
    // Once for the stanza, not for each of its keys.
    isDatabase = name == zfc::cache::companionStanza;
}

void Reader::readKey(char* start) {
    auto* const equals =
        static_cast<char*>(std::memchr(start, '=', static_cast<std::size_t>(end - start)));
    bool const isInStanza = stanza != none && !records.names().stanzaName(stanza).empty();
    if (!isInStanza || equals == nullptr || equals == start) raiseInvalid(__LINE__);
    char* nameEnd = equals;
    // Ends in the name, whose first byte is no white space.
    while (isSpace(nameEnd[-1]))
        --nameEnd;
    char* from = equals + 1;
    while (from < end && isSpace(*from))
        ++from;
    std::string_view const value = terminated(from, end);
    std::string_view const name = terminated(start, nameEnd);
    if (name.size() + 3 + value.size() > ZPCategoryBasedCache::maxLine) records.lines().noteUnfit();
    Index const key = records.adoptKey(stanza, name);
    if (!value.empty()) records.adoptValue(key, value, Obfuscated::no);
    if (isDatabase && name == zfc::cache::companionKey) companionName = value.data();
}

std::string_view Reader::terminated(char* from, char* to) {
    std::string_view const text(from, static_cast<std::size_t>(to - from));
    if (to == stop && !hasRoom) return records.copyText(text);
    *to = '\0';
    return text;
}

void Reader::raiseInvalid(int line) const {
    String const data(begin, end);
    zraise(ZPropertiesInvalidDataException(fileName, data.c_str(), reported(number)), sourceName,
           line);
}

// ------------------------------------------------------------------------------------- the writer

/// Gives the lines of the file to a sink, text by text.
template <class Sink>
class Writer {
  public:
    Writer(Records const& source, Sink& target) : records(source), sink(target) {}

    void writeLines() {
        records.lines().each([this](Line const& line) { writeLine(line); });
    }

  private:
    void writeLine(Line const& line) {
        switch (line.kind) {
            case ZPropLine::comment:
                sink.put({line.text, line.length});
                return sink.endLine();
            case ZPropLine::blank:
                return sink.endLine();
            case ZPropLine::header:
                sink.put("[");
                sink.put(records.names().stanzaName(line.owner));
                sink.put("]");
                return sink.endLine();
            default:
                return writeKey(records.names().key(line.owner));
        }
    }

    void writeKey(Key const& key) {
        std::string_view const name = key.getName();
        records.values().each(key, Obfuscated::no, [&](std::string_view value) {
            sink.put(name);
            sink.put(" = ");
            sink.put(value);
            sink.endLine();
        });
        if (key.value != nullptr || Values::isObfuscated(key)) return;
        sink.put(name);
        sink.put(" =");
        sink.endLine();
    }

    Records const& records;
    Sink& sink;
};

/// Raises the error of the first line that no reader would get back whole.
class LengthCheck {
  public:
    explicit LengthCheck(char const* name) : fileName(name) {}

    void put(std::string_view text) { line.append(text); }
    void endLine() {
        ++number;
        if (line.size() > ZPCategoryBasedCache::maxLine)
            zraise(ZPropertiesInvalidDataException(fileName, line.c_str(), reported(number)),
                   sourceName, __LINE__);
        line.clear();
    }

  private:
    char const* fileName;
    String line;             // so far
    std::size_t number = 0;  // of lines that ended
};

/// Collects the bytes and writes them in large blocks.
class BlockWriter {
  public:
    BlockWriter(char const* name, FILE* target)
        : fileName(name), stream(target), block(zfc::cache::allocateBlock(blockSize)) {}

    void put(std::string_view text) {
        // No text is longer than a line, so an empty block has room for any.
        if (text.size() > blockSize - used) flush();
        std::memcpy(block.get() + used, text.data(), text.size());
        used += text.size();
    }
    void endLine() { put("\n"); }
    void flush() {
        std::size_t const written = std::fwrite(block.get(), 1, used, stream);
        if (written != used)
            zraise(ZPropertiesIOException(fileName, "fwrite()", errno), sourceName, __LINE__);
        used = 0;
    }

  private:
    char const* fileName;
    FILE* stream;
    Block block;
    std::size_t used = 0;  // bytes of the block
};

template <class Sink>
void writeLines(Records const& records, Sink& sink) {
    Writer<Sink>(records, sink).writeLines();
}

}  // namespace

// ---------------------------------------------------------------------------------------- ZSCFData

ZSCFData::~ZSCFData() = default;

ZObject* ZSCFData::clone() const { return new ZSCFData(*this); }

void ZSCFData::be_read(char const* fileName, FILE* stream) {
    // Whole in memory before anything changes: a read that fails leaves the values alone.
    Image image = readImage(fileName, stream);
    char* const text = image.bytes.get();
    lists->clear();
    // The block gets another owner, its bytes stay where `text` points.
    records->adoptBlock(std::move(image.bytes), image.length + 1);
    records->lines().startAppending();
    Reader reader(*records, fileName, (attributes & keepComments) != 0, companionName);
    reader.readLines(text, image.length);
    records->tidy();
}

void ZSCFData::be_write(char const* fileName, FILE* stream) {
    // Edits refuse long lines, so only what was read can have some; else the pass is spared.
    if (records->lines().mayHaveUnfit()) {
        LengthCheck check(fileName);
        writeLines(*records, check);
    }
    BlockWriter out(fileName, stream);
    writeLines(*records, out);
    out.flush();
}
