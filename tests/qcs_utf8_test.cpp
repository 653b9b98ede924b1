// link: static
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "qcs/qcs.h"
#include "support/codesets.h"

namespace {

using testsupport::Iconv;
using testsupport::utf8Of;

qcs_cs_handle utf8() {
    static qcs_cs_handle const cs = qcs_cs_new("UTF8");
    return cs;
}

int lengthOf(const std::string& text) {
    return qcs_mblen(utf8(), text.data(), static_cast<unsigned>(text.size()));
}

/// Bytes converted, -1 when refused; the same in both directions.
int converted(const std::string& text) {
    std::vector<char> out(text.size());
    auto const size = static_cast<unsigned>(text.size());
    int const there = qcs_to_utf8(utf8(), text.data(), size, out.data(), size);
    EXPECT_EQ(qcs_from_utf8(utf8(), text.data(), size, out.data(), size), there);
    return there;
}

TEST(Utf8Test, DecodesEveryCodePoint) {
    for (char32_t code = 1; code <= 0x10FFFF; ++code) {
        std::string const text = utf8Of(code);
        bool const surrogate = code >= 0xD800 && code < 0xE000;
        auto const length = surrogate ? -1 : static_cast<int>(text.size());
        ASSERT_EQ(lengthOf(text), length) << std::hex << static_cast<unsigned>(code);
        ASSERT_EQ(converted(text), length);
        qcs_wchar wide = 0;
        int const wideLength = qcs_mbtowc(utf8(), &wide, text.data(), 4);
        ASSERT_EQ(wideLength, code > 0xFFFF ? -1 : length);
        if (wideLength < 0) continue;
        ASSERT_EQ(wide, code);
        std::array<char, 8> back{};
        ASSERT_EQ(qcs_wctomb(utf8(), back.data(), wide), length);
        ASSERT_EQ(back.data(), text);
    }
}

TEST(Utf8Test, RefusesTruncationAtEachByte) {
    for (std::string const& text : {utf8Of(0xE9), utf8Of(0x20AC), utf8Of(0x1F600)}) {
        for (unsigned bytes = 1; bytes < text.size(); ++bytes) {
            std::string const ended = text.substr(0, bytes);
            std::vector<char> const cut(ended.begin(), ended.end());  // exact, for the sanitizer
            EXPECT_EQ(qcs_mblen(utf8(), cut.data(), bytes), -1);
            EXPECT_EQ(qcs_mblen(utf8(), ended.c_str(), 4), -1) << "NUL ends the text";
            EXPECT_EQ(converted(ended), -1);
        }
    }
}

TEST(Utf8Test, AgreesWithIconvAboutByteSequences) {
    constexpr std::array<int, 10> later{0x01, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xFF};
    Iconv oracle("UTF-32LE", "UTF-8");  // the decoder of WCHAR_T takes values above U+10FFFF
    std::string text(4, ' ');
    for (int first = 1; first < 256; ++first) {
        for (std::size_t i = 0; i < 1000; ++i) {
            text = {static_cast<char>(first), static_cast<char>(later[i / 100]),
                    static_cast<char>(later[i / 10 % 10]), static_cast<char>(later[i % 10])};
            unsigned length = 1;
            while (length <= 4 && !oracle.convert(text.substr(0, length)))
                ++length;
            ASSERT_EQ(lengthOf(text), length <= 4 ? static_cast<int>(length) : -1) << i;
            int const expected = oracle.convert(text) ? 4 : -1;
            ASSERT_EQ(converted(text), expected) << testing::PrintToString(text);
            // Where words are read at once, a few characters come before.
            ASSERT_EQ(converted("123456789 " + text), expected < 0 ? -1 : 14) << i;
        }
    }
}

TEST(Utf8Test, ConvertsRunsOfAnyLengthAndAlignment) {
    std::string const text =
        std::string(40, 'a') + "\xC3\xA9" + std::string(40, 'b') + "\xE2\x82\xAC";
    for (std::size_t from = 0; from <= text.size(); ++from) {
        std::string const part = text.substr(from);
        bool const cut = !part.empty() && (static_cast<unsigned char>(part[0]) & 0xC0) == 0x80;
        EXPECT_EQ(converted(part), cut ? -1 : static_cast<int>(part.size()));
    }
}

TEST(Utf8Test, NeitherReadsNorFailsAtNul) {
    EXPECT_EQ(qcs_mblen(utf8(), "", 1), 0);
    EXPECT_EQ(qcs_mblen(utf8(), "a", 0), 0);
    EXPECT_EQ(qcs_mblen(utf8(), nullptr, 4), 0);
    qcs_wchar wide = 7;
    EXPECT_EQ(qcs_mbtowc(utf8(), &wide, "", 1), 0);
    EXPECT_EQ(wide, 0);
    EXPECT_EQ(qcs_mbtowc(utf8(), nullptr, "\xC3\xA9", 2), 2);
    std::array<char, 8> out{'x', 'x'};
    EXPECT_EQ(qcs_wctomb(utf8(), out.data(), 0), 1);
    EXPECT_EQ(out[0], '\0');
    EXPECT_EQ(qcs_wctomb(utf8(), out.data(), 0xD800), -1);
    EXPECT_EQ(qcs_wctomb(utf8(), nullptr, 'a'), -1);
}

TEST(CharacterClassTest, ComesFromUnicodeNotFromTheLocale) {
    struct {
        qcs_wchar wide;
        const char* classes;  // U upper, l lower, s space, d digit, a alphabetic, n alphanumeric
    } const rows[] = {{'A', "Uan"},   {'z', "lan"},   {'5', "dn"},    {' ', "s"},    {'\t', "s"},
                      {'=', ""},      {0, ""},        {0xC4, "Uan"},  {0xE4, "lan"}, {0xDF, "lan"},
                      {0x416, "Uan"}, {0x436, "lan"}, {0x65E5, "an"}, {0x3000, "s"}, {0x2003, "s"},
                      {0xA0, ""},     {0x20AC, ""},   {0xD83D, ""}};
    for (auto const& row : rows) {
        std::string found;
        if (qcs_iswupper(row.wide) != 0) found += 'U';
        if (qcs_iswlower(row.wide) != 0) found += 'l';
        if (qcs_iswspace(row.wide) != 0) found += 's';
        if (qcs_iswdigit(row.wide) != 0) found += 'd';
        if (qcs_iswalpha(row.wide) != 0) found += 'a';
        if (qcs_iswalnum(row.wide) != 0) found += 'n';
        EXPECT_EQ(found, row.classes) << std::hex << row.wide;
    }
}

}  // namespace
