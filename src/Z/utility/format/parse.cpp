#include <climits>
#include <cstdint>
#include <cstdlib>

#include "Z/utility/format/records.h"

namespace zfc::format {
namespace {

/// Six times this, the highest argument number there can be, is still an int.
constexpr int maxSpecs = INT_MAX / 6;

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
bool readNumber(char const*& at, int& value) {
    long long sum = 0;
    for (; isDigit(*at); ++at)
        // Stays just above INT_MAX, so that any number of digits can follow.
        sum = std::min(sum * 10 + (*at - '0'), INT_MAX + 1LL);
    value = static_cast<int>(std::min<long long>(sum, INT_MAX));
    return sum <= INT_MAX;
}

/// Reads one specification, part after part; the terminating NUL is no part of any.
class SpecReader {
  public:
    explicit SpecReader(ZFormatSpec& record) : spec(record), at(record.start + 1) {}

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
        int number = 0;
        bool const fits = readNumber(behind, number);
        if (*behind != '$') return true;  // a flag or a width, read there
        at = behind + 1;
        spec.argPos = number;
        spec.flags |= namesArgument;
        return fits && number > 0;
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
        if ((spec.flags & lengthShort) != 0) return conversion.withShort;
        if ((spec.flags & lengthLong) != 0) return conversion.withLong;
        if ((spec.flags & lengthLongLong) != 0) return conversion.withLongLong;
        return conversion.plain;
    }

    ZFormatSpec& spec;
    char const* at;
};

/// The table is full at ten records, at twenty, at forty and so on.
bool isFull(int count) {
    // Layout: the context has no field for the room, so the count alone tells when it is used up.
    int const tens = count / ZFORMAT_INLINE_SPECS;
    return tens > 0 && count % ZFORMAT_INLINE_SPECS == 0 && (tens & (tens - 1)) == 0;
}

bool growSpecs(ZFormatContext& ctx) {
    std::size_t bytes = 0;
    auto const count = static_cast<std::size_t>(ctx.specCount);
    // Twice the count itself fits, see maxSpecs.
    if (__builtin_mul_overflow(count * 2, sizeof(ZFormatSpec), &bytes)) return false;
    // The first table is part of the context, and not realloc()'s to move.
    bool const isInline = ctx.specs == ctx.inlineSpecs;
    void* const block = std::realloc(isInline ? nullptr : ctx.specs, bytes);
    if (block == nullptr) return false;
    if (isInline) std::memcpy(block, ctx.inlineSpecs, count * sizeof(ZFormatSpec));
    ctx.specs = static_cast<ZFormatSpec*>(block);
    return true;
}

/// A fresh record behind the last one; null when there can be no more.
ZFormatSpec* addSpec(ZFormatContext& ctx) {
    if (ctx.specCount == maxSpecs) return nullptr;
    if (isFull(ctx.specCount) && !growSpecs(ctx)) return nullptr;
    ZFormatSpec& spec = ctx.specs[ctx.specCount++];
    // The tables come uninitialised, inside of the context and from the heap.
    spec = ZFormatSpec{};
    return &spec;
}

/// The next "%", or the end. Most are near, where a call would cost more than the search.
char const* nextSpec(char const* at) {
    for (char const* const nearEnd = at + 8; at != nearEnd; ++at)
        if (*at == '%' || *at == '\0') return at;
    return strchrnul(at, '%');
}

}  // namespace

bool readSpecs(ZFormatContext& ctx) {
    for (char const* at = ctx.format; *(at = nextSpec(at)) != '\0';) {
        ZFormatSpec* const spec = addSpec(ctx);
        if (spec == nullptr) return false;
        spec->start = at;
        if (!SpecReader(*spec).read()) return false;
        at = spec->end;
    }
    return true;
}

}  // namespace zfc::format
