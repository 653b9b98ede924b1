/// Shared. Reports of failures that destructors and conditions of the lock family cannot, or must
/// not only, throw.
#ifndef Z_EXCEPTIONS_REPORT_H
#define Z_EXCEPTIONS_REPORT_H

class ZException;

/// Hands message `number` with the one insert `rc` to the message service. Throws nothing: what the
/// service throws is dropped, and a thread that is being cancelled finishes its report first.
void zreportFailure(char const* source, int line, int number, int rc) noexcept;

/// Hands the exception to the message service, as zreportFailure() does.
void zreportException(ZException& exception) noexcept;

/// Reports, as zreportFailure() does, an exception that is none of the library's (message 19).
void zreportUnknownException(char const* source, int line) noexcept;

#endif
