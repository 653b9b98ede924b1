#include "zprop/command_line.h"

#include <climits>
#include <cstdint>
#include <cstdio>
#include <iostream>

namespace zprop {
namespace {

constexpr char exitCodes[] =
    "Exit status: 0 done, 1 not there or not valid, 2 wrong usage, 3 input or output error.\n"
    "Words that begin with \"-\" follow \"--\": zprop set app.conf net offset -- -x";

/// Digits, and K, M or G for the powers of 1024; 0: it is no size, or none that fits.
unsigned long sizeOf(std::string const& text) {
    unsigned long size = 0;
    std::size_t digits = 0;
    for (; digits < text.size() && text[digits] >= '0' && text[digits] <= '9'; ++digits) {
        if (size > (ULONG_MAX - 9) / 10) return 0;
        size = size * 10 + static_cast<unsigned long>(text[digits] - '0');
    }
    std::string const unit = text.substr(digits);
    std::size_t const shift = unit.empty()  ? 0
                              : unit == "K" ? 10
                              : unit == "M" ? 20
                              : unit == "G" ? 30
                                            : SIZE_MAX;
    return shift == SIZE_MAX || size > ULONG_MAX >> shift ? 0 : size << shift;
}

}  // namespace

CommandLine::Command const CommandLine::commands[] = {
    {"get", "Prints the value of a key.", "zprop get app.conf server port --type int --default 80",
     &CommandLine::declareGet, &CommandLine::runGet},
    {"list", "Lists stanzas, keys and plain values.", "zprop list app.conf server",
     &CommandLine::declareList, &CommandLine::runList},
    {"dump", "Prints stanzas, keys and all values in file order.",
     "zprop dump app.conf --json | jq '.stanzas[].name'", &CommandLine::declareDump,
     &CommandLine::runDump},
    {"names", "Lists the names of the stanzas, or of a stanza's keys, one a line.",
     "zprop names app.conf server", &CommandLine::declareNames, &CommandLine::runNames},
    {"diff", "Tells the keys whose values differ between two files; 1 when there are some.",
     "zprop diff app.conf app.conf.orig", &CommandLine::declareDiff, &CommandLine::runDiff},
    {"check",
     "Tells every invalid line of each file, and warns of what an edit would lose, or another "
     "reader skip.",
     "zprop check /etc/app/*.conf", &CommandLine::declareCheck, &CommandLine::runCheck},
    {"set", "Sets a value; creates the file if there is none.",
     "zprop set app.conf server port 8080\n"
     "         zprop set app.properties server.port 8080",
     &CommandLine::declareSet, &CommandLine::runSet},
    {"unset", "Removes a key, or a stanza with all it holds.", "zprop unset app.conf server port",
     &CommandLine::declareUnset, &CommandLine::runUnset},
    {"rename", "Gives a key another name, at its place.",
     "zprop rename app.conf server port listen", &CommandLine::declareRename,
     &CommandLine::runRename},
    {"uncomment", "Turns the commented-out template of a key, \"# key = ...\", into the key.",
     "zprop uncomment app.conf server timeout", &CommandLine::declareUncomment,
     &CommandLine::runUncomment},
    {"merge", "Sets all that another file of the format sets.", "zprop merge app.conf site.conf",
     &CommandLine::declareMerge, &CommandLine::runMerge},
    {"comment", "Adds a comment line.",
     "zprop comment app.conf 'raised for the load test' --stanza server --key port",
     &CommandLine::declareComment, &CommandLine::runComment},
    {"edit", "Reads edits from standard input, one a line, and stores them at once.",
     "printf 'set net port 80\\nunset net proxy\\n' | zprop edit app.conf",
     &CommandLine::declareEdit, &CommandLine::runEdit},
    {"rewrite", "Stores the file in its normal form: \"key = value\" lines.",
     "zprop rewrite app.conf --drop-comments", &CommandLine::declareRewrite,
     &CommandLine::runRewrite},
    {"convert",
     "Converts a stanza file into a .properties file or back, when nothing is lost; else tells "
     "what would be.",
     "zprop convert app.conf app.properties", &CommandLine::declareConvert,
     &CommandLine::runConvert},
};

CommandLine::CommandLine()
    : app("Reads, edits and checks stanza files, and .properties files.", "zprop") {
    app.require_subcommand(1);
    app.footer(exitCodes);
    addGlobalOptions();
    app.fallthrough();
    for (Command const& command : commands)
        add(command);
}

int CommandLine::parseAndRun(int argc, char** argv) {
    try {
        app.parse(argc, argv);
    } catch (CLI::ParseError& e) {
        return static_cast<int>(tell(e));
    }
    return static_cast<int>(run());
}

Exit CommandLine::tell(CLI::ParseError const& e) {
    if (e.get_exit_code() == 0) {
        app.exit(e);
        return Exit::done;
    }
    for (char const* const command : {"rename", "uncomment"}) {
        // Not that a word is missing: without a stanza it always is.
        if (app.got_subcommand(command) && isJava()) return report(stanzasAlone(command));
    }
    bool const mayHoldSecret =
        app.get_subcommands().empty() || app.got_subcommand("set") || app.got_subcommand("unset");
    return report({Exit::wrongUsage,
                   (mayHoldSecret ? discreet(e) : std::string(e.what())) + "; --help tells more"});
}

void CommandLine::addGlobalOptions() {
    app.add_option("--wait", waitSeconds, "seconds to retry a file that is locked (default 5)")
        ->check(CLI::NonNegativeNumber);
    app.add_option("--format", format,
                   "format of the file; by default java for a name that ends in .properties")
        ->transform(CLI::CheckedTransformer(
            std::map<std::string, Format>{{"stanza", Format::stanza}, {"java", Format::java}}))
        ->option_text("stanza|java");
    app.add_flag("--latin1", latin1, "the .properties file is ISO 8859-1, not UTF-8");
    app.add_option_function<std::string>(
           "--max-companion", [](std::string const& text) { setCompanionLimit(sizeOf(text)); },
           "most that a companion file may expand to, with K, M or G (default 64M)")
        ->check([](std::string const& text) {
            return sizeOf(text) == 0 ? "not a size: " + text : std::string();
        })
        ->option_text("BYTES");
    app.set_version_flag("--version", "zprop " ZFC_VERSION, "print the version and exit");
}

void CommandLine::add(Command const& command) {
    auto* const declared = app.add_subcommand(command.name, command.description);
    declared->footer(std::string("Example: ") + command.example);
    // Of the one that is called: to declare them all takes as long as to read a file.
    declared->preparse_callback(
        [this, declared, declare = command.declare](std::size_t) { (this->*declare)(*declared); });
    declared->final_callback([this, runIt = command.run] {
        action = [this, runIt](Deadline& deadline) { return (this->*runIt)(deadline); };
    });
}

Exit CommandLine::run() {
    try {
        Deadline deadline(waitSeconds);
        if (latin1 && !file.empty() && !isJava())
            throw Failure(Exit::wrongUsage, file + ": --latin1 is for .properties files");
        Exit const result = action(deadline);
        std::cout.flush();
        if (!std::cout || std::fflush(stdout) != 0)
            throw Failure(Exit::inputOutput, "standard output cannot be written");
        return result;
    } catch (ZException& e) {
        return report(failureOf(e));
    } catch (Failure& failure) {
        return report(failure);
    }
}

void CommandLine::requireStanzaFile(char const* what) const {
    if (isJava()) throw Failure(Exit::wrongUsage, std::string(what) + " is for stanza files");
}

void CommandLine::requireSameFormat() const {
    bool const isOther = formatOf(otherFile, format) != formatOf(file, format);
    if (isOther)
        throw Failure(Exit::wrongUsage,
                      "one of " + file + " and " + otherFile +
                          " is a stanza file and the other a .properties file; convert one before");
}

void CommandLine::addFile(CLI::App& command) {
    requireText(command.add_option("FILE", file, "stanza or .properties file"))->required();
}

void CommandLine::addWord(CLI::App& command, char const* name, char const* what) {
    words.emplace_back();
    command.add_option(name, words.back(), what);
}

void CommandLine::addStanzaAndKey(CLI::App& command) {
    addWord(command, "STANZA", "stanza; a .properties file has none: leave it out");
    addWord(command, "KEY", "key");
}

std::vector<std::string> CommandLine::takeWords(std::size_t count) const {
    std::vector<std::string> taken;
    if (isJava()) taken.emplace_back();
    for (auto const& word : words) {
        if (word) taken.push_back(*word);
    }
    bool const isStanzaMissing = !isJava() && !taken.empty() && taken.front().empty();
    if (taken.size() != count || isStanzaMissing || taken[1].empty())
        throw Failure(Exit::wrongUsage, file + ": needs " + (isJava() ? "KEY" : "STANZA and KEY") +
                                            (count > 2 ? " and VALUE" : "") +
                                            "; only a value may be empty");
    return taken;
}

}  // namespace zprop
