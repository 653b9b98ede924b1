/// Shared. The bytes of the library's own strings, without virtual calls.
#ifndef Z_STRINGS_PLAIN_TEXT_H
#define Z_STRINGS_PLAIN_TEXT_H

#include <cstdint>
#include <string_view>
#include <typeinfo>

#include "Z/ZLCConstString.h"
#include "Z/ZLCString.h"
#include "Z/ZUTF8ConstString.h"
#include "Z/ZUTF8String.h"

namespace zfc::strings {

/// Whether the object is of that class itself, not of a derived one. By the address of the type:
/// where two libraries have one each it says no, and the caller takes the longer way.
template <class Class>
[[nodiscard]] inline bool isExactly(ZObject const& object) {
    return &typeid(object) == &typeid(Class);
}

/// The text of an object of one of the four string classes themselves, which compare and hash by
/// it; no data (null) for any other. It lives as getChars() does.
[[nodiscard]] inline std::string_view plainText(ZObject const& object) {
    if (isExactly<ZLCString>(object) || isExactly<ZUTF8String>(object)) {
        auto const& text = static_cast<ZAbstractMutableString const&>(object);
        return {text.ZAbstractMutableString::getChars(), text.ZAbstractMutableString::getLength()};
    }
    if (isExactly<ZLCConstString>(object) || isExactly<ZUTF8ConstString>(object)) {
        auto const& text = static_cast<ZAbstractConstString const&>(object);
        return {text.ZAbstractConstString::getChars(), text.ZAbstractConstString::getLength()};
    }
    return {};
}

/// The hash() of strings.
[[nodiscard]] inline std::uint32_t textHash(std::string_view text) {
    // 32 bits on every machine, bytes without a sign: the order of a hash map is the same
    // everywhere.
    std::uint32_t hash = 5381;
    for (char const byte : text)
        hash = (hash * 33) ^ static_cast<unsigned char>(byte);
    return hash;
}

}  // namespace zfc::strings

#endif
