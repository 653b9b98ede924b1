// The shell tool on real files, as an administrator calls it.
#include <fcntl.h>

#include "support/transcript.h"

namespace {

using namespace testsupport;

constexpr char sample[] =
    "# the proxy\n\n[server]\nhost = east.example\nport=8080\nlisten = a\nlisten = b\n\n"
    "# timeout = 30\n\n[log]\nlevel = info\nrotate =\n";

struct Samples : testsupport::Samples {
    Samples() : testsupport::Samples(ZFC_TEST_TOOLS, "zprop", {{"app.conf", sample}}) {}
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
    samples.refuse(3, {"get /dev/null s k", "set /dev/null s k v"}, "is no regular file");
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
        // A program that takes the lock, and in turn rewrites the file and renames a new one.
        {"(echo '[s]'; seq -f 'key%.0f = of a file that takes a while' 20000; echo '[t]') >big\n"
         "python3 - <<'END'\nimport fcntl, os, subprocess\n"
         "done = 0\n"
         "def update():\n"
         "  with open('big', 'r+b') as f:\n"
         "    fcntl.lockf(f, fcntl.LOCK_EX)\n"
         "    if not os.path.samestat(os.fstat(f.fileno()), os.stat('big')): return 0\n"
         "    text = f.read() + b'p%d = 1\\n' % done\n"
         "    if done % 2:\n"
         "      with open('new', 'wb') as g: g.write(text)\n"
         "      os.rename('new', 'big')\n"
         "    else: os.pwrite(f.fileno(), text, 0)\n"
         "    return 1\n"
         "for i in range(10):\n"
         "  z = subprocess.Popen(['zprop', 'set', 'big', 't', 'z%d' % i, '1', '--wait', '60'])\n"
         "  while z.poll() is None:\n"
         "    done += update()\n"
         "    try: z.wait(0.02)\n"
         "    except subprocess.TimeoutExpired: pass\n"
         "keys = subprocess.check_output(['zprop', 'names', 'big', 't']).split()\n"
         "print(len(keys) - done)\nEND",
         0, "10\n"},
    });
}

TEST(ZpropTest, NothingIsLostByAnEditThatDoesNotSaySo) {
    Samples const samples;
    samples.refuse(1, {"set app.conf server listen c", "set app.conf server listen ''"},
                   "it has 2 values");
    samples.refuse(1,
                   {"set app.conf server host ' x'", "set app.conf server host 'x\t'",
                    "set app.conf server k ' '", "set app.conf server listen 'c ' --add"},
                   "does not keep blanks");
    samples.refuse(1,
                   {"set app.conf server listen c --replace none",
                    "unset app.conf server listen --value none"},
                   "no such value");
    samples.refuse(2, {"set - s k v", "unset - s k", "rewrite -", "edit - </dev/null"});
    samples.expect({
        {"printf 'set log level x\n\nset log k a\\0b\n' | zprop edit app.conf", 2, "",
         "standard input:3: NUL byte"},
        {"printf 'a\\0b' | zprop set app.conf log k --stdin", 1, "", "NUL byte"},
        {"zprop set app.conf log k --stdin </dev/null", 2, "", "holds no value"},
        {"cmp app.conf before/app.conf && ls", 0, "app.conf\nbefore\n"},
        {"zprop set app.conf server listen c --replace a &&"
         " zprop get app.conf server listen --all",
         0, "c\nb\n"},
        {"zprop unset app.conf server listen --value c && zprop set app.conf server listen d &&"
         " zprop get app.conf server listen --all",
         0, "d\n"},
        {"zprop set app.conf server listen e --add &&"
         " zprop set app.conf server listen f --replace-all && zprop unset app.conf server listen"
         " --value f && zprop names app.conf server",
         0, "host\nport\n"},
        {"zprop set app.conf s k ' x ' --obfuscate && zprop get app.conf s k --reveal --shell", 0,
         "' x '\n"},
        // What stands behind a header's name goes with the first store.
        {"printf '[s] why\n[t] not\nk = 1\n' >tail && zprop check tail", 0,
         "tail:1: warning: text behind the \"]\" of a header; an edit would lose it\n[s] why\n"
         "   ^\ntail:2: warning: text behind the \"]\" of a header; an edit would lose it\n"
         "[t] not\n   ^\n1 file checked, 0 invalid, 2 warnings\n"},
        {"zprop unset tail s", 1, "", "tail:2: text behind"},
        {"zprop set tail t k 2 --force && cat tail", 0, "[s]\n[t]\nk = 2\n"},
        {"printf '# c\\r[s]\\rk = 1\\r' >old; zprop check old", 0,
         "old:1: warning: carriage returns alone end no line; all of the file is one; an edit "
         "would "
         "lose it\n# c\n   ^\n1 file checked, 0 invalid, 1 warning\n"},
        {"zprop set old s k 2", 1, "", "old:1: carriage returns"},
    });
}

