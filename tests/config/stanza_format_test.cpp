// The reader and the writer of stanza files, on texts and on files as people write them.
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "Z/ZSCFData.h"
#include "support/properties.h"
#include "support/streams.h"

namespace {

using namespace std::string_literals;
using namespace testsupport;
using InvalidData = ZPropertiesInvalidDataException;

struct Format : ZSCFData {
    explicit Format(std::string const& text = "", bool comments = true) {
        if (comments) setAttributes(keepComments, nullptr);
        read(text);
    }
    void read(std::string const& text) { be_read("a.conf", fileOf(text).get()); }
    std::string written() {
        return writtenBy([this](FILE* out) { be_write("a.conf", out); });
    }
    [[nodiscard]] std::string listed() const {
        return writtenBy([this](FILE* out) { list(out); });
    }
    Texts values(char const* stanza, char const* key) const {
        Texts all;
        forEachValue(stanza, key, plainElseObfuscated, [&](char const* text, unsigned int length) {
            all.emplace_back(text, length);
        });
        return all;
    }
};

TEST(StanzaFormatTest, readsValues) {
    struct {
        char const *text, *stanza, *key;
        Texts values;
    } const rows[] = {
        {"[s]\nkey=value\n", "s", "key", {"value"}},
        {"[s]\n  key   =   value  \n", "s", "key", {"value"}},
        {"[s]\n\t\v\f\r key\t=\tvalue\t\v\f\r\n", "s", "key", {"value"}},
        {"[s]\na b = b = c d\n", "s", "a b", {"b = c d"}},
        {"[s]\nk = v # note\n", "s", "k", {"v # note"}},
        {"[s]\nk =   ", "s", "k", {}},
        {"[s]\nk = 1\nk = 2\nk =\nk = 3", "s", "k", {"1", "2", "3"}},
        {"[ a ]\nk = v\n", " a ", "k", {"v"}},
        {"[s]]\r\nk = v\r\n", "s", "k", {"v"}},
        {"[s]\nk = \xff\xa0\x80\n", "s", "k", {"\xff\xa0\x80"}},
        {"[s]\nK = 1\nk = 2\n", "s", "K", {"1"}},
        {"[]\n[s]\n#k = 1\nk# = 2", "s", "k#", {"2"}},
    };
    for (auto const& row : rows) {
        Format const file(row.text);
        EXPECT_TRUE(file.contains(row.stanza, row.key)) << row.text;
        EXPECT_EQ(file.values(row.stanza, row.key), row.values) << row.text;
    }
}

TEST(StanzaFormatTest, rejectsInvalidLinesAndKeepsWhatWasReadBefore) {
    struct {
        std::string text;
        int line;
        char const* data;
    } const rows[] = {
        {"# c\n\n  k = v  \n", 3, "  k = v"},
        {"\xef\xbb\xbf[s]\nk = v\n", 1, "\xef\xbb\xbf[s]"},
        {"[s]\n[t]\n[]\nk = v\n", 4, "k = v"},
        {"[s]\nk = v\nno value\t\n", 3, "no value"},
        {"[s]\n = v\n", 2, " = v"},
        {"\n  [s k = v \r\n", 2, "  [s k = v"},
        {"[s]\nk = v\n[t]\n [s] again \n", 4, " [s] again"},
        {"[s]\nk = a\0b\n"s, 2, "k = a"},
        {"[s]\nbad\n\0"s, 2, "bad"},
        {"[s]\nk = v\n\0k = w\n"s, 3, ""},
        {"[s]\n# \0 c\n"s, 2, "# "},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.text);
        Format file;
        auto const e = raisedBy<InvalidData>([&] { file.read(row.text); });
        ASSERT_TRUE(e);
        EXPECT_STREQ(e->propFile(), "a.conf");
        EXPECT_EQ(e->badline(), row.line);
        EXPECT_STREQ(e->baddata(), row.data);
        EXPECT_EQ(file.contains("s"), row.text.rfind("[s]", 0) == 0);
    }
}

/// A reader with a buffer of 8192 bytes gets at most 8191 at once; the rest is the next line.
TEST(StanzaFormatTest, theRestOfALongLineIsALineOfItsOwn) {
    for (std::size_t const length : {8189U, 8191U, 8192U, 8194U}) {
        Format file;
        auto const read = [&] {
            file.read("[s]\nk = " + std::string(length - 4, 'v') + "\nz=1\n");
        };
        if (length <= 8191)
            read();
        else
            EXPECT_THROW(read(), InvalidData) << "the rest holds no `=`";
        EXPECT_EQ(file.contains("s", "z"), length <= 8191) << length;
        EXPECT_TRUE(file.values("s", "k") == Texts{std::string(std::min(length - 4, 8187UL), 'v')});
    }
    std::string const value(8186, 'v');
    std::string const comment = "#" + std::string(8190, 'c');
    Format const file("[s]\nk1 = " + value + "  k2 = 2\n" + comment + "k3=3\n" + comment + "\n");
    EXPECT_TRUE(file.listed() == "\n[s]\nk1 = " + value + "\nk2 = 2\nk3 = 3\n");
    ZArrayList lines(0, 1);
    file.getLines(lines);
    ASSERT_EQ(lines.size(), 7U);
    EXPECT_TRUE(*lines.get(5) == ZPropLine(ZPropLine::comment, comment.c_str()));
    // The line feed behind 8191 bytes of comment is a blank line.
    EXPECT_TRUE(*lines.get(6) == ZPropLine(ZPropLine::blank, ""));
}

