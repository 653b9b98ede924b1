// The shell tool on real files, as an administrator calls it.
#include <fcntl.h>

#include "support/transcript.h"

namespace {

using namespace testsupport;
using Texts = std::vector<std::string>;

constexpr char sample[] =
    "# the proxy\n\n[server]\nhost = east.example\nport=8080\nlisten = a\nlisten = b\n\n"
    "# timeout = 30\n\n[log]\nlevel = info\nrotate =\n";
constexpr char javaSample[] = "# made by hand\nserver.host = east\nserver.port=80\nname: \\u00e9\n";

/// A directory with two files, and a copy of each to compare with.
struct Samples {
    Samples() {
        writeFile(dir.file("app.conf"), sample);
        writeFile(dir.file("app.properties"), javaSample);
        expect({{"mkdir before && cp app.* before"}});
    }
    void expect(std::vector<Step> const& steps) const {
        expectTranscript(dir.path(), ZFC_TEST_TOOLS, steps);
    }
    /// Each command of the tool ends so, prints nothing, and tells why: `told` is a part of it.
    void refuse(int status, Texts const& commands, std::string const& told = {}) const {
        for (std::string const& command : commands)
            expect({{"zprop " + command, status, "", told}});
    }
    TempDir dir;
};

TEST(ZpropTest, GetAnswersByTypeWithDefaultsAndExitCodes) {
    Samples const samples;
    samples.expect({
        {"zprop get app.conf server listen", 0, "b\n"},
        {"zprop get app.conf server listen --all", 0, "a\nb\n"},
        {"zprop get app.conf server port --type int", 0, "8080\n"},
        {"zprop get app.conf server none --default x", 0, "x\n"},
        {"zprop get app.conf server none --default 7 --type int", 0, "7\n"},
        {"zprop get app.conf server none --default true --type bool", 0, "yes\n"},
        // A key without a value is another thing than one that is not there.
        {"zprop get app.conf log rotate", 0, "\n"},
        {"zprop get app.conf log rotate --type int", 0, "\n"},
        {"zprop get app.conf log rotate --all", 0, ""},
        {"zprop get app.conf log rotate --default x", 0, "x\n"},
    });
    samples.refuse(1, {"get app.conf server host --type int",
                       "get app.conf server host --type bool", "get app.conf server none",
                       "get app.conf log rotate --required", "get app.conf log none --required"});
    samples.refuse(2, {"get app.conf server", "get app.conf s k --wait soon",
                       "get app.conf server port --type float",
                       "get app.conf server none --default x --type int",
                       "get app.conf server none --default on --type bool"});
    samples.refuse(3, {"get gone s k", "get . s k"});
}

TEST(ZpropTest, EditsChangeTheirLinesAloneAndPlaceNewKeysAtTheirTemplate) {
    Samples().expect({
        {"zprop set app.conf server timeout 60 && zprop set app.conf server port 9090"},
        {"zprop set app.conf server listen c --add && zprop set app.conf new offset -- -5"},
        {"cat app.conf", 0,
         "# the proxy\n\n[server]\nhost = east.example\nport = 9090\nlisten = a\nlisten = b\n"
         "listen = c\n\n# timeout = 30\ntimeout = 60\n\n[log]\nlevel = info\nrotate =\n[new]\n"
         "offset = -5\n"},
        {"zprop unset app.conf server listen && zprop unset app.conf log"},
        {"zprop comment app.conf 'of the file'"},
        {"zprop comment app.conf 'of the stanza' --stanza server"},
        {"zprop comment app.conf '# of the key' --stanza server --key port"},
        {"cp app.conf before && zprop rewrite app.conf && cmp app.conf before/app.conf"},
        {"head -n 8 app.conf", 0,
         "# the proxy\n#of the file\n\n[server]\n#of the stanza\nhost = east.example\n"
         "# of the key\nport = 9090\n"},
        {"zprop rewrite app.conf --drop-comments && cat app.conf", 0,
         "[server]\nhost = east.example\nport = 9090\ntimeout = 60\n[new]\noffset = -5\n"},
        // One that is not there is made, but not by an edit that is refused.
        {"ln -s made.conf link && zprop set link s k '' && cat made.conf", 0, "[s]\nk =\n"},
        {"zprop set refused.conf s a=b v", 1, "", "refused.conf"},
        {"ls refused.conf", 2},
    });
}

TEST(ZpropTest, EditsThatWouldNotReadBackChangeNothing) {
    Samples const samples;
    samples.refuse(
        1, {"set app.conf server k 'two\nlines'", "set app.conf server '#k' v",
            "set app.conf server port 1 --obfuscate", "set app.conf server k '' --add",
            "unset app.conf server none", "unset app.conf none", "comment app.conf 'two\nlines'",
            "comment app.conf x --stanza none", "comment app.conf x --stanza log --key none"});
    // What a shell makes of a variable that is not set.
    samples.refuse(2, {"unset app.conf server ''", "comment app.conf x --stanza ''"});
    samples.expect({{"cmp app.conf before/app.conf"}});
}

TEST(ZpropTest, EditStoresAllLinesOrNone) {
    auto const edit = [](char const* lines) {
        return "zprop edit app.conf <<'END'\nset log level x\n" + std::string(lines) + "\nEND";
    };
    Samples().expect({
        {edit("set log 'open"), 2, "", "standard input:2: "},
        {edit("set log"), 2, "", "standard input:2: "},
        {edit("unset log none"), 1, "", "there is no key \"none\""},
        {"cmp app.conf before/app.conf"},
        {edit("# a comment\n\nset log level 'very \"loud\"'\nset log path \"a b\\\"c\" \n"
              "unset server listen\ncomment hello\\ there --stanza log")},
        {"cat app.conf", 0,
         "# the proxy\n\n[server]\nhost = east.example\nport = 8080\n\n# timeout = 30\n\n[log]\n"
         "#hello there\nlevel = very \"loud\"\nrotate =\npath = a b\"c\n"},
    });
}

TEST(ZpropTest, ObfuscatedValuesShowOnlyWhenRevealed) {
    Samples().expect({
        {"zprop set app.conf db password 's3cret\nline' --obfuscate"},
        {"grep -c s3cret app.conf", 1, "0\n"},
        {"ls app.conf*", 0, "app.conf\napp.conf.obf\n"},
        {"zprop get app.conf db password", 0, "(obfuscated)\n"},
        {"zprop list app.conf db", 0, "\n[db]\npassword =\n"},
        {"zprop get app.conf db password --reveal", 0, "s3cret\nline\n"},
        {"zprop dump app.conf | grep -A 1 db", 0, "[db]\npassword = (obfuscated)\n"},
        {"zprop dump app.conf --json | grep -A 2 password | tr -d ' \n'", 0,
         R"("name":"password","values":null,"obfuscated":true)"},
        {"zprop unset app.conf db && ls app.conf*", 0, "app.conf\n"},  // nothing is left to hide
    });
}

TEST(ZpropTest, DumpAndListShowFileOrder) {
    std::string const server =
        "[server]\nhost = east.example\nport = 8080\nlisten = a\nlisten = b\n";
    std::string const log = "[log]\nlevel = info\nrotate =\n";
    Samples().expect({
        {"zprop dump app.conf", 0, server + log},
        {"zprop list app.conf", 0, "\n" + server + "\n" + log},
        {"zprop list app.conf none", 1},
        {"printf '[s]\nk = 1\nk = 2\n[t]\ne =\n' >f && zprop dump f --json | tr -d ' \n'", 0,
         R"({"file":"f","stanzas":[)"
         R"({"name":"s","keys":[{"name":"k","values":["1","2"],"obfuscated":false}]},)"
         R"({"name":"t","keys":[{"name":"e","values":[],"obfuscated":false}]}]})"},
        // JSON has no such text.
        {"printf '[s]\nk = \\377\n' >app.conf && zprop dump app.conf --json | grep -A 1 val", 0,
         "          \"values\": [\n            \"\xEF\xBF\xBD\"\n", "no text"},
    });
}

TEST(ZpropTest, CheckNamesLineReasonAndColumnOfEachBadFileAndCounts) {
    auto const checked = [](char const* text, std::string const& report) {
        return Step{"printf '" + std::string(text) + "' >f && zprop check f", 1,
                    report + "1 file checked, 1 invalid\n"};
    };
    Samples().expect({
        checked("[s\n", "f:1: stanza header without \"]\"\n[s\n  ^\n"),
        checked("[s]\nk=v\n\n [s] again\n",
                "f:4: this stanza stands in the file already\n [s] again\n  ^\n"),
        checked("\n k = v\n", "f:2: key line before the first stanza header\n k = v\n ^\n"),
        checked("[s]\n\tport 80\n",
                "f:2: neither stanza header, comment nor key = value\n\tport 80\n\t^\n"),
        checked("[s]\n = v\n", "f:2: no key before \"=\"\n = v\n ^\n"),
        checked("[s]\nk = a\\0b\n", "f:2: NUL byte\nk = a\\x00b\n     ^\n"),
        checked("\xEF\xBB\xBF[s]\n",
                "f:1: byte order mark; the file must begin with its text\n\xEF\xBB\xBF[s]\n^\n"),
        {"echo '[s' >f && zprop check app.conf gone f", 3,
         "f:1: stanza header without \"]\"\n[s\n  ^\n"
         "3 files checked, 1 invalid, 1 not readable\n",
         "gone"},
    });
}

TEST(ZpropTest, ALockedFileIsRetriedForTheTimeGivenAndLeftAlone) {
    Samples const samples;
    int const fd = open(samples.dir.file("app.conf").c_str(), O_RDWR);
    struct flock lock {};
    lock.l_type = F_WRLCK;
    ASSERT_EQ(fcntl(fd, F_SETLK, &lock), 0);
    samples.expect({
        {"zprop --wait 0.05 set app.conf server port 1", 3, "", "another process has locked it"},
        {"zprop get app.conf server port --wait 0", 3},
        {"cmp app.conf before/app.conf"},
    });
    // One that is released in time is edited after all.
    Companion patient([&](Companion&) {
        samples.expect({{"zprop set app.conf server port 1 --wait 60"}});
        return testing::Test::HasFailure() ? 1 : 0;
    });
    close(fd);
    EXPECT_EQ(patient.join(), 0);
    samples.expect({{"zprop get app.conf server port", 0, "1\n"}});
}

TEST(ZpropTest, EditsOfManyProcessesAreAllKept) {
    Samples().expect({
        {"for i in $(seq 20); do zprop set app.conf many k$i v --wait 60 & done; wait\n"
         "zprop list app.conf many | grep -c ' = v$'",
         0, "20\n"},
    });
}

TEST(ZpropJavaTest, GetListAndDumpShowThePairs) {
    std::string const pairs = "server.host = east\nserver.port = 80\nname = \xC3\xA9\n";
    Samples const samples;
    samples.expect({
        {"zprop get app.properties name", 0, "\xC3\xA9\n"},
        {"zprop get app.properties none --default x", 0, "x\n"},
        {"zprop list app.properties && zprop dump app.properties", 0, pairs + pairs},
        {"zprop dump app.properties --json | tr -d ' \n'", 0,
         R"({"file":"app.properties","pairs":[{"key":"server.host","value":"east"},)"
         R"({"key":"server.port","value":"80"},{"key":"name","value":")"
         "\xC3\xA9\"}]}"},
        // No name of a properties file.
        {"printf '%s\n' 'k=\\uD83D\\uDE00' 'h=\\ud83d' >other"},
        {"zprop get other k --format java", 0, "\xF0\x9F\x98\x80\n"},
    });
    samples.refuse(1, {"get app.properties none", "--format java dump other --json"});
    samples.refuse(2, {"get app.properties server host", "get app.properties name --all",
                       "unset app.properties name"});
    samples.refuse(3, {"get gone.properties k"});
}

