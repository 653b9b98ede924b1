/// Every call of a store, one after the other, complete: no kill and no failure at a call is
/// missed, and no power loss before one.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "Z/ZException.h"
#include "torture/device.h"
#include "torture/modes.h"
#include "torture/process.h"
#include "torture/tracer.h"

namespace torture {
namespace {

using What = Plan::What;

constexpr unsigned int oldGeneration = 1;
constexpr unsigned int newGeneration = 2;

struct PlannedFailure {
    What what;
    int error;
};
// EINTR from there on is left out: a call that is interrupted for ever has no end.
constexpr PlannedFailure failures[] = {
    {What::failOnce, ENOSPC},   {What::failOnce, EIO}, {What::failOnce, EINTR},
    {What::failFrom, ENOSPC},   {What::failFrom, EIO}, {What::shorten, 0},
    {What::failBehind, ENOSPC},
};

/// Holds the child up until the parent has looked at the files.
class Gate {
  public:
    Gate() {
        if (pipe(ends) != 0) die("pipe()");
    }
    ~Gate() {
        close(ends[0]);
        close(ends[1]);
    }
    Gate(Gate const&) = delete;
    Gate& operator=(Gate const&) = delete;

    void open() const {
        if (write(ends[1], "x", 1) != 1) die("write()");
    }
    void pass() const {
        char byte = 0;
        if (read(ends[0], &byte, 1) != 1) _exit(8);
    }

  private:
    int ends[2]{};
};

/// The store of one cell under all plans.
class CellCalls {
  public:
    CellCalls(Subject const& s, Options const& o, Table& t) : subject(s), options(o), table(t) {
        prepare(subject, oldGeneration);
        before = filesOf(subject.directory());
    }

    void run() {
        Calls const calls = countCalls();
        // One more: behind the last call.
        for (unsigned int at = 1; at <= calls.size() + 1; ++at) {
            killAt({What::kill, at, 0});
            if (befalls(calls, {What::killWithin, at, 0})) killAt({What::killWithin, at, 0});
        }
        table.add("kill at a call, " + nameOf(subject.cell), kills);
        for (unsigned int at = 1; at <= calls.size(); ++at) {
            for (PlannedFailure const& failure : failures) {
                Plan const plan{failure.what, at, failure.error};
                if (befalls(calls, plan)) failAt(plan);
            }
        }
        table.add("fail a call, " + nameOf(subject.cell), failed);
    }

    /// The same for the first load behind each kill, which has to finish that store.
    void runRecovery() {
        Calls const calls = countCalls();
        Files lastTorn;
        for (unsigned int at = 1; at <= calls.size() + 1; ++at) {
            Files const torn = tornAt(at);
            // Most calls change no file; the recovery is the same then.
            if (at == 1 || torn != lastTorn) recoverFrom(torn);
            lastTorn = torn;
        }
        table.add("kill or fail the next load, " + nameOf(subject.cell), recoveries);
    }

    /// The power fails before each call of the store, and of the load that finishes it.
    void runPower() {
        Calls const calls = countCalls();
        Files lastTorn;
        for (unsigned int at = 1; at <= calls.size() + 1; ++at) {
            Plan const within{What::killWithin, at, 0};
            if (befalls(calls, within)) failPowerAt(within, {});
            failPowerAt({What::kill, at, 0}, {});
            Files const torn = tornAt(at);
            if (torn == before || torn == lastTorn) continue;
            lastTorn = torn;
            failPowerInLoad({What::kill, at, 0});
        }
        table.add("power loss, " + nameOf(subject.cell), powerLosses);
    }

  private:
    Files tornAt(unsigned int at) {
        putFiles(subject.directory(), before);
        static_cast<void>(storeUnder({What::kill, at, 0}, nullptr));
        return filesOf(subject.directory());
    }

    void failPowerInLoad(Plan const& kill) {
        std::size_t calls = 1;
        for (unsigned int at = 1; at <= calls; ++at)
            calls = std::max(calls, failPowerAt(kill, Plan{What::kill, at, 0}));
    }

    /// A store that is killed and, with a plan for it, a load that is; then the power fails. How
    /// many calls the last of them would make at least.
    std::size_t failPowerAt(Plan const& plan, std::optional<Plan> const& loadPlan) {
        putFiles(subject.directory(), before);
        Device device(subject.directory());
        OnFlush const onFlush = [&](pid_t child, unsigned long descriptor) {
            device.flush(child, descriptor);
        };
        Traced traced = storeUnder(plan, nullptr, nullptr, onFlush);
        unsigned int const acknowledged = shared().acknowledged;
        if (loadPlan) traced = loadUnder(*loadPlan, onFlush);
        for (Files const& files : device.afterPowerLoss()) {
            putFiles(subject.directory(), files);
            settle(judgeAndStore(subject, acknowledged), loadPlan.value_or(plan), traced,
                   powerLosses);
        }
        return traced.calls.size() + (traced.hasEnded ? 1 : 0);
    }

    using Calls = std::vector<char const*>;  // of a store that is left alone

    [[nodiscard]] static bool befalls(Calls const& calls, Plan const& plan) {
        return plan.at <= calls.size() && torture::befalls(plan.what, calls[plan.at - 1]);
    }

    Calls countCalls() {
        Gate gate;
        gate.open();
        pid_t child = 0;
        putFiles(subject.directory(), before);
        Traced const traced = storeUnder({}, &gate, &child);
        static_cast<void>(waitFor(child));
        return traced.calls;
    }

