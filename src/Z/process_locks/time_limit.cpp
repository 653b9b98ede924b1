#include "Z/process_locks/time_limit.h"

#include <algorithm>
#include <cerrno>

namespace zfc::process_locks {
namespace {

[[gnu::tls_model("initial-exec")]] thread_local TimeLimit* innermost = nullptr;

/// So far away that nobody waits for it, and that no clock overflows on the way.
constexpr std::chrono::hours longest{24 * 365 * 50};

/// Many times as long as anybody needs to pass the gate.
constexpr std::chrono::milliseconds moment{20};
constexpr int triesOfMoment = 10;

/// Milliseconds, rounded up, so that 0 means the end and nothing before it.
long millisecondsTo(std::chrono::steady_clock::time_point end) {
    auto const left =
        std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now())
            .count();
    // On 32 bits the longest limit does not fit; who waits that long asks again.
    constexpr long long most = 24LL * 3600 * 1000;
    return static_cast<long>(std::clamp<long long>(left, 0, most));
}

}  // namespace

TimeLimit::TimeLimit(ZAbstractProcessReadWriteLock const& limited, long milliseconds)
    : lock(limited), outer(innermost), end(Clock::now()) {
    constexpr std::chrono::milliseconds none{0};
    end += std::clamp<std::chrono::milliseconds>(std::chrono::milliseconds(milliseconds), none,
                                                 longest);
    bool const waits = milliseconds > 0;
    momentsEnd = waits ? end : end + moment;
    momentsTries = waits ? 1 : triesOfMoment;
    innermost = this;
}

TimeLimit::~TimeLimit() { innermost = outer; }

TimeLimit* TimeLimit::of(ZAbstractProcessReadWriteLock const& lock) {
    // Of the innermost request alone: an observer that it calls may ask other locks without a
    // limit.
    return innermost != nullptr && &innermost->lock == &lock ? innermost : nullptr;
}

long TimeLimit::remaining() const { return millisecondsTo(end); }

long TimeLimit::remainingForMoment() const { return millisecondsTo(momentsEnd); }

bool TimeLimit::isMomentOver(int refusals) const {
    return refusals >= momentsTries && remainingForMoment() == 0;
}

int TimeLimit::reach() {
    reached = true;
    return ETIMEDOUT;
}

}  // namespace zfc::process_locks
