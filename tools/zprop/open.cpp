#include "zprop/open.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <string_view>
#include <thread>
#include <utility>

#include "zprop/edits/backup.h"
#include "zprop/memory.h"
#include "zprop/reads/difference.h"
#include "zprop/reads/scan.h"

namespace zprop {
namespace {

/// A wait that the clock can count, 0 for less and for what is no number.
double shortened(double seconds) { return seconds > 0 ? std::min(seconds, 1e6) : 0; }

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

    explicit Stamp(std::string const& file) {
        struct stat status {};
        if (stat(file.c_str(), &status) != 0) failIO(file, "stat()");
        device = status.st_dev;
        inode = status.st_ino;
        size = status.st_size;
        modified = status.st_mtim;
    }
    bool operator==(Stamp const& other) const {
        return device == other.device && inode == other.inode && size == other.size &&
               modified.tv_sec == other.modified.tv_sec &&
               modified.tv_nsec == other.modified.tv_nsec;
    }
};

/// Runs `edit`, which loads and changes the file in memory, anew when somebody rewrote the file
/// meanwhile, then `store`. For what updateFile() refuses to read.
void editWith(std::string const& file, Deadline& deadline, std::function<void()> const& edit,
              std::function<void()> const& store) {
    for (;;) {
        Stamp const before(file);
        edit();
        if (Stamp(file) == before) return retryWhileLocked(deadline, store);
        if (!deadline.pause())
            throw Failure(Exit::inputOutput, file + ": another program keeps rewriting it");
    }
}

unsigned long companionLimit = 0;  // bytes; 0: the library's own

Properties emptyDocument(Comments comments) {
    auto properties = std::make_unique<Document>(comments);
    if (companionLimit != 0) properties->setAttributes(ZPCache::companionLimit, &companionLimit);
    return properties;
}

/// Loads the file, or of one whose companion cannot be used what it holds itself.
Properties loadWhatIsThere(std::string const& file, Comments comments, Deadline& deadline) {
    constexpr std::size_t timesItsSize = 4;
    takeMemoryFor(file, timesItsSize);
    Properties properties;
    retryWhileLocked(deadline, [&] {
        properties = emptyDocument(comments);
        try {
            properties->load(file.c_str());
        } catch (ZException& e) {
            properties->trouble = troubleOf(e);
            if (!properties->trouble) throw;
        }
    });
    return properties;
}

Properties load(std::string const& file, Comments comments, Deadline& deadline) {
    Properties properties = loadWhatIsThere(file, comments, deadline);
    if (properties->trouble) throw CompanionFailure(*properties->trouble);
    return properties;
}

}  // namespace

Deadline::Deadline(double seconds)
    : end(std::chrono::steady_clock::now() +
          std::chrono::milliseconds(static_cast<long>(shortened(seconds) * 1000))) {}

bool Deadline::pause() {
    constexpr std::chrono::milliseconds longest{50};
    auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    if (left.count() <= 0) return false;
    std::this_thread::sleep_for(std::min(next, left));
    next = std::min(next * 2, longest);
    return true;
}

