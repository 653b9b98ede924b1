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

/// What the processes note about what they do, beside the lock; the same for both word sizes.
struct Board {
    std::atomic<std::uint32_t> stop;      // set once, at the end
    std::atomic<std::uint32_t> begun;     // writes; changes under the lock alone, as the next two
    std::atomic<std::uint32_t> finished;  // writes that were not killed on the way
    std::atomic<std::uint32_t> mended;    // unfinished writes that a next writer found
    std::atomic<std::uint32_t> reads;
    std::atomic<std::uint32_t> remains;        // unfinished writes that readers saw
    std::atomic<std::uint32_t> lastRemains;    // number of the last of them
    std::atomic<std::uint32_t> halves;         // states that were not whole otherwise
    std::atomic<std::uint32_t> refused;        // timed requests that got nothing
    std::atomic<std::uint32_t> failures;       // exceptions
    std::atomic<std::uint32_t> turns;          // holds that ended
    std::atomic<std::uint32_t> heldMs;         // what they lasted together
    std::atomic<std::uint32_t> longestMs;      // wait for the lock
    std::atomic<std::uint32_t> unexplainedMs;  // the most of a wait that was nobody's hold
};
static_assert(std::atomic<std::uint32_t>::is_always_lock_free && sizeof(Board) == 56);

int openFile(std::string const& path) {
    int const fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) abort();
    return fd;
}

Board& mapBoard(std::string const& directory) {
    int const fd = openFile(directory + "/board");
    void* memory = MAP_FAILED;
    if (ftruncate(fd, sizeof(Board)) == 0)
        memory = mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (memory == MAP_FAILED) abort();
    close(fd);
    return *static_cast<Board*>(memory);
}

void raiseTo(std::atomic<std::uint32_t>& most, std::uint32_t value) {
    for (std::uint32_t seen = most; value > seen && !most.compare_exchange_weak(seen, value);) {
    }
}

std::uint32_t millisecondsSince(Clock::time_point start) {
    return static_cast<std::uint32_t>(
        std::chrono::duration_cast<milliseconds>(Clock::now() - start).count());
}

/// The shared file: one number, many times over. Neither side reads or writes it at once, so that
/// whoever is let in wrongly finds half a change.
class CounterFile {
  public:
    explicit CounterFile(std::string const& directory) : fd(openFile(directory + "/counter")) {}
    ~CounterFile() { close(fd); }
    CounterFile(CounterFile const&) = delete;
    CounterFile& operator=(CounterFile const&) = delete;

    void write(std::uint32_t number) const {
        Piece piece{};
        piece.fill(number);
        for (int i = 0; i < pieces; ++i) {
            if (pwrite(fd, piece.data(), sizeof piece, offsetOf(i)) != sizeof piece) abort();
            std::this_thread::yield();
        }
    }

    /// Whether the file is nothing but `number`.
    [[nodiscard]] bool isWhole(std::uint32_t number) const {
        Piece whole{};
        whole.fill(number);
        for (int i = 0; i < pieces; ++i) {
            Piece piece{};
            if (pread(fd, piece.data(), sizeof piece, offsetOf(i)) < 0) abort();
            if (piece != whole) return false;
            std::this_thread::yield();
        }
        return true;
    }

  private:
    using Piece = std::array<std::uint32_t, 64>;
    static constexpr int pieces = 4;
    static off_t offsetOf(int piece) { return static_cast<off_t>(sizeof(Piece)) * piece; }

    int fd;
};

// ------------------------------------------------------------------------------------- a process

class Reloader : public ZObserverInterface {
  public:
    void update(ZAbstractObservable* /*source*/, ZObservedParm const& /*parm*/) override {}
};

