/// Formatted output into a block of its own. Formats, results and failures are those of
/// Z/zsnprintf.h.
#ifndef Z_ZASPRINTF_H
#define Z_ZASPRINTF_H

#include "Z/ztags.h"

#include <stdarg.h>

#include "Z/zexport.h"

#ifdef __cplusplus
extern "C" {
#endif

/// Formats into a new block, which the caller releases with zasprintf_free(), and stores it in
/// `*result`; null when the call fails. -1 also for a null `result`.
ZFC_API int zasprintf(char** result, char const* format, ...) ZFC_PRINTF(2, 3);
/// As zasprintf(); the caller still ends `list`. -1 also for a null `list`.
ZFC_API int zvasprintf(char** result, char const* format, va_list list) ZFC_PRINTF(2, 0);
/// Releases a block of zasprintf() or zvasprintf(), as `free` does; null is fine.
ZFC_API void zasprintf_free(char* text);

#ifdef __cplusplus
}
#endif

#endif
