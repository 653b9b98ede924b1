/// Opening a stanza file for a command, against other processes that use it at the same time.
#ifndef ZFC_TOOLS_ZPROP_OPEN_H
#define ZFC_TOOLS_ZPROP_OPEN_H

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "Z/ZStanzaFileProperties.h"

namespace zprop {

/// Until when a file that another process has locked is tried again.
class Deadline {
  public:
    /// `seconds` from now; negative and no number count as 0.
    explicit Deadline(double seconds);
    /// Sleeps a little longer than the last time (1 to 50 ms); false, at once, when time is up.
    [[nodiscard]] bool pause();

  private:
    std::chrono::steady_clock::time_point end;
    std::chrono::milliseconds next{1};
};

/// Runs `body`, again while it fails because another process has the file locked and time is left.
void retryWhileLocked(Deadline& deadline, std::function<void()> const& body);

using Properties = std::unique_ptr<ZStanzaFileProperties>;

/// Loads `file`; throws what the library throws.
[[nodiscard]] Properties openForReading(std::string const& file, Deadline& deadline);

enum class Comments { keep, drop };
enum class Missing { create, isAnError };

/// Runs `edit`, which loads and changes the file in memory, then `store`. Edits of several zprop
/// processes wait for one another, and `edit` runs anew when another program rewrote the file under
/// it, so that no change of either is lost. When one of the two throws, a file that was made for
/// them is removed again.
void editWith(std::string const& file, Missing missing, Deadline& deadline,
              std::function<void()> const& edit, std::function<void()> const& store);

/// Loads `file`, lets `edit` change it and stores it, as editWith() does. When `edit` throws,
/// nothing is written.
void editFile(std::string const& file, Missing missing, Comments comments, Deadline& deadline,
              std::function<void(ZStanzaFileProperties&)> const& edit);

}  // namespace zprop

#endif
