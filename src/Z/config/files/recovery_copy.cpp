#include "Z/config/files/recovery_copy.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "Z/ZException.h"
#include "Z/config/files/copy_format.h"
#include "Z/exceptions/report.h"
#include "Z/utility/checksum.h"
#include "Z/zfree.h"

namespace zfc::config {

namespace {

using zfc::platform::openFile;

constexpr char sourceName[] = "src/Z/ZProperties";
constexpr char ending[] = ".zsave";
constexpr char asideEnding[] = ".old";

/// The bytes from `start` to before `end`, as far as there are any.
std::string_view between(std::string_view bytes, std::size_t start, std::size_t end) {
    if (start >= end || start >= bytes.size()) return {};
    return bytes.substr(start, end - start);
}

}  // namespace

// ---------------------------------------------------------------------------------- what it holds

FileRecord recordOf(std::string_view name, std::string_view oldBytes, ChangedRange const& range) {
    FileRecord record;
    record.name = name;
    record.range = range;
    record.headSum = checksum(between(oldBytes, 0, range.start));
    record.tailSum = checksum(between(oldBytes, range.start + range.before.size(), range.oldSize));
    return record;
}

namespace {

/// Whether every byte is the old or the new one: a write may break off anywhere, the one that puts
/// old bytes back too, and of what was not flushed a device keeps what it likes. Behind the end of
/// the shorter one a file system may show zeros for a block that was never written.
bool isMixture(std::string_view bytes, ChangedRange const& range) {
    std::size_t const written = std::min(range.oldSize, range.newSize) - range.start;
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        bool const isOld = at < range.before.size() && bytes[at] == range.before[at];
        bool const isNew = at < range.after.size() && bytes[at] == range.after[at];
        bool const isUnwritten = at >= written && bytes[at] == '\0';
        if (!isOld && !isNew && !isUnwritten) return false;
    }
    return true;
}

FileState stateOfBytes(FileRecord const& record, std::string_view bytes) {
    ChangedRange const& range = record.range;
    std::size_t const size = bytes.size();
    auto const [least, most] = std::minmax(range.oldSize, range.newSize);
    if (size < least || size > most) return FileState::edited;
    // Where the sizes differ the range goes to the end, and there is nothing behind it.
    std::size_t const behind =
        range.oldSize == range.newSize ? range.start + range.after.size() : size;
    bool const isAroundSame = checksum(between(bytes, 0, range.start)) == record.headSum &&
                              checksum(between(bytes, behind, size)) == record.tailSum;
    if (!isAroundSame) return FileState::edited;
    std::string_view const inside = between(bytes, range.start, behind);
    if (size == range.newSize && inside == range.after.substr(0, inside.size()))
        return FileState::complete;
    if (size == range.oldSize && inside == range.before) return FileState::old;
    return isMixture(inside, range) ? FileState::between : FileState::edited;
}

}  // namespace

FileState stateOf(FileRecord const& record, std::optional<std::string_view> bytes) {
    if (!bytes && !record.existed) return FileState::old;
    if (!bytes) return record.remains ? FileState::edited : FileState::complete;
    FileState const state = stateOfBytes(record, *bytes);
    // There, and not to be there: it was not removed yet.
    if (!record.remains) return state == FileState::complete ? FileState::old : FileState::edited;
    // A new file that is empty still is one that a store began to write.
    return state == FileState::old && !record.existed ? FileState::between : state;
}

// ----------------------------------------------------------------------------------- where it is

std::string_view directoryPart(std::string_view path) {
    std::size_t const slash = path.rfind('/');
    return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash + 1);
}

namespace {

/// The path without links in it; nothing when there is no such file.
std::unique_ptr<char, ZFree> withoutLinks(char const* path) {
    return std::unique_ptr<char, ZFree>(realpath(path, nullptr));
}

String besideName(std::string_view file) {
    std::string_view const directory = directoryPart(file);
    String name(directory);
    name.append(".").append(file.substr(directory.size())).append(ending);
    return name;
}

/// The directory of a path without links in it; the path's own where that cannot be told.
String realDirectory(char const* path) {
    String directory(directoryPart(path));
    if (directory.empty()) directory = ".";
    auto const real = withoutLinks(directory.c_str());
    if (real) directory = real.get();
    if (directory.back() != '/') directory.push_back('/');
    return directory;
}

}  // namespace

String recoveryPath(char const* file) {
    if (!zfc::platform::isLinkOrSpecial(file)) return besideName(file);
    auto const target = withoutLinks(file);
    if (!target) return {};
    // A file without a name can be reached, too, by a link of /proc that leads nowhere.
    auto const named = zfc::platform::statusOf(target.get());
    auto const meant = zfc::platform::statusOf(file);
    bool const isSame = named && meant && named->identity == meant->identity;
    return isSame ? besideName(target.get()) : String();
}

