/// Shared. A hash that nobody outside of the process can foresee.
#ifndef Z_UTILITY_KEYED_HASH_H
#define Z_UTILITY_KEYED_HASH_H

#include <cstdint>
#include <string_view>

namespace zfc::utility {

/// SipHash-1-3 (Aumasson, Bernstein: a fast short-input PRF) under a key drawn once per process, so
/// that nobody can write a file whose names collide.
[[nodiscard]] std::uint32_t keyedHash(std::string_view text);

}  // namespace zfc::utility

#endif
