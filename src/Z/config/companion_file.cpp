#include "Z/config/companion_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "Z/ZException.h"
#include "Z/config/companion_choice.h"

namespace zfc::config {
namespace {

using zfc::platform::Status;

constexpr char sourceName[] = "src/Z/ZProperties";

// A link would lead the owner's rights to somebody else's file, a pipe would hold us.
constexpr int openFlags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;

}  // namespace

// ----------------------------------------------------------------------------- removing

void removeCompanion(char const* path) {
    if (zfc::platform::isLinkOrSpecial(path))
        zraise(ZPropertiesIOException(path, "unlink()", EINVAL), sourceName, __LINE__);
    if (unlink(path) != 0 && errno != ENOENT)
        zraise(ZPropertiesIOException(path, "unlink()", errno), sourceName, __LINE__);
}

// --------------------------------------------------------------------------------------- writing

CompanionFile::CompanionFile(char const* companionPath, char const* mainFile, bool isKnown)
    : path(companionPath) {
    if (isKnown || mayTakeOver(path, mainFile)) open();
    if (!file.isOpen()) create();
}

CompanionFile::~CompanionFile() {
    if (isNew) ::unlink(path);
}

void CompanionFile::write(std::string_view image, Status const& mainFile) {
    rewrite.emplace(path, file.get(), image);
    rewrite->apply();
    giveTo(mainFile);
    if (isNew) zfc::platform::flushDirectory(path);
}

void CompanionFile::keep() noexcept {
    rewrite->keep();
    isNew = false;
}

void CompanionFile::open() {
    file = zfc::platform::openFile(path, openFlags);
    // Removed behind our back: the caller makes it again.
    if (!file.isOpen() && errno == ENOENT) return;
    if (!file.isOpen()) refuse(errno);
    // The open file is asked: its name may be another one's by now.
    auto const status = zfc::platform::statusOf(file.get());
    if (!status) refuse(errno);
    if (!status->isRegular()) refuse(EINVAL);
}

void CompanionFile::create() {
    // For the owner alone, until giveTo() knows who may read the main file.
    file = zfc::platform::openFile(path, openFlags | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR);
    if (!file.isOpen()) refuse(errno);
    isNew = true;
}

void CompanionFile::refuse(int error) const {
    zraise(ZPropertiesIOException(path, "fopen(w)", error), sourceName, __LINE__);
}

/// Owner, group and permissions of the main file, as far as this process may; where the group
/// cannot be given, the permissions meant for it are not given to another one.
void CompanionFile::giveTo(Status const& mainFile) const {
    mode_t permissions = mainFile.mode & (S_IRWXU | S_IRWXG | S_IRWXO);
    // Only the superuser gives a file to another owner; to a group of his own anybody may.
    bool const isGiven = fchown(file.get(), mainFile.owner, mainFile.group) == 0 ||
                         fchown(file.get(), static_cast<uid_t>(-1), mainFile.group) == 0;
    if (!isGiven) permissions &= ~static_cast<mode_t>(S_IRWXG);
    // Last: the group that a new file is made with gets no permission meant for another.
    static_cast<void>(fchmod(file.get(), permissions));
}

}  // namespace zfc::config
