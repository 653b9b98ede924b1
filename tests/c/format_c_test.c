/* The formatting functions as C calls them, with the data directory of the tree, which the library
 * finds by itself; the exit status tells which one failed. */
#define ZFC_NO_FORMAT_CHECK /* wide text */
#include "Z/zasprintf.h"
#include "Z/zsetup.h"
#include "Z/zsnprintf.h"

#include <stdlib.h>
#include <string.h>

int main(void) {
    const ZWideChar wide[] = {0x20AC, 'x', 0};
    char room[32];
    char* text = NULL;
    char* const given = strdup(getenv("QCSDIR"));
    unsetenv("QCSDIR");
    if (zfc_setup() != 0 || strcmp(getenv("QCSDIR"), given) != 0) return 4;
    free(given);
    if (zsnprintf(room, 32, "%S|%5.1f|%d", wide, 2.25, -3) != 13) return 1;
    if (strcmp(room, "\xE2\x82\xACx|  2.2|-3") != 0) return 2;
    if (zasprintf(&text, "%2$s %1$s", "a", "b") != 3 || strcmp(text, "b a") != 0) return 3;
    zasprintf_free(text);
    return 0;
}
