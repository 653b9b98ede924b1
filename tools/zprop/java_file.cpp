#include "zprop/java_file.h"

#include <algorithm>
#include <cstdio>

#include "Z/ZException.h"
#include "Z/ZLCString.h"
#include "zprop/failure.h"

namespace zprop {
namespace {

using Fault = ZJavaPropertiesFile::Fault;

class Collector : public ZJavaPropertiesFile::FaultyLines {
  public:
    void faulty(unsigned int line, char const* text, Fault what) override {
        lines.push_back({line, text, what});
    }
    std::vector<FaultyLine> lines;
};

std::vector<FaultyLine> collected(ZJavaPropertiesFile const& properties) {
    Collector collector;
    properties.check(collector);
    return std::move(collector.lines);
}

/// The lines that an error at line `number` is about: that one when it is half a surrogate pair,
/// which the rest can be read with, else all that keep the file from being read.
std::vector<FaultyLine> linesOf(std::vector<FaultyLine> lines, int number) {
    auto const isIt = [number](FaultyLine const& line) {
        return line.what == Fault::halfSurrogate && static_cast<int>(line.number) == number;
    };
    auto const half = std::find_if(lines.begin(), lines.end(), isIt);
    if (half != lines.end()) return {*half};
    auto const isHalf = [](FaultyLine const& line) { return line.what == Fault::halfSurrogate; };
    lines.erase(std::remove_if(lines.begin(), lines.end(), isHalf), lines.end());
    return lines;
}

Failure failureOf(ZJavaPropertiesFile const& properties,
                  ZPropertiesInvalidDataException const& cause) {
    constexpr std::size_t most = 20;
    std::string const file = properties.getPath();
    auto const lines = linesOf(collected(properties), cause.badline());
    std::string text;
    for (std::size_t i = 0; i < lines.size() && i < most; ++i)
        text += (i == 0 ? "" : "\nzprop: ") + file + ":" + std::to_string(lines[i].number) + ": " +
                lines[i].reason();
    if (lines.size() > most)
        text += "\nzprop: " + file + ": and " + std::to_string(lines.size() - most) + " lines more";
    // Somebody has mended the file meanwhile.
    if (lines.empty()) text = file + ":" + std::to_string(cause.badline()) + ": invalid line";
    return {Exit::notThereOrInvalid, text};
}

/// Bytes of the character of UTF-8 at `at`.
std::size_t lengthAt(std::string const& text, std::size_t at) {
    std::size_t end = at + 1;
    while (end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80)
        ++end;
    return end - at;
}

std::string escape(unsigned int unit) {
    char text[8];
    std::snprintf(text, sizeof text, "\\u%04x", unit & 0xFFFFU);
    return text;
}

/// A character of UTF-8 by the number, or the two, that Java has for it.
std::string escaped(std::string const& character) {
    unsigned int code = static_cast<unsigned char>(character[0]);
    if (character.size() > 1) code &= 0x7FU >> character.size();
    for (char const c : character.substr(1))
        code = code << 6U | (static_cast<unsigned char>(c) & 0x3FU);
    if (code < 0x10000) return escape(code);
    return escape(0xD800 + ((code - 0x10000) >> 10U)) + escape(0xDC00 + (code & 0x3FFU));
}

bool isControl(std::string const& character) {
    auto const byte = static_cast<unsigned char>(character[0]);
    bool const isC1 = byte == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0;
    return byte < 0x20 || byte == 0x7F || isC1;
}

std::string shownCharacter(std::string const& character) {
    if (isControl(character)) return escaped(character);
    ZLCString const local(stringOf(character));
    return local.isEmpty() ? escaped(character) : local.getChars();
}

}  // namespace

std::string FaultyLine::reason() const {
    switch (what) {
        case Fault::encoding:
            return "not UTF-8; --latin1 reads the file as ISO 8859-1";
        case Fault::unicodeEscape:
            return "\"\\u\" without four hexadecimal digits";
        case Fault::halfSurrogate:
            break;
    }
    return "half of a surrogate pair, which is no character";
}

void load(ZJavaPropertiesFile& properties, Deadline& deadline) {
    retryWhileLocked(deadline, [&] { withReasons(properties, [&] { properties.load(); }); });
}

void withReasons(ZJavaPropertiesFile const& properties, std::function<void()> const& body) {
    try {
        body();
    } catch (ZPropertiesInvalidDataException const& e) {
        throw failureOf(properties, e);
    }
}

void editJavaFile(JavaName const& name, Missing missing, Deadline& deadline,
                  std::function<void(ZJavaPropertiesFile&)> const& edit) {
    ZJavaPropertiesFile properties(name.file.c_str(), name.encoding);
    if (missing == Missing::isAnError) load(properties, deadline);
    retryWhileLocked(deadline,
                     [&] { withReasons(properties, [&] { properties.updateFile(edit, 0); }); });
}

std::vector<FaultyLine> faultsOf(ZJavaPropertiesFile const& properties, Deadline& deadline) {
    std::vector<FaultyLine> lines;
    retryWhileLocked(deadline, [&] { lines = collected(properties); });
    return lines;
}

std::vector<JavaPair> pairsOf(ZJavaPropertiesFile const& properties) {
    std::vector<JavaPair> pairs;
    withReasons(properties, [&] {
        auto const keys = properties.getKeys();
        ZUTF8String value;
        for (unsigned int i = 0; i < keys->size(); ++i) {
            auto const& key = static_cast<ZUTF8String const&>(*keys->get(i));
            properties.getValue(key, value);
            pairs.push_back({bytesOf(key), bytesOf(value)});
        }
    });
    return pairs;
}

std::optional<std::string> valueOf(ZJavaPropertiesFile const& properties, ZUTF8String const& key) {
    if (!properties.contains(key)) return std::nullopt;
    ZUTF8String value;
    withReasons(properties, [&] { properties.getValue(key, value); });
    return bytesOf(value);
}

ZUTF8String inUtf8(std::string const& local) {
    ZUTF8String text{ZLCString(local.c_str())};
    if (text.isEmpty() && !local.empty()) zraise(ZToUTF8Exception(), "zprop", __LINE__);
    return text;
}

std::string inLocal(std::string const& utf8) {
    ZLCString const local(stringOf(utf8));
    if (local.isEmpty() && !utf8.empty()) zraise(ZFromUTF8Exception(), "zprop", __LINE__);
    return {local.getChars(), local.getLength()};
}

std::string shown(std::string const& utf8) {
    std::string text;
    for (std::size_t at = 0; at < utf8.size();) {
        std::string const character = utf8.substr(at, lengthAt(utf8, at));
        text += shownCharacter(character);
        at += character.size();
    }
    return text;
}

std::string bytesOf(ZUTF8String const& text) { return {text.getChars(), text.getLength()}; }

ZUTF8String stringOf(std::string const& bytes) {
    ZUTF8String text;
    for (char const c : bytes)  // a NUL would end what is taken at once
        text.append(c);
    return text;
}

}  // namespace zprop
