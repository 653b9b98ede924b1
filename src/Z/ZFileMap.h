/// Files in memory: a whole file, or a given length of it, mapped to be read or written in place.
///
/// Nothing here throws but the copying of the file's name at construction; failures are `errno`
/// values in an `int` of the caller's (a null pointer for it is allowed and tells nothing). One
/// thread uses a map at a time.
///
/// What may surprise, as with every mapping: memory behind the end of the file, such as when
/// another process cuts it, cannot be touched (SIGBUS). A write map has its room on the device from
/// when it is made, also where the file has holes, if the file system can give that.
#ifndef Z_ZFILEMAP_H
#define Z_ZFILEMAP_H

#include "Z/ztags.h"

#include "Z/ZLCString.h"
#include "Z/zexport.h"

/// A file that can be mapped, on whatever platform.
class ZFC_API ZAbstractFileMap {
  public:
    /// How the memory is used. A write map creates a missing file and extends one that is shorter
    /// than asked for.
    enum zmapmode { readOnly = 0, readWrite = 1 };

    /// Opens nothing. `name` is copied.
    ZAbstractFileMap(ZLCString const& name, zmapmode mapMode, int mapFlags);
    ZAbstractFileMap(ZAbstractFileMap const&) = delete;

    // in slot order: do not sort
    /// Maps `requested` bytes of the file, 0 for all it has, and returns where; null on failure.
    /// What was mapped before is unmapped first. `*rc` is 0 or
    /// - EINVAL: `requested` is 0 and the file is empty or missing;
    /// - ENOENT: the file is missing, in a read map;
    /// - EOVERFLOW: more than 4 GiB - 1 byte, on 32 bits more than 2 GiB - 1 byte;
    /// - EFBIG: a write map would pass the process's limit on file sizes;
    /// - ENOSPC: the device has no room for a write map; the file is as long as before;
    /// - else the `errno` of open, statx, fallocate, or mmap.
    /// A read map may be longer than its file. A new file is for its owner to read and write.
    virtual void* mapfile(int* rc, unsigned long requested) = 0;
    /// Unmaps and closes; does nothing when nothing is mapped. Writes `*rc` on failure only, with
    /// the `errno` of munmap, after which the memory stays mapped, or of close.
    virtual void unmapfile(int* rc) = 0;
    virtual ~ZAbstractFileMap();

  protected:
    /// Changes nothing: name and mode are an object's own.
    ZAbstractFileMap& operator=(ZAbstractFileMap const&) { return *this; }

    ZLCString fileName;       // the path
    zmapmode mode;            // what the memory may be used for
    int flags;                // the constructor's. Layout: without meaning on POSIX
    void* address = nullptr;  // the mapping; null when there is none
    unsigned int length = 0;  // its bytes; without meaning when there is none
};

/// The POSIX kind. Descriptors are closed on exec and never 0, 1 or 2.
class ZFC_API ZUnixFileMap : public ZAbstractFileMap {
  public:
    /// Nothing is opened or mapped yet. `name` is copied; `mapFlags` have no meaning on POSIX.
    ZUnixFileMap(ZLCString const& name, zmapmode mapMode, int mapFlags);
    ZUnixFileMap(ZUnixFileMap const&) = delete;
    /// When `other` is mapped and not this object, maps this object's own file, with its own mode,
    /// whole; a failure leaves it unmapped. Nothing is shared with `other`.
    ZUnixFileMap& operator=(ZUnixFileMap const& other);

    // in slot order: do not sort
    void* mapfile(int* rc, unsigned long requested) override;
    void unmapfile(int* rc) override;
    /// Unmaps; a failure is not told.
    ~ZUnixFileMap() override;

  private:
    [[nodiscard]] int openFile(int extraFlags);
    [[nodiscard]] int fit(unsigned long requested);
    [[nodiscard]] int mapOpened();

    int fd = 0;  // the open file; 0 when there is none
};

#endif
