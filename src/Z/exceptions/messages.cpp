#include "Z/exceptions/messages.h"

std::array<char const*, ZDefaultMessageService::NUM_MSGS> const ZDefaultMsgs = {
    nullptr,
    "Memory allocation failure.",
    "iconv_open failed for codepage %s to %s conversion. errno = %s.",
    "Unexpected error from pthread_mutex_init().  rc = %d.",
    "Unexpected error from pthread_mutex_destroy().  rc = %d.",
    "Unexpected error from pthread_mutex_lock().  rc = %d.",
    "Unexpected error from pthread_mutex_unlock().  rc = %d.",
    "Unexpected error from pthread_cond_init().  rc = %d.",
    "Unexpected error from pthread_cond_destroy().  rc = %d.",
    "Unexpected error from pthread_cond_wait().  rc = %d.",
    "Unexpected error from pthread_cond_signal().  rc = %d.",
    "This function is not supported on this platform.",
    "Unexpected error from Windows RegOpenKeyEx().  Open of registry key %s failed with error %s.",
    "Unexpected error from Windows RegQueryValueEx().  Read of value %s failed with error %s.",
    "Object is not cloneable.",
    "Unexpected error from pthread_attr_init().  rc = %d.",
    "Unexpected error from pthread_attr_setdetachstate().  rc = %d.",
    "Unexpected error from pthread_create().  rc = %d.",
    "Unexpected error from pthread_attr_destroy().  rc = %d.",
    "An unknown exception was caught.  No exception information available.",
    "Unexpected error from pthread_join().  rc = %d.",
    "Unexpected error from pthread_cond_timedwait().  rc = %d.",
    "A function or method was called with an invalid parameter.",
    nullptr,
    "Unexpected error from WSAStartup().  rc = %s.",
    "Unexpected error from gethostname().  rc = %s.",
    "Unexpected error from gethostnamebyname().  rc = %s.",
    "Unexpected error from pthread_cond_broadcast().  rc = %d.",
    "The configuration file %s is missing the required attribute %s in stanza %s.",
    "Unexpected error from pthread_key_create().  rc = %d.",
    "Unexpected error from pthread_setspecific().  rc = %d.",
    "The requested function is not implemented.",
    "An unexpected lock state was detected.  The current lock state is %s.",
    "An unexpected error was received when trying to obtain a process lock.  rc = %d.",
    "An unexpected error was received when trying to release a process lock.  rc = %d.",
    "Read failed for a process lock.  rc = %d.",
    "Write failed for a process lock.  rc = %d.",
    "Create failed for a process lock.  rc = %d and the lock file name is %s.",
    "Close failed for a process lock.  rc = %d and the lock file name is %s.",
    "The configuration file %s has an invalid value %s for key %s in stanza %s.",
    "The configuration file %s has an invalid numeric value %s for key %s in stanza %s.",
    "The configuration file %s has an invalid boolean value %s for key %s in stanza %s.",
    "The iterator for  configuration file %s is in an invalid state for the operation",
    "Access failed for configuration file %s.  The access function was %s and return code was %d",
    "The configuration file \"%s\" contains invalid data at line %d.\nData: \"%s\"",
    "The QCSDIR environment variable is not set.",
    "The qcs_mblen() function returned -1.",
    "Codeset handle create failed for codeset \"%s\".  QCSDIR is \"%s\"",
    "The operation is not supported.",
    "Local codeset %s string could not be converted to UTF-8.",
    "UTF-8 string could not be converted to the local codeset %s.",
    "Shared library load/unload error (%s) %d.  %s",
    "Shared library resolve error (%s:%s) %d.  %s",
    "Unexpected end of file encounted while reading %s.",
    "Internal error encountered while loading Java property file %s.",
};

namespace {

/// In the static block of thread storage: reached without the allocation that a library loaded late
/// would need for its first access, so that a report of exhausted memory still works.
[[gnu::tls_model("initial-exec")]] thread_local ZReportInserts const* currentInserts = nullptr;

}  // namespace

ZReportScope::ZReportScope(ZReportInserts const& inserts) noexcept : outer(currentInserts) {
    currentInserts = &inserts;
}

ZReportScope::~ZReportScope() { currentInserts = outer; }

ZReportInserts const* ZReportScope::find(ZZException const* exception) noexcept {
    if (currentInserts == nullptr || currentInserts->exception != exception) return nullptr;
    return currentInserts;
}
