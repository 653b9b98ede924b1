/// Mutexes and conditions of the system in blocks of their own: their making, their waits and their
/// end.
///
/// The objects that use them keep a pointer, because their size is fixed and the system's differs
/// between word sizes, and because a thread that waits must find them where they were.
#ifndef Z_THREADS_PTHREAD_OBJECTS_H
#define Z_THREADS_PTHREAD_OBJECTS_H

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <ctime>
#include <memory>
#include <new>

#include "Z/ZObject.h"
#include "Z/exceptions/report.h"

namespace zfc::threads {

/// What is told about an object of the system, behind it. When it ends while others use it, its
/// block is kept as long as the process lives: threads that wait must find it where it was.
template <class Object>
struct Block {
    Object object;
    std::atomic<int> waiters{0};      // threads inside waitOn()
    std::atomic<bool> isKept{false};  // its owner has ended, and it has not
    // A mutex: of a thread that forked children do not have, in the midst of what it guards.
    std::atomic<bool> isLeftBehind{false};
};

template <class Object>
[[nodiscard]] Block<Object>& blockOf(Object* made) {
    static_assert(offsetof(Block<Object>, object) == 0);
    return *reinterpret_cast<Block<Object>*>(made);
}

/// Keeps memory until the process ends, where a search for leaks finds it.
void keepForever(void* memory) noexcept;

/// A new object that `initialise` (pthread_mutex_init, pthread_cond_init) has made, the caller's to
/// end with endObject(). What `initialise` answers when it fails goes to `refused`, which throws.
/// Throws ZOutOfMemoryException (message 1).
template <class Object, class Attributes, class Refused>
[[nodiscard]] Object* makeObject(int (*initialise)(Object*, Attributes const*),
                                 Refused const& refused) {
    struct Free {
        void operator()(Block<Object>* block) const { ZObject::operator delete(block); }
    };
    void* const memory = ZObject::operator new(sizeof(Block<Object>));
    std::unique_ptr<Block<Object>, Free> block(::new (memory) Block<Object>);
    if (int const rc = initialise(&block->object, nullptr)) refused(rc);
    return &block.release()->object;
}

/// Ends what makeObject() has made; false when it is kept instead, because it is in use. When
/// `destroy` refuses, that is reported as `failure`.
template <class Object>
bool endObject(Object* made, int (*destroy)(Object*), Message failure, char const* source,
               int line) noexcept {
    Block<Object>& block = blockOf(made);
    int const rc = block.isKept ? EBUSY : destroy(made);
    if (rc != 0 && !block.isKept) zreportFailure(source, line, failure, rc);
    block.isKept = rc == EBUSY;
    if (!block.isKept) ZObject::operator delete(&block);
    if (rc == EBUSY) keepForever(&block);
    return rc != EBUSY;
}

/// One wait of the system; `deadline` null: without a limit. Does not return when the condition has
/// been kept meanwhile: what the caller would go on with is gone.
int waitOn(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
           timespec const* deadline);

/// Whether threads wait, or have not left their wait yet.
[[nodiscard]] bool isWaitedFor(pthread_cond_t* condition) noexcept;

void aMillisecond() noexcept;

/// Looks until it is so, but no longer than other threads need for a step that they are at.
template <class IsSo>
void lookOften(IsSo const& isSo) noexcept {
    constexpr int looks = 20;
    for (int i = 0; !isSo() && i < looks; ++i)
        aMillisecond();
}

}  // namespace zfc::threads

#endif
