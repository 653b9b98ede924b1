#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <optional>
#include <utility>

#include "Z/ZException.h"
#include "Z/ZFileLock.h"
#include "Z/exceptions/messages.h"
#include "Z/platform/descriptor.h"
#include "Z/platform/locked_file.h"
#include "Z/platform/record_lock.h"
#include "Z/process_locks/lock_file.h"
#include "Z/process_locks/register.h"
#include "Z/process_locks/time_limit.h"
#include "Z/threads/forked_child.h"
#include "Z/utility/waiting.h"

namespace {

using zfc::platform::Descriptor;
using zfc::platform::Identity;
using zfc::platform::LockMode;
using zfc::platform::LockRange;
using zfc::platform::LockWait;
using zfc::platform::statusOf;
using zfc::platform::uninterrupted;
using zfc::process_locks::dataRange;
using zfc::process_locks::gateRange;
using zfc::process_locks::TimeLimit;

constexpr char sourceName[] = "src/Z/ZFileLock";

/// Set-group-id without group execute is the classic mark for mandatory locking, where there is
/// any.
constexpr mode_t lockFileMode = S_ISGID | S_IRUSR | S_IWUSR;

/// What a lock file is known by.
struct Look {
    Identity identity;
    bool isPlain;  // a file that lost its last link since it was opened is found out by its name
};

/// Looks at what has the name, or is open with the empty one. Not at its times, as statusOf() does:
/// where the system was asked for those it dates the next write anew, which takes longer.
std::optional<Look> lookAt(int directory, char const* path, int flags) {
    struct statx raw;
    constexpr unsigned int wanted = STATX_TYPE | STATX_NLINK | STATX_INO;
    if (statx(directory, path, flags, wanted, &raw) != 0) return std::nullopt;
    Identity const identity{makedev(raw.stx_dev_major, raw.stx_dev_minor), raw.stx_ino};
    return Look{identity, S_ISREG(raw.stx_mode) && raw.stx_nlink <= 1};
}

LockMode modeOf(ZReadWriteLockInterface::zlockstate state) {
    if (state == ZReadWriteLockInterface::zlockUnset) return LockMode::none;
    return state == ZReadWriteLockInterface::zlockRead ? LockMode::shared : LockMode::exclusive;
}

constexpr int notPlain = -1;  // in place of an errno

/// Makes a file that is missing, with these permissions. 0 or an errno.
int makeLockFile(char const* path, mode_t permissions) {
    mode_t const mode = S_ISGID | permissions;
    Descriptor const made =
        zfc::platform::openFile(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, mode);
    if (!made.isOpen()) return errno == EEXIST ? 0 : errno;
    // The umask, which open() respects, is not for what was asked for by name.
    return fchmod(made.get(), mode) == 0 ? 0 : errno;
}

/// Opens the lock file with `flags` and says which one it is; `file` stays not open, with the errno
/// or notPlain, when it cannot be had or is something else that somebody planted.
int openLockFile(Descriptor& file, Identity& identity, char const* path, int flags) {
    Descriptor opened = zfc::platform::openFile(path, flags | O_NOFOLLOW | O_NOCTTY, lockFileMode);
    if (!opened.isOpen()) return errno;
    auto const found = lookAt(opened.get(), "", AT_EMPTY_PATH);
    if (!found) return errno;
    if (!found->isPlain) return notPlain;
    file = std::move(opened);
    identity = found->identity;
    return 0;
}

/// Pauses that signals end as they end a wait of the system: a handler that has calls restarted
/// does not. The kernel restarts no sleep, but the reading of a timer.
class Pauses {
  public:
    /// Notes its descriptor in `child`, -1 before and after, for the child of a fork.
    explicit Pauses(std::atomic<int>& child) : noted(child) {
        ZNoFork const untilNoted;
        noted = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    }
    ~Pauses() {
        ZNoFork const untilClosed;
        Descriptor(noted.exchange(-1)).close();
    }
    Pauses(Pauses const&) = delete;
    Pauses& operator=(Pauses const&) = delete;

