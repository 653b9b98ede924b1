#include "Z/config/recovery_copy.h"

#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "Z/ZException.h"
#include "Z/config/copy_format.h"
#include "Z/exceptions/report.h"
#include "Z/zfree.h"

namespace zfc::config {

namespace {

using zfc::platform::Descriptor;
using zfc::platform::FilePages;
using zfc::platform::openFile;

constexpr char sourceName[] = "src/Z/ZProperties";
constexpr char ending[] = ".zsave";
constexpr char asideEnding[] = ".old";

std::uint32_t checksum(std::string_view bytes) {
    auto const* const first = reinterpret_cast<unsigned char const*>(bytes.data());
    return static_cast<std::uint32_t>(crc32_z(0, first, bytes.size()));
}

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
    return besideName(target ? target.get() : file);
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

RecoveryCopy::RecoveryCopy(char const* file, Status const& mainFile)
    : path(recoveryPath(file)),
      owner(mainFile),
      permissions(mainFile.mode & (S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH)) {}

RecoveryCopy::~RecoveryCopy() {
    if (!isMade) return;
    // One that cannot be removed must not count: by its length it is cut off.
    if (unlink(path.c_str()) != 0) static_cast<void>(ftruncate(copy.get(), 0));
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
    String const bytes = encodeCopy(files, owner.identity);
    if (!create()) return;
    isMade = true;
    write(bytes);
    zfc::platform::flushDirectory(path.c_str());
}

/// False where there can be none.
bool RecoveryCopy::create() {
    constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW;
    // Permissions come first and bytes last: until then it is for its maker alone.
    copy = openFile(path.c_str(), flags, S_IRUSR | S_IWUSR);
    // Under the lock, only a store that was killed before its copy was complete can have left one.
    if (!copy.isOpen() && errno == EEXIST) {
        auto const there = zfc::platform::statusOf(path.c_str());
        bool const isOurs = !zfc::platform::isLinkOrSpecial(path.c_str()) && there &&
                            (there->owner == owner.owner || there->owner == geteuid());
        if (!isOurs || unlink(path.c_str()) != 0) return false;
        copy = openFile(path.c_str(), flags, S_IRUSR | S_IWUSR);
    }
    if (copy.isOpen() && giveToOwner()) return true;
    if (copy.isOpen()) {
        unlink(path.c_str());
        return false;
    }
    bool const isRefused = errno == EACCES || errno == EPERM || errno == EROFS ||
                           errno == ENAMETOOLONG || errno == EEXIST;
    if (!isRefused)
        zraise(ZPropertiesIOException(path.c_str(), "fopen(w)", errno), sourceName, __LINE__);
    return false;
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
    return copy.isRegular() && copy.links == 1 && isOfOwner &&
           (copy.mode & everything & ~mainFile.mode) == 0;
}

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

void ignore(char const* file, String const& path, char const* reason) noexcept {
    report(Message::recoveryCopyIgnored, path, file, reason);
}

/// A copy that cannot be opened: where it is one that counts the file may be torn.
std::nullopt_t refuseUnreadable(char const* file, String const& path, Status const& mainFile,
                                int error) {
    bool const isLink = zfc::platform::isLinkOrSpecial(path.c_str());
    auto const status = zfc::platform::statusOf(path.c_str());
    if (!isLink && !status) return std::nullopt;
    if (!isLink && isTrusted(*status, mainFile))
        zraise(ZPropertiesIOException(path.c_str(), "fopen(r)", error), sourceName, __LINE__);
    ignore(file, path, "it cannot be opened");
    return std::nullopt;
}

}  // namespace

std::optional<FoundCopy> findCopy(char const* file, Status const& mainFile) {
    FoundCopy found;
    found.path = recoveryPath(file);
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
    found.bytes = zfc::platform::readWhole(path, found.file.get());
    zfc::platform::Identity of;
    if (decodeCopy(found.bytes.bytes(), found.files, of) == CopyFault::damaged) {
        ignore(file, found.path, "it is damaged");
        return std::nullopt;
    }
    // Not by the device, whose number may be another one when the machine has started again.
    found.isOfThisFile = of.inode == mainFile.identity.inode;
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
    constexpr char reason[] = "the file was edited since";
    String const aside = copy.path + asideEnding;
    // What cannot be renamed is found, and reported, again.
    if (rename(copy.path.c_str(), aside.c_str()) != 0) return ignore(file, copy.path, reason);
    report(Message::recoveryCopySetAside, aside, file, reason);
}

}  // namespace zfc::config
