#include "Z/ZFileLock.h"

#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>

#include "Z/ZException.h"
#include "Z/exceptions/report.h"
#include "Z/platform/locked_file.h"
#include "Z/process_locks/hold.h"
#include "Z/process_locks/lock_file.h"
#include "Z/process_locks/time_limit.h"
#include "Z/threads/persistent_guard.h"
#include "Z/utility/cancellation_off.h"
#include "Z/utility/undo.h"

namespace {

using zfc::process_locks::dataRange;
using zfc::process_locks::gateRange;
using zfc::process_locks::TimeLimit;

constexpr char sourceName[] = "src/Z/ZFileLock";

static_assert(sizeof(unsigned int) == dataRange.length && sizeof(pid_t) == gateRange.length);

bool isUsableDirectory(char const* path) {
    auto const status = zfc::platform::statusOf(path);
    return status && S_ISDIR(status->mode) && (status->mode & S_IWUSR) != 0 &&
           (status->mode & S_IXUSR) != 0;
}

}  // namespace

// --------------------------------------------------------------------------------------- guards

class ZAbstractProcessReadWriteFileLock::Hold {
  public:
    Hold(ZAbstractProcessReadWriteFileLock& taken, zlockstate requested) : lock(taken) {
        take(requested);
    }
    ~Hold() {
        if (!held) return;
        ZCancellationOff const inDestructors;
        try {
            // An observer may have unlocked, or forked.
            if (lock.isHolder()) lock.dolock(zlockUnset);
        } catch (ZException& exception) {
            zreportException(exception);
        }
    }
    Hold(Hold const&) = delete;
    Hold& operator=(Hold const&) = delete;
    void take(zlockstate requested) {
        lock.dolock(requested);
        held = true;
    }
    void drop() {
        lock.dolock(zlockUnset);
        held = false;
    }
    void keep() { held = false; }

  private:
    ZAbstractProcessReadWriteFileLock& lock;
    bool held = false;
};

// ------------------------------------------------------------------------------ making and names

ZAbstractProcessReadWriteFileLock::ZAbstractProcessReadWriteFileLock(char const* name,
                                                                     char const* directory)
    : ZAbstractProcessReadWriteLock(name) {
    ZAbstractProcessReadWriteFileLock::setLockDirName(directory);
    enter();
}

ZAbstractProcessReadWriteFileLock::ZAbstractProcessReadWriteFileLock(char const* name)
    : ZAbstractProcessReadWriteLock(name), lockDirName(".") {
    enter();
}

ZAbstractProcessReadWriteFileLock::ZAbstractProcessReadWriteFileLock(
    ZAbstractProcessReadWriteFileLock const& other)
    : ZAbstractProcessReadWriteLock(other), lockDirName(other.lockDirName) {
    enter();
}

ZAbstractProcessReadWriteFileLock::~ZAbstractProcessReadWriteFileLock() {
    zfc::process_locks::recordOf(*this).fileLock = nullptr;
}

void ZAbstractProcessReadWriteFileLock::enter() {
    ZAbstractProcessReadWriteFileLock::setLockFileName(getLockName().getChars());
    zfc::process_locks::recordOf(*this).fileLock = &fileLock;
}

ZLCString const& ZAbstractProcessReadWriteFileLock::getLockDirName() const { return lockDirName; }

void ZAbstractProcessReadWriteFileLock::setLockDirName(char const* directory) {
    if (directory != nullptr && !isUsableDirectory(directory))
        zraise(ZInvalidParameterException(), sourceName, __LINE__);
    ZLCString const name(directory);
    if (name == lockDirName) return;
    if (!haveLock(zlockUnset))
        zraise(ZInvalidResourceStateException(getLockStateName(getLockState())), sourceName,
               __LINE__);
    lockDirName = name;
    setLockFileName(getLockName().getChars());
}

ZLCString const& ZAbstractProcessReadWriteFileLock::getLockFileName() const { return lockFileName; }

void ZAbstractProcessReadWriteFileLock::setLockFileName(char const* name) {
    ZLCString path(lockDirName);
    if (path.getLength() > 0) path += '/';
    path += zfc::process_locks::filePrefix;
    path += ZLCString(name);
    lockFileName = path;
}

// -------------------------------------------------------------------------------------- the lock

