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
///     ZWholeOverFork    | waited for a moment             | free and whole, or left behind
///     ZOwnLock          | not waited for                  | free, unless held by the forker
#ifndef Z_THREADS_FORKED_CHILD_H
#define Z_THREADS_FORKED_CHILD_H

#include "Z/ZException.h"
#include "Z/ZReadWriteLock.h"
#include "Z/exceptions/report.h"

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

/// An object whose operations a fork waits for, so that the child finds it whole and free; but for
/// a moment only, since an operation may wait for a file, or run a user's code, which may wait for
/// the thread that forks. What is not free by then is left behind: it may be half changed, and the
/// child's requests for its lock end in ZForkedChild::requireWhole().
class ZWholeOverFork {
  public:
    /// Every operation holds `inUse` for its whole run. Of the observers the child gets the lock
    /// free, whoever has it. Both outlive this.
    ZWholeOverFork(ZLock& inUse, ZAbstractObservable& observers) noexcept;
    ~ZWholeOverFork() { forget(); }
    ZWholeOverFork(ZWholeOverFork const&) = delete;
    ZWholeOverFork& operator=(ZWholeOverFork const&) = delete;

    /// From now on no fork knows of the object.
    void forget() noexcept;

    // Around a fork, which nobody else is in.
    /// Tries all that are not held by the forker already; whether it holds them all then.
    [[nodiscard]] static bool holdAll() noexcept;
    /// Releases what that got.
    static void releaseAll() noexcept;
    /// The same in the child, which leaves the others behind.
    static void beChild() noexcept;

  private:
    ZLock& lock;
    ZAbstractObservable& observable;
    bool isHeld = false;  // by the fork
    // Guarded by ZNoFork, as all of the list.
    ZWholeOverFork** place = nullptr;  // the pointer to this one; null: not in the list
    ZWholeOverFork* next = nullptr;    // null: the last
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
        /// Whether the calling thread held the lock when it was the parent's, once for each hold.
        bool (*takeForgotten)(ZAbstractReadWriteLock const& lock);
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
    /// Whether the thread that forked held protect or write.
    static bool release(ZReadWriteLock& lock) noexcept;
    /// Frees the lock over the observers; they stay registered.
    static void release(ZAbstractObservable& observable) noexcept;

    /// Frees the lock, and notes that another thread was in what it guards.
    static void leaveBehind(ZLock& lock) noexcept;
    /// Whether what the lock guards was left behind.
    [[nodiscard]] static bool isLeftBehind(ZLock const& lock) noexcept;
    /// Throws ZLockResourceException (message 5) with EOWNERDEAD when it was.
    static void requireWhole(ZLock const& lock);

    /// Ends a guard's hold of `lock` with `unlock`; what that throws is reported. But not that
    /// nothing is held where the guard's hold is the parent's, and the child, which got a copy of
    /// the guard, leaves its scope.
    template <class Unlock>
    static void endHold(ZAbstractReadWriteLock const& lock, char const* source, int line,
                        Unlock const& unlock) {
        static_cast<void>(zreturned(source, line, [&] {
            try {
                unlock();
            } catch (ZUnlockResourceException const& refused) {
                if (refused.resourceRc() != 0 || !takeForgotten(lock)) throw;
            }
        }));
    }

  private:
    [[nodiscard]] static bool takeForgotten(ZAbstractReadWriteLock const& lock);
};

#endif
