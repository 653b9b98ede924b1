/// Shared. The messages of the library: a name for every number, and the text that goes with it.
///
/// A new message is one line in the enumeration, one row in the table of messages.cpp, and one more
/// in ZDefaultMessageService::NUM_MSGS, which every report shows and the tests of reports expect.
#ifndef Z_EXCEPTIONS_MESSAGES_H
#define Z_EXCEPTIONS_MESSAGES_H

#include "Z/ZMessage.h"

/// In the order of their numbers, which users know and programs compare: never sorted, never
/// reused.
enum class Message : int {
    none,
    outOfMemory,
    converterOpenFailed,
    mutexInitFailed,
    mutexDestroyFailed,
    mutexLockFailed,
    mutexUnlockFailed,
    conditionInitFailed,
    conditionDestroyFailed,
    conditionWaitFailed,
    conditionSignalFailed,
    wrongPlatform,
    registryOpenFailed,
    registryReadFailed,
    notCloneable,
    attributesInitFailed,
    detachStateFailed,
    threadCreateFailed,
    attributesDestroyFailed,
    unknownException,
    threadJoinFailed,
    conditionTimedWaitFailed,
    invalidParameter,
    unassigned,
    socketsStartFailed,
    hostNameFailed,
    hostLookUpFailed,
    conditionBroadcastFailed,
    missingProperty,
    threadKeyCreateFailed,
    threadValueFailed,
    notImplemented,
    unexpectedLockState,
    processLockFailed,
    processUnlockFailed,
    lockFileReadFailed,
    lockFileWriteFailed,
    lockFileCreateFailed,
    lockFileCloseFailed,
    invalidValue,
    invalidNumber,
    invalidBoolean,
    invalidIterator,
    fileAccessFailed,
    invalidData,
    noCodesetDirectory,
    malformedCharacter,
    codesetHandleFailed,
    unsupported,
    toUTF8Failed,
    fromUTF8Failed,
    libraryLoadFailed,
    symbolResolveFailed,
    unexpectedEndOfFile,
    javaParserFailed,
    companionAccessFailed,
    companionDamaged,
    recoveryCopyIgnored,
    recoveryCopySetAside,
    unexpectedValue,
};

/// What exceptions and reports carry.
constexpr int numberOf(Message message) { return static_cast<int>(message); }

/// The default text, whose placeholders are "%s" and "%d" alone. Null for a number without one.
[[nodiscard]] char const* defaultText(unsigned long number) noexcept;

#endif
