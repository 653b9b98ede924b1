#include "Z/config/watching/schedule.h"

#include <algorithm>

#include "Z/ZException.h"

namespace zfc::config::watching {
namespace {

using Event = ZFileWatched::Event;

constexpr Delay quiet{50};          // since the last change of a file that nobody writes
constexpr Delay untilClosed{1000};  // the same while somebody does
constexpr Delay longest{5000};      // since the first change
constexpr Delay firstRetry{100};
constexpr Delay lastRetry{60000};
constexpr Delay lastHeldRetry{1000};  // whoever has it locked is about to write it
constexpr Delay shortHold{1000};      // what a lock that is taken is not worth a notice
constexpr Delay withoutResult{1000};  // should a look end before its end

[[nodiscard]] std::string reasonOf(Outcome const& outcome) {
    return outcome.failure ? outcome.failure->text().getChars() : "";
}

}  // namespace

void Watched::change(Change what, Time now) {
    // A file system in layers may have made a writable copy under the name.
    if (what != Change::written && what != Change::touched) isFollowDue = true;
    if (what == Change::written || what == Change::created) isBeingWritten = true;
    if (what == Change::closed || what == Change::replaced) isBeingWritten = false;
    if (firstChange == never) firstChange = now;
    due = std::min(now + (isBeingWritten ? untilClosed : quiet), firstChange + longest);
}

void Watched::check(Time now) {
    isFollowDue = true;
    firstChange = now;
    due = now;
}

void Watched::beginLook(Time now) {
    isLookChange = firstChange != never;
    firstChange = never;
    due = now + withoutResult;
}

bool Watched::endLook(Outcome const& outcome, Delay every, Time now) {
    bool const isTold = isNews(outcome, now);
    planRetry(outcome);
    // Not one that came meanwhile: it has its own time.
    if (firstChange == never) due = never;
    if (retry != Delay(0)) due = std::min(due, now + retry);
    if (every != Delay(0)) due = std::min(due, now + every);
    // What could not be seen before may be seen now.
    if (outcome.event != Event::reloaded || unseen.error != 0) isFollowDue = true;
    if (!isTold) return false;
    told = outcome.event;
    toldReason = reasonOf(outcome);
    return true;
}

/// Whether observers do not know it already.
bool Watched::isNews(Outcome const& outcome, Time now) {
    if (!outcome.isHeld) heldSince = never;
    if (outcome.isHeld && heldSince == never) heldSince = now;
    if (outcome.event == Event::reloaded) return outcome.isChanged || told != Event::reloaded;
    if (outcome.event == Event::missing) return told != Event::missing;
    // Every store by another process has it locked.
    if (outcome.isHeld) return told != Event::failed && now - heldSince >= shortHold;
    return isLookChange || told != outcome.event || toldReason != reasonOf(outcome);
}

void Watched::planRetry(Outcome const& outcome) {
    if (outcome.event != Event::failed) {
        retry = Delay(0);
    } else if (isLookChange || retry == Delay(0)) {
        retry = firstRetry;
    } else {
        retry = std::min(retry * 2, outcome.isHeld ? lastHeldRetry : lastRetry);
    }
}

}  // namespace zfc::config::watching
