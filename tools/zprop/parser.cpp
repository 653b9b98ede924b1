/// What a command line, and a line of `zprop edit`, may hold. The one source of zprop that includes
/// CLI11 (with arguments.h), which takes longer to compile than all the rest.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstring>
#include <map>

#include "zprop/arguments.h"
#include "zprop/command_line.h"
#include "zprop/edits/edits.h"

namespace zprop {
namespace {

constexpr char exitCodes[] =
    "Exit status: 0 done, 1 not there or not valid, 2 wrong usage, 3 input or output error.\n"
    "Words that begin with \"-\" follow \"--\": zprop set app.conf net offset -- -x";

/// What a parser says without repeating words that nobody expected, among which a secret may be.
std::string discreet(CLI::ParseError const& e) {
    bool const isExtra = e.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError);
    return isExtra ? "too many words, or an unknown option; a value with blanks stands in quotes"
                   : e.what();
}

/// Has the words of one line parsed; throws Failure (wrong usage).
void parseWords(CLI::App& app, std::vector<std::string> words) {
    std::reverse(words.begin(), words.end());  // CLI11 takes them from the back
    try {
        app.parse(words);
    } catch (CLI::ParseError& e) {
        throw Failure(Exit::wrongUsage, discreet(e));
    }
}

/// A line of `zprop edit`, for a file of either format.
struct EditLine {
    EditLine() : app("one edit", "zprop edit") { app.require_subcommand(1)->set_help_flag(); }

    CLI::App app;
    SetEdit set;
    UnsetEdit unset;
    CommentEdit comment;
};

struct StanzaEditLine : EditLine {
    StanzaEditLine() {
        declare(*app.add_subcommand("set"), set);
        declare(*app.add_subcommand("unset"), unset);
        declare(*app.add_subcommand("comment"), comment);
        declare(*app.add_subcommand("rename"), rename);
        declare(*app.add_subcommand("uncomment"), uncomment);
    }
    Edit parse(std::vector<std::string> words) {
        parseWords(app, std::move(words));
        if (app.got_subcommand("set")) return set;
        if (app.got_subcommand("unset")) return unset;
        if (app.got_subcommand("rename")) return rename;
        if (app.got_subcommand("uncomment")) return uncomment;
        return comment;
    }

    RenameEdit rename;
    UncommentEdit uncomment;
};

struct PairEditLine : EditLine {
    PairEditLine() {
        auto* const setting = app.add_subcommand("set");
        addText(*setting, "KEY", set.key, "");
        setting->add_option("VALUE", set.value)->required();
        addText(*app.add_subcommand("unset"), "KEY", unset.stanza, "");
        auto* const commenting = app.add_subcommand("comment");
        commenting->add_option("TEXT", comment.text)->required();
        requireText(commenting->add_option("--key", comment.key));
    }
    PairEdit parse(std::vector<std::string> words) {
        parseWords(app, std::move(words));
        if (app.got_subcommand("set")) return set;
        if (app.got_subcommand("unset")) return unset;
        return comment;
    }
};

}  // namespace

Edit parseEdit(std::vector<std::string> words) { return StanzaEditLine().parse(std::move(words)); }

PairEdit parsePairEdit(std::vector<std::string> words) {
    return PairEditLine().parse(std::move(words));
}

/// Fills a command line. A command is a row of `commands`: a function that declares its arguments
/// and one that runs it.
class CommandLine::Parser {
  public:
    struct Command {
        char const* name;
        char const* description;
        char const* example;
        void (Parser::*declare)(CLI::App&);
        Exit (CommandLine::*run)(Deadline&);
    };

    /// Knows the one command, or all of them for null.
    Parser(CommandLine& filled, Command const* only);

    /// The first word that is a command, maybe as a value, which that command's parser finds out;
    /// null for none.
    [[nodiscard]] static Command const* calledIn(int argc, char** argv);
    /// Whether all is right; else a parser of all commands tells what is wrong, or was asked.
    [[nodiscard]] bool parses(int argc, char** argv);
    [[nodiscard]] Exit told() const { return status; }  // the exit status then

  private:
    static Command const commands[];

    void addGlobalOptions();
    void add(Command const& command);
    [[nodiscard]] Exit tell(CLI::ParseError const& e);

    void addFile(CLI::App& command);
    /// The words behind the file name. A .properties file has no STANZA: they move up by one.
    void addWord(CLI::App& command, char const* name, char const* what);
    void addStanzaAndKey(CLI::App& command);
    static void addStyles(CLI::App& command, Style& style);
    void addLayers(CLI::App& command);
    void addEditOptions(CLI::App& command);

