/// The words of one command line of `zprop edit`.
#ifndef ZFC_TOOLS_ZPROP_WORDS_H
#define ZFC_TOOLS_ZPROP_WORDS_H

#include <string>
#include <vector>

namespace zprop {

/// Splits a line as a shell would without expanding anything: blanks separate words; '...' is
/// literal; in "..." a backslash protects a double quote and a backslash; elsewhere it protects any
/// character. "#" at the start of a word begins a comment. Throws Failure (wrong usage) for an open
/// quote or a trailing backslash.
[[nodiscard]] std::vector<std::string> splitWords(std::string const& line);

}  // namespace zprop

#endif
