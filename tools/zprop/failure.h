/// How zprop fails: one exit code and a line for every reason.
#ifndef ZFC_TOOLS_ZPROP_FAILURE_H
#define ZFC_TOOLS_ZPROP_FAILURE_H

#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Z/ZException.h"

namespace zprop {

enum class Exit : int { done = 0, notThereOrInvalid = 1, wrongUsage = 2, inputOutput = 3 };

/// Ends a command; `what()` is the message, or the first of several, without the program's name.
class Failure : public std::runtime_error {
  public:
    Failure(Exit status, std::string const& message) : Failure(status, std::vector{message}) {}
    /// One message for each reason; at least one.
    Failure(Exit status, std::vector<std::string> messages)
        : std::runtime_error(messages.front()), code(status), lines(std::move(messages)) {}
    [[nodiscard]] Exit exitCode() const { return code; }
    [[nodiscard]] std::vector<std::string> const& messages() const { return lines; }
    /// The same with `text` in front of each message.
    [[nodiscard]] Failure with(std::string const& text) const;

  private:
    Exit code;
    std::vector<std::string> lines;
};

/// Throws that an operation on the file failed, for the reason that `errno` says.
[[noreturn]] void failIO(std::string const& file, char const* operation);

/// Tells each message on standard error, as it is shown on a terminal; the exit code.
Exit report(Failure const& failure);
/// Tells a warning, or what was done beside what was asked for.
void warn(std::string const& message);

/// The failure that an exception of the library stands for, with file, line and reason where the
/// exception knows them: all faults of a stanza file that is invalid, each in its line as an editor
/// counts.
[[nodiscard]] Failure failureOf(ZException& e);

/// The bytes of a file; empty when it cannot be read.
[[nodiscard]] std::string bytesOf(std::string const& file);

/// Why a companion file cannot be used.
struct CompanionTrouble {
    std::string configFile;  // that names it
    std::string file;        // the companion
    std::string reason;      // with its name
    bool isLost;             // it is missing, empty, damaged or too large, not just out of reach

    [[nodiscard]] Exit exitCode() const {
        return isLost ? Exit::notThereOrInvalid : Exit::inputOutput;
    }
};

/// Ends what needs the companion file.
class CompanionFailure : public Failure {
  public:
    explicit CompanionFailure(CompanionTrouble const& found)
        : Failure(found.exitCode(), found.configFile + ": " + found.reason), trouble(found) {}
    [[nodiscard]] CompanionTrouble const& cause() const { return trouble; }

  private:
    CompanionTrouble trouble;
};

/// What the exception of a load says of the companion file; nothing when it is about another one.
[[nodiscard]] std::optional<CompanionTrouble> troubleOf(ZException const& e);

}  // namespace zprop

#endif
