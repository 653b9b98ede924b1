/// What may be stored in a stanza file: the rules that keep a file readable as what was written.
#include "Z/config/cache/storable.h"

#include <cstring>
#include <string_view>

#include "Z/ZPropertiesImpl.h"

namespace {

constexpr std::size_t brackets = 2;   // around a stanza name
constexpr std::size_t equalsEnd = 2;  // " =" behind a key
constexpr std::size_t equalsMid = 3;  // " = " between key and value

bool holds(std::string_view text, char unwanted) {
    return text.find(unwanted) != std::string_view::npos;
}

bool fitsLine(std::size_t bytes) { return bytes <= ZPCategoryBasedCache::maxLine; }

}  // namespace

bool zfc::cache::isStorableStanza(std::string_view name) {
    return !name.empty() && !holds(name, ']') && !holds(name, '\n') &&
           fitsLine(name.size() + brackets);
}

bool zfc::cache::isStorableKey(std::string_view name) {
    // The reader ends a key at the first of these.
    if (name.empty() || holds(name, '=') || holds(name, '\n')) return false;
    // The line would be read as a comment or a header.
    if (name.front() == '#' || name.front() == '[') return false;
    // The reader takes these off: it would be another key.
    if (isSpace(name.front()) || isSpace(name.back())) return false;
    return fitsLine(name.size() + equalsEnd);
}

bool zfc::cache::isStorableValue(std::string_view key, std::string_view value, Obfuscated kind) {
    // It is in no line, but in a record that ends with a zero byte.
    if (kind == Obfuscated::yes) return true;
    return !holds(value, '\n') && fitsLine(key.size() + equalsMid + value.size());
}

bool ZPCategoryBasedCache::isStorableStanza(char const* stanza) {
    return zfc::cache::isStorableStanza(stanza);
}

bool ZPCategoryBasedCache::isStorableKey(char const* key) { return zfc::cache::isStorableKey(key); }

bool ZPCategoryBasedCache::isStorableValue(char const* key, char const* value, int obfuscated) {
    return zfc::cache::isStorableValue(key, value, zfc::cache::kindOf(obfuscated));
}

bool ZPCategoryBasedCache::isStorableComment(char const* text) {
    std::string_view const line(text);
    return !line.empty() && line.front() == '#' && !holds(line, '\n') && fitsLine(line.size());
}

bool ZPCategoryBasedCache::isCommentWeWant(char const* wanted, char const* line) {
    for (; *wanted != '\0'; ++wanted, ++line) {
        // Kept: blanks of the line never match, so a key with a blank inside has no template.
        while (*line == ' ')
            ++line;
        if (*line != *wanted) return false;
    }
    return true;
}

bool ZPCategoryBasedCache::validateKey(char const* flat, ZLCString& stanza, ZLCString& key) {
    char const* const dot = flat == nullptr ? nullptr : std::strchr(flat, '.');
    if (dot == nullptr || dot == flat || dot[1] == '\0') return false;
    ZLCString const keyPart(dot + 1);  // a copy: `flat` may be the text of either
    stanza = ZLCString(flat, static_cast<unsigned int>(dot - flat));
    key = keyPart;
    return true;
}
