// The small helpers of C callers: UTF-16, hexadecimal dumps, Internet addresses.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <thread>
#include <vector>

#include "Z/zinet_ntop.h"
#include "Z/zinet_pton.h"
#include "Z/zutfconvert.h"
#include "Z/zutils.h"
#include "support/codesets.h"
#include "support/processes.h"

namespace {

using testsupport::utf8Of;
using Units = std::vector<unsigned short>;

/// Converts into `room` bytes; what comes out and, if that is not all, "..." and the units taken.
std::string fromUtf16(Units const& units, std::size_t room) {
    std::vector<unsigned char> out(room);
    unsigned short const* src = units.data();
    unsigned char* dst = out.data();
    unsigned short const* const end = src + units.size();
    int const result = zconvert_UTF16_to_UTF8(&src, end, &dst, out.data() + room);
    EXPECT_EQ(result, src == end ? 0 : 2);
    std::string const bytes(out.data(), dst);
    return src == end ? bytes : bytes + "..." + std::to_string(src - units.data());
}

TEST(Utf16Test, ConvertsEveryCharacterAndPassesLoneSurrogatesThrough) {
    for (char32_t code = 0; code <= 0x10FFFF; ++code) {
        Units const units = code < 0x10000
                                ? Units{static_cast<unsigned short>(code)}
                                : Units{static_cast<unsigned short>(0xD7C0 + (code >> 10)),
                                        static_cast<unsigned short>(0xDC00 | (code & 0x3FF))};
        ASSERT_EQ(fromUtf16(units, utf8Of(code).size()), utf8Of(code));
    }
    EXPECT_EQ(
        fromUtf16({0xDC00, 0xD800, 'a', 0xD83D, 0xD83D, 0xDE00, 0xD800}, 99),
        utf8Of(0xDC00) + utf8Of(0xD800) + "a" + utf8Of(0xD83D) + utf8Of(0x1F600) + utf8Of(0xD800));
}

TEST(Utf16Test, StopsBeforeWhatDoesNotFit) {
    std::string const whole = "aé€" + utf8Of(0x1F600);  // 1, 2, 3 and 4 bytes
    for (std::size_t room = 0; room < 10; ++room) {
        std::size_t const taken = room < 1 ? 0 : room < 3 ? 1 : room < 6 ? 2 : 3;
        EXPECT_EQ(fromUtf16({'a', 0xE9, 0x20AC, 0xD83D, 0xDE00}, room),
                  whole.substr(0, taken * (taken + 1) / 2) + "..." + std::to_string(taken));
    }
}

void dump(std::string const& bytes, char const* title) {
    zhex_dump(nullptr, static_cast<int>(bytes.size()),
              reinterpret_cast<unsigned char const*>(bytes.data()), title);
}

std::string dumpOf(std::string const& bytes, char const* title) {
    return testsupport::captureChild([&] { return dump(bytes, title), 0; }).err;
}

TEST(HexDumpTest, WritesSixteenBytesALine) {
    EXPECT_EQ(dumpOf("0123456789abcdefghij", "title"),
              "\n\ttitle\n"
              "\n0000   30 31 32 33 34 35 36 37  38 39 61 62 63 64 65 66  *0123456789abcdef*"
              "\n0010   67 68 69 6a                                       *ghij*\n");
    std::string const dumped = dumpOf(std::string("\x1F \x7F\x80\xE9\xFD\xFE\xFF\0", 9), nullptr);
    EXPECT_EQ(dumped.substr(dumped.find('*')), "*. \x7F\x80\xE9\xFD...*\n")
        << "kept: bytes from 32 to 253 are shown";
    EXPECT_EQ(dumpOf("", nullptr), "\n");
    EXPECT_EQ(dumpOf("", "t"), "\n\tt\n\n");
    auto const toStream = testsupport::captureChild([] {
        zhex_dump(stdout, 5, nullptr, nullptr);
        zhex_dump(stdout, -5, reinterpret_cast<const unsigned char*>("x"), nullptr);
        return fflush(stdout);
    });
    EXPECT_EQ(toStream.out, "\n\n");
}

TEST(HexDumpTest, DumpsOfSeveralThreadsDoNotMix) {
    std::string const bytes(64, 'x');
    auto const child = testsupport::captureChild([&] {
        std::array<std::thread, 4> threads;
        for (auto& thread : threads)
            thread = std::thread([&] {
                for (int round = 0; round < 25; ++round)
                    dump(bytes, "t");
            });
        for (auto& thread : threads)
            thread.join();
        return 0;
    });
    std::string const whole = dumpOf(bytes, "t");
    std::string expected;
    for (int i = 0; i < 100; ++i)
        expected += whole;
    EXPECT_EQ(child.err, expected);
}

TEST(InternetAddressTest, IsReadAndWritten) {
    in6_addr address{};
    std::array<char, INET6_ADDRSTRLEN> text{};
    EXPECT_EQ(zinet_pton(AF_INET6, "2001:DB8:0:0::1", &address), 1);
    EXPECT_EQ(zinet_ntop(AF_INET6, &address, text.data(), text.size()), text.data());
    EXPECT_STREQ(text.data(), "2001:db8::1");
    EXPECT_EQ(zinet_ntop(AF_INET6, &address, text.data(), 4), nullptr);
    EXPECT_EQ(zinet_pton(AF_INET, nullptr, &address) + zinet_pton(AF_INET, "::1", &address), 0);
}

}  // namespace
