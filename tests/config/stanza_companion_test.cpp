#include <gtest/gtest.h>
#include <sys/resource.h>

#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "Z/ZBuffer.h"
#include "Z/ZException.h"
#include "Z/ZList.h"
#include "Z/ZSCFData.h"
#include "Z/ZSqueeze.h"
#include "support/processes.h"
#include "support/streams.h"

namespace {

using namespace std::string_literals;

std::string squeezed(std::string const& content) {
    std::string bytes(content.size() * 2 + 64, '\0');
    unsigned long length = static_cast<unsigned long>(bytes.size());
    EXPECT_EQ(ZSqueeze().compress(reinterpret_cast<unsigned char*>(bytes.data()), &length,
                                  reinterpret_cast<unsigned char const*>(content.data()),
                                  static_cast<unsigned long>(content.size())),
              0);
    bytes.resize(length);
    return bytes;
}

std::string expanded(ZBuffer const& bytes) {
    std::string content(1 << 20, '\0');
    unsigned long length = static_cast<unsigned long>(content.size());
    EXPECT_EQ(ZSqueeze().uncompress(reinterpret_cast<unsigned char*>(content.data()), &length,
                                    static_cast<unsigned char const*>(bytes.getBuffer()),
                                    bytes.getLength()),
              0);
    content.resize(length);
    return content;
}

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
        EXPECT_STREQ(error.baddata(), "");
        EXPECT_EQ(error.badline(), 0);
        EXPECT_EQ(file.count(), 0U) << "something was added";
        return true;
    }
}

TEST(StanzaCompanionTest, writesRecordsInTheOrderOfTheirComing) {
    ZSCFData file;
    file.addLine("s", "b", "1", 1);
    file.addLine("s", "a", "2", 1);
    file.addValue("s", "b", "3\n4", 1);
    file.addLine("t", "plain", "5", 0);
    ZBuffer out;
    file.be_write_obfuscated(out);
    EXPECT_EQ(expanded(out),
              "s\0b\0"s
              "1\0\0"s
              "s\0b\0"s
              "3\n4\0\0"s
              "s\0a\0"s
              "2\0"s);

    file.addLine("s", "b", "6", 1);  // set anew: it comes last now
    file.be_write_obfuscated(out);
    EXPECT_EQ(expanded(out),
              "s\0a\0"s
              "2\0\0"s
              "s\0b\0"s
              "6\0"s);
}

TEST(StanzaCompanionTest, withoutObfuscatedValuesTheBufferIsLeftAlone) {
    ZSCFData file;
    file.addLine("s", "k", "v", 1);
    file.remove("s");
    file.addLine("s", "k", "v", 0);
    ZBuffer out("kept");
    file.be_write_obfuscated(out);
    EXPECT_EQ(out, ZBuffer("kept"));
}

/// What the companion alone knows is no line of the main file, until it gets a plain value.
TEST(StanzaCompanionTest, addsValuesButNoLines) {
    ZSCFData file;
    file.be_read("f", testsupport::fileOf("[s]\nk = plain\n").get());
    read(file, squeezed("s\0k\0x\0\0"s
                        "s\0only\0y\0\0"s
                        "t\0k\0z\0"s));
    EXPECT_EQ(file.valueAt("s", "k", 0), "plain"s);
    EXPECT_EQ(file.valueAt("s", "only", 0), "y"s);
    EXPECT_TRUE(file.isObfuscated("t", "k"));
    auto const written = [&] {
        return testsupport::writtenBy([&](FILE* out) { file.be_write("f", out); });
    };
    EXPECT_EQ(written(), "[s]\nk = plain\n");
    file.addLine("s", "only", "", 1);
    file.addLine("t", "k", "seen", 0);
    EXPECT_EQ(written(), "[s]\nk = plain\nonly =\n[t]\nk = seen\n");
}

TEST(StanzaCompanionTest, refusesEveryPrefixAndDamageOfAGoodOneAndWhatIsBehindIt) {
    ZSCFData file;
    for (int i = 0; i < 40; ++i)
        file.addValue("s", ("key" + std::to_string(i % 30)).c_str(), "two\nlines", 1);
    ZBuffer out;
    file.be_write_obfuscated(out);
    std::string const good(static_cast<char const*>(out.getBuffer()), out.getLength());
    EXPECT_FALSE(isRefused(good));
    for (std::size_t at = 0; at < good.size(); ++at) {
        std::string bad = good;
        bad[at] = static_cast<char>(bad[at] ^ 0x55);
        EXPECT_TRUE(isRefused(bad)) << at;
        EXPECT_TRUE(isRefused(good.substr(0, at))) << at;
    }
    EXPECT_TRUE(isRefused(good + "x"));
    EXPECT_TRUE(isRefused(good + good));

    ZSCFData again;
    read(again, good);
    ZBuffer second;
    again.be_write_obfuscated(second);
    EXPECT_EQ(second, out);
}

TEST(StanzaCompanionTest, refusesWhatIsNoRecord) {
    for (std::string const& content :
         {"s"s, "s\0"s, "s\0k"s, "s\0k\0"s, "s\0k\0v"s, "\0k\0v\0"s, "s\0\0v\0"s, "\0\0\0"s,
          "s\0k\0v\0\0"s, "s\0k\0v\0x"s, "s\0k\0v\0\0s"s, "s\0k\0v\0\0s\0k\0"s,
          "s\0k\0v\0xs\0k\0v\0"s, "s\0k\0v\0\0\0\0\0"s})
        EXPECT_TRUE(isRefused(squeezed(content))) << testing::PrintToString(content);
}

TEST(StanzaCompanionTest, aBombEndsAndAValueThatExpandsAsFarIsRead) {
    EXPECT_TRUE(isRefused(squeezed(std::string(8 << 20, '\0'))));
    std::string const value(8 << 20, 'v');
    EXPECT_TRUE(isRefused(squeezed(value)));
    ZSCFData file;
    read(file, squeezed("s\0k\0"s + value + "\0"s));
    EXPECT_TRUE(file.valueAt("s", "k", 0) == value);
}

/// Bytes of private memory that the process may write.
rlim_t dataSize() {
    std::ifstream status("/proc/self/status");
    std::string word;
    rlim_t kilobytes = 0;
    while (word != "VmData:" && status >> word)
        continue;
    status >> kilobytes;
    return kilobytes * 1024;
}

TEST(StanzaCompanionTest, aLargeOneThatIsCutOffTakesTheMemoryOfWhatItHolds) {
    std::mt19937 random(1);
    std::string value(std::size_t{4} << 20, '\0');
    for (char& c : value)
        c = static_cast<char>(1 + random() % 255);
    std::string const whole = squeezed("s\0k\0"s + value + "\0"s);
    EXPECT_EQ(testsupport::inChild([&] {
                  rlimit const limit{dataSize() + (std::size_t{64} << 20), RLIM_INFINITY};
                  if (setrlimit(RLIMIT_DATA, &limit) != 0) return 97;
                  return isRefused(whole.substr(0, whole.size() - 1)) && !isRefused(whole) ? 0 : 1;
              }),
              0);
}

}  // namespace
