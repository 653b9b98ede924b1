// The shell tool on properties files, as an administrator calls it.
#include "support/transcript.h"

namespace {

using namespace testsupport;

constexpr char sample[] = "# made by hand\nserver.host = east\nserver.port=80\nname: \\u00e9\n";

struct Samples : testsupport::Samples {
    Samples() : testsupport::Samples(ZFC_TEST_TOOLS, "zprop", {{"app.properties", sample}}) {}
};

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
        // No name of a properties file, and what only Java's own rules read.
        {"printf '%s\n' 'k=\\uD83D\\uDE00' 'a\\ b=\\=\\n.' empty 'h=\\ud83d' >other"},
        {"zprop get other k --format java", 0, "\xF0\x9F\x98\x80\n"},
        {"zprop get other 'a b' --format java", 0, "=\n.\n"},
        {"zprop get other empty --format java", 0, "\n"},
        {"zprop get other h --format java", 1, "", "other:4: half of a surrogate pair"},
        {"zprop set other h 1 --format java && zprop list other --format java", 0,
         "k = \xF0\x9F\x98\x80\na b = =\\u000a.\nempty =\nh = 1\n"},
        {"LC_ALL=C zprop list app.properties | tail -n 1", 0, "name = \\u00e9\n"},
        {"zprop names other --format java -z | tr '\\0' '|'", 0, "k|a b|empty|h|"},
        {"zprop dump other --format java -z | tail -z -n 3 | tr '\\0\n' '|,'", 0,
         "a b,=,.|empty,|h,1|"},
        {"eval \"$(zprop list other --format java --shell)\" && echo \"$a_b$h\"", 0, "=\n.1\n"},
        {"eval set -- $(zprop get other 'a b' --format java --shell) && echo $#", 0, "1\n"},
        {"printf 'a\\\\nb=1\n' >feed.properties && printf 'k=\\u0000\n' >nul.properties &&"
         " printf 'a-b=1\na.b=2\n' >same.properties && zprop names feed.properties -z | wc -l",
         0, "1\n"},
        {"zprop list same.properties --shell", 1, "a_b='1'\n", "would both be a_b"},
        {"sed 's/=80/=81/; $d' app.properties >o.properties && zprop diff app.properties "
         "o.properties",
         1, "-server.port = 80\n+server.port = 81\n-name = \xC3\xA9\n"},
        {"zprop diff o.properties o.properties && zprop diff o.properties app.properties | tail "
         "-n 1",
         0, "+name = \xC3\xA9\n"},
    });
    samples.refuse(1,
                   {"list feed.properties -z", "list nul.properties -z",
                    "get nul.properties k --shell", "dump nul.properties --shell"},
                   "which these answers have no form for");
    samples.refuse(1, {"get app.properties none"});
    samples.refuse(1, {"get other empty --format java --required"}, "has no value");
    samples.refuse(2, {"get app.properties server host", "get app.properties name --all",
                       "names app.properties s", "diff app.properties app.conf"});
    samples.refuse(3, {"get gone.properties k", "unset gone.properties k"});
}

