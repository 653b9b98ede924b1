/// Threads as objects, workers that sleep until there is work, and pools that bound both.
///
/// A thread object and its thread, by the flags that the object was made with:
///
///     detached | autoDelete | waitForExit()     | when the thread has ended
///     ---------+------------+-------------------+---------------------------------------------
///     0        | any        | waits for the end | the object may be started again or deleted
///     not 0    | 0          | returns at once   | the same, but only exit() tells, or, of a pool's
///              |            |                   | thread, the end of the pool's waitForExit()
///     not 0    | not 0      | returns at once   | the object deletes itself; it stands on the
///              |            |                   | heap and is not touched once it was started
///
/// How a worker of a pool (a ZSleeperThread, or a thread that does as much) moves:
///
///     is            | by                                          | becomes
///     --------------+---------------------------------------------+------------------------------
///     new           | start() of the pool, a place being free     | asleep, counted as active
///     asleep        | wakeUp(), or its interval elapsing          | at work
///     at work       | doWork() returning, room among the idle     | asleep and idle
///     at work       | doWork() returning, no such room            | ended, no longer counted
///     asleep, idle  | getAvailableIdleThread() of the pool        | asleep
///     asleep, idle  | start() of the pool, no place being free    | ended, no longer counted
///     asleep, idle  | waitForExit() of the pool                   | ended, no longer counted
///
/// What may surprise:
/// - Active are all threads that the pool started and that have not ended, idle ones included: an
///   idle worker holds one of the places. So start() ends an idle worker when there is no other
///   place, also one that becomes idle while it waits.
/// - A sleeper that was started and never woken is not idle: the pool's waitForExit() waits until
///   somebody has woken it or told it to exit.
/// - A worker with an interval works and offers itself again while it is idle. If it also deletes
///   itself, it may be gone before whoever got it from getAvailableIdleThread() has woken it.
/// - A thread that waits for the end of its own pool, or starts one more in it at the pool's bound,
///   waits for itself.
#ifndef Z_ZTHREAD_H
#define Z_ZTHREAD_H

#include "Z/ztags.h"

#include <pthread.h>

#include <atomic>
#include <memory>

#include "Z/ZCondition.h"
#include "Z/ZMap.h"
#include "Z/ZObject.h"
#include "Z/zexport.h"

class ZThreadPool;

/// A POSIX thread. Subclasses give it a body, run().
class ZFC_API ZThread : public ZObject {
  public:
    /// A thread that is not started, with the flags `detached` and `autoDelete` of the table.
    /// Throws ZOutOfMemoryException (message 1).
    ZThread(int isDetached, int deletes);
    /// Stands for a thread that somebody else started; both flags are 0. waitForExit() joins it,
    /// the destructor leaves it alone.
    explicit ZThread(pthread_t id);
    ZThread(ZThread const&) = delete;
    ZThread& operator=(ZThread const&) = delete;

    // in slot order: do not sort
    /// The thread must have ended, unless it does this itself. One that could be joined and was not
    /// is detached, so that its resources are freed.
    ~ZThread() override;
    /// The thread's id as a number; 0 before the first start.
    [[nodiscard]] unsigned long hash() const override;
    /// -1, 0 or 1 by the threads' ids; an object of another class is ordered by its own address.
    [[nodiscard]] int compare(ZObject const& other) const override;
    /// Null: a thread has no copy.
    [[nodiscard]] ZObject* clone() const override;
    /// Starts the thread and does not wait for it. What an earlier thread of this object left is
    /// given up: it must have ended, and is detached when nobody joined it. Throws ZThreadException
    /// with the system's code (messages 15, 16 and 17: attributes, their setting, the thread); then
    /// no thread was started. A failure to free the attributes is reported (message 18). An
    /// override may throw when the thread runs already, but not if that one deletes the object.
    virtual void start();
    /// Waits until the thread has ended; returns at once for a detached one. A cancellation point.
    /// Throws ZThreadException (message 20): with EDEADLK when the thread waits for itself, with
    /// ESRCH when it was not started, or start() has not got that far, or it is joined already,
    /// with EINVAL while another thread waits for it, else with the code of pthread_join.
    virtual void waitForExit();
    /// The body of the thread. An exception that escapes is reported, not more: those of the
    /// library by themselves, others as message 19. It may end by pthread_exit() or cancellation.
    virtual void run() = 0;
    /// Called in the thread, once, when run() has ended in whatever way. Does nothing here. An
    /// exception that escapes is reported.
    virtual void exit();

