/// The commands that change a file: set, unset, comment, edit, rewrite and convert.
#include <iostream>

#include "zprop/command_line.h"
#include "zprop/java_commands.h"

namespace zprop {

void CommandLine::declareSet(CLI::App& command) {
    addFile(command);
    addStanzaAndKey(command);
    addWord(command, "VALUE", "value; may be empty");
    command.add_flag("--add", setEdit.add, "add one more value instead of replacing all");
    command.add_flag("--obfuscate", setEdit.obfuscate,
                     "keep the value out of the file, in its compressed companion");
}

Exit CommandLine::runSet(Deadline& deadline) {
    auto const given = takeWords(3);
    setEdit.stanza = given[0];
    setEdit.key = given[1];
    setEdit.value = given[2];
    if (isJava()) {
        if (setEdit.add || setEdit.obfuscate) requireStanzaFile("--add or --obfuscate");
        return setJava(file, setEdit.key, setEdit.value, deadline);
    }
    editFile(file, Missing::create, Comments::keep, deadline,
             [&](ZStanzaFileProperties& properties) { apply(properties, file, setEdit); });
    return Exit::done;
}

void CommandLine::declareUnset(CLI::App& command) {
    addFile(command);
    declare(command, unsetEdit);
}

Exit CommandLine::runUnset(Deadline& deadline) {
    requireStanzaFile("unset");
    editFile(file, Missing::isAnError, Comments::keep, deadline,
             [&](ZStanzaFileProperties& properties) { apply(properties, file, unsetEdit); });
    return Exit::done;
}

void CommandLine::declareComment(CLI::App& command) {
    addFile(command);
    declare(command, commentEdit);
}

Exit CommandLine::runComment(Deadline& deadline) {
    requireStanzaFile("comment");
    editFile(file, Missing::isAnError, Comments::keep, deadline,
             [&](ZStanzaFileProperties& properties) { apply(properties, file, commentEdit); });
    return Exit::done;
}

void CommandLine::declareEdit(CLI::App& command) {
    addFile(command);
    command.footer(command.get_footer() +
                   "\nA line is: set STANZA KEY VALUE [--add] [--obfuscate], unset STANZA "
                   "[KEY], or comment TEXT [--stanza S [--key K]];\nwords are quoted as for a "
                   "shell. When one edit cannot be made, none is.");
}

Exit CommandLine::runEdit(Deadline& deadline) {
    requireStanzaFile("edit");
    auto const changes = readChanges(std::cin);
    editFile(file, Missing::create, Comments::keep, deadline,
             [&](ZStanzaFileProperties& properties) {
                 for (auto const& change : changes)
                     change(properties, file);
             });
    return Exit::done;
}

void CommandLine::declareRewrite(CLI::App& command) {
    addFile(command);
    command.add_flag("--drop-comments", dropComments, "leave comments and blank lines out");
}

Exit CommandLine::runRewrite(Deadline& deadline) {
    requireStanzaFile("rewrite");
    editFile(file, Missing::isAnError, dropComments ? Comments::drop : Comments::keep, deadline,
             [](ZStanzaFileProperties&) {});
    return Exit::done;
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
