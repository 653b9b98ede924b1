// One process, two builds of the library: each works, and neither takes the other's exceptions for
// its own. Compiled against each build as a library, SIDE its namespace, and without SIDE as the
// program that uses both.
#ifdef SIDE
#include <Z/ZException.h>
#include <Z/ZLCString.h>
#include <Z/zversion.h>
#include <dlfcn.h>

#define VISIBLE __attribute__((visibility("default")))

namespace SIDE {

VISIBLE bool composes() {
    ZLCString text("salt and ");
    text += "salt";
    text.replace("and", "&");
    return text == "salt & salt";
}

VISIBLE void raise() { ZInvalidParameterException().throwException("both", __LINE__); }

/// Whether this side's ZException comes.
VISIBLE bool knows(void (*thrower)()) {
    try {
        thrower();
    } catch (ZException const& e) {
        return e.who() != nullptr && e.where() > 0;
    } catch (...) {
    }
    return false;
}

/// Whether the functions by name are this side's: asked as a program does, and as a language does
/// that has loaded the library by its file.
VISIBLE bool findsItsOwn() {
    using Function = void (*)();
    using Find = Function (*)(char const*);
    auto const own = reinterpret_cast<Function>(&zfcVersion);
    Dl_info file{};
    if (dladdr(reinterpret_cast<void*>(own), &file) == 0) return false;
    void* const library = dlopen(file.dli_fname, RTLD_NOW | RTLD_NOLOAD);
    auto const find = reinterpret_cast<Find>(dlsym(library, "zfcFunction"));
    return find != nullptr && find("zfcVersion") == own && zfcFunction("zfcVersion") == own;
}

}  // namespace SIDE
#else
#include <cstdio>

#define DECLARE(side)              \
    namespace side {               \
    bool composes();               \
    void raise();                  \
    bool knows(void (*thrower)()); \
    bool findsItsOwn();            \
    }
DECLARE(first)
DECLARE(second)

int main() {
    bool const holds[] = {first::composes(),
                          second::composes(),
                          first::findsItsOwn(),
                          second::findsItsOwn(),
                          first::knows(first::raise),
                          second::knows(second::raise),
                          !first::knows(second::raise),
                          !second::knows(first::raise)};
    int failures = 0;
    for (bool const& each : holds)
        if (!each)
            std::fprintf(stderr, "tags test: expectation %td fails\n", &each - holds), ++failures;
    return failures;
}
#endif
