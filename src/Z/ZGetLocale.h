/// The name of the process's locale.
#ifndef Z_ZGETLOCALE_H
#define Z_ZGETLOCALE_H

#include "Z/ztags.h"

#include "Z/ZAbstractMutableString.h"
#include "Z/zexport.h"

/// Sets `out` to the canonical name of the process's locale, such as "de_DE.UTF-8" (zgetlocale());
/// empty when there is none. Always returns 0.
ZFC_API int ZGetLocale(ZAbstractMutableString& out);

#endif
