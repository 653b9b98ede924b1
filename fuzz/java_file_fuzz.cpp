// Any bytes as a properties file that is edited as text: what is loaded is stored as the same
// bytes, and edits, taken from the same input, leave all other pairs and read back.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>

#include "Z/ZException.h"
#include "Z/ZJavaPropertiesFile.h"
#include "fuzz_input.h"

namespace {

using Encoding = ZJavaPropertiesFile::Encoding;
using Pairs = std::map<std::string, std::string>;

/// A file in memory, which the library opens by name.
class MemoryFile {
  public:
    MemoryFile() : fd(memfd_create("fuzzed", MFD_CLOEXEC)) {}
    [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(fd); }
    void set(std::string const& bytes) const {
        fuzz::expect(ftruncate(fd, 0) == 0, "a file that cannot be emptied");
        fuzz::expect(
            pwrite(fd, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
            "a file that cannot be written");
    }
    [[nodiscard]] std::string bytes() const {
        std::string text(static_cast<std::size_t>(lseek(fd, 0, SEEK_END)), '\0');
        fuzz::expect(pread(fd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()),
                     "a file that cannot be read");
        return text;
    }

  private:
    int fd;
};

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

void run(fuzz::Input& input, MemoryFile const& file, Encoding encoding) {
    ZJavaPropertiesFile properties(file.path().c_str(), encoding);
    std::string const bytes = file.bytes();
    properties.load();
    properties.store();
    fuzz::expect(file.bytes() == bytes, "bytes that a store has changed");
    Pairs pairs = pairsOf(properties);
    editAll(input, properties, pairs);
    fuzz::expect(pairsOf(properties) == pairs, "pairs that an edit has changed");
    properties.store();
    ZJavaPropertiesFile again(file.path().c_str(), encoding);
    again.load();
    fuzz::expect(pairsOf(again) == pairs, "pairs that do not read back");
}

}  // namespace

/// Edits up to FF FE, and behind that the file; how long the edits are decides on its encoding.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static MemoryFile const file;
    std::string const all(reinterpret_cast<char const*>(data), size);
    std::size_t const end = std::min(all.find("\xFF\xFE"), all.size());
    auto const encoding = end % 2 == 0 ? Encoding::utf8 : Encoding::latin1;
    fuzz::Input input(data, end);
    file.set(all.substr(std::min(end + 2, all.size())));
    Lines lines;
    ZJavaPropertiesFile(file.path().c_str(), encoding).check(lines);
    try {
        run(input, file, encoding);
    } catch (ZPropertiesInvalidDataException&) {
        fuzz::expect(lines.last != 0, "a file that is refused, but has no faulty line");
    }
    return 0;
}
