/// Internet addresses to text.
#ifndef Z_ZINET_NTOP_H
#define Z_ZINET_NTOP_H

#include "Z/ztags.h"

#include "Z/zexport.h"

#ifdef __cplusplus
extern "C" {
#endif

/// POSIX inet_ntop: writes the address `src` (an in_addr or in6_addr, in network byte order) of
/// family `af` into the `size` bytes of `dst` with its NUL. Returns `dst`; null with `errno` ENOSPC
/// when it does not fit, EAFNOSUPPORT for another family. Throws nothing.
ZFC_API char const* zinet_ntop(int af, void const* src, char* dst, unsigned int size);

#ifdef __cplusplus
}
#endif

#endif