TEST(ZpropJavaTest, EditsLeaveEveryOtherByte) {
    Samples const samples;
    samples.expect({
        {"printf '%s\\r\n' '# c' 'a\\ b = x\\=y\\u000a' '! d' 'k\\u00e9: 1' 'k : \\' '  old' "
         "k=now >a.properties && printf 'last \\ud83d\\ude00' >>a.properties"},
        {"zprop set a.properties k ' 8:0=#\xF0\x9F\x98\x80' && zprop set a.properties 'n w' "
         "'a\nb'"},
        {"tr -d '\\r' <a.properties", 0,
         "# c\na\\ b = x\\=y\\u000a\n! d\nk\\u00e9: 1\nk : \\\n  old\n"
         "k=\\ 8\\:0=#\\ud83d\\ude00\nlast \\ud83d\\ude00\nn\\ w = a\\u000ab\n"},
        {"zprop get a.properties k && zprop get a.properties 'n w'", 0,
         " 8:0=#\xF0\x9F\x98\x80\na\nb\n"},
        {"zprop unset a.properties k && zprop comment a.properties 'of it' --key 'n w' &&"
         " zprop comment a.properties all"},
        {"tr -d '\\r' <a.properties; grep -c '.$' a.properties", 0,
         "# c\n#all\na\\ b = x\\=y\\u000a\n! d\nk\\u00e9: 1\nlast \\ud83d\\ude00\n#of it\n"
         "n\\ w = a\\u000ab\n8\n"},
        {"zprop rewrite app.properties --drop-comments && cat app.properties", 0,
         "server.host = east\nserver.port = 80\nname = \\u00e9\n"},
        {"zprop set made.properties k '' && cat made.properties", 0, "k =\n"},
        // Tried first, and what was is kept when something changes.
        {"zprop set a.properties k w --dry-run | sed 1,3d; zprop set new.properties k v --dry-run;"
         " ls new.properties",
         2,
         " last \\ud83d\\ude00\r\n #of it\r\n n\\ w = a\\u000ab\r\n+k = w\r\n"
         "--- /dev/null\n+++ new.properties\n@@ -0,0 +1,1 @@\n+k = v\n",
         "new.properties"},
        {"cp a.properties was; for c in 'set a.properties k w' 'rewrite a.properties'"
         " 'merge a.properties before/app.properties'; do\n"
         "cp was dry; zprop $c --dry-run | patch -s dry; zprop $c --backup && cmp a.properties dry"
         " && cmp a.properties~ was; cp was a.properties; done\n"
         "printf 'x' | zprop set a.properties k --stdin --backup=.old && zprop set a.properties k "
         "x "
         "--backup=.old && cmp a.properties.old was"},
    });
    samples.refuse(1, {"unset app.properties none", "comment app.properties x --key none",
                       "comment app.properties 'two\nlines'"});
    samples.refuse(2, {"set app.properties '' v", "set app.properties a b c",
                       "unset app.properties server host", "set app.conf s k v --latin1",
                       "comment app.properties x --stanza s"});
    samples.refuse(2,
                   {"rename app.properties name n", "uncomment app.properties name",
                    "merge app.properties app.conf", "set app.properties k v --obfuscate",
                    "unset app.properties name --value v"},
                   "stanza file");
    samples.expect({
        {"zprop edit app.properties <<'END'\nset k v\nunset none\nEND", 1, "",
         "standard input:2: app.properties: there is no key \"none\""},
        {"zprop edit app.properties <<'END'\n\nset k\nEND", 2, "", "standard input:2: "},
        {"printf 'set k s3\\0cret\n' | zprop edit app.properties", 2, "", "input:1: NUL byte"},
        {"echo 'set k not quoted s3cret' | zprop edit app.properties 2>&1 | grep -c s3cret", 1,
         "0\n"},
        {"zprop edit app.properties <<'END'\nset 'a b' \"c d\"\nunset name # gone\n"
         "comment 'a c' --key 'a b'\nEND\ncat app.properties",
         0, "server.host = east\nserver.port = 80\n#a c\na\\ b = c d\n"},
        {"for i in $(seq 20); do zprop set app.properties k$i v --wait 60 & done; wait\n"
         "zprop list app.properties | grep -c ' = v$'",
         0, "20\n"},
    });
}

TEST(ZpropJavaTest, BytesOfLatin1AreNotTakenForUtf8) {
    Samples const samples;
    samples.expect({
        {"printf '# \\351\nk=\\351\n' >a.properties && cp a.properties b.properties"},
        {"zprop set b.properties k x", 1, "",
         "b.properties:1: not UTF-8; --latin1 reads the file as ISO 8859-1\nzprop: "
         "b.properties:2:"},
        {"cmp a.properties b.properties && zprop get a.properties k --latin1", 0, "\xC3\xA9\n"},
        {"zprop --latin1 set a.properties l \xC3\xBC && zprop --latin1 check a.properties", 0,
         "1 file checked, 0 invalid\n"},
        {"printf '# \\351\nk=\\351\nl = \\\\u00fc\n' | cmp - a.properties"},
    });
}

