#include "Z/config/files/file_store.h"

#include <optional>

#include "Z/ZException.h"
#include "Z/config/files/companion_file.h"
#include "Z/utility/undo.h"

namespace zfc::config {

using zfc::platform::Rewrite;

/// Space is asked for before there is a copy, so that a full device costs nothing. The copy has to
/// be on the device before the first byte is written (makeCopy, fillCopy, flushCopy).
void FileStore::write() {
    Rewrite rewrite(plan.path, target.descriptor(), plan.image);
    if (plan.companion != nullptr) plan.companion->prepare();
    rewrite.prepare();
    if (plan.makesCopy) makeCopy(rewrite);
    writeFiles(rewrite);
    target.examine();
}

/// The companion is written first: the main file must never name values that are not on the device
/// (writeCompanion, flushCompanion, writeMain, flushMain; putBack).
void FileStore::writeFiles(Rewrite& rewrite) {
    CompanionFile* const companion = plan.companion;
    ZUndo putBack([&] {
        bool const isMainBack = rewrite.undo();
        bool const isCompanionBack = companion == nullptr || companion->undo();
        // Whoever loads next finishes with it what is half written.
        if (!isMainBack || !isCompanionBack) copy.leave();
    });
    if (companion != nullptr) companion->apply(target.status());
    rewrite.apply();
    // Who looks for changes looks at the main file.
    if (companion != nullptr && rewrite.range().isEmpty())
        zfc::platform::touch(plan.path, target.descriptor());
    if (target.status().size == 0 && !copy.exists()) zfc::platform::flushDirectory(plan.path);
    putBack.keep();
    rewrite.keep();
    target.keep();
    if (companion != nullptr) companion->keep();
}

namespace {

/// The record of a companion that goes with the store; nothing when it cannot be read: then its
/// removal is not finished by others.
std::optional<FileRecord> recordOfDropped(char const* path, std::string_view name) {
    try {
        auto const file = openCompanion(path, Access::read);
        if (!file.isOpen()) return std::nullopt;
        auto const old = zfc::platform::readWhole(path, file.get());
        ChangedRange unchanged;
        unchanged.oldSize = unchanged.newSize = old.bytes().size();
        FileRecord record = recordOf(name, old.bytes(), unchanged);
        record.remains = false;
        return record;
    } catch (ZPropertiesIOException const&) {
        return std::nullopt;
    }
}

}  // namespace

void FileStore::makeCopy(Rewrite const& rewrite) {
    CompanionFile const* const companion = plan.companion;
    bool const writesCompanion =
        companion != nullptr && (companion->isNew() || !companion->range().isEmpty());
    if (rewrite.range().isEmpty() && !writesCompanion) return;
    Vector<FileRecord> files;
    files.push_back(recordOf("", rewrite.oldBytes(), rewrite.range()));
    String name;
    if (writesCompanion) {
        name = nameInCopy(companion->name(), plan.path);
        files.push_back(recordOf(name, companion->oldBytes(), companion->range()));
        files.back().existed = !companion->isNew();
        if (companion->status()) copy.protect(*companion->status());
    }
    String droppedName;
    if (*plan.dropped != '\0') {
        droppedName = nameInCopy(plan.dropped, plan.path);
        auto const record = recordOfDropped(plan.dropped, droppedName);
        if (record) files.push_back(*record);
    }
    copy.make(files);
}

}  // namespace zfc::config
