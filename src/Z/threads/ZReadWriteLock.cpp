#include "Z/ZReadWriteLock.h"

#include <cerrno>
#include <ctime>
#include <iterator>
#include <optional>

#include "Z/ZException.h"
#include "Z/exceptions/report.h"
#include "Z/threads/deadline.h"
#include "Z/threads/forked_child.h"
#include "Z/threads/persistent_guard.h"

namespace {

constexpr char sourceName[] = "src/Z/ZReadWriteLock";
constexpr pthread_t noOwner = static_cast<pthread_t>(-1);

constexpr char const* stateNames[] = {"unset", "read", "protect", "write"};

[[noreturn]] void refuseLock(int rc, int line) {
    zraise(ZLockResourceException(numberOf(Message::mutexLockFailed), rc), sourceName, line);
}

[[noreturn]] void refuseUnlock(int line) {
    zraise(ZUnlockResourceException(numberOf(Message::mutexUnlockFailed), 0), sourceName, line);
}

// ------------------------------------------------------------------------------------- the word

using State = ZReadWriteLockInterface::zlockstate;

/// Who is inside stands in one number, so that a request or a release on which nobody waits is one
/// exchange of it, without the guard:
///
///     bits | meaning
///     -----+--------------------------------------------------------------------------------------
///     0-1  | zlockProtect or zlockWrite while a thread has that, else 0
///     2    | threads wait: whoever gives something back does it under the guard, and wakes them
///     3-31 | readers inside
///
/// What keeps it right:
/// - The first table of the header holds from every value to the next, because each step exchanges
///   the very value that admitted it. No value in between is ever seen.
/// - No wake-up is lost. Who is to wait sets bit 2 under the guard, looks at the word once more,
///   and gives the guard up by waiting. What was given back before bit 2 was set is seen by that
///   look; what is given back later needs the guard first, and so finds the thread asleep.
/// - An exchange begins with a guess, not with a look: between processors a look would cost as much
///   again as the exchange, which tells the true value when it fails.
/// - A release takes the guard before it changes anything: when that fails nothing was released.
using Word = unsigned int;
constexpr Word modeBits = 3;
constexpr Word waitersBit = 4;
constexpr Word oneReader = 8;
constexpr Word mostReaders = ~(oneReader - 1);

State modeIn(Word word) { return static_cast<State>(word & modeBits); }
Word readersIn(Word word) { return word / oneReader; }

/// The column "held" of the table.
State stateOf(Word word) {
    if (modeIn(word) != ZReadWriteLockInterface::zlockUnset) return modeIn(word);
    return word < oneReader ? ZReadWriteLockInterface::zlockUnset
                            : ZReadWriteLockInterface::zlockRead;
}

bool admits(Word word, State requested) {
    if (requested == ZReadWriteLockInterface::zlockRead)
        return modeIn(word) != ZReadWriteLockInterface::zlockWrite;
    if (requested == ZReadWriteLockInterface::zlockProtect)
        return modeIn(word) == ZReadWriteLockInterface::zlockUnset;
    return stateOf(word) == ZReadWriteLockInterface::zlockUnset;
}

Word entered(Word word, State requested) {
    if (requested != ZReadWriteLockInterface::zlockRead) return word | requested;
    if (word >= mostReaders) refuseLock(EAGAIN, __LINE__);
    return word + oneReader;
}

/// How many protects and writes the calling thread has taken and not given back, of whatever lock.
/// A hint, which may be wrong.
[[gnu::tls_model("initial-exec")]] thread_local int modesHeld = 0;

/// Exchanges the word, which may be `guess`, for what `without` makes of it, and gives that; none,
/// and nothing done, when threads wait and that is not allowed.
template <class Without>
inline std::optional<Word> release(std::atomic<Word>& shared, Word guess, bool mayWait,
                                   Without const& without) {
    Word word = guess;
    Word left = 0;
    do {
        if (!mayWait && (word & waitersBit) != 0) return std::nullopt;
        left = without(word);
    } while (!shared.compare_exchange_weak(word, left, std::memory_order_release,
                                           std::memory_order_relaxed));
    return left;
}

/// Whether a release that left this word makes room for somebody.
bool letsSomebodyIn(Word word) {
    if (modeIn(word) == ZReadWriteLockInterface::zlockProtect) return false;
    return modeIn(word) != ZReadWriteLockInterface::zlockWrite || word < oneReader;
}

/// A moment in which the other processor gets on.
void pauseForMoment() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
}

}  // namespace

