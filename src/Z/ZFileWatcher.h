/// Settings that follow their files: properties objects are reloaded when their files change.
///
///     ZStanzaFileProperties settings("/etc/app.conf", 1);
///     settings.setAttributes(ZPCache::keepLastGood, nullptr);
///     settings.addObserver(&reader);  // is told per key
///     ZFileWatcher watcher;
///     ZFileWatcher::Watch const watch(watcher, settings);
///     watcher.start();  // a thread for all files; or none, and reloadChanged() in the own loop
///
/// What is looked at. A file is followed as the system finds it by its name: each directory on the
/// way, each symbolic link and what it leads to, and the file itself. So a file that is replaced by
/// a rename, made later, removed and made again, is seen, and so is one whose directory is, or a
/// link on its way. Where the system cannot tell (inotify: its limits, a directory that may not be
/// read, other machines that change a file of a network), the file is looked at at intervals; see
/// setPolling().
///
/// When it is read. A change is taken up when the file was quiet for 50 milliseconds; while
/// somebody who writes it has not closed it, for a second; and at the latest five seconds after the
/// first change, all by a clock that nobody can set. Several changes are read once. A reload that
/// fails is tried again after 100 milliseconds, then after twice as long each time, up to a minute,
/// or a second where another process has the file locked, and whenever the file changes: one that
/// was read half written is read whole in the end.
///
/// What is done. ZProperties::reloadChanged(): a file that was only touched, and what this process
/// stored itself, change nothing; an object with edits that are not stored keeps them, and that is
/// told as a conflict; values stay when their file goes. A reload that fails drops the values, but
/// with the attribute bit ZPCache::keepLastGood.
///
/// Who is told. Observers of the properties object, per key, as by ZProperties::reload(); behind
/// them observers of the watcher, per file, with a ZFileWatched. A failure that no observer of the
/// watcher could be told of is reported to the message service. What observers throw is reported,
/// or, by those of a properties object, told as a failure of it; the thread goes on.
///
/// Threads. All may be called by several threads at a time, but start(), stop() and the destructor
/// by one. Observers are called by the thread that reloads, with no lock of the watcher held but
/// the one over its observers; they may add and remove files and observers. A program's other
/// threads read as ever: each operation of a properties object is whole, but a reload may come
/// between two. Who needs several values of one state copies them in an observer, or has no thread
/// and calls reloadChanged() between two pieces of its own work.
///
/// Forks. The child of a fork has no thread and its copy sees nothing: there, calls throw
/// ZThreadException (message 20) with ESRCH, but remove(), stop() and the destructor, which does
/// not disturb the parent. Where an observer forks, the child ends at the latest when a thread's
/// observer returns. Descriptors are closed by an exec.
#ifndef Z_ZFILEWATCHER_H
#define Z_ZFILEWATCHER_H

#include "Z/ztags.h"

#include <memory>

#include "Z/ZException.h"
#include "Z/ZObject.h"
#include "Z/ZObserve.h"
#include "Z/zexport.h"

class ZProperties;

/// What observers of a watcher are told of a file.
class ZFC_API ZFileWatched : public ZObservedParm {
  public:
    /// What happened.
    enum class Event {
        reloaded,  ///< a setting has changed; or all is well again after one of the others
        failed,    ///< a reload failed, or an observer of the object; it is tried again
        conflict,  ///< the file has changed and was not read: edits of the object are not stored
        missing,   ///< there is no such file; told once until it is back
        polled     ///< inotify cannot be had for all of it: it is looked at at intervals
    };

    /// `reason` may be null, and is shared.
    ZFileWatched(Event what, ZProperties& ofObject, std::shared_ptr<ZException const> reason);
    ~ZFileWatched() override;
    [[nodiscard]] ZObject* clone() const override { return new ZFileWatched(*this); }

