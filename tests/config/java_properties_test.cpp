// Properties files in the manner of the Java platform: what is read from any text, what is written.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Z/ZException.h"
#include "Z/ZJavaProperties.h"
#include "support/processes.h"
#include "support/properties.h"
#include "support/reports.h"
#include "support/streams.h"

namespace {

using testsupport::Companion;
using testsupport::inChild;
using testsupport::ioFailure;
using testsupport::ioText;
using testsupport::openDescriptors;
using testsupport::readFile;
using testsupport::Report;
using testsupport::Reports;
using testsupport::TempDir;
using testsupport::thrownBy;
using testsupport::writeFile;

using Pairs = std::map<std::string, std::string>;

std::string bytesOf(ZAbstractString const& text) { return {text.getChars(), text.getLength()}; }

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

/// A file with these bytes, or none yet.
class PropertiesFile {
  public:
    PropertiesFile() = default;
    explicit PropertiesFile(std::string const& bytes) { writeFile(path(), bytes); }
    [[nodiscard]] std::string path() const { return directory.file("app.properties"); }

    [[nodiscard]] Pairs load(std::string const& searched = "") const {
        ZJavaProperties properties;
        EXPECT_EQ(properties.load(path().c_str(), searched.c_str()), 1);
        return pairsOf(properties);
    }
    /// The bytes that the pair is written as, without the first line.
    [[nodiscard]] std::string written(std::string const& key, ZUTF8String const& value) const {
        ZJavaProperties properties;
        properties.setValue(ZUTF8String(key.c_str()), value);
        properties.store(path().c_str());
        std::string const bytes = readFile(path());
        EXPECT_EQ(bytes.substr(0, 2), "#\n");
        return bytes.substr(2);
    }

  private:
    TempDir directory;
};

// ------------------------------------------------------------- the machine against its own table

enum Action { nothing, clears, toKey, toValue, ends, endsContinued, firstDigit, digit, lastDigit };

struct Row {
    int state;
    char const* characters;  // null: every other one
    Action action;
    int next;
};

constexpr char blanks[] = " \t\v\f";
constexpr char lineEnds[] = "\n\r";
constexpr char hexDigits[] = "0123456789abcdefABCDEF";
constexpr int fault = 16;

constexpr Row table[] = {
    {1, blanks, clears, 2},
    {1, "!#", clears, 3},
    {1, lineEnds, clears, 1},
    {1, nullptr, toKey, 4},
    {2, blanks, nothing, 2},
    {2, "!#", nothing, 3},
    {2, lineEnds, nothing, 1},
    {2, ":=", nothing, fault},
    {2, nullptr, toKey, 4},
    {3, lineEnds, nothing, 1},
    {3, nullptr, nothing, 3},
    {4, "\\", nothing, 5},
    {4, blanks, nothing, 6},
    {4, ":=", nothing, 7},
    {4, lineEnds, nothing, fault},
    {4, nullptr, toKey, 4},
    {5, "\\ \t\v\f=:", toKey, 4},
    {5, nullptr, nothing, fault},
    {6, blanks, nothing, 6},
    {6, ":=", nothing, 7},
    {6, "\\", nothing, 9},
    {6, lineEnds, nothing, fault},
    {6, nullptr, toValue, 8},
    {7, blanks, nothing, 7},
    {7, lineEnds, ends, 1},
    {7, "\\", nothing, 9},
    {7, nullptr, toValue, 8},
    {8, "\\", nothing, 9},
    {8, lineEnds, ends, 1},
    {8, nullptr, toValue, 8},
    {9, "\\ \t\v\f:\"'", toValue, 8},
    {9, lineEnds, nothing, 10},
    {9, "uU", nothing, 11},
    {9, nullptr, nothing, fault},
    {10, blanks, nothing, 10},
    {10, "\\", nothing, 9},
    {10, lineEnds, endsContinued, 1},
    {10, nullptr, toValue, 8},
    {11, hexDigits, firstDigit, 12},
    {11, nullptr, nothing, fault},
    {12, hexDigits, digit, 13},
    {12, nullptr, nothing, fault},
    {13, hexDigits, digit, 14},
    {13, nullptr, nothing, fault},
    {14, hexDigits, lastDigit, 8},
    {14, nullptr, nothing, fault},
};

Row const& rowOf(int state, char c) {
    for (Row const& row : table) {
        if (row.state != state) continue;
        if (row.characters == nullptr || std::string(row.characters).find(c) != std::string::npos)
            return row;
    }
    return table[0];
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
        act(row.action, c);
        state = row.next;
        if (state != fault) return;
        key = "";
        state = c == '\n' || c == '\r' ? 1 : 3;
    }
    void act(Action action, char c) {
        if (action == firstDigit) unit = 0;
        if (action >= firstDigit)
            unit = unit * 16 + static_cast<unsigned>(std::stoul(std::string(1, c), nullptr, 16));
        if (action == toKey) key += c;
        if (action == toValue) value += c;
        if (action == lastDigit) value += utf8(unit);
        bool const isWanted = searched.empty() || key == searched;
        if (action == ends || (action == endsContinued && isWanted)) pairs[key] = value;
        stopped = action == ends && key == searched;
    }
    static std::string utf8(unsigned code) {
        auto const byte = [](unsigned bits) { return static_cast<char>(bits); };
        if (code < 0x80) return {byte(code)};
        if (code < 0x800) return {byte(0xC0 | code >> 6), byte(0x80 | (code & 0x3F))};
        return {byte(0xE0 | code >> 12), byte(0x80 | (code >> 6 & 0x3F)),
                byte(0x80 | (code & 0x3F))};
    }

