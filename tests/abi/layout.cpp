// Sizes and places of fields on 32-bit x86, where they are part of the binary interface. There is
// nothing to run: the assertions hold when this file compiles with -m32 -fno-access-control.
#include <cstddef>

static_assert(sizeof(void*) == 4, "layouts are fixed for 32-bit x86 alone");

// Classes with virtual functions have no standard layout; this compiler places their fields anyway.
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

// A macro because offsetof takes names.
#define FIELD(type, field, offset) \
    static_assert(offsetof(type, field) == (offset), #type "::" #field " is misplaced")
#define SIZE(type, size) static_assert(sizeof(type) == (size), #type " has another size")

#include "Z/ZObject.h"
SIZE(ZObject, 4);

#include "Z/ZException.h"
FIELD(ZException, code, 4);
FIELD(ZException, name, 8);
FIELD(ZException, file, 12);
FIELD(ZException, line, 16);
SIZE(ZException, 20);
SIZE(ZZException, 20);
SIZE(ZOutOfMemoryException, 20);
SIZE(ZInvalidPlatformException, 20);
SIZE(ZNotClonableException, 20);
SIZE(ZInvalidParameterException, 20);
SIZE(ZQCSMBLenException, 20);
SIZE(ZNoQCSEnvironmentException, 20);
SIZE(ZUnsupportedException, 20);
SIZE(ZThreadException, 24);
SIZE(ZConditionException, 24);
SIZE(ZResourceException, 24);
SIZE(ZCreateResourceException, 24);
SIZE(ZLockResourceException, 24);
SIZE(ZUnlockResourceException, 24);
SIZE(ZReadResourceException, 24);
SIZE(ZWriteResourceException, 24);
SIZE(ZOpenResourceException, 24 + 112);
SIZE(ZCloseResourceException, 24 + 112);
SIZE(ZInvalidResourceStateException, 24 + 112);
SIZE(ZAbstractNotImplementedException, 20 + 112);
SIZE(ZConverterException, 20 + 3 * 112);
SIZE(ZPropertiesException, 20 + 112);
SIZE(ZPropertiesMissingPropertyException, 20 + 3 * 112);
SIZE(ZPropertiesInvalidValueException, 20 + 4 * 112);
SIZE(ZPropertiesInvalidNumValueException, 20 + 4 * 112);
SIZE(ZPropertiesInvalidBoolValueException, 20 + 4 * 112);
SIZE(ZPropertiesIteratorException, 20 + 112);
SIZE(ZPropertiesIOException, 20 + 2 * 112 + 4);
SIZE(ZPropertiesInvalidDataException, 20 + 2 * 112 + 4);
SIZE(ZCodesetException, 20 + 2 * 112);
SIZE(ZToUTF8Exception, 20 + 112);
SIZE(ZFromUTF8Exception, 20 + 112);
SIZE(ZSharedLibraryException, 20 + 2 * 112 + 4);
SIZE(ZSharedLibraryLoadException, 20 + 3 * 112 + 4);
SIZE(ZSharedLibraryResolveException, 20 + 3 * 112 + 4);
SIZE(ZUnexpectedEndOfFile, 20 + 112);
SIZE(ZJavaPropertyParseException, 20 + 112);

#include "Z/ZMessage.h"
SIZE(ZMessageService, 4);
SIZE(ZDefaultMessageService, 8);

#include "Z/ZLCString.h"
FIELD(ZAbstractMutableString, chars, 4);
FIELD(ZAbstractMutableString, length, 8);
FIELD(ZAbstractMutableString, capacity, 12);
FIELD(ZAbstractMutableString, inlineBuffer, 16);
SIZE(ZAbstractMutableString, 112);
SIZE(ZLCString, 112);

#include "Z/ZUTF8String.h"
SIZE(ZUTF8String, 112);

#include "Z/ZLCConstString.h"
FIELD(ZAbstractConstString, chars, 4);
FIELD(ZAbstractConstString, cachedLength, 8);
SIZE(ZAbstractConstString, 12);
SIZE(ZLCConstString, 12);

#include "Z/ZUTF8ConstString.h"
SIZE(ZUTF8ConstString, 12);

#include "Z/ZStringIterator.h"
FIELD(ZStringIterator, position, 8);
FIELD(ZStringIterator, source, 12);
FIELD(ZStringIterator, mbMax, 20);  // behind the reference `target`
SIZE(ZStringIterator, 24);

#include "Z/ZStringTokenizer.h"
FIELD(ZStringTokenizer, position, 8);
FIELD(ZStringTokenizer, source, 12);
FIELD(ZStringTokenizer, delimiters, 20);  // behind the reference `target`
FIELD(ZStringTokenizer, mbMax, 24);
SIZE(ZStringTokenizer, 28);

#include "Z/ZArray.h"
FIELD(ZArray, data, 8);
FIELD(ZArray, ownsMembers_, 12);
FIELD(ZArray, length, 16);
SIZE(ZArray, 20);

#include "Z/ZList.h"
FIELD(ZArrayList, capacity_, 8);
FIELD(ZArrayList, data, 12);
FIELD(ZArrayList, count, 16);
FIELD(ZArrayList, ownsMembers_, 20);
SIZE(ZArrayList, 24);
FIELD(ZListIterator, list, 8);
FIELD(ZListIterator, position, 12);
SIZE(ZListIterator, 16);

#include "Z/ZMap.h"
FIELD(ZHashMap, buckets, 8);
FIELD(ZHashMap, ownsMembers, 28);
SIZE(ZHashMap, 32);
SIZE(ZArrayMap, 28);

#include "Z/ZKeyMap.h"
FIELD(ZKeyEntry, key, 4);
FIELD(ZKeyEntry, value, 8);
FIELD(ZKeyEntry, copy, 12);
FIELD(ZKeyEntry, hashValue, 16);
SIZE(ZKeyEntry, 20);
FIELD(ZHashKeyMap, copy, 40);
SIZE(ZHashKeyMap, 44);

#include "Z/ZBuffer.h"
FIELD(ZBuffer, length, 8);
FIELD(ZBuffer, buffer, 12);
SIZE(ZBuffer, 16);
FIELD(ZConstBuffer, length, 8);
FIELD(ZConstBuffer, buffer, 12);
SIZE(ZConstBuffer, 16);

#include "Z/ZSqueeze.h"
FIELD(ZSqueeze, source, 0);
FIELD(ZSqueeze, sourceLength, 4);
FIELD(ZSqueeze, level, 8);
FIELD(ZSqueeze, flag, 12);
SIZE(ZSqueeze, 16);

#include "Z/ZLock.h"
FIELD(ZLock, mutex, 8);
FIELD(ZLock, owner, 12);
FIELD(ZLock, count, 16);
SIZE(ZLock, 20);
SIZE(ZResourceLock, 8);

#include "Z/ZCondition.h"
FIELD(ZCondition, ownsLock, 16);
FIELD(ZCondition, cond, 20);
SIZE(ZCondition, 24);
FIELD(ZBooleanCondition, condition, 24);
SIZE(ZBooleanCondition, 28);

#include "Z/ZObserve.h"
SIZE(Voyeur, 8);
FIELD(ZAbstractObservable, observers, 4);
FIELD(ZAbstractObservable, observersLock, 28);
SIZE(ZAbstractObservable, 48);

#include "Z/ZReadWriteLock.h"
FIELD(ZReadWriteLock, readerCount, 56);
FIELD(ZReadWriteLock, state, 60);
FIELD(ZReadWriteLock, owner, 64);
FIELD(ZReadWriteLock, waiters, 68);
FIELD(ZReadWriteLock, condition, 72);
SIZE(ZReadWriteLock, 96);
SIZE(ZStackReadWriteLock, 8);

#include "Z/ZThread.h"
FIELD(ZThread, threadId, 4);
FIELD(ZThread, detached, 8);
FIELD(ZThread, autoDelete, 12);
FIELD(ZThread, pool, 16);
SIZE(ZThread, 20);
FIELD(ZSleeperThread, exitRequested, 20);
FIELD(ZSleeperThread, workPending, 24);
FIELD(ZSleeperThread, started, 28);
FIELD(ZSleeperThread, interval, 32);
FIELD(ZSleeperThread, startCondition, 36);
FIELD(ZSleeperThread, wakeCondition, 60);
SIZE(ZSleeperThread, 84);
FIELD(ZThreadPool, idleThreads, 4);
FIELD(ZThreadPool, activeCount, 36);
FIELD(ZThreadPool, mutex, 40);
FIELD(ZThreadPool, cond, 44);
FIELD(ZThreadPool, maxThreads, 48);
FIELD(ZThreadPool, maxIdle, 52);
FIELD(ZThreadPool, idleCount, 56);
SIZE(ZThreadPool, 60);

#include "Z/ZFileLock.h"
FIELD(ZSequenceUpdate, sequence, 4);
FIELD(ZSequenceUpdate, lastSequence, 8);
SIZE(ZSequenceUpdate, 12);
FIELD(ZAbstractProcessReadWriteLock, lockState, 56);
FIELD(ZAbstractProcessReadWriteLock, lockName, 60);
FIELD(ZAbstractProcessReadWriteLock, sequence, 172);
FIELD(ZAbstractProcessReadWriteLock, lastSequence, 176);
FIELD(ZAbstractProcessReadWriteLock, update, 180);
FIELD(ZAbstractProcessReadWriteLock, rwLock, 184);
SIZE(ZAbstractProcessReadWriteLock, 280);
SIZE(ZStubProcessReadWriteLock, 280);
FIELD(ZAbstractProcessReadWriteFileLock, lockDirName, 280);
FIELD(ZAbstractProcessReadWriteFileLock, lockFileName, 392);
FIELD(ZAbstractProcessReadWriteFileLock, fileLock, 504);
SIZE(ZAbstractProcessReadWriteFileLock, 524);
FIELD(ZUnixProcessReadWriteFileLock, fileHandle, 524);
SIZE(ZUnixProcessReadWriteFileLock, 528);
FIELD(ZStubProcessReadWriteFileLock, stubSequence, 524);
SIZE(ZStubProcessReadWriteFileLock, 528);

#include "Z/ZFileMap.h"
FIELD(ZAbstractFileMap, fileName, 4);
FIELD(ZAbstractFileMap, mode, 116);
FIELD(ZAbstractFileMap, flags, 120);
FIELD(ZAbstractFileMap, address, 124);
FIELD(ZAbstractFileMap, length, 128);
SIZE(ZAbstractFileMap, 132);
FIELD(ZUnixFileMap, fd, 132);
SIZE(ZUnixFileMap, 136);

#include "Z/ZSharedLibrary.h"
FIELD(ZAbstractSharedLibrary, libraryName, 4);
FIELD(ZAbstractSharedLibrary, primarySuffix, 116);
FIELD(ZAbstractSharedLibrary, secondarySuffix, 228);
FIELD(ZAbstractSharedLibrary, lastErrorNumber, 340);
FIELD(ZAbstractSharedLibrary, lastErrorMessage, 344);
FIELD(ZAbstractSharedLibrary, flags, 456);
SIZE(ZAbstractSharedLibrary, 460);
FIELD(ZSharedLibrary, handle, 460);
SIZE(ZSharedLibrary, 464);

#include "Z/ZJavaProperties.h"
FIELD(ZJavaProperties, stateHandlers, 4);
FIELD(ZJavaProperties, properties, 4 + 16 * 8);
FIELD(ZJavaProperties, key, 132 + 44);
FIELD(ZJavaProperties, value, 176 + 112);
FIELD(ZJavaProperties, searchKey, 288 + 112);
FIELD(ZJavaProperties, unicodeUnit, 400 + 112);
SIZE(ZJavaProperties, 516);

#include "Z/zsnprintf.h"
SIZE(ZFormatSpec, 28);
SIZE(ZFormatArg, 16);
FIELD(ZFormatContext, specs, 280);
FIELD(ZFormatContext, specCount, 284);
FIELD(ZFormatContext, inlineArgs, 288);
FIELD(ZFormatContext, args, 448);
FIELD(ZFormatContext, format, 456);
FIELD(ZFormatContext, codeset, 460);
SIZE(ZFormatContext, 468);

#include "Z/zproperties_c.h"
FIELD(ZStzFileItem, type, 0);
FIELD(ZStzFileItem, stanza, 4);
FIELD(ZStzFileItem, key, 8);
FIELD(ZStzFileItem, optional, 12);
FIELD(ZStzFileItem, result, 16);
SIZE(ZStzFileItem, 20);

#include "Z/zpropc_handles.h"
FIELD(ZAbstractProperties, propLock, 4);
// The others stand behind the bases, one after the other.
FIELD(ZProperties, fileName, offsetof(ZProperties, cache) + 4);
FIELD(ZProperties, modified, offsetof(ZProperties, fileName) + 112);
FIELD(ZProperties, loading, offsetof(ZProperties, modified) + 4);
FIELD(ZProperties, fileTime, offsetof(ZProperties, loading) + 4);
SIZE(ZPropertyChanged, 4 + 4 + 4 + 112 + 112);
FIELD(ZPROP_handle, first, 4);
FIELD(ZPROP_handle, mode, 8);
FIELD(ZPROP_handle, second, 12);
FIELD(ZPROP_stz_handle, properties, 16);
FIELD(ZPROP_iter_handle, kind, 4);
FIELD(ZPROP_iter_handle, first, 8);
FIELD(ZPROP_iter_handle, second, 12);
SIZE(ZPROP_iter_handle, 16);
