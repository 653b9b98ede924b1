// zprop: reads, edits and checks stanza configuration files from the shell.
#include <CLI/CLI.hpp>
#include <iostream>

#include "common/datadir.h"
#include "zprop/edits.h"
#include "zprop/read_commands.h"

namespace zprop {
namespace {

constexpr char exitCodes[] =
    "Exit status: 0 done, 1 not there or not valid, 2 wrong usage, 3 input or output error.\n"
    "Words that begin with \"-\" follow \"--\": zprop set app.conf net offset -- -x";

/// The command line: one object per subcommand, filled by CLI11, run afterwards.
class CommandLine {
  public:
    CommandLine() : app("Reads, edits and checks stanza configuration files.", "zprop") {
        app.require_subcommand(1);
        app.footer(exitCodes);
        app.add_option("--wait", waitSeconds, "seconds to retry a file that is locked (default 5)")
            ->check(CLI::NonNegativeNumber);
        app.fallthrough();
        addGet();
        addList();
        addDump();
        addCheck();
        addEdit("set", "Sets a value; creates the file if there is none.",
                "zprop set app.conf server port 8080", Missing::create, setEdit);
        addEdit("unset", "Removes a key, or a stanza with all it holds.",
                "zprop unset app.conf server port", Missing::isAnError, unsetEdit);
        addEdit("comment", "Adds a comment line.",
                "zprop comment app.conf 'raised for the load test' --stanza server --key port",
                Missing::isAnError, commentEdit);
        addEdits();
        addRewrite();
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
    CLI::App* add(const char* name, const char* description, const char* example) {
        auto* const command = app.add_subcommand(name, description);
        command->footer(std::string("Example: ") + example);
        return command;
    }

    CLI::App* addWithFile(const char* name, const char* description, const char* example) {
        auto* const command = add(name, description, example);
        requireText(command->add_option("FILE", file, "stanza file"))->required();
        return command;
    }

    void addGet() {
        auto* const command = addWithFile("get", "Prints the value of a key.",
                                          "zprop get app.conf server port --type int --default 80");
        requireText(command->add_option("STANZA", getRequest.stanza, "stanza"))->required();
        requireText(command->add_option("KEY", getRequest.key, "key"))->required();
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
            action = [this](Deadline& deadline) { return get(getRequest, deadline); };
        });
    }

    void addList() {
        auto* const command = addWithFile("list", "Lists stanzas, keys and plain values.",
                                          "zprop list app.conf server");
        requireText(command->add_option("STANZA", stanza, "this stanza alone"));
        command->final_callback([this] {
            action = [this](Deadline& deadline) { return list(file, stanza, deadline); };
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
            action = [this](Deadline& deadline) { return dump(dumpRequest, deadline); };
        });
    }

    void addCheck() {
        auto* const command = add("check", "Tells the first invalid line of each file.",
                                  "zprop check /etc/app/*.conf");
        command->add_option("FILE", files, "stanza files")->required();
        command->final_callback(
            [this] { action = [this](Deadline&) { return check(files, waitSeconds); }; });
    }

    template <class Edit>
    void addEdit(const char* name, const char* description, const char* example, Missing missing,
                 Edit& edit) {
        auto* const command = addWithFile(name, description, example);
        declare(*command, edit);
        command->final_callback([this, missing, &edit] {
            action = [this, missing, &edit](Deadline& deadline) {
                editFile(file, missing, Comments::keep, deadline,
                         [&](ZStanzaFileProperties& properties) { apply(properties, file, edit); });
                return Exit::done;
            };
        });
    }

    void addEdits() {
        auto* const command = addWithFile(
            "edit", "Reads edits from standard input, one a line, and stores them at once.",
            "printf 'set net port 80\\nunset net proxy\\n' | zprop edit app.conf");
        command->footer(command->get_footer() +
                        "\nA line is: set STANZA KEY VALUE [--add] [--obfuscate], unset STANZA "
                        "[KEY], or comment TEXT [--stanza S [--key K]];\nwords are quoted as for a "
                        "shell. When one edit cannot be made, none is.");
        command->final_callback([this] {
            action = [this](Deadline& deadline) {
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
                editFile(file, Missing::isAnError, dropComments ? Comments::drop : Comments::keep,
                         deadline, [](ZStanzaFileProperties&) {});
                return Exit::done;
            };
        });
    }

    Exit run() {
        try {
            Deadline deadline(waitSeconds);
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

    static Exit report(const Failure& failure) {
        std::cerr << "zprop: " << failure.what() << "\n";
        return failure.exitCode();
    }

    CLI::App app;
    std::function<Exit(Deadline&)> action;
    double waitSeconds = 5;
    std::string file;
    std::string stanza;
    std::vector<std::string> files;
    GetRequest getRequest;
    DumpRequest dumpRequest;
    SetEdit setEdit;
    UnsetEdit unsetEdit;
    CommentEdit commentEdit;
    bool dropComments = false;
};

}  // namespace
}  // namespace zprop

int main(int argc, char** argv) {
    tools::useInstalledDataDirectory();
    return zprop::CommandLine().parseAndRun(argc, argv);
}
