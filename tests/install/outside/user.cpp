// A C++ program that knows nothing but the installed headers.
#include <Z/ZException.h>
#include <Z/ZLCString.h>

namespace {

// An exception of the library's, thrown across the boundary and caught here by its base.
bool catchesTheLibrarysExceptions() {
    try {
        ZInvalidParameterException().throwException(__FILE__, __LINE__);
    } catch (ZException const& e) {
        return e.where() > 0;
    }
    return false;
}

}  // namespace

int main() {
    ZLCString text("one");
    text += ", two";
    return text == "one, two" && catchesTheLibrarysExceptions() ? 0 : 1;
}