    /// Less than a second; 0, or EINTR when a signal came first.
    [[nodiscard]] int pause(std::chrono::microseconds length) {
        timespec const time{0, static_cast<long>(std::chrono::nanoseconds(length).count())};
        itimerspec const once{{0, 0}, time};
        // Without a descriptor to be had any signal ends it.
        if (noted < 0 || timerfd_settime(noted, 0, &once, nullptr) != 0)
            return clock_nanosleep(CLOCK_MONOTONIC, 0, &time, nullptr);
        std::uint64_t expirations = 0;
        return read(noted, &expirations, sizeof expirations) < 0 ? errno : 0;
    }

  private:
    std::atomic<int>& noted;
};

bool isWritten(int fd) {
    LockMode mode = LockMode::none;
    return findRecordLock(fd, dataRange, mode) == 0 && mode == LockMode::exclusive;
}

/// Asks for the gate, which readers hold for a moment, and writers as long as they wait and write.
/// No longer than for the moment where the request does not wait.
int pollGate(int fd, TimeLimit& limit, std::atomic<int>& timer) {
    constexpr std::chrono::microseconds pause{200};
    constexpr LockRange range = gateRange;
    int rc = setRecordLock(fd, LockMode::exclusive, range, LockWait::no);
    if (rc != EAGAIN || limit.remaining() > 0 || isWritten(fd)) return rc;
    Pauses pauses(timer);
    for (int refusals = 1; rc == EAGAIN && !limit.isMomentOver(refusals); ++refusals) {
        if (int const interrupted = pauses.pause(pause)) return interrupted;
        rc = setRecordLock(fd, LockMode::exclusive, range, LockWait::no);
    }
    return rc;
}

/// Asks for the record lock until the limit; the longer it waits the less often.
int pollRecordLock(int fd, LockMode mode, LockRange range, TimeLimit& limit,
                   std::atomic<int>& timer) {
    constexpr long firstPause = 1;  // milliseconds
    constexpr long longestPause = 50;
    bool const isGate = range.start == gateRange.start;
    int rc = isGate ? pollGate(fd, limit, timer) : setRecordLock(fd, mode, range, LockWait::no);
    if (rc != EAGAIN) return rc;
    if (limit.remaining() == 0) return limit.reach();
    Pauses pauses(timer);
    for (long pause = firstPause; rc == EAGAIN; pause = std::min(2 * pause, longestPause)) {
        long const left = limit.remaining();
        if (left == 0) return limit.reach();
        rc = pauses.pause(std::chrono::milliseconds(std::min(pause, left)));
        if (rc == 0) rc = setRecordLock(fd, mode, range, LockWait::no);
    }
    return rc;
}

/// `limit` null: waits without one.
int takeRange(int fd, LockMode mode, LockRange range, TimeLimit* limit, std::atomic<int>& timer) {
    if (limit != nullptr) return pollRecordLock(fd, mode, range, *limit, timer);
    return setRecordLock(fd, mode, range, LockWait::yes);
}

/// Never limited, and goes on after a signal: what is not released now would be held until the
/// process ends.
int releaseRange(int fd, LockRange range) {
    int rc = EINTR;
    while (rc == EINTR)
        rc = setRecordLock(fd, LockMode::none, range, LockWait::yes);
    return rc;
}

/// 0 when the file could be read, at the offset or behind its end; else the errno, -1 when it is
/// cut off. An empty file leaves the buffer alone.
int readAt(int fd, void* buffer, off_t offset, std::size_t length) {
    ssize_t const got = uninterrupted([&] {
        errno = 0;
        return pread(fd, buffer, length, offset);
    });
    // A short read is no failure to the system: errno, 0 before the call, tells the two apart.
    if (got == static_cast<ssize_t>(length)) return 0;
    if (errno != 0) return errno;
    auto const status = statusOf(fd);
    if (!status) return errno;
    return status->size == 0 ? 0 : -1;
}

/// Whether all was written; else errno says why, 0 when the system does not.
bool writeAt(int fd, void const* buffer, off_t offset, std::size_t length) {
    if (zfc::platform::exceedsSizeLimit(offset + static_cast<off_t>(length))) {
        errno = EFBIG;
        return false;
    }
    ssize_t const put = uninterrupted([&] {
        errno = 0;
        return pwrite(fd, buffer, length, offset);
    });
    return put == static_cast<ssize_t>(length);
}

}  // namespace

