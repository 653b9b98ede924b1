/// The codeset data directory of the tools.
#ifndef ZFC_TOOLS_COMMON_DATADIR_H
#define ZFC_TOOLS_COMMON_DATADIR_H

#include <cstdlib>

namespace tools {

/// Without QCSDIR the library refuses to make strings; a user at the shell never has to know.
/// Called first thing in main().
inline void useInstalledDataDirectory() { setenv("QCSDIR", ZFC_DATA_DIR, 0); }

}  // namespace tools

#endif
