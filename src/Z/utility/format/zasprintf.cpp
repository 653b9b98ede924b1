#include "Z/zasprintf.h"

#include <cstdlib>

#include "Z/zsnprintf.h"

int zvasprintf(char** result, char const* format, va_list list) {
    return zvsprintf(result, format, list);
}

int zasprintf(char** result, char const* format, ...) {
    va_list list;
    va_start(list, format);
    int const length = zvasprintf(result, format, list);
    va_end(list);
    return length;
}

void zasprintf_free(char* text) { std::free(text); }
