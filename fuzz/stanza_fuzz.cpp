// Any bytes as a stanza file: read or refused; and what was read, edited or not, is written as a
// file that reads back as the same stanzas, keys and values and is written as the same bytes.
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "Z/ZException.h"
#include "Z/ZSCFData.h"
#include "fuzz_input.h"

namespace {

using fuzz::expect;

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

/// Stanzas, keys and values in the order of the file.
std::string contentOf(Cache const& cache) {
    std::string content;
    auto const append = [&](char const* text, unsigned int) { (content += text) += '\n'; };
    cache.forEachStanza([&](char const* stanza, unsigned int) {
        content += "stanza ";
        append(stanza, 0);
        cache.forEachKey(stanza, [&](char const* key, unsigned int) {
            content += "key ";
            append(key, 0);
            cache.forEachValue(stanza, key, ZPCache::plainValues, append);
        });
    });
    return content;
}

void checkRoundTrip(Cache& first) {
    std::string once;
    if (!write(first, once) || once.empty()) return;
    Cache second;
    std::string twice;
    expect(read(second, once.substr(0, once.size() - 1)), "what was written is refused");
    expect(contentOf(second) == contentOf(first), "another content comes back");
    expect(write(second, twice) && once == twice, "other bytes are written");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Cache cache;
    // What stood before an invalid line is kept and can be written.
    read(cache, std::string(reinterpret_cast<char const*>(data), size));
    checkRoundTrip(cache);
    edit(cache);
    checkRoundTrip(cache);
    return 0;
}
