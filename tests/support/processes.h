/// Real processes and real files for the tests.
#ifndef ZFC_TESTS_SUPPORT_PROCESSES_H
#define ZFC_TESTS_SUPPORT_PROCESSES_H

#include <functional>
#include <string>

namespace testsupport {

/// Sets what is not set yet, so that a program started by hand sees the same environment as one
/// started by CTest. For the first lines of main().
void setEnvironment();

/// Runs `body` in a forked child and returns its wait status decoded: the exit status, or the
/// negated signal number. The child leaves with `_exit(body())`; an escaping exception exits 99.
[[nodiscard]] int inChild(std::function<int()> const& body);

/// What a child printed and how it ended.
struct Captured {
    std::string out;  ///< its standard output
    std::string err;  ///< its standard error
    int status;       ///< as inChild() gives it
};

/// As inChild(), with what the child wrote to both output streams by its end.
[[nodiscard]] Captured captureChild(std::function<int()> const& body);

/// A child process that runs beside its parent; the two talk, one byte a message.
class Companion {
  public:
    /// Starts `body` in a child; `body` gets this object for await() and signal().
    explicit Companion(std::function<int(Companion&)> const& body);
    ~Companion();
    Companion(Companion const&) = delete;
    Companion& operator=(Companion const&) = delete;

    /// Sends one byte to the other side.
    void signal();
    /// Waits for one byte of the other side; false when it has ended instead.
    [[nodiscard]] bool await();
    /// Waits for the child's end; the status as inChild() gives it. Called by the parent, once.
    [[nodiscard]] int join();
    [[nodiscard]] int pid() const { return child; }

  private:
    int end = -1;  // of the two that talk
    int child = -1;
};

/// A fresh directory, removed with all it holds.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(TempDir const&) = delete;
    TempDir& operator=(TempDir const&) = delete;
    [[nodiscard]] std::string const& path() const { return directory; }
    /// The path of `name` inside the directory.
    [[nodiscard]] std::string file(std::string const& name) const { return directory + "/" + name; }

  private:
    std::string directory;
};

/// The bytes of a file; a missing or unreadable file fails the test and reads as empty.
[[nodiscard]] std::string readFile(std::string const& path);
void writeFile(std::string const& path, std::string const& bytes);
/// What the system tells of a process or thread: 'R' runs, 'S' sleeps, 'Z' has ended.
[[nodiscard]] char stateOf(int id);
/// Number of open descriptors of this process.
[[nodiscard]] int openDescriptors();

}  // namespace testsupport

#endif
