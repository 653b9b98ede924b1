// Processes with several threads each share one process lock while some of them are stopped, killed
// and started again.
//
//     process_lock_stress [SECONDS [PROGRAM]]
//
// PROGRAM is this program of another build, such as one for the other word size; every second
// process runs it. Exits 0 when all held.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Z/ZException.h"
#include "Z/ZFileLock.h"
#include "support/environment.h"
#include "support/lock_files.h"
#include "support/processes.h"

namespace {

using Lock = ZUnixProcessReadWriteFileLock;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int processCount = 8;
constexpr int threadCount = 4;

/// What the processes share, the same for both word sizes. A writer that is killed between its
/// entry and the second of the two numbers leaves them behind the entries; the next one mends that.
struct Board {
    std::atomic<std::uint32_t> stop;     // set once, at the end
    std::atomic<std::uint32_t> entries;  // of writers; the one number that needs no lock
    volatile std::uint32_t first;        // the entries, written and read under the lock alone
    volatile std::uint32_t second;
    std::atomic<std::uint32_t> mended;    // times a writer found another one's work unfinished
    std::atomic<std::uint32_t> halves;    // unfinished works that readers saw
    std::atomic<std::uint32_t> lastHalf;  // entries of the last of them
    std::atomic<std::uint32_t> reads;
    std::atomic<std::uint32_t> refused;    // timed requests that got nothing
    std::atomic<std::uint32_t> failures;   // exceptions
    std::atomic<std::uint32_t> longestMs;  // wait for the lock
};
static_assert(std::atomic<std::uint32_t>::is_always_lock_free && sizeof(Board) == 44);

Board& mapBoard(const std::string& directory) {
    int const fd = open((directory + "/board").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    void* memory = MAP_FAILED;
    if (fd >= 0 && ftruncate(fd, sizeof(Board)) == 0)
        memory = mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (memory == MAP_FAILED) abort();
    close(fd);
    return *static_cast<Board*>(memory);
}

// ------------------------------------------------------------------------------------- a process

class Reloader : public ZObserverInterface {
  public:
    void update(ZAbstractObservable* /*source*/, ZObservedParm const& /*parm*/) override {}
};

class Worker {
  public:
    Worker(const std::string& directory, unsigned int seed)
        : board(mapBoard(directory)), lock("stress", directory.c_str()), firstSeed(seed) {
        if (seed % 2 != 0) lock.addObserver(&observer);
    }
    ~Worker() { lock.deleteObservers(); }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    void run() {
        std::vector<std::thread> threads;
        for (unsigned int i = 0; i < threadCount; ++i)
            threads.emplace_back([this, i] { loop(firstSeed * threadCount + i); });
        for (auto& thread : threads)
            thread.join();
    }

  private:
    void loop(unsigned int seed) {
        std::minstd_rand random(seed + 1);
        while (board.stop == 0) {
            try {
                step(static_cast<unsigned int>(random()));
            } catch (ZException& e) {
                e.dumpException();
                ++board.failures;
                return;
            }
        }
    }

    void step(unsigned int dice) {
        bool const writes = dice % 10 < 3;
        Lock::zlockstate const mode = writes ? Lock::zlockWrite : Lock::zlockRead;
        if (!take(mode, dice / 10 % 8)) {
            ++board.refused;
            return;
        }
        if (writes) {
            write();
        } else {
            read();
        }
        lock.unlock();
    }

    bool take(Lock::zlockstate mode, unsigned int kind) {
        auto const start = Clock::now();
        bool taken = true;
        if (kind == 0) {
            taken = lock.tryLock(mode);
        } else if (kind == 1) {
            taken = lock.lockFor(mode, 3);
        } else {
            lock.lock(mode);
        }
        auto const waited = std::chrono::duration_cast<milliseconds>(Clock::now() - start).count();
        auto const ms = static_cast<std::uint32_t>(waited);
        for (std::uint32_t most = board.longestMs;
             ms > most && !board.longestMs.compare_exchange_weak(most, ms);) {
        }
        return taken;
    }

    void write() {
        if (board.first != board.entries || board.second != board.entries) ++board.mended;
        std::uint32_t const before = board.entries++;
        board.first = before + 1;
        std::this_thread::yield();  // so that whoever is let in wrongly finds half a change
        board.second = before + 1;
    }

    void read() {
        ++board.reads;
        std::uint32_t const first = board.first;
        std::this_thread::yield();
        std::uint32_t const entries = board.entries;
        if (first == board.second && first == entries) return;
        if (board.lastHalf.exchange(entries) != entries) ++board.halves;
    }

    Board& board;
    Reloader observer;
    Lock lock;
    unsigned int firstSeed;
};

// ------------------------------------------------------------------------------------ the parent

class Stress {
  public:
    Stress(std::string own, std::string other)
        : programs{std::move(own), std::move(other)}, board(mapBoard(directory.path())) {
        for (std::size_t i = 0; i < processCount; ++i)
            start(i);
    }

    /// Disturbs the processes until the time is up; whether all went well.
    bool run(std::chrono::seconds time) {
        for (auto const end = Clock::now() + time; Clock::now() < end;) {
            disturb();
            std::this_thread::sleep_for(milliseconds(20));
        }
        board.stop = 1;
        bool const ended = awaitAll();
        report();
        return ended && isWhole();
    }

  private:
    void start(std::size_t index) {
        std::string const& program = programs.at(index % programs.size());
        std::string const seed = std::to_string(random() % 100000);
        pid_t const child = fork();
        if (child == 0) {
            execl(program.c_str(), program.c_str(), "--worker", directory.path().c_str(),
                  seed.c_str(), nullptr);
            _exit(127);
        }
        children.at(index) = child;
    }

    void disturb() {
        std::size_t const index = random() % processCount;
        if (random() % 4 == 0) {
            kill(children.at(index), SIGKILL);
            waitpid(children.at(index), nullptr, 0);
            ++kills;
            start(index);
        } else {
            kill(children.at(index), SIGSTOP);
            std::this_thread::sleep_for(milliseconds(random() % 20));
            kill(children.at(index), SIGCONT);
        }
    }

    /// Whether all processes ended by themselves, before anybody would say that they hang.
    bool awaitAll() {
        bool good = true;
        auto const limit = Clock::now() + std::chrono::seconds(30);
        for (pid_t const child : children) {
            int status = 0;
            while (waitpid(child, &status, WNOHANG) == 0 && Clock::now() < limit)
                std::this_thread::sleep_for(milliseconds(5));
            bool const hangs = kill(child, SIGKILL) == 0;
            if (hangs) waitpid(child, nullptr, 0);
            good = good && !hangs && WIFEXITED(status) && WEXITSTATUS(status) == 0;
        }
        if (!good) std::puts("FAILED: a process hung or ended with an error");
        return good;
    }

    [[nodiscard]] std::uint32_t sequence() const {
        return testsupport::lockWords(directory.file("._zplstress")).sequence;
    }

    void report() const {
        std::printf(
            "%u writes, %u reads, %u refused, %u kills, number %u, %u mended, %u half "
            "states, longest wait %u ms\n",
            board.entries.load(), board.reads.load(), board.refused.load(), kills, sequence(),
            board.mended.load(), board.halves.load(), board.longestMs.load());
    }

    /// A writer that was killed accounts for one lost step at most, and nothing else for any.
    [[nodiscard]] bool isWhole() const {
        std::uint32_t const entries = board.entries;
        constexpr std::uint32_t tooLongMs = 10000;
        struct {
            bool holds;
            char const* what;
        } const rows[] = {
            {board.failures == 0, "no request failed"},
            {entries > 0 && board.reads > 0, "there were writes and reads"},
            {entries - board.first <= kills, "the count is exact"},
            {board.mended <= kills, "nobody but the killed left work unfinished"},
            {board.halves <= kills, "readers saw whole states"},
            {sequence() <= entries && entries - sequence() <= kills, "the number counts writes"},
            {board.longestMs < tooLongMs, "nobody waited for long"},
        };
        bool good = true;
        for (auto const& row : rows) {
            if (!row.holds) std::printf("FAILED: %s\n", row.what);
            good = good && row.holds;
        }
        return good;
    }

    testsupport::TempDir directory;
    std::array<std::string, 2> programs;
    Board& board;
    std::array<pid_t, processCount> children{};
    std::minstd_rand random{std::random_device{}()};
    unsigned int kills = 0;
};

}  // namespace

int main(int argc, char** argv) {
    testsupport::setEnvironment();
    if (argc == 4 && std::string(argv[1]) == "--worker") {
        Worker(argv[2], static_cast<unsigned int>(std::atoi(argv[3]))).run();
        return 0;
    }
    constexpr int usualSeconds = 3;
    int const seconds = argc > 1 ? std::atoi(argv[1]) : usualSeconds;
    return Stress(argv[0], argc > 2 ? argv[2] : argv[0]).run(std::chrono::seconds(seconds)) ? 0 : 1;
}
