#include "support/processes.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace testsupport {
namespace {

int decoded(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status); }

int waitFor(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    return decoded(status);
}

[[noreturn]] void runAndLeave(std::function<int()> const& body) {
    int status = 99;
    try {
        status = body();
    } catch (...) {
        status = 99;
    }
    fflush(stdout);
    _exit(status);
}

std::array<int, 2> makePipe() {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) abort();
    return ends;
}

/// Appends what is ready on `fd`; false at its end.
bool drain(int fd, std::string& into) {
    std::array<char, 4096> block{};
    ssize_t const got = read(fd, block.data(), block.size());
    if (got > 0) into.append(block.data(), static_cast<std::size_t>(got));
    return got > 0 || (got < 0 && errno == EINTR);
}

void collect(int out, int err, Captured& captured) {
    std::array<pollfd, 2> ends{{{out, POLLIN, 0}, {err, POLLIN, 0}}};
    while (ends[0].fd >= 0 || ends[1].fd >= 0) {
        if (poll(ends.data(), ends.size(), -1) < 0 && errno != EINTR) return;
        if (ends[0].revents != 0 && !drain(out, captured.out)) ends[0].fd = -1;
        if (ends[1].revents != 0 && !drain(err, captured.err)) ends[1].fd = -1;
    }
}

}  // namespace

int inChild(std::function<int()> const& body) {
    fflush(stdout);
    pid_t const child = fork();
    if (child == 0) runAndLeave(body);
    return waitFor(child);
}

Captured captureChild(std::function<int()> const& body) {
    auto const out = makePipe();
    auto const err = makePipe();
    fflush(stdout);
    pid_t const child = fork();
    if (child == 0) {
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        for (int const fd : {out[0], out[1], err[0], err[1]})
            close(fd);
        runAndLeave(body);
    }
    close(out[1]);
    close(err[1]);
    Captured captured{};
    collect(out[0], err[0], captured);
    close(out[0]);
    close(err[0]);
    captured.status = waitFor(child);
    return captured;
}

int becomeProgram(std::string const& program, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), std::filesystem::path(program).filename());
    std::vector<char*> argv;
    for (auto& argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    unsetenv("QCSDIR");
    execv(program.c_str(), argv.data());
    return 127;
}

Companion::Companion(std::function<int(Companion&)> const& body) {
    auto const down = makePipe();
    auto const up = makePipe();
    fflush(stdout);
    child = fork();
    bool const isChild = child == 0;
    readEnd = isChild ? down[0] : up[0];
    writeEnd = isChild ? up[1] : down[1];
    close(isChild ? down[1] : down[0]);
    close(isChild ? up[0] : up[1]);
    if (isChild) runAndLeave([&] { return body(*this); });
}

Companion::~Companion() {
    close(readEnd);
    close(writeEnd);
    if (child > 0) waitFor(child);
}

void Companion::signal() {
    char const byte = '!';
    if (write(writeEnd, &byte, 1) != 1) ADD_FAILURE() << "the other process is gone";
}

bool Companion::await() {
    char byte = 0;
    ssize_t got = 0;
    do {
        got = read(readEnd, &byte, 1);
    } while (got < 0 && errno == EINTR);
    return got == 1;
}

int Companion::join() {
    int const status = waitFor(child);
    child = -1;
    return status;
}

TempDir::TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "zfc-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) abort();
    directory = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
}

std::string readFile(std::string const& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

void writeFile(std::string const& path, std::string const& bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << bytes;
    file.close();
    EXPECT_TRUE(file.good()) << path;
}

int openDescriptors() {
    int count = 0;
    for ([[maybe_unused]] auto const& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        ++count;
    return count - 1;  // the walk itself holds one
}

}  // namespace testsupport
