/** Whether a file descriptor survives exec; for C and C++. */
#ifndef Z_ZFILEINHERIT_H
#define Z_ZFILEINHERIT_H

#include "Z/ztags.h"

#include "Z/zexport.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Lets the programs that this process executes inherit `fd` (`inherit` not 0), or closes it on exec
 * (`inherit` 0). Returns 1, or 0 when it fails (POSIX fcntl, F_SETFD), with `errno` set.
 */
ZFC_API int zsetfileinheritance(int fd, int inherit);

#ifdef __cplusplus
}
#endif

#endif
