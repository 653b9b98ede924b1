#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "Z/ZBuffer.h"
#include "Z/ZException.h"
#include "Z/ZLCConstString.h"
#include "Z/ZLCString.h"
#include "Z/ZQCSUTF8Converter.h"
#include "Z/ZStringTokenizer.h"
#include "Z/ZUTF8ConstString.h"
#include "Z/ZUTF8String.h"
#include "support/strings.h"

namespace {

using testsupport::bytesOf;
using testsupport::checkString;
using testsupport::holdsUnder;

// Nothing in this process uses the library: every body runs in a child with a codeset of its own.
constexpr char latin1[] = "en_US.ISO8859-1";
constexpr char shiftJis[] = "ja_JP.SJIS";
constexpr char eucJp[] = "ja_JP.eucJP";

TEST(StringCodesetTest, ConvertsBetweenTheFamilies) {
    struct {
        const char *locale, *local, *utf8;
    } const rows[] = {
        {latin1, "a\xE9z", "a\xC3\xA9z"},
        {shiftJis, "\x83\x5C\xB1!", "\xE3\x82\xBD\xEF\xBD\xB1!"},
        {eucJp, "\xC6\xFC\x8F\xB0\xA1", "\xE6\x97\xA5\xE4\xB8\x82"},
        {"C.UTF-8", "a\xC3\xA9z", "a\xC3\xA9z"},
        {"C", "abc", "abc"},
    };
    for (auto const& row : rows) {
        EXPECT_TRUE(holdsUnder(row.locale, [&] {
            ZLCString const local(row.local);
            ZUTF8String const utf8(row.utf8);
            EXPECT_STREQ(ZUTF8String(local), row.utf8);
            EXPECT_STREQ(ZLCString(utf8), row.local);
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
        })) << row.locale;
    }
}

TEST(StringCodesetTest, ReservesByTheLengthOfTheSource) {
    EXPECT_TRUE(holdsUnder(latin1, [] {
        std::string const text(100, '\xE9');
        ZLCString const local(text.c_str());
        ZUTF8String const utf8(local);
        EXPECT_EQ(utf8.getCapacity(), 301U);
        EXPECT_EQ(utf8.getLength(), 200U);
        ZLCString const back(utf8);
        EXPECT_EQ(back.getCapacity(), 401U);
        EXPECT_EQ(bytesOf(back), text);
        checkString(utf8);
        checkString(back);
    }));
}

TEST(StringCodesetTest, IsEmptyWhereNothingComesOver) {
    EXPECT_TRUE(holdsUnder(latin1, [] {
        ZLCString string("before");
        string.convertFromCodeSet(ZUTF8String());
        EXPECT_STREQ(string, "before");
        for (const char* const text : {"euro €", "broken \xC3", ""}) {
            string = "before";
            string = ZUTF8String(text);
            EXPECT_STREQ(string, "");
            EXPECT_STREQ(ZLCString(ZUTF8ConstString(text)), "");
            // What is not converted is still something else than an empty string.
            EXPECT_EQ(string.compare(ZUTF8String(text)) == 0, *text == '\0');
        }
        EXPECT_NE(ZUTF8String("euro €").compare(ZLCString("euro ")), 0);
    }));
}

TEST(StringCodesetTest, ConvertsAViewOfItsOwnText) {
    EXPECT_TRUE(holdsUnder(latin1, [] {
        std::string const text(60, '\xE9');
        ZUTF8String string(text.c_str());  // not UTF-8 at all
        ZLCConstString const view(string.getChars());
        string = view;
        EXPECT_EQ(string.getCharCount(), 60);
        checkString(string);
    }));
}

TEST(StringCodesetTest, KeptAViewRefusesAnotherCodesetSilently) {
    EXPECT_TRUE(holdsUnder(latin1, [] {
        ZLCConstString view("kept");
        ZAbstractString& unknown = view;
        unknown = ZUTF8ConstString("other");
        EXPECT_STREQ(view, "kept");
        EXPECT_EQ(view.getLength(), 4U);
    }));
}

TEST(StringCodesetTest, IsSetUpByFirstStringsOfSeveralThreads) {
    EXPECT_TRUE(holdsUnder(latin1, [] {
        std::vector<std::thread> threads;
        threads.reserve(8);
        for (int i = 0; i < 8; ++i) {
            threads.emplace_back([] { EXPECT_STREQ(ZLCString(ZUTF8String("\xC3\xA9")), "\xE9"); });
        }
        for (auto& thread : threads)
            thread.join();
    }));
}

struct EditRow {
    const char *locale, *before;
    std::function<void(ZLCString&)> edit;
    const char* after;
};

TEST(StringCodesetTest, EditsByWholeCharacters) {
    using S = ZLCString&;
    // In Shift_JIS, 83 5C is one character whose second byte is a backslash; 81 40 is a blank that
    // is no single byte, 83 41 a character that ends in "A".
    EditRow const rows[] = {
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
        EXPECT_TRUE(holdsUnder(row.locale, [&] {
            ZLCString string(row.before);
            row.edit(string);
            EXPECT_EQ(bytesOf(string), row.after);
        })) << (&row - rows);
    }
}

TEST(StringCodesetTest, FindsTheLastByteByWalkingOverCharacters) {
    EXPECT_TRUE(holdsUnder(shiftJis, [] {
        EXPECT_EQ(ZLCString("a/\x83\x5C/b").lastIndexOf('/'), 4);
        EXPECT_EQ(ZLCString("a/\x83\x5C").lastIndexOf(0), 4);
    }));
    EXPECT_TRUE(holdsUnder(latin1, [] {
        EXPECT_EQ(ZLCString("\xE9-\xE9").lastIndexOf(0xE9), 2);
        EXPECT_EQ(ZUTF8String("\xC3\xA9-\xC3\xA9").lastIndexOf(0xC3), 3);
    }));
}

TEST(StringCodesetTest, SplitsInTheCodesetOfTheSource) {
    EXPECT_TRUE(holdsUnder(shiftJis, [] {
        ZLCString const source("a\x83\\z\\c");
        ZLCString token;
        ZStringTokenizer tokens(source, token, ZUTF8String("\\"));
        EXPECT_STREQ(*tokens.getNext(), "a\x83\\z");
        EXPECT_STREQ(*tokens.getNext(), "c");
        ZUTF8String other;
        EXPECT_THROW(ZStringTokenizer(source, other), ZUnsupportedException);
        EXPECT_THROW(ZStringTokenizer(source, token, ZUTF8String("\xF0\x9F\x98\x80")),
                     ZFromUTF8Exception);
    }));
}

/// What a conversion leaves in a new buffer.
std::string converted(ZQCSUTF8Converter& converter,
                      void (ZQCSUTF8Converter::*conversion)(const char*, ZBuffer&),
                      const char* text) {
    ZBuffer out;
    (converter.*conversion)(text, out);
    return {static_cast<const char*>(out.getBuffer()), out.getLength()};
}

TEST(Utf8ConverterTest, ConvertsWithTheTerminatingNul) {
    EXPECT_TRUE(holdsUnder(eucJp, [] {
        auto const toUtf8 = &ZQCSUTF8Converter::convertToUTF8;
        auto const toLocal = &ZQCSUTF8Converter::convertToLocal;
        ZQCSUTF8Converter latin("ISO8859-1", nullptr);
        EXPECT_STREQ(latin.getLocalCodeSet(), "ISO8859-1");
        EXPECT_EQ(converted(latin, toUtf8, "\xE9!"), std::string("é!\0", 4));
        EXPECT_EQ(converted(latin, toLocal, "é!"), std::string("\xE9!\0", 3));
        EXPECT_EQ(converted(latin, toUtf8, nullptr), std::string(1, '\0'));
        EXPECT_EQ(converted(latin, toLocal, "€").size(), 7U) << "reserved, nothing converted";
        ZQCSUTF8Converter environments(nullptr, getenv("QCSDIR"));
        EXPECT_STREQ(environments.getLocalCodeSet(), "EUC-JP");
        EXPECT_EQ(converted(environments, toUtf8, "\xC6\xFC"), std::string("日\0", 4));
        ZQCSUTF8Converter none;
        EXPECT_STREQ(none.getLocalCodeSet(), "");
        EXPECT_EQ(converted(none, toUtf8, "ab").size(), 7U);
        EXPECT_THROW(ZQCSUTF8Converter("no such codeset", nullptr), ZCodesetException);
    }));
}

TEST(Utf8ConverterTest, NeedsTheDataDirectory) {
    EXPECT_TRUE(holdsUnder("C.UTF-8", [] {
        unsetenv("QCSDIR");
        EXPECT_THROW(ZQCSUTF8Converter(), ZNoQCSEnvironmentException);
        EXPECT_THROW(ZQCSUTF8Converter("UTF8", nullptr), ZNoQCSEnvironmentException);
    }));
}

}  // namespace
