/// Reading one conversion specification.
#ifndef Z_UTILITY_FORMAT_SPEC_READER_H
#define Z_UTILITY_FORMAT_SPEC_READER_H

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>

#include "Z/utility/format/records.h"

namespace zfc::format {

/// What a conversion character means: a type for each length, and the flags it adds.
struct Conversion {
    char letter;
    ArgType plain;
    ArgType withShort;
    ArgType withLong;
    ArgType withLongLong;
    unsigned adds;
};

constexpr Conversion anyLength(char letter, ArgType type, unsigned adds = 0) {
    return {letter, type, type, type, type, adds};
}
constexpr Conversion signedNumber(char letter) {
    return {letter, signedInt, signedShort, signedLong, signedLongLong, 0};
}
constexpr Conversion unsignedNumber(char letter, unsigned adds) {
    return {letter, unsignedInt, unsignedShort, unsignedLong, unsignedLongLong, adds};
}
// Kept: "%lf" is refused, although ISO C reads it as "%f", to catch what was meant as "%Lf".
constexpr Conversion floating(char letter, ArgType plain, ArgType longDouble, unsigned adds = 0) {
    return {letter, plain, noType, noType, longDouble, adds};
}

constexpr std::array<Conversion, 17> conversions{{
    anyLength('c', byteChar),
    anyLength('C', wideChar),
    anyLength('s', text),
    anyLength('S', wideText),
    signedNumber('d'),
    signedNumber('i'),
    unsignedNumber('o', octal),
    unsignedNumber('u', 0),
    unsignedNumber('x', hexadecimal),
    unsignedNumber('X', hexadecimalUp),
    anyLength('p', address, alternate | zeroFilled | hexadecimal),
    floating('e', doubleE, longDoubleE),
    floating('E', doubleE, longDoubleE, floatingUp),
    floating('f', doubleF, longDoubleF),
    floating('g', doubleG, longDoubleG),
    floating('G', doubleG, longDoubleG, floatingUp),
    anyLength('%', percent, percentLiteral),
}};

/// For every byte its row in `conversions`, or their number.
constexpr std::array<std::uint8_t, UCHAR_MAX + 1> indexLetters() {
    std::array<std::uint8_t, UCHAR_MAX + 1> index{};
    for (auto& row : index)
        row = conversions.size();
    for (std::size_t i = 0; i < conversions.size(); ++i)
        index[static_cast<unsigned char>(conversions[i].letter)] = static_cast<std::uint8_t>(i);
    return index;
}
constexpr auto conversionOf = indexLetters();

constexpr std::size_t rowFor(char letter) {
    return conversionOf[static_cast<unsigned char>(letter)];
}
constexpr bool isConversion(char c) { return rowFor(c) != conversions.size(); }
constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// Reads the digits at `at` and steps behind them; false when their value is above INT_MAX.
inline bool readNumber(char const*& at, int& value) {
    long long sum = 0;
    for (; isDigit(*at); ++at)
        // Stays above INT_MAX, so that any number of digits can follow.
        if (sum <= INT_MAX) sum = sum * 10 + (*at - '0');
    value = static_cast<int>(std::min<long long>(sum, INT_MAX));
    return sum <= INT_MAX;
}

/// Reads one specification, part after part; the terminating NUL is no part of any.
class SpecReader {
  public:
    /// The record comes uninitialised.
    SpecReader(ZFormatSpec& record, char const* start) : spec(record), at(start + 1) {
        spec = ZFormatSpec{};
        spec.start = start;
    }

    /// False for a malformed one.
    [[nodiscard]] bool read() {
        if (isConversion(*at)) return readConversion();  // most have nothing before it
        if (!readArgumentNumber()) return false;
        readFlags();
        if (!readWidth() || !readPrecision()) return false;
        readLength();
        return readConversion();
    }

  private:
    bool readArgumentNumber() {
        if (!isDigit(*at)) return true;
        char const* behind = at;
        while (isDigit(*behind))
            ++behind;
        if (*behind != '$') return true;  // a flag or a width, read there
        bool const fits = readNumber(at, spec.argPos);
        ++at;
        spec.flags |= namesArgument;
        return fits && spec.argPos > 0;
    }

    void readFlags() {
        while (readFlag())
            ++at;
    }

    bool readFlag() {
        switch (*at) {
            case ' ':
                spec.flags |= blankSign;
                return true;
            case '#':
                spec.flags |= alternate;
                return true;
            case '\'':
                spec.flags |= grouping;
                return true;
            case '+':
                spec.flags |= plusSign;
                return true;
            case '-':
                // ISO C: "-" overrides "0", in either order.
                spec.flags = (spec.flags | leftJustified) & ~zeroFilled;
                return true;
            case '0':
                return readZeroFlag();
            default:
                return false;
        }
    }

    bool readZeroFlag() {
        // Kept: the second "0" begins the width, so no flag can follow it; ISO C takes it twice.
        if ((spec.flags & zeroFilled) != 0) return false;
        if ((spec.flags & leftJustified) == 0) spec.flags |= zeroFilled;
        return true;
    }

    bool readWidth() {
        if (*at == '*') return readStar(widthStar, widthNamed, spec.width);
        if (!isDigit(*at)) return true;
        spec.flags |= widthDigits;
        return readNumber(at, spec.width);
    }

    bool readPrecision() {
        if (*at != '.') return true;
        ++at;
        if (*at == '*') return readStar(precisionStar, precisionNamed, spec.precision);
        // Kept: a "." alone is no precision, where ISO C reads 0.
        if (!isDigit(*at)) return true;
        // Kept: any precision ends zero filling, of floating numbers too, unlike ISO C.
        spec.flags = (spec.flags | precisionDigits) & ~zeroFilled;
        return readNumber(at, spec.precision);
    }

    bool readStar(Flag star, Flag named, int& number) {
        ++at;
        spec.flags |= star;
        if (!isDigit(*at)) return true;
        // POSIX: either all arguments of a specification are named, or none.
        if ((spec.flags & namesArgument) == 0) return false;
        spec.flags |= named;
        bool const fits = readNumber(at, number);
        if (*at != '$') return false;
        ++at;
        return fits && number > 0;
    }

    // A second length is no conversion character, so what may not be combined ends there.
    void readLength() {
        char const first = *at;
        if (first != 'h' && first != 'l' && first != 'L' && first != 'q') return;
        ++at;
        if (first == 'h') {
            spec.flags |= lengthShort;
        } else if (first == 'l' && *at != 'l') {
            spec.flags |= lengthLong;
        } else {
            spec.flags |= lengthLongLong;
            if (first == 'l') ++at;
        }
    }

    bool readConversion() {
        if (!isConversion(*at)) return false;
        Conversion const& conversion = conversions[rowFor(*at)];
        spec.argType = typeFor(conversion);
        spec.flags |= conversion.adds;
        spec.end = at + 1;
        return spec.argType != noType;
    }

    [[nodiscard]] ArgType typeFor(Conversion const& conversion) const {
        if ((spec.flags & (lengthShort | lengthLong | lengthLongLong)) == 0)
            return conversion.plain;
        if ((spec.flags & lengthShort) != 0) return conversion.withShort;
        if ((spec.flags & lengthLong) != 0) return conversion.withLong;
        return conversion.withLongLong;
    }

    ZFormatSpec& spec;
    char const* at;
};

}  // namespace zfc::format

#endif
