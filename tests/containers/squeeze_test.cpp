// link: static

#include "Z/ZSqueeze.h"
#include "Z/containers/expand.h"

// Behind the class, whose members have the names of zlib's functions.
#include <zlib.h>

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

Bytes sample(std::size_t size, unsigned int letters) {
    std::mt19937 random(static_cast<unsigned int>(size));
    Bytes bytes(size);
    for (auto& byte : bytes)
        byte = static_cast<unsigned char>(random() % letters);
    return bytes;
}

ZSqueeze over(Bytes& source, int level = -1) {
    ZSqueeze squeeze;
    squeeze.setLevel(level);
    squeeze.setSource(source.data(), source.size());
    return squeeze;
}

Bytes squeezed(Bytes source, int level = -1) {
    Bytes dest(source.size() + 1000);
    long const length = over(source, level).squeeze(dest.data(), dest.size());
    dest.resize(static_cast<std::size_t>(length));
    return dest;
}

long unsqueeze(Bytes source, Bytes& dest) {
    return over(source).unsqueeze(dest.data(), dest.size());
}

TEST(SqueezeTest, GivesTheSameBytesBackAtEveryLevel) {
    for (Bytes const& source : {Bytes{}, Bytes{7}, sample(100000, 3), sample(9999, 256)})
        for (int level = -1; level <= 9; ++level) {
            Bytes dest(source.size());
            EXPECT_EQ(static_cast<long>(source.size()), unsqueeze(squeezed(source, level), dest));
            EXPECT_EQ(source, dest);
        }
}

TEST(SqueezeTest, TooLittleRoomAndDamageAreStatusesThatLeaveTheLength) {
    Bytes source = sample(600, 4);
    Bytes const stream = squeezed(source);
    Bytes dest;
    for (; dest.size() < source.size(); dest.emplace_back()) {
        EXPECT_EQ(dest.size() < stream.size(), over(source).squeeze(dest.data(), dest.size()) == -5)
            << dest.size();
        EXPECT_EQ(-5, unsqueeze(stream, dest)) << dest.size();
    }
    // More room than the result could tell: on 32 bits it would come out negative.
    unsigned long const tooMuch = std::numeric_limits<long>::max() + 1UL;
    EXPECT_EQ(-5, over(source).squeeze(dest.data(), tooMuch));
    for (std::size_t at = 0; at < stream.size(); ++at) {
        EXPECT_LT(unsqueeze(Bytes(stream.data(), stream.data() + at), dest), 0) << at << " bytes";
        Bytes damaged = stream;
        damaged[at] ^= 0x55;
        unsigned long room = dest.size();
        EXPECT_GT(0, ZSqueeze().uncompress(dest.data(), &room, damaged.data(), damaged.size()))
            << "byte " << at;
        EXPECT_EQ(dest.size(), room);
    }
}

TEST(SqueezeTest, ExpandsNothingButOneWholeStream) {
    Bytes const bytes = sample(1000, 4);
    Bytes stream = squeezed(bytes, 0);  // longer than what it expands to
    std::size_t const length = stream.size();
    stream.push_back(0);
    zfc::containers::Expanded expanded;
    EXPECT_EQ(0, zfc::containers::expand(stream.data(), length, 1000, expanded));
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), expanded.content());
    // Its 32 bits alone would be those of the whole stream; on 32 bits there is no such length.
    constexpr std::size_t tooLong = sizeof(std::size_t) > 4 ? (std::size_t{1} << 31) * 2 : 1;
    std::pair<std::size_t, std::size_t> const refused[] = {
        {length, 999}, {length + 1, 1000}, {length - 1, 1000}, {0, 0}, {length + tooLong, 1000}};
    for (auto const& [given, most] : refused)
        EXPECT_EQ(-3, zfc::containers::expand(stream.data(), given, most, expanded))
            << given << " to " << most;
}

TEST(SqueezeTest, BadArgumentsAreStatuses) {
    Bytes block = sample(10, 4);
    unsigned long room = 10;
    unsigned long tooLong = std::numeric_limits<unsigned long>::max() - 9;
    ZSqueeze squeeze;
    for (auto const function : {&ZSqueeze::compress, &ZSqueeze::uncompress}) {
        auto const status = [&](auto... args) { return (squeeze.*function)(args...); };
        EXPECT_EQ(-2, status(block.data(), nullptr, block.data(), 10UL));
        EXPECT_EQ(-2, status(nullptr, &room, block.data(), 10UL));
        if constexpr (sizeof room == sizeof(unsigned int)) continue;  // every length fits
        EXPECT_EQ(-5, status(block.data(), &room, block.data(), tooLong));
        EXPECT_EQ(-5, status(block.data(), &tooLong, block.data(), 10UL));
        squeeze.setSource(block.data(), tooLong);
        EXPECT_EQ(-5, squeeze.squeeze(block.data(), 10));
        EXPECT_EQ(-5, squeeze.unsqueeze(block.data(), 10));
    }
    squeeze.setLevel(10);
    EXPECT_EQ(-2, ZSqueeze(squeeze).compress(block.data(), &room, block.data(), 10));
    EXPECT_EQ(10U, room);
}

z_stream over(Bytes& in, Bytes& out) {
    z_stream stream{};
    stream.next_in = in.data();
    stream.avail_in = static_cast<unsigned int>(in.size());
    stream.next_out = out.data();
    stream.avail_out = static_cast<unsigned int>(out.size());
    return stream;
}

TEST(StreamTest, FunctionsDoWhatZlibsOfTheSameNamesDo) {
    using Z = ZSqueeze;
    using Statuses = std::vector<int>;
    constexpr int windowBits = 15;
    Bytes source = sample(1000, 4);
    Bytes stream(3000);
    z_stream in = over(source, stream);
    z_stream copy{};
    EXPECT_EQ(
        (Statuses{0, 0, 0, 0, 1, 0, 0, 1, 0}),
        (Statuses{Z::deflateInit2_(&in, 9, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY,
                                   Z::zlibVersion(), sizeof in),
                  Z::deflateSetDictionary(&in, source.data(), 300), Z::deflateCopy(&copy, &in),
                  Z::deflateParams(&in, 1, 0), Z::deflate(&in, Z_FINISH), Z::deflateReset(&in),
                  Z::deflateEnd(&in), Z::deflate(&copy, Z_FINISH), Z::deflateEnd(&copy)}));
    stream.resize(copy.total_out);
    Bytes dest(source.size());
    EXPECT_EQ(-3, unsqueeze(stream, dest)) << "a whole block has no dictionary";
    z_stream out = over(stream, dest);
    EXPECT_EQ(
        (Statuses{0, Z_NEED_DICT, 0, 0, 1, 0, Z_BUF_ERROR, 0}),
        (Statuses{Z::inflateInit2_(&out, windowBits, ZLIB_VERSION, sizeof out),
                  Z::inflate(&out, Z_FINISH), Z::inflateSetDictionary(&out, source.data(), 300),
                  Z::inflateSyncPoint(&out), Z::inflate(&out, Z_FINISH), Z::inflateReset(&out),
                  Z::inflateSync(&out), Z::inflateEnd(&out)}));
    EXPECT_EQ(source, dest);
}

}  // namespace