    /// The thread's id; 0 before the first start.
    [[nodiscard]] pthread_t getPThreadID() const;

    /// Makes a slot that holds one object for each thread, null at first. When a thread ends, the
    /// object in its slot is deleted. Throws ZThreadException (message 29) with the code of
    /// pthread_key_create.
    static void createThreadKey(unsigned int& key);
    /// Puts `value`, which may be null, into the calling thread's slot, which owns it from then on;
    /// what was there before is the caller's again, and not deleted. Throws ZThreadException
    /// (message 30) with the code of pthread_setspecific; `value` then stays the caller's.
    static void setThreadObject(unsigned int& key, ZObject* value);
    /// What the calling thread's slot holds; null when it was never set.
    [[nodiscard]] static ZObject* getThreadObject(unsigned int& key);

  private:
    friend class ZSleeperThread;
    friend class ZThreadPool;
    class State;           // the id, shared with whoever is starting the thread
    enum class JoinState;  // whether it can be joined
    class Farewell;        // the last steps of a thread

    [[nodiscard]] static void* entry(void* thread);
    void enter();
    void finish();
    void detachUnjoined();
    [[nodiscard]] int joinRefusal(JoinState joinState) const;
    [[nodiscard]] bool deletesItself() const { return detached != 0 && autoDelete != 0; }

    // Layout: what a thread's starter and teller share stands in a block of its own; here is the
    // one word that there is for the id.
    State* threadId;  // never null; a share
    int detached;     // 1: cannot be joined
    int autoDelete;   // 1: deletes itself when it has ended, if it is detached too
    // Not owned; which counts the thread while it runs, else null. Who takes it out tells the pool.
    std::atomic<ZThreadPool*> pool;
};

/// A thread that sleeps until it is woken or its interval has elapsed, does one unit of work, and
/// sleeps again. It holds its wake lock all the time but while it sleeps, so that wakeUp() and
/// waitForExit() wait for the end of the work it is at.
class ZFC_API ZSleeperThread : public ZThread {
  public:
    /// The flags are 0 where they are not given. `seconds` is the interval, at most UINT_MAX of
    /// them; with 0 the thread works only when it is woken. Throws as ZCondition().
    ZSleeperThread();
    explicit ZSleeperThread(unsigned long seconds);
    ZSleeperThread(int isDetached, int deletes);
    ZSleeperThread(int isDetached, int deletes, unsigned long seconds);
    /// The wake lock is `l`, which is not owned and must outlive the thread: who holds it finds the
    /// thread asleep, and not in the midst of doWork(). waitForExit() waits for ever when its
    /// caller holds it.
    explicit ZSleeperThread(ZLock& l);

    // in slot order: do not sort
    ~ZSleeperThread() override;
    /// As ZThread::start(), and waits until the thread runs its loop. Not a cancellation point.
    void start() override;
    /// Tells the thread to exit; then, unless it is detached, waits for its end as ZThread does and
    /// calls reset().
    void waitForExit() override;
    /// Runs the loop: sleeps, works, and ends when the thread is told to exit.
    void run() override;
    /// The unit of work. Waking the thread meanwhile has no effect. What it throws ends the thread.
    virtual void doWork() = 0;

    /// Lets the thread do one unit of work, when it has finished the one it is at. A thread that is
    /// not started works when it is. Throws as ZLock::lock() and ZCondition::signal().
    void wakeUp();
    /// Forgets that the thread was told to exit, and that it was started. The thread must have
    /// ended.
    void reset();

  private:
    class Arrival;  // the new thread's half of the start

    void tellToExit();
    void sleep() ZREQUIRES(wakeCondition);
    void work() ZREQUIRES(wakeCondition);

    int exitRequested ZGUARDED_BY(wakeCondition) = 0;  // not 0: the loop ends
    int workPending ZGUARDED_BY(wakeCondition) = 0;    // not 0: there is a unit of work to do
    // 1 when the thread runs and start() is done with the object, 0 before the start; other values
    // on the way. Changed under startCondition; atomic for the case that its lock fails.
    std::atomic<int> started{0};
    unsigned int interval;      // seconds between two units of work; 0: none without being woken
    ZCondition startCondition;  // start() and the new thread wait here for each other
    ZCondition wakeCondition;   // the thread sleeps here; guards what stands above
};

