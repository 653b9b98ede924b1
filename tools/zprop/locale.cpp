#include "zprop/locale.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include "Z/zqcsutil.h"
#include "zprop/shown.h"

namespace zprop {
namespace {

/// What the library makes of the environment; the status of the process that asks.
enum class Codeset : int { known = 0, unknown = 1, ascii = 2 };

/// The variable that names the locale, in the order of POSIX, where an empty one is not set.
char const* namingVariable() {
    for (char const* const variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        char const* const value = std::getenv(variable);
        if (value != nullptr && *value != '\0') return variable;
    }
    return nullptr;
}

/// In the child, which the library ends when it does not know the codeset.
[[noreturn]] void tryCodeset() {
    rlimit const none{0, 0};  // no core file
    static_cast<void>(setrlimit(RLIMIT_CORE, &none));
    int const nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere < 0 || dup2(nowhere, 1) < 0 || dup2(nowhere, 2) < 0) _exit(1);
    char const* const name = zgetLocalCodesetName();
    if (name == nullptr) _exit(static_cast<int>(Codeset::unknown));
    // A locale that is not installed and names no codeset has this one.
    bool const isAscii = std::strcmp(name, "US-ASCII") == 0;
    _exit(static_cast<int>(isAscii ? Codeset::ascii : Codeset::known));
}

/// Asked in another process, because the library sets its codesets up once and for good.
Codeset codesetOfEnvironment() {
    pid_t const child = fork();
    if (child < 0) return Codeset::known;
    if (child == 0) tryCodeset();
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR)
        continue;
    return WIFEXITED(status) ? static_cast<Codeset>(WEXITSTATUS(status)) : Codeset::unknown;
}

bool isUtf8Locale(std::string const& name) {
    return name.find(".UTF-8") != std::string::npos || name.find(".utf8") != std::string::npos;
}

void useUtf8() {
    setenv("LC_ALL", "C.UTF-8", 1);
    setDisplay(Display::ascii);
}

}  // namespace

void useKnownCodeset() {
    char const* const variable = namingVariable();
    if (variable == nullptr) return useUtf8();
    char const* const value = std::getenv(variable);
    std::string const name = value != nullptr ? value : "C";
    if (name == "C" || name == "POSIX") return useUtf8();
    Codeset const codeset = isUtf8Locale(name) ? Codeset::known : codesetOfEnvironment();
    if (codeset == Codeset::unknown)
        std::cerr << "zprop: warning: " << variable << "=" << shown(name)
                  << " names a codeset that is not known; UTF-8 is used\n";
    if (codeset != Codeset::known) return useUtf8();
    bool const isUtf8 = std::string(zgetLocalCodesetName()).find("UTF") != std::string::npos;
    if (!isUtf8) setDisplay(Display::other);
}

}  // namespace zprop
