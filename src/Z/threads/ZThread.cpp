#include "Z/ZThread.h"

#include <cerrno>

#include "Z/ZException.h"
#include "Z/exceptions/guarded.h"
#include "Z/exceptions/report.h"
#include "Z/threads/thread_word.h"
#include "Z/utility/cancellation_off.h"

namespace {

constexpr char sourceName[] = "src/Z/ZThread";
constexpr pthread_t noThread = 0;

/// The attributes of a thread that is being started.
class Attributes {
  public:
    explicit Attributes(bool detached) {
        if (int const rc = pthread_attr_init(&attributes))
            zraise(ZThreadException(15, rc), sourceName, __LINE__);
        if (detached) detach();
    }
    ~Attributes() { destroy(); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;
    [[nodiscard]] pthread_attr_t const* get() const { return &attributes; }

  private:
    void detach() {
        int const rc = pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
        if (rc == 0) return;
        destroy();  // there will be no destructor
        zraise(ZThreadException(16, rc), sourceName, __LINE__);
    }
    void destroy() noexcept {
        if (int const rc = pthread_attr_destroy(&attributes))
            zreportFailure(sourceName, __LINE__, 18, rc);
    }

    pthread_attr_t attributes{};
};

/// A destructor of thread-specific slots, as pthread_key_create() takes it.
extern "C" void deleteThreadObject(void* value) { delete static_cast<ZObject*>(value); }

}  // namespace

/// What is left to do in a thread whose object has had its last word: the pool is told, and an
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
    Farewell(const Farewell&) = delete;
    Farewell& operator=(const Farewell&) = delete;

  private:
    /// False when the pool could not lock its mutex: it may still have a pointer to the thread,
    /// which has to stay good.
    bool tellPool() noexcept {
        constexpr unsigned int notLocked = 5;
        try {
            pool->threadDeathNotification(thread);
            return true;
        } catch (ZException& exception) {
            zreportException(exception);
            return exception.getCode() != notLocked;
        }
    }

    ZThread& thread;
    ZThreadPool* const pool;
    bool const deletes;
};

ZThread::ZThread(int isDetached, int deletes)
    : threadId(new Word(noThread, Standing::none)),
      detached(isDetached),
      autoDelete(deletes),
      pool(nullptr) {}

ZThread::ZThread(pthread_t id)
    : threadId(new Word(id, Standing::foreign)), detached(0), autoDelete(0), pool(nullptr) {}

ZThread::~ZThread() {
    detachUnjoined();
    threadId->release();
}

/// There is no report for a refusal: only a thread that somebody detached behind our back can cause
/// one, and then nothing is left behind.
void ZThread::detachUnjoined() {
    auto expected = Standing::mine;
    if (threadId->standing.compare_exchange_strong(expected, Standing::none))
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
        explicit Share(Word& shared) : word(shared) { word.share(); }
        ~Share() { word.release(); }
        Share(const Share&) = delete;
        Share& operator=(const Share&) = delete;
        Word& word;
    };
    detachUnjoined();
    Attributes const attributes(detached != 0);
    Share const share(*threadId);
    Word& word = share.word;
    pthread_t const before = word.id;
    word.standing = detached != 0 ? Standing::none : Standing::starting;
    pthread_t created{};
    if (int const rc = pthread_create(&created, attributes.get(), entry, this)) {
        word.standing = Standing::none;
        zraise(ZThreadException(17, rc), sourceName, __LINE__);
    }
    // From here on the object may be gone, or even be started once more. The thread notes its id
    // itself as well; whoever is first is right.
    pthread_t expected = before;
    word.id.compare_exchange_strong(expected, created);
    word.noteStarted();
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
    (void)zreturned(sourceName, __LINE__, [this] { run(); });
}

void ZThread::finish() {
    ZCancellationOff const steps;  // each of them has to be done
    Farewell const farewell(*this);
    (void)zreturned(sourceName, __LINE__, [this] { exit(); });
}

void ZThread::exit() {}

/// The code of what speaks against joining a thread of this standing; 0: nothing.
int ZThread::joinRefusal(Standing standing) const {
    bool const runs = standing == Standing::mine || standing == Standing::foreign ||
                      standing == Standing::joining;
    if (!runs) return ESRCH;
    if (pthread_equal(threadId->id, pthread_self())) return EDEADLK;
    return standing == Standing::joining ? EINVAL : 0;
}

void ZThread::waitForExit() {
    struct Join {
        ~Join() { word.standing = standing; }
        Word& word;
        Standing standing;  // what it is afterwards
    };
    if (detached != 0) return;
    auto standing = threadId->standing.load();
    do {
        if (int const rc = joinRefusal(standing))
            zraise(ZThreadException(20, rc), sourceName, __LINE__);
    } while (!threadId->standing.compare_exchange_weak(standing, Standing::joining));
    Join join{*threadId, standing};
    if (int const rc = pthread_join(threadId->id, nullptr))
        zraise(ZThreadException(20, rc), sourceName, __LINE__);
    join.standing = Standing::joined;
}

void ZThread::createThreadKey(unsigned int& key) {
    if (int const rc = pthread_key_create(&key, deleteThreadObject))
        zraise(ZThreadException(29, rc), sourceName, __LINE__);
}

void ZThread::setThreadObject(unsigned int& key, ZObject* value) {
    if (int const rc = pthread_setspecific(key, value))
        zraise(ZThreadException(30, rc), sourceName, __LINE__);
}

ZObject* ZThread::getThreadObject(unsigned int& key) {
    return static_cast<ZObject*>(pthread_getspecific(key));
}
