#include "zprop/shown.h"

#include <cstdio>

namespace zprop {
namespace {

Display shownOn = Display::utf8;

unsigned int byteAt(std::string_view text, std::size_t i) {
    return static_cast<unsigned char>(text[i]);
}

std::string escaped(unsigned int byte) {
    constexpr std::string_view letters = "abtnvfr";  // of the control characters 7 to 13
    if (byte >= 7 && byte <= 13) return std::string("\\") + letters[byte - 7];
    char text[8];
    static_cast<void>(std::snprintf(text, sizeof text, "\\x%02X", byte));
    return text;
}

/// How many bytes of the text, which is not empty, are shown as they are; 0: the first is not.
std::size_t showable(std::string_view text) {
    unsigned int const first = byteAt(text, 0);
    if (first < 0x80) return first >= 0x20 && first != 0x7F ? 1 : 0;
    if (shownOn == Display::ascii) return 0;
    if (shownOn == Display::other) return 1;
    // The second set of control characters.
    bool const isControl = first == 0xC2 && text.size() > 1 && byteAt(text, 1) < 0xA0;
    return isControl ? 0 : utf8Length(text);
}

/// The range of the second byte keeps out long forms, surrogates and what is above U+10FFFF.
bool isSecond(unsigned int first, unsigned int second) {
    unsigned int const least = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
    unsigned int const most = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
    return second >= least && second <= most;
}

}  // namespace

void setDisplay(Display display) { shownOn = display; }

std::string shown(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        std::size_t const length = showable(text);
        if (length == 0)
            result += escaped(byteAt(text, 0));
        else
            result += text.substr(0, length);
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return result;
}

std::string shellWord(std::string_view text) {
    std::string word = "'";
    for (char const c : text) {
        if (c == '\'')
            word += "'\\''";
        else
            word += c;
    }
    return word + "'";
}

std::size_t utf8Length(std::string_view text) {
    if (text.empty()) return 0;
    unsigned int const first = byteAt(text, 0);
    if (first < 0x80) return 1;
    if (first < 0xC2 || first > 0xF4) return 0;
    std::size_t const length = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    if (text.size() < length || !isSecond(first, byteAt(text, 1))) return 0;
    for (std::size_t i = 2; i < length; ++i) {
        if ((byteAt(text, i) & 0xC0) != 0x80) return 0;
    }
    return length;
}

}  // namespace zprop
