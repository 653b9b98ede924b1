/// What the workers of a pool share with its callers.
#ifndef Z_THREADS_WORKER_POOL_CORE_H
#define Z_THREADS_WORKER_POOL_CORE_H

#include <memory>

#include "Z/ZCondition.h"
#include "Z/ZLock.h"
#include "Z/ZThread.h"
#include "Z/ZWorkerPool.h"

namespace zfc::threads {

/// Threads that wait until there is something for them, under a lock that is lent.
///
/// To wake a thread costs more than most jobs, and it takes a while until it comes. So there is one
/// on its way at a time; meanwhile nobody calls another, and who comes calls the next one if there
/// is more than he takes.
class Sleepers {
  public:
    explicit Sleepers(ZLock& lent) : condition(lent) {}

    /// Once: callers look again. A cancellation point. Throws as ZCondition::wait().
    void wait();
    void wakeOne() noexcept;
    void wakeAll() noexcept;

  private:
    void wake(void (ZCondition::*how)()) noexcept;

    ZCondition condition;
    unsigned long asleep = 0;  // threads in wait()
    bool isWaking = false;     // one was called, and none has come since
};

}  // namespace zfc::threads

/// A thread of the pool. Only its jobs can be cancelled.
class ZWorkerPool::Worker : public ZThread {
  public:
    enum class Outcome { none, returned, failed };
    struct JoinAndDelete {
        void operator()(Worker* worker) const noexcept;
    };
    using Owned = std::unique_ptr<Worker, JoinAndDelete>;

    explicit Worker(Core& shared) : ZThread(0, 0), core(shared) {}
    void run() override;
    void exit() override;

    Owned next;                       // in the pool's list; guarded by its lock
    Outcome outcome = Outcome::none;  // of a job that the pool does not know to be over

  private:
    void execute(std::unique_ptr<Job> job);

    Core& core;
};

class ZWorkerPool::Core {
  public:
    Core(unsigned int threads, unsigned int longest);
    ~Core();
    Core(Core const&) = delete;
    Core& operator=(Core const&) = delete;
    static void* operator new(std::size_t size) { return ZObject::operator new(size); }
    static void operator delete(void* block) noexcept { ZObject::operator delete(block); }

    void start();
    [[nodiscard]] bool takePlace(WhenFull whenFull);
    void giveBack() noexcept;
    void add(std::unique_ptr<Job> job) noexcept;
    void waitForAll();
    [[nodiscard]] unsigned long failureCount();

    // What belongs to the process that forked this one, and what to the calling thread's own pool.
    [[nodiscard]] bool isInherited() const noexcept;
    [[nodiscard]] bool isMine() const noexcept;

    /// The next job for the worker; null when it has to end.
    [[nodiscard]] std::unique_ptr<Job> next(Worker& worker);
    void leave(Worker& worker) noexcept;

    /// Lets the workers end when no job is left. In a job nobody can wait for that: the last one
    /// deletes what they share.
    void close(bool inJob) noexcept;

  private:
    void refuseInherited() const;
    [[nodiscard]] bool isFull() const ZREQUIRES(lock);
    void startMissing() ZREQUIRES(lock);
    void startMissingOrReport() noexcept ZREQUIRES(lock);
    void replaceLost() ZREQUIRES(lock);
    void countOut(Worker& worker) ZREQUIRES(lock);
    void freePlace() ZREQUIRES(lock);
    [[nodiscard]] Worker::Owned takeOut(Worker& worker) ZREQUIRES(lock);
    [[nodiscard]] Worker::Owned takeAny();

    unsigned int const wanted;  // workers
    unsigned int const limit;   // of the queue
    unsigned int const forks;   // of the process that made the pool

    ZLock lock;
    zfc::threads::Sleepers idle{lock};       // workers
    zfc::threads::Sleepers givers{lock};     // who wait for room
    zfc::threads::Sleepers waiters{lock};    // who wait for the end of all jobs
    Job* first ZGUARDED_BY(lock) = nullptr;  // of the queue; null when it is empty
    Job* last ZGUARDED_BY(lock) = nullptr;
    // Queued, at work, and places that are not filled yet.
    unsigned long unfinished ZGUARDED_BY(lock) = 0;
    unsigned long timesDone ZGUARDED_BY(lock) = 0;  // that `unfinished` became 0
    unsigned long failures ZGUARDED_BY(lock) = 0;
    unsigned int living ZGUARDED_BY(lock) = 0;   // workers in the list
    bool isClosed ZGUARDED_BY(lock) = false;     // workers without a job end
    bool isAbandoned ZGUARDED_BY(lock) = false;  // closed in a job
    Worker::Owned workers ZGUARDED_BY(lock);
    Worker::Owned left ZGUARDED_BY(lock);  // the last who left; joined by the next one
};

#endif
