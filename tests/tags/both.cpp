// One process, two builds of the library: each works, and neither takes the other's exceptions for
// its own.
#include <cstdio>

namespace first {
bool composes();
void raise();
bool knows(void (*thrower)());
}  // namespace first
namespace second {
bool composes();
void raise();
bool knows(void (*thrower)());
}  // namespace second

int main() {
    struct {
        bool holds;
        char const* failure;
    } const checks[] = {
        {first::composes(), "the first build's strings fail"},
        {second::composes(), "the second build's strings fail"},
        {first::knows(first::raise), "the first build misses its own exception"},
        {second::knows(second::raise), "the second build misses its own exception"},
        {!first::knows(second::raise), "the first build takes the second's exception"},
        {!second::knows(first::raise), "the second build takes the first's exception"}};
    int failures = 0;
    for (auto const& check : checks)
        if (!check.holds) std::fprintf(stderr, "tags test: %s\n", check.failure), ++failures;
    return failures;
}
