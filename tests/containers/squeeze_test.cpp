// link: static

// zlib comes along with the static library, and reads here what the class has written.
#include "Z/ZSqueeze.h"
#include "Z/containers/expand.h"

// Behind the class, whose members have the names of zlib's functions.
#include <zlib.h>

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <string>
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

Bytes squeezed(Bytes source, int level = -1) {
    ZSqueeze squeeze;
    squeeze.setLevel(level);
    squeeze.setSource(source.data(), source.size());
    Bytes dest(source.size() + 1000);
    long const length = squeeze.squeeze(dest.data(), dest.size());
    EXPECT_GT(length, 0);
    dest.resize(static_cast<std::size_t>(length));
    return dest;
}

long unsqueezed(Bytes source, Bytes& dest) {
    ZSqueeze squeeze;
    squeeze.setSource(source.data(), source.size());
    return squeeze.unsqueeze(dest.data(), dest.size());
}

TEST(SqueezeTest, GivesTheSameBytesBackAtEveryLevel) {
    for (Bytes const& source :
         {Bytes{}, Bytes{7}, sample(100, 4), sample(100000, 3), sample(9999, 256)}) {
        for (int level = -1; level <= 9; ++level) {
            Bytes const stream = squeezed(source, level);
            Bytes dest(source.size());
            EXPECT_EQ(static_cast<long>(source.size()), unsqueezed(stream, dest));
            EXPECT_EQ(source, dest);
            Bytes plain(source.size() + 1);
            unsigned long room = plain.size();
            EXPECT_EQ(Z_OK, ::uncompress(plain.data(), &room, stream.data(), stream.size()));
            EXPECT_EQ(source.size(), room) << "zlib reads something else";
        }
    }
}

TEST(SqueezeTest, TooLittleRoomIsABufferError) {
    Bytes source = sample(600, 4);
    Bytes const stream = squeezed(source);
    ZSqueeze squeeze;
    squeeze.setSource(source.data(), source.size());
    for (std::size_t room = 0; room < stream.size(); ++room) {
        Bytes dest(room);
        EXPECT_EQ(-5, squeeze.squeeze(dest.data(), room)) << room;
    }
    for (std::size_t room = 0; room < source.size(); ++room) {
        Bytes dest(room);
        EXPECT_EQ(-5, unsqueezed(stream, dest)) << room;
    }
}

TEST(SqueezeTest, DamagedInputIsNegativeAndFailuresLeaveTheLength) {
    Bytes const source = sample(600, 4);
    Bytes const stream = squeezed(source);
    Bytes dest(source.size());
    for (std::size_t length = 0; length < stream.size(); ++length)
        EXPECT_LT(
            unsqueezed(Bytes(stream.begin(), stream.begin() + static_cast<long>(length)), dest), 0);
    for (std::size_t i = 0; i < stream.size(); ++i) {
        Bytes damaged = stream;
        damaged[i] ^= 0x55;
        EXPECT_LT(unsqueezed(damaged, dest), 0) << "byte " << i;
    }
    Bytes trailer = stream;
    trailer.back() ^= 1;
    unsigned long room = dest.size();
    EXPECT_EQ(-3, ZSqueeze().uncompress(dest.data(), &room, trailer.data(), trailer.size()));
    EXPECT_EQ(dest.size(), room);
}

TEST(SqueezeTest, ExpandsNothingButOneWholeStream) {
    Bytes const bytes = sample(1000, 4);
    Bytes stream = squeezed(bytes, 0);  // longer than what it expands to
    std::size_t const length = stream.size();
    stream.push_back(0);
    // Its 32 bits alone would be those of the whole stream; on 32 bits there is no such length.
    constexpr std::size_t tooLong = sizeof(std::size_t) > 4 ? (std::size_t{1} << 31) * 2 : 1;
    struct {
        std::size_t length;
        std::size_t most;
        int status;
    } const rows[] = {
        {length, 1000, 0}, {length, 999, -3}, {length + 1, 1000, -3}, {length - 1, 1000, -3},
        {0, 0, -3},        {0, 1000, -3},     {1, 1000, -3},          {length + tooLong, 1000, -3}};
    for (auto const& row : rows) {
        zfc::containers::Expanded expanded;
        EXPECT_EQ(row.status,
                  zfc::containers::expand(stream.data(), row.length, row.most, expanded))
            << row.length << " to " << row.most;
        if (row.status != 0) continue;
        EXPECT_EQ(std::string(bytes.begin(), bytes.end()), expanded.content());
    }
}

