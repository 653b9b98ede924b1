/// Shared. Shared in config. What becomes of a store that was broken off, by whoever loads or
/// stores next.
#ifndef Z_CONFIG_FILES_RECOVERY_H
#define Z_CONFIG_FILES_RECOVERY_H

#include <cstdio>
#include <memory>
#include <optional>
#include <string_view>

#include "Z/config/files/recovery_copy.h"
#include "Z/platform/locked_file.h"

namespace zfc::config {

/// Finishes a store of `file` that was broken off, in the files, which `target` holds under an
/// exclusive lock. Where one of them was edited since, that one stays as it is, the other is made
/// whole and the copy put aside with a report. Does nothing where there is no copy. What fails
/// raises ZPropertiesIOException (message 43) with the name of the file that it happened to, and
/// the copy stays for another attempt.
void finishStore(char const* file, zfc::platform::LockedFile& target);

/// A file that is open and locked to be loaded. A store that was broken off is finished first: in
/// the files where that is possible, else in what is read here.
class FileSource {
  public:
    /// Opens the file; raises what LockedFile does. The path is used until the end.
    explicit FileSource(char const* filePath);
    /// Of a file that the caller holds under an exclusive lock, until the end. Raises what
    /// finishStore() does.
    FileSource(char const* filePath, zfc::platform::LockedFile& held);

    /// As it was when the lock was had, or when its store was finished here.
    [[nodiscard]] zfc::platform::Status const& status() const { return file->status(); }
    /// Whether the file was not there before it was opened.
    [[nodiscard]] bool isNew() const { return file->isCreated(); }
    /// What there is to read, which lives as long as this. Asked for once.
    [[nodiscard]] FILE* stream();
    /// The same as bytes.
    [[nodiscard]] String image() const;
    /// The bytes of a companion that is not as it is to be read; nothing for any other.
    [[nodiscard]] std::optional<std::string_view> companionBytes(char const* name) const;

  private:
    struct CloseStream {
        void operator()(FILE* opened) const noexcept { std::fclose(opened); }
    };
    struct Companion {
        String name;  // as in the copy
        String bytes;
    };

    void open();
    [[nodiscard]] bool isFinishedInFiles();
    void finishHere(FoundCopy const& copy);

    char const* path;
    std::optional<zfc::platform::LockedFile> own;  // none: the caller's
    zfc::platform::LockedFile* file;
    std::optional<String> mainBytes;  // in the place of the file's
    std::unique_ptr<FILE, CloseStream> memory;
    Vector<Companion> companions;
};

}  // namespace zfc::config

#endif
