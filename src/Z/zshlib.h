/** The dynamic loader (POSIX dlopen and its siblings) with explicit error numbers; for C and C++.
 */
#ifndef Z_ZSHLIB_H
#define Z_ZSHLIB_H

#include "Z/ztags.h"

#include "Z/zexport.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * `err`, where a function takes it, may be null. It becomes 0 first; on failure it becomes `errno`
 * as the loader left it, which may be 0 or of an earlier failure: the reason is zdlerror()'s text.
 */

/**
 * Loads the library `file` and returns its handle, null on failure. `mode` has the bits of
 * dlopen(), and RTLD_LAZY too when it has neither that nor RTLD_NOW; 0 stands for RTLD_NOW |
 * RTLD_GLOBAL. A null `file` is an error (2, ENOENT).
 */
ZFC_API void* zdlopen(char const* file, int mode, int* err);

/** The address of `symbol` in the library; null on failure, or when one of both is null. */
ZFC_API void* zdlsym(void* handle, char const* symbol, int* err);

/** Gives the handle up. Returns 0, or not 0 on failure. A null handle is an error (2, ENOENT). */
ZFC_API int zdlclose(void* handle, int* err);

/**
 * The loader's text for the latest failure of the calling thread, which is then no longer pending;
 * null when none is pending. The caller frees it with free().
 */
ZFC_API char* zdlerror(void);

#ifdef __cplusplus
}
#endif

#endif
