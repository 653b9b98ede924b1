// link: static
// wrap: malloc,realloc
// The printf engine. The C library is the oracle for every combination on which the two agree; then
// what is deliberately not the C library's, sizes, numbered arguments, contexts and memory.
#define ZFC_NO_FORMAT_CHECK  // formats that no compiler lets pass
#include <gtest/gtest.h>

#include <algorithm>
#include <cfenv>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "Z/zasprintf.h"
#include "Z/zsnprintf.h"
#include "qcs/qcs.h"
#include "support/faults.h"

WRAP(malloc, void*, nullptr, (size_t size), (size))
WRAP(realloc, void*, nullptr, (void* block, size_t size), (block, size))

namespace {

using namespace testsupport;

/// The length that `function` gives, and what it writes up to there and the NUL behind it.
template <class Function, class Size, class... Args>
std::string run(Function* function, Size size, std::string const& format, Args... args) {
    std::string room(static_cast<std::size_t>(size), '?');
    int const length = function(room.data(), size, format.c_str(), args...);
    return std::to_string(length) + ":" + room.substr(0, static_cast<std::size_t>(length) + 1);
}

/// What zsnprintf() writes into ample room; "<error>" for a result of -1.
template <class... Args>
std::string formatted(char const* format, Args... args) {
    std::string const result = run(zsnprintf, 6000, format, args...);
    if (result[0] == '-') return "<error>";
    EXPECT_EQ(result.back(), '\0') << format;
    return result.substr(result.find(':') + 1, std::stoul(result));
}

/// Compares sets of flags, widths and precisions with the C library's, for every conversion and
/// value.
template <class Value>
void compare(std::vector<char const*> const& conversions, std::vector<Value> const& values,
             std::string const& flags = "-0+ #'") {
    for (unsigned bits = 0; bits < 1U << flags.size(); ++bits) {
        std::string some;
        for (std::size_t i = 0; i < flags.size(); ++i)
            if ((bits >> i & 1U) != 0) some += flags[i];
        for (char const* const conversion : conversions)
            for (Value const value : values) {
                auto const compareOne = [&](std::string const& rest, auto... args) {
                    // Formats of more than sixteen conversions are read in another way.
                    for (std::string const before : {"<", "<%%%%%%%%%%%%%%%%%%%%%%%%%%%%%%%%"}) {
                        std::string const format = before + "%" + some + rest + conversion + ">";
                        EXPECT_EQ(run(zsnprintf, 6000, format, args..., value),
                                  run(snprintf, std::size_t{6000}, format, args..., value))
                            << format;
                    }
                };
                if (testing::Test::HasFailure()) return;
                for (std::string const width : {"", "1", "7", "23"})
                    for (char const* const precision : {"", ".0", ".1", ".6", ".25"})
                        compareOne(width + precision);
                for (int const width : {0, 5, 30, -12})
                    for (int const precision : {0, 9, -3})
                        compareOne("*.*", width, precision);
            }
    }
}

TEST(FormatOracleTest, IntegersAreTheCLibrarys) {
    compare<int>({"d", "i", "hd"}, {0, 1, -1, -100, 70000, INT_MAX, INT_MIN});
    compare<unsigned>({"u", "x", "X", "hu", "hx"}, {0U, 9U, 0xABCDEFU, UINT_MAX});
    compare<long>({"ld"}, {0L, -7L, LONG_MAX, LONG_MIN});
    compare<unsigned long>({"lu", "lx"}, {65536UL, ULONG_MAX});
    compare<long long>({"lld", "Ld", "qd"}, {-7LL, LLONG_MAX, LLONG_MIN});
    compare<unsigned long long>({"llu", "llx", "qX"}, {0ULL, ULLONG_MAX});
    constexpr char noDigit[] = "-0+ '";  // where # adds one, it is one more than the precision here
    compare<unsigned>({"o", "ho"}, {0U, 8U, 65536U, UINT_MAX}, noDigit);
    compare<unsigned long long>({"llo"}, {ULLONG_MAX}, noDigit);
}

TEST(FormatOracleTest, FloatingNumbersAreTheCLibrarys) {
    constexpr char noZeros[] = "-+ #'";  // a precision ends filling with them here
    compare<double>({"e", "E", "f", "g", "G"},
                    {0.0, -0.0, 1.5, -123456.789, 1e-7, DBL_MAX, INFINITY, -INFINITY, NAN},
                    noZeros);
    compare<long double>({"Le", "LE", "Lf", "Lg", "LG"}, {0.0L, -2.5L, 1e15L, LDBL_MIN}, noZeros);
    // Far beyond the digits that a value has, the engine adds the zeros and blanks itself.
    for (char const* format :
         {"%.1000f", "%3000.1f", "%.25000f|", "%.25000e|", "%#.25000g|", "%.25000g|",
          "%-30000.25000f|", "%+30000f|", "%030000f|", "%0-30000g|"})
        for (double const value : {0.1, -1e300, 0.0, -5e-324, HUGE_VAL, -double(NAN)})
            EXPECT_EQ(run(zsnprintf, 60000, format, value),
                      run(snprintf, std::size_t{60000}, format, value))
                << format << value;
    // Most doubles are converted here, by the C library's rules: ties, carries, rounding modes.
    std::mt19937_64 random(3);
    for (int const mode : {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO})
        for (int step = 0; step < 10000; ++step) {
            double const exact =
                std::ldexp(double(random() >> random() % 64), int(random() % 90) - 80);
            double const tie = double(random() % 100000) / 32 + (step % 3 == 0 ? 999.5 : 0);
            double const value = (step % 2 == 0 ? exact : tie) * (step % 5 == 0 ? -1 : 1);
            std::string const format = "%." + std::to_string(random() % 11) + "f";
            std::fesetround(mode);
            std::string const ours = run(zsnprintf, 400, format, value);
            std::string const theirs = run(snprintf, std::size_t{400}, format, value);
            std::fesetround(FE_TONEAREST);
            ASSERT_EQ(ours, theirs) << format << value;
        }
    EXPECT_EQ(run(zsnprintf, 60000, "% 25000.2Lf", LDBL_MAX),
              run(snprintf, std::size_t{60000}, "% 25000.2Lf", LDBL_MAX));
}

TEST(FormatOracleTest, TextAndBytesAreTheCLibrarys) {
    constexpr char noZeros[] = "-+ #'";  // text is never filled with them here
    compare<char const*>({"s"}, {"", "a", "some text of thirty-one bytes.."}, noZeros);
    compare<int>({"c"}, {0x78, 0xE9, 0x141}, noZeros);
}

constexpr ZWideChar wideText[] = {0xE4, 'b', 0x20AC, 'c', 0};  // 2, 1, 3 and 1 bytes of UTF-8

TEST(FormatTest, DiffersFromTheCLibraryWhereItIsMeant) {
    EXPECT_EQ(formatted("%08.3d", 5), "     005");
    EXPECT_EQ(formatted("%08f|%+08.1f|%05s|%-03c|", 1.5, 2.5, "a", 'b'),
              "1.500000|    +2.5|    a|b  |");
    EXPECT_EQ(formatted("%.d|%08.d", 0, 5), "0|00000005") << "a dot alone is no precision";
    EXPECT_EQ(formatted("%.s|%.f", "abc", 0.5), "abc|0.500000");
    EXPECT_EQ(formatted("%#o %#.5o %#.1o", 8, 8, 8), "010 000010 010");
    EXPECT_EQ(formatted("%#x|%#.0o|%.0d|%5.0d|%+.0d", 0, 0, 0, 0, 0), "0|||     |+");
    EXPECT_EQ(formatted("%-5%|%3%|%05%|%.3%"), "%    |  %|    %|%");
    EXPECT_EQ(formatted("%005d", 7), "00007") << "the second 0 begins the width";
    EXPECT_EQ(formatted("%00-5d", 7), "<error>") << "and no flag follows a width";
    EXPECT_EQ(formatted("%ls %hs %lc %l%", "narrow", "too", 'c'), "narrow too c %");
}

TEST(FormatTest, AddressShowsAllItsBits) {
    EXPECT_EQ(formatted("%-22p|", reinterpret_cast<void*>(UINTPTR_MAX)),
              sizeof(void*) == 8 ? "0xffffffffffffffff    |" : "0xffffffff            |");
    auto* const small = reinterpret_cast<void*>(0xAB);
    EXPECT_EQ(formatted("%p %8p %8.3p %8.*p %.4p", small, small, small, 3, small, small),
              "0xab 0x0000ab 0x0000ab 0x0000ab 0x00ab");
    EXPECT_EQ(formatted("<%p> %.1p", nullptr, nullptr), "<> 0") << "null has no digits";
}

TEST(FormatTest, MalformedFormatsAndContradictingUsesOfArgumentsAreErrors) {
    std::vector<std::string> formats{
        "%",       "abc %",   "%5",     "%-",    "%.",      "%.3",  "%*",     "%l",
        "%y",      "%n",      "%a",     "%F",    "%lf",     "%hg",  "%hhd",   "%lhd",
        "%hld",    "%llld",   "%lLd",   "%qld",  "%5*d",    "%*5d", "%.5*d",  "%.*5d",
        "%*1$d",   "%0$d",    "%1$*2d", "%$d",   "%1$.*2d", "%1$",  "%1$1$d", "%d %",
        "%1$*0$d", "%5.3.1d", "%5-d",   "%..5d", "%\xE4",   "%2$d"};
    formats.insert(formats.end(), {"%3$d %1$d", "%s %2$s", "%2$s %s", "%1$*3$d",
                                   "%1$d %2147483647$d", "%1$d %1$s", "%1$p %1$d", "%1$p %1$s %1$S",
                                   "%1$f %1$d", "%1$f %1$Lf", "%1$s%1$*1$s", "%1$s%1$.*1$s"});
    for (auto const& format : formats)
        EXPECT_EQ(formatted(format.c_str(), 1, 2, 3, 4), "<error>") << format;
    EXPECT_EQ(zsnprintf(nullptr, 0, nullptr), -1);
}

TEST(FormatTest, NumbersAboveIntMaxAreErrors) {
    auto const measured = [](auto... args) { return zsnprintf(nullptr, 0, args...); };
    std::pair<char const*, int> const rows[] = {
        {"%2147483648d", -1},   {"%.2147483648d", -1},     {"%99999999999999999999d", -1},
        {"%2147483647d%d", -1}, {"%.2147483647d%d", -1},   {"%2147483648$d", -1},
        {"%4294967297$d", -1},  {"%2147483647d", INT_MAX}, {"%2147483646dx", INT_MAX}};
    for (auto const& [format, length] : rows)
        EXPECT_EQ(measured(format, 1, 2), length) << format;
    EXPECT_EQ(measured("%*d", INT_MIN, 1), -1);
    EXPECT_EQ(measured("%-*d", INT_MIN + 1, 1), INT_MAX);
    EXPECT_EQ(measured("%.*d", INT_MIN, 1), -1);
    EXPECT_EQ(measured("%1$.*1$lld", 1LL << 40), -1);
    EXPECT_EQ(measured("%.2147483641e", 0.5), INT_MAX);
    EXPECT_EQ(measured("%.2147483647f", 0.5), -1);
}

TEST(FormatTest, WideTextIsConvertedAndNoTextIsReadBeyondItsPrecision) {
    EXPECT_EQ(formatted("%9S|%-9S|%-5.4S|", wideText, wideText, wideText), "  äb€c|äb€c  |äb  |");
    EXPECT_EQ(formatted("%5.6S|%.1S|%C%4C%-4C|", wideText, wideText, 0x20AC, 0xE4, 'x'),
              "äb€||€  äx   |");
    constexpr ZWideChar loneSurrogate[] = {'a', 0xD800, 0};
    EXPECT_EQ(formatted("%S", loneSurrogate), "<error>");
    EXPECT_EQ(formatted("%.1S", loneSurrogate), "a") << "the precision ends before it";
    EXPECT_EQ(formatted("%C", 0xDC00), "<error>");
    EXPECT_EQ(formatted("<%3s|%.3s|%S|%-3S>", nullptr, nullptr, nullptr, nullptr), "<   |||   >");
    std::vector<char> const text{'a', 'b', 'c'};  // the address sanitizer guards its end
    std::vector<ZWideChar> const wide(wideText, wideText + 2);
    EXPECT_EQ(formatted("%.3s|%.*s|%.3S", text.data(), 0, nullptr, wide.data()), "abc||äb");
}

/// Every size from 0 to two above what is needed gives the same length, as many whole characters as
/// fit, a NUL and not a byte beyond.
template <class... Args>
void checkAllSizes(std::string const& whole, char const* format, Args... args) {
    for (std::size_t size = 0; size <= whole.size() + 2; ++size) {
        std::string room(whole.size() + 8, '?');
        int const length = zsnprintf(room.data(), static_cast<int>(size), format, args...);
        EXPECT_EQ(length, static_cast<int>(whole.size())) << size;
        std::size_t cut = std::min(whole.size(), size == 0 ? 0 : size - 1);
        while ((whole[cut] & 0xC0) == 0x80)
            --cut;
        std::string expected = whole.substr(0, cut);
        if (size > 0) expected += std::string(size > whole.size() ? 1 : size - cut, '\0');
        expected.resize(room.size(), '?');
        EXPECT_EQ(room, expected) << format << " with size " << size;
    }
}

TEST(FormatTest, MeasuresTheSameAsItWrites) {
    checkAllSizes("abc=   -42,0x0000ff;1.500000e+00!", "%s=%6d,%#08x;%e!", "abc", -42, 255, 1.5);
    checkAllSizes("<äb€c  |[    x]>", "<%-9S|[%5c]>", wideText, 'x');
    EXPECT_EQ(zsnprintf(nullptr, 100, "%d", 12345), 5) << "without a buffer there is no room";
    char room = '?';
    EXPECT_EQ(zsnprintf(&room, -1, "%d", 12345) + room, 5 + '?') << "nor with a negative size";
}

/// What the allocating functions make, "<null>" for an error. An old value is never left.
template <class... Args>
std::string allocated(char const* format, Args... args) {
    std::vector<std::string> made;
    for (auto* function : {&zsprintf, &zasprintf}) {
        char mark = 'm';
        char* text = &mark;
        int const length = function(&text, format, args...);
        made.emplace_back(text == nullptr ? "<null>" : text);
        EXPECT_EQ(length, text == nullptr ? -1 : static_cast<int>(made.back().size())) << format;
        function == &zasprintf ? zasprintf_free(text) : std::free(text);
    }
    EXPECT_EQ(made[0], made[1]);
    return made[0];
}

TEST(FormatTest, AllocatesWhatTheTextNeeds) {
    for (std::size_t const length : {1U, 511U, 512U, 513U, 100000U})
        EXPECT_EQ(allocated("%*c", static_cast<int>(length), ' '), std::string(length, ' '));
    for (char const* format : {"%y", "%C", static_cast<char const*>(nullptr)})
        EXPECT_EQ(allocated(format, 0xD800), "<null>");
    fault = {"", 1, ENOMEM, everyone};
    EXPECT_EQ(allocated("%d", 1), "<null>");
    fault = {};
    EXPECT_EQ(zsprintf(nullptr, "x") + zasprintf(nullptr, "x"), -2);
}

TEST(FormatTest, TakesArgumentsByTheirNumbersOrBehindTheLastTaken) {
    EXPECT_EQ(formatted("%2$s %1$s %s", "a", "b"), "b a b");
    EXPECT_EQ(formatted("%1$*2$d|%1$-*2$.*3$d|", 7, 5, 3), "    7|007  |");
    EXPECT_EQ(formatted("%2$d %3$s %1$Lf", 1.5L, 2, "three"), "2 three 1.500000");
    EXPECT_EQ(formatted("%1$*d|", 7, 9), "      7|") << "the plain * takes 1 as well";
    EXPECT_EQ(formatted("%2147483647$%%1$s%*%|", "a", 3), "%a  %|") << "%% takes no argument";
    EXPECT_EQ(formatted("%1$d %1$u %1$hd %1$hx %1$c", 65601), "65601 65601 65 41 A");
    EXPECT_EQ(formatted("%1$d %1$u %1$llx", -1), "-1 4294967295 ffffffffffffffff");
    EXPECT_EQ(formatted("%1$u%1$*1$d|", 3U), "3  3|");
    static char const shown[] = "text";
    EXPECT_EQ(formatted("%1$p %1$s %1$p", shown), formatted("%p %s %p", shown, shown, shown));
}

/// Parses, renders twice, and finishes twice.
std::string throughContext(ZCodesetHandle codeset, char const* format, ...) {
    ZFormatContext ctx;
    auto const rendered = [&ctx] {
        char room[256];
        int const length = zvsnprintf_render(&ctx, room, sizeof(room));
        return length < 0 ? "<error>" : std::string(room, static_cast<std::size_t>(length));
    };
    va_list list;
    va_start(list, format);
    EXPECT_EQ(zvsnprintf_parse(&ctx, codeset, format, list), 0);
    va_end(list);
    std::string const text = rendered();
    EXPECT_EQ(rendered(), text);
    for (int i = 0; i < 2; ++i) {
        zvsnprintf_done(&ctx);
        EXPECT_EQ(rendered(), format) << "without specifications";
    }
    return text;
}

TEST(FormatContextTest, IsRenderedAsOftenAsWantedInItsOwnCodeset) {
    EXPECT_EQ(throughContext(zgetLCSHandle(), "%%%10$d %9$d%8$d%7$d%6$d%5$d%4$d%3$d%2$d%1$d", 1, 2,
                             3, 4, 5, 6, 7, 8, 9, 10),
              "%10 987654321");
    constexpr ZWideChar katakana[] = {0x30A2, 'x', 0};
    EXPECT_EQ(throughContext(qcs_cs_new("Shift_JIS"), "%4S|%.1S|%C", katakana, katakana, 0x30A2),
              " \x83\x41x||\x83\x41");
    EXPECT_EQ(throughContext(qcs_cs_new("ISO8859-1"), "%S", katakana), "<error>");
    zvsnprintf_done(nullptr);
}

/// How many of `allowed` allocations a format takes; -1 when they do not suffice.
long allocationsOf(char const* format, long allowed) {
    fault = {"", allowed + 1, ENOMEM, everyone};
    int const length =
        zsnprintf(nullptr, 0, format, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17);
    long const taken = fault.seen;
    fault = {};
    return length < 0 ? -1 : taken;
}

TEST(FormatMemoryTest, HoldsTenSpecificationsAndNineArgumentsInlineAndFreesMore) {
    zgetLCSHandle();
    EXPECT_EQ(allocationsOf("%1$d%d%d%d%d%d%d%d%d%%", 0), 0);
    EXPECT_EQ(allocationsOf("%1$d%%%%%%%%%%%%%%%%%%%%", 9), 1) << "an eleventh specification";
    EXPECT_EQ(allocationsOf("%1$d%d%d%d%d%d%d%d%d%d", 9), 1) << "a tenth argument";
    for (int const tooFew : {0, 1})
        EXPECT_EQ(allocationsOf("%1$d%d%d%d%d%d%d%d%d%d%d", tooFew), -1);
    EXPECT_EQ(allocationsOf("%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d", 0), 0) << "none is named";
    EXPECT_EQ(allocationsOf("%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d", 9), 2) << "one too many";
    std::string many;
    for (int i = 0; i < 1000; ++i)
        many += "%1$d%2$s";
    EXPECT_EQ(formatted(many.c_str(), 7, "7"), std::string(2000, '7'));
    EXPECT_EQ(formatted((many + "%y").c_str()), "<error>") << "the leak check sees to the rest";
    EXPECT_EQ(formatted("%1$d%2$d%3$d%4$d%5$d%6$d%7$d%8$d%9$d%10$d%11$d%12$d%1$s"), "<error>");
}

}  // namespace