// ------------------------------------------------------------------------------------- the base

ZAbstractReadWriteLock::~ZAbstractReadWriteLock() = default;

void ZAbstractReadWriteLock::lock() { lock(zlockWrite); }

char const* ZAbstractReadWriteLock::getLockStateName(zlockstate state) const {
    auto const index = static_cast<unsigned int>(state);
    return index < std::size(stateNames) ? stateNames[index] : nullptr;
}

int ZAbstractReadWriteLock::isCurrent() const { return 1; }
void ZAbstractReadWriteLock::unlock() { unlock(getUpdate()); }
void ZAbstractReadWriteLock::unlock(int /*update*/) {}
int ZAbstractReadWriteLock::getUpdate() const { return 0; }
void ZAbstractReadWriteLock::setUpdate(int /*update*/) {}

// ------------------------------------------------------------------------------------- the lock

/// A thread that is about to wait, or waits; made and destroyed under the guard, which the analysis
/// cannot see from here.
class ZReadWriteLock::Waiter {
  public:
    explicit Waiter(ZReadWriteLock& awaited) ZNO_THREAD_SAFETY_ANALYSIS : lock(awaited) {
        if (++lock.waiters == 1) lock.readerCount.fetch_or(waitersBit);
    }
    ~Waiter() ZNO_THREAD_SAFETY_ANALYSIS {  // the guard is held again, however the wait ended
        if (--lock.waiters == 0) lock.readerCount.fetch_and(~waitersBit);
    }
    Waiter(Waiter const&) = delete;
    Waiter& operator=(Waiter const&) = delete;

  private:
    ZReadWriteLock& lock;
};

/// Made and destroyed under the guard, as above.
class ZReadWriteLock::Promotion {
  public:
    explicit Promotion(ZReadWriteLock& promoted) : lock(promoted) {
        lock.readerCount.fetch_or(zlockWrite);  // from now on no new reader enters
    }
    ~Promotion() ZNO_THREAD_SAFETY_ANALYSIS {
        if (complete) return;
        lock.readerCount.fetch_and(~(zlockWrite ^ zlockProtect));  // the owner has not changed
        try {
            if (lock.waiters > 0) lock.condition.broadcast();  // readers may enter again
        } catch (ZException& exception) {
            zreportException(exception);
        }
    }
    Promotion(Promotion const&) = delete;
    Promotion& operator=(Promotion const&) = delete;

    bool complete = false;

  private:
    ZReadWriteLock& lock;
};

ZReadWriteLock::ZReadWriteLock() : owner(noOwner) {}
ZReadWriteLock::ZReadWriteLock(ZReadWriteLock const&) : ZReadWriteLock() {}
ZReadWriteLock::~ZReadWriteLock() = default;

ZObject* ZReadWriteLock::clone() const { return new ZReadWriteLock(*this); }

void ZReadWriteLock::lock() { lock(zlockWrite); }

void ZReadWriteLock::lock(zlockstate requested) {
    switch (requested) {
        case zlockUnset:
            return unlock();
        case zlockRead:
            return readLock();
        case zlockProtect:
            return readWithIntentToWriteLock();
        case zlockWrite:
            return writeLock();
    }
    zraise(ZInvalidParameterException(), sourceName, __LINE__);
}

