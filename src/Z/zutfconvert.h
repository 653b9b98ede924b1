/// Conversion of UTF-16 to UTF-8 by buffers.
#ifndef Z_ZUTFCONVERT_H
#define Z_ZUTFCONVERT_H

#include "Z/ztags.h"

#include "Z/zexport.h"

#ifdef __cplusplus
extern "C" {
#endif

/// Converts UTF-16 (host byte order) from `*src` up to `srcEnd` into UTF-8 at `*dst` up to
/// `dstEnd`, moving both pointers behind what was converted. Surrogate pairs are joined; a lone
/// surrogate is written as if it were a character, in three bytes. Never waits, throws nothing.
/// Returns 0 when all was converted, 2 when the next character does not fit: both pointers then
/// stand at it, and a further call with more room goes on from there.
ZFC_API int zconvert_UTF16_to_UTF8(unsigned short const** src, unsigned short const* srcEnd,
                                   unsigned char** dst, unsigned char* dstEnd);

#ifdef __cplusplus
}
#endif

#endif
