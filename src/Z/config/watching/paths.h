/// What the system tells of files, by their names.
#ifndef Z_CONFIG_WATCHING_PATHS_H
#define Z_CONFIG_WATCHING_PATHS_H

#include <map>
#include <string>
#include <vector>

#include "Z/platform/descriptor.h"

struct inotify_event;

namespace zfc::config::watching {

/// A file that is watched.
struct Watched;

/// What happened to a file.
enum class Change {
    written,   // its content; who did may go on
    created,   // there is a new file of its name; who made it may go on to write
    closed,    // somebody who could write it has closed it
    replaced,  // its name leads elsewhere, or nowhere, or nobody knows what happened
    touched    // something about it, but not its content
};

/// Where the changes are noted.
class ChangeNotes {
  public:
    virtual void note(Watched& file, Change what) = 0;
    virtual void noteAll(Change what) = 0;

  protected:
    ~ChangeNotes() = default;
};

/// One instance of inotify. A directory that several files need is watched once.
class PathWatch {
  public:
    struct Failure {
        char const* call = nullptr;
        int error = 0;  // 0: none
    };

    /// Has the system tell of all that may change what `path` leads to, in place of what it told of
    /// for `file`. First what it is to tell of, then the look where the way goes on: no change
    /// falls between the two. What could not be had; the rest is watched nevertheless.
    [[nodiscard]] Failure follow(Watched& file, char const* path);
    void forget(Watched const& file) noexcept;
    /// Notes some of the changes that there were since then. Does not wait.
    void read(ChangeNotes& notes);

    /// The instance; none before the first follow(), or when that could not have one.
    [[nodiscard]] zfc::platform::Descriptor const& descriptor() const { return instance; }

  private:
    /// Why something is watched.
    struct Interest {
        Watched* file;
        std::string name;  // in a directory; empty: the file itself
    };
    using Interests = std::vector<Interest>;
    class Way;

    [[nodiscard]] bool open() noexcept;
    void takeOut(Watched const& file) noexcept;
    void dropUnused() noexcept;
    void dispatch(inotify_event const& event, ChangeNotes& notes);
    static void tell(inotify_event const& event, Interest const& interest, ChangeNotes& notes);

    zfc::platform::Descriptor instance;
    std::map<int, Interests> watches;  // by the system's number
};

}  // namespace zfc::config::watching

#endif
