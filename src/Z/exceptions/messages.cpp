#include "Z/exceptions/messages.h"

#include <cstddef>
#include <iterator>

namespace {

struct Row {
    Message message;
    char const* text;  // null: none
};

constexpr Row rows[] = {
    {Message::none, nullptr},
    {Message::outOfMemory, "Memory allocation failure."},
    {Message::converterOpenFailed,
     "iconv_open failed for codepage %s to %s conversion. errno = %s."},
    {Message::mutexInitFailed, "Unexpected error from pthread_mutex_init().  rc = %d."},
    {Message::mutexDestroyFailed, "Unexpected error from pthread_mutex_destroy().  rc = %d."},
    {Message::mutexLockFailed, "Unexpected error from pthread_mutex_lock().  rc = %d."},
    {Message::mutexUnlockFailed, "Unexpected error from pthread_mutex_unlock().  rc = %d."},
    {Message::conditionInitFailed, "Unexpected error from pthread_cond_init().  rc = %d."},
    {Message::conditionDestroyFailed, "Unexpected error from pthread_cond_destroy().  rc = %d."},
    {Message::conditionWaitFailed, "Unexpected error from pthread_cond_wait().  rc = %d."},
    {Message::conditionSignalFailed, "Unexpected error from pthread_cond_signal().  rc = %d."},
    {Message::wrongPlatform, "This function is not supported on this platform."},
    {Message::registryOpenFailed,
     "Unexpected error from Windows RegOpenKeyEx().  Open of registry key %s failed with error "
     "%s."},
    {Message::registryReadFailed,
     "Unexpected error from Windows RegQueryValueEx().  Read of value %s failed with error %s."},
    {Message::notCloneable, "Object is not cloneable."},
    {Message::attributesInitFailed, "Unexpected error from pthread_attr_init().  rc = %d."},
    {Message::detachStateFailed, "Unexpected error from pthread_attr_setdetachstate().  rc = %d."},
    {Message::threadCreateFailed, "Unexpected error from pthread_create().  rc = %d."},
    {Message::attributesDestroyFailed, "Unexpected error from pthread_attr_destroy().  rc = %d."},
    {Message::unknownException,
     "An unknown exception was caught.  No exception information available."},
    {Message::threadJoinFailed, "Unexpected error from pthread_join().  rc = %d."},
    {Message::conditionTimedWaitFailed,
     "Unexpected error from pthread_cond_timedwait().  rc = %d."},
    {Message::invalidParameter, "A function or method was called with an invalid parameter."},
    {Message::unassigned, nullptr},
    {Message::socketsStartFailed, "Unexpected error from WSAStartup().  rc = %s."},
    {Message::hostNameFailed, "Unexpected error from gethostname().  rc = %s."},
    {Message::hostLookUpFailed, "Unexpected error from gethostnamebyname().  rc = %s."},
    {Message::conditionBroadcastFailed,
     "Unexpected error from pthread_cond_broadcast().  rc = %d."},
    {Message::missingProperty,
     "The configuration file %s is missing the required attribute %s in stanza %s."},
    {Message::threadKeyCreateFailed, "Unexpected error from pthread_key_create().  rc = %d."},
    {Message::threadValueFailed, "Unexpected error from pthread_setspecific().  rc = %d."},
    {Message::notImplemented, "The requested function is not implemented."},
    {Message::unexpectedLockState,
     "An unexpected lock state was detected.  The current lock state is %s."},
    {Message::processLockFailed,
     "An unexpected error was received when trying to obtain a process lock.  rc = %d."},
    {Message::processUnlockFailed,
     "An unexpected error was received when trying to release a process lock.  rc = %d."},
    {Message::lockFileReadFailed, "Read failed for a process lock.  rc = %d."},
    {Message::lockFileWriteFailed, "Write failed for a process lock.  rc = %d."},
    {Message::lockFileCreateFailed,
     "Create failed for a process lock.  rc = %d and the lock file name is %s."},
    {Message::lockFileCloseFailed,
     "Close failed for a process lock.  rc = %d and the lock file name is %s."},
    {Message::invalidValue,
     "The configuration file %s has an invalid value %s for key %s in stanza %s."},
    {Message::invalidNumber,
     "The configuration file %s has an invalid numeric value %s for key %s in stanza %s."},
    {Message::invalidBoolean,
     "The configuration file %s has an invalid boolean value %s for key %s in stanza %s."},
    {Message::invalidIterator,
     "The iterator for  configuration file %s is in an invalid state for the operation"},
    {Message::fileAccessFailed,
     "Access failed for configuration file %s.  The access function was %s and return code was %d"},
    {Message::invalidData,
     "The configuration file \"%s\" contains invalid data at line %d.\nData: \"%s\""},
    {Message::noCodesetDirectory, "The QCSDIR environment variable is not set."},
    {Message::malformedCharacter, "The qcs_mblen() function returned -1."},
    {Message::codesetHandleFailed,
     "Codeset handle create failed for codeset \"%s\".  QCSDIR is \"%s\""},
    {Message::unsupported, "The operation is not supported."},
    {Message::toUTF8Failed, "Local codeset %s string could not be converted to UTF-8."},
    {Message::fromUTF8Failed, "UTF-8 string could not be converted to the local codeset %s."},
    {Message::libraryLoadFailed, "Shared library load/unload error (%s) %d.  %s"},
    {Message::symbolResolveFailed, "Shared library resolve error (%s:%s) %d.  %s"},
    {Message::unexpectedEndOfFile, "Unexpected end of file encounted while reading %s."},
    {Message::javaParserFailed, "Internal error encountered while loading Java property file %s."},
    {Message::companionAccessFailed,
     "The companion file %s of the configuration file %s cannot be read: %s (code %d)."},
    {Message::companionDamaged,
     "The companion file %s of the configuration file %s is damaged: %s."},
    {Message::recoveryCopyIgnored,
     "The recovery copy %s of the configuration file %s is ignored: %s."},
    {Message::recoveryCopySetAside,
     "The recovery copy %s of the configuration file %s was not used: %s."},
    {Message::unexpectedValue,
     "The configuration file %s has the value %s for key %s in stanza %s, where %s is expected."},
};

constexpr bool areInOrder() {
    for (std::size_t i = 0; i < std::size(rows); ++i)
        if (numberOf(rows[i].message) != static_cast<int>(i)) return false;
    return true;
}
static_assert(areInOrder(), "a row stands at its number");
static_assert(std::size(rows) == ZDefaultMessageService::NUM_MSGS, "every number has a row");

}  // namespace

char const* defaultText(unsigned long number) noexcept {
    return number < std::size(rows) ? rows[number].text : nullptr;
}
