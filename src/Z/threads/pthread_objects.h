/// Mutexes and conditions of the system in blocks of their own: their making and their end.
///
/// The objects that use them keep a pointer, because their size is fixed and the system's differs
/// between word sizes, and because a thread that waits must find them where they were.
#ifndef Z_THREADS_PTHREAD_OBJECTS_H
#define Z_THREADS_PTHREAD_OBJECTS_H

#include <pthread.h>

#include <memory>

#include "Z/ZObject.h"
#include "Z/exceptions/report.h"

namespace zfc::threads {

/// A new object that `initialise` (pthread_mutex_init, pthread_cond_init) has made, the caller's to
/// end with endObject(). What `initialise` answers when it fails goes to `refused`, which throws.
/// Throws ZOutOfMemoryException (message 1).
template <class Object, class Attributes, class Refused>
[[nodiscard]] Object* makeObject(int (*initialise)(Object*, Attributes const*),
                                 Refused const& refused) {
    struct Free {
        void operator()(Object* block) const { ZObject::operator delete(block); }
    };
    std::unique_ptr<Object, Free> block(
        static_cast<Object*>(ZObject::operator new(sizeof(Object))));
    if (int const rc = initialise(block.get(), nullptr)) refused(rc);
    return block.release();
}

/// Ends what makeObject() has made. When `destroy` refuses, that is reported as `failure`.
template <class Object>
void endObject(Object* made, int (*destroy)(Object*), Message failure, char const* source,
               int line) noexcept {
    if (int const rc = destroy(made)) zreportFailure(source, line, failure, rc);
    ZObject::operator delete(made);
}

}  // namespace zfc::threads

#endif
