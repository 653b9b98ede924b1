/// Opening a stanza file for a command, against other processes that use it at the same time.
#ifndef ZFC_TOOLS_ZPROP_OPEN_H
#define ZFC_TOOLS_ZPROP_OPEN_H

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Z/ZStanzaFileProperties.h"
#include "zprop/failure.h"

namespace zprop {

/// Until when a file that another process has locked is tried again.
class Deadline {
  public:
    /// `seconds` from now; negative and no number count as 0.
    explicit Deadline(double seconds);
    /// Sleeps a little longer than the last time (1 to 50 ms); false, at once, when time is up.
    [[nodiscard]] bool pause();
    /// Milliseconds until then.
    [[nodiscard]] unsigned int left() const;

  private:
    std::chrono::steady_clock::time_point end;
    std::chrono::milliseconds next{1};
};

/// Runs `body`, again while it fails because another process has the file locked and time is left.
void retryWhileLocked(Deadline& deadline, std::function<void()> const& body);

enum class Comments { keep, drop };
enum class Missing { create, isAnError };

/// A stanza file in memory, with what the tool asks of it beside what the library answers.
class Document : public ZStanzaFileProperties {
  public:
    explicit Document(Comments comments);

    /// The text that a store would write, but for the line that names a new companion file.
    [[nodiscard]] std::string text();
    /// Takes the stanzas, keys, plain values and comments of `text` for those here; the obfuscated
    /// values stay. Raises what the reader of such a text does.
    void setText(std::string const& text);
    /// The obfuscated values as the companion file holds them; empty without any.
    [[nodiscard]] std::string secrets();
    /// The companion file that the values name; empty when they name none.
    [[nodiscard]] std::string companion();
    /// Names no companion file any more; there are no obfuscated values here.
    void forgetCompanion();
    /// A store that follows writes the file, even when no edit changed anything.
    void touch();

    /// Set when the companion file could not be used: the plain values alone are here then, and a
    /// store is refused.
    std::optional<CompanionTrouble> trouble;
};

using Properties = std::unique_ptr<Document>;

/// Digits, and K, M or G for the powers of 1024; 0: it is no size, or none that fits.
[[nodiscard]] unsigned long sizeOf(std::string const& text);
/// The most bytes that a companion file may expand to, in all files opened from now on.
void setCompanionLimit(unsigned long bytes);

/// Loads `file`; throws what the library throws, and CompanionFailure for its companion.
[[nodiscard]] Properties openForReading(std::string const& file, Deadline& deadline);
/// The same, but plain values are to be had without the companion file: it is said on standard
/// error that it cannot be used, and why.
[[nodiscard]] Properties openForAnswers(std::string const& file, Deadline& deadline);

/// What is edited, and how.
struct EditTarget {
    std::string file;
    Missing missing = Missing::isAnError;
    Comments comments = Comments::keep;
    bool dryRun = false;                // print the difference, store nothing
    bool force = false;                 // what the format does not keep may get lost
    std::optional<std::string> backup;  // ending of the copy that is made before
};

/// Loads the file, lets `edit` change it and stores it, with the file locked all the time, so that
/// no change by anybody who takes the lock, or puts a new file in place, is lost; `edit` may run
/// more than once. When it throws, nothing is written. Refused as Failure: a store that would lose
/// text; as CompanionFailure: a companion file that cannot be used.
void editFile(EditTarget const& target, Deadline& deadline,
              std::function<void(Document&)> const& edit);

/// Throws Failure for a file that is missing and not to be made.
void requireThere(EditTarget const& target);
/// Whether the edit makes the file.
[[nodiscard]] bool isToBeMade(EditTarget const& target);

/// Takes the line that names the companion out of a file whose companion is lost, provided that the
/// key is none of its plain ones; else passes `found` on. The companion stays where it is.
void letGoOfCompanion(EditTarget const& target, std::string const& stanza, std::string const& key,
                      CompanionFailure const& found, Deadline& deadline);

}  // namespace zprop

#endif