    void declareGet(CLI::App& command);
    void declareList(CLI::App& command);
    void declareDump(CLI::App& command);
    void declareCheck(CLI::App& command);
    void declareNames(CLI::App& command);
    void declareDiff(CLI::App& command);
    void declareSet(CLI::App& command);
    void declareUnset(CLI::App& command);
    void declareComment(CLI::App& command);
    void declareEdit(CLI::App& command);
    /// Of a command that is a line of `zprop edit` with a file in front.
    template <auto edit>
    void declareEditOf(CLI::App& command) {
        addFile(command);
        declare(command, given.*edit);
        addEditOptions(command);
    }
    void declareMerge(CLI::App& command);
    void declareRewrite(CLI::App& command);
    void declareConvert(CLI::App& command);

    CommandLine& given;
    bool const knowsAll;
    Exit status = Exit::wrongUsage;  // of what was told
    CLI::App app;
};

CommandLine::Parser::Command const CommandLine::Parser::commands[] = {
    {"get", "Prints the value of a key.", "zprop get app.conf server port --type int --default 80",
     &Parser::declareGet, &CommandLine::runGet},
    {"list", "Lists stanzas, keys and plain values.", "zprop list app.conf server",
     &Parser::declareList, &CommandLine::runList},
    {"dump", "Prints stanzas, keys and all values in file order.",
     "zprop dump app.conf --json | jq '.stanzas[].name'", &Parser::declareDump,
     &CommandLine::runDump},
    {"names", "Lists the names of the stanzas, or of a stanza's keys, one a line.",
     "zprop names app.conf server", &Parser::declareNames, &CommandLine::runNames},
    {"diff", "Tells the keys whose values differ between two files; 1 when there are some.",
     "zprop diff app.conf app.conf.orig", &Parser::declareDiff, &CommandLine::runDiff},
    {"check",
     "Tells every invalid line of each file, and warns of what an edit would lose, or another "
     "reader skip.",
     "zprop check /etc/app/*.conf", &Parser::declareCheck, &CommandLine::runCheck},
    {"set", "Sets a value; creates the file if there is none.",
     "zprop set app.conf server port 8080\n"
     "         zprop set app.properties server.port 8080",
     &Parser::declareSet, &CommandLine::runSet},
    {"unset", "Removes a key, or a stanza with all it holds.", "zprop unset app.conf server port",
     &Parser::declareUnset, &CommandLine::runUnset},
    {"rename", "Gives a key another name, at its place.",
     "zprop rename app.conf server port listen", &Parser::declareEditOf<&CommandLine::renameEdit>,
     &CommandLine::runRename},
    {"uncomment", "Turns the commented-out template of a key, \"# key = ...\", into the key.",
     "zprop uncomment app.conf server timeout", &Parser::declareEditOf<&CommandLine::uncommentEdit>,
     &CommandLine::runUncomment},
    {"merge", "Sets all that another file of the format sets.", "zprop merge app.conf site.conf",
     &Parser::declareMerge, &CommandLine::runMerge},
    {"comment", "Adds a comment line.",
     "zprop comment app.conf 'raised for the load test' --stanza server --key port",
     &Parser::declareComment, &CommandLine::runComment},
    {"edit", "Reads edits from standard input, one a line, and stores them at once.",
     "printf 'set net port 80\\nunset net proxy\\n' | zprop edit app.conf", &Parser::declareEdit,
     &CommandLine::runEdit},
    {"rewrite", "Stores the file in its normal form: \"key = value\" lines.",
     "zprop rewrite app.conf --drop-comments", &Parser::declareRewrite, &CommandLine::runRewrite},
    {"convert",
     "Converts a stanza file into a .properties file or back, when nothing is lost; else tells "
     "what would be.",
     "zprop convert app.conf app.properties", &Parser::declareConvert, &CommandLine::runConvert},
};

CommandLine::Parser::Parser(CommandLine& filled, Command const* only)
    : given(filled),
      knowsAll(only == nullptr),
      app("Reads, edits and checks stanza files, and .properties files.", "zprop") {
    app.require_subcommand(1)->footer(exitCodes);
    addGlobalOptions();
    app.fallthrough();
    for (Command const& command : commands)
        if (knowsAll || only == &command) add(command);
}

CommandLine::Parser::Command const* CommandLine::Parser::calledIn(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        for (Command const& command : commands)
            if (std::strcmp(argv[i], command.name) == 0) return &command;
    }
    return nullptr;
}

bool CommandLine::Parser::parses(int argc, char** argv) {
    try {
        app.parse(argc, argv);
        return true;
    } catch (CLI::ParseError const& e) {
        if (knowsAll) status = tell(e);
        return false;
    }
}

