/// Shared. Expanding a zlib stream (RFC 1950) whose expanded length nobody knows.
#ifndef Z_CONTAINERS_EXPAND_H
#define Z_CONTAINERS_EXPAND_H

#include <cstddef>
#include <memory>
#include <string_view>

#include "Z/zfree.h"

namespace zfc::containers {

struct Expanded {
    std::unique_ptr<char, ZFree> block;
    std::size_t length = 0;  // bytes

    [[nodiscard]] std::string_view content() const { return {block.get(), length}; }
};

/// Expands the stream `source` of `length` bytes into `out`. It takes time and memory for what it
/// expands to, not for what it could have been. 0, or a status of zlib: -4 no memory; -3 it is
/// damaged, cut off or followed by anything, has 4 GiB or more, or expands to more than `most`
/// bytes, below 4 GiB; `out` is then void.
[[nodiscard]] int expand(void const* source, std::size_t length, std::size_t most, Expanded& out);

}  // namespace zfc::containers

#endif
