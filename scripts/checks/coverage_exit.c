/* Of the coverage build alone: a process that leaves by _exit() or abort() writes what it counted,
   too. Linked into every program, and with -DIN_LIBRARY into the shared library, whose counts are
   its own. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdlib.h>
#include <sys/resource.h>

typedef void (*Dump)(void);
void __gcov_dump(void);

#ifdef IN_LIBRARY

__attribute__((weak)) extern Dump coverage_of_library;
__attribute__((constructor)) static void announce(void) {
    if (&coverage_of_library != NULL) coverage_of_library = __gcov_dump;
}

#else

__attribute__((visibility("default"))) Dump coverage_of_library;

static void dump(void) {
    struct rlimit limit;  // a test of a full disk leaves no room to write counts in
    if (getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur != RLIM_INFINITY) return;
    if (coverage_of_library != NULL) coverage_of_library();
    __gcov_dump();
}

__attribute__((visibility("default"), noreturn)) void _exit(int status) {
    dump();
    void (*leave)(int) = (void (*)(int))dlsym(RTLD_NEXT, "_exit");
    leave(status);
    __builtin_unreachable();
}

__attribute__((visibility("default"), noreturn)) void abort(void) {
    dump();
    Dump leave = (Dump)dlsym(RTLD_NEXT, "abort");
    leave();
    __builtin_unreachable();
}

#endif
