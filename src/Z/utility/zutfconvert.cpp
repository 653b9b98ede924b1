#include "Z/zutfconvert.h"

#include <cstddef>

namespace {

enum Result { converted = 0, targetExhausted = 2 };

constexpr bool isHigh(unsigned unit) { return (unit & 0xFC00U) == 0xD800; }
constexpr bool isLow(unsigned unit) { return (unit & 0xFC00U) == 0xDC00; }

/// The character at `at` and the units it takes.
struct Unit16Character {
    unsigned code;
    int units;
};

Unit16Character characterAt(unsigned short const* at, unsigned short const* end) {
    unsigned const first = at[0];
    // Kept: a lone surrogate passes through, for callers that carry ill-formed UTF-16 faithfully.
    if (!isHigh(first) || end - at < 2 || !isLow(at[1])) return {first, 1};
    return {0x10000 + ((first - 0xD800) << 10) + (at[1] - 0xDC00U), 2};
}

std::ptrdiff_t encodedLength(unsigned code) {
    return code < 0x80 ? 1 : code < 0x800 ? 2 : code < 0x10000 ? 3 : 4;
}

void encode(unsigned code, std::ptrdiff_t length, unsigned char* out) {
    constexpr unsigned firstMarks[] = {0, 0x00, 0xC0, 0xE0, 0xF0};
    for (std::ptrdiff_t i = length - 1; i > 0; --i, code >>= 6)
        out[i] = static_cast<unsigned char>(0x80 | (code & 0x3F));
    out[0] = static_cast<unsigned char>(firstMarks[length] | code);
}

}  // namespace

int zconvert_UTF16_to_UTF8(unsigned short const** src, unsigned short const* srcEnd,
                           unsigned char** dst, unsigned char* dstEnd) {
    while (*src < srcEnd) {
        Unit16Character const next = characterAt(*src, srcEnd);
        std::ptrdiff_t const length = encodedLength(next.code);
        // Before either pointer moves: the caller goes on with this character in a new target.
        if (dstEnd - *dst < length) return targetExhausted;
        encode(next.code, length, *dst);
        *src += next.units;
        *dst += length;
    }
    return converted;
}
