#include "zprop/edits/backup.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "zprop/failure.h"

namespace zprop {
namespace {

/// A new file that is removed again unless it gets its name.
class NewFile {
  public:
    explicit NewFile(std::string const& finalName) : name(finalName), path(finalName + ".XXXXXX") {
        descriptor = mkostemp(path.data(), O_CLOEXEC);
        if (descriptor < 0) failIO(name, "mkostemp()");
    }
    ~NewFile() {
        close(descriptor);
        if (!path.empty()) unlink(path.c_str());
    }
    NewFile(NewFile const&) = delete;
    NewFile& operator=(NewFile const&) = delete;

    void write(std::string const& bytes) const {
        for (std::size_t done = 0; done < bytes.size();) {
            ssize_t const n = ::write(descriptor, bytes.data() + done, bytes.size() - done);
            if (n < 0 && errno != EINTR) failIO(name, "write()");
            if (n > 0) done += static_cast<std::size_t>(n);
        }
    }
    /// Where the group cannot be given, what was meant for it is given to nobody.
    void giveTo(struct stat const& source) const {
        mode_t mode = source.st_mode & 0777;
        bool const isGiven = fchown(descriptor, source.st_uid, source.st_gid) == 0 ||
                             fchown(descriptor, static_cast<uid_t>(-1), source.st_gid) == 0;
        if (!isGiven) mode &= ~static_cast<mode_t>(S_IRWXG);
        if (fchmod(descriptor, mode) != 0) failIO(name, "fchmod()");
    }
    void keep() {
        if (fsync(descriptor) != 0) failIO(name, "fsync()");
        if (rename(path.c_str(), name.c_str()) != 0) failIO(name, "rename()");
        path.clear();
    }

  private:
    std::string name;
    std::string path;  // empty: it has its name
    int descriptor;
};

}  // namespace

void makeBackup(std::string const& file, std::string const& ending, std::string const& main) {
    struct stat source {};
    struct stat mainFile {};
    if (stat(file.c_str(), &source) != 0 || source.st_size == 0) return;
    std::string const bytes = bytesOf(file);
    if (bytes.size() != static_cast<std::size_t>(source.st_size))
        throw Failure(Exit::inputOutput, file + ": cannot be read for its backup");
    NewFile target(file + ending);
    target.write(bytes);
    if (stat(main.c_str(), &mainFile) == 0) source.st_mode &= mainFile.st_mode;
    target.giveTo(source);
    target.keep();
}

}  // namespace zprop
