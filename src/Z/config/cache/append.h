/// Shared. Appending a new object to a list.
#ifndef Z_CONFIG_CACHE_APPEND_H
#define Z_CONFIG_CACHE_APPEND_H

#include <memory>

#include "Z/ZList.h"

namespace zfc::cache {

/// Appends the object, which belongs to the list when it owns its members, else to the caller.
/// While that fails the object is the list's no more than ours.
template <class Object>
void appendNew(ZArrayList& list, std::unique_ptr<Object> object) {
    list.addNoCopy(object.get());
    static_cast<void>(object.release());
}

}  // namespace zfc::cache

#endif