void ZAbstractProcessReadWriteFileLock::lock(zlockstate requested) {
    if (requested == zlockUnset) return dolock(requested);
    Hold hold(*this, requested);
    if (getLastSequence() == invalidSequence) setLastSequence();
    if (mustTell()) {
        // Kept: protect counts as a reader here, though it is write in the file. Who asked for
        // either is told after the number was read anew, and its release does not advance it.
        if (requested != zlockWrite) {
            // Dropped, not promoted: two readers that both waited for the other to leave would wait
            // for ever.
            hold.drop();
            hold.take(zlockWrite);
            setUpdate(0);
        }
        notifyLockObservers();
    }
    hold.keep();
}

bool ZAbstractProcessReadWriteFileLock::mustTell() const {
    if (isCurrent() != 0 || countObservers() == 0) return false;
    // A thread that reads below this request as well cannot write.
    return zfc::process_locks::recordOf(*this).readers.own() <= 1;
}

/// With write held.
void ZAbstractProcessReadWriteFileLock::notifyLockObservers() {
    if (isCurrent() != 0 || countObservers() == 0) return;
    notifyObservers(ZSequenceUpdate(getSequence(), getLastSequence()));
}

void ZAbstractProcessReadWriteFileLock::dolock(zlockstate requested) {
    if (requested == zlockUnset) return release();
    acquire(requested);
}

void ZAbstractProcessReadWriteFileLock::acquire(zlockstate requested) {
    zlockstate const mode = InProcess::modeFor(requested);
    // The threads of this process first: they wait for each other without a system call, and only
    // one of them at a time stands in the queue of the file.
    InProcess inProcess(*this, mode);
    takeFileLock();
    ZPersistentGuard const guard(fileLock, std::adopt_lock);
    if (mode == zlockWrite && !haveLock(zlockUnset))
        zraise(ZInvalidResourceStateException(getLockStateName(getLockState())), sourceName,
               __LINE__);
    // Only the first reader of the process takes the file: more would not be more to the others.
    if (haveLock(zlockUnset)) takeFile(mode);
    if (inProcess.read() != nullptr) inProcess.read()->sharesFile = true;
    inProcess.keep();
}

/// No longer than the request may take. Not analysed: a lock that could not be had is an exception.
void ZAbstractProcessReadWriteFileLock::takeFileLock() ZNO_THREAD_SAFETY_ANALYSIS {
    TimeLimit* const limit = TimeLimit::of(*this);
    if (limit == nullptr) return fileLock.lock();
    // Mostly held for a moment, while another thread passes the gate or gives the file back.
    constexpr long least = 1;  // millisecond
    for (int refusals = 1; !fileLock.lockFor(std::max(limit->remainingForMoment(), least));
         ++refusals) {
        if (limit->isMomentOver(refusals))
            zraise(ZLockResourceException(numberOf(Message::processLockFailed), limit->reach()),
                   sourceName, __LINE__);
    }
}

void ZAbstractProcessReadWriteFileLock::takeFile(zlockstate mode) {
    ZUndo giveBack([this] {
        zfc::process_locks::stepBack([this] { unlockFile(); });
        lockState = zlockUnset;  // whatever that said: the file is closed
    });
    lockFile(mode);
    // Before the number is read: should that fail, unlockFile() has to know that the gate is held.
    lockState = mode;
    unsigned long number = 0;
    readSequenceNumber(&number);
    sequence = static_cast<unsigned int>(number);
    giveBack.keep();
}

void ZAbstractProcessReadWriteFileLock::release() {
    ZCancellationOff const untilReleased;
    zfc::process_locks::Record const* const found = zfc::process_locks::Ending::take(*this);
    zfc::process_locks::Readers const& readers =
        found != nullptr ? found->readers : requireHolder().readers;
    // Counting, the file and the in-process release are one section: of two last readers that leave
    // together each would otherwise take the other for the last.
    ZPersistentGuard const guard(fileLock);  // also behind the time limit of a request
    zfc::process_locks::Read* const mine = readers.mine();
    if (mine != nullptr) mine->sharesFile = false;
    zfc::process_locks::AllOf steps;
    // Not getReaderCount(): that knows of readers which still wait for this section, and which may
    // give up without coming here.
    if (!haveLock(zlockUnset) && readers.sharing() == 0) {
        steps.run([&] { unlockFile(); });
        // Whatever that said: the file is closed, and with it every record lock is gone.
        lockState = zlockUnset;
        setUpdate(0);
    }
    steps.run([&] { leaveProcess(mine); });
    steps.finish();
}

