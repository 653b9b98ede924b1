/// What the edits take as arguments, of a command and of a line of `zprop edit`. For parser.cpp.
#ifndef ZFC_TOOLS_ZPROP_ARGUMENTS_H
#define ZFC_TOOLS_ZPROP_ARGUMENTS_H

#include <CLI/CLI.hpp>

#include <string>

#include "zprop/edits/edits.h"

namespace zprop {

/// Refuses an empty text: a shell variable that is not set must not widen what a command does.
inline CLI::Option* requireText(CLI::Option* option) {
    return option->check(
        [](std::string const& text) {
            return text.empty() ? std::string("may not be empty") : std::string();
        },
        "");
}

inline void addText(CLI::App& command, char const* name, std::string& text, char const* what) {
    requireText(command.add_option(name, text, what))->required();
}

inline void declareOptions(CLI::App& command, SetEdit& edit) {
    auto* const add = command.add_flag("--add", edit.add,
                                       "add one more value instead of replacing the one there");
    auto* const all = command.add_flag("--replace-all", edit.replaceAll,
                                       "replace all values of a key that has several");
    command.add_option("--replace", edit.replace, "replace this value alone")
        ->option_text("OLD")
        ->excludes(add, all);
    add->excludes(all);
    command.add_flag("--obfuscate", edit.obfuscate,
                     "keep the value out of the file, in its compressed companion");
}

inline void declare(CLI::App& command, SetEdit& edit) {
    addText(command, "STANZA", edit.stanza, "stanza, made when there is none");
    addText(command, "KEY", edit.key, "key, made when there is none");
    command.add_option("VALUE", edit.value, "value; may be empty")->required();
    declareOptions(command, edit);
}

inline void declare(CLI::App& command, UnsetEdit& edit) {
    addText(command, "STANZA", edit.stanza, "stanza");
    auto* const key =
        requireText(command.add_option("KEY", edit.key, "key; without it the whole stanza goes"));
    command.add_option("--value", edit.value, "this value alone; the key goes with its last one")
        ->option_text("V")
        ->needs(key);
}

inline void declare(CLI::App& command, RenameEdit& edit) {
    addText(command, "STANZA", edit.stanza, "stanza");
    addText(command, "KEY", edit.key, "key");
    addText(command, "NEW", edit.name, "the key's new name");
}

inline void declare(CLI::App& command, UncommentEdit& edit) {
    addText(command, "STANZA", edit.stanza, "stanza");
    addText(command, "KEY", edit.key, "key");
}

inline void declare(CLI::App& command, CommentEdit& edit) {
    command.add_option("TEXT", edit.text, "comment; \"#\" is put in front where it is missing")
        ->required();
    auto* const stanza =
        requireText(command.add_option("--stanza", edit.stanza, "below this stanza's header"));
    requireText(command.add_option("--key", edit.key, "above this key's line"))->needs(stanza);
}

}  // namespace zprop

#endif
