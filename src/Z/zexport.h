/// Visibility of exported names, and the words of clang's thread-safety analysis.
#ifndef Z_ZEXPORT_H
#define Z_ZEXPORT_H

/// Marks a class or function that the shared library exports; all others are hidden.
#define ZFC_API __attribute__((visibility("default")))

/// Has the compiler hold the arguments from `first` on against the format. The conversions of wide
/// characters here (C, S) take UTF-16, which compilers do not know: a source that uses them defines
/// ZFC_NO_FORMAT_CHECK before its first include, and nothing is checked there.
#if defined(ZFC_NO_FORMAT_CHECK)
#define ZFC_PRINTF(format, first)
#else
#define ZFC_PRINTF(format, first) __attribute__((__format__(__printf__, format, first)))
#endif

/// Clang checks these words as errors; other compilers read past them.
#if defined(__clang__)
#define ZFC_THREAD_SAFETY(word) __attribute__((word))
#else
#define ZFC_THREAD_SAFETY(word)
#endif

/// A class whose objects can be held like a mutex.
#define ZCAPABILITY(kind) ZFC_THREAD_SAFETY(capability(kind))
/// A guard class that holds a capability from construction to destruction.
#define ZSCOPED_CAPABILITY ZFC_THREAD_SAFETY(scoped_lockable)
/// The member is used only while the lock is held.
#define ZGUARDED_BY(lock) ZFC_THREAD_SAFETY(guarded_by(lock))
/// What the member points at is used only while the lock is held.
#define ZPT_GUARDED_BY(lock) ZFC_THREAD_SAFETY(pt_guarded_by(lock))
/// The function takes the lock and returns holding it.
#define ZACQUIRE(...) ZFC_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
/// The function returns the value when it holds the lock, something else when it does not.
#define ZTRY_ACQUIRE(...) ZFC_THREAD_SAFETY(try_acquire_capability(__VA_ARGS__))
/// The function gives the lock up.
#define ZRELEASE(...) ZFC_THREAD_SAFETY(release_capability(__VA_ARGS__))
/// The caller holds the lock.
#define ZREQUIRES(...) ZFC_THREAD_SAFETY(requires_capability(__VA_ARGS__))
/// The function returns only when the caller holds the lock.
#define ZASSERTS_HELD(...) ZFC_THREAD_SAFETY(assert_capability(__VA_ARGS__))
/// The caller does not hold the lock.
#define ZEXCLUDES(...) ZFC_THREAD_SAFETY(locks_excluded(__VA_ARGS__))
/// The body is not analysed; a comment at the function says why.
#define ZNO_THREAD_SAFETY_ANALYSIS ZFC_THREAD_SAFETY(no_thread_safety_analysis)

#endif
