#include "Z/utility/keyed_hash.h"

#include <sys/random.h>

#include <cstddef>
#include <cstring>
#include <ctime>

namespace zfc::utility {
namespace {

struct HashKey {
    std::uint64_t low;
    std::uint64_t high;
};

HashKey drawKey() {
    HashKey key{};
    // Without the kernel's generator (a sandbox may forbid it) hashing still works, only guessably.
    // Non-blocking: a program that is started early must not wait for the generator to be seeded.
    if (getrandom(&key, sizeof key, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof key)) {
        key.low = static_cast<std::uint64_t>(std::time(nullptr));
        key.high = reinterpret_cast<std::uintptr_t>(&drawKey);  // random, as the loader places it
    }
    return key;
}

struct SipState {
    std::uint64_t v0, v1, v2, v3;

    static std::uint64_t rotate(std::uint64_t word, int bits) {
        return (word << bits) | (word >> (64 - bits));
    }
    void round() {
        v0 += v1;
        v1 = rotate(v1, 13) ^ v0;
        v0 = rotate(v0, 32);
        v2 += v3;
        v3 = rotate(v3, 16) ^ v2;
        v0 += v3;
        v3 = rotate(v3, 21) ^ v0;
        v2 += v1;
        v1 = rotate(v1, 17) ^ v2;
        v2 = rotate(v2, 32);
    }
    void absorb(std::uint64_t word) {
        v3 ^= word;
        round();
        v0 ^= word;
    }
};

/// The `count` (below 8) bytes that are left, and the length in the top byte.
std::uint64_t lastWord(char const* bytes, std::size_t count, std::size_t length) {
    std::uint64_t const top = static_cast<std::uint64_t>(length) << 56;
    if (count > 0 && length >= 8) {  // at once, with bytes before them that are shifted out
        std::uint64_t word = 0;
        std::memcpy(&word, bytes + count - sizeof word, sizeof word);
        return top | (word >> (8 * (8 - count)));
    }
    std::uint64_t word = top;
    for (std::size_t i = 0; i < count; ++i)
        word |= static_cast<std::uint64_t>(static_cast<unsigned char>(bytes[i])) << (8 * i);
    return word;
}

}  // namespace

std::uint32_t keyedHash(std::string_view text) {
    // One for the process: what was hashed earlier has to be found again.
    static HashKey const key = drawKey();
    SipState state{key.low ^ 0x736f6d6570736575, key.high ^ 0x646f72616e646f6d,
                   key.low ^ 0x6c7967656e657261, key.high ^ 0x7465646279746573};
    char const* at = text.data();
    std::size_t left = text.size();
    for (; left >= 8; left -= 8, at += 8) {
        std::uint64_t word = 0;
        // In the machine's byte order: no hash leaves the process.
        std::memcpy(&word, at, sizeof word);
        state.absorb(word);
    }
    state.absorb(lastWord(at, left, text.size()));
    state.v2 ^= 0xff;
    for (int i = 0; i < 3; ++i)
        state.round();
    return static_cast<std::uint32_t>(state.v0 ^ state.v1 ^ state.v2 ^ state.v3);
}

}  // namespace zfc::utility