TEST(ZpropJavaTest, SetStoresWhatTheFormatKeepsAndRefusesTheRest) {
    Samples const samples;
    samples.refuse(1,
                   {"set app.properties k 'a\x7F'", "set app.properties k '\xF0\x9F\x98\x80'",
                    "set app.properties k ' x'", "set app.properties k 'a\nb'",
                    "set app.properties 'a b' v", "set app.properties '#k' v"},
                   "would not read back");
    samples.refuse(2, {"set app.properties '' v", "set app.properties a b c"});
    samples.expect({
        {"cmp app.properties before/app.properties"},
        {"zprop set app.properties server.port 8:0", 0, "", "1 comment"},
        {"cat app.properties", 0, "#\nserver.host = east\nserver.port = 8\\:0\nname = \\u00e9\n"},
        {"printf '%s\n' a=1 'b=\\q' >lossy.properties"},
        {"zprop set lossy.properties a 2", 1, "", "lossy.properties:2: "},
        {"cat lossy.properties", 0, "a=1\nb=\\q\n"},
        {"zprop set made.properties k '' && cat made.properties", 0, "#\nk = \n"},
    });
}

TEST(ZpropJavaTest, CheckTellsEveryLineThatIsSkipped) {
    Samples().expect({
        {"printf '[s]\nk\n' >b.conf; printf 'a=1\\r\n =b\\r\nkey\n\nb=\\\\x\nc=3' >a.properties"},
        {"zprop check a.properties app.properties b.conf", 1,
         "a.properties:2: no key before the separator\n =b\n"
         "a.properties:3: key without \"=\", \":\" or blank and value\nkey\n"
         "a.properties:5: backslash in the value before none of \"\\\", \":\", quote, blank and "
         "\"u\"\nb=\\x\n"
         "a.properties:6: last line without a line end\nc=3\n"
         "b.conf:2: neither stanza header, comment nor key = value\nk\n^\n"
         "3 files checked, 2 invalid\n"},
    });
}

