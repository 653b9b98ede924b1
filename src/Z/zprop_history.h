/// What a properties object remembers of its files beyond their name.
#ifndef Z_ZPROP_HISTORY_H
#define Z_ZPROP_HISTORY_H

#include "Z/ZException.h"
#include "Z/ZLCString.h"
#include "Z/ZProperties.h"
#include "Z/zprop_file.h"

#include <memory>

/// Used under the object's lock.
struct ZProperties::FileHistory : public ZObject {
    std::unique_ptr<ZException> failure;   // of a load that read in part; null: none
    ZLCString halfRead;                    // the file of that load
    zpropfile::Identity halfReadIdentity;  // the same, whatever its name
    ZLCString companion;                   // decoded or written by this object; empty: none
    ZLCString companionOwner;              // the file that names it

    /// Raises the failure again when the file is the one that was read in part.
    void refuseHalfRead(char const* file, zpropfile::Identity const& identity) const;
    void rememberFailure(ZException const& cause, char const* file,
                         zpropfile::Identity const& identity);
    void forgetFailure() { failure.reset(); }
    void rememberCompanion(char const* name, char const* owner);
};

#endif