String nameInCopy(char const* path, char const* file) {
    auto const target = withoutLinks(file);
    String name = realDirectory(path);
    std::string_view const base = std::string_view(path).substr(directoryPart(path).size());
    // Without a directory: the files may be moved together.
    if (name == realDirectory(target ? target.get() : file)) name.clear();
    return name.append(base);
}

// ------------------------------------------------------------------------------------- making it

namespace {

/// Throws nothing, so that what can be done without the copy is done without memory too.
void report(Message message, String const& path, char const* file, char const* reason) noexcept {
    try {
        ZPropertiesRecoveryException told(numberOf(message), path.c_str(), file, reason);
        told.addLocation(sourceName, __LINE__);
        zreportException(told);
    } catch (ZException& failure) {
        zreportException(failure);
    }
}

}  // namespace

RecoveryCopy::RecoveryCopy(char const* mainPath, Status const& mainFile)
    : file(mainPath),
      path(recoveryPath(file)),
      owner(mainFile),
      permissions(mainFile.mode & (S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH)) {}

RecoveryCopy::~RecoveryCopy() {
    if (!isMade) return;
    // One that cannot be removed must not count: by its length it is cut off.
    if (unlink(path.c_str()) != 0) static_cast<void>(ftruncate(copy.get(), 0) == 0);
    // Else a failure of power could bring it back, beside a file that was edited since.
    zfc::platform::flushDirectory(path.c_str());
}

void RecoveryCopy::protect(Status const& companion) {
    permissions &= companion.mode;
    if (companion.group != owner.group) permissions &= ~static_cast<mode_t>(S_IRWXG);
    isForOwner = isForOwner || companion.owner != owner.owner;
    if (isForOwner) permissions &= S_IRUSR | S_IWUSR;
}

void RecoveryCopy::make(Vector<FileRecord> const& files) {
    if (!create()) return;
    isMade = true;
    auto const status = zfc::platform::statusOf(copy.get());
    if (!status) refuse("fopen(w)", errno);
    write(encodeCopy(files, {owner.identity, status->identity}));
    // A directory that may not be read has no other way to the device.
    if (!zfc::platform::flushDirectory(path.c_str()) && errno != EACCES) refuse("fsync()", errno);
}

void RecoveryCopy::refuse(char const* operation, int error) const {
    zraise(ZPropertiesIOException(path.c_str(), operation, error), sourceName, __LINE__);
}

/// False where there can be none.
bool RecoveryCopy::create() {
    constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW;
    // It must be possible to set it aside.
    if (path.empty()) return false;
    std::size_t const nameSize = path.size() - directoryPart(path).size();
    if (nameSize + sizeof asideEnding - 1 > NAME_MAX) return false;
    // Permissions come first and bytes last: until then it is for its maker alone.
    copy = openFile(path.c_str(), flags, S_IRUSR | S_IWUSR);
    if (!copy.isOpen() && errno == EEXIST && isCleared())
        copy = openFile(path.c_str(), flags, S_IRUSR | S_IWUSR);
    if (!copy.isOpen()) {
        bool const isRefused =
            errno == EACCES || errno == EPERM || errno == EROFS || errno == EEXIST;
        if (!isRefused) refuse("fopen(w)", errno);
        return false;
    }
    if (giveToOwner()) return true;
    unlink(path.c_str());
    return false;
}

/// Whether the name is free then. Under the lock, what stands there is no copy that counts: it is
/// put aside, since it may hold what its file has lost.
bool RecoveryCopy::isCleared() const {
    auto const there = zfc::platform::statusOf(path.c_str());
    bool const isOurs = !zfc::platform::isLinkOrSpecial(path.c_str()) && there &&
                        (there->owner == owner.owner || there->owner == geteuid());
    String const aside = path + asideEnding;
    if (!isOurs || rename(path.c_str(), aside.c_str()) != 0) {
        errno = EEXIST;
        return false;
    }
    report(Message::recoveryCopySetAside, aside, file, "it does not count");
    return true;
}

/// Whether the copy counts then.
bool RecoveryCopy::giveToOwner() const {
    constexpr auto same = static_cast<uid_t>(-1);
    bool const isOwn = geteuid() == owner.owner;
    bool const isKept = isOwn || isForOwner;
    mode_t mode = permissions;
    if (fchown(copy.get(), isKept ? same : owner.owner, owner.group) != 0) {
        // A group of the file that is not ours: nobody else's group gets what is meant for it.
        mode &= ~static_cast<mode_t>(S_IRWXG);
        if (!isKept && fchown(copy.get(), owner.owner, static_cast<gid_t>(-1)) != 0) return false;
    }
    if (fchmod(copy.get(), mode) != 0) return false;
    return isOwn || !isForOwner || geteuid() == 0;
}

