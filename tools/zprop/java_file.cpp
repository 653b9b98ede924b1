#include "zprop/java_file.h"

#include <algorithm>
#include <fstream>
#include <iterator>

#include "Z/ZException.h"
#include "Z/ZLCString.h"

namespace zprop {
namespace {

using Skipped = ZJavaProperties::Skipped;

class PassedLines : public ZJavaProperties::SkippedLines {
  public:
    explicit PassedLines(std::vector<PassedLine>& list) : lines(list) {}
    void skipped(unsigned int line, Skipped what) override { lines.push_back({line, what}); }

  private:
    std::vector<PassedLine>& lines;
};

std::string bytesOf(ZUTF8String const& text) { return {text.getChars(), text.getLength()}; }

/// The surrogate that stands at `at` in three bytes of its own; 0 when there is none.
unsigned int surrogateAt(std::string const& text, std::size_t at) {
    auto const byte = [&](std::size_t i) { return static_cast<unsigned char>(text[at + i]); };
    if (at + 3 > text.size() || byte(0) != 0xED || byte(1) < 0xA0) return 0;
    return 0xD000U | (byte(1) & 0x3FU) << 6 | (byte(2) & 0x3FU);
}

std::string fourBytes(unsigned int code) {
    auto const byte = [](unsigned int bits) { return static_cast<char>(bits); };
    return {byte(0xF0 | code >> 18), byte(0x80 | (code >> 12 & 0x3F)),
            byte(0x80 | (code >> 6 & 0x3F)), byte(0x80 | (code & 0x3F))};
}

/// The library keeps the two \u escapes of a character as they are; everybody else wants one.
std::string joined(std::string const& text) {
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        unsigned int const high = surrogateAt(text, at);
        unsigned int const low = high == 0 ? 0 : surrogateAt(text, at + 3);
        bool const isPair = high >= 0xD800 && high < 0xDC00 && low >= 0xDC00;
        if (!isPair) {
            result += text[at];
            continue;
        }
        result += fourBytes(0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00));
        at += 5;
    }
    return result;
}

bool hasText(std::string const& comment) {
    return comment.find_first_not_of(" \t\v\f#!") != std::string::npos;
}

}  // namespace

char const* PassedLine::reason() const {
    switch (what) {
        case Skipped::comment:
            return "comment";
        case Skipped::emptyKey:
            return "no key before the separator";
        case Skipped::noSeparator:
            return "key without \"=\", \":\" or blank and value";
        case Skipped::keyEscape:
            return "backslash in the key before none of \"\\\", \"=\", \":\" and blank";
        case Skipped::valueEscape:
            return "backslash in the value before none of \"\\\", \":\", quote, blank and \"u\"";
        case Skipped::unicodeEscape:
            return "\"\\u\" without four hexadecimal digits";
        case Skipped::noLineEnd:
            break;
    }
    return "last line without a line end";
}

std::vector<JavaPair> JavaFile::pairs() const {
    std::vector<JavaPair> list;
    ZArrayList keys(1, 0);
    properties.listKeys(keys);
    ZUTF8String value;
    for (unsigned int i = 0; i < keys.size(); ++i) {
        auto const& key = static_cast<ZUTF8String const&>(*keys.get(i));
        properties.getValue(key, value);
        list.push_back({joined(bytesOf(key)), joined(bytesOf(value))});
    }
    return list;
}

std::optional<std::string> JavaFile::valueOf(ZUTF8String const& key) const {
    if (!properties.contains(key)) return std::nullopt;
    ZUTF8String value;
    properties.getValue(key, value);
    return joined(bytesOf(value));
}

std::vector<PassedLine> JavaFile::comments() const {
    auto const lines = javaLines(name);
    std::vector<PassedLine> list;
    std::copy_if(passed.begin(), passed.end(), std::back_inserter(list), [&](auto& line) {
        return line.isComment() && line.number <= lines.size() && hasText(lines[line.number - 1]);
    });
    return list;
}

std::vector<PassedLine> JavaFile::faults() const {
    std::vector<PassedLine> list;
    std::copy_if(passed.begin(), passed.end(), std::back_inserter(list),
                 [](auto& line) { return !line.isComment(); });
    return list;
}

JavaFile openJavaFile(std::string const& file, Deadline& deadline) {
    JavaFile opened;
    opened.name = file;
    retryWhileLocked(deadline, [&] {
        opened.passed.clear();
        PassedLines lines(opened.passed);
        opened.properties.read(file.c_str(), &lines);
    });
    return opened;
}

bool hasLoneSurrogate(std::string const& text) {
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (surrogateAt(text, at) != 0) return true;
    }
    return false;
}

std::vector<std::string> javaLines(std::string const& file) {
    std::ifstream stream(file, std::ios::binary);
    std::vector<std::string> lines(1);
    for (char c = '\0'; stream.get(c);) {
        if (c != '\n' && c != '\r') {
            lines.back() += c;
            continue;
        }
        // Either character is an end, and both in either order are one.
        if (stream.peek() == (c == '\n' ? '\r' : '\n')) stream.get();
        lines.emplace_back();
    }
    return lines;
}

std::string inLocal(std::string const& utf8) {
    ZUTF8String text;
    for (char const c : utf8)  // a NUL would end what is taken at once
        text.append(c);
    ZLCString const local(text);
    if (local.isEmpty() && !text.isEmpty()) zraise(ZFromUTF8Exception(), "zprop", __LINE__);
    return {local.getChars(), local.getLength()};
}

}  // namespace zprop
