/// What a file is found to be by the next process that loads it.
#ifndef ZFC_TORTURE_JUDGE_H
#define ZFC_TORTURE_JUDGE_H

#include <array>
#include <string>

#include "torture/cells.h"

namespace torture {

enum Fault : unsigned int {
    torn,        // does not load, or holds what no generation holds
    mixed,       // values of two generations in one file
    lost,        // older than the last generation whose store returned
    neither,     // a value that changes its file is in none
    differ,      // main file and companion are of two generations
    stuck,       // the next store does not succeed
    leftover,    // a file that nobody needs stays behind
    descriptor,  // a store that failed leaves a file open
    hung,        // a store that does not end
    faultCount
};
[[nodiscard]] char const* nameOf(Fault fault);

/// The faults of one cell, counted.
struct Count {
    unsigned int runs = 0;
    std::array<unsigned int, faultCount> faults{};

    void add(unsigned int mask);
    [[nodiscard]] bool isClean() const;
    Count& operator+=(Count const& other);
};

/// A path with its cell, and what the next process must find.
struct Subject {
    std::string path;
    Cell cell;

    [[nodiscard]] std::string directory() const;
    [[nodiscard]] std::string companion() const { return path + ".obf"; }
};

struct Finding {
    unsigned int faults = 0;      // a bit for each Fault
    unsigned int generation = 0;  // 0: of none
    std::string reason;           // of the first fault

    void add(Fault fault, std::string const& why);
};

/// Loads the file in a process of its own and looks at every value. `acknowledged`: the newest
/// generation whose store returned.
[[nodiscard]] Finding judge(Subject const& subject, unsigned int acknowledged);
/// The same, and the process then stores the next generation: that has to succeed and to leave no
/// other file than main file and companion behind.
[[nodiscard]] Finding judgeAndStore(Subject const& subject, unsigned int acknowledged);
/// Adds what is left behind where `generation` is stored.
void findLeftovers(Subject const& subject, unsigned int generation, Finding& finding);

/// Removes whatever there is and stores this generation.
void prepare(Subject const& subject, unsigned int generation);

}  // namespace torture

#endif
