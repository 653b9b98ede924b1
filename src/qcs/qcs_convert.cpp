/// Single characters to wide ones and back, and whole text to UTF-8 and back.
#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <type_traits>

#include "qcs/qcs_codeset.h"
#include "qcs/qcs_compile.h"

namespace qcs {
namespace {

/// What is left of the input.
class Source {
  public:
    /// The text ends behind its NUL, if there is one among the `length` bytes.
    Source(char const* text, std::size_t length)
        : at(text), end(text + std::min(strnlen(text, length) + 1, length)) {}

    [[nodiscard]] char const* data() const { return at; }
    [[nodiscard]] std::size_t size() const { return static_cast<std::size_t>(end - at); }
    void advance(std::size_t bytes) { at += bytes; }

  private:
    char const* at;
    char const* end;
};

/// Output of bounded size, which never goes beyond what an int can tell.
class Sink {
  public:
    Sink(char* out, std::size_t size)
        : start(out), at(out), end(out + std::min<std::size_t>(size, INT_MAX)) {}

    [[nodiscard]] char* place() const { return at; }
    [[nodiscard]] std::size_t room() const { return static_cast<std::size_t>(end - at); }
    void advance(std::size_t bytes) { at += bytes; }
    [[nodiscard]] bool put(char const* bytes, std::size_t length) {
        if (length > room()) return false;
        std::memcpy(at, bytes, length);
        advance(length);
        return true;
    }
    [[nodiscard]] int written() const { return static_cast<int>(at - start); }