class Worker {
  public:
    Worker(std::string const& directory, unsigned int seed)
        : board(mapBoard(directory)),
          counter(directory),
          lock("stress", directory.c_str()),
          firstSeed(seed) {
        if (seed % 2 != 0) lock.addObserver(&observer);
    }
    ~Worker() { lock.deleteObservers(); }
    Worker(Worker const&) = delete;
    Worker& operator=(Worker const&) = delete;

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
        if (!take(writes ? Lock::zlockWrite : Lock::zlockRead, dice / 10 % 8)) {
            ++board.refused;
            return;
        }
        auto const start = Clock::now();
        if (writes) {
            write();
        } else {
            read();
        }
        lock.unlock();
        board.heldMs += millisecondsSince(start);
        ++board.turns;
    }

    bool take(Lock::zlockstate mode, unsigned int kind) {
        if (kind == 0) return lock.tryLock(mode);
        if (kind == 1) return lock.lockFor(mode, 3);
        std::uint32_t const turns = board.turns;
        std::uint32_t const held = board.heldMs;
        auto const start = Clock::now();
        lock.lock(mode);
        noteWait(millisecondsSince(start), board.turns - turns, board.heldMs - held);
        return true;
    }

    /// A wait is explained by what others held meanwhile, and by what taking and giving on costs
    /// them each time on a machine that is busy.
    void noteWait(std::uint32_t waited, std::uint32_t turns, std::uint32_t held) {
        constexpr std::uint32_t turnMs = 2;
        std::uint32_t const explained = held + turns * turnMs;
        raiseTo(board.longestMs, waited);
        if (waited > explained) raiseTo(board.unexplainedMs, waited - explained);
    }

    void write() {
        if (board.begun != board.finished + board.mended) {
            ++board.mended;
        } else if (!counter.isWhole(board.begun)) {
            ++board.halves;
        }
        counter.write(++board.begun);
        ++board.finished;
    }

    void read() {
        ++board.reads;
        std::uint32_t const begun = board.begun;
        bool const isWhole = counter.isWhole(begun);
        if (begun != board.begun) ++board.halves;  // somebody wrote meanwhile
        if (isWhole) return;
        if (begun == board.finished + board.mended) {
            ++board.halves;
        } else if (board.lastRemains.exchange(begun) != begun) {
            ++board.remains;
        }
    }

    Board& board;
    CounterFile counter;
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
            "%u writes, %u reads, %u refused; %u kills, %u unfinished writes, %u of those read; "
            "number %u; longest wait %u ms, %u of a wait unexplained; %s\n",
            board.begun.load(), board.reads.load(), board.refused.load(), kills, unfinished(),
            board.remains.load(), sequence(), board.longestMs.load(), board.unexplainedMs.load(),
            programs[0] == programs[1] ? "one program" : "two programs");
    }

    [[nodiscard]] std::uint32_t unfinished() const { return board.begun - board.finished; }

    /// Who was killed accounts for one unfinished write, or one that does not count in the number.
    [[nodiscard]] bool isWhole() const {
        std::uint32_t const begun = board.begun;
        bool const lastIsUnfinished = unfinished() != board.mended;
        constexpr std::uint32_t tooLongMs = 3000;
        struct {
            bool holds;
            char const* what;
        } const rows[] = {
            {board.failures == 0, "no request failed"},
            {board.finished > 0 && board.reads > 0, "there were writes and reads"},
            {lastIsUnfinished || CounterFile(directory.path()).isWhole(begun),
             "the count is exact"},
            {unfinished() <= kills, "nobody but the killed left work unfinished"},
            {unfinished() - board.mended <= 1, "each of those was found once"},
            {board.halves == 0 && board.remains <= unfinished(), "everybody saw whole states"},
            {sequence() <= begun && begun - sequence() <= kills, "the number counts writes"},
            {board.unexplainedMs < tooLongMs, "nobody waited but for others"},
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
    // Every write to a lock file waits for the disk: without one there are more turns.
    if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 0);
    if (argc == 4 && std::string(argv[1]) == "--worker") {
        Worker(argv[2], static_cast<unsigned int>(std::atoi(argv[3]))).run();
        return 0;
    }
    constexpr int usualSeconds = 3;
    int const seconds = argc > 1 ? std::atoi(argv[1]) : usualSeconds;
    return Stress(argv[0], argc > 2 ? argv[2] : argv[0]).run(std::chrono::seconds(seconds)) ? 0 : 1;
}
