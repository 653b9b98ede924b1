/// The codeset data directory of the installed library, for a process that was given none. Also for
/// C and, by its symbol, for other languages.
#ifndef Z_ZSETUP_H
#define Z_ZSETUP_H

#include "Z/ztags.h"

#include "Z/zexport.h"

#ifdef __cplusplus
extern "C" {
#endif

/// Sets the environment variable `QCSDIR` to the codeset data directory that was installed with the
/// library; a variable that is set, be it to an empty text, stays. Looked at are, in this order:
///
/// 1. the place that an installation gives it beside the library's own file (`share/zfc/qcs` beside
///    `lib`), wherever the installed tree was moved to;
/// 2. `zfc-qcs` in the folder of that file, as build trees have it;
/// 3. the place that the library was built to be installed with.
///
/// The file is that of the program when it has the library inside of it (`zfc::static`).
///
/// Returns 0 when the variable is set now. Otherwise nothing is changed: ENOENT, there is no such
/// directory; ENOMEM, memory is exhausted. Throws nothing.
///
/// Called first thing in main(), before there are other threads and before the first string. A
/// program that links `zfc::app` (CMake) or `zfc-app` (pkg-config) has it called before the first
/// object of static storage; no other program does.
ZFC_API int zfc_setup(void);

#ifdef __cplusplus
}
#endif

#endif
