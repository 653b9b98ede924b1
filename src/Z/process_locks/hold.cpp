#include "Z/process_locks/hold.h"

#include <utility>

#include "Z/ZException.h"
#include "Z/exceptions/report.h"
#include "Z/process_locks/time_limit.h"
#include "Z/utility/cancellation_off.h"

namespace {

constexpr char sourceName[] = "src/Z/ZFileLock";  // reports do not tell the files of process locks

[[gnu::tls_model("initial-exec")]] thread_local zfc::process_locks::Ending* innermost = nullptr;

}  // namespace

namespace zfc::process_locks {

Ending::Ending(ZAbstractProcessReadWriteLock const& ended, Record& found)
    : lock(ended), record(&found), outer(std::exchange(innermost, this)) {}

Ending::~Ending() { innermost = outer; }

Record* Ending::take(ZAbstractProcessReadWriteLock const& lock) noexcept {
    if (innermost == nullptr || &innermost->lock != &lock) return nullptr;
    return std::exchange(innermost->record, nullptr);
}

}  // namespace zfc::process_locks

ZAbstractProcessReadWriteLock::InProcess::InProcess(ZAbstractProcessReadWriteLock& lock,
                                                    zlockstate mode)
    : InProcess(lock, zfc::process_locks::recordOf(lock).readers, mode) {}

ZAbstractProcessReadWriteLock::InProcess::InProcess(ZAbstractProcessReadWriteLock& lock,
                                                    zfc::process_locks::Readers& readers,
                                                    zlockstate mode)
    : owner(lock), entry(readers, mode == zlockRead) {
    if (mode == zlockWrite && readers.own() > 0)
        zraise(ZInvalidResourceStateException(owner.getLockStateName(owner.getLockState())),
               sourceName, __LINE__);
    // Noted before it is waited for, and not after: noting can fail, and a hold that nobody knows
    // of could never be released.
    take(mode);
    entry.keep();  // leaveProcess() removes it
    updateBefore = owner.getUpdate();
    owner.setUpdate(mode == zlockWrite ? 1 : 0);
}

ZAbstractProcessReadWriteLock::InProcess::~InProcess() {
    if (kept) return;
    ZCancellationOff const inDestructors;
    try {
        owner.setUpdate(updateBefore);
        owner.leaveProcess(entry.get());
    } catch (ZException& exception) {
        zreportException(exception);
    }
}

void ZAbstractProcessReadWriteLock::InProcess::take(zlockstate mode) {
    zfc::process_locks::TimeLimit* const limit = zfc::process_locks::TimeLimit::of(owner);
    if (limit == nullptr) return owner.rwLock.lock(mode);  // most requests: without a clock
    while (!owner.rwLock.lockFor(mode, limit->remaining())) {
        if (limit->remaining() == 0)
            zraise(ZLockResourceException(numberOf(Message::processLockFailed), limit->reach()),
                   sourceName, __LINE__);
    }
}
