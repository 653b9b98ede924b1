// link: static
// The reader and the writer of stanza files, on texts.
#include <cerrno>

#include "support/properties.h"
#include "support/records_check.h"

namespace {

using namespace std::string_literals;
using namespace testsupport;
using Format = CheckedCache;
using InvalidData = ZPropertiesInvalidDataException;

TEST(StanzaFormatTest, readsValues) {
    struct {
        char const *text, *stanza, *key;
        Texts values;
    } const rows[] = {
        {"[s]\n\t\v\f\r key\t=\tvalue\t\v\f\r\n", "s", "key", {"value"}},
        {"[s]\na b = b = c d\n", "s", "a b", {"b = c d"}},
        {"[s]\nk = v # note\n", "s", "k", {"v # note"}},
        {"[s]\nk =   ", "s", "k", {}},
        {"[s]\nk = 1\nk = 2\nk =\nk = 3", "s", "k", {"1", "2", "3"}},
        {"[s]]\r\nk = \xff\xa0\x80\r\n", "s", "k", {"\xff\xa0\x80"}},
        {"[ a ]\nK = 1\nk = 2\n", " a ", "K", {"1"}},
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
        {"[s]\nk = v\n<<<<<<< ours\t\n", 3, "<<<<<<< ours"},
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
        EXPECT_STREQ(e->propFile(), "f");
        EXPECT_EQ(e->badline(), row.line);
        EXPECT_STREQ(e->baddata(), row.data);
        EXPECT_EQ(file.contains("s"), row.text.rfind("[s]", 0) == 0);
    }
}

/// A reader with a buffer of 8192 bytes gets at most 8191 at once; the rest is the next line.
TEST(StanzaFormatTest, theRestOfALongLineIsALineOfItsOwn) {
    std::string const value(8187, 'v');
    EXPECT_TRUE(Format("[s]\nk = " + value + "\nz=1\n").contains("s", "z"));
    Format cut;
    EXPECT_THROW(cut.read("[s]\nk = " + value + "v\nz=1\n"), InvalidData) << "no `=` in \"v\"";
    EXPECT_TRUE(cut.values("s", "k") == Texts{value});
    std::string const line = "k1 = " + value.substr(1);
    std::string const comment = "#" + std::string(8190, 'c');
    Format const file("[s]\n" + line + " k2 = 2\n" + comment + "k3=3\n" + comment + "\n");
    EXPECT_TRUE(file.listed() == "\n[s]\n" + line + "\nk2 = 2\nk3 = 3\n");
    ZArrayList lines(0, 1);
    file.getLines(lines);
    ASSERT_EQ(lines.size(), 7U);
    EXPECT_TRUE(*lines.get(5) == ZPropLine(ZPropLine::comment, comment.c_str()));
    // The line feed behind 8191 bytes of comment is a blank line.
    EXPECT_TRUE(*lines.get(6) == ZPropLine(ZPropLine::blank, ""));
}

TEST(StanzaFormatTest, readsWhatHasNoSize) {
    std::unique_ptr<FILE, int (*)(FILE*)> const pipe(
        popen("echo '[s]'; seq -f '%.0f = v' 50000", "r"), pclose);
    Format file;
    file.be_read("pipe", pipe.get());
    EXPECT_EQ(file.keyCount("s"), 50000U);
    EXPECT_EQ(file.values("s", "50000"), Texts{"v"});
}

/// Once it was written a text stays as it is; without its comments it keeps its values.
TEST(StanzaFormatTest, writesBackInOrder) {
    struct {
        char const *text, *kept, *dropped;
    } const rows[] = {
        {"", "", ""},
        {"\t# a  \n[s] x\n \t\n  k=v", "# a\n[s]\n\nk = v\n", "[s]\nk = v\n"},
        {"[s]\r\nk =\r\n\r\n# c\r\n", "[s]\nk =\n\n# c\n", "[s]\nk =\n"},
        {"[s]\nk=1\n#c\nj=0\nk=2\n", "[s]\nk = 1\nk = 2\n#c\nj = 0\n",
         "[s]\nk = 1\nk = 2\nj = 0\n"},
        {"[ a ]\n[]\n#\n", "[ a ]\n[]\n#\n", "[ a ]\n[]\n"},
        {"# entry\n[Desktop Entry]\nName[de]=Anzeige\nMimeType=text/plain;\n\n[Desktop Action]\n",
         "# entry\n[Desktop Entry]\nName[de] = Anzeige\nMimeType = text/plain;\n\n[Desktop "
         "Action]\n",
         "[Desktop Entry]\nName[de] = Anzeige\nMimeType = text/plain;\n[Desktop Action]\n"},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(Format(row.text).written(), row.kept);
        EXPECT_EQ(Format(row.kept).written(), row.kept);
        EXPECT_EQ(Format(row.text, false).written(), row.dropped);
        for (char const* const written : {row.kept, row.dropped})
            EXPECT_EQ(Format(written).listed(), Format(row.text).listed());
    }
}

/// Read without blanks around its `=`, a line can be too long to be written with them.
TEST(StanzaFormatTest, refusesToWriteALineThatNoReaderGetsBackWhole) {
    std::string const x(8186, 'x');
    std::pair<std::string, std::string> const rows[] = {
        {"k=" + x, "k = " + x}, {x + "xx=", x + "xx ="}, {"#" + x + "xxx", "#" + x + "xxx"}};
    for (auto const& [line, written] : rows) {
        EXPECT_TRUE(Format("[s]\n" + line + "\n").written() == "[s]\n" + written + "\n");
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

}  // namespace
