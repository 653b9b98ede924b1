#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "Z/ZException.h"
#include "Z/ZList.h"
#include "Z/ZSCFData.h"
#include "support/processes.h"
#include "support/streams.h"

namespace {

using testsupport::fileOf;
using testsupport::writtenBy;

struct StanzaFile : ZSCFData {
    explicit StanzaFile(bool comments = true) {
        if (comments) setAttributes(keepComments, nullptr);
    }
    void read(std::string const& text) { be_read("a.conf", fileOf(text).get()); }
    std::string written() {
        return writtenBy([this](FILE* out) { be_write("a.conf", out); });
    }
    std::vector<std::string> values(char const* stanza, char const* key) const {
        std::vector<std::string> all;
        forEachValue(stanza, key, plainElseObfuscated, [&](char const* text, unsigned int length) {
            all.emplace_back(text, length);
        });
        return all;
    }
};

using Values = std::vector<std::string>;

// ---------------------------------------------------------------------------------- what is read

TEST(StanzaFormatTest, readsValues) {
    struct Case {
        std::string text, stanza, key;
        Values values;
    };
    for (Case const& c : std::vector<Case>{
             {"[s]\nkey=value\n", "s", "key", {"value"}},
             {"[s]\nkey = value\n", "s", "key", {"value"}},
             {"[s]\n  key   =   value  \n", "s", "key", {"value"}},
             {"[s]\n\t\v\f\r key\t=\tvalue\t\v\f\r\n", "s", "key", {"value"}},
             {"[s]\na b = c d\n", "s", "a b", {"c d"}},
             {"[s]\na = b = c\n", "s", "a", {"b = c"}},
             {"[s]\nk = v # note\n", "s", "k", {"v # note"}},
             {"[s]\nk =\n", "s", "k", {}},
             {"[s]\nk =   ", "s", "k", {}},
             {"[s]\nk = 1\nk = 2\nk =\nk = 3", "s", "k", {"1", "2", "3"}},
             {"[ a ]\nk = v\n", " a ", "k", {"v"}},
             {"[s]]\nk = v\n", "s", "k", {"v"}},
             {"[s]\r\nk = v\r\n", "s", "k", {"v"}},
             {"[s]\nk = \xff\xa0\x80\n", "s", "k", {"\xff\xa0\x80"}},
             {"[s]\nK = 1\nk = 2\n", "s", "K", {"1"}},
             {"[]\n[s]\nk = v", "s", "k", {"v"}},
             {"[s]\n#k = 1\nk# = 2", "s", "k#", {"2"}},
             {"[s]\nfile = x\n[t]\nfile = y", "t", "file", {"y"}},
         }) {
        StanzaFile file;
        file.read(c.text);
        EXPECT_TRUE(file.contains(c.stanza.c_str(), c.key.c_str())) << c.text;
        EXPECT_EQ(file.values(c.stanza.c_str(), c.key.c_str()), c.values) << c.text;
    }
}

TEST(StanzaFormatTest, rejectsInvalidLinesAndKeepsWhatWasReadBefore) {
    struct Case {
        std::string text;
        int line;
        std::string data;
    };
    for (Case const& c : std::vector<Case>{
             {"k = v\n", 1, "k = v"},
             {"# c\n\n  k = v  \n", 3, "  k = v"},
             {"\xef\xbb\xbf[s]\nk = v\n", 1, "\xef\xbb\xbf[s]"},
             {"[]\nk = v\n", 2, "k = v"},
             {"[s]\n[t]\n[]\nk = v\n", 4, "k = v"},
             {"[s]\nk = v\nno value\t\n", 3, "no value"},
             {"[s]\n = v\n", 2, " = v"},
             {"[s]\n=\n", 2, "="},
             {"[s\nk = v\n", 1, "[s"},
             {"\n  [s k = v \r\n", 2, "  [s k = v"},
             {"[s]\nk = v\n[t]\n [s] again \n", 4, " [s] again"},
             {std::string("[s]\nk = a\0b\n", 12), 2, "k = a"},
             {std::string("[s]\n\0", 5), 2, ""},
             {std::string("[s]\nbad\n\0", 9), 2, "bad"},
             {std::string("[s]\n# \0 c\n", 10), 2, "# "},
         }) {
        StanzaFile file;
        try {
            file.read(c.text);
            ADD_FAILURE() << "read: " << c.text;
        } catch (ZPropertiesInvalidDataException const& error) {
            EXPECT_STREQ(error.propFile(), "a.conf");
            EXPECT_EQ(error.badline(), c.line) << c.text;
            EXPECT_EQ(error.baddata(), c.data) << c.text;
        }
        bool const hadStanza = c.text.rfind("[s]", 0) == 0;
        EXPECT_EQ(file.contains("s"), hadStanza) << c.text;
    }
}

/// A reader with a buffer of 8192 bytes gets at most 8191 at once; the rest is the next line.
TEST(StanzaFormatTest, theRestOfALongLineIsALineOfItsOwn) {
    for (std::size_t length = 8188; length <= 8200; ++length) {
        std::string const value(length - 4, 'v');
        StanzaFile file;
        auto const read = [&] { file.read("[s]\nk = " + value + "\nz = 1\n"); };
        if (length <= 8191) {
            read();
        } else {
            EXPECT_THROW(read(), ZPropertiesInvalidDataException) << "the rest holds no `=`";
        }
        EXPECT_EQ(file.contains("s", "z"), length <= 8191) << length;
        EXPECT_TRUE(file.values("s", "k") == Values{value.substr(0, 8187)}) << length;
    }
    std::string const comment = "#" + std::string(8190, 'c');
    std::string const value(8186, 'v');
    StanzaFile file;
    file.read("[s]\nk1 = " + value + "  k2 = 2\n" + comment + "k3=3\n" + comment + "\n");
    EXPECT_TRUE(file.values("s", "k1") == Values{value});
    EXPECT_EQ(file.values("s", "k2"), Values{"2"});
    EXPECT_EQ(file.values("s", "k3"), Values{"3"});
    ZArrayList lines(0, 1);
    file.getLines(lines);
    ASSERT_EQ(lines.size(), 7U);
    EXPECT_TRUE(*lines.get(5) == ZPropLine(ZPropLine::comment, comment.c_str()));
    // The line feed behind 8191 bytes of comment is a blank line.
    EXPECT_TRUE(*lines.get(6) == ZPropLine(ZPropLine::blank, ""));
}

TEST(StanzaFormatTest, leavesOutWhatStandsBehindAHeaderAndAcceptsAnEmptyOne) {
    StanzaFile file;
    file.read("  [s] left out\nk = v\n[]\n");
    EXPECT_EQ(file.written(), "[s]\nk = v\n[]\n");
    EXPECT_THROW(file.read("[t]\n[u\n"), ZPropertiesInvalidDataException);
}

TEST(StanzaFormatTest, namesTheCompanionFile) {
    struct Case {
        char const* text;
        char const* name;
    };
    for (Case const& c :
         {Case{"[configuration-database]\nfile = /a/b.obf\n", "/a/b.obf"},
          Case{"[configuration-database]\nfile = a\nfile = b\n", "b"},
          Case{"[configuration-database]\nfile =\n", ""},
          Case{"[configuration-database]\nFile = a\n", ""}, Case{"[other]\nfile = a\n", ""}}) {
        StanzaFile file;
        file.read(c.text);
        EXPECT_STREQ(file.getCompanionName(), c.name) << c.text;
    }
}

TEST(StanzaFormatTest, aReadErrorIsNoEndOfFile) {
    testsupport::Stream const directory(std::fopen("/", "r"));
    StanzaFile file;
    try {
        file.be_read("/", directory.get());
        ADD_FAILURE() << "read a directory";
    } catch (ZPropertiesIOException const& error) {
        EXPECT_STREQ(error.api(), "fread()");
        EXPECT_EQ(error.excerrno(), EISDIR);
    }
}

TEST(StanzaFormatTest, readsWhatHasNoSize) {
    std::string text = "[s]\n";
    while (text.size() < 300000)
        text += "key" + std::to_string(text.size()) + " = value\n";
    testsupport::TempDir const directory;
    testsupport::writeFile(directory.file("f"), text);
    std::unique_ptr<FILE, int (*)(FILE*)> const pipe(
        popen(("cat " + directory.file("f")).c_str(), "r"), pclose);
    StanzaFile file;
    file.be_read("pipe", pipe.get());
    EXPECT_EQ(file.written(), text);
}

// ------------------------------------------------------------------------------- what is written

TEST(StanzaFormatTest, writesBackInOrder) {
    struct Case {
        char const* text;
        char const* kept;     // written with comments kept
        char const* dropped;  // written without
    };
    for (Case const& c : {
             Case{"", "", ""},
             Case{"# a\n\n[s]\nk = v\n", "# a\n\n[s]\nk = v\n", "[s]\nk = v\n"},
             Case{"  # a  \n[s] x\n \t\n  k=v", "# a\n[s]\n\nk = v\n", "[s]\nk = v\n"},
             Case{"[s]\nk =\n\n", "[s]\nk =\n\n", "[s]\nk =\n"},
             Case{"[s]\nk=1\n#c\nj=0\nk=2\n", "[s]\nk = 1\nk = 2\n#c\nj = 0\n",
                  "[s]\nk = 1\nk = 2\nj = 0\n"},
             Case{"[ a ]\n[]\n#\n", "[ a ]\n[]\n#\n", "[ a ]\n[]\n"},
             Case{"[s]\r\nk = v\r\n\r\n# c\r\n", "[s]\nk = v\n\n# c\n", "[s]\nk = v\n"},
         }) {
        StanzaFile keeping(true);
        keeping.read(c.text);
        EXPECT_EQ(keeping.written(), c.kept) << c.text;
        StanzaFile again(true);
        again.read(c.kept);
        EXPECT_EQ(again.written(), c.kept) << "the second time: " << c.text;
        StanzaFile dropping(false);
        dropping.read(c.text);
        EXPECT_EQ(dropping.written(), c.dropped) << c.text;
    }
}

TEST(StanzaFormatTest, doesNotWriteObfuscatedValues) {
    StanzaFile file;
    file.read("[s]\na = 1\n");
    file.addLine("s", "secret", "x", 1);
    file.addLine("s", "b", "2", 0);
    EXPECT_EQ(file.written(), "[s]\na = 1\nb = 2\n");
    file.addLine("s", "secret", "", 1);
    EXPECT_EQ(file.written(), "[s]\na = 1\nsecret =\nb = 2\n");
    EXPECT_EQ(writtenBy([&](FILE* out) { file.list(out); }), "\n[s]\na = 1\nsecret =\nb = 2\n");
}

/// Read without blanks around its `=`, a line can be too long to be written with them.
TEST(StanzaFormatTest, refusesToWriteALineThatNoReaderGetsBackWhole) {
    struct Case {
        std::string line;
        std::string written;  // empty: refused
    };
    for (Case const& c : std::vector<Case>{
             {"k=" + std::string(8186, 'v'), "k = " + std::string(8186, 'v')},
             {"k=" + std::string(8187, 'v'), ""},
             {"k=" + std::string(8188, 'v'), ""},
             {std::string(8188, 'k') + "=", std::string(8188, 'k') + " ="},
             {std::string(8189, 'k') + "=", ""},
             {"#" + std::string(8189, 'c'), "#" + std::string(8189, 'c')},
             {"#" + std::string(8190, 'c'), ""},
             {"[" + std::string(8188, 'n') + "]", "[" + std::string(8188, 'n') + "]"},
         }) {
        StanzaFile file;
        file.read("[s]\n" + c.line + "\n");
        std::string out;
        try {
            out = file.written();
            EXPECT_TRUE(out == "[s]\n" + c.written + "\n") << c.line.size();
        } catch (ZPropertiesInvalidDataException const& error) {
            EXPECT_TRUE(c.written.empty());
            EXPECT_EQ(error.badline(), 2);
            EXPECT_EQ(std::string(error.baddata()).front(), c.line.front());
        }
        EXPECT_EQ(out.empty(), c.written.empty()) << c.line.size();
    }
}

TEST(StanzaFormatTest, aWriteErrorIsRaised) {
    testsupport::Stream const full(std::fopen("/dev/full", "w"));
    std::setvbuf(full.get(), nullptr, _IONBF, 0);
    StanzaFile file;
    file.read("[s]\nk = v\n");
    try {
        file.be_write("full", full.get());
        ADD_FAILURE() << "written";
    } catch (ZPropertiesIOException const& error) {
        EXPECT_STREQ(error.api(), "fwrite()");
        EXPECT_EQ(error.excerrno(), ENOSPC);
    }
}

}  // namespace
