// Sizes and places of fields on 32-bit x86, where they are part of the binary interface. There is
// nothing to run: the assertions hold when this file compiles with -m32 -fno-access-control.
#include <cstddef>

#include "Z/ZBuffer.h"
#include "Z/ZFileLock.h"
#include "Z/ZFileMap.h"
#include "Z/ZJavaProperties.h"
#include "Z/ZJavaPropertiesFile.h"
#include "Z/ZLCConstString.h"
#include "Z/ZMessage.h"
#include "Z/ZSharedLibrary.h"
#include "Z/ZSqueeze.h"
#include "Z/ZStringIterator.h"
#include "Z/ZStringTokenizer.h"
#include "Z/ZThread.h"
#include "Z/ZUTF8ConstString.h"
#include "Z/c_interface/handles.h"
#include "Z/zsnprintf.h"

static_assert(sizeof(void*) == 4, "layouts are fixed for 32-bit x86 alone");

// Classes with virtual functions have no standard layout; this compiler places their fields anyway.
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

template <std::size_t size, class... Types>
constexpr bool haveSize = ((sizeof(Types) == size) && ...);

// Macros because offsetof takes names.
#define AT(field, offset) (offsetof(T, field) == (offset))
#define FIELDS(type, fields)                                        \
    namespace fields_of_##type {                                    \
        using T = type;                                             \
        static_assert(fields, "a field of " #type " is misplaced"); \
    }
