#include "Z/zinet_ntop.h"

#include <arpa/inet.h>

const char* zinet_ntop(int af, const void* src, char* dst, unsigned int size) {
    return inet_ntop(af, src, dst, size);
}
