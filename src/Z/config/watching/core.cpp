#include "Z/config/watching/core.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "Z/ZException.h"
#include "Z/exceptions/report.h"
#include "Z/threads/persistent_guard.h"
#include "Z/utility/undo.h"

namespace {

using zfc::config::watching::Clock;
using zfc::config::watching::never;
using zfc::platform::Descriptor;

constexpr char sourceName[] = "src/Z/ZFileWatcher";

[[noreturn]] void refuse(char const* call, int line) {
    zraise(ZPropertiesIOException("", call, errno), sourceName, line);
}

/// Owns what a call returned, and not as descriptor 0, 1 or 2.
Descriptor owned(int opened, char const* call) {
    Descriptor fd(opened);
    if (fd.isOpen() && fd.get() <= STDERR_FILENO)
        fd = Descriptor(fcntl(fd.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!fd.isOpen()) refuse(call, __LINE__);
    return fd;
}

/// Whether it becomes readable with `all`.
bool join(Descriptor const& all, Descriptor const& one) noexcept {
    epoll_event event{};
    event.events = EPOLLIN;
    return epoll_ctl(all.get(), EPOLL_CTL_ADD, one.get(), &event) == 0;
}

std::shared_ptr<ZException const> failureOf(char const* path, char const* call, int error) {
    return std::make_shared<ZPropertiesIOException const>(path, call, error);
}

/// Another process has the file locked.
bool saysHeld(ZException const& failure) {
    auto const* const io = dynamic_cast<ZPropertiesIOException const*>(&failure);
    return io != nullptr && std::strcmp(io->api(), "fcntl()") == 0 &&
           (io->excerrno() == EAGAIN || io->excerrno() == EACCES);
}

}  // namespace

/// A reload, for whoever wants to know that it is over.
class ZFileWatcher::Core::Reloading {
  public:
    Reloading(Core& of, Watched& file) : core(of), properties(&file.properties) {
        ZPersistentGuard const guard(core.lock);
        core.reloads.push_back({properties, pthread_self()});
    }
    ~Reloading() {
        static_cast<void>(zreturned(sourceName, __LINE__, [this] { end(); }));
    }
    Reloading(Reloading const&) = delete;
    Reloading& operator=(Reloading const&) = delete;

  private:
    void end() {
        ZPersistentGuard const guard(core.lock);
        auto const isThis = [this](Reload const& one) {
            return one.properties == properties && pthread_equal(one.thread, pthread_self()) != 0;
        };
        core.reloads.erase(std::find_if(core.reloads.begin(), core.reloads.end(), isThis));
        core.reloaded.broadcast();
    }

    Core& core;
    ZProperties* properties;
};

ZFileWatcher::Core::Core(ZFileWatcher& ofWatcher) : watcher(ofWatcher), overFork(lock, ofWatcher) {
    ZCancellationOff const untilOwned;
    all = owned(epoll_create1(EPOLL_CLOEXEC), "epoll_create1()");
    timer = owned(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK), "timerfd_create()");
    if (!join(all, timer)) refuse("epoll_ctl()", __LINE__);
}

// The lock may be held by nobody who is here.
void ZFileWatcher::Core::leave() noexcept ZNO_THREAD_SAFETY_ANALYSIS {
    overFork.forget();
    timer.close();
    all.close();
    Descriptor const closed(paths.descriptor().get());
}

// ------------------------------------------------------------------------------------ the files

std::vector<std::shared_ptr<zfc::config::watching::Watched>>::iterator ZFileWatcher::Core::find(
    ZProperties const& object) {
    return std::find_if(files.begin(), files.end(),
                        [&object](auto const& file) { return &file->properties == &object; });
}

void ZFileWatcher::Core::add(ZProperties& properties) {
    ZLCString const name = properties.getFileName();
    if (name.isEmpty()) zraise(ZInvalidParameterException(), sourceName, __LINE__);
    auto file = std::make_shared<Watched>(properties, name, Clock::now());
    ZPersistentGuard const guard(lock);
    auto const known = find(properties);
    if (known != files.end()) return static_cast<void>(++(*known)->registrations);
    files.push_back(std::move(file));
    arm();
}

void ZFileWatcher::Core::remove(ZProperties& properties) {
    ZCancellationOff const inDestructors;
    ZPersistentGuard const guard(lock);
    auto const known = find(properties);
    if (known == files.end() || --(*known)->registrations > 0) return;
    paths.forget(**known);
    files.erase(known);
    while (isReloadedElsewhere(properties))
        reloaded.wait();
}

bool ZFileWatcher::Core::isReloadedElsewhere(ZProperties const& properties) const {
    auto const isIt = [&properties](Reload const& one) {
        return one.properties == &properties && pthread_equal(one.thread, pthread_self()) == 0;
    };
    return std::any_of(reloads.begin(), reloads.end(), isIt);
}

void ZFileWatcher::Core::setPolling(Polling which, std::chrono::milliseconds every) {
    ZPersistentGuard const guard(lock);
    polling = which;
    interval = every;
    for (auto const& file : files)
        file->due = Clock::now();
    arm();
}

void ZFileWatcher::Core::checkAll() {
    ZPersistentGuard const guard(lock);
    for (auto const& file : files)
        file->check(Clock::now());
    arm();
}

// ----------------------------------------------------------------------------------- what is due

/// Has the timer expire when the next thing is due, now if something is.
void ZFileWatcher::Core::arm() {
    Time next = isEnded ? Time() : never;
    for (auto const& file : files)
        next = std::min(next, file->due);
    itimerspec at{};  // zero: never
    if (next != never) {
        auto const sinceStart = std::max(next.time_since_epoch(), Clock::duration(1));
        auto const seconds = std::chrono::duration_cast<std::chrono::seconds>(sinceStart);
        at.it_value.tv_sec = static_cast<time_t>(seconds.count());
        at.it_value.tv_nsec = static_cast<long>((sinceStart - seconds).count());
    }
    timerfd_settime(timer.get(), TFD_TIMER_ABSTIME, &at, nullptr);
}

