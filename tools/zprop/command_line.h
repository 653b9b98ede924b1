/// The command line of zprop: what every command takes, and which function runs it.
#ifndef ZFC_TOOLS_ZPROP_COMMAND_LINE_H
#define ZFC_TOOLS_ZPROP_COMMAND_LINE_H

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "zprop/edits/edits.h"
#include "zprop/failure.h"
#include "zprop/format.h"
#include "zprop/java/convert.h"
#include "zprop/java/file.h"
#include "zprop/open.h"
#include "zprop/reads/read_commands.h"

namespace zprop {

/// Filled by its parser, run afterwards. What the commands take stands in parser.cpp; those that
/// only read run in command_line_reads.cpp, those that change a file in command_line_edits.cpp.
class CommandLine {
  public:
    /// The exit status. A fresh object each time.
    [[nodiscard]] static int parseAndRun(int argc, char** argv);

  private:
    class Parser;

    Exit run();

    [[nodiscard]] bool isJava() const { return formatOf(file, format) == Format::java; }
    [[nodiscard]] Encoding encoding() const { return latin1 ? Encoding::latin1 : Encoding::utf8; }
    [[nodiscard]] JavaName javaName() const { return {file, encoding()}; }
    /// Both files of a command are of one format.
    void requireSameFormat() const;
    /// For a command, or an option, that only stanza files have.
    void requireStanzaFile(char const* what) const;
    /// Stanza, key and what else the command takes, `count` texts in all; an empty stanza for a
    /// .properties file.
    [[nodiscard]] std::vector<std::string> takeWords(std::size_t count) const;

    /// Refuses "-".
    void requireFileToEdit() const;
    /// Why a properties file is none for the command.
    [[nodiscard]] Failure stanzasAlone(char const* command) const;
    /// Lets `edit` change a stanza file.
    Exit editStanzas(Missing missing, Deadline& deadline,
                     std::function<void(Document&)> const& edit);
    /// The same with a properties file.
    Exit editPairs(Missing missing, Deadline& deadline, JavaEdit const& edit);

    Exit runGet(Deadline& deadline);
    Exit runList(Deadline& deadline);
    Exit runDump(Deadline& deadline);
    Exit runCheck(Deadline& deadline);
    Exit runNames(Deadline& deadline);
    Exit runDiff(Deadline& deadline);
    Exit runSet(Deadline& deadline);
    Exit runUnset(Deadline& deadline);
    Exit runComment(Deadline& deadline);
    Exit runEdit(Deadline& deadline);
    Exit runRename(Deadline& deadline);
    Exit runUncomment(Deadline& deadline);
    Exit runMerge(Deadline& deadline);
    Exit runRewrite(Deadline& deadline);
    Exit runConvert(Deadline& deadline);

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
