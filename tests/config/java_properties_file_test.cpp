// Properties files edited as text: what Java programs read from any bytes, what an edit writes, and
// that nothing else changes.
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Z/ZJavaPropertiesFile.h"
#include "support/codesets.h"
#include "support/properties.h"
#include "support/reports.h"
#include "support/strings.h"

namespace {

using namespace std::string_literals;
using namespace testsupport;

using Encoding = ZJavaPropertiesFile::Encoding;
using Pairs = std::vector<std::pair<std::string, std::string>>;

ZUTF8String text(std::string const& bytes) {
    ZUTF8String string;
    for (char const c : bytes)
        string.append(c);
    return string;
}

std::string get(ZJavaPropertiesFile const& properties, std::string const& key) {
    ZUTF8String value;
    properties.getValue(text(key), value);
    return bytesOf(value);
}

void set(ZJavaPropertiesFile& properties, std::string const& key, std::string const& value) {
    properties.setValue(text(key), text(value));
}

Pairs pairsOf(ZJavaPropertiesFile const& properties) {
    Pairs pairs;
    auto const keys = properties.getKeys();
    for (unsigned int i = 0; i < keys->size(); ++i) {
        std::string const key = bytesOf(dynamic_cast<ZUTF8String const&>(*keys->get(i)));
        pairs.emplace_back(key, get(properties, key));
    }
    return pairs;
}

/// The line and its number that an invalid-data error tells.
template <class Body>
std::string invalidLine(Body body) {
    auto const error = raisedBy<ZPropertiesInvalidDataException>(body);
    return error ? std::to_string(error->badline()) + ":" + error->baddata() : "";
}

/// A file with these bytes, loaded.
struct Loaded : StanzaFile {
    explicit Loaded(std::string const& bytes, Encoding encoding = Encoding::utf8)
        : StanzaFile(bytes), properties(path().c_str(), encoding) {
        properties.load();
    }
    /// What the file holds after a store.
    std::string stored() {
        properties.store();
        return bytes();
    }
    /// What is read from the file, by an object that has not written it.
    [[nodiscard]] Pairs again(Encoding encoding = Encoding::utf8) const {
        ZJavaPropertiesFile reader(path().c_str(), encoding);
        reader.load();
        return pairsOf(reader);
    }
    ZJavaPropertiesFile properties;
};

struct Reading {
    std::string file;
    Pairs pairs;
};

// As java.util.Properties reads them.
Reading const readings[] = {
    {"", {}},
    {"k", {{"k", ""}}},
    {"a=1\n b : 2\r\tc\f3\r\nd", {{"a", "1"}, {"b", "2"}, {"c", "3"}, {"d", ""}}},
    {"a==1\nb =:2\nc   =   3 \n=4\n", {{"a", "=1"}, {"b", ":2"}, {"c", "3 "}, {"", "4"}}},
    {" # c\n!c\\\na=#1\n\n \nb=!\n", {{"a", "#1"}, {"b", "!"}}},
    {"a\\ b\\=\\:\\#=c\\=\\ \n\\!k\\\\ v\\\\", {{"a b=:#", "c= "}, {"!k\\", "v\\"}}},
    {"k=\\t\\n\\r\\f\\q\\\"\\U0041\\x\n\\u006b\\u0032=\\u0000\\u20AC",
     {{"k", "\t\n\r\fq\"U0041x"}, {"k2", "\0\xE2\x82\xAC"s}}},
    {"k=\\uD83D\\uDE00\\ud83d\\\n  \\ude00", {{"k", "\xF0\x9F\x98\x80\xF0\x9F\x98\x80"}}},
    {"k\\\n  ey = v \\\r\n\t 1\\\\\nl=\\\n#m\\\n\nn", {{"key", "v 1\\"}, {"l", "#m"}, {"n", ""}}},
    {"k=1\nk=2\nl\nk=3\v", {{"l", ""}, {"k", "3\v"}}},
    {"\xC3\xA9=\xF0\x9F\x98\x80\\\n\n\xEF\xBB\xBFk=",
     {{"\xC3\xA9", "\xF0\x9F\x98\x80"}, {"\xEF\xBB\xBFk", ""}}},
    // A backslash alone is continued by what follows, were it a comment; what then ends with the
    // file is a pair.
    {"\\\n#c\n\\\n\n\\\n b=c\nd=\\\n  ", {{"b", "c"}, {"d", ""}}},
    {"\\", {{"", ""}}},
    {"a=1\\", {{"a", "1"}}},
};

TEST(JavaPropertiesFileTest, ReadsWhatJavaReadsAndStoresTheSameBytes) {
    for (Reading const& reading : readings) {
        SCOPED_TRACE(reading.file);
        Loaded file(reading.file);
        EXPECT_EQ(pairsOf(file.properties), reading.pairs);
        EXPECT_EQ(file.stored(), reading.file);
        // Whatever the last line lacks, what is appended is a line of its own.
        set(file.properties, "new", "x");
        Pairs pairs = reading.pairs;
        pairs.emplace_back("new", "x");
        std::string const stored = file.stored();
        EXPECT_EQ(stored.compare(0, reading.file.size(), reading.file), 0) << stored;
        EXPECT_EQ(file.again(), pairs) << stored;
    }
    Loaded latin("\xE9\\u20ac=\xFF\n", Encoding::latin1);
    EXPECT_EQ(pairsOf(latin.properties), (Pairs{{"\xC3\xA9\xE2\x82\xAC", "\xC3\xBF"}}));
}

struct Edit {
    std::string line;  // of the key "k", or any other
    std::string key, value;
    std::string written;
};

Edit const edits[] = {
    // Indentation, key, separator and line end stay.
    {" k :  1\r\n", "k", "2", " k :  2\r\n"},
    {"\\u006b=1", "k", "2", "\\u006b=2"},
    {"k = \\\n   1\\\n   2\n", "k", "3", "k = \\\n   3\n"},
    {"k = a\\ b\n", "k", "a b", "k = a\\ b\n"},  // says so already
    {"k\n", "k", "2", "k = 2\n"},
    {"k=\n", "k", "2", "k=2\n"},
    {"k :\n", "k", "2", "k : 2\n"},
    {"k 1\n", "k", "=2", "k ==2\n"},
    {"k 1\n", "k", "", "k =\n"},
    {"k=\\", "k", "2", "k=2"},
    {"k=\\ud83d\n", "k", "2", "k=2\n"},
    {"\\", "", "2", " = 2"},
    {"k=1\nl=3\nk=2\n", "k", "4", "k=1\nl=3\nk=4\n"},
    // New ones.
    {"", "k", "", "k =\n"},
    {"", "", "", " =\n"},
    {"", " a=b:c\\d#", "v", "\\ a\\=b\\:c\\\\d# = v\n"},
    {"", "#", "#", "\\# = #\n"},
    {"", "!\n", "!", "\\!\\u000a = !\n"},
    {"", "k", "  a= b ", "k = \\  a= b \n"},
    {"", "k", "\t\n\r\f\0\x7F\\n"s, "k = \\u0009\\u000a\\u000d\\u000c\\u0000\\u007f\\\\n\n"},
    {"", "\xC3\xA9", "\xF0\x9F\x98\x80\xC2\x85", "\\u00e9 = \\ud83d\\ude00\\u0085\n"},
    {"", "k", "\xF4\x8F\xBF\xBF\xEE\x80\x80", "k = \\udbff\\udfff\\ue000\n"},
    {"#\r\n", "k", "v", "#\r\nk = v\r\n"},
};

TEST(JavaPropertiesFileTest, ASetReplacesTheValueThatCountsOrAppendsALine) {
    for (Edit const& edit : edits) {
        SCOPED_TRACE(edit.line + " : " + edit.key + " = " + edit.value);
        for (auto const encoding : {Encoding::utf8, Encoding::latin1}) {
            Loaded file(edit.line, encoding);
            set(file.properties, edit.key, edit.value);
            EXPECT_EQ(get(file.properties, edit.key), edit.value);
            EXPECT_EQ(file.stored(), edit.written);
            EXPECT_EQ(file.again(encoding), pairsOf(file.properties));
        }
    }
}

TEST(JavaPropertiesFileTest, UnsetsCommentsAndRewritesLeaveTheOtherLines) {
    Loaded file("# top\r\n\r\nk=1\r\n! \xC3\xA9\r\nl = 2\r\nk \\\r\n 3\r\nm=\\\r\n#4");
    EXPECT_TRUE(file.properties.deleteKey(text("k")));
    EXPECT_FALSE(file.properties.deleteKey(text("k")));
    file.properties.addComment(text("\xE2\x82\xAC"));
    file.properties.addComment(text("m"), text("! of m"));
    EXPECT_EQ(file.stored(),
              "# top\r\n#\xE2\x82\xAC\r\n\r\n! \xC3\xA9\r\nl = 2\r\n! of m\r\nm=\\\r\n#4");
    file.properties.rewrite(1);
    EXPECT_EQ(file.stored(),
              "# top\r\n#\xE2\x82\xAC\r\n\r\n! \xC3\xA9\r\nl = 2\r\n! of m\r\nm = #4\r\n");
    file.properties.rewrite(0);
    EXPECT_EQ(file.stored(), "l = 2\r\nm = #4\r\n");
    for (char const* const refused : {"", "two\nlines", "two\rlines"})
        EXPECT_EQ(thrownBy([&] { file.properties.addComment(text(refused)); }).number, 22);
    EXPECT_EQ(thrownBy([&] { file.properties.addComment(text("k"), text("x")); }).number, 22);
    EXPECT_EQ(thrownBy([&] { set(file.properties, "k", "\xC3"); }).number, 49);
    EXPECT_EQ(thrownBy([&] { set(file.properties, "\xED\xA0\xBD", "v"); }).number, 49);
    EXPECT_EQ(file.stored(), "l = 2\r\nm = #4\r\n");

    Loaded latin("#", Encoding::latin1);
    latin.properties.addComment(text("\xC3\xA9\xE2\x82\xAC"));
    EXPECT_EQ(latin.stored(), "#\n#\xE9\\u20ac\n");
}

/// Keeps what it is told as "LINE:NUMBER:TEXT".
struct Told : ZJavaPropertiesFile::FaultyLines {
    void faulty(unsigned int line, char const* bytes, ZJavaPropertiesFile::Fault what) override {
        lines +=
            std::to_string(line) + ":" + std::to_string(static_cast<int>(what)) + ":" + bytes + "|";
    }
    std::string lines;
};

TEST(JavaPropertiesFileTest, AnInvalidFileIsRefusedWithItsLineAndNotOverwritten) {
    std::string const bytes =
        "a=1\r\n# \xE9\r\nb=\\\r\n  "
        "\\u12g4\r\\ud83d=\n\nc=\\uDE00\\ud83dx\\u\xC3\xA9\nd=\xED\xA0\xBD";
    StanzaFile const file(bytes);
    ZJavaPropertiesFile properties(file.path().c_str());
    auto const load = [&] { properties.load(); };
    EXPECT_EQ(invalidLine(load), "2:# \xE9");
    EXPECT_EQ(invalidLine([&] { properties.store(); }), "2:# \xE9");
    Told told;
    properties.check(told);
    EXPECT_EQ(
        told.lines,
        "2:0:# \xE9|4:1:  \\u12g4|5:2:\\ud83d=|7:1:c=\\uDE00\\ud83dx\\u\xC3\xA9|8:0:d=\xED\xA0"
        "\xBD|");
    ZJavaPropertiesFile latin(file.path().c_str(), Encoding::latin1);
    EXPECT_EQ(invalidLine([&] { latin.load(); }), "4:  \\u12g4");
    EXPECT_EQ(invalidLine([&] { latin.updateFile([](auto& all) { all.clear(); }, 0); }),
              "4:  \\u12g4");
    EXPECT_EQ(file.bytes(), bytes);

    // Half a pair is a fault of its line alone.
    writeFile(file.path(), "a=1\nb=\\\n\\ud83d\nc=2\n");
    load();
    EXPECT_EQ(get(properties, "c"), "2");
    EXPECT_EQ(invalidLine([&] { get(properties, "b"); }), "3:\\ud83d");
    writeFile(file.path(), "a=1\n\\ude00=1\n");
    load();
    EXPECT_EQ(invalidLine([&] { static_cast<void>(properties.getKeys()); }), "2:\\ude00=1");
}

TEST(JavaPropertiesFileTest, AStoreOverwritesWhatWasReadAlone) {
    StanzaFile const file("");
    auto const storing = [](ZJavaPropertiesFile& properties) {
        return ioFailure([&] { properties.store(); });
    };
    std::string const path = file.beside("made");
    ZJavaPropertiesFile properties(path.c_str());
    EXPECT_EQ(ioFailure([&] { properties.load(); }), ioText(path, "fopen(r)", ENOENT));
    set(properties, "k", "v");
    EXPECT_EQ(storing(properties), "");
    EXPECT_EQ(readFile(path), "k = v\n");

    ZJavaPropertiesFile unread(path.c_str());
    set(unread, "k", "w");
    EXPECT_EQ(storing(unread), ioText(path, "store()", EEXIST));
    writeFile(path, "k = x\n");
    set(properties, "k", "w");
    EXPECT_EQ(storing(properties), ioText(path, "store()", ESTALE));
    EXPECT_EQ(ioFailure([&] { properties.updateFile([](auto&) {}, 0); }),
              ioText(path, "store()", ESTALE));

    int const holder = lockWhole(path, F_OFD_SETLK, F_WRLCK);
    EXPECT_EQ(ioFailure([&] { properties.load(); }), ioText(path, "fcntl()", EAGAIN));
    EXPECT_EQ(ioFailure([&] { properties.updateFile([](auto&) {}, 3); }),
              ioText(path, "fcntl()", EAGAIN));
    close(holder);
    EXPECT_EQ(storing(properties), ioText(path, "fcntl()", EAGAIN)) << "what the load raised";
    EXPECT_EQ(readFile(path), "k = x\n");
    properties.clear();
    EXPECT_EQ(storing(properties), "");
    EXPECT_EQ(readFile(path), "");
    EXPECT_EQ(thrownBy([] { ZJavaPropertiesFile(nullptr); }).number, 22);
    EXPECT_EQ(ioFailure([&] { ZJavaPropertiesFile(file.place().c_str()).load(); }),
              ioText(file.place(), "fopen(r)", EISDIR));
}

TEST(JavaPropertiesFileTest, UpdatesOfSeveralProcessesAreAllKept) {
    constexpr int processes = 4;
    constexpr int times = 25;
    Loaded file("# counts\nn=0\n");
    std::vector<std::unique_ptr<Companion>> children;
    for (int i = 0; i < processes; ++i) {
        children.push_back(std::make_unique<Companion>([&](Companion&) {
            for (int j = 0; j < times; ++j)
                file.properties.updateFile(
                    [](ZJavaPropertiesFile& all) {
                        set(all, "n", std::to_string(std::stoi(get(all, "n")) + 1));
                    },
                    60000);
            return 0;
        }));
    }
    for (auto const& child : children)
        EXPECT_EQ(child->join(), 0);
    EXPECT_EQ(file.bytes(), "# counts\nn=" + std::to_string(processes * times) + "\n");

    // One that is broken off changes nothing, in the file or here.
    auto const breakingOff = [](ZJavaPropertiesFile& all) {
        set(all, "n", "-1");
        throw 1;
    };
    EXPECT_THROW(file.properties.updateFile(breakingOff, 0), int);
    EXPECT_EQ(get(file.properties, "n"), std::to_string(processes * times));
    EXPECT_EQ(file.stored(), "# counts\nn=" + std::to_string(processes * times) + "\n");
    ZJavaPropertiesFile missing(file.beside("missing").c_str());
    EXPECT_THROW(missing.updateFile(breakingOff, 0), int);
    missing.updateFile([](auto&) {}, 0);
    EXPECT_NE(access(file.beside("missing").c_str(), F_OK), 0);
}

TEST(JavaPropertiesFileTest, AnUpdateEditsTheFileThatIsInPlaceAtTheEnd) {
    for (bool const isReplaced : {true, false}) {
        Loaded file("a = 1\n");
        int calls = 0;
        auto const edit = [&](ZJavaPropertiesFile& edited) {
            if (++calls == 1) {
                ASSERT_EQ(unlink(file.path().c_str()), 0);
                if (isReplaced) writeFile(file.path(), "b = 2\n");
            }
            set(edited, "c", "3");
        };
        file.properties.updateFile(edit, 0);
        EXPECT_EQ(calls, 2);
        EXPECT_EQ(file.bytes(), isReplaced ? "b = 2\nc = 3\n" : "c = 3\n");
    }
}

/// Any character, those with a meaning more often.
std::string randomText(std::mt19937& random) {
    constexpr char special[] = " =:#!\\\n\r\t\fu0a\x7F";
    std::string result;
    for (auto length = random() % 8; length > 0; --length) {
        auto const code = static_cast<char32_t>(random() % 0x110000);
        bool const isPlain = random() % 4 != 0 || (code >= 0xD800 && code < 0xE000);
        result += isPlain ? std::string(1, special[random() % sizeof special]) : utf8Of(code);
    }
    return result;
}

TEST(JavaPropertiesFileTest, AnyPairsComeBackAndNoOtherByteChanges) {
    std::vector<std::string> const others = {
        "# c \\\n",    "\n", " \t\r\n", "!\r", "x\\\n #y\n", "\\u007a\\=: \\\r\n  v\\q\n",
        "\xC3\xA9 1\r"};
    std::mt19937 random(8);
    for (int i = 0; i < 300; ++i) {
        std::vector<std::string> lines;
        for (auto count = random() % 6; count > 0; --count)
            lines.push_back(others[random() % others.size()]);
        std::string before, after;
        for (auto const& line : lines)
            (random() % 2 == 0 ? before : after) += line;
        std::string const key = randomText(random) + "k";
        std::string const value = randomText(random);
        SCOPED_TRACE(testing::PrintToString(key + "=" + value));
        Loaded file(before + "k=1\n" + after);
        Pairs pairs = pairsOf(file.properties);
        if (key != "k") pairs.emplace_back(key, value);
        for (auto& pair : pairs) {
            if (pair.first == "k") pair.second = value;
        }
        set(file.properties, "k", value);
        set(file.properties, key, value);
        std::string const bytes = file.stored();
        ASSERT_EQ(file.again(), pairs) << bytes;
        ASSERT_EQ(bytes.compare(0, before.size() + 2, before + "k="), 0) << bytes;
        std::size_t const end = bytes.find('\n', before.size()) + 1;
        ASSERT_EQ(bytes.compare(end, after.size(), after), 0) << bytes;
    }
}

}  // namespace