void RecoveryCopy::write(std::string_view bytes) const {
    if (zfc::platform::exceedsSizeLimit(static_cast<off_t>(bytes.size()))) refuse("write()", EFBIG);
    ChangedRange whole;
    whole.newSize = bytes.size();
    whole.after = bytes;
    zfc::platform::writeRange(path.c_str(), copy.get(), whole);
}

// ------------------------------------------------------------------------------------ finding one

namespace {

[[nodiscard]] bool isTrusted(Status const& copy, Status const& mainFile) {
    constexpr mode_t everything = S_IRWXU | S_IRWXG | S_IRWXO;
    bool const isOfOwner = copy.owner == mainFile.owner || copy.owner == 0;
    bool const isOfGroup = (copy.mode & S_IRWXG) == 0 || copy.group == mainFile.group;
    return copy.isRegular() && copy.links == 1 && isOfOwner && isOfGroup &&
           (copy.mode & everything & ~mainFile.mode) == 0;
}

void ignore(char const* file, String const& path, char const* reason) noexcept {
    report(Message::recoveryCopyIgnored, path, file, reason);
}

/// A copy that cannot be opened: where it is one that counts the file may be torn.
std::nullopt_t refuseUnreadable(char const* file, String const& path, Status const& mainFile,
                                int error) {
    bool const isLink = zfc::platform::isLinkOrSpecial(path.c_str());
    auto const status = zfc::platform::statusOf(path.c_str());
    if (!isLink && !status) return std::nullopt;
    // Its maker was killed before he could give it to those who may read it.
    bool const isEmpty = !isLink && status->size == 0;
    if (!isLink && !isEmpty && isTrusted(*status, mainFile))
        zraise(ZPropertiesIOException(path.c_str(), "fopen(r)", error), sourceName, __LINE__);
    ignore(file, path, isEmpty ? "it is cut off" : "it cannot be opened");
    return std::nullopt;
}

/// Reads a copy that is whole; what is no copy may have any size.
CopyFault readCopy(FoundCopy& found, CopyOf& of) {
    char head[copyHeadSize];
    // All of it: what a short read left out must not make the copy look cut off.
    ssize_t const got = zfc::platform::readAll(found.file.get(), head, sizeof head);
    if (got < 0)
        zraise(ZPropertiesIOException(found.path.c_str(), "fread()", errno), sourceName, __LINE__);
    CopyFault const fault = faultOfHead({head, static_cast<std::size_t>(got)}, found.status.size);
    if (fault != CopyFault::none) return fault;
    found.bytes = zfc::platform::readWhole(found.path.c_str(), found.file.get());
    return decodeCopy(found.bytes.bytes(), found.files, of) ? CopyFault::none : CopyFault::damaged;
}

}  // namespace

std::optional<FoundCopy> findCopy(char const* file, Status const& mainFile) {
    FoundCopy found;
    found.path = recoveryPath(file);
    if (found.path.empty()) return std::nullopt;
    char const* const path = found.path.c_str();
    found.file = openFile(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
    if (!found.file.isOpen() && errno == ENOENT) return std::nullopt;
    if (!found.file.isOpen()) return refuseUnreadable(file, found.path, mainFile, errno);
    auto const status = zfc::platform::statusOf(found.file.get());
    if (!status || !isTrusted(*status, mainFile)) {
        ignore(file, found.path,
               "it is no file of the owner's, with one name, for those who may use the file");
        return std::nullopt;
    }
    found.status = *status;
    CopyOf of;
    if (readCopy(found, of) == CopyFault::damaged) {
        ignore(file, found.path, "it is damaged");
        return std::nullopt;
    }
    // Not by the device, whose number may be another one when the machine has started again.
    found.isOfThisFile = of.mainFile.inode == mainFile.identity.inode;
    found.isReplaced = !found.isOfThisFile && of.copy.inode == status->identity.inode;
    return found;
}

void reportCutOff(FoundCopy const& copy, char const* file) noexcept {
    ignore(file, copy.path, "it is cut off");
}

void removeCutOff(FoundCopy const& copy, char const* file) noexcept {
    reportCutOff(copy, file);
    unlink(copy.path.c_str());
    zfc::platform::flushDirectory(copy.path.c_str());
}

void setAside(FoundCopy const& copy, char const* file) {
    String const aside = copy.path + asideEnding;
    // Else it might be taken for one that counts when others have stored.
    if (rename(copy.path.c_str(), aside.c_str()) != 0)
        zraise(ZPropertiesIOException(copy.path.c_str(), "rename()", errno), sourceName, __LINE__);
    report(Message::recoveryCopySetAside, aside, file, "the file was edited since");
}

}  // namespace zfc::config
