/// The default message texts, and what the default service knows of the inserts of a report.
#ifndef Z_EXCEPTIONS_MESSAGES_H
#define Z_EXCEPTIONS_MESSAGES_H

#include <array>

#include "Z/ZException.h"
#include "Z/ZMessage.h"

/// Indexed by message number; the placeholders are "%s" and "%d" alone. Null where there is no
/// text.
extern std::array<char const*, ZDefaultMessageService::NUM_MSGS> const ZDefaultMsgs;

/// The kinds of the inserts that the calling thread is handing to the message service.
struct ZReportInserts {
    ZZException const* exception;  // whose inserts they are
    ZZException::InsertKind const* kinds;
    int count;
};

/// Announces `inserts` to the default service for the scope's life; scopes of a thread nest.
class ZReportScope {
  public:
    explicit ZReportScope(ZReportInserts const& inserts) noexcept;
    ~ZReportScope();
    ZReportScope(ZReportScope const&) = delete;
    ZReportScope& operator=(ZReportScope const&) = delete;

    /// The inserts announced for `exception`; null when it is printed without an announcement.
    [[nodiscard]] static ZReportInserts const* find(ZZException const* exception) noexcept;

  private:
    ZReportInserts const* outer;
};

#endif
