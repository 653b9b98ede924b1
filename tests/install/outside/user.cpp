// A C++ program that knows nothing but the installed headers.
#include <Z/ZException.h>
#include <Z/ZLCString.h>

int main() {
    ZLCString text("one");
    text += ", two";
    try {  // an exception of the library's, thrown across the boundary and caught by its base
        ZInvalidParameterException().throwException(__FILE__, __LINE__);
    } catch (ZException const& e) {
        return text == "one, two" && e.where() > 0 ? 0 : 1;
    }
}
