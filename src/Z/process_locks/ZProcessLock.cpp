#include "Z/ZProcessLock.h"

#include <cstring>

#include "Z/ZException.h"
#include "Z/exceptions/report.h"
#include "Z/process_locks/hold.h"
#include "Z/process_locks/time_limit.h"
#include "Z/threads/forked_child.h"
#include "Z/threads/persistent_guard.h"
#include "Z/utility/cancellation_off.h"
#include "Z/utility/undo.h"

namespace {

constexpr char sourceName[] = "src/Z/ZFileLock";  // reports do not tell the files of process locks

/// By the calling thread.
bool isHeldHere(zfc::process_locks::Record const& record, ZReadWriteLock const& inProcess) {
    return record.readers.mine() != nullptr ||
           (inProcess.haveLock(ZReadWriteLockInterface::zlockWrite) && inProcess.ownWriteLock());
}

/// A name is part of one file's name, and must not lead out of the lock's directory.
void requireName(ZLCString const& name) {
    char const* const text = name.getChars();
    if (std::strchr(text, '/') != nullptr || std::strcmp(text, ".") == 0 ||
        std::strcmp(text, "..") == 0)
        zraise(ZInvalidParameterException(), sourceName, __LINE__);
}

}  // namespace

// ----------------------------------------------------------------------------------- the notice

ZSequenceUpdate::ZSequenceUpdate()
    : sequence(ZAbstractProcessReadWriteLock::invalidSequence),
      lastSequence(ZAbstractProcessReadWriteLock::invalidSequence) {}

ZSequenceUpdate::ZSequenceUpdate(unsigned long now, unsigned long last)
    : sequence(static_cast<unsigned int>(now)), lastSequence(static_cast<unsigned int>(last)) {}

ZSequenceUpdate::~ZSequenceUpdate() = default;

int ZSequenceUpdate::compare(ZObject const& other) const {
    auto const* const update = dynamic_cast<ZSequenceUpdate const*>(&other);
    if (update == nullptr) return ZObject::compare(other);
    if (sequence != update->sequence) return static_cast<int>(sequence - update->sequence);
    return static_cast<int>(lastSequence - update->lastSequence);
}

ZObject* ZSequenceUpdate::clone() const { return new ZSequenceUpdate(*this); }
unsigned long ZSequenceUpdate::getSequence() const { return sequence; }
unsigned long ZSequenceUpdate::getLastSequence() const { return lastSequence; }

// ------------------------------------------------------------------------------------- the base

ZAbstractProcessReadWriteLock::ZAbstractProcessReadWriteLock(char const* name) : lockName(name) {
    requireName(lockName);
    zfc::process_locks::registerLock(*this);
}

ZAbstractProcessReadWriteLock::ZAbstractProcessReadWriteLock(
    ZAbstractProcessReadWriteLock const& other)
    : ZAbstractReadWriteLock(other), lockName(other.lockName) {
    zfc::process_locks::registerLock(*this);
}

ZAbstractProcessReadWriteLock::~ZAbstractProcessReadWriteLock() {
    zfc::process_locks::unregisterLock(*this);
}

int ZAbstractProcessReadWriteLock::isCurrent() const {
    return getLastSequence() == getSequence() ? 1 : 0;
}

void ZAbstractProcessReadWriteLock::unlock(int bump) {
    ZCancellationOff const untilReleased;  // a guard's destructor would end the program
    zfc::process_locks::Record& record = requireHolder();
    zfc::process_locks::AllOf steps;
    // The number first: as long as the lock is held nobody else can write it, and whoever gets the
    // lock next has to find it.
    steps.run([&] { sync(bump); });
    steps.run([&] {
        zfc::process_locks::Ending const ending(*this, record);
        lock(zlockUnset);
    });
    steps.finish();
}

bool ZAbstractProcessReadWriteLock::haveLock(zlockstate state) const { return lockState == state; }
bool ZAbstractProcessReadWriteLock::ownWriteLock() const { return lockState == zlockWrite; }
int ZAbstractProcessReadWriteLock::getUpdate() const { return update; }
void ZAbstractProcessReadWriteLock::setUpdate(int newUpdate) { update = newUpdate; }
void ZAbstractProcessReadWriteLock::readLock() { lock(zlockRead); }
void ZAbstractProcessReadWriteLock::writeLock() { lock(zlockWrite); }
void ZAbstractProcessReadWriteLock::readWithIntentToWriteLock() { lock(zlockProtect); }
void ZAbstractProcessReadWriteLock::promoteReadToWriteLock() {}

ZReadWriteLockInterface::zlockstate ZAbstractProcessReadWriteLock::getLockState() const {
    return lockState;
}

ZLCString const& ZAbstractProcessReadWriteLock::getLockName() const { return lockName; }

void ZAbstractProcessReadWriteLock::setLockName(ZLCString& name) {
    // Kept: only a lock that is held takes a new name, because who renames has to be its holder.
    if (name == lockName || haveLock(zlockUnset)) return;
    requireName(name);
    unlock();
    lockName = name;
}

