/// The recovery copy of a store, ".NAME.zsave" beside the file NAME: what it holds, how it is made,
/// and which one counts. What is done with one that is found stands in recovery.h.
///
/// A store that is killed leaves a file of which a part is old and a part new. The copy stands
/// complete on the device before the first byte of the file is touched, so that whoever comes next
/// can finish the store. docs/models/store.pml is the model of the protocol.
#ifndef Z_CONFIG_FILES_RECOVERY_COPY_H
#define Z_CONFIG_FILES_RECOVERY_COPY_H

#include <cstdint>
#include <optional>
#include <string_view>

#include "Z/config/cache/texts.h"
#include "Z/platform/locked_file.h"
#include "Z/platform/rewrite.h"

namespace zfc::config {

using zfc::cache::String;
using zfc::cache::Vector;
using zfc::platform::ChangedRange;
using zfc::platform::Status;

/// What a store does with one file. The texts are the store's own, or those of a copy's bytes.
struct FileRecord {
    std::string_view name;  // "": the main file; without a slash: beside it; else an absolute path
    bool existed = true;    // before the store
    bool remains = true;    // after it
    ChangedRange range;
    // Checksums (CRC-32 of RFC 1952) of what the store leaves alone.
    std::uint32_t headSum = 0;  // in front of the range
    std::uint32_t tailSum = 0;  // behind it
};

/// The record of a file that holds `oldBytes`.
[[nodiscard]] FileRecord recordOf(std::string_view name, std::string_view oldBytes,
                                  ChangedRange const& range);

enum class FileState {
    old,       // as before the store
    between,   // as a store that is broken off leaves it
    complete,  // as after the store
    edited     // none of these: somebody changed it since
};

/// What a file is that holds `bytes`; nothing: there is no such file.
[[nodiscard]] FileState stateOf(FileRecord const& record, std::optional<std::string_view> bytes);

/// ".NAME.zsave" beside the file, or beside what it is a link to; empty for a file without a name.
[[nodiscard]] String recoveryPath(char const* file);

/// The directory of a path, with its slash; empty for a path without one.
[[nodiscard]] std::string_view directoryPart(std::string_view path);

/// The name for a record of `path`, a file that belongs to the main file `file`.
[[nodiscard]] String nameInCopy(char const* path, char const* file);

/// A copy that a store makes. Used under the exclusive lock of the main file.
class RecoveryCopy {
  public:
    /// Of a store of the file, which has the status given; nothing is made yet. The path is used
    /// until the end.
    RecoveryCopy(char const* mainPath, Status const& mainFile);
    /// Removes a copy that was made, unless leave() was called.
    ~RecoveryCopy();
    RecoveryCopy(RecoveryCopy const&) = delete;
    RecoveryCopy& operator=(RecoveryCopy const&) = delete;

    /// Nobody who may not read this companion may read the copy.
    void protect(Status const& companion);
    /// Makes the copy, flushed to the device with its directory entry. Where the directory cannot
    /// be written, its name would be too long or the copy could not be given to the file's owner,
    /// there is none. What stands in its place and does not count is put aside and reported
    /// (message 58). Raises ZPropertiesIOException (message 43) with the copy's name and
    /// "fopen(w)", "write()" or "fsync()", and then nothing is left of it.
    void make(Vector<FileRecord> const& files);
    [[nodiscard]] bool exists() const { return isMade; }
    /// The copy stays, for whoever loads or stores next.
    void leave() noexcept { isMade = false; }

  private:
    [[nodiscard]] bool create();
    [[nodiscard]] bool isCleared() const;
    [[noreturn]] void refuse(char const* operation, int error) const;
    [[nodiscard]] bool giveToOwner() const;
    void write(std::string_view bytes) const;

    char const* file;
    String path;
    Status owner;             // of the main file
    bool isForOwner = false;  // whoever makes the copy has to keep it for himself
    mode_t permissions;
    zfc::platform::Descriptor copy;
    bool isMade = false;
};

/// A copy that was found and counts.
struct FoundCopy {
    String path;
    zfc::platform::Descriptor file;
    Status status;
    zfc::platform::FilePages bytes;
    Vector<FileRecord> files;  // the main file first; texts in `bytes`
    bool isOfThisFile = true;  // and not of one that it was copied from, or that was replaced
    bool isReplaced = false;   // another file was put in the place of the one that was stored

    /// Whether its maker was killed over it; then the files are as they were.
    [[nodiscard]] bool isCutOff() const { return files.empty(); }
};

/// The copy that stands beside `file`, which has the status given. Nothing when there is none, and
/// none that counts: a regular file with one link, of the file's owner or the superuser, which
/// nobody may use who may not use the file, whole or cut off; any other is reported (message 57).
/// One that counts and cannot be read raises ZPropertiesIOException (message 43) with its name.
[[nodiscard]] std::optional<FoundCopy> findCopy(char const* file, Status const& mainFile);

/// Reports that the copy is left alone (message 57).
void reportCutOff(FoundCopy const& copy, char const* file) noexcept;

/// The same, and removes it.
void removeCutOff(FoundCopy const& copy, char const* file) noexcept;

/// Puts the copy aside as ".NAME.zsave.old", in the place of an older one, and reports it (message
/// 58). Raises ZPropertiesIOException (message 43) with "rename()".
void setAside(FoundCopy const& copy, char const* file);

}  // namespace zfc::config

#endif
