// Any bytes as a properties file that is edited as text: what is loaded is stored as the same
// bytes, and edits, taken from the same input, leave all other pairs and read back. Where the map
// of pairs with its narrower reader knows every line, it has the same pairs.
#include <algorithm>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "Z/ZException.h"
#include "Z/ZJavaProperties.h"
#include "Z/ZJavaPropertiesFile.h"
#include "memory_file.h"

namespace {

using Encoding = ZJavaPropertiesFile::Encoding;
using fuzz::MemoryFile;
using Pairs = std::map<std::string, std::string>;

ZUTF8String stringOf(std::string const& bytes) {
    ZUTF8String text;
    for (char const c : bytes)
        text.append(c);
    return text;
}

std::string bytesOf(ZUTF8String const& text) { return {text.getChars(), text.getLength()}; }

Pairs pairsOf(ZJavaPropertiesFile const& properties) {
    Pairs pairs;
    auto const keys = properties.getKeys();
    for (unsigned int i = 0; i < keys->size(); ++i) {
        auto const& key = static_cast<ZUTF8String const&>(*keys->get(i));
        ZUTF8String value;
        properties.getValue(key, value);
        pairs[bytesOf(key)] = bytesOf(value);
    }
    return pairs;
}

/// Counts what is told.
struct Lines : ZJavaPropertiesFile::FaultyLines {
    void faulty(unsigned int line, char const*, ZJavaPropertiesFile::Fault) override {
        fuzz::expect(line > last, "lines out of order");
        last = line;
    }
    unsigned int last = 0;
};

void edit(fuzz::Input& input, ZJavaPropertiesFile& properties, Pairs& pairs) {
    std::string const key = input.text();
    std::string const text = input.text();
    switch (input.below(4)) {
        case 0:
            fuzz::expect(properties.deleteKey(stringOf(key)) == (pairs.erase(key) != 0),
                         "a key that cannot be deleted");
            return;
        case 1:
            properties.addComment(stringOf(text));
            return;
        case 2:
            properties.addComment(stringOf(key), stringOf(text));
            return;
        default:
            properties.setValue(stringOf(key), stringOf(text));
            pairs[key] = text;
    }
}

void editAll(fuzz::Input& input, ZJavaPropertiesFile& properties, Pairs& pairs) {
    while (!input.isAtEnd()) {
        try {
            edit(input, properties, pairs);
        } catch (ZToUTF8Exception&) {
            continue;
        } catch (ZInvalidParameterException&) {
            continue;
        }
    }
    if (input.below(2) == 1) properties.rewrite(1);
}

/// Whether the two readers pass something over.
struct Skipped : ZJavaProperties::SkippedLines {
    void skipped(unsigned int, ZJavaProperties::Skipped what) override {
        isPair = isPair || what != ZJavaProperties::Skipped::comment;
    }
    bool isPair = false;
};

/// Whether the narrower reader takes what it knows in the file as the wider one does.
bool isReadAlike(std::string const& bytes) {
    auto const has = [&](char const* text) { return bytes.find(text) != std::string::npos; };
    // Blanks, line ends and escapes of another meaning; halves of surrogate pairs; a NUL.
    for (char const* const text : {"\v", "\n\r", "\\U", "\\ud", "\\uD", "\\u0000"})
        if (has(text)) return false;
    if (bytes.find('\0') != std::string::npos) return false;
    bool isContinued = false;
    for (std::size_t start = 0; start < bytes.size();) {
        std::size_t const end = std::min(bytes.find_first_of("\r\n", start), bytes.size());
        std::size_t const first = std::min(bytes.find_first_not_of(" \t\f", start), end);
        // At the start of a line these are of the key; where a line continues they may separate.
        bool const isMark =
            first < end && std::string_view(":=\\").find(bytes[first]) != std::string_view::npos;
        if (isMark && (first == start || isContinued)) return false;
        isContinued = end > start && bytes[end - 1] == '\\';
        start = end + 1;
        if (end + 1 < bytes.size() && bytes[end] == '\r' && bytes[end + 1] == '\n') ++start;
    }
    return true;
}

/// What the map of pairs reads of the file.
void checkMap(MemoryFile const& file, Pairs const& pairs) {
    if (!isReadAlike(file.bytes())) return;
    ZJavaProperties map;
    Skipped skipped;
    map.read(file.path().c_str(), &skipped);
    if (skipped.isPair) return;
    Pairs read;
    ZArrayList keys(1, 0);
    map.listKeys(keys);
    for (unsigned int i = 0; i < keys.size(); ++i) {
        auto const& key = static_cast<ZUTF8String const&>(*keys.get(i));
        ZUTF8String value;
        map.getValue(key, value);
        read[bytesOf(key)] = bytesOf(value);
    }
    fuzz::expect(read == pairs, "other pairs in the map");
}

void run(fuzz::Input& input, MemoryFile const& file, Encoding encoding) {
    ZJavaPropertiesFile properties(file.path().c_str(), encoding);
    std::string const bytes = file.bytes();
    properties.load();
    properties.store();
    fuzz::expect(file.bytes() == bytes, "bytes that a store has changed");
    Pairs pairs = pairsOf(properties);
    if (encoding == Encoding::utf8) checkMap(file, pairs);
    editAll(input, properties, pairs);
    fuzz::expect(pairsOf(properties) == pairs, "pairs that an edit has changed");
    properties.store();
    ZJavaPropertiesFile again(file.path().c_str(), encoding);
    again.load();
    fuzz::expect(pairsOf(again) == pairs, "pairs that do not read back");
    if (encoding == Encoding::utf8) checkMap(file, pairs);
}

}  // namespace

/// Edits up to FF FE, and behind that the file; how long the edits are decides on its encoding.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static MemoryFile const file;
    auto const [edits, bytes] = fuzz::partsOf(data, size);
    auto const encoding = edits % 2 == 0 ? Encoding::utf8 : Encoding::latin1;
    fuzz::Input input(data, edits);
    file.set(bytes);
    Lines lines;
    ZJavaPropertiesFile(file.path().c_str(), encoding).check(lines);
    try {
        run(input, file, encoding);
    } catch (ZPropertiesInvalidDataException&) {
        fuzz::expect(lines.last != 0, "a file that is refused, but has no faulty line");
    }
    return 0;
}
