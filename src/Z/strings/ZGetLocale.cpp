#include "Z/ZGetLocale.h"

#include "Z/zqcsutil.h"

int ZGetLocale(ZAbstractMutableString& out) {
    out.setChars(zgetlocale());
    return 0;
}
