/// Values as numbers, truth, and text of the local codeset.
#ifndef Z_CONFIG_VALUE_TEXT_H
#define Z_CONFIG_VALUE_TEXT_H

#include <optional>
#include <string_view>

#include "Z/ZAbstractString.h"
#include "Z/ZLCString.h"

namespace zfc::config {

/// What `strtoul` (ISO C) with base 0 makes of the text where `unsigned long` has 32 bits: what is
/// too large gives the greatest value, a minus sign wraps. 0 for empty text, nothing for text that
/// is not a number to its end.
[[nodiscard]] std::optional<unsigned int> parseNumber(std::string_view text);

/// False for empty text, nothing for a word that is neither true nor false.
[[nodiscard]] std::optional<bool> parseBoolean(char const* text);
/// The word that a truth is written as.
[[nodiscard]] char const* booleanText(bool truth);

/// The text in the local codeset. ZInvalidParameterException (message 22) when it has a NUL inside,
/// behind which it would be lost; ZFromUTF8Exception (message 50) when the codeset lacks it.
[[nodiscard]] ZLCString localText(ZAbstractString const& text);

}  // namespace zfc::config

#endif
