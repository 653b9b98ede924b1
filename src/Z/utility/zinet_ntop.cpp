#include "Z/zinet_ntop.h"

#include <arpa/inet.h>

char const* zinet_ntop(int af, void const* src, char* dst, unsigned int size) {
    return inet_ntop(af, src, dst, size);
}
