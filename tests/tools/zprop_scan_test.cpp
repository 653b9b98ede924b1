// What the tool says of a file's lines is what the library makes of them.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>

#include "Z/ZException.h"
#include "Z/ZSCFData.h"
#include "zprop/reads/scan.h"

namespace {

constexpr std::size_t piece = ZPCategoryBasedCache::maxLine + 1;

/// The number of the first line that the library refuses; 0: none.
std::size_t refusedLine(std::string text) {
    ZSCFData cache;
    text.push_back('\0');  // no stream is made over nothing
    std::unique_ptr<FILE, int (*)(FILE*)> const stream(fopen("/dev/null", "r"), std::fclose);
    std::unique_ptr<FILE, int (*)(FILE*)> const bytes(fmemopen(text.data(), text.size() - 1, "rb"),
                                                      std::fclose);
    try {
        cache.be_read("input", text.size() == 1 ? stream.get() : bytes.get());
        return 0;
    } catch (ZPropertiesInvalidDataException const& e) {
        return static_cast<std::size_t>(e.badline());
    }
}

/// The editor's line in which the library's line `number` stands.
std::size_t editorLine(std::string const& text, std::size_t number) {
    std::size_t line = 1;
    for (std::size_t at = 0, counted = 0;; ++line) {
        std::size_t const end = std::min(text.find('\n', at), text.size());
        counted += (end - at) / piece + 1;
        if (counted >= number || end == text.size()) return line;
        at = end + 1;
    }
}

void expectAgreement(std::string const& text) {
    std::size_t const refused = refusedLine(text);
    auto const faults = zprop::scan(text).faults;
    ASSERT_EQ(faults.empty(), refused == 0) << testing::PrintToString(text);
    if (refused == 0) return;
    ASSERT_EQ(faults.front().line, editorLine(text, refused)) << testing::PrintToString(text);
    for (auto const& fault : faults)
        ASSERT_EQ(zprop::pictureOf(fault).back(), '\n');
}

TEST(ZpropScanTest, FaultsAreTheLibrarysOnSeedsAndOnWhatComesOfThem) {
    std::mt19937 random(1);
    auto const below = [&](std::size_t n) { return std::size_t{random()} % n; };
    std::string const parts[] = {"\n",
                                 "[s]",
                                 "]",
                                 "[",
                                 "=",
                                 "#",
                                 " ",
                                 "\t",
                                 "\r\n",
                                 "k = v",
                                 "\r",
                                 "\n\n",
                                 "x",
                                 "\xEF\xBB\xBF",
                                 std::string(1, '\0'),
                                 std::string(piece, 'x'),
                                 std::string(piece - 2, ' ')};
    std::size_t seeds = 0;
    for (auto const& entry : std::filesystem::directory_iterator(ZFC_TEST_SEEDS)) {
        std::ifstream stream(entry.path(), std::ios::binary);
        std::string const seed{std::istreambuf_iterator<char>(stream), {}};
        expectAgreement(seed);
        ++seeds;
        for (int i = 0; i < 2000 && !testing::Test::HasFailure(); ++i) {
            std::string text = seed.substr(below(seed.size()), below(200));
            for (std::size_t changes = below(4); changes > 0; --changes)
                text.insert(below(text.size() + 1), parts[below(std::size(parts))]);
            expectAgreement(text);
        }
    }
    EXPECT_GE(seeds, 4U);
}

}  // namespace
