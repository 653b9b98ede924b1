/// Shared. The checksum by which bytes that came back from a device are known.
#ifndef Z_UTILITY_CHECKSUM_H
#define Z_UTILITY_CHECKSUM_H

#include <cstdint>
#include <string_view>

namespace zfc {

/// CRC-32 (RFC 1952, section 8).
[[nodiscard]] std::uint32_t checksum(std::string_view bytes) noexcept;

}  // namespace zfc

#endif
