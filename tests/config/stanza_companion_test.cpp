// The companion of a stanza file: what is written, and what is refused when it is read.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <fstream>
#include <memory>
#include <random>
#include <string>

#include "Z/ZBuffer.h"
#include "Z/ZException.h"
#include "Z/ZSCFData.h"
#include "Z/ZSqueeze.h"
#include "support/properties.h"
#include "support/streams.h"

namespace {

using namespace std::string_literals;
using namespace testsupport;

using Coder = int (ZSqueeze::*)(unsigned char*, unsigned long*, unsigned char const*,
                                unsigned long) const;

std::string coded(Coder coder, std::string const& input) {
    std::string output(input.size() * 2 + 4096, '\0');
    auto length = static_cast<unsigned long>(output.size());
    EXPECT_EQ((ZSqueeze().*coder)(reinterpret_cast<unsigned char*>(output.data()), &length,
                                  reinterpret_cast<unsigned char const*>(input.data()),
                                  static_cast<unsigned long>(input.size())),
              0);
    output.resize(length);
    return output;
}

std::string squeezed(std::string const& content) { return coded(&ZSqueeze::compress, content); }

/// The companion of what `file` holds; "kept" where it needs none.
std::string written(ZSCFData& file) {
    ZBuffer out("kept");
    file.be_write_obfuscated(out);
    return {static_cast<char const*>(out.getBuffer()), out.getLength()};
}

std::string records(ZSCFData& file) { return coded(&ZSqueeze::uncompress, written(file)); }

void read(ZSCFData& file, std::string bytes) {
    ZBuffer buffer(static_cast<unsigned long>(bytes.size()), bytes.data());
    file.be_read_obfuscated(buffer);
}

bool isRefused(std::string const& bytes) {
    ZSCFData file;
    file.setCompanionName("the.obf");
    try {
        read(file, bytes);
        return false;
    } catch (ZPropertiesInvalidDataException const& error) {
        EXPECT_STREQ(error.propFile(), "the.obf");
        EXPECT_EQ(file.count(), 0U) << "something was added";
        return true;
    }
}

TEST(StanzaCompanionTest, writesRecordsInTheOrderOfTheirComing) {
    ZSCFData file;
    file.addLine("t", "plain", "5", 0);
    EXPECT_EQ(written(file), "kept\0"s);
    file.addLine("s", "b", "1", 1);
    file.addLine("s", "a", "2", 1);
    file.addValue("s", "b", "3\n4", 1);
    EXPECT_EQ(records(file), "s\0b\0001\0\0s\0b\0003\n4\0\0s\0a\0002\0"s);
    file.addLine("s", "b", "6", 1);  // set anew: it comes last now
    EXPECT_EQ(records(file), "s\0a\0002\0\0s\0b\0006\0"s);
    file.remove("s");
    EXPECT_EQ(written(file), "kept\0"s);
}

/// What the companion alone knows is no line of the main file, until it gets a plain value.
TEST(StanzaCompanionTest, addsValuesButNoLines) {
    ZSCFData file;
    file.be_read("f", fileOf("[s]\nk = plain\n").get());
    read(file, squeezed("s\0k\0x\0\0s\0only\0y\0\0t\0k\0z\0\0t\0empty\0\0"s));
    EXPECT_EQ(file.valueAt("s", "k", 0), "plain"s);
    EXPECT_EQ(file.valueAt("s", "only", 0), "y"s);
    EXPECT_TRUE(file.isObfuscated("t", "k"));
    EXPECT_EQ(file.countValues("t", "empty"), 0U);
    auto const main = [&] { return writtenBy([&](FILE* out) { file.be_write("f", out); }); };
    EXPECT_EQ(main(), "[s]\nk = plain\n");
    file.addLine("s", "only", "", 1);
    file.addLine("t", "k", "seen", 0);
    EXPECT_EQ(main(), "[s]\nk = plain\nonly =\n[t]\nk = seen\n");
}

/// An edit that made a line of them would spoil the file.
TEST(StanzaCompanionTest, namesThatNoLineCanHoldAreNotSet) {
    for (auto const& [stanza, key] : {std::pair("a]b", "k"), std::pair("s", "k=l")}) {
        ZSCFData file;
        read(file, squeezed(stanza + "\0"s + key + "\0x\0"s));
        EXPECT_TRUE(file.isObfuscated(stanza, key));
        EXPECT_THROW(file.addLine(stanza, key, "1", 0), ZInvalidParameterException);
        EXPECT_EQ(file.valueAt(stanza, key, 0), "x"s);
    }
}

TEST(StanzaCompanionTest, refusesEveryPrefixAndDamageOfAGoodOneAndWhatIsBehindIt) {
    ZSCFData file;
    for (int i = 0; i < 40; ++i)
        file.addValue("s", ("key" + std::to_string(i % 30)).c_str(), "two\nlines", 1);
    std::string const good = written(file);
    for (std::size_t at = 0; at < good.size(); ++at) {
        std::string bad = good;
        bad[at] = static_cast<char>(bad[at] ^ 0x55);
        EXPECT_TRUE(isRefused(bad)) << at;
        EXPECT_TRUE(isRefused(good.substr(0, at))) << at;
    }
    EXPECT_TRUE(isRefused(good + "x"));
    ZSCFData again;
    read(again, good);
    EXPECT_EQ(written(again), good);
}

TEST(StanzaCompanionTest, refusesWhatIsNoRecord) {
    for (std::string const& content :
         {"s"s, "s\0k"s, "s\0k\0v"s, "\0k\0v\0"s, "s\0\0v\0"s, "s\0k\0v\0\0"s, "s\0k\0v\0x"s,
          "s\0k\0v\0\0s"s, "s\0k\0v\0xs\0k\0v\0"s, "s\0k\0v\0\0\0\0\0"s})
        EXPECT_TRUE(isRefused(squeezed(content))) << testing::PrintToString(content);
    EXPECT_FALSE(isRefused(squeezed("")));
}

TEST(StanzaCompanionTest, aBombEndsAndAValueThatExpandsAsFarIsRead) {
    std::string const value(8 << 20, 'v');
    EXPECT_TRUE(isRefused(squeezed(std::string(8 << 20, '\0'))));
    EXPECT_TRUE(isRefused(squeezed(value)));
    ZSCFData file;
    read(file, squeezed("s\0k\0"s + value + "\0"s));
    EXPECT_TRUE(file.valueAt("s", "k", 0) == value);
}

TEST(StanzaCompanionTest, expandsToTheLimitThatIsSetAlsoInACopyAndBehindAClear) {
    ZSCFData file;
    EXPECT_EQ(file.getCompanionLimit(), 64UL << 20);
    EXPECT_THROW(file.setAttributes(ZPCache::companionLimit, nullptr), ZInvalidParameterException);
    for (unsigned long limit : {6UL, 5UL}) {
        file.setAttributes(ZPCache::companionLimit, &limit);
        file.setAttributes(ZPCache::keepComments, nullptr);
        file.clear();
        std::unique_ptr<ZObject> const copy(file.clone());
        auto const reading = [&] { read(dynamic_cast<ZSCFData&>(*copy), squeezed("s\0k\0v\0"s)); };
        if (limit == 6) reading();
        if (limit == 5) {
            EXPECT_THROW(reading(), ZPropertiesInvalidDataException);
        }
    }
}

TEST(StanzaCompanionTest, aLargeOneThatIsCutOffTakesTheMemoryOfWhatItHolds) {
    std::string value(std::size_t{4} << 20, '\0');
    std::mt19937 random(1);
    for (char& c : value)
        c = static_cast<char>(1 + random() % 255);
    std::string const whole = squeezed("s\0k\0"s + value + "\0"s);
    expectInChild([&] {
        rlim_t pages = 0;  // the sixth number: of private memory that may be written
        std::ifstream statm("/proc/self/statm");
        for (int i = 0; i < 6; ++i)
            statm >> pages;
        rlimit const limit{pages * 4096 + (rlim_t{64} << 20), RLIM_INFINITY};
        ASSERT_EQ(setrlimit(RLIMIT_DATA, &limit), 0);
        EXPECT_TRUE(isRefused(whole.substr(0, whole.size() - 1)));
        EXPECT_FALSE(isRefused(whole));
    });
}

}  // namespace
