/// Reading and writing single characters: strict UTF-8, and codesets compiled into tables.
///
/// Both codecs offer decode(), encode(), maxLength(), isOneToOne() and isAsciiExact(), so that
/// everything above is one template over the codec. A decoder stops at a NUL that should be a later
/// byte of a character: a caller that walks NUL-terminated text may tell it `longestCharacter`
/// bytes wherever it stands.
#ifndef QCS_QCS_CODEC_H
#define QCS_QCS_CODEC_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace qcs {

/// A Unicode code point; values above `lastCodePoint` stand for what has none of its own.
using CodePoint = std::uint32_t;

constexpr CodePoint lastCodePoint = 0x10FFFF;
constexpr std::size_t longestCharacter = 4;

/// A decoded character and the bytes it took; 0 bytes: malformed or cut off.
struct Character {
    CodePoint code;
    unsigned length;
};
constexpr Character malformed{0, 0};

constexpr bool isSurrogate(CodePoint code) { return (code & 0xFFFFF800U) == 0xD800; }

constexpr std::uint64_t highBits = 0x8080808080808080U;

inline std::uint64_t wordAt(char const* p) {
    std::uint64_t word = 0;
    // Text is aligned to nothing; the copy becomes one load.
    std::memcpy(&word, p, sizeof word);
    return word;
}

/// Number of leading bytes below 0x80 among the `n` at `p`.
inline std::size_t asciiRun(char const* p, std::size_t n) {
    constexpr std::size_t size = sizeof highBits;
    std::size_t run = 0;
    // Four words for one branch, which is what bounds the speed.
    for (; n - run >= 4 * size; run += 4 * size) {
        char const* const at = p + run;
        std::uint64_t const words =
            wordAt(at) | wordAt(at + size) | wordAt(at + 2 * size) | wordAt(at + 3 * size);
        if ((words & highBits) != 0) break;
    }
    while (n - run >= size && (wordAt(p + run) & highBits) == 0)
        run += size;
    while (run < n && static_cast<unsigned char>(p[run]) < 0x80)
        ++run;
    return run;
}

/// UTF-8 as of RFC 3629.
class Utf8Codec {
  public:
    static constexpr std::size_t maxLength() { return 4; }
    static constexpr bool isOneToOne() { return true; }
    static constexpr bool isAsciiExact() { return true; }

    /// The character at `p`, which has `n` (at least 1) bytes left.
    static Character decode(char const* p, std::size_t n) {
        auto const lead = static_cast<unsigned char>(*p);
        if (lead < 0x80) return {lead, 1};
        // Trail bytes, and the 0xC0 and 0xC1 of overlong forms.
        if (lead < 0xC2) return malformed;
        if (lead < 0xE0) return decodeTwo(p, n);
        if (lead < 0xF0) return decodeThree(p, n);
        return lead < 0xF5 ? decodeFour(p, n) : malformed;  // from 0xF5 on: beyond U+10FFFF
    }

    /// Writes `code`, at most `lastCodePoint` and no surrogate; the bytes written.
    static unsigned encode(CodePoint code, char* out) {
        if (code < 0x80) {
            out[0] = static_cast<char>(code);
            return 1;
        }
        if (code < 0x800) {
            out[0] = static_cast<char>(0xC0 | code >> 6);
            out[1] = trail(code);
            return 2;
        }
        if (code < 0x10000) {
            out[0] = static_cast<char>(0xE0 | code >> 12);
            out[1] = trail(code >> 6);
            out[2] = trail(code);
            return 3;
        }
        out[0] = static_cast<char>(0xF0 | code >> 18);
        out[1] = trail(code >> 12);
        out[2] = trail(code >> 6);
        out[3] = trail(code);
        return 4;
    }

  private:
    static bool isTrail(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }
    static char trail(CodePoint code) { return static_cast<char>(0x80 | (code & 0x3F)); }
    static CodePoint bits(char byte, unsigned mask) {
        return static_cast<unsigned char>(byte) & mask;
    }

    static Character decodeTwo(char const* p, std::size_t n) {
        if (n < 2 || !isTrail(p[1])) return malformed;
        return {bits(p[0], 0x1F) << 6 | bits(p[1], 0x3F), 2};
    }
    static Character decodeThree(char const* p, std::size_t n) {
        // In this order, here and below: a NUL is no trail byte, and nothing behind it is read.
        if (n < 3 || !isTrail(p[1]) || !isTrail(p[2])) return malformed;
        CodePoint const code = bits(p[0], 0x0F) << 12 | bits(p[1], 0x3F) << 6 | bits(p[2], 0x3F);
        // RFC 3629 forbids both: overlong forms would slip past searches for the short one.
        return code < 0x800 || isSurrogate(code) ? malformed : Character{code, 3};
    }
    static Character decodeFour(char const* p, std::size_t n) {
        if (n < 4 || !isTrail(p[1]) || !isTrail(p[2]) || !isTrail(p[3])) return malformed;
        CodePoint const code = bits(p[0], 0x07) << 18 | bits(p[1], 0x3F) << 12 |
                               bits(p[2], 0x3F) << 6 | bits(p[3], 0x3F);
        return code < 0x10000 || code > lastCodePoint ? malformed : Character{code, 4};
    }
};

/// True when the `n` bytes at `p` are whole UTF-8 characters.
bool isUtf8(char const* p, std::size_t n);
/// The same without the instructions that only some processors have.
bool isUtf8Plain(char const* p, std::size_t n);

