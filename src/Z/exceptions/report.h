/// Shared. Reports of what cannot, or must not only, be thrown, and of what code of the library's
/// users throws where it must not take a thread or a pool down.
#ifndef Z_EXCEPTIONS_REPORT_H
#define Z_EXCEPTIONS_REPORT_H

#include <cstdarg>
#include <exception>

#include "Z/ZException.h"
#include "Z/exceptions/messages.h"

/// Hands the message, with `rc` as its one insert, to the message service. Throws nothing: what the
/// service throws is dropped, and a thread that is being cancelled finishes its report first.
void zreportFailure(char const* source, int line, Message message, int rc) noexcept;

/// Hands the exception to the message service, as zreportFailure() does.
void zreportException(ZException& exception) noexcept;

/// Reports, as zreportFailure() does, an exception that is none of the library's.
void zreportUnknownException(char const* source, int line) noexcept;

/// Reports, as zreportFailure() does, what was wrong with the codeset layer's alias file, once.
void zreportAliasFault(char const* source, int line) noexcept;

/// Whether `body` returned. What it throws is reported, an exception that is none of the library's
/// as an unknown one of `source` and `line`. Cancellation and pthread_exit() unwind through it.
template <class Body>
bool zreturned(char const* source, int line, Body const& body) {
    try {
        body();
        return true;
    } catch (ZException& exception) {
        zreportException(exception);
    } catch (...) {
        if (std::current_exception() == nullptr) throw;  // unwinding is no exception of C++
        zreportUnknownException(source, line);
    }
    return false;
}

/// Catches the text of one exception that the calling thread prints, instead of its report.
class ZTextCatcher {
  public:
    explicit ZTextCatcher(ZException const& exception) noexcept;
    ~ZTextCatcher();
    ZTextCatcher(ZTextCatcher const&) = delete;
    ZTextCatcher& operator=(ZTextCatcher const&) = delete;

    [[nodiscard]] ZLCString const& getText() const { return text; }

    /// Whether the exception was to be caught, and is.
    [[nodiscard]] static bool caught(ZZException const& exception, va_list inserts);

  private:
    ZException const* wanted;
    ZLCString text;
    ZTextCatcher* outer;
};

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
