// link: static
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <thread>
#include <vector>

#include "qcs/qcs.h"
#include "support/codesets.h"

namespace {

using testsupport::Iconv;
using testsupport::utf8Of;

unsigned size(const std::string& text) { return static_cast<unsigned>(text.size()); }

std::string converted(decltype(qcs_to_utf8)* convert, qcs_cs_handle cs, const std::string& text) {
    std::string out(text.size() * 4 + 8, '#');
    int const written = convert(cs, text.data(), size(text), out.data(), size(out));
    return written < 0 ? "failed" : out.substr(0, static_cast<std::size_t>(written));
}

std::string toUtf8(qcs_cs_handle cs, const std::string& text) {
    return converted(qcs_to_utf8, cs, text);
}

std::string fromUtf8(qcs_cs_handle cs, const std::string& text) {
    return converted(qcs_from_utf8, cs, text);
}

int lengthOf(qcs_cs_handle cs, const std::string& text) {
    return qcs_mblen(cs, text.data(), size(text));
}

/// A codeset beside iconv's view of it, one byte sequence after the other.
class Comparison {
  public:
    explicit Comparison(const std::string& name)
        : cs(qcs_cs_new(name.c_str())), decoding("UTF-8", name), encoding(name, "UTF-8") {}
    ~Comparison() { qcs_cs_free(cs); }
    Comparison(const Comparison&) = delete;
    Comparison& operator=(const Comparison&) = delete;

    /// True when `bytes` are one character; checks that both agree.
    bool check(const std::string& bytes) {
        auto const utf8 = decoding.convert(bytes);
        EXPECT_EQ(toUtf8(cs, bytes), utf8.value_or("failed")) << testing::PrintToString(bytes);
        if (!utf8) return false;
        ++characters;
        EXPECT_EQ(lengthOf(cs, bytes), static_cast<int>(bytes.size()));
        EXPECT_EQ(fromUtf8(cs, *utf8), encoding.convert(*utf8).value_or("failed")) << *utf8;
        checkWide(bytes, *utf8);
        return true;
    }

    qcs_cs_handle cs;
    int characters = 0;

  private:
    void checkWide(const std::string& bytes, const std::string& utf8) {
        qcs_wchar wide = 0;
        int const length = qcs_mbtowc(cs, &wide, bytes.data(), size(bytes));
        if (length < 0) {
            EXPECT_GT(utf8.size(), 3U) << "has a wide form";
            return;
        }
        EXPECT_EQ(length, static_cast<int>(bytes.size()));
        EXPECT_EQ(utf8Of(wide), utf8);
        std::array<char, 8> back{};
        int const written = qcs_wctomb(cs, back.data(), wide);
        EXPECT_EQ(std::string(back.data(), written > 0 ? static_cast<unsigned>(written) : 0),
                  encoding.convert(utf8).value_or(""));
    }

    Iconv decoding;
    Iconv encoding;
};

std::string bytes(std::initializer_list<int> values) {
    std::string text;
    for (int const value : values)
        text += static_cast<char>(value);
    return text;
}

TEST(EveryCharacterTest, IsWhatIconvSays) {
    struct {
        const char* name;
        int greatest;
        int characters;  // of one byte (NUL excluded) and of two
    } const rows[] = {{"US-ASCII", 1, 127},
                      {"ISO8859-1", 1, 255},
                      {"ISO8859-2", 1, 255},
                      {"ISO8859-3", 1, 248},
                      {"ISO8859-4", 1, 255},
                      {"ISO8859-5", 1, 255},
                      {"ISO8859-6", 1, 210},
                      {"ISO8859-7", 1, 252},
                      {"ISO8859-8", 1, 219},
                      {"ISO8859-9", 1, 255},
                      {"ISO8859-10", 1, 255},
                      {"ISO8859-11", 1, 247},
                      {"ISO8859-13", 1, 255},
                      {"ISO8859-14", 1, 255},
                      {"ISO8859-15", 1, 255},
                      {"ISO8859-16", 1, 255},
                      {"CP1250", 1, 250},
                      {"CP1251", 1, 254},
                      {"CP1252", 1, 250},
                      {"CP1253", 1, 238},
                      {"CP1254", 1, 248},
                      {"CP1255", 1, 232},
                      {"CP1256", 1, 255},
                      {"CP1257", 1, 243},
                      {"CP1258", 1, 246},
                      {"KOI8-R", 1, 255},
                      {"IBM850", 1, 255},
                      {"ARMSCII-8", 1, 253},
                      {"SHIFT_JIS", 2, 190 + 6879},
                      {"CP932", 2, 190 + 9604},
                      {"EUC-JP", 3, 157 + 6942},
                      {"EUC-KR", 2, 159 + 8227},
                      {"CP949", 2, 127 + 17048},
                      {"GBK", 2, 128 + 21791},
                      {"GB2312", 2, 127 + 7445},
                      {"BIG5", 2, 128 + 13911},
                      {"BIG5-HKSCS", 2, 128 + 18463},
                      {"GB18030", 4, 127 + 23940}};
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        Comparison comparison(row.name);
        EXPECT_EQ(qcs_mb_max(comparison.cs), row.greatest);
        for (int first = 1; first < 256; ++first) {
            if (comparison.check(bytes({first})) || row.greatest == 1) continue;
            for (int second = 1; second < 256; ++second)
                comparison.check(bytes({first, second}));
        }
        EXPECT_EQ(comparison.characters, row.characters);
    }
}

