// The process's codesets. Nothing in this process uses the library: every body runs in a child with
// a codeset of its own.
#include <array>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <functional>

#include "Z/ZBuffer.h"
#include "Z/ZGetLocale.h"
#include "Z/ZQCSUTF8Converter.h"
#include "Z/zqcsutil.h"
#include "support/properties.h"
#include "support/reports.h"
#include "support/strings.h"
#include "support/threads.h"

namespace {

using namespace testsupport;
using Body = std::function<void()>;

constexpr char latin1[] = "en_US.ISO8859-1";
constexpr char shiftJis[] = "ja_JP.SJIS";
constexpr char eucJp[] = "ja_JP.eucJP";

/// Runs expectations in a child with these values of LC_ALL and, unless it is null, QCSDIR.
Captured inLocale(char const* locale, char const* directory, Body const& body) {
    return captureChild([&] {
        setenv("LC_ALL", locale, 1);
        directory == nullptr ? unsetenv("QCSDIR") : setenv("QCSDIR", directory, 1);
        body();
        return testing::Test::HasFailure() ? 1 : 0;
    });
}

/// Expects that all holds in the child, and nothing is reported.
void holdsUnder(char const* locale, Body const& body) {
    auto const child = inLocale(locale, getenv("QCSDIR"), body);
    EXPECT_EQ(child.status, 0) << locale << child.out;
    EXPECT_EQ(child.err, "") << locale;
}

TEST(CodesetSetUpTest, TakesTheCodesetOfTheEnvironment) {
    struct {
        char const *locale, *name, *codeset;
        int greatest;
    } const rows[] = {{"C.UTF-8", "C.UTF-8", "UTF-8", 4},
                      {"C", "C", "US-ASCII", 1},
                      {"xx_XX.eucJP", "xx_XX.EUC-JP", "EUC-JP", 3}};
    for (auto const& row : rows)
        holdsUnder(row.locale, [&] {
            EXPECT_STREQ(zgetlocale(), row.name);
            EXPECT_STREQ(zgetLocalCodesetName(), row.codeset);
            EXPECT_EQ(zlcs_mb_max(), row.greatest);
            EXPECT_EQ(zgetLCSHandle() == zgetUTF8Handle(), row.greatest == 4);
            EXPECT_STREQ(setlocale(LC_ALL, nullptr), row.greatest == 4 ? "C.UTF-8" : "C");
            ZUTF8String name("left over");
            EXPECT_EQ(ZGetLocale(name), 0);
            EXPECT_STREQ(name, row.name);
        });
    TempDir const chosen;
    writeFile(chosen.file("aliases"), "codeset house-set KOI8-R\n");
    holdsUnder("xx_XX.House-Set", [&] {
        zset_cs_dir(chosen.path().c_str());  // goes before the environment's
        zset_cs_dir(nullptr);
        EXPECT_STREQ(zgetLocalCodesetName(), "KOI8-R");
    });
}

TEST(CodesetSetUpTest, ReportsAnAliasFileThatIsTooLargeOrDamaged) {
    std::string const line = "codeset house-set KOI8-R\n";
    std::string const rows[][2] = {
        {line + "codeset x\n", "/aliases\" contains invalid data at line 2.\nData: \"codeset x\""},
        {std::string(300 * 1024, '#'),
         "/aliases.  The access function was read() and return code"}};
    for (auto const& [aliases, report] : rows) {
        TempDir const directory;
        writeFile(directory.file("aliases"), aliases);
        auto const child =
            inLocale("xx_XX.House-Set", directory.path().c_str(), [] { zgetLocalCodesetName(); });
        EXPECT_NE(child.err.find(report), std::string::npos) << child.err;
        EXPECT_EQ(child.err.find("ZCodesetE") == std::string::npos, aliases.find(line) == 0);
    }
}

TEST(NoCodesetTest, IsReportedOnceAndAborts) {
    std::string const longest(252, 'x');
    std::string const longName = "C." + longest + "@" + std::string(255, 'm');
    char const* const rows[][4] = {
        {longName.c_str(), "/tmp", "ZCodeset", longest.c_str()},
        {"C.UTF-8", nullptr, "ZNoQCSEnvironment", "The QCSDIR environment variable is not set."},
        {"xx_XX.UTF-16", "/tmp", "ZCodeset",
         "Codeset handle create failed for codeset \"UTF-16\".  QCSDIR is \"/tmp\""},
    };
    Body const uses[] = {[] { zgetLCSHandle(); }, [] { zgetUTF8Handle(); }, [] { zlcs_mb_max(); },
                         [] { ZLCString("text").append('x'); }};
    for (auto const& [locale, directory, exception, message] : rows)
        for (auto const& use : uses) {
            auto const [out, err, status] = inLocale(locale, directory, use);
            std::string const name = std::string("Exception: ") + exception + "Exception\n";
            auto const at = err.find(name + " File: \"src/Z/zqcsutil\" ");
            EXPECT_EQ(status, -SIGABRT) << out;
            EXPECT_EQ(err.find("Exception: "), at) << err;
            EXPECT_EQ(err.rfind("Exception: "), at) << err;
            EXPECT_NE(err.find(message, at), std::string::npos) << err;
        }
}

struct ThrowingService : Silence {
    void outputException(ZException& /*e*/) const override { throw std::exception(); }
    void outputException(ZZException const* /*e*/, va_list /*args*/) const override {
        throw std::exception();
    }
};

TEST(NoCodesetTest, IsReportedByEveryCallOfTheNameGettersWhichReturnNull) {
    auto const child = inLocale("xx_XX.nosuchset", nullptr, [] {
        EXPECT_EQ((ThrowingService(), zgetlocale()), nullptr);
        zset_cs_dir("/tmp");  // does not stand in for the environment's
        EXPECT_EQ(zgetLocalCodesetName(), nullptr);
        EXPECT_EQ(zgetlocale(), nullptr);
    });
    EXPECT_EQ(child.status, 0) << child.out;
    constexpr char report[] = "Exception: ZNoQCSEnvironmentException\n";
    EXPECT_NE(child.err.find(report), child.err.rfind(report)) << child.err;
}

TEST(LocalCodesetTest, TakesEveryByteForACharacterAndConvertsWithinItsRoom) {
    holdsUnder("C", [] {
        ZCodesetHandle const local = zgetLCSHandle();
        EXPECT_EQ(zmblen(local, "\xE9", 1), 1);
        EXPECT_EQ(zmblen(local, "", 1) + zmblen(local, "a", 0) + zmblen(local, nullptr, 1), 0);
        EXPECT_EQ(zstrcount(local, "café!"), 6);
        EXPECT_EQ(zmblen(zgetUTF8Handle(), "\xE9", 1), -1);
        std::array<char, 4> room{'?', '?', '?', '?'};
        for (auto* const convert : {zlcs_to_utf8, zlcs_from_utf8}) {
            EXPECT_EQ(convert("abc", 3, room.data(), 3), 3);
            EXPECT_EQ(convert("abc", 4, room.data(), 3), -1);
            EXPECT_EQ(convert("a", 1, room.data(), 0) + convert("a", 1, nullptr, 4), 0);
            EXPECT_EQ(convert("a", 0, room.data(), 4) + convert(nullptr, 1, room.data(), 4), 0);
        }
        EXPECT_EQ(room[3], '?');
    });
}

TEST(StringCodesetTest, ConvertsBetweenTheFamilies) {
    struct {
        char const *locale, *local, *utf8;
    } const rows[] = {
        {latin1, "a\xE9z", "a\xC3\xA9z"},
        {shiftJis, "\x83\x5C\xB1!", "\xE3\x82\xBD\xEF\xBD\xB1!"},
        {"C.UTF-8", "a\xC3\xA9z", "a\xC3\xA9z"},
    };
    for (auto const& row : rows)
        holdsUnder(row.locale, [&] {
            Crew crew;  // whose first strings set the codesets up
            for (int i = 0; i < 8; ++i)
                crew.add([&] { EXPECT_STREQ(ZLCString(ZUTF8String(row.utf8)), row.local); });
            crew.join();
            ZLCString const local(row.local);
            ZUTF8String const utf8(row.utf8);
            EXPECT_STREQ(ZUTF8String(local), row.utf8);
            EXPECT_STREQ(ZUTF8String(ZLCConstString(row.local)), row.utf8);
            EXPECT_STREQ(ZLCString(ZUTF8ConstString(row.utf8)), row.local);
            ZLCString assigned("before");
            ZAbstractMutableString& unknown = assigned;
            unknown = static_cast<const ZAbstractMutableString&>(utf8);
            EXPECT_STREQ(assigned, row.local);
            EXPECT_EQ(local.compare(utf8), 0);
            EXPECT_EQ(ZLCConstString(local).compare(utf8), 0);
            EXPECT_TRUE(ZUTF8ConstString(utf8) == local);
            EXPECT_EQ(utf8.equals(local), strcmp(row.local, row.utf8) == 0);
        });
}

TEST(StringCodesetTest, ReservesByTheLengthOfTheSourceAndIsEmptyWhereNothingComesOver) {
    holdsUnder(latin1, [] {
        std::string const text(100, '\xE9');
        ZUTF8String const utf8(ZLCString(text.c_str()));
        EXPECT_EQ(utf8.getCapacity(), 301U);
        ZLCString const back(utf8);
        EXPECT_EQ(back.getCapacity(), 401U);
        expectString(back, text);
        ZUTF8String own;
        own.setCapacity(301);
        own = text.c_str();
        own = ZLCConstString(own.getChars());  // a view of itself
        expectString(own, bytesOf(utf8));
        ZLCString string("before");
        string.convertFromCodeSet(ZUTF8String());
        EXPECT_STREQ(string, "before");
        ZLCConstString view("before");
        for (char const* const foreign : {"euro €", "broken \xC3", ""}) {
            string = "before";
            string = ZUTF8String(foreign);
            EXPECT_STREQ(string, "");
            // What is not converted is still something else than an empty string.
            EXPECT_EQ(string.compare(ZUTF8String(foreign)) == 0, *foreign == '\0');
            view = ZUTF8ConstString(foreign);
            EXPECT_STREQ(view, "before") << "a view refuses another codeset silently";
        }
    });
}

TEST(StringCodesetTest, EditsSearchesAndSplitsByWholeCharacters) {
    // In Shift_JIS, 83 5C is one character whose second byte is a backslash; 81 40 is a blank that
    // is no single byte, 83 41 a character that ends in "A".
    holdsUnder(shiftJis, [] {
        EXPECT_STREQ(ZLCString("\x83\\|\\").replace("\\", "/"), "\x83\\|/");
        EXPECT_STREQ(ZLCString("A\x83\x41").replaceAll("A", "b"), "b\x83\x41");
        EXPECT_STREQ(ZLCString("A\x83\x41").replaceOther("A", "-"), "A-");
        EXPECT_STREQ(ZLCString(" \x81@x\x81@ ").stripWhiteSpace(), "\x81@x\x81@");
        EXPECT_STREQ(ZLCString("x\x83 ").stripTrailing(), "x\x83");
        EXPECT_EQ(ZLCString("a/\x83\x5C/b").lastIndexOf('/'), 4);
        EXPECT_EQ(ZLCString("").lastIndexOf(0), 0);
        EXPECT_EQ(ZLCString("\x83\x83").lastIndexOf(0x83), 0) << "not the second byte";
        ZLCString const source("a\x83\\z\\c");
        ZLCString token;
        ZStringTokenizer tokens(source, token, ZUTF8String("\\"));
        EXPECT_STREQ(*tokens.getNext(), "a\x83\\z");
        EXPECT_STREQ(*tokens.getNext(), "c");
        tokens.reset();
        EXPECT_STREQ(*tokens.getNext(ZUTF8String("ソ")), "a");
        EXPECT_TRUE(tokens.hasMore(ZUTF8ConstString("ソz")));
        EXPECT_STREQ(*tokens.getNext(), "c");
        ZUTF8String other("\xF0\x9F\x98\x80");
        EXPECT_THROW(ZStringTokenizer(source, other), ZUnsupportedException);
        EXPECT_THROW(ZStringTokenizer(source, token, other), ZFromUTF8Exception);
        EXPECT_THROW(static_cast<void>(tokens.getNext(other)), ZFromUTF8Exception);
        EXPECT_TRUE(ZToUTF8Exception(ZLCString("a\x83")).text().contains("JIS (at offset 1) str"));
        other = ZUTF8String("日") + other;
        EXPECT_TRUE(ZFromUTF8Exception(other).text().endsWith("Shift_JIS (at offset 3)."));
    });
    holdsUnder(latin1, [] {
        EXPECT_STREQ(ZLCString(" \xE9 ").upper().stripWhiteSpace(), "\xC9");
        EXPECT_STREQ(ZLCString("\xE9\xE9").replace('\xE9', 'e'), "ee");
        EXPECT_EQ(ZLCString("\xE9-\xE9").lastIndexOf(0xE9), 2);
        EXPECT_EQ(ZUTF8String("\xC3\xA9-\xC3\xA9").lastIndexOf(0xC3), 3);
        ZLCString local;
        ZUTF8String utf8;
        ZLCConstString const localView("\xE9!");
        ZUTF8ConstString const utf8View("é!");
        EXPECT_STREQ(*ZStringIterator(localView, local).getNext(), "\xE9");
        EXPECT_STREQ(*ZStringIterator(utf8View, utf8).getNext(), "é");
    });
}

TEST(FamilyTest, TextOfTheOtherIsCheckedInEveryLocaleAndAViewOfItIsRefused) {
    for (char const* const locale : {"C.UTF-8", eucJp})
        holdsUnder(locale, [] {
            ZLCString local("left over");
            ZUTF8String utf8("left over");
            EXPECT_STREQ(local = ZUTF8ConstString("a\xFF"), "");
            EXPECT_STREQ(utf8 = ZLCString("a\xFF"), "");
            EXPECT_STREQ(utf8 = ZUTF8ConstString("a\xFF"), "a\xFF");
            EXPECT_TRUE(ZUTF8String(ZLCConstString("\xFF")).isEmpty());
            EXPECT_STREQ(ZUTF8String(ZLCString("abc")), "abc");
            ZLCConstString view("kept");
            EXPECT_STREQ(view = ZUTF8String("gone"), "kept");
            EXPECT_STREQ(view = ZLCConstString("new"), "new");
        });
}

TEST(Utf8ConverterTest, ConvertsWithTheTerminatingNulAndNeedsTheDataDirectory) {
    holdsUnder(eucJp, [] {
        ZQCSUTF8Converter latin("ISO8859-1", nullptr);
        ZQCSUTF8Converter environments(nullptr, getenv("QCSDIR"));
        ZQCSUTF8Converter none;
        EXPECT_STREQ(environments.getLocalCodeSet(), "EUC-JP");
        ZBuffer out;
        auto const bytes = [&] {
            return std::string(static_cast<char const*>(out.getBuffer()), out.getLength());
        };
        EXPECT_EQ((latin.convertToUTF8("\xE9!", out), bytes()), std::string("é!\0", 4));
        EXPECT_EQ((latin.convertToLocal("é!", out), bytes()), std::string("\xE9!\0", 3));
        EXPECT_EQ((latin.convertToUTF8(nullptr, out), bytes()), std::string(1, '\0'));
        EXPECT_EQ((latin.convertToLocal("a€", out), bytes()), std::string(9, '\0'));
        EXPECT_EQ((none.convertToUTF8("ab", out), bytes()), std::string(7, '\0'));
        unsigned long place = 99;
        EXPECT_TRUE(latin.tryConvertToLocal("é\0éx", 5, out, &place));
        EXPECT_EQ(bytes(), std::string("\xE9\0\xE9\0", 4));
        EXPECT_TRUE(latin.tryConvertToUTF8(nullptr, 5, out) && bytes() == std::string(1, '\0'));
        EXPECT_FALSE(latin.tryConvertToLocal("é\0é€", 8, out, &place));
        EXPECT_EQ(std::pair(place, 0UL), std::pair(5UL, out.getLength()));
        EXPECT_FALSE(environments.tryConvertToUTF8("\xC6\xFC\xC6", 3, out, &place));
        EXPECT_EQ(place, 2U);
        EXPECT_FALSE(none.tryConvertToUTF8("ab", 2, out));
        EXPECT_THROW(ZQCSUTF8Converter("no such codeset", nullptr), ZCodesetException);
        unsetenv("QCSDIR");
        EXPECT_THROW(ZQCSUTF8Converter("UTF8", nullptr), ZNoQCSEnvironmentException);
    });
}

TEST(PropertiesCodesetTest, RefusesTextThatDoesNotConvertAndKeepsNoPartOfIt) {
    holdsUnder(eucJp, [] {
        ZStanzaFileProperties properties(1);
        properties.setValue("s", "k", ZUTF8String("日"));
        ZUTF8String const face("\xF0\x9F\x98\x80");
        ZArrayList list(1, 0);
        list.add(const_cast<ZUTF8String*>(&face));
        EXPECT_THROW(properties.setValue("s", "k", face, 0), ZFromUTF8Exception);
        EXPECT_THROW(properties.setValue("s", "k", ZUTF8ConstString(face), 1), ZFromUTF8Exception);
        EXPECT_THROW(properties.addValues("s", "k", list), ZFromUTF8Exception);
        properties.addValue("s", "k", "bad \xff text");
        EXPECT_EQ(valuesOf(properties, "s", "k"), (Texts{"\xC6\xFC", "bad \xff text"}));
        ZArrayList values(1, 1);
        EXPECT_THROW(properties.getValues("s", "k", values, zpropUTF8), ZToUTF8Exception);
        EXPECT_EQ(values.size(), 0U);
    });
}

}  // namespace
