// Locks between processes, on a file system in memory: one cycle of taking and releasing, alone,
// while another process does the same, and in turn with it. Those that keep their file open save
// the opening, which the library's cycle includes, and the gate, which keeps readers from shutting
// writers out.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>

#include "Z/ZFileLock.h"

#include <boost/interprocess/sync/file_lock.hpp>

namespace {

/// Strings need a codeset directory; the one of this tree serves where none is given.
[[maybe_unused]] int const environment = setenv("QCSDIR", ZFC_BENCH_QCSDIR, 0);

/// A directory for the lock files, in memory if there is one there; removed at the end.
class Directory {
  public:
    Directory() {
        std::filesystem::path const memory = "/dev/shm";
        std::string pattern =
            (access(memory.c_str(), W_OK) == 0 ? memory : std::filesystem::temp_directory_path()) /
            "zfc-bench-XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) abort();
        path_ = pattern;
    }
    ~Directory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Directory(Directory const&) = delete;
    Directory& operator=(Directory const&) = delete;
    [[nodiscard]] std::string const& path() const { return path_; }

  private:
    std::string path_;
};

// --------------------------------------------------------------------------------- the contenders

int openIn(std::string const& directory) {
    return open((directory + "/bare").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
}

void request(int fd, short type, off_t start, off_t length) {
    struct flock record {};
    record.l_type = type;
    record.l_whence = SEEK_SET;
    record.l_start = start;
    record.l_len = length;
    if (fcntl(fd, F_OFD_SETLKW, &record) != 0) abort();
}

/// The floor: the calls of the library's protocol and nothing else. What the library's cycle takes
/// beyond it are two looks at the file, which notice one that was planted or replaced, the limit of
/// file sizes asked for before a write, and the locks that keep the process's threads apart.
class BareProtocol {
  public:
    explicit BareProtocol(std::string const& directory) : directory_(directory) {
        fd = openIn(directory_);
        if (pwrite(fd, words, sizeof words, 0) != sizeof words) abort();
        close(fd);
    }
    void readLock() {
        enter(F_RDLCK);
        request(fd, F_UNLCK, 4, 4);
        readWords();
    }
    void readUnlock() const {
        request(fd, F_UNLCK, 0, 4);
        close(fd);
    }
    void writeLock() {
        enter(F_WRLCK);
        readWords();
    }
    void writeUnlock() {
        ++words[0];
        if (pwrite(fd, words, 4, 0) != 4) abort();
        request(fd, F_UNLCK, 0, 4);
        request(fd, F_UNLCK, 4, 4);
        close(fd);
    }

  private:
    void enter(short type) {
        fd = openIn(directory_);
        request(fd, F_WRLCK, 4, 4);
        pid_t const pid = getpid();
        if (pwrite(fd, &pid, 4, 4) != 4) abort();
        request(fd, type, 0, 4);
    }
    void readWords() {
        if (pread(fd, words, 4, 0) != 4) abort();
    }

    std::string directory_;
    unsigned int words[2] = {0, 0};
    int fd = -1;
};

struct BareRead : BareProtocol {
    using BareProtocol::BareProtocol;
    void lock() { readLock(); }
    void unlock() { readUnlock(); }
};

struct BareWrite : BareProtocol {
    using BareProtocol::BareProtocol;
    void lock() { writeLock(); }
    void unlock() { writeUnlock(); }
};

/// The least that locks and unlocks a file, which stays open: no queue, no number.
template <short type>
class BareKeptOpen {
  public:
    explicit BareKeptOpen(std::string const& directory) : fd(openIn(directory)) {}
    ~BareKeptOpen() { close(fd); }
    BareKeptOpen(BareKeptOpen const&) = delete;
    BareKeptOpen& operator=(BareKeptOpen const&) = delete;
    void lock() const { request(fd, type, 0, 0); }
    void unlock() const { request(fd, F_UNLCK, 0, 0); }

  private:
    int fd;
};

class Boost {
  public:
    explicit Boost(std::string const& directory) : held(madeIn(directory).c_str()) {}

  private:
    /// The lock wants a file that is there.
    static std::string madeIn(std::string const& directory) {
        close(openIn(directory));
        return directory + "/bare";
    }

  protected:
    boost::interprocess::file_lock held;
};

struct BoostRead : Boost {
    using Boost::Boost;
    void lock() { held.lock_sharable(); }
    void unlock() { held.unlock_sharable(); }
};

struct BoostWrite : Boost {
    using Boost::Boost;
    void lock() { held.lock(); }
    void unlock() { held.unlock(); }
};

class Library {
  public:
    explicit Library(std::string const& directory) : held("bench", directory.c_str()) {}

  protected:
    ZUnixProcessReadWriteFileLock held;
};

struct LibraryRead : Library {
    using Library::Library;
    void lock() { held.readLock(); }
    void unlock() { held.unlock(); }
};

/// With the number advanced, as a writer does that changed the shared data.
struct LibraryWrite : Library {
    using Library::Library;
    void lock() { held.writeLock(); }
    void unlock() { held.unlock(); }
};

struct LibraryWriteUnchanged : Library {
    using Library::Library;
    void lock() { held.writeLock(); }
    void unlock() { held.unlock(0); }
};

// ---------------------------------------------------------------------------------- the benchmarks

/// Another process, as long as this object lives.
class OtherProcess {
  public:
    template <class Body>
    explicit OtherProcess(Body const& body) : child(fork()) {
        if (child != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);  // it may be waiting for the one that is gone
        body();
        _exit(0);
    }
    ~OtherProcess() {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    OtherProcess(OtherProcess const&) = delete;
    OtherProcess& operator=(OtherProcess const&) = delete;

  private:
    pid_t child;
};

/// Wakes a process that waits for it.
class Bell {
  public:
    Bell() {
        if (pipe(ends) != 0) abort();
    }
    ~Bell() {
        close(ends[0]);
        close(ends[1]);
    }
    Bell(Bell const&) = delete;
    Bell& operator=(Bell const&) = delete;
    void ring() const {
        if (write(ends[1], "!", 1) != 1) abort();
    }
    void await() const {
        char byte = 0;
        if (read(ends[0], &byte, 1) != 1) abort();
    }

  private:
    int ends[2] = {-1, -1};
};

/// Takes and releases the same lock again and again.
template <class Lock>
[[noreturn]] void compete(std::string const& directory, Bell const& isAtIt) {
    Lock lock(directory);
    for (bool told = false;;) {
        lock.lock();
        lock.unlock();
        if (!std::exchange(told, true)) isAtIt.ring();
    }
}

/// Holds the lock for a moment; the other process hears of it while it is held, so that it asks
/// for what is just given back.
template <class Lock>
void takeTurn(Lock& lock, Bell const& mineCame) {
    lock.lock();
    mineCame.ring();
    lock.unlock();
}

template <class Lock>
void measure(benchmark::State& state, std::string const& directory) {
    Lock lock(directory);
    for (auto _ : state) {
        lock.lock();
        benchmark::ClobberMemory();
        lock.unlock();
    }
}

template <class Lock>
void cycleAlone(benchmark::State& state) {
    Directory const directory;
    measure<Lock>(state, directory.path());
}

template <class Lock>
void cycleBesideAnotherProcess(benchmark::State& state) {
    Directory const directory;
    Bell const isAtIt;
    OtherProcess const rival([&] { compete<Lock>(directory.path(), isAtIt); });
    isAtIt.await();
    measure<Lock>(state, directory.path());
}

/// A turn of each of two processes.
template <class Lock>
void turnsOfTwoProcesses(benchmark::State& state) {
    Directory const directory;
    Bell const ours;
    Bell const theirs;
    OtherProcess const partner([&] {
        Lock lock(directory.path());
        for (;;) {
            ours.await();
            takeTurn(lock, theirs);
        }
    });
    Lock lock(directory.path());
    for (auto _ : state) {
        takeTurn(lock, ours);
        theirs.await();
    }
}

#define CYCLE(Lock, row, side)                                               \
    BENCHMARK_TEMPLATE(cycleAlone, Lock)->Name(row "/" side)->UseRealTime(); \
    BENCHMARK_TEMPLATE(cycleBesideAnotherProcess, Lock)                      \
        ->Name(row ", beside another process/" side)                         \
        ->UseRealTime()
#define TURNS(Lock, side)                             \
    BENCHMARK_TEMPLATE(turnsOfTwoProcesses, Lock)     \
        ->Name("two processes writing in turn/" side) \
        ->UseRealTime()

CYCLE(LibraryRead, "process read lock", "ours");
CYCLE(BoostRead, "process read lock", "boost file_lock");
CYCLE(BareKeptOpen<F_RDLCK>, "process read lock", "fcntl, kept open");
CYCLE(BareRead, "process read lock", "floor");
CYCLE(LibraryWrite, "process write lock", "ours");
CYCLE(LibraryWriteUnchanged, "process write lock", "ours, nothing changed");
CYCLE(BoostWrite, "process write lock", "boost file_lock");
CYCLE(BareKeptOpen<F_WRLCK>, "process write lock", "fcntl, kept open");
CYCLE(BareWrite, "process write lock", "floor");
TURNS(LibraryWrite, "ours");
TURNS(BoostWrite, "boost file_lock");
TURNS(BareKeptOpen<F_WRLCK>, "fcntl, kept open");
TURNS(BareWrite, "floor");

}  // namespace
