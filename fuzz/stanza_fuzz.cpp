// Any bytes as a stanza file: read or refused; and what was read is written as a file that reads
// back as the same and is written as the same bytes.
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "Z/ZException.h"
#include "Z/ZSCFData.h"

namespace {

struct CloseFile {
    void operator()(FILE* stream) const { std::fclose(stream); }
};
using Stream = std::unique_ptr<FILE, CloseFile>;

struct Cache : ZSCFData {
    Cache() { setAttributes(keepComments, nullptr); }
};

bool read(ZSCFData& cache, std::string bytes) {
    bytes.push_back('\n');  // no stream is made over nothing
    Stream const stream(fmemopen(bytes.data(), bytes.size(), "rb"));
    try {
        cache.be_read("input", stream.get());
        return true;
    } catch (ZPropertiesInvalidDataException const&) {
        return false;
    }
}

/// False when a line is too long to be written.
bool write(ZSCFData& cache, std::string& bytes) {
    char* text = nullptr;
    std::size_t length = 0;
    Stream stream(open_memstream(&text, &length));
    bool written = true;
    try {
        cache.be_write("output", stream.get());
    } catch (ZPropertiesInvalidDataException const&) {
        written = false;
    }
    stream.reset();
    bytes.assign(text, length);
    std::free(text);
    return written;
}

/// Sets a new value for each key, beside whatever templates the file has.
void edit(ZSCFData& cache) {
    std::string text;
    cache.forEachStanza([&](char const* name, unsigned int) { text = name; });
    if (!ZPCategoryBasedCache::isStorableStanza(text.c_str())) return;
    for (char const* const key : {"a", "b", "port"}) {
        cache.addLine(text.c_str(), key, "1", 0);
        cache.addLineComment(text.c_str(), key, "#port=2");
        cache.addValue(text.c_str(), key, "3", 0);
    }
    cache.remove(text.c_str(), "b");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Cache first;
    // What stood before an invalid line is kept and can be written.
    read(first, std::string(reinterpret_cast<char const*>(data), size));
    std::string once;
    edit(first);
    if (!write(first, once)) return 0;
    Cache second;
    std::string twice;
    if (!read(second, once.substr(0, once.empty() ? 0 : once.size() - 1))) std::abort();
    if (once.empty()) return 0;
    if (!write(second, twice) || once != twice) std::abort();
    return 0;
}