TEST(ZpropJavaTest, ConvertsBothWaysWhereNothingIsLost) {
    Samples().expect({
        {"printf '[server]\nhost = a b\nport =\n[log]\nlevel = \xC3\xA9:\n' >b.conf"},
        {"zprop convert b.conf 1.properties && sort 1.properties", 0,
         "#\nlog.level = \\u00e9\\:\nserver.host = a b\nserver.port = \n"},
        {"zprop convert 1.properties 2.conf && zprop list 2.conf server | sort", 0,
         "\n[server]\nhost = a b\nport =\n"},
        {"zprop list 2.conf log", 0, "\n[log]\nlevel = \xC3\xA9:\n"},
        {"zprop convert b.conf 2.conf", 1, "", "2.conf: is there already"},
        {"zprop convert app.properties 3.conf --stanza all --drop-comments &&"
         " zprop get 3.conf all server.port",
         0, "80\n"},
    });
}

/// What is told of each file: the line, or what would be lost of it.
TEST(ZpropJavaTest, ConvertTellsWhatWouldBeLostAndDoesNothing) {
    std::string const convert = " && zprop convert $f out 2>&1 | cut -d: -f3 | sort";
    std::string const end = " not converted, since this would be lost\n";
    Samples().expect({
        {"f=a.conf; printf '# c\n[a.b]\nk=1\n[s]\nm = 1\nm = 2\nx y = 1\n"
         "e = \xF0\x9F\x98\x80\n[e]\n' >$f" +
             convert,
         0,
         " key \"s.e\"\n key \"s.m\"\n key \"s.x y\"\n" + end +
             " stanza \"a.b\"\n stanza \"e\"\n1\n"},
        {"f=a.properties; printf '%s\n' '# c' plain=1 'a.b=x ' 'a.c=\\ud83d' 'a.d=\\u0000' "
         "'a.e=\\q' a.f=1 >$f" +
             convert,
         0, " key \"a.b\"\n key \"a.c\"\n key \"a.d\"\n key \"plain\"\n" + end + "1\n6\n"},
        {"zprop convert a.conf out", 1},
        {"zprop convert a.properties out", 1},
        {"ls out", 2},
    });
}

TEST(ZpropTest, HelpHasAnExampleForEachCommandAndWrongUseIsTwo) {
    Samples const samples;
    samples.expect(
        {{"for c in get set unset list dump check rewrite comment edit convert; do\n"
          "  zprop $c --help | grep -q \"^Example: .*zprop $c\" || echo $c\ndone"}});
    samples.refuse(2, {"", "frobnicate", "set f s", "comment f x --key k"});
}

}  // namespace
