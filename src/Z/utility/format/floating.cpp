#include <langinfo.h>

#include <cfloat>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "Z/utility/format/records.h"

namespace zfc::format {
namespace {

constexpr unsigned anyFlag =
    zeroFilled | alternate | leftJustified | blankSign | plusSign | grouping;

char letterOf(int type, Field const& field) {
    constexpr char lower[] = "efg";
    constexpr char upper[] = "EfG";
    int const kind = type < longDoubleE ? type - doubleE : type - longDoubleE;
    return field.has(floatingUp) ? upper[kind] : lower[kind];
}

/// The specification that the C library gets: flags, "*.*" and the conversion.
class SystemFormat {
  public:
    SystemFormat(int type, Field const& field) {
        add('%');
        if (field.has(anyFlag)) addFlags(field);
        for (char const c : {'*', '.', '*'})
            add(c);
        if (type >= longDoubleE) add('L');
        add(letterOf(type, field));
        add('\0');
    }

    [[nodiscard]] char const* c_str() const { return text.data(); }

  private:
    void add(char c) { text[length++] = c; }

    void addFlags(Field const& field) {
        struct FlagLetter {
            Flag flag;
            char letter;
        };
        static constexpr FlagLetter letters[] = {{zeroFilled, '0'},    {alternate, '#'},
                                                 {leftJustified, '-'}, {blankSign, ' '},
                                                 {plusSign, '+'},      {grouping, '\''}};
        for (auto const& [flag, letter] : letters)
            if (field.has(flag)) add(letter);
    }

    // "%", six flags, "*.*", "L", a letter and the NUL: 13.
    std::array<char, 16> text;  // up to its NUL
    std::size_t length = 0;
};

/// The C library's text of one value: what it writes at `out`, its whole length; negative when it
/// fails. An absent precision is a negative one to it.
int systemPrint(char* out, std::size_t size, int type, Field const& field, ZFormatArg const& arg) {
    SystemFormat const system(type, field);
    char const* const format = system.c_str();
    return type >= longDoubleE
               ? std::snprintf(out, size, format, field.width, field.precision, arg.value.longReal)
               : std::snprintf(out, size, format, field.width, field.precision, arg.value.real);
}

/// Most doubles: neither a flag nor a width, and a precision of two digits at most.
bool isSimple(int type, Field const& field) {
    return type < longDoubleE && !field.has(anyFlag) && field.width == 0 && field.precision < 100;
}

/// A double as a whole number and a fraction in 64 bits, its point before them.
class FixedPoint {
  public:
    explicit FixedPoint(double value) {
        std::uint64_t bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        isNegative = bits >> 63 != 0;
        bool const isZero = (bits << 1) == 0;
        constexpr std::uint64_t hiddenBit = std::uint64_t{1} << 52;
        std::uint64_t const mantissa = (bits & (hiddenBit - 1)) | hiddenBit;
        int const places = 1075 - static_cast<int>(bits >> 52 & 0x7FF);  // behind its point
        isExact = isZero || (places > 0 && places < 64);
        if (isZero || !isExact) return;
        whole = mantissa >> places;
        fraction = mantissa << (64 - places);
    }

    /// Rounds to so many digits behind the point, nine at most, to the even one of two that are
    /// near. They are left in `fraction`, as a whole number.
    void roundTo(int digits) {
        std::uint32_t scale = 1;
        for (int i = 0; i < digits; ++i)
            scale *= 10;
        // A product of 96 bits, in two parts, since 32-bit machines have no wider number.
        std::uint64_t const low = (fraction & UINT32_MAX) * scale;
        std::uint64_t const high = (fraction >> 32) * scale + (low >> 32);
        std::uint64_t const rest = high << 32 | (low & UINT32_MAX);
        fraction = high >> 32;
        bool const isOdd = ((digits > 0 ? fraction : whole) & 1) != 0;
        constexpr std::uint64_t half = std::uint64_t{1} << 63;
        if (rest > half || (rest == half && isOdd)) ++fraction;
        if (fraction == scale) fraction = 0, ++whole;
    }