TEST(ZpropTest, EveryFaultIsToldInTheLinesOfAnEditor) {
    std::string const longLine(20000, 'x');
    Samples const samples;
    writeFile(samples.dir.file("bad.conf"),
              "[s]\nk = " + longLine + "\nport 80\n[s]\nj = 1\n = 2\n[t\nl = 1\n");
    std::string const why = "neither stanza header, comment nor key = value";
    std::string const pieces = "; a line of 20004 bytes is read in pieces of 8191";
    std::string const all = "bad.conf:2: " + why + pieces + "\nzprop: bad.conf:3: " + why +
                            "\nzprop: bad.conf:4: this stanza stands in the file already\n"
                            "zprop: bad.conf:6: no key before \"=\"\n"
                            "zprop: bad.conf:7: stanza header without \"]\"\n";
    samples.refuse(1, {"get bad.conf s k", "set bad.conf s j 2"}, all);
    samples.expect({
        {"zprop check bad.conf | cut -c 1-60 | sed 2,3d", 0,
         "bad.conf:2: " + (why + pieces).substr(0, 48) + "\nbad.conf:3: " + why +
             "\nport 80\n^\nbad.conf:4: this stanza stands in the file already\n[s]\n ^\n"
             "bad.conf:6: no key before \"=\"\n = 2\n ^\n"
             "bad.conf:7: stanza header without \"]\"\n[t\n  ^\n1 file checked, 1 invalid\n"},
        {"printf 'set log level y\n# c\nset log k v\nunset log none\n' | zprop edit app.conf", 1,
         "", "standard input:4: app.conf: there is no key \"none\""},
        // What acts on a terminal stands in no message.
        {"zprop get app.conf log \"$(printf 'a\\033[2J\\nb')\"", 1, "", "key \"a\\x1B[2J\\nb\""},
        {"n=$(printf 'a\\033b'); printf '[s]\nk = 1\n' >$n && echo junk >.$n.zsave &&"
         " chmod 600 .$n.zsave && zprop get $n s k",
         0, "1\n", "zprop: warning: a\\x1Bb: its recovery copy .a\\x1Bb.zsave is ignored"},
        {"zprop names app.conf log \"$(printf '\\033[2J')\"", 2, "", "\\x1B[2J"},
    });
}

TEST(ZpropTest, ASecretStandsInNoMessage) {
    Samples const samples;
    samples.expect({
        {"printf 's3cret\\n' | zprop set app.conf db pw --stdin --obfuscate"},
        {"zprop get app.conf db pw --reveal", 0, "s3cret\n"},
        {"for args in 'get app.conf db pw --type int' 'get app.conf db pw --type bool'"
         " 'set app.conf db pw not quoted s3cret' 'set app.conf db pw x --replace s3cret'"
         " 'unset app.conf db pw --value s3cre s3cret' 'dump app.conf' 'dump app.conf --json'"
         " 'set app.conf db pw s3cret --obfuscate --dry-run' 'list app.conf --shell'"
         " 'diff app.conf before/app.conf' 'set app.conf db pw x'; do\n"
         "  zprop $args 2>&1 | grep -H --label=\"$args\" s3cret; done\n"
         "echo 'set db pw not quoted s3cret' | zprop edit app.conf 2>&1 | grep s3cret || echo none",
         0, "none\n"},
        {"zprop get app.conf db pw --type int", 1, "", "the obfuscated value of key \"pw\""},
        // On a terminal it is asked for, and does not show.
        {"python3 - <<'END'\nimport os, pty\npid, fd = pty.fork()\n"
         "if pid == 0: os.execlp('zprop', *'zprop set app.conf db pw --obfuscate "
         "--stdin'.split())\n"
         "out = b''\nwhile b'Value: ' not in out: out += os.read(fd, 99)\n"
         "os.write(fd, b'hidden\\n')\n"
         "try:\n  while True: out += os.read(fd, 99)\n"
         "except OSError: print(out, os.waitpid(pid, 0)[1])\nEND\n"
         "zprop get app.conf db pw --reveal",
         0, "b'Value: \\r\\n' 0\nhidden\n"},
    });
}

