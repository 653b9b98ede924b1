/// The commands of zprop on properties files in the manner of the Java platform.
#ifndef ZFC_TOOLS_ZPROP_JAVA_COMMANDS_H
#define ZFC_TOOLS_ZPROP_JAVA_COMMANDS_H

#include <optional>
#include <string>

#include "zprop/failure.h"
#include "zprop/open.h"

namespace zprop {

/// Each writes to standard output; Failure and the library's exceptions pass.
Exit getJava(std::string const& file, std::string const& key,
             std::optional<std::string> const& fallback, Deadline& deadline);
Exit listJava(std::string const& file, Deadline& deadline);
Exit dumpJavaAsJson(std::string const& file, Deadline& deadline);

/// Sets a value, both in the local codeset. Refuses a pair that the file would not keep, and a file
/// with lines that the reader passes over, since they would be lost. Comments go, which is said on
/// standard error.
Exit setJava(std::string const& file, std::string const& key, std::string const& value,
             Deadline& deadline);

/// Loads the file; prints "FILE:LINE: reason" and the line for each one that is passed over.
Exit checkJava(std::string const& file, Deadline& deadline);

}  // namespace zprop

#endif
