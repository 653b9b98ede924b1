// One process, two builds of the library: each works, and neither takes the other's exceptions for
// its own.
#include <cstdio>
#include <cstring>

#include "shim.h"

namespace {

int failures = 0;

void check(bool good, char const* what) {
    if (good) return;
    std::fprintf(stderr, "tags test: %s\n", what);
    ++failures;
}

bool composes(Compose compose) {
    char out[64] = "";
    compose("salt", out, sizeof out);
    return std::strcmp(out, "salt & salt") == 0;
}

}  // namespace

int main() {
    check(composes(first_compose), "the first build's strings fail");
    check(composes(second_compose), "the second build's strings fail");
    check(first_catch(first_throw) == 1, "the first build misses its own exception");
    check(second_catch(second_throw) == 1, "the second build misses its own exception");
    check(first_catch(second_throw) == 2, "the first build takes the second's exception");
    check(second_catch(first_throw) == 2, "the second build takes the first's exception");
    if (failures == 0) std::puts("tags test: passed");
    return failures == 0 ? 0 : 1;
}
