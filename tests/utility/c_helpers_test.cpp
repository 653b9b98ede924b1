// The small helpers of C callers: UTF-16, hexadecimal dumps, Internet addresses.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "Z/utility/place_bits.h"
#include "Z/zutfconvert.h"
#include "Z/zutils.h"
#include "support/codesets.h"
#include "support/processes.h"
#include "support/threads.h"

namespace {

using namespace testsupport;
using Units = std::vector<unsigned short>;

/// Converts into `room` bytes; what comes out and, if that is not all, "..." and the units taken.
std::string fromUtf16(Units const& units, std::size_t room) {
    std::vector<unsigned char> out(room);
    unsigned short const* src = units.data();
    unsigned char* dst = out.data();
    int const result = zconvert_UTF16_to_UTF8(&src, src + units.size(), &dst, out.data() + room);
    auto const taken = static_cast<std::size_t>(src - units.data());
    EXPECT_EQ(result, taken == units.size() ? 0 : 2);
    return std::string(out.data(), dst) + (result == 0 ? "" : "..." + std::to_string(taken));
}

TEST(PlaceBitsTest, AreOneForEachPlaceWithAndWithoutVectors) {
    for (unsigned bits = 0; bits < 1U << zfc::utility::bitPlaces; ++bits) {
        zfc::utility::Marks marks{};
        auto const test = [=](std::size_t i) { return (bits >> i & 1U) != 0; };
        for (std::size_t i = 0; i < marks.size(); ++i)
            marks[i] = test(i) ? 1 : 0;
        ASSERT_EQ(zfc::utility::placeBits(test), bits);
        ASSERT_EQ(zfc::utility::gatherPlain(marks), bits);
    }
}

TEST(Utf16Test, ConvertsEveryCharacterThatFitsAndPassesLoneSurrogatesThrough) {
    auto const unit = [](char32_t value) { return static_cast<unsigned short>(value); };
    for (char32_t code = 0; code <= 0x10FFFF; ++code) {
        Units units{unit(code)};
        if (code > 0xFFFF) units = {unit(0xD7C0 + (code >> 10)), unit(0xDC00 | (code & 0x3FF))};
        std::string const utf8 = utf8Of(code);
        ASSERT_EQ(fromUtf16(units, utf8.size()), utf8);
        ASSERT_EQ(fromUtf16(units, utf8.size() - 1), "...0");
    }
    EXPECT_EQ(fromUtf16({'a', 0xE9, 0x20AC, 0xD83D, 0xDE00}, 9), "aé€...3");
    EXPECT_EQ(fromUtf16({0xDC00, 'a', 0xD83D, 0xD83D, 0xDE00, 0xD800}, 99),
              utf8Of(0xDC00) + "a" + utf8Of(0xD83D) + utf8Of(0x1F600) + utf8Of(0xD800));
}

/// What several threads print that dump the same bytes at the same time.
std::string dumpOf(std::string const& bytes, char const* title, unsigned count = 1) {
    auto const child = captureChild([&] {
        auto const* const data = reinterpret_cast<unsigned char const*>(bytes.data());
        Crew crew;
        for (unsigned i = 0; i < count; ++i)
            crew.add([&] { zhex_dump(nullptr, static_cast<int>(bytes.size()), data, title); });
        crew.join();
        return 0;
    });
    return child.err;
}

TEST(HexDumpTest, WritesSixteenBytesALine) {
    EXPECT_EQ(dumpOf("0123456789abcdefghij", "title"),
              "\n\ttitle\n"
              "\n0000   30 31 32 33 34 35 36 37  38 39 61 62 63 64 65 66  *0123456789abcdef*"
              "\n0010   67 68 69 6a                                       *ghij*\n");
    std::string const dumped = dumpOf(std::string("\x1F \x7F\x80\xE9\xFD\xFE\xFF\0", 9), nullptr);
    EXPECT_EQ(dumped.substr(dumped.find('*')), "*. \x7F\x80\xE9\xFD...*\n")
        << "kept: bytes from 32 to 253 are shown";
    auto const child = captureChild([] {
        zhex_dump(stdout, 5, nullptr, "t");
        zhex_dump(stdout, -5, reinterpret_cast<unsigned char const*>("x"), nullptr);
        return fflush(stdout);
    });
    EXPECT_EQ(child.out, "\n\tt\n\n\n");
}

TEST(HexDumpTest, DumpsOfSeveralThreadsDoNotMix) {
    std::string const bytes(1600, 'x');
    std::string expected;
    for (int i = 0; i < 8; ++i)
        expected += dumpOf(bytes, "t");
    EXPECT_EQ(dumpOf(bytes, "t", 8), expected);
}

TEST(InternetAddressTest, IsReadAndWritten) {
    in6_addr address{};
    std::array<char, INET6_ADDRSTRLEN> text{};
    EXPECT_EQ(zinet_pton(AF_INET6, "2001:DB8:0:0::1", &address), 1);
    EXPECT_STREQ(zinet_ntop(AF_INET6, &address, text.data(), text.size()), "2001:db8::1");
    EXPECT_EQ(zinet_ntop(AF_INET6, &address, text.data(), 4), nullptr);
    EXPECT_EQ(zinet_pton(AF_INET, nullptr, &address) + zinet_pton(AF_INET, "::1", &address), 0);
}

}  // namespace
