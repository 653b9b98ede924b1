/// Properties files in the manner of the Java platform, as the commands see them.
#ifndef ZFC_TOOLS_ZPROP_JAVA_FILE_H
#define ZFC_TOOLS_ZPROP_JAVA_FILE_H

#include <optional>
#include <string>
#include <vector>

#include "Z/ZJavaProperties.h"
#include "zprop/open.h"

namespace zprop {

/// A line that the reader passed over.
struct PassedLine {
    unsigned int number;
    ZJavaProperties::Skipped what;

    [[nodiscard]] bool isComment() const { return what == ZJavaProperties::Skipped::comment; }
    [[nodiscard]] char const* reason() const;
};

/// A key and its value in UTF-8, where the two halves of a surrogate pair are one character.
struct JavaPair {
    std::string key;
    std::string value;
};

/// What was read from a file.
struct JavaFile {
    std::string name;
    ZJavaProperties properties;
    std::vector<PassedLine> passed;  // in the order of the file

    /// The value in UTF-8, as in pairs(); nothing when there is no such key.
    [[nodiscard]] std::optional<std::string> valueOf(ZUTF8String const& key) const;
    /// In the order that the file is written in.
    [[nodiscard]] std::vector<JavaPair> pairs() const;
    /// Those of `passed` that are comments with text.
    [[nodiscard]] std::vector<PassedLine> comments() const;
    /// Those that are no comments.
    [[nodiscard]] std::vector<PassedLine> faults() const;
};

/// Loads `file`; throws what the library throws.
[[nodiscard]] JavaFile openJavaFile(std::string const& file, Deadline& deadline);

/// Whether text of a JavaPair has half a surrogate pair, which is no character.
[[nodiscard]] bool hasLoneSurrogate(std::string const& text);

/// The lines of a file, as the reader counts them, without their ends.
[[nodiscard]] std::vector<std::string> javaLines(std::string const& file);

/// Text of UTF-8 in the local codeset; throws ZFromUTF8Exception for what has no form there.
[[nodiscard]] std::string inLocal(std::string const& utf8);

}  // namespace zprop

#endif
