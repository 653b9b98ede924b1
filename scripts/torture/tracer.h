/// A child whose system calls are counted, and one of them killed, failed or cut short (x86-64).
#ifndef ZFC_TORTURE_TRACER_H
#define ZFC_TORTURE_TRACER_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace torture {

/// What befalls call number `at`, from 1; calls that have nothing to do with files do not count.
struct Plan {
    enum class What {
        nothing,
        kill,        // before it is made; behind it: before the next
        killWithin,  // a write, when half of it is made; nothing to others
        failOnce,    // not made, with `error`; only close() is made, as Linux does it
        failFrom,    // so is every later one
        failBehind,  // half of what is to be read or written; then every call fails
        shorten      // half of it; nothing to others
    };
    What what = What::nothing;
    unsigned int at = 0;
    int error = 0;
};

struct Traced {
    std::vector<char const*> calls;  // their names
    int status = 0;                  // of the child, when it ended within
    bool hasEnded = false;           // so it did; else it runs on, untraced
    bool isHung = false;             // killed because it made calls without end
    bool befell = false;             // the plan did something
};

/// Runs in the child, around what is traced. The parent must be in traceChild().
void beginTraced();
void endTraced();

/// Is told each descriptor that was flushed.
using OnFlush = std::function<void(pid_t child, unsigned long descriptor)>;

/// Follows the child up to endTraced() or its end.
[[nodiscard]] Traced traceChild(pid_t child, Plan const& plan, OnFlush const& onFlush = {});

/// Whether the plan does anything to a call of this name.
[[nodiscard]] bool befalls(Plan::What what, char const* call);

/// As "write 3 killed within" for a report.
[[nodiscard]] std::string describe(Plan const& plan, Traced const& traced);

}  // namespace torture

#endif
