/// How the tool gets its memory from the system: pages that are touched one by one are half of what
/// a large file costs.
#ifndef ZFC_TOOLS_ZPROP_MEMORY_H
#define ZFC_TOOLS_ZPROP_MEMORY_H

#include <cstddef>
#include <string>

namespace zprop {

/// What is freed serves the next step; to give it back and to get it again, page by page, would
/// take longer than to use it.
void keepFreedMemory();

/// Takes memory at once that a step is going to use which needs `times` the bytes of a file; none
/// where there is too little to gain, or none to be had.
void takeMemoryFor(std::string const& file, std::size_t times);

}  // namespace zprop

#endif
