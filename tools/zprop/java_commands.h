/// The commands of zprop on properties files in the manner of the Java platform.
#ifndef ZFC_TOOLS_ZPROP_JAVA_COMMANDS_H
#define ZFC_TOOLS_ZPROP_JAVA_COMMANDS_H

#include <istream>
#include <optional>
#include <string>

#include "zprop/edits.h"
#include "zprop/failure.h"
#include "zprop/java_file.h"
#include "zprop/open.h"

namespace zprop {

/// Each writes to standard output; Failure and the library's exceptions pass. Keys, values and
/// comments are in the local codeset.
Exit getJava(JavaName const& name, std::string const& key,
             std::optional<std::string> const& fallback, Deadline& deadline);
Exit listJava(JavaName const& name, Deadline& deadline);
Exit dumpJavaAsJson(JavaName const& name, Deadline& deadline);

/// Each changes the lines that it is about, and no other byte.
Exit setJava(JavaName const& name, std::string const& key, std::string const& value,
             Deadline& deadline);
/// As the command line declares them for stanza files: the word behind the file is the key here,
/// and no other one is taken; a comment has no stanza.
Exit editJava(JavaName const& name, UnsetEdit const& edit, Deadline& deadline);
Exit editJava(JavaName const& name, CommentEdit const& edit, Deadline& deadline);

/// Reads the commands of `zprop edit`, one a line: set KEY VALUE, unset KEY, comment TEXT [--key
/// K]. When one of them cannot be made, none is.
Exit editJavaByLines(JavaName const& name, std::istream& input, Deadline& deadline);

/// Stores the file with all pairs in the form "key = value".
Exit rewriteJava(JavaName const& name, Comments comments, Deadline& deadline);

/// Loads the file; prints "FILE:LINE: reason" and the line for each one that has a fault.
Exit checkJava(JavaName const& name, Deadline& deadline);

}  // namespace zprop

#endif
