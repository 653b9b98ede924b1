/// What the program can do; every mode tells what it found and says whether that was nothing.
#ifndef ZFC_TORTURE_MODES_H
#define ZFC_TORTURE_MODES_H

#include <chrono>
#include <string>
#include <vector>

#include "torture/judge.h"

namespace torture {

struct Options {
    std::vector<std::string> directories;
    unsigned int seconds = 600;
    unsigned int kills = 500;  // inside of stores, for each cell
    unsigned int seed = 0;
    bool tellsAll = false;  // every finding, not the first of its cell alone
};

/// A row for each cell, and the sum.
class Table {
  public:
    explicit Table(char const* title);
    void add(std::string const& cell, Count const& count);
    /// A finding's reason, to be told below the rows.
    void note(Cell const& cell, std::string const& reason);
    [[nodiscard]] bool finish();

  private:
    Count sum;
    std::vector<std::string> notes;
};

/// Kills a store before, behind and within each of its calls, and fails each of them.
[[nodiscard]] bool runCalls(Options const& options);
/// Kills stores at random moments.
[[nodiscard]] bool runKills(Options const& options);
/// Random files and random edits: what was stored is what is loaded.
[[nodiscard]] bool runRandomFiles(Options const& options);
/// Forks while threads use everything; each child does one of everything.
[[nodiscard]] bool runForks(Options const& options);
/// Cancels threads at random in every call that waits or opens something.
[[nodiscard]] bool runCancels(Options const& options);
/// Ends processes whose threads wait for what ends with them.
[[nodiscard]] bool runExits(Options const& options);
/// Adds numbered keys to the file until the time is over; prints how many were stored.
[[nodiscard]] bool runProgram(std::string const& file, unsigned int seconds);

}  // namespace torture

#endif
