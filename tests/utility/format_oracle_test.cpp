// The C library is the oracle for every combination on which it and the engine agree.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "support/formatting.h"

namespace {

std::string without(char unwanted, std::string flags) {
    flags.erase(std::remove(flags.begin(), flags.end(), unwanted), flags.end());
    return flags;
}

std::vector<std::string> allFlags() {
    std::vector<std::string> all;
    for (unsigned bits = 0; bits < 64; ++bits) {
        all.emplace_back();
        for (std::size_t i = 0; i < 6; ++i)
            if ((bits >> i & 1U) != 0) all.back() += "-0+ #'"[i];
    }
    return all;
}

template <class Function, class Size, class... Args>
std::string run(Function* function, Size size, std::string const& format, Args... args) {
    std::string room(static_cast<std::size_t>(size), '?');
    int const length = function(room.data(), size, format.c_str(), args...);
    return std::to_string(length) + ":" + room.substr(0, static_cast<std::size_t>(length) + 1);
}

/// Compares one specification; `theirFlags` ask the C library for the same.
template <class... Args>
void compareOne(std::string const& flags, std::string const& theirFlags, std::string const& rest,
                Args... args) {
    if (testing::Test::HasFatalFailure()) return;
    ASSERT_EQ(run(zsnprintf, 6000, "<%" + flags + rest + ">", args...),
              run(snprintf, std::size_t{6000}, "<%" + theirFlags + rest + ">", args...))
        << flags << rest;
}

/// What the flags of a specification with or without a precision are to the C library.
using TheirFlags = std::string(std::string const& flags, bool hasPrecision);

/// Compares all flags, widths and precisions for every conversion and value.
template <class Value>
void compare(std::vector<char const*> const& conversions, std::vector<Value> const& values,
             TheirFlags* theirFlags) {
    static std::vector<std::string> const flagSets = allFlags();
    for (std::string const conversion : conversions)
        for (Value const value : values)
            for (auto const& flags : flagSets) {
                for (std::string const width : {"", "1", "7", "23"})
                    for (std::string const precision : {"", ".0", ".1", ".6", ".25"})
                        compareOne(flags, theirFlags(flags, !precision.empty()),
                                   width + precision + conversion, value);
                for (int const width : {0, 5, 30, -12})
                    for (int const precision : {0, 9, -3})
                        compareOne(flags, theirFlags(flags, precision >= 0), "*.*" + conversion,
                                   width, precision, value);
            }
}

std::string same(std::string const& flags, bool) { return flags; }

/// A precision ends zero filling here.
std::string ofFloating(std::string const& flags, bool hasPrecision) {
    return hasPrecision ? without('0', flags) : flags;
}

/// A "0" flag has no meaning for text; here it never fills.
std::string ofText(std::string const& flags, bool) { return without('0', flags); }

TEST(FormatOracleTest, IntegersOfEverySizeAreTheCLibrarys) {
    compare<int>({"d", "i", "hd"}, {0, 1, -1, 10, -100, 70000, INT_MAX, INT_MIN}, same);
    compare<unsigned>({"u", "x", "X", "hu", "hx"}, {0U, 9U, 0xABCDEFU, UINT_MAX}, same);
    compare<long>({"ld"}, {0L, -7L, LONG_MAX, LONG_MIN}, same);
    compare<unsigned long>({"lu", "lx"}, {0UL, 65536UL, ULONG_MAX}, same);
    compare<long long>({"lld", "Ld", "qd"}, {0LL, -7LL, LLONG_MAX, LLONG_MIN}, same);
    compare<unsigned long long>({"llu", "llx", "qX"}, {0ULL, ULLONG_MAX}, same);
}

// "#" and a precision give one digit more here.
TEST(FormatOracleTest, OctalNumbersAreTheCLibrarysWithoutPrecision) {
    for (auto const& flags : allFlags())
        for (std::string const width : {"", "7", "23"}) {
            for (unsigned const value : {0U, 8U, 65536U, UINT_MAX}) {
                compareOne(flags, flags, width + "o", value);
                compareOne(flags, flags, width + "ho", value);
                compareOne(without('#', flags), without('#', flags), width + ".6o", value);
            }
            compareOne(flags, flags, width + "lo", ULONG_MAX);
            compareOne(flags, flags, width + "llo", ULLONG_MAX);
        }
}

TEST(FormatOracleTest, FloatingNumbersAreTheCLibrarys) {
    compare<double>({"e", "E", "f", "g", "G"},
                    {0.0, -0.0, 1.5, -123456.789, 1e-7, DBL_MAX, INFINITY, -INFINITY, NAN},
                    ofFloating);
    compare<long double>({"Le", "LE", "Lf", "Lg", "LG"}, {0.0L, -2.5L, 1e15L, LDBL_MIN},
                         ofFloating);
}

// Far beyond the digits that a value has, the engine adds the zeros and blanks itself.
TEST(FormatOracleTest, FloatingNumbersOfAnyLengthAreTheCLibrarys) {
    constexpr std::size_t room = 60000;
    auto const compareLong = [](char const* format, auto value) {
        EXPECT_EQ(run(zsnprintf, static_cast<int>(room), format, value),
                  run(snprintf, room, format, value))
            << format << value;
    };
    for (char const* format :
         {"%.1000f", "%3000.1f", "%.25000f|", "%.25000e|", "%#.25000g|", "%.25000g|",
          "%-30000.25000f|", "%+30000f|", "%030000f|", "%0-30000g|"})
        for (double const value : {0.1, -1e300, 0.0, -5e-324, HUGE_VAL, -double(NAN)})
            compareLong(format, value);
    compareLong("% 25000.2Lf", LDBL_MAX);
}

TEST(FormatOracleTest, TextAndBytesAreTheCLibrarys) {
    compare<char const*>({"s"}, {"", "a", "some text of thirty-one bytes.."}, ofText);
    compare<int>({"c"}, {0x78, 0xE9, 0x141}, ofText);
}

TEST(FormatOracleTest, DigitsOfEveryLengthAreTheCLibrarys) {
    for (unsigned long long power = 1; power <= ULLONG_MAX / 10; power *= 10)
        for (unsigned long long const value : {power - 1, power, power + 1, power * 9 + power / 3})
            EXPECT_EQ(testsupport::formatted("%llu", value), std::to_string(value));
}

}  // namespace
