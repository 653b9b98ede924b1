/* A C program that knows nothing but the installed headers. */
#include <Z/zqcsutil.h>

int main(void) { return sizeof(ZWideChar) == 2 ? 0 : 1; }
