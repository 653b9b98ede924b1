/// Shared. What a fork must not meet in the middle, and locks in its child: what threads of the
/// parent held is held by nobody there.
///
/// Every lock that the library holds by itself, for the whole process, is made or known here; there
/// is no other. Around a fork all of it is still, in this order:
///
///     what              | before the fork                 | in the child
///     ------------------+---------------------------------+-----------------------------
///     process locks     | changes of state are waited for | nothing is held, files closed
///     ZNoFork           | waited for                      | free
///     codeset layer     | waited for                      | free
///     ZOwnLock          | not waited for                  | free, unless held by the forker
#ifndef Z_THREADS_FORKED_CHILD_H
#define Z_THREADS_FORKED_CHILD_H

#include "Z/ZReadWriteLock.h"

/// While it lives the process does not fork: around the few steps in which data that a child
/// inherits is not whole, or a descriptor is not noted. Nothing that may wait for another thread,
/// and nothing of a user's, is called meanwhile; it is not nested. No cancellation point.
class ZNoFork {
  public:
    ZNoFork() noexcept;
    ~ZNoFork();
    ZNoFork(ZNoFork const&) = delete;
    ZNoFork& operator=(ZNoFork const&) = delete;

  private:
    bool const isHeld;
};

/// The locks that may be held for long, and under which a user's code may run. A fork does not wait
/// for them: what they keep apart is changed under ZNoFork, if it is data.
enum class ZOwnLock {
    hexDump,  // keeps the lines of one dump together
    registry  // of properties objects; also held while one is loaded
};

/// Makes the locks that a child inherited as good as new, in their place: nothing is allocated and
/// nothing destroyed, because destroying them could wait for threads that are not there. Called
/// before the child has a second thread.
struct ZForkedChild {
    /// One in the process, and never destroyed: static destructors may take it.
    [[nodiscard]] static ZLock& own(ZOwnLock lock);

    /// What the process locks do around a fork.
    struct Handlers {
        void (*stop)();
        void (*goOn)();
        void (*beChild)();
    };
    /// Called once, when the library is loaded. `handlers` lives as long as the process.
    static void tellProcessLocks(Handlers const& handlers) noexcept;

    /// How many forks lie between the process that loaded the library and this one: what an object
    /// has noted of it is another number in a child that inherits the object.
    [[nodiscard]] static unsigned int forks() noexcept;

    /// A lock that the calling thread holds stays held: it is the thread that forked, and will
    /// release it.
    static void release(ZLock& lock) noexcept;
    static void release(ZCondition& condition) noexcept;
    static void release(ZReadWriteLock& lock) noexcept;
    /// Frees the lock over the observers; they stay registered.
    static void release(ZAbstractObservable& observable) noexcept;
};

#endif
