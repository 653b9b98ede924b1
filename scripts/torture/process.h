/// Processes, the memory that they share, and the files they leave.
#ifndef ZFC_TORTURE_PROCESS_H
#define ZFC_TORTURE_PROCESS_H

#include <sys/types.h>

#include <array>
#include <atomic>
#include <functional>
#include <map>
#include <string>

#include "Z/ZException.h"

namespace torture {

/// What a child tells, also when it is killed.
struct Shared {
    std::atomic<unsigned int> entered;       // the generation whose store was begun last
    std::atomic<unsigned int> acknowledged;  // whose store returned last
    std::atomic<bool> raised;                // the store's end, when it was no kill
    std::atomic<long> nanoseconds;           // of the last store that was left alone; 0: none
    std::atomic<bool> leaksDescriptor;
    std::atomic<unsigned int> filesRead;  // random ones that were not refused
    std::atomic<unsigned int> editsMade;
    std::atomic<unsigned int> editsRefused;
    std::array<std::atomic<unsigned int>, 8> doing;  // of children that live at a time, each
    unsigned int found;                              // what judge() found
    unsigned int generation;
    char reason[400];

    void tell(std::string const& why);
};
[[nodiscard]] Shared& shared();

/// Ends the program: it cannot go on.
[[noreturn]] void die(std::string const& why);

[[nodiscard]] std::string textOf(ZException const& exception);

/// Forks; the child leaves with 0 behind `body`, with 9 when that throws, and by SIGALRM when it
/// does not end.
[[nodiscard]] pid_t startChild(std::function<void()> const& body);
/// The status that waitpid() gives.
[[nodiscard]] int waitFor(pid_t child);
int inChild(std::function<void()> const& body);

struct File {
    std::string bytes;
    mode_t mode;

    friend bool operator==(File const& a, File const& b) {
        return a.mode == b.mode && a.bytes == b.bytes;
    }
};
/// All files of a directory, by path.
using Files = std::map<std::string, File>;
[[nodiscard]] Files filesOf(std::string const& directory);
/// Makes the directory hold these alone; a file that is there already is rewritten in place.
void putFiles(std::string const& directory, Files const& files);

/// The number of this process's open files.
[[nodiscard]] unsigned int openDescriptors();

/// A directory that is made and removed with its files.
class Directory {
  public:
    explicit Directory(std::string const& parent);
    ~Directory();
    Directory(Directory const&) = delete;
    Directory& operator=(Directory const&) = delete;

    [[nodiscard]] std::string const& path() const { return name; }

  private:
    std::string name;
};

}  // namespace torture

#endif
