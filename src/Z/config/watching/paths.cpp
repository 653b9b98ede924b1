#include "Z/config/watching/paths.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <iterator>
#include <utility>

#include "Z/platform/locked_file.h"
#include "Z/utility/undo.h"

namespace zfc::config::watching {
namespace {

constexpr std::uint32_t namesChanged =
    IN_CREATE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF;
// In the directory as well: a file that is made and written at once is closed before it is
// followed.
constexpr std::uint32_t lastNameChanged = namesChanged | IN_CLOSE_WRITE;
// Of the file itself, since its other names, as of links and mounts, are in other directories.
constexpr std::uint32_t contentChanged = IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB;
constexpr std::uint32_t watchIsGone = IN_IGNORED | IN_UNMOUNT | IN_DELETE_SELF | IN_MOVE_SELF;
constexpr int mostLinks = 40;  // as many as the system follows

[[nodiscard]] std::string targetOf(std::string const& link) {
    std::array<char, PATH_MAX> target{};
    ssize_t const length = readlink(link.c_str(), target.data(), target.size());
    return {target.data(), length > 0 ? static_cast<std::size_t>(length) : 0};
}

[[nodiscard]] Change changeOf(std::uint32_t mask) {
    if ((mask & watchIsGone) != 0) return Change::replaced;
    if ((mask & IN_CLOSE_WRITE) != 0) return Change::closed;
    return (mask & IN_MODIFY) != 0 ? Change::written : Change::touched;
}

/// Of a name in a directory.
[[nodiscard]] Change changeOfName(std::uint32_t mask) {
    if ((mask & IN_CLOSE_WRITE) != 0) return Change::closed;
    bool const isFile = (mask & IN_CREATE) != 0 && (mask & IN_ISDIR) == 0;
    return isFile ? Change::created : Change::replaced;
}

}  // namespace

/// The way that the system takes to a file, as far as it leads.
class PathWatch::Way {
  public:
    /// With a watch of `instance` for each place where it can change.
    explicit Way(int ofInstance) : instance(ofInstance) {}

    void follow(char const* path) {
        enter(path);
        while (step()) {
        }
    }
    /// The system's number of each watch, and the name that matters there.
    [[nodiscard]] std::vector<std::pair<int, std::string>> const& seen() const { return places; }
    [[nodiscard]] Failure const& whatFailed() const { return failure; }

  private:
    /// A path, or the target of a link in the place where the way is.
    void enter(std::string const& path) {
        if (path[0] == '/') place.assign(1, '/');
        rest = path + "/" + rest;
    }

    /// One name further; false at the end.
    [[nodiscard]] bool step() {
        std::size_t const begin = rest.find_first_not_of('/');
        if (begin == std::string::npos) return false;
        std::size_t const end = rest.find('/', begin);
        std::string const name = rest.substr(begin, end - begin);
        rest.erase(0, end);
        if (name == ".") return true;
        bool const isLast = rest.find_first_not_of('/') == std::string::npos;
        // Nobody puts another directory in the place of one that is above.
        if (name != "..") watch(isLast ? lastNameChanged : namesChanged, IN_ONLYDIR, name);
        return goOn(name);
    }

    [[nodiscard]] bool goOn(std::string const& name) {
        std::string const next = place + "/" + name;
        auto const status = zfc::platform::statusOfName(next.c_str());
        if (!status) return false;
        if (S_ISLNK(status->mode)) {
            enter(targetOf(next));
            return ++links <= mostLinks;
        }
        place = next;
        if (status->isRegular()) watch(contentChanged, IN_DONT_FOLLOW, "");
        return true;
    }

    void watch(std::uint32_t changes, std::uint32_t how, std::string const& name) {
        int const number = inotify_add_watch(instance, place.c_str(), changes | how | IN_MASK_ADD);
        if (number >= 0) return static_cast<void>(places.emplace_back(number, name));
        // What is gone by now, what it was in will tell.
        if (errno != ENOENT && errno != ENOTDIR) failure = {"inotify_add_watch()", errno};
    }

    int instance;
    std::vector<std::pair<int, std::string>> places;
    std::string place = ".";  // without a link in it
    std::string rest;         // from there
    int links = 0;
    Failure failure;
};

bool PathWatch::open() noexcept {
    if (!instance.isOpen()) {
        ZCancellationOff const untilOwned;
        instance = zfc::platform::Descriptor(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    }
    return instance.isOpen();
}

PathWatch::Failure PathWatch::follow(Watched& file, char const* path) {
    if (!open()) return {"inotify_init1()", errno};
    Way way(instance.get());
    way.follow(path);
    takeOut(file);
    // Only then: what is still needed must not go and come again.
    ZUndo const tidied([this] { dropUnused(); });
    for (auto const& [number, name] : way.seen())
        watches[number].push_back({&file, name});
    return way.whatFailed();
}

void PathWatch::forget(Watched const& file) noexcept {
    takeOut(file);
    dropUnused();
}

void PathWatch::takeOut(Watched const& file) noexcept {
    auto const isIts = [&file](Interest const& interest) { return interest.file == &file; };
    for (auto& [number, interests] : watches)
        interests.erase(std::remove_if(interests.begin(), interests.end(), isIts), interests.end());
}

void PathWatch::dropUnused() noexcept {
    for (auto at = watches.begin(); at != watches.end();) {
        bool const isUsed = !at->second.empty();
        if (!isUsed) inotify_rm_watch(instance.get(), at->first);
        at = isUsed ? std::next(at) : watches.erase(at);
    }
}

void PathWatch::read(ChangeNotes& notes) {
    constexpr std::size_t room = 16384;
    alignas(inotify_event) std::array<char, room> buffer{};
    if (!instance.isOpen()) return;
    ssize_t const length = zfc::platform::uninterrupted(
        [&] { return ::read(instance.get(), buffer.data(), buffer.size()); });
    for (ssize_t at = 0; at < length;) {
        auto const* const event = reinterpret_cast<inotify_event const*>(buffer.data() + at);
        dispatch(*event, notes);
        at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
    }
}

void PathWatch::dispatch(inotify_event const& event, ChangeNotes& notes) {
    if ((event.mask & IN_Q_OVERFLOW) != 0) return notes.noteAll(Change::replaced);
    auto const watch = watches.find(event.wd);
    if (watch == watches.end()) return;  // forgotten meanwhile
    for (Interest const& interest : watch->second)
        tell(event, interest, notes);
    if ((event.mask & IN_IGNORED) != 0) watches.erase(watch);
}

void PathWatch::tell(inotify_event const& event, Interest const& interest, ChangeNotes& notes) {
    if (event.len == 0) {
        bool const isDirectory = !interest.name.empty();
        if (isDirectory && (event.mask & watchIsGone) == 0) return;
        return notes.note(*interest.file, changeOf(event.mask));
    }
    if (interest.name == static_cast<char const*>(event.name))
        notes.note(*interest.file, changeOfName(event.mask));
}

}  // namespace zfc::config::watching
