#include "Z/containers/expand.h"

#include <zlib.h>

#include <algorithm>
#include <limits>

#include "Z/containers/members.h"

namespace zfc::containers {
namespace {

/// A stream that puts its output behind what it has put out so far.
class Expansion {
  public:
    Expansion(void const* source, unsigned int length) {
        stream.next_in = const_cast<Bytef*>(static_cast<Bytef const*>(source));
        stream.avail_in = length;
        status = inflateInit(&stream);
    }
    // Harmless where inflateInit() failed: the record was zeroed, so zlib finds no state to end.
    ~Expansion() { inflateEnd(&stream); }
    Expansion(Expansion const&) = delete;
    Expansion& operator=(Expansion const&) = delete;

    /// Goes on until the stream or its input ends, or the block of `room` bytes is full. The block
    /// may have moved since the last call, with its bytes.
    void goOn(char* block, std::size_t room) {
        stream.next_out = reinterpret_cast<unsigned char*>(block) + stream.total_out;
        stream.avail_out = static_cast<unsigned int>(room - stream.total_out);
        status = inflate(&stream, Z_NO_FLUSH);
    }
    [[nodiscard]] std::size_t length() const { return stream.total_out; }
    /// When it needs no more room, or gets none.
    [[nodiscard]] StreamEnd end() const {
        if (status == Z_STREAM_END)
            return stream.avail_in == 0 ? StreamEnd::whole : StreamEnd::followed;
        if (needsRoom()) return StreamEnd::full;
        if (status == Z_OK || status == Z_BUF_ERROR) return StreamEnd::cutOff;
        return status == Z_MEM_ERROR ? StreamEnd::noMemory : StreamEnd::damaged;
    }
    /// It stopped for nothing but the end of the block.
    [[nodiscard]] bool needsRoom() const {
        // True before the first step too, when there is no block yet.
        return (status == Z_OK || status == Z_BUF_ERROR) && stream.avail_out == 0;
    }

  private:
    z_stream stream{};
    int status = Z_OK;  // of the last call of zlib
};

}  // namespace

StreamEnd expandStart(void const* source, std::size_t length, std::size_t most, Expanded& out) {
    // zlib counts in 32 bits: else the beginning of the stream might pass for the whole.
    if (length > std::numeric_limits<unsigned int>::max()) return StreamEnd::damaged;
    Expansion expansion(source, static_cast<unsigned int>(length));
    std::size_t room = 0;
    while (expansion.needsRoom() && room < most) {
        // Doubled, so that the time stays in proportion to the result; halves, since twice could
        // wrap.
        std::size_t const half = std::max({room, length, std::size_t{1}});
        room = half > most / 2 ? most : half * 2;
        if (!resizeBlock(out.block, room)) return StreamEnd::noMemory;
        expansion.goOn(out.block.get(), room);
    }
    out.length = expansion.length();
    return expansion.end();
}

int expand(void const* source, std::size_t length, std::size_t most, Expanded& out) {
    StreamEnd const end = expandStart(source, length, most, out);
    if (end == StreamEnd::noMemory) return Z_MEM_ERROR;
    return end == StreamEnd::whole ? Z_OK : Z_DATA_ERROR;
}

}  // namespace zfc::containers
