// Locks between processes: one cycle of taking and releasing, alone and while another process does
// the same. Those that keep their file open save the opening, which the library's cycle includes.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "Z/ZFileLock.h"

#include <boost/interprocess/sync/file_lock.hpp>

namespace {

/// Strings need a codeset directory; the one of this tree serves where none is given.
[[maybe_unused]] int const environment = setenv("QCSDIR", ZFC_BENCH_QCSDIR, 0);

/// A directory for the lock files, removed at the end.
class Directory {
  public:
    Directory() {
        std::string pattern = std::filesystem::temp_directory_path() / "zfc-bench-XXXXXX";
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

void request(int fd, short type) {
    struct flock record {};
    record.l_type = type;
    record.l_whence = SEEK_SET;
    if (fcntl(fd, F_OFD_SETLKW, &record) != 0) abort();
}

/// The least that does what the library's cycle does: open, lock, close.
class BareOpenLockClose {
  public:
    explicit BareOpenLockClose(std::string const& directory) : directory_(directory) {}
    void lock() {
        fd = openIn(directory_);
        request(fd, F_WRLCK);
    }
    void unlock() const { close(fd); }

  private:
    std::string directory_;
    int fd = -1;
};

/// The floor for those that keep their file open.
class BareKeptOpen {
  public:
    explicit BareKeptOpen(std::string const& directory) : fd(openIn(directory)) {}
    ~BareKeptOpen() { close(fd); }
    BareKeptOpen(BareKeptOpen const&) = delete;
    BareKeptOpen& operator=(BareKeptOpen const&) = delete;
    void lock() const { request(fd, F_WRLCK); }
    void unlock() const { request(fd, F_UNLCK); }

  private:
    int fd;
};

class BoostFileLock {
  public:
    explicit BoostFileLock(std::string const& directory) : held(madeIn(directory).c_str()) {}
    void lock() { held.lock(); }
    void unlock() { held.unlock(); }

  private:
    /// The lock wants a file that is there.
    static std::string madeIn(std::string const& directory) {
        close(openIn(directory));
        return directory + "/bare";
    }

    boost::interprocess::file_lock held;
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

/// Another process that takes and releases the same lock as long as this object lives.
template <class Lock>
class Rival {
  public:
    explicit Rival(std::string const& directory) {
        int ends[2];
        if (pipe(ends) != 0) abort();
        child = fork();
        if (child == 0) compete(directory, ends[1]);
        char byte = 0;
        if (read(ends[0], &byte, 1) != 1) abort();  // it is at it
        close(ends[0]);
        close(ends[1]);
    }
    ~Rival() {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    Rival(Rival const&) = delete;
    Rival& operator=(Rival const&) = delete;

  private:
    [[noreturn]] static void compete(std::string const& directory, int ready) {
        Lock lock(directory);
        for (bool told = false;;) {
            lock.lock();
            lock.unlock();
            if (!told) told = write(ready, "!", 1) == 1;
        }
    }

    pid_t child = -1;
};

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
    Rival<Lock> const rival(directory.path());
    measure<Lock>(state, directory.path());
}

BENCHMARK_TEMPLATE(cycleAlone, BareOpenLockClose)->UseRealTime();
BENCHMARK_TEMPLATE(cycleAlone, BareKeptOpen)->UseRealTime();
BENCHMARK_TEMPLATE(cycleAlone, LibraryRead)->UseRealTime();
BENCHMARK_TEMPLATE(cycleAlone, LibraryWriteUnchanged)->UseRealTime();
BENCHMARK_TEMPLATE(cycleAlone, LibraryWrite)->UseRealTime();
BENCHMARK_TEMPLATE(cycleBesideAnotherProcess, BareOpenLockClose)->UseRealTime();
BENCHMARK_TEMPLATE(cycleBesideAnotherProcess, BareKeptOpen)->UseRealTime();
BENCHMARK_TEMPLATE(cycleBesideAnotherProcess, LibraryRead)->UseRealTime();
BENCHMARK_TEMPLATE(cycleBesideAnotherProcess, LibraryWriteUnchanged)->UseRealTime();
BENCHMARK_TEMPLATE(cycleBesideAnotherProcess, LibraryWrite)->UseRealTime();
BENCHMARK_TEMPLATE(cycleAlone, BoostFileLock)->UseRealTime();
BENCHMARK_TEMPLATE(cycleBesideAnotherProcess, BoostFileLock)->UseRealTime();

}  // namespace
