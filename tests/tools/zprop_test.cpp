// The shell tool on real files, as an administrator calls it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/processes.h"

namespace {

using testsupport::captureChild;
using testsupport::Captured;
using testsupport::Companion;
using testsupport::readFile;
using testsupport::TempDir;
using testsupport::writeFile;

/// Runs zprop with these arguments; `input` is its standard input.
Captured zprop(std::vector<std::string> const& arguments, std::string const& input = {}) {
    TempDir const dir;
    writeFile(dir.file("in"), input);
    return captureChild([&] {
        int const in = open(dir.file("in").c_str(), O_RDONLY);
        dup2(in, STDIN_FILENO);
        return testsupport::becomeProgram(ZFC_TEST_ZPROP, arguments);
    });
}

constexpr char sample[] =
    "# the proxy\n"
    "\n"
    "[server]\n"
    "host = east.example\n"
    "port=8080\n"
    "listen = a\n"
    "listen = b\n"
    "\n"
    "# timeout = 30\n"
    "\n"
    "[log]\n"
    "level = info\n"
    "rotate =\n";

class ZpropOnFile : public testing::Test {
  protected:
    ZpropOnFile() { writeFile(file, sample); }

    TempDir dir;
    std::string file = dir.file("app.conf");
};

TEST_F(ZpropOnFile, GetAnswersByTypeWithDefaultsAndExitCodes) {
    struct {
        std::vector<std::string> arguments;
        int status;
        char const* out;
    } const rows[] = {
        {{"server", "host"}, 0, "east.example\n"},
        {{"server", "listen"}, 0, "b\n"},
        {{"server", "listen", "--all"}, 0, "a\nb\n"},
        {{"server", "port", "--type", "int"}, 0, "8080\n"},
        {{"server", "host", "--type", "int"}, 1, ""},
        {{"server", "host", "--type", "bool"}, 1, ""},
        {{"server", "port", "--type", "float"}, 2, ""},
        {{"server", "none"}, 1, ""},
        {{"none", "host"}, 1, ""},
        {{"server", "none", "--default", "x"}, 0, "x\n"},
        {{"server", "none", "--default", "7", "--type", "int"}, 0, "7\n"},
        {{"server", "none", "--default", "x", "--type", "int"}, 2, ""},
        {{"server", "none", "--default", "on", "--type", "bool"}, 2, ""},
        {{"server", "none", "--default", "true", "--type", "bool"}, 0, "yes\n"},
        {{"log", "rotate"}, 1, ""},  // the key stands there without a value
        {{"log", "rotate", "--all"}, 1, ""},
        {{"server"}, 2, ""},
    };
    for (auto const& row : rows) {
        std::vector<std::string> arguments{"get", file};
        arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
        auto const result = zprop(arguments);
        EXPECT_EQ(result.status, row.status) << testing::PrintToString(row.arguments) << result.err;
        EXPECT_EQ(result.out, row.out) << testing::PrintToString(row.arguments);
        EXPECT_EQ(result.err.empty(), row.status == 0) << result.err;
    }
    EXPECT_EQ(zprop({"get", dir.file("gone"), "s", "k"}).status, 3);
    EXPECT_EQ(zprop({"get", dir.path(), "s", "k"}).status, 3);
}

TEST_F(ZpropOnFile, SetKeepsEverythingElseAndPlacesNewKeysAtTheirTemplate) {
    EXPECT_EQ(zprop({"set", file, "server", "timeout", "60"}).status, 0);
    EXPECT_EQ(zprop({"set", file, "server", "port", "9090"}).status, 0);
    EXPECT_EQ(zprop({"set", file, "server", "listen", "c", "--add"}).status, 0);
    EXPECT_EQ(zprop({"set", file, "new", "offset", "--", "-5"}).status, 0);
    EXPECT_EQ(readFile(file),
              "# the proxy\n\n[server]\nhost = east.example\nport = 9090\nlisten = a\nlisten = b\n"
              "listen = c\n\n# timeout = 30\ntimeout = 60\n\n[log]\nlevel = info\nrotate =\n[new]\n"
              "offset = -5\n");
}

TEST_F(ZpropOnFile, SetMakesAFileAndARefusedOneLeavesNone) {
    auto const made = dir.file("made.conf");
    EXPECT_EQ(zprop({"set", made, "s", "k", ""}).status, 0);
    EXPECT_EQ(readFile(made), "[s]\nk =\n");
    ASSERT_EQ(symlink(dir.file("target.conf").c_str(), dir.file("link").c_str()), 0);
    EXPECT_EQ(zprop({"set", dir.file("link"), "s", "k", ""}).status, 0);
    EXPECT_EQ(readFile(dir.file("target.conf")), "[s]\nk =\n");

    auto const refused = dir.file("refused.conf");
    auto const result = zprop({"set", refused, "s", "a=b", "v"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find(refused), std::string::npos) << result.err;
    EXPECT_NE(access(refused.c_str(), F_OK), 0);
}

TEST_F(ZpropOnFile, EditsThatWouldNotReadBackChangeNothing) {
    std::vector<std::vector<std::string>> const refused = {
        {"set", file, "server", "k", "two\nlines"},
        {"set", file, "server", "#k", "v"},
        {"set", file, "ser]ver", "k", "v"},
        {"set", file, "server", "port", "1", "--obfuscate"},
        {"set", file, "server", "k", "", "--add"},
        {"unset", file, "server", "none"},
        {"unset", file, "none"},
        {"comment", file, "two\nlines"},
        {"comment", file, "x", "--stanza", "none"},
        {"comment", file, "x", "--stanza", "log", "--key", "none"},
    };
    for (auto const& arguments : refused) {
        auto const result = zprop(arguments);
        EXPECT_EQ(result.status, 1) << testing::PrintToString(arguments) << result.err;
        EXPECT_FALSE(result.err.empty());
    }
    // What a shell makes of a variable that is not set.
    EXPECT_EQ(zprop({"unset", file, "server", ""}).status, 2);
    EXPECT_EQ(zprop({"comment", file, "x", "--stanza", ""}).status, 2);
    EXPECT_EQ(zprop({"edit", file}, "unset server ''\n").status, 2);
    EXPECT_EQ(readFile(file), sample);
}

TEST_F(ZpropOnFile, UnsetAndCommentChangeTheirLinesAlone) {
    EXPECT_EQ(zprop({"unset", file, "server", "listen"}).status, 0);
    EXPECT_EQ(zprop({"unset", file, "log"}).status, 0);
    EXPECT_EQ(zprop({"comment", file, "of the file"}).status, 0);
    EXPECT_EQ(zprop({"comment", file, "of the stanza", "--stanza", "server"}).status, 0);
    EXPECT_EQ(
        zprop({"comment", file, "# of the key", "--stanza", "server", "--key", "port"}).status, 0);
    EXPECT_EQ(readFile(file),
              "# the proxy\n#of the file\n\n[server]\n#of the stanza\nhost = east.example\n"
              "# of the key\nport = 8080\n\n# timeout = 30\n\n");
}

TEST_F(ZpropOnFile, EditStoresAllLinesOrNone) {
    auto const result = zprop({"edit", file},
                              "# a comment\n\nset log level 'very \"loud\"'\n"
                              "set log path \"a b\\\"c\" \nunset server listen\n"
                              "comment hello\\ there --stanza log\n");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(
        readFile(file),
        "# the proxy\n\n[server]\nhost = east.example\nport = 8080\n\n# timeout = 30\n\n[log]\n"
        "#hello there\nlevel = very \"loud\"\nrotate =\npath = a b\"c\n");

    std::string const before = readFile(file);
    struct {
        char const* input;
        int status;
        char const* message;
    } const rows[] = {
        {"set log level x\nset log 'open\n", 2, "standard input:2: "},
        {"set log level x\nfrobnicate\n", 2, "standard input:2: "},
        {"set log level x\nset log\n", 2, "standard input:2: "},
        {"set log level x\nunset log none\n", 1, "there is no key \"none\""},
    };
    for (auto const& row : rows) {
        auto const refused = zprop({"edit", file}, row.input);
        EXPECT_EQ(refused.status, row.status) << row.input;
        EXPECT_NE(refused.err.find(row.message), std::string::npos) << refused.err;
        EXPECT_EQ(readFile(file), before);
    }
}

TEST_F(ZpropOnFile, ObfuscatedValuesShowOnlyWhenRevealed) {
    EXPECT_EQ(zprop({"set", file, "db", "password", "s3cret\nline", "--obfuscate"}).status, 0);
    EXPECT_EQ(readFile(file).find("s3cret"), std::string::npos);
    std::string const companion = file + ".obf";
    struct stat status {};
    ASSERT_EQ(stat(companion.c_str(), &status), 0);

    EXPECT_EQ(zprop({"get", file, "db", "password"}).out, "(obfuscated)\n");
    EXPECT_EQ(zprop({"get", file, "db", "password", "--reveal"}).out, "s3cret\nline\n");
    EXPECT_NE(zprop({"dump", file}).out.find("[db]\npassword = (obfuscated)\n"), std::string::npos);

    auto const hidden = nlohmann::json::parse(zprop({"dump", file, "--json"}).out);
    auto const shown = nlohmann::json::parse(zprop({"dump", file, "--json", "--reveal"}).out);
    auto const password = [](nlohmann::json const& dump) {
        for (auto const& stanza : dump["stanzas"])
            if (stanza["name"] == "db") return stanza["keys"][0];
        return nlohmann::json();
    };
    EXPECT_EQ(password(hidden),
              nlohmann::json({{"name", "password"}, {"values", nullptr}, {"obfuscated", true}}));
    EXPECT_EQ(password(shown)["values"], nlohmann::json({"s3cret\nline"}));

    EXPECT_EQ(zprop({"unset", file, "db"}).status, 0);
    EXPECT_NE(access(companion.c_str(), F_OK), 0);  // nothing is left to hide
}

TEST_F(ZpropOnFile, DumpAndListShowFileOrder) {
    EXPECT_EQ(zprop({"dump", file}).out,
              "[server]\nhost = east.example\nport = 8080\nlisten = a\nlisten = b\n[log]\n"
              "level = info\nrotate =\n");
    EXPECT_EQ(zprop({"list", file}).out,
              "\n[server]\nhost = east.example\nport = 8080\nlisten = a\nlisten = b\n\n[log]\n"
              "level = info\nrotate =\n");
    EXPECT_EQ(zprop({"list", file, "log"}).out, "\n[log]\nlevel = info\nrotate =\n");
    EXPECT_EQ(zprop({"list", file, "none"}).status, 1);

    auto const dump = nlohmann::ordered_json::parse(zprop({"dump", file, "--json"}).out);
    EXPECT_EQ(dump.dump(),
              "{\"file\":\"" + file +
                  "\",\"stanzas\":[{\"name\":\"server\",\"keys\":["
                  "{\"name\":\"host\",\"values\":[\"east.example\"],\"obfuscated\":false},"
                  "{\"name\":\"port\",\"values\":[\"8080\"],\"obfuscated\":false},"
                  "{\"name\":\"listen\",\"values\":[\"a\",\"b\"],\"obfuscated\":false}]},"
                  "{\"name\":\"log\",\"keys\":["
                  "{\"name\":\"level\",\"values\":[\"info\"],\"obfuscated\":false},"
                  "{\"name\":\"rotate\",\"values\":[],\"obfuscated\":false}]}]}");
    writeFile(file, "[s]\nk = \xff\n");
    EXPECT_EQ(zprop({"dump", file, "--json"}).status, 3) << "JSON has no such text";
}

TEST_F(ZpropOnFile, CheckNamesLineReasonAndColumnOfEachBadFileAndCounts) {
    struct {
        std::string text;
        char const* report;  // behind "FILE:"
    } const rows[] = {
        {"[s]\nk = v\n", nullptr},
        {"[s\n", "1: stanza header without \"]\"\n[s\n  ^\n"},
        {"[s]\nk=v\n\n [s] again\n",
         "4: this stanza stands in the file already\n [s] again\n  ^\n"},
        {"\n k = v\n", "2: key line before the first stanza header\n k = v\n ^\n"},
        {"[s]\n\tport 80\n", "2: neither stanza header, comment nor key = value\n\tport 80\n\t^\n"},
        {"[s]\n = v\n", "2: no key before \"=\"\n = v\n ^\n"},
        {std::string("[s]\nk = a\0b\n", 12), "2: NUL byte\nk = a\n     ^\n"},
        {"\xEF\xBB\xBF[s]\n",
         "1: byte order mark; the file must begin with its text\n\xEF\xBB\xBF[s]\n^\n"},
    };
    std::vector<std::string> arguments{"check"};
    std::string expected;
    int number = 0;
    for (auto const& row : rows) {
        auto const path = dir.file("f" + std::to_string(number++));
        writeFile(path, row.text);
        arguments.push_back(path);
        if (row.report != nullptr) expected += path + ":" + row.report;
    }
    auto result = zprop(arguments);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, expected + "8 files checked, 7 invalid\n");
    EXPECT_EQ(result.err, "");

    result = zprop({"check", dir.file("gone"), file});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.out, "2 files checked, 0 invalid, 1 not readable\n");
    EXPECT_NE(result.err.find(dir.file("gone")), std::string::npos);
    EXPECT_EQ(zprop({"check", file}).out, "1 file checked, 0 invalid\n");
}

