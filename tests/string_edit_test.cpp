#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Z/ZException.h"
#include "Z/ZLCConstString.h"
#include "Z/ZLCString.h"
#include "Z/ZStringIterator.h"
#include "Z/ZUTF8ConstString.h"
#include "Z/ZUTF8String.h"
#include "support/strings.h"

namespace {

using testsupport::bytesOf;
using testsupport::checkString;

/// Every test runs for both families.
template <class String>
class StringEditTest : public testing::Test {};
using Families = testing::Types<ZLCString, ZUTF8String>;
TYPED_TEST_SUITE(StringEditTest, Families, );  // the comma: clang wants an argument for the dots

struct EditRow {
    const char* before;
    std::function<void(ZAbstractMutableString&)> edit;
    const char* after;
};

// What the functions of a row are given.
using S = ZAbstractMutableString&;
const char* const none = nullptr;

const EditRow editRows[] = {
    {"abc", [](S s) { s.clear(); }, ""},
    {"abc", [](S s) { s.init(); }, ""},
    {"abc", [](S s) { s.setChars("xy"); }, "xy"},
    {"abc", [](S s) { s.setChars(none); }, ""},
    {"abc", [](S s) { s = 'x'; }, "x"},
    {"abc", [](S s) { s = none; }, ""},
    {"abc", [](S s) { s.append("de").append('f').append("ghi", 2); }, "abcdefgh"},
    {"abc", [](S s) { s.append("de", 9); }, "abcde"},
    {"abc", [](S s) { s.append(none).append(none, 3).append("x", 0); }, "abc"},
    {"abc", [](S s) { (s += 'd') += "ef"; }, "abcdef"},
    {"abc", [](S s) { s.prepend("xy").prepend(none).prepend(""); }, "xyabc"},
    {"abc", [](S s) { s.insert(0, "x").insert(2, "y").insert(5, "z"); }, "xaybcz"},
    {"abc", [](S s) { s.insert(4, "x").insert(UINT_MAX, "x").insert(1, none); }, "abc"},
    {"abcdef", [](S s) { s.remove(3, 0); }, "abc"},
    {"abcdef", [](S s) { s.remove(4, 5); }, "abcdef"},
    {"abcdef", [](S s) { s.remove(4, 2); }, "abcd"},
    {"abcdef", [](S s) { s.remove(0, 2); }, "cdef"},
    {"abcdef", [](S s) { s.remove(7, 0); }, "abcdef"},
    {"abcdef", [](S s) { s.remove(2, UINT_MAX); }, "abcdef"},
    {"abcdef", [](S s) { s.trunc(6).trunc(2).trunc(3); }, "ab"},
    {"abcab", [](S s) { s.replace('a', 'x'); }, "xbcxb"},
    {"abcab", [](S s) { s.replaceAll("ac", '-'); }, "-b--b"},
    {"abcab", [](S s) { s.replaceAll(none, '-').replaceAll("", '-'); }, "abcab"},
    {"abcab", [](S s) { s.replace("ab", "x"); }, "xcx"},
    {"abcab", [](S s) { s.replace("ab", "abab"); }, "ababcabab"},
    {"aaaaa", [](S s) { s.replace("aa", "b"); }, "bba"},
    {"abcab", [](S s) { s.replace("b", ""); }, "aca"},
    {"abcab", [](S s) { s.replace("b", none); }, "aca"},
    {"abcab", [](S s) { s.replace("", "x").replace(none, "x").replace("y", "x"); }, "abcab"},
    {"abcab", [](S s) { s.replaceAll("ac", "xy"); }, "xybxyxyb"},
    {"abcab", [](S s) { s.replaceAll("ac", none); }, "bb"},
    {"abcab", [](S s) { s.replaceAll("", "x").replaceAll(none, "x"); }, "abcab"},
    {"a\xC3\xA9z\xC3\xA9", [](S s) { s.replaceAll("\xC3\xA9", "e"); }, "aeze"},
    {"abcab", [](S s) { s.replaceOther("ab", "xy"); }, "abxyab"},
    {"abcab", [](S s) { s.replaceOther("", "b"); }, "bbbbb"},
    {"xyx", [](S s) { s.replaceOther(none, "xx"); }, "xxxxxx"},
    {"a\xE2\x82\xAC\xC3\xA9z", [](S s) { s.replaceOther("\xC3\xA9", "--"); }, "----\xC3\xA9--"},
    {"\xE2\x82\xAC\xE2\x82\xAC..", [](S s) { s.replaceOther("", "ab"); }, "abababab"},
    {"..\xE2\x82\xAC\xE2\x82\xAC", [](S s) { s.replaceOther("", "ab"); }, "abababab"},
    {" \t\n\v\f\ra b \r\n", [](S s) { s.stripLeading(); }, "a b \r\n"},
    {"\r\n a b \t\n\v\f\r ", [](S s) { s.stripTrailing(); }, "\r\n a b"},
    {"  a b  ", [](S s) { s.stripWhiteSpace(); }, "a b"},
    {"ab", [](S s) { s.stripWhiteSpace(); }, "ab"},
    {" \n ", [](S s) { s.stripWhiteSpace(); }, ""},
    {"\xC2\xA0x\xC2\x85", [](S s) { s.stripWhiteSpace(); }, "\xC2\xA0x\xC2\x85"},
    {"aB\xC3\x84z", [](S s) { s.lower(); }, "ab\xC3\xA4z"},
    {"aB\xC3\xA4z", [](S s) { s.upper(); }, "AB\xC3\x84Z"},
    {"abc", [](S s) { s.format("%d-%s", 7, "x"); }, "7-x"},
    {"abc", [](S s) { s.format("%s", ""); }, ""},
    {"abc", [](S s) { s.format(nullptr); }, "abc"},
    {"abc", [](S s) { s.format("%y"); }, "abc"},
};

TYPED_TEST(StringEditTest, EditsAsDescribed) {
    for (auto const& row : editRows) {
        for (unsigned int const capacity : {0U, 200U}) {
            SCOPED_TRACE(testing::Message() << (&row - editRows) << " in " << capacity);
            TypeParam string(row.before);
            string.setCapacity(capacity);
            row.edit(string);
            EXPECT_EQ(bytesOf(string), row.after);
            checkString(string);
        }
    }
}

TYPED_TEST(StringEditTest, LowersAndRaisesByItsOwnClassToo) {
    TypeParam string("aB\xC3\x84z");
    EXPECT_STREQ(string.lower().getChars(), "ab\xC3\xA4z");
    EXPECT_STREQ(string.upper().getChars(), "AB\xC3\x84Z");
}

// Arguments of every editing operation may lie in the string itself.
const std::vector<std::function<void(S, const char*)>> textEdits = {
    [](S s, const char* text) { s.setChars(text); },
    [](S s, const char* text) { s = text; },
    [](S s, const char* text) { s.append(text); },
    [](S s, const char* text) { s.append(text, 2); },
    [](S s, const char* text) { s += text; },
    [](S s, const char* text) { s.prepend(text); },
    [](S s, const char* text) { s.insert(1, text); },
    [](S s, const char* text) { s.insert(s.getLength() / 2, text); },
    [](S s, const char* text) { s.replace(text, "xyz"); },
    [](S s, const char* text) { s.replace("b", text); },
    [](S s, const char* text) { s.replace(text, text + strlen(text) / 2); },
    [](S s, const char* text) { s.replaceAll(text, 'x'); },
    [](S s, const char* text) { s.replaceAll("cb", text); },
    [](S s, const char* text) { s.replaceAll(text + strlen(text) / 2, "-"); },
    [](S s, const char* text) { s.replaceOther(text, "xyz"); },
    [](S s, const char* text) { s.replaceOther("ac", text); },
    [](S s, const char* text) { s.format("%s<%s>", text, s.getChars()); },
    [](S s, const char* text) { s.setChars(ZLCConstString(text)); },
    [](S s, const char* text) { s.convertFromCodeSet(ZUTF8ConstString(text)); },
    [](S s, const char* text) { s += ZLCConstString(text); },
};

TYPED_TEST(StringEditTest, TakesArgumentsOutOfItself) {
    for (std::size_t const length : {7U, 94U, 95U, 96U}) {
        std::string text;
        while (text.size() < length)
            text += static_cast<char>('a' + text.size() % 7);
        for (std::size_t edit = 0; edit < textEdits.size(); ++edit) {
            for (std::size_t const offset : {std::size_t{0}, std::size_t{2}, length - 1, length}) {
                SCOPED_TRACE(testing::Message() << edit << " at " << offset << " of " << length);
                TypeParam expected(text.c_str());
                textEdits[edit](expected, text.c_str() + offset);
                TypeParam own(text.c_str());
                textEdits[edit](own, own.getChars() + offset);
                EXPECT_EQ(bytesOf(own), bytesOf(expected));
                checkString(own);
            }
        }
    }
}

TYPED_TEST(StringEditTest, IsAssignedAndAddedToItself) {
    TypeParam string("abc");
    auto& same = string;
    string = same;
    EXPECT_STREQ(string, "abc");
    string += same;
    string = string + string;
    EXPECT_STREQ(string, "abcabcabcabc");
    string = std::move(same);
    EXPECT_STREQ(string, "abcabcabcabc");
    checkString(string);
}

// std::string is the oracle for long sequences of edits.
TYPED_TEST(StringEditTest, AgreesWithTheStandardStringOverManyEdits) {
    std::mt19937 random(20240229);
    auto const below = [&](std::size_t n) { return static_cast<unsigned int>(random() % n); };
    TypeParam string;
    std::string model;
    for (int step = 0; step < 4000; ++step) {
        std::string const piece(below(40), static_cast<char>('a' + below(3)));
        auto const at = below(model.size() + 1);
        auto const count = below(model.size() - at + 1);
        switch (below(6)) {
            case 0:
                string.append(piece.c_str());
                model += piece;
                break;
            case 1:
                string.insert(at, piece.c_str());
                model.insert(at, piece);
                break;
            case 2:
                string.prepend(piece.c_str());
                model.insert(0, piece);
                break;
            case 3:
                string.trunc(at > 300 ? 300 : at);
                model.resize(at > 300 ? 300 : at);
                break;
            case 4:
                string.remove(at, count);
                model.erase(at, count == 0 ? std::string::npos : count);
                break;
            default:
                string += 'x';
                model += 'x';
        }
        ASSERT_EQ(bytesOf(string), model) << step;
        checkString(string);
    }
}

TYPED_TEST(StringEditTest, ReplacesAsTheStandardStringWould) {
    std::mt19937 random(7);
    auto const text = [&](std::size_t most) {
        std::string made(random() % (most + 1), 'a');
        for (char& c : made)
            c = static_cast<char>('a' + random() % 2);
        return made;
    };
    for (int step = 0; step < 2000; ++step) {
        std::string model = text(150);
        std::string const from = text(2) + "a";
        std::string const to = text(4);
        TypeParam string(model.c_str());
        string.replace(from.c_str(), to.c_str());
        for (auto at = model.find(from); at != std::string::npos;
             at = model.find(from, at + to.size()))
            model.replace(at, from.size(), to);
        ASSERT_EQ(bytesOf(string), model) << from << " by " << to;
        checkString(string);
    }
}

TYPED_TEST(StringEditTest, IsMadeOfAndAssignedNumbers) {
    auto const check = [](auto number) {
        TypeParam const made(number);
        TypeParam assigned("something");
        assigned = number;
        EXPECT_EQ(bytesOf(made), std::to_string(number));
        EXPECT_EQ(bytesOf(assigned), std::to_string(number));
        checkString(made);
    };
    for (int const number : {0, -1, 42, INT_MAX, INT_MIN})
        check(number);
    for (unsigned int const number : {0U, UINT_MAX})
        check(number);
    for (long const number : {0L, LONG_MAX, LONG_MIN})
        check(number);
    for (unsigned long const number : {0UL, ULONG_MAX})
        check(number);
}

TYPED_TEST(StringEditTest, IsMadeOfTextUpToAMaximum) {
    struct {
        const char* text;
        unsigned int most;
        const char* made;
    } const rows[] = {{"abc", 2, "ab"}, {"abc", 9, "abc"}, {"abc", 0, ""}, {nullptr, 5, ""}};
    for (auto const& row : rows)
        EXPECT_STREQ(TypeParam(row.text, row.most), row.made);
    char const unterminated[] = {'a', 'b', 'c'};
    EXPECT_STREQ(TypeParam(unterminated, 3), "abc");
    EXPECT_STREQ(TypeParam('x'), "x");
    EXPECT_STREQ(TypeParam(none), "");
}

TYPED_TEST(StringEditTest, GivesPartsOfItself) {
    TypeParam const string("abcdef");
    struct {
        unsigned int start, count;
        const char* part;
    } const rows[] = {{0, 6, "abcdef"}, {2, 3, "cde"},     {4, 9, "ef"},
                      {6, 1, ""},       {9, UINT_MAX, ""}, {1, UINT_MAX, "bcdef"}};
    for (auto const& row : rows)
        EXPECT_STREQ(string.subString(row.start, row.count), row.part);
    EXPECT_STREQ(string.subString(2), "cdef");
    EXPECT_STREQ(string.subString(7), "");
}

TYPED_TEST(StringEditTest, JoinsStringsLeavingTheOperandsAlone) {
    TypeParam const a("a");
    std::string const filler(100, 'x');
    TypeParam const joined = a + "b" + a + filler.c_str() + none;
    EXPECT_EQ(bytesOf(joined), "aba" + filler);
    EXPECT_STREQ(a, "a");
    checkString(joined);
}

/// Moves the content on, however it is kept; the source is empty and usable.
TYPED_TEST(StringEditTest, MovesInsteadOfCopying) {
    for (std::size_t const length : {3U, 300U}) {
        std::string const text(length, 'm');
        TypeParam source(text.c_str());
        const char* const block = source.getChars();
        TypeParam made(std::move(source));
        EXPECT_EQ(made.getChars() == block, length > TypeParam::getDefaultLength());
        EXPECT_STREQ(source.getChars(), "");  // NOLINT(bugprone-use-after-move): what is tested
        checkString(source);
        TypeParam assigned(std::string(150, 'o').c_str());
        assigned = std::move(made);
        EXPECT_EQ(bytesOf(assigned), text);
        checkString(assigned);
        checkString(made);  // NOLINT(bugprone-use-after-move): what is tested
        made = "again";
        EXPECT_STREQ(made, "again");
    }
}

template <class String>
struct Exposed : String {
    using String::bump;
    using String::String;
};

TYPED_TEST(StringEditTest, GrowsByTheFixedSteps) {
    std::string const full(95, 'x');
    TypeParam string(full.c_str());
    EXPECT_EQ(string.getCapacity(), 95U);
    string.append('x');
    EXPECT_EQ(string.getCapacity(), 116U);
    string.append(std::string(20, 'x').c_str());
    EXPECT_EQ(string.getCapacity(), 116U);
    string += "x";
    EXPECT_EQ(string.getCapacity(), 141U);
    checkString(string);

    TypeParam exact;
    EXPECT_EQ(exact.setCapacity(95), 95U);
    EXPECT_EQ(exact.setCapacity(200), 200U);
    EXPECT_EQ(exact.setCapacity(100), 200U);
    checkString(exact);
    exact.clear();
    EXPECT_EQ(exact.getCapacity(), 200U);
    exact.init();
    EXPECT_EQ(exact.getCapacity(), 95U);
    checkString(exact);
}

TYPED_TEST(StringEditTest, KeptAHeapBufferGrowsEvenWhenTheRequestFits) {
    Exposed<TypeParam> string("abc");
    EXPECT_EQ(string.bump(90, 0), string.getChars());
    EXPECT_EQ(string.getCapacity(), 95U);
    string.setCapacity(200);
    string.bump(53, 0);
    EXPECT_EQ(string.getCapacity(), 212U);
    string.bump(53, 1);
    EXPECT_EQ(string.getCapacity(), 212U);
    EXPECT_STREQ(string.getChars(), "abc");
    checkString(string);
}

struct LineRow {
    std::string input;
    std::vector<std::string> lines;
};

TYPED_TEST(StringEditTest, ReadsLines) {
    LineRow const rows[] = {
        {"", {}},
        {"a", {"a"}},
        {"a\nb\n", {"a", "b"}},
        {"\n\nx", {"", "", "x"}},
        {"a\r\nb", {"a", "", "b"}},
        {"  a b ", {"  a b "}},
        {std::string(1000, 'l') + "\nz", {std::string(1000, 'l'), "z"}},
    };
    for (auto const& row : rows) {
        std::istringstream stream(row.input);
        std::vector<std::string> lines;
        TypeParam line("left over");
        while (stream.peek() != EOF) {
            EXPECT_EQ(&line.readLine(stream, 0), &stream);
            lines.push_back(bytesOf(line));
            checkString(line);
        }
        EXPECT_EQ(lines, row.lines);
        line.readLine(stream);
        EXPECT_STREQ(line, "");
    }
}

TYPED_TEST(StringEditTest, KeptANulEndsALine) {
    std::istringstream stream(std::string("ab\0cd", 5));
    TypeParam line;
    line.readLine(stream, 0);
    EXPECT_STREQ(line, "ab");
    line.readLine(stream, 0);
    EXPECT_STREQ(line, "cd");
}

TYPED_TEST(StringEditTest, KeptReadingWithSkippingLeavesTheFlagSet) {
    std::istringstream stream(" a\nb");
    stream.unsetf(std::ios::skipws);
    TypeParam line;
    line.readLine(stream, 0);
    EXPECT_FALSE(stream.flags() & std::ios::skipws);
    EXPECT_STREQ(line, " a");
    line.readLine(stream, 1);
    EXPECT_TRUE(stream.flags() & std::ios::skipws);
}

TYPED_TEST(StringEditTest, KeepsBytesBehindANul) {
    TypeParam string("a");
    string.append('\0').append('b');
    EXPECT_EQ(bytesOf(string), std::string("a\0b", 3));
    TypeParam const copy(string);
    EXPECT_EQ(bytesOf(copy), bytesOf(string));
    string.replace("a", "xx");
    EXPECT_EQ(bytesOf(string), std::string("xx\0b", 4));
    checkString(string);
}

/// A string that only says how long it is: lengths that no test could keep in memory.
class Claim : public ZLCConstString {
  public:
    explicit Claim(unsigned int bytes) : ZLCConstString("claimed"), claimed(bytes) {}
    [[nodiscard]] unsigned int getLength() const override { return claimed; }

