// Two processes count in one file under one process lock. Each keeps the count in memory and reads
// the file again only when the lock tells that another process wrote it.
//
//     shared_counter DIRECTORY
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

#include "Z/ZException.h"
#include "Z/ZFileLock.h"

namespace {

/// A number in a file, and this process's copy of it.
class Counter : public ZObserverInterface {
  public:
    explicit Counter(std::string const& directory)
        : file(directory + "/counter"), lock("counter", directory.c_str()) {
        lock.addObserver(this);
        lock.readLock();  // the first lock tells nobody: everything is new
        ZStackReadWriteLock const guard(lock, 0);
        load();
    }
    ~Counter() { lock.deleteObserver(this); }
    Counter(Counter const&) = delete;
    Counter& operator=(Counter const&) = delete;

    // [cache]
    long value() {
        lock.readLock();  // calls update() first when another process wrote
        ZStackReadWriteLock const guard(lock, 0);
        return copy;
    }
    void add(long amount) {
        lock.writeLock();
        ZStackReadWriteLock const guard(lock, 1);  // 1: tells the other processes at the end
        store(copy + amount);
        copy += amount;
    }
    /// Called by the lock, with write held.
    void update(ZAbstractObservable* /*source*/, ZObservedParm const& /*notice*/) override {
        load();
        ++reloadCount;
    }
    // [/cache]
    [[nodiscard]] int reloads() const { return reloadCount; }

  private:
    void load() {
        copy = 0;  // of a file that is not there yet
        std::ifstream(file) >> copy;
    }
    void store(long number) const {
        std::ofstream out(file);
        if (!(out << number << std::endl)) throw std::runtime_error(file + " cannot be written");
    }

    std::string file;
    ZUnixProcessReadWriteFileLock lock;
    long copy = 0;
    int reloadCount = 0;
};

/// Runs `body` in another process; the process's id.
template <class Body>
pid_t inAnotherProcess(Body const& body) {
    std::cout.flush();  // or the child has a copy of what is not written yet
    pid_t const child = fork();
    if (child < 0) throw std::runtime_error("no process can be started");
    if (child > 0) return child;
    try {
        body();
        _exit(0);
    } catch (...) {
        _exit(1);
    }
}

void awaitSuccess(pid_t child) {
    int status = 0;
    if (waitpid(child, &status, 0) != child || status != 0)
        throw std::runtime_error("the other process failed");
}

void countTogether(std::string const& directory) {
    Counter counter(directory);
    std::cout << "at first: " << counter.value() << "\n";

    awaitSuccess(inAnotherProcess([&] { Counter(directory).add(5); }));
    std::cout << "another process added 5: " << counter.value()
              << ", reloads: " << counter.reloads() << "\n";
    std::cout << "nobody wrote since: " << counter.value() << ", reloads: " << counter.reloads()
              << "\n";

    auto const addOften = [](Counter& to) {
        for (int i = 0; i < 50; ++i)
            to.add(1);
    };
    pid_t const other = inAnotherProcess([&] {
        Counter own(directory);
        addOften(own);
    });
    addOften(counter);
    awaitSuccess(other);
    std::cout << "both added 50 at once: " << counter.value() << "\n";
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: shared_counter DIRECTORY\n";
        return 2;
    }
    try {
        countTogether(argv[1]);
    } catch (ZException& e) {
        e.dumpException();  // to standard error, by the message service
        return 1;
    } catch (std::exception const& e) {
        std::cerr << e.what() << "\n";
        return 1;
    }
    return 0;
}
