/// Shared. Strings in UTF-8 as bytes, any NUL among them included.
#ifndef Z_CONFIG_JAVA_STRINGS_H
#define Z_CONFIG_JAVA_STRINGS_H

#include <string_view>

#include "Z/ZUTF8String.h"

namespace zfc::java {

/// The bytes of an object of that class itself: its functions are not called through its slots.
[[nodiscard]] inline std::string_view viewOf(ZUTF8String const& text) {
    return {text.ZAbstractMutableString::getChars(), text.ZAbstractMutableString::getLength()};
}

/// The bytes are less than 4 GiB.
inline void append(ZUTF8String& text, std::string_view bytes) {
    while (!bytes.empty()) {
        std::size_t const before = viewOf(text).size();
        text.append(bytes.data(), static_cast<unsigned int>(bytes.size()));
        bytes.remove_prefix(viewOf(text).size() - before);
        if (bytes.empty()) return;
        text.append('\0');  // where the string takes the bytes to end
        bytes.remove_prefix(1);
    }
}

inline void reserve(ZUTF8String& text, std::size_t bytes) {
    if (bytes > text.getCapacity()) text.setCapacity(static_cast<unsigned int>(bytes));
}

[[nodiscard]] inline ZUTF8String stringOf(std::string_view bytes) {
    ZUTF8String text;
    reserve(text, bytes.size());  // and no more, as a copy of a string has
    append(text, bytes);
    return text;
}

}  // namespace zfc::java

#endif