TEST_F(ZpropOnFile, RewriteNormalisesOnceAndDropsCommentsOnRequest) {
    EXPECT_EQ(zprop({"rewrite", file}).status, 0);
    std::string const normal = readFile(file);
    EXPECT_NE(normal.find("port = 8080\n"), std::string::npos);
    EXPECT_EQ(zprop({"rewrite", file}).status, 0);
    EXPECT_EQ(readFile(file), normal);

    EXPECT_EQ(zprop({"rewrite", file, "--drop-comments"}).status, 0);
    EXPECT_EQ(readFile(file),
              "[server]\nhost = east.example\nport = 8080\nlisten = a\nlisten = b\n[log]\n"
              "level = info\nrotate =\n");
}

TEST_F(ZpropOnFile, ALockedFileIsRetriedForTheTimeGivenAndLeftAlone) {
    Companion holder([this](Companion& other) {
        int const fd = open(file.c_str(), O_RDWR);
        struct flock lock {};
        lock.l_type = F_WRLCK;
        if (fcntl(fd, F_SETLK, &lock) != 0) return 1;
        other.signal();
        return other.await() ? 0 : 1;
    });
    ASSERT_TRUE(holder.await());
    auto result = zprop({"--wait", "0.05", "set", file, "server", "port", "1"});
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.err.find("another process has locked it"), std::string::npos) << result.err;
    EXPECT_EQ(zprop({"get", file, "server", "port", "--wait", "0"}).status, 3);
    EXPECT_EQ(readFile(file), sample);

    // One that is released in time is edited after all.
    Companion patient([this](Companion&) {
        return zprop({"set", file, "server", "port", "1", "--wait", "60"}).status;
    });
    holder.signal();
    EXPECT_EQ(patient.join(), 0);
    EXPECT_EQ(holder.join(), 0);
    EXPECT_EQ(zprop({"get", file, "server", "port"}).out, "1\n");
}