Exit CommandLine::Parser::tell(CLI::ParseError const& e) {
    if (e.get_exit_code() == 0) {
        app.exit(e);
        return Exit::done;
    }
    for (char const* const command : {"rename", "uncomment"}) {
        // Not that a word is missing: without a stanza it always is.
        if (app.got_subcommand(command) && given.isJava())
            return report(given.stanzasAlone(command));
    }
    bool const mayHoldSecret =
        app.get_subcommands().empty() || app.got_subcommand("set") || app.got_subcommand("unset");
    return report({Exit::wrongUsage,
                   (mayHoldSecret ? discreet(e) : std::string(e.what())) + "; --help tells more"});
}

void CommandLine::Parser::addGlobalOptions() {
    app.add_option("--wait", given.waitSeconds,
                   "seconds to retry a file that is locked (default 5)")
        ->check(CLI::NonNegativeNumber);
    app.add_option("--format", given.format,
                   "format of the file; by default java for a name that ends in .properties")
        ->transform(CLI::CheckedTransformer(
            std::map<std::string, Format>{{"stanza", Format::stanza}, {"java", Format::java}}))
        ->option_text("stanza|java");
    app.add_flag("--latin1", given.latin1, "the .properties file is ISO 8859-1, not UTF-8");
    app.add_option_function<std::string>(
           "--max-companion", [](std::string const& text) { setCompanionLimit(sizeOf(text)); },
           "most that a companion file may expand to, with K, M or G (default 64M)")
        ->check([](std::string const& text) {
            return sizeOf(text) == 0 ? "not a size: " + text : std::string();
        })
        ->option_text("BYTES");
    app.set_version_flag("--version", "zprop " ZPROP_VERSION, "print the version and exit");
}

void CommandLine::Parser::add(Command const& command) {
    auto* const declared = app.add_subcommand(command.name, command.description);
    declared->footer(std::string("Example: ") + command.example);
    // Of the one that is called: to declare them all takes as long as to read a file.
    declared->preparse_callback(
        [this, declared, declare = command.declare](std::size_t) { (this->*declare)(*declared); });
    declared->final_callback([this, run = command.run] {
        given.action = [&line = given, run](Deadline& deadline) { return (line.*run)(deadline); };
    });
}

int CommandLine::parseAndRun(int argc, char** argv) {
    // A line that is right needs the one command that it calls: to declare them all takes as long
    // as to read a small file.
    if (auto const* const called = Parser::calledIn(argc, argv)) {
        CommandLine given;
        if (Parser(given, called).parses(argc, argv)) return static_cast<int>(given.run());
    }
    CommandLine given;
    Parser parser(given, nullptr);
    return static_cast<int>(parser.parses(argc, argv) ? given.run() : parser.told());
}

void CommandLine::Parser::addFile(CLI::App& command) {
    addText(command, "FILE", given.file, "stanza or .properties file");
}

void CommandLine::Parser::addWord(CLI::App& command, char const* name, char const* what) {
    given.words.emplace_back();
    command.add_option(name, given.words.back(), what);
}

void CommandLine::Parser::addStanzaAndKey(CLI::App& command) {
    addWord(command, "STANZA", "stanza; a .properties file has none: leave it out");
    addWord(command, "KEY", "key");
}

void CommandLine::Parser::declareGet(CLI::App& command) {
    auto& asked = given.getRequest;
    addFile(command);
    addStanzaAndKey(command);
    auto* const all =
        command.add_flag("--all", asked.all, "every value, one a line, instead of the last");
    std::map<std::string, ValueType> const types = {
        {"string", ValueType::string}, {"int", ValueType::integer}, {"bool", ValueType::boolean}};
    command.add_option("--type", asked.type, "check and print as string, int or bool")
        ->transform(CLI::CheckedTransformer(types))
        ->excludes(all);
    auto* const fallback =
        command.add_option("--default", asked.fallback, "printed when there is no value");
    command.add_flag("--required", asked.required, "a key without a value is an error")
        ->excludes(fallback);
    command.add_flag("--reveal", asked.reveal, "show obfuscated values");
    command.add_flag("--origin", asked.origin, "FILE:LINE or $VARIABLE in front of each value")
        ->excludes(fallback);
    addLayers(command);
    addStyles(command, asked.style);
}

void CommandLine::Parser::addLayers(CLI::App& command) {
    auto* const limit = app.get_option("--max-companion");  // the layers have the library's own
    auto& asked = given.getRequest;
    requireText(command.add_option("--layer", asked.layers,
                                   "a file, or a directory of .conf files"
                                   ", whose keys win over those before; again for more"))
        ->option_text("PLACE")
        ->allow_extra_args(false)
        ->excludes(limit);
    requireText(command.add_option("--env", asked.environment, "PREFIXSTANZA__KEY wins over all"))
        ->option_text("PREFIX")
        ->excludes(limit);
}

