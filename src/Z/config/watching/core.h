/// What a file watcher does, whatever thread does it.
#ifndef Z_CONFIG_WATCHING_CORE_H
#define Z_CONFIG_WATCHING_CORE_H

#include <pthread.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "Z/ZCondition.h"
#include "Z/ZFileWatcher.h"
#include "Z/ZProperties.h"
#include "Z/config/watching/paths.h"
#include "Z/config/watching/schedule.h"
#include "Z/platform/descriptor.h"
#include "Z/threads/forked_child.h"

/// Files, and what is to be done with them. Everything is guarded by the lock, which is not held
/// while a file is read or an observer called.
class ZFileWatcher::Core final : private zfc::config::watching::ChangeNotes {
  public:
    explicit Core(ZFileWatcher& ofWatcher);
    ~Core() = default;
    Core(Core const&) = delete;
    Core& operator=(Core const&) = delete;

    void add(ZProperties& properties);
    void remove(ZProperties& properties);
    void setPolling(Polling which, std::chrono::milliseconds every);
    void checkAll();
    [[nodiscard]] int descriptor() const { return all.get(); }
    /// Does what there is to do now; how many objects were reloaded.
    unsigned int work();

    /// Waits until there is something to do; false when that is to end the thread.
    [[nodiscard]] bool await() const;
    /// Makes await() return false, or true again.
    void setEnding(bool ends);
    [[nodiscard]] bool isEnding() const;

    /// Whether this is the copy that the child of a fork has.
    [[nodiscard]] bool isInherited() const noexcept { return forks != ZForkedChild::forks(); }
    /// In the child: lets go of what is shared with the parent.
    void leave() noexcept;

  private:
    using Watched = zfc::config::watching::Watched;
    using Time = zfc::config::watching::Time;
    using Outcome = zfc::config::watching::Outcome;
    using Event = ZFileWatched::Event;

    /// A reload that runs.
    struct Reload {
        ZProperties* properties;
        pthread_t thread;
    };
    class Reloading;

    void note(Watched& file, zfc::config::watching::Change what) override;
    void noteAll(zfc::config::watching::Change what) override;
    void follow() ZREQUIRES(lock);
    void followOne(Watched& file) ZREQUIRES(lock);
    void arm() ZREQUIRES(lock);
    [[nodiscard]] std::shared_ptr<Watched> takeDue(Time now);
    [[nodiscard]] bool look(std::shared_ptr<Watched> const& file);
    [[nodiscard]] static Outcome reload(ZProperties& properties);
    void tell(Watched const& file, Outcome const& outcome);
    [[nodiscard]] bool isReloadedElsewhere(ZProperties const& properties) const ZREQUIRES(lock);
    [[nodiscard]] std::vector<std::shared_ptr<Watched>>::iterator find(ZProperties const& object)
        ZREQUIRES(lock);

    ZFileWatcher& watcher;
    unsigned int const forks = ZForkedChild::forks();  // of the process that made it
    mutable ZLock lock;
    ZCondition reloaded{lock};  // remove() waits here for the end of one
    ZWholeOverFork overFork;
    std::vector<std::shared_ptr<Watched>> files ZGUARDED_BY(lock);  // in the order of add()
    std::vector<Reload> reloads ZGUARDED_BY(lock);                  // those that run
    zfc::config::watching::PathWatch paths ZGUARDED_BY(lock);
    bool isPathsPolled ZGUARDED_BY(lock) = false;  // `all` has the descriptor of `paths`
    Polling polling ZGUARDED_BY(lock) = Polling::whereNeeded;
    std::chrono::milliseconds interval ZGUARDED_BY(lock){usualInterval};
    bool isEnded ZGUARDED_BY(lock) = false;  // the thread is to end
    zfc::platform::Descriptor timer;         // readable when something is due
    zfc::platform::Descriptor all;           // readable when that is, or `paths`
};

#endif