int ZAbstractProcessReadWriteLock::getReaderCount() { return rwLock.getReaderCount(); }

unsigned long ZAbstractProcessReadWriteLock::getSequence() const { return sequence; }

unsigned int ZAbstractProcessReadWriteLock::sequenceAfter(unsigned int number) {
    unsigned int const next = number + 1;
    return next == invalidSequence ? 0 : next;
}

unsigned long ZAbstractProcessReadWriteLock::incSequence() {
    sequence = sequenceAfter(sequence);
    return sequence;
}

unsigned long ZAbstractProcessReadWriteLock::getLastSequence() const { return lastSequence; }

void ZAbstractProcessReadWriteLock::setLastSequence(unsigned long number) {
    lastSequence = static_cast<unsigned int>(number);
}

void ZAbstractProcessReadWriteLock::setLastSequence() { setLastSequence(getSequence()); }

void ZAbstractProcessReadWriteLock::sync(int bump) {
    if (ownWriteLock() && bump != 0) incSequence();
    if (!haveLock(zlockUnset)) setLastSequence();
}

bool ZAbstractProcessReadWriteLock::lockFor(zlockstate requested, long milliseconds) {
    if (requested < zlockRead || requested > zlockWrite)
        zraise(ZInvalidParameterException(), sourceName, __LINE__);
    zfc::process_locks::TimeLimit const limit(*this, milliseconds);
    try {
        lock(requested);
        return true;
    } catch (ZLockResourceException const&) {
        if (!limit.wasReached()) throw;
        return false;
    }
}

bool ZAbstractProcessReadWriteLock::isHolder() const {
    return isHeldHere(zfc::process_locks::recordOf(*this), rwLock);
}

zfc::process_locks::Record& ZAbstractProcessReadWriteLock::requireHolder() const {
    zfc::process_locks::Record& record = zfc::process_locks::recordOf(*this);
    if (!isHeldHere(record, rwLock))
        zraise(ZUnlockResourceException(numberOf(Message::mutexUnlockFailed), 0), sourceName,
               __LINE__);
    return record;
}

void ZAbstractProcessReadWriteLock::leaveProcess(zfc::process_locks::Read* read) {
    auto const leave = [&] {
        try {
            rwLock.unlock();
        } catch (ZConditionException const&) {
            if (read != nullptr) read->end();  // released; only waking the others failed
            throw;
        }
        if (read != nullptr) read->end();
    };
    try {
        leave();
    } catch (ZLockResourceException const&) {
        leave();  // nothing was done; with a hold that nobody knows of others would wait for ever
    }
}

/// In the child of a fork, before it has a second thread. Whether the thread that forked wrote.
bool ZAbstractProcessReadWriteLock::forgetParent() noexcept {
    lockState = zlockUnset;
    update = 0;
    ZForkedChild::release(static_cast<ZAbstractObservable&>(*this));
    return ZForkedChild::release(rwLock);
}

// ------------------------------------------------------------------------------------- the guard

ZStackWriteLock::ZStackWriteLock(ZAbstractProcessReadWriteLock& l) : processLock(l) {
    processLock.writeLock();
    // The caller's data is what the observers have just read; only others have to read it again.
    ZUndo giveBack([this] { zfc::process_locks::stepBack([this] { processLock.unlock(0); }); });
    processLock.incSequence();
    giveBack.keep();
}

ZStackWriteLock::~ZStackWriteLock() {
    ZForkedChild::endHold(processLock, sourceName, __LINE__, [this] { processLock.unlock(0); });
}

// ------------------------------------------------------------------------------------- the stub

ZStubProcessReadWriteLock::ZStubProcessReadWriteLock(char const* name)
    : ZAbstractProcessReadWriteLock(name) {}
ZStubProcessReadWriteLock::ZStubProcessReadWriteLock(ZStubProcessReadWriteLock const&) = default;
ZStubProcessReadWriteLock::~ZStubProcessReadWriteLock() = default;

ZObject* ZStubProcessReadWriteLock::clone() const { return new ZStubProcessReadWriteLock(*this); }

void ZStubProcessReadWriteLock::lock() { writeLock(); }

void ZStubProcessReadWriteLock::lock(zlockstate requested) {
    if (requested == zlockUnset) return release();
    InProcess inProcess(*this, InProcess::modeFor(requested));
    ZPersistentGuard const guard(zfc::process_locks::recordOf(*this).transition);
    lockState = requested;
    inProcess.keep();
}

void ZStubProcessReadWriteLock::release() {
    ZCancellationOff const untilReleased;
    zfc::process_locks::Record* const found = zfc::process_locks::Ending::take(*this);
    zfc::process_locks::Record& record = found != nullptr ? *found : requireHolder();
    // In one section with the release, so that of two last readers one sees that it is the last.
    ZPersistentGuard const guard(record.transition);
    if (rwLock.haveLock(zlockWrite)) setUpdate(0);
    leaveProcess(record.readers.mine());
    lockState = rwLock.getReaderCount() > 0 ? zlockRead : zlockUnset;
}