TEST(ZpropTest, WithoutItsCompanionAFileAnswersForPlainKeysAndCanLetItGo) {
    Samples const samples;
    samples.expect({{"zprop set app.conf db pw s3cret --obfuscate && cp app.conf with.conf"}});
    for (std::string const loss : {"rm", "truncate -s 5", "truncate -s 0"}) {
        std::string const name = samples.dir.file("app.conf.obf");
        std::string const broken = "the companion file of its obfuscated values, " + name;
        samples.expect({
            {"cp with.conf app.conf; rm -f app.conf.obf; zprop unset app.conf db pw; cat app.conf"
             " >plain; zprop set app.conf db pw s3cret --obfuscate; " +
                 loss + " app.conf.obf; cp app.conf lost.conf",
             0, "", "does not name"},
            {"zprop get app.conf server port", 0, "8080\n", broken},
            {"zprop get app.conf db pw", 1, "", "may be an obfuscated one"},
            {"zprop get app.conf db pw --default x", 1, "", "may be an obfuscated one"},
            {"zprop dump app.conf | grep -c =", 0, "7\n", broken},
            {"zprop check app.conf | grep -o '^app.conf:16: .*obf'", 0,
             "app.conf:16: " + broken + "\n"},
        });
        samples.refuse(
            1,
            {"set app.conf server port 1", "unset app.conf server port", "unset app.conf db",
             "diff app.conf before/app.conf", "convert app.conf app2.properties"},
            broken);
        samples.expect({
            {"cmp app.conf lost.conf && ls app.conf.obf 2>/dev/null >files; zprop unset app.conf "
             "db pw",
             0, "", "does not name " + name},
            {"cmp app.conf plain; ls app.conf.obf 2>/dev/null | cmp - files"},
            {"rm -f app.conf.obf; zprop set app.conf server port 1"},
        });
    }
    // What is only too large is not lost.
    samples.expect({
        {"seq 999 | zprop set app.conf s k --stdin --obfuscate && cp app.conf large.conf"},
        {"zprop get app.conf s k --reveal | wc -l", 0, "999\n"},
        {"zprop unset app.conf s k --max-companion 3K", 1, "", "more than the limit of 3072 bytes"},
        {"cmp app.conf large.conf && zprop unset app.conf s k --max-companion 4K"},
    });
    // Not there because nobody may look is another thing than lost.
    samples.expect({
        {"cp with.conf app.conf; mkdir app.conf.obf; zprop unset app.conf db pw", 3, "",
         "Is a directory"},
        {"cmp app.conf with.conf"},
    });
}

