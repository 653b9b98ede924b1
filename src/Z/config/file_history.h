/// What a properties object remembers of its files beyond their name.
#ifndef Z_CONFIG_FILE_HISTORY_H
#define Z_CONFIG_FILE_HISTORY_H

#include <memory>

#include "Z/ZException.h"
#include "Z/ZLCString.h"
#include "Z/ZProperties.h"
#include "Z/config/cache/texts.h"
#include "Z/platform/locked_file.h"

/// Used under the object's lock.
struct ZProperties::FileHistory : public ZObject {
    /// A file that a store would spoil: it was read in part, or is being read, or its values were
    /// dropped for such a file.
    struct HalfRead {
        ZLCString file;
        zfc::platform::Identity identity;     // the same, whatever its name
        std::unique_ptr<ZException> failure;  // of the load; null: it could not be kept
    };
    using HalfReads = zfc::cache::Vector<HalfRead>;

    HalfReads halfReads;       // each name once
    ZLCString companion;       // decoded or written by this object; empty: none
    ZLCString companionOwner;  // the file that names it

    /// Raises the failure again when the file, known by its name or by its identity (0: not known
    /// yet), is one that must not be written.
    void refuseHalfRead(char const* file, zfc::platform::Identity const& identity) const;
    /// Enters a file before it is read, so that a failure needs no memory to be known.
    static void enter(HalfReads& files, char const* file, zfc::platform::Identity const& identity);
    /// Gives the failure to the files that have none yet.
    void failReading(ZException const& cause);
    void finishReading(char const* file);
    void rememberCompanion(char const* name, char const* owner);
};

#endif
