#include "Z/utility/checksum.h"

#include <zlib.h>

namespace zfc {

std::uint32_t checksum(std::string_view bytes) noexcept {
    auto const* const first = reinterpret_cast<unsigned char const*>(bytes.data());
    return static_cast<std::uint32_t>(crc32_z(0, first, bytes.size()));
}

}  // namespace zfc
