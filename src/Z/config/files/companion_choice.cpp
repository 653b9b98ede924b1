#include "Z/config/files/companion_choice.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

#include "Z/ZBuffer.h"
#include "Z/ZException.h"
#include "Z/config/cache/names.h"
#include "Z/config/files/companion_format.h"
#include "Z/platform/locked_file.h"

namespace zfc::config {
namespace {

using zfc::cache::companionKey;
using zfc::cache::companionStanza;
using zfc::cache::isEmpty;
using zfc::cache::isSpace;
using zfc::cache::String;
using zfc::platform::Descriptor;
using zfc::platform::Status;
using zfc::platform::statusOf;

constexpr char sourceName[] = "src/Z/ZProperties";
constexpr char companionEnding[] = ".obf";
constexpr std::size_t workingDirectorySize = 4096;
constexpr std::uint64_t largestOwner = std::uint64_t{16} << 20;  // that is searched for the name
constexpr int mostNames = 100;                                   // that are looked at in it
constexpr std::size_t longestPiece = 8191;                       // of a line, as the reader cuts it
constexpr std::size_t beginning = std::size_t{64} << 10;         // by which a companion is known

[[nodiscard]] bool isGone(int error) { return error == ENOENT || error == ENOTDIR; }

// ------------------------------------------------------------------------------------------ files

struct Opened {
    Descriptor file;
    Status status;
};

/// A regular file, open to be read. Nothing, with errno, when there is none.
std::optional<Opened> openRegular(char const* path, int flags = 0) {
    // A pipe or a device in its place must not hold us.
    Descriptor file = zfc::platform::openFile(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | flags);
    if (!file.isOpen()) return std::nullopt;
    auto const status = statusOf(file.get());
    if (!status) return std::nullopt;
    errno = S_ISDIR(status->mode) ? EISDIR : EINVAL;
    if (!status->isRegular()) return std::nullopt;
    return Opened{std::move(file), *status};
}

/// How many of `size` bytes the file had; -1 with errno.
ssize_t readBytes(Descriptor const& file, char* into, std::size_t size) {
    std::size_t have = 0;
    for (ssize_t got = 1; got != 0 && have < size; have += static_cast<std::size_t>(got)) {
        auto const at = static_cast<off_t>(have);
        got = zfc::platform::uninterrupted(
            [&] { return pread(file.get(), into + have, size - have, at); });
        if (got < 0) return -1;
    }
    return static_cast<ssize_t>(have);
}

/// The file's first bytes, `most` at most. Nothing, with errno, when they cannot be read.
std::optional<String> firstBytes(Opened const& opened, std::uint64_t most) {
    String bytes(static_cast<std::size_t>(std::min<std::uint64_t>(opened.status.size, most)), '\0');
    ssize_t const got = readBytes(opened.file, bytes.data(), bytes.size());
    if (got < 0) return std::nullopt;
    bytes.resize(static_cast<std::size_t>(got));
    return bytes;
}

[[nodiscard]] bool isSameFile(char const* one, char const* other) {
    auto const status = statusOf(one);
    auto const otherStatus = statusOf(other);
    return status && otherStatus && status->identity == otherStatus->identity;
}

// ------------------------------------------------------------------------------------------ names

/// The name that the values themselves give, without the blanks that a reader takes off.
ZLCString namedCompanion(ZPCategoryBasedCache const& cache) {
    ZLCString name;
    cache.forEachValue(
        companionStanza, companionKey, ZPCache::plainValues,
        [&](char const* text, unsigned int length) { name = ZLCString(text, length); });
    name.stripWhiteSpace();
    return name;
}

/// The file's own: beside it, wherever later readers have their working directory.
ZLCString ownCompanion(char const* file) {
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

[[nodiscard]] std::string_view lastPart(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

/// The file that has the companion as its own, by the names; empty when the name tells none.
ZLCString ownerByName(char const* companion) {
    std::string_view const name = companion;
    constexpr std::size_t ending = sizeof companionEnding - 1;
    bool const tellsOne =
        lastPart(name).size() > ending && name.substr(name.size() - ending) == companionEnding;
    return tellsOne ? ZLCString(companion, static_cast<unsigned int>(name.size() - ending)) : "";
}

// ---------------------------------------------------------------------------- what a file names

[[nodiscard]] std::string_view stripped(std::string_view text) {
    while (!text.empty() && isSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

/// The value of a line "file = value"; its data is null for any other line.
[[nodiscard]] std::string_view fileNamedBy(std::string_view line) {
    std::size_t const equals = line.find('=');
    if (equals == std::string_view::npos || stripped(line.substr(0, equals)) != companionKey)
        return {};
    return stripped(line.substr(equals + 1));
}

/// Calls visit(line) for each line as the reader has them, until it answers true, which is the
/// answer then.
template <class Visit>
bool anyLine(std::string_view text, Visit visit) {
    while (!text.empty()) {
        std::string_view const piece = text.substr(0, longestPiece);
        std::size_t const feed = piece.find('\n');
        if (visit(piece.substr(0, feed))) return true;
        text.remove_prefix(feed == std::string_view::npos ? piece.size() : feed + 1);
    }
    return false;
}

[[nodiscard]] bool means(std::string_view name, char const* companion) {
    if (name == companion) return true;
    // Which directory its readers are in is not known here.
    bool const isRelative = name.front() != '/';
    if (isRelative && lastPart(name) == lastPart(companion)) return true;
    return isSameFile(String(name).c_str(), companion);
}

/// Whatever the stanza: that a file names the companion is taken from the least hint.
[[nodiscard]] bool textNames(std::string_view text, char const* companion) {
    int seen = 0;
    return anyLine(text, [&](std::string_view line) {
        std::string_view const name = fileNamedBy(line);
        return !name.empty() && (++seen > mostNames || means(name, companion));
    });
}

[[nodiscard]] bool fileNames(char const* file, char const* companion) {
    auto const opened = openRegular(file);
    if (!opened || opened->status.size > largestOwner) return true;
    auto const text = firstBytes(*opened, largestOwner);
    return !text || textNames(*text, companion);
}

// ---------------------------------------------------------------------------------------- reading

/// Nothing that compresses makes more of its content than this, and no reader has to take it.
[[nodiscard]] std::uint64_t largestFile(unsigned long limit) {
    constexpr std::uint64_t frame = 1024;
    return limit + std::uint64_t{limit} / 8 + frame;
}

/// The system's words; not strerror(), whose text another thread may overwrite.
[[nodiscard]] char const* wordsOf(int cause) {
    char const* const words = strerrordesc_np(cause);
    return words != nullptr ? words : "Unknown error";
}

/// The companion that is read, and who names it.
struct Source {
    char const* companion;
    char const* file;

    [[noreturn]] void raiseUnreadable(int cause, char const* reason = nullptr) const {
        // As the map of a file answers for one that is not there.
        int const error = isGone(cause) ? EINVAL : cause;
        char const* const words = reason != nullptr ? reason : wordsOf(cause);
        zraise(ZPropertiesCompanionIOException(companion, file, words, error, cause), sourceName,
               __LINE__);
    }
    [[noreturn]] void raiseDamaged(ZLCString const& reason) const {
        zraise(ZPropertiesCompanionDataException(companion, file, reason.getChars()), sourceName,
               __LINE__);
    }

    /// Read, not mapped: a mapped file that somebody cuts off ends the process that reads on.
    void readInto(ZBuffer& bytes, unsigned long limit) const {
        auto const opened = openRegular(companion);
        if (!opened) raiseUnreadable(errno, errno == EINVAL ? "It is no regular file" : nullptr);
        if (opened->status.size == 0) raiseUnreadable(EINVAL, "It is empty");
        if (opened->status.size > largestFile(limit)) raiseDamaged(tooLarge(limit));
        auto const size = static_cast<unsigned long>(opened->status.size);
        bytes.setLength(size);
        ssize_t const got = readBytes(opened->file, static_cast<char*>(bytes.getBuffer()), size);
        if (got < 0) raiseUnreadable(errno);
        bytes.setLength(static_cast<unsigned long>(got));
    }
};

[[nodiscard]] ZLCString faultOf(ZBuffer const& bytes, unsigned long limit) {
    ZLCString fault =
        companionFault({static_cast<char const*>(bytes.getBuffer()), bytes.getLength()}, limit);
    // A cache with a format of its own may know more.
    return fault.isEmpty() ? "its content is invalid" : fault;
}

}  // namespace

// -------------------------------------------------------------------------------- which file it is

bool belongsToOther(char const* companion, char const* file) {
    ZLCString const owner = ownerByName(companion);
    if (owner.isEmpty() || owner == file) return false;
    auto const status = statusOf(owner.getChars());
    if (!status) return !isGone(errno);
    // What is no regular file cannot be a configuration.
    if (!status->isRegular() || isSameFile(owner.getChars(), file)) return false;
    return fileNames(owner.getChars(), companion);
}

ZLCString companionToLoad(char const* named, char const* file) {
    if (isEmpty(named) || statusOf(named) || !isGone(errno)) return named;
    ZLCString own = ownCompanion(file);
    auto const status = statusOf(own.getChars());
    return status && status->isRegular() ? own : ZLCString(named);
}

bool mayTakeOver(char const* companion, char const* file) {
    ZLCString const owner = ownerByName(companion);
    bool const isOwn =
        !owner.isEmpty() && (isSameFile(owner.getChars(), file) || ownCompanion(file) == companion);
    if (!isOwn) return false;
    auto const opened = openRegular(companion, O_NOFOLLOW);
    if (!opened || opened->status.links != 1) return false;
    // In a directory that others may write, it may be one of theirs that waits for our secrets.
    auto const mainFile = statusOf(file);
    bool const isOfOwner = mainFile && opened->status.owner == mainFile->owner;
    if (!isOfOwner && opened->status.owner != geteuid()) return false;
    auto const bytes = firstBytes(*opened, beginning);
    return bytes && beginsLikeCompanion(*bytes);
}

StoredValues::StoredValues(ZPCategoryBasedCache& ofObject, char const* file) : cache(&ofObject) {
    if (cache->obfuscatedCount() == 0) {
        forgetCompanion();
    } else {
        chooseCompanion(file);
    }
}

void StoredValues::forgetCompanion() {
    if (*cache->getCompanionName() == '\0') return;
    if (cache->contains(companionStanza, companionKey))
        changeable().remove(companionStanza, companionKey);
    changeable().setCompanionName("");
}

void StoredValues::chooseCompanion(char const* file) {
    ZLCString const named = namedCompanion(*cache);
    // Where the line is gone, the file that it named is still ours.
    ZLCString const known = named.isEmpty() ? ZLCString(cache->getCompanionName()) : named;
    bool const isFree = !known.isEmpty() && !belongsToOther(known.getChars(), file);
    companion = isFree ? companionToLoad(known.getChars(), file) : ownCompanion(file);
    if (companion == named) return;
    changeable().addLine(companionStanza, companionKey, companion.getChars(), 0);
}

ZPCategoryBasedCache& StoredValues::changeable() {
    // The object's own values stay as they are until both files are stored.
    if (!copy) copy.reset(static_cast<ZPCategoryBasedCache*>(cache->clone()));
    if (!copy) zraise(ZNotClonableException(), sourceName, __LINE__);
    return *copy;
}

// ----------------------------------------------------------------------------------------- reading

void readCompanionInto(ZPCategoryBasedCache& cache, char const* companion, char const* file,
                       std::optional<std::string_view> recovered) {
    Source const source{companion, file};
    ZBuffer bytes;
    if (recovered) {
        bytes.setLength(static_cast<unsigned long>(recovered->size()));
        std::copy(recovered->begin(), recovered->end(), static_cast<char*>(bytes.getBuffer()));
    } else {
        source.readInto(bytes, cache.getCompanionLimit());
    }
    try {
        cache.be_read_obfuscated(bytes);
    } catch (ZPropertiesInvalidDataException const&) {
        source.raiseDamaged(faultOf(bytes, cache.getCompanionLimit()));
    }
    // Where the file names one that is gone: whoever asks next must not look for that.
    cache.setCompanionName(companion);
}

}  // namespace zfc::config
