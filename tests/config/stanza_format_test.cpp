// The reader and the writer of stanza files, on texts and on files as people write them.
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "Z/ZSCFData.h"
#include "support/properties.h"
#include "support/streams.h"

namespace {

using testsupport::fileOf;
using testsupport::readFile;
using testsupport::Texts;
using testsupport::writtenBy;

struct Format : ZSCFData {
    explicit Format(std::string const& text = "", bool comments = true) {
        if (comments) setAttributes(keepComments, nullptr);
        read(text);
    }
    void read(std::string const& text) { be_read("a.conf", fileOf(text).get()); }
    std::string written() {
        return writtenBy([this](FILE* out) { be_write("a.conf", out); });
    }
    Texts values(char const* stanza, char const* key) const {
        Texts all;
        forEachValue(stanza, key, plainElseObfuscated, [&](char const* text, unsigned int length) {
            all.emplace_back(text, length);
        });
        return all;
    }
};

// ---------------------------------------------------------------------------------- what is read

TEST(StanzaFormatTest, readsValues) {
    struct Case {
        char const *text, *stanza, *key;
        Texts values;
    };
    for (Case const& c : {
             Case{"[s]\nkey=value\n", "s", "key", {"value"}},
             Case{"[s]\n  key   =   value  \n", "s", "key", {"value"}},
             Case{"[s]\n\t\v\f\r key\t=\tvalue\t\v\f\r\n", "s", "key", {"value"}},
             Case{"[s]\na b = b = c d\n", "s", "a b", {"b = c d"}},
             Case{"[s]\nk = v # note\n", "s", "k", {"v # note"}},
             Case{"[s]\nk =   ", "s", "k", {}},
             Case{"[s]\nk = 1\nk = 2\nk =\nk = 3", "s", "k", {"1", "2", "3"}},
             Case{"[ a ]\nk = v\n", " a ", "k", {"v"}},
             Case{"[s]]\r\nk = v\r\n", "s", "k", {"v"}},
             Case{"[s]\nk = \xff\xa0\x80\n", "s", "k", {"\xff\xa0\x80"}},
             Case{"[s]\nK = 1\nk = 2\n", "s", "K", {"1"}},
             Case{"[]\n[s]\n#k = 1\nk# = 2", "s", "k#", {"2"}},
         }) {
        Format const file(c.text);
        EXPECT_TRUE(file.contains(c.stanza, c.key)) << c.text;
        EXPECT_EQ(file.values(c.stanza, c.key), c.values) << c.text;
    }
}

TEST(StanzaFormatTest, rejectsInvalidLinesAndKeepsWhatWasReadBefore) {
    struct Case {
        std::string text;
        int line;
        char const* data;
    };
    for (Case const& c : {
             Case{"# c\n\n  k = v  \n", 3, "  k = v"},
             Case{"\xef\xbb\xbf[s]\nk = v\n", 1, "\xef\xbb\xbf[s]"},
             Case{"[s]\n[t]\n[]\nk = v\n", 4, "k = v"},
             Case{"[s]\nk = v\nno value\t\n", 3, "no value"},
             Case{"[s]\n = v\n", 2, " = v"},
             Case{"\n  [s k = v \r\n", 2, "  [s k = v"},
             Case{"[s]\nk = v\n[t]\n [s] again \n", 4, " [s] again"},
             Case{std::string("[s]\nk = a\0b\n", 12), 2, "k = a"},
             Case{std::string("[s]\nbad\n\0", 9), 2, "bad"},
             Case{std::string("[s]\n# \0 c\n", 10), 2, "# "},
         }) {
        Format file;
        auto const e =
            testsupport::raisedBy<ZPropertiesInvalidDataException>([&] { file.read(c.text); });
        ASSERT_TRUE(e) << c.text;
        EXPECT_STREQ(e->propFile(), "a.conf");
        EXPECT_EQ(e->badline(), c.line) << c.text;
        EXPECT_STREQ(e->baddata(), c.data);
        EXPECT_EQ(file.contains("s"), c.text.rfind("[s]", 0) == 0) << c.text;
    }
}

/// A reader with a buffer of 8192 bytes gets at most 8191 at once; the rest is the next line.
TEST(StanzaFormatTest, theRestOfALongLineIsALineOfItsOwn) {
    for (std::size_t length = 8189; length <= 8194; ++length) {
        std::string const value(length - 4, 'v');
        Format file;
        auto const read = [&] { file.read("[s]\nk = " + value + "\nz = 1\n"); };
        bool const fits = length <= 8191;
        if (fits) {
            read();
        } else {
            EXPECT_THROW(read(), ZPropertiesInvalidDataException) << "the rest holds no `=`";
        }
        EXPECT_EQ(file.contains("s", "z"), fits) << length;
        EXPECT_TRUE(file.values("s", "k") == Texts{value.substr(0, 8187)}) << length;
    }
    std::string const comment = "#" + std::string(8190, 'c');
    std::string const value(8186, 'v');
    Format const file("[s]\nk1 = " + value + "  k2 = 2\n" + comment + "k3=3\n" + comment + "\n");
    EXPECT_TRUE(file.values("s", "k1") == Texts{value});
    EXPECT_EQ(file.values("s", "k2"), Texts{"2"});
    EXPECT_EQ(file.values("s", "k3"), Texts{"3"});
    ZArrayList lines(0, 1);
    file.getLines(lines);
    ASSERT_EQ(lines.size(), 7U);
    EXPECT_TRUE(*lines.get(5) == ZPropLine(ZPropLine::comment, comment.c_str()));
    // The line feed behind 8191 bytes of comment is a blank line.
    EXPECT_TRUE(*lines.get(6) == ZPropLine(ZPropLine::blank, ""));
}

TEST(StanzaFormatTest, namesTheCompanionFile) {
    struct Case {
        char const *text, *name;
    };
    for (Case const& c : {Case{"[configuration-database]\nfile = a\nfile = /b.obf\n", "/b.obf"},
                          Case{"[configuration-database]\nfile =\nFile = a\n", ""},
                          Case{"[other]\nfile = a\n", ""}})
        EXPECT_STREQ(Format(c.text).getCompanionName(), c.name) << c.text;
}

TEST(StanzaFormatTest, readsWhatHasNoSize) {
    std::string text = "[s]\n";
    while (text.size() < 300000)
        text += "key" + std::to_string(text.size()) + " = value\n";
    testsupport::StanzaFile const source(text);
    std::unique_ptr<FILE, int (*)(FILE*)> const pipe(popen(("cat " + source.path()).c_str(), "r"),
                                                     pclose);
    Format file;
    file.be_read("pipe", pipe.get());
    EXPECT_EQ(file.written(), text);
}

// ------------------------------------------------------------------------------- what is written

TEST(StanzaFormatTest, writesBackInOrder) {
    struct Case {
        char const *text, *kept, *dropped;  // written with and without comments
    };
    for (Case const& c : {
             Case{"", "", ""},
             Case{"  # a  \n[s] x\n \t\n  k=v", "# a\n[s]\n\nk = v\n", "[s]\nk = v\n"},
             Case{"[s]\nk =\n\n", "[s]\nk =\n\n", "[s]\nk =\n"},
             Case{"[s]\nk=1\n#c\nj=0\nk=2\n", "[s]\nk = 1\nk = 2\n#c\nj = 0\n",
                  "[s]\nk = 1\nk = 2\nj = 0\n"},
             Case{"[ a ]\n[]\n#\n", "[ a ]\n[]\n#\n", "[ a ]\n[]\n"},
             Case{"[s]\r\nk = v\r\n\r\n# c\r\n", "[s]\nk = v\n\n# c\n", "[s]\nk = v\n"},
         }) {
        EXPECT_EQ(Format(c.text).written(), c.kept) << c.text;
        EXPECT_EQ(Format(c.kept).written(), c.kept) << "the second time: " << c.text;
        EXPECT_EQ(Format(c.text, false).written(), c.dropped) << c.text;
    }
}

TEST(StanzaFormatTest, doesNotShowObfuscatedValues) {
    Format file("[s]\na = 1\n");
    file.addLine("s", "secret", "x", 1);
    file.addLine("s", "b", "2", 0);
    EXPECT_EQ(file.written(), "[s]\na = 1\nb = 2\n");
    EXPECT_EQ(writtenBy([&](FILE* out) { file.list(out); }), "\n[s]\na = 1\nsecret =\nb = 2\n");
}

/// Read without blanks around its `=`, a line can be too long to be written with them.
TEST(StanzaFormatTest, refusesToWriteALineThatNoReaderGetsBackWhole) {
    std::string const x(8186, 'x');
    struct Case {
        std::string line, written;  // empty: refused
    };
    for (Case const& c :
         {Case{"k=" + x, "k = " + x}, Case{"k=" + x + "x", ""}, Case{x + "xx=", x + "xx ="},
          Case{x + "xxx=", ""}, Case{"#" + x + "xxx", "#" + x + "xxx"}, Case{"#" + x + "xxxx", ""},
          Case{"[" + x + "xx]", "[" + x + "xx]"}}) {
        Format file("[s]\n" + c.line + "\n");
        if (!c.written.empty()) {
            EXPECT_TRUE(file.written() == "[s]\n" + c.written + "\n") << c.line.size();
            continue;
        }
        auto const e = testsupport::raisedBy<ZPropertiesInvalidDataException>(
            [&] { static_cast<void>(file.written()); });
        ASSERT_TRUE(e);
        EXPECT_EQ(e->badline(), 2);
        EXPECT_EQ(*e->baddata(), c.line.front());
    }
}

TEST(StanzaFormatTest, errorsOfTheStreamAreRaised) {
    Format file("[s]\nk = v\n");
    testsupport::Stream const directory(std::fopen("/", "r"));
    EXPECT_EQ(testsupport::ioFailure([&] { file.be_read("/", directory.get()); }),
              testsupport::ioText("/", "fread()", EISDIR));
    testsupport::Stream const full(std::fopen("/dev/full", "w"));
    std::setvbuf(full.get(), nullptr, _IONBF, 0);
    EXPECT_EQ(testsupport::ioFailure([&] { file.be_write("full", full.get()); }),
              testsupport::ioText("full", "fwrite()", ENOSPC));
}

// ------------------------------------------------------------------------- files as people write

Texts filesIn(std::string const& folder) {
    Texts files;
    for (auto const& entry : std::filesystem::directory_iterator(ZFC_TEST_FILES "/" + folder))
        files.push_back(entry.path().string());
    EXPECT_FALSE(files.empty());
    return files;
}

/// "stanza/key" before the values of each key.
Texts valuesIn(std::string const& file) {
    ZStanzaFileProperties const properties(file.c_str(), 1);
    Texts all;
    for (ZPropertiesIterator stanzas(properties); stanzas.next();) {
        std::string const stanza = stanzas.getName();
        all.push_back(stanza);
        if (stanza.empty()) continue;
        for (ZPropertiesIterator keys(properties, stanza.c_str()); keys.next();) {
            all.push_back(stanza + "/" + keys.getName());
            for (auto const& value :
                 testsupport::valuesOf(properties, stanza.c_str(), keys.getName()))
                all.push_back(value);
        }
    }
    return all;
}

TEST(StanzaSamplesTest, anAcceptedOneKeepsItsValuesAndItsBytesFromTheFirstRewriteOn) {
    for (std::string const& sample : filesIn("accepted")) {
        SCOPED_TRACE(sample);
        testsupport::StanzaFile const file(readFile(sample));
        Texts const values = valuesIn(file.path());
        ZStanzaFileProperties(file.path().c_str(), 1).store();
        std::string const once = file.bytes();
        for (int const keepComments : {1, 0}) {
            EXPECT_EQ(valuesIn(file.path()), values);
            EXPECT_EQ(file.bytes(), once);
            ZStanzaFileProperties(file.path().c_str(), keepComments).store();
        }
        EXPECT_EQ(valuesIn(file.path()), values) << "without its comments";
    }
}

TEST(StanzaSamplesTest, aRejectedOneNamesTheLineThatItsFileNameTells) {
    for (std::string const& sample : filesIn("rejected")) {
        SCOPED_TRACE(sample);
        auto const e = testsupport::raisedBy<ZPropertiesInvalidDataException>(
            [&] { ZStanzaFileProperties const properties(sample.c_str(), 1); });
        ASSERT_TRUE(e);
        EXPECT_EQ("." + std::to_string(e->badline()),
                  std::filesystem::path(sample).stem().extension().string());
        EXPECT_EQ(e->propFile(), sample);
    }
}

}  // namespace