TEST(ZpropTest, DryRunPrintsWhatPatchTakesAndBackupKeepsWhatWas) {
    Samples const samples;
    samples.expect({
        {"zprop set app.conf server host west --dry-run", 0,
         "--- app.conf\n+++ app.conf\n@@ -1,8 +1,8 @@\n # the proxy\n \n [server]\n"
         "-host = east.example\n-port=8080\n+host = west\n+port = 8080\n listen = a\n listen = b\n"
         " \n"},
        {"zprop set new.conf s k v --dry-run && ls new.conf", 2,
         "--- /dev/null\n+++ new.conf\n@@ -0,0 +1,2 @@\n+[s]\n+k = v\n", "new.conf"},
        {"cmp app.conf before/app.conf"},
        {"for i in $(seq 400); do echo \"set s$((i % 7)) k$i $i\"; done >script\n"
         "zprop edit big.conf <script && printf '# end' >>big.conf\n"
         "for i in $(seq 3 13 400); do echo \"unset s$((i % 7)) k$i\"; done >script\n"
         "for i in 5 50 51 300; do echo \"set s$((i % 7)) k$i new\"; done >>script\n"
         "echo 'comment top' >>script; echo 'set s3 more 1' >>script; cp big.conf patched\n"
         "zprop edit big.conf --dry-run <script | patch -s patched && zprop edit big.conf <script "
         "&&"
         " cmp big.conf patched"},
        {"chmod 640 app.conf; zprop set app.conf server host west --backup=.bak &&"
         " cmp app.conf.bak before/app.conf && stat -c %a app.conf.bak",
         0, "640\n"},
        {"zprop set app.conf server host west --backup=.bak && cmp app.conf.bak before/app.conf"},
        {"zprop set app.conf db pw 1 --obfuscate && cp app.conf.obf was &&"
         " chmod 600 app.conf && zprop set app.conf db pw 2 --obfuscate --backup &&"
         " cmp app.conf.obf~ was && stat -c '%n %a' app.conf*",
         0, "app.conf 600\napp.conf.bak 640\napp.conf.obf 600\napp.conf.obf~ 600\napp.conf~ 600\n"},
        // A copy gets a companion of its own, which no difference of the two shows.
        {"cp app.conf copy.conf && zprop set copy.conf server host east --dry-run | tail -n 1", 0,
         " listen = b\n", "would be made, and named in this one"},
        {"zprop set copy.conf db pw 3 --obfuscate && zprop diff app.conf copy.conf", 1,
         " [db]\n-pw = (obfuscated)\n+pw = (obfuscated)\n"},
        {"zprop set copy.conf db pw 2 --obfuscate && zprop diff app.conf copy.conf"},
        {"zprop dump copy.conf --shell | grep -c db_pw", 1, "0\n"},
    });
}

TEST(ZpropTest, KeysAreRenamedUncommentedAndMerged) {
    Samples const samples;
    samples.refuse(1, {"rename app.conf server none x", "rename app.conf server host port",
                       "rename app.conf server host a=b", "uncomment app.conf server host",
                       "uncomment app.conf server none", "uncomment app.conf log timeout"});
    samples.refuse(3, {"merge app.conf gone.conf", "rename gone.conf a b c"});
    samples.expect({
        {"cmp app.conf before/app.conf"},
        {"zprop rename app.conf server listen hear && zprop uncomment app.conf server timeout &&"
         " cat app.conf",
         0,
         "# the proxy\n\n[server]\nhost = east.example\nport = 8080\nhear = a\nhear = b\n\n"
         "timeout = 30\n\n[log]\nlevel = info\nrotate =\n"},
        {"zprop set app.conf db pw 1 --obfuscate && zprop rename app.conf db pw word &&"
         " zprop get app.conf db word --reveal && zprop names app.conf db",
         0, "1\nword\n"},
        {"printf '[server]\nhost = west\nhear = c\nhear = d\n[new]\nk =\n' >site.conf\n"
         "zprop set site.conf db word 2 --obfuscate; zprop merge app.conf site.conf &&"
         " zprop dump app.conf --reveal | sed '/config/,$d'",
         0,
         "[server]\nhost = west\nport = 8080\nhear = c\nhear = d\ntimeout = 30\n[log]\n"
         "level = info\nrotate =\n[db]\nword = 2\n"},
        {"printf '[db]\nword = plain\n' >other.conf; zprop merge app.conf other.conf", 1, "",
         "from other.conf: its values are obfuscated"},
    });
}

TEST(ZpropTest, AnswersCanBeTakenApartByPrograms) {
    Samples().expect({
        {"printf '[a b]\nk-1 = it'\\''s $x\nk-1 = `y`\n[c]\ne =\n' >f"},
        {"zprop names f && zprop names f c", 0, "a b\nc\ne\n"},
        {"zprop names f none", 1},
        {"eval \"$(zprop list f --shell)\" && echo \"$a_b_k_1\" && echo \"${c_e-unset}\"", 0,
         "it's $x\n`y`\n\n"},
        {"eval set -- $(zprop get f 'a b' k-1 --shell) && echo $#", 0, "1\n"},
        {"zprop dump f -z | tr '\\0\\n' '|,'", 0, "a b,k-1,it's $x|a b,k-1,`y`|c,e|"},
        {"printf '[s]\na-b = 1\na_b = 2\n' >g; zprop list g --shell", 1, "s_a_b='1'\n",
         "would both be s_a_b"},
        {"zprop diff f f"},
        {"printf '[c]\ne = 1\n[a b]\nk-1 = `y`\n# z\n[d]\n' >g; zprop diff f g", 1,
         " [a b]\n-k-1 = it's $x\n-k-1 = `y`\n+k-1 = `y`\n [c]\n-e =\n+e = 1\n+[d]\n"},
        {"zprop --version | grep -c '^zprop [0-9.]*$'", 0, "1\n"},
    });
}

