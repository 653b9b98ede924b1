#include "zprop/edits.h"

#include <CLI/CLI.hpp>

#include <algorithm>

#include "zprop/failure.h"
#include "zprop/words.h"

namespace zprop {
namespace {

std::string place(std::string const& stanza, std::string const& key) {
    std::string text = "stanza \"" + stanza + "\"";
    return key.empty() ? text : "key \"" + key + "\" in " + text;
}

void requirePresent(ZStanzaFileProperties& properties, std::string const& file,
                    std::string const& stanza, std::string const& key) {
    bool const present = key.empty() ? properties.exists(stanza.c_str())
                                     : properties.exists(stanza.c_str(), key.c_str());
    if (!present)
        throw Failure(Exit::notThereOrInvalid, file + ": there is no " + place(stanza, key));
}

/// Runs an edit of the library; a refused one says what was asked and `reason`.
template <class Edit>
void guarded(std::string const& file, std::string const& what, std::string const& reason,
             Edit edit) {
    try {
        edit();
    } catch (ZInvalidParameterException&) {
        throw Failure(Exit::notThereOrInvalid, file + ": " + what + ": " + reason);
    }
}

/// Why the library refuses to set a value; it looks at the key's kind before the text.
std::string refusalOf(ZStanzaFileProperties& properties, SetEdit const& edit) {
    bool const exists = properties.exists(edit.stanza.c_str(), edit.key.c_str());
    if (exists && !edit.value.empty()) {
        bool const obfuscated = properties.isObfuscated(edit.stanza.c_str(), edit.key.c_str());
        if (obfuscated != edit.obfuscate)
            return obfuscated ? "its values are obfuscated; give --obfuscate, or unset it first"
                              : "its values are plain; unset it first to obfuscate them";
    }
    if (edit.add && edit.value.empty()) return "an empty value cannot be added";
    return "stanza, key or value would not read back from the file as given";
}

class EditLine {
  public:
    EditLine() : app("one edit", "zprop edit") {
        app.require_subcommand(1);
        app.set_help_flag();
        declare(*app.add_subcommand("set"), set);
        declare(*app.add_subcommand("unset"), unset);
        declare(*app.add_subcommand("comment"), comment);
    }

    Change parse(std::vector<std::string> words) {
        std::reverse(words.begin(), words.end());  // CLI11 takes them from the back
        app.parse(words);
        if (app.got_subcommand("set")) return changeOf(set);
        if (app.got_subcommand("unset")) return changeOf(unset);
        return changeOf(comment);
    }

  private:
    template <class Edit>
    static Change changeOf(Edit const& edit) {
        return [edit](ZStanzaFileProperties& properties, std::string const& file) {
            apply(properties, file, edit);
        };
    }

    CLI::App app;
    SetEdit set;
    UnsetEdit unset;
    CommentEdit comment;
};

Change readChange(std::vector<std::string> const& words) {
    try {
        return EditLine().parse(words);
    } catch (CLI::ParseError& e) {
        throw Failure(Exit::wrongUsage, e.what());
    }
}

}  // namespace

void apply(ZStanzaFileProperties& properties, std::string const& file, SetEdit const& edit) {
    std::string const reason = refusalOf(properties, edit);
    guarded(file, "cannot set " + place(edit.stanza, edit.key), reason, [&] {
        int const obfuscated = edit.obfuscate ? 1 : 0;
        if (edit.add)
            properties.addValue(edit.stanza.c_str(), edit.key.c_str(), edit.value.c_str(),
                                obfuscated);
        else
            properties.setValue(edit.stanza.c_str(), edit.key.c_str(), edit.value.c_str(),
                                obfuscated);
    });
}

void apply(ZStanzaFileProperties& properties, std::string const& file, UnsetEdit const& edit) {
    requirePresent(properties, file, edit.stanza, edit.key);
    if (edit.key.empty())
        properties.deleteStanza(edit.stanza.c_str());
    else
        properties.deleteKey(edit.stanza.c_str(), edit.key.c_str());
}

void apply(ZStanzaFileProperties& properties, std::string const& file, CommentEdit const& edit) {
    if (!edit.stanza.empty()) requirePresent(properties, file, edit.stanza, edit.key);
    guarded(file, "cannot add the comment", "it would not read back from the file as given", [&] {
        if (edit.stanza.empty())
            properties.addFileComment(edit.text.c_str());
        else if (edit.key.empty())
            properties.addStanzaComment(edit.stanza.c_str(), edit.text.c_str());
        else
            properties.addEntryComment(edit.stanza.c_str(), edit.key.c_str(), edit.text.c_str());
    });
}

CLI::Option* requireText(CLI::Option* option) {
    return option->check(
        [](std::string const& text) {
            return text.empty() ? std::string("may not be empty") : std::string();
        },
        "");
}

void declare(CLI::App& command, SetEdit& edit) {
    requireText(command.add_option("STANZA", edit.stanza, "stanza, made when there is none"))
        ->required();
    requireText(command.add_option("KEY", edit.key, "key, made when there is none"))->required();
    command.add_option("VALUE", edit.value, "value; may be empty")->required();
    command.add_flag("--add", edit.add, "add one more value instead of replacing all");
    command.add_flag("--obfuscate", edit.obfuscate,
                     "keep the value out of the file, in its compressed companion");
}

void declare(CLI::App& command, UnsetEdit& edit) {
    requireText(command.add_option("STANZA", edit.stanza, "stanza"))->required();
    requireText(command.add_option("KEY", edit.key, "key; without it the whole stanza goes"));
}

void declare(CLI::App& command, CommentEdit& edit) {
    command.add_option("TEXT", edit.text, "comment; \"#\" is put in front where it is missing")
        ->required();
    auto* const stanza =
        requireText(command.add_option("--stanza", edit.stanza, "below this stanza's header"));
    requireText(command.add_option("--key", edit.key, "above this key's line"))->needs(stanza);
}

std::vector<Change> readChanges(std::istream& input) {
    std::vector<Change> changes;
    std::string line;
    for (int number = 1; std::getline(input, line); ++number) {
        try {
            auto const words = splitWords(line);
            if (!words.empty()) changes.push_back(readChange(words));
        } catch (Failure& e) {
            throw Failure(e.exitCode(),
                          "standard input:" + std::to_string(number) + ": " + e.what());
        }
    }
    return changes;
}

}  // namespace zprop
