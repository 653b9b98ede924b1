/// Shared. The hash of the property cache's names.
#ifndef Z_CONFIG_CACHE_NAME_HASH_H
#define Z_CONFIG_CACHE_NAME_HASH_H

#include <cstdint>
#include <cstring>
#include <string_view>

#include "Z/utility/keyed_hash.h"

namespace zfc::cache {

#if defined(__SIZEOF_INT128__)

/// A polynomial modulo the prime 2^61 - 1, at a point that is drawn once per process: its
/// coefficients are the bytes of the name, seven at a time. Two names of n bytes meet at n / 7 + 1
/// of the 2^61 points at most, so that nobody can write a file whose names collide. A third of the
/// work of a hash that has to hide its key from those who see its results, which nobody does here.
class NameHash {
  public:
    [[nodiscard]] static std::uint32_t of(std::string_view name) {
        static NameHash const drawn;
        return drawn.hash(name);
    }

  private:
    __extension__ using Wide = unsigned __int128;
    static constexpr std::uint64_t prime = (std::uint64_t{1} << 61U) - 1;
    static constexpr std::size_t step = 7;  // bytes of a coefficient, which is below the prime

    NameHash()
        : point((std::uint64_t{utility::keyedHash("upper half")} << 32U |
                 utility::keyedHash("lower half")) %
                prime) {}

    [[nodiscard]] std::uint32_t hash(std::string_view name) const {
        char const* at = name.data();
        std::size_t left = name.size();
        std::uint64_t sum = 0;
        for (; left >= 8; left -= step, at += step)
            sum = times(sum + (wordAt(at) & 0xffffffffffffffU));
        sum = times(sum + lastWord(at, left, name.size()));
        if (sum >= prime) sum -= prime;
        // Names that are counted on lie in even steps, which the table's lower bits would show.
        return static_cast<std::uint32_t>(((sum ^ sum >> 29U) * 0x9E3779B97F4A7C15U) >> 32U);
    }
    /// The product with the point; reduced but for a few.
    [[nodiscard]] std::uint64_t times(std::uint64_t sum) const {
        Wide const product = Wide{sum} * point;
        std::uint64_t const folded = (static_cast<std::uint64_t>(product) & prime) +
                                     static_cast<std::uint64_t>(product >> 61U);
        return (folded & prime) + (folded >> 61U);
    }
    /// In the machine's byte order: no hash leaves the process.
    static std::uint64_t wordAt(char const* at) {
        std::uint64_t word = 0;
        std::memcpy(&word, at, sizeof word);
        return word;
    }
    /// The `count` (below 8, and not 0 of a longer name) bytes that are left, and a mark behind
    /// them, so that names of different lengths differ.
    static std::uint64_t lastWord(char const* at, std::size_t count, std::size_t length) {
        std::uint64_t word = 0;
        if (length >= 8) {  // at once, with bytes before them that are shifted out
            word = wordAt(at + count - 8) >> (8 * (8 - count));
        } else {
            for (std::size_t i = 0; i < count; ++i)
                word |= std::uint64_t{static_cast<unsigned char>(at[i])} << (8 * i);
        }
        return word | std::uint64_t{1} << (8 * count);
    }

    std::uint64_t point;
};

[[nodiscard]] inline std::uint32_t hashName(std::string_view name) { return NameHash::of(name); }

#else  // no product is wide enough

[[nodiscard]] inline std::uint32_t hashName(std::string_view name) {
    return utility::keyedHash(name);
}

#endif

}  // namespace zfc::cache

#endif