TEST_F(ZpropOnFile, EditsOfManyProcessesAreAllKept) {
    constexpr int writers = 4;
    constexpr int rounds = 8;
    std::vector<std::unique_ptr<Companion>> processes;
    for (int w = 0; w < writers; ++w) {
        processes.push_back(std::make_unique<Companion>([this, w](Companion&) {
            for (int i = 0; i < rounds; ++i) {
                auto const key = "k" + std::to_string(w) + "_" + std::to_string(i);
                if (zprop({"set", file, "many", key, "v", "--wait", "60"}).status != 0) return 1;
            }
            return 0;
        }));
    }
    for (auto const& process : processes)
        EXPECT_EQ(process->join(), 0);
    auto const listing = zprop({"list", file, "many"}).out;
    EXPECT_EQ(std::count(listing.begin(), listing.end(), '\n'), 2 + writers * rounds) << listing;
}

// ----------------------------------------------------------- files in the manner of the Java
// platform

constexpr char javaSample[] = "# made by hand\nserver.host = east\nserver.port=80\nname: \\u00e9\n";

class ZpropOnJavaFile : public testing::Test {
  protected:
    ZpropOnJavaFile() { writeFile(file, javaSample); }

    TempDir dir;
    std::string file = dir.file("app.properties");
    std::string stanzas = dir.file("app.conf");
};

