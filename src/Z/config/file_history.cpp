#include "Z/config/file_history.h"

#include <algorithm>

namespace {

constexpr char sourceName[] = "src/Z/ZProperties";

}  // namespace

void ZProperties::FileHistory::refuseHalfRead(char const* file,
                                              zfc::platform::Identity const& identity) const {
    for (HalfRead const& half : halfReads) {
        bool const isIt = half.file == file || (identity.inode != 0 && half.identity == identity);
        if (!isIt) continue;
        // The cause of then: whoever stores learns why the file must not be written.
        if (half.failure) half.failure->throwException(sourceName, __LINE__);
        zraise(ZPropertiesInvalidDataException(file, "", 0), sourceName, __LINE__);
    }
}

void ZProperties::FileHistory::enter(HalfReads& files, char const* file,
                                     zfc::platform::Identity const& identity) {
    auto const isIt = [file](HalfRead const& half) { return half.file == file; };
    auto const known = std::find_if(files.begin(), files.end(), isIt);
    if (known == files.end()) {
        files.push_back(HalfRead{file, identity, nullptr});
    } else {
        known->identity = identity;
        known->failure.reset();
    }
}

void ZProperties::FileHistory::failReading(ZException const& cause) {
    for (HalfRead& half : halfReads) {
        if (!half.failure) half.failure.reset(static_cast<ZException*>(cause.clone()));
    }
}

void ZProperties::FileHistory::finishReading(char const* file) {
    auto const isIt = [file](HalfRead const& half) { return half.file == file; };
    halfReads.erase(std::remove_if(halfReads.begin(), halfReads.end(), isIt), halfReads.end());
}

void ZProperties::FileHistory::rememberCompanion(char const* name, char const* owner) {
    companion = name;
    companionOwner = owner;
}
