/// Shared. One store of a configuration file and what belongs to it, protected by a recovery copy.
#ifndef Z_CONFIG_FILES_FILE_STORE_H
#define Z_CONFIG_FILES_FILE_STORE_H

#include <string_view>

#include "Z/config/files/recovery_copy.h"
#include "Z/platform/locked_file.h"
#include "Z/platform/rewrite.h"

namespace zfc::config {

class CompanionFile;

/// What is stored. All is used until the end of the store.
struct StorePlan {
    char const* path;
    std::string_view image;              // what the file is to hold
    CompanionFile* companion = nullptr;  // to be written; null: none
    char const* dropped = "";            // a companion that the file names no more; empty: none
    bool makesCopy = true;
};

/// Writes the files of a store so that whoever comes next finds them all old or all new. Used under
/// the exclusive lock; a store that was broken off is finished before. The recovery copy goes with
/// the object, unless a failure left a file that could not be put back.
class FileStore {
  public:
    FileStore(StorePlan const& intended, zfc::platform::LockedFile& mainFile)
        : plan(intended), target(mainFile), copy(intended.path, mainFile.status()) {}

    /// Both files, or neither; the main file is examined then. The dropped companion is the
    /// caller's to remove, as long as the object lives. Raises ZPropertiesIOException (message 43)
    /// with the name of the file, the operation and its errno.
    void write();

  private:
    void writeFiles(zfc::platform::Rewrite& rewrite);
    void makeCopy(zfc::platform::Rewrite const& rewrite);

    StorePlan plan;
    zfc::platform::LockedFile& target;
    RecoveryCopy copy;
};

}  // namespace zfc::config

#endif
