/// The commands of zprop on properties files in the manner of the Java platform.
#ifndef ZFC_TOOLS_ZPROP_JAVA_COMMANDS_H
#define ZFC_TOOLS_ZPROP_JAVA_COMMANDS_H

#include <istream>
#include <string>

#include "zprop/edits/edits.h"
#include "zprop/failure.h"
#include "zprop/java/file.h"
#include "zprop/open.h"
#include "zprop/reads/read_commands.h"

namespace zprop {

/// Each writes to standard output; Failure and the library's exceptions pass. Keys and values are
/// in the local codeset. The style "nul" has records "KEY\nVALUE". Refused is what a style has no
/// form for: a NUL, and a line feed in a key of a record.
Exit getJava(GetRequest const& request, Encoding encoding, Deadline& deadline);
Exit listJava(JavaName const& name, Style style, Deadline& deadline);
Exit dumpJavaAsJson(JavaName const& name, Deadline& deadline);
/// The keys.
Exit namesJava(JavaName const& name, Style style, Deadline& deadline);
/// The keys whose values differ.
Exit diffJava(JavaName const& from, JavaName const& to, Deadline& deadline);

/// Each edit changes the lines that it is about, and no other byte. As the command line declares
/// them for stanza files: of `unset` the word behind the file is the key here, and no other one is
/// taken; a comment has no stanza. Throws Failure (wrong usage) for what only stanza files have.
[[nodiscard]] JavaEdit javaEdit(SetEdit const& edit);
[[nodiscard]] JavaEdit javaEdit(UnsetEdit const& edit);
[[nodiscard]] JavaEdit javaEdit(CommentEdit const& edit);
/// Sets all pairs of another file, which is read at once.
[[nodiscard]] JavaEdit javaMerge(JavaName const& other, Deadline& deadline);
/// The commands of `zprop edit`, one a line: set KEY VALUE, unset KEY, comment TEXT [--key K]. When
/// one of them cannot be made, none is.
[[nodiscard]] JavaEdit readJavaEdits(std::istream& input);
/// Writes all pairs in the form "key = value".
[[nodiscard]] JavaEdit javaRewrite(Comments comments);

/// Loads the file; prints "FILE:LINE: reason" and the line for each one that has a fault. Where
/// there is none, warns of the lines that the narrower reader passes over, and counts them.
Exit checkJava(JavaName const& name, std::size_t& warnings, Deadline& deadline);

}  // namespace zprop

#endif