TEST(LongCharacterTest, EucJpHasThreeBytes) {
    Comparison comparison("EUC-JP");
    for (int second = 0xA0; second < 0x100; ++second) {
        for (int third = 0x80; third < 0x100; ++third)
            comparison.check(bytes({0x8F, second, third}));
    }
    EXPECT_EQ(comparison.characters, 6067);
    EXPECT_EQ(lengthOf(comparison.cs, "\x8F\xB0"), -1) << "cut off";
}

TEST(LongCharacterTest, EucTwHasFourBytes) {
    Comparison comparison("EUC-TW");
    EXPECT_EQ(qcs_mb_max(comparison.cs), 4);
    for (int second = 0x00; second < 0x100; ++second)
        comparison.check(bytes({0x8E, second}));
    for (int third = 0x80; third < 0x100; ++third) {
        for (int fourth = 0; fourth < 0x100; ++fourth)
            comparison.check(bytes({0x8E, 0xA2, third, fourth}));
    }
    EXPECT_EQ(comparison.characters, 7650);
}

TEST(LongCharacterTest, Gb18030HoldsEveryCodePoint) {
    qcs_cs_handle const cs = qcs_cs_new("GB18030");
    Iconv encoding("GB18030", "UTF-8");
    for (char32_t code = 1; code <= 0x10FFFF; code += code < 0x20000 ? 1 : 61) {
        if (code >= 0xD800 && code < 0xE000) continue;
        std::string const utf8 = utf8Of(code);
        auto const local = encoding.convert(utf8);
        if (!local) continue;
        ASSERT_EQ(fromUtf8(cs, utf8), *local) << std::hex << static_cast<unsigned>(code);
        ASSERT_EQ(lengthOf(cs, *local), static_cast<int>(local->size()));
        if (Iconv("UTF-8", "GB18030").convert(*local) == utf8) {
            ASSERT_EQ(toUtf8(cs, *local), utf8);
        }
    }
    for (const char* const wrong :
         {"\x81\x30", "\x81\x30\x81", "\x81\x30\x81\x3A", "\x85\x30\x81\x30", "\xE3\x32\x9A\x36",
          "\xFF\x30\x81\x30", "\x81\x30\x80\x30"})
        EXPECT_EQ(lengthOf(cs, wrong), -1) << testing::PrintToString(wrong);
    qcs_cs_free(cs);
}

TEST(CodesetNameTest, UsersSpellingsGiveTheSameHandle) {
    struct {
        const char* name;
        std::vector<const char*> spellings;
    } const rows[] = {
        {"UTF-8", {"UTF8", "utf-8", "Utf_8", "CP65001"}},
        {"US-ASCII", {"ascii", "ANSI_X3.4-1968", "646", "us_ascii"}},
        {"ISO-8859-1", {"ISO8859-1", "iso88591", "ISO_8859-1", "latin1", "8859-1", "iso8859_1"}},
        {"ISO-8859-15", {"latin9", "ISO_8859-15:1998"}},
        {"CP1252", {"WINDOWS-1252", "win1252", "ms1252"}},
        {"IBM850", {"cp850", "ibm-850", "850"}},
        {"Shift_JIS", {"SJIS", "shift-jis"}},
        {"EUC-JP", {"eucJP", "ujis"}},
    };
    for (auto const& row : rows) {
        qcs_cs_handle const cs = qcs_cs_new(row.name);
        EXPECT_NE(cs, 0U) << row.name;
        for (const char* const spelling : row.spellings)
            EXPECT_EQ(qcs_cs_new(spelling), cs) << spelling;
    }
}

TEST(CodesetNameTest, RefusesWhatCannotStandInTextAndWhatIsNoName) {
    for (const char* const name :
         {"UTF-16", "UCS-2", "UTF-32", "UCS-4", "UTF-7", "ISO-2022-JP", "ISO-2022-CN-EXT", "IBM037",
          "EBCDIC-US", "IBM930", "ISO646-DE", "WCHAR_T", "T.61", "", "no-such-codeset",
          "UTF-8//IGNORE", "../UTF-8", "UTF 8", "Ä"})
        EXPECT_EQ(qcs_cs_new(name), 0U) << name;
    EXPECT_EQ(qcs_cs_new(nullptr), 0U);
    EXPECT_EQ(qcs_cs_new(std::string(100000, 'a').c_str()), 0U);
}

TEST(CodesetHandleTest, IsNoneWhenGivenBack) {
    qcs_cs_handle const cs = qcs_cs_new("ISO8859-5");
    EXPECT_EQ(qcs_cs_new("iso-8859-5"), cs);
    qcs_cs_free(cs);
    EXPECT_EQ(lengthOf(cs, "\xB0"), 1);
    qcs_cs_free(cs);
    EXPECT_EQ(lengthOf(cs, "\xB0"), -1);
    for (qcs_cs_handle const none : {cs, 0U, 0xFFFFFFFFU})
        qcs_cs_free(none);
    EXPECT_EQ(qcs_cs_new("ISO8859-5"), cs);
}

