#include "Z/ZAdler32.h"

#include <algorithm>
#include <cstdint>

namespace {

constexpr std::uint32_t base = 65521;       // the largest prime below 2^16
constexpr unsigned int reduceAfter = 5552;  // most bytes that keep the second sum in 32 bits
constexpr unsigned int lanes = 16;          // bytes summed side by side

/// Side by side is faster in vector registers alone, and there from a few steps on.
#if defined(__SSE2__) || defined(__ARM_NEON)
constexpr unsigned int leastForLanes = 4 * lanes;
#else
constexpr unsigned int leastForLanes = reduceAfter + 1;
#endif
static_assert(reduceAfter % lanes == 0);

struct Sums {
    std::uint32_t first, second;
};

/// Adds `steps` times `lanes` bytes. A byte counts in the second sum once for each byte from it to
/// the end: `lanes` times for each later step, which `earlier` collects, and then by its lane.
void addLanes(Sums& sums, unsigned char const* data, unsigned int steps) {
    std::uint32_t plain[lanes] = {};
    std::uint32_t earlier[lanes] = {};
    for (; steps != 0; --steps, data += lanes) {
        // sums.first stays what it was before the loop: the bytes read here count through
        // `earlier`.
        sums.second += lanes * sums.first;
        for (unsigned int i = 0; i < lanes; ++i) {
            // Before the step's own byte is in: a byte is an earlier one from the next step on.
            earlier[i] += plain[i];
            plain[i] += data[i];
        }
    }
    for (unsigned int i = 0; i < lanes; ++i) {
        sums.first += plain[i];
        // Nothing wraps: these are parts of one sum, which reduceAfter bounds.
        sums.second += lanes * earlier[i] + (lanes - i) * plain[i];
    }
}

void addBytes(Sums& sums, unsigned char const* data, unsigned int length) {
    for (unsigned int i = 0; i < length; ++i) {
        sums.first += data[i];
        sums.second += sums.first;
    }
}

}  // namespace

unsigned long ZAdler32::adler32(unsigned long adler, unsigned char const* data,
                                unsigned int length) noexcept {
    // RFC 1950 begins with 1: this is how a caller asks for the first value.
    if (data == nullptr) return 1;
    if (length == 0) return adler;
    // A long may have 64 bits; what a caller left above the 32 is no part of the sum.
    Sums sums{static_cast<std::uint32_t>(adler & 0xffff),
              static_cast<std::uint32_t>(adler >> 16 & 0xffff)};
    while (length != 0) {
        unsigned int const part = std::min(length, reduceAfter);
        unsigned int const whole = part < leastForLanes ? 0 : part / lanes * lanes;
        if (whole != 0) addLanes(sums, data, whole / lanes);
        addBytes(sums, data + whole, part - whole);
        // Once a part: the division costs more than the adding of a byte.
        sums = {sums.first % base, sums.second % base};
        data += part;
        length -= part;
    }
    return static_cast<unsigned long>(sums.second) << 16 | sums.first;
}
