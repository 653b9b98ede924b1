/// When a file that is watched is looked at, and what its observers are told.
#ifndef Z_CONFIG_WATCHING_SCHEDULE_H
#define Z_CONFIG_WATCHING_SCHEDULE_H

#include <chrono>
#include <memory>
#include <string>

#include "Z/ZFileWatcher.h"
#include "Z/ZProperties.h"
#include "Z/config/watching/paths.h"

namespace zfc::config::watching {

using Clock = std::chrono::steady_clock;
using Time = Clock::time_point;
using Delay = std::chrono::milliseconds;
constexpr Time never = Time::max();

/// What came of a look.
struct Outcome {
    ZFileWatched::Event event = ZFileWatched::Event::reloaded;
    bool isChanged = false;                       // the object has other settings
    bool isHeld = false;                          // another process has the file locked
    std::shared_ptr<ZException const> failure{};  // as ZFileWatched has it
};

struct Watched {
    Watched(ZProperties& object, ZLCString const& name, Time now)
        : properties(object), path(name.getChars()), due(now) {}

    /// Something happened to it.
    void change(Change what, Time now);
    /// It is to be looked at now, as if something had happened.
    void check(Time now);
    /// Before it is looked at.
    void beginLook(Time now);
    /// Behind that: when it will be looked at again, if nothing happens, and whether observers are
    /// told. `every` is the interval at which it is looked at in any case, or 0.
    [[nodiscard]] bool endLook(Outcome const& outcome, Delay every, Time now);

    ZProperties& properties;
    std::string const path;
    unsigned int registrations = 1;  // 0: removed
    Time due;                        // when it is looked at next
    bool isFollowDue = true;         // what its path leads through may be another
    PathWatch::Failure unseen;       // why inotify does not tell of all that can happen to it
    bool isUnseenTold = true;        // nothing new about that

  private:
    [[nodiscard]] bool isNews(Outcome const& outcome, Time now);
    void planRetry(Outcome const& outcome);

    Time firstChange = never;     // since the last look
    bool isBeingWritten = false;  // somebody who writes it has not closed it
    bool isLookChange = false;    // the look that runs is for something that happened
    Delay retry{0};               // since the last failure; 0: there was none
    Time heldSince = never;
    ZFileWatched::Event told = ZFileWatched::Event::reloaded;  // at last
    std::string toldReason;
};

}  // namespace zfc::config::watching

#endif
