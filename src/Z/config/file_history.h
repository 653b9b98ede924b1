/// What a properties object remembers of its files beyond their name.
#ifndef Z_CONFIG_FILE_HISTORY_H
#define Z_CONFIG_FILE_HISTORY_H

#include <memory>

#include "Z/ZException.h"
#include "Z/ZLCString.h"
#include "Z/ZProperties.h"
#include "Z/config/cache/texts.h"
#include "Z/config/changes.h"
#include "Z/platform/locked_file.h"
#include "Z/threads/forked_child.h"

/// Used under the object's lock.
struct ZProperties::FileHistory : public ZObject {
    /// A file that a store would spoil: it could not be read, or in part, or is being read, or its
    /// values were dropped for such a file.
    struct Unread {
        ZLCString file;
        zfc::platform::Identity identity;     // the same, whatever its name; 0: not known
        std::unique_ptr<ZException> failure;  // of the load; null: it could not be kept
        bool wasRead = false;                 // its values were here, and are not any more
    };
    using UnreadFiles = zfc::cache::Vector<Unread>;

    /// What the object's file was when it was read or stored last.
    struct Stamp {
        zfc::platform::Status status;  // without identity: never
        bool isAlone = false;          // the values are its own and of no other file
    };

    class Gathering;

    explicit FileHistory(ZProperties& ofObject) : overFork(ofObject.propLock, ofObject) {}

    ZWholeOverFork overFork;
    UnreadFiles unread;                           // each name once
    bool forgot = false;                          // there was no memory to enter a file there
    Stamp stamp;                                  // of the object's file
    ZLCString companion;                          // decoded or written by this object; empty: none
    ZLCString companionOwner;                     // the file that names it
    std::unique_ptr<ZPCategoryBasedCache> empty;  // to make others from; null: not needed so far
    std::unique_ptr<ZPCategoryBasedCache> told;   // what observers know of, behind a reload that
                                                  // failed in its midst; null: the values here
    bool compares = false;                        // reloadChanged() asks what was changed
    bool isUpdating = false;                      // an edit of updateFile() runs
    unsigned int gatherings = 0;                  // one in the other
    zfc::config::Notices notices;                 // of the gathering that runs

    /// Raises the failure again when the file, known by its name or by its identity (0: not known
    /// yet), is one that must not be written.
    void refuseHalfRead(char const* file, zfc::platform::Identity const& identity) const;
    [[nodiscard]] bool isUnread(char const* file) const;
    /// Enters a file before it is loaded, so that a failure needs no memory to be known. An older
    /// failure stays until failReading().
    void beginReading(char const* file);
    /// The file is open.
    void identify(char const* file, zfc::platform::Identity const& identity);
    /// The values of a file that is entered are about to go from the object.
    void leave(char const* file);
    /// Notes the failure of a load. That there is no such file is none.
    void failReading(char const* file, ZException const& cause);
    /// The file was read; `isAlone` says that all values of other files are gone.
    void finishReading(char const* file, zfc::platform::Identity const& identity, bool isAlone);
    void forgetUnread();
    void rememberCompanion(char const* name, char const* owner);
    /// Whether the file looks as it did at the stamp.
    [[nodiscard]] bool isSame(zfc::platform::Status const& now) const;
    /// Whether the file is what it was at the stamp, and every change since then would show.
    [[nodiscard]] bool isCurrent(zfc::platform::Status const& now) const;

  private:
    static UnreadFiles::iterator find(UnreadFiles& files, char const* file);
};

/// Gathers the notices of operations that change many values at once, for the outermost of those
/// that run one in the other. Made and destroyed under the lock; told after that.
class ZProperties::FileHistory::Gathering {
  public:
    Gathering(FileHistory& ofObject, zfc::config::Notices& forTheEnd)
        : history(ofObject), gathered(forTheEnd) {
        ++history.gatherings;
    }
    ~Gathering() {
        if (--history.gatherings == 0) gathered.swap(history.notices);
    }
    Gathering(Gathering const&) = delete;
    Gathering& operator=(Gathering const&) = delete;

  private:
    FileHistory& history;
    zfc::config::Notices& gathered;
};

#endif
