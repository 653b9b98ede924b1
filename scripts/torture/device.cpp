#include "torture/device.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>

namespace torture {
namespace {

constexpr std::size_t mostStates = 128;

void addOnce(std::vector<std::vector<File>>& choices, std::vector<File> const& choice) {
    if (std::find(choices.begin(), choices.end(), choice) == choices.end())
        choices.push_back(choice);
}

/// The bytes of one up to the middle of the shorter one, behind it those of the other.
File halved(File const& one, File const& other) {
    std::size_t const half = std::min(one.bytes.size(), other.bytes.size()) / 2;
    return {one.bytes.substr(0, half) + other.bytes.substr(half), one.mode};
}

}  // namespace

Device::Device(std::string const& observedDirectory) : directory(observedDirectory) {
    for (auto const& [path, one] : present()) {
        entries[path] = one.inode;
        contents[one.inode] = one.file;
    }
}

Device::Inode Device::inodeOf(std::string const& path, int flags) {
    struct statx status {};
    if (statx(AT_FDCWD, path.c_str(), flags, STATX_INO | STATX_BTIME, &status) != 0)
        die("cannot examine " + path);
    return {status.stx_ino, status.stx_btime.tv_sec * 1000000000LL + status.stx_btime.tv_nsec};
}

Device::Presents Device::present() const {
    Presents presents;
    for (auto const& [path, file] : filesOf(directory))
        presents[path] = {inodeOf(path, AT_SYMLINK_NOFOLLOW), file};
    return presents;
}

void Device::flush(pid_t process, unsigned long descriptor) {
    // Through the descriptor: the file may have lost its name.
    std::string const path =
        "/proc/" + std::to_string(process) + "/fd/" + std::to_string(descriptor);
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) die("cannot examine " + path);
    if (S_ISDIR(status.st_mode)) {
        entries.clear();
        for (auto const& [name, one] : present())
            entries[name] = one.inode;
    } else {
        std::ostringstream bytes;
        bytes << std::ifstream(path, std::ios::binary).rdbuf();
        contents[inodeOf(path, 0)] = {bytes.str(), status.st_mode & 07777};
    }
}

File Device::flushedBytes(Inode const& inode, mode_t mode) const {
    auto const found = contents.find(inode);
    return found != contents.end() ? found->second : File{"", mode};
}

Device::Choices Device::choicesFor(std::string const& path, Presents const& presents) const {
    Choices choices;
    auto const flushed = entries.find(path);
    auto const now = presents.find(path);
    if (flushed == entries.end() || now == presents.end()) addOnce(choices, {});
    if (flushed != entries.end()) addOnce(choices, {flushedBytes(flushed->second, 0600)});
    if (now == presents.end()) return choices;
    File const& file = now->second.file;
    File const before = flushedBytes(now->second.inode, file.mode);
    addOnce(choices, {file});
    addOnce(choices, {before});
    // Blocks reach the device in any order.
    addOnce(choices, {halved(file, before)});
    addOnce(choices, {halved(before, file)});
    return choices;
}

std::vector<Files> Device::afterPowerLoss() const {
    Presents const presents = present();
    std::set<std::string> names;
    for (auto const& [path, one] : presents)
        names.insert(path);
    for (auto const& [path, inode] : entries)
        names.insert(path);
    std::vector<Files> states{{}};
    for (std::string const& name : names) {
        std::vector<Files> longer;
        for (Files const& state : states) {
            for (std::vector<File> const& choice : choicesFor(name, presents)) {
                Files next = state;
                if (!choice.empty()) next[name] = choice.front();
                longer.push_back(next);
            }
        }
        if (longer.size() > mostStates) longer.resize(mostStates);
        states = longer;
    }
    return states;
}

}  // namespace torture
