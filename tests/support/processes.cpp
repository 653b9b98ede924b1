#include "support/processes.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
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

int waitFor(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

/// Returns in the parent alone.
pid_t forkInto(std::function<int()> const& body) {
    fflush(stdout);
    pid_t const child = fork();
    if (child != 0) return child;
    int status = 99;
    try {
        status = body();
    } catch (...) {
        status = 99;
    }
    fflush(stdout);
    _exit(status);
}

}  // namespace

void setEnvironment() {
    setenv("QCSDIR", ZFC_TEST_QCSDIR, 0);
    setenv("LC_ALL", "C.UTF-8", 0);
}

int inChild(std::function<int()> const& body) { return waitFor(forkInto(body)); }

Captured captureChild(std::function<int()> const& body) {
    TempDir const printed;
    int const status = inChild([&] {
        for (int const stream : {STDOUT_FILENO, STDERR_FILENO}) {
            std::string const path = printed.file(std::to_string(stream));
            dup2(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), stream);
        }
        return body();
    });
    return {readFile(printed.file("1")), readFile(printed.file("2")), status};
}

Companion::Companion(std::function<int(Companion&)> const& body) {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) != 0) abort();
    child = forkInto([&] {
        close(ends[0]);
        end = ends[1];
        return body(*this);
    });
    close(ends[1]);
    end = ends[0];
}

Companion::~Companion() {
    close(end);
    if (child > 0) waitFor(child);
}

void Companion::signal() {
    if (write(end, "!", 1) != 1) ADD_FAILURE() << "the other process is gone";
}

bool Companion::await() {
    char byte = 0;
    ssize_t got = 0;
    while ((got = read(end, &byte, 1)) < 0 && errno == EINTR) {
    }
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

char stateOf(int id) {
    std::string word;
    std::ifstream status("/proc/" + std::to_string(id) + "/stat");
    status >> word >> word >> word;
    return word.empty() ? 'Z' : word[0];
}

int openDescriptors() {
    using Walk = std::filesystem::directory_iterator;  // which holds one itself
    return static_cast<int>(std::distance(Walk("/proc/self/fd"), Walk())) - 1;
}

}  // namespace testsupport