void ZReadWriteLock::readLock() {
    if (!enter(zlockRead)) await(zlockRead);
}

void ZReadWriteLock::writeLock() {
    if (!enter(zlockWrite)) await(zlockWrite);
}

void ZReadWriteLock::readWithIntentToWriteLock() {
    if (!enter(zlockProtect)) await(zlockProtect);
}

bool ZReadWriteLock::tryLock(zlockstate requested) { return lockFor(requested, 0); }

bool ZReadWriteLock::lockFor(zlockstate requested, long milliseconds) {
    if (requested < zlockRead || requested > zlockWrite)
        zraise(ZInvalidParameterException(), sourceName, __LINE__);
    if (enter(requested)) return true;
    return milliseconds > 0 && awaitUntil(requested, zdeadlineIn(CLOCK_MONOTONIC, milliseconds));
}

/// Takes the mode if it is to be had now.
inline bool ZReadWriteLock::enter(zlockstate requested) {
    Word word = 0;  // a guess, as every value here until the exchange has failed
    do {
        // The holder would wait for itself. A reader that asks again is not known here and is let
        // in beside itself; one that asks for more waits for ever, as the header says.
        if (modeIn(word) != zlockUnset && isMine()) refuseLock(0, __LINE__);
        if (!admits(word, requested)) return false;
    } while (!readerCount.compare_exchange_weak(
        word, entered(word, requested), std::memory_order_acquire, std::memory_order_relaxed));
    if (requested != zlockRead) noteOwner(requested);
    return true;
}

void ZReadWriteLock::await(zlockstate requested) {
    static_cast<void>(awaitUntil(requested, znoDeadline));
}

/// False when the deadline has passed.
bool ZReadWriteLock::awaitUntil(zlockstate requested, timespec const& deadline) {
    if (enterInAMoment(requested)) return true;
    ZPersistentGuard const guard(condition);
    Waiter const waiter(*this);
    while (!enter(requested)) {
        // What was asked for may have come free with the deadline.
        if (!wait(deadline)) return enter(requested);
    }
    return true;
}

/// Most locks are held for less time than it takes to put a thread to sleep and wake it.
bool ZReadWriteLock::enterInAMoment(zlockstate requested) {
    constexpr int looks = 30;
    for (int i = 0; i < looks; ++i) {
        pauseForMoment();
        bool const isLikely = admits(readerCount.load(std::memory_order_relaxed), requested);
        if (isLikely && enter(requested)) return true;
    }
    return false;
}

void ZReadWriteLock::promoteReadToWriteLock() {
    if (!isMine() || state.load(std::memory_order_relaxed) != zlockProtect) refuseLock(0, __LINE__);
    if (!promoteAtOnce()) promoteAfterReaders();
    state.store(zlockWrite, std::memory_order_release);  // as every note: behind `owner`
}

/// If no reader is inside.
bool ZReadWriteLock::promoteAtOnce() {
    Word word = zlockProtect;
    while (word < oneReader)
        if (readerCount.compare_exchange_weak(word, word | zlockWrite, std::memory_order_acquire,
                                              std::memory_order_relaxed))
            return true;
    return false;
}

void ZReadWriteLock::promoteAfterReaders() {
    ZPersistentGuard const guard(condition);
    Promotion promotion(*this);
    Waiter const waiter(*this);
    while (readersIn(readerCount.load(std::memory_order_acquire)) > 0)
        static_cast<void>(wait(znoDeadline));
    promotion.complete = true;
}

void ZReadWriteLock::unlock() {
    if (!leave(Waiters::none)) leaveAndWake();
}

void ZReadWriteLock::leaveAndWake() {
    bool wakes = false;
    {
        ZPersistentGuard const guard(condition);
        // By the word that this release left: who enters behind it does not wake for it.
        std::optional<Word> const left = leave(Waiters::some);
        wakes = waiters > 0 && letsSomebodyIn(*left);
    }
    // Without the guard, which the woken ones want at once.
    // All of them: each tests for itself, and one that cannot enter would swallow a single signal.
    if (wakes) condition.broadcast();
}

