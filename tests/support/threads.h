/// Threads that tests start, and the handshakes between them.
#ifndef ZFC_TESTS_SUPPORT_THREADS_H
#define ZFC_TESTS_SUPPORT_THREADS_H

#include <pthread.h>

#include <atomic>
#include <functional>
#include <future>
#include <thread>
#include <utility>
#include <vector>

namespace testsupport {

inline void awaitThat(std::function<bool()> const& holds) {
    while (!holds())
        std::this_thread::yield();
}

/// Opens once; who awaits it goes on from then. Nobody touches it after the store that opens it.
class Gate {
  public:
    void open() { isOpen = true; }
    void await() const {
        awaitThat([this] { return isOpen.load(); });
    }

  private:
    std::atomic<bool> isOpen{false};
};

/// A thread that runs `body` beside the test, which waits for its end at last.
class Beside {
  public:
    explicit Beside(std::function<void()> body)
        : end(std::async(std::launch::async, std::move(body))) {}
    /// Waits for the end of `body` and throws what it threw.
    void join() { end.get(); }

  private:
    std::future<void> end;
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
    std::vector<Beside> members;
};

/// A thread that waits for its cancellation.
class Doomed {
  public:
    explicit Doomed(std::function<void()> waits) : body(std::move(waits)) {
        pthread_create(&thread, nullptr, run, &body);
    }
    /// Whether the thread was cancelled, and did not end in another way.
    [[nodiscard]] bool cancel() const {
        void* result = nullptr;
        pthread_cancel(thread);
        pthread_join(thread, &result);
        return result == PTHREAD_CANCELED;
    }

  private:
    static void* run(void* body) {
        (*static_cast<std::function<void()>*>(body))();
        return nullptr;
    }

    std::function<void()> body;
    pthread_t thread{};
};

/// Runs `body` in a thread of its own and waits for it; passes on what it returns or throws.
template <class Body>
auto onThread(Body const& body) {
    return std::async(std::launch::async, body).get();
}

}  // namespace testsupport

#endif
