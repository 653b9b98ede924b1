// Arguments that a format does not take.
#include "Z/ZLCString.h"
#include "Z/zasprintf.h"
#include "Z/zsnprintf.h"

void print(ZLCString& string, char* out, char** result) {
    string.format("%d", ARGUMENT);
    zsnprintf(out, 9, "%d", ARGUMENT);
    zsprintf(result, "%d", ARGUMENT);
    zasprintf(result, "%d", ARGUMENT);
}
