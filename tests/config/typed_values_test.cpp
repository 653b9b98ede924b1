// Values as the types of C++: what each type takes, what it refuses, and what it is written as.
#include <gtest/gtest.h>

#include <cmath>

#include "Z/ZTypedValues.h"
#include "support/properties.h"

/// A type of the user's own.
enum class Color { red, green };
template <>
struct zfc::ValueType<Color> {
    static std::optional<Color> parse(char const* text) {
        if (std::string(text) == "red") return Color::red;
        if (std::string(text) == "green") return Color::green;
        return std::nullopt;
    }
    static ZLCString expected() { return "red or green"; }
    static ZLCString write(Color color) { return color == Color::red ? "red" : "green"; }
};

namespace {

using namespace testsupport;
using namespace std::chrono;

/// What a type makes of each text and, behind " -> " where it is another one, writes it as. "!"
/// stands in front of a text that is refused, for the reason given.
template <class T>
void expectTexts(char const* expected, Texts const& texts) {
    StanzaFile const file("");
    ZStanzaFileProperties properties(file.path().c_str(), 1);
    for (std::string text : texts) {
        SCOPED_TRACE(text);
        bool const isRefused = text[0] == '!';
        text.erase(0, isRefused ? 1 : 0);
        std::size_t const arrow = std::min(text.find(" -> "), text.size());
        std::string const written = arrow < text.size() ? text.substr(arrow + 4) : text;
        properties.setValue("s", "k", text.substr(0, arrow).c_str());
        if (isRefused) {
            auto const e = raisedBy<ZPropertiesUnexpectedValueException>(
                [&] { static_cast<void>(zfc::get<T>(properties, "s", "k")); });
            ASSERT_TRUE(e);
            EXPECT_EQ(std::string(e->propFile()) + e->category() + e->key() + e->value() + "|" +
                          e->expected(),
                      file.path() + "sk" + text + "|" + expected);
        } else {
            std::optional<T> const value = zfc::get<T>(properties, "s", "k");
            ASSERT_TRUE(value);
            zfc::set(properties, "s", "k", *value);
            EXPECT_EQ(valueOf(properties, "s", "k"), written);
            EXPECT_EQ(zfc::get<T>(properties, "s", "k"), value);
        }
    }
}

TEST(TypedValuesTest, takeWhatIsInTheirRangeAndSayWhatTheyExpect) {
    expectTexts<std::int8_t>(
        "a whole number from -128 to 127",
        {"0", "-128", "127", "+5 -> 5", "0x1F -> 31", "0X1f -> 31", "-0x10 -> -16", "007 -> 7",
         "!128", "!-129", "! 1", "!1 ", "!1.0", "!one", "!0x", "!--1"});
    expectTexts<std::uint16_t>("a whole number from 0 to 65535",
                               {"65535", "-0 -> 0", "!65536", "!-1", "!99999999999999999999"});
    expectTexts<std::int64_t>("a whole number from -9223372036854775808 to 9223372036854775807",
                              {"-9223372036854775808", "9223372036854775807",
                               "!9223372036854775808", "!-9223372036854775809"});
    expectTexts<std::uint64_t>("a whole number from 0 to 18446744073709551615",
                               {"18446744073709551615", "!18446744073709551616", "!-1"});
    expectTexts<double>(
        "a number", {"0.1", "-2.5", "1e+300", "+3 -> 3", "!inf", "!nan", "!1e999", "!0,5", "!+-1"});
    expectTexts<float>("a number", {"0.1", "!1e39"});
    expectTexts<bool>("yes or no", {"yes", "ON -> yes", "True -> yes", "1 -> yes", "no",
                                    "off -> no", "false -> no", "0 -> no", "!y", "!2", "!yess"});
    expectTexts<zfc::Size>("a size such as 512, 64k or 1M",
                           {"0", "512", "1000", "64k", "1024K -> 1M", "3g -> 3G", "16777215T",
                            "1025k", "!16777216T", "!k", "!-1", "!1kB", "!1.5M", "!0x10"});
    expectTexts<milliseconds>(
        "a time such as 250ms, 5s or 1h, in steps of 1ms",
        {"250ms", "5s -> 5000ms", "-2h -> -7200000ms", "3000us -> 3ms", "1d -> 86400000ms",
         "!1500us", "!5", "!s", "!5 s", "!1.5s", "!9223372036854775807s", "!5sec"});
    expectTexts<minutes>("a time such as 250ms, 5s or 1h, in steps of 1min",
                         {"90m -> 90min", "2h -> 120min", "120s -> 2min", "!90s"});
    expectTexts<duration<int, std::centi>>("a time such as 250ms, 5s or 1h, in steps of 10ms",
                                           {"1s -> 1000ms", "!15ms", "!21474837s"});
    expectTexts<duration<double>>("a time such as 250ms, 5s or 1h, in steps of 1s",
                                  {"1500ms -> 1500000000ns", "!1.5s"});
    expectTexts<std::string>("", {"any text", "\xC3\xBC"});
    expectTexts<ZLCString>("", {"any text"});
    expectTexts<ZUTF8String>("text with a form in UTF-8", {"gr\xC3\xBC\xC3\x9F"});
    expectTexts<Color>("red or green", {"red", "green", "!blue"});
}

TEST(TypedValuesTest, areNothingWithoutAValueAndListsOfAll) {
    StanzaFile const file("[s]\nport = 1\nport = 22\nempty =\n");
    ZStanzaFileProperties properties(file.path().c_str(), 1);
    EXPECT_EQ(zfc::get<int>(properties, "s", "none"), std::nullopt);
    EXPECT_EQ(zfc::get<std::string>(properties, "s", "empty"), std::nullopt);
    EXPECT_EQ(zfc::get<std::vector<int>>(properties, "s", "none"), std::nullopt);
    EXPECT_EQ(zfc::get<int>(properties, "s", "port"), 22);
    EXPECT_EQ(zfc::get<std::vector<int>>(properties, "s", "port"), (std::vector{1, 22}));
    zfc::set(properties, "s", "port", std::vector{seconds(3), seconds(4)});
    EXPECT_EQ(valuesOf(properties, "s", "port"), (Texts{"3s", "4s"}));
    zfc::set(properties, "s", "gone", std::string());
    EXPECT_EQ(properties.numValues("s", "gone"), 0U);
    raisedBy<ZPropertiesUnexpectedValueException>(
        [&] { static_cast<void>(zfc::get<std::vector<int>>(properties, "s", "port")); });
    raisedBy<ZInvalidParameterException>(
        [&] { zfc::set(properties, "s", "k", std::string("a\0b", 3)); });
    raisedBy<ZInvalidParameterException>(
        [&] { zfc::set(properties, "s", "k", duration<double>(1e10)); });
    raisedBy<ZInvalidParameterException>(
        [&] { zfc::set(properties, "s", "k", duration<long long, std::ratio<7>>::max()); });
}

TEST(TypedValuesTest, keepASecretToThemselves) {
    ZStanzaFileProperties properties(1);
    properties.setValue("s", "pin", "12x4", 1);
    auto const e = raisedBy<ZPropertiesUnexpectedValueException>(
        [&] { static_cast<void>(zfc::get<int>(properties, "s", "pin")); });
    EXPECT_STREQ(e->value(), "(obfuscated)");
}

}  // namespace
