#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <string_view>

#include "Z/ZException.h"
#include "Z/ZGetLocale.h"
#include "Z/ZLCConstString.h"
#include "Z/ZLCString.h"
#include "Z/ZUTF8ConstString.h"
#include "Z/ZUTF8String.h"
#include "support/strings.h"

namespace {

/// Every test runs for the four classes.
template <class String>
class StringReadTest : public testing::Test {};
using Classes = testing::Types<ZLCString, ZUTF8String, ZLCConstString, ZUTF8ConstString>;
TYPED_TEST_SUITE(StringReadTest, Classes, );  // the comma: clang wants an argument for the dots

const char* const none = nullptr;

int sign(int result) { return (result > 0) - (result < 0); }

int offset(std::size_t found) {
    return found == std::string_view::npos ? -1 : static_cast<int>(found);
}

TYPED_TEST(StringReadTest, SearchesAsTheStandardStringDoes) {
    std::mt19937 random(3);
    auto const text = [&](std::size_t most) {
        std::string made(random() % (most + 1), 'a');
        for (char& c : made)
            c = static_cast<char>('a' + random() % 3);
        return made;
    };
    for (int step = 0; step < 2000; ++step) {
        std::string const whole = text(12);
        std::string const part = text(3);
        std::string_view const model(whole);
        SCOPED_TRACE(whole + " / " + part);
        TypeParam const string(whole.c_str());
        auto const from = static_cast<unsigned int>(random() % (whole.size() + 3));
        auto const start = std::min<std::size_t>(from, whole.size());
        const char* const sub = part.c_str();
        EXPECT_EQ(string.indexOf(sub), offset(model.find(part)));
        EXPECT_EQ(string.indexOf(sub, from), offset(model.find(part, start)));
        EXPECT_EQ(string.indexOf('b', from), offset(model.find('b', start)));
        EXPECT_EQ(string.lastIndexOf(sub), offset(model.rfind(part)));
        EXPECT_EQ(string.lastIndexOf('b'), offset(model.rfind('b')));
        EXPECT_EQ(string.contains(sub), model.find(part) != model.npos);
        EXPECT_EQ(string.contains('b'), model.find('b') != model.npos);
        bool const isPrefix = model.substr(0, part.size()) == part;
        EXPECT_EQ(string.beginsWith(sub), isPrefix && !whole.empty());
        bool const isTail =
            part.size() <= whole.size() && model.substr(whole.size() - part.size()) == part;
        EXPECT_EQ(string.endsWith(sub), isTail && !part.empty());
        EXPECT_EQ(string.beginsWith(TypeParam(sub)), string.beginsWith(sub));
        EXPECT_EQ(string.endsWith(TypeParam(sub)), string.endsWith(sub));
    }
}

TYPED_TEST(StringReadTest, AnswersNullArguments) {
    for (const char* const text : {"abc", ""}) {
        TypeParam const string(text);
        EXPECT_FALSE(string.contains(none));
        EXPECT_EQ(string.indexOf(none), -1);
        EXPECT_EQ(string.lastIndexOf(none), -1);
        EXPECT_TRUE(string.beginsWith(none));
        EXPECT_TRUE(string.endsWith(none));
        EXPECT_FALSE(string.equals(none));
        EXPECT_FALSE(string == none);
        EXPECT_EQ(sign(string.compare(none)), *text != '\0');
        EXPECT_EQ(sign(string.compareignorecase(none)), *text != '\0');
    }
}

TYPED_TEST(StringReadTest, FindsANulAtTheEnd) {
    TypeParam const string("abc");
    EXPECT_TRUE(string.contains(0));
    EXPECT_EQ(string.indexOf(0), 3);
    EXPECT_EQ(string.lastIndexOf(0), 3);
    EXPECT_EQ(TypeParam("").lastIndexOf(0), 0);
}

TYPED_TEST(StringReadTest, MeasuresAndHashesItsText) {
    struct {
        const char* text;
        unsigned int bytes;
        int characters;
    } const rows[] = {{"", 0, 0}, {"aé€\xF0\x9F\x98\x80", 10, 4}, {"ab\xC3", 3, 2}};
    for (auto const& row : rows) {
        TypeParam const string(row.text);
        EXPECT_EQ(string.getLength(), row.bytes);
        EXPECT_EQ(string.getCharCount(), row.characters);
        EXPECT_EQ(string.isEmpty(), row.bytes == 0);
    }
    EXPECT_EQ(TypeParam("\xFF").hash(), (5381U * 33) ^ 0xFF);
    EXPECT_EQ(TypeParam("configuration-database").hash(), 374795293U);
}

TYPED_TEST(StringReadTest, ComparesByCollation) {
    const char* const texts[] = {"", "a", "ab", "z", "é"};
    for (std::size_t i = 0; i < 25; ++i) {
        const char* const left = texts[i / 5];
        const char* const right = texts[i % 5];
        TypeParam const a(left);
        TypeParam const b(right);
        int const expected = sign(strcoll(left, right));
        ZObject const& object = b;
        EXPECT_EQ(sign(a.compare(right)), expected);
        EXPECT_EQ(sign(a.compare(b)), expected);
        EXPECT_EQ(sign(a.compare(object)), expected);
        EXPECT_EQ(a < right, expected < 0);
        EXPECT_EQ(left < b, expected < 0);
        EXPECT_EQ(a >= b, expected >= 0);
        EXPECT_EQ(a == b, expected == 0);
        EXPECT_EQ(a != right, expected != 0);
        EXPECT_EQ(left == b, expected == 0);
    }
}

TYPED_TEST(StringReadTest, IgnoresCase) {
    TypeParam const string("aBÄ-Z");
    EXPECT_EQ(string.compareignorecase("Abä-z"), 0);
    EXPECT_EQ(string.compareignorecase(TypeParam("Abä-z")), 0);
    EXPECT_LT(string.compareignorecase("b"), 0);
    struct {
        const char* part;
        bool begins, ends;
    } const rows[] = {{"", false, false},
                      {"ABä", true, false},
                      {"-z", false, true},
                      {"Abä-z", true, true},
                      {"xAbä-z", false, false}};
    for (auto const& row : rows) {
        EXPECT_EQ(string.beginsWithCaseIgnored(TypeParam(row.part)), row.begins) << row.part;
        EXPECT_EQ(string.endsWithCaseIgnored(TypeParam(row.part)), row.ends) << row.part;
    }
    EXPECT_FALSE(TypeParam("").beginsWithCaseIgnored(TypeParam("")));
}

TYPED_TEST(StringReadTest, EqualsStringsOfTheSameBytesAndNothingElse) {
    TypeParam const string("abc");
    std::unique_ptr<ZObject> const copy(string.clone());
    EXPECT_STREQ(dynamic_cast<TypeParam&>(*copy), "abc");
    EXPECT_TRUE(copy->equals(string));
    EXPECT_TRUE(string.equals(ZUTF8ConstString("abc")));
    EXPECT_FALSE(string.equals(ZLCString("abd")));
    EXPECT_FALSE(string.equals(ZLCString("ab")));
    EXPECT_TRUE(TypeParam("").equals(ZLCString()));
    ZOutOfMemoryException const other;
    EXPECT_FALSE(string.equals(other));
    EXPECT_NE(copy->compare(other), 0);
    EXPECT_EQ(copy->compare(other), -other.compare(*copy));
}

TYPED_TEST(StringReadTest, StopsAtAMalformedCharacterWhereItSearchesByCharacters) {
    TypeParam const string("éx\xC3");
    EXPECT_EQ(string.lastIndexOf('x'), 2);
    EXPECT_THROW(static_cast<void>(string.lastIndexOf(0xC3)), ZQCSMBLenException);
}

TEST(StringViewTest, SharesTheTextWithoutCopyingIt) {
    char text[] = "abc";
    ZLCConstString view(text);
    ZLCConstString copy(view);
    EXPECT_EQ(copy.getChars(), text);
    ZLCString string("owned");
    copy = string;
    EXPECT_EQ(copy.getChars(), string.getChars());
    EXPECT_EQ(ZLCConstString(string).getChars(), string.getChars());
    EXPECT_EQ(view.getLength(), 3U);
    text[1] = '\0';
    EXPECT_EQ(view.getLength(), 3U) << "measured once, until it is assigned";
    view = text;
    EXPECT_EQ(view.getLength(), 1U);
    view = none;
    EXPECT_EQ(view.getLength(), 0U);
    EXPECT_STREQ(view, "");
}

TEST(StringViewTest, GivesNewStrings) {
    ZUTF8ConstString const view("abc");
    EXPECT_STREQ(view + "d" + view + ZUTF8String("e"), "abcdabce");
    EXPECT_STREQ(view + view, "abcabc");
    EXPECT_STREQ(view.subString(1), "bc");
    EXPECT_STREQ(view.subString(4, 1), "");
}

TEST(LocaleNameTest, IsTheCanonicalOne) {
    ZUTF8String name("left over");
    EXPECT_EQ(ZGetLocale(name), 0);
    EXPECT_STREQ(name, "C.UTF-8");
}

}  // namespace
