/// Which of the two file formats a file is in.
#ifndef ZFC_TOOLS_ZPROP_FORMAT_H
#define ZFC_TOOLS_ZPROP_FORMAT_H

#include <optional>
#include <string>

namespace zprop {

enum class Format { stanza, java };

/// The format given, else the one that the file's name says: ".properties" or any other ending.
[[nodiscard]] inline Format formatOf(std::string const& file, std::optional<Format> given) {
    constexpr char ending[] = ".properties";
    constexpr std::size_t length = sizeof ending - 1;
    if (given) return *given;
    bool const isJava =
        file.size() > length && file.compare(file.size() - length, length, ending) == 0;
    return isJava ? Format::java : Format::stanza;
}

}  // namespace zprop

#endif
