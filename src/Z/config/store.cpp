#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <utility>

#include "Z/ZBuffer.h"
#include "Z/ZException.h"
#include "Z/ZProperties.h"
#include "Z/config/file_history.h"
#include "Z/config/files/companion_choice.h"
#include "Z/config/files/companion_file.h"
#include "Z/config/files/file_store.h"
#include "Z/config/files/recovery.h"
#include "Z/platform/locked_file.h"

namespace {

using zfc::config::CompanionFile;

constexpr char sourceName[] = "src/Z/ZProperties";

/// Bytes that are written to a stream first.
class Image {
  public:
    Image() : stream(open_memstream(&block, &size)) {
        if (stream == nullptr) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    }
    ~Image() {
        if (stream != nullptr) std::fclose(stream);
        std::free(block);
    }
    Image(Image const&) = delete;
    Image& operator=(Image const&) = delete;

    [[nodiscard]] FILE* getStream() const { return stream; }
    /// Ends the writing.
    void finish() {
        // POSIX: block and size are right only when the stream is closed or flushed.
        int const rc = std::fclose(std::exchange(stream, nullptr));
        if (rc != 0 || block == nullptr) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    }
    [[nodiscard]] std::string_view bytes() const { return {block, size}; }

  private:
    char* block = nullptr;  // of the stream, ours when it is closed
    std::size_t size = 0;
    FILE* stream;  // null when finished
};

/// ZBuffer has no view of const bytes.
std::string_view bytesOf(ZBuffer const& buffer) {
    return {static_cast<char const*>(buffer.getBuffer()), buffer.getLength()};
}

}  // namespace

void ZProperties::store(char const* file) {
    ZCancellationOff const wholeFiles;
    ZPropResourceLock const hold(propLock);
    storeTo(resolved(file), nullptr);
}

/// First what can fail without a file open (names, rights, both images whole in memory), then the
/// lock, then the files, and last what the object knows: whatever fails before that, it still
/// counts as modified and has the values that it had. `held` is the file when the caller has it
/// open and locked.
void ZProperties::storeTo(ZLCString const& name, zfc::platform::LockedFile* held) {
    char const* const path = name.getChars();
    // By name, before a lock is asked for; by identity when the file is open.
    history->refuseHalfRead(path, {});
    zfc::platform::checkFileAccess(path);

    zfc::config::StoredValues stored(*cache, path);
    ZLCString const& companionName = stored.companionName();
    bool const hasCompanion = !companionName.isEmpty();
    if (hasCompanion) zfc::platform::checkFileAccess(companionName.getChars());
    Image image;
    stored.values().be_write(path, image.getStream());
    image.finish();
    ZBuffer companionImage;
    stored.values().be_write_obfuscated(companionImage);

    // Behind the images: a format that refuses a line must not leave a new, empty file.
    std::optional<zfc::platform::LockedFile> opened;
    zfc::platform::LockedFile& target =
        held != nullptr ? *held : opened.emplace(path, zfc::platform::Purpose::store);
    history->refuseHalfRead(path, target.status().identity);
    // What it did not come to belongs to this store's past.
    if (held == nullptr) zfc::config::finishStore(path, target);
    storeInto(target, stored, image.bytes(), bytesOf(companionImage));
    if (fileName.isEmpty()) fileName = name;
    // Somebody without a lock has put another file in place, which the caller of an update reads.
    if (held == nullptr && target.isReplaced())
        zraise(ZPropertiesIOException(path, "store()", ESTALE), sourceName, __LINE__);
    settle(path, target.status());
}

/// Under the main file's lock, which stands for the companion too.
void ZProperties::storeInto(zfc::platform::LockedFile& target, zfc::config::StoredValues& stored,
                            std::string_view image, std::string_view companionImage) {
    char const* const path = target.name();
    char const* const companionName = stored.companionName().getChars();
    std::optional<CompanionFile> companion;
    if (*companionName != '\0')
        companion.emplace(companionName, path, history->companion == companionName, companionImage);
    ZLCString const dropped = droppedCompanion(companionName, path);

    zfc::config::StorePlan plan{path, image};
    plan.companion = companion ? &*companion : nullptr;
    plan.dropped = dropped.getChars();
    plan.makesCopy = (cache->getAttributes() & ZPCache::noRecoveryCopy) == 0;
    zfc::config::FileStore files(plan, target);
    files.write();

    if (auto changed = stored.takeChanged()) cache = std::move(changed);
    // May fail, with the file stored: so the object stays modified, and the next store tries again.
    if (!dropped.isEmpty()) zfc::config::removeCompanion(dropped.getChars());
    if (companion) return history->rememberCompanion(companionName, path);
    if (history->companionOwner == path) history->rememberCompanion("", "");
}

/// The companion that the file names no more once it names `name`, and that no other file may still
/// name; empty: none.
ZLCString ZProperties::droppedCompanion(char const* name, char const* file) const {
    bool const isOurs = *name == '\0' && history->companionOwner == file;
    if (!isOurs || history->companion.isEmpty()) return "";
    if (zfc::config::belongsToOther(history->companion.getChars(), file)) return "";
    return history->companion;
}