TEST(SqueezeTest, BadArgumentsAreStatuses) {
    Bytes block = sample(10, 4);
    unsigned long room = 10;
    ZSqueeze squeeze;
    for (bool const expands : {false, true}) {
        auto const status = [&](auto... args) {
            return expands ? squeeze.uncompress(args...) : squeeze.compress(args...);
        };
        EXPECT_EQ(-2, status(block.data(), nullptr, block.data(), 10UL));
        EXPECT_EQ(-2, status(nullptr, &room, block.data(), 10UL));
        EXPECT_EQ(-2, status(block.data(), &room, nullptr, 10UL));
        if constexpr (sizeof room == sizeof(unsigned int)) continue;  // every length fits
        unsigned long tooLong = std::numeric_limits<unsigned long>::max() - 9;
        EXPECT_EQ(-5, status(block.data(), &room, block.data(), tooLong));
        EXPECT_EQ(-5, status(block.data(), &tooLong, block.data(), 10UL));
        squeeze.setSource(block.data(), tooLong);
        EXPECT_EQ(
            -5, expands ? squeeze.unsqueeze(block.data(), 10) : squeeze.squeeze(block.data(), 10));
    }
    EXPECT_EQ(10U, room);
    squeeze.setLevel(10);
    ZSqueeze const copy(squeeze);
    EXPECT_EQ(-2, copy.compress(block.data(), &room, block.data(), 10));
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
    Bytes source = sample(1000, 4);
    Bytes stream(3000);
    z_stream deflating = over(source, stream);
    ASSERT_EQ(0, Z::deflateInit_(&deflating, 9, Z::zlibVersion(), sizeof deflating));
    EXPECT_EQ(0, Z::deflateSetDictionary(&deflating, source.data(), 300));
    EXPECT_EQ(1, Z::deflate(&deflating, Z_FINISH));
    stream.resize(deflating.total_out);
    EXPECT_EQ(0, Z::deflateEnd(&deflating));

    Bytes dest(source.size());
    EXPECT_EQ(-3, unsqueezed(stream, dest)) << "a whole block has no dictionary";
    z_stream inflating = over(stream, dest);
    ASSERT_EQ(0, Z::inflateInit_(&inflating, ZLIB_VERSION, sizeof inflating));
    EXPECT_EQ(Z_NEED_DICT, Z::inflate(&inflating, Z_FINISH));
    EXPECT_EQ(0, Z::inflateSetDictionary(&inflating, source.data(), 300));
    EXPECT_EQ(1, Z::inflate(&inflating, Z_FINISH));
    EXPECT_EQ(0, Z::inflateEnd(&inflating));
    EXPECT_EQ(source, dest);

    // A raw stream, that of a copy; the first one is tuned and reset meanwhile.
    stream.assign(3000, 0);
    deflating = over(source, stream);
    ASSERT_EQ(0, Z::deflateInit2_(&deflating, 1, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY,
                                  ZLIB_VERSION, sizeof deflating));
    z_stream copy{};
    EXPECT_EQ(0, Z::deflateCopy(&copy, &deflating));
    EXPECT_EQ(0, Z::deflateParams(&deflating, 9, Z_DEFAULT_STRATEGY));
    EXPECT_EQ(1, Z::deflate(&deflating, Z_FINISH));
    EXPECT_EQ(0, Z::deflateReset(&deflating));
    EXPECT_EQ(0, Z::deflateEnd(&deflating));
    EXPECT_EQ(1, Z::deflate(&copy, Z_FINISH));
    stream.resize(copy.total_out);
    EXPECT_EQ(0, Z::deflateEnd(&copy));

    dest.assign(source.size(), 0);
    inflating = over(stream, dest);
    ASSERT_EQ(0, Z::inflateInit2_(&inflating, -15, ZLIB_VERSION, sizeof inflating));
    EXPECT_EQ(0, Z::inflateSyncPoint(&inflating));
    EXPECT_EQ(1, Z::inflate(&inflating, Z_FINISH));
    EXPECT_EQ(source, dest);
    EXPECT_EQ(0, Z::inflateReset(&inflating));
    Bytes nothing(8);
    inflating.next_in = nothing.data();
    inflating.avail_in = 8;
    EXPECT_EQ(Z_DATA_ERROR, Z::inflateSync(&inflating));
    EXPECT_EQ(0, Z::inflateEnd(&inflating));
}

}  // namespace
