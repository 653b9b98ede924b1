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
    Count reads;
    Count left, right;  // the data: number of the last write, twice

    /// Whether the data are those of a write that was not interrupted.
    [[nodiscard]] bool isWhole(std::uint32_t number) const {
        bool const good = left == number;
        std::this_thread::yield();
        return good && right == number;
    }
};
static_assert(Count::is_always_lock_free && sizeof(Board) == 7 * sizeof(std::uint32_t));

Board& mapBoard(std::string const& directory) {
    int const fd = open((directory + "/board").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    void* memory = MAP_FAILED;
    if (ftruncate(fd, sizeof(Board)) == 0)
        memory = mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (memory == MAP_FAILED) abort();
    close(fd);
    return *static_cast<Board*>(memory);
}

/// Ends a process that saw what must not be, and with it all that it holds.
[[noreturn]] void fail(char const* what) {
    std::fprintf(stderr, "FAILED: %s\n", what);
    _exit(1);
}

/// One of the processes, while its threads work.
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
        while (board.stop == 0) {
            auto const dice = static_cast<unsigned int>(random());
            bool const writes = dice % 10 < 3;
            if (!take(writes ? Lock::zlockWrite : Lock::zlockRead, dice / 10 % 8)) continue;
            writes ? write() : read();
            lock.unlock();
        }
    }

    bool take(Lock::zlockstate mode, unsigned int kind) {
        if (kind == 0) return lock.tryLock(mode);
        if (kind == 1) return lock.lockFor(mode, 3);
        auto const start = Clock::now();
        lock.lock(mode);
        if (Clock::now() - start > std::chrono::seconds(10)) fail("a request was forgotten");
        return true;
    }

    /// Not done at once, so that whoever is let in wrongly finds half a change.
    void write() {
        if (board.whole == board.begun && !board.isWhole(board.begun)) fail("data before a write");
        std::uint32_t const number = ++board.begun;
        board.left = number;
        std::this_thread::sleep_for(std::chrono::microseconds(100));
        board.right = number;
        if (board.begun != number) fail("two wrote at the same time");
        ++board.finished;
        board.whole = number;
    }

    /// Who was killed may have left half a change, but nobody goes on with it.
    void read() {
        ++board.reads;
        std::uint32_t const begun = board.begun;
        std::uint32_t const finished = board.finished;
        if (!board.isWhole(begun) && board.whole == begun) fail("a reader saw half a change");
        if (board.begun != begun || board.finished != finished) fail("written during a read");
    }

    Board& board;
    NoReload observer;
    Lock lock;
};

/// The processes and what happens to them.
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
        awaitAll();
        return reportIsGood();
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
            int status = 0;
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            endedWell = endedWell && WIFSIGNALED(status);
            ++kills;
            return start(index);
        }
        kill(child, SIGSTOP);
        std::this_thread::sleep_for(milliseconds(random() % 20));
        kill(child, SIGCONT);
    }

    /// Kills those that hang.
    void awaitAll() {
        auto const limit = Clock::now() + std::chrono::seconds(30);
        for (pid_t const child : children) {
            int status = -1;
            while (waitpid(child, &status, WNOHANG) == 0) {
                if (Clock::now() > limit) kill(child, SIGKILL);
                std::this_thread::sleep_for(milliseconds(5));
            }
            endedWell = endedWell && status == 0;
        }
    }

    /// Who was killed accounts for one unfinished write, or one that does not count in the number.
    [[nodiscard]] bool reportIsGood() const {
        std::uint32_t const begun = board.begun;
        std::uint32_t const unfinished = begun - board.finished;
        std::uint32_t const number = lockWords(directory.file("._zplstress")).sequence;
        std::printf("%u writes, %u reads; %u kills, %u unfinished writes; number %u\n", begun,
                    board.reads.load(), kills, unfinished, number);
        bool good = true;
        auto const expect = [&](bool holds, char const* what) {
            if (!holds) std::printf("FAILED: %s\n", what);
            good = good && holds;
        };
        expect(endedWell, "no process hung or ended with an error");
        expect(board.finished > 0 && board.reads > 0, "there were writes and reads");
        expect(board.whole != begun || board.isWhole(begun), "the count is exact");
        expect(unfinished <= kills, "nobody but the killed left work unfinished");
        expect(number <= begun && begun - number <= kills, "the number counts writes");
        return good;
    }

    TempDir directory;
    std::array<char const*, 2> programs;
    Board& board = mapBoard(directory.path());
    std::array<pid_t, processCount> children{};
    std::minstd_rand random{std::random_device{}()};
    unsigned int kills = 0;
    bool endedWell = true;
};

}  // namespace

int main(int argc, char** argv) {
    setEnvironment();
    // Every write to a lock file waits for the disk: without one there are more turns.
    if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 0);
    if (argc == 4 && std::string(argv[1]) == "--worker") try {
            Worker const running(argv[2], static_cast<unsigned int>(std::atoi(argv[3])));
            return 0;
        } catch (ZException& e) {
            e.dumpException();
            return 1;
        }
    int const seconds = argc > 1 ? std::atoi(argv[1]) : 3;
    return Stress(argv[0], argc > 2 ? argv[2] : argv[0]).run(std::chrono::seconds(seconds)) ? 0 : 1;
}
