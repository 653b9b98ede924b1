/// zprop: reads, edits and checks configuration files from the shell: stanza files, and properties
/// files in the manner of the Java platform.
#include <CLI/CLI.hpp>

#include <deque>
#include <iostream>

#include "common/datadir.h"
#include "zprop/convert.h"
#include "zprop/edits.h"
#include "zprop/java_commands.h"
#include "zprop/read_commands.h"

namespace zprop {
namespace {

constexpr char exitCodes[] =
    "Exit status: 0 done, 1 not there or not valid, 2 wrong usage, 3 input or output error.\n"
    "Words that begin with \"-\" follow \"--\": zprop set app.conf net offset -- -x";

/// The command line: one object per subcommand, filled by CLI11, run afterwards.
class CommandLine {
  public:
    CommandLine() : app("Reads, edits and checks stanza files, and .properties files.", "zprop") {
        app.require_subcommand(1);
        app.footer(exitCodes);
        app.add_option("--wait", waitSeconds, "seconds to retry a file that is locked (default 5)")
            ->check(CLI::NonNegativeNumber);
        app.add_option("--format", format,
                       "format of the file; by default java for a name that ends in .properties")
            ->transform(CLI::CheckedTransformer(
                std::map<std::string, Format>{{"stanza", Format::stanza}, {"java", Format::java}}))
            ->option_text("stanza|java");
        app.add_flag("--latin1", latin1, "the .properties file is ISO 8859-1, not UTF-8");
        app.fallthrough();
        addGet();
        addList();
        addDump();
        addCheck();
        addSet();
        addEdit("unset", "Removes a key, or a stanza with all it holds.",
                "zprop unset app.conf server port", Missing::isAnError, unsetEdit);
        addEdit("comment", "Adds a comment line.",
                "zprop comment app.conf 'raised for the load test' --stanza server --key port",
                Missing::isAnError, commentEdit);
        addEdits();
        addRewrite();
        addConvert();
    }

    int parseAndRun(int argc, char** argv) {
        try {
            app.parse(argc, argv);
        } catch (CLI::ParseError& e) {
            bool const isHelp = e.get_exit_code() == 0;
            app.exit(e);
            return static_cast<int>(isHelp ? Exit::done : Exit::wrongUsage);
        }
        return static_cast<int>(run());
    }

  private:
    CLI::App* add(char const* name, char const* description, char const* example) {
        auto* const command = app.add_subcommand(name, description);
        command->footer(std::string("Example: ") + example);
        return command;
    }

    CLI::App* addWithFile(char const* name, char const* description, char const* example) {
        auto* const command = add(name, description, example);
        requireText(command->add_option("FILE", file, "stanza or .properties file"))->required();
        return command;
    }

    [[nodiscard]] bool isJava() const { return formatOf(file, format) == Format::java; }

    [[nodiscard]] Encoding encoding() const { return latin1 ? Encoding::latin1 : Encoding::utf8; }
    [[nodiscard]] JavaName javaName() const { return {file, encoding()}; }

    /// For a command, or an option, that only stanza files have.
    void requireStanzaFile(char const* what) const {
        if (isJava()) throw Failure(Exit::wrongUsage, std::string(what) + " is for stanza files");
    }

    /// The words behind the file name. A .properties file has no STANZA: they move up by one.
    void addWord(CLI::App& command, char const* name, char const* what) {
        words.emplace_back();
        command.add_option(name, words.back(), what);
    }

    /// Stanza, key and what else the command takes, `count` texts in all; an empty stanza for a
    /// .properties file.
    std::vector<std::string> takeWords(std::size_t count) const {
        std::vector<std::string> taken;
        if (isJava()) taken.emplace_back();
        for (auto const& word : words) {
            if (word) taken.push_back(*word);
        }
        bool const isStanzaMissing = !isJava() && !taken.empty() && taken.front().empty();
        if (taken.size() != count || isStanzaMissing || taken[1].empty())
            throw Failure(Exit::wrongUsage,
                          file + ": needs " + (isJava() ? "KEY" : "STANZA and KEY") +
                              (count > 2 ? " and VALUE" : "") + "; only a value may be empty");
        return taken;
    }

