/// The commands that change a file: set, unset, rename, uncomment, merge, comment, edit, rewrite
/// and convert.
#include <iostream>

#include "zprop/command_line.h"
#include "zprop/java_commands.h"
#include "zprop/secret.h"

namespace zprop {

void CommandLine::addEditOptions(CLI::App& command) {
    command.add_flag("--dry-run", target.dryRun, "print the unified difference, change nothing");
    // A flag with a value, because the word behind an option would be taken for it.
    command.add_flag("--backup{~}", target.backup,
                     "copy the files before, to the same names with ~ or --backup=SUFFIX");
    command.add_flag("--force", target.force,
                     "lose text that the format does not keep: see \"zprop check\"");
}

Exit CommandLine::editStanzas(Missing missing, Deadline& deadline,
                              std::function<void(Document&)> const& edit) {
    requireFileToEdit();
    target.file = file;
    target.missing = missing;
    editFile(target, deadline, edit);
    return Exit::done;
}

Exit CommandLine::editPairs(Missing missing, Deadline& deadline, JavaEdit const& edit) {
    requireFileToEdit();
    target.file = file;
    target.missing = missing;
    editJavaFile(target, encoding(), deadline, edit);
    return Exit::done;
}

/// Before anything is read, a secret among it, that would come to nothing.
void CommandLine::requireFileToEdit() const {
    if (file == "-")
        throw Failure(
            Exit::wrongUsage,
            "\"-\" is standard input, which cannot be edited; a file of that name is ./-");
}

void CommandLine::declareSet(CLI::App& command) {
    addFile(command);
    addStanzaAndKey(command);
    addWord(command, "VALUE", "value; may be empty");
    declareOptions(command, setEdit);
    command.add_flag("--stdin", fromStandardInput,
                     "read the value from standard input, or ask for it on a terminal");
    addEditOptions(command);
}

Exit CommandLine::runSet(Deadline& deadline) {
    requireFileToEdit();
    auto const given = takeWords(fromStandardInput ? 2 : 3);
    setEdit.stanza = given[0];
    setEdit.key = given[1];
    if (isJava()) static_cast<void>(javaEdit(setEdit));  // refused before a value is asked for
    setEdit.value = fromStandardInput ? readSecret() : given[2];
    if (isJava()) return editPairs(Missing::create, deadline, javaEdit(setEdit));
    return editStanzas(Missing::create, deadline,
                       [&](Document& properties) { apply(properties, file, setEdit); });
}

void CommandLine::declareUnset(CLI::App& command) {
    addFile(command);
    declare(command, unsetEdit);
    // Of a .properties file the word before is the key.
    command.get_option("--value")->remove_needs(command.get_option("KEY"));
    addEditOptions(command);
}

Exit CommandLine::runUnset(Deadline& deadline) {
    if (isJava()) return editPairs(Missing::isAnError, deadline, javaEdit(unsetEdit));
    if (unsetEdit.value && unsetEdit.key.empty())
        throw Failure(Exit::wrongUsage, "--value requires KEY");
    try {
        return editStanzas(Missing::isAnError, deadline,
                           [&](Document& properties) { apply(properties, file, unsetEdit); });
    } catch (CompanionFailure& e) {
        if (unsetEdit.key.empty()) throw;
        letGoOfCompanion(target, unsetEdit.stanza, unsetEdit.key, e, deadline);
        return Exit::done;
    }
}

Failure CommandLine::stanzasAlone(char const* command) const {
    // Its lines are edited by whole pairs, which these commands would not leave at their place.
    return {Exit::wrongUsage,
            file + ": " + command +
                " is for stanza files; of a .properties file set the one key and unset the other"};
}

void CommandLine::declareRename(CLI::App& command) {
    addFile(command);
    declare(command, renameEdit);
    addEditOptions(command);
}

Exit CommandLine::runRename(Deadline& deadline) {
    if (isJava()) throw stanzasAlone("rename");
    return editStanzas(Missing::isAnError, deadline,
                       [&](Document& properties) { apply(properties, file, renameEdit); });
}

void CommandLine::declareUncomment(CLI::App& command) {
    addFile(command);
    declare(command, uncommentEdit);
    addEditOptions(command);
}

Exit CommandLine::runUncomment(Deadline& deadline) {
    if (isJava()) throw stanzasAlone("uncomment");
    return editStanzas(Missing::isAnError, deadline,
                       [&](Document& properties) { apply(properties, file, uncommentEdit); });
}

void CommandLine::declareMerge(CLI::App& command) {
    addFile(command);
    requireText(
        command.add_option("OTHER", otherFile, "file of the same format with the values to set"))
        ->required();
    addEditOptions(command);
}

Exit CommandLine::runMerge(Deadline& deadline) {
    requireFileToEdit();
    requireSameFormat();
    // Not while the file is locked: the two may be the same, or be merged both ways at once.
    if (isJava())
        return editPairs(Missing::create, deadline, javaMerge({otherFile, encoding()}, deadline));
    Properties const other = openForReading(otherFile, deadline);
    return editStanzas(Missing::create, deadline,
                       [&](Document& properties) { merge(properties, file, *other, otherFile); });
}

void CommandLine::declareComment(CLI::App& command) {
    addFile(command);
    declare(command, commentEdit);
    // A .properties file has no stanza that a key could need.
    command.get_option("--key")->remove_needs(command.get_option("--stanza"));
    addEditOptions(command);
}

Exit CommandLine::runComment(Deadline& deadline) {
    if (isJava()) return editPairs(Missing::isAnError, deadline, javaEdit(commentEdit));
    if (commentEdit.stanza.empty() && !commentEdit.key.empty())
        throw Failure(Exit::wrongUsage, "--key requires --stanza");
    return editStanzas(Missing::isAnError, deadline,
                       [&](Document& properties) { apply(properties, file, commentEdit); });
}

void CommandLine::declareEdit(CLI::App& command) {
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

Exit CommandLine::runEdit(Deadline& deadline) {
    requireFileToEdit();
    if (isJava()) return editPairs(Missing::create, deadline, readJavaEdits(std::cin));
    auto const changes = readChanges(std::cin);
    return editStanzas(Missing::create, deadline, [&](Document& properties) {
        for (auto const& change : changes)
            change(properties, file);
    });
}

void CommandLine::declareRewrite(CLI::App& command) {
    addFile(command);
    command.add_flag_callback(
        "--drop-comments", [this] { target.comments = Comments::drop; },
        "leave comments and blank lines out");
    addEditOptions(command);
}

Exit CommandLine::runRewrite(Deadline& deadline) {
    if (isJava()) return editPairs(Missing::isAnError, deadline, javaRewrite(target.comments));
    return editStanzas(Missing::isAnError, deadline,
                       [](Document& properties) { properties.touch(); });
}

void CommandLine::declareConvert(CLI::App& command) {
    requireText(command.add_option("FROM", convertRequest.source, "file to read"))->required();
    requireText(command.add_option("TO", convertRequest.target,
                                   "file of the other format, which must not be there yet"))
        ->required();
    requireText(
        command.add_option("--stanza", convertRequest.stanza,
                           "holds all keys; else key \"a.b\" is key \"b\" of stanza \"a\""));
    command.add_flag("--drop-comments", convertRequest.dropComments, "comments may get lost");
}

Exit CommandLine::runConvert(Deadline& deadline) {
    convertRequest.from = formatOf(convertRequest.source, format);
    convertRequest.isFormatGiven = format.has_value();
    convertRequest.encoding = encoding();
    return convert(convertRequest, deadline);
}

}  // namespace zprop
