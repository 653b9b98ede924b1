#include "Z/zfileinherit.h"

#include <fcntl.h>

int zsetfileinheritance(int fd, int inherit) {
    int const descriptorFlags = inherit != 0 ? 0 : FD_CLOEXEC;
    // There is no other descriptor flag that would have to be kept.
    return fcntl(fd, F_SETFD, descriptorFlags) == 0 ? 1 : 0;
}
