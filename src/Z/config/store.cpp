#include "Z/ZBuffer.h"
#include "Z/ZException.h"
#include "Z/ZProperties.h"
#include "Z/config/arguments.h"
#include "Z/config/file_history.h"
#include "Z/platform/locked_file.h"
#include "Z/platform/rewrite.h"
#include "Z/zfree.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string_view>

namespace {

using zfc::platform::Descriptor;
using zfc::platform::Rewrite;
using zfc::platform::Status;

constexpr char sourceName[] = "src/Z/ZProperties";
constexpr char companionStanza[] = "configuration-database";
constexpr char companionKey[] = "file";
constexpr char companionEnding[] = ".obf";
constexpr std::size_t workingDirectorySize = 4096;

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
        int const rc = std::fclose(std::exchange(stream, nullptr));
        if (rc != 0 || block == nullptr) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    }
    [[nodiscard]] std::string_view bytes() const { return {block, size}; }

  private:
    char* block = nullptr;  // of the stream, ours when it is closed
    std::size_t size = 0;
    FILE* stream;  // null when finished
};

/// The open companion file, in the state it had when it is not kept.
class Companion {
  public:
    /// One that the object knows is opened, or made when it is gone; any other must not exist.
    Companion(char const* companionPath, bool isKnown) : path(companionPath) {
        if (isKnown) open();
        if (!file.isOpen()) create();
    }
    ~Companion() {
        if (isNew) ::unlink(path);
    }
    Companion(Companion const&) = delete;
    Companion& operator=(Companion const&) = delete;

    void write(std::string_view image, Status const& mainFile) {
        rewrite.emplace(path, file.get(), image);
        rewrite->apply();
        giveTo(mainFile);
        if (isNew) zfc::platform::flushDirectory(path);
    }
    void keep() noexcept {
        rewrite->keep();
        isNew = false;
    }

  private:
    // A link would lead the owner's rights to somebody else's file, a pipe would hold us.
    static constexpr int flags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;

    void open() {
        file = zfc::platform::openFile(path, flags);
        if (!file.isOpen() && errno == ENOENT) return;
        if (!file.isOpen()) refuse(errno);
        auto const status = zfc::platform::statusOf(file.get());
        if (!status) refuse(errno);
        if (!status->isRegular()) refuse(EINVAL);
    }
    void create() {
        file = zfc::platform::openFile(path, flags | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR);
        if (!file.isOpen()) refuse(errno);
        isNew = true;
    }
    [[noreturn]] void refuse(int error) const {
        zraise(ZPropertiesIOException(path, "fopen(w)", error), sourceName, __LINE__);
    }
    /// Owner, group and permissions of the main file, as far as this process may; where the group
    /// cannot be given, the permissions meant for it are not given to another one.
    void giveTo(Status const& mainFile) const {
        mode_t permissions = mainFile.mode & (S_IRWXU | S_IRWXG | S_IRWXO);
        bool const isGiven = fchown(file.get(), mainFile.owner, mainFile.group) == 0 ||
                             fchown(file.get(), static_cast<uid_t>(-1), mainFile.group) == 0;
        if (!isGiven) permissions &= ~static_cast<mode_t>(S_IRWXG);
        static_cast<void>(fchmod(file.get(), permissions));
    }

    char const* path;
    Descriptor file;
    bool isNew = false;  // made here, and to be removed
    std::optional<Rewrite> rewrite;
};

/// The name that the file itself gives, without the blanks that a reader takes off.
ZLCString namedCompanion(ZPCategoryBasedCache const& cache) {
    ZLCString name;
    cache.forEachValue(
        companionStanza, companionKey, ZPCache::plainValues,
        [&](char const* text, unsigned int length) { name = ZLCString(text, length); });
    name.stripWhiteSpace();
    return name;
}

/// Beside the file, wherever later readers have their working directory.
ZLCString newCompanion(char const* file) {
    ZLCString name;
    if (*file != '/') {
        char current[workingDirectorySize];
        if (getcwd(current, sizeof current) == nullptr)
            zraise(ZPropertiesIOException(file, "getcwd()", errno), sourceName, __LINE__);
        name = current;
        name += '/';
    }
    name += file;
    name += companionEnding;
    return name;
}