  private:
    char const* start;
    char* at;
    char* end;
};

constexpr std::size_t asciiBlock = 32;
/// With that much input left, a block may be written whole though only its beginning counts: what
/// is left becomes as many bytes, of which a character has four at most.
constexpr std::size_t farFromEnd = asciiBlock * longestCharacter;

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "text is read as numbers below");

/// A bit for each byte of the word that is not ASCII, the first byte's the lowest.
constexpr std::uint64_t highBytes(std::uint64_t word) {
    // The bits lie eight apart, the summands of the factor seven: they meet in the highest byte.
    return ((word & highBits) >> 7) * 0x0102040810204080U >> 56;
}

/// Copies a block; the number of bytes in it before the first that is not ASCII. Without a branch:
/// nothing tells how far it is to the next letter with an accent.
inline std::size_t copyAsciiBlock(char const* in, char* out) {
    auto const copyWord = [=](std::size_t offset) {
        std::uint64_t const word = wordAt(in + offset);
        std::memcpy(out + offset, &word, sizeof word);
        return highBytes(word) << offset;
    };
    std::uint64_t const high = copyWord(0) | copyWord(8) | copyWord(16) | copyWord(24);
    return static_cast<std::size_t>(__builtin_ctzll(high | std::uint64_t{1} << asciiBlock));
}

/// Moves the ASCII characters that stand next in both codesets.
inline bool moveAscii(Source& in, Sink& out) {
    while (in.size() >= farFromEnd && out.room() >= asciiBlock) {
        std::size_t const run = copyAsciiBlock(in.data(), out.place());
        in.advance(run);
        out.advance(run);
        if (run < asciiBlock) return true;
    }
    std::size_t const run = asciiRun(in.data(), in.size());
    bool const fits = out.put(in.data(), run);
    in.advance(run);
    return fits;
}

enum class Outcome { done, failed, lacking };  // lacking: the tables have no such character

/// Moves the characters that stand next and have three UTF-8 bytes and two others, which East Asian
/// text is full of; a malformed one is left where it stands, as any other is. There is some input.
inline void moveDoubleBytes(Source& in, EncodingMap::Reader map, Sink& out) {
    std::uint32_t word = 0;
    // A word reaches one byte beyond the character, which is to be there.
    std::size_t left = std::min((in.size() - 1) / 3, out.room() / 2);
    for (; left > 0; --left) {
        std::memcpy(&word, in.data(), sizeof word);
        // 1110xxxx 10xxxxxx 10xxxxxx, the first byte the lowest.
        if ((word & 0xC0C0F0) != 0x8080E0) return;
        CodePoint const upper = (word & 0xF) << 6 | (word >> 8 & 0x3F);
        PackedBytes const bytes = map.find(upper, word >> 16 & 0x3F);
        // Below 0x20: an overlong form. No map has surrogates.
        if (upper < 0x20 || bytes < 0x100 || bytes > 0xFFFF) return;
        out.place()[0] = static_cast<char>(bytes >> 8);
        out.place()[1] = static_cast<char>(bytes);
        in.advance(3);
        out.advance(2);
    }
}

/// Encodes one character.
template <class To>
inline Outcome putCharacter(To const& to, CodePoint code, Sink& out) {
    if (out.room() >= longestCharacter) {
        unsigned const length = to.encode(code, out.place());
        out.advance(length);
        return length > 0 ? Outcome::done : Outcome::lacking;
    }
    std::array<char, longestCharacter> spare{};
    unsigned const length = to.encode(code, spare.data());
    if (length == 0) return Outcome::lacking;
    return out.put(spare.data(), length) ? Outcome::done : Outcome::failed;
}

struct Result {
    Outcome outcome;
    int written;
};

/// Flat, and its places its own: a call for each character would take longer than the character.
template <class From, class To>
[[gnu::flatten]] Result convert(From const& from, To const& to, bool sameAscii, Source in,
                                Sink out) {
    Outcome outcome = Outcome::done;
    while (in.size() > 0 && outcome == Outcome::done) {
        // Most text by far: whole runs of it are copied, not decoded.
        if (sameAscii && static_cast<unsigned char>(*in.data()) < 0x80) {
            if (!moveAscii(in, out)) outcome = Outcome::failed;
            continue;
        }
        if constexpr (std::is_same_v<To, TableCodec>)
            moveDoubleBytes(in, EncodingMap::Reader(to.encoding), out);
        if (in.size() == 0) break;
        Character const next = from.decode(in.data(), in.size());
        outcome = next.length == 0 ? Outcome::failed : putCharacter(to, next.code, out);
        in.advance(next.length);
    }
    return {outcome, out.written()};
}

/// Copies blocks of ASCII up to one that has another character or a NUL; the bytes copied.
std::size_t copyAsciiBlocks(char const* in, char* out, std::size_t n) {
    constexpr std::size_t block = 256;
    constexpr std::uint64_t ones = 0x0101010101010101U;
    std::size_t at = 0;
    for (; n - at >= block; at += block) {
        std::uint64_t odd = 0;
        for (std::size_t i = 0; i < block; i += sizeof odd) {
            std::uint64_t const word = wordAt(in + at + i);
            odd |= word | (word - ones);  // of all bytes below 0x80, a NUL alone becomes more
        }
        if ((odd & highBits) != 0) break;
        std::memcpy(out + at, in + at, block);
    }
    return at;
}

/// Text that is ASCII, as most is, is looked at once, not for its end, its characters and its copy.
int copyUtf8(char const* text, std::size_t length, Sink out) {
    std::size_t const done = copyAsciiBlocks(text, out.place(), std::min(length, out.room()));
    out.advance(done);
    Source const in(text + done, length - done);
    return isUtf8(in.data(), in.size()) && out.put(in.data(), in.size()) ? out.written() : -1;
}

int tablesToUtf8(Codeset const& codeset, Source in, char* out, std::size_t outLen) {
    auto const& table = *codeset.table;
    // Joined characters come out only when their neighbours are seen, which tables do not do.
    if (table.composes)
        return convertByIconv("UTF-8", codeset.iconvName.c_str(), in.data(), in.size(), out,
                              outLen);
    auto const [outcome, written] =
        convert(table, Utf8Codec(), table.asciiExact, in, Sink(out, outLen));
    return outcome == Outcome::done ? written : -1;
}

/// A character that the tables lack may still have a substitute that iconv knows, one that reads
/// back as another character: a Japanese codeset's full-width minus for U+2212, say.
int tablesFromUtf8(Codeset const& codeset, Source in, char* out, std::size_t outLen) {
    auto const& table = *codeset.table;
    Result result{Outcome::lacking, 0};
    if (!table.composes)
        result = convert(Utf8Codec(), table, table.asciiExact, in, Sink(out, outLen));
    if (result.outcome == Outcome::done) return result.written;
    // What lies behind the character that is lacking has not been looked at, and iconv has rules of
    // its own for what is malformed.
    if (result.outcome == Outcome::failed || !isUtf8(in.data(), in.size())) return -1;
    // From the beginning again, over what the tables have written.
    return convertByIconv(codeset.iconvName.c_str(), "UTF-8", in.data(), in.size(), out, outLen);
}

/// The substitute, as above, for a single character.
int substitute(Codeset const& codeset, CodePoint code, char* out) {
    constexpr std::size_t room = 8;  // what qcs_wctomb() asks of its caller
    std::array<char, longestCharacter> utf8{};
    unsigned const length = Utf8Codec::encode(code, utf8.data());
    return convertByIconv(codeset.iconvName.c_str(), "UTF-8", utf8.data(), length, out, room);
}

template <class Convert>
int convertText(qcs_cs_handle cs, char const* in, unsigned inLen, char* out, unsigned outLen,
                Convert&& byTables) {
    Codeset const* const codeset = findCodeset(cs);
    if (codeset == nullptr) return -1;
    // The handle comes before this: with one that is none even empty text fails.
    if (in == nullptr || inLen == 0) return 0;
    if (out == nullptr) return -1;
    if (codeset->table == nullptr) return copyUtf8(in, inLen, Sink(out, outLen));
    return byTables(*codeset, Source(in, inLen), out, outLen);
}

Character decodeAt(qcs_cs_handle cs, char const* p, unsigned n) {
    return withCodec(cs, malformed, [=](auto const& codec) { return codec.decode(p, n); });
}

/// Decodes by `decode` and converts each character by `convertOne`.
template <class Decode, class Convert>
long stopOf(char const* in, unsigned inLen, Decode&& decode, Convert&& convertOne) {
    constexpr unsigned room = 64;  // more than any character becomes
    std::array<char, room> out{};
    unsigned const end = in == nullptr ? 0 : static_cast<unsigned>(strnlen(in, inLen));
    for (unsigned at = 0; at < end;) {
        Character const next = decode(in + at, end - at);
        if (next.length == 0 || convertOne(in + at, next.length, out.data(), room) < 0) return at;
        at += next.length;
    }
    return -1;
}

}  // namespace
}  // namespace qcs