/// Runs threads, a bounded number at a time, and keeps a bounded number of idle workers.
class ZFC_API ZThreadPool : public ZObject {
  public:
    /// The larger number bounds the threads that run at a time, the smaller one the idle workers
    /// that are kept. Throws ZThreadException with the system's code (message 3 for the mutex, 7
    /// for the condition), ZOutOfMemoryException (message 1).
    ZThreadPool(unsigned int a, unsigned int b);
    ZThreadPool(ZThreadPool const&) = delete;
    ZThreadPool& operator=(ZThreadPool const&) = delete;

    // in slot order: do not sort
    /// Does not wait: waitForExit() comes first. What the system refuses is reported (messages 8
    /// and 4), and so is a thread that waits in start() or waitForExit(), which does not come back.
    ~ZThreadPool() override;
    /// A new worker for getAvailableIdleThread(), which becomes its caller's; here null.
    [[nodiscard]] virtual ZThread* createThread();

    /// Starts `t`, which is not owned, as one of the pool's threads. While as many run as the pool
    /// allows it tells idle ones to exit, one at a time, and waits. A start that fails is reported,
    /// and start() returns as if it had not. Throws ZInvalidParameterException (message 22) when
    /// the pool allows none, ZThreadException with the system's code (messages 5 and 6 for the
    /// mutex), ZOutOfMemoryException (message 1), and what telling a worker throws if that did not
    /// end it; `t` is then not started.
    void start(ZThread& t);
    /// Sets `t` to an idle worker, which is idle no longer and stays whose it was, else to what
    /// createThread() gives. Waits for nobody. Throws ZThreadException (message 5),
    /// ZOutOfMemoryException (message 1), with `t` null; ZThreadException (message 6) with `t` set
    /// to the idle worker if there is one.
    void getAvailableIdleThread(ZThread*& t);
    /// Called by a worker of this pool when it has finished a unit of work. Sets `keep` to 1 when
    /// it is idle from now on, to 0 when it has to end. Throws ZThreadException (messages 5 and 6),
    /// ZOutOfMemoryException (message 1), with `keep` 0.
    void threadDoneNotification(ZThread& t, int& keep);
    /// Called by the library in a thread of this pool that is ending: from now on it does not
    /// count. Throws ZThreadException (messages 5, 6 and 10); it does not count then either.
    void threadDeathNotification(ZThread& t);
    /// Tells the idle workers to exit, keeps no others, and waits until none of the pool's threads
    /// runs. A cancellation point. Throws ZThreadException (messages 5 and 6),
    /// ZOutOfMemoryException (message 1), and what telling a worker throws if that did not end it
    /// (else it is reported); then some of the workers may still be idle.
    void waitForExit();

  private:
    class Lock;      // holds the mutex
    class KeepNone;  // no idle workers, for as long as somebody waits for the end of all

    struct MutexDelete {
        void operator()(pthread_mutex_t* initialised) const noexcept;
    };
    struct CondDelete {
        void operator()(pthread_cond_t* initialised) const noexcept;
    };
    using Mutex = std::unique_ptr<pthread_mutex_t, MutexDelete>;
    using Cond = std::unique_ptr<pthread_cond_t, CondDelete>;

    [[nodiscard]] static Mutex createMutex();
    [[nodiscard]] static Cond createCond();
    void registerThread(ZThread& t);
    [[nodiscard]] bool takePlace(ZThread& t);
    void unregisterThread(ZThread& t) noexcept;
    void announceChange() noexcept;
    [[nodiscard]] ZThread* findIdle();
    [[nodiscard]] bool isIdle(ZThread const& t) const;
    void dropIdle(ZThread& t);
    [[nodiscard]] ZThread* nextToTell();
    [[nodiscard]] bool isStillIdle(ZThread& t);
    void unpin(ZThread& t);
    void tell(ZThread& t);
    [[nodiscard]] bool awaitEnds();

    // The mutex guards all of them but itself and the condition. Numbers are atomic for the case
    // that the system refuses it.
    ZHashMap idleThreads;  // workers that are asleep and offered, not owned
    std::atomic<int>
        activeCount;  // threads started and not ended; atomic: counts if the mutex fails
    Mutex mutex;      // never null
    Cond cond;        // for a change of activeCount, or of a pin; never null
    unsigned int const maxThreads;      // of activeCount
    std::atomic<unsigned int> maxIdle;  // of idleCount; 0 while somebody waits for the end of all
    int idleCount;                      // entries of idleThreads
};

#endif
