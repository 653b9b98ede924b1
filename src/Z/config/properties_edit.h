/// How every operation of a properties object begins, and how every edit runs.
#ifndef Z_CONFIG_PROPERTIES_EDIT_H
#define Z_CONFIG_PROPERTIES_EDIT_H

#include "Z/ZException.h"
#include "Z/ZProperties.h"

namespace zfc::config {

[[nodiscard]] inline bool isEmpty(char const* text) { return text == nullptr || *text == '\0'; }

/// ZInvalidParameterException (message 22) for a null or empty text.
inline void require(char const* text, char const* source, int line) {
    if (isEmpty(text)) zraise(ZInvalidParameterException(), source, line);
}

}  // namespace zfc::config

/// `change` is called as `bool change(ZPCategoryBasedCache&)`.
template <class Change>
void ZProperties::edit(ZPropertyChanged::PropertyChangeType type, char const* stanza,
                       char const* key, Change change) {
    {
        ZPropResourceLock const hold(propLock);
        if (!change(*cache)) return;
        modified = 1;
        if (loading != 0) return;
    }
    // Without the lock: an observer may take its time, or wait for a thread that needs this object.
    notify(type, stanza, key);
}

/// `add` is called as `add(ZPCategoryBasedCache&, char const* comment)`. Nobody is told: a comment
/// is no setting.
template <class Add>
void ZProperties::addComment(char const* text, Add add) {
    zfc::config::require(text, "src/Z/ZProperties", __LINE__);
    ZLCString comment(text);
    ZPropResourceLock const hold(propLock);
    checkComment(comment);
    add(*cache, comment.getChars());
    modified = 1;
}

#endif
