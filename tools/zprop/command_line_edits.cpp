/// The commands that change a file: set, unset, rename, uncomment, merge, comment, edit, rewrite
/// and convert.
#include <iostream>

#include "zprop/command_line.h"
#include "zprop/edits/secret.h"
#include "zprop/java/commands.h"

namespace zprop {

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

Exit CommandLine::runRename(Deadline& deadline) {
    if (isJava()) throw stanzasAlone("rename");
    return editStanzas(Missing::isAnError, deadline,
                       [&](Document& properties) { apply(properties, file, renameEdit); });
}

Exit CommandLine::runUncomment(Deadline& deadline) {
    if (isJava()) throw stanzasAlone("uncomment");
    return editStanzas(Missing::isAnError, deadline,
                       [&](Document& properties) { apply(properties, file, uncommentEdit); });
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

Exit CommandLine::runComment(Deadline& deadline) {
    if (isJava()) return editPairs(Missing::isAnError, deadline, javaEdit(commentEdit));
    if (commentEdit.stanza.empty() && !commentEdit.key.empty())
        throw Failure(Exit::wrongUsage, "--key requires --stanza");
    return editStanzas(Missing::isAnError, deadline,
                       [&](Document& properties) { apply(properties, file, commentEdit); });
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

Exit CommandLine::runRewrite(Deadline& deadline) {
    if (isJava()) return editPairs(Missing::isAnError, deadline, javaRewrite(target.comments));
    return editStanzas(Missing::isAnError, deadline,
                       [](Document& properties) { properties.touch(); });
}

Exit CommandLine::runConvert(Deadline& deadline) {
    convertRequest.from = formatOf(convertRequest.source, format);
    convertRequest.isFormatGiven = format.has_value();
    convertRequest.encoding = encoding();
    return convert(convertRequest, deadline);
}

}  // namespace zprop
