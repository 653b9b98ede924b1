#include <climits>
#include <cstdint>

#include "Z/utility/format/records.h"
#include "qcs/qcs.h"

namespace zfc::format {
namespace {

/// The value of a "*" argument; false when it is no int, or INT_MIN, which has no other sign.
bool starValue(ZFormatArg const& arg, int& value) {
    long long wide = arg.value.integer;
    // An int is fetched as unsigned when nothing but a width or a precision uses it.
    if (arg.type == unsignedInt)
        wide = static_cast<int>(wide);
    else if (wide < 0 && !rowOf(arg.type).isSigned)
        return false;
    if (wide > INT_MAX || wide <= INT_MIN) return false;
    value = static_cast<int>(wide);
    return true;
}

bool resolveWidth(ZFormatSpec const& spec, ZFormatArg const* args, Field& field) {
    if (!field.has(widthStar)) return true;
    if (!starValue(args[spec.width], field.width)) return false;
    if (field.width >= 0) return true;
    // ISO C: a negative width is the flag "-" and a width. INT_MIN is out already.
    field.width = -field.width;
    field.flags = (field.flags | leftJustified) & ~zeroFilled;
    return true;
}

bool resolvePrecision(ZFormatSpec const& spec, ZFormatArg const* args, Field& field) {
    if (!field.has(precisionStar)) return true;
    if (!starValue(args[spec.precision], field.precision)) return false;
    // ISO C: a negative precision is none.
    if (field.precision < 0)
        field.precision = noPrecision;
    else if (spec.argType != address)
        field.flags &= ~zeroFilled;
    return true;
}

/// False when a width or precision is out of range.
bool resolve(ZFormatSpec const& spec, ZFormatArg const* args, Field& field) {
    bool const isGiven = (spec.flags & precisionDigits) != 0;
    field = {spec.width, isGiven ? spec.precision : noPrecision, spec.flags};
    return resolveWidth(spec, args, field) && resolvePrecision(spec, args, field);
}

/// What stands before the digits: a sign or the mark of the base.
struct Prefix {
    char const* text;
    std::size_t length;
};
constexpr Prefix noPrefix{"", 0};

Prefix signOf(bool isNegative, Field const& field) {
    if (isNegative) return {"-", 1};
    if (field.has(plusSign)) return {"+", 1};
    return field.has(blankSign) ? Prefix{" ", 1} : noPrefix;
}

Prefix baseOf(unsigned long long value, Field const& field) {
    // ISO C: "0x" stands before results other than 0 alone.
    if (value == 0 || !field.has(alternate)) return noPrefix;
    if (field.has(hexadecimalUp)) return {"0X", 2};
    return field.has(hexadecimal) ? Prefix{"0x", 2} : noPrefix;
}

Digits digitsOf(unsigned long long value, Field const& field) {
    // Kept: no digits for 0 at precision 0, even with "#o", where ISO C writes "0".
    bool const isEmpty = value == 0 && field.precision == 0;
    if (field.has(hexadecimalUp)) return {value, 4, "0123456789ABCDEF", isEmpty};
    if (field.has(hexadecimal)) return {value, 4, "0123456789abcdef", isEmpty};
    return {value, field.has(octal) ? 3 : 0, "01234567", isEmpty};
}

/// Zeros before the digits that precision and "#" ask for.
std::size_t leadingZeros(unsigned long long value, Field const& field, std::size_t count) {
    auto const wanted = static_cast<std::size_t>(field.precision);
    std::size_t const zeros = wanted > count ? wanted - count : 0;
    // Kept: one more even when the precision has put a 0 there, which ISO C leaves.
    return field.has(octal) && field.has(alternate) && value != 0 ? zeros + 1 : zeros;
}

/// Writes [blanks][prefix][zeros][digits][blanks]. The precision is set.
void writeNumber(Sink& sink, Field const& field, Prefix prefix, unsigned long long value) {
    Digits const digits = digitsOf(value, field);
    std::size_t zeros = leadingZeros(value, field, digits.count());
    std::size_t const needed = prefix.length + zeros + digits.count();
    std::size_t const padding = field.padding(needed);
    bool const isLeft = field.has(leftJustified);
    bool const fillsZeros = field.has(zeroFilled) && !isLeft;
    if (fillsZeros) zeros += padding;
    sink.writeAll(needed + padding, [&](auto& out) {
        if (!isLeft && !fillsZeros) out.fill(' ', padding);
        out.write(prefix.text, prefix.length);
        out.fill('0', zeros);
        out.write(digits);
        if (isLeft) out.fill(' ', padding);
    });
}

/// An integer as its conversion sees it.
struct Number {
    Number(int type, ZFormatArg const& arg) {
        // Another conversion may have said how it was fetched.
        long long const value =
            arg.type == type ? arg.value.integer : narrowed(type, arg.value.integer);
        isNegative = value < 0 && rowOf(type).isSigned;
        // Negated as unsigned, so that the least value has its magnitude.
        magnitude = static_cast<unsigned long long>(value);
        if (isNegative) magnitude = 0 - magnitude;
    }

