/// The helpers of C callers: this header brings the string and character functions, those of
/// Internet addresses and, in C++, ZGetLocale(), beside a hexadecimal dump for diagnostics.
#ifndef Z_ZUTILS_H
#define Z_ZUTILS_H

#include "Z/ztags.h"

#include <stdio.h>

#include "Z/zexport.h"
#include "Z/zinet_ntop.h"
#include "Z/zinet_pton.h"
#include "Z/zqcsutil.h"

#ifdef __cplusplus
#include "Z/ZGetLocale.h"
#endif

#ifdef __cplusplus
extern "C" {
#endif

/// Writes `length` bytes at `data` to `out` (stderr when null), sixteen a line: offset, bytes in
/// hexadecimal, and a text column in which bytes from 32 to 253 stand for themselves and a point
/// for the others. `title`, unless null, is written above; of no bytes (`length` 0 or less, `data`
/// null) only the title and a line feed. Waits for dumps of other threads: all dumps of a process
/// are written one after the other. Throws nothing: when their lock fails that is reported, and
/// nothing is written.
ZFC_API void zhex_dump(FILE* out, int length, unsigned char const* data, char const* title);

#ifdef __cplusplus
}
#endif

#endif
