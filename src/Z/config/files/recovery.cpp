#include "Z/config/files/recovery.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "Z/ZException.h"
#include "Z/config/files/companion_file.h"

namespace zfc::config {
namespace {

using zfc::platform::Descriptor;
using zfc::platform::FilePages;
using zfc::platform::LockedFile;
using zfc::platform::Status;

constexpr char sourceName[] = "src/Z/ZProperties";

enum class Way { stay, forward, back };

/// One file of a store that was broken off.
struct Part {
    FileRecord const* record;
    String path;
    Descriptor opened;  // of a companion
    int fd = Descriptor::none;
    std::optional<FilePages> bytes;  // nothing: there is no such file
    FileState state = FileState::edited;
    Way way = Way::stay;

    [[nodiscard]] bool isMain() const { return record->name.empty(); }
    void examine() {
        if (fd == Descriptor::none) {
            state = stateOf(*record, std::nullopt);
        } else {
            FilePages const& now = bytes.emplace(zfc::platform::readWhole(path.c_str(), fd));
            state = stateOf(*record, now.bytes());
        }
    }
};

/// The change that takes the store's one back.
ChangedRange inverse(ChangedRange const& range) {
    return {range.newSize, range.oldSize, range.start, range.after, range.before};
}

[[noreturn]] void raise(String const& path, char const* operation, int error) {
    zraise(ZPropertiesIOException(path.c_str(), operation, error), sourceName, __LINE__);
}

void flushDirectoryOf(String const& path) {
    bool const isDone = zfc::platform::flushDirectory(path.c_str()) || errno == EACCES;
    if (!isDone) raise(path, "fsync()", errno);
}

String changed(std::string_view bytes, ChangedRange const& range) {
    String result(bytes.substr(0, std::min(bytes.size(), range.newSize)));
    result.resize(range.newSize);
    std::size_t const room = range.newSize - range.start;
    std::string_view const text = range.after.substr(0, room);
    return result.replace(range.start, text.size(), text);
}

/// Copied first, so that a write that is broken off ends between two pages of the file.
void writeAligned(String const& path, int fd, ChangedRange range) {
    if (zfc::platform::exceedsSizeLimit(static_cast<off_t>(range.newSize)))
        raise(path, "write()", EFBIG);
    FilePages pages(range.start, range.after.size());
    std::copy(range.after.begin(), range.after.end(), pages.data());
    range.after = pages.bytes();
    zfc::platform::writeRange(path.c_str(), fd, range);
}

/// A store that was broken off, file by file.
class Unfinished {
  public:
    Unfinished(FoundCopy const& found, char const* file, LockedFile const& mainFile, Access access);

    [[nodiscard]] Vector<Part> const& all() const { return parts; }
    [[nodiscard]] bool isEdited() const { return hasEdited; }
    /// Changes the files.
    void finish();

  private:
    void add(FileRecord const& record, Access access);
    [[nodiscard]] bool isOurs(Part const& part) const;
    [[nodiscard]] bool isReplaced(Part const& part) const;
    void decide();
    void finish(Part& part);

