/// Properties files in the manner of the Java platform, as the commands see them.
#ifndef ZFC_TOOLS_ZPROP_JAVA_FILE_H
#define ZFC_TOOLS_ZPROP_JAVA_FILE_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Z/ZJavaProperties.h"
#include "Z/ZJavaPropertiesFile.h"
#include "zprop/open.h"

namespace zprop {

using Encoding = ZJavaPropertiesFile::Encoding;

/// Which file, and what its bytes are.
struct JavaName {
    std::string file;
    Encoding encoding = Encoding::utf8;
};

/// A line that has a fault.
struct FaultyLine {
    unsigned int number;
    std::string text;
    ZJavaPropertiesFile::Fault what;

    [[nodiscard]] std::string reason() const;
};

/// A line that is sound, and passed over by the narrower reader, ZJavaProperties.
struct PassedLine {
    unsigned int number;
    ZJavaProperties::Skipped what;

    [[nodiscard]] char const* reason() const;
};

/// A key and its value in UTF-8.
struct JavaPair {
    std::string key;
    std::string value;
};

/// Loads the file.
void load(ZJavaPropertiesFile& properties, Deadline& deadline);

/// Runs `body`, which reads from the object. When a line of its file stands in the way, the Failure
/// tells why; when it cannot be read at all, of each faulty line, up to some.
void withReasons(ZJavaPropertiesFile const& properties, std::function<void()> const& body);

/// One change of a file; `file` is its name for messages.
using JavaEdit = std::function<void(ZJavaPropertiesFile&, std::string const& file)>;

/// As editFile(): holds the file while `edit` changes it and it is stored. Nothing that such a file
/// holds can be lost, whatever `target.force` says.
void editJavaFile(EditTarget const& target, Encoding encoding, Deadline& deadline,
                  JavaEdit const& edit);

[[nodiscard]] std::vector<FaultyLine> faultsOf(ZJavaPropertiesFile const& properties,
                                               Deadline& deadline);
/// But for comments.
[[nodiscard]] std::vector<PassedLine> passedLinesOf(std::string const& file, Deadline& deadline);
/// The lines of a file, whatever they end with.
[[nodiscard]] std::vector<std::string> linesOf(std::string const& file);
/// In the order of the file.
[[nodiscard]] std::vector<JavaPair> pairsOf(ZJavaPropertiesFile const& properties);
/// Nothing when there is no such key.
[[nodiscard]] std::optional<std::string> valueOf(ZJavaPropertiesFile const& properties,
                                                 ZUTF8String const& key);

/// Text of the local codeset in UTF-8; throws ZToUTF8Exception for what is none.
[[nodiscard]] ZUTF8String inUtf8(std::string const& local);
/// The way back; throws ZFromUTF8Exception for what has no form there.
[[nodiscard]] std::string inLocal(std::string const& utf8);
/// The same to look at: control characters and what has no form there are \u escapes.
[[nodiscard]] std::string inEscapes(std::string const& utf8);
[[nodiscard]] std::string utf8Of(ZUTF8String const& text);
[[nodiscard]] ZUTF8String stringOf(std::string const& bytes);

}  // namespace zprop

#endif