unsigned int Deadline::left() const {
    auto const milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    return milliseconds.count() <= 0 ? 0 : static_cast<unsigned int>(milliseconds.count());
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

unsigned long sizeOf(std::string const& text) {
    unsigned long size = 0;
    std::size_t digits = 0;
    for (; digits < text.size() && text[digits] >= '0' && text[digits] <= '9'; ++digits) {
        if (size > (ULONG_MAX - 9) / 10) return 0;
        size = size * 10 + static_cast<unsigned long>(text[digits] - '0');
    }
    std::string const unit = text.substr(digits);
    std::size_t const shift = unit.empty()  ? 0
                              : unit == "K" ? 10
                              : unit == "M" ? 20
                              : unit == "G" ? 30
                                            : SIZE_MAX;
    return shift == SIZE_MAX || size > ULONG_MAX >> shift ? 0 : size << shift;
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

/// Whether the companion file belongs to another one, as that of a copied file does: a store makes
/// one of its own then.
bool isOfAnother(std::string const& companion, std::string const& file) {
    constexpr std::string_view ending = ".obf";
    bool const tellsOwner =
        companion.size() > ending.size() &&
        companion.compare(companion.size() - ending.size(), ending.size(), ending) == 0;
    if (!tellsOwner) return false;
    std::string const owner = companion.substr(0, companion.size() - ending.size());
    struct stat theirs {};
    struct stat ours {};
    return stat(owner.c_str(), &theirs) == 0 && stat(file.c_str(), &ours) == 0 &&
           (theirs.st_dev != ours.st_dev || theirs.st_ino != ours.st_ino);
}

/// Tells what a store would do to the companion file, which no difference shows.
void tellOfCompanion(std::string const& file, std::string const& companion, bool changes) {
    if (isOfAnother(companion, file))
        warn(file + ": a companion file of its own would be made, and named in this one, as " +
             companion + " belongs to another file");
    else if (changes)
        warn(file + (companion.empty() ? ": a companion file would be made, and named in this one"
                                       : ": obfuscated values would change in its companion file"));
}

/// Lets `edit` change what was loaded, and prints what a store would change.
void tryEdit(EditTarget const& target, std::function<Properties()> const& loadIt,
             std::function<void(Document&)> const& edit) {
    bool const isNew = isToBeMade(target);
    Properties const properties = isNew ? emptyDocument(target.comments) : loadIt();
    std::string const before = bytesOf(target.file);
    std::string const secrets = properties->secrets();
    edit(*properties);
    requireNothingLost(target, before, *properties);
    std::string const after = properties->text();
    std::cout << difference(isNew ? "/dev/null" : target.file, target.file, before, after);
    bool const areOthers = properties->secrets() != secrets;
    if (areOthers || after != before)
        tellOfCompanion(target.file, properties->companion(), areOthers);
}

/// Makes the backup that is asked for when the edit changes anything.
void editWithBackup(EditTarget const& target, Document& properties,
                    std::function<void(Document&)> const& edit) {
    std::string const before = bytesOf(target.file);
    std::string const secrets = properties.secrets();
    std::string const companion = properties.companion();
    edit(properties);
    requireNothingLost(target, before, properties);
    if (!target.backup) return;
    if (properties.text() == before && properties.secrets() == secrets) return;
    makeBackup(target.file, *target.backup, target.file);
    if (!companion.empty()) makeBackup(companion, *target.backup, target.file);
}

/// Whether the companion file is whole, and no more than larger than what is expanded.
bool isOnlyTooLarge(std::string const& file, Deadline& deadline) {
    unsigned long const before = std::exchange(companionLimit, ULONG_MAX);
    Properties const properties = loadWhatIsThere(file, Comments::keep, deadline);
    companionLimit = before;
    return !properties->trouble;
}

}  // namespace

void requireThere(EditTarget const& target) {
    if (target.missing == Missing::isAnError && access(target.file.c_str(), F_OK) != 0)
        failIO(target.file, "open()");
}

bool isToBeMade(EditTarget const& target) {
    return target.missing == Missing::create && access(target.file.c_str(), F_OK) != 0 &&
           errno == ENOENT;
}

void editFile(EditTarget const& target, Deadline& deadline,
              std::function<void(Document&)> const& edit) {
    requireThere(target);
    constexpr std::size_t timesItsSize = 10;  // read, copied, edited and written
    takeMemoryFor(target.file, timesItsSize);
    auto const loadIt = [&] { return load(target.file, target.comments, deadline); };
    if (target.dryRun) return tryEdit(target, loadIt, edit);
    auto const update = [&] {
        Properties const properties = emptyDocument(target.comments);
        properties->updateFile(
            [&](ZStanzaFileProperties&) { editWithBackup(target, *properties, edit); },
            deadline.left(), target.file.c_str());
    };
    try {
        retryWhileLocked(deadline, update);
    } catch (ZException const& e) {
        auto const trouble = troubleOf(e);
        if (!trouble) throw;
        throw CompanionFailure(*trouble);
    }
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
    auto const edit = [&](Document& properties) {
        properties.deleteKey(companionStanza, companionKey);
        properties.forgetCompanion();
    };
    if (target.dryRun) {
        tryEdit(target, loadIt, edit);
    } else {
        Properties whole;
        auto const loadAndEdit = [&] { editWithBackup(target, *(whole = loadIt()), edit); };
        editWith(target.file, deadline, loadAndEdit, [&] { whole->store(target.file.c_str()); });
    }
    warn(std::string(found.what()));
    warn(
        target.file + (target.dryRun ? ": would not name " : ": does not name ") +
        found.cause().file +
        " any more, so that all its obfuscated values are unset; the companion file is left alone");
}

}  // namespace zprop
