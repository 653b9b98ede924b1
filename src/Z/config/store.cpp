#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <utility>

#include "Z/ZBuffer.h"
#include "Z/ZException.h"
#include "Z/ZProperties.h"
#include "Z/config/companion_choice.h"
#include "Z/config/companion_file.h"
#include "Z/config/file_history.h"
#include "Z/platform/locked_file.h"
#include "Z/platform/rewrite.h"

namespace {

using zfc::config::CompanionFile;
using zfc::platform::Rewrite;

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

/// Both files, or neither; what the main file is then.
///
/// The companion is written first: the main file must never name values that are not on the device.
/// Nothing is kept before both are written, since each destructor puts its own file back.
zfc::platform::Status writeFiles(char const* path, zfc::platform::LockedFile& target,
                                 std::string_view image, std::optional<CompanionFile>& companion,
                                 std::string_view companionImage) {
    if (companion) companion->write(companionImage, target.status());
    Rewrite rewrite(path, target.descriptor(), image);
    rewrite.apply();
    if (target.status().size == 0) zfc::platform::flushDirectory(path);
    rewrite.keep();
    target.keep();
    if (companion) companion->keep();
    // Asked again, now that writing has changed it.
    return zfc::platform::statusOf(target.descriptor()).value_or(target.status());
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
    // Under the main file's lock, which stands for both.
    std::optional<CompanionFile> companion;
    if (hasCompanion)
        companion.emplace(companionName.getChars(), path,
                          history->companion == companionName.getChars());
    auto const status = writeFiles(path, target, image.bytes(), companion, bytesOf(companionImage));

    if (auto changed = stored.takeChanged()) cache = std::move(changed);
    // May fail, with the file stored: so the object stays modified, and the next store tries again.
    settleCompanion(companionName.getChars(), path);
    if (fileName.isEmpty()) fileName = name;
    settle(path, status);
}

/// After both files are written: the one that is no longer named goes, unless another file may
/// still name it.
void ZProperties::settleCompanion(char const* name, char const* file) {
    if (*name != '\0') return history->rememberCompanion(name, file);
    if (history->companion.isEmpty() || !(history->companionOwner == file)) return;
    if (!zfc::config::belongsToOther(history->companion.getChars(), file))
        zfc::config::removeCompanion(history->companion.getChars());
    history->rememberCompanion("", "");
}
