// link: static
#include <gtest/gtest.h>
#include <wctype.h>

#include <array>
#include <cstring>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "Z/zqcsutil.h"
#include "qcs/qcs.h"
#include "support/codesets.h"

namespace {

using namespace testsupport;
using Bytes = std::vector<std::string>;

int sign(int value) { return (value > 0) - (value < 0); }

/// Offset of `place` in `text`, -1 when it is null.
int at(char const* text, char const* place) {
    return place == nullptr ? -1 : static_cast<int>(place - text);
}

std::string tokens(ZCodesetHandle cs, std::string text, char const* delims) {
    std::string joined;
    char* state = nullptr;
    for (char* token = zstrtok(cs, text.data(), delims, &state); token != nullptr;
         token = zstrtok(cs, nullptr, delims, &state))
        joined += std::string("[") + token + "]";
    return joined;
}

/// Text over a few characters of a codeset beside its model, letters that number them.
class Alphabet {
  public:
    Alphabet(char const* codeset, Bytes set)
        : cs(qcs_cs_new(codeset)), characters(std::move(set)) {}

    [[nodiscard]] std::string bytesOf(std::string const& model) const {
        std::string bytes;
        for (char const letter : model)
            bytes += characters[static_cast<std::size_t>(letter - 'a')];
        return bytes;
    }
    /// Bytes of the first `letters` letters; -1 for npos.
    [[nodiscard]] int offset(std::string const& model, std::size_t letters) const {
        if (letters == std::string::npos) return -1;
        return static_cast<int>(bytesOf(model.substr(0, letters)).size());
    }
    [[nodiscard]] std::string anyText(std::size_t most) {
        std::string model(random() % (most + 1), 'a');
        for (char& letter : model)
            letter = static_cast<char>('a' + random() % characters.size());
        return model;
    }

    void checkSearches(std::string const& model, std::string const& part) const {
        std::string const text = bytesOf(model);
        std::string const bytes = bytesOf(part);
        char const* const s = text.c_str();
        char const* const sub = bytes.c_str();
        auto const expectAt = [&](char const* what, char const* place, std::size_t letters) {
            EXPECT_EQ(at(s, place), offset(model, letters)) << what;
        };
        std::size_t const end = model.size();
        EXPECT_EQ(zstrcount(cs, s), static_cast<int>(end));
        expectAt("str", zstrstr(cs, s, sub), model.find(part));
        expectAt("pbrk", zstrpbrk(cs, s, sub), model.find_first_of(part));
        expectAt("cspn", s + zstrcspn(cs, s, sub), std::min(end, model.find_first_of(part)));
        expectAt("spn", s + zstrspn(cs, s, sub), std::min(end, model.find_first_not_of(part)));
        ZWideChar wide = 0;
        if (zmbtowc(cs, &wide, sub, 4) < 0) return;
        expectAt("chr", zstrchr(cs, s, wide), part.empty() ? end : model.find(part[0]));
        expectAt("rchr", zstrrchr(cs, s, wide), part.empty() ? end : model.rfind(part[0]));
    }

    void checkTokens(std::string const& model, std::string const& delims) const {
        std::string expected;
        for (std::size_t start = model.find_first_not_of(delims); start < model.size();) {
            std::size_t const end = std::min(model.size(), model.find_first_of(delims, start));
            expected += "[" + bytesOf(model.substr(start, end - start)) + "]";
            start = model.find_first_not_of(delims, end);
        }
        EXPECT_EQ(tokens(cs, bytesOf(model), bytesOf(delims).c_str()), expected);
    }

    void checkCopies(std::string const& model, unsigned room) const {
        std::string const text = bytesOf(model);
        std::size_t letters = model.size();
        while (offset(model, letters) > static_cast<int>(room))
            --letters;
        std::string expected = bytesOf(model.substr(0, letters));
        std::string joined("x" + std::string(expected.size(), '\0'));
        EXPECT_EQ(zstrncat(cs, joined.data(), text.c_str(), room), "x" + expected);
        std::vector<char> copy(room, '#');  // exact, for the address sanitizer
        zstrncpy(cs, copy.data(), text.c_str(), room);
        expected.resize(room, '\0');
        EXPECT_EQ(std::string(copy.begin(), copy.end()), expected);
    }

    ZCodesetHandle cs;

