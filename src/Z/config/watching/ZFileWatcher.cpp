#include "Z/ZFileWatcher.h"

#include <signal.h>

#include <cerrno>
#include <ctime>
#include <utility>

#include "Z/ZException.h"
#include "Z/ZThread.h"
#include "Z/config/watching/core.h"
#include "Z/exceptions/report.h"
#include "Z/utility/cancellation_off.h"

namespace {

constexpr char sourceName[] = "src/Z/ZFileWatcher";

/// Keeps signals from the calling thread, and from those that it starts, but for those that a fault
/// raises.
class SignalsOff {
  public:
    SignalsOff() noexcept {
        sigset_t blocked;
        sigfillset(&blocked);
        for (int const fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT})
            sigdelset(&blocked, fault);
        pthread_sigmask(SIG_SETMASK, &blocked, &before);
    }
    ~SignalsOff() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    SignalsOff(SignalsOff const&) = delete;
    SignalsOff& operator=(SignalsOff const&) = delete;

  private:
    sigset_t before{};
};

}  // namespace

ZFileWatched::ZFileWatched(Event what, ZProperties& ofObject,
                           std::shared_ptr<ZException const> reason)
    : event(what), properties(&ofObject) {
    failure.swap(reason);
}
ZFileWatched::~ZFileWatched() = default;

class ZFileWatcher::Thread : public ZThread {
  public:
    explicit Thread(Core& ofWatcher) : ZThread(0, 0), core(ofWatcher) {}

    void run() override {
        ZCancellationOff const always;
        while (core.await()) {
            if (zreturned(sourceName, __LINE__, [this] { static_cast<void>(core.work()); }))
                continue;
            // No memory, most likely: what is to be done stays to be done.
            timespec const aMoment{0, 100000000};
            nanosleep(&aMoment, nullptr);
        }
    }
    [[nodiscard]] bool isMine() const { return pthread_equal(getPThreadID(), pthread_self()) != 0; }

  private:
    Core& core;
};

ZFileWatcher::ZFileWatcher() : core(std::make_unique<Core>(*this)) {}

ZFileWatcher::~ZFileWatcher() {
    if (core->isInherited()) {
        // Locks may be held, and the thread be waited for, by threads that are not there.
        core->leave();
        static_cast<void>(core.release());
        static_cast<void>(thread.release());
        return;
    }
    static_cast<void>(zreturned(sourceName, __LINE__, [this] { stop(); }));
}

ZFileWatcher::Watch::~Watch() {
    static_cast<void>(zreturned(sourceName, __LINE__, [this] { watcher.remove(properties); }));
}

void ZFileWatcher::refuseInherited() const {
    if (core->isInherited())
        zraise(ZThreadException(numberOf(Message::threadJoinFailed), ESRCH), sourceName, __LINE__);
}

void ZFileWatcher::add(ZProperties& properties) {
    refuseInherited();
    core->add(properties);
}

void ZFileWatcher::remove(ZProperties& properties) {
    if (!core->isInherited()) core->remove(properties);
}

void ZFileWatcher::setPolling(Polling which, unsigned int milliseconds) {
    refuseInherited();
    if (milliseconds == 0) zraise(ZInvalidParameterException(), sourceName, __LINE__);
    core->setPolling(which, std::chrono::milliseconds(milliseconds));
}

void ZFileWatcher::checkAll() {
    refuseInherited();
    core->checkAll();
}

int ZFileWatcher::getDescriptor() const {
    refuseInherited();
    return core->descriptor();
}

unsigned int ZFileWatcher::reloadChanged() {
    refuseInherited();
    return core->work();
}

void ZFileWatcher::start() {
    refuseInherited();
    // An observer has ended it, but nobody has waited for that.
    if (thread && core->isEnding()) stop();
    if (thread) return;
    SignalsOff const inThread;
    auto starting = std::make_unique<Thread>(*core);
    starting->start();
    thread = std::move(starting);
}

void ZFileWatcher::stop() {
    if (!thread || core->isInherited()) return;
    core->setEnding(true);
    if (thread->isMine()) return;
    ZCancellationOff const whileJoined;
    thread->waitForExit();
    thread.reset();
    core->setEnding(false);
}