    void store(ZStanzaFileProperties& properties) const {
        try {
            properties.store();
            shared().acknowledged = newGeneration;
        } catch (ZException const& e) {
            shared().raised = true;
            shared().tell(textOf(e));
        }
    }

    /// In the child: one store that is traced, and when the gate opens another one.
    void storeTwice(Gate const* gate) const {
        ZStanzaFileProperties properties(subject.path.c_str(), 1);
        change(properties, contentOf(subject.cell, oldGeneration),
               contentOf(subject.cell, newGeneration));
        unsigned int const descriptors = openDescriptors();
        beginTraced();
        store(properties);
        endTraced();
        shared().leaksDescriptor = openDescriptors() != descriptors;
        if (gate == nullptr) return;
        gate->pass();
        properties.store();
    }

    Traced storeUnder(Plan const& plan, Gate const* gate, pid_t* child = nullptr,
                      OnFlush const& onFlush = {}) {
        shared().acknowledged = oldGeneration;
        shared().raised = false;
        shared().leaksDescriptor = false;
        pid_t const started = startChild([&] { storeTwice(gate); });
        Traced traced = traceChild(started, plan, onFlush);
        if (child != nullptr)
            *child = started;
        else if (!traced.hasEnded)
            static_cast<void>(waitFor(started));
        return traced;
    }

    void killAt(Plan const& plan) {
        putFiles(subject.directory(), before);
        Traced const traced = storeUnder(plan, nullptr);
        Finding const finding = judgeAndStore(subject, shared().acknowledged);
        settle(finding, plan, traced, kills);
    }

    void failAt(Plan const& plan) {
        putFiles(subject.directory(), before);
        Gate gate;
        pid_t child = 0;
        Traced const traced = storeUnder(plan, &gate, &child);
        Finding finding;
        std::string const raised = shared().raised ? shared().reason : "";
        if (traced.hasEnded) {
            finding.add(traced.isHung ? hung : stuck, "the store ended the process");
        } else {
            finding = judge(subject, shared().acknowledged);
            gate.open();
            afterRetry(waitFor(child), finding);
        }
        if (!raised.empty()) finding.reason += " (" + raised + ")";
        settle(finding, plan, traced, failed);
    }

    /// The object's own next store, without failures.
    void afterRetry(int status, Finding& finding) {
        if (shared().leaksDescriptor) finding.add(descriptor, "is open behind the store");
        if (status != 0) finding.add(stuck, shared().reason);
        if (finding.faults != 0) return;
        finding = judge(subject, newGeneration);
        if (finding.faults == 0) findLeftovers(subject, newGeneration, finding);
    }

    void settle(Finding const& finding, Plan const& plan, Traced const& traced, Count& count) {
        count.add(finding.faults);
        bool const isNew = (told & finding.faults) != finding.faults;
        if (finding.faults == 0 || !(isNew || options.tellsAll)) return;
        told |= finding.faults;
        table.note(subject.cell, describe(plan, traced) + ": " + finding.reason);
    }

    Traced loadUnder(Plan const& plan, OnFlush const& onFlush = {}) {
        pid_t const child = startChild([&] {
            ZStanzaFileProperties(1).setValue("s", "k", "v");  // reads what the codeset needs
            beginTraced();
            try {
                ZStanzaFileProperties const properties(subject.path.c_str(), 1);
            } catch (ZException const&) {
                shared().raised = true;  // it may; what counts is what the next one finds
            }
            endTraced();
        });
        Traced traced = traceChild(child, plan, onFlush);
        if (!traced.hasEnded) static_cast<void>(waitFor(child));
        return traced;
    }

    void recoverFrom(Files const& torn) {
        unsigned int calls = 1;
        for (unsigned int at = 1; at <= calls; ++at) {
            for (Plan const& plan :
                 {Plan{What::kill, at, 0}, Plan{What::killWithin, at, 0},
                  Plan{What::failOnce, at, EIO}, Plan{What::failFrom, at, ENOSPC},
                  Plan{What::failBehind, at, ENOSPC}, Plan{What::shorten, at, 0}}) {
                putFiles(subject.directory(), torn);
                Traced const traced = loadUnder(plan);
                // The longest of them tells how many there are.
                if (plan.what == What::shorten)
                    calls = std::max(calls, static_cast<unsigned int>(traced.calls.size()));
                bool const isDone = traced.befell || plan.what == What::kill;
                if (isDone) settle(judgeAndStore(subject, oldGeneration), plan, traced, recoveries);
            }
        }
    }

    Subject subject;
    Options const& options;
    Table& table;
    Files before;
    Count kills;
    Count failed;
    Count recoveries;
    Count powerLosses;
    unsigned int told = 0;  // faults that a note tells already
};

}  // namespace

bool runCalls(Options const& options) {
    bool isClean = true;
    for (std::string const& parent : options.directories) {
        Directory const directory(parent);
        std::string const title = "each call of a store, in " + parent;
        Table table(title.c_str());
        for (unsigned int const size : allSizes) {
            for (Kind const kind : allKinds) {
                CellCalls cell({directory.path() + "/app.conf", {kind, size}}, options, table);
                cell.run();
                // What these find does not depend on the size, nor on where the file is.
                if (size != allSizes[0] || parent != options.directories.front()) continue;
                cell.runRecovery();
                cell.runPower();
            }
        }
        isClean = table.finish() && isClean;
    }
    return isClean;
}

}  // namespace torture
