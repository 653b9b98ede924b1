/// The edits that zprop makes, one at a time or many from standard input.
#ifndef ZFC_TOOLS_ZPROP_EDITS_EDITS_H
#define ZFC_TOOLS_ZPROP_EDITS_EDITS_H

#include <functional>
#include <istream>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "zprop/open.h"

namespace zprop {

struct SetEdit {
    std::string stanza;
    std::string key;
    std::string value;
    bool add = false;                    // one more value instead of replacing the one there
    bool replaceAll = false;             // even when there are several
    std::optional<std::string> replace;  // this value alone
    bool obfuscate = false;              // keep the value in the companion file
};

struct UnsetEdit {
    std::string stanza;
    std::string key;                   // empty: the whole stanza
    std::optional<std::string> value;  // of the key, this one alone
};

struct CommentEdit {
    std::string text;
    std::string stanza;  // empty: a comment of the file
    std::string key;     // empty: a comment of the stanza
};

struct RenameEdit {
    std::string stanza;
    std::string key;
    std::string name;  // that the key gets
};

struct UncommentEdit {
    std::string stanza;
    std::string key;
};

/// Each changes the object in memory, or throws Failure and changes nothing.
void apply(Document& properties, std::string const& file, SetEdit const& edit);
void apply(Document& properties, std::string const& file, UnsetEdit const& edit);
void apply(Document& properties, std::string const& file, CommentEdit const& edit);
void apply(Document& properties, std::string const& file, RenameEdit const& edit);
void apply(Document& properties, std::string const& file, UncommentEdit const& edit);
/// Gives the keys of `other`, read from `otherFile`, their values there, obfuscated ones as such;
/// may have changed some when it throws.
void merge(Document& properties, std::string const& file, Document const& other,
           std::string const& otherFile);

using Edit = std::variant<SetEdit, UnsetEdit, CommentEdit, RenameEdit, UncommentEdit>;
/// Of a .properties file: key and value, the key in place of a stanza, and text and key.
using PairEdit = std::variant<SetEdit, UnsetEdit, CommentEdit>;

/// The edit that the words of a line of `zprop edit` ask for; throws Failure (wrong usage).
[[nodiscard]] Edit parseEdit(std::vector<std::string> words);
[[nodiscard]] PairEdit parsePairEdit(std::vector<std::string> words);

/// One change of a file, as a command line or a line of `zprop edit` asks for it.
using Change = std::function<void(Document&, std::string const& file)>;

/// Reads the commands of `zprop edit`, one a line; blank lines and "#" comments are passed over.
/// Throws Failure with the line's number for a command that cannot be read; a change that cannot be
/// made throws it with the number too.
[[nodiscard]] std::vector<Change> readChanges(std::istream& input);

}  // namespace zprop

#endif
