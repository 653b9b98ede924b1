/// Formatted output as std::string.
#ifndef ZFC_TESTS_SUPPORT_FORMATTING_H
#define ZFC_TESTS_SUPPORT_FORMATTING_H

#include "Z/zsnprintf.h"

#include <string>

namespace testsupport {

/// What zsnprintf() writes into ample room; "<error>" for a result of -1. A result that is not the
/// written length shows behind the text.
template <class... Args>
[[nodiscard]] std::string formatted(char const* format, Args... args) {
    std::string room(60000, '?');
    int const length = zsnprintf(room.data(), static_cast<int>(room.size()), format, args...);
    if (length < 0) return "<error>";
    std::string text = room.substr(0, static_cast<std::size_t>(length));
    char const end = room[static_cast<std::size_t>(length)];
    return end == '\0' ? text : text + "<no end>";
}

}  // namespace testsupport

#endif
