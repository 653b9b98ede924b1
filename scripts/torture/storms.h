/// What the storms of threads have in common: a table of what was done and what was found.
#ifndef ZFC_TORTURE_STORMS_H
#define ZFC_TORTURE_STORMS_H

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "torture/process.h"

namespace torture {

/// Something to do, over and over, from many threads.
struct Deed {
    std::string name;
    std::function<void()> run;
};

/// A row for each deed: how often it was done, and what was found. Used by one thread.
class StormTable {
  public:
    explicit StormTable(char const* title) : heading(title) {}
    /// `fault` is empty where nothing was found.
    void add(std::string const& name, std::string const& fault, unsigned int runs = 1);
    /// Prints the table; whether nothing was found.
    [[nodiscard]] bool finish() const;

  private:
    struct Row {
        std::string name;
        unsigned int runs;
        unsigned int faults;
        std::string first;  // fault
    };
    std::string heading;
    std::vector<Row> rows;
};

/// When a storm is over.
class Until {
  public:
    explicit Until(std::chrono::milliseconds length) : end(Clock::now() + length) {}
    [[nodiscard]] bool isOver() const { return Clock::now() >= end; }

  private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point end;
};

/// A status of waitpid() that is not `expected`, in words; else empty.
[[nodiscard]] std::string faultOf(int status, int expected);

/// The storm's process writes its reports where nobody reads them.
void dropReports();

/// Runs `body` in a thread that is not waited for, until it sleeps.
void sleepBeside(std::function<void()> const& body);

}  // namespace torture

#endif
