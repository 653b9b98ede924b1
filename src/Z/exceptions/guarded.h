/// Shared. Calls into code of the library's users that must not take a thread or a pool down.
#ifndef Z_EXCEPTIONS_GUARDED_H
#define Z_EXCEPTIONS_GUARDED_H

#include <exception>

#include "Z/ZException.h"
#include "Z/exceptions/report.h"

/// Whether `body` returned. What it throws is reported, an exception that is none of the library's
/// as message 19 of `source` and `line`. Cancellation and pthread_exit() unwind through it.
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

#endif
