/// Where the printf engine writes to.
#ifndef Z_UTILITY_FORMAT_SINK_H
#define Z_UTILITY_FORMAT_SINK_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "Z/utility/format/digits.h"

namespace zfc::format {

/// Copies `count` bytes, at least as many as a Word has and at most twice as many.
template <class Word>
void copyEnds(char* to, char const* from, std::size_t count) {
    Word first{};
    Word last{};
    std::memcpy(&first, from, sizeof(Word));
    std::memcpy(&last, from + count - sizeof(Word), sizeof(Word));
    std::memcpy(to, &first, sizeof(Word));
    std::memcpy(to + count - sizeof(Word), &last, sizeof(Word));
}

struct TwoWords {
    std::uint64_t words[2];
};

/// memcpy() for the few bytes of a number or a short text, without its call.
inline void copyBytes(char* to, char const* from, std::size_t count) {
    if (count > 32) {
        std::memcpy(to, from, count);
    } else if (count >= 16) {
        copyEnds<TwoWords>(to, from, count);
    } else if (count >= 8) {
        copyEnds<std::uint64_t>(to, from, count);
    } else if (count >= 4) {
        copyEnds<std::uint32_t>(to, from, count);
    } else if (count > 0) {
        char const middle = from[count / 2];
        char const last = from[count - 1];
        to[0] = from[0];
        to[count / 2] = middle;
        to[count - 1] = last;
    }
}

/// memset() for the few bytes that most fields lack, likewise.
inline void fillBytes(char* to, char byte, std::size_t count) {
    if (count > 16) {
        std::memset(to, byte, count);
    } else if (count > 0) {
        char block[16];  // a register's
        std::memset(block, byte, sizeof(block));
        copyBytes(to, block, count);
    }
}

/// Bytes that are known to fit, at their place.
class Place {
  public:
    explicit Place(char* start) : at(start) {}

    void write(char const* bytes, std::size_t count) {
        copyBytes(at, bytes, count);
        at += count;
    }
    void fill(char byte, std::size_t count) {
        fillBytes(at, byte, count);
        at += count;
    }
    void write(Digits const& digits) {
        digits.writeTo(at);
        at += digits.count();
    }

  private:
    char* at;
};

/// Where the text goes: every byte is counted, those that fit are stored.
class Sink {
  public:
    /// `size` bytes at `out`, the last of them for the NUL; none when `out` is null.
    Sink(char* out, std::size_t size)
        : at(out),
          end(out != nullptr && size > 0 ? out + size - 1 : out),
          hasRoom(at && size > 0) {}

    void write(char const* bytes, std::size_t count) {
        length += count;
        std::size_t const fits = std::min(count, room());
        // Without room `at` may be null, which ISO C keeps from memcpy() even for no bytes.
        if (fits == 0) return;
        copyBytes(at, bytes, fits);
        at += fits;
    }

    void write(Digits const& digits) {
        char text[Digits::mostDigits + 16];  // more, or g++ fears for a copy of many bytes
        digits.writeTo(text);
        write(text, digits.count());
    }

    /// Has `write` write `count` bytes: to a Place when they fit, which spares the checks.
    template <class Write>
    void writeAll(std::size_t count, Write write) {
        if (count > room()) return write(*this);
        Place place(at);
        write(place);
        length += count;
        at += count;
    }

    void fill(char byte, std::size_t count) {
        length += count;
        std::size_t const fits = std::min(count, room());
        if (fits == 0) return;
        std::memset(at, byte, fits);
        at += fits;
    }

    /// As write(), but all bytes or none; after none, nothing more is stored.
    void writeWhole(char const* bytes, std::size_t count) {
        length += count;
        if (count > room()) return fillRest();
        std::memcpy(at, bytes, count);
        at += count;
    }

    /// Counts `count` bytes that were stored at place() as far as they fit.
    void advance(std::size_t count) {
        length += count;
        at += std::min(count, room());
    }

    [[nodiscard]] char* place() const { return at; }
    /// Bytes that may be stored at place() when the last of them is a NUL.
    [[nodiscard]] std::size_t placeSize() const { return hasRoom ? room() + 1 : 0; }
    [[nodiscard]] unsigned long long counted() const { return length; }

    void terminate() {
        if (hasRoom) *at = '\0';
    }

  private:
    [[nodiscard]] std::size_t room() const { return static_cast<std::size_t>(end - at); }

    /// The text ends here: the bytes that a cut character leaves free are not left as they were.
    void fillRest() {
        if (room() > 0) std::memset(at, '\0', room());
        at = end;
    }

    char* at;
    char* end;  // the place of the last possible NUL
    bool hasRoom;
    unsigned long long length = 0;  // cannot overflow: no single write is longer than memory
};

}  // namespace zfc::format

#endif
