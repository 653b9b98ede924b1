/// The difference of two texts.
#ifndef ZFC_TOOLS_ZPROP_READS_DIFFERENCE_H
#define ZFC_TOOLS_ZPROP_READS_DIFFERENCE_H

#include <string>

namespace zprop {

/// The unified difference, with three lines around each change, as `patch` takes it; empty when the
/// texts are equal. The names stand in its head.
[[nodiscard]] std::string difference(std::string const& oldName, std::string const& newName,
                                     std::string const& oldText, std::string const& newText);

}  // namespace zprop

#endif
