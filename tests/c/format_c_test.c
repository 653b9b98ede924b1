/* The formatting functions as C calls them. */
#include "Z/zasprintf.h"
#include "Z/zsnprintf.h"

#include <stdio.h>
#include <string.h>

static int failures = 0;

static void expect(int isGood, char const* what) {
    if (isGood) return;
    fprintf(stderr, "failed: %s\n", what);
    ++failures;
}

static void throughLists(char const* format, ...) {
    ZFormatContext ctx;
    char room[16];
    va_list list;
    va_start(list, format);
    expect(zvsnprintf_parse(&ctx, zgetLCSHandle(), format, list) == 0, "parse");
    va_end(list);
    expect(zvsnprintf_render(&ctx, room, 4) == 5 && strcmp(room, "0x2") == 0, "render");
    zvsnprintf_done(&ctx);
    va_start(list, format);
    expect(zvsnprintf(room, 16, format, list) == 5 && strcmp(room, "0x2a!") == 0, "zvsnprintf");
    va_end(list);
}

int main(void) {
    const ZWideChar wide[] = {0x20AC, 'x', 0};
    char room[32];
    char* text = NULL;
    expect(zsnprintf(room, (int)sizeof(room), "%S|%5.1f|%d", wide, 2.25, -3) == 13, "zsnprintf");
    expect(strcmp(room, "\xE2\x82\xACx|  2.2|-3") == 0, "text of zsnprintf");
    expect(zasprintf(&text, "%2$s %1$s", "a", "b") == 3 && strcmp(text, "b a") == 0, "zasprintf");
    zasprintf_free(text);
    throughLists("%#x!", 42U);
    return failures;
}
