/// Checking whole text for UTF-8, block by block.
#include <algorithm>

#include "qcs/qcs_codec.h"

namespace qcs {
namespace {

constexpr std::size_t blockSize = 64;
constexpr std::size_t longBlock = 256;

/// Whether the `size` bytes at `p` are ASCII. Without a branch for where that ends, which nothing
/// foretells.
template <std::size_t size>
[[gnu::always_inline]] inline bool isAscii(char const* p) {
    std::uint64_t words = 0;
    for (std::size_t i = 0; i < size; i += sizeof words)
        words |= wordAt(p + i);
    return (words & highBits) == 0;
}

/// Whether the block at `p` has something malformed in it, or a character of four bytes, which are
/// rare. What ends behind the block is right as far as it goes. The two bytes before the block are
/// read too. Every byte is judged by itself and without a branch, so that the compiler makes vector
/// code of it.
[[gnu::always_inline]] inline bool isOdd(char const* p) {
    auto const* const bytes = reinterpret_cast<unsigned char const*>(p);
    unsigned char odd = 0;  // no wider than what is compared, or a vector holds a quarter of it
    for (std::ptrdiff_t i = 0; i < static_cast<std::ptrdiff_t>(blockSize); ++i) {
        unsigned char const byte = bytes[i];
        unsigned char const before = bytes[i - 1];
        unsigned char const secondBefore = bytes[i - 2];
        bool const isTrail = static_cast<signed char>(byte) < -0x40;
        bool const isTrailDue = (before >= 0xC0) | (secondBefore >= 0xE0);
        bool const isNoLead = (byte >= 0xF0) | ((byte & 0xFE) == 0xC0);
        bool const isOverlong = (before == 0xE0) & (byte < 0xA0);
        bool const isSurrogate = (before == 0xED) & (byte >= 0xA0);
        odd |= static_cast<unsigned char>((isTrail ^ isTrailDue) | isNoLead | isOverlong |
                                          isSurrogate);
    }
    return odd != 0;
}

/// Whether the character that the bytes before `p` begin goes on there.
[[gnu::always_inline]] inline bool isTrailDue(char const* p) {
    auto const* const bytes = reinterpret_cast<unsigned char const*>(p);
    return bytes[-1] >= 0xC0 || bytes[-2] >= 0xE0;
}

/// Offset behind the blocks from `at` on that have nothing odd, where a character begins.
[[gnu::always_inline]] inline std::size_t blocksEnd(char const* p, std::size_t at, std::size_t n) {
    while (n - at >= blockSize) {
        bool const isPlain = isAscii<blockSize>(p + at) && !isTrailDue(p + at);
        if (!isPlain && isOdd(p + at)) break;
        at += blockSize;
        // Where there is a block of it, there are more as a rule.
        while (isPlain && n - at >= longBlock && isAscii<longBlock>(p + at))
            at += longBlock;
    }
    // Back to the first byte of what does not end in the last block.
    if (static_cast<unsigned char>(p[at - 1]) >= 0xC0) return at - 1;
    return static_cast<unsigned char>(p[at - 2]) >= 0xE0 ? at - 2 : at;
}

std::size_t blocksEndPlain(char const* p, std::size_t at, std::size_t n) {
    return blocksEnd(p, at, n);
}

#if defined(__x86_64__) || defined(__i386__)
[[gnu::target("avx2")]] std::size_t blocksEndAvx2(char const* p, std::size_t at, std::size_t n) {
    return blocksEnd(p, at, n);
}
auto chooseBlocksEnd() { return __builtin_cpu_supports("avx2") ? blocksEndAvx2 : blocksEndPlain; }
#else
auto chooseBlocksEnd() { return blocksEndPlain; }
#endif

template <class BlocksEnd>
bool isUtf8By(BlocksEnd&& blocksEndOf, char const* p, std::size_t n) {
    std::size_t at = 0;
    // Before the first block there are to be two bytes; a block that is odd is taken character by
    // character.
    for (std::size_t stop = 2; at < n; stop = at + blockSize) {
        while (at < std::min(n, stop)) {
            Character const next = Utf8Codec::decode(p + at, n - at);
            if (next.length == 0) return false;
            at += next.length;
        }
        if (n - at >= blockSize) at = blocksEndOf(p, at, n);
    }
    return true;
}

}  // namespace

bool isUtf8(char const* p, std::size_t n) { return isUtf8By(chooseBlocksEnd(), p, n); }

bool isUtf8Plain(char const* p, std::size_t n) { return isUtf8By(blocksEndPlain, p, n); }

}  // namespace qcs