long qcs_to_utf8_stop(qcs_cs_handle cs, char const* in, unsigned int inLen) {
    return qcs::stopOf(
        in, inLen, [=](char const* p, unsigned n) { return qcs::decodeAt(cs, p, n); },
        [=](char const* p, unsigned n, char* out, unsigned room) {
            return qcs_to_utf8(cs, p, n, out, room);
        });
}

long qcs_from_utf8_stop(qcs_cs_handle cs, char const* in, unsigned int inLen) {
    return qcs::stopOf(
        in, inLen, [](char const* p, unsigned n) { return qcs::Utf8Codec().decode(p, n); },
        [=](char const* p, unsigned n, char* out, unsigned room) {
            return qcs_from_utf8(cs, p, n, out, room);
        });
}

int qcs_to_utf8(qcs_cs_handle cs, char const* in, unsigned int inLen, char* out,
                unsigned int outLen) {
    return qcs::convertText(cs, in, inLen, out, outLen, qcs::tablesToUtf8);
}

int qcs_from_utf8(qcs_cs_handle cs, char const* in, unsigned int inLen, char* out,
                  unsigned int outLen) {
    return qcs::convertText(cs, in, inLen, out, outLen, qcs::tablesFromUtf8);
}

int qcs_mblen(qcs_cs_handle cs, char const* p, unsigned int n) {
    if (p == nullptr || n == 0 || *p == 0) return 0;
    auto const length = static_cast<int>(qcs::decodeAt(cs, p, n).length);
    return length > 0 ? length : -1;
}

int qcs_mbtowc(qcs_cs_handle cs, qcs_wchar* wide, char const* p, unsigned int n) {
    bool const isEnd = p == nullptr || n == 0 || *p == 0;
    qcs::Character const here = isEnd ? qcs::Character{0, 0} : qcs::decodeAt(cs, p, n);
    // A cluster's code is above too: it has no wide form.
    if (!isEnd && (here.length == 0 || here.code > 0xFFFF)) return -1;
    if (wide != nullptr) *wide = static_cast<qcs_wchar>(here.code);
    return static_cast<int>(here.length);
}

int qcs_wctomb(qcs_cs_handle cs, char* out, qcs_wchar wide) {
    if (out == nullptr || qcs::isSurrogate(wide)) return -1;
    qcs::Codeset const* const codeset = qcs::findCodeset(cs);
    if (codeset == nullptr) return -1;
    if (codeset->table == nullptr) return static_cast<int>(qcs::Utf8Codec::encode(wide, out));
    auto const length = static_cast<int>(codeset->table->encode(wide, out));
    if (length > 0) return length;
    int const substituted = qcs::substitute(*codeset, wide, out);
    return substituted > 0 ? substituted : -1;
}
