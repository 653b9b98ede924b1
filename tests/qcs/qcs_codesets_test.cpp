// link: static
#include <gtest/gtest.h>

#include <array>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "qcs/qcs.h"
#include "qcs/qcs_codec.h"
#include "support/codesets.h"
#include "support/threads.h"

namespace {

using namespace testsupport;

using Handle = qcs_cs_handle;

unsigned size(std::string const& text) { return static_cast<unsigned>(text.size()); }
int lengthOf(Handle cs, std::string const& s) { return qcs_mblen(cs, s.data(), size(s)); }

std::string converted(decltype(qcs_to_utf8)* convert, Handle cs, std::string const& text) {
    std::string out(text.size() * 4 + 8, '#');
    int const written = convert(cs, text.data(), size(text), out.data(), size(out));
    if (written < 0) return "failed";
    EXPECT_EQ(out.find_first_not_of('#', static_cast<unsigned>(written)), out.npos) << text;
    return out.substr(0, static_cast<std::size_t>(written));
}
std::string toUtf8(Handle cs, std::string const& s) { return converted(qcs_to_utf8, cs, s); }
std::string fromUtf8(Handle cs, std::string const& s) { return converted(qcs_from_utf8, cs, s); }

/// A codeset beside iconv's view of it, one byte sequence after the other.
class Comparison {
  public:
    explicit Comparison(std::string const& name)
        : cs(qcs_cs_new(name.c_str())), decoding("UTF-8", name), encoding(name, "UTF-8") {}

    /// Checks every character of at most `most` bytes that begins with `prefix`.
    void checkBehind(std::string const& prefix, std::size_t most) {
        for (int byte = prefix.size() == 2 ? 0x80 : 1; byte < 256; ++byte) {
            std::string const bytes = prefix + static_cast<char>(byte);
            auto const utf8 = decoding.convert(bytes);
            bool const isCutOff = decoding.wasCutOff;
            ASSERT_EQ(toUtf8(cs, bytes), utf8.value_or("failed")) << testing::PrintToString(bytes);
            if (utf8)
                checkCharacter(bytes, *utf8);
            else
                ASSERT_TRUE(lengthOf(cs, bytes) < static_cast<int>(bytes.size()));
            if (isCutOff && bytes.size() < most) checkBehind(bytes, most);
        }
    }

    void checkCharacter(std::string const& bytes, std::string const& utf8) {
        auto const length = static_cast<int>(bytes.size());
        longest = std::max(longest, length);
        ASSERT_EQ(lengthOf(cs, bytes), length);
        for (unsigned n = 1; n < bytes.size(); ++n)
            ASSERT_LE(qcs_mblen(cs, bytes.data(), n), static_cast<int>(n));
        std::string const back = encoding.convert(utf8).value_or("failed");
        ASSERT_EQ(fromUtf8(cs, utf8), back) << utf8;
        qcs_wchar wide = 0;
        std::array<char, 8> single{};
        int const wideLength = qcs_mbtowc(cs, &wide, bytes.data(), size(bytes));
        ASSERT_EQ(wideLength, wideLength < 0 && utf8.size() > 3 ? -1 : length);
        if (wideLength < 0) return;
        ASSERT_EQ(utf8Of(wide), utf8);
        int const written = qcs_wctomb(cs, single.data(), wide);
        ASSERT_EQ(written < 0 ? "failed" : std::string(single.data(), unsigned(written)), back);
    }

    Handle cs;
    int longest = 0;

