#include "Z/config/files/companion_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "Z/ZException.h"
#include "Z/config/files/companion_choice.h"

namespace zfc::config {
namespace {

using zfc::platform::ChangedRange;
using zfc::platform::Descriptor;
using zfc::platform::Status;

constexpr char sourceName[] = "src/Z/ZProperties";

// A link would lead the owner's rights to somebody else's file, a pipe would hold us.
constexpr int openFlags = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
constexpr mode_t everything = S_IRWXU | S_IRWXG | S_IRWXO;

[[noreturn]] void refuse(char const* path, char const* operation, int error) {
    zraise(ZPropertiesIOException(path, operation, error), sourceName, __LINE__);
}

}  // namespace

Descriptor openCompanion(char const* path, Access access) {
    bool const writes = access == Access::write;
    char const* const operation = writes ? "fopen(w)" : "fopen(r)";
    Descriptor file = zfc::platform::openFile(path, openFlags | (writes ? O_RDWR : O_RDONLY));
    if (!file.isOpen() && (errno == ENOENT || errno == ENOTDIR)) return file;
    if (!file.isOpen()) refuse(path, operation, errno);
    // The open file is asked: its name may be another one's by now.
    auto const status = zfc::platform::statusOf(file.get());
    if (!status) refuse(path, operation, errno);
    if (!status->isRegular()) refuse(path, operation, EINVAL);
    return file;
}

Descriptor createCompanion(char const* path, Status const& mainFile) {
    // For the owner alone, until it is clear who may read it: permissions first, bytes last.
    constexpr int flags = openFlags | O_RDWR | O_CREAT | O_EXCL;
    Descriptor file = zfc::platform::openFile(path, flags, S_IRUSR | S_IWUSR);
    if (!file.isOpen()) refuse(path, "fopen(w)", errno);
    giveCompanion(file.get(), mainFile);
    return file;
}

void giveCompanion(int fd, Status const& mainFile) noexcept {
    mode_t permissions = mainFile.mode & everything;
    // Only the superuser gives a file to another owner; to a group of his own anybody may.
    bool const isGiven = fchown(fd, mainFile.owner, mainFile.group) == 0 ||
                         fchown(fd, static_cast<uid_t>(-1), mainFile.group) == 0;
    if (!isGiven) permissions &= ~static_cast<mode_t>(S_IRWXG);
    // Last: the group that a new file is made with gets no permission meant for another.
    static_cast<void>(fchmod(fd, permissions));
}

void narrowCompanion(char const* path, int fd, Status const& mainFile) {
    auto const status = zfc::platform::statusOf(fd);
    if (!status) refuse(path, "fchmod()", errno);
    mode_t allowed = mainFile.mode;
    // Another group's members are others to the main file.
    if (status->group != mainFile.group)
        allowed &= ~static_cast<mode_t>(S_IRWXG) | ((mainFile.mode & S_IRWXO) << 3U);
    mode_t const permissions = status->mode & everything;
    if ((permissions & ~allowed) == 0) return;
    if (fchmod(fd, permissions & allowed) != 0) refuse(path, "fchmod()", errno);
}

void removeCompanion(char const* path) {
    if (zfc::platform::isLinkOrSpecial(path)) refuse(path, "unlink()", EINVAL);
    if (unlink(path) != 0 && errno != ENOENT && errno != ENOTDIR) refuse(path, "unlink()", errno);
}

// ----------------------------------------------------------------------------------- CompanionFile

CompanionFile::CompanionFile(char const* companionPath, char const* mainFile, bool isKnown,
                             std::string_view newImage)
    : path(companionPath), image(newImage), isOrphan(!isKnown) {
    // Removed behind our back: it is made again.
    if (isKnown || mayTakeOver(path, mainFile)) file = openCompanion(path, Access::write);
    if (file.isOpen()) {
        found = zfc::platform::statusOf(file.get());
        if (!found) refuse(path, "fopen(w)", errno);
        rewrite.emplace(path, file.get(), image);
    } else if (zfc::platform::statusOf(path) || zfc::platform::isLinkOrSpecial(path)) {
        refuse(path, "fopen(w)", EEXIST);
    }
}

CompanionFile::~CompanionFile() { static_cast<void>(undo()); }

std::string_view CompanionFile::oldBytes() const {
    return rewrite ? rewrite->oldBytes() : std::string_view();
}

ChangedRange CompanionFile::range() const {
    if (rewrite) return rewrite->range();
    ChangedRange whole;
    whole.newSize = image.size();
    whole.after = image;
    return whole;
}

void CompanionFile::prepare() {
    if (rewrite) rewrite->prepare();
}

void CompanionFile::apply(Status const& mainFile) {
    if (!rewrite) {
        file = createCompanion(path, mainFile);
        isMade = true;
        rewrite.emplace(path, file.get(), image);
        rewrite->prepare();
    } else {
        // One that is taken over is as good as new.
        if (isOrphan) giveCompanion(file.get(), mainFile);
        narrowCompanion(path, file.get(), mainFile);
    }
    rewrite->apply();
    if (isMade) zfc::platform::flushDirectory(path);
}

void CompanionFile::keep() noexcept {
    if (rewrite) rewrite->keep();
    isMade = false;
}

bool CompanionFile::undo() noexcept {
    if (!isMade) return !rewrite || rewrite->undo();
    isMade = false;
    rewrite.reset();
    bool const isGone = unlink(path) == 0 || errno == ENOENT;
    zfc::platform::flushDirectory(path);
    return isGone;
}

}  // namespace zfc::config
