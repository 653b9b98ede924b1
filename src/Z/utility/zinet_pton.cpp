#include "Z/zinet_pton.h"

#include <arpa/inet.h>

int zinet_pton(int af, char const* src, void* dst) {
    return inet_pton(af, src != nullptr ? src : "", dst);
}
