// Command lines of zprop, and lines of its edit sessions. Taken from the input as they are: done or
// refused, and what is refused, or only reads, changes no file. Made of the input: a value that is
// set is what is got, and the rest stays; a session does what its lines do one by one.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "fuzz_input.h"
#include "scratch.h"
#include "tool_run.h"
#include "zprop/edits/words.h"
#include "zprop/failure.h"
#include "zprop/open.h"

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

/// Where the library notes the companion file, when a store makes one.
constexpr char database[] = "configuration-database";

bool isOfDatabase(std::string const& text) { return text.find(database) != std::string::npos; }

/// What the file holds beside a key and the companion's name: "stanza\nkey\nvalue", or
/// "key\nvalue"; nothing when a text has no form in such records.
std::optional<Words> recordsBeside(std::string const& file, std::string const& place) {
    auto const dumped = zprop({"dump", "-z", "--reveal", "--", file});
    if (dumped.status != 0) return std::nullopt;
    std::istringstream stream(dumped.output);
    Words records;
    for (std::string record; std::getline(stream, record, '\0');) {
        bool const isOfKey =
            record == place || record.compare(0, place.size() + 1, place + "\n") == 0;
        if (!isOfKey && !isOfDatabase(record)) records.push_back(record);
    }
    return records;
}

/// Others stay, wherever one can see them.
void requireSame(std::optional<Words> const& before, std::optional<Words> const& now) {
    expect(!before || !now || *before == *now, "another key that was changed");
}

/// In any order.
void requireSameSet(std::optional<Words> one, std::optional<Words> other) {
    for (auto* const records : {&one, &other})
        if (*records) std::sort((*records)->begin(), (*records)->end());
    requireSame(one, other);
}

void checkSet(Input& input, Scratch const& scratch) {
    bool const isJava = input.below(2) == 1;
    std::string const file = isJava ? javaFile : stanzaFile;
    Words const options = !isJava && input.below(2) == 1 ? Words{"--obfuscate"} : Words{};
    std::string const stanza = wordOf(input);
    std::string const key = wordOf(input);
    std::string const value = wordOf(input);
    if (isOfDatabase(stanza)) return;  // another file becomes the companion, or none
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
    requireSame(others, recordsBeside(file, record));
    Words unset{"unset"};
    unset.insert(unset.end(), place.begin(), place.end());
    expect(zprop(unset).status == 0, "a key that cannot be unset");
    expect(zprop(get).status == 1, "a key that is there when it was unset");
    requireSame(others, recordsBeside(file, record));
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
    if (isOfDatabase(lines)) return;
    auto const after = scratch.content();
    auto const all = recordsBeside(file, "");
    scratch.clear();
    for (auto const& [name, bytes] : before)
        scratch.write(name, bytes);
    expect(runEach(lines, file), "a line that a session takes and zprop does not");
    requireSameSet(all, recordsBeside(file, ""));
    // The companion's name comes behind all that is there when the first secret is stored.
    bool const hasCompanion = after.size() > before.size();
    expect(hasCompanion || scratch.content() == after, "another text by line than at once");
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
    // A session makes a file, and not every line of one does.
    if (what > 1 || !stanzas.empty()) scratch.write(stanzaFile, stanzas);
    if (what > 1 || !pairs.empty()) scratch.write(javaFile, pairs);
    fuzz::Inside const there(scratch);
    if (what == 0) checkRaw(input, scratch, standardInput);
    if (what == 1) checkSet(input, scratch);
    if (what > 1) checkSession(scratch, standardInput, what == 2 ? stanzaFile : javaFile);
    return 0;
}