  private:
    unsigned int claimed;
};

TYPED_TEST(StringEditTest, RefusesLengthsOf32BitsBeforeAnythingChanges) {
    std::string const before(100, 'a');
    std::string const huge(100000, 'h');
    std::vector<std::function<void(S)>> const edits = {
        [](S s) { s.setCapacity(UINT_MAX); },
        [](S s) { s += Claim(UINT_MAX - 50); },
        [](S s) { s.setChars(Claim(UINT_MAX)); },
        [&](S s) { s.replace("a", std::string(43000000, 'h').c_str()); },
        [&](S s) { s.replaceOther("x", std::string(43000000, 'h').c_str()); },
    };
    for (auto const& edit : edits) {
        TypeParam string(before.c_str());
        auto const capacity = string.getCapacity();
        EXPECT_THROW(edit(string), ZOutOfMemoryException) << (&edit - edits.data());
        EXPECT_EQ(bytesOf(string), before);
        EXPECT_EQ(string.getCapacity(), capacity);
    }
}

TYPED_TEST(StringEditTest, StopsAtMalformedCharactersWhereCharactersCount) {
    std::vector<std::function<void(S)>> const edits = {
        [](S s) { s.replaceOther("a", "x"); },
        [](S s) { s.replaceOther("\xC3", "x"); },
        [](S s) { s.replaceAll("\xC3", "x"); },
    };
    for (auto const& edit : edits) {
        TypeParam string("a\xE2\x82z");
        EXPECT_THROW(edit(string), ZQCSMBLenException);
        EXPECT_STREQ(string, "a\xE2\x82z");
    }
    TypeParam string("a\xE2\x82z");
    EXPECT_STREQ(string.replace("z", "yy").getChars(), "a\xE2\x82yy");
}

TEST(Utf8EditTest, RefusesToReplaceBytesThatAreNoCharacters) {
    ZUTF8String string("a\xC3\xA9");
    EXPECT_THROW(string.replace('\xC3', 'x'), ZInvalidParameterException);
    EXPECT_THROW(string.replaceAll("a\xC3\xA9", 'x'), ZInvalidParameterException);
    EXPECT_STREQ(string, "a\xC3\xA9");
}

TYPED_TEST(StringEditTest, ReplacesWhatAnIteratorYields) {
    TypeParam const elements("ac\xC3\xA9");
    TypeParam element;
    ZStringIterator iterator(elements, element);
    TypeParam string("abc\xC3\xA9");
    string.replaceAllOf(iterator, "-");
    EXPECT_STREQ(string, "-b--");
    string = "abc\xC3\xA9";
    iterator.reset();
    string.replaceNoneOf(iterator, "\xC3\xA9", "aa");
    EXPECT_STREQ(string, "aabaa\xC3\xA9");
    iterator.reset();
    string.replaceNoneOf(iterator, string.getChars() + 5, string.getChars() + 2);
    EXPECT_STREQ(string,
                 "baa\xC3\xA9"
                 "baa\xC3\xA9"
                 "bbaa\xC3\xA9"
                 "baa\xC3\xA9\xC3\xA9");
}

}  // namespace