  private:
    Bytes characters;
    std::mt19937 random{7};
};

TEST(CharacterWalkTest, SearchesSplitsAndCopiesAsTheStandardStringDoesLetters) {
    std::pair<char const*, Bytes> const rows[] = {
        {"UTF-8", {"a", "=", "é", "\xC2\xA9", "€", "\xF0\x9F\x98\x80"}},
        // In Shift_JIS the second byte of a character may be a letter, the backslash, or the first
        // of another one.
        {"CP932", {"A", "\x83\x83", "\x83\x80", "\\", "\x83\x5C", "\x83\x41", "\xB1"}},
        {"GB18030", {"0", "\x81\x30\x81\x30", "\x81\x30\x84\x36", "\xB0\xA1"}},
        {"KOI8-R", {"=", ";", "\xD6", "\xF6"}},
        {"US-ASCII", {"=", "b", "\xC3", "\xA4"}},  // a byte it lacks is equal to itself alone
    };
    for (auto const& [codeset, characters] : rows) {
        Alphabet alphabet(codeset, characters);
        for (int step = 0; step < 600; ++step) {
            std::string const model = alphabet.anyText(12);
            SCOPED_TRACE(codeset + testing::PrintToString(alphabet.bytesOf(model)));
            alphabet.checkSearches(model, alphabet.anyText(3));
            alphabet.checkTokens(model, alphabet.anyText(2));
            alphabet.checkCopies(model, static_cast<unsigned>(step % 9));
        }
        alphabet.checkSearches(std::string(1000, 'b') + "bc", "bbc");  // a false hit after another
    }
}

TEST(CharacterWalkTest, FindsEverySequenceOfACharacter) {
    ZCodesetHandle const sjis = qcs_cs_new("CP932");
    EXPECT_EQ(zstrstr(sjis, "\x83\x5C", "\x83"), nullptr);
    for (char const* const because : {"a\x81\xE6", "a\x87\x9A", "a\xFA\x5B"})  // all U+2235
        EXPECT_EQ(at(because, zstrchr(sjis, because, 0x2235)), 1);
    for (int const noCharacter : {0xD83D, -23, 0x1F600})
        EXPECT_EQ(zstrchr(qcs_cs_new("UTF-8"), "\xF0\x9F\x98\x80", noCharacter), nullptr);
}

TEST(CharacterWalkTest, EndsAtAMalformedCharacterAndLosesNothing) {
    ZCodesetHandle const utf8 = qcs_cs_new("UTF-8");
    char const* const s = "a=b\xFFx=y;";
    EXPECT_EQ(at(s, zstrrchr(utf8, s, '=')), 1);
    for (auto* const found : {zstrchr(utf8, s, 0), zstrrchr(utf8, s, 0), zstrstr(utf8, s, "x="),
                              zstrpbrk(utf8, s, ";")})
        EXPECT_EQ(found, nullptr);
    EXPECT_EQ(zstrcspn(utf8, s, ";"), 3U);
    EXPECT_EQ(zstrcount(utf8, s), 3);
    EXPECT_EQ(tokens(utf8, "a,b\xFF,c", ","), "[a][b\xFF,c]");
    std::array<char, 6> copy{};
    EXPECT_STREQ(zstrncpy(utf8, copy.data(), "a\xFFz\xE2\x82", 5), "a\xFFz\xE2\x82");
}

TEST(CharacterWalkTest, TakesNull) {
    ZCodesetHandle const utf8 = qcs_cs_new("UTF-8");
    char* state = nullptr;
    for (char* const none : {zstrtok(utf8, nullptr, ",", &state), zstrupper(utf8, nullptr),
                             zstrncat(utf8, nullptr, "a", 1), zstrncpy(utf8, nullptr, "a", 1)})
        EXPECT_EQ(none, nullptr);
    EXPECT_EQ(tokens(utf8, "a,c", nullptr), "[a,c]");
    EXPECT_EQ(zstricmp(utf8, nullptr, "") + zstrcount(utf8, nullptr), 0);
}

TEST(CharacterClassTest, ComesFromUnicodeNotFromTheLocale) {
    locale_t const unicode = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    std::pair<int (*)(ZWideChar), int (*)(wint_t, locale_t)> const classes[] = {
        {ziswupper, iswupper_l}, {ziswlower, iswlower_l}, {ziswspace, iswspace_l},
        {ziswdigit, iswdigit_l}, {ziswalpha, iswalpha_l}, {ziswalnum, iswalnum_l}};
    ZCodesetHandle const utf8 = qcs_cs_new("UTF-8");
    for (unsigned code = 0; code <= 0xFFFF; ++code) {
        for (auto const& [ours, systems] : classes)
            ASSERT_EQ(ours(static_cast<ZWideChar>(code)) != 0, systems(code, unicode) != 0) << code;
        if (code == 0 || (code >= 0xD800 && code < 0xE000)) continue;
        // In place, a character whose other case is longer or shorter stays.
        auto const same = [&](wint_t other) {
            std::string const mapped = utf8Of(other);
            return mapped.size() == utf8Of(code).size() ? mapped : utf8Of(code);
        };
        std::string text = utf8Of(code);
        auto const size = static_cast<unsigned>(text.size());
        ASSERT_EQ(zisspace(utf8, text.data(), size), iswspace_l(code, unicode) ? size : 0) << code;
        ASSERT_EQ(zisalpha(utf8, text.data(), size), iswalpha_l(code, unicode) ? size : 0) << code;
        ASSERT_EQ(zstrupper(utf8, text.data()), same(towupper_l(code, unicode)));
        text = utf8Of(code);
        ASSERT_EQ(zstrlower(utf8, text.data()), same(towlower_l(code, unicode)));
        ASSERT_EQ(zstricmp(utf8, text.data(), utf8Of(towlower_l(code, unicode)).c_str()), 0);
    }
    freelocale(unicode);
    EXPECT_EQ(zisspace(utf8, nullptr, 1) + zisalpha(utf8, "é", 1) + zisalpha(utf8, "é", 0), 0);
    EXPECT_LT(zstricmp(utf8, "abc", "abD"), 0);
}

TEST(CaseTest, IsMappedInPlaceInEveryCodeset) {
    char const* const rows[][4] = {
        {"UTF-8", "ab\xFFzz", "AB\xFFzz", "ab\xFFzz"},
        {"ISO8859-1", "\xE4\xD6\xFF\xB5", "\xC4\xD6\xFF\xB5", "\xE4\xF6\xFF\xB5"},
        {"CP932", "\x83\x41\x82\x81z", "\x83\x41\x82\x60Z", "\x83\x41\x82\x81z"},
    };
    for (auto const& [codeset, text, upper, lower] : rows) {
        ZCodesetHandle const cs = qcs_cs_new(codeset);
        EXPECT_STREQ(zstrupper(cs, std::string(text).data()), upper) << codeset;
        EXPECT_STREQ(zstrlower(cs, std::string(text).data()), lower) << codeset;
    }
}

TEST(CaseTest, IsIgnoredByCharacter) {
    std::tuple<char const*, char const*, char const*, unsigned, int> const rows[] = {
        {"UTF-8", "abc", "abD", 3, -1},
        {"UTF-8", "ab", "abc", 99, -1},
        {"UTF-8", "Ärgerx", "äRGERy", 6, 0},
        {"UTF-8", "z", "\xC3\xA4", 99, -1},
        {"UTF-8", "a\xFF", "A\xFE", 99, 1},  // malformed bytes are not taken for nothing
        {"UTF-8", "a\xFFx", "A\xFFy", 2, 0},
        {"CP932", "\x83\x41", "\x83\x61", 99, -1},  // second bytes have no case
        {"US-ASCII", "A\xE4", "a\xC4", 99, 1},
    };
    for (auto const& [codeset, a, b, n, order] : rows) {
        ZCodesetHandle const cs = qcs_cs_new(codeset);
        EXPECT_EQ(sign(zstrnicmp(cs, a, b, n)), order) << a << b;
        EXPECT_EQ(sign(zstrnicmp(cs, b, a, n)), -order) << a << b;
    }
}

TEST(TimeTest, ParsesWithTheNamesOfTheLocale) {
    struct tm time {};
    char const* const text = "5 Mar 2024 rest";
    EXPECT_EQ(at(text, qcs_strptime(0, qcs_loc_new("C"), text, "%d %b %Y", &time)), 10);
    EXPECT_EQ(time.tm_mon, 2);
    EXPECT_EQ(at(text, zstrptime(0, text, "%d", &time)), 1);
    EXPECT_EQ(zstrptime(0, nullptr, "%d", &time), nullptr);
}

}  // namespace
