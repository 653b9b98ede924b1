/* The formatting functions as C calls them. */
#include "Z/zasprintf.h"
#include "Z/zsnprintf.h"

#include <stdio.h>
#include <string.h>

static int failures = 0;

static void expect(int isGood, const char* what) {
    if (isGood) return;
    fprintf(stderr, "failed: %s\n", what);
    ++failures;
}

static int throughList(char* out, int size, const char* format, ...) {
    va_list list;
    int length;
    va_start(list, format);
    length = zvsnprintf(out, size, format, list);
    va_end(list);
    return length;
}

static void testContext(const char* format, ...) {
    ZFormatContext ctx;
    char room[16];
    va_list list;
    va_start(list, format);
    expect(zvsnprintf_parse(&ctx, zgetLCSHandle(), format, list) == 0, "parse");
    va_end(list);
    expect(zvsnprintf_render(&ctx, NULL, 0) == 5, "measure");
    expect(zvsnprintf_render(&ctx, room, (int)sizeof(room)) == 5, "write");
    expect(strcmp(room, "0x2a!") == 0, "rendered text");
    zvsnprintf_done(&ctx);
}

int main(void) {
    const ZWideChar wide[] = {0x20AC, 'x', 0};
    char room[32];
    char* text = NULL;
    expect(zsnprintf(room, (int)sizeof(room), "%S|%5.1f|%d", wide, 2.25, -3) == 13, "zsnprintf");
    expect(strcmp(room, "\xE2\x82\xACx|  2.2|-3") == 0, "text of zsnprintf");
    expect(throughList(room, 4, "%s", "abcdef") == 6, "zvsnprintf");
    expect(strcmp(room, "abc") == 0, "text of zvsnprintf");
    expect(zasprintf(&text, "%2$s %1$s", "a", "b") == 3, "zasprintf");
    expect(text != NULL && strcmp(text, "b a") == 0, "text of zasprintf");
    zasprintf_free(text);
    expect(zasprintf(&text, "%n") == -1 && text == NULL, "failing zasprintf");
    testContext("%#x!", 42U);
    return failures;
}