/// Bytes of a character packed into a number, first byte highest. Only NUL begins with a zero byte,
/// so the number tells their length; 0 is none.
using PackedBytes = std::uint32_t;

/// Writes the bytes, of which there are some; their number.
inline unsigned unpack(PackedBytes bytes, char* out) {
    if (bytes < 0x100) {
        out[0] = static_cast<char>(bytes);
        return 1;
    }
    if (bytes < 0x10000) {
        out[0] = static_cast<char>(bytes >> 8);
        out[1] = static_cast<char>(bytes);
        return 2;
    }
    unsigned const length = bytes < 0x1000000 ? 3 : 4;
    for (unsigned i = length; i > 0; bytes >>= 8)
        out[--i] = static_cast<char>(bytes);
    return length;
}

/// From code points to bytes: pages of as many as one trail byte of UTF-8 tells apart, the first of
/// which is empty and shared.
class EncodingMap {
  public:
    static constexpr unsigned pageBits = 6;
    using Page = std::array<PackedBytes, 1U << pageBits>;

    EncodingMap() : pageOf((lastCodePoint >> pageBits) + 1, 0), pages(1) { pages[0].fill(0); }

    /// Looks up. Apart, since its places stay in registers while text is written.
    class Reader {
      public:
        explicit Reader(EncodingMap const& map)
            : pageOf(map.pageOf.data()), pages(map.pages.data()) {}
        /// A code point in two parts: the upper bits, and the lowest `pageBits` of them.
        [[nodiscard]] PackedBytes find(CodePoint upper, CodePoint lower) const {
            return pages[pageOf[upper]][lower];
        }

      private:
        std::uint16_t const* pageOf;
        Page const* pages;
    };

    [[nodiscard]] PackedBytes find(CodePoint code) const {
        return Reader(*this).find(code >> pageBits, code % (1U << pageBits));
    }
    void set(CodePoint code, PackedBytes bytes);

  private:
    std::vector<std::uint16_t> pageOf;
    std::vector<Page> pages;
};

/// The four-byte characters of GB18030: digits of bases 10, 126, 10 and 126. The first of them lie
/// in the Basic Multilingual Plane and need a table; those of the other planes follow in order.
class FourByteBlock {
  public:
    static constexpr std::uint32_t bmpCount = 39420;
    static constexpr std::uint32_t supplementaryStart = 189000;

    [[nodiscard]] Character decode(char const* p, std::size_t n) const;
    /// Writes a code point above U+FFFF.
    static unsigned encodeSupplementary(CodePoint code, char* out);
    static std::array<char, 4> bytesOf(std::uint32_t index);

    std::vector<std::uint16_t>
        bmp;  ///< code points by index, 0 where there is none; empty: no block
};

/// A codeset compiled into tables. Filled by compileCodeset() and constant from then on.
class TableCodec {
  public:
    /// A decoding step for each value of one byte: a code point, a cluster, or one of the below.
    using Node = std::array<std::uint32_t, 256>;
    static constexpr std::uint32_t branchFlag = 0x80000000;  ///< with the next node's index
    static constexpr std::uint32_t invalidEntry = 0xFFFFFFFF;
    static constexpr std::uint32_t fourByteEntry = 0xFFFFFFFE;  ///< to be read by the FourByteBlock
    static constexpr CodePoint firstCluster = lastCodePoint + 1;

    [[nodiscard]] std::size_t maxLength() const { return longest; }
    /// True when no two byte sequences are the same code point.
    [[nodiscard]] bool isOneToOne() const { return !hasSynonyms; }
    /// True when all bytes below 0x80 are the ASCII characters.
    [[nodiscard]] bool isAsciiExact() const { return asciiExact; }

    /// The character at `p`, which has `n` (at least 1) bytes left. A character that stands for
    /// several code points at once has a code from `firstCluster` on.
    [[nodiscard]] Character decode(char const* p, std::size_t n) const {
        std::uint32_t entry = nodes[0][static_cast<unsigned char>(*p)];
        for (unsigned length = 1;; ++length) {
            if ((entry & branchFlag) == 0) return {entry, length};
            if (entry >= fourByteEntry) break;
            // A NUL needs no check of its own: no node has an entry for it but the first.
            if (length >= n) return malformed;
            entry = nodes[entry & ~branchFlag][static_cast<unsigned char>(p[length])];
        }
        return entry == fourByteEntry ? fourByte.decode(p, n) : malformed;
    }

    /// Writes the character; 0 when the codeset has none that stands for `code`.
    unsigned encode(CodePoint code, char* out) const {
        // The map ends there; above are clusters and undefined bytes, which stand for no code
        // point.
        PackedBytes const bytes = code <= lastCodePoint ? encoding.find(code) : 0;
        return bytes != 0 ? unpack(bytes, out) : encodeUnmapped(code, out);
    }

    /// True when the other one's tables are the same, hence its codeset.
    [[nodiscard]] bool decodesAs(TableCodec const& other) const {
        return nodes == other.nodes && fourByte.bmp == other.fourByte.bmp;
    }

    std::vector<Node> nodes;
    EncodingMap encoding;
    FourByteBlock fourByte;
    std::size_t longest = 1;
    bool asciiExact = true;    ///< all bytes below 0x80 are the ASCII characters
    bool hasSynonyms = false;  ///< some code points have several byte sequences
    bool composes = false;     ///< neighbouring characters join when whole text is converted

  private:
    unsigned encodeUnmapped(CodePoint code, char* out) const;
};

}  // namespace qcs

#endif
