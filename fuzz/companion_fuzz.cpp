// Any bytes as a companion file, and as the content of one: read or refused, never half; and what
// was read is written as a file that reads back as the same.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "Z/ZBuffer.h"
#include "Z/ZException.h"
#include "Z/ZSCFData.h"
#include "Z/ZSqueeze.h"

namespace {

bool read(ZSCFData& cache, ZBuffer& bytes) {
    try {
        cache.be_read_obfuscated(bytes);
        return true;
    } catch (ZPropertiesInvalidDataException const&) {
        if (cache.count() != 0) std::abort();
        return false;
    }
}

void check(ZBuffer& bytes) {
    ZSCFData first;
    if (!read(first, bytes)) return;
    ZBuffer once;
    first.be_write_obfuscated(once);
    if (first.obfuscatedCount() == 0) return;
    ZSCFData second;
    ZBuffer twice;
    if (!read(second, once)) std::abort();
    second.be_write_obfuscated(twice);
    if (once != twice) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string content(reinterpret_cast<char const*>(data), size);
    ZBuffer raw(static_cast<unsigned long>(size), content.data());
    check(raw);
    ZBuffer squeezed;
    squeezed.setLength(static_cast<unsigned long>(size + size / 100 + 64));
    unsigned long length = squeezed.getLength();
    if (ZSqueeze().compress(static_cast<unsigned char*>(squeezed.getBuffer()), &length, data,
                            static_cast<unsigned long>(size)) != 0)
        std::abort();
    squeezed.setLength(length);
    check(squeezed);
    return 0;
}
