/// The two sums of an Adler-32 checksum.
#ifndef Z_CONTAINERS_ADLER_SUMS_H
#define Z_CONTAINERS_ADLER_SUMS_H

#include <cstdint>

namespace zfc::containers {

struct AdlerSums {
    std::uint32_t first, second;
};

/// The most bytes that keep the second sum in 32 bits, in whole steps of both ways to add.
constexpr unsigned int adlerPart = 5536;

/// Add `length` bytes, at most adlerPart, to sums below 65521, which the caller reduces afterwards.
/// The second takes the vector instructions of the processor at hand.
void addPlain(AdlerSums& sums, unsigned char const* data, unsigned int length);
void addFast(AdlerSums& sums, unsigned char const* data, unsigned int length);

}  // namespace zfc::containers

#endif
