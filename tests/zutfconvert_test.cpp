#include "Z/zutfconvert.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/codesets.h"

namespace {

using Units = std::vector<unsigned short>;

struct Conversion {
    int result;
    std::size_t unitsTaken;
    std::string bytes;
};

Conversion convert(const Units& units, std::size_t room) {
    std::vector<unsigned char> out(room);
    const unsigned short* src = units.data();
    unsigned char* dst = out.data();
    int const result =
        zconvert_UTF16_to_UTF8(&src, src + units.size(), &dst, out.data() + out.size());
    return {result, static_cast<std::size_t>(src - units.data()), std::string(out.data(), dst)};
}

TEST(Utf16Test, ConvertsEveryCharacter) {
    for (char32_t code = 0; code <= 0x10FFFF; ++code) {
        Units const units = code < 0x10000
                                ? Units{static_cast<unsigned short>(code)}
                                : Units{static_cast<unsigned short>(0xD7C0 + (code >> 10)),
                                        static_cast<unsigned short>(0xDC00 | (code & 0x3FF))};
        // A lone surrogate, too, comes out as its three bytes.
        auto const converted = convert(units, 4);
        ASSERT_EQ(converted.result, 0);
        ASSERT_EQ(converted.unitsTaken, units.size());
        ASSERT_EQ(converted.bytes, testsupport::utf8Of(code));
    }
}

TEST(Utf16Test, KeptLoneSurrogatesPassThrough) {
    EXPECT_EQ(convert({0xDC00, 0xD800, 'a', 0xD800}, 16).bytes,
              "\xED\xB0\x80\xED\xA0\x80"
              "a\xED\xA0\x80");
    EXPECT_EQ(convert({0xD83D, 0xD83D, 0xDE00}, 16).bytes, "\xED\xA0\xBD\xF0\x9F\x98\x80");
}

TEST(Utf16Test, StopsBeforeWhatDoesNotFit) {
    Units const units{'a', 0xE9, 0x20AC, 0xD83D, 0xDE00};  // 1, 2, 3 and 4 bytes
    struct {
        std::size_t room, units, bytes;
    } const rows[] = {{0, 0, 0}, {1, 1, 1}, {2, 1, 1},   {3, 2, 3},  {5, 2, 3},
                      {6, 3, 6}, {9, 3, 6}, {10, 5, 10}, {11, 5, 10}};
    for (auto const& row : rows) {
        auto const converted = convert(units, row.room);
        EXPECT_EQ(converted.result, row.units == 5 ? 0 : 2) << row.room;
        EXPECT_EQ(converted.unitsTaken, row.units) << row.room;
        EXPECT_EQ(converted.bytes.size(), row.bytes) << row.room;
    }
    EXPECT_EQ(convert({}, 0).result, 0);
}

}  // namespace
