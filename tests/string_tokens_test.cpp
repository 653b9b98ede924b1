#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Z/ZException.h"
#include "Z/ZLCConstString.h"
#include "Z/ZLCString.h"
#include "Z/ZList.h"
#include "Z/ZStringIterator.h"
#include "Z/ZStringTokenizer.h"
#include "Z/ZUTF8ConstString.h"
#include "Z/ZUTF8String.h"
#include "support/strings.h"

namespace {

using testsupport::bytesOf;

template <class Walker>
std::vector<std::string> rest(Walker& walker) {
    std::vector<std::string> parts;
    while (walker.hasMore())
        parts.push_back(bytesOf(*walker.getNext()));
    return parts;
}

using Parts = std::vector<std::string>;

TEST(StringIterationTest, YieldsWholeCharacters) {
    for (Parts const& characters :
         {Parts{}, {"a", "b", "c"}, {"é"}, {"a", "€", "\xF0\x9F\x98\x80"}}) {
        std::string text;
        for (auto const& character : characters)
            text += character;
        ZUTF8ConstString const utf8(text.c_str());
        ZLCConstString const local(text.c_str());
        ZUTF8String utf8Target("left over");
        ZLCString localTarget("left over");
        ZStringIterator ofUtf8(utf8, utf8Target);
        ZStringIterator ofLocal(local, localTarget);
        for (auto* const iterator : {&ofUtf8, &ofLocal}) {
            EXPECT_EQ(rest(*iterator), characters) << text;
            EXPECT_STREQ(*iterator->getNext(), "");
            iterator->reset();
            EXPECT_EQ(rest(*iterator), characters) << text;
        }
    }
}

TEST(StringIterationTest, StaysInFrontOfAMalformedCharacter) {
    ZUTF8String const source("a\xC3");
    ZUTF8String target;
    ZStringIterator iterator(source, target);
    EXPECT_STREQ(*iterator.getNext(), "a");
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_TRUE(iterator.hasMore());
        EXPECT_THROW(iterator.getNext(), ZQCSMBLenException);
    }
}

TEST(StringIterationTest, GoesOnInACopyFromTheSamePlace) {
    ZLCString const source("abc");
    ZLCString target;
    ZStringIterator iterator(source, target);
    iterator.getNext();
    std::unique_ptr<ZStringIterator> const copy(iterator.clone());
    EXPECT_EQ(rest(*copy), (Parts{"b", "c"}));
    EXPECT_EQ(rest(iterator), (Parts{"b", "c"}));
}

struct TokenRow {
    const char *text, *delimiters;
    Parts tokens;
};

const TokenRow tokenRows[] = {
    {"  a  bc\t\r\nd\n", nullptr, {"a", "bc", "d"}},
    {"", nullptr, {}},
    {" \n", nullptr, {}},
    {"a b", "", {"a b"}},
    {"a,b;;c", ",;", {"a", "b", "c"}},
    {"xéyèz", "é", {"x", "yèz"}},
};

template <class String>
class TokenizingTest : public testing::Test {};
using Families = testing::Types<ZLCString, ZUTF8String>;
TYPED_TEST_SUITE(TokenizingTest, Families, );  // the comma: clang wants an argument for the dots

TYPED_TEST(TokenizingTest, YieldsTheRunsBetweenDelimiters) {
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
        EXPECT_EQ(rest(tokens), row.tokens);
    }
}

TYPED_TEST(TokenizingTest, StaysInFrontOfATokenWithAMalformedCharacter) {
    TypeParam const source("x y\xC3 z");
    TypeParam token;
    ZStringTokenizer tokens(source, token);
    EXPECT_STREQ(*tokens.getNext(), "x");
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_TRUE(tokens.hasMore());
        EXPECT_THROW(tokens.getNext(), ZQCSMBLenException);
    }
}

TYPED_TEST(TokenizingTest, TakesOtherDelimitersForOneToken) {
    TypeParam const source("a,b c,d e");
    TypeParam token;
    ZStringTokenizer tokens(source, token);
    EXPECT_STREQ(*tokens.getNext(TypeParam(",")), "a");
    EXPECT_STREQ(*tokens.getNext(), ",b");
    EXPECT_TRUE(tokens.hasMore(TypeParam(" c")));
    std::unique_ptr<ZStringTokenizer> const copy(tokens.clone());
    EXPECT_EQ(rest(*copy), (Parts{",d", "e"}));
    EXPECT_EQ(rest(tokens), (Parts{",d", "e"}));
}

TYPED_TEST(TokenizingTest, ListsCopiesOfTheTokensThatAreLeft) {
    TypeParam const source("a b c");
    TypeParam token;
    ZStringTokenizer tokens(source, token);
    tokens.getNext();
    ZArrayList list(1, 1);
    tokens.list(list);
    ASSERT_EQ(list.size(), 2U);
    token = "changed";
    EXPECT_TRUE(list.get(0)->equals(TypeParam("b")));
    EXPECT_TRUE(list.get(1)->equals(TypeParam("c")));
}

}  // namespace
