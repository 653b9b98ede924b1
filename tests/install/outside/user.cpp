// A C++ program that knows nothing but the installed headers.
#include <Z/zqcsutil.h>

int main() { return sizeof(ZCodesetHandle) == 4 ? 0 : 1; }
