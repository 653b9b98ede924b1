/// Text of others on a terminal: names, values and lines as they are shown, and as a shell reads
/// them.
#ifndef ZFC_TOOLS_ZPROP_SHOWN_H
#define ZFC_TOOLS_ZPROP_SHOWN_H

#include <string>
#include <string_view>

namespace zprop {

/// What the terminal's codeset can show.
enum class Display { ascii, utf8, other };

/// For all text that is shown from now on; UTF-8 before.
void setDisplay(Display display);

/// The text with what would act on a terminal, or has no form in its codeset, as "\n", "\x1B" and
/// the like. In another codeset than ASCII and UTF-8 bytes from 0x80 on stay.
[[nodiscard]] std::string shown(std::string_view text);

/// One word of a POSIX shell that stands for the text.
[[nodiscard]] std::string shellWord(std::string_view text);

/// Length of the UTF-8 character that the text begins with; 0 when it begins with none.
[[nodiscard]] std::size_t utf8Length(std::string_view text);

}  // namespace zprop

#endif