void ZReadWriteLock::unlock(int /*update*/) { unlock(); }

/// Gives back what the calling thread holds: its protect or write, else one reader, maybe beside a
/// protect holder or with a promotion waiting for it. The word afterwards; none, and nothing done,
/// when threads wait and none were expected.
inline std::optional<unsigned int> ZReadWriteLock::leave(Waiters expected) {
    Word word = oneReader;
    // Who has taken no mode gives back a read. That the only reader leaves is one exchange: while
    // two processors pass the lock on, a look at the owner before it would take as long again.
    if (modesHeld == 0 && readerCount.compare_exchange_strong(word, 0, std::memory_order_release,
                                                              std::memory_order_relaxed))
        return 0;
    return isMine() ? leaveAsOwner(expected) : leaveAsReader(expected, word);
}

inline std::optional<unsigned int> ZReadWriteLock::leaveAsOwner(Waiters expected) {
    // Before the mode is free: behind that, the next owner's note would be lost.
    zlockstate const held = state.load(std::memory_order_relaxed);
    state.store(zlockUnset, std::memory_order_relaxed);
    auto const left = release(readerCount, held, expected == Waiters::some,
                              [](Word word) { return word & ~modeBits; });
    if (left)
        --modesHeld;
    else
        state.store(held, std::memory_order_release);
    return left;
}

inline std::optional<unsigned int> ZReadWriteLock::leaveAsReader(Waiters expected,
                                                                 unsigned int guess) {
    return release(readerCount, guess, expected == Waiters::some, [](Word word) {
        if (word < oneReader) refuseUnlock(__LINE__);
        return word - oneReader;
    });
}

bool ZReadWriteLock::haveLock(zlockstate wanted) const {
    return stateOf(readerCount.load(std::memory_order_acquire)) == wanted;
}

// Kept: true after the release as well. Who holds the lock learns whether it writes; for others the
// answer means nothing.
bool ZReadWriteLock::ownWriteLock() const {
    if (isMine()) return true;
    // Who has a mode by the word is about to note that it is the owner.
    bool const isFree = modeIn(readerCount.load(std::memory_order_acquire)) == zlockUnset;
    return isFree && pthread_equal(owner.load(std::memory_order_relaxed), pthread_self()) != 0;
}

int ZReadWriteLock::getReaderCount() {
    return static_cast<int>(readersIn(readerCount.load(std::memory_order_acquire)));
}

/// Whether the calling thread holds protect or write. Its own notes it finds as it wrote them. One
/// that holds neither has, after its last hold, noted unset before it gave the mode up; so another
/// value was written by a later owner, behind the note who that is.
inline bool ZReadWriteLock::isMine() const {
    return state.load(std::memory_order_acquire) != zlockUnset &&
           pthread_equal(owner.load(std::memory_order_relaxed), pthread_self()) != 0;
}

/// By the thread that has just taken the mode.
void ZReadWriteLock::noteOwner(zlockstate taken) {
    ++modesHeld;
    owner.store(pthread_self(), std::memory_order_relaxed);
    state.store(taken, std::memory_order_release);
}

/// One wait; false when the deadline has passed.
bool ZReadWriteLock::wait(timespec const& deadline) {
    int timedOut = 0;
    condition.waitUntil(deadline, timedOut);
    return timedOut == 0;
}

// ------------------------------------------------------------------------------------ the guard

ZStackReadWriteLock::ZStackReadWriteLock(ZAbstractReadWriteLock& l, int update) : readWriteLock(l) {
    readWriteLock.setUpdate(update);
}

ZStackReadWriteLock::~ZStackReadWriteLock() {
    ZForkedChild::endHold(readWriteLock, sourceName, __LINE__, [this] { readWriteLock.unlock(); });
}
