/// Kills at random moments, inside of what a single call does as well.
#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <ctime>
#include <random>

#include "Z/ZException.h"
#include "torture/modes.h"
#include "torture/process.h"

namespace torture {
namespace {

using Clock = std::chrono::steady_clock;

/// The kernel kills this process when the time is over, wherever it is then: closer to the moment
/// than another process that has to wake up first.
class Executioner {
  public:
    Executioner() {
        sigevent event{};
        event.sigev_notify = SIGEV_SIGNAL;
        event.sigev_signo = SIGKILL;
        if (timer_create(CLOCK_MONOTONIC, &event, &timer) != 0) die("timer_create()");
    }
    ~Executioner() { timer_delete(timer); }
    Executioner(Executioner const&) = delete;
    Executioner& operator=(Executioner const&) = delete;

    /// 0: not at all.
    void arm(long nanoseconds) {
        itimerspec time{};
        time.it_value = {nanoseconds / 1000000000, nanoseconds % 1000000000};
        timer_settime(timer, 0, &time, nullptr);
    }

  private:
    timer_t timer{};
};

class CellKills {
  public:
    CellKills(Subject const& s, Options const& o, Table& t, std::mt19937& r)
        : subject(s), options(o), table(t), random(r) {
        prepare(subject, generation);
    }

    void run(Clock::time_point end) {
        while (count.runs < options.kills && Clock::now() < end)
            killOne();
        table.add(nameOf(subject.cell), count);
    }

  private:
    void killOne() {
        auto const peaceful = static_cast<unsigned int>(random() % 3);
        int const status = inChild([&] { storeUntilKilled(peaceful); });
        bool const wasKilled = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
        bool const wasInside = wasKilled && shared().entered != shared().acknowledged;
        // The store was not reached or not met; the files are in order all the same.
        unsigned int const acknowledged = std::max(generation, shared().acknowledged.load());
        if (wasInside && random() % 4 == 0) killLoad();
        Finding finding = judgeAndStore(subject, acknowledged);
        if (!wasKilled) finding.add(stuck, shared().reason);
        if (wasInside || finding.faults != 0) count.add(finding.faults);
        if (finding.faults != 0)
            startAnew(finding);
        else
            generation = finding.generation;
    }

    /// In the child. The timer is set for a store into an even generation, behind some others.
    void storeUntilKilled(unsigned int peaceful) {
        shared().entered = shared().acknowledged = generation;
        ZStanzaFileProperties properties(subject.path.c_str(), 1);
        Executioner executioner;
        for (unsigned int next = generation + 1;; ++next) {
            change(properties, contentOf(subject.cell, next - 1), contentOf(subject.cell, next));
            bool const isMeant = next % 2 == 0 && next > generation + peaceful;
            storeOnce(properties, next, isMeant ? &executioner : nullptr);
        }
    }

    void storeOnce(ZStanzaFileProperties& properties, unsigned int next, Executioner* executioner) {
        shared().entered = next;
        Clock::time_point const begin = Clock::now();
        if (executioner != nullptr) executioner->arm(moment(shared().nanoseconds));
        properties.store();
        shared().acknowledged = next;
        if (executioner != nullptr) return executioner->arm(0);
        auto const took = std::chrono::nanoseconds(Clock::now() - begin).count();
        long const average = shared().nanoseconds;
        shared().nanoseconds = average == 0 ? took : (3 * average + took) / 4;
    }

    [[nodiscard]] long moment(long duration) {
        if (duration == 0) duration = 1000000;
        return std::uniform_int_distribution<long>(1, duration + duration / 10)(random);
    }

    /// The process that finishes the store is killed too.
    void killLoad() {
        unsigned int const acknowledged = shared().acknowledged;
        long const delay = moment(shared().nanoseconds);
        static_cast<void>(inChild([&] {
            Executioner executioner;
            executioner.arm(delay);
            ZStanzaFileProperties const properties(subject.path.c_str(), 1);
        }));
        shared().acknowledged = acknowledged;
    }

    void startAnew(Finding const& finding) {
        bool const isNew = (told & finding.faults) != finding.faults;
        if (isNew || options.tellsAll) table.note(subject.cell, finding.reason);
        told |= finding.faults;
        generation = 1;
        prepare(subject, generation);
    }

    Subject subject;
    Options const& options;
    Table& table;
    std::mt19937& random;
    Count count;
    unsigned int generation = 1;  // that the file holds
    unsigned int told = 0;
};

}  // namespace

bool runKills(Options const& options) {
    bool isClean = true;
    std::mt19937 random(options.seed);
    Clock::time_point const end = Clock::now() + std::chrono::seconds(options.seconds);
    auto left =
        static_cast<int>(options.directories.size() * std::size(allSizes) * std::size(allKinds));
    for (std::string const& parent : options.directories) {
        Directory const directory(parent);
        std::string const title = "kills at random moments, in " + parent;
        Table table(title.c_str());
        for (unsigned int const size : allSizes) {
            for (Kind const kind : allKinds) {
                shared().nanoseconds = 0;
                CellKills cell({directory.path() + "/app.conf", {kind, size}}, options, table,
                               random);
                cell.run(Clock::now() + (end - Clock::now()) / left--);
            }
        }
        isClean = table.finish() && isClean;
    }
    return isClean;
}

}  // namespace torture