    bool isNegative;
    bool isExact;  // false: too great or too small for this, infinite, or no number
    std::uint64_t whole = 0;
    std::uint64_t fraction = 0;
};

/// The rounding mode by its effect: fegetround() is in a library that nothing else here needs.
bool roundsToNearest() {
    double const volatile one = 1;  // not for the compiler to compute with
    return one + DBL_MIN == one - DBL_MIN;
}

/// Writes what is neither very great nor very small, to the digits that the C library gives, which
/// takes five times as long. False for another value.
bool renderFixed(Sink& sink, double value, int precision) {
    if (precision == noPrecision) precision = 6;
    if (precision > 9 || !roundsToNearest()) return false;
    FixedPoint number(value);
    if (!number.isExact) return false;
    number.roundTo(precision);
    if (number.isNegative) sink.fill('-', 1);
    sink.write(Digits(number.whole, 0, "", false));
    if (precision == 0) return true;
    char const* const point = nl_langinfo(RADIXCHAR);
    sink.write(point, std::strlen(point));
    Digits const digits(number.fraction, 0, "", false);
    sink.fill('0', static_cast<std::size_t>(precision) - digits.count());
    sink.write(digits);
    return true;
}

/// The C library's conversion without its reading of a format, which takes a tenth of the time.
bool renderSimple(Sink& sink, int type, Field const& field, double value) {
    if (type == doubleF && renderFixed(sink, value, field.precision)) return true;
    // A sign, 309 digits, a point and the precision. Never the sink's room: in glibc 2.36
    // strfromd() writes beyond a room of one byte.
    char text[512];
    char format[8];
    char* end = format;
    *end++ = '%';
    if (field.precision != noPrecision) {
        *end++ = '.';
        if (field.precision >= 10) *end++ = static_cast<char>('0' + field.precision / 10);
        *end++ = static_cast<char>('0' + field.precision % 10);
    }
    *end++ = letterOf(type, field);
    *end = '\0';
    int const length = strfromd(text, sizeof(text), format, value);
    if (length < 0) return false;
    sink.write(text, static_cast<std::size_t>(length));
    return true;
}

/// No value has as many digits, on either side of its point.
constexpr int greatestDigits = 20000;

/// One value without its padding, and with no more digits than it can have.
class BareNumber {
  public:
    BareNumber(int type, Field field, ZFormatArg const& arg) {
        field.width = 0;
        field.flags &= ~(zeroFilled | leftJustified);
        // The zeros beyond come from the caller, see trailingZeros().
        field.precision = std::min(field.precision, greatestDigits);
        int const measured = systemPrint(nullptr, 0, type, field, arg);
        if (measured < 0) return;
        auto const size = static_cast<std::size_t>(measured) + 1;
        text.reset(static_cast<char*>(std::malloc(size)));
        if (text == nullptr) return;
        length = size - 1;
        systemPrint(text.get(), size, type, field, arg);
    }

    [[nodiscard]] bool isThere() const { return text != nullptr; }
    [[nodiscard]] std::size_t size() const { return length; }
    [[nodiscard]] char const* data() const { return text.get(); }
    [[nodiscard]] std::size_t signSize() const { return std::strchr("+- ", *text) != nullptr; }
    [[nodiscard]] bool isFinite() const {
        char const first = text.get()[signSize()];
        return first >= '0' && first <= '9';
    }
    /// Where zeros of a greater precision go: before the exponent, if there is one.
    [[nodiscard]] std::size_t digitsEnd() const {
        std::size_t const exponent = std::strcspn(text.get(), "eE");
        return isFinite() ? exponent : length;
    }

  private:
    struct Free {
        void operator()(char* block) const { std::free(block); }
    };
    std::unique_ptr<char, Free> text;
    std::size_t length = 0;
};

/// Zeros that the precision asks for behind the greatest digits; "g" drops them without "#".
std::size_t trailingZeros(int type, Field const& field, BareNumber const& number) {
    bool const isGeneral = type == doubleG || type == longDoubleG;
    if (field.precision <= greatestDigits || !number.isFinite()) return 0;
    if (isGeneral && !field.has(alternate)) return 0;
    return static_cast<std::size_t>(field.precision - greatestDigits);
}

/// The C library takes a minute for the widest fields, and then has their length wrong.
bool renderHuge(Sink& sink, int type, Field const& field, ZFormatArg const& arg) {
    BareNumber const number(type, field, arg);
    if (!number.isThere()) return false;
    std::size_t const zeros = trailingZeros(type, field, number);
    std::size_t const padding = field.padding(number.size() + zeros);
    bool const isLeft = field.has(leftJustified);
    // ISO C fills "inf" and "nan" with blanks.
    bool const fillsZeros = field.has(zeroFilled) && !isLeft && number.isFinite();
    std::size_t const sign = number.signSize();
    std::size_t const end = number.digitsEnd();
    if (!isLeft && !fillsZeros) sink.fill(' ', padding);
    sink.write(number.data(), sign);
    if (fillsZeros) sink.fill('0', padding);
    sink.write(number.data() + sign, end - sign);
    sink.fill('0', zeros);
    sink.write(number.data() + end, number.size() - end);
    if (isLeft) sink.fill(' ', padding);
    return true;
}

}  // namespace

bool renderFloating(Sink& sink, int type, Field const& field, ZFormatArg const& arg) {
    if (field.width > greatestDigits || field.precision > greatestDigits)
        return renderHuge(sink, type, field, arg);
    if (isSimple(type, field)) return renderSimple(sink, type, field, arg.value.real);
    // Straight into the sink's room; the C library cuts there.
    int const written = systemPrint(sink.place(), sink.placeSize(), type, field, arg);
    if (written < 0) return false;
    sink.advance(static_cast<std::size_t>(written));
    return true;
}

}  // namespace zfc::format
