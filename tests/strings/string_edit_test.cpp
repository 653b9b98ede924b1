// link: static
// wrap: malloc,realloc
#include <climits>
#include <functional>
#include <random>
#include <sstream>

#include "support/faults.h"
#include "support/strings.h"

WRAP(malloc, void*, nullptr, (size_t size), (size))
WRAP(realloc, void*, nullptr, (void* block, size_t size), (block, size))

namespace {

using namespace testsupport;

STRING_SUITE(StringEditTest, StringFamilies);

// What the functions of a row are given.
using S = ZAbstractMutableString&;
char const* const none = nullptr;

const struct {
    char const* before;
    std::function<void(S)> edit;
    char const* after;
} editRows[] = {
    {"abc", [](S s) { s = 'x'; }, "x"},
    {"abc", [](S s) { s.init(); }, ""},
    {"abc", [](S s) { s = none; }, ""},
    {"abc", [](S s) { s.append("de").append('f').append("ghi", 2).append("jk", 9); }, "abcdefghjk"},
    {"abc", [](S s) { s.append(none).append(none, 3).append("x", 0).prepend(none); }, "abc"},
    {"abc", [](S s) { s.insert(4, "x").insert(UINT_MAX, "x").insert(1, none); }, "abc"},
    {"abcdef", [](S s) { s.remove(4, 5).remove(7, 0).remove(2, UINT_MAX); }, "abcdef"},
    {"abcdef", [](S s) { s.trunc(7).trunc(6).trunc(2).trunc(3); }, "ab"},
    {"abcab", [](S s) { s.replaceAll("ac", '-').replaceAll(none, '+'); }, "-b--b"},
    {"abcab", [](S s) { s.replace("", "x").replace(none, "x").replace("b", none); }, "aca"},
    {"abcab", [](S s) { s.replaceAll("ac", none).replaceAll(none, "x").replace('b', 'y'); }, "yy"},
    {"aézé", [](S s) { s.replaceAll("é", "e"); }, "aeze"},
    {"a€éz", [](S s) { s.replaceOther("é", "--"); }, "----é--"},
    {"€€..", [](S s) { s.replaceOther(none, "ab"); }, "abababab"},
    {" \t\n\v\f\ra b \r\n", [](S s) { s.stripLeading(); }, "a b \r\n"},
    {" \n ", [](S s) { s.stripWhiteSpace(); }, ""},
    {"\xC2\xA0x\xC2\x85", [](S s) { s.stripWhiteSpace(); }, "\xC2\xA0x\xC2\x85"},
    {"abc", [](S s) { s.format("%d-%s", 7, "x"); }, "7-x"},
};

TYPED_TEST(StringEditTest, EditsAsDescribed) {
    for (auto const& row : editRows)
        for (unsigned int const capacity : {0U, 200U}) {
            SCOPED_TRACE(testing::Message() << (&row - editRows) << " in " << capacity);
            TypeParam string(row.before);
            string.setCapacity(capacity);
            row.edit(string);
            expectString(string, row.after);
        }
    EXPECT_STREQ(TypeParam("@AZ[`az{BÄz").lower(), "@az[`az{bäz");
    EXPECT_STREQ(TypeParam("@AZ[`az{Bäz").upper(), "@AZ[`AZ{BÄZ");
    TypeParam const elements("acé");
    TypeParam element;
    ZStringIterator iterator(elements, element);
    TypeParam string("abcé");
    string.replaceNoneOf(iterator, "é", "aa");
    EXPECT_STREQ(string, "aabaaé");
    iterator.reset();
    string.replaceNoneOf(iterator, string.getChars() + 5, string.getChars() + 2);
    EXPECT_STREQ(string, "baaébaaébbaaébaaéé");
    iterator.reset();
    EXPECT_STREQ(string.replaceAllOf(iterator, "-"), "b---b---bb---b----");
}

// Every operation that takes text, which may lie in the string itself.
const std::function<void(S, char const*)> textEdits[] = {
    [](S s, char const* text) { s = text; },
    [](S s, char const* text) { s.append(text, 2); },
    [](S s, char const* text) { s.prepend(text); },
    [](S s, char const* text) { s.insert(s.getLength() / 2, text); },
    [](S s, char const* text) { s.replace(text, text + strlen(text) / 2); },
    [](S s, char const* text) { s.replaceAll(text, 'x'); },
    [](S s, char const* text) { s.replaceAll(text + strlen(text) / 2, "-"); },
    [](S s, char const* text) { s.replaceOther(text, "xyz"); },
    [](S s, char const* text) { s.replaceOther("ac", text); },
    [](S s, char const* text) { s.format("%s<%s>", text, s.getChars()); },
    [](S s, char const* text) { s.setChars(ZLCConstString(text)); },
    [](S s, char const* text) { s.convertFromCodeSet(ZUTF8ConstString(text)); },
    [](S s, char const* text) { s += ZLCConstString(text); },
};

TYPED_TEST(StringEditTest, TakesArgumentsOutOfItself) {
    TypeParam string("abc");
    auto& same = string;
    string = same;
    string += same;
    string = string + string;
    string = std::move(same);
    expectString(string, "abcabcabcabc");
    for (std::string const& text : {std::string("abcdefg"), std::string(94, 'b') + "c"})
        for (auto const& edit : textEdits)
            for (std::size_t const offset : {std::size_t{0}, std::size_t{2}, text.size()}) {
                SCOPED_TRACE(testing::Message() << (&edit - textEdits) << " at " << offset);
                TypeParam expected(text.c_str());
                edit(expected, text.c_str() + offset);
                TypeParam own(text.c_str());
                edit(own, own.getChars() + offset);
                expectString(own, bytesOf(expected));
            }
}

void replaceIn(std::string& model, std::string const& from, std::string const& to) {
    for (auto at = model.find(from); at != std::string::npos; at = model.find(from, at + to.size()))
        model.replace(at, from.size(), to);
}

TYPED_TEST(StringEditTest, AgreesWithTheStandardStringOverManyEdits) {
    std::mt19937 random(20240229);
    auto const below = [&](std::size_t n) { return static_cast<unsigned int>(random() % n); };
    TypeParam string;
    std::string model;
    for (int step = 0; step < 6000; ++step) {
        std::string const piece(below(40), static_cast<char>('a' + below(3)));
        std::string from;
        do
            from += static_cast<char>('a' + below(3));
        while (below(3) != 0);
        auto const at = below(model.size() + 1);
        auto const count = below(model.size() - at + 1);
        char const* const text = piece.c_str();
        std::function<void()> const edits[] = {
            [&] { string.append(text), model += piece; },
            [&] { string.insert(at, text), model.insert(at, piece); },
            [&] { string.trunc(at), model.resize(at); },
            [&] { string.remove(at, count), model.erase(at, count ? count : model.size()); },
            [&] { string.replace(from.c_str(), "ba"), replaceIn(model, from, "ba"); },
            [&] { string.replace(from.c_str(), ""), replaceIn(model, from, ""); },
        };
        edits[below(std::size(edits))]();
        expectString(string, model);
        ASSERT_FALSE(testing::Test::HasFailure()) << step;
    }
    model = std::string(30, 'a') + 'x' + std::string(300, 'a');
    string = model.c_str();
    string.replace('x', '\0').replace("aa", "b");  // as strstr(), up to the NUL
    expectString(string, model.replace(0, 31, std::string(15, 'b') + '\0'));
    // More hits than are remembered.
    model.assign(140000, 'a');
    string = model.c_str();
    string.replace("aa", "bcd");
    replaceIn(model, "aa", "bcd");
    expectString(string, model);
}

TYPED_TEST(StringEditTest, IsMadeOfNumbersAndBoundedText) {
    auto const check = [](auto number) {
        TypeParam assigned("something");
        assigned = number;
        EXPECT_EQ(bytesOf(assigned), std::to_string(number));
        EXPECT_EQ(bytesOf(TypeParam(number)), std::to_string(number));
    };
    auto const checkAll = [&](auto... numbers) { (check(numbers), ...); };
    checkAll(42, INT_MIN, UINT_MAX, LONG_MIN, ULONG_MAX);
    char const unterminated[] = {'a', 'b', 'c'};
    EXPECT_STREQ(TypeParam(unterminated, 3), "abc");
    EXPECT_STREQ(TypeParam(none, 5), "");
    TypeParam string('a');
    string.append('\0').append('b');
    EXPECT_EQ(bytesOf(TypeParam(string)), std::string("a\0b", 3)) << "with what a NUL hides";
}

TYPED_TEST(StringEditTest, MovesInsteadOfCopying) {
    for (std::size_t const length : {3U, 300U}) {
        TypeParam source(std::string(length, 'm').c_str());
        char const* const block = source.getChars();
        TypeParam made(std::move(source));
        EXPECT_EQ(made.getChars() == block, length > TypeParam::getDefaultLength());
        TypeParam assigned(std::string(150, 'o').c_str());
        assigned = std::move(made);
        expectString(assigned, std::string(length, 'm'));
        for (auto* const moved : {&source, &made})
            expectString(moved->append("usable again"), "usable again");
    }
}

TYPED_TEST(StringEditTest, GrowsBeyondWhatIsAskedFor) {
    struct Exposed : TypeParam {
        using TypeParam::bump;
    } string;
    string.append(std::string(96, 'x').c_str());
    EXPECT_EQ(string.getCapacity(), 116U);
    string.bump(53, 0);
    EXPECT_EQ(string.getCapacity(), 128U) << "kept: a heap buffer grows though the request fits";
}

TYPED_TEST(StringEditTest, ReadsLines) {
    std::istringstream stream(std::string("\n  a b \r\nl\0 c", 13));
    stream.unsetf(std::ios::skipws);
    TypeParam line("left over");
    for (char const* const text : {"", "  a b ", "", "l", " c", ""}) {
        EXPECT_EQ(&line.readLine(stream), &stream);
        expectString(line, text);
        EXPECT_FALSE(stream.flags() & std::ios::skipws);
    }
    line.readLine(stream, 1);
    EXPECT_TRUE(stream.flags() & std::ios::skipws) << "kept: the flag stays";
    std::istringstream lines("a\r\n\n b\rc");
    std::string read;
    while (line.readNext(lines))
        read += line + "|";
    EXPECT_EQ(read, "a|| b|c|");
    EXPECT_TRUE(line.isEmpty());
}

/// A string that only says how long it is: a length that no test could keep in memory.
struct Claim : ZLCConstString {
    Claim() : ZLCConstString("claimed") {}
    [[nodiscard]] unsigned int getLength() const override { return UINT_MAX; }
};

TYPED_TEST(StringEditTest, KeepsItsTextWhereThereIsNoRoom) {
    std::string const huge(60000000, 'h');
    std::string const big(6000, 'b');
    for (std::string const& before : {std::string(80, 'a') + "z", std::string(200, 'a')}) {
        TypeParam string(before.c_str());
        auto const capacity = string.getCapacity();
        EXPECT_THROW(string.setCapacity(UINT_MAX), ZOutOfMemoryException);
        EXPECT_THROW(string += Claim(), ZOutOfMemoryException);
        EXPECT_THROW(string.setChars(Claim()), ZOutOfMemoryException);
        EXPECT_THROW(string.replace("a", huge.c_str()), ZOutOfMemoryException);
        fault = {"", 1, ENOMEM, everyone};
        string.format("%s", big.c_str());  // changes nothing either
        EXPECT_THROW(string.append(big.c_str()), ZOutOfMemoryException);
        EXPECT_THROW(string.insert(1, big.c_str()), ZOutOfMemoryException);
        EXPECT_THROW(string.replace("a", big.c_str()), ZOutOfMemoryException);
        fault = {};
        EXPECT_EQ(string.getCapacity(), capacity);
        expectString(string, before);
    }
}

TYPED_TEST(StringEditTest, StopsAtMalformedCharactersWhereCharactersCount) {
    EXPECT_THROW(TypeParam("abc").replaceOther("abc\xC3", "x"), ZQCSMBLenException);
    TypeParam string("a\xE2\x82z");
    EXPECT_THROW(string.replaceOther("a", "x"), ZQCSMBLenException);
    EXPECT_THROW(string.replaceAll("\xC3", "x"), ZQCSMBLenException);
    EXPECT_STREQ(string.replace("z", "yy").getChars(), "a\xE2\x82yy");
    ZUTF8String utf8("aé");
    EXPECT_THROW(utf8.replace('\xC3', 'x'), ZInvalidParameterException);
    EXPECT_THROW(utf8.replaceAll("aé", 'x'), ZInvalidParameterException);
}

}  // namespace
