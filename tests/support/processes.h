/// Real processes and real files for the tests.
#ifndef ZFC_TESTS_SUPPORT_PROCESSES_H
#define ZFC_TESTS_SUPPORT_PROCESSES_H

#include <functional>
#include <string>
#include <vector>

namespace testsupport {

/// Runs `body` in a forked child and returns its wait status decoded: the exit status, or the
/// negated signal number. The child leaves with `_exit(body())`; an escaping exception exits 99.
[[nodiscard]] int inChild(const std::function<int()>& body);

/// What a child printed and how it ended.
struct Captured {
    std::string out;  ///< its standard output
    std::string err;  ///< its standard error
    int status;       ///< as inChild() gives it
};

/// As inChild(), with both output streams of the child collected.
[[nodiscard]] Captured captureChild(const std::function<int()>& body);

/// Becomes `program` with these arguments, as a user at the shell starts it: without QCSDIR.
/// Returns 127 when there is no such program.
int becomeProgram(const std::string& program, std::vector<std::string> arguments);

/// A child process that runs beside its parent; the two talk through pipes, one byte a message.
class Companion {
  public:
    /// Starts `body` in a child; `body` gets this object for await() and signal().
    explicit Companion(const std::function<int(Companion&)>& body);
    ~Companion();
    Companion(const Companion&) = delete;
    Companion& operator=(const Companion&) = delete;

    /// Sends one byte to the other side.
    void signal();
    /// Waits for one byte of the other side; false when it has ended instead.
    [[nodiscard]] bool await();
    /// Waits for the child's end; the status as inChild() gives it. Called by the parent, once.
    [[nodiscard]] int join();
    [[nodiscard]] int pid() const { return child; }

  private:
    int readEnd = -1;
    int writeEnd = -1;
    int child = -1;
};

/// A fresh directory, removed with all it holds.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    [[nodiscard]] const std::string& path() const { return directory; }
    /// The path of `name` inside the directory.
    [[nodiscard]] std::string file(const std::string& name) const { return directory + "/" + name; }

  private:
    std::string directory;
};

/// The bytes of a file; a missing or unreadable file fails the test and reads as empty.
[[nodiscard]] std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& bytes);
/// Number of open descriptors of this process.
[[nodiscard]] int openDescriptors();

}  // namespace testsupport

#endif
