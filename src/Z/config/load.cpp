#include <cstdio>

#include "Z/ZException.h"
#include "Z/ZProperties.h"
#include "Z/config/companion_choice.h"
#include "Z/config/file_history.h"
#include "Z/config/properties_edit.h"
#include "Z/platform/locked_file.h"

namespace {

constexpr char sourceName[] = "src/Z/ZProperties";

struct CloseStream {
    void operator()(FILE* stream) const noexcept { std::fclose(stream); }
};
using Stream = std::unique_ptr<FILE, CloseStream>;

}  // namespace

/// Set while a load runs.
class ZProperties::LoadingFlag {
  public:
    explicit LoadingFlag(int& ofObject) : flag(ofObject) { flag = 1; }
    ~LoadingFlag() { flag = 0; }
    LoadingFlag(LoadingFlag const&) = delete;
    LoadingFlag& operator=(LoadingFlag const&) = delete;

  private:
    int& flag;
};

ZLCString ZProperties::resolved(char const* file) const {
    if (!zfc::config::isEmpty(file)) return file;
    zfc::config::require(fileName.getChars(), sourceName, __LINE__);
    return fileName;
}

void ZProperties::load(char const* file) {
    ZCancellationOff const wholeFiles;
    ZPropResourceLock const hold(propLock);
    loadFrom(resolved(file), Values::kept);
}

void ZProperties::reload(char const* file) {
    ZCancellationOff const wholeFiles;
    ZPropResourceLock const hold(propLock);
    loadFrom(resolved(file), Values::cleared);
}

/// The values here are touched only when the file is open and locked, so that a file that is
/// missing or busy costs nothing; the object counts as unmodified only when all of it was read.
void ZProperties::loadFrom(ZLCString const& file, Values values) {
    char const* const path = file.getChars();
    // Before anything can fail: a first load that fails can be tried again without a name.
    if (fileName.isEmpty()) fileName = file;
    zfc::platform::LockedFile source(path, zfc::platform::Purpose::load);
    // Of the time when the lock was had: what others store later has a time that differs.
    zfc::platform::Status const status = source.status();
    // Open, and with it locked, until the companion is decoded.
    Stream const stream(source.intoStream());
    LoadingFlag const flag(loading);
    if (values == Values::cleared) dropValues(path);
    // Before the first line is read, and behind dropValues(), which makes a new list.
    FileHistory::enter(history->halfReads, path, status.identity);
    try {
        cache->be_read(path, stream.get());
        // Behind the file, which names it, and under its lock: no store by another process comes
        // between the two.
        readCompanion(path);
        postLoad(path);
    } catch (ZException const& cause) {
        history->failReading(cause);
        throw;
    }
    // What a half-read file left here went with the other values.
    if (values == Values::cleared) history->halfReads.clear();
    history->finishReading(path);
    settle(path, status.modified);
}

/// Empties the cache for `file`, which is about to be read. Should that fail, the values that go
/// here are in their own file alone, and what is left of the other must not get there.
void ZProperties::dropValues(char const* file) {
    char const* const own = fileName.getChars();
    auto const ownStatus = zfc::platform::statusOf(own);
    // Aside, because it needs memory: after clear() nothing here may fail.
    FileHistory::HalfReads files;
    FileHistory::enter(files, file, {});
    FileHistory::enter(files, own, ownStatus ? ownStatus->identity : zfc::platform::Identity{});
    cache->clear();
    history->halfReads.swap(files);
    history->rememberCompanion("", "");
}

void ZProperties::readCompanion(char const* file) {
    ZLCString const name = zfc::config::companionToLoad(cache->getCompanionName(), file);
    // One that was decoded before must not give its values twice.
    if (name.isEmpty() || history->companion == name.getChars()) return;
    // Remembered last: a companion that could not be read is not ours to write.
    zfc::config::readCompanionInto(*cache, name.getChars(), file);
    history->rememberCompanion(name.getChars(), file);
}

/// The object and the file hold the same.
void ZProperties::settle(char const* file, long time) {
    modified = 0;
    // refresh() looks at this file alone.
    if (fileName == file) fileTime = time;
}

void ZProperties::refresh(int forceReload) {
    ZPropResourceLock const hold(propLock);
    if (forceReload == 0) {
        auto const status = zfc::platform::statusOf(fileName.getChars());
        bool const isCurrent = status && status->modified == fileTime && history->halfReads.empty();
        // Edits that are not stored must not be lost, nor values because their file is gone.
        if (modified != 0 || loading != 0 || !status || isCurrent) return;
    }
    reload(nullptr);
}
