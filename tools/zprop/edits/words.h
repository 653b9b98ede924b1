/// The words of one command line of `zprop edit`.
#ifndef ZFC_TOOLS_ZPROP_EDITS_WORDS_H
#define ZFC_TOOLS_ZPROP_EDITS_WORDS_H

#include <functional>
#include <istream>
#include <string>
#include <vector>

namespace zprop {

/// Splits a line as a shell would without expanding anything: blanks separate words; '...' is
/// literal; in "..." a backslash protects a double quote and a backslash; elsewhere it protects any
/// character. "#" at the start of a word begins a comment. Throws Failure (wrong usage) for an open
/// quote or a trailing backslash.
[[nodiscard]] std::vector<std::string> splitWords(std::string const& line);

/// Runs `body`; what it throws, an exception of the library too, is a Failure with `place` in
/// front.
void atPlace(std::string const& place, std::function<void()> const& body);

/// Calls take(words, place) for each line that has words; what fails, a NUL byte too, has its place
/// in front: "standard input:LINE: ".
void forEachCommand(
    std::istream& input,
    std::function<void(std::vector<std::string> const&, std::string const&)> const& take);

}  // namespace zprop

#endif