    std::string searched, key, value;
    int state = 1;
    unsigned unit = 0;
    bool stopped = false;
};

/// Loads `text` and compares with the table, with and without a searched key.
void checkText(std::string const& text) {
    static int const memory = memfd_create("app.properties", MFD_CLOEXEC);
    static std::string const path = "/proc/self/fd/" + std::to_string(memory);
    ASSERT_EQ(ftruncate(memory, 0), 0);
    ASSERT_EQ(pwrite(memory, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    for (char const* const searched : {"", "a"}) {
        ZJavaProperties properties;
        ASSERT_EQ(properties.load(path.c_str(), searched), 1);
        ASSERT_EQ(pairsOf(properties), Model(text, searched).pairs)
            << "\"" << testing::PrintToString(text) << "\" searched " << searched;
    }
}

TEST(JavaPropertiesTest, EveryCharacterInEveryStateDoesWhatTheTableSays) {
    // What leads from the start of a line to each state.
    constexpr char const* prefixes[] = {"",      " ",       "#",        "a",     "a\\",
                                        "a ",    "a=",      "a=v",      "a=v\\", "a=v\\\n",
                                        "a=\\u", "a=\\u00", "a=\\u00e", "a=\\u4"};
    for (std::string const prefix : prefixes) {
        for (int c = 0; c < 256; ++c)
            checkText("b=1\n" + prefix + static_cast<char>(c) + "e9x=y\n z\\\nc = d\n");
    }
}

TEST(JavaPropertiesTest, AnyTextIsReadAsTheTableSays) {
    constexpr char alphabet[] = "aab=:\\\\\n\n\r #!u0eF\"' \t";
    std::mt19937 random(7);
    for (int i = 0; i < 4000; ++i) {
        std::string text;
        for (auto length = random() % 40; length > 0; --length)
            text += alphabet[random() % (sizeof alphabet - 1)];
        checkText(text);
    }
}

TEST(JavaPropertiesTest, ReadsWhatPeopleWrite) {
    struct {
        std::string text;
        Pairs pairs;
    } const rows[] = {
        {"a=b\na1 = b\na2:b\na3 b\n  a4   =   b\n",
         {{"a", "b"}, {"a1", "b"}, {"a2", "b"}, {"a3", "b"}, {"a4", "b"}}},
        {"a=\nb\nc=1\n", {{"a", ""}, {"c", "1"}}},
        {"=b\n =b\n:\nc=1\n", {{"c", "1"}}},
        {"key=one\\\n   two\n", {{"key", "onetwo"}}},
        {"k=\\u00e9\\ud83d\\ude00\n", {{"k", "\xC3\xA9\xED\xA0\xBD\xED\xB8\x80"}}},
        {"k=\\q\nl=a\\=b\nm=\\t\nn=1\n", {{"n", "1"}}},
        {"k\\=x=1\nl=\"a\\\"'\\'\n", {{"k=x", "1"}, {"l", "\"a\"''"}}},
        {"\\k=1\n", {{"\\k", "1"}}},  // a backslash at the start of a line is part of the key
        {"a=1\r\nb=2\n\rc=3\rd=4\n\ne\\\r\n=5\r\n",
         {{"a", "1"}, {"b", "2"}, {"c", "3"}, {"d", "4"}}},
        {"a=1\nb=2", {{"a", "1"}}},
        {"a=x \t\n", {{"a", "x \t"}}},
        {"a=1\na=2\n", {{"a", "2"}}},
    };
    for (auto const& row : rows)
        EXPECT_EQ(PropertiesFile(row.text).load(), row.pairs) << row.text;
}

TEST(JavaPropertiesTest, ASearchStopsBehindItsKeyAndTakesALastLineWithoutEnd) {
    PropertiesFile const file("a=1\nb=2\nc=3");
    EXPECT_EQ(file.load("b"), (Pairs{{"a", "1"}, {"b", "2"}}));
    EXPECT_EQ(file.load("c"), (Pairs{{"a", "1"}, {"b", "2"}, {"c", "3"}}));
    ZJavaProperties properties;
    EXPECT_EQ(properties.load(file.path().c_str(), "b"), 1);
    EXPECT_EQ(properties.load(file.path().c_str()), 1);  // the search is over
    EXPECT_EQ(pairsOf(properties), (Pairs{{"a", "1"}, {"b", "2"}}));
}

/// Keeps what it is told as "LINE:NUMBER".
struct Told : ZJavaProperties::SkippedLines {
    void skipped(unsigned int line, ZJavaProperties::Skipped what) override {
        text += std::to_string(line) + ":" + std::to_string(static_cast<int>(what)) + " ";
    }
    std::string text;
};

TEST(JavaPropertiesTest, TellsTheLinesThatItPassesOver) {
    PropertiesFile const file(
        "# c\r\n\r\nok=1\n =v\nkey\nkey \n k\\ey=v\nk=a\\\n  b\\q\n  ! c\nk=\\u12x\\u\nok=2\nend=");
    Told told;
    ZJavaProperties properties;
    properties.read(file.path().c_str(), &told);
    EXPECT_EQ(told.text, "1:0 4:1 5:2 6:2 7:3 9:4 10:0 11:5 13:6 ");
    EXPECT_EQ(pairsOf(properties), (Pairs{{"ok", "2"}}));
}

// ---------------------------------------------------------------------------------- the writer

TEST(JavaPropertiesTest, WritesWhatTheReaderNeedsEscaped) {
    struct {
        char const* value;
        char const* written;
        bool isStorable;
    } const rows[] = {
        {"", "k = \n", true},
        {"x:y\\", "k = x\\:y\\\\\n", true},
        {"= # ! \" ' ~", "k = = # ! \" ' ~\n", true},
        {"\xC3\xA9\xE2\x82\xAC\xED\xA0\xBD", "k = \\u00e9\\u20ac\\ud83d\n", true},
        {" x", "k =  x\n", false},  // leading blanks are not escaped
        {"a\nb", "k = a\nb\n", false},
        {"a\x7F"
         "b",
         "k = a\\ub\n", false},
        {"a\xF0\x9F\x98\x80"
         "b",
         "k = a\\u\\u\\u\\ub\n", false},
        {"a\xC3", "k = a\\u00c0\n", false},  // cut off: no byte behind the end is read
        {"a\xE2\x82", "k = a\\u2080\n", false},
    };
    PropertiesFile const file;
    for (auto const& row : rows) {
        ZUTF8String const value(row.value);
        EXPECT_EQ(file.written("k", value), row.written);
        EXPECT_EQ(ZJavaProperties::isStorable(ZUTF8String("k"), value), row.isStorable)
            << row.value;
        EXPECT_EQ(file.load() == (Pairs{{"k", row.value}}), row.isStorable) << row.value;
    }
    for (char const* const key : {"", "a b", "a=b", "#a", " a", "a\n", "a\\b"})
        EXPECT_FALSE(ZJavaProperties::isStorable(ZUTF8String(key), ZUTF8String("v"))) << key;
    for (char const* const key : {"\xC3\xA9.a-b_1", "=", "\\a"})
        EXPECT_TRUE(ZJavaProperties::isStorable(ZUTF8String(key), ZUTF8String("v"))) << key;
}

TEST(JavaPropertiesTest, CopiesAndStringsOfEitherFamilyAreTheirOwn) {
    ZJavaProperties properties;
    properties.setValue(ZLCString("k"), ZLCString("\xC3\xA9"));
    std::unique_ptr<ZObject> const copy(properties.clone());
    properties.setValue(ZUTF8String("k"), ZUTF8String("2"));
    ZLCString value("old");
    dynamic_cast<ZJavaProperties&>(*copy).getValue(ZLCString("k"), value);
    EXPECT_EQ(value, "\xC3\xA9");
    properties.getValue(ZLCString("none"), value);
    EXPECT_TRUE(value.isEmpty());
    EXPECT_EQ(pairsOf(properties), (Pairs{{"k", "2"}}));
}

TEST(JavaPropertiesTest, ManyPairsComeBackInTheSameOrder) {
    ZJavaProperties properties;
    Pairs expected;
    for (int i = 0; i < 20000; ++i) {
        std::string const key = "key" + std::to_string(i);
        expected[key] = std::string(static_cast<std::size_t>(i % 200), 'v');
        properties.setValue(ZUTF8String(key.c_str()), ZUTF8String(expected[key].c_str()));
    }
    PropertiesFile const file;
    properties.store(file.path().c_str());
    std::string const bytes = readFile(file.path());
    ZJavaProperties loaded;
    EXPECT_EQ(loaded.load(file.path().c_str()), 1);
    EXPECT_EQ(pairsOf(loaded), expected);
    loaded.store(file.path().c_str());
    EXPECT_EQ(readFile(file.path()), bytes);
}

// ------------------------------------------------------------------------------------ failures

TEST(JavaPropertiesTest, AFailedLoadIsReportedAndAnEmptyPathIsNone) {
    TempDir const dir;
    Reports reports;
    ZJavaProperties properties;
    EXPECT_EQ(properties.load(nullptr), 1);
    EXPECT_EQ(properties.load(""), 1);
    EXPECT_TRUE(reports.take().empty());
    for (std::string const& path : {dir.file("none"), dir.path()}) {
        EXPECT_EQ(properties.load(path.c_str()), 0);
        EXPECT_EQ(reports.take(), (std::vector<Report>{{"ZPropertiesIOException", 43, {}}}));
    }
    EXPECT_EQ(ioFailure([&] { properties.read(dir.file("none").c_str(), nullptr); }),
              ioText(dir.file("none"), "fopen(r)", ENOENT));
    auto const directory = std::unique_ptr<FILE, int (*)(FILE*)>(
        std::fopen(dir.path().c_str(), "r"), std::fclose);  // opens, but cannot be read
    EXPECT_EQ(thrownBy([&] { properties.loadProperties(directory.get(), "d"); }).number, 53);
}

TEST(JavaPropertiesTest, AStateWithoutAHandlerIsAnError) {
    constexpr std::size_t handlerSize = 2 * sizeof(void*);     // a pointer to a member function
    PropertiesFile const file(" k\\ k = \\\n \\u00e9v\n#\n");  // every state
    for (std::size_t state = 1; state < 15; ++state) {
        ZJavaProperties properties;
        auto* const handlers = reinterpret_cast<char*>(&properties) + sizeof(void*);
        std::memset(handlers + state * handlerSize, 0, handlerSize);
        EXPECT_EQ(thrownBy([&] { properties.read(file.path().c_str(), nullptr); }).number, 54)
            << state;
    }
}

TEST(JavaPropertiesTest, AFailedStoreLeavesTheOldFile) {
    TempDir const dir;
    std::string const path = dir.file("app.properties");
    ZJavaProperties properties;
    properties.setValue(ZUTF8String("k"), ZUTF8String(std::string(2000, 'v').c_str()));
    EXPECT_EQ(thrownBy([&] { properties.store(nullptr); }).number, 22);
    EXPECT_EQ(thrownBy([&] { properties.store(""); }).number, 22);
    EXPECT_EQ(ioFailure([&] { properties.store(dir.path().c_str()); }),
              ioText(dir.path(), "fopen(wt)", EISDIR));
    EXPECT_EQ(ioFailure([&] { properties.store((dir.path() + "/no/file").c_str()); }),
              ioText(dir.path() + "/no/file", "fopen(wt)", ENOENT));

    writeFile(path, "old = 1\n");
    int const descriptors = openDescriptors();
    EXPECT_EQ(inChild([&] {
                  rlimit const limit{1000, 1000};
                  setrlimit(RLIMIT_FSIZE, &limit);
                  return ioFailure([&] { properties.store(path.c_str()); }) ==
                                 ioText(path, "write()", EFBIG)
                             ? 0
                             : 1;
              }),
              0);
    EXPECT_EQ(readFile(path), "old = 1\n");
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(JavaPropertiesTest, AnotherProcessThatHoldsTheFileIsAnErrorAtOnce) {
    PropertiesFile const file("old = 1\n");
    Companion holder([&](Companion& parent) {
        std::unique_ptr<FILE, int (*)(FILE*)> const stream(std::fopen(file.path().c_str(), "r+"),
                                                           std::fclose);
        struct flock record {};
        record.l_type = F_WRLCK;
        if (fcntl(fileno(stream.get()), F_SETLK, &record) != 0) return 1;
        parent.signal();
        return parent.await() ? 0 : 1;
    });
    ASSERT_TRUE(holder.await());
    ZJavaProperties properties;
    for (bool const stores : {false, true}) {
        EXPECT_EQ(ioFailure([&] {
                      if (stores) properties.store(file.path().c_str());
                      properties.read(file.path().c_str(), nullptr);
                  }),
                  ioText(file.path(), "fcntl()", EAGAIN));
    }
    EXPECT_EQ(readFile(file.path()), "old = 1\n");
    holder.signal();
    EXPECT_EQ(holder.join(), 0);
    EXPECT_EQ(file.load(), (Pairs{{"old", "1"}}));
}

}  // namespace
