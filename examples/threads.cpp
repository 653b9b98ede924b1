// Two threads add to one sum, under a lock.
#include <iostream>

#include "Z/ZLock.h"
#include "Z/ZThread.h"

namespace {

// [thread]
class Adder : public ZThread {
  public:
    Adder(ZLock& sumLock, long& shared) : ZThread(0, 0), lock(sumLock), sum(shared) {}

  private:
    void run() override {  // what escapes from here is reported, and ends this thread alone
        for (int i = 0; i < 1000; ++i) {
            ZResourceLock const guard(lock);
            ++sum;
        }
    }

    ZLock& lock;
    long& sum;
};
// [/thread]

}  // namespace

int main() {
    // [start]
    ZLock lock;
    long sum = 0;
    Adder one(lock, sum);
    Adder other(lock, sum);
    one.start();
    other.start();
    one.waitForExit();  // before the object ends
    other.waitForExit();
    // [/start]
    std::cout << sum << "\n";
}
