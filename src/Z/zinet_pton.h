/// Internet addresses from text.
#ifndef Z_ZINET_PTON_H
#define Z_ZINET_PTON_H

#include "Z/ztags.h"

#include "Z/zexport.h"

#ifdef __cplusplus
extern "C" {
#endif

/// POSIX inet_pton: reads the address `src` of family `af` (AF_INET, AF_INET6) into `dst`, which
/// has room for an in_addr (in6_addr), in network byte order. 1 on success, 0 when `src` is no
/// address of the family or null, -1 with `errno` EAFNOSUPPORT for another family. Throws nothing.
ZFC_API int zinet_pton(int af, char const* src, void* dst);

#ifdef __cplusplus
}
#endif

#endif
