// The process's codesets; strings, conversions and properties in them. Nothing in this process uses
// the library: every body runs in a child with a codeset of its own.
#include <gtest/gtest.h>

#include <array>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

#include "Z/ZBuffer.h"
#include "Z/ZGetLocale.h"
#include "Z/ZMessage.h"
#include "Z/ZQCSUTF8Converter.h"
#include "Z/zqcsutil.h"
#include "support/processes.h"
#include "support/properties.h"
#include "support/strings.h"

namespace {

using namespace testsupport;
using Body = std::function<void()>;

constexpr char latin1[] = "en_US.ISO8859-1";
constexpr char shiftJis[] = "ja_JP.SJIS";
constexpr char eucJp[] = "ja_JP.eucJP";

/// Runs expectations in a child whose environment names `locale`, and `directory` as the data
/// directory unless it is null.
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
                      {"xx_XX.eucJP", "xx_XX.EUC-JP", "EUC-JP", 3},
                      {"xx_XX", "xx_XX", "US-ASCII", 1}};
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

TEST(NoCodesetTest, IsReportedOnceAndAborts) {
    constexpr char noDirectory[] = "The QCSDIR environment variable is not set.";
    auto const aborts = [](char const* locale, char const* directory, std::string const& exception,
                           std::string const& message, Body const& body) {
        auto const child = inLocale(locale, directory, body);
        auto const at = child.err.find("Exception: " + exception + "\n File: \"src/Z/zqcsutil\" ");
        EXPECT_EQ(child.status, -SIGABRT);
        EXPECT_EQ(child.err.find("Exception: "), at) << child.err;
        EXPECT_EQ(child.err.rfind("Exception: "), at) << child.err;
        EXPECT_LT(at, child.err.find(message)) << child.err;
        EXPECT_NE(child.err.find(message), std::string::npos) << child.err;
    };
    Body const uses[] = {[] { zgetLCSHandle(); }, [] { zgetUTF8Handle(); }, [] { zlcs_mb_max(); },
                         [] { ZLCString("text").append('x'); }};
    for (auto const& use : uses) {
        aborts("C.UTF-8", nullptr, "ZNoQCSEnvironmentException", noDirectory, use);
        aborts("xx_XX.UTF-16", "/some/dir", "ZCodesetException",
               "Codeset handle create failed for codeset \"UTF-16\".  QCSDIR is \"/some/dir\"",
               use);
    }
    aborts("xx_XX.a-codeset-whose-name-is-beyond-all-measure", "/tmp", "ZCodesetException",
           "Codeset handle create failed for codeset \"\".  QCSDIR is \"/tmp\"",  // without it
           uses[0]);
}

/// A service that works with strings while it reports.
class StringyService : public ZDefaultMessageService {
  public:
    void outputException(ZZException const* e, va_list) const override {
        ZLCString text("report of ");
        text.append(e->getName()).upper();
        fprintf(stderr, "%s: %u\n", text.getChars(), zgetLCSHandle());
    }
};

TEST(NoCodesetTest, NameGettersReportByWayOfStringsAndReturnNullAndNothingIsConverted) {
    for (char const* const directory : {static_cast<char const*>(nullptr), "/tmp"}) {
        auto const child = inLocale("xx_XX.nosuchset", directory, [] {
            static StringyService const service;
            ZMessageService::setMessageService(&service);
            std::array<char, 4> room{};
            for (auto* const convert : {zlcs_to_utf8, zlcs_from_utf8}) {
                EXPECT_EQ(convert("a", 1, room.data(), 0), 0);
                EXPECT_EQ(convert("a", 0, room.data(), 4), 0);
                EXPECT_EQ(convert(nullptr, 1, room.data(), 4), 0);
                EXPECT_EQ(convert("a", 1, nullptr, 4), 0);
            }
            zset_cs_dir("/tmp");  // does not stand in for the environment's
            EXPECT_EQ(zgetLocalCodesetName(), nullptr);
            EXPECT_EQ(zgetlocale(), nullptr);
        });
        EXPECT_EQ(child.status, 0) << child.out;
        std::string const name = directory == nullptr ? "ZNoQCSEnvironment" : "ZCodeset";
        std::string const report = "report of " + name + "Exception: 0\n";
        EXPECT_EQ(child.err, report + report) << "each call reports";
    }
}

