/// The records and tables that the stages of the printf engine share: flag bits, argument types and
/// the resolved field of one specification.
#ifndef Z_UTILITY_FORMAT_RECORDS_H
#define Z_UTILITY_FORMAT_RECORDS_H

#include <array>
#include <cstddef>
#include <cstring>

#include "Z/utility/format/sink.h"
#include "Z/zsnprintf.h"

namespace zfc::format {

/// Bits of ZFormatSpec::flags.
enum Flag : unsigned {
    namesArgument = 0x1,       ///< "n$"
    alternate = 0x2,           ///< "#"
    leftJustified = 0x4,       ///< "-"
    zeroFilled = 0x8,          ///< "0"
    blankSign = 0x10,          ///< blank
    plusSign = 0x20,           ///< "+"
    grouping = 0x40,           ///< "'"; floating conversions only
    widthDigits = 0x80,        ///< width given as digits
    widthStar = 0x100,         ///< width given as "*" or "*m$"
    widthNamed = 0x200,        ///< width given as "*m$"
    precisionDigits = 0x400,   ///< precision given as digits
    precisionStar = 0x800,     ///< precision given as "*" or "*m$"
    precisionNamed = 0x1000,   ///< precision given as "*m$"
    lengthShort = 0x2000,      ///< "h"
    lengthLong = 0x4000,       ///< "l"
    lengthLongLong = 0x8000,   ///< "ll", "L" or "q"
    octal = 0x10000,           ///< "o"
    hexadecimal = 0x20000,     ///< "x", "p"
    hexadecimalUp = 0x40000,   ///< "X"
    floatingUp = 0x80000,      ///< "E", "G"
    percentLiteral = 0x100000  ///< "%"
};

/// What makes a conversion more than a text as it is, or a number's decimal digits.
constexpr unsigned shaped = alternate | leftJustified | zeroFilled | blankSign | plusSign |
                            widthDigits | widthStar | precisionDigits | precisionStar | octal |
                            hexadecimal | hexadecimalUp;

/// Values of ZFormatSpec::argType and ZFormatArg::type. Their order counts: integers from
/// signedLongLong on are passed as long long; from doubleE to the last long double all are
/// floating, three by three for the letters e, f and g.
enum ArgType : int {
    noType = -1,  ///< an argument that no specification converts; an invalid conversion
    byteChar = 0,
    wideChar,
    text,
    wideText,
    signedShort,
    unsignedShort,
    signedInt,
    unsignedInt,
    signedLong,
    unsignedLong,
    signedLongLong,
    unsignedLongLong,
    address,
    doubleE,
    doubleF,
    doubleG,
    longDoubleE,
    longDoubleF,
    longDoubleG,
    percent,
    typeCount
};

/// What may stand for one argument: uses of the same class agree, and an address may be text.
enum class ArgClass : short { none, integer, narrow, wide, address, real, longReal };

struct TypeRow {
    ArgClass argClass;
    unsigned char bits;  ///< of an integer
    bool isSigned;
};

constexpr unsigned char longBits = sizeof(long) * 8;

/// One row a type code, in the order of ArgType.
constexpr std::array<TypeRow, typeCount> typeRows{{
    {ArgClass::integer, 8, false},         // byteChar
    {ArgClass::integer, 16, false},        // wideChar
    {ArgClass::narrow, 0, false},          // text
    {ArgClass::wide, 0, false},            // wideText
    {ArgClass::integer, 16, true},         // signedShort
    {ArgClass::integer, 16, false},        // unsignedShort
    {ArgClass::integer, 32, true},         // signedInt
    {ArgClass::integer, 32, false},        // unsignedInt
    {ArgClass::integer, longBits, true},   // signedLong
    {ArgClass::integer, longBits, false},  // unsignedLong
    {ArgClass::integer, 64, true},         // signedLongLong
    {ArgClass::integer, 64, false},        // unsignedLongLong
    {ArgClass::address, 0, false},         // address
    {ArgClass::real, 0, false},            // doubleE
    {ArgClass::real, 0, false},            // doubleF
    {ArgClass::real, 0, false},            // doubleG
    {ArgClass::longReal, 0, false},        // longDoubleE
    {ArgClass::longReal, 0, false},        // longDoubleF
    {ArgClass::longReal, 0, false},        // longDoubleG
    {ArgClass::none, 0, false},            // percent
}};

[[nodiscard]] constexpr TypeRow const& rowOf(int type) {
    return typeRows[static_cast<std::size_t>(type)];
}

/// `value` cut to the size of an integer type, and extended again by its sign or zeros.
[[nodiscard]] constexpr long long narrowed(int type, long long value) {
    TypeRow const row = rowOf(type);
    int const unused = 64 - row.bits;
    // As unsigned: shifting a negative number up is undefined in C++17.
    auto const shifted = static_cast<unsigned long long>(value) << unused;
    return row.isSigned ? static_cast<long long>(shifted) >> unused
                        : static_cast<long long>(shifted >> unused);
}

/// Width, precision and flags of one specification with the values of its "*" arguments.
struct Field {
    int width;
    int precision;  ///< absent: noPrecision
    unsigned flags;

    [[nodiscard]] bool has(unsigned bits) const { return (flags & bits) != 0; }
    /// Bytes that a text of `length` bytes lacks to the width.
    [[nodiscard]] std::size_t padding(std::size_t length) const {
        auto const wanted = static_cast<std::size_t>(width);
        return wanted > length ? wanted - length : 0;
    }
};
constexpr int noPrecision = -1;

/// The next "%", or the end. Most are near, where a call would cost more than the search.
[[nodiscard]] inline char const* nextSpec(char const* at) {
    for (char const* const nearEnd = at + 8; at != nearEnd; ++at)
        if (*at == '%' || *at == '\0') return at;
    return strchrnul(at, '%');
}

/// Reads the conversions of `ctx.format` into `ctx.specs`. False for a malformed one.
[[nodiscard]] bool readSpecs(ZFormatContext& ctx);

/// Gives every specification its argument numbers and every argument its type. The number of
/// arguments, or -1 when the numbers have gaps or uses disagree.
[[nodiscard]] int numberArguments(ZFormatContext& ctx);

/// Fetches arguments 1 to `count`.
void fetchArguments(ZFormatContext& ctx, int count, va_list list);

/// Renders everything. False when a renderer failed.
[[nodiscard]] bool render(ZFormatContext const& ctx, Sink& sink);

/// Renders one double or long double. False when the C library cannot.
[[nodiscard]] bool renderFloating(Sink& sink, int type, Field const& field, ZFormatArg const& arg);

}  // namespace zfc::format

#endif