void CommandLine::Parser::declareList(CLI::App& command) {
    addFile(command);
    requireText(command.add_option("STANZA", given.listRequest.stanza, "this stanza alone"));
    addStyles(command, given.listRequest.style);
}

void CommandLine::Parser::declareNames(CLI::App& command) {
    addFile(command);
    requireText(command.add_option("STANZA", given.listRequest.stanza, "the keys of this stanza"));
    addStyles(command, given.listRequest.style);
}

void CommandLine::Parser::declareDump(CLI::App& command) {
    addFile(command);
    command.add_flag("--json", given.dumpRequest.json, "as JSON");
    command.add_flag("--reveal", given.dumpRequest.reveal, "show obfuscated values");
    addStyles(command, given.dumpRequest.style);
}

void CommandLine::Parser::declareDiff(CLI::App& command) {
    addFile(command);
    addText(command, "OTHER", given.otherFile, "file of the same format");
    command.add_flag("--reveal", given.diffRequest.reveal, "show obfuscated values");
}

void CommandLine::Parser::declareCheck(CLI::App& command) {
    command.add_option("FILE", given.files, "files")->required();
}

void CommandLine::Parser::addStyles(CLI::App& command, Style& style) {
    auto* const nul = command.add_flag_callback(
        "-z,--null", [&style] { style = Style::nul; }, "a NUL behind each answer, for xargs -0");
    command
        .add_flag_callback(
            "--shell", [&style] { style = Style::shell; }, "as words or assignments of a shell")
        ->excludes(nul);
}

void CommandLine::Parser::addEditOptions(CLI::App& command) {
    command.add_flag("--dry-run", given.target.dryRun,
                     "print the unified difference, change nothing");
    // A flag with a value, because the word behind an option would be taken for it.
    command.add_flag("--backup{~}", given.target.backup,
                     "copy the files before, to the same names with ~ or --backup=SUFFIX");
    command.add_flag("--force", given.target.force,
                     "lose text that the format does not keep: see \"zprop check\"");
}

void CommandLine::Parser::declareSet(CLI::App& command) {
    addFile(command);
    addStanzaAndKey(command);
    addWord(command, "VALUE", "value; may be empty");
    declareOptions(command, given.setEdit);
    command.add_flag("--stdin", given.fromStandardInput,
                     "read the value from standard input, or ask for it on a terminal");
    addEditOptions(command);
}

void CommandLine::Parser::declareUnset(CLI::App& command) {
    addFile(command);
    declare(command, given.unsetEdit);
    // Of a .properties file the word before is the key.
    command.get_option("--value")->remove_needs(command.get_option("KEY"));
    addEditOptions(command);
}

void CommandLine::Parser::declareMerge(CLI::App& command) {
    addFile(command);
    addText(command, "OTHER", given.otherFile, "file of the same format with the values to set");
    addEditOptions(command);
}

void CommandLine::Parser::declareComment(CLI::App& command) {
    addFile(command);
    declare(command, given.commentEdit);
    // A .properties file has no stanza that a key could need.
    command.get_option("--key")->remove_needs(command.get_option("--stanza"));
    addEditOptions(command);
}

void CommandLine::Parser::declareEdit(CLI::App& command) {
    addFile(command);
    addEditOptions(command);
    command.footer(
        command.get_footer() +
        "\nA line is: set STANZA KEY VALUE [--add] [--replace OLD] [--replace-all] [--obfuscate],\n"
        "unset STANZA [KEY [--value V]], rename STANZA KEY NEW, uncomment STANZA KEY, or\n"
        "comment TEXT [--stanza S [--key K]]; for a .properties file set KEY VALUE, unset KEY, or\n"
        "comment TEXT [--key K]. Words are quoted as for a shell. When one edit cannot be made,\n"
        "none is.");
}

void CommandLine::Parser::declareRewrite(CLI::App& command) {
    addFile(command);
    command.add_flag_callback(
        "--drop-comments", [this] { given.target.comments = Comments::drop; },
        "leave comments and blank lines out");
    addEditOptions(command);
}

void CommandLine::Parser::declareConvert(CLI::App& command) {
    addText(command, "FROM", given.convertRequest.source, "file to read");
    addText(command, "TO", given.convertRequest.target,
            "file of the other format, which must not be there yet");
    requireText(
        command.add_option("--stanza", given.convertRequest.stanza,
                           "holds all keys; else key \"a.b\" is key \"b\" of stanza \"a\""));
    command.add_flag("--drop-comments", given.convertRequest.dropComments, "comments may get lost");
}

}  // namespace zprop
