/// Threads that tests start, and the handshakes between them.
#ifndef ZFC_TESTS_SUPPORT_THREADS_H
#define ZFC_TESTS_SUPPORT_THREADS_H

#include <pthread.h>

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <type_traits>
#include <utility>

namespace testsupport {

/// Opens once; who awaits it goes on from then.
class Gate {
  public:
    void open() {
        std::lock_guard const guard(mutex);
        isOpen = true;
        opened.notify_all();
    }
    [[nodiscard]] bool isOpened() {
        std::lock_guard const guard(mutex);
        return isOpen;
    }
    void await() {
        std::unique_lock guard(mutex);
        opened.wait(guard, [this] { return isOpen; });
    }

  private:
    std::mutex mutex;
    std::condition_variable opened;
    bool isOpen = false;
};

/// A thread that runs `body` beside the test.
class Beside {
  public:
    explicit Beside(std::function<void()> body)
        : thread([this, work = std::move(body)] { run(work); }) {}
    ~Beside() {
        if (thread.joinable()) thread.join();
    }
    Beside(Beside const&) = delete;
    Beside& operator=(Beside const&) = delete;

    /// Waits for the end of `body` and throws what it threw.
    void join() {
        thread.join();
        if (failure) std::rethrow_exception(std::exchange(failure, nullptr));
    }

  private:
    void run(std::function<void()> const& body) {
        try {
            body();
        } catch (...) {
            failure = std::current_exception();
        }
    }

    std::exception_ptr failure;  // written by the thread, read when it has ended
    std::thread thread;          // last: it uses what stands above
};

/// Threads that all run beside the test, and are waited for together.
class Crew {
  public:
    void add(std::function<void()> body) { members.emplace_back(std::move(body)); }
    void join() {
        for (Beside& member : members)
            member.join();
    }

  private:
    std::deque<Beside> members;
};

/// A thread that waits for its cancellation.
class Doomed {
  public:
    explicit Doomed(std::function<void()> waits) : body(std::move(waits)) {
        pthread_create(&thread, nullptr, run, this);
    }
    /// Whether the thread was cancelled, and did not end in another way.
    [[nodiscard]] bool cancel() const {
        void* result = nullptr;
        pthread_cancel(thread);
        pthread_join(thread, &result);
        return result == PTHREAD_CANCELED;
    }

  private:
    static void* run(void* self) {
        static_cast<Doomed*>(self)->body();
        return nullptr;
    }

    std::function<void()> body;
    pthread_t thread{};
};

/// Runs `body` in a thread of its own and waits for it; passes on what it returns or throws.
template <class Body>
auto onThread(Body const& body) -> decltype(body()) {
    if constexpr (std::is_void_v<decltype(body())>) {
        Beside([&] { body(); }).join();
    } else {
        decltype(body()) result{};
        Beside([&] { result = body(); }).join();
        return result;
    }
}

}  // namespace testsupport

#endif
