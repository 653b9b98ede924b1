#include "Z/zasprintf.h"
#include "support/formatting.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

using testsupport::formatted;

namespace {

constexpr ZWideChar wideText[] = {0xE4, 'b', 0x20AC, 'c', 0};  // 2, 1, 3 and 1 bytes of UTF-8
constexpr char narrowText[] = "äb€c";
constexpr ZWideChar loneSurrogate[] = {'a', 0xD800, 0};

TEST(FormatTest, DiffersFromTheCLibraryWhereItIsMeant) {
    EXPECT_EQ(formatted("%08.3d", 5), "     005");
    EXPECT_EQ(formatted("%08.2f", 1.5), "    1.50") << "a precision ends zero filling";
    EXPECT_EQ(formatted("%0*.*f", 8, -1, 1.5), "1.500000");
    EXPECT_EQ(formatted("%.d|%08.d", 0, 5), "0|00000005") << "a dot alone is no precision";
    EXPECT_EQ(formatted("%.s", "abc"), "abc");
    EXPECT_EQ(formatted("%.f", 0.5), "0.500000");
    EXPECT_EQ(formatted("%#o %#.5o %#.1o", 8, 8, 8), "010 000010 010");
    EXPECT_EQ(formatted("%#x|%#.0o|%.0d|%5.0d|%+.0d", 0, 0, 0, 0, 0), "0|||     |+");
    EXPECT_EQ(formatted("%-5%|%3%|%05%|%.3%"), "%    |  %|    %|%");
    EXPECT_EQ(formatted("%005d", 7), "00007") << "the second 0 begins the width";
    EXPECT_EQ(formatted("%00-5d", 7), "<error>") << "and no flag follows a width";
    EXPECT_EQ(formatted("%ls %hs %lc %l%", "narrow", "too", 'c'), "narrow too c %");
}

TEST(FormatTest, AddressShowsAllItsBits) {
    auto* const address = reinterpret_cast<void*>(UINTPTR_MAX - 0xF);
    std::string const digits(2 * sizeof(void*) - 1, 'f');
    EXPECT_EQ(formatted("%p", address), "0x" + digits + "0");
    EXPECT_EQ(formatted("%-22p|", address),
              "0x" + digits + "0" + std::string(20 - 2 * sizeof(void*), ' ') + "|");
    auto* const small = reinterpret_cast<void*>(0xAB);
    EXPECT_EQ(formatted("%p %8p %8.3p %.4p", small, small, small, small),
              "0xab 0x0000ab 0x0000ab 0x00ab");
    EXPECT_EQ(formatted("<%p> %.1p", nullptr, nullptr), "<> 0") << "null has no digits";
}

TEST(FormatTest, MalformedFormatsAreErrors) {
    for (char const* format :
         {"%",    "abc %",   "%5",       "%-",    "%.",    "%.3",    "%*",     "%l",
          "%y",   "%n",      "%a",       "%A",    "%F",    "%lf",    "%le",    "%hg",
          "%hf",  "%hhd",    "%lhd",     "%hld",  "%llld", "%lLd",   "%Lqd",   "%qld",
          "%5*d", "%*5d",    "%.5*d",    "%.*5d", "%*1$d", "%.*1$d", "%1$*2d", "%1$.*2d",
          "%0$d", "%1$*0$d", "%1$.*0$d", "%$d",   "%1$",   "%1$1$d", "%d %",   "%5.3.1d",
          "%5-d", "%..5d",   "%\xE4"})
        EXPECT_EQ(formatted(format, 1, 2, 3), "<error>") << format;
    EXPECT_EQ(zsnprintf(nullptr, 0, nullptr), -1);
}

TEST(FormatTest, NumbersAboveIntMaxAreErrors) {
    for (char const* format :
         {"%2147483648d", "%.2147483648d", "%99999999999999999999d", "%2147483647d%d",
          "%.2147483647d%d", "%2147483648$d", "%4294967297$d"})
        EXPECT_EQ(zsnprintf(nullptr, 0, format, 1, 2), -1) << format;
    EXPECT_EQ(zsnprintf(nullptr, 0, "%*d", INT_MIN, 1), -1);
    EXPECT_EQ(zsnprintf(nullptr, 0, "%.*d", INT_MIN, 1), -1);
    EXPECT_EQ(zsnprintf(nullptr, 0, "%1$.*1$lld", 1LL << 40), -1);
    EXPECT_EQ(zsnprintf(nullptr, 0, "%1$.*1$llu", ULLONG_MAX), -1);
    EXPECT_EQ(zsnprintf(nullptr, 0, "%2147483647d", 1), INT_MAX);
    EXPECT_EQ(zsnprintf(nullptr, 0, "%-*d", INT_MIN + 1, 1), INT_MAX);
    EXPECT_EQ(zsnprintf(nullptr, 0, "%2147483646sx", "y"), INT_MAX);
}

TEST(FormatTest, TextIsNotReadBeyondItsPrecision) {
    auto const unterminated = std::make_unique<char[]>(3);  // the address sanitizer guards its end
    std::copy_n("abc", 3, unterminated.get());
    EXPECT_EQ(formatted("%.3s|%.2s|%.*s", unterminated.get(), unterminated.get(), 0, nullptr),
              "abc|ab|");
    auto const wide = std::make_unique<ZWideChar[]>(2);
    std::copy_n(wideText, 2, wide.get());
    EXPECT_EQ(formatted("%.3S|%.0S", wide.get(), wide.get()), "äb|");
}

TEST(FormatTest, WideTextIsConverted) {
    EXPECT_EQ(formatted("%9S|%-9S|%-5.4S|", wideText, wideText, wideText), "  äb€c|äb€c  |äb  |");
    EXPECT_EQ(formatted("%5.6S|%.2S|%.1S", wideText, wideText, wideText), "äb€|ä|");
    EXPECT_EQ(formatted("%C%4C%-4C|", 0x20AC, 0xE4, 'x'), "€  äx   |");
    EXPECT_EQ(formatted("%S", loneSurrogate), "<error>");
    EXPECT_EQ(formatted("%.1S", loneSurrogate), "a") << "the precision ends before it";
    EXPECT_EQ(formatted("%C", 0xDC00), "<error>");
    EXPECT_EQ(formatted("<%3s|%.3s|%S|%-3S>", nullptr, nullptr, nullptr, nullptr), "<   |||   >");
}

/// Every size from 0 to two above what is needed gives the same length, as much text as fits, a NUL
/// and not a byte beyond.
template <class... Args>
void checkAllSizes(std::string const& whole, std::vector<std::size_t> const& noCut,
                   char const* format, Args... args) {
    for (std::size_t size = 0; size <= whole.size() + 2; ++size) {
        std::string room(whole.size() + 8, '?');
        int const length = zsnprintf(room.data(), static_cast<int>(size), format, args...);
        EXPECT_EQ(length, static_cast<int>(whole.size())) << size;
        std::size_t cut = std::min(whole.size(), size == 0 ? 0 : size - 1);
        while (std::find(noCut.begin(), noCut.end(), cut) != noCut.end())
            --cut;
        std::string expected = whole.substr(0, cut);
        if (size > 0) expected += std::string(size > whole.size() ? 1 : size - cut, '\0');
        expected.resize(room.size(), '?');
        EXPECT_EQ(room, expected) << format << " with size " << size;
    }
}

TEST(FormatTest, MeasuresTheSameAsItWrites) {
    checkAllSizes("abc=   -42,0x0000ff;1.500000e+00 tail", {}, "%s=%6d,%#08x;%e tail", "abc", -42,
                  255, 1.5);
    checkAllSizes("[    x][7    ][%]", {}, "[%5c][%-5d][%%]", 'x', 7);
    checkAllSizes("<" + std::string(narrowText) + "  |tail>", {2, 5, 6}, "<%-9S|tail>", wideText);
    checkAllSizes(std::string("ab \xE2\x82\xAC!"), {4, 5}, "ab%4C!", 0x20AC);
    checkAllSizes(std::string(700, '0').replace(699, 1, "1"), {}, "%0700d", 1);
    EXPECT_EQ(zsnprintf(nullptr, 100, "%d", 12345), 5) << "without a buffer there is no room";
    char untouched = '?';
    EXPECT_EQ(zsnprintf(&untouched, -1, "%d", 12345), 5);
    EXPECT_EQ(untouched, '?');
}

template <class Value>
std::string fromCLibrary(char const* format, Value value) {
    std::string room(60000, '?');
    return room.substr(0,
                       static_cast<std::size_t>(snprintf(room.data(), room.size(), format, value)));
}

// Far beyond the digits that a value has, the engine adds the zeros and blanks itself.
TEST(FormatTest, FloatingTextOfAnyLengthIsWhole) {
    for (char const* format :
         {"%.1000f", "%3000.1f", "%.25000f|", "%.25000e|", "%#.25000g|", "%.25000g|",
          "%-30000.25000f|", "%+30000f|", "%030000f|", "%0-30000g|"})
        for (double const value : {0.1, -1e300, 0.0, -5e-324, HUGE_VAL, -double(NAN)})
            EXPECT_EQ(formatted(format, value), fromCLibrary(format, value)) << format << value;
    EXPECT_EQ(formatted("% 25000.2Lf", LDBL_MAX), fromCLibrary("% 25000.2Lf", LDBL_MAX));
    EXPECT_EQ(zsnprintf(nullptr, 0, "%.2147483640f", 0.5), 2147483642);
    EXPECT_EQ(zsnprintf(nullptr, 0, "%.2147483641e", 0.5), INT_MAX);
    EXPECT_EQ(zsnprintf(nullptr, 0, "%2147483647f", 0.5), INT_MAX);
    EXPECT_EQ(zsnprintf(nullptr, 0, "%.2147483647f", 0.5), -1);
}

/// What the allocating functions make, "<null>" for an error. An old value is never left.
template <class... Args>
std::string allocated(char const* format, Args... args) {
    std::string texts[2];
    char mark = 'm';
    for (auto* function : {&zsprintf, &zasprintf}) {
        char* text = &mark;
        int const length = function(&text, format, args...);
        std::string& result = texts[function == &zasprintf];
        result = text == nullptr ? "<null>" : text;
        EXPECT_EQ(length, text == nullptr ? -1 : static_cast<int>(result.size())) << format;
        function == &zasprintf ? zasprintf_free(text) : std::free(text);
    }
    EXPECT_EQ(texts[0], texts[1]);
    return texts[0];
}

TEST(FormatTest, AllocatesWhatTheTextNeeds) {
    EXPECT_EQ(allocated(""), "");
    for (int const width : {3, 510, 511, 512, 513, 100000})
        EXPECT_EQ(allocated("%*c", width, 'x'),
                  std::string(static_cast<std::size_t>(width) - 1, ' ') + "x");
    EXPECT_EQ(allocated("%y"), "<null>");
    EXPECT_EQ(allocated("%C", 0xD800), "<null>");
    EXPECT_EQ(allocated(nullptr), "<null>");
    EXPECT_EQ(zsprintf(nullptr, "x"), -1);
    EXPECT_EQ(zasprintf(nullptr, "x"), -1);
    char* text = nullptr;
    EXPECT_EQ(zvsprintf(&text, "x", nullptr), -1);
    EXPECT_EQ(zvasprintf(&text, "x", nullptr), -1);
    zasprintf_free(nullptr);
}

}  // namespace
