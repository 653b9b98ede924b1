/// How pairs are written to a properties file.
#include <algorithm>
#include <string_view>

#include "Z/ZJavaProperties.h"

namespace {

constexpr unsigned char lastPlain = 126;

unsigned char byteAt(std::string_view text, std::size_t at) {
    // Behind the end of a character that was cut off stands the terminating NUL.
    return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
}

/// Whether the byte goes into the file as it is. A NUL does, but ends what append() takes.
bool isPlain(char c) {
    return c != '\\' && c != ':' && c != '\0' && static_cast<unsigned char>(c) <= lastPlain;
}

/// Length of the plain text that `text` begins with.
std::size_t plainLength(std::string_view text) {
    std::size_t length = 0;
    while (length < text.size() && isPlain(text[length]))
        ++length;
    return length;
}

void appendHex(ZUTF8String& image, unsigned int code) {
    for (int shift = 12; shift >= 0; shift -= 4)
        image.append("0123456789abcdef"[(code >> shift) & 0xF]);
}

/// Writes the byte above 126 that `text` begins with as an escape, with those that belong to it;
/// their number.
std::size_t appendEscape(ZUTF8String& image, std::string_view text) {
    auto const low6 = [text](std::size_t at) { return byteAt(text, at) & 0x3FU; };
    unsigned int const lead = byteAt(text, 0);
    image.append("\\u");
    switch (lead >> 4) {
        case 0xC:
        case 0xD:
            appendHex(image, (lead & 0x1F) << 6 | low6(1));
            return 2;
        case 0xE:
            appendHex(image, (lead & 0xF) << 12 | low6(1) << 6 | low6(2));
            return 3;
        default:
            // Kept: no digits and no byte; four of them name no character beyond the plane.
            return 1;
    }
}

/// Writes the one byte, or escape, that is not plain; the number of bytes it stands for.
std::size_t appendSpecial(ZUTF8String& image, std::string_view text) {
    if (byteAt(text, 0) > lastPlain) return appendEscape(image, text);
    if (text[0] != '\0') image.append('\\');
    image.append(text[0]);
    return 1;
}

void appendValue(ZUTF8String& image, std::string_view text) {
    while (!text.empty()) {
        std::size_t const plain = plainLength(text);
        image.append(text.data(), static_cast<unsigned int>(plain));
        text.remove_prefix(plain);
        if (!text.empty()) text.remove_prefix(std::min(appendSpecial(image, text), text.size()));
    }
}

}  // namespace

void ZJavaProperties::write(ZUTF8String& image) const {
    ZArrayList keys(1, 0);
    ZArrayList values(1, 0);
    properties.listKeys(keys);
    properties.listObjects(values);
    image = "#\n";
    for (unsigned int i = 0; i < keys.size(); ++i) {
        auto const& text = static_cast<ZUTF8String const&>(*values.get(i));
        // Kept: a key is written as it is; callers keep keys simple.
        image.append(static_cast<ZUTF8String const&>(*keys.get(i)).getChars());
        image.append(" = ");
        appendValue(image, {text.getChars(), text.getLength()});
        image.append('\n');
    }
}
