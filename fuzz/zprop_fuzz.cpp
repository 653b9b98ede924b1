// Command lines of zprop, and lines of its edit sessions. Taken from the input as they are: done or
// refused, and what is refused, or only reads, changes no file. Made of the input: a value that is
// set is what is got, and the rest stays; a session does what its lines do one by one.
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "fuzz_input.h"
#include "scratch.h"
#include "tool_run.h"
#include "zprop/failure.h"
#include "zprop/open.h"
#include "zprop/words.h"

int zprop_main(int argc, char** argv);

namespace {

using fuzz::expect;
using fuzz::Input;
using fuzz::Outcome;
using fuzz::Scratch;
using Words = std::vector<std::string>;

constexpr char stanzaFile[] = "app.conf";
constexpr char javaFile[] = "app.properties";

/// What a word of one byte stands for.
constexpr char const* known[] = {"get",
                                 "list",
                                 "dump",
                                 "names",
                                 "diff",
                                 "check",
                                 "set",
                                 "unset",
                                 "rename",
                                 "uncomment",
                                 "merge",
                                 "comment",
                                 "edit",
                                 "rewrite",
                                 "convert",
                                 stanzaFile,
                                 javaFile,
                                 "new",
                                 "--",
                                 "-",
                                 "--type",
                                 "int",
                                 "bool",
                                 "--all",
                                 "--json",
                                 "--default",
                                 "--reveal",
                                 "--shell",
                                 "-z",
                                 "--add",
                                 "--replace",
                                 "--stdin",
                                 "--replace-all",
                                 "--obfuscate",
                                 "--dry-run",
                                 "--backup",
                                 "--force",
                                 "--value",
                                 "--stanza",
                                 "--key",
                                 "--format",
                                 "java",
                                 "stanza",
                                 "--latin1",
                                 "--max-companion",
                                 "1K",
                                 "--required",
                                 "--drop-comments",
                                 "s",
                                 "k",
                                 "new.properties",
                                 "--wait",
                                 "--backup=.old"};

std::string wordOf(Input& input) {
    std::string const text = input.text();
    std::size_t const number = text.size() == 1 ? static_cast<unsigned char>(text[0]) - 1U : 255;
    return number < std::size(known) ? known[number] : fuzz::confined(text);
}

Outcome zprop(Words const& words, std::string const& standardInput = {}) {
    static fuzz::Tool const tool("zprop", zprop_main);
    zprop::setCompanionLimit(0);  // that of the run before
    Outcome outcome = tool.run(words, standardInput);
    expect(outcome.status >= 0 && outcome.status <= 3, "a status that is none");
    return outcome;
}

bool isRead(Words const& words) {
    if (words.empty()) return true;
    static Words const readers{"get", "list", "dump", "names", "diff", "check"};
    bool const isReader = std::find(readers.begin(), readers.end(), words[0]) != readers.end();
    return isReader || std::find(words.begin(), words.end(), "--dry-run") != words.end();
}

void checkRaw(Input& input, Scratch const& scratch, std::string const& standardInput) {
    Words words;
    while (words.size() < 12 && !input.isAtEnd())
        words.push_back(wordOf(input));
    auto const before = scratch.content();
    int const status = zprop(words, standardInput).status;
    if (status == 0 && !isRead(words)) return;
    expect(scratch.content() == before, "a file that was changed for nothing");
}

/// What the file holds beside a key: "stanza\nkey\nvalue", or "key\nvalue".
Words recordsBeside(std::string const& file, std::string const& place) {
    std::istringstream stream(zprop({"dump", "-z", "--reveal", "--", file}).output);
    Words records;
    for (std::string record; std::getline(stream, record, '\0');) {
        bool const isOfKey =
            record == place || record.compare(0, place.size() + 1, place + "\n") == 0;
        if (!isOfKey) records.push_back(record);
    }
    return records;
}

void checkSet(Input& input, Scratch const& scratch) {
    bool const isJava = input.below(2) == 1;
    std::string const file = isJava ? javaFile : stanzaFile;
    Words const options = !isJava && input.below(2) == 1 ? Words{"--obfuscate"} : Words{};
    std::string const stanza = wordOf(input);
    std::string const key = wordOf(input);
    std::string const value = wordOf(input);
    Words place{"--", file};
    if (!isJava) place.push_back(stanza);
    place.push_back(key);
    Words set{"set"};
    set.insert(set.end(), options.begin(), options.end());
    set.insert(set.end(), place.begin(), place.end());
    set.push_back(value);

    std::string const record = isJava ? key : stanza + "\n" + key;
    auto const others = recordsBeside(file, record);
    auto const before = scratch.content();
    if (zprop(set).status != 0) {
        expect(scratch.content() == before, "a file that was changed by a set that failed");
        return;
    }
    Words get = isJava ? Words{"get", "-z"} : Words{"get", "-z", "--reveal"};
    get.insert(get.end(), place.begin(), place.end());
    expect(zprop(get).output == value + '\0', "another value than was set");
    expect(recordsBeside(file, record) == others, "another key that was changed by a set");
    Words unset{"unset"};
    unset.insert(unset.end(), place.begin(), place.end());
    expect(zprop(unset).status == 0, "a key that cannot be unset");
    expect(zprop(get).status == 1, "a key that is there when it was unset");
    expect(recordsBeside(file, record) == others, "another key that was changed by an unset");
}

/// The lines one by one; whether all were done.
bool runEach(std::string const& lines, std::string const& file) {
    std::istringstream stream(lines);
    for (std::string line; std::getline(stream, line);) {
        Words words = zprop::splitWords(line);
        if (words.empty()) continue;
        words.insert(words.begin() + 1, {"--force", file});
        if (zprop(words).status != 0) return false;
    }
    return true;
}

void checkSession(Scratch const& scratch, std::string const& lines, std::string const& file) {
    auto const before = scratch.content();
    if (zprop({"edit", "--force", file}, lines).status != 0) {
        expect(scratch.content() == before, "a file that was changed by a session that failed");
        return;
    }
    auto const after = scratch.content();
    std::string const all = zprop({"dump", "--json", file}).output;
    scratch.clear();
    for (auto const& [name, bytes] : before)
        scratch.write(name, bytes);
    expect(runEach(lines, file), "a line that a session takes and zprop does not");
    expect(zprop({"dump", "--json", file}).output == all, "another content by line than at once");
    auto const byLine = scratch.content();
    expect(byLine.count(file) == after.count(file) &&
               (byLine.count(file) == 0 || byLine.at(file) == after.at(file)),
           "another text by line than at once");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setenv("LC_ALL", "C.UTF-8", 1);
    return 0;
}

/// What is tried, a stanza file, a properties file and standard input; the words are behind them.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static Scratch const scratch;
    Input input(data, size);
    unsigned int const what = input.below(4);
    std::string const stanzas = fuzz::confined(input.text());
    std::string const pairs = fuzz::confined(input.text());
    std::string const standardInput = fuzz::confined(input.text());
    scratch.clear();
    if (!stanzas.empty()) scratch.write(stanzaFile, stanzas);
    if (!pairs.empty()) scratch.write(javaFile, pairs);
    fuzz::Inside const there(scratch);
    if (what == 0) checkRaw(input, scratch, standardInput);
    if (what == 1) checkSet(input, scratch);
    if (what > 1) checkSession(scratch, standardInput, what == 2 ? stanzaFile : javaFile);
    return 0;
}
