#include "Z/zshlib.h"

#include <dlfcn.h>

#include <cerrno>
#include <cstring>

namespace {

void setError(int* err, int number) {
    if (err != nullptr) *err = number;
}

/// POSIX wants RTLD_LAZY or RTLD_NOW in every mode.
int fullMode(int mode) {
    if (mode == 0) return RTLD_NOW | RTLD_GLOBAL;
    return (mode & (RTLD_LAZY | RTLD_NOW)) != 0 ? mode : mode | RTLD_LAZY;
}

}  // namespace

void* zdlopen(char const* file, int mode, int* err) {
    setError(err, 0);
    if (file == nullptr) {
        setError(err, ENOENT);
        return nullptr;
    }
    void* const handle = dlopen(file, fullMode(mode));
    // dlopen() promises no errno; what its system calls have left is the best number there is.
    if (handle == nullptr) setError(err, errno);
    return handle;
}

void* zdlsym(void* handle, char const* symbol, int* err) {
    setError(err, 0);
    void* const address = handle != nullptr && symbol != nullptr ? dlsym(handle, symbol) : nullptr;
    if (address == nullptr) setError(err, errno);
    return address;
}

int zdlclose(void* handle, int* err) {
    setError(err, 0);
    if (handle == nullptr) {
        setError(err, ENOENT);
        return -1;
    }
    int const result = dlclose(handle);
    if (result != 0) setError(err, errno);
    return result;
}

char* zdlerror() {
    char const* const text = dlerror();
    // A copy, since the text is the system's and goes with the next call.
    return text != nullptr ? strdup(text) : nullptr;
}