TEST(ZpropJavaTest, CheckTellsEveryInvalidLine) {
    Samples().expect({
        {"printf '[s]\nk\n' >b.conf; printf 'a=1\\r\n\\\\q\\r\nb=\\\\u12\n\\303\\251=\\\\\n "
         "\\351\n\nc=\\\\ud83d' >a.properties"},
        {"zprop check a.properties app.properties b.conf", 1,
         "a.properties:3: \"\\u\" without four hexadecimal digits\nb=\\u12\n"
         "a.properties:5: not UTF-8; --latin1 reads the file as ISO 8859-1\n \\xE9\n"
         "a.properties:7: half of a surrogate pair, which is no character\nc=\\ud83d\n"
         "b.conf:2: neither stanza header, comment nor key = value\nk\n^\n"
         "3 files checked, 2 invalid\n"},
        // What Java reads and the library's narrower reader does not.
        {"printf 'a=1\\r\\n =b\\r\\nkey\\n\\nb=\\\\x\\nc=3' >n.properties; zprop check "
         "n.properties",
         0,
         "n.properties:2: warning: no key before the separator; the reader ZJavaProperties skips "
         "it\n =b\n"
         "n.properties:3: warning: key without \"=\", \":\" or blank and value; the reader "
         "ZJavaProperties skips it\nkey\n"
         "n.properties:5: warning: backslash in the value before none of \"\\\", \":\", quote, "
         "blank and \"u\"; the reader ZJavaProperties skips it\nb=\\x\n"
         "n.properties:6: warning: last line without a line end; the reader ZJavaProperties skips "
         "it\nc=3\n1 file checked, 0 invalid, 4 warnings\n"},
    });
}

TEST(ZpropJavaTest, ConvertsBothWaysWhereNothingIsLost) {
    Samples const samples;
    samples.expect({
        {"printf '[server]\nhost = a b\nx y =\n[log]\nlevel = \xC3\xA9:\xF0\x9F\x98\x80\n' "
         ">b.conf"},
        {"zprop convert b.conf 1.properties && cat 1.properties", 0,
         "server.host = a b\nserver.x\\ y =\nlog.level = \\u00e9\\:\\ud83d\\ude00\n"},
        {"zprop convert 1.properties 2.conf && cat 2.conf", 0,
         "[server]\nhost = a b\nx y =\n[log]\nlevel = \xC3\xA9:\xF0\x9F\x98\x80\n"},
        {"zprop convert b.conf 2.conf", 1, "", "2.conf: is there already"},
        {"zprop convert app.properties 3.conf --stanza all --drop-comments &&"
         " zprop get 3.conf all server.port",
         0, "80\n"},
        // No wider than the source, whatever the umask; a target that cannot be made is not left.
        {"for m in 640 600 444; do f=$m.properties; chmod $m b.conf; umask 0;"
         " zprop convert b.conf $f && stat -c %a $f; done",
         0, "640\n600\n444\n"},
        {"zprop convert b.conf none/b.properties", 3, "", "none/b.properties: open(): "},
        // Every command would take the target for what its ending says.
        {"zprop convert b.conf new.conf", 2, "", "its ending says"},
        {"zprop convert 1.properties new.properties", 2, "", "its ending says"},
        {"zprop convert b.conf plain && zprop convert b.conf new.conf --format stanza &&"
         " cmp plain new.conf && cmp plain 1.properties"},
    });
}

/// What is told of each file: the line, or what would be lost of it.
TEST(ZpropJavaTest, ConvertTellsWhatWouldBeLostAndDoesNothing) {
    std::string const convert = " && zprop convert $f out 2>&1 | cut -d: -f3 | sort";
    std::string const end = " not converted, since this would be lost\n";
    Samples().expect({
        {"f=a.conf; printf '# c\n[a.b]\nk=1\n[s]\nm = 1\nm = 2\n[e]\n' >$f" + convert, 0,
         " key \"s.m\"\n" + end + " stanza \"a.b\"\n stanza \"e\"\n1\n"},
        {"f=a.properties; printf '%s\n' '# c' plain=1 'a.b=x ' 'a.d=\\u0000' 'a.f=\\n1' 'a.g=\\' "
         "'#1' >$f" +
             convert,
         0, " key \"a.b\"\n key \"a.d\"\n key \"a.f\"\n key \"plain\"\n" + end + "1\n"},
        {"zprop convert a.conf out", 1},
        {"zprop convert a.properties out", 1},
        {"echo 'k=\\u1' >>a.properties; zprop convert a.properties out --stanza s", 1, "",
         "a.properties:8: \"\\u\" without"},
        {"ls out", 2},
    });
}

}  // namespace
