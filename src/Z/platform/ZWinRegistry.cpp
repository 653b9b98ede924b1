#include "Z/ZWinRegistry.h"

#include "Z/ZException.h"

namespace {
constexpr char sourceName[] = "src/Z/ZWinRegistry";
}

ZWinRegistry::~ZWinRegistry() = default;

bool ZWinRegistry::exists(char const*) {
    zraise(ZInvalidPlatformException(), sourceName, __LINE__);
}

ZLCString ZWinRegistry::getValue(char const*, char const*) {
    zraise(ZInvalidPlatformException(), sourceName, __LINE__);
}