TEST_F(ZpropOnJavaFile, GetListAndDumpShowThePairs) {
    EXPECT_EQ(zprop({"get", file, "server.host"}).out, "east\n");
    EXPECT_EQ(zprop({"get", file, "name"}).out, "\xC3\xA9\n");
    EXPECT_EQ(zprop({"get", file, "none", "--default", "x"}).out, "x\n");
    EXPECT_EQ(zprop({"get", file, "none"}).status, 1);
    EXPECT_EQ(zprop({"get", file, "server", "host"}).status, 2);
    EXPECT_EQ(zprop({"get", file, "name", "--all"}).status, 2);
    EXPECT_EQ(zprop({"get", dir.file("gone.properties"), "k"}).status, 3);
    EXPECT_EQ(zprop({"unset", file, "name"}).status, 2);
    auto const listed = zprop({"list", file}).out;
    EXPECT_NE(listed.find("server.port = 80\n"), std::string::npos) << listed;
    EXPECT_EQ(zprop({"dump", file}).out, listed);

    auto const whole = nlohmann::json::parse(zprop({"dump", file, "--json"}).out);
    EXPECT_EQ(whole["file"], file);
    ASSERT_EQ(whole["pairs"].size(), 3);
    std::string order;
    for (auto const& pair : whole["pairs"]) {
        order += pair["key"].get<std::string>() + " = " + pair["value"].get<std::string>() + "\n";
    }
    EXPECT_EQ(order, listed);

    auto const other = dir.file("other");  // no name of a properties file
    writeFile(other, "k=\\uD83D\\uDE00\nh=\\ud83d\n");
    EXPECT_EQ(zprop({"get", other, "k", "--format", "java"}).out, "\xF0\x9F\x98\x80\n");
    EXPECT_EQ(zprop({"--format", "java", "dump", other, "--json"}).status, 1);
}