TEST(LocalCodesetTest, ConvertsWithinItsRoomAndTakesEveryByteForACharacter) {
    holdsUnder("xx_XX.ISO8859-15", [] {
        std::array<char, 8> room{};
        EXPECT_EQ(zlcs_to_utf8("\xA4", 2, room.data(), 8), 4);
        EXPECT_STREQ(room.data(), "€");
        EXPECT_EQ(zlcs_from_utf8("€", 4, room.data(), 2), 2);
        EXPECT_STREQ(room.data(), "\xA4");
        EXPECT_EQ(zlcs_from_utf8("日", 3, room.data(), 8), -1);
        EXPECT_EQ(zlcs_to_utf8("\xA4\xA4", 2, room.data(), 5), -1);
    });
    holdsUnder("C", [] {
        ZCodesetHandle const local = zgetLCSHandle();
        EXPECT_EQ(zmblen(local, "\xE9", 1), 1);
        EXPECT_EQ(zmblen(local, "", 1) + zmblen(local, "a", 0), 0);
        EXPECT_EQ(zstrcount(local, "café!"), 6);
        EXPECT_EQ(zmblen(zgetUTF8Handle(), "\xE9", 1), -1);
    });
}

TEST(StringCodesetTest, ConvertsBetweenTheFamilies) {
    struct {
        char const *locale, *local, *utf8;
    } const rows[] = {
        {latin1, "a\xE9z", "a\xC3\xA9z"},
        {shiftJis, "\x83\x5C\xB1!", "\xE3\x82\xBD\xEF\xBD\xB1!"},
        {eucJp, "\xC6\xFC\x8F\xB0\xA1", "\xE6\x97\xA5\xE4\xB8\x82"},
        {"C.UTF-8", "a\xC3\xA9z", "a\xC3\xA9z"},
        {"C", "abc", "abc"},
    };
    for (auto const& row : rows) {
        holdsUnder(row.locale, [&] {
            std::array<std::thread, 8> threads;  // their first strings set the codesets up
            for (auto& thread : threads)
                thread =
                    std::thread([&] { EXPECT_STREQ(ZLCString(ZUTF8String(row.utf8)), row.local); });
            for (auto& thread : threads)
                thread.join();
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
}

TEST(StringCodesetTest, ReservesByTheLengthOfTheSourceAndIsEmptyWhereNothingComesOver) {
    holdsUnder(latin1, [] {
        std::string const text(100, '\xE9');
        ZUTF8String const utf8(ZLCString(text.c_str()));
        EXPECT_EQ(utf8.getCapacity(), 301U);
        EXPECT_EQ(utf8.getLength(), 200U);
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
        EXPECT_NE(ZUTF8String("euro €").compare(ZLCString("euro ")), 0);
    });
    holdsUnder(eucJp, [] { EXPECT_NE(ZUTF8String().compare(ZLCString("\xFF")), 0); });
}

TEST(StringCodesetTest, EditsByWholeCharacters) {
    using S = ZLCString&;
    // In Shift_JIS, 83 5C is one character whose second byte is a backslash; 81 40 is a blank that
    // is no single byte, 83 41 a character that ends in "A".
    struct {
        char const *locale, *before;
        std::function<void(S)> edit;
        char const* after;
    } const rows[] = {
        {shiftJis, "\x83\\|\\", [](S s) { s.replace("\\", "/"); }, "\x83\\|/"},
        {shiftJis, "A\x83\x41", [](S s) { s.replaceAll("A", "b"); }, "b\x83\x41"},
        {shiftJis, "A\x83\x41", [](S s) { s.replaceOther("A", "-"); }, "A-"},
        {shiftJis, " \x81@x\x81@ ", [](S s) { s.stripWhiteSpace(); }, "\x81@x\x81@"},
        {shiftJis, "ab\x83\x41 ", [](S s) { s.lower().stripTrailing(); }, "ab\x83\x41"},
        {shiftJis, "x\x83 ", [](S s) { s.stripTrailing(); }, "x\x83"},
        {latin1, " \xE9 ", [](S s) { s.upper().stripWhiteSpace(); }, "\xC9"},
        {latin1, "\xE9\xE9", [](S s) { s.replace('\xE9', 'e'); }, "ee"},
        {latin1, "\xC3\xA9", [](S s) { s.replaceAll("\xA9", "z"); }, "\xC3z"},
        {eucJp, " \xA1\xA1x\xA1\xA1 ", [](S s) { s.stripWhiteSpace(); }, "\xA1\xA1x\xA1\xA1"},
    };
    for (auto const& row : rows) {
        holdsUnder(row.locale, [&] {
            ZLCString string(row.before);
            row.edit(string);
            EXPECT_EQ(bytesOf(string), row.after);
        });
    }
}

TEST(StringCodesetTest, SearchesAndSplitsByWholeCharacters) {
    holdsUnder(shiftJis, [] {
        EXPECT_EQ(ZLCString("a/\x83\x5C/b").lastIndexOf('/'), 4);
        EXPECT_EQ(ZLCString("a/\x83\x5C").lastIndexOf(0), 4);
        EXPECT_EQ(ZLCString("").lastIndexOf(0), 0);
        EXPECT_EQ(ZLCString("\x83\x83").lastIndexOf(0x83), 0) << "not the second byte";
        ZLCString const source("a\x83\\z\\c");
        ZLCString token;
        ZStringTokenizer tokens(source, token, ZUTF8String("\\"));
        EXPECT_STREQ(*tokens.getNext(), "a\x83\\z");
        EXPECT_STREQ(*tokens.getNext(), "c");
        ZUTF8String other;
        EXPECT_THROW(ZStringTokenizer(source, other), ZUnsupportedException);
        EXPECT_THROW(ZStringTokenizer(source, token, ZUTF8String("\xF0\x9F\x98\x80")),
                     ZFromUTF8Exception);
    });
    holdsUnder(latin1, [] {
        EXPECT_EQ(ZLCString("\xE9-\xE9").lastIndexOf(0xE9), 2);
        EXPECT_EQ(ZUTF8String("\xC3\xA9-\xC3\xA9").lastIndexOf(0xC3), 3);
    });
}

TEST(Utf8ConverterTest, ConvertsWithTheTerminatingNulAndNeedsTheDataDirectory) {
    holdsUnder(eucJp, [] {
        ZQCSUTF8Converter latin("ISO8859-1", nullptr);
        ZQCSUTF8Converter environments(nullptr, getenv("QCSDIR"));
        ZQCSUTF8Converter none;
        EXPECT_STREQ(latin.getLocalCodeSet(), "ISO8859-1");
        EXPECT_STREQ(environments.getLocalCodeSet(), "EUC-JP");
        EXPECT_STREQ(none.getLocalCodeSet(), "");
        ZBuffer out;
        auto const bytes = [&] {
            return std::string(static_cast<char const*>(out.getBuffer()), out.getLength());
        };
        EXPECT_EQ((latin.convertToUTF8("\xE9!", out), bytes()), std::string("é!\0", 4));
        EXPECT_EQ((latin.convertToLocal("é!", out), bytes()), std::string("\xE9!\0", 3));
        EXPECT_EQ((latin.convertToUTF8(nullptr, out), bytes()), std::string(1, '\0'));
        EXPECT_EQ((environments.convertToUTF8("\xC6\xFC", out), bytes()), std::string("日\0", 4));
        EXPECT_EQ((latin.convertToLocal("€", out), bytes()).size(), 7U) << "reserved";
        EXPECT_EQ((none.convertToUTF8("ab", out), bytes()).size(), 7U);
        EXPECT_THROW(ZQCSUTF8Converter("no such codeset", nullptr), ZCodesetException);
        unsetenv("QCSDIR");
        EXPECT_THROW(ZQCSUTF8Converter(), ZNoQCSEnvironmentException);
        EXPECT_THROW(ZQCSUTF8Converter("UTF8", nullptr), ZNoQCSEnvironmentException);
        EXPECT_STREQ(ZQCSUTF8Converter("UTF8", "/tmp").getLocalCodeSet(), "UTF8");
    });
}

TEST(PropertiesCodesetTest, ConvertsUtf8TextBothWaysAndRefusesWhatTheCodesetLacks) {
    holdsUnder(latin1, [] {
        ZStanzaFileProperties properties(1);
        properties.setValue("s", "k", ZUTF8String("ü"), 0);
        ZUTF8String out;
        properties.getValue("s", "k", out);
        EXPECT_STREQ(out, "ü");
        ZUTF8String const euro("€");
        ZUTF8ConstString const view("€");
        ZArrayList values(1, 0);
        values.add(const_cast<ZUTF8String*>(&euro));
        EXPECT_THROW(properties.setValue("s", "k", euro, 0), ZFromUTF8Exception);
        EXPECT_THROW(properties.setValue("s", "k", view, 1), ZFromUTF8Exception);
        EXPECT_THROW(properties.addValues("s", "k", values), ZFromUTF8Exception);
        EXPECT_EQ(valuesOf(properties, "s", "k"), Texts{"\xFC"});
    });
}

TEST(PropertiesCodesetTest, LeavesNoHalfOfAListBehindMalformedText) {
    holdsUnder(eucJp, [] {
        ZStanzaFileProperties properties(1);
        properties.addValue("s", "k", "good");
        properties.addValue("s", "k", "bad \xff text");
        EXPECT_EQ(valueOf(properties, "s", "k"), "bad \xff text");
        for (int const owned : {0, 1}) {
            ZArrayList values(1, owned);
            EXPECT_THROW(properties.getValues("s", "k", values, zpropUTF8), ZToUTF8Exception);
            EXPECT_EQ(values.size(), 0U);
        }
        ZUTF8String out;
        EXPECT_THROW(properties.getValue("s", "k", out), ZToUTF8Exception);
    });
}

}  // namespace
