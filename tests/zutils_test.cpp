#include "Z/zutils.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "support/processes.h"

namespace {

using testsupport::captureChild;

std::string dumpOf(const std::string& bytes, const char* title) {
    return captureChild([&] {
               zhex_dump(nullptr, static_cast<int>(bytes.size()),
                         reinterpret_cast<const unsigned char*>(bytes.data()), title);
               return 0;
           })
        .err;
}

TEST(HexDumpTest, WritesSixteenBytesALine) {
    EXPECT_EQ(dumpOf("0123456789abcdefghij", "title"),
              "\n\ttitle\n"
              "\n0000   30 31 32 33 34 35 36 37  38 39 61 62 63 64 65 66  *0123456789abcdef*"
              "\n0010   67 68 69 6a                                       *ghij*\n");
    EXPECT_EQ(dumpOf("12345678", nullptr),
              "\n0000   31 32 33 34 35 36 37 38                           *12345678*\n");
}

TEST(HexDumpTest, KeptTextColumnShowsBytesFrom32To253) {
    std::string const dumped = dumpOf(std::string("\x1F \x7F\x80\xE9\xFD\xFE\xFF\0", 9), nullptr);
    EXPECT_EQ(dumped.substr(dumped.find('*')), "*. \x7F\x80\xE9\xFD...*\n");
}

TEST(HexDumpTest, OfNothingIsALineFeed) {
    EXPECT_EQ(dumpOf("", nullptr), "\n");
    EXPECT_EQ(dumpOf("", "t"), "\n\tt\n\n");
    char* text = nullptr;
    std::size_t size = 0;
    FILE* const out = open_memstream(&text, &size);
    zhex_dump(out, 0, nullptr, nullptr);
    zhex_dump(out, 5, nullptr, nullptr);
    zhex_dump(out, -5, reinterpret_cast<const unsigned char*>("x"), nullptr);
    fclose(out);
    EXPECT_STREQ(text, "\n\n\n");
    free(text);
}

TEST(HexDumpTest, DumpsOfSeveralThreadsDoNotMix) {
    std::string const bytes(64, 'x');
    std::string const whole = dumpOf(bytes, "t");
    auto const child = captureChild([&] {
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] {
                for (int round = 0; round < 25; ++round)
                    zhex_dump(nullptr, 64, reinterpret_cast<const unsigned char*>(bytes.data()),
                              "t");
            });
        }
        for (auto& thread : threads)
            thread.join();
        return 0;
    });
    std::string expected;
    for (int i = 0; i < 100; ++i)
        expected += whole;
    EXPECT_EQ(child.err, expected);
}

}  // namespace
