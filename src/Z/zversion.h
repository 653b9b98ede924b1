/// The release of the library, for the preprocessor and at run time, and its functions for other
/// languages. Also for C.
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

/// The C function of this plain name, "zstzPropOpen", which the caller turns into its own type;
/// null for a name that is none, and for null. Any function of the library's C headers is there.
///
/// Languages that load the library themselves ask for `zfcFunction`, without a tag: the shared
/// library has that one symbol besides, so that they need not know the release. It is found by the
/// handle of the library that was loaded; a program that links asks by this declaration, for its
/// own release, however many there are in the process.
ZFC_API void (*zfcFunction(char const* name))(void);

#ifdef __cplusplus
}
#endif

#endif
