/// The release of the library, for the preprocessor and at run time. Also for C.
#ifndef Z_ZVERSION_H
#define Z_ZVERSION_H

#include "Z/ztags.h"

#include "Z/zexport.h"

/// The release that a program is compiled against: 60101 is 6.1.1.
#define ZFC_VERSION 60101

#ifdef __cplusplus
extern "C" {
#endif

/// The release that the program runs with, as "6.1.1"; a static text. The tag in the names lets it
/// run with no other than it was compiled against.
ZFC_API char const* zfcVersion(void);

#ifdef __cplusplus
}
#endif

#endif
