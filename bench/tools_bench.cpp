// The tools as a shell runs them, whole processes from their start to their end, beside tools that
// do the same; the floor is a program that does nothing.
//
// Most of a tool's time is its start: the loading of its libraries, of which the C++ library and
// this one are the greatest part, and their relocations.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "run.h"

namespace {

namespace fs = std::filesystem;

int const environment = setenv("QCSDIR", ZFC_BENCH_QCSDIR, 0);

constexpr int keysPerStanza = 1000;
constexpr int keyCount = 10000;

/// A directory on the memory file system, so that no disk is measured.
class Place {
  public:
    Place() {
        fs::create_directory(path);
        std::ofstream ours(path / "settings.conf");
        std::ofstream gits(path / "settings.git");
        for (int i = 0; i < keyCount; ++i) {
            if (i % keysPerStanza == 0) {
                ours << "[stanza" << i / keysPerStanza << "]\n";
                gits << "[stanza" << i / keysPerStanza << "]\n";
            }
            ours << "setting" << i % keysPerStanza << " = value " << i << "\n";
            gits << "\tsetting" << i % keysPerStanza << " = value " << i << "\n";
        }
    }
    ~Place() { fs::remove_all(path); }
    Place(Place const&) = delete;
    Place& operator=(Place const&) = delete;

    [[nodiscard]] std::string file(char const* name) const { return path / name; }

  private:
    fs::path path = fs::path("/dev/shm") / ("tools_bench." + std::to_string(getpid()));
};

Place const& place() {
    static Place const made;
    return made;
}

/// A tool of this build: the programs lie in neighbouring directories.
std::string built(char const* name) {
    return fs::read_symlink("/proc/self/exe").parent_path().parent_path() / "tools" / name;
}

using Command = std::vector<std::string>;

/// Runs a command that writes to nobody; false when it cannot be run or fails.
bool run(Command command) {
    std::vector<char*> words;
    for (auto& word : command)
        words.push_back(word.data());
    words.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    int const rc = posix_spawnp(&child, words[0], &actions, nullptr, words.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = -1;
    return rc == 0 && waitpid(child, &status, 0) == child && status == 0;
}

void measure(benchmark::State& state, Command const& command) {
    for (auto _ : state) {
        if (run(command)) continue;
        state.SkipWithError((command[0] + " failed, or is not there").c_str());
        break;
    }
}

void row(std::string const& name, Command const& command) {
    benchmark::RegisterBenchmark(name.c_str(), measure, command)
        ->UseRealTime()
        ->Unit(benchmark::kMicrosecond);
}

void addRows() {
    std::string const ours = place().file("settings.conf");
    std::string const gits = place().file("settings.git");
    Command const nothing{"/bin/true"};

    std::string const get = "zprop get, one key of 10000";
    row(get + "/ours", {built("zprop"), "get", ours, "stanza5", "setting500"});
    row(get + "/git", {"git", "config", "--file", gits, "--get", "stanza5.setting500"});
    row(get + "/floor", nothing);

    std::string const set = "zprop set, one key of 10000";
    row(set + "/ours", {built("zprop"), "set", ours, "stanza5", "setting500", "some value"});
    row(set + "/git", {"git", "config", "--file", gits, "stanza5.setting500", "some value"});
    row(set + "/floor", nothing);

    std::string const lock = "zlock and an empty program";
    row(lock + "/ours", {built("zlock"), "--dir", place().file(""), "lock", "--", "/bin/true"});
    row(lock + "/flock", {"flock", place().file("flock.lock"), "/bin/true"});
    row(lock + "/floor", nothing);
}

}  // namespace

int main(int argc, char** argv) {
    addRows();
    return bench::run(argc, argv);
}