TEST_F(ZpropOnJavaFile, SetStoresWhatTheFormatKeepsAndRefusesTheRest) {
    auto const set = zprop({"set", file, "server.port", "8:0"});
    EXPECT_EQ(set.status, 0);
    EXPECT_NE(set.err.find("1 comment"), std::string::npos) << set.err;
    std::string const stored = readFile(file);
    EXPECT_EQ(stored.substr(0, 2), "#\n");
    EXPECT_NE(stored.find("server.port = 8\\:0\n"), std::string::npos) << stored;
    EXPECT_NE(stored.find("name = \\u00e9\n"), std::string::npos) << stored;

    for (auto const& [key, value] :
         std::vector<std::pair<std::string, std::string>>{{"k", "a\x7F"},
                                                          {"k", "\xF0\x9F\x98\x80"},
                                                          {"k", " x"},
                                                          {"k", "a\nb"},
                                                          {"a b", "v"},
                                                          {"#k", "v"}}) {
        auto const result = zprop({"set", file, key, value});
        EXPECT_EQ(result.status, 1) << key << value;
        EXPECT_NE(result.err.find("would not read back"), std::string::npos) << result.err;
    }
    EXPECT_EQ(zprop({"set", file, "", "v"}).status, 2);
    EXPECT_EQ(zprop({"set", file, "a", "b", "c"}).status, 2);
    EXPECT_EQ(readFile(file), stored);

    writeFile(file, "a=1\nb=\\q\n");
    auto const lossy = zprop({"set", file, "a", "2"});
    EXPECT_EQ(lossy.status, 1);
    EXPECT_NE(lossy.err.find(file + ":2: "), std::string::npos) << lossy.err;
    EXPECT_EQ(readFile(file), "a=1\nb=\\q\n");
    auto const made = dir.file("made.properties");
    EXPECT_EQ(zprop({"set", made, "k", ""}).status, 0);
    EXPECT_EQ(readFile(made), "#\nk = \n");
}

