// Formats of the printf engine. Made of the input: one whose result the C library knows too, so
// that both must agree, whatever the room. Taken from the input as it is: read or refused, no more.
#include <cstdarg>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "Z/zsnprintf.h"
#include "fuzz_input.h"

namespace {

using fuzz::expect;
using fuzz::Input;

/// The values that all formats of a run print, each under its number.
struct Values {
    int width, precision;  // 1, 2
    long long whole;       // 3
    double real;           // 4
    std::string text;      // 5
    int small;             // 6
    long double longReal;  // 7
};

template <class Format>
int call(Format format, char* out, std::size_t size, std::string const& text, Values const& v) {
    return format(out, size, text.c_str(), v.width, v.precision, v.whole, v.real, v.text.c_str(),
                  v.small, v.longReal, v.small, v.small);
}
constexpr auto system = [](char* out, std::size_t size, char const* format, auto... args) {
    return snprintf(out, size, format, args...);
};
constexpr auto ours = [](char* out, std::size_t size, char const* format, auto... args) {
    return zsnprintf(out, static_cast<int>(size), format, args...);
};

/// Names every argument, which numbered formats must. What is narrowed (h and c) has numbers of its
/// own, because the first conversion of a number decides how it is fetched.
constexpr char all[] = "%1$d %2$d %3$lld %4$g %5$s %6$d %7$Lg %8$hd %9$c";

std::string sizeText(Input& input, char const* star) {
    switch (input.below(4)) {
        case 0:
            return star;
        case 1:
            return std::to_string(input.byte());
        default:
            return {};
    }
}

std::string without(std::string flags, char flag) {
    std::string kept;
    for (char const c : flags)
        if (c != flag) kept += c;
    return kept;
}

/// One conversion on which the engine and the C library agree.
std::string specification(Input& input, Values const& values) {
    static char const* const conversions[] = {"3$lld", "3$lli", "3$llu", "3$llx", "3$llX", "3$llo",
                                              "4$e",   "4$E",   "4$f",   "4$g",   "4$G",   "5$s",
                                              "6$d",   "8$hd",  "6$u",   "6$x",   "8$hX",  "9$c",
                                              "7$Lf",  "7$Le",  "7$LG",  "8$hu",  "6$o"};
    std::string const conversion = conversions[input.below(std::size(conversions))];
    std::string flags;
    unsigned int const bits = input.byte();
    for (unsigned int i = 0; i < 6; ++i)
        if ((bits >> i & 1U) != 0) flags += "-0+ #'"[i];
    std::string const width = sizeText(input, "*1$");
    std::string precision = sizeText(input, ".*2$");
    if (!precision.empty() && precision[0] != '.') precision.insert(0, ".");
    // The C library fills with zeros behind a number whose width is negative and has a number.
    if (values.width < 0 && width[0] == '*') flags = without(flags, '0');
    // Where the two differ on purpose: octal with "#" and a precision, zeros beside a precision in
    // floating numbers, zeros before text.
    char const kind = conversion.back();
    if (kind == 'o' && !precision.empty()) flags = without(flags, '#');
    bool const isNumber = kind != 's' && kind != 'c';
    bool const isReal = conversion[0] == '4' || conversion[0] == '7';
    if (!isNumber || (isReal && !precision.empty())) flags = without(flags, '0');
    return "%" + conversion.substr(0, 2) + flags + width + precision + conversion.substr(2);
}

void compare(std::string const& format, Values const& values, std::size_t room) {
    std::vector<char> expected(20000);
    int const length = call(system, expected.data(), expected.size(), format, values);
    expect(length >= 0 && static_cast<std::size_t>(length) < expected.size(), "too long a text");
    std::vector<char> out(room);  // exact, for the sanitizer
    int const result = call(ours, out.data(), room, format, values);
    std::size_t const end = std::min(room - (room != 0), static_cast<std::size_t>(length));
    if (result == length && std::equal(out.data(), out.data() + end, expected.data())) {
        expect(room == 0 || out[end] == '\0', "no NUL behind the text");
        return;
    }
    std::string const text(out.data(), end);
    std::fprintf(stderr, "%d: %s\n%d: %s\n", length, expected.data(), result, text.c_str());
    expect(false, format.c_str());
}

void compareMade(Input& input) {
    Values values{static_cast<signed char>(input.byte()),
                  static_cast<signed char>(input.byte()),
                  input.number<long long>(),
                  0,
                  {},
                  input.number<int>(),
                  0};
    auto const bits = input.number<unsigned long long>();
    std::memcpy(&values.real, &bits, sizeof bits);
    values.longReal = static_cast<long double>(values.real) / 3;
    std::size_t const room = input.below(2) == 0 ? input.byte() : 20000U;
    values.text = input.text();
    std::string format;
    for (int i = 0; i < 4 && !input.isAtEnd(); ++i) {
        format += specification(input, values) + "|%%";
    }
    compare(format + all, values, room);
}

/// Calls the engine with as many arguments as ten specifications can ask for. Whatever each of
/// them is taken for, it is the address of empty text, or the number 0.
int parseOnly(ZFormatContext* context, char const* format, ...) {
    va_list list;
    va_start(list, format);
    int const result = zvsnprintf_parse(context, zgetLCSHandle(), format, list);
    va_end(list);
    return result;
}

bool isShort(std::string const& format) {
    int specifications = 0;
    int digits = 0;
    for (char const c : format) {
        specifications += c == '%';
        digits = c >= '0' && c <= '9' ? digits + 1 : 0;
        if (digits > 3 || c == '*') return false;  // a great width is filled in great time
    }
    return specifications <= 10;
}

void parseRaw(std::string const& format) {
    static long double const none = 0;  // all bits 0: empty text of either kind, too
    void const* const p = &none;
    bool const renders = isShort(format);
    if (std::count(format.begin(), format.end(), '%') > 10) return;
    ZFormatContext context;
    int const parsed = parseOnly(
        &context, format.c_str(), p, p, p, p, p, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, p, p, p, p,
        p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p,
        p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p, p);
    if (parsed != 0) return;
    if (renders) {
        char out[40];
        int const length = zvsnprintf_render(&context, out, sizeof out);
        expect(length == zvsnprintf_render(&context, nullptr, 0), "two lengths for one text");
    }
    zvsnprintf_done(&context);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Input input(data, size);
    if (input.below(4) == 0)
        parseRaw(input.text());
    else
        compareMade(input);
    return 0;
}
