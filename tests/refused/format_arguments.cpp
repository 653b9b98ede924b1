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

// The same under names that are no macros, behind which no header brings macros back.
#define ZFC_WITH_STD
#include "Z/zfc.h"
#ifdef BEHIND
#include "Z/ZThread.h"
#endif

void printPlain(zfc::String& string, char* out, char** result) {
    string.format("%d", ARGUMENT);
    zfc::zsnprintf(out, 9, "%d", ARGUMENT);
    zfc::zsprintf(result, "%d", ARGUMENT);
    zfc::zasprintf(result, "%d", ARGUMENT);
}
