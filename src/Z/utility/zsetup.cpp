#include "Z/zsetup.h"

#include <dlfcn.h>
#include <link.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>

#include "Z/zfree.h"

namespace {

/// The path without symbolic links; empty when there is no such file.
std::string resolved(char const* path) {
    std::unique_ptr<char, ZFree> const real(realpath(path, nullptr));
    return real != nullptr ? real.get() : "";
}

/// The file that this function was loaded from.
std::string ownFile() {
    Dl_info info{};
    void* found = nullptr;
    auto* const here = reinterpret_cast<void*>(&zfc_setup);
    bool const isKnown = dladdr1(here, &info, &found, RTLD_DL_LINKMAP) != 0 && found != nullptr;
    char const* const name = isKnown ? static_cast<link_map*>(found)->l_name : "";
    // The loader has no name for the program itself, and none at all when all of it is static.
    return resolved(name != nullptr && *name != '\0' ? name : "/proc/self/exe");
}

bool isDirectory(std::string const& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// Empty when there is none.
std::string dataDirectory() {
    std::string const file = ownFile();
    std::string const folder = file.substr(0, file.rfind('/') + 1);
    for (char const* const beside : {ZFC_DATA_FROM_LIBRARY, "zfc-qcs"}) {
        std::string place = resolved((folder + beside).c_str());
        if (!folder.empty() && isDirectory(place)) return place;
    }
    return isDirectory(ZFC_DATA_INSTALLED) ? ZFC_DATA_INSTALLED : "";
}

}  // namespace

int zfc_setup(void) {
    if (getenv("QCSDIR") != nullptr) return 0;
    try {
        std::string const directory = dataDirectory();
        if (directory.empty()) return ENOENT;
        return setenv("QCSDIR", directory.c_str(), 0) == 0 ? 0 : errno;
    } catch (std::exception const&) {
        return ENOMEM;
    }
}
