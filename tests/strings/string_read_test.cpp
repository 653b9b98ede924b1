#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <vector>

#include "Z/ZList.h"
#include "support/strings.h"

namespace {

using namespace testsupport;

STRING_SUITE(StringReadTest, StringClasses);

char const* const none = nullptr;

int sign(int result) { return (result > 0) - (result < 0); }
int offset(std::size_t found) { return found == std::string::npos ? -1 : static_cast<int>(found); }

TYPED_TEST(StringReadTest, SearchesAsTheStandardStringDoes) {
    std::mt19937 random(3);
    auto const text = [&](std::size_t most) {
        std::string made(random() % (most + 1), 'a');
        std::generate(made.begin(), made.end(), [&] { return "abc"[random() % 3]; });
        return made;
    };
    for (int step = 0; step < 2000; ++step) {
        // What is behind makes it as long as any block that is searched at once.
        auto const behind = static_cast<std::size_t>(step % 4 == 0 ? step % 301 : 0);
        std::string const whole = text(12) + std::string(behind, 'c');
        std::string const part = text(3);
        std::string_view const model(whole);
        SCOPED_TRACE(whole + " / " + part);
        TypeParam const string(whole.c_str());
        auto const from = static_cast<unsigned int>(random() % (whole.size() + 3));
        auto const start = std::min<std::size_t>(from, whole.size());
        char const* const sub = part.c_str();
        EXPECT_EQ(string.indexOf(sub, from), offset(model.find(part, start)));
        EXPECT_EQ(string.indexOf('b', from), offset(model.find('b', start)));
        EXPECT_EQ(string.lastIndexOf(sub), offset(model.rfind(part)));
        EXPECT_EQ(string.lastIndexOf('b'), offset(model.rfind('b')));
        EXPECT_EQ(string.lastIndexOf(0), offset(whole.size()));
        EXPECT_EQ(string.contains(sub), model.find(part) != model.npos);
        EXPECT_EQ(string.contains('b'), model.find('b') != model.npos);
        bool const isPrefix = model.substr(0, part.size()) == part;
        std::size_t const tail = whole.size() - std::min(part.size(), whole.size());
        EXPECT_EQ(string.beginsWith(TypeParam(sub)), isPrefix && !whole.empty());
        EXPECT_EQ(string.endsWith(TypeParam(sub)), model.substr(tail) == part && !part.empty());
        EXPECT_EQ(bytesOf(string.subString(from)), whole.substr(start));
        EXPECT_EQ(bytesOf(string.subString(from, 3)), whole.substr(start, 3));
        EXPECT_EQ(bytesOf(string + sub + string + none), whole + part + whole);
    }
    TypeParam const string("");
    EXPECT_FALSE(string.contains(none) || string.equals(none) || string == none);
    EXPECT_TRUE(string.beginsWith(none) && string.endsWith(none));
    EXPECT_TRUE(string.indexOf(none) == -1 && string.lastIndexOf(none) == -1);
}

TYPED_TEST(StringReadTest, CountsAndSeeksCharactersAndHashesBytes) {
    EXPECT_EQ(TypeParam("aé€\xF0\x9F\x98\x80").getCharCount(), 4);
    TypeParam const malformed("éx\xC3");
    EXPECT_EQ(malformed.getCharCount(), 2) << "up to what is malformed";
    EXPECT_EQ(malformed.lastIndexOf('x'), 2);
    EXPECT_THROW(static_cast<void>(malformed.lastIndexOf(0xC3)), ZQCSMBLenException);
    EXPECT_EQ(TypeParam("\xFF").hash(), (5381U * 33) ^ 0xFF);
    EXPECT_EQ(TypeParam("configuration-database").hash(), 374795293U);
}

/// The views of the family that a class belongs to.
template <class Class>
using ViewOf = std::conditional_t<std::is_base_of_v<ZLCString, decltype(Class("").subString(0))>,
                                  ZLCConstString, ZUTF8ConstString>;

TYPED_TEST(StringReadTest, ComparesByCollationAndJoins) {
    char const* const texts[] = {"", "a", "ab", "z", "é"};
    for (char const* const left : texts)
        for (char const* const right : texts) {
            TypeParam const a(left);
            TypeParam const b(right);
            auto const string = b.subString(0);
            ViewOf<TypeParam> const view(right);
            int const order = sign(strcoll(left, right));
            ZObject const& object = b;
            for (int const result : {a.compare(object), a.compare(string), a.compare(view),
                                     a.compareignorecase(string), a.compareignorecase(view)})
                EXPECT_EQ(sign(result), order) << left << right;
            EXPECT_TRUE((a < right) == (order < 0) && (left < b) == (order < 0));
            EXPECT_TRUE((a >= b) == (order >= 0) && (a == b) == (order == 0));
            EXPECT_TRUE((a != right) == (order != 0) && (left == b) == (order == 0));
            for (auto const& sum : {a + string, a + view, TypeParam(left) + string,
                                    TypeParam(left) + view, TypeParam(left) + right})
                EXPECT_EQ(bytesOf(sum), std::string(left) + right);
        }
}

TYPED_TEST(StringReadTest, IgnoresCase) {
    TypeParam const string("aBÄ-Z");
    EXPECT_EQ(string.compareignorecase(TypeParam("Abä-z")), 0);
    std::tuple<char const*, bool, bool> const rows[] = {
        {"", 0, 0}, {"ABä", 1, 0}, {"-z", 0, 1}, {"Abä-z", 1, 1}, {"xAbä-z", 0, 0}};
    for (auto const& [part, begins, ends] : rows) {
        EXPECT_EQ(string.beginsWithCaseIgnored(TypeParam(part)), begins) << part;
        EXPECT_EQ(string.endsWithCaseIgnored(TypeParam(part)), ends) << part;
    }
}

TYPED_TEST(StringReadTest, EqualsStringsOfTheSameBytesAndNothingElse) {
    std::unique_ptr<ZObject> const copy(TypeParam("abc").clone());
    EXPECT_STREQ(dynamic_cast<TypeParam&>(*copy), "abc");
    EXPECT_TRUE(copy->equals(ZLCString("abc")) && copy->equals(ZUTF8ConstString("abc")));
    EXPECT_FALSE(copy->equals(ZLCString("abd")) || copy->equals(ZLCString("ab")));
    ZOutOfMemoryException const other;
    EXPECT_FALSE(copy->equals(other));
    EXPECT_NE(copy->compare(other), 0);
    EXPECT_EQ(copy->compare(other), -other.compare(*copy));
}

TEST(StringViewTest, SharesTheTextWithoutCopyingIt) {
    char text[] = "abc";
    ZLCConstString view(text);
    EXPECT_EQ(ZLCConstString(view).getChars(), text);
    ZLCString const string("owned");
    ZLCConstString assigned("");
    assigned = string;
    EXPECT_EQ(assigned.getChars(), string.getChars());
    EXPECT_EQ(ZLCConstString(string).getChars(), string.getChars());
    EXPECT_EQ(view.getLength(), 3U);
    text[1] = '\0';
    EXPECT_EQ(view.getLength(), 3U) << "measured once, until it is assigned";
    EXPECT_EQ((view = text).getLength(), 1U);
    EXPECT_EQ(bytesOf(view = none), "");
}

using Parts = std::vector<std::string>;

template <class Walker>
Parts rest(Walker& walker) {
    Parts parts;
    while (walker.hasMore())
        parts.push_back(bytesOf(*walker.getNext()));
    return parts;
}

STRING_SUITE(StringWalkTest, StringFamilies);

TYPED_TEST(StringWalkTest, YieldsWholeCharacters) {
    TypeParam const source("aé€\xF0\x9F\x98\x80z");
    TypeParam target("left over");
    ZStringIterator iterator(source, target);
    EXPECT_EQ(rest(iterator), (Parts{"a", "é", "€", "\xF0\x9F\x98\x80", "z"}));
    EXPECT_STREQ(*iterator.getNext(), "");
    iterator.reset();
    iterator.getNext();
    std::unique_ptr<ZStringIterator> const copy(iterator.clone());
    EXPECT_EQ(rest(*copy), rest(iterator)) << "a copy goes on from the same place";
    EXPECT_EQ(iterator.findNext(source), nullptr);
}

const struct {
    char const *text, *delimiters;  // null: the default ones
    Parts tokens;
} tokenRows[] = {
    {"  a  bc\t\r\nd\n", nullptr, {"a", "bc", "d"}},
    {" ", nullptr, {}},
    {"a b", "", {"a b"}},
    {"a,b;;c", ",;", {"a", "b", "c"}},
    {"xéyèz", "é", {"x", "yèz"}},
};

TYPED_TEST(StringWalkTest, YieldsTheRunsBetweenDelimiters) {
    for (auto const& row : tokenRows) {
        SCOPED_TRACE(row.text);
        TypeParam const source(row.text);
        TypeParam token("left over");
        auto tokens = row.delimiters == nullptr
                          ? ZStringTokenizer(source, token)
                          : ZStringTokenizer(source, token, TypeParam(row.delimiters));
        EXPECT_EQ(rest(tokens), row.tokens);
        EXPECT_EQ(tokens.getNext(), &token);
        EXPECT_STREQ(token, "");
        tokens.reset();
        ZArrayList list(1, 1);
        std::unique_ptr<ZStringTokenizer>(tokens.clone())->list(list);
        token = "changed";
        Parts listed;
        for (unsigned int i = 0; i < list.size(); ++i)
            listed.push_back(bytesOf(dynamic_cast<TypeParam const&>(*list.get(i))));
        EXPECT_EQ(listed, row.tokens);
    }
}

TYPED_TEST(StringWalkTest, SplitsAsTheStandardStringDoes) {
    std::mt19937 random(6);
    std::string const letters[] = {"a",  "b", "é", std::string(17, 'x'), " ", " ", ",",
                                   "\t", ";", "-"};
    for (std::string const delimiters : {" ", " ,", " \t,;", " \t,;-", "", "é ", "a"})
        for (int step = 0; step < 300; ++step) {
            std::string text;
            for (auto i = random() % 40; i > 0; --i)
                text += letters[random() % std::size(letters)];
            // Bytes of the letter with an accent delimit nothing else here.
            Parts expected;
            for (auto at = text.find_first_not_of(delimiters); at != text.npos;) {
                auto const end = std::min(text.size(), text.find_first_of(delimiters, at));
                expected.push_back(text.substr(at, end - at));
                at = text.find_first_not_of(delimiters, end);
            }
            TypeParam const source(text.c_str());
            TypeParam token;
            ZStringTokenizer tokens(source, token, TypeParam(delimiters.c_str()));
            EXPECT_EQ(rest(tokens), expected) << text << " at " << delimiters;
        }
}

TYPED_TEST(StringWalkTest, TakesOtherDelimitersForOneToken) {
    TypeParam const source("a,b c,d e");
    TypeParam token;
    ZStringTokenizer tokens(source, token);
    EXPECT_STREQ(*tokens.getNext(TypeParam(",")), "a");
    EXPECT_STREQ(*tokens.getNext(), ",b");
    EXPECT_TRUE(tokens.hasMore(TypeParam(" c")));
    EXPECT_EQ(rest(tokens), (Parts{",d", "e"}));
}

TYPED_TEST(StringWalkTest, StaysInFrontOfWhatIsMalformed) {
    for (char const* const text :
         {"x\xC3 z", "x\xC1\x81z", "x\xE0\x81\x81z", "x\x80\x80", "x\xC3"}) {
        TypeParam const source(text);
        TypeParam part;
        ZStringTokenizer tokens(source, part);
        ZStringIterator characters(source, part);
        EXPECT_STREQ(*characters.getNext(), "x");
        for (int attempt = 0; attempt < 2; ++attempt) {
            EXPECT_TRUE(tokens.hasMore() && characters.hasMore());
            EXPECT_THROW(tokens.getNext(), ZQCSMBLenException) << text;
            EXPECT_THROW(characters.getNext(), ZQCSMBLenException) << text;
        }
    }
}

}  // namespace
