/// Shared. The files of a properties object: checked, opened, locked, and rewritten so that a
/// failure loses nothing. Failures are ZPropertiesIOException (message 43) with the file's name as
/// it was given, the operation and its errno.
#ifndef Z_PLATFORM_LOCKED_FILE_H
#define Z_PLATFORM_LOCKED_FILE_H

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>

#include "Z/platform/descriptor.h"

namespace zfc::platform {

/// What identifies a file whatever its name.
struct Identity {
    unsigned long long device = 0;
    unsigned long long inode = 0;  // 0: no file

    friend bool operator==(Identity const& a, Identity const& b) {
        return a.device == b.device && a.inode == b.inode;
    }
};

struct Status {
    Identity identity;
    unsigned long long size = 0;
    mode_t mode = 0;         // type and permissions
    unsigned int links = 0;  // names of the file
    uid_t owner = 0;
    gid_t group = 0;
    long modified = 0;  // whole seconds; the low bits where `long` cannot hold them
    unsigned int modifiedNanoseconds = 0;  // beside them
    /// Whether every later change will show by the modification time: not when the file changed so
    /// shortly before it was examined that the clock of its file system has not moved since.
    bool isSettled = false;

    [[nodiscard]] bool isRegular() const { return S_ISREG(mode); }
};

/// Examines the file. Nothing, with errno, when that is not possible.
[[nodiscard]] std::optional<Status> statusOf(char const* path);
[[nodiscard]] std::optional<Status> statusOf(int fd);
/// The same of what has the name itself, be it a link.
[[nodiscard]] std::optional<Status> statusOfName(char const* path);

/// Whether the name is taken by anything but a regular file, a link among them.
[[nodiscard]] bool isLinkOrSpecial(char const* path);

/// An existing file must be readable and writable, else the directory of a new one must be:
/// "access()" with the path that is not.
void checkFileAccess(char const* path);

enum class Purpose { load, store };

/// How long a lock is waited for, from now on.
class Patience {
  public:
    explicit Patience(unsigned int milliseconds)
        : end(Clock::now() + std::chrono::milliseconds(milliseconds)) {}
    /// Pauses for a moment; false, and no pause, when the time is up.
    [[nodiscard]] bool pause();

  private:
    using Clock = std::chrono::steady_clock;

    Clock::time_point end;
};

/// A regular file, open and locked whole: shared to load it, exclusive to store it. A store creates
/// a missing file, empty; nothing is ever cut off by opening. The path is used until the end.
class LockedFile {
  public:
    /// Opens the file ("fopen(r)" or "fopen(r+)") and locks it ("fcntl()"). Never waits.
    LockedFile(char const* filePath, Purpose purpose)
        : LockedFile(filePath, purpose, purpose == Purpose::load ? "fopen(r)" : "fopen(r+)") {}
    /// What a failure to open is called is said with `api`.
    LockedFile(char const* filePath, Purpose purpose, char const* api)
        : LockedFile(filePath, purpose, api, nullptr) {}
    /// To store it. A lock that is taken is tried for again as long as `patience` lasts.
    LockedFile(char const* filePath, Patience& patience)
        : LockedFile(filePath, Purpose::store, "fopen(r+)", &patience) {}
    /// The same for any purpose.
    LockedFile(char const* filePath, Purpose purpose, Patience& patience)
        : LockedFile(filePath, purpose, purpose == Purpose::load ? "fopen(r)" : "fopen(r+)",
                     &patience) {}
    /// Removes a file that was created here and is still empty, unless keep() was called. One that
    /// could not be locked stays: another process may be about to write it.
    ~LockedFile();
    LockedFile(LockedFile const&) = delete;
    LockedFile& operator=(LockedFile const&) = delete;

    void keep() noexcept {
        isNew = false;
        kept = true;
    }
    /// Whether keep() was called.
    [[nodiscard]] bool isKept() const { return kept; }
    /// Whether the file was not there before, and keep() was not called.
    [[nodiscard]] bool isCreated() const { return isNew; }
    /// Whether it still is the file of its name.
    [[nodiscard]] bool isNamed() const;
    /// Whether another file has its name by now.
    [[nodiscard]] bool isReplaced() const;
    /// As it was given.
    [[nodiscard]] char const* name() const { return path; }
    [[nodiscard]] int descriptor() const { return reading ? fileno(reading.get()) : file.get(); }
    /// As it was when the lock was had, or at the last examine().
    [[nodiscard]] Status const& status() const { return found; }
    /// Takes the status anew, behind a change that was made under this lock.
    void examine();
    /// The file as a stream to read, which lives and is locked as long as this. Asked for once.
    [[nodiscard]] FILE* stream();

  private:
    struct CloseStream {
        void operator()(FILE* stream) const noexcept;
    };

    LockedFile(char const* filePath, Purpose purpose, char const* api, Patience* patience);

    void removeEmpty() const;
    [[nodiscard]] bool tryOpen(Purpose purpose, char const* api, Patience* patience);

    char const* path;
    Descriptor file;                             // not open any more when there is a stream
    std::unique_ptr<FILE, CloseStream> reading;  // null: not asked for
    Status found;
    pid_t const holder = getpid();
    bool isNew = false;  // created here, and to be removed
    bool kept = false;
};

/// Flushes the entry of a file in its directory; false, with errno, when that fails.
bool flushDirectory(char const* path) noexcept;

/// Flushes the file to the device. "fsync()".
void flush(char const* path, int fd);

/// Gives the file the present time, for those who look for a change by it. "futimens()".
void touch(char const* path, int fd);

}  // namespace zfc::platform

#endif
