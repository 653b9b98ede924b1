/// The parts of a lock file.
#ifndef Z_PROCESS_LOCKS_LOCK_FILE_H
#define Z_PROCESS_LOCKS_LOCK_FILE_H

#include <unistd.h>

#include <cstddef>
#include <cstring>

#include "Z/platform/record_lock.h"
#include "Z/utility/cancellation_off.h"

namespace zfc::process_locks {

constexpr platform::LockRange dataRange{0, 4};  // the number; readers and writers compete here
constexpr platform::LockRange gateRange{4, 4};  // the pid; and queue here first

constexpr char filePrefix[] = "._zpl";

/// The file's number and pid as one look found them when the gate was taken. Whoever has the gate,
/// or the data after it, knows that nobody else writes them, so a request need not look again; it
/// takes the number from here once, and whoever asks later is told what the file has then.
class FileWords {
  public:
    /// Looks at the file. No cancellation point.
    void read(int fd) noexcept {
        ZCancellationOff const whileGateIsHeld;
        isKnown = pread(fd, bytes, sizeof bytes, 0) == static_cast<ssize_t>(sizeof bytes);
    }
    void forget() noexcept { isKnown = false; }
    /// Whether the file is known to have these bytes.
    [[nodiscard]] bool have(void const* wanted, std::size_t offset, std::size_t length) const {
        return reaches(offset, length) && std::memcmp(bytes + offset, wanted, length) == 0;
    }
    /// Puts these bytes of the file into the buffer and forgets them; false when they are not
    /// known.
    [[nodiscard]] bool give(void* buffer, std::size_t offset, std::size_t length) {
        if (!reaches(offset, length)) return false;
        std::memcpy(buffer, bytes + offset, length);
        forget();
        return true;
    }

  private:
    [[nodiscard]] bool reaches(std::size_t offset, std::size_t length) const {
        return isKnown && offset <= sizeof bytes && length <= sizeof bytes - offset;
    }

    char bytes[dataRange.length + gateRange.length] = {};
    bool isKnown = false;
};

}  // namespace zfc::process_locks

#endif
