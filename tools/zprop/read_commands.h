/// The commands of zprop that only read.
#ifndef ZFC_TOOLS_ZPROP_READ_COMMANDS_H
#define ZFC_TOOLS_ZPROP_READ_COMMANDS_H

#include <optional>
#include <string>
#include <vector>

#include "zprop/failure.h"
#include "zprop/format.h"
#include "zprop/java_file.h"
#include "zprop/open.h"

namespace zprop {

enum class ValueType { string, integer, boolean };

struct GetRequest {
    std::string file;
    std::string stanza;
    std::string key;
    bool all = false;  // every value instead of the last
    ValueType type = ValueType::string;
    std::optional<std::string> fallback;  // printed when the key has no value
    bool reveal = false;                  // show obfuscated values
};

struct DumpRequest {
    std::string file;
    bool json = false;
    bool reveal = false;
};

/// Each writes to standard output; Failure and the library's exceptions pass.
Exit get(GetRequest const& request, Deadline& deadline);
Exit list(std::string const& file, std::string const& stanza, Deadline& deadline);
Exit dump(DumpRequest const& request, Deadline& deadline);

/// Loads every file, of the format given or each of its own; prints "FILE:LINE: reason", the line
/// and a caret for each invalid one (as checkJava() for properties files), goes on with the next,
/// and ends with a count.
Exit check(std::vector<std::string> const& files, std::optional<Format> format, double waitSeconds,
           Encoding encoding);

}  // namespace zprop

#endif
