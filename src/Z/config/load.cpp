#include <cerrno>
#include <utility>

#include "Z/ZException.h"
#include "Z/ZProperties.h"
#include "Z/config/file_history.h"
#include "Z/config/files/companion_choice.h"
#include "Z/config/files/recovery.h"
#include "Z/config/properties_edit.h"
#include "Z/utility/undo.h"

namespace {

constexpr char sourceName[] = "src/Z/ZProperties";

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
    // The file is open and locked, and the edit not finished.
    if (history->isUpdating) zraise(ZInvalidParameterException(), sourceName, __LINE__);
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
    zfc::config::Notices notices;
    {
        ZCancellationOff const wholeFiles;
        ZPropResourceLock const hold(propLock);
        FileHistory::Gathering const gathering(*history, notices);
        bool const isAside = (cache->getAttributes() & ZPCache::keepLastGood) != 0;
        loadFrom(resolved(file), isAside ? Values::exchanged : Values::cleared);
    }
    tell(notices);
}

/// The values here are touched only when the file is open and locked, so that a file that is
/// missing or busy costs nothing; the object counts as unmodified only when all of it was read.
void ZProperties::loadFrom(ZLCString const& file, Values values) {
    char const* const path = file.getChars();
    // Before anything can fail: a first load that fails can be tried again without a name.
    if (fileName.isEmpty()) fileName = file;
    history->beginReading(path);
    try {
        zfc::config::FileSource source(path);
        readFrom(path, source, values);
    } catch (ZException const& cause) {
        history->failReading(path, cause);
        throw;
    }
}

void ZProperties::readFrom(char const* file, zfc::config::FileSource& source, Values values) {
    // Of the time when the lock was had: what others store later has a time that differs.
    zfc::platform::Status const status = source.status();
    history->identify(file, status.identity);
    LoadingFlag const flag(loading);
    bool const isFirst = cache->count() == 0 && history->stamp.status.identity.inode == 0;
    bool const isAlone = values != Values::kept || isFirst;
    // Until all is read there may be half of another file here.
    if (values != Values::exchanged) history->stamp.isAlone = false;
    if (values == Values::kept) {
        readValues(file, source);
    } else {
        readAnew(file, source, values);
    }
    history->finishReading(file, status.identity, isAlone);
    settle(file, status);
    history->stamp.isAlone &= isAlone;
}

void ZProperties::readValues(char const* file, zfc::config::FileSource& source) {
    cache->be_read(file, source.stream());
    // Behind the file, which names it, and under its lock: no store by another process comes
    // between the two.
    readCompanion(file, source);
    postLoad(file);
}

/// Reads in place of the values here, which come back when that fails and they are to be exchanged.
void ZProperties::readAnew(char const* file, zfc::config::FileSource& source, Values values) {
    bool const isAside = values == Values::exchanged;
    if (!isAside) leaveOwnFile(file);
    if (isAside || comparesValues()) return readAside(file, source, isAside);
    cache->clear();
    history->rememberCompanion("", "");
    history->told.reset();
    readValues(file, source);
}

void ZProperties::readAside(char const* file, zfc::config::FileSource& source, bool comesBack) {
    auto before = emptyCache();
    ZLCString companion;
    ZLCString companionOwner;
    FileHistory& known = *history;
    auto const exchange = [&before, &companion, &companionOwner, &now = cache, &known] {
        now.swap(before);
        std::swap(companion, known.companion);
        std::swap(companionOwner, known.companionOwner);
    };
    exchange();
    ZUndo undo([&exchange, &before, &known, comesBack] {
        if (comesBack) return exchange();
        // Observers will be told what the next reload has changed of this.
        if (!known.told) known.told.swap(before);
    });
    readValues(file, source);
    if (comparesValues()) known.notices.addDifferences(known.told ? *known.told : *before, *cache);
    known.told.reset();
    undo.keep();
}

/// A cache as the one here, without values.
std::unique_ptr<ZPCategoryBasedCache> ZProperties::emptyCache() {
    if (!history->empty) {
        auto empty = zfc::config::copyOf(*cache);
        empty->clear();
        // For the next time, when nothing has to be copied.
        history->empty = std::move(empty);
    }
    auto fresh = zfc::config::copyOf(*history->empty);
    fresh->setAttributes(cache->getAttributes(), cache->getAttributeData());
    return fresh;
}

