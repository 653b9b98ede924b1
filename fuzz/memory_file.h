/// A file in memory, which the library opens by name.
#ifndef ZFC_FUZZ_MEMORY_FILE_H
#define ZFC_FUZZ_MEMORY_FILE_H

#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "fuzz_input.h"

namespace fuzz {

class MemoryFile {
  public:
    MemoryFile() : fd(memfd_create("fuzzed", MFD_CLOEXEC)) {}
    [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(fd); }
    void set(std::string const& bytes) const {
        expect(ftruncate(fd, 0) == 0, "a file that cannot be emptied");
        expect(pwrite(fd, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
               "a file that cannot be written");
    }
    [[nodiscard]] std::string bytes() const {
        std::string text(static_cast<std::size_t>(lseek(fd, 0, SEEK_END)), '\0');
        expect(pread(fd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()),
               "a file that cannot be read");
        return text;
    }
    /// Becomes the file of this descriptor, to be read from its beginning.
    void stand(int standardFd) const {
        expect(lseek(fd, 0, SEEK_SET) == 0 && dup2(fd, standardFd) == standardFd,
               "a descriptor that cannot be had");
    }

  private:
    int fd;
};

}  // namespace fuzz

#endif
