#include "torture/storms.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>

namespace torture {
namespace {

/// Of a thread of this process: 'S' sleeps.
char stateOf(pid_t thread) {
    std::string word;
    std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/stat");
    status >> word >> word >> word;
    return word.empty() ? 'Z' : word[0];
}

}  // namespace

void StormTable::add(std::string const& name, std::string const& fault, unsigned int runs) {
    auto row = std::find_if(rows.begin(), rows.end(), [&](Row const& r) { return r.name == name; });
    if (row == rows.end()) row = rows.insert(rows.end(), {name, 0, 0, ""});
    row->runs += runs;
    if (fault.empty()) return;
    ++row->faults;
    if (row->first.empty()) row->first = fault;
}

bool StormTable::finish() const {
    std::printf("\n%s\n\n| %-58s | %8s | %6s |\n|%s|%s|%s|\n", heading.c_str(), "what", "runs",
                "faults", std::string(60, '-').c_str(), std::string(10, '-').c_str(),
                std::string(8, '-').c_str());
    bool isClean = true;
    for (Row const& row : rows) {
        std::printf("| %-58s | %8u | %6u |\n", row.name.c_str(), row.runs, row.faults);
        isClean = isClean && row.faults == 0;
    }
    for (Row const& row : rows)
        if (row.faults != 0) std::printf("  %s: %s\n", row.name.c_str(), row.first.c_str());
    std::fflush(stdout);
    return isClean;
}

std::string faultOf(int status, int expected) {
    if (WIFEXITED(status) && WEXITSTATUS(status) == expected) return "";
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM) return "does not end";
    if (WIFSIGNALED(status)) return "ended by signal " + std::to_string(WTERMSIG(status));
    return "ended with " + std::to_string(WEXITSTATUS(status)) + ": " + shared().reason;
}

void dropReports() {
    int const nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere < 0 || dup2(nowhere, STDERR_FILENO) < 0) die("no /dev/null");
    close(nowhere);
}

void sleepBeside(std::function<void()> const& body) {
    std::atomic<pid_t> id{0};
    std::thread([&id, body] { id = gettid(), body(); }).detach();
    while (id == 0 || stateOf(id) != 'S')
        std::this_thread::yield();
}

}  // namespace torture
