// Processes with several threads each share two counters under one process lock while some of them
// are stopped, killed and started again.
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

#include "support/process_lock.h"
#include "support/threads.h"

namespace {

using namespace testsupport;
using namespace std::chrono_literals;
using Lock = ZUnixProcessReadWriteFileLock;
using Clock = std::chrono::steady_clock;
using Count = std::atomic<std::uint32_t>;

constexpr int threadCount = 4;

/// What the processes share beside the lock; the same for both word sizes.
struct Board {
    Count stop;             // set once, at the end
    Count reads;            // that were finished
    Count begun, finished;  // writes, under the lock; between the two some were killed
};
static_assert(Count::is_always_lock_free && sizeof(Board) == 4 * sizeof(std::uint32_t));

Board& mapBoard(std::string const& directory) {
    int const fd = open((directory + "/board").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    void* memory = MAP_FAILED;
    if (ftruncate(fd, sizeof(Board)) == 0)
        memory = mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (memory == MAP_FAILED) abort();
    close(fd);
    return *static_cast<Board*>(memory);
}

// -------------------------------------------------------------------------------------- a process

/// Ends a process that saw what must not be, and with it all that it holds.
[[noreturn]] void fail(char const* what) {
    std::fprintf(stderr, "FAILED: %s\n", what);
    _exit(1);
}

/// Not done at once, so that whoever is let in wrongly finds half a change.
void write(Board& board) {
    std::uint32_t const finished = board.finished;
    std::uint32_t const number = ++board.begun;
    std::this_thread::sleep_for(100us);
    if (board.begun != number || board.finished != finished) fail("somebody wrote during a write");
    ++board.finished;
}

void read(Board& board) {
    std::uint32_t const begun = board.begun;
    std::uint32_t const finished = board.finished;
    std::this_thread::sleep_for(50us);
    if (board.begun != begun || board.finished != finished) fail("somebody wrote during a read");
    ++board.reads;
}

bool take(Lock& lock, Lock::zlockstate mode, unsigned int kind) {
    if (kind == 0) return lock.tryLock(mode);
    if (kind == 1) return lock.lockFor(mode, 3);
    auto const start = Clock::now();
    lock.lock(mode);
    if (Clock::now() - start > 10s) fail("a request was forgotten");
    return true;
}

void work(Board& board, Lock& lock) try {
    std::minstd_rand random(std::random_device{}());
    while (board.stop == 0) {
        bool const writes = random() % 10 < 3;
        if (!take(lock, writes ? Lock::zlockWrite : Lock::zlockRead, random() % 8)) continue;
        writes ? write(board) : read(board);
        lock.unlock();
    }
} catch (ZException& e) {
    e.dumpException();
    fail("a request threw");
}

int runWorker(std::string const& directory) {
    Board& board = mapBoard(directory);
    Lock lock("stress", directory.c_str());
    NoReload observer;
    if (getpid() % 2 != 0) lock.addObserver(&observer);
    Crew threads;
    for (int i = 0; i < threadCount; ++i)
        threads.add([&] { work(board, lock); });
    threads.join();
    lock.deleteObservers();
    return 0;
}

// ------------------------------------------------------------------------------------- the parent

class Stress {
  public:
    Stress(char const* own, char const* other) : programs{own, other} {
        for (std::size_t i = 0; i < children.size(); ++i)
            start(i);
    }

    /// Disturbs the processes until the time is up; whether all went well.
    bool run(std::chrono::seconds time) {
        for (auto const end = Clock::now() + time; Clock::now() < end;) {
            disturb();
            std::this_thread::sleep_for(20ms);
        }
        board.stop = 1;
        awaitAll();
        return reportIsGood();
    }

  private:
    void start(std::size_t index) {
        char const* const program = programs.at(index % programs.size());
        children.at(index) = fork();
        if (children.at(index) != 0) return;
        execl(program, program, "--worker", directory.path().c_str(), nullptr);
        _exit(127);
    }

    void disturb() {
        std::size_t const index = random() % children.size();
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
        std::this_thread::sleep_for(1ms * (random() % 20));
        kill(child, SIGCONT);
    }

    /// Kills those that hang.
    void awaitAll() {
        auto const limit = Clock::now() + 30s;
        for (pid_t const child : children) {
            int status = -1;
            while (waitpid(child, &status, WNOHANG) == 0) {
                if (Clock::now() > limit) kill(child, SIGKILL);
                std::this_thread::sleep_for(5ms);
            }
            endedWell = endedWell && status == 0;
        }
    }

    /// Who was killed accounts for one unfinished write, or one that does not count in the number.
    [[nodiscard]] bool reportIsGood() const {
        std::uint32_t const begun = board.begun;
        std::uint32_t const unfinished = begun - board.finished;
        std::uint32_t const number = lockWords(directory.file("._zplstress")).sequence;
        std::printf("%u writes, %u reads; %u kills, %u unfinished writes; number %u; %s\n", begun,
                    board.reads.load(), kills, unfinished, number,
                    endedWell ? "all ended well" : "a process hung or failed");
        return endedWell && board.finished > 0 && board.reads > 0 && unfinished <= kills &&
               number <= begun && begun - number <= kills;
    }

    TempDir directory;
    std::array<char const*, 2> programs;
    Board& board = mapBoard(directory.path());
    std::array<pid_t, 8> children{};
    std::minstd_rand random{std::random_device{}()};
    unsigned int kills = 0;
    bool endedWell = true;
};

}  // namespace

int main(int argc, char** argv) {
    setEnvironment();
    // Every write to a lock file waits for the disk: without one there are more turns.
    if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 0);
    if (argc == 3 && std::string(argv[1]) == "--worker") return runWorker(argv[2]);
    int const seconds = argc > 1 ? std::atoi(argv[1]) : 3;
    return Stress(argv[0], argc > 2 ? argv[2] : argv[0]).run(std::chrono::seconds(seconds)) ? 0 : 1;
}
