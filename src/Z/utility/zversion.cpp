#include "Z/zversion.h"

#include <string_view>

namespace {

/// "6.1.1" as 60101.
constexpr int numberOf(std::string_view version) {
    int number = 0;
    int part = 0;
    for (char const c : version) {
        if (c == '.') {
            number = number * 100 + part;
            part = 0;
        } else {
            part = part * 10 + (c - '0');
        }
    }
    return number * 100 + part;
}
static_assert(numberOf(ZFC_PROJECT_VERSION) == ZFC_VERSION, "the header has the build's release");

}  // namespace

char const* zfcVersion(void) { return ZFC_PROJECT_VERSION; }
