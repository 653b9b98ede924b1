/// The edits that zprop makes, one at a time or many from standard input.
#ifndef ZFC_TOOLS_ZPROP_EDITS_H
#define ZFC_TOOLS_ZPROP_EDITS_H

#include <functional>
#include <istream>
#include <string>
#include <vector>

#include "Z/ZStanzaFileProperties.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace zprop {

struct SetEdit {
    std::string stanza;
    std::string key;
    std::string value;
    bool add = false;        // one more value instead of replacing all
    bool obfuscate = false;  // keep the value in the companion file
};

struct UnsetEdit {
    std::string stanza;
    std::string key;  // empty: the whole stanza
};

struct CommentEdit {
    std::string text;
    std::string stanza;  // empty: a comment of the file
    std::string key;     // empty: a comment of the stanza
};

/// Each changes the object in memory, or throws Failure and changes nothing.
void apply(ZStanzaFileProperties& properties, std::string const& file, SetEdit const& edit);
void apply(ZStanzaFileProperties& properties, std::string const& file, UnsetEdit const& edit);
void apply(ZStanzaFileProperties& properties, std::string const& file, CommentEdit const& edit);

/// Refuses an empty text: a shell variable that is not set must not widen what a command does.
CLI::Option* requireText(CLI::Option* option);

/// Declares the arguments that an edit takes behind the file name, for the command line and for the
/// lines of `zprop edit` alike.
void declare(CLI::App& command, SetEdit& edit);
void declare(CLI::App& command, UnsetEdit& edit);
void declare(CLI::App& command, CommentEdit& edit);

/// One change of a file, as a command line or a line of `zprop edit` asks for it.
using Change = std::function<void(ZStanzaFileProperties&, std::string const& file)>;

/// Reads the commands of `zprop edit`, one a line; blank lines and "#" comments are passed over.
/// Throws Failure with the line's number for a command that cannot be read.
[[nodiscard]] std::vector<Change> readChanges(std::istream& input);

}  // namespace zprop

#endif
