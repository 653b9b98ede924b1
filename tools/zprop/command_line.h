/// The command line of zprop: what every command takes, and which function runs it.
#ifndef ZFC_TOOLS_ZPROP_COMMAND_LINE_H
#define ZFC_TOOLS_ZPROP_COMMAND_LINE_H

#include <CLI/CLI.hpp>

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "zprop/convert.h"
#include "zprop/edits.h"
#include "zprop/failure.h"
#include "zprop/format.h"
#include "zprop/java_file.h"
#include "zprop/open.h"
#include "zprop/read_commands.h"

namespace zprop {

/// Filled by CLI11, run afterwards. A command is a row of `commands`: a function that declares its
/// arguments and one that runs it. Those that only read stand in command_line_reads.cpp, those that
/// change a file in command_line_edits.cpp.
class CommandLine {
  public:
    CommandLine();
    int parseAndRun(int argc, char** argv);

  private:
    struct Command {
        char const* name;
        char const* description;
        char const* example;
        void (CommandLine::*declare)(CLI::App&);
        Exit (CommandLine::*run)(Deadline&);
    };
    static Command const commands[];

    void addGlobalOptions();
    void add(Command const& command);
    Exit run();
    /// Prints what the parser says; the exit code.
    Exit tell(CLI::ParseError const& e);

    [[nodiscard]] bool isJava() const { return formatOf(file, format) == Format::java; }
    [[nodiscard]] Encoding encoding() const { return latin1 ? Encoding::latin1 : Encoding::utf8; }
    [[nodiscard]] JavaName javaName() const { return {file, encoding()}; }
    /// Both files of a command are of one format.
    void requireSameFormat() const;
    /// For a command, or an option, that only stanza files have.
    void requireStanzaFile(char const* what) const;
    void addFile(CLI::App& command);
    /// The words behind the file name. A .properties file has no STANZA: they move up by one.
    void addWord(CLI::App& command, char const* name, char const* what);
    void addStanzaAndKey(CLI::App& command);
    /// Stanza, key and what else the command takes, `count` texts in all; an empty stanza for a
    /// .properties file.
    [[nodiscard]] std::vector<std::string> takeWords(std::size_t count) const;

    void addStyles(CLI::App& command, Style& style);
    void addEditOptions(CLI::App& command);
    /// Refuses "-".
    void requireFileToEdit() const;
    /// Why a properties file is none for the command.
    [[nodiscard]] Failure stanzasAlone(char const* command) const;
    /// Lets `edit` change a stanza file.
    Exit editStanzas(Missing missing, Deadline& deadline,
                     std::function<void(Document&)> const& edit);
    /// The same with a properties file.
    Exit editPairs(Missing missing, Deadline& deadline, JavaEdit const& edit);

    void declareGet(CLI::App& command);
    void declareList(CLI::App& command);
    void declareDump(CLI::App& command);
    void declareCheck(CLI::App& command);
    void declareNames(CLI::App& command);
    void declareDiff(CLI::App& command);
    Exit runGet(Deadline& deadline);
    Exit runList(Deadline& deadline);
    Exit runDump(Deadline& deadline);
    Exit runCheck(Deadline& deadline);
    Exit runNames(Deadline& deadline);
    Exit runDiff(Deadline& deadline);

    void declareSet(CLI::App& command);
    void declareUnset(CLI::App& command);
    void declareComment(CLI::App& command);
    void declareEdit(CLI::App& command);
    void declareRename(CLI::App& command);
    void declareUncomment(CLI::App& command);
    void declareMerge(CLI::App& command);
    void declareRewrite(CLI::App& command);
    void declareConvert(CLI::App& command);
    Exit runSet(Deadline& deadline);
    Exit runUnset(Deadline& deadline);
    Exit runComment(Deadline& deadline);
    Exit runEdit(Deadline& deadline);
    Exit runRename(Deadline& deadline);
    Exit runUncomment(Deadline& deadline);
    Exit runMerge(Deadline& deadline);
    Exit runRewrite(Deadline& deadline);
    Exit runConvert(Deadline& deadline);

    CLI::App app;
    std::function<Exit(Deadline&)> action;
    double waitSeconds = 5;
    std::string file;
    std::string otherFile;
    std::deque<std::optional<std::string>> words;  // of all commands
    std::optional<Format> format;
    bool latin1 = false;
    std::vector<std::string> files;
    GetRequest getRequest;
    ListRequest listRequest;
    DumpRequest dumpRequest;
    DiffRequest diffRequest;
    EditTarget target;
    SetEdit setEdit;
    UnsetEdit unsetEdit;
    CommentEdit commentEdit;
    RenameEdit renameEdit;
    UncommentEdit uncommentEdit;
    ConvertRequest convertRequest;
    bool fromStandardInput = false;  // the value that is set
};

}  // namespace zprop

#endif
