#include "zprop/java/file.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "Z/ZException.h"
#include "Z/ZLCString.h"
#include "zprop/edits/backup.h"
#include "zprop/failure.h"
#include "zprop/reads/difference.h"
#include "zprop/shown.h"

namespace zprop {
namespace {

using Fault = ZJavaPropertiesFile::Fault;
using Skipped = ZJavaProperties::Skipped;

class PassedLines : public ZJavaProperties::SkippedLines {
  public:
    void skipped(unsigned int line, Skipped what) override {
        if (what != Skipped::comment) lines.push_back({line, what});
    }
    std::vector<PassedLine> lines;
};

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
    std::vector<std::string> messages;
    for (std::size_t i = 0; i < lines.size() && i < most; ++i)
        messages.push_back(file + ":" + std::to_string(lines[i].number) + ": " + lines[i].reason());
    if (lines.size() > most)
        messages.push_back(file + ": and " + std::to_string(lines.size() - most) + " lines more");
    // Somebody has mended the file meanwhile.
    if (messages.empty())
        messages.push_back(file + ":" + std::to_string(cause.badline()) + ": invalid line");
    return {Exit::notThereOrInvalid, messages};
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
    bool const isShowable = !local.isEmpty() && shown(local.getChars()) == local.getChars();
    return isShowable ? local.getChars() : escaped(character);
}

/// A file of our own, which an edit is tried on. Nobody else may look at it, and it goes again.
class TrialFile {
  public:
    explicit TrialFile(std::string const& bytes) {
        char const* const temporary = std::getenv("TMPDIR");
        directory = temporary != nullptr && *temporary != '\0' ? temporary : "/tmp";
        directory += "/zprop.XXXXXX";
        if (mkdtemp(directory.data()) == nullptr) failIO(directory, "mkdtemp()");
        std::ofstream(path(), std::ios::binary) << bytes;
    }
    ~TrialFile() {
        std::error_code ignored;
        std::filesystem::remove_all(directory, ignored);
    }
    TrialFile(TrialFile const&) = delete;
    TrialFile& operator=(TrialFile const&) = delete;

    [[nodiscard]] std::string path() const { return directory + "/copy"; }

  private:
    std::string directory;
};

/// What a file of these bytes holds after the edit; the object itself does not tell.
std::string textAfter(std::string const& bytes, EditTarget const& target, Encoding encoding,
                      JavaEdit const& edit) {
    TrialFile const trial(bytes);
    ZJavaPropertiesFile properties(trial.path().c_str(), encoding);
    properties.setRecoveryCopy(false);
    properties.load();
    edit(properties, target.file);
    properties.store();
    return bytesOf(trial.path());
}

void tryEdit(EditTarget const& target, Encoding encoding, Deadline& deadline,
             JavaEdit const& edit) {
    bool const isNew = isToBeMade(target);
    if (!isNew) {  // whatever stands in the way is told of the file itself
        ZJavaPropertiesFile properties(target.file.c_str(), encoding);
        load(properties, deadline);
        withReasons(properties, [&] { edit(properties, target.file); });
    }
    std::string const before = bytesOf(target.file);
    std::cout << difference(isNew ? "/dev/null" : target.file, target.file, before,
                            textAfter(before, target, encoding, edit));
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

void editJavaFile(EditTarget const& target, Encoding encoding, Deadline& deadline,
                  JavaEdit const& edit) {
    requireThere(target);
    if (target.dryRun) return tryEdit(target, encoding, deadline, edit);
    ZJavaPropertiesFile properties(target.file.c_str(), encoding);
    auto const editHeld = [&](ZJavaPropertiesFile& held) {
        std::string const before = bytesOf(target.file);
        edit(held, target.file);
        bool const isKept = target.backup && textAfter(before, target, encoding, edit) != before;
        if (isKept) makeBackup(target.file, *target.backup, target.file);
    };
    retryWhileLocked(deadline, [&] {
        withReasons(properties, [&] { properties.updateFile(editHeld, deadline.left()); });
    });
}

std::vector<FaultyLine> faultsOf(ZJavaPropertiesFile const& properties, Deadline& deadline) {
    std::vector<FaultyLine> lines;
    retryWhileLocked(deadline, [&] { lines = collected(properties); });
    return lines;
}

std::vector<PassedLine> passedLinesOf(std::string const& file, Deadline& deadline) {
    std::vector<PassedLine> lines;
    retryWhileLocked(deadline, [&] {
        PassedLines passed;
        ZJavaProperties().read(file.c_str(), &passed);
        lines = std::move(passed.lines);
    });
    return lines;
}

std::vector<std::string> linesOf(std::string const& file) {
    std::ifstream stream(file, std::ios::binary);
    std::vector<std::string> lines(1);
    for (char c = '\0'; stream.get(c);) {
        if (c == '\r' && stream.peek() == '\n') stream.get();
        if (c == '\r' || c == '\n')
            lines.emplace_back();
        else
            lines.back() += c;
    }
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
            pairs.push_back({utf8Of(key), utf8Of(value)});
        }
    });
    return pairs;
}

std::optional<std::string> valueOf(ZJavaPropertiesFile const& properties, ZUTF8String const& key) {
    if (!properties.contains(key)) return std::nullopt;
    ZUTF8String value;
    withReasons(properties, [&] { properties.getValue(key, value); });
    return utf8Of(value);
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

std::string inEscapes(std::string const& utf8) {
    std::string text;
    for (std::size_t at = 0; at < utf8.size();) {
        std::string const character = utf8.substr(at, lengthAt(utf8, at));
        text += shownCharacter(character);
        at += character.size();
    }
    return text;
}

std::string utf8Of(ZUTF8String const& text) { return {text.getChars(), text.getLength()}; }

ZUTF8String stringOf(std::string const& bytes) {
    ZUTF8String text;
    for (char const c : bytes)  // a NUL would end what is taken at once
        text.append(c);
    return text;
}

}  // namespace zprop
