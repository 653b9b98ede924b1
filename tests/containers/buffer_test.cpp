// link: static

// zlib comes along with the static library: the checksum is compared with its own, and their
// headers fit into one source in any order.
#include <zlib.h>

#include "Z/ZAdler32.h"
#include "Z/ZBuffer.h"

#include <cstdlib>
#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/objects.h"

using namespace testsupport;

namespace {

std::string bytes(ZBufferInterface const& buffer) {
    if (buffer.getLength() == 0) return {};
    return {static_cast<char const*>(buffer.getBuffer()), buffer.getLength()};
}

ZBuffer bufferOf(std::string text) { return {text.size(), text.data()}; }

TEST(BufferTest, ShrinksInPlaceAndGrowsKeepingItsPrefix) {
    ZBuffer buffer = bufferOf("abcdef");
    void const* const block = buffer;
    buffer.setLength(3);
    EXPECT_EQ(block, buffer.getBuffer());
    buffer.setLength(100000);
    EXPECT_EQ("abc", bytes(buffer).substr(0, 3));
    EXPECT_EQ(100000U, buffer.getLength());
    buffer.setLength(0);
    EXPECT_EQ(nullptr, buffer.getBuffer());
}

TEST(BufferTest, CopiesAreApart) {
    ZBuffer buffer = bufferOf("abc");
    std::unique_ptr<ZObject> const cloned(buffer.clone());
    static_cast<char*>(buffer.getBuffer())[0] = 'x';
    buffer = dynamic_cast<ZBuffer&>(*cloned);
    ZBuffer const& itself = buffer;
    buffer = itself;
    EXPECT_EQ("abc", bytes(buffer));
    buffer = ZBuffer();
    EXPECT_EQ("", bytes(buffer));
}

TEST(BufferTest, TakesBytesAndTextsEvenItsOwn) {
    using namespace std::string_literals;
    EXPECT_EQ("", bytes(ZBuffer(nullptr)));
    ZBuffer buffer("abcdef");
    EXPECT_EQ("abcdef\0"s, bytes(buffer));
    char* const block = static_cast<char*>(buffer.getBuffer());
    buffer.setBuffer(4, block + 1);
    buffer.setBuffer(4, block);
    EXPECT_EQ("bcde", bytes(buffer));
    buffer.setBuffer("x\0yz");
    buffer.setBuffer(static_cast<char const*>(buffer.getBuffer()));
    EXPECT_EQ("x\0"s, bytes(buffer));
    buffer.setBufferNoCopy(1, buffer.getBuffer());
    EXPECT_EQ("x", bytes(buffer));
    buffer.setBuffer(nullptr);
    EXPECT_EQ(nullptr, buffer.getBuffer());
}

/// What is taken of a buffer, which is empty then.
std::pair<unsigned long, void*> takenFrom(ZBufferInterface& buffer) {
    std::pair<unsigned long, void*> taken;
    buffer.takeBuffer(taken.first, taken.second);
    EXPECT_EQ(0U, buffer.getLength());
    EXPECT_EQ(nullptr, buffer.getBuffer());
    return taken;
}

TEST(BufferTest, AdoptsAndHandsOverItsBlock) {
    ZBuffer buffer("old");
    void* block = std::malloc(3);
    buffer.setBufferNoCopy(3, block);
    EXPECT_EQ(block, buffer.getBuffer());
    EXPECT_EQ(std::pair(3UL, block), takenFrom(buffer));
    std::free(block);
}

TEST(BufferTest, BadLengthIsRefusedAndChangesNothing) {
    ZBuffer buffer = bufferOf("abc");
    ZConstBuffer view(3, buffer);
    EXPECT_EQ(invalidParameter, thrownBy([&] { buffer.setBuffer(1, nullptr); }));
    EXPECT_EQ(invalidParameter, thrownBy([&] { buffer.setBufferNoCopy(1, nullptr); }));
    EXPECT_EQ(invalidParameter, thrownBy([&] { ZBuffer const made(1, nullptr); }));
    constexpr unsigned long tooLong = std::numeric_limits<unsigned long>::max() - 3;
    char other[1] = {};
    std::function<void()> const calls[] = {
        [&] { buffer.setLength(tooLong); },
        [&] { buffer.setBuffer(tooLong, other); },
        [&] { buffer.setBufferNoCopy(tooLong, other); },
        [&] { view.setLength(tooLong); },
        [&] { view.setBuffer(tooLong, other); },
        [&] { ZConstBuffer const made(tooLong, other); },
    };
    for (auto const& call : calls) {
        if (sizeof tooLong == sizeof(unsigned int)) continue;  // every length fits
        EXPECT_EQ(outOfMemory, thrownBy(call));
    }
    EXPECT_EQ("abc", bytes(buffer));
    EXPECT_EQ("abc", bytes(view));
}

TEST(BufferTest, ShorterIsSmallerThenTheFirstDifferentByteDecides) {
    struct Row {
        char const *left, *right;
        int expected;
    };
    for (Row const& row : {Row{"", "", 0}, Row{"", "a", -1}, Row{"b", "aa", -1}, Row{"ab", "ab", 0},
                           Row{"ab", "ac", -1}, Row{"\xff", "a", 1}}) {
        ZBuffer const left = bufferOf(row.left);
        ZBuffer const right = bufferOf(row.right);
        EXPECT_EQ(row.expected, left.compare(right)) << row.left << " and " << row.right;
        EXPECT_EQ(-row.expected, right.compare(left)) << row.left << " and " << row.right;
        EXPECT_EQ(0, left.compare(ZConstBuffer(left.getLength(), left)));
    }
    EXPECT_NE(0, ZBuffer("a").compare(ZObject()));
    ZConstBuffer none;
    none.setLength(2);
    EXPECT_EQ(-1, none.compare(ZBuffer("a")));
    EXPECT_EQ(1, ZBuffer("a").compare(none));
}

TEST(BufferTest, ViewNeitherCopiesNorFrees) {
    char text[] = "abc";
    ZConstBuffer view(3, text);
    std::unique_ptr<ZObject> const copy(view.clone());
    EXPECT_EQ(text, dynamic_cast<ZConstBuffer&>(*copy).getBuffer());
    view.setLength(2);
    EXPECT_EQ("ab", bytes(view));
    EXPECT_EQ(std::pair(2UL, static_cast<void*>(text)), takenFrom(view));
}

TEST(ChecksumTest, AgreesWithZlib) {
    std::mt19937 random(1);
    std::vector<unsigned char> data(40000, 0xff);
    EXPECT_EQ(1U, ZAdler32::adler32(0x12345678UL, nullptr, 5));
    EXPECT_EQ(0x12345678U, ZAdler32::adler32(0x12345678UL, data.data(), 0));
    for (char const* const kind : {"all ones", "random"}) {
        for (unsigned int length = 1; length + 16 < data.size();
             length += length < 200 ? 1 : length / 9)
            for (unsigned long const adler : {1UL, 0xfff0fff0UL, 0xffffffffUL}) {
                unsigned char const* const start = data.data() + length % 16;
                ASSERT_EQ(::adler32(adler, start, length), ZAdler32::adler32(adler, start, length))
                    << kind << ", length " << length << ", from " << adler;
            }
        for (auto& byte : data)
            byte = static_cast<unsigned char>(random());
    }
}

}  // namespace
