/// Workers that run jobs, one after the other, for as long as the pool lives.
///
///     ZWorkerPool pool(4);
///     for (auto const& file : files)
///         pool.run([&file] { index(file); });
///     pool.waitForAll();                        // then it goes on with the next files
///
/// What a call does, by who calls, and by how much the pool has to do:
///
///     call         | by                  | a worker is idle | none, but room | the queue is full
///     -------------+---------------------+------------------+----------------+------------------
///     run()        | a job of this pool  | runs there       | is queued      | is queued
///     run()        | any other           | runs there       | is queued      | waits for room
///     tryRun()     | any                 | runs there       | is queued      | false
///     waitForAll() | a job of this pool  | refused          | refused        | refused
///     waitForAll() | any other           | waits until no job is queued or at work
///
/// "Refused" is ZThreadException (message 20) with EDEADLK: the job would wait for itself.
///
/// All of it may be called by several threads at a time, the destructor by one, and last. Jobs
/// begin in the order in which they were given. What may surprise:
/// - With a limit of 0 nothing is queued: run() waits until a worker is idle.
/// - A job's run() goes beyond the limit, because a job that waited for room would keep the worker
///   that is to make it. Its tryRun() does not.
/// - What escapes a job is reported: exceptions of the library by themselves, others as message 19.
///   Its worker goes on with the next job.
/// - A job may leave by pthread_exit() or be cancelled; a new thread takes the place of its worker.
///   Should the system refuse that one, it is reported and the pool goes on with fewer workers,
///   until run() or waitForAll() can start the missing ones.
/// - Thread-specific slots and the like stay with a worker from one job to the next.
/// - The child of a fork has neither the workers nor the jobs of its parent: there, calls throw
///   ZThreadException (message 20) with ESRCH, and the destructor does nothing. Where a job forks,
///   the child ends at the latest when the job returns.
#ifndef Z_ZWORKERPOOL_H
#define Z_ZWORKERPOOL_H

#include "Z/ztags.h"

#include <memory>
#include <type_traits>
#include <utility>

#include "Z/ZObject.h"
#include "Z/zexport.h"

/// A fixed number of threads that share a queue of jobs. A job is anything that can be called
/// without arguments, and need not be copyable; what it returns is dropped. It is called once, and
/// destroyed by its worker before it counts as done.
class ZFC_API ZWorkerPool {
  public:
    /// Jobs that wait in the queue of a pool which is told nothing else.
    static constexpr unsigned int usualLimit = 1000;

    /// Starts `workers` threads. At most `limit` jobs wait in the queue for one of them. Throws
    /// ZInvalidParameterException (message 22) when there are to be none, ZThreadException (message
    /// 17) with the system's code when one cannot be started, ZOutOfMemoryException (message 1),
    /// and as ZCondition(); then none runs.
    explicit ZWorkerPool(unsigned int workers, unsigned int limit = usualLimit);
    /// Waits until all jobs are done, queued ones included, and the threads have ended. In a job of
    /// the pool, as when that has the last share in it, it waits for nothing; jobs are done and
    /// threads end as ever.
    ~ZWorkerPool();
    ZWorkerPool(ZWorkerPool const&) = delete;
    ZWorkerPool& operator=(ZWorkerPool const&) = delete;

    /// Gives `job` to an idle worker, or queues it. Waits, and is a cancellation point, where the
    /// table says so. Throws ZOutOfMemoryException (message 1); ZInvalidParameterException (message
    /// 22) for an empty std::function or a null pointer; ZThreadException (message 17) when all
    /// workers are lost and none can be started; as ZLock::lock() and ZCondition::wait(); and what
    /// copying or moving `job` throws. Then it is not queued, and as it was before.
    template <class Function>
    void run(Function&& job) {
        refuseEmpty(job);
        Place place(*this, WhenFull::waits);
        place.fill(makeJob(std::forward<Function>(job)));
    }
    /// As run(), but false at once when the queue is full; `job` is then as it was before.
    template <class Function>
    [[nodiscard]] bool tryRun(Function&& job) {
        refuseEmpty(job);
        Place place(*this, WhenFull::refuses);
        if (!place.isTaken()) return false;
        place.fill(makeJob(std::forward<Function>(job)));
        return true;
    }
    /// Waits for a moment in which all jobs are done, those that are given meanwhile included; the
    /// pool goes on. A cancellation point. Throws as the table says, ZThreadException (message 17)
    /// when all workers are lost and none can be started, and as ZLock::lock() and
    /// ZCondition::wait().
    void waitForAll();
    /// How many jobs have not returned, but thrown, or left their thread. Throws as ZLock::lock().
    [[nodiscard]] unsigned long getFailureCount() const;

  private:
    class Core;    // all that workers and callers share
    class Worker;  // a thread
    enum class WhenFull { waits, refuses };

    /// A job and its link in the queue.
    class ZFC_API Job : public ZObject {
      public:
        ~Job() override;
        virtual void run() = 0;

        Job* next = nullptr;  // in the queue, which owns it
    };

    template <class Function>
    class Call : public Job {
      public:
        template <class Given>
        explicit Call(std::in_place_t /*tag*/, Given&& job) : function(std::forward<Given>(job)) {}
        void run() override { static_cast<void>(function()); }

      private:
        Function function;
    };

    /// Room for one job, had before the job is made: who is refused keeps what he would have given.
    class ZFC_API Place {
      public:
        Place(ZWorkerPool& pool, WhenFull whenFull);
        ~Place();
        Place(Place const&) = delete;
        Place& operator=(Place const&) = delete;
        [[nodiscard]] bool isTaken() const { return core != nullptr; }
        void fill(std::unique_ptr<Job> job) noexcept;

      private:
        Core* core;  // null: there is none, or it is filled
    };

    template <class Function>
    static std::unique_ptr<Job> makeJob(Function&& job) {
        using Kept = std::decay_t<Function>;
        static_assert(std::is_invocable_v<Kept&>, "a job is called without arguments");
        return std::make_unique<Call<Kept>>(std::in_place, std::forward<Function>(job));
    }

    // Calls for what can be compared with null: pointers to functions, std::function.
    template <class Function>
    static auto isNull(Function const& job, int /*preferred*/) -> decltype(job == nullptr) {
        return job == nullptr;
    }
    template <class Function>
    static bool isNull(Function const& /*job*/, long /*otherwise*/) {
        return false;
    }
    template <class Function>
    static void refuseEmpty(Function const& job) {
        // A closure without a capture would become a pointer, which is never null.
        if constexpr (!std::is_empty_v<Function> && !std::is_function_v<Function>)
            if (isNull(job, 0)) throwEmpty();
    }
    [[noreturn]] static void throwEmpty();

    std::unique_ptr<Core> core;  // never null
};

#endif
