/// How zprop fails: one exit code and one line for every reason.
#ifndef ZFC_TOOLS_ZPROP_FAILURE_H
#define ZFC_TOOLS_ZPROP_FAILURE_H

#include <stdexcept>
#include <string>

#include "Z/ZException.h"

namespace zprop {

enum class Exit : int { done = 0, notThereOrInvalid = 1, wrongUsage = 2, inputOutput = 3 };

/// Ends a command; `what()` is the message, without the program's name.
class Failure : public std::runtime_error {
  public:
    Failure(Exit status, std::string const& message) : std::runtime_error(message), code(status) {}
    [[nodiscard]] Exit exitCode() const { return code; }

  private:
    Exit code;
};

/// The failure that an exception of the library stands for, with file, line and reason where the
/// exception knows them.
[[nodiscard]] Failure failureOf(ZException& e);

/// Why a line of a stanza file is invalid, and the column of the fault, counted from 0.
struct LineFault {
    std::string reason;
    std::size_t column;
};

/// Tells the fault of the line that an invalid-data error shows.
[[nodiscard]] LineFault faultOf(ZPropertiesInvalidDataException const& e);

}  // namespace zprop

#endif
