/// Threads of the library that do what a test wants.
#ifndef ZFC_TESTS_SUPPORT_WORKERS_H
#define ZFC_TESTS_SUPPORT_WORKERS_H

#include <atomic>
#include <functional>
#include <utility>

#include "Z/ZThread.h"
#include "support/locks.h"

namespace testsupport {

constexpr int asJoinable = 0;
constexpr int asDetached = 1;
constexpr int keepsObject = 0;
constexpr int deletesObject = 1;

/// What the threads of a test did. Outlives those that delete themselves.
struct Tally {
    ~Tally() {
        awaitThat([this] { return living == 0; });
    }

    std::atomic<int> works{0};  // or runs
    std::atomic<int> ended{0};
    std::atomic<int> living{0};  // objects
};

/// A `Base` that keeps a tally.
template <class Base>
class Tallied : public Base {
  public:
    template <class... Arguments>
    explicit Tallied(Tally& shared, Arguments... arguments) : Base(arguments...), tally(shared) {
        ++tally.living;
    }
    ~Tallied() override { --tally.living; }
    /// Does not touch the object once the end is counted.
    void exit() override {
        if (atExit) atExit();
        ++tally.ended;
    }

    std::function<void()> body;  // if any; set before the start
    std::function<void()> atExit;
    Tally& tally;

  protected:
    void work() {
        ++tally.works;
        if (body) body();
    }
};

class Task : public Tallied<ZThread> {
  public:
    explicit Task(Tally& shared, std::function<void()> runs = nullptr, int isDetached = asJoinable,
                  int deletes = keepsObject)
        : Tallied(shared, isDetached, deletes) {
        body = std::move(runs);
    }
    void run() override { work(); }
};

class Worker : public Tallied<ZSleeperThread> {
  public:
    using Tallied::Tallied;
    void doWork() override { work(); }
};

}  // namespace testsupport

#endif
