// Any bytes as a properties file in the manner of the Java platform: read, stored and read again.
// When the writer can keep every pair, the second reading gives the same and is stored as the same
// bytes.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "Z/ZException.h"
#include "Z/ZJavaProperties.h"

namespace {

/// A file in memory, which the library opens by name.
class MemoryFile {
  public:
    MemoryFile() : fd(memfd_create("fuzzed", MFD_CLOEXEC)), path(pathOf(fd)) {}
    [[nodiscard]] char const* name() const { return path.c_str(); }
    void set(std::uint8_t const* bytes, std::size_t size) const {
        if (ftruncate(fd, 0) != 0 || pwrite(fd, bytes, size, 0) != static_cast<ssize_t>(size))
            std::abort();
    }
    [[nodiscard]] std::string bytes() const {
        std::string text(static_cast<std::size_t>(lseek(fd, 0, SEEK_END)), '\0');
        if (pread(fd, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()))
            std::abort();
        return text;
    }

  private:
    static std::string pathOf(int of) { return "/proc/self/fd/" + std::to_string(of); }

    int fd;
    std::string path;
};

/// Counts what the reader tells.
struct Lines : ZJavaProperties::SkippedLines {
    void skipped(unsigned int line, ZJavaProperties::Skipped) override {
        if (line < last) std::abort();
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
    properties.store(file.name());
    return file.bytes();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static MemoryFile const file;
    file.set(data, size);
    ZJavaProperties first;
    Lines lines;
    first.read(file.name(), &lines);
    ZJavaProperties searching;
    if (searching.load(file.name(), "a") != 1) std::abort();

    bool const isKept = isAllStorable(first);
    std::string const once = stored(first, file);
    ZJavaProperties second;
    second.read(file.name(), nullptr);
    if (isKept && stored(second, file) != once) std::abort();
    return 0;
}
