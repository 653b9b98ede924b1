/// The digits of numbers: how many there are, and writing them where they belong.
#ifndef Z_UTILITY_FORMAT_DIGITS_H
#define Z_UTILITY_FORMAT_DIGITS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zfc::format {

/// "00" to "99", one behind the other: halves the divisions.
constexpr std::array<char, 200> makePairs() {
    std::array<char, 200> pairs{};
    for (std::size_t i = 0; i < 100; ++i) {
        pairs[2 * i] = static_cast<char>('0' + i / 10);
        pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return pairs;
}
constexpr auto digitPairs = makePairs();

template <class Unsigned>
std::size_t decimalCount(Unsigned value) {
    for (std::size_t count = 1;; value /= 10000, count += 4) {
        if (value < 10) return count;
        if (value < 100) return count + 1;
        if (value < 1000) return count + 2;
        if (value < 10000) return count + 3;
    }
}

/// Writes all digits, the last one before `end`.
template <class Unsigned>
void writeDecimal(char* end, Unsigned value) {
    for (; value >= 100; value /= 100)
        std::memcpy(end -= 2, &digitPairs[static_cast<std::size_t>(value % 100) * 2], 2);
    if (value >= 10)
        std::memcpy(end - 2, &digitPairs[static_cast<std::size_t>(value) * 2], 2);
    else
        end[-1] = static_cast<char>('0' + value);
}

/// A number in one base; without digits at all when it `isEmpty`.
class Digits {
  public:
    Digits(unsigned long long number, int bitsOfDigit, char const* lettersOfDigits, bool isEmpty)
        : value(number),
          bits(bitsOfDigit),
          letters(lettersOfDigits),
          length(isEmpty ? 0 : countOf(number, bitsOfDigit)) {}

    /// No number has more: the octal digits of 64 bits.
    static constexpr std::size_t mostDigits = 22;
    [[nodiscard]] std::size_t count() const { return length; }

    /// Stores the digits from `to` on.
    void writeTo(char* to) const {
        if (length == 0) return;
        if (bits != 0)
            writePowerOfTwo(to);
        else if (value <= UINT32_MAX)
            writeDecimal(to + length, static_cast<std::uint32_t>(value));
        else
            writeDecimal(to + length, value);
    }

  private:
    static std::size_t countOf(unsigned long long number, int bitsOfDigit) {
        if (bitsOfDigit != 0) {
            int const used = 64 - __builtin_clzll(number | 1);
            return static_cast<std::size_t>((used + bitsOfDigit - 1) / bitsOfDigit);
        }
        // 64-bit divisions are slow, on 32 bits very slow.
        return number <= UINT32_MAX ? decimalCount(static_cast<std::uint32_t>(number))
                                    : decimalCount(number);
    }

    void writePowerOfTwo(char* to) const {
        unsigned const mask = (1U << bits) - 1;
        unsigned long long rest = value;
        for (std::size_t i = length; i-- > 0; rest >>= bits)
            to[i] = letters[rest & mask];
    }

    unsigned long long value;
    int bits;  // of a digit; 0: the base is ten
    char const* letters;
    std::size_t length;
};

}  // namespace zfc::format

#endif
