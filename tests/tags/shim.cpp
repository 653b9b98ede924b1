#include "shim.h"

#include <Z/ZException.h>
#include <Z/ZLCString.h>

#include <cstdio>

#define JOIN_(a, b) a##b
#define JOIN(a, b) JOIN_(a, b)
#define SHIM_API extern "C" __attribute__((visibility("default")))

SHIM_API void JOIN(SHIM, _compose)(char const* word, char* out, unsigned int size) {
    ZLCString text(word);
    text.append(" and ");
    text += word;
    text.replace("and", "&");
    std::snprintf(out, size, "%s", text.getChars());
}

SHIM_API void JOIN(SHIM, _throw)() {
    ZInvalidParameterException().throwException("shim", __LINE__);
}

SHIM_API int JOIN(SHIM, _catch)(Throw thrower) {
    try {
        thrower();
    } catch (ZException const& e) {
        return e.who() != nullptr && e.where() > 0 ? 1 : 0;
    } catch (...) {
        return 2;
    }
    return 0;
}