// Both are called with the lock held, by read().
void ZFileWatcher::Core::note(Watched& file, zfc::config::watching::Change what) {
    file.change(what, Clock::now());
}

void ZFileWatcher::Core::noteAll(zfc::config::watching::Change what) ZNO_THREAD_SAFETY_ANALYSIS {
    for (auto const& file : files)
        note(*file, what);
}

/// Before anything is looked at: what happens behind the look will be told.
void ZFileWatcher::Core::follow() {
    for (auto const& file : files)
        if (std::exchange(file->isFollowDue, false)) followOne(*file);
    if (!isPathsPolled && paths.descriptor().isOpen())
        isPathsPolled = join(all, paths.descriptor());
}

void ZFileWatcher::Core::followOne(Watched& file) {
    ZUndo again([&file] { file.isFollowDue = true; });
    auto const failure = paths.follow(file, file.path.c_str());
    again.keep();
    bool const isNew = failure.error != 0 && failure.error != file.unseen.error;
    file.unseen = failure;
    if (!isNew) return;
    file.isUnseenTold = false;
    file.due = Clock::now();
}

std::shared_ptr<zfc::config::watching::Watched> ZFileWatcher::Core::takeDue(Time now) {
    ZPersistentGuard const guard(lock);
    auto const isDue = [now](auto const& file) { return file->due <= now; };
    auto const found = std::find_if(files.begin(), files.end(), isDue);
    if (isEnded || found == files.end()) return nullptr;
    (*found)->beginLook(now);
    return *found;
}

unsigned int ZFileWatcher::Core::work() {
    {
        ZPersistentGuard const guard(lock);
        paths.read(*this);
        follow();
    }
    unsigned int changed = 0;
    // Each once: what is due again by then waits for the next time.
    Time const now = Clock::now();
    while (auto const file = takeDue(now)) {
        changed += look(file) ? 1 : 0;
        // The child of an observer that forked has nothing to do here.
        if (isInherited()) return changed;
    }
    ZPersistentGuard const guard(lock);
    arm();
    return changed;
}

// -------------------------------------------------------------------------------------- one look

ZFileWatcher::Core::Outcome ZFileWatcher::Core::reload(ZProperties& properties) {
    using Freshness = ZProperties::Freshness;
    try {
        ZLCString const name = properties.getFileName();
        switch (properties.reloadChanged()) {
            case Freshness::reloaded:
                return {Event::reloaded, true};
            case Freshness::conflict:
                return {Event::conflict, false, false,
                        failureOf(name.getChars(), "reload()", EBUSY)};
            case Freshness::missing:
                return {Event::missing, false, false,
                        failureOf(name.getChars(), "fopen(r)", ENOENT)};
            case Freshness::current:
                break;
        }
        return {};
    } catch (ZException const& failure) {
        std::shared_ptr<ZException const> kept(static_cast<ZException*>(failure.clone()));
        return {Event::failed, false, saysHeld(failure), std::move(kept)};
    } catch (...) {
        if (std::current_exception() == nullptr) throw;  // unwinding is no exception of C++
        zreportUnknownException(sourceName, __LINE__);
        return {Event::failed};
    }
}

/// Whether `reloaded` was told.
bool ZFileWatcher::Core::look(std::shared_ptr<Watched> const& file) {
    Reloading const until(*this, *file);
    Outcome polled{Event::polled};
    {
        ZPersistentGuard const guard(lock);
        if (file->registrations == 0) return false;
        auto const& [call, error] = file->unseen;
        if (!std::exchange(file->isUnseenTold, true))
            polled.failure = failureOf(file->path.c_str(), call, error);
    }
    if (polled.failure) tell(*file, polled);
    Outcome const outcome = reload(file->properties);
    {
        ZPersistentGuard const guard(lock);
        bool const isPolled = polling == Polling::always || file->unseen.error != 0;
        auto const every = isPolled ? interval : std::chrono::milliseconds(0);
        bool const isNews = file->endLook(outcome, every, Clock::now());
        if (!isNews || file->registrations == 0) return false;
    }
    tell(*file, outcome);
    return outcome.event == Event::reloaded;
}

/// Nobody who is told ends the thread, or keeps the others from being told.
void ZFileWatcher::Core::tell(Watched const& file, Outcome const& outcome) {
    static_cast<void>(zreturned(sourceName, __LINE__, [&] {
        if (watcher.countObservers() != 0)
            return watcher.notifyObservers(
                ZFileWatched(outcome.event, file.properties, outcome.failure));
        bool const isReported = outcome.event == Event::failed || outcome.event == Event::conflict;
        if (!isReported || !outcome.failure) return;
        std::unique_ptr<ZException> const report(
            static_cast<ZException*>(outcome.failure->clone()));
        zreportException(*report);
    }));
}

// ------------------------------------------------------------------------------------ the thread

bool ZFileWatcher::Core::await() const {
    if (isInherited()) return false;
    pollfd one{all.get(), POLLIN, 0};
    static_cast<void>(zfc::platform::uninterrupted([&one] { return poll(&one, 1, -1); }));
    return !isEnding();
}

void ZFileWatcher::Core::setEnding(bool ends) {
    ZPersistentGuard const guard(lock);
    isEnded = ends;
    arm();
}

bool ZFileWatcher::Core::isEnding() const {
    ZPersistentGuard const guard(lock);
    return isEnded;
}
