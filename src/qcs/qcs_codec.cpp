#include "qcs/qcs_codec.h"

namespace qcs {

void EncodingMap::set(CodePoint code, PackedBytes bytes) {
    // Stays valid below: the pages move when they grow, their numbers do not.
    std::uint16_t& page = pageOf[code >> pageBits];
    // Page 0 stands for all that is empty, and is never written.
    if (page == 0) {
        pages.emplace_back().fill(0);
        page = static_cast<std::uint16_t>(pages.size() - 1);
    }
    pages[page][code % (1U << pageBits)] = bytes;
}

std::array<char, 4> FourByteBlock::bytesOf(std::uint32_t index) {
    // 12600 = 10 * 126 * 10 characters share a first byte, 1260 of them a second one.
    return {static_cast<char>(0x81 + index / 12600), static_cast<char>(0x30 + index / 1260 % 10),
            static_cast<char>(0x81 + index / 10 % 126), static_cast<char>(0x30 + index % 10)};
}

Character FourByteBlock::decode(char const* p, std::size_t n) const {
    static constexpr std::array<unsigned, 4> first{0x81, 0x30, 0x81, 0x30};
    static constexpr std::array<unsigned, 4> base{126, 10, 126, 10};
    std::uint32_t index = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        // Unsigned: a byte below the first one of its place becomes a great number, and no digit.
        unsigned const digit = i < n ? static_cast<unsigned char>(p[i]) - first[i] : base[i];
        if (digit >= base[i]) return malformed;
        index = index * base[i] + digit;
    }
    // Between the two parts there are characters of no code point; they are malformed.
    if (index < bmpCount) return bmp[index] == 0 ? malformed : Character{bmp[index], 4};
    CodePoint const code = index - supplementaryStart + 0x10000;
    return index < supplementaryStart || code > lastCodePoint ? malformed : Character{code, 4};
}

unsigned FourByteBlock::encodeSupplementary(CodePoint code, char* out) {
    auto const bytes = bytesOf(code - 0x10000 + supplementaryStart);
    std::memcpy(out, bytes.data(), bytes.size());
    return 4;
}

/// What the map has no bytes for.
unsigned TableCodec::encodeUnmapped(CodePoint code, char* out) const {
    // Packed bytes of 0 are none, so NUL has no entry in the map.
    if (code == 0) {
        *out = 0;
        return 1;
    }
    bool const isSupplementary = code > 0xFFFF && code <= lastCodePoint;
    if (!isSupplementary || fourByte.bmp.empty()) return 0;
    return FourByteBlock::encodeSupplementary(code, out);
}

}  // namespace qcs