    bool isNegative;
    unsigned long long magnitude;
};

void renderInteger(Sink& sink, int type, Field field, ZFormatArg const& arg) {
    if (field.precision == noPrecision) field.precision = 1;
    Number const number(type, arg);
    writeNumber(
        sink, field,
        rowOf(type).isSigned ? signOf(number.isNegative, field) : baseOf(number.magnitude, field),
        number.magnitude);
}

void renderAddress(Sink& sink, Field field, ZFormatArg const& arg) {
    // Kept: an address has precision 0 when none is given, so that a null pointer has no digits.
    if (field.precision == noPrecision) field.precision = 0;
    unsigned long long const value = reinterpret_cast<std::uintptr_t>(arg.value.pointer);
    writeNumber(sink, field, baseOf(value, field), value);
}

/// Blanks on the side where they belong, around `count` bytes that `write` writes.
template <class Out, class Write>
void writePadded(Out& out, Field const& field, std::size_t count, Write write) {
    std::size_t const padding = field.padding(count);
    bool const isLeft = field.has(leftJustified);
    if (!isLeft) out.fill(' ', padding);
    write();
    if (isLeft) out.fill(' ', padding);
}

void writeBytes(Sink& sink, Field const& field, char const* bytes, std::size_t count) {
    sink.writeAll(count + field.padding(count), [&](auto& out) {
        writePadded(out, field, count, [&] { out.write(bytes, count); });
    });
}

void renderText(Sink& sink, Field const& field, ZFormatArg const& arg) {
    auto const* bytes = static_cast<char const*>(arg.value.pointer);
    if (bytes == nullptr) bytes = "";
    writeBytes(sink, field, bytes,
               field.precision == noPrecision
                   ? std::strlen(bytes)
                   // ISO C: with a precision the text need not have a NUL.
                   : strnlen(bytes, static_cast<std::size_t>(field.precision)));
}

void renderByte(Sink& sink, Field const& field, char byte) { writeBytes(sink, field, &byte, 1); }

/// One wide character in a codeset.
struct Character {
    char bytes[8];
    std::size_t count;
};

/// False when the codeset lacks it.
bool encode(ZCodesetHandle codeset, ZWideChar wide, Character& to) {
    int const length = qcs_wctomb(codeset, to.bytes, wide);
    to.count = static_cast<std::size_t>(length);
    return length >= 0 && to.count <= sizeof(to.bytes);
}

/// Gives `each` the characters of wide text, as many whole ones as have at most `limit` bytes, and
/// reads nothing behind them. False when the codeset lacks one.
template <class Each>
bool forEachCharacter(ZCodesetHandle codeset, ZWideChar const* wide, std::size_t limit, Each each) {
    Character character;
    // The limit first: with a precision the text need not have an end.
    for (; limit > 0 && *wide != 0; ++wide) {
        if (!encode(codeset, *wide, character)) return false;
        // A precision ends before a character, never within one.
        if (character.count > limit) return true;
        each(character);
        limit -= character.count;
    }
    return true;
}

bool writeWide(Sink& sink, ZCodesetHandle codeset, Field const& field, ZWideChar const* wide) {
    std::size_t const limit =
        field.precision == noPrecision ? SIZE_MAX : static_cast<std::size_t>(field.precision);
    std::size_t total = 0;
    // Encoded twice: blanks on the left come before the bytes are known, and there is no room to
    // keep them.
    if (!forEachCharacter(codeset, wide, limit, [&](Character const& c) { total += c.count; }))
        return false;
    bool isWritten = false;
    writePadded(sink, field, total, [&] {
        isWritten = forEachCharacter(
            codeset, wide, limit, [&](Character const& c) { sink.writeWhole(c.bytes, c.count); });
    });
    return isWritten;
}

bool renderWideText(Sink& sink, ZCodesetHandle codeset, Field const& field, ZFormatArg const& arg) {
    static constexpr ZWideChar empty = 0;
    auto const* const wide = static_cast<ZWideChar const*>(arg.value.pointer);
    return writeWide(sink, codeset, field, wide == nullptr ? &empty : wide);
}

bool renderWideChar(Sink& sink, ZCodesetHandle codeset, Field const& field, ZFormatArg const& arg) {
    Character c;
    if (!encode(codeset, static_cast<ZWideChar>(arg.value.integer), c)) return false;
    writePadded(sink, field, c.count, [&] { sink.writeWhole(c.bytes, c.count); });
    return true;
}

/// The conversions that most formats have, when nothing shapes them; false for another.
bool renderBare(Sink& sink, ZFormatSpec const& spec, ZFormatArg const& arg) {
    if (spec.argType == text) {
        auto const* const bytes = static_cast<char const*>(arg.value.pointer);
        if (bytes != nullptr) sink.write(bytes, std::strlen(bytes));
        return true;
    }
    if (spec.argType < signedShort || spec.argType > unsignedLongLong) return false;
    Number const number(spec.argType, arg);
    Digits const digits(number.magnitude, 0, "", false);
    sink.writeAll(digits.count() + (number.isNegative ? 1 : 0), [&](auto& out) {
        if (number.isNegative) out.fill('-', 1);
        out.write(digits);
    });
    return true;
}

bool renderSpec(Sink& sink, ZFormatContext const& ctx, ZFormatSpec const& spec) {
    ZFormatArg const& arg = ctx.args[spec.argPos];
    if ((spec.flags & shaped) == 0 && renderBare(sink, spec, arg)) return true;
    Field field{};
    if (!resolve(spec, ctx.args, field)) return false;
    switch (spec.argType) {
        case byteChar:
            renderByte(sink, field, static_cast<char>(arg.value.integer));
            return true;
        case percent:
            renderByte(sink, field, '%');
            return true;
        case wideChar:
            return renderWideChar(sink, ctx.codeset, field, arg);
        case text:
            renderText(sink, field, arg);
            return true;
        case wideText:
            return renderWideText(sink, ctx.codeset, field, arg);
        case address:
            renderAddress(sink, field, arg);
            return true;
        default:
            break;
    }
    if (spec.argType >= doubleE) return renderFloating(sink, spec.argType, field, arg);
    renderInteger(sink, spec.argType, field, arg);
    return true;
}

}  // namespace

bool render(ZFormatContext const& ctx, Sink& sink) {
    char const* literal = ctx.format;
    ZFormatSpec const* const end = ctx.specs + ctx.specCount;
    for (ZFormatSpec const* at = ctx.specs; at != end; ++at) {
        ZFormatSpec const& spec = *at;
        sink.write(literal, static_cast<std::size_t>(spec.start - literal));
        if (!renderSpec(sink, ctx, spec)) return false;
        literal = spec.end;
    }
    // Most formats end with a conversion or a line feed.
    if (*literal != '\0') sink.write(literal, std::strlen(literal));
    return true;
}

}  // namespace zfc::format
