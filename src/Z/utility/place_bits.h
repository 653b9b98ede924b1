/// Shared. Looking at several bytes of text at once.
#ifndef Z_UTILITY_PLACE_BITS_H
#define Z_UTILITY_PLACE_BITS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace zfc::utility {

/// The number of places that placeBits() looks at.
constexpr std::size_t bitPlaces = 16;

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the first byte is the lowest of a word");

using Marks = std::array<char, bitPlaces>;  // each 0 or 1

/// The marks as bits, without a branch.
[[nodiscard]] inline unsigned gatherPlain(Marks const& marks) {
    std::array<std::uint64_t, 2> words{};
    std::memcpy(words.data(), marks.data(), marks.size());
    // The bits of a word lie eight apart, the summands of the factor seven: they meet in the
    // highest byte.
    constexpr std::uint64_t factor = 0x0102040810204080U;
    return static_cast<unsigned>(words[0] * factor >> 56 | words[1] * factor >> 56 << 8);
}

#ifdef __SSE2__
[[nodiscard]] inline unsigned gather(Marks const& marks) {
    __m128i block;
    std::memcpy(&block, marks.data(), sizeof block);
    // The instruction takes the highest bit of each byte.
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_slli_epi16(block, 7)));
}
#else
[[nodiscard]] inline unsigned gather(Marks const& marks) { return gatherPlain(marks); }
#endif

/// A bit for each of the places 0 to 15 for which `test` says yes, the first one's the lowest. A
/// test without a branch becomes vector code: what is looked for may be anywhere, and a branch for
/// every byte would be predicted wrongly each time.
template <class Test>
[[nodiscard]] inline unsigned placeBits(Test const& test) {
    Marks marks{};
    for (std::size_t i = 0; i < marks.size(); ++i)
        marks[i] = static_cast<char>(int{test(i)});
    return gather(marks);
}

}  // namespace zfc::utility

#endif