    FoundCopy const& copy;
    char const* path;
    LockedFile const& target;
    Vector<Part> parts;  // the main file first
    bool hasEdited = false;
};

Unfinished::Unfinished(FoundCopy const& found, char const* file, LockedFile const& mainFile,
                       Access access)
    : copy(found), path(file), target(mainFile) {
    for (FileRecord const& record : copy.files)
        add(record, access);
    decide();
}

void Unfinished::add(FileRecord const& record, Access access) {
    Part part;
    part.record = &record;
    if (record.name.empty()) {
        part.path = path;
        part.fd = target.descriptor();
    } else {
        bool const isBeside = record.name.find('/') == std::string_view::npos;
        if (isBeside) part.path = directoryPart(copy.path);
        part.path.append(record.name);
        part.opened = openCompanion(part.path.c_str(), access);
        part.fd = part.opened.get();
        // The file that was copied names it, and it is not the copied one's to write.
        if (!isBeside && !copy.isOfThisFile) return static_cast<void>(hasEdited = true);
        if (access == Access::write && !isOurs(part)) raise(part.path, "fopen(w)", EPERM);
    }
    part.examine();
    if (part.isMain() && isReplaced(part)) part.state = FileState::edited;
    parts.push_back(std::move(part));
}

/// Whether the main file is no more the one that was stored: put in its place by somebody, or made
/// anew, empty as the one was that the store found.
bool Unfinished::isReplaced(Part const& part) const {
    bool const isAnew = part.state == FileState::old && part.record->range.oldSize == 0;
    return copy.isReplaced || (isAnew && !copy.isOfThisFile);
}

/// Whether this companion may be written: what the file's owner wrote must not lead another user to
/// files that are not that owner's.
bool Unfinished::isOurs(Part const& part) const {
    Status const& mainFile = target.status();
    if (mainFile.owner == geteuid()) return true;
    bool const isBeside = part.record->name.find('/') == std::string_view::npos;
    if (part.fd == Descriptor::none) return isBeside;
    auto const status = zfc::platform::statusOf(part.fd);
    // One of our own: we were killed before we could give it away.
    bool const isFit =
        status && (status->owner == mainFile.owner || (isBeside && status->owner == geteuid()));
    return isFit && status->links == 1;
}

void Unfinished::decide() {
    auto const isEditedPart = [](Part const& part) { return part.state == FileState::edited; };
    hasEdited = hasEdited || std::any_of(parts.begin(), parts.end(), isEditedPart);
    bool const isMainEdited = isEditedPart(parts.front());
    bool const isMainOld = parts.front().state == FileState::old;
    for (Part& part : parts) {
        if (isEditedPart(part)) continue;
        if (!hasEdited) {
            part.way = Way::forward;
        } else if (part.state == FileState::between) {
            // The companion is written before the main file is touched: whoever edited the main
            // file since had the old one, and needs the old companion.
            part.way = part.isMain() || (!isMainEdited && !isMainOld) ? Way::forward : Way::back;
        }
    }
}

/// In the order of a store: the companion first, what is removed last.
void Unfinished::finish() {
    for (Part& part : parts) {
        if (!part.isMain() && part.record->remains) finish(part);
    }
    finish(parts.front());
    // Who looks for changes looks at the main file.
    if (parts.size() > 1) zfc::platform::touch(path, target.descriptor());
    for (Part& part : parts) {
        if (!part.record->remains) finish(part);
    }
}

void Unfinished::finish(Part& part) {
    char const* const name = part.path.c_str();
    if (part.way == Way::stay) {
        // It stands beside an edit, and has to be on the device before the copy goes.
        if (part.fd != Descriptor::none) zfc::platform::flush(part.path.c_str(), part.fd);
        return;
    }
    if (!part.record->remains) return removeCompanion(name);
    if (part.way == Way::back && !part.record->existed) return removeCompanion(name);
    bool const isMissing = part.fd == Descriptor::none;
    if (isMissing) {
        part.opened = createCompanion(name, target.status());
        part.fd = part.opened.get();
    }
    // Its maker may have been killed before he came to that.
    if (!part.isMain() && !part.record->existed) giveCompanion(part.fd, target.status());
    if (!part.isMain()) narrowCompanion(name, part.fd, target.status());
    ChangedRange const& range = part.record->range;
    // One that is complete already is written again: it may not have reached the device yet.
    writeAligned(part.path, part.fd, part.way == Way::forward ? range : inverse(range));
    if (isMissing) flushDirectoryOf(part.path);
}

}  // namespace

/// The copy is flushed once more, and so is all that it may have brought about: the process that
/// was killed may not have come to that (flushCopy, flushDirectory, finishStore, setAside).
void finishStore(char const* file, LockedFile& target) {
    auto const copy = findCopy(file, target.status());
    if (!copy) return;
    zfc::platform::flush(copy->path.c_str(), copy->file.get());
    zfc::platform::flushDirectory(copy->path.c_str());
    if (copy->isCutOff()) return removeCutOff(*copy, file);
    Unfinished unfinished(*copy, file, target, Access::write);
    unfinished.finish();
    if (unfinished.isEdited()) {
        // Else a failure of power could bring back what the edit replaced.
        flushDirectoryOf(copy->path);
        setAside(*copy, file);
    } else if (unlink(copy->path.c_str()) != 0) {
        raise(copy->path, "unlink()", errno);
    }
    flushDirectoryOf(copy->path);
    target.examine();
}

// -------------------------------------------------------------------------------------- FileSource

/// Looked for again each time that the file was not locked: meanwhile others may have stored, and
/// been killed.
FileSource::FileSource(char const* filePath) : path(filePath), file(nullptr) {
    constexpr int attempts = 10;
    open();
    auto copy = findCopy(path, file->status());
    for (int i = 0; copy && i < attempts && isFinishedInFiles(); ++i)
        copy = findCopy(path, file->status());
    if (copy) copy->isCutOff() ? reportCutOff(*copy, path) : finishHere(*copy);
}

/// Waits a moment where there is a copy: of those who start again after a crash one finishes the
/// store, and the others come when he holds the lock.
void FileSource::open() {
    constexpr unsigned int moment = 2000;  // milliseconds
    zfc::platform::Patience patience(zfc::platform::statusOf(recoveryPath(path).c_str()) ? moment
                                                                                         : 0);
    own.reset();
    file = &own.emplace(path, zfc::platform::Purpose::load, patience);
}

FileSource::FileSource(char const* filePath, LockedFile& held) : path(filePath), file(&held) {
    finishStore(path, held);
}

/// Under an exclusive lock, for which ours has to go: that of another reader is in its way too. Not
/// for somebody else: his directories may become links to ours while we look at them.
bool FileSource::isFinishedInFiles() {
    if (file->status().owner != geteuid()) return false;
    bool isFinished = true;
    own.reset();
    try {
        LockedFile target(path, zfc::platform::Purpose::store);
        finishStore(path, target);
    } catch (ZPropertiesIOException const&) {
        isFinished = false;  // by the rights of a reader, who reads what will be
    }
    open();
    return isFinished;
}

void FileSource::finishHere(FoundCopy const& copy) {
    Unfinished const unfinished(copy, path, *file, Access::read);
    for (Part const& part : unfinished.all()) {
        if (part.way == Way::stay || !part.record->remains) continue;
        ChangedRange const& range = part.record->range;
        std::string_view const now = part.bytes ? part.bytes->bytes() : std::string_view();
        String bytes = changed(now, part.way == Way::forward ? range : inverse(range));
        if (part.isMain()) {
            mainBytes = std::move(bytes);
        } else {
            companions.push_back({String(part.record->name), std::move(bytes)});
        }
    }
}

FILE* FileSource::stream() {
    if (!mainBytes) return file->stream();
    FILE* const opened = fmemopen(&(*mainBytes)[0], mainBytes->size(), "r");
    if (opened == nullptr) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    memory.reset(opened);
    return opened;
}

String FileSource::image() const {
    if (mainBytes) return *mainBytes;
    return String(zfc::platform::readWhole(path, file->descriptor()).bytes());
}

std::optional<std::string_view> FileSource::companionBytes(char const* name) const {
    if (companions.empty()) return std::nullopt;
    String const wanted = nameInCopy(name, path);
    for (Companion const& companion : companions) {
        if (companion.name == wanted) return companion.bytes;
    }
    return std::nullopt;
}

}  // namespace zfc::config
