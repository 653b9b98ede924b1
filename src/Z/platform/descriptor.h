/// Shared. Descriptors with an owner, and how the library opens files.
#ifndef Z_PLATFORM_DESCRIPTOR_H
#define Z_PLATFORM_DESCRIPTOR_H

#include <sys/types.h>

#include <cerrno>
#include <utility>

#include "Z/utility/cancellation_off.h"

namespace zfc::platform {

/// An open descriptor, closed with the object.
class Descriptor {
  public:
    static constexpr int none = -1;

    Descriptor() = default;
    explicit Descriptor(int fd) noexcept : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Descriptor() { close(); }

    [[nodiscard]] bool isOpen() const { return fd_ != none; }
    [[nodiscard]] int get() const { return fd_; }
    /// Hands the descriptor to the caller.
    [[nodiscard]] int release() noexcept { return std::exchange(fd_, none); }
    /// Closes it now, if it is open. Keeps errno.
    void close() noexcept;

  private:
    int fd_ = none;
};

/// Opens as open(2) does, close-on-exec, and never as descriptor 0, 1 or 2: a program that had
/// closed one of those would print into the file. Not open: `errno` says why. No cancellation
/// point.
[[nodiscard]] Descriptor openFile(char const* path, int flags, mode_t mode = 0);

/// Calls `systemCall` until it is not interrupted by a signal, and returns what it returned.
template <class Call>
auto uninterrupted(Call systemCall) {
    auto result = systemCall();
    while (result == -1 && errno == EINTR)
        result = systemCall();
    return result;
}

/// Whether `size` is more than the process may give a file: a write behind that limit is answered
/// with the signal SIGXFSZ, not with a code.
[[nodiscard]] bool exceedsSizeLimit(off_t size);

}  // namespace zfc::platform

#endif
