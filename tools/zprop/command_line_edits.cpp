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

void CommandLine::beginEdit() const {
    if (file == "-")
        throw Failure(
            Exit::wrongUsage,
            "\"-\" is standard input, which cannot be edited; a file of that name is ./-");
    if (target.dryRun || target.backup || target.force)
        requireStanzaFile("--dry-run, --backup or --force");
}

Exit CommandLine::runEditing(char const* name, Missing missing, Deadline& deadline,
                             std::function<void(Document&)> const& edit) {
    beginEdit();
    requireStanzaFile(name);
    target.file = file;
    target.missing = missing;
    editFile(target, deadline, edit);
    return Exit::done;
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
    beginEdit();
    auto const given = takeWords(fromStandardInput ? 2 : 3);
    setEdit.stanza = given[0];
    setEdit.key = given[1];
    bool const hasOptions =
        setEdit.add || setEdit.obfuscate || setEdit.replaceAll || setEdit.replace;
    if (hasOptions) requireStanzaFile("--add, --replace, --replace-all or --obfuscate");
    setEdit.value = fromStandardInput ? readSecret() : given[2];
    if (isJava()) return setJava(file, setEdit.key, setEdit.value, deadline);
    return runEditing("set", Missing::create, deadline,
                      [&](Document& properties) { apply(properties, file, setEdit); });
}

void CommandLine::declareUnset(CLI::App& command) {
    addFile(command);
    declare(command, unsetEdit);
    addEditOptions(command);
}

Exit CommandLine::runUnset(Deadline& deadline) {
    try {
        return runEditing("unset", Missing::isAnError, deadline,
                          [&](Document& properties) { apply(properties, file, unsetEdit); });
    } catch (CompanionFailure& e) {
        if (unsetEdit.key.empty()) throw;
        letGoOfCompanion(target, unsetEdit.stanza, unsetEdit.key, e, deadline);
        return Exit::done;
    }
}

void CommandLine::declareRename(CLI::App& command) {
    addFile(command);
    declare(command, renameEdit);
    addEditOptions(command);
}

Exit CommandLine::runRename(Deadline& deadline) {
    return runEditing("rename", Missing::isAnError, deadline,
                      [&](Document& properties) { apply(properties, file, renameEdit); });
}

void CommandLine::declareUncomment(CLI::App& command) {
    addFile(command);
    declare(command, uncommentEdit);
    addEditOptions(command);
}

Exit CommandLine::runUncomment(Deadline& deadline) {
    return runEditing("uncomment", Missing::isAnError, deadline,
                      [&](Document& properties) { apply(properties, file, uncommentEdit); });
}

void CommandLine::declareMerge(CLI::App& command) {
    addFile(command);
    requireText(command.add_option("OTHER", otherFile, "stanza file with the values to set"))
        ->required();
    addEditOptions(command);
}

Exit CommandLine::runMerge(Deadline& deadline) {
    requireStanzaFile("merge");
    // Not while the file is locked: the two may be the same, or be merged both ways at once.
    Properties const other = openForReading(otherFile, deadline);
    return runEditing("merge", Missing::create, deadline,
                      [&](Document& properties) { merge(properties, file, *other, otherFile); });
}

void CommandLine::declareComment(CLI::App& command) {
    addFile(command);
    declare(command, commentEdit);
    addEditOptions(command);
}

Exit CommandLine::runComment(Deadline& deadline) {
    return runEditing("comment", Missing::isAnError, deadline,
                      [&](Document& properties) { apply(properties, file, commentEdit); });
}

void CommandLine::declareEdit(CLI::App& command) {
    addFile(command);
    addEditOptions(command);
    command.footer(
        command.get_footer() +
        "\nA line is: set STANZA KEY VALUE [--add] [--replace OLD] [--replace-all] [--obfuscate],\n"
        "unset STANZA [KEY [--value V]], rename STANZA KEY NEW, uncomment STANZA KEY, or\n"
        "comment TEXT [--stanza S [--key K]]; words are quoted as for a shell. When one edit\n"
        "cannot be made, none is.");
}

Exit CommandLine::runEdit(Deadline& deadline) {
    beginEdit();
    requireStanzaFile("edit");
    auto const changes = readChanges(std::cin);
    return runEditing("edit", Missing::create, deadline, [&](Document& properties) {
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
    return runEditing("rewrite", Missing::isAnError, deadline,
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
    return convert(convertRequest, deadline);
}

}  // namespace zprop
