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

/// The C library's conversion without its reading of a format, which takes a tenth of the time.
bool renderSimple(Sink& sink, int type, Field const& field, double value) {
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
