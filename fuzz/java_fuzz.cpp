// Any bytes as a properties file in the manner of the Java platform: read, stored and read again.
// When the writer can keep every pair, the second reading gives the same and is stored as the same
// bytes, and the editor of such files reads the same pairs there.
#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "Z/ZException.h"
#include "Z/ZJavaProperties.h"
#include "Z/ZJavaPropertiesFile.h"
#include "memory_file.h"

namespace {

using fuzz::expect;
using fuzz::MemoryFile;

/// Counts what the reader tells.
struct Lines : ZJavaProperties::SkippedLines {
    void skipped(unsigned int line, ZJavaProperties::Skipped) override {
        expect(line >= last, "lines out of order");
        last = line;
    }
    unsigned int last = 1;
};

bool isAllStorable(ZJavaProperties const& properties) {
    ZArrayList keys(1, 0);
    properties.listKeys(keys);
    for (unsigned int i = 0; i < keys.size(); ++i) {
        auto const& key = static_cast<ZUTF8String const&>(*keys.get(i));
        ZUTF8String value;
        properties.getValue(key, value);
        if (!ZJavaProperties::isStorable(key, value)) return false;
    }
    return true;
}

std::string stored(ZJavaProperties const& properties, MemoryFile const& file) {
    properties.store(file.path().c_str());
    return file.bytes();
}

/// A key that is written as it is.
bool isSimple(ZUTF8String const& key) {
    std::string const text(key.getChars(), key.getLength());
    auto const isPlain = [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
               c == '.' || c == '-' || c == '_';
    };
    return std::all_of(text.begin(), text.end(), isPlain);
}

/// The editor's value of each simple key.
void checkEditor(ZJavaProperties const& properties, MemoryFile const& file) {
    ZArrayList keys(1, 0);
    properties.listKeys(keys);
    ZJavaPropertiesFile editor(file.path().c_str());
    for (unsigned int i = 0; i < keys.size(); ++i)
        if (!isSimple(static_cast<ZUTF8String const&>(*keys.get(i)))) return;
    editor.load();
    for (unsigned int i = 0; i < keys.size(); ++i) {
        auto const& key = static_cast<ZUTF8String const&>(*keys.get(i));
        ZUTF8String value;
        properties.getValue(key, value);
        // Each half of a surrogate pair is a value here, and none for the editor.
        std::string_view const bytes(value.getChars(), value.getLength());
        if (bytes.find('\xED') != std::string_view::npos) continue;
        ZUTF8String theirs;
        editor.getValue(key, theirs);
        expect(value == theirs, "another value for the editor");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static MemoryFile const file;
    file.set(std::string(reinterpret_cast<char const*>(data), size));
    ZJavaProperties first;
    Lines lines;
    first.read(file.path().c_str(), &lines);
    ZJavaProperties searching;
    expect(searching.load(file.path().c_str(), "a") == 1, "a search that fails");

    bool const isKept = isAllStorable(first);
    std::string const once = stored(first, file);
    ZJavaProperties second;
    second.read(file.path().c_str(), nullptr);
    if (!isKept) return 0;
    checkEditor(second, file);
    expect(stored(second, file) == once, "other bytes are stored");
    return 0;
}