unsigned long ZAbstractProcessReadWriteFileLock::incSequence() {
    if (!ownWriteLock())
        zraise(ZInvalidResourceStateException(getLockStateName(getLockState())), sourceName,
               __LINE__);
    unsigned int const next = sequenceAfter(sequence);
    // The file first: a number that only this process knows would make it current with data that
    // the others never hear of.
    writeSequenceNumber(next);
    sequence = next;
    return next;
}

// ------------------------------------------------------------------------------ the file protocol

void ZAbstractProcessReadWriteFileLock::lockFile(zlockstate mode) {
    auto const leaveGate = [this] { unlockFileRange(gateRange.start, gateRange.length); };
    lockFileRange(zlockWrite, gateRange.start, gateRange.length);
    ZUndo leaveAfterFailure([&] { zfc::process_locks::stepBack(leaveGate); });
    // Under the gate, which is exclusive also for readers: nobody else writes these bytes. Who may
    // give up is not named before it holds the lock; who waits without a limit is as good as there.
    bool const mayGiveUp = TimeLimit::of(*this) != nullptr;
    if (!mayGiveUp) writePid();
    lockFileRange(mode, dataRange.start, dataRange.length);
    if (mayGiveUp) writePid();
    // A writer keeps the gate until it leaves: no new reader gets in front.
    leaveAfterFailure.keep();
    if (mode == zlockRead) leaveGate();
}

void ZAbstractProcessReadWriteFileLock::unlockFile() {
    ZCancellationOff const untilReleased;
    zfc::process_locks::AllOf steps;
    // The data before the gate: who comes through the gate must not meet the writer that left it.
    steps.run([&] { unlockFileRange(dataRange.start, dataRange.length); });
    if (getLockState() == zlockWrite)
        steps.run([&] { unlockFileRange(gateRange.start, gateRange.length); });
    steps.finish();
}

void ZAbstractProcessReadWriteFileLock::readSequenceNumber(unsigned long* number) {
    auto stored = static_cast<unsigned int>(*number);
    readBytes(&stored, dataRange.start, dataRange.length);
    *number = stored;
}

void ZAbstractProcessReadWriteFileLock::writeSequenceNumber(unsigned long number) {
    auto stored = static_cast<unsigned int>(number);
    writeBytes(&stored, dataRange.start, dataRange.length);
}

void ZAbstractProcessReadWriteFileLock::writePid() {
    pid_t pid = getpid();
    writeBytes(&pid, gateRange.start, gateRange.length);
}

// -------------------------------------------------------------------------------------- the stub

ZStubProcessReadWriteFileLock::ZStubProcessReadWriteFileLock(char const* name,
                                                             char const* directory)
    : ZAbstractProcessReadWriteFileLock(name, directory) {}
ZStubProcessReadWriteFileLock::ZStubProcessReadWriteFileLock(char const* name)
    : ZAbstractProcessReadWriteFileLock(name) {}
ZStubProcessReadWriteFileLock::ZStubProcessReadWriteFileLock(
    ZStubProcessReadWriteFileLock const& other)
    : ZAbstractProcessReadWriteFileLock(other), stubSequence(other.stubSequence.load()) {}
ZStubProcessReadWriteFileLock::~ZStubProcessReadWriteFileLock() = default;

ZObject* ZStubProcessReadWriteFileLock::clone() const {
    return new ZStubProcessReadWriteFileLock(*this);
}

void ZStubProcessReadWriteFileLock::lockFile(zlockstate /*mode*/) {}
void ZStubProcessReadWriteFileLock::unlockFile() {}
void ZStubProcessReadWriteFileLock::lockFileRange(zlockstate /*mode*/, unsigned int /*start*/,
                                                  unsigned int /*length*/) {}
void ZStubProcessReadWriteFileLock::unlockFileRange(unsigned int /*start*/,
                                                    unsigned int /*length*/) {}
void ZStubProcessReadWriteFileLock::writeBytes(void* /*buffer*/, unsigned int /*offset*/,
                                               unsigned int /*length*/) {}
void ZStubProcessReadWriteFileLock::readBytes(void* /*buffer*/, unsigned int /*offset*/,
                                              unsigned int /*length*/) {}

void ZStubProcessReadWriteFileLock::readSequenceNumber(unsigned long* number) {
    if (number != nullptr) *number = stubSequence;
}

void ZStubProcessReadWriteFileLock::writeSequenceNumber(unsigned long number) {
    stubSequence = static_cast<unsigned int>(number);
}