ZUnixProcessReadWriteFileLock::ZUnixProcessReadWriteFileLock(char const* name,
                                                             char const* directory)
    : ZAbstractProcessReadWriteFileLock(name, directory) {
    zfc::process_locks::recordOf(*this).handle = &fileHandle;
}

ZUnixProcessReadWriteFileLock::ZUnixProcessReadWriteFileLock(char const* name)
    : ZAbstractProcessReadWriteFileLock(name) {
    zfc::process_locks::recordOf(*this).handle = &fileHandle;
}

ZUnixProcessReadWriteFileLock::ZUnixProcessReadWriteFileLock(
    ZUnixProcessReadWriteFileLock const& other)
    : ZAbstractProcessReadWriteFileLock(other) {
    zfc::process_locks::Record& record = zfc::process_locks::recordOf(*this);
    record.fileMode = zfc::process_locks::recordOf(other).fileMode.load();
    record.handle = &fileHandle;
}

ZUnixProcessReadWriteFileLock::~ZUnixProcessReadWriteFileLock() {
    zfc::process_locks::Record& record = zfc::process_locks::recordOf(*this);
    record.handle = nullptr;
    record.isKept = record.waiters > 0;  // as when the process exits meanwhile
    if (!record.isKept) closeLockFile();
}

ZObject* ZUnixProcessReadWriteFileLock::clone() const {
    return new ZUnixProcessReadWriteFileLock(*this);
}

void ZUnixProcessReadWriteFileLock::createLockFile() {
    if (fileHandle >= 0) return;
    char const* const path = getLockFileName().getChars();
    // A child that inherits the file open must know of it: it would keep the lock that the parent
    // takes on it, for as long as it lives.
    zfc::process_locks::Record& record = zfc::process_locks::recordOf(*this);
    ZNoFork const untilNoted;
    record.words.forget();
    Descriptor file;
    int const mode = record.fileMode;
    int rc = mode < 0 ? 0 : makeLockFile(path, static_cast<mode_t>(mode));
    if (rc == 0) rc = openLockFile(file, record.opened, path, O_RDWR | O_CREAT | O_SYNC);
    if (rc == 0) fileHandle = file.release();
    record.openError = rc;
}

int ZUnixProcessReadWriteFileLock::lockFileError() const {
    return zfc::process_locks::recordOf(*this).openError;
}

void ZUnixProcessReadWriteFileLock::setLockFileMode(mode_t mode) {
    constexpr mode_t permissions = S_IRWXU | S_IRWXG | S_IRWXO;
    if ((mode & ~permissions) != 0) zraise(ZInvalidParameterException(), sourceName, __LINE__);
    zfc::process_locks::recordOf(*this).fileMode = static_cast<int>(mode);
}

void ZUnixProcessReadWriteFileLock::closeLockFile() {
    ZNoFork const untilClosed;
    Descriptor(fileHandle.exchange(-1)).close();
}

void ZUnixProcessReadWriteFileLock::unlockFile() {
    struct Closing {
        ~Closing() { lock.closeLockFile(); }  // frees what could not be unlocked, too
        ZUnixProcessReadWriteFileLock& lock;
    };
    Closing const closing{*this};
    ZAbstractProcessReadWriteFileLock::unlockFile();
}