TEST_F(ZpropOnJavaFile, CheckTellsEveryLineThatIsSkipped) {
    EXPECT_EQ(zprop({"check", file}).out, "1 file checked, 0 invalid\n");
    writeFile(file, "a=1\r\n =b\r\nkey\n\nb=\\x\nc=3");
    writeFile(stanzas, "[s]\nk\n");
    auto const result = zprop({"check", file, stanzas});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out,
              file + ":2: no key before the separator\n =b\n" + file +
                  ":3: key without \"=\", \":\" or blank and value\nkey\n" + file +
                  ":5: backslash in the value before none of \"\\\", \":\", quote, blank and "
                  "\"u\"\nb=\\x\n" +
                  file + ":6: last line without a line end\nc=3\n" + stanzas +
                  ":2: neither stanza header, comment nor key = value\nk\n^\n"
                  "2 files checked, 2 invalid\n");
}

TEST_F(ZpropOnJavaFile, ConvertsBothWaysWhereNothingIsLost) {
    writeFile(stanzas, "[server]\nhost = a b\nport =\n[log]\nlevel = \xC3\xA9:\n");
    EXPECT_EQ(zprop({"convert", stanzas, dir.file("1.properties")}).err, "");
    EXPECT_EQ(zprop({"get", dir.file("1.properties"), "server.host"}).out, "a b\n");
    EXPECT_EQ(zprop({"convert", dir.file("1.properties"), dir.file("2.conf")}).err, "");
    auto const dumped = [](std::string const& path) {
        auto stanzaList = nlohmann::json::parse(zprop({"dump", path, "--json"}).out)["stanzas"];
        for (auto& stanza : stanzaList)
            std::sort(stanza["keys"].begin(), stanza["keys"].end());
        std::sort(stanzaList.begin(), stanzaList.end());
        return stanzaList;
    };
    EXPECT_EQ(dumped(dir.file("2.conf")), dumped(stanzas));
    EXPECT_EQ(zprop({"convert", stanzas, dir.file("2.conf")}).status, 1);  // is there already

    EXPECT_EQ(
        zprop({"convert", file, dir.file("3.conf"), "--stanza", "all", "--drop-comments"}).err, "");
    EXPECT_EQ(zprop({"get", dir.file("3.conf"), "all", "server.port"}).out, "80\n");
}

TEST_F(ZpropOnJavaFile, ConvertTellsWhatWouldBeLostAndDoesNothing) {
    writeFile(stanzas,
              "# c\n[a.b]\nk=1\n[s]\nm = 1\nm = 2\nx y = 1\nsmile = \xF0\x9F\x98\x80\n[e]\n");
    writeFile(file, "# c\nplain=1\na.b=x \na.c=\\ud83d\na.d=\\u0000\na.e=\\q\na.f=1\n");
    struct {
        std::string source;
        std::vector<std::string> told;
    } const rows[] = {
        {stanzas, {":1: comment", "\"a.b\"", "\"s.m\"", "\"s.x y\"", "\"s.smile\"", "\"e\""}},
        {file, {":1: comment", "\"plain\"", "\"a.b\"", "\"a.c\"", "\"a.d\"", ":6: backslash"}},
    };
    for (auto const& row : rows) {
        auto const result = zprop({"convert", row.source, dir.file("out")});
        EXPECT_EQ(result.status, 1);
        for (auto const& text : row.told)
            EXPECT_NE(result.err.find(text), std::string::npos) << text << "\n" << result.err;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 7) << result.err;
        EXPECT_NE(access(dir.file("out").c_str(), F_OK), 0);
    }
}

TEST(ZpropUsage, HelpHasAnExampleForEachCommandAndWrongUseIsTwo) {
    for (auto const* command : {"get", "set", "unset", "list", "dump", "check", "rewrite",
                                "comment", "edit", "convert"}) {
        auto const help = zprop({command, "--help"});
        EXPECT_EQ(help.status, 0) << command;
        EXPECT_NE(help.out.find("Example: "), std::string::npos) << help.out;
        EXPECT_NE(help.out.find(std::string("zprop ") + command), std::string::npos) << help.out;
    }
    EXPECT_EQ(zprop({"--help"}).status, 0);
    EXPECT_EQ(zprop({}).status, 2);
    EXPECT_EQ(zprop({"frobnicate"}).status, 2);
    EXPECT_EQ(zprop({"set", "f", "s"}).status, 2);
    EXPECT_EQ(zprop({"comment", "f", "x", "--key", "k"}).status, 2);
    EXPECT_EQ(zprop({"get", "f", "s", "k", "--wait", "soon"}).status, 2);
}

}  // namespace
