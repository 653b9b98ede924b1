#include "Z/zqcsutil.h"

#include <gtest/gtest.h>

#include <array>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "Z/ZException.h"
#include "Z/ZLCString.h"
#include "Z/ZMessage.h"
#include "support/processes.h"
#include "support/strings.h"

namespace {

using testsupport::holdsUnder;

// Nothing in this process asks for a codeset: every test sets the library up in a child of its own.
using Body = std::function<void()>;

testsupport::Captured inLocale(const char* locale, const Body& body) {
    return testsupport::captureChild([&] {
        setenv("LC_ALL", locale, 1);
        body();
        return testing::Test::HasFailure() ? 1 : 0;
    });
}

testsupport::Captured withoutQcsdir(const Body& body) {
    return inLocale("C.UTF-8", [&] {
        unsetenv("QCSDIR");
        body();
    });
}

int occurrences(const std::string& text, const std::string& sub) {
    int count = 0;
    for (auto at = text.find(sub); at != std::string::npos; at = text.find(sub, at + 1))
        ++count;
    return count;
}

constexpr char noEnvironment[] = "The QCSDIR environment variable is not set.";

TEST(CodesetSetUpTest, TakesTheCodesetOfTheEnvironment) {
    struct {
        const char *locale, *name, *codeset;
        int greatest;
    } const rows[] = {{"C.UTF-8", "C.UTF-8", "UTF-8", 4},
                      {"C", "C", "US-ASCII", 1},
                      {"xx_XX.eucJP", "xx_XX.EUC-JP", "EUC-JP", 3},
                      {"xx_XX", "xx_XX", "US-ASCII", 1}};
    for (auto const& row : rows) {
        auto const child = inLocale(row.locale, [&] {
            EXPECT_STREQ(zgetlocale(), row.name);
            EXPECT_STREQ(zgetLocalCodesetName(), row.codeset);
            EXPECT_EQ(zlcs_mb_max(), row.greatest);
            EXPECT_EQ(zgetLCSHandle() == zgetUTF8Handle(), row.greatest == 4);
            if (row.greatest == 4) {
                EXPECT_STREQ(setlocale(LC_ALL, nullptr), "C.UTF-8");
            }
        });
        EXPECT_EQ(child.status, 0) << child.out;
        EXPECT_EQ(child.err, "") << row.locale;
    }
}

TEST(NoQcsdirTest, HandleGettersReportAndAbort) {
    for (Body const& body : {Body([] { zgetLCSHandle(); }), Body([] { zgetUTF8Handle(); }),
                             Body([] { zlcs_mb_max(); }), Body([] { ZLCString("text"); })}) {
        auto const child = withoutQcsdir(body);
        EXPECT_EQ(child.status, -SIGABRT);
        EXPECT_EQ(occurrences(child.err, "Exception: "), 1) << child.err;
        EXPECT_EQ(child.err.rfind("Exception: ZNoQCSEnvironmentException\n File: "
                                  "\"src/Z/zqcsutil\" ",
                                  0),
                  0U)
            << child.err;
        EXPECT_EQ(occurrences(child.err, noEnvironment), 1) << child.err;
    }
}

TEST(NoQcsdirTest, NameGettersReportAndReturnNull) {
    auto const child = withoutQcsdir([] {
        zset_cs_dir("/tmp");  // does not stand in for it
        EXPECT_EQ(zgetLocalCodesetName(), nullptr);
        EXPECT_EQ(zgetlocale(), nullptr);
    });
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(occurrences(child.err, noEnvironment), 2) << "each call reports: " << child.err;
}

TEST(BadCodesetTest, ReportsOnceAndAborts) {
    std::pair<const char*, std::string> const rows[] = {
        {"xx_XX.UTF-16", "UTF-16"},
        {"xx_XX.a-codeset-whose-name-is-beyond-all-measure", ""},  // reported without it
    };
    for (auto const& [locale, shown] : rows) {
        auto const child = inLocale(locale, [] {
            setenv("QCSDIR", "/some/dir", 1);
            ZLCString("text").append('x');
        });
        EXPECT_EQ(child.status, -SIGABRT);
        EXPECT_EQ(occurrences(child.err, "Exception: "), 1) << child.err;
        EXPECT_EQ(occurrences(child.err, "Exception: ZCodesetException\n"), 1) << child.err;
        EXPECT_EQ(occurrences(child.err, "Codeset handle create failed for codeset \"" + shown +
                                             "\".  QCSDIR is \"/some/dir\""),
                  1)
            << child.err;
    }
}

/// A service that works with strings while it reports.
class StringyService : public ZDefaultMessageService {
  public:
    void outputException(ZZException const* e, va_list) const override {
        ZLCString text("report of ");
        text.append(e->getName());
        text.upper();
        fprintf(stderr, "%s: %u\n", text.getChars(), zgetLCSHandle());
    }
};

TEST(BadCodesetTest, LeavesStringsUsableWhileItIsReported) {
    auto const child = inLocale("xx_XX.nosuchset", [] {
        static StringyService const service;
        ZMessageService::setMessageService(&service);
        EXPECT_EQ(zgetLocalCodesetName(), nullptr);
        EXPECT_EQ(zgetlocale(), nullptr);
    });
    EXPECT_EQ(child.status, 0) << child.out;
    EXPECT_EQ(occurrences(child.err, "report of ZCodesetException: 0\n"), 2) << child.err;
}

TEST(DirectoryTest, TheChosenOneGoesBeforeTheEnvironments) {
    testsupport::TempDir const chosen;
    testsupport::writeFile(chosen.file("aliases"), "codeset house-set KOI8-R\n");
    EXPECT_TRUE(holdsUnder("xx_XX.House-Set", [&] {
        zset_cs_dir(chosen.path().c_str());
        zset_cs_dir(nullptr);
        EXPECT_STREQ(zgetLocalCodesetName(), "KOI8-R");
    }));
}

TEST(LocalConversionTest, GoesBothWaysWithinItsRoom) {
    EXPECT_TRUE(holdsUnder("xx_XX.ISO8859-15", [] {
        std::array<char, 8> room{};
        EXPECT_EQ(zlcs_to_utf8("\xA4", 2, room.data(), 8), 4);
        EXPECT_STREQ(room.data(), "€");
        EXPECT_EQ(zlcs_from_utf8("€", 4, room.data(), 2), 2);
        EXPECT_STREQ(room.data(), "\xA4");
        EXPECT_EQ(zlcs_from_utf8("日", 3, room.data(), 8), -1);
        EXPECT_EQ(zlcs_to_utf8("\xA4\xA4", 2, room.data(), 5), -1);
    }));
}

TEST(LocalConversionTest, NothingIsNotAskedOfTheCodesets) {
    auto const child = withoutQcsdir([] {
        std::array<char, 4> room{};
        for (auto* const convert : {zlcs_to_utf8, zlcs_from_utf8}) {
            EXPECT_EQ(convert("a", 1, room.data(), 0), 0);
            EXPECT_EQ(convert("a", 0, room.data(), 4), 0);
            EXPECT_EQ(convert(nullptr, 1, room.data(), 4), 0);
            EXPECT_EQ(convert("a", 1, nullptr, 4), 0);
        }
    });
    EXPECT_EQ(child.status, 0) << child.out;
    EXPECT_EQ(child.err, "");
}

TEST(CharacterTest, EveryByteOfASingleByteLocalCodesetIsOne) {
    EXPECT_TRUE(holdsUnder("C", [] {
        ZCodesetHandle const local = zgetLCSHandle();
        EXPECT_EQ(zmblen(local, "\xE9", 1), 1);
        EXPECT_EQ(zmblen(local, "", 1), 0);
        EXPECT_EQ(zmblen(local, "a", 0), 0);
        EXPECT_EQ(zstrcount(local, "café!"), 6);
        EXPECT_EQ(zmblen(zgetUTF8Handle(), "\xE9", 1), -1);
    }));
}

TEST(CharacterTest, OfTheUtf8Codeset) {
    EXPECT_TRUE(holdsUnder("C.UTF-8", [] {
        ZCodesetHandle const cs = zgetUTF8Handle();
        ZWideChar wide = 0;
        EXPECT_EQ(zmbtowc(cs, &wide, "€", 3), 3);
        EXPECT_EQ(wide, 0x20AC);
        EXPECT_EQ(zmblen(cs, "€", 2), -1);
        EXPECT_EQ(zstrcount(cs, "ab\xFF"), 2);
        EXPECT_EQ(zstrcount(cs, nullptr), 0);
        EXPECT_EQ(zisspace(cs, "\xE3\x80\x80", 3), 3);
        EXPECT_EQ(zisspace(cs, "x", 1), 0);
        EXPECT_EQ(zisspace(cs, nullptr, 1), 0);
        EXPECT_EQ(zisalpha(cs, "é", 2), 2);
        EXPECT_EQ(zisalpha(cs, "é", 1), 0);
        EXPECT_EQ(zisalpha(cs, "1", 1), 0);
    }));
}

TEST(CharacterTest, FunctionsReachTheCodesetLayer) {
    EXPECT_TRUE(holdsUnder("C.UTF-8", [] {
        ZCodesetHandle const cs = zgetUTF8Handle();
        std::string text = "été = x";
        char* const s = text.data();
        EXPECT_EQ(zstrchr(cs, s, 0xE9), s);
        EXPECT_EQ(zstrrchr(cs, s, 0xE9), s + 3);
        EXPECT_EQ(zstrstr(cs, s, "= "), s + 6);
        EXPECT_EQ(zstrpbrk(cs, s, "=x"), s + 6);
        EXPECT_EQ(zstrspn(cs, s, "té"), 5);
        EXPECT_EQ(zstrcspn(cs, s, " "), 5);
        EXPECT_STREQ(zstrupper(cs, s), "ÉTÉ = X");
        EXPECT_EQ(zstricmp(cs, s, "été = x"), 0);
        EXPECT_EQ(zstrnicmp(cs, s, "été?", 5), 0);
        EXPECT_STREQ(zstrlower(cs, s), "été = x");
        std::array<char, 4> copy{};
        EXPECT_STREQ(zstrncpy(cs, copy.data(), s, 4), "ét");
        copy[0] = 0;
        EXPECT_STREQ(zstrncat(cs, copy.data(), s, 1), "");
        char* state = nullptr;
        EXPECT_STREQ(zstrtok(cs, s, " =", &state), "été");
        EXPECT_STREQ(zstrtok(cs, nullptr, " =", &state), "x");
        struct tm tm {};
        EXPECT_NE(zstrptime(cs, "12:34", "%H:%M", &tm), nullptr);
        EXPECT_EQ(tm.tm_min, 34);
        EXPECT_TRUE(ziswupper('A') && ziswlower('a') && ziswspace(0x3000) && ziswdigit('7'));
        EXPECT_TRUE(ziswalpha('a') && !ziswalpha('7') && ziswalnum('7') && !ziswlower('A'));
    }));
}

}  // namespace
