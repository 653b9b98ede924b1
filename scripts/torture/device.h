/// What a power loss leaves: the bytes and the directory entries that were flushed, and of all else
/// what the kernel happened to write.
#ifndef ZFC_TORTURE_DEVICE_H
#define ZFC_TORTURE_DEVICE_H

#include <sys/stat.h>
#include <sys/types.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "torture/process.h"

namespace torture {

class Device {
  public:
    /// All that the directory holds now is on the device.
    explicit Device(std::string const& observedDirectory);

    /// The process has flushed this descriptor.
    void flush(pid_t process, unsigned long descriptor);
    /// The directory as it may be then: each file with its flushed bytes, its present ones, or half
    /// and half, each entry flushed or present. Some of the many, when there are many.
    [[nodiscard]] std::vector<Files> afterPowerLoss() const;

  private:
    // An inode with the time of its birth: numbers are used again.
    using Inode = std::pair<unsigned long long, long long>;
    struct Present {
        Inode inode;
        File file;
    };
    using Presents = std::map<std::string, Present>;
    using Choices = std::vector<std::vector<File>>;  // of one name: at most one file each

    [[nodiscard]] static Inode inodeOf(std::string const& path, int flags);
    [[nodiscard]] Presents present() const;
    [[nodiscard]] Choices choicesFor(std::string const& path, Presents const& presents) const;
    [[nodiscard]] File flushedBytes(Inode const& inode, mode_t mode) const;

    std::string directory;
    std::map<std::string, Inode> entries;  // flushed
    std::map<Inode, File> contents;        // flushed
};

}  // namespace torture

#endif
