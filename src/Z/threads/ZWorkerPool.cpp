#include "Z/ZWorkerPool.h"

#include <cerrno>
#include <ctime>

#include "Z/ZException.h"
#include "Z/exceptions/report.h"
#include "Z/threads/forked_child.h"
#include "Z/threads/persistent_guard.h"
#include "Z/threads/pthread_objects.h"
#include "Z/threads/worker_pool_core.h"
#include "Z/utility/cancellation_off.h"
#include "Z/utility/undo.h"

namespace {

constexpr char sourceName[] = "src/Z/ZWorkerPool";

/// The core of the pool whose worker the calling thread is; null in other threads.
thread_local void const* ownCore = nullptr;

[[noreturn]] void refuse(Message message, int rc, int line) {
    zraise(ZThreadException(numberOf(message), rc), sourceName, line);
}

/// What `step` returns, as soon as it does: the system has no reason to refuse it, and if it did, a
/// number or a worker would be lost for ever. `step` changes nothing before it throws.
template <class Step>
auto insist(Step const& step) noexcept {
    for (;;) {
        try {
            return step();
        } catch (ZException& exception) {
            zreportException(exception);
            ZCancellationOff const inDestructors;  // nanosleep() is a cancellation point
            timespec const aMillisecond{0, 1000000};
            nanosleep(&aMillisecond, nullptr);
        }
    }
}

/// A job can be cancelled, as any thread of a program; what is around it cannot.
struct CancellationOn {
    CancellationOn() noexcept { set(PTHREAD_CANCEL_ENABLE); }
    ~CancellationOn() { set(PTHREAD_CANCEL_DISABLE); }
    CancellationOn(CancellationOn const&) = delete;
    CancellationOn& operator=(CancellationOn const&) = delete;
    static void set(int state) noexcept {
        int ignored = 0;
        pthread_setcancelstate(state, &ignored);
    }
};

}  // namespace

namespace zfc::threads {

void Sleepers::wait() {
    ++asleep;
    ZUndo const awake([this] {
        --asleep;
        isWaking = false;
    });
    condition.wait();
}

void Sleepers::wakeOne() noexcept {
    if (asleep == 0 || isWaking) return;
    isWaking = true;
    wake(&ZCondition::signal);
}

void Sleepers::wakeAll() noexcept {
    if (asleep != 0) wake(&ZCondition::broadcast);
}

void Sleepers::wake(void (ZCondition::*how)()) noexcept {
    for (int attempts = 0; attempts < 2; ++attempts) {
        try {
            return (condition.*how)();
        } catch (ZException&) {
            // Reported already. Once more: somebody sleeps who is needed.
        }
    }
    isWaking = false;
}

}  // namespace zfc::threads

// ----------------------------------------------------------------------------------------- workers

void ZWorkerPool::Worker::JoinAndDelete::operator()(Worker* worker) const noexcept {
    pthread_t const thread = worker->getPThreadID();  // 0: it could not be started
    bool const isOther = thread != 0 && pthread_equal(thread, pthread_self()) == 0;
    if (isOther) static_cast<void>(zreturned(sourceName, __LINE__, [&] { worker->waitForExit(); }));
    delete worker;  // which detaches the thread that nobody joins, the last one of an abandoned
                    // pool
}

void ZWorkerPool::Worker::run() {
    ZCancellationOff const betweenJobs;
    ownCore = &core;
    while (std::unique_ptr<Job> job = insist([this] { return core.next(*this); }))
        execute(std::move(job));
}

void ZWorkerPool::Worker::execute(std::unique_ptr<Job> job) {
    outcome = Outcome::failed;  // also when the thread unwinds
    CancellationOn const inJob;
    if (zreturned(sourceName, __LINE__, [&] { job->run(); })) outcome = Outcome::returned;
}

void ZWorkerPool::Worker::exit() { core.leave(*this); }

// ------------------------------------------------------------------- what workers and callers
// share

ZWorkerPool::Core::Core(unsigned int threads, unsigned int longest)
    : wanted(threads), limit(longest), forks(ZForkedChild::forks()) {}

ZWorkerPool::Core::~Core() {
    ZCancellationOff const joining;
    close(false);
    while (Worker::Owned const ended = insist([this] { return takeAny(); })) {
    }
    // Only when the last worker left its thread, and no other could be started, which was reported.
    while (first != nullptr)
        std::unique_ptr<Job>(std::exchange(first, first->next)).reset();
}

void ZWorkerPool::Core::start() {
    ZPersistentGuard const guard(lock);
    startMissing();
}

void ZWorkerPool::Core::close(bool inJob) noexcept {
    insist([=] {
        ZPersistentGuard const guard(lock);
        isClosed = true;
        isAbandoned = inJob;
        idle.wakeAll();
    });
}

bool ZWorkerPool::Core::isInherited() const noexcept { return forks != ZForkedChild::forks(); }
bool ZWorkerPool::Core::isMine() const noexcept { return ownCore == this; }

void ZWorkerPool::Core::refuseInherited() const {
    if (isInherited()) refuse(Message::threadJoinFailed, ESRCH, __LINE__);
}

/// By what all workers and the queue can hold: a worker that was called for a job has not taken it
/// yet, and the queue would look longer than it is.
bool ZWorkerPool::Core::isFull() const {
    return unfinished >= limit && unfinished - limit >= living;
}

void ZWorkerPool::Core::startMissing() {
    while (living < wanted && (!isClosed || first != nullptr)) {
        Worker::Owned worker(new Worker(*this));
        worker->start();
        ++living;
        worker->next = std::move(workers);
        workers = std::move(worker);
    }
}

