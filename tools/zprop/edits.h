/// The edits that zprop makes, one at a time or many from standard input.
#ifndef ZFC_TOOLS_ZPROP_EDITS_H
#define ZFC_TOOLS_ZPROP_EDITS_H

#include <functional>
#include <istream>
#include <optional>
#include <string>
#include <vector>

#include "zprop/open.h"

namespace CLI {
class App;
class Option;
class ParseError;
}  // namespace CLI

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

/// Refuses an empty text: a shell variable that is not set must not widen what a command does.
CLI::Option* requireText(CLI::Option* option);

/// Declares the arguments that an edit takes behind the file name, for the command line and for the
/// lines of `zprop edit` alike.
void declare(CLI::App& command, SetEdit& edit);
void declare(CLI::App& command, UnsetEdit& edit);
void declare(CLI::App& command, CommentEdit& edit);
void declare(CLI::App& command, RenameEdit& edit);
void declare(CLI::App& command, UncommentEdit& edit);
/// The options alone.
void declareOptions(CLI::App& command, SetEdit& edit);

/// One change of a file, as a command line or a line of `zprop edit` asks for it.
using Change = std::function<void(Document&, std::string const& file)>;

/// Reads the commands of `zprop edit`, one a line; blank lines and "#" comments are passed over.
/// Throws Failure with the line's number for a command that cannot be read; a change that cannot be
/// made throws it with the number too.
[[nodiscard]] std::vector<Change> readChanges(std::istream& input);

/// Has the words of one line parsed; throws Failure (wrong usage).
void parseWords(CLI::App& app, std::vector<std::string> words);

/// What a parser says without repeating words that nobody expected, among which a secret may be.
[[nodiscard]] std::string discreet(CLI::ParseError const& e);

}  // namespace zprop

#endif
