// link: static
// wrap: realloc

// zlib comes along with the static library: the checksum is compared with its own, and their
// headers fit into one source in any order.
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "Z/ZAdler32.h"
#include "Z/ZBuffer.h"
#include "Z/containers/adler_sums.h"
#include "support/objects.h"

using namespace testsupport;
using namespace std::string_literals;

WRAP(realloc, void*, nullptr, (void* block, std::size_t size), (block, size))

namespace {

std::string bytes(ZBufferInterface const& buffer) {
    if (buffer.getLength() == 0) return {};
    return {static_cast<char const*>(buffer.getBuffer()), buffer.getLength()};
}

ZBuffer bufferOf(std::string text) { return {text.size(), text.data()}; }

/// Expects what `change(buffer, its block)` makes of "abcdef"; nothing, when it has no memory to
/// grow.
template <class Change>
void expectChange(char const* name, std::string const& expected, bool grows, Change change) {
    SCOPED_TRACE(name);
    for (bool const hasMemory : {true, false}) {
        ZBuffer buffer = bufferOf("abcdef");
        auto const run = [&] { change(buffer, static_cast<char*>(buffer.getBuffer())); };
        bool const fails = grows && !hasMemory;
        EXPECT_EQ(fails ? outOfMemory : 0, hasMemory ? errorOf(run) : errorWithoutMemory(run));
        EXPECT_EQ(fails ? "" : expected, bytes(buffer));
        EXPECT_EQ(bytes(buffer).empty(), buffer.getBuffer() == nullptr);
        buffer.setLength(9);
    }
}

TEST(BufferTest, AChangeGivesWhatIsAskedOrEmptiesWithoutMemoryToGrow) {
    ZBuffer const other("longer text");
    expectChange("shorter", "abc", false, [](auto& b, char*) { b.setLength(3); });
    expectChange("longer", "abcdef", true, [](auto& b, char*) { b.setLength(99), b.setLength(6); });
    expectChange("null", "", false, [](auto& b, char*) { b.setBuffer(nullptr); });
    expectChange("own end", "bcde", false, [](auto& b, char* own) { b.setBuffer(4, own + 1); });
    expectChange("own block", "a", false, [](auto& b, char* own) { b.setBufferNoCopy(1, own); });
    expectChange("own inside", "cde", false,
                 [](auto& b, char* own) { b.setBufferNoCopy(3, own + 2); });
    expectChange("another", "longer text\0"s, true, [&](auto& b, char*) { b = other; });
}

TEST(BufferTest, KeepsDataOfALargeBlockThatWasCut) {
    std::string text(1000000, 'a');
    std::generate(text.begin(), text.end(), [i = 0]() mutable { return static_cast<char>(++i); });
    ZBuffer buffer = bufferOf(text);
    buffer.setLength(1);
    buffer.setBuffer(500000, static_cast<char*>(buffer.getBuffer()) + 500000);
    EXPECT_TRUE(bytes(buffer) == text.substr(500000));
}

TEST(BufferTest, CopyIsApartAndAViewShares) {
    ZBuffer buffer = bufferOf("abc");
    std::unique_ptr<ZObject> const cloned(buffer.clone());
    std::unique_ptr<ZObject> const viewed(ZConstBuffer(3, buffer).clone());
    static_cast<char*>(buffer.getBuffer())[0] = 'x';
    EXPECT_EQ("abc", bytes(dynamic_cast<ZBuffer&>(*cloned)));
    auto& view = dynamic_cast<ZConstBuffer&>(*viewed);
    view.setLength(2);
    EXPECT_EQ("xb", bytes(view));
}

TEST(BufferTest, AdoptsAndHandsOverItsBlockAndIsEmptyThen) {
    void* const block = std::malloc(3);
    ZBuffer buffer("old");
    buffer.setBufferNoCopy(3, block);
    ZConstBuffer view(3, block);
    ZBufferInterface* const holders[] = {&view, &buffer};
    for (ZBufferInterface* const holder : holders) {
        unsigned long length = 0;
        void* taken = nullptr;
        holder->takeBuffer(length, taken);
        EXPECT_EQ(std::pair(3UL, block), std::pair(length, taken));
        EXPECT_EQ(0U, holder->getLength());
        EXPECT_EQ(nullptr, holder->getBuffer());
    }
    std::free(block);
}

TEST(BufferTest, BadLengthIsRefusedAndChangesNothing) {
    ZBuffer buffer = bufferOf("abc");
    ZConstBuffer view(3, buffer);
    char other[1] = {};
    EXPECT_EQ(invalidParameter, errorOf([&] { buffer.setBuffer(1, nullptr); }));
    EXPECT_EQ(invalidParameter, errorOf([&] { buffer.setBufferNoCopy(1, nullptr); }));
    constexpr unsigned long tooLong = std::numeric_limits<unsigned long>::max() - 3;
    EXPECT_EQ(outOfMemory, errorOf([&] { buffer.setLength(tooLong); }));
    EXPECT_EQ(outOfMemory, errorOf([&] { buffer.setBufferNoCopy(tooLong, other); }));
    EXPECT_EQ(outOfMemory, errorOf([&] { view.setLength(tooLong); }));
    EXPECT_EQ(outOfMemory, errorOf([&] { view.setBuffer(tooLong, other); }));
    EXPECT_EQ("abc", bytes(buffer));
    EXPECT_EQ("abc", bytes(view));
}

TEST(BufferTest, ShorterIsSmallerThenTheFirstDifferentByteDecides) {
    for (auto const& [one, another, expected] :
         {std::tuple("", "", 0), std::tuple("", "a", -1), std::tuple("b", "aa", -1),
          std::tuple("ab", "ab", 0), std::tuple("ab", "ac", -1), std::tuple("\xff", "a", 1)}) {
        ZBuffer const left = bufferOf(one);
        ZBuffer const right = bufferOf(another);
        EXPECT_EQ(expected, left.compare(right)) << one << " and " << another;
        EXPECT_EQ(-expected, right.compare(left)) << one << " and " << another;
    }
    ZConstBuffer const none(2, nullptr);
    EXPECT_EQ(-1, none.compare(ZBuffer("a")));
    EXPECT_EQ(1, ZBuffer("a").compare(none));
}

TEST(ChecksumTest, AgreesWithZlib) {
    std::mt19937 random(1);
    std::vector<unsigned char> data(40000, 0xff);  // the first half makes the greatest sums
    for (std::size_t i = data.size() / 2; i < data.size(); ++i)
        data[i] = static_cast<unsigned char>(random());
    EXPECT_EQ(1U, ZAdler32::adler32(0x12345678UL, nullptr, 5));
    EXPECT_EQ(0x12345678U, ZAdler32::adler32(0x12345678UL, data.data(), 0));
    for (unsigned int length = 0; length <= 300; ++length)
        for (unsigned int at = 0; at < 64; ++at) {
            unsigned char const* const start = data.data() + data.size() / 2 - length / 2 + at;
            zfc::containers::AdlerSums plain{65520, 65520 - at};
            zfc::containers::AdlerSums fast = plain;
            zfc::containers::addPlain(plain, start, length);
            zfc::containers::addFast(fast, start, length);
            ASSERT_EQ(std::pair(plain.first, plain.second), std::pair(fast.first, fast.second))
                << length << " bytes at " << at;
        }
    for (unsigned int length = 1; length < 39000; length += 1 + length / 99)
        for (unsigned long const adler : {1UL, 0xfff0fff0UL, 0xffffffffUL}) {
            unsigned char const* const start = data.data() + length % 16;
            ASSERT_EQ(::adler32(adler, start, length), ZAdler32::adler32(adler, start, length))
                << "length " << length << ", from " << adler;
        }
}

}  // namespace