    void addGet() {
        auto* const command = addWithFile("get", "Prints the value of a key.",
                                          "zprop get app.conf server port --type int --default 80");
        addWord(*command, "STANZA", noStanza);
        addWord(*command, "KEY", "key");
        auto* const all = command->add_flag("--all", getRequest.all,
                                            "every value, one a line, instead of the last");
        command->add_option("--type", getRequest.type, "check and print as string, int or bool")
            ->transform(CLI::CheckedTransformer(
                std::map<std::string, ValueType>{{"string", ValueType::string},
                                                 {"int", ValueType::integer},
                                                 {"bool", ValueType::boolean}}))
            ->excludes(all);
        command->add_option("--default", getRequest.fallback, "printed when there is no value");
        command->add_flag("--reveal", getRequest.reveal, "show obfuscated values");
        command->final_callback([this] {
            getRequest.file = file;
            action = [this](Deadline& deadline) { return runGet(deadline); };
        });
    }

    void addList() {
        auto* const command = addWithFile("list", "Lists stanzas, keys and plain values.",
                                          "zprop list app.conf server");
        requireText(command->add_option("STANZA", stanza, "this stanza alone"));
        command->final_callback([this] {
            action = [this](Deadline& deadline) {
                if (!stanza.empty()) requireStanzaFile("STANZA");
                return isJava() ? listJava(javaName(), deadline) : list(file, stanza, deadline);
            };
        });
    }

    void addDump() {
        auto* const command =
            addWithFile("dump", "Prints stanzas, keys and all values in file order.",
                        "zprop dump app.conf --json | jq '.stanzas[].name'");
        command->add_flag("--json", dumpRequest.json, "as JSON");
        command->add_flag("--reveal", dumpRequest.reveal, "show obfuscated values");
        command->final_callback([this] {
            dumpRequest.file = file;
            action = [this](Deadline& deadline) {
                if (!isJava()) return dump(dumpRequest, deadline);
                return dumpRequest.json ? dumpJavaAsJson(javaName(), deadline)
                                        : listJava(javaName(), deadline);
            };
        });
    }

    void addCheck() {
        auto* const command = add("check",
                                  "Tells the first invalid line of each stanza file, and every "
                                  "invalid line of a .properties file.",
                                  "zprop check /etc/app/*.conf");
        command->add_option("FILE", files, "files")->required();
        command->final_callback([this] {
            action = [this](Deadline&) { return check(files, format, waitSeconds, encoding()); };
        });
    }

    Exit runGet(Deadline& deadline) {
        auto const place = takeWords(2);
        getRequest.stanza = place[0];
        getRequest.key = place[1];
        if (!isJava()) return get(getRequest, deadline);
        if (getRequest.all || getRequest.reveal || getRequest.type != ValueType::string)
            requireStanzaFile("--all, --reveal or --type");
        return getJava(javaName(), getRequest.key, getRequest.fallback, deadline);
    }

    void addSet() {
        auto* const command = addWithFile("set", "Sets a value; creates the file if there is none.",
                                          "zprop set app.conf server port 8080\n"
                                          "         zprop set app.properties server.port 8080");
        addWord(*command, "STANZA", noStanza);
        addWord(*command, "KEY", "key");
        addWord(*command, "VALUE", "value; may be empty");
        command->add_flag("--add", setEdit.add, "add one more value instead of replacing all");
        command->add_flag("--obfuscate", setEdit.obfuscate,
                          "keep the value out of the file, in its compressed companion");
        command->final_callback(
            [this] { action = [this](Deadline& deadline) { return runSet(deadline); }; });
    }

    Exit runSet(Deadline& deadline) {
        auto const given = takeWords(3);
        setEdit.stanza = given[0];
        setEdit.key = given[1];
        setEdit.value = given[2];
        if (isJava()) {
            if (setEdit.add || setEdit.obfuscate) requireStanzaFile("--add or --obfuscate");
            return setJava(javaName(), setEdit.key, setEdit.value, deadline);
        }
        editFile(file, Missing::create, Comments::keep, deadline,
                 [&](ZStanzaFileProperties& properties) { apply(properties, file, setEdit); });
        return Exit::done;
    }

    /// Lets --key stand without --stanza, which a .properties file has none of.
    static void freeKey(CLI::App& command) {
        auto* const key = command.get_option_no_throw("--key");
        if (key != nullptr) key->remove_needs(command.get_option("--stanza"));
    }

