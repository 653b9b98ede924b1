#include "Z/ZAdler32.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "Z/containers/adler_sums.h"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

namespace zfc::containers {
namespace {

constexpr unsigned int lanes = 16;  // bytes summed side by side

/// Side by side is faster in vector registers alone, and there from a few steps on.
#if defined(__SSE2__) || defined(__ARM_NEON)
constexpr unsigned int leastForLanes = 4 * lanes;
#else
constexpr unsigned int leastForLanes = adlerPart + 1;
#endif
static_assert(adlerPart % lanes == 0);

/// Adds `steps` times `lanes` bytes. A byte counts in the second sum once for each byte from it to
/// the end: `lanes` times for each later step, which `earlier` collects, and then by its lane.
void addLanes(AdlerSums& sums, unsigned char const* data, unsigned int steps) {
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
        // Nothing wraps: these are parts of one sum, which adlerPart bounds.
        sums.second += lanes * earlier[i] + (lanes - i) * plain[i];
    }
}

void addBytes(AdlerSums& sums, unsigned char const* data, unsigned int length) {
    for (unsigned int i = 0; i < length; ++i) {
        sums.first += data[i];
        sums.second += sums.first;
    }
}

#if defined(__x86_64__) || defined(__i386__)

constexpr unsigned int wideLanes = 32;
static_assert(adlerPart % wideLanes == 0);

[[gnu::target("avx2")]] std::uint32_t sumOf(__m256i numbers) {
    alignas(sizeof numbers) std::uint32_t number[8];
    _mm256_store_si256(reinterpret_cast<__m256i*>(number), numbers);
    std::uint32_t sum = 0;
    for (std::uint32_t const each : number)
        sum += each;
    return sum;
}

/// As addLanes(), `wideLanes` bytes a step: the instructions sum eight bytes, and four bytes by
/// their lanes, at once. What they put into 64 bits never leaves the lower 32.
[[gnu::target("avx2")]] void addWideLanes(AdlerSums& sums, unsigned char const* data,
                                          unsigned int steps) {
    __m256i const byLane =
        _mm256_setr_epi8(32, 31, 30, 29, 28, 27, 26, 25, 24, 23, 22, 21, 20, 19, 18, 17, 16, 15, 14,
                         13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1);
    __m256i const ones = _mm256_set1_epi16(1);
    __m256i plain = _mm256_setzero_si256();
    __m256i earlier = plain;
    __m256i weighted = plain;
    for (unsigned int step = 0; step < steps; ++step, data += wideLanes) {
        __m256i const bytes = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(data));
        earlier = _mm256_add_epi32(earlier, plain);
        plain = _mm256_add_epi32(plain, _mm256_sad_epu8(bytes, _mm256_setzero_si256()));
        // At most 255 * (32 + 31), which a signed half has room for.
        __m256i const pairs = _mm256_maddubs_epi16(bytes, byLane);
        weighted = _mm256_add_epi32(weighted, _mm256_madd_epi16(pairs, ones));
    }
    sums.second += wideLanes * (steps * sums.first + sumOf(earlier)) + sumOf(weighted);
    sums.first += sumOf(plain);
}

#endif

}  // namespace

void addPlain(AdlerSums& sums, unsigned char const* data, unsigned int length) {
    unsigned int const whole = length < leastForLanes ? 0 : length / lanes * lanes;
    if (whole != 0) addLanes(sums, data, whole / lanes);
    addBytes(sums, data + whole, length - whole);
}

void addFast(AdlerSums& sums, unsigned char const* data, unsigned int length) {
#if defined(__x86_64__) || defined(__i386__)
    if (length >= wideLanes && __builtin_cpu_supports("avx2")) {
        unsigned int const steps = length / wideLanes;
        addWideLanes(sums, data, steps);
        return addBytes(sums, data + std::size_t{steps} * wideLanes, length % wideLanes);
    }
#endif
    addPlain(sums, data, length);
}

}  // namespace zfc::containers

unsigned long ZAdler32::adler32(unsigned long adler, unsigned char const* data,
                                unsigned int length) noexcept {
    constexpr std::uint32_t base = 65521;  // the largest prime below 2^16
    // RFC 1950 begins with 1: this is how a caller asks for the first value.
    if (data == nullptr) return 1;
    if (length == 0) return adler;
    // A long may have 64 bits; what a caller left above the 32 is no part of the sum.
    zfc::containers::AdlerSums sums{static_cast<std::uint32_t>(adler & 0xffff),
                                    static_cast<std::uint32_t>(adler >> 16 & 0xffff)};
    while (length != 0) {
        unsigned int const part = std::min(length, zfc::containers::adlerPart);
        zfc::containers::addFast(sums, data, part);
        // Once a part: the division costs more than the adding of a byte.
        sums = {sums.first % base, sums.second % base};
        data += part;
        length -= part;
    }
    return static_cast<unsigned long>(sums.second) << 16 | sums.first;
}
