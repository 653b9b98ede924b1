#include "Z/ZSqueeze.h"

#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace {

constexpr char interfaceVersion[] = "1.1.4";  // zlib compares the first number
constexpr unsigned int refused = std::numeric_limits<unsigned int>::max();

/// Whether `length` is what zlib's fields can hold.
bool fits(unsigned long length) { return static_cast<unsigned int>(length) == length; }

/// What the caller gets for a `status` of zlib that is not the end of the stream.
int failure(int status) {
    // Asked to finish, zlib answers "go on" only where it lacks room or input.
    if (status == Z_OK) return Z_BUF_ERROR;
    // Positive is Z_NEED_DICT, and a block comes without a dictionary.
    return status > 0 ? Z_DATA_ERROR : status;
}

/// A stream over a whole block and all the room for the result.
z_stream streamOver(unsigned char* dest, unsigned long destLength, unsigned char const* src,
                    unsigned long srcLength) {
    static unsigned char noRoom;  // zlib wants an address for no room too
    z_stream stream{};
    // The field lacks the const; zlib only reads there.
    stream.next_in = const_cast<unsigned char*>(src);
    stream.avail_in = static_cast<unsigned int>(srcLength);
    stream.next_out = dest == nullptr && destLength == 0 ? &noRoom : dest;
    stream.avail_out = static_cast<unsigned int>(destLength);
    return stream;
}

/// Runs an initialised stream to its end in one `step` and closes it with `end`.
int runWhole(z_stream& stream, int (*step)(z_stream*, int), int (*end)(z_stream*),
             unsigned long& produced) {
    int const status = step(&stream, Z_FINISH);
    unsigned long const total = stream.total_out;
    int const ended = end(&stream);
    // Before `ended`: deflateEnd() has a complaint of its own about a stream that was cut short.
    if (status != Z_STREAM_END) return failure(status);
    produced = total;
    return ended;
}

/// Whether the result of squeeze() and unsqueeze() can tell `length`, on 32 bits too.
bool isTellable(unsigned long length) { return length <= std::numeric_limits<long>::max(); }

long lengthOr(int status, unsigned long length) {
    return status == Z_OK ? static_cast<long>(length) : status;
}

}  // namespace

void ZSqueeze::setSource(unsigned char* data, unsigned long length) noexcept {
    // A block that the length cannot tell is noted as one of the greatest length without data.
    source = fits(length) ? data : nullptr;
    sourceLength = fits(length) ? static_cast<unsigned int>(length) : refused;
}

long ZSqueeze::squeeze(unsigned char* dest, unsigned long destLength) const noexcept {
    if (!isTellable(destLength) || (source == nullptr && sourceLength == refused))
        return Z_BUF_ERROR;
    int const status = compress(dest, &destLength, source, sourceLength);
    return lengthOr(status, destLength);
}

long ZSqueeze::unsqueeze(unsigned char* dest, unsigned long destLength) const noexcept {
    if (!isTellable(destLength) || (source == nullptr && sourceLength == refused))
        return Z_BUF_ERROR;
    int const status = uncompress(dest, &destLength, source, sourceLength);
    return lengthOr(status, destLength);
}

int ZSqueeze::compress(unsigned char* dest, unsigned long* destLength, unsigned char const* src,
                       unsigned long srcLength) const noexcept {
    if (destLength == nullptr) return Z_STREAM_ERROR;
    if (!fits(*destLength) || !fits(srcLength)) return Z_BUF_ERROR;
    z_stream stream = streamOver(dest, *destLength, src, srcLength);
    int const status = deflateInit_(&stream, level, interfaceVersion, sizeof stream);
    if (status != Z_OK) return failure(status);
    return runWhole(stream, ::deflate, ::deflateEnd, *destLength);
}

int ZSqueeze::uncompress(unsigned char* dest, unsigned long* destLength, unsigned char const* src,
                         unsigned long srcLength) const noexcept {
    if (destLength == nullptr) return Z_STREAM_ERROR;
    if (!fits(*destLength) || !fits(srcLength)) return Z_BUF_ERROR;
    z_stream stream = streamOver(dest, *destLength, src, srcLength);
    int const status = inflateInit_(&stream, interfaceVersion, sizeof stream);
    if (status != Z_OK) return failure(status);
    return runWhole(stream, ::inflate, ::inflateEnd, *destLength);
}

// ------------------------------------------------------------------------------ zlib's functions

char const* ZSqueeze::zlibVersion() noexcept { return ::zlibVersion(); }

int ZSqueeze::deflateInit_(z_stream_s* stream, int level, char const* version,
                           int recordSize) noexcept {
    return ::deflateInit_(stream, level, version, recordSize);
}

int ZSqueeze::deflateInit2_(z_stream_s* stream, int level, int method, int windowBits, int memLevel,
                            int strategy, char const* version, int recordSize) noexcept {
    return ::deflateInit2_(stream, level, method, windowBits, memLevel, strategy, version,
                           recordSize);
}

int ZSqueeze::deflate(z_stream_s* stream, int flush) noexcept { return ::deflate(stream, flush); }

int ZSqueeze::deflateEnd(z_stream_s* stream) noexcept { return ::deflateEnd(stream); }

int ZSqueeze::deflateSetDictionary(z_stream_s* stream, unsigned char const* dictionary,
                                   unsigned int length) noexcept {
    return ::deflateSetDictionary(stream, dictionary, length);
}

int ZSqueeze::deflateCopy(z_stream_s* dest, z_stream_s* source) noexcept {
    return ::deflateCopy(dest, source);
}

int ZSqueeze::deflateReset(z_stream_s* stream) noexcept { return ::deflateReset(stream); }

int ZSqueeze::deflateParams(z_stream_s* stream, int level, int strategy) noexcept {
    return ::deflateParams(stream, level, strategy);
}

int ZSqueeze::inflateInit_(z_stream_s* stream, char const* version, int recordSize) noexcept {
    return ::inflateInit_(stream, version, recordSize);
}

int ZSqueeze::inflateInit2_(z_stream_s* stream, int windowBits, char const* version,
                            int recordSize) noexcept {
    return ::inflateInit2_(stream, windowBits, version, recordSize);
}

int ZSqueeze::inflate(z_stream_s* stream, int flush) noexcept { return ::inflate(stream, flush); }

int ZSqueeze::inflateEnd(z_stream_s* stream) noexcept { return ::inflateEnd(stream); }

int ZSqueeze::inflateSetDictionary(z_stream_s* stream, unsigned char const* dictionary,
                                   unsigned int length) noexcept {
    return ::inflateSetDictionary(stream, dictionary, length);
}

int ZSqueeze::inflateSync(z_stream_s* stream) noexcept { return ::inflateSync(stream); }

int ZSqueeze::inflateSyncPoint(z_stream_s* stream) noexcept { return ::inflateSyncPoint(stream); }

int ZSqueeze::inflateReset(z_stream_s* stream) noexcept { return ::inflateReset(stream); }
