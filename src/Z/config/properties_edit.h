/// How every operation of a properties object begins, and how every edit runs.
#ifndef Z_CONFIG_PROPERTIES_EDIT_H
#define Z_CONFIG_PROPERTIES_EDIT_H

#include "Z/ZException.h"
#include "Z/ZProperties.h"
#include "Z/config/cache/texts.h"

namespace zfc::config {

using zfc::cache::isEmpty;

/// Raises ZNotClonableException (message 2) for a flavour that has no copies.
[[nodiscard]] inline std::unique_ptr<ZPCategoryBasedCache> copyOf(
    ZPCategoryBasedCache const& cache) {
    std::unique_ptr<ZPCategoryBasedCache> copy(static_cast<ZPCategoryBasedCache*>(cache.clone()));
    if (!copy) zraise(ZNotClonableException(), "src/Z/ZProperties", __LINE__);
    return copy;
}

/// Raises ZInvalidParameterException (message 22) for a null or empty text.
inline void require(char const* text, char const* source, int line) {
    if (isEmpty(text)) zraise(ZInvalidParameterException(), source, line);
}

}  // namespace zfc::config

struct ZProperties::Editing {
    /// Runs `change`, called as `bool change(ZPCategoryBasedCache&)`, under the lock. When it
    /// answers true, something changed: the object counts as modified, and after the lock is
    /// released, observers get a notice of the kind.
    template <class Change>
    static void run(ZProperties& object, ZPropertyChanged::PropertyChangeType type,
                    char const* stanza, char const* key, Change change) {
        {
            ZPropResourceLock const hold(object.propLock);
            if (!change(*object.cache)) return;
            object.modified = 1;
            if (object.loading != 0 || object.defersNotice(type, stanza, key)) return;
        }
        // Without the lock: an observer may take its time, or wait for a thread that needs this
        // object.
        object.notify(type, stanza, key);
    }

    /// Makes `text` a comment of the format and calls `add(ZPCategoryBasedCache&, char const*
    /// comment)` under the lock. Nobody is told: a comment is no setting. Null and empty text
    /// raises ZInvalidParameterException (message 22).
    template <class Add>
    static void addComment(ZProperties& object, char const* text, Add add) {
        zfc::config::require(text, "src/Z/ZProperties", __LINE__);
        ZLCString comment(text);
        ZPropResourceLock const hold(object.propLock);
        object.checkComment(comment);
        add(*object.cache, comment.getChars());
        object.modified = 1;
    }
};

#endif