    template <class Edit>
    void addEdit(char const* name, char const* description, char const* example, Missing missing,
                 Edit& edit) {
        auto* const command = addWithFile(name, description, example);
        declare(*command, edit);
        freeKey(*command);
        command->final_callback([this, missing, &edit] {
            action = [this, missing, &edit](Deadline& deadline) {
                if (isJava()) return editJava(javaName(), edit, deadline);
                requireWhole(edit);
                editFile(file, missing, Comments::keep, deadline,
                         [&](ZStanzaFileProperties& properties) { apply(properties, file, edit); });
                return Exit::done;
            };
        });
    }

    static void requireWhole(UnsetEdit const&) {}
    static void requireWhole(CommentEdit const& edit) {
        if (edit.stanza.empty() && !edit.key.empty())
            throw Failure(Exit::wrongUsage, "--key requires --stanza");
    }

    void addEdits() {
        auto* const command = addWithFile(
            "edit", "Reads edits from standard input, one a line, and stores them at once.",
            "printf 'set net port 80\\nunset net proxy\\n' | zprop edit app.conf");
        command->footer(command->get_footer() +
                        "\nA line is: set STANZA KEY VALUE [--add] [--obfuscate], unset STANZA "
                        "[KEY], or comment TEXT [--stanza S [--key K]],\nwithout stanzas for a "
                        ".properties file; words are quoted as for a shell. When one edit cannot "
                        "be made, none is.");
        command->final_callback([this] {
            action = [this](Deadline& deadline) {
                if (isJava()) return editJavaByLines(javaName(), std::cin, deadline);
                auto const changes = readChanges(std::cin);
                editFile(file, Missing::create, Comments::keep, deadline,
                         [&](ZStanzaFileProperties& properties) {
                             for (auto const& change : changes)
                                 change(properties, file);
                         });
                return Exit::done;
            };
        });
    }

    void addRewrite() {
        auto* const command =
            addWithFile("rewrite", "Stores the file in its normal form: \"key = value\" lines.",
                        "zprop rewrite app.conf --drop-comments");
        command->add_flag("--drop-comments", dropComments, "leave comments and blank lines out");
        command->final_callback([this] {
            action = [this](Deadline& deadline) {
                auto const comments = dropComments ? Comments::drop : Comments::keep;
                if (isJava()) return rewriteJava(javaName(), comments, deadline);
                editFile(file, Missing::isAnError, comments, deadline,
                         [](ZStanzaFileProperties&) {});
                return Exit::done;
            };
        });
    }

    void addConvert() {
        auto* const command = add("convert",
                                  "Converts a stanza file into a .properties file or back, when "
                                  "nothing is lost; else tells what would be.",
                                  "zprop convert app.conf app.properties");
        requireText(command->add_option("FROM", convertRequest.source, "file to read"))->required();
        requireText(command->add_option("TO", convertRequest.target,
                                        "file of the other format, which must not be there yet"))
            ->required();
        requireText(
            command->add_option("--stanza", convertRequest.stanza,
                                "holds all keys; else key \"a.b\" is key \"b\" of stanza \"a\""));
        command->add_flag("--drop-comments", convertRequest.dropComments, "comments may get lost");
        command->final_callback([this] {
            action = [this](Deadline& deadline) {
                convertRequest.from = formatOf(convertRequest.source, format);
                convertRequest.isFormatGiven = format.has_value();
                convertRequest.encoding = encoding();
                return convert(convertRequest, deadline);
            };
        });
    }

    Exit run() {
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

    static Exit report(Failure const& failure) {
        std::cerr << "zprop: " << failure.what() << "\n";
        return failure.exitCode();
    }

    CLI::App app;
    std::function<Exit(Deadline&)> action;
    double waitSeconds = 5;
    std::string file;
    std::string stanza;
    std::deque<std::optional<std::string>> words;  // of all commands
    std::optional<Format> format;
    bool latin1 = false;
    std::vector<std::string> files;
    GetRequest getRequest;
    DumpRequest dumpRequest;
    SetEdit setEdit;
    UnsetEdit unsetEdit;
    CommentEdit commentEdit;
    ConvertRequest convertRequest;
    bool dropComments = false;

    static constexpr char noStanza[] = "stanza; a .properties file has none: leave it out";
};

}  // namespace
}  // namespace zprop

int main(int argc, char** argv) {
    tools::useInstalledDataDirectory();
    return zprop::CommandLine().parseAndRun(argc, argv);
}
