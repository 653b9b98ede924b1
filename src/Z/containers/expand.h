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

/// How the expansion of a stream ended.
enum class StreamEnd {
    whole,
    cutOff,    // the stream goes on, the source does not
    followed,  // there is more behind it
    full,      // it goes on, and would expand to more than is allowed
    damaged,   // or longer than 4 GiB
    noMemory
};

/// Expands the beginning of the stream `source` of `length` bytes into `out`: `most` bytes, below
/// 4 GiB, at most. It takes time and memory for what it expands to, not for what it could have
/// been.
[[nodiscard]] StreamEnd expandStart(void const* source, std::size_t length, std::size_t most,
                                    Expanded& out);

/// Expands the stream `source` of `length` bytes into `out`. 0, or a status of zlib: -4 no
/// memory; -3 it is damaged, cut off or followed by anything, has 4 GiB or more, or expands to more
/// than `most` bytes, below 4 GiB; `out` is then void.
[[nodiscard]] int expand(void const* source, std::size_t length, std::size_t most, Expanded& out);

}  // namespace zfc::containers

#endif
