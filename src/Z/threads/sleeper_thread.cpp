/// Sleeper threads.
#include <algorithm>
#include <climits>
#include <ctime>

#include "Z/ZException.h"
#include "Z/ZThread.h"
#include "Z/threads/deadline.h"
#include "Z/threads/persistent_guard.h"
#include "Z/utility/cancellation_off.h"

namespace {

/// Values of `started`, in the order in which they come.
constexpr int notStarted = 0;
constexpr int awaited = 3;  // start() waits for the thread
constexpr int arrived = 2;  // the thread runs, and start() has not noticed yet
constexpr int running = 1;  // start() no longer needs the object

constexpr long longestWait = 50;  // milliseconds

unsigned int clampedInterval(unsigned long seconds) {
    return static_cast<unsigned int>(std::min<unsigned long>(seconds, UINT_MAX));
}

/// Waits on `condition` until `flag` is no longer `value`. A failure of the system is reported and
/// only delays: the two sides of a start wait for each other, and neither may leave the other
/// behind. So a wait is short, should a signal be missing, and the lock is free between two of
/// them.
void awaitOn(ZCondition& condition, std::atomic<int> const& flag, int value) noexcept {
    do {
        try {
            ZPersistentGuard const guard(condition);
            while (flag == value) {
                int timedOut = 0;
                condition.waitUntil(zdeadlineIn(CLOCK_MONOTONIC, longestWait), timedOut);
            }
        } catch (ZException& exception) {
            zreportException(exception);
            timespec const pause{0, 1000000};
            nanosleep(&pause, nullptr);
        }
    } while (flag == value);
}

/// Makes `value` of `flag` and wakes who awaits it, even if that fails.
void announceOn(ZCondition& condition, std::atomic<int>& flag, int value) noexcept {
    bool isMade = false;
    try {
        ZPersistentGuard const guard(condition);
        flag = value;
        isMade = true;
        condition.broadcast();
    } catch (ZException& exception) {
        zreportException(exception);
        // Found by the other side's next look. Never a second time: it may have answered already.
        if (!isMade) flag = value;
    }
}

}  // namespace

/// In the new thread for as long as it uses the object: lets start() go on, and sees to it that the
/// object is not gone before start() has left it.
class ZSleeperThread::Arrival {
  public:
    explicit Arrival(ZSleeperThread& arriving)
        : thread(arriving), isAwaited(arriving.started == awaited) {
        announceOn(thread.startCondition, thread.started, isAwaited ? arrived : running);
    }
    ~Arrival() {
        ZCancellationOff const waiting;
        if (isAwaited) awaitOn(thread.startCondition, thread.started, arrived);
    }
    Arrival(Arrival const&) = delete;
    Arrival& operator=(Arrival const&) = delete;

  private:
    ZSleeperThread& thread;
    bool const isAwaited;
};

ZSleeperThread::ZSleeperThread() : ZSleeperThread(0, 0, 0) {}
ZSleeperThread::ZSleeperThread(unsigned long seconds) : ZSleeperThread(0, 0, seconds) {}
ZSleeperThread::ZSleeperThread(int isDetached, int deletes)
    : ZSleeperThread(isDetached, deletes, 0) {}
ZSleeperThread::ZSleeperThread(int isDetached, int deletes, unsigned long seconds)
    : ZThread(isDetached, deletes), interval(clampedInterval(seconds)) {}
ZSleeperThread::ZSleeperThread(ZLock& l) : ZThread(0, 0), interval(0), wakeCondition(l) {}

/// Its thread may be left asleep, as when the process exits. One on its way there gets a moment.
ZSleeperThread::~ZSleeperThread() {
    bool const isLeft = started == running && pthread_equal(getPThreadID(), pthread_self()) == 0;
    if (isLeft) wakeCondition.awaitWaiter();
}

void ZSleeperThread::start() {
    reset();
    started = awaited;
    ZThread::start();
    ZCancellationOff const startedAlready;  // an unwinding start would look like a failed one
    awaitOn(startCondition, started, awaited);
    announceOn(startCondition, started, running);  // the last touch: it may delete itself now
}

void ZSleeperThread::run() {
    // Before the wake lock: whoever starts the thread may hold it. A wake-up that comes first is
    // not lost, because the loop looks before it sleeps.
    Arrival const arrival(*this);
    ZPersistentGuard const guard(wakeCondition);
    while (exitRequested == 0) {
        sleep();
        if (exitRequested == 0) work();
    }
}

/// Until there is work or the thread has to exit.
void ZSleeperThread::sleep() {
    auto const seconds = static_cast<long>(std::min<unsigned long>(interval, LONG_MAX));
    // Once: a wait that ends without a reason does not begin the interval anew.
    timespec const end = seconds == 0 ? znoDeadline : zdeadlineInSeconds(seconds);
    while (workPending == 0 && exitRequested == 0) {
        int timedOut = 0;
        wakeCondition.waitUntil(end, timedOut);
        if (timedOut != 0) workPending = 1;
    }
}

/// One unit of work, after which the pool decides whether the thread is kept.
void ZSleeperThread::work() {
    doWork();
    workPending = 0;  // also what arrived meanwhile
    ZThreadPool* const counting = pool;
    if (counting == nullptr) return;
    int keep = 0;
    counting->threadDoneNotification(*this, keep);
    if (keep == 0) exitRequested = 1;
}

void ZSleeperThread::wakeUp() {
    ZPersistentGuard const guard(wakeCondition);
    workPending = 1;
    wakeCondition.signal();
}

void ZSleeperThread::tellToExit() {
    ZPersistentGuard const guard(wakeCondition);
    exitRequested = 1;
    wakeCondition.signal();
}

void ZSleeperThread::waitForExit() {
    // Read first: a thread that deletes itself may be gone once it is told. A detached one is reset
    // by its next start; here it might not have seen yet that it was told.
    bool const joinable = detached == 0;
    bool const resets = autoDelete == 0;
    tellToExit();
    if (!joinable) return;
    ZThread::waitForExit();
    if (resets) reset();
}

void ZSleeperThread::reset() {
    ZPersistentGuard const guard(wakeCondition);
    exitRequested = 0;
    started = notStarted;
}