TEST(ZpropTest, OriginsAreLinesOfTheLayerThatWins) {
    std::string const get = "zprop get app.conf server ";
    std::string const layers = " --layer d --layer gone.conf --env APP_ --origin";
    Samples const samples;
    samples.expect({
        {get + "port --origin", 0, "app.conf:5: 8080\n"},
        {get + "listen --all --origin", 0, "app.conf:6: a\napp.conf:7: b\n"},
        {get + "listen --origin -z | tr '\\0\n' '|,'", 0, "app.conf:7,b|"},
        {"eval set -- $(" + get + "listen --origin --shell) && echo $# $2", 0, "2 b\n"},
        {"zprop get app.conf log rotate --origin", 0, "app.conf:13: \n"},
        {"mkdir d && printf '[log]\nrotate = 1\n[server]\nport=many\n' >d/20.conf"
         " && printf '[server]\nhost =\nport = 1\n' >d/10.conf"},
        {get + "port" + layers, 0, "d/20.conf:4: many\n"},
        {get + "host" + layers, 0, "d/10.conf:2: \n"},
        {get + "listen" + layers, 0, "app.conf:7: b\n"},
        {get + "port --type int" + layers, 1, "", "d/20.conf:4: value \"many\" of key \"port\""},
        {"APP_SERVER__PORT=7 " + get + "port --type int" + layers, 0, "$APP_SERVER__PORT: 7\n"},
        {get + "port --layer d", 0, "many\n"},
        {get + "none --layer d", 1, "", "app.conf and what lies over it: there is no key \"none\""},
        {"zprop set d/20.conf server key s3cret --obfuscate && " + get + "key" + layers, 0,
         "d/20.conf: (obfuscated)\n"},
    });
    samples.refuse(2, {"get app.conf server port --layer ''", "get app.properties k --origin",
                       "get app.conf server port --layer d --max-companion 1M",
                       "get app.conf server none --default 1 --origin"});
}

/// In the environment of a cron job, or one that somebody mistyped.
TEST(ZpropTest, AnyEnvironmentReadsAFileInUtf8) {
    std::string const env = "env -u LC_ALL -u LC_CTYPE -u LANG ";
    std::string const json = " zprop dump f --json | tr -d ' \n' | grep -o '\"values.*\\]'";
    std::string const values = "\"values\":[\"gr\xC3\xBCn\"],\"obfuscated\":false}]}]\n";
    Samples().expect({
        {"printf '[s]\nk = gr\xC3\xBCn\n' >f; " + env + "zprop list f && " + env + "zprop dump f",
         0, "\n[s]\nk = gr\\xC3\\xBCn\n[s]\nk = gr\\xC3\\xBCn\n"},
        {env + "zprop get f s k", 0, "gr\xC3\xBCn\n"},
        {env + json, 0, values},
        {env + "LANG=xx_YY" + json, 0, values},
        {env + "LC_ALL=de_DE.KLINGON" + json, 0, values, "KLINGON"},
        {env + "LC_CTYPE=de_DE.ISO-8859-1 zprop set f s l \"$(printf '\\344')\" &&" + env +
             "LC_ALL=C.UTF-8 zprop list f",
         0, "\n[s]\nk = gr\xC3\xBCn\nl = \\xE4\n"},
    });
}

TEST(ZpropTest, HelpHasAnExampleForEachCommandAndWrongUseIsTwo) {
    Samples const samples;
    samples.expect(
        {{"for c in $(zprop --help | sed -n '/^Subc/,$s/^  \\([a-z]*\\) .*/\\1/p'); do\n"
          "  zprop $c --help | grep -q \"^Example: .*zprop $c\" || echo $c\ndone"}});
    samples.refuse(
        2, {"", "frobnicate", "set f s", "comment f x --key k", "names f --max-companion 1T",
            "names f --max-companion 99999999999G", "set f s k v --add --replace x"});
}

}  // namespace