TEST(CodesetHandleTest, NoneFailsWithoutHarm) {
    for (qcs_cs_handle const none : {0U, 500U, 0xFFFFFFFFU}) {
        EXPECT_EQ(toUtf8(none, "a"), "failed");
        EXPECT_EQ(fromUtf8(none, "a"), "failed");
        EXPECT_EQ(qcs_mb_max(none), 1);
        EXPECT_EQ(lengthOf(none, "a"), -1);
        EXPECT_EQ(qcs_strchr(none, "a", 'a'), nullptr);
        EXPECT_EQ(qcs_strcount(none, "a"), 0U);
        EXPECT_GT(qcs_stricmp(none, 0, "b", "a"), 0);
        EXPECT_EQ(qcs_stricmp(none, 0, "b", "b"), 0);
        std::array<char, 8> copy{};
        EXPECT_STREQ(qcs_strncpy(none, copy.data(), "abc", 8), "abc");
    }
}

TEST(CodesetHandleTest, ServesSeveralThreads) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 20; ++round) {
                qcs_cs_handle const cs = qcs_cs_new("CP949");
                EXPECT_EQ(toUtf8(cs, "\xB0\xA1"), "가");
                EXPECT_EQ(fromUtf8(cs, "가"), "\xB0\xA1");
                qcs_cs_free(cs);
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
}

TEST(ConversionTest, UsesTheSystemsSubstitutesAndCompositions) {
    struct {
        const char* codeset;
        std::string utf8;
    } const rows[] = {
        {"CP932", utf8Of(0x2212) + utf8Of(0x301C)},    // minus, wave dash
        {"SHIFT_JIS", "C:\\dir~1"},                    // no backslash in JIS X 0201
        {"EUC-KR", "10 " + utf8Of(0x20A9)},            // won sign
        {"CP1258", "Vi" + utf8Of(0x1EC7) + "t Nam"},   // letter and tone mark
        {"BIG5-HKSCS", utf8Of(0xCA) + utf8Of(0x304)},  // two code points in one character
        {"TCVN5712-1", utf8Of(0x1EA5) + utf8Of(0xE1)},
        {"US-ASCII", "é"},  // from here on, what the target lacks
        {"ISO8859-1", "€"},
        {"CP1252", utf8Of(0x1F600)},
        {"CP932", utf8Of(0x1F600)},
        {"EUC-JP", "a" + utf8Of(0xD55C) + "b"},
        {"CP1258", "日"},
    };
    for (auto const& row : rows) {
        qcs_cs_handle const cs = qcs_cs_new(row.codeset);
        auto const local = Iconv(row.codeset, "UTF-8").convert(row.utf8);
        EXPECT_EQ(local.has_value(), &row - rows < 6) << row.codeset;
        EXPECT_EQ(fromUtf8(cs, row.utf8), local.value_or("failed")) << row.codeset;
        if (local) {
            EXPECT_EQ(toUtf8(cs, *local), Iconv("UTF-8", row.codeset).convert(*local));
        }
    }
}

TEST(ConversionTest, EndsBehindTheFirstNulAndNeverWritesBeyondItsRoom) {
    for (const char* const name : {"UTF-8", "ISO8859-1", "EUC-JP", "CP1258", "GB18030"}) {
        qcs_cs_handle const cs = qcs_cs_new(name);
        std::string const ended("ab\0\xFF\xFF", 5);
        EXPECT_EQ(toUtf8(cs, ended), std::string("ab\0", 3)) << name;
        EXPECT_EQ(fromUtf8(cs, ended), std::string("ab\0", 3)) << name;
        std::string const utf8 = "0123456789 café 0123456789";
        std::string const local = fromUtf8(cs, utf8);
        for (unsigned room = 0; room <= utf8.size(); ++room) {
            std::vector<char> out(room);  // exact, for the address sanitizer
            int const there = qcs_from_utf8(cs, utf8.data(), size(utf8), out.data(), room);
            EXPECT_EQ(there, room < local.size() ? -1 : static_cast<int>(local.size())) << name;
            int const back = qcs_to_utf8(cs, local.data(), size(local), out.data(), room);
            EXPECT_EQ(back, room < utf8.size() ? -1 : static_cast<int>(utf8.size())) << name;
        }
    }
}

TEST(ConversionTest, TakesNullAndNothing) {
    qcs_cs_handle const cs = qcs_cs_new("EUC-JP");
    std::array<char, 4> out{};
    EXPECT_EQ(qcs_to_utf8(cs, nullptr, 4, out.data(), 4), 0);
    EXPECT_EQ(qcs_to_utf8(cs, "a", 0, out.data(), 4), 0);
    EXPECT_EQ(qcs_to_utf8(cs, "a", 1, nullptr, 4), -1);
}

}  // namespace
