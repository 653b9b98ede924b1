/// Argument checks that the properties objects share.
#ifndef Z_CONFIG_ARGUMENTS_H
#define Z_CONFIG_ARGUMENTS_H

#include "Z/ZException.h"

namespace zfc::config {

[[nodiscard]] inline bool isEmpty(char const* text) { return text == nullptr || *text == '\0'; }

/// ZInvalidParameterException (message 22) for a null or empty text.
inline void require(char const* text, char const* source, int line) {
    if (isEmpty(text)) zraise(ZInvalidParameterException(), source, line);
}

}  // namespace zfc::config

#endif