  private:
    Iconv decoding;
    Iconv encoding;
};

TEST(EveryCharacterTest, IsWhatIconvSays) {
    std::istringstream names(
        "US-ASCII ISO8859-1 ISO8859-2 ISO8859-3 ISO8859-4 ISO8859-5 ISO8859-6 ISO8859-7 ISO8859-8 "
        "ISO8859-9 ISO8859-10 ISO8859-11 ISO8859-13 ISO8859-14 ISO8859-15 ISO8859-16 CP1250 CP1251 "
        "CP1252 CP1253 CP1254 CP1255 CP1256 CP1257 CP1258 KOI8-R IBM850 ARMSCII-8 SHIFT_JIS CP932 "
        "EUC-JP EUC-KR CP949 GBK GB2312 BIG5 BIG5-HKSCS");
    for (std::string name; names >> name;) {
        SCOPED_TRACE(name);
        Comparison comparison(name);
        comparison.checkBehind("", 3);
        EXPECT_EQ(qcs_mb_max(comparison.cs), comparison.longest);
    }
    Comparison taiwan("EUC-TW");
    taiwan.checkBehind("\x8E\xA2", 4);  // one of sixteen such planes
    EXPECT_EQ(qcs_mb_max(taiwan.cs), 4);
    Comparison china("GB18030");
    china.checkBehind("", 2);
    for (char const* const part : {"\x81\x30", "\x82\x35", "\x84\x31", "\x85\x30", "\x90\x30",
                                   "\x95\x32", "\xE3\x32", "\xFF\x30"})
        china.checkBehind(part, 4);
    EXPECT_EQ(qcs_mb_max(china.cs), 4);
}

TEST(EveryCharacterTest, OfUtf8IsDecodedStrictly) {
    Comparison comparison("UTF-8");
    Iconv oracle("UTF-32LE", "UTF-8");  // the decoder of WCHAR_T takes values above U+10FFFF
    for (char32_t code = 1; code <= 0x10FFFF; ++code) {
        std::string const text = utf8Of(code);
        if (code >= 0xD800 && code < 0xE000)
            ASSERT_EQ(lengthOf(comparison.cs, text), -1);
        else
            comparison.checkCharacter(text, text);
    }
    constexpr std::array<int, 10> later{0x01, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xFF};
    for (int first = 1; first < 256; ++first)
        for (std::size_t i = 0; i < 1000; ++i) {
            std::string const text{static_cast<char>(first), static_cast<char>(later[i / 100]),
                                   static_cast<char>(later[i / 10 % 10]),
                                   static_cast<char>(later[i % 10])};
            int length = 1;
            while (length <= 4 && !oracle.convert(text.substr(0, unsigned(length))))
                ++length;
            ASSERT_EQ(lengthOf(comparison.cs, text), length <= 4 ? length : -1) << i;
            // Words are read at once: it stands at every place of one.
            std::string const whole = std::string(i % 9, 'a') + text + "12345678";
            std::string const expected = oracle.convert(whole) ? whole : "failed";
            ASSERT_EQ(toUtf8(comparison.cs, whole), expected) << testing::PrintToString(whole);
            ASSERT_EQ(fromUtf8(comparison.cs, whole), expected);
        }
}

TEST(SingleCharacterTest, NeitherReadsNorFailsAtNul) {
    Handle const utf8 = qcs_cs_new("UTF-8");
    EXPECT_EQ(qcs_mblen(utf8, "", 1) + qcs_mblen(utf8, "a", 0) + qcs_mblen(utf8, nullptr, 4), 0);
    EXPECT_EQ(qcs_mblen(utf8, "\xF0\x9F\x98", 4), -1);
    qcs_wchar wide = 7;
    EXPECT_EQ(qcs_mbtowc(utf8, &wide, "", 1) + wide, 0);
    EXPECT_EQ(qcs_mbtowc(utf8, nullptr, "\xC3\xA9", 2), 2);
    std::array<char, 8> out{'x', 'x'};
    EXPECT_EQ(qcs_wctomb(utf8, out.data(), 0) + out[0], 1);
    EXPECT_EQ(qcs_wctomb(utf8, out.data(), 0xD800) + qcs_wctomb(utf8, nullptr, 'a'), -2);
}

TEST(CodesetNameTest, UsersSpellingsGiveTheSameHandle) {
    char const* const rows[][4] = {{"UTF-8", "UTF8", "Utf_8", "CP65001"},
                                   {"US-ASCII", "ascii", "ANSI_X3.4-1968", "646"},
                                   {"ISO-8859-15", "8859-15", "latin9", "ISO_8859-15:1998"},
                                   {"CP1252", "WINDOWS-1252", "win1252", "ms1252"},
                                   {"IBM850", "cp850", "ibm-850", "850"},
                                   {"EUC-JP", "eucJP", "ujis", "x-euc-jp"}};
    for (auto const& spellings : rows)
        for (char const* const spelling : spellings)
            EXPECT_EQ(qcs_cs_new(spelling), qcs_cs_new(spellings[0])) << spelling;
}

TEST(CodesetNameTest, RefusesWhatCannotStandInTextAndWhatIsNoName) {
    for (std::string const name :
         {"UTF-16", "UCS-2", "UTF-32", "UCS-4", "UTF-7", "ISO-2022-JP", "IBM037", "EBCDIC-US",
          "IBM930", "ISO646-DE", "WCHAR_T", "T.61", "", "no-such-codeset", "UTF-8//IGNORE", "Ä"})
        EXPECT_EQ(qcs_cs_new(name.c_str()), 0U) << name;
    EXPECT_EQ(qcs_cs_new(nullptr) + qcs_cs_new(std::string(100000, 'a').c_str()), 0U);
}

TEST(CodesetHandleTest, IsNoneWhenGivenBack) {
    Handle const cs = qcs_cs_new("ISO8859-5");
    EXPECT_EQ(qcs_cs_new("iso-8859-5"), cs);
    qcs_cs_free(cs);
    EXPECT_EQ(lengthOf(cs, "\xB0"), 1);
    qcs_cs_free(cs);
    for (Handle const none : {cs, 0U, 500U, 0xFFFFFFFFU}) {
        qcs_cs_free(none);
        EXPECT_EQ(toUtf8(none, "a") + fromUtf8(none, "a"), "failedfailed");
        EXPECT_EQ(qcs_strcount(none, "abc"), 0U);
        EXPECT_EQ(qcs_mb_max(none), 1);
        EXPECT_EQ(lengthOf(none, "\xB0"), -1);
        EXPECT_EQ(qcs_strchr(none, "a", 'a'), nullptr);
        EXPECT_GT(qcs_stricmp(none, 0, "b", "a"), 0);
        std::array<char, 8> copy{};
        EXPECT_STREQ(qcs_strncpy(none, copy.data(), "abc", 8), "abc");
    }
    EXPECT_EQ(qcs_cs_new("ISO8859-5"), cs);
}

TEST(CodesetHandleTest, ServesSeveralThreads) {
    Crew crew;
    for (int i = 0; i < 8; ++i)
        crew.add([] {
            Handle const cs = qcs_cs_new("CP949");
            EXPECT_EQ(toUtf8(cs, "\xB0\xA1"), "가");
            qcs_cs_free(cs);
        });
    crew.join();
}

TEST(ConversionTest, UsesTheSystemsSubstitutesAndCompositions) {
    std::pair<char const*, std::string> const rows[] = {
        {"CP932", utf8Of(0x2212) + utf8Of(0x301C)},    // minus, wave dash
        {"SHIFT_JIS", "C:\\dir~1"},                    // no backslash in JIS X 0201
        {"EUC-KR", "10 " + utf8Of(0x20A9)},            // won sign
        {"CP1258", "Vi" + utf8Of(0x1EC7) + "t Nam"},   // letter and tone mark
        {"BIG5-HKSCS", utf8Of(0xCA) + utf8Of(0x304)},  // two code points in one character
        {"TCVN5712-1", utf8Of(0x1EA5) + utf8Of(0xE1)},
        {"CP932", utf8Of(0x1F600)},  // from here on, what the target lacks
        {"EUC-JP", "a" + utf8Of(0xD55C) + "b"},
        {"CP1258", "日"},
    };
    for (auto const& [name, utf8] : rows) {
        Handle const cs = qcs_cs_new(name);
        auto const local = Iconv(name, "UTF-8").convert(utf8);
        EXPECT_EQ(fromUtf8(cs, utf8), local.value_or("failed")) << name;
        if (local) {
            EXPECT_EQ(toUtf8(cs, *local), Iconv("UTF-8", name).convert(*local)) << name;
        }
    }
}

/// Text of at least so many bytes, of pieces drawn at random.
std::string anyText(std::mt19937& random, std::vector<std::string> const& pieces, std::size_t n) {
    std::string text;
    while (text.size() < n)
        text += pieces[random() % pieces.size()];
    return text;
}

TEST(ConversionTest, AgreesWithIconvOverTextOfEveryLength) {
    std::mt19937 random(5);
    std::vector<std::string> const pieces{"a", "12345678", std::string(40, 'x'), "é", "ü", "°"};
    std::vector<std::string> const eastern{"a1", "日", "本語", "ア", "カナ", "、", "。", "\\"};
    std::vector<std::string> const foreign{"a", "日", "é", "😀", "ｱ", "\xE0\x81\x81", "\xFF", "ж"};
    std::pair<char const*, std::vector<std::string> const&> const rows[] = {
        {"ISO8859-1", pieces}, {"CP1252", pieces},  {"UTF-8", pieces},      {"GB18030", pieces},
        {"CP932", eastern},    {"EUC-JP", eastern}, {"SHIFT_JIS", eastern}, {"GB18030", eastern}};
    for (auto const& [name, own] : rows) {
        Comparison codeset(name);
        Iconv encoding(name, "UTF-8");
        Iconv decoding("UTF-8", name);
        for (std::size_t length = 0; length <= 300; ++length)
            for (bool const isForeign : {false, true}) {
                std::string text = anyText(random, own, length);
                if (isForeign) text += anyText(random, foreign, 1) + anyText(random, own, 40);
                SCOPED_TRACE(name + text);
                auto const local = encoding.convert(text);
                ASSERT_EQ(fromUtf8(codeset.cs, text), local.value_or("failed"));
                if (!local) continue;
                ASSERT_EQ(toUtf8(codeset.cs, *local), decoding.convert(*local));
                ASSERT_EQ(toUtf8(codeset.cs, *local + '\xFF'),
                          decoding.convert(*local + '\xFF').value_or("failed"));
                std::vector<char> exact(local->size());
                ASSERT_EQ(
                    qcs_from_utf8(codeset.cs, text.data(), size(text), exact.data(), size(*local)),
                    static_cast<int>(exact.size()));
            }
    }
}

TEST(Utf8Test, IsCheckedInBlocksAsByCharacter) {
    std::mt19937 random(9);
    std::vector<std::string> const pieces{"a",
                                          std::string(70, 'x'),
                                          "é",
                                          "\xC2\x80",
                                          "\xDF\xBF",
                                          "日本語",
                                          "\xE0\xA0\x80",
                                          "ก",
                                          "\xED\x9F\xBF",
                                          "힣",
                                          "\xEE\x80\x80",
                                          "\xEF\xBF\xBF",
                                          "\xF0\x90\x80\x80"};
    constexpr std::string_view odd = "\x7F\x80\x9F\xA0\xBF\xC0\xC1\xC2\xE0\xED\xEF\xF0\xF4\xF5\xFF";
    std::array<int, 2> met{};
    for (std::size_t length = 0; length <= 300; ++length)
        for (std::size_t offset = 0; offset < 64; ++offset) {
            // Mixed, or ASCII throughout, which is judged in blocks that nobody looks into.
            std::string text =
                offset % 4 == 0 ? std::string(length, 'x') : anyText(random, pieces, length);
            if (offset % 2 == 0 && !text.empty())
                text[random() % text.size()] = odd[random() % odd.size()];
            if (offset % 4 == 3) text.resize(length);
            std::vector<char> place(offset + text.size());  // exact, for the address sanitizer
            std::copy(text.begin(), text.end(), place.begin() + static_cast<long>(offset));
            std::size_t at = 0;
            for (unsigned step = 1; at < text.size() && step > 0; at += step)
                step = qcs::Utf8Codec::decode(&text[at], text.size() - at).length;
            bool const isWhole = at == text.size();
            ++met.at(isWhole ? 1 : 0);
            ASSERT_EQ(qcs::isUtf8(place.data() + offset, text.size()), isWhole) << text;
            ASSERT_EQ(qcs::isUtf8Plain(place.data() + offset, text.size()), isWhole) << text;
        }
    EXPECT_GT(std::min(met[0], met[1]), 5000);
}

TEST(ConversionTest, EndsBehindTheFirstNulAndNeverWritesBeyondItsRoom) {
    for (char const* const name : {"UTF-8", "ISO8859-1", "EUC-JP", "CP1258", "GB18030"}) {
        Handle const cs = qcs_cs_new(name);
        for (std::size_t length = 0; length <= 600; ++length) {
            std::string const text(length, 'x');
            std::string const ended = text + '\0';
            EXPECT_EQ(toUtf8(cs, ended + "\xFF\xFF" + text), ended) << name << length;
            EXPECT_EQ(fromUtf8(cs, ended + "\xFF\xFF" + text), ended) << name << length;
            EXPECT_EQ(fromUtf8(cs, text + '\x80' + text), "failed") << name << length;
        }
        std::string const utf8 = std::string(540, 'x') + "0123456789 café 0123456789";
        std::string const local = fromUtf8(cs, utf8);
        for (unsigned room = 0; room <= utf8.size(); ++room) {
            std::vector<char> out(room);  // exact, for the address sanitizer
            int const there = qcs_from_utf8(cs, utf8.data(), size(utf8), out.data(), room);
            EXPECT_EQ(there, room < local.size() ? -1 : static_cast<int>(local.size())) << name;
            int const back = qcs_to_utf8(cs, local.data(), size(local), out.data(), room);
            EXPECT_EQ(back, room < utf8.size() ? -1 : static_cast<int>(utf8.size())) << name;
        }
        std::array<char, 4> out{};
        EXPECT_EQ(qcs_to_utf8(cs, nullptr, 4, out.data(), 4), 0);
        EXPECT_EQ(qcs_to_utf8(cs, "a", 1, nullptr, 4), -1);
    }
}

}  // namespace