void ZUnixProcessReadWriteFileLock::lockFileRange(zlockstate mode, unsigned int start,
                                                  unsigned int length) {
    if (mode > zlockWrite)
        zraise(ZInvalidResourceStateException(getLockStateName(mode)), sourceName, __LINE__);
    bool const takesGate = mode != zlockUnset && start == gateRange.start;
    int rc = requestRange(mode, start, length);
    // Another process may have got its gate in the file that has the name now. Looked at once the
    // gate is held, not before: until then the name can move again.
    while (rc == 0 && takesGate && isReplaced()) {
        closeLockFile();
        rc = requestRange(mode, start, length);
    }
    if (rc == 0 && takesGate) zfc::process_locks::recordOf(*this).words.read(fileHandle);
    if (rc == 0) return;
    if (mode == zlockUnset)
        zraise(ZUnlockResourceException(numberOf(Message::processUnlockFailed), rc), sourceName,
               __LINE__);
    zraise(ZLockResourceException(numberOf(Message::processLockFailed), rc), sourceName, __LINE__);
}

int ZUnixProcessReadWriteFileLock::requestRange(zlockstate mode, unsigned int start,
                                                unsigned int length) {
    createLockFile();
    LockRange const range{static_cast<off_t>(start), static_cast<off_t>(length)};
    if (mode == zlockUnset) return releaseRange(fileHandle, range);
    zfc::process_locks::Record& record = zfc::process_locks::recordOf(*this);
    ZWaiting const waiting(record.waiters);
    int const rc = takeRange(fileHandle, modeOf(mode), range, TimeLimit::of(*this), record.timer);
    if (record.isKept) zstayForever();
    return rc;
}

bool ZUnixProcessReadWriteFileLock::isReplaced() const {
    auto const named = lookAt(AT_FDCWD, getLockFileName().getChars(), AT_SYMLINK_NOFOLLOW);
    if (!named) return errno == ENOENT;
    // An open file stays the one that it was when it was opened: it need not be asked again.
    return !(named->identity == zfc::process_locks::recordOf(*this).opened);
}

void ZUnixProcessReadWriteFileLock::unlockFileRange(unsigned int start, unsigned int length) {
    lockFileRange(zlockUnset, start, length);
}

void ZUnixProcessReadWriteFileLock::writeBytes(void* buffer, unsigned int offset,
                                               unsigned int length) {
    auto const start = static_cast<off_t>(offset);
    zfc::process_locks::FileWords& words = zfc::process_locks::recordOf(*this).words;
    // Each write waits for the disk (O_SYNC). A process that takes the lock again and again leaves
    // its pid once.
    if (words.have(buffer, offset, length)) return;
    words.forget();
    if (writeAt(fileHandle, buffer, start, length)) return;
    int const rc = errno;
    sequence = 0;  // what the file has now is not known
    // Kept: the message of a lock that could not be had, not the one for a failed write.
    zraise(ZWriteResourceException(numberOf(Message::processLockFailed), rc), sourceName, __LINE__);
}

void ZUnixProcessReadWriteFileLock::readBytes(void* buffer, unsigned int offset,
                                              unsigned int length) {
    if (fileHandle >= 0 && zfc::process_locks::recordOf(*this).words.give(buffer, offset, length))
        return;
    if (int const rc = readAt(fileHandle, buffer, static_cast<off_t>(offset), length))
        zraise(ZReadResourceException(numberOf(Message::lockFileReadFailed), rc), sourceName,
               __LINE__);
}

ZUnixProcessReadWriteFileLock::FileStatus ZUnixProcessReadWriteFileLock::fileStatus() const {
    FileStatus status{0, 0, zlockUnset};
    Descriptor file;
    Identity ignored;
    int rc = openLockFile(file, ignored, getLockFileName().getChars(), O_RDONLY | O_NONBLOCK);
    if (rc == ENOENT) return status;
    struct {
        unsigned int sequence;
        int pid;
    } stored{0, 0};
    static_assert(sizeof stored == dataRange.length + gateRange.length);
    if (rc == 0) rc = readAt(file.get(), &stored, 0, sizeof stored);
    LockMode mode = LockMode::none;
    if (rc == 0) rc = findRecordLock(file.get(), dataRange, mode);
    if (rc != 0)
        zraise(ZReadResourceException(numberOf(Message::lockFileReadFailed), rc), sourceName,
               __LINE__);
    status = {stored.sequence, stored.pid, zlockUnset};
    if (mode != LockMode::none) status.state = mode == LockMode::shared ? zlockRead : zlockWrite;
    return status;
}
