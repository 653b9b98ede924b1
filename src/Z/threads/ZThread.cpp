#include "Z/ZThread.h"

#include <cerrno>

#include "Z/ZException.h"
#include "Z/exceptions/report.h"
#include "Z/threads/thread_state.h"
#include "Z/utility/cancellation_off.h"

namespace {

constexpr char sourceName[] = "src/Z/ZThread";
constexpr pthread_t noThread = 0;

/// The attributes of a thread that is being started.
class Attributes {
  public:
    explicit Attributes(bool detached) {
        if (int const rc = pthread_attr_init(&attributes))
            zraise(ZThreadException(numberOf(Message::attributesInitFailed), rc), sourceName,
                   __LINE__);
        if (detached) detach();
    }
    ~Attributes() { destroy(); }
    Attributes(Attributes const&) = delete;
    Attributes& operator=(Attributes const&) = delete;
    [[nodiscard]] pthread_attr_t const* get() const { return &attributes; }

  private:
    void detach() {
        int const rc = pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
        if (rc == 0) return;
        destroy();  // there will be no destructor
        zraise(ZThreadException(numberOf(Message::detachStateFailed), rc), sourceName, __LINE__);
    }
    void destroy() noexcept {
        if (int const rc = pthread_attr_destroy(&attributes))
            zreportFailure(sourceName, __LINE__, Message::attributesDestroyFailed, rc);
    }

    pthread_attr_t attributes{};
};

/// A destructor of thread-specific slots, as pthread_key_create() takes it.
extern "C" void deleteThreadObject(void* value) { delete static_cast<ZObject*>(value); }

}  // namespace

/// What is left to do in a thread whose object has had its last state: the pool is told, and an
/// object that owns itself is deleted. Flags and pool are read first: once the pool knows, the
/// owner of any other object may delete it.
class ZThread::Farewell {
  public:
    explicit Farewell(ZThread& ending)
        // The pool is taken out: the next start may be without one.
        : thread(ending), pool(ending.pool.exchange(nullptr)), deletes(ending.deletesItself()) {}
    ~Farewell() {
        bool const isForgotten = pool == nullptr || tellPool();
        if (deletes && isForgotten) delete &thread;
    }
    Farewell(Farewell const&) = delete;
    Farewell& operator=(Farewell const&) = delete;

  private:
    /// False when the pool could not lock its mutex: it may still have a pointer to the thread,
    /// which has to stay good.
    bool tellPool() noexcept {
        try {
            pool->threadDeathNotification(thread);
            return true;
        } catch (ZException& exception) {
            zreportException(exception);
            return exception.getCode() != numberOf(Message::mutexLockFailed);
        }
    }

    ZThread& thread;
    ZThreadPool* const pool;
    bool const deletes;
};

ZThread::ZThread(int isDetached, int deletes)
    : threadId(new State(noThread, JoinState::none)),
      detached(isDetached),
      autoDelete(deletes),
      pool(nullptr) {}

ZThread::ZThread(pthread_t id)
    : threadId(new State(id, JoinState::foreign)), detached(0), autoDelete(0), pool(nullptr) {}

ZThread::~ZThread() {
    detachUnjoined();
    threadId->release();
}

/// There is no report for a refusal: only a thread that somebody detached behind our back can cause
/// one, and then nothing is left behind.
void ZThread::detachUnjoined() {
    auto expected = JoinState::mine;
    if (threadId->joinState.compare_exchange_strong(expected, JoinState::none))
        pthread_detach(threadId->id);
}

unsigned long ZThread::hash() const { return static_cast<unsigned long>(threadId->id); }

int ZThread::compare(ZObject const& other) const {
    auto const* const thread = dynamic_cast<ZThread const*>(&other);
    if (thread == nullptr) return ZObject::compare(other);
    pthread_t const mine = threadId->id;
    pthread_t const theirs = thread->threadId->id;
    if (mine == theirs) return 0;
    return mine < theirs ? -1 : 1;
}

ZObject* ZThread::clone() const { return nullptr; }

pthread_t ZThread::getPThreadID() const { return threadId->id; }

void ZThread::start() {
    struct Share {
        explicit Share(State& shared) : state(shared) { state.share(); }
        ~Share() { state.release(); }
        Share(Share const&) = delete;
        Share& operator=(Share const&) = delete;
        State& state;
    };
    detachUnjoined();
    Attributes const attributes(detached != 0);
    Share const share(*threadId);
    State& state = share.state;
    pthread_t const before = state.id;
    state.joinState = detached != 0 ? JoinState::none : JoinState::starting;
    pthread_t created{};
    if (int const rc = pthread_create(&created, attributes.get(), entry, this)) {
        state.joinState = JoinState::none;
        zraise(ZThreadException(numberOf(Message::threadCreateFailed), rc), sourceName, __LINE__);
    }
    // From here on the object may be gone, or even be started once more. The thread notes its id
    // itself as well; whoever is first is right.
    pthread_t expected = before;
    state.id.compare_exchange_strong(expected, created);
    state.noteStarted();
}

void* ZThread::entry(void* thread) {
    static_cast<ZThread*>(thread)->enter();
    return nullptr;
}

/// The thread's whole life, also when it is cut short by pthread_exit() or cancellation.
void ZThread::enter() {
    struct Finish {
        ~Finish() noexcept(false) { thread.finish(); }  // exit() may unwind as well
        ZThread& thread;
    };
    threadId->id = pthread_self();
    threadId->noteStarted();
    Finish const finish{*this};
    static_cast<void>(zreturned(sourceName, __LINE__, [this] { run(); }));
}

void ZThread::finish() {
    ZCancellationOff const steps;  // each of them has to be done
    Farewell const farewell(*this);
    static_cast<void>(zreturned(sourceName, __LINE__, [this] { exit(); }));
}

void ZThread::exit() {}

/// The code of what speaks against joining a thread in this state; 0: nothing.
int ZThread::joinRefusal(JoinState joinState) const {
    bool const runs = joinState == JoinState::mine || joinState == JoinState::foreign ||
                      joinState == JoinState::joining;
    if (!runs) return ESRCH;
    if (pthread_equal(threadId->id, pthread_self())) return EDEADLK;
    return joinState == JoinState::joining ? EINVAL : 0;
}

void ZThread::waitForExit() {
    struct Join {
        ~Join() { state.joinState = joinState; }
        State& state;
        JoinState joinState;  // what it is afterwards
    };
    if (detached != 0) return;
    auto joinState = threadId->joinState.load();
    do {
        if (int const rc = joinRefusal(joinState))
            zraise(ZThreadException(numberOf(Message::threadJoinFailed), rc), sourceName, __LINE__);
    } while (!threadId->joinState.compare_exchange_weak(joinState, JoinState::joining));
    Join join{*threadId, joinState};
    if (int const rc = pthread_join(threadId->id, nullptr))
        zraise(ZThreadException(numberOf(Message::threadJoinFailed), rc), sourceName, __LINE__);
    join.joinState = JoinState::joined;
}

void ZThread::createThreadKey(unsigned int& key) {
    if (int const rc = pthread_key_create(&key, deleteThreadObject))
        zraise(ZThreadException(numberOf(Message::threadKeyCreateFailed), rc), sourceName,
               __LINE__);
}

void ZThread::setThreadObject(unsigned int& key, ZObject* value) {
    if (int const rc = pthread_setspecific(key, value))
        zraise(ZThreadException(numberOf(Message::threadValueFailed), rc), sourceName, __LINE__);
}

ZObject* ZThread::getThreadObject(unsigned int& key) {
    return static_cast<ZObject*>(pthread_getspecific(key));
}