/// The cache as the stored file shows it: a copy when the file's word on its companion changes.
class Stored {
  public:
    Stored(ZPCategoryBasedCache& ofObject, char const* file) : cache(&ofObject) {
        if (cache->obfuscatedCount() == 0) {
            forgetCompanion();
        } else {
            chooseCompanion(file);
        }
    }

    /// Empty: the values need none.
    [[nodiscard]] char const* companionName() const { return companion.getChars(); }
    [[nodiscard]] ZPCategoryBasedCache& values() const { return copy ? *copy : *cache; }
    /// Null: nothing changed.
    [[nodiscard]] std::unique_ptr<ZPCategoryBasedCache> takeChanged() { return std::move(copy); }

  private:
    void forgetCompanion() {
        if (*cache->getCompanionName() == '\0') return;
        if (cache->contains(companionStanza, companionKey))
            changeable().remove(companionStanza, companionKey);
        changeable().setCompanionName("");
    }
    void chooseCompanion(char const* file) {
        companion = namedCompanion(*cache);
        if (!companion.isEmpty()) return;
        companion = cache->getCompanionName();
        if (companion.isEmpty()) companion = newCompanion(file);
        changeable().addLine(companionStanza, companionKey, companion.getChars(), 0);
    }
    ZPCategoryBasedCache& changeable() {
        if (!copy) copy.reset(static_cast<ZPCategoryBasedCache*>(cache->clone()));
        if (!copy) zraise(ZNotClonableException(), sourceName, __LINE__);
        return *copy;
    }

    ZPCategoryBasedCache* cache;
    std::unique_ptr<ZPCategoryBasedCache> copy;
    ZLCString companion;
};

/// ZBuffer has no view of const bytes.
std::string_view bytesOf(ZBuffer const& buffer) {
    return {static_cast<char const*>(buffer.getBuffer()), buffer.getLength()};
}

/// Both files, or neither; the time that the main file has then.
long writeFiles(char const* path, zfc::platform::LockedFile& target, std::string_view image,
                std::optional<Companion>& companion, std::string_view companionImage) {
    if (companion) companion->write(companionImage, target.status());
    Rewrite rewrite(path, target.descriptor(), image);
    rewrite.apply();
    if (target.status().size == 0) zfc::platform::flushDirectory(path);
    rewrite.keep();
    target.keep();
    if (companion) companion->keep();
    return zfc::platform::statusOf(target.descriptor()).value_or(target.status()).modified;
}

void removeCompanion(char const* path) {
    if (zfc::platform::isLinkOrSpecial(path))
        zraise(ZPropertiesIOException(path, "unlink()", EINVAL), sourceName, __LINE__);
    if (unlink(path) != 0 && errno != ENOENT)
        zraise(ZPropertiesIOException(path, "unlink()", errno), sourceName, __LINE__);
}

}  // namespace

void ZProperties::store(char const* file) {
    ZCancellationOff const wholeFiles;
    ZPropResourceLock const hold(propLock);
    ZLCString const name = resolved(file);
    char const* const path = name.getChars();
    history->refuseHalfRead(path, {});
    zfc::platform::checkFileAccess(path);

    Stored stored(*cache, path);
    ZLCString const companionName = stored.companionName();
    bool const hasCompanion = !companionName.isEmpty();
    if (hasCompanion) zfc::platform::checkFileAccess(companionName.getChars());
    Image image;
    stored.values().be_write(path, image.getStream());
    image.finish();
    ZBuffer companionImage;
    stored.values().be_write_obfuscated(companionImage);

    zfc::platform::LockedFile target(path, zfc::platform::Purpose::store);
    history->refuseHalfRead(path, target.status().identity);
    std::optional<Companion> companion;
    if (hasCompanion)
        companion.emplace(companionName.getChars(), history->companion == companionName.getChars());
    long const time = writeFiles(path, target, image.bytes(), companion, bytesOf(companionImage));

    if (auto changed = stored.takeChanged()) cache = std::move(changed);
    settleCompanion(companionName.getChars(), path);
    if (fileName.isEmpty()) fileName = name;
    settle(path, time);
}

/// After both files are written: the one that is no longer named goes, unless another file may
/// still name it.
void ZProperties::settleCompanion(char const* name, char const* file) {
    if (*name != '\0') return history->rememberCompanion(name, file);
    if (history->companion.isEmpty() || !(history->companionOwner == file)) return;
    removeCompanion(history->companion.getChars());
    history->rememberCompanion("", "");
}
