/// The commands of zprop that only read.
#ifndef ZFC_TOOLS_ZPROP_READS_READ_COMMANDS_H
#define ZFC_TOOLS_ZPROP_READS_READ_COMMANDS_H

#include <optional>
#include <string>
#include <vector>

#include "zprop/failure.h"
#include "zprop/format.h"
#include "zprop/java/file.h"
#include "zprop/open.h"

namespace zprop {

enum class ValueType { string, integer, boolean };

/// How answers are printed: for people; each ended by a NUL; as words and assignments of a shell.
enum class Style { lines, nul, shell };

struct GetRequest {
    std::string file;
    std::string stanza;
    std::string key;
    bool all = false;  // every value instead of the last
    ValueType type = ValueType::string;
    std::optional<std::string> fallback;  // printed when the key has no value
    bool required = false;                // a key without a value is an error
    bool reveal = false;                  // show obfuscated values
    bool origin = false;                  // tell where each value comes from
    std::vector<std::string> layers;      // over the file: files and directories; later ones win
    std::string environment;              // over these: the prefix of variables; empty: none
    Style style = Style::lines;

    [[nodiscard]] bool isLayered() const { return !layers.empty() || !environment.empty(); }
};

struct ListRequest {
    std::string file;
    std::string stanza;  // empty: all
    Style style = Style::lines;
};

struct DumpRequest {
    std::string file;
    bool json = false;
    bool reveal = false;
    Style style = Style::lines;
};

struct DiffRequest {
    std::string from;
    std::string to;
    bool reveal = false;
};

/// Each writes to standard output; Failure and the library's exceptions pass.
Exit get(GetRequest const& request, Deadline& deadline);
Exit list(ListRequest const& request, Deadline& deadline);
Exit dump(DumpRequest const& request, Deadline& deadline);
/// The names of the stanzas, or of a stanza's keys.
Exit names(ListRequest const& request, Deadline& deadline);
/// The keys whose values differ, whatever order and comments the files have; notThereOrInvalid when
/// there are some. Obfuscated values are compared, and told only with `reveal`.
Exit diff(DiffRequest const& request, Deadline& deadline);

/// Loads every file, of the format given or each of its own; prints "FILE:LINE: reason", the line
/// and a caret for each fault of a stanza file (as checkJava() for properties files), goes on with
/// the next, and ends with a count. Warns of what the next store would lose.
Exit check(std::vector<std::string> const& files, std::optional<Format> format, double waitSeconds,
           Encoding encoding);

}  // namespace zprop

#endif
