/// A value that is neither among the words of a command, which others can list, nor in a history.
#ifndef ZFC_TOOLS_ZPROP_EDITS_SECRET_H
#define ZFC_TOOLS_ZPROP_EDITS_SECRET_H

#include <string>

namespace zprop {

/// All of standard input but one line feed at its end; from a terminal one line, asked for and
/// without echo. Throws Failure when there is nothing, or a NUL in it.
[[nodiscard]] std::string readSecret();

}  // namespace zprop

#endif
