// Threads of the program's own in a pool that bounds how many there are and keeps some for more
// work.
#include <atomic>
#include <iostream>

#include "Z/ZThread.h"

namespace {

class Worker : public ZSleeperThread {
  public:
    explicit Worker(std::atomic<int>& result) : ZSleeperThread(1, 1), sum(result) {}  // ends itself

    int task = 0;

  private:
    void doWork() override { sum += task; }

    std::atomic<int>& sum;
};

class Pool : public ZThreadPool {
  public:
    explicit Pool(std::atomic<int>& result)
        : ZThreadPool(4, 2), sum(result) {}  // 4, of them 2 idle

    void hand(int next) {
        // [idle]
        ZThread* thread = nullptr;
        getAvailableIdleThread(thread);  // or a new one, from createThread()
        auto& worker = static_cast<Worker&>(*thread);
        bool const isNew = worker.getPThreadID() == 0;
        worker.task = next;  // it is asleep, or does not run yet
        worker.wakeUp();
        if (isNew) start(worker);
        // [/idle]
    }

  private:
    ZThread* createThread() override { return new Worker(sum); }

    std::atomic<int>& sum;
};

}  // namespace

int main() {
    std::atomic<int> sum{0};
    Pool pool(sum);
    for (int task = 1; task <= 100; ++task)
        pool.hand(task);
    pool.waitForExit();  // all are done, and their threads have ended
    std::cout << sum << "\n";
}
