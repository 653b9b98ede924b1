/// Looks through the text of a stanza file for all that is wrong with it, where the library's
/// reader ends at the first fault.
#ifndef ZFC_TOOLS_ZPROP_READS_SCAN_H
#define ZFC_TOOLS_ZPROP_READS_SCAN_H

#include <string>
#include <string_view>
#include <vector>

namespace zprop {

/// Something about a line of a file. Lines are counted as an editor does, from 1; a long line is
/// one, though the reader takes it in pieces.
struct Finding {
    std::size_t line;
    std::string reason;
    std::string text;        // the line without its trailing white space
    std::size_t column = 0;  // of the fault in the text, in bytes from 0
    std::string stanza;      // of a header with text behind it
};

/// What there is to say about a file.
struct Scan {
    std::vector<Finding> faults;    // any of them makes the file invalid
    std::vector<Finding> losses;    // what the next store would lose; the file is valid
    std::size_t companionLine = 0;  // where the companion file is named; 0: nowhere
};

/// The scan finds a fault exactly when the library refuses the text, and the first one is the
/// library's.
[[nodiscard]] Scan scan(std::string_view text);

/// A line that gives a key a value, or names it without one.
struct Assignment {
    std::size_t line;   // as of a Finding
    std::string value;  // empty: "key ="
};

/// Those of the key, in the order of the text, which is valid.
[[nodiscard]] std::vector<Assignment> assignmentsOf(std::string_view text, std::string_view stanza,
                                                    std::string_view key);

/// "LINE: reason", the line and a caret below the fault, each ended by a line feed.
[[nodiscard]] std::string pictureOf(Finding const& finding);

}  // namespace zprop

#endif
