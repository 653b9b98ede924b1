// Processes with several threads each share one counter file under one process lock while some of
// them are stopped, killed and started again.
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

#include "Z/ZException.h"
#include "support/process_lock.h"
#include "support/threads.h"

namespace {

using namespace testsupport;
using Lock = ZUnixProcessReadWriteFileLock;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using Count = std::atomic<std::uint32_t>;

constexpr std::size_t processCount = 8;
constexpr unsigned int threadCount = 4;

/// What the processes share beside the lock; the same for both word sizes.
struct Board {
    Count stop;             // set once, at the end
    Count begun, finished;  // writes; between the two some were killed
    Count whole;            // number of the last that was finished
    Count reads, refused;   // `refused`: timed requests that got nothing
    Count torn;             // holds during which somebody else wrote
    Count failures;         // exceptions
    Count forgotten;        // requests that waited far too long
    Count left, right;      // the data: number of the last write, twice

    /// Whether the data are those of a write that was not interrupted.
    [[nodiscard]] bool isWhole(std::uint32_t number) const {
        bool const good = left == number;
        std::this_thread::yield();
        return good && right == number;
    }
};
static_assert(Count::is_always_lock_free && sizeof(Board) == 11 * sizeof(std::uint32_t));

Board& mapBoard(std::string const& directory) {
    int const fd = open((directory + "/board").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    void* memory = MAP_FAILED;
    if (ftruncate(fd, sizeof(Board)) == 0)
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
    Worker(std::string const& directory, unsigned int seed)
        : board(mapBoard(directory)), lock("stress", directory.c_str()) {
        if (seed % 2 != 0) lock.addObserver(&observer);
        Crew threads;
        for (unsigned int i = 0; i < threadCount; ++i)
            threads.add([this, one = seed * threadCount + i] { loop(one); });
        threads.join();
        lock.deleteObservers();
    }

  private:
    void loop(unsigned int seed) {
        std::minstd_rand random(seed + 1);
        try {
            while (board.stop == 0)
                step(static_cast<unsigned int>(random()));
        } catch (ZException& e) {
            e.dumpException();
            ++board.failures;
        }
    }

    void step(unsigned int dice) {
        bool const writes = dice % 10 < 3;
        if (!take(writes ? Lock::zlockWrite : Lock::zlockRead, dice / 10 % 8)) {
            ++board.refused;
        } else {
            writes ? write() : read();
            lock.unlock();
        }
    }

    bool take(Lock::zlockstate mode, unsigned int kind) {
        if (kind == 0) return lock.tryLock(mode);
        if (kind == 1) return lock.lockFor(mode, 3);
        auto const start = Clock::now();
        lock.lock(mode);
        if (Clock::now() - start > std::chrono::seconds(10)) ++board.forgotten;
        return true;
    }

    /// Not done at once, so that whoever is let in wrongly finds half a change.
    void write() {
        if (board.whole == board.begun && !board.isWhole(board.begun)) ++board.torn;
        std::uint32_t const number = ++board.begun;
        board.left = number;
        std::this_thread::sleep_for(std::chrono::microseconds(100));
        board.right = number;
        if (board.begun != number) ++board.torn;
        ++board.finished;
        board.whole = number;
    }

    /// Who was killed may have left half a change, but nobody goes on with it.
    void read() {
        ++board.reads;
        std::uint32_t const begun = board.begun;
        std::uint32_t const finished = board.finished;
        bool const good = board.isWhole(begun) || board.whole != begun;
        if (!good || board.begun != begun || board.finished != finished) ++board.torn;
    }

    Board& board;
    Reloader observer;
    Lock lock;
};

// ------------------------------------------------------------------------------------ the parent

class Stress {
  public:
    Stress(char const* own, char const* other) : programs{own, other} {
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
        return reportIsGood(awaitAll());
    }

  private:
    void start(std::size_t index) {
        char const* const program = programs.at(index % programs.size());
        std::string const seed = std::to_string(random() % 100000);
        children.at(index) = fork();
        if (children.at(index) != 0) return;
        execl(program, program, "--worker", directory.path().c_str(), seed.c_str(), nullptr);
        _exit(127);
    }

    void disturb() {
        std::size_t const index = random() % processCount;
        pid_t const child = children.at(index);
        if (random() % 4 == 0) {
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
            ++kills;
            return start(index);
        }
        kill(child, SIGSTOP);
        std::this_thread::sleep_for(milliseconds(random() % 20));
        kill(child, SIGCONT);
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
        return good;
    }

    /// Who was killed accounts for one unfinished write, or one that does not count in the number.
    [[nodiscard]] bool reportIsGood(bool ended) const {
        std::uint32_t const begun = board.begun;
        std::uint32_t const unfinished = begun - board.finished;
        std::uint32_t const number = lockWords(directory.file("._zplstress")).sequence;
        std::printf(
            "%u writes, %u reads, %u refused; %u kills, %u unfinished writes; number %u; %s\n",
            begun, board.reads.load(), board.refused.load(), kills, unfinished, number,
            programs[0] == programs[1] ? "one program" : "two programs");
        struct {
            bool holds;
            char const* what;
        } const rows[] = {
            {ended, "no process hung or ended with an error"},
            {board.failures == 0, "no request failed"},
            {board.finished > 0 && board.reads > 0, "there were writes and reads"},
            {board.whole != begun || board.isWhole(begun), "the count is exact"},
            {board.torn == 0, "everybody saw whole states"},
            {unfinished <= kills, "nobody but the killed left work unfinished"},
            {number <= begun && begun - number <= kills, "the number counts writes"},
            {board.forgotten == 0, "nobody was forgotten"},
        };
        bool good = true;
        for (auto const& row : rows) {
            if (!row.holds) std::printf("FAILED: %s\n", row.what);
            good = good && row.holds;
        }
        return good;
    }

    TempDir directory;
    std::array<char const*, 2> programs;
    Board& board = mapBoard(directory.path());
    std::array<pid_t, processCount> children{};
    std::minstd_rand random{std::random_device{}()};
    unsigned int kills = 0;
};

}  // namespace

int main(int argc, char** argv) {
    setEnvironment();
    // Every write to a lock file waits for the disk: without one there are more turns.
    if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 0);
    if (argc == 4 && std::string(argv[1]) == "--worker") {
        Worker const running(argv[2], static_cast<unsigned int>(std::atoi(argv[3])));
        return 0;
    }
    int const seconds = argc > 1 ? std::atoi(argv[1]) : 3;
    return Stress(argv[0], argc > 2 ? argv[2] : argv[0]).run(std::chrono::seconds(seconds)) ? 0 : 1;
}