/// The values here are about to be dropped for those of `file`. Should that fail, they are in their
/// own file alone, and what is left of the other must not get there.
void ZProperties::leaveOwnFile(char const* file) {
    if (fileName == file) return;
    history->beginReading(fileName.getChars());
    history->leave(fileName.getChars());
}

void ZProperties::readCompanion(char const* file, zfc::config::FileSource const& source) {
    ZLCString const named = cache->getCompanionName();
    ZLCString name = zfc::config::companionToLoad(named.getChars(), file);
    auto recovered = source.companionBytes(name.getChars());
    if (!recovered && (recovered = source.companionBytes(named.getChars()))) name = named;
    // One that was decoded before must not give its values twice.
    if (name.isEmpty() || history->companion == name.getChars()) return;
    // Remembered last: a companion that could not be read is not ours to write.
    zfc::config::readCompanionInto(*cache, name.getChars(), file, recovered);
    history->rememberCompanion(name.getChars(), file);
}

/// The object and the file hold the same.
void ZProperties::settle(char const* file, zfc::platform::Status const& status) {
    modified = 0;
    bool const isOwn = fileName == file;
    history->stamp.isAlone = isOwn;
    // refresh() looks at this file alone.
    if (!isOwn) return;
    fileTime = status.modified;
    history->stamp.status = status;
}

void ZProperties::refresh(int forceReload) {
    zfc::config::Notices notices;
    {
        ZPropResourceLock const hold(propLock);
        FileHistory::Gathering const gathering(*history, notices);
        // Under one lock: an edit that comes between would be lost.
        if (isOutdated(forceReload)) reload(nullptr);
    }
    tell(notices);
}

ZProperties::Freshness ZProperties::reloadChanged() {
    zfc::config::Notices notices;
    auto found = Freshness::current;
    {
        ZPropResourceLock const hold(propLock);
        FileHistory::Gathering const gathering(*history, notices);
        found = freshness();
        if (found == Freshness::reloaded) {
            // Read, but not compared, a file that was only touched would count as another one.
            ZUndo const over([&compares = history->compares] { compares = false; });
            history->compares = true;
            reload(nullptr);
        }
    }
    if (found == Freshness::reloaded && notices.size() == 0) found = Freshness::current;
    tell(notices);
    return found;
}

/// `reloaded` when the file is to be read.
ZProperties::Freshness ZProperties::freshness() const {
    if (history->isUpdating || loading != 0) return Freshness::current;
    auto const status = zfc::platform::statusOf(fileName.getChars());
    if (!status && (errno == ENOENT || errno == ENOTDIR)) return Freshness::missing;
    // Of its own store it does not matter whether a later change would show: it cannot be read.
    if (modified != 0)
        return status && history->isSame(*status) ? Freshness::current : Freshness::conflict;
    bool const isRead = status && history->isCurrent(*status);
    return isRead && !history->isUnread(fileName.getChars()) ? Freshness::current
                                                             : Freshness::reloaded;
}

/// Whether somebody asks what a reload has changed.
bool ZProperties::comparesValues() const { return history->compares || mayBeObserved(); }

bool ZProperties::isOutdated(int forceReload) const {
    // In its updateFile() it holds what the file holds, and the edit.
    if (history->isUpdating) return false;
    if (forceReload != 0) return true;
    // Edits that are not stored must not be lost, nor values because their file is gone.
    auto const status = zfc::platform::statusOf(fileName.getChars());
    if (modified != 0 || loading != 0 || !status) return false;
    return !history->isCurrent(*status) || history->isUnread(fileName.getChars());
}

void ZProperties::clear() {
    zfc::config::Notices notices;
    {
        ZPropResourceLock const hold(propLock);
        FileHistory::Gathering const gathering(*history, notices);
        if (loading == 0 && mayBeObserved())
            history->notices.addDifferences(history->told ? *history->told : *cache, *emptyCache());
        cache->clear();
        history->told.reset();
        modified = 1;
        history->forgetUnread();
    }
    tell(notices);
}