#define LAYOUT(type, size, fields) \
    FIELDS(type, fields)           \
    static_assert(haveSize<size, type>, #type " has another size")

constexpr std::size_t text = sizeof(ZLCString);

static_assert(haveSize<4, ZObject, ZMessageService>);
static_assert(haveSize<20, ZZException, ZOutOfMemoryException, ZInvalidPlatformException,
                       ZNotClonableException, ZInvalidParameterException, ZQCSMBLenException,
                       ZNoQCSEnvironmentException, ZUnsupportedException>);
static_assert(haveSize<24, ZThreadException, ZConditionException, ZResourceException,
                       ZCreateResourceException, ZLockResourceException, ZUnlockResourceException,
                       ZReadResourceException, ZWriteResourceException>);
static_assert(haveSize<24 + text, ZOpenResourceException, ZCloseResourceException,
                       ZInvalidResourceStateException>);
static_assert(haveSize<20 + text, ZAbstractNotImplementedException, ZPropertiesException,
                       ZPropertiesIteratorException, ZToUTF8Exception, ZFromUTF8Exception,
                       ZUnexpectedEndOfFile, ZJavaPropertyParseException>);
static_assert(haveSize<20 + 3 * text, ZConverterException, ZPropertiesMissingPropertyException>);
static_assert(haveSize<20 + 4 * text, ZPropertiesInvalidValueException,
                       ZPropertiesInvalidNumValueException, ZPropertiesInvalidBoolValueException>);
static_assert(haveSize<20 + 2 * text + 4, ZPropertiesIOException, ZPropertiesInvalidDataException,
                       ZSharedLibraryException>);
static_assert(haveSize<20 + 4 * text + 4, ZPropertiesCompanionDataException>);
static_assert(haveSize<20 + 4 * text + 8, ZPropertiesCompanionIOException>);
static_assert(haveSize<20 + 3 * text, ZPropertiesRecoveryException>);
static_assert(haveSize<20 + 2 * text, ZCodesetException>);
static_assert(
    haveSize<20 + 3 * text + 4, ZSharedLibraryLoadException, ZSharedLibraryResolveException>);
static_assert(haveSize<8, ZDefaultMessageService, ZResourceLock, Voyeur, ZStackReadWriteLock,
                       ZStackWriteLock>);
static_assert(haveSize<text, ZLCString, ZUTF8String>);
static_assert(haveSize<12, ZLCConstString, ZUTF8ConstString>);
static_assert(haveSize<28, ZArrayMap, ZFormatSpec>);
static_assert(haveSize<280, ZStubProcessReadWriteLock>);
static_assert(haveSize<16, ZFormatArg>);
static_assert(haveSize<4 + 4 + 4 + text + text, ZPropertyChanged>);

LAYOUT(ZException, 20, AT(code, 4) && AT(name, 8) && AT(file, 12) && AT(line, 16));
LAYOUT(ZAbstractMutableString, 112,
       AT(chars, 4) && AT(length, 8) && AT(capacity, 12) && AT(inlineBuffer, 16));
LAYOUT(ZAbstractConstString, 12, AT(chars, 4) && AT(cachedLength, 8));
LAYOUT(ZStringIterator, 24, AT(position, 8) && AT(source, 12) && AT(mbMax, 20));
LAYOUT(ZStringTokenizer, 28,
       AT(position, 8) && AT(source, 12) && AT(delimiters, 20) && AT(mbMax, 24));
LAYOUT(ZArray, 20, AT(data, 8) && AT(ownsMembers_, 12) && AT(length, 16));
LAYOUT(ZArrayList, 24, AT(capacity_, 8) && AT(data, 12) && AT(count, 16) && AT(ownsMembers_, 20));
LAYOUT(ZListIterator, 16, AT(list, 8) && AT(position, 12));
LAYOUT(ZHashMap, 32, AT(buckets, 8) && AT(ownsMembers, 28));
LAYOUT(ZKeyEntry, 20, AT(key, 4) && AT(value, 8) && AT(copy, 12) && AT(hashValue, 16));
LAYOUT(ZHashKeyMap, 44, AT(copy, 40));
LAYOUT(ZBuffer, 16, AT(length, 8) && AT(buffer, 12));
LAYOUT(ZConstBuffer, 16, AT(length, 8) && AT(buffer, 12));
LAYOUT(ZSqueeze, 16, AT(source, 0) && AT(sourceLength, 4) && AT(level, 8) && AT(flag, 12));
LAYOUT(ZLock, 20, AT(mutex, 8) && AT(owner, 12) && AT(count, 16));
LAYOUT(ZCondition, 24, AT(ownsLock, 16) && AT(cond, 20));
LAYOUT(ZBooleanCondition, 28, AT(condition, 24));
LAYOUT(ZAbstractObservable, 48, AT(observers, 4) && AT(observersLock, 28));
LAYOUT(ZReadWriteLock, 96,
       AT(readerCount, 56) && AT(state, 60) && AT(owner, 64) && AT(waiters, 68) &&
           AT(condition, 72));
LAYOUT(ZThread, 20, AT(threadId, 4) && AT(detached, 8) && AT(autoDelete, 12) && AT(pool, 16));
LAYOUT(ZSleeperThread, 84,
       AT(exitRequested, 20) && AT(workPending, 24) && AT(started, 28) && AT(interval, 32) &&
           AT(startCondition, 36) && AT(wakeCondition, 60));
LAYOUT(ZThreadPool, 60,
       AT(idleThreads, 4) && AT(activeCount, 36) && AT(mutex, 40) && AT(cond, 44) &&
           AT(maxThreads, 48) && AT(maxIdle, 52) && AT(idleCount, 56));
LAYOUT(ZSequenceUpdate, 12, AT(sequence, 4) && AT(lastSequence, 8));
LAYOUT(ZAbstractProcessReadWriteLock, 280,
       AT(lockState, 56) && AT(lockName, 60) && AT(sequence, 172) && AT(lastSequence, 176) &&
           AT(update, 180) && AT(rwLock, 184));
LAYOUT(ZAbstractProcessReadWriteFileLock, 524,
       AT(lockDirName, 280) && AT(lockFileName, 392) && AT(fileLock, 504));
LAYOUT(ZUnixProcessReadWriteFileLock, 528, AT(fileHandle, 524));
LAYOUT(ZStubProcessReadWriteFileLock, 528, AT(stubSequence, 524));
LAYOUT(ZAbstractFileMap, 132,
       AT(fileName, 4) && AT(mode, 116) && AT(flags, 120) && AT(address, 124) && AT(length, 128));
LAYOUT(ZUnixFileMap, 136, AT(fd, 132));
LAYOUT(ZAbstractSharedLibrary, 460,
       AT(libraryName, 4) && AT(primarySuffix, 116) && AT(secondarySuffix, 228) &&
           AT(lastErrorNumber, 340) && AT(lastErrorMessage, 344) && AT(flags, 456));
LAYOUT(ZSharedLibrary, 464, AT(handle, 460));
LAYOUT(ZJavaProperties, 516,
       AT(stateHandlers, 4) && AT(properties, 132) && AT(key, 176) && AT(value, 288) &&
           AT(searchKey, 400) && AT(unicodeUnit, 512));
LAYOUT(ZJavaPropertiesFile, 8, AT(state, 4));
LAYOUT(ZFormatContext, 468,
       AT(specs, 280) && AT(specCount, 284) && AT(inlineArgs, 288) && AT(args, 448) &&
           AT(format, 456) && AT(codeset, 460));
LAYOUT(ZStzFileItem, 20,
       AT(type, 0) && AT(stanza, 4) && AT(key, 8) && AT(optional, 12) && AT(result, 16));
FIELDS(ZAbstractProperties, AT(propLock, 4))
FIELDS(ZProperties,
       AT(fileName, offsetof(T, cache) + 4) && AT(modified, offsetof(T, fileName) + 112) &&
           AT(loading, offsetof(T, modified) + 4) && AT(fileTime, offsetof(T, loading) + 4))
FIELDS(ZPROP_handle, AT(first, 4) && AT(mode, 8) && AT(second, 12))
FIELDS(ZPROP_stz_handle, AT(properties, 16))
LAYOUT(ZPROP_iter_handle, 16, AT(kind, 4) && AT(first, 8) && AT(second, 12));
