#include "Z/threads/pthread_objects.h"

#include "Z/utility/cancellation_off.h"
#include "Z/utility/waiting.h"

namespace zfc::threads {

void keepForever(void* memory) noexcept {
    struct Kept {
        void* memory;
        Kept* next;
    };
    static std::atomic<Kept*> all{nullptr};
    auto* const kept = new (std::nothrow) Kept{memory, all.load()};
    if (kept == nullptr) return;  // it stays all the same
    while (!all.compare_exchange_weak(kept->next, kept)) {
    }
}

int waitOn(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
           timespec const* deadline) {
    Block<pthread_cond_t>& block = blockOf(condition);
    ZWaiting const waiting(block.waiters);
    int const rc = deadline == nullptr ? pthread_cond_wait(condition, mutex)
                                       : pthread_cond_clockwait(condition, mutex, clock, deadline);
    if (block.isKept) {
        pthread_mutex_unlock(mutex);
        zstayForever();
    }
    return rc;
}

bool isWaitedFor(pthread_cond_t* condition) noexcept { return blockOf(condition).waiters > 0; }

void aMillisecond() noexcept {
    constexpr timespec length{0, 1000000};
    ZCancellationOff const inDestructors;  // nanosleep() is a cancellation point
    nanosleep(&length, nullptr);
}

}  // namespace zfc::threads
