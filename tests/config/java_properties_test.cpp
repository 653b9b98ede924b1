// Properties files in the manner of the Java platform: what is read from any text, what is written.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "Z/ZException.h"
#include "Z/ZJavaProperties.h"
#include "support/codesets.h"
#include "support/properties.h"
#include "support/reports.h"
#include "support/streams.h"
#include "support/strings.h"

namespace {

using namespace std::string_literals;
using namespace testsupport;

using Pairs = std::map<std::string, std::string>;

Pairs pairsOf(ZJavaProperties const& properties) {
    Pairs pairs;
    ZArrayList keys(1, 0);
    properties.listKeys(keys);
    for (unsigned int i = 0; i < keys.size(); ++i) {
        auto const& key = dynamic_cast<ZUTF8String&>(*keys.get(i));
        ZUTF8String value;
        properties.getValue(key, value);
        pairs[bytesOf(key)] = bytesOf(value);
    }
    return pairs;
}

/// A file with these bytes, in memory for speed.
std::string fileWith(std::string const& bytes) {
    static int const memory = memfd_create("app.properties", MFD_CLOEXEC);
    EXPECT_EQ(ftruncate(memory, 0), 0);
    EXPECT_EQ(pwrite(memory, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    return "/proc/self/fd/" + std::to_string(memory);
}

/// What a state makes of a character: the table that the machine is compared with.
enum Action { nothing, toKey, toValue, ends, endsContinued, digit, lastDigit };

struct Row {
    std::string_view characters;
    int next = 0;
    Action action = nothing;
};

constexpr char blanks[] = " \t\v\f";
constexpr char lineEnds[] = "\n\r";
constexpr char hexDigits[] = "0123456789abcdefABCDEF";
constexpr std::string_view others = "";  // the last row of a state: any other character
constexpr int fault = 16;

constexpr Row table[][5] = {
    {},
    {{blanks, 2}, {"!#", 3}, {lineEnds, 1}, {others, 4, toKey}},
    {{blanks, 2}, {"!#", 3}, {lineEnds, 1}, {":=", fault}, {others, 4, toKey}},
    {{lineEnds, 1}, {others, 3}},
    {{"\\", 5}, {blanks, 6}, {":=", 7}, {lineEnds, fault}, {others, 4, toKey}},
    {{"\\ \t\v\f=:", 4, toKey}, {others, fault}},
    {{blanks, 6}, {":=", 7}, {"\\", 9}, {lineEnds, fault}, {others, 8, toValue}},
    {{blanks, 7}, {lineEnds, 1, ends}, {"\\", 9}, {others, 8, toValue}},
    {{"\\", 9}, {lineEnds, 1, ends}, {others, 8, toValue}},
    {{"\\ \t\v\f:\"'", 8, toValue}, {lineEnds, 10}, {"uU", 11}, {others, fault}},
    {{blanks, 10}, {"\\", 9}, {lineEnds, 1, endsContinued}, {others, 8, toValue}},
    {{hexDigits, 12, digit}, {others, fault}},
    {{hexDigits, 13, digit}, {others, fault}},
    {{hexDigits, 14, digit}, {others, fault}},
    {{hexDigits, 8, lastDigit}, {others, fault}},
};

Row const& rowOf(int state, char c) {
    Row const* row = table[state];
    while (row->characters != others && row->characters.find(c) == std::string_view::npos)
        ++row;
    return *row;
}

/// What the table makes of a text.
class Model {
  public:
    Model(std::string const& text, std::string searchedKey) : searched(std::move(searchedKey)) {
        char half = '\0';
        for (char const c : text) {
            bool const isEnd = c == '\n' || c == '\r';
            bool const isPair = isEnd && half != '\0' && half != c;
            half = isEnd && !isPair ? c : '\0';
            if (!isPair) follow(c);
            if (stopped) return;
        }
        if (!key.empty() && key == searched) pairs[key] = value;
    }
    Pairs pairs;

  private:
    void follow(char c) {
        Row const& row = rowOf(state, c);
        if (state == 1) key = value = "";
        if (row.action == toKey) key += c;
        if (row.action == toValue) value += c;
        if (row.action >= digit) digits += c;
        if (row.action == lastDigit)
            value += utf8Of(
                static_cast<char32_t>(std::stoul(digits.substr(digits.size() - 4), nullptr, 16)));
        bool const isWanted = searched.empty() || key == searched;
        if (row.action == ends || (row.action == endsContinued && isWanted)) pairs[key] = value;
        stopped = row.action == ends && key == searched;
        state = row.next;
        if (state != fault) return;
        key = "";
        state = c == '\n' || c == '\r' ? 1 : 3;
    }

    std::string searched, key, value, digits;
    int state = 1;
    bool stopped = false;
};

/// Loads `text` up to a searched key, then whole, and compares with the table.
void checkText(std::string const& text) {
    SCOPED_TRACE(testing::PrintToString(text));
    std::string const path = fileWith(text);
    ZJavaProperties properties;
    ASSERT_EQ(properties.load(path.c_str(), "a"), 1);
    Pairs expected = Model(text, "a").pairs;
    ASSERT_EQ(pairsOf(properties), expected) << "searched";
    ASSERT_EQ(properties.load(path.c_str()), 1);
    for (auto const& [key, value] : Model(text, "").pairs)
        expected[key] = value;
    ASSERT_EQ(pairsOf(properties), expected);
}

TEST(JavaPropertiesTest, AnyTextIsReadAsTheTableSays) {
    // What leads from the start of a line to each state, and there every character.
    for (std::string const prefix : {"", " ", "#", "a", "a\\", "a ", "a=", "a=v", "a=v\\",
                                     "a=v\\\n", "a=\\u", "a=\\u4", "a=\\u00", "a=\\u00e"}) {
        for (int c = 0; c < 256; ++c)
            checkText("b=1\n" + prefix + static_cast<char>(c) + "e9x=y\n z\\\nc = d\n");
    }
    constexpr char alphabet[] = "aab=:\\\\\n\n\r #!u0eF\"' \t";
    std::mt19937 random(7);
    for (int i = 0; i < 4000; ++i) {
        std::string text;
        for (auto length = random() % 40; length > 0; --length)
            text += alphabet[random() % (sizeof alphabet - 1)];
        checkText(text);
    }
    // Several blocks.
    checkText(std::string(40000, 'k') + "=" + std::string(40000, 'v') + "\n");
    std::string lines;
    for (int i = 0; i < 5000; ++i)
        lines += "key" + std::to_string(i % 4000) + " = " + std::to_string(i) + "\r\n";
    checkText(lines + "a=1\nb=2\n");
}

/// Keeps what it is told as "LINE:NUMBER".
struct Told : ZJavaProperties::SkippedLines {
    void skipped(unsigned int line, ZJavaProperties::Skipped what) override {
        text += std::to_string(line) + ":" + std::to_string(static_cast<int>(what)) + " ";
    }
    std::string text;
};

TEST(JavaPropertiesTest, TellsTheLinesThatItPassesOver) {
    Told told;
    ZJavaProperties properties;
    properties.read(fileWith("# c\r\n\r\nok=1\r\n =v\nkey\nkey \n k\\ey=v\nk=a\\\n  b\\q\n  ! c\n"
                             "k=\\u12x\\u\nok=2\nk")
                        .c_str(),
                    &told);
    EXPECT_EQ(told.text, "1:0 4:1 5:2 6:2 7:3 9:4 10:0 11:5 13:6 ");
    EXPECT_EQ(properties.load(fileWith("").c_str(), "k"), 1);
    EXPECT_EQ(pairsOf(properties), (Pairs{{"ok", "2"}})) << "nothing is left over";
    EXPECT_TRUE(properties.loadProperties(fileOf("ok=3\n").get(), "f"));
    EXPECT_EQ(pairsOf(properties), (Pairs{{"ok", "3"}}));
}

ZUTF8String utf8String(std::string const& bytes) {
    ZUTF8String text;
    for (char const c : bytes)  // NULs too
        text.append(c);
    return text;
}

/// A pair, the line that is written for it, and whether that is read as the pair again.
struct Form {
    std::string key, value, line;
    bool isStorable;
};

constexpr bool kept = true, lost = false;
Form const forms[] = {
    {"k", "", "k = ", kept},
    {"k", "x:y\\", "k = x\\:y\\\\", kept},
    {"k", " x", "k =  x", lost},  // leading blanks are not escaped
    {"k", "=#!\"' ~\t\f\x01 ", "k = =#!\"' ~\t\f\x01 ", kept},
    {"k", "a\nb", "k = a\nb", lost},
    {"k", "a\0b"s, "k = a\0b"s, kept},
    {"k", "a\x7F-", "k = a\\u-", lost},
    {"k", "\xC2\x80\xC3\xA9\xD0\x96", "k = \\u0080\\u00e9\\u0416", kept},
    {"k", "\xE2\x82\xAC\xEF\xBF\xBF", "k = \\u20ac\\uffff", kept},
    // The halves of what is beyond that plane stand by themselves.
    {"k", "\xED\xA0\xBD\xED\xB8\x80", "k = \\ud83d\\ude00", kept},
    {"k", "a\xF0\x9F\x98\x80-", "k = a\\u\\u\\u\\u-", lost},
    {"k", "a\xC3", "k = a\\u00c0", lost},  // cut off: no byte behind the end is read
    {"k", "a\xE2\x82", "k = a\\u2080", lost},
    {"a b", "v", "a b = v", lost},
    {"#a", "v", "#a = v", lost},
    {"", "v", " = v", lost},
    // Kept: at the start of a line these are part of a key.
    {"=", "v", "= = v", kept},
    {"\\a!\xC3\xA9", "v", "\\a!\xC3\xA9 = v", kept},
};

TEST(JavaPropertiesTest, WritesAPairAsItsLineAndTellsWhetherThatIsReadAgain) {
    for (Form const& form : forms) {
        SCOPED_TRACE(form.line);
        ZUTF8String const key(form.key.c_str());
        ZUTF8String const value = utf8String(form.value);
        ZJavaProperties properties;
        properties.setValue(key, value);
        std::string const path = fileWith("");
        properties.store(path.c_str());
        EXPECT_EQ(readFile(path), "#\n" + form.line + "\n");
        ZJavaProperties again;
        EXPECT_EQ(again.load(path.c_str()), 1);
        EXPECT_EQ(pairsOf(again) == (Pairs{{form.key, form.value}}), form.isStorable);
        EXPECT_EQ(ZJavaProperties::isStorable(key, value), form.isStorable);
    }
}

TEST(JavaPropertiesTest, CopiesAndStringsOfEitherFamilyAreTheirOwn) {
    ZJavaProperties properties;
    properties.setValue(ZLCString("k"), ZLCString("\xC3\xA9"));
    std::unique_ptr<ZObject> const copy(properties.clone());
    properties.setValue(ZUTF8String("k"), ZUTF8String("2"));
    EXPECT_EQ(pairsOf(dynamic_cast<ZJavaProperties&>(*copy)), (Pairs{{"k", "\xC3\xA9"}}));
    ZLCString value("old");
    properties.getValue(ZLCString("k"), value);
    EXPECT_EQ(value, "2");
    properties.getValue(ZLCString("none"), value);
    EXPECT_TRUE(value.isEmpty());
}

/// The texts of the keys that are listed, in their order.
template <class Listed>
std::vector<std::string> namesIn(Listed const& listed) {
    ZArrayList keys(1, 0);
    listed.listKeys(keys);
    std::vector<std::string> names;
    for (unsigned int i = 0; i < keys.size(); ++i)
        names.push_back(bytesOf(dynamic_cast<ZUTF8String&>(*keys.get(i))));
    return names;
}

TEST(JavaPropertiesTest, KeysHaveTheOrderOfAHashMapAndStayWhileValuesGrowAndShrink) {
    ZJavaProperties properties;
    ZHashKeyMap map(10, 1);
    Pairs pairs, earlyPairs;
    ZArrayList earlyKeys(1, 0);
    std::unique_ptr<ZJavaProperties> copy;
    std::mt19937 random(3);
    for (int i = 0; i < 20000; ++i) {
        std::string const key = "k" + std::to_string(random() % 3000) +
                                std::string(static_cast<std::size_t>(i % 7), '\0');
        std::string const value(random() % 200, static_cast<char>('a' + i % 26));
        ZUTF8String const name = utf8String(key);
        properties.setValue(name, ZUTF8String(value.c_str()));
        map.putEntry(&name, nullptr);
        pairs[key] = value;
        if (i != 2000) continue;
        earlyPairs = pairs;
        properties.listKeys(earlyKeys);
        copy.reset(dynamic_cast<ZJavaProperties*>(properties.clone()));
    }
    EXPECT_EQ(namesIn(properties), namesIn(map));
    EXPECT_EQ(pairsOf(properties), pairs);
    EXPECT_EQ(pairsOf(*copy), earlyPairs);
    EXPECT_EQ(namesIn(*copy).size(), earlyKeys.size());
    for (unsigned int i = 0; i < earlyKeys.size(); ++i) {
        auto const& key = dynamic_cast<ZUTF8String&>(*earlyKeys.get(i));
        EXPECT_EQ(earlyPairs.count(bytesOf(key)), 1U) << "still there";
    }
    *copy = properties;
    EXPECT_EQ(namesIn(*copy), namesIn(map));
}

TEST(JavaPropertiesTest, AFailedLoadIsReportedAndAnEmptyPathIsNone) {
    Reports reports;
    ZJavaProperties properties;
    EXPECT_EQ(properties.load(""), 1);
    EXPECT_TRUE(reports.take().empty());
    EXPECT_EQ(properties.load("/"), 0);
    EXPECT_EQ(reports.take(), (std::vector<Report>{{"ZPropertiesIOException", 43, {}}}));
    Stream const directory(std::fopen("/", "r"));  // opens, but cannot be read
    EXPECT_EQ(thrownBy([&] { properties.loadProperties(directory.get(), "d"); }).number, 53);
}

TEST(JavaPropertiesTest, AFailedStoreLeavesTheOldFile) {
    StanzaFile const file("old = 1\n");
    ZJavaProperties properties;
    properties.setValue(ZUTF8String("k"), ZUTF8String("v"));
    auto const failure = [&](std::string const& path) {
        return ioFailure([&] { properties.store(path.c_str()); });
    };
    EXPECT_EQ(thrownBy([&] { properties.store(nullptr); }).number, 22);
    EXPECT_EQ(failure(file.place()), ioText(file.place(), "fopen(wt)", EISDIR));
    int const holder = lockWhole(file.path(), F_OFD_SETLK, F_WRLCK);
    std::string const refusal = ioText(file.path(), "fcntl()", EAGAIN);
    EXPECT_EQ(failure(file.path()), refusal);
    EXPECT_EQ(ioFailure([&] { properties.read(file.path().c_str(), nullptr); }), refusal);
    EXPECT_EQ(file.bytes(), "old = 1\n");
    close(holder);
    EXPECT_EQ(failure(file.path()), "");
    EXPECT_EQ(file.bytes(), "#\nk = v\n");
}

}  // namespace
