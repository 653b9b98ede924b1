#include <cerrno>
#include <exception>
#include <functional>
#include <utility>

#include "Z/ZException.h"
#include "Z/ZProperties.h"
#include "Z/config/file_history.h"
#include "Z/config/files/recovery.h"
#include "Z/config/properties_edit.h"
#include "Z/exceptions/report.h"
#include "Z/platform/locked_file.h"
#include "Z/utility/undo.h"

namespace {

constexpr char sourceName[] = "src/Z/ZProperties";

}  // namespace

void ZProperties::update(FileEdit const& edit, unsigned int milliseconds, char const* file) {
    zfc::config::Notices notices;
    try {
        ZCancellationOff const wholeFiles;
        ZPropResourceLock const hold(propLock);
        FileHistory::Gathering const gathering(*history, notices);
        updateHeld(edit, milliseconds, file);
    } catch (...) {
        if (std::current_exception() == nullptr) throw;  // unwinding is no exception of C++
        // What was read before the failure has changed the object nevertheless. What an observer
        // throws must not hide why nothing was stored.
        static_cast<void>(zreturned(sourceName, __LINE__, [&] { tell(notices); }));
        throw;
    }
    tell(notices);
}

void ZProperties::updateHeld(FileEdit const& edit, unsigned int milliseconds, char const* file) {
    ZLCString const name = resolved(file);
    // Edits that are not stored would be lost when the file has to be read.
    bool const isFit = modified == 0 && loading == 0 && (fileName.isEmpty() || fileName == name);
    if (!isFit) zraise(ZInvalidParameterException(), sourceName, __LINE__);
    if (fileName.isEmpty()) fileName = name;
    zfc::platform::Patience patience(milliseconds);
    // Nobody puts other files in place again and again.
    constexpr int attempts = 10;
    for (int i = 0; i < attempts; ++i) {
        if (updateOnce(name, edit, patience)) return;
    }
    zraise(ZPropertiesIOException(name.getChars(), "fcntl()", EAGAIN), sourceName, __LINE__);
}

/// Whether that is all: not when somebody without a lock has put another file in place.
bool ZProperties::updateOnce(ZLCString const& name, FileEdit const& edit,
                             zfc::platform::Patience& patience) {
    zfc::platform::LockedFile target(name.getChars(), patience);
    zfc::config::FileSource source(name.getChars(), target);
    readAgain(name.getChars(), source);
    auto before = zfc::config::copyOf(*cache);
    FileHistory& known = *history;
    std::size_t const told = known.notices.size();
    ZUndo undo([&target, &known, told, &before, &now = cache, edited = std::ref(modified)] {
        edited.get() = 0;
        // Stored, but for its last step: read again before it is trusted.
        if (target.isKept()) return static_cast<void>(known.stamp = {});
        now.swap(before);
        known.notices.cut(told);
    });
    runEdit(edit);
    // What is written to a file without a name is lost.
    if (!target.isNamed()) return false;
    if (modified != 0) storeTo(name, &target);
    undo.keep();
    return !target.isReplaced();
}

/// Makes the object hold what the file holds. A file that was made just now gets what is here.
void ZProperties::readAgain(char const* file, zfc::config::FileSource& source) {
    if (source.isNew()) return history->refuseHalfRead(file, {});
    bool const isKnown = history->isCurrent(source.status()) && history->stamp.isAlone;
    if (isKnown && !history->isUnread(file)) return;
    history->beginReading(file);
    try {
        readFrom(file, source, Values::exchanged);
    } catch (ZException const& cause) {
        history->failReading(file, cause);
        throw;
    }
}

void ZProperties::runEdit(FileEdit const& edit) {
    ZUndo const over([&isUpdating = history->isUpdating] { isUpdating = false; });
    history->isUpdating = true;
    edit.call(edit.edit, *this);
}