TEST(StanzaFormatTest, namesTheCompanionFile) {
    std::pair<char const*, char const*> const rows[] = {
        {"[configuration-database]\nfile = a\nfile = /b.obf\n", "/b.obf"},
        {"[configuration-database]\nfile =\nFile = a\n", ""},
        {"[other]\nfile = a\n", ""}};
    for (auto const& [text, name] : rows)
        EXPECT_STREQ(Format(text).getCompanionName(), name) << text;
}

TEST(StanzaFormatTest, readsWhatHasNoSize) {
    std::string text = "[s]\n";
    while (text.size() < 300000)
        text += "key" + std::to_string(text.size()) + " = value\n";
    StanzaFile const source(text);
    std::unique_ptr<FILE, int (*)(FILE*)> const pipe(popen(("cat " + source.path()).c_str(), "r"),
                                                     pclose);
    Format file;
    file.be_read("pipe", pipe.get());
    EXPECT_EQ(file.written(), text);
}

/// Once it was written a text stays as it is; without its comments it keeps its values.
void expectWritten(std::string const& text, std::string const& kept, std::string const& dropped) {
    SCOPED_TRACE(text);
    EXPECT_EQ(Format(text).written(), kept);
    EXPECT_EQ(Format(kept).written(), kept);
    EXPECT_EQ(Format(text, false).written(), dropped);
    for (std::string const& written : {kept, dropped})
        EXPECT_EQ(Format(written).listed(), Format(text).listed());
}

TEST(StanzaFormatTest, writesBackInOrder) {
    expectWritten("", "", "");
    expectWritten("  # a  \n[s] x\n \t\n  k=v", "# a\n[s]\n\nk = v\n", "[s]\nk = v\n");
    expectWritten("[s]\nk =\n\n", "[s]\nk =\n\n", "[s]\nk =\n");
    expectWritten("[s]\nk=1\n#c\nj=0\nk=2\n", "[s]\nk = 1\nk = 2\n#c\nj = 0\n",
                  "[s]\nk = 1\nk = 2\nj = 0\n");
    expectWritten("[ a ]\n[]\n#\n", "[ a ]\n[]\n#\n", "[ a ]\n[]\n");
    expectWritten("[s]\r\nk = v\r\n\r\n# c\r\n", "[s]\nk = v\n\n# c\n", "[s]\nk = v\n");
    Format hidden("[s]\na = 1\n");
    hidden.addLine("s", "secret", "x", 1);
    hidden.addLine("s", "b", "2", 0);
    EXPECT_EQ(hidden.written(), "[s]\na = 1\nb = 2\n");
    EXPECT_EQ(hidden.listed(), "\n[s]\na = 1\nsecret =\nb = 2\n");
}

/// Read without blanks around its `=`, a line can be too long to be written with them.
TEST(StanzaFormatTest, refusesToWriteALineThatNoReaderGetsBackWhole) {
    std::string const x(8186, 'x');
    for (std::string const& line : {"k=" + x, x + "xx=", "#" + x + "xxx"}) {
        std::size_t const sign = line.find('=');
        std::string spaced = line;
        if (sign != line.npos) spaced.replace(sign, 1, sign + 1 == line.size() ? " =" : " = ");
        EXPECT_TRUE(Format("[s]\n" + line + "\n").written() == "[s]\n" + spaced + "\n");
        Format longer("[s]\n" + line.substr(0, 1) + line + "\n");
        auto const e = raisedBy<InvalidData>([&] { static_cast<void>(longer.written()); });
        ASSERT_TRUE(e);
        EXPECT_EQ(e->badline(), 2);
        EXPECT_EQ(*e->baddata(), line.front());
    }
    EXPECT_TRUE(Format("[" + x + "xx]\n").written() == "[" + x + "xx]\n");
}

TEST(StanzaFormatTest, errorsOfTheStreamAreRaised) {
    Format file("[s]\nk = v\n");
    Stream const directory(std::fopen("/", "r"));
    EXPECT_EQ(ioFailure([&] { file.be_read("/", directory.get()); }),
              ioText("/", "fread()", EISDIR));
    Stream const full(std::fopen("/dev/full", "w"));
    std::setvbuf(full.get(), nullptr, _IONBF, 0);
    EXPECT_EQ(ioFailure([&] { file.be_write("full", full.get()); }),
              ioText("full", "fwrite()", ENOSPC));
}

// ------------------------------------------------------------------------- files as people write

template <class Visit>
void eachFileIn(char const* folder, Visit visit) {
    int count = 0;
    for (auto const& entry : std::filesystem::directory_iterator(ZFC_TEST_FILES "/"s + folder)) {
        SCOPED_TRACE(entry.path());
        visit(entry.path());
        ++count;
    }
    EXPECT_GT(count, 0);
}

TEST(StanzaSamplesTest, anAcceptedOneKeepsItsValuesAndItsBytesFromTheFirstRewriteOn) {
    eachFileIn("accepted", [](std::filesystem::path const& sample) {
        std::string const text = readFile(sample);
        EXPECT_NO_THROW(expectWritten(text, Format(text).written(), Format(text, false).written()));
    });
}

TEST(StanzaSamplesTest, aRejectedOneNamesTheLineThatItsFileNameTells) {
    eachFileIn("rejected", [](std::filesystem::path const& sample) {
        auto const e = raisedBy<InvalidData>([&] { Format const file(readFile(sample)); });
        ASSERT_TRUE(e);
        EXPECT_EQ("." + std::to_string(e->badline()), sample.stem().extension());
    });
}

}  // namespace
