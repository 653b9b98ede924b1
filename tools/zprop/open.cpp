#include "zprop/open.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <thread>

#include "zprop/failure.h"

namespace zprop {
namespace {

[[noreturn]] void failIO(std::string const& file, char const* operation) {
    throw Failure(Exit::inputOutput, file + ": " + operation + ": " + std::strerror(errno));
}

bool isLocked(ZPropertiesIOException const& e) {
    return std::strcmp(e.api(), "fcntl()") == 0 &&
           (e.excerrno() == EAGAIN || e.excerrno() == EACCES);
}

/// What tells one content of a file from the next.
struct Stamp {
    dev_t device;
    ino_t inode;
    off_t size;
    timespec modified;

    bool operator==(Stamp const& other) const {
        return device == other.device && inode == other.inode && size == other.size &&
               modified.tv_sec == other.modified.tv_sec &&
               modified.tv_nsec == other.modified.tv_nsec;
    }
};

/// The file that an edit is about, held against the edits of other zprop processes. The lock is of
/// the kind that the library's record locks do not meet, so the library can lock the file as usual.
class EditedFile {
  public:
    EditedFile(std::string const& path, Missing missing, Deadline& deadline) : file(path) {
        do {
            closeDescriptor();
            openDescriptor(missing);
            while (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
                if (errno != EWOULDBLOCK && errno != EINTR) failIO(file, "flock()");
                if (!deadline.pause())
                    throw Failure(Exit::inputOutput, file + ": another process is editing it");
            }
        } while (!isStillThePath());
    }
    ~EditedFile() {
        if (created && !kept && isEmpty()) unlink(file.c_str());
        closeDescriptor();
    }
    EditedFile(EditedFile const&) = delete;
    EditedFile& operator=(EditedFile const&) = delete;

    [[nodiscard]] Stamp stamp() const {
        struct stat status {};
        if (fstat(descriptor, &status) != 0) failIO(file, "fstat()");
        return {status.st_dev, status.st_ino, status.st_size, status.st_mtim};
    }

    /// A file that was made for the edit stays.
    void keep() { kept = true; }

  private:
    void openDescriptor(Missing missing) {
        descriptor = open(file.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK);
        if (descriptor < 0 && errno == ENOENT && missing == Missing::create) {
            descriptor = open(file.c_str(), O_RDWR | O_CLOEXEC | O_CREAT | O_EXCL, 0666);
            created = descriptor >= 0;
            // Somebody else made it, or it is a link to a file that is not there yet.
            if (descriptor < 0 && errno == EEXIST)
                descriptor = open(file.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK | O_CREAT, 0666);
        }
        if (descriptor < 0) failIO(file, "open()");
    }

    void closeDescriptor() {
        if (descriptor >= 0) close(descriptor);
        descriptor = -1;
    }

    /// Another process may have stored to the new file before it was locked here.
    [[nodiscard]] bool isEmpty() const {
        struct stat status {};
        return fstat(descriptor, &status) == 0 && status.st_size == 0;
    }

    /// False when the file was replaced while the lock was waited for.
    [[nodiscard]] bool isStillThePath() const {
        struct stat named {};
        if (::stat(file.c_str(), &named) != 0) return false;
        Stamp const ours = stamp();
        return named.st_dev == ours.device && named.st_ino == ours.inode;
    }

    std::string file;
    int descriptor = -1;
    bool created = false;
    bool kept = false;
};

Properties load(std::string const& file, Comments comments, Deadline& deadline) {
    Properties properties;
    retryWhileLocked(deadline, [&] {
        properties = std::make_unique<ZStanzaFileProperties>(file.c_str(),
                                                             comments == Comments::keep ? 1 : 0);
    });
    return properties;
}

}  // namespace

Deadline::Deadline(double seconds)
    : end(std::chrono::steady_clock::now() + std::chrono::milliseconds(static_cast<long>(
                                                 std::fmin(std::fmax(seconds, 0), 1e6) * 1000))) {}

bool Deadline::pause() {
    constexpr std::chrono::milliseconds longest{50};
    auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    if (left.count() <= 0) return false;
    std::this_thread::sleep_for(std::min(next, left));
    next = std::min(next * 2, longest);
    return true;
}

void retryWhileLocked(Deadline& deadline, std::function<void()> const& body) {
    for (;;) {
        try {
            body();
            return;
        } catch (ZPropertiesIOException& e) {
            if (!isLocked(e)) throw;
            if (!deadline.pause())
                throw Failure(Exit::inputOutput,
                              std::string(e.propFile()) + ": another process has locked it");
        }
    }
}

Properties openForReading(std::string const& file, Deadline& deadline) {
    return load(file, Comments::keep, deadline);
}

void editWith(std::string const& file, Missing missing, Deadline& deadline,
              std::function<void()> const& edit, std::function<void()> const& store) {
    EditedFile edited(file, missing, deadline);
    for (;;) {
        Stamp const before = edited.stamp();
        edit();
        if (edited.stamp() == before) {
            retryWhileLocked(deadline, store);
            edited.keep();
            return;
        }
        if (!deadline.pause())
            throw Failure(Exit::inputOutput, file + ": another program keeps rewriting it");
    }
}

void editFile(std::string const& file, Missing missing, Comments comments, Deadline& deadline,
              std::function<void(ZStanzaFileProperties&)> const& edit) {
    Properties properties;
    auto const loadAndEdit = [&] {
        properties = load(file, comments, deadline);
        edit(*properties);
    };
    editWith(file, missing, deadline, loadAndEdit, [&] { properties->store(nullptr); });
}

}  // namespace zprop
