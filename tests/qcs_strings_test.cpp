// link: static
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "qcs/qcs.h"

namespace {

// In Shift_JIS the second byte of a character may be an ASCII letter or the backslash (0x5C).
constexpr char sjisSo[] = "\x83\x5C";  // U+30BD, ends in a backslash
constexpr char sjisA[] = "\x83\x41";   // U+30A2, ends in 'A'
constexpr char sjisMu[] = "\x83\x80";  // U+30E0, whose second byte may begin a character
constexpr int soWide = 0x30BD;

qcs_cs_handle handle(const char* name) { return qcs_cs_new(name); }

/// Offset of `place` in `text`, -1 when it is null.
int at(const char* text, const char* place) {
    return place == nullptr ? -1 : static_cast<int>(place - text);
}

TEST(SearchTest, NeverMatchesInsideACharacter) {
    qcs_cs_handle const sjis = handle("CP932");
    std::string const text = std::string(sjisSo) + sjisA + sjisMu + "\\A";
    const char* const s = text.c_str();
    EXPECT_EQ(at(s, qcs_strchr(sjis, s, '\\')), 6);
    EXPECT_EQ(at(s, qcs_strrchr(sjis, s, 'A')), 7);
    EXPECT_EQ(at(s, qcs_strchr(sjis, s, soWide)), 0);
    EXPECT_EQ(at(s, qcs_strstr(sjis, s, "\\")), 6);
    EXPECT_EQ(at(s, qcs_strstr(sjis, s, sjisA)), 2);
    EXPECT_EQ(at(s, qcs_strstr(sjis, s, "\x83")), -1) << "half a character";
    EXPECT_EQ(at(s, qcs_strstr(sjis, s, "\x41\x83\x80")), -1) << "begins inside one";
    EXPECT_EQ(at(s, qcs_strpbrk(sjis, s, "A\\")), 6);
    EXPECT_EQ(qcs_strcspn(sjis, s, "A\\"), 6U);
    EXPECT_EQ(qcs_strspn(sjis, s, (std::string(sjisA) + sjisSo).c_str()), 4U);
    EXPECT_EQ(qcs_strcount(sjis, s), 5U);
}

TEST(SearchTest, GoesOnBehindAFalseHit) {
    qcs_cs_handle const sjis = handle("CP932");
    std::string text;
    for (int i = 0; i < 1000; ++i)
        text += "\x83\x83";  // U+30E3: hits lie between the characters
    std::string const sub = "\x83\x83\x83\x80";
    EXPECT_EQ(at(text.c_str(), qcs_strstr(sjis, text.c_str(), sub.c_str())), -1);
    text += sub;
    EXPECT_EQ(at(text.c_str(), qcs_strstr(sjis, text.c_str(), sub.c_str())), 2000);
}

TEST(SearchTest, FindsEverySequenceOfOneCodePoint) {
    for (const char* const because : {"a\x81\xE6", "a\x87\x9A", "a\xFA\x5B"})  // all U+2235
        EXPECT_EQ(at(because, qcs_strchr(handle("CP932"), because, 0x2235)), 1);
}

TEST(SearchTest, IsTheCLibrarysInEveryCodeset) {
    std::string const text = "name = value; other name = x";
    const char* const s = text.c_str();
    for (const char* const name : {"UTF-8", "US-ASCII", "KOI8-R", "EUC-JP", "CP932", "GB18030"}) {
        qcs_cs_handle const cs = handle(name);
        for (const char* const sub : {"", "name", "x", "name = x", "nam", "absent", "="})
            EXPECT_EQ(qcs_strstr(cs, s, sub), strstr(s, sub)) << name << sub;
        for (int const c : {+'n', +'=', +'x', +'q', 0}) {
            EXPECT_EQ(qcs_strchr(cs, s, c), strchr(s, c)) << name << c;
            EXPECT_EQ(qcs_strrchr(cs, s, c), strrchr(s, c)) << name << c;
        }
        for (const char* const set : {"", "=;", "name ", "xyz", "q"}) {
            EXPECT_EQ(qcs_strspn(cs, s, set), strspn(s, set)) << name << set;
            EXPECT_EQ(qcs_strcspn(cs, s, set), strcspn(s, set)) << name << set;
            EXPECT_EQ(qcs_strpbrk(cs, s, set), strpbrk(s, set)) << name << set;
        }
    }
}

TEST(SearchTest, TakesUtf8Characters) {
    qcs_cs_handle const utf8 = handle("UTF-8");
    const char* const s = "€ = café \xF0\x9F\x98\x80 €";
    EXPECT_EQ(at(s, qcs_strchr(utf8, s, 0xE9)), 9);
    EXPECT_EQ(at(s, qcs_strrchr(utf8, s, 0x20AC)), 17);
    EXPECT_EQ(at(s, qcs_strstr(utf8, s, "\xF0\x9F\x98\x80")), 12);
    EXPECT_EQ(at(s, qcs_strstr(utf8, s, "\xA9")), -1);
    EXPECT_EQ(at(s, qcs_strpbrk(utf8, s, "\xF0\x9F\x98\x80é")), 9);
    EXPECT_EQ(qcs_strspn(utf8, s, " =€"), 6U);
    EXPECT_EQ(qcs_strcount(utf8, s), 12U);
    EXPECT_EQ(qcs_strchr(utf8, s, 0xD83D), nullptr);
    EXPECT_EQ(qcs_strchr(utf8, s, -23), nullptr);
}

TEST(SearchTest, EndsAtAMalformedCharacter) {
    qcs_cs_handle const utf8 = handle("UTF-8");
    const char* const s = "a=b\xFFx=y;\xE2\x82";
    EXPECT_EQ(at(s, qcs_strchr(utf8, s, '=')), 1);
    EXPECT_EQ(at(s, qcs_strrchr(utf8, s, '=')), 1);
    EXPECT_EQ(qcs_strchr(utf8, s, ';'), nullptr);
    EXPECT_EQ(qcs_strchr(utf8, s, 0), nullptr);
    EXPECT_EQ(qcs_strstr(utf8, s, "x="), nullptr);
    EXPECT_EQ(qcs_strpbrk(utf8, s, ";"), nullptr);
    EXPECT_EQ(qcs_strcspn(utf8, s, ";"), 3U);
    EXPECT_EQ(qcs_strcount(utf8, s), 3U);
}

TEST(SearchTest, WalksOverUndefinedBytesOfSingleByteCodesets) {
    qcs_cs_handle const ascii = handle("US-ASCII");
    const char* const s = "M\xC3\xBCller=1";
    EXPECT_EQ(at(s, qcs_strchr(ascii, s, '=')), 7);
    EXPECT_EQ(at(s, qcs_strstr(ascii, s, "\xBCl")), 2);
    EXPECT_EQ(qcs_strspn(ascii, s, "\xC3M"), 2U) << "a byte equals itself alone";
    EXPECT_EQ(qcs_strcount(ascii, s), 9U);
    EXPECT_EQ(qcs_mblen(ascii, s + 1, 1), -1);
}

std::string tokens(qcs_cs_handle cs, std::string text, const char* delims) {
    std::string joined;
    char* state = nullptr;
    char* token = qcs_strtok(cs, text.data(), delims, &state);
    for (int count = 0; token != nullptr && count < 20; ++count) {
        joined += std::string("[") + token + "]";
        token = qcs_strtok(cs, nullptr, delims, &state);
    }
    return joined;
}

TEST(TokenTest, DelimitersAreWholeCharacters) {
    qcs_cs_handle const utf8 = handle("UTF-8");
    EXPECT_EQ(tokens(utf8, ",,a,b c,,", ","), "[a][b c]");
    EXPECT_EQ(tokens(utf8, "a、b。c", "、。"), "[a][b][c]");
    EXPECT_EQ(tokens(utf8, "", ","), "");
    EXPECT_EQ(tokens(utf8, ",,,", ","), "");
    EXPECT_EQ(tokens(utf8, "abc", ""), "[abc]");
    EXPECT_EQ(tokens(utf8, "a,b\xFF,c", ","), "[a][b\xFF,c]") << "nothing lost, no loop";
    EXPECT_EQ(tokens(utf8, "\xFF,c", ","), "[\xFF,c]");
    EXPECT_EQ(tokens(handle("CP932"), std::string(sjisSo) + "\\" + sjisSo, "\\"),
              std::string("[") + sjisSo + "][" + sjisSo + "]");
    char* state = nullptr;
    EXPECT_EQ(qcs_strtok(utf8, nullptr, ",", &state), nullptr);
    EXPECT_EQ(qcs_strtok(utf8, nullptr, ",", nullptr), nullptr);
}

TEST(CopyTest, TakesWholeCharactersOnly) {
    struct {
        const char* source;
        unsigned room;
        const char* copied;
    } const rows[] = {
        {"abc", 2, "ab"},
        {"abc", 9, "abc"},
        {"abc", 0, ""},
        {"a€b", 3, "a"},
        {"a€b", 4, "a€"},
        {"a\xFFz", 3, "a\xFFz"},
        {"a\xE2\x82", 5, "a\xE2\x82"},
    };
    qcs_cs_handle const utf8 = handle("UTF-8");
    for (auto const& row : rows) {
        std::vector<char> copy(row.room, '#');
        qcs_strncpy(utf8, copy.data(), row.source, row.room);
        std::string expected = row.copied;
        expected.resize(row.room, '\0');
        EXPECT_EQ(std::string(copy.begin(), copy.end()), expected);
        std::string joined = "x";
        joined.resize(1 + strlen(row.copied));
        EXPECT_EQ(std::string(qcs_strncat(utf8, joined.data(), row.source, row.room)),
                  std::string("x") + row.copied);
    }
}

TEST(CaseTest, MapsInPlaceWhatKeepsItsLength) {
    struct {
        const char *codeset, *text, *upper, *lower;
    } const rows[] = {
        {"UTF-8", "aBc-1äÖж", "ABC-1ÄÖЖ", "abc-1äöж"},
        {"UTF-8", "ßı", "ßı", "ßı"},                                   // dotless i is longer
        {"UTF-8", "\xE2\x84\xAAk", "\xE2\x84\xAAK", "\xE2\x84\xAAk"},  // Kelvin sign
        {"UTF-8", "ab\xFFzz", "AB\xFFzz", "ab\xFFzz"},
        {"ISO8859-1", "\xE4\xD6\xFF\xB5", "\xC4\xD6\xFF\xB5", "\xE4\xF6\xFF\xB5"},
        {"KOI8-R", "\xD6\xF6", "\xF6\xF6", "\xD6\xD6"},
        {"US-ASCII", "a\xE4z", "A\xE4Z", "a\xE4z"},
        {"CP932", "\x83\x41\x82\x81z", "\x83\x41\x82\x60Z", "\x83\x41\x82\x81z"},
    };
    for (auto const& row : rows) {
        qcs_cs_handle const cs = handle(row.codeset);
        std::string text = row.text;
        EXPECT_EQ(std::string(qcs_strupper(cs, 0, text.data())), row.upper) << row.codeset;
        text = row.text;
        EXPECT_EQ(std::string(qcs_strlower(cs, 0, text.data())), row.lower) << row.codeset;
    }
    EXPECT_EQ(qcs_strupper(handle("UTF-8"), 0, nullptr), nullptr);
}

int sign(int value) { return (value > 0) - (value < 0); }

TEST(CaseTest, ComparesByCharacter) {
    struct {
        const char *codeset, *a, *b;
        unsigned n;
        int order;
    } const rows[] = {
        {"UTF-8", "Hello", "hELLO", 99, 0},
        {"UTF-8", "abc", "abD", 99, -1},
        {"UTF-8", "abc", "abD", 2, 0},
        {"UTF-8", "ab", "abc", 99, -1},
        {"UTF-8", "", "", 99, 0},
        {"UTF-8", "x", "y", 0, 0},
        {"UTF-8", "Ärgerx", "äRGERy", 6, 0},
        {"UTF-8", "z", "\xC3\xA4", 99, -1},
        {"UTF-8", "\xE2\x84\xAA", "k", 99, 0},
        {"UTF-8", "a\xFF", "a", 99, 1},  // malformed bytes are not taken for nothing
        {"UTF-8", "a\xFF", "A\xFE", 99, 1},
        {"UTF-8", "a\xFF", "A\xFF", 99, 0},
        {"KOI8-R", "\xD6", "\xF6", 99, 0},
        {"CP932", "\x83\x41", "\x83\x61", 99, -1},  // second bytes have no case
        {"US-ASCII", "A\xE4", "a\xC4", 99, 1},
    };
    for (auto const& row : rows) {
        qcs_cs_handle const cs = handle(row.codeset);
        EXPECT_EQ(sign(qcs_strnicmp(cs, 0, row.a, row.b, row.n)), row.order) << row.a << row.b;
        EXPECT_EQ(sign(qcs_strnicmp(cs, 0, row.b, row.a, row.n)), -row.order) << row.a << row.b;
        if (row.n == 99) {
            EXPECT_EQ(sign(qcs_stricmp(cs, 0, row.a, row.b)), row.order);
        }
    }
    EXPECT_EQ(qcs_stricmp(handle("UTF-8"), 0, nullptr, ""), 0);
}

TEST(TimeTest, ParsesWithTheNamesOfTheLocale) {
    struct tm time {};
    qcs_loc_handle const c = qcs_loc_new("C");
    EXPECT_NE(c, 0U);
    const char* const text = "5 Mar 2024 rest";
    EXPECT_EQ(at(text, qcs_strptime(handle("UTF-8"), c, text, "%d %b %Y", &time)), 10);
    EXPECT_EQ(time.tm_mon, 2);
    EXPECT_EQ(at(text, qcs_strptime(handle("UTF-8"), 0, text, "%d %b %Y", &time)), 10);
    EXPECT_EQ(qcs_strptime(handle("UTF-8"), c, "no date", "%d", &time), nullptr);
    EXPECT_EQ(qcs_strptime(handle("UTF-8"), c, nullptr, "%d", &time), nullptr);
}

}  // namespace
