#include "Z/config/recovery.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "Z/ZException.h"
#include "Z/config/companion_file.h"

namespace zfc::config {
namespace {

using zfc::platform::Descriptor;
using zfc::platform::FilePages;
using zfc::platform::LockedFile;

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

String changed(std::string_view bytes, ChangedRange const& range) {
    String result(bytes.substr(0, std::min(bytes.size(), range.newSize)));
    result.resize(range.newSize);
    std::size_t const room = range.newSize - range.start;
    std::string_view const text = range.after.substr(0, room);
    return result.replace(range.start, text.size(), text);
}

/// Copied first, so that a write that is broken off ends between two pages of the file.
void writeAligned(String const& path, int fd, ChangedRange range) {
    FilePages pages(range.start, range.after.size());
    std::copy(range.after.begin(), range.after.end(), pages.data());
    range.after = pages.bytes();
    zfc::platform::writeRange(path.c_str(), fd, range);
}

/// EINVAL: a file system that has nothing to flush to.
void flush(String const& path, int fd) {
    if (zfc::platform::uninterrupted([&] { return fsync(fd); }) != 0 && errno != EINVAL)
        zraise(ZPropertiesIOException(path.c_str(), "fsync()", errno), sourceName, __LINE__);
}

/// A store that was broken off, file by file.
class Unfinished {
  public:
    /// `mainFd` is the main file, open and locked.
    Unfinished(FoundCopy const& found, char const* file, LockedFile const& mainFile, Access access);

    [[nodiscard]] Vector<Part> const& all() const { return parts; }
    [[nodiscard]] bool isEdited() const { return hasEdited; }
    /// Changes the files.
    void finish();

  private:
    void add(FileRecord const& record, Access access);
    [[nodiscard]] bool isOurs(FileRecord const& record, Part const& part) const;
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
        if (!isOurs(record, part)) return;
    }
    part.examine();
    // One that was made anew since is empty as the one was that the store found.
    if (part.isMain() && record.range.oldSize == 0 && !copy.isOfThisFile)
        part.state = FileState::edited;
    parts.push_back(std::move(part));
}

/// Whether the copy may tell what becomes of this companion. What the file's owner wrote must not
/// lead the superuser to files of others, nor a copy of the file to what belongs to the original.
bool Unfinished::isOurs(FileRecord const& record, Part const& part) const {
    bool const isBeside = record.name.find('/') == std::string_view::npos;
    if (!isBeside && !copy.isOfThisFile) return false;
    if (copy.status.owner == 0 || copy.status.owner == geteuid()) return true;
    if (part.fd == Descriptor::none) return isBeside;
    auto const status = zfc::platform::statusOf(part.fd);
    return status && status->owner == copy.status.owner && status->links == 1;
}

void Unfinished::decide() {
    auto const isEditedPart = [](Part const& part) { return part.state == FileState::edited; };
    hasEdited = std::any_of(parts.begin(), parts.end(), isEditedPart);
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
    for (Part& part : parts) {
        if (!part.record->remains) finish(part);
    }
}

void Unfinished::finish(Part& part) {
    char const* const name = part.path.c_str();
    if (part.way == Way::stay) {
        // It stands beside an edit, and has to be on the device before the copy goes.
        if (part.fd != Descriptor::none) flush(part.path, part.fd);
        return;
    }
    if (!part.record->remains) return removeCompanion(name);
    if (part.way == Way::back && !part.record->existed) return removeCompanion(name);
    bool const isMissing = part.fd == Descriptor::none;
    if (isMissing) {
        part.opened = createCompanion(name, target.status());
        part.fd = part.opened.get();
    }
    ChangedRange const& range = part.record->range;
    // One that is complete already is written again: it may not have reached the device yet.
    writeAligned(part.path, part.fd, part.way == Way::forward ? range : inverse(range));
    if (isMissing) zfc::platform::flushDirectory(name);
}

}  // namespace

/// The copy is flushed once more, and so is all that it may have brought about: the process that
/// was killed may not have come to that (flushCopy, flushDirectory, finishStore, setAside).
void finishStore(char const* file, LockedFile& target) {
    auto const copy = findCopy(file, target.status());
    if (!copy) return;
    flush(copy->path, copy->file.get());
    zfc::platform::flushDirectory(copy->path.c_str());
    if (copy->isCutOff()) return removeCutOff(*copy, file);
    Unfinished unfinished(*copy, file, target, Access::write);
    unfinished.finish();
    if (unfinished.isEdited()) {
        // Else a failure of power could bring back what the edit replaced.
        zfc::platform::flushDirectory(copy->path.c_str());
        setAside(*copy, file);
    } else if (unlink(copy->path.c_str()) != 0) {
        zraise(ZPropertiesIOException(copy->path.c_str(), "unlink()", errno), sourceName, __LINE__);
    }
    zfc::platform::flushDirectory(copy->path.c_str());
    target.examine();
}

// -------------------------------------------------------------------------------------- FileSource

FileSource::FileSource(char const* filePath) : path(filePath), file(nullptr) {
    open();
    if (!findCopy(path, file->status()) || finishedInFiles()) return;
    // Looked for again: meanwhile the file was not locked.
    auto const copy = findCopy(path, file->status());
    if (!copy) return;
    copy->isCutOff() ? reportCutOff(*copy, path) : finishHere(*copy);
}

FileSource::FileSource(char const* filePath, LockedFile& held) : path(filePath), file(&held) {
    finishStore(path, held);
}

/// Under an exclusive lock, for which ours has to go: that of another reader is in its way too.
bool FileSource::finishedInFiles() {
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
    memory.reset(fmemopen(mainBytes->data(), mainBytes->size(), "r"));
    if (!memory) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    return memory.get();
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
