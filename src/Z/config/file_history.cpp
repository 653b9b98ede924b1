#include "Z/config/file_history.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

using zfc::platform::Identity;

constexpr char sourceName[] = "src/Z/ZProperties";

bool isKnown(Identity const& identity) { return identity.inode != 0; }

/// That there is no such file; a companion that is missing is another failure.
bool saysMissing(char const* file, ZException const& cause) {
    auto const* const io = dynamic_cast<ZPropertiesIOException const*>(&cause);
    return io != nullptr && io->excerrno() == ENOENT && std::strcmp(io->api(), "fopen(r)") == 0 &&
           std::strcmp(io->propFile(), file) == 0;
}

}  // namespace

void ZProperties::FileHistory::refuseHalfRead(char const* file, Identity const& identity) const {
    if (forgot) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    for (Unread const& one : unread) {
        bool const isIt = one.file == file || (isKnown(identity) && one.identity == identity);
        if (!isIt) continue;
        // The cause of then: whoever stores learns why the file must not be written.
        if (one.failure) one.failure->throwException(sourceName, __LINE__);
        zraise(ZPropertiesInvalidDataException(file, "", 0), sourceName, __LINE__);
    }
}

ZProperties::FileHistory::UnreadFiles::iterator ZProperties::FileHistory::find(UnreadFiles& files,
                                                                               char const* file) {
    return std::find_if(files.begin(), files.end(),
                        [file](Unread const& one) { return one.file == file; });
}

bool ZProperties::FileHistory::isUnread(char const* file) const {
    auto const isIt = [file](Unread const& one) { return one.file == file; };
    return forgot || std::any_of(unread.begin(), unread.end(), isIt);
}

void ZProperties::FileHistory::beginReading(char const* file) {
    if (find(unread, file) != unread.end()) return;
    try {
        unread.push_back(Unread{file, {}, nullptr});
    } catch (ZException const&) {
        forgot = true;
        throw;
    }
}

void ZProperties::FileHistory::identify(char const* file, Identity const& identity) {
    find(unread, file)->identity = identity;
}

void ZProperties::FileHistory::leave(char const* file) {
    auto const left = find(unread, file);
    if (left->failure) return;
    auto const status = zfc::platform::statusOf(file);
    if (status) left->identity = status->identity;
    left->wasRead = true;
}

void ZProperties::FileHistory::failReading(char const* file, ZException const& cause) {
    auto const failed = find(unread, file);
    if (failed == unread.end()) return;
    if (saysMissing(file, cause)) {
        // A failure of before stays: what it left here is still no whole file.
        if (!failed->failure) unread.erase(failed);
        return;
    }
    // Not open: the file is asked by its name.
    auto const status = zfc::platform::statusOf(file);
    if (!isKnown(failed->identity) && status) failed->identity = status->identity;
    failed->failure.reset(static_cast<ZException*>(cause.clone()));
    for (Unread& other : unread) {
        if (!other.failure) other.failure.reset(static_cast<ZException*>(cause.clone()));
    }
}

void ZProperties::FileHistory::finishReading(char const* file, Identity const& identity,
                                             bool isAlone) {
    auto const isOver = [&](Unread const& one) {
        return one.file == file || one.identity == identity || (one.wasRead && isAlone);
    };
    unread.erase(std::remove_if(unread.begin(), unread.end(), isOver), unread.end());
    forgot = false;
}

void ZProperties::FileHistory::forgetUnread() {
    unread.clear();
    forgot = false;
}

void ZProperties::FileHistory::rememberCompanion(char const* name, char const* owner) {
    companion = name;
    companionOwner = owner;
}

bool ZProperties::FileHistory::isSame(zfc::platform::Status const& now) const {
    zfc::platform::Status const& then = stamp.status;
    return now.identity == then.identity && now.size == then.size &&
           now.modified == then.modified && now.modifiedNanoseconds == then.modifiedNanoseconds;
}

bool ZProperties::FileHistory::isCurrent(zfc::platform::Status const& now) const {
    return stamp.status.isSettled && isSame(now);
}