    /// What happened.
    [[nodiscard]] Event getEvent() const { return event; }
    /// The object of the file; not owned.
    [[nodiscard]] ZProperties& getProperties() const { return *properties; }
    /// Why: what the reload raised; else a ZPropertiesIOException, with "reload()" and EBUSY for a
    /// conflict, and the call that failed for the others. Null for `reloaded`, and when an observer
    /// threw what is none of the library's, which is reported. Lives as long as the notice.
    [[nodiscard]] ZException const* getFailure() const { return failure.get(); }

  private:
    Event event;
    ZProperties* properties;  // not owned; never null
    std::shared_ptr<ZException const> failure;
};

/// Watches the files of properties objects; the top of this header says how.
class ZFC_API ZFileWatcher : public ZObject, public ZAbstractObservable {
  public:
    /// Which files are looked at at intervals.
    enum class Polling {
        whereNeeded,  ///< those for which inotify cannot be had
        always        ///< all; for files that other machines change
    };
    static constexpr unsigned int usualInterval = 2000;  // milliseconds

    /// Watches nothing, runs nothing. Throws ZPropertiesIOException (message 43) with
    /// "epoll_create1()", "epoll_ctl()" or "timerfd_create()" where the process has no descriptor
    /// left, and as ZCondition().
    ZFileWatcher();
    ZFileWatcher(ZFileWatcher const&) = delete;
    ZFileWatcher& operator=(ZFileWatcher const&) = delete;
    /// As stop(). Not in an observer that the watcher calls.
    ~ZFileWatcher() override;

    /// Watches the object's file, under the name that it has now, from the next look on, which
    /// comes at once: what has changed since the object was loaded is seen. The file need not
    /// exist. `properties` is not owned, and must be removed as often as it was added before it
    /// ends. Throws ZInvalidParameterException (message 22) for an object without a file name.
    void add(ZProperties& properties);
    /// Takes one add() back; nothing without one. Behind the last one the object is not touched any
    /// more: waits until a reload of it, observers included, is over, but for one that the calling
    /// thread is in. So it is not to be called where such a reload may wait for the caller: by the
    /// edit of the object's updateFile(), or by one of its observers when other threads edit it.
    /// No cancellation point.
    void remove(ZProperties& properties);

    /// add() with a scope. Watcher and object must outlive it.
    class ZFC_API Watch {
      public:
        /// Throws what add() does.
        [[nodiscard]] Watch(ZFileWatcher& by, ZProperties& watched)
            : watcher(by), properties(watched) {
            watcher.add(properties);
        }
        ~Watch();
        Watch(Watch const&) = delete;
        Watch& operator=(Watch const&) = delete;

      private:
        ZFileWatcher& watcher;
        ZProperties& properties;
    };

    /// Which files are looked at at intervals, and how long these are. At first, those for which
    /// inotify cannot be had, every 2 seconds. Throws ZInvalidParameterException (message 22) for
    /// an interval of 0.
    void setPolling(Polling which, unsigned int milliseconds = usualInterval);
    /// Has all files looked at at once, as if each had changed: for SIGHUP. Not to be called in a
    /// signal handler.
    void checkAll();

    /// Readable when reloadChanged() has something to do; for poll() and the like. Belongs to the
    /// watcher, and lives as long. Nothing else is to be done with it.
    [[nodiscard]] int getDescriptor() const;
    /// Looks at what has changed, reloads, and tells observers, all in the calling thread. Waits
    /// for nothing but the files. The number of objects of which `reloaded` was told. Throws what
    /// ZLock::lock() does and ZOutOfMemoryException (message 1).
    unsigned int reloadChanged();

    /// Starts a thread that does reloadChanged() whenever there is something to do, if there is
    /// none. It takes no signals of the program. Throws as ZThread::start().
    void start();
    /// Ends the thread, if there is one, when the reload that it is at is over, and waits for that;
    /// called by an observer in the thread, it does not wait. No cancellation point. The files stay
    /// watched. Throws as ZThread::waitForExit().
    void stop();

  private:
    class Core;
    class Thread;

    void refuseInherited() const;

    std::unique_ptr<Core> core;      // never null
    std::unique_ptr<Thread> thread;  // null: none runs
};

#endif
