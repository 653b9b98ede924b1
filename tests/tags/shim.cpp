// Everything a program does with the library that crosses its boundary. Compiled twice, as the
// namespaces `first` and `second`, each against another build.
#include <Z/ZException.h>
#include <Z/ZLCString.h>

#define SHIM_API __attribute__((visibility("default")))

namespace SHIM {

/// Builds, edits and compares a string.
SHIM_API bool composes() {
    ZLCString text("salt");
    text.append(" and ");
    text += "salt";
    text.replace("and", "&");
    return text == "salt & salt";
}

/// Throws the library's own exception.
SHIM_API void raise() { ZInvalidParameterException().throwException("shim", __LINE__); }

/// Calls `thrower` and says whether this side's ZException came.
SHIM_API bool knows(void (*thrower)()) {
    try {
        thrower();
    } catch (ZException const& e) {
        return e.who() != nullptr && e.where() > 0;
    } catch (...) {
    }
    return false;
}

}  // namespace SHIM
