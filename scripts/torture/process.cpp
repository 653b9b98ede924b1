#include "torture/process.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace torture {
namespace {

constexpr unsigned int longestStore = 60;  // seconds; reached only by one that hangs

void writeFile(std::string const& path, File const& file) {
    // In place where it is there: its inode is what locks and companions know.
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream << file.bytes << std::flush;
    if (!stream || chmod(path.c_str(), file.mode) != 0) die("cannot write " + path);
}

std::string bytesOf(std::string const& path) {
    std::ostringstream bytes;
    bytes << std::ifstream(path, std::ios::binary).rdbuf();
    return bytes.str();
}

}  // namespace

void Shared::tell(std::string const& why) {
    std::snprintf(reason, sizeof reason, "%s", why.c_str());
}

Shared& shared() {
    static auto* const block = [] {
        void* const memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE,
                                  MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) die("no shared memory");
        return static_cast<Shared*>(memory);
    }();
    return *block;
}

void die(std::string const& why) {
    std::fprintf(stderr, "torture: %s\n", why.c_str());
    std::exit(2);
}

std::string textOf(ZException const& exception) {
    std::string text = exception.getName();
    if (auto const* const io = dynamic_cast<ZPropertiesIOException const*>(&exception))
        text += std::string(" ") + io->propFile() + " " + io->api() + " " +
                std::strerror(static_cast<int>(io->excerrno()));
    return text + " (" + std::to_string(exception.getCode()) + ")";
}

pid_t startChild(std::function<void()> const& body) {
    std::fflush(nullptr);
    pid_t const child = fork();
    if (child < 0) die(std::string("fork(): ") + std::strerror(errno));
    if (child > 0) return child;
    alarm(longestStore);
    try {
        body();
    } catch (ZException const& e) {
        shared().tell(textOf(e));
        _exit(9);
    }
    _exit(0);
}

int waitFor(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) die("waitpid()");
    }
    return status;
}

int inChild(std::function<void()> const& body) { return waitFor(startChild(body)); }

Files filesOf(std::string const& directory) {
    Files files;
    for (auto const& entry : std::filesystem::directory_iterator(directory)) {
        struct stat status {};
        std::string const path = entry.path();
        if (lstat(path.c_str(), &status) != 0) die("cannot examine " + path);
        files[path] = {bytesOf(path), status.st_mode & 07777};
    }
    return files;
}

void putFiles(std::string const& directory, Files const& files) {
    for (auto const& [path, file] : filesOf(directory)) {
        if (files.count(path) == 0) unlink(path.c_str());
    }
    for (auto const& [path, file] : files)
        writeFile(path, file);
}

unsigned int openDescriptors() {
    namespace fs = std::filesystem;
    auto const count = std::distance(fs::directory_iterator("/proc/self/fd"), {});
    return static_cast<unsigned int>(count);
}

Directory::Directory(std::string const& parent)
    : name(parent + "/zfc-torture-" + std::to_string(getpid())) {
    if (mkdir(name.c_str(), 0700) != 0) die("cannot make " + name);
}

Directory::~Directory() {
    std::error_code ignored;
    std::filesystem::remove_all(name, ignored);
}

}  // namespace torture
