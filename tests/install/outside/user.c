/* A C program that knows nothing but the installed headers. */
#include <Z/zsnprintf.h>
#include <string.h>

int main(void) {
    char text[32];
    int length = zsnprintf(text, sizeof text, "%2$s %1$03d", 7, "agent");
    return length == 9 && strcmp(text, "agent 007") == 0 ? 0 : 1;
}
