#include "Z/platform/locked_file.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <thread>

#include "Z/ZException.h"
#include "Z/ZLCString.h"
#include "Z/platform/record_lock.h"

namespace zfc::platform {
namespace {

constexpr char sourceName[] = "src/Z/ZProperties";
constexpr std::size_t workingDirectorySize = 1024;

/// The time of day in seconds; clock_gettime(2) of 32 bits ends with 2038.
[[nodiscard]] double timeOfDay() {
    struct {
        long long seconds, nanoseconds;
    } now{0, 0};
#if defined(SYS_clock_gettime64)
    syscall(SYS_clock_gettime64, CLOCK_REALTIME, &now);
#else
    timespec exact{};
    clock_gettime(CLOCK_REALTIME, &exact);
    now = {exact.tv_sec, exact.tv_nsec};
#endif
    return static_cast<double>(now.seconds) + static_cast<double>(now.nanoseconds) * 1e-9;
}

/// Whether a change from now on gets another time than this one.
[[nodiscard]] bool isOver(statx_timestamp const& time) {
    // A clock of nanoseconds moves with the kernel's ticks, of 10 ms at most; one without them may
    // be kept in steps of two seconds.
    constexpr double tick = 0.05;
    constexpr double coarse = 2.5;
    double const age = timeOfDay() - static_cast<double>(time.tv_sec) - time.tv_nsec * 1e-9;
    // One that is still to come is as good as one that is long over.
    return std::abs(age) > (time.tv_nsec == 0 ? coarse : tick);
}

[[nodiscard]] Status fromSystem(struct statx const& raw) {
    Status status;
    status.identity = {makedev(raw.stx_dev_major, raw.stx_dev_minor), raw.stx_ino};
    status.size = raw.stx_size;
    status.mode = raw.stx_mode;
    status.links = raw.stx_nlink;
    status.owner = raw.stx_uid;
    status.group = raw.stx_gid;
    status.modified = static_cast<long>(raw.stx_mtime.tv_sec);
    status.modifiedNanoseconds = raw.stx_mtime.tv_nsec;
    status.isSettled = isOver(raw.stx_mtime);
    return status;
}

/// statx(2) and not stat(2), whose 32-bit form fails for a file dated beyond 2038.
[[nodiscard]] std::optional<Status> askSystem(int directory, char const* path, int flags) {
    struct statx raw {};
    if (statx(directory, path, flags, STATX_BASIC_STATS, &raw) != 0) return std::nullopt;
    return fromSystem(raw);
}

/// The part before the last "/"; "/" itself when that is the first character.
[[nodiscard]] ZLCString directoryOf(char const* path) {
    char const* const slash = std::strrchr(path, '/');
    if (slash != nullptr) {
        auto const length = static_cast<unsigned int>(slash == path ? 1 : slash - path);
        return {path, length};
    }
    char current[workingDirectorySize];
    if (getcwd(current, sizeof current) == nullptr)
        zraise(ZPropertiesIOException(path, "getcwd()", errno), sourceName, __LINE__);
    return current;
}

constexpr int openFlags = O_NONBLOCK | O_NOCTTY;  // so that a pipe or a device does not hold us

struct Opened {
    Descriptor file;
    bool isNew = false;  // it was not there before
};

/// No O_TRUNC: whatever there is stays until the lock is had.
Opened openForStore(char const* path) {
    constexpr int flags = O_RDWR | openFlags;
    Opened opened{openFile(path, flags)};
    if (opened.file.isOpen() || errno != ENOENT) return opened;
    // O_EXCL tells for sure whether the file is ours, to be removed if nothing gets stored.
    opened.file = openFile(path, flags | O_CREAT | O_EXCL, 0666);
    opened.isNew = opened.file.isOpen();
    if (opened.isNew || errno != EEXIST) return opened;
    // Somebody was faster, or a link points to no file: one that is made there counts as found.
    opened.file = openFile(path, flags | O_CREAT, 0666);
    return opened;
}

Opened openRegular(char const* path, Purpose purpose, char const* api) {
    bool const loads = purpose == Purpose::load;
    Opened opened = loads ? Opened{openFile(path, O_RDONLY | openFlags)} : openForStore(path);
    if (!opened.file.isOpen())
        zraise(ZPropertiesIOException(path, api, errno), sourceName, __LINE__);
    if (opened.isNew) return opened;
    // The open file is asked, not its name, which may be another one's by now.
    auto const status = statusOf(opened.file.get());
    if (status && status->isRegular()) return opened;
    int const error = !status ? errno : S_ISDIR(status->mode) ? EISDIR : EINVAL;
    zraise(ZPropertiesIOException(path, api, error), sourceName, __LINE__);
}

}  // namespace

std::optional<Status> statusOf(char const* path) { return askSystem(AT_FDCWD, path, 0); }

std::optional<Status> statusOf(int fd) { return askSystem(fd, "", AT_EMPTY_PATH); }

std::optional<Status> statusOfName(char const* path) {
    return askSystem(AT_FDCWD, path, AT_SYMLINK_NOFOLLOW);
}

bool isLinkOrSpecial(char const* path) {
    auto const status = statusOfName(path);
    return status && !status->isRegular();
}

void checkFileAccess(char const* path) {
    if (access(path, R_OK | W_OK) == 0) return;
    if (errno != ENOENT)
        zraise(ZPropertiesIOException(path, "access()", errno), sourceName, __LINE__);
    ZLCString const directory = directoryOf(path);
    if (access(directory.getChars(), R_OK | W_OK) == 0) return;
    zraise(ZPropertiesIOException(directory.getChars(), "access()", errno), sourceName, __LINE__);
}

bool Patience::pause() {
    // Whoever stores in a loop leaves the file free for a tenth of a millisecond each time, and
    // only who asks often meets that; pauses that grow would starve those who have waited the
    // longest.
    constexpr Clock::duration between = std::chrono::milliseconds(1);
    Clock::duration const left = end - Clock::now();
    if (left <= Clock::duration::zero()) return false;
    std::this_thread::sleep_for(std::min(between, left));
    return true;
}

void LockedFile::CloseStream::operator()(FILE* stream) const noexcept { std::fclose(stream); }

LockedFile::LockedFile(char const* filePath, Purpose purpose, char const* api, Patience* patience)
    : path(filePath) {
    // Somebody may put another file in this one's place between opening and locking, and what is
    // stored would go with the old one. Nobody does it again and again.
    constexpr int attempts = 10;
    for (int i = 0; i < attempts; ++i) {
        if (tryOpen(purpose, api, patience)) return;
    }
    zraise(ZPropertiesIOException(path, "fcntl()", EAGAIN), sourceName, __LINE__);
}

bool LockedFile::tryOpen(Purpose purpose, char const* api, Patience* patience) {
    auto const mode = purpose == Purpose::load ? LockMode::shared : LockMode::exclusive;
    Opened opened;
    for (int rc = EAGAIN; rc != 0;) {
        file.close();  // with its lock, which would refuse ours
        // Anew each time: whoever has the lock may put another file in its place.
        opened = openRegular(path, purpose, api);
        file = std::move(opened.file);
        rc = setRecordLock(file.get(), mode, wholeFile, LockWait::no);
        bool const waits = rc == EAGAIN && patience != nullptr && patience->pause();
        if (rc != 0 && !waits)
            zraise(ZPropertiesIOException(path, "fcntl()", rc), sourceName, __LINE__);
    }
    auto const held = statusOf(file.get());
    if (!held) return false;
    found = *held;
    isNew = opened.isNew;
    // Asked under the lock: from here on nobody who respects locks exchanges the file.
    if (isNamed()) return true;
    isNew = false;
    return false;
}

void LockedFile::examine() {
    if (auto const now = statusOf(descriptor())) found = *now;
}

bool LockedFile::isNamed() const {
    auto const named = statusOf(path);
    return named && named->identity == found.identity;
}

/// A new file is removed under the lock: whoever opened it meanwhile sees, when he has locked it,
/// that the name is gone.
LockedFile::~LockedFile() {
    if (isNew) removeEmpty();
    // Not with the descriptor alone, which a child that was forked since has too; nor by that
    // child.
    if (holder == getpid() && descriptor() != Descriptor::none)
        static_cast<void>(setRecordLock(descriptor(), LockMode::none, wholeFile, LockWait::no));
}

void LockedFile::removeEmpty() const {
    auto const named = statusOfName(path);
    if (named && named->identity == found.identity && named->size == 0) unlink(path);
}

bool LockedFile::isReplaced() const {
    auto const named = statusOf(path);
    return named && !(named->identity == found.identity);
}

FILE* LockedFile::stream() {
    FILE* const opened = fdopen(file.get(), "r");
    if (opened == nullptr) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    // The stream closes it now; twice closed, it could be somebody else's.
    static_cast<void>(file.release());
    reading.reset(opened);
    return opened;
}

namespace {

/// EINVAL: a file system that has nothing to flush to.
[[nodiscard]] bool isFlushed(int fd) {
    return uninterrupted([&] { return fsync(fd); }) == 0 || errno == EINVAL;
}

}  // namespace

bool flushDirectory(char const* path) noexcept {
    try {
        bool const isBare = std::strchr(path, '/') == nullptr;
        ZLCString const name = isBare ? ZLCString(".") : directoryOf(path);
        Descriptor const directory = openFile(name.getChars(), O_RDONLY | O_DIRECTORY);
        return directory.isOpen() && isFlushed(directory.get());
    } catch (ZException const&) {
        errno = ENOMEM;  // for the name
        return false;
    }
}

void flush(char const* path, int fd) {
    if (!isFlushed(fd))
        zraise(ZPropertiesIOException(path, "fsync()", errno), sourceName, __LINE__);
}

void touch(char const* path, int fd) {
    if (futimens(fd, nullptr) != 0)
        zraise(ZPropertiesIOException(path, "futimens()", errno), sourceName, __LINE__);
}

}  // namespace zfc::platform
