#include "zprop/open.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstring>
#include <iostream>
#include <thread>
#include <utility>

#include "zprop/backup.h"
#include "zprop/difference.h"
#include "zprop/scan.h"

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

unsigned long companionLimit = 0;  // bytes; 0: the library's own

Properties emptyDocument(Comments comments) {
    // The bit says that the data points to the most bytes that a companion expands to.
    constexpr unsigned long limitIsGiven = 8;
    auto properties = std::make_unique<Document>(comments);
    if (companionLimit != 0) properties->setAttributes(limitIsGiven, &companionLimit);
    return properties;
}

/// Loads the file, or of one whose companion cannot be used what it holds itself.
Properties loadWhatIsThere(std::string const& file, Comments comments, Deadline& deadline) {
    Properties properties;
    retryWhileLocked(deadline, [&] {
        properties = emptyDocument(comments);
        try {
            properties->load(file.c_str());
        } catch (ZException& e) {
            if (!isAboutCompanion(e)) throw;
            properties->trouble = troubleOf(e);
        }
    });
    return properties;
}

Properties load(std::string const& file, Comments comments, Deadline& deadline) {
    Properties properties = loadWhatIsThere(file, comments, deadline);
    if (properties->trouble) throw CompanionFailure(file, *properties->trouble);
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

void setCompanionLimit(unsigned long bytes) { companionLimit = bytes; }

Properties openForReading(std::string const& file, Deadline& deadline) {
    return load(file, Comments::keep, deadline);
}

Properties openForAnswers(std::string const& file, Deadline& deadline) {
    Properties properties = loadWhatIsThere(file, Comments::keep, deadline);
    if (properties->trouble) warn("warning: " + file + ": " + properties->trouble->reason);
    return properties;
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

namespace {

constexpr char companionStanza[] = "configuration-database";
constexpr char companionKey[] = "file";

/// Refuses to lose text that the format does not keep, unless its stanza is gone anyway.
void requireNothingLost(EditTarget const& target, std::string const& before,
                        Document const& properties) {
    std::vector<std::string> messages;
    if (!target.force) {
        for (Finding const& loss : scan(before).losses) {
            if (loss.stanza.empty() || properties.exists(loss.stanza.c_str()))
                messages.push_back(target.file + ":" + std::to_string(loss.line) + ": " +
                                   loss.reason + "; nothing is changed without --force");
        }
    }
    if (!messages.empty()) throw Failure(Exit::notThereOrInvalid, messages);
}

/// Lets `edit` change what was loaded, and prints what a store would change.
void tryEdit(EditTarget const& target, std::function<Properties()> const& loadIt,
             std::function<void(Document&)> const& edit) {
    bool const isNew = target.missing == Missing::create &&
                       access(target.file.c_str(), F_OK) != 0 && errno == ENOENT;
    Properties const properties = isNew ? emptyDocument(target.comments) : loadIt();
    std::string const before = bytesOf(target.file);
    std::string const secrets = properties->secrets();
    edit(*properties);
    requireNothingLost(target, before, *properties);
    std::cout << difference(isNew ? "/dev/null" : target.file, target.file, before,
                            properties->text());
    if (properties->secrets() == secrets) return;
    bool const isNamed = !properties->companion().empty();
    warn(target.file + (isNamed ? ": obfuscated values would change in its companion file"
                                : ": a companion file would be made, and named in this one"));
}

/// Loads, edits and stores the file, or only tries.
void transact(EditTarget const& target, Deadline& deadline,
              std::function<Properties()> const& loadIt,
              std::function<void(Document&)> const& edit) {
    if (target.file == "-")
        throw Failure(
            Exit::wrongUsage,
            "\"-\" is standard input, which cannot be edited; a file of that name is ./-");
    if (target.dryRun) return tryEdit(target, loadIt, edit);
    Properties properties;
    auto const loadAndEdit = [&] {
        properties = loadIt();
        std::string const before = bytesOf(target.file);
        std::string const secrets = properties->secrets();
        std::string const companion = properties->companion();
        edit(*properties);
        requireNothingLost(target, before, *properties);
        bool const changes = properties->text() != before || properties->secrets() != secrets;
        if (!target.backup || !changes) return;
        makeBackup(target.file, *target.backup);
        if (!companion.empty()) makeBackup(companion, *target.backup);
    };
    editWith(target.file, target.missing, deadline, loadAndEdit,
             [&] { properties->store(target.file.c_str()); });
}

/// Whether the companion file is whole, and no more than larger than what is expanded.
bool isOnlyTooLarge(std::string const& file, Deadline& deadline) {
    unsigned long const before = std::exchange(companionLimit, ULONG_MAX);
    Properties const properties = loadWhatIsThere(file, Comments::keep, deadline);
    companionLimit = before;
    return !properties->trouble;
}

}  // namespace

void editFile(EditTarget const& target, Deadline& deadline,
              std::function<void(Document&)> const& edit) {
    auto const loadIt = [&] { return load(target.file, target.comments, deadline); };
    transact(target, deadline, loadIt, edit);
}

void letGoOfCompanion(EditTarget const& target, std::string const& stanza, std::string const& key,
                      CompanionFailure const& found, Deadline& deadline) {
    if (!found.cause().isLost || isOnlyTooLarge(target.file, deadline)) throw found;
    auto const loadIt = [&] {
        Properties const broken = loadWhatIsThere(target.file, Comments::keep, deadline);
        if (!broken->trouble || broken->exists(stanza.c_str(), key.c_str())) throw found;
        // Another object, because one that could not read its companion stores nothing.
        Properties whole = emptyDocument(Comments::keep);
        whole->setText(broken->text());
        return whole;
    };
    transact(target, deadline, loadIt, [&](Document& properties) {
        properties.deleteKey(companionStanza, companionKey);
        properties.forgetCompanion();
    });
    warn(std::string(found.what()));
    warn(
        target.file + (target.dryRun ? ": would not name " : ": does not name ") +
        found.cause().file +
        " any more, so that all its obfuscated values are unset; the companion file is left alone");
}

}  // namespace zprop