/// With some of the workers the pool goes on; that others are missing was reported when they left.
void ZWorkerPool::Core::replaceLost() {
    if (living == wanted) return;
    try {
        startMissing();
    } catch (ZException&) {
        if (living == 0) throw;
    }
}

bool ZWorkerPool::Core::takePlace(WhenFull whenFull) {
    refuseInherited();
    ZPersistentGuard const guard(lock);
    replaceLost();
    while (isFull()) {
        if (whenFull == WhenFull::refuses) return false;
        if (isMine()) break;
        givers.wait();
        replaceLost();
    }
    ++unfinished;
    if (!isFull()) givers.wakeOne();
    return true;
}

void ZWorkerPool::Core::giveBack() noexcept {
    insist([this] {
        ZPersistentGuard const guard(lock);
        freePlace();
    });
}

/// Into its place: the caller's callable is in the job already, and cannot be given back.
void ZWorkerPool::Core::add(std::unique_ptr<Job> job) noexcept {
    insist([&] {
        ZPersistentGuard const guard(lock);
        Job*& end = first == nullptr ? first : last->next;
        end = last = job.release();
        idle.wakeOne();
    });
}

void ZWorkerPool::Core::waitForAll() {
    refuseInherited();
    if (isMine()) refuse(Message::threadJoinFailed, EDEADLK, __LINE__);
    ZPersistentGuard const guard(lock);
    // By the number too: when this thread comes, there may be new jobs already, and so for ever.
    unsigned long const before = timesDone;
    while (unfinished != 0 && timesDone == before) {
        replaceLost();
        waiters.wait();
    }
}

unsigned long ZWorkerPool::Core::failureCount() {
    refuseInherited();
    ZPersistentGuard const guard(lock);
    return failures;
}

/// Counts the worker's job, if it has had one, and takes another: with one taking of the lock.
std::unique_ptr<ZWorkerPool::Job> ZWorkerPool::Core::next(Worker& worker) {
    if (isInherited()) return nullptr;  // the job has forked
    ZPersistentGuard const guard(lock);
    countOut(worker);
    while (first == nullptr) {
        if (isClosed) return nullptr;
        idle.wait();
    }
    std::unique_ptr<Job> job(std::exchange(first, first->next));
    if (first != nullptr) idle.wakeOne();
    return job;
}

void ZWorkerPool::Core::countOut(Worker& worker) {
    auto const outcome = std::exchange(worker.outcome, Worker::Outcome::none);
    if (outcome == Worker::Outcome::failed) ++failures;
    if (outcome != Worker::Outcome::none) freePlace();
}

void ZWorkerPool::Core::freePlace() {
    --unfinished;
    if (!isFull()) givers.wakeOne();
    if (unfinished != 0) return;
    ++timesDone;
    waiters.wakeAll();
}

/// In a thread that ends, because the pool does or in the midst of a job. It is joined by the end
/// of the pool or by the next one that leaves, whoever is first.
void ZWorkerPool::Core::leave(Worker& worker) noexcept {
    if (isInherited()) return;
    Worker::Owned before;
    bool const isLast = insist([&] {
        ZPersistentGuard const guard(lock);
        countOut(worker);
        before = std::exchange(left, takeOut(worker));
        --living;
        startMissingOrReport();
        return isAbandoned && living == 0;
    });
    before.reset();
    if (isLast) delete this;
}

void ZWorkerPool::Core::startMissingOrReport() noexcept {
    try {
        startMissing();
    } catch (ZException& exception) {
        zreportException(exception);
    }
    if (living != 0) return;
    givers.wakeAll();  // who wait now would do so for ever
    waiters.wakeAll();
}

/// Null when the end of the pool has it already, and joins it.
ZWorkerPool::Worker::Owned ZWorkerPool::Core::takeOut(Worker& worker) {
    Worker::Owned* link = &workers;
    while (*link != nullptr && link->get() != &worker)
        link = &(*link)->next;
    Worker::Owned found = std::move(*link);
    if (found != nullptr) *link = std::move(found->next);
    return found;
}

/// A worker to be joined; null when there is none. Looked for again after each: one that leaves
/// starts another if there are jobs.
ZWorkerPool::Worker::Owned ZWorkerPool::Core::takeAny() {
    ZPersistentGuard const guard(lock);
    return workers != nullptr ? takeOut(*workers) : std::move(left);
}

// -------------------------------------------------------------------------------------------- pool

ZWorkerPool::ZWorkerPool(unsigned int workers, unsigned int limit) {
    if (workers == 0) zraise(ZInvalidParameterException(), sourceName, __LINE__);
    core = std::make_unique<Core>(workers, limit);
    core->start();
}

ZWorkerPool::~ZWorkerPool() {
    if (core->isInherited()) {
        zfc::threads::keepForever(core.release());  // other threads of the parent use it
    } else if (core->isMine()) {
        core.release()->close(true);  // the last worker deletes it
    }
}

void ZWorkerPool::waitForAll() { core->waitForAll(); }
unsigned long ZWorkerPool::getFailureCount() const { return core->failureCount(); }
void ZWorkerPool::throwEmpty() { zraise(ZInvalidParameterException(), sourceName, __LINE__); }

ZWorkerPool::Job::~Job() = default;

ZWorkerPool::Place::Place(ZWorkerPool& pool, WhenFull whenFull)
    : core(pool.core->takePlace(whenFull) ? pool.core.get() : nullptr) {}

ZWorkerPool::Place::~Place() {
    if (isTaken()) core->giveBack();
}

void ZWorkerPool::Place::fill(std::unique_ptr<Job> job) noexcept {
    core->add(std::move(job));
    core = nullptr;  // its worker gives it back
}
