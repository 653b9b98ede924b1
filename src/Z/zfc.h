/// The library without its macros: all of it, or what is asked for, under names of namespace zfc.
///
///     #include <Z/zfc.h>
///
///     zfc::String name("Ada");
///     zfc::StanzaFileProperties settings("app.conf", 1);
///     zfc::zsnprintf(buffer, sizeof buffer, "%s", name.getChars());
///
/// Every other header makes macros of the library's names (`Z/ztags.h`), and a macro renames what a
/// program calls by the same name: its own `vendor::ZList` would be another class in the sources
/// that include the library than in those that do not. Behind this header no class, type or
/// function is a macro; those that stay begin with ZFC_, are the words of `Z/zexport.h` for
/// thread-safety analysis, such as ZGUARDED_BY, or guard a header (Z_..._H).
///
/// - A class, a structure or an enumeration is called in zfc as it is elsewhere without its Z:
///   `ZArrayList` is zfc::ArrayList, `ZUTF8String` zfc::UTF8String. The exceptions:
///   zfc::String and zfc::ConstString (`ZLCString`, `ZLCConstString`), zfc::BasicException
///   (`ZZException`), zfc::Voyeur, and what begins with PROP (`ZPROPOpenMode` is
///   zfc::PropOpenMode).
/// - A function keeps its name: zfc::zsnprintf, zfc::zfcVersion.
/// - What has no tag stays what it is: handle records of the C interface, enumerators, zraise(),
///   and all that was in namespace zfc before.
///
/// Types and aliases are the same types: functions of other sources that take a `ZLCString` take a
/// zfc::String. An alias cannot be declared in advance; messages of the compiler and the debugger
/// show the class with its tag.
///
/// To include less, define one or more of these before; strings, exceptions, messages and the plain
/// functions are always there, and the names of the other classes, not their definitions:
///
/// | | |
/// |---|---|
/// | ZFC_WITH_CONTAINERS | arrays, lists, stacks, maps, buffers, sorting, compression, checksums |
/// | ZFC_WITH_THREADS | locks, conditions, observers, threads, pools |
/// | ZFC_WITH_FILES | file maps, plug-in libraries, host name, locks across processes |
/// | ZFC_WITH_CONFIG | stanza files, Java-style files, layers, typed values |
/// | ZFC_WITH_STD | `Z/zstd.h` |
///
/// The header may be included again, with more asked for. Any other header of the library, and a
/// header of yours that uses the plain names, goes before it: what it did not include yet is
/// refused behind it with an error that says so.
#ifndef __cplusplus
#error "Z/zfc.h is for C++; for C there is Z/zproperties_c.h"
#endif

// The names are macros again until the end of this header.
#undef ZFC_UNTAGGED
#include "Z/ztags.h"

#include <cstdarg>

#include "Z/ZException.h"
#include "Z/ZGetLocale.h"
#include "Z/ZMessage.h"
#include "Z/ZMessageParts.h"
#include "Z/ZQCSUTF8Converter.h"
#include "Z/ZStringIterator.h"
#include "Z/ZStringTokenizer.h"
#include "Z/ZUTF8ConstString.h"
#include "Z/ZUTF8String.h"
#include "Z/zasprintf.h"
#include "Z/zfileinherit.h"
#include "Z/zfree.h"
#include "Z/zinet_ntop.h"
#include "Z/zinet_pton.h"
#include "Z/zproperties_c.h"
#include "Z/zqcsutil.h"
#include "Z/zsetup.h"
#include "Z/zshlib.h"
#include "Z/zsnprintf.h"
#include "Z/zutfconvert.h"
#include "Z/zutils.h"
#include "Z/zversion.h"

#if !defined(ZFC_WITH_CONTAINERS) && !defined(ZFC_WITH_THREADS) && !defined(ZFC_WITH_FILES) && \
    !defined(ZFC_WITH_CONFIG) && !defined(ZFC_WITH_STD)
#define ZFC_WITH_CONTAINERS
#define ZFC_WITH_THREADS
#define ZFC_WITH_FILES
#define ZFC_WITH_CONFIG
#define ZFC_WITH_STD
#endif

#ifdef ZFC_WITH_CONTAINERS
#include "Z/ZAdler32.h"
#include "Z/ZArray.h"
#include "Z/ZBuffer.h"
#include "Z/ZKeyMap.h"
#include "Z/ZList.h"
#include "Z/ZMap.h"
#include "Z/ZSort.h"
#include "Z/ZSqueeze.h"
#include "Z/ZStack.h"
#endif
#ifdef ZFC_WITH_THREADS
#include "Z/ZCondition.h"
#include "Z/ZLock.h"
#include "Z/ZObserve.h"
#include "Z/ZReadWriteLock.h"
#include "Z/ZThread.h"
#include "Z/ZWorkerPool.h"
#endif
#ifdef ZFC_WITH_FILES
#include "Z/ZFileLock.h"
#include "Z/ZFileMap.h"
#include "Z/ZLocalHostName.h"
#include "Z/ZProcessLock.h"
#include "Z/ZSharedLibrary.h"
#endif
#ifdef ZFC_WITH_CONFIG
#include "Z/ZFileWatcher.h"
#include "Z/ZJavaProperties.h"
#include "Z/ZJavaPropertiesFile.h"
#include "Z/ZLayeredProperties.h"
#include "Z/ZProperties.h"
#include "Z/ZPropertiesImpl.h"
#include "Z/ZSCFData.h"
#include "Z/ZStanzaFileProperties.h"
#include "Z/ZTypedValues.h"
#include "Z/ZWinRegistry.h"
#endif
#ifdef ZFC_WITH_STD
#include "Z/zstd.h"
#endif

#include "Z/zuntag.h"

#ifndef Z_ZFC_H
#define Z_ZFC_H

#define ZFC_CLASS_AS(alias, name)                                                      \
    class ZFC_TAGGED(name);                                                            \
    namespace zfc {                                                                    \
    using alias = ::ZFC_TAGGED(name); /* a name; NOLINT(bugprone-macro-parentheses) */ \
    }                                                                                  \
    class ZFC_TAGGED(name)
#define ZFC_CLASS(name) ZFC_CLASS_AS(name, ZFC_JOIN(Z, name))
#define ZFC_RELEASE ZFC_TAGGED(zrelease)
#define ZFC_FUNCTION(name) inline constexpr auto& name = ::ZFC_TAGGED(name)

ZFC_CLASS_AS(Voyeur, Voyeur);
ZFC_CLASS_AS(ConstString, ZLCConstString);
ZFC_CLASS_AS(String, ZLCString);
ZFC_CLASS_AS(BasicException, ZZException);

ZFC_CLASS(AbstractArray);
ZFC_CLASS(AbstractBuffer);
ZFC_CLASS(AbstractCondition);
ZFC_CLASS(AbstractConstString);
ZFC_CLASS(AbstractFileMap);
ZFC_CLASS(AbstractIterator);
ZFC_CLASS(AbstractKeyMap);
ZFC_CLASS(AbstractList);
ZFC_CLASS(AbstractLock);
ZFC_CLASS(AbstractMap);
ZFC_CLASS(AbstractMutableString);
ZFC_CLASS(AbstractNotImplementedException);
ZFC_CLASS(AbstractObservable);
ZFC_CLASS(AbstractProcessReadWriteFileLock);
ZFC_CLASS(AbstractProcessReadWriteLock);
ZFC_CLASS(AbstractProperties);
ZFC_CLASS(AbstractPropertiesFactory);
ZFC_CLASS(AbstractPropertiesIterator);
ZFC_CLASS(AbstractPropertyValuesIterator);
ZFC_CLASS(AbstractReadWriteLock);
ZFC_CLASS(AbstractSharedLibrary);
ZFC_CLASS(AbstractStack);
ZFC_CLASS(AbstractString);
ZFC_CLASS(AbstractUTF8Converter);
ZFC_CLASS(Adler32);
ZFC_CLASS(Array);
ZFC_CLASS(ArrayInterface);
ZFC_CLASS(ArrayList);
ZFC_CLASS(ArrayMap);
ZFC_CLASS(ArrayMapIterator);
ZFC_CLASS(ArrayStack);
ZFC_CLASS(BooleanCondition);
ZFC_CLASS(Buffer);
ZFC_CLASS(BufferInterface);
ZFC_CLASS(CloseResourceException);
ZFC_CLASS(CodesetException);
ZFC_CLASS(Condition);
ZFC_CLASS(ConditionException);
ZFC_CLASS(ConditionInterface);
ZFC_CLASS(ConstBuffer);
ZFC_CLASS(ConverterException);
ZFC_CLASS(CreateResourceException);
ZFC_CLASS(DefaultMessageService);
ZFC_CLASS(DefaultSortCompare);
ZFC_CLASS(Exception);
ZFC_CLASS(FileWatched);
ZFC_CLASS(FileWatcher);
ZFC_CLASS(FromUTF8Exception);
ZFC_CLASS(HashKeyMap);
ZFC_CLASS(HashMap);
ZFC_CLASS(InvalidParameterException);
ZFC_CLASS(InvalidPlatformException);
ZFC_CLASS(InvalidResourceStateException);
ZFC_CLASS(Iterator);
ZFC_CLASS(JavaProperties);
ZFC_CLASS(JavaPropertiesFile);
ZFC_CLASS(JavaPropertyParseException);
ZFC_CLASS(KeyEntry);
ZFC_CLASS(KeyMap);
ZFC_CLASS(LayeredProperties);
ZFC_CLASS(List);
ZFC_CLASS(ListIterator);
ZFC_CLASS(LocalHostName);
ZFC_CLASS(Lock);
ZFC_CLASS(LockInterface);
ZFC_CLASS(LockResourceException);
ZFC_CLASS(Map);
ZFC_CLASS(MapIterator);
ZFC_CLASS(MessageParts);
ZFC_CLASS(MessageService);
ZFC_CLASS(NoQCSEnvironmentException);
ZFC_CLASS(NotClonableException);
ZFC_CLASS(ObfuscatedItem);
ZFC_CLASS(Object);
ZFC_CLASS(ObservableInterface);
ZFC_CLASS(ObservedParm);
ZFC_CLASS(ObserverInterface);
ZFC_CLASS(OpenResourceException);
ZFC_CLASS(OutOfMemoryException);
ZFC_CLASS(PCache);
ZFC_CLASS(PCategoryBasedCache);
ZFC_CLASS(PKVList);
ZFC_CLASS(Properties);
ZFC_CLASS(PropertiesCompanionDataException);
ZFC_CLASS(PropertiesCompanionIOException);
ZFC_CLASS(PropertiesException);
ZFC_CLASS(PropertiesFactoryInterface);
ZFC_CLASS(PropertiesInterface);
ZFC_CLASS(PropertiesInvalidBoolValueException);
ZFC_CLASS(PropertiesInvalidDataException);
ZFC_CLASS(PropertiesInvalidNumValueException);
ZFC_CLASS(PropertiesInvalidValueException);
ZFC_CLASS(PropertiesIOException);
ZFC_CLASS(PropertiesIterator);
ZFC_CLASS(PropertiesIteratorException);
ZFC_CLASS(PropertiesIteratorInterface);
ZFC_CLASS(PropertiesKVList);
ZFC_CLASS(PropertiesMissingPropertyException);
ZFC_CLASS(PropertiesMutableInterface);
ZFC_CLASS(PropertiesRecoveryException);
ZFC_CLASS(PropertiesUnexpectedValueException);
ZFC_CLASS(PropertyChanged);
ZFC_CLASS(PropertyValuesIteratorInterface);
ZFC_CLASS(PropLine);
ZFC_CLASS(PropRegistry);
ZFC_CLASS(QCSMBLenException);
ZFC_CLASS(QCSUTF8Converter);
ZFC_CLASS(ReadResourceException);
ZFC_CLASS(ReadWriteLock);
ZFC_CLASS(ReadWriteLockInterface);
ZFC_CLASS(ResourceException);
ZFC_CLASS(ResourceLock);
ZFC_CLASS(SCFData);
ZFC_CLASS(SequenceUpdate);
ZFC_CLASS(SharedLibrary);
ZFC_CLASS(SharedLibraryException);
ZFC_CLASS(SharedLibraryLoadException);
ZFC_CLASS(SharedLibraryResolveException);
ZFC_CLASS(SleeperThread);
ZFC_CLASS(SortCompare);
ZFC_CLASS(Squeeze);
ZFC_CLASS(Stack);
ZFC_CLASS(StackReadWriteLock);
ZFC_CLASS(StackWriteLock);
ZFC_CLASS(StanzaFileProperties);
ZFC_CLASS(StanzaIterator);
ZFC_CLASS(StanzaValueIterator);
ZFC_CLASS(StringIterator);
ZFC_CLASS(StringTokenizer);
ZFC_CLASS(StubProcessReadWriteFileLock);
ZFC_CLASS(StubProcessReadWriteLock);
ZFC_CLASS(Thread);
ZFC_CLASS(ThreadException);
ZFC_CLASS(ThreadPool);
ZFC_CLASS(ToUTF8Exception);
ZFC_CLASS(UnexpectedEndOfFile);
ZFC_CLASS(UnixFileMap);
ZFC_CLASS(UnixProcessReadWriteFileLock);
ZFC_CLASS(UnlockResourceException);
ZFC_CLASS(UnsupportedException);
ZFC_CLASS(UTF8ConstString);
ZFC_CLASS(UTF8ConverterInterface);
ZFC_CLASS(UTF8String);
ZFC_CLASS(ValueText);
ZFC_CLASS(WinRegistry);
ZFC_CLASS(WorkerPool);
ZFC_CLASS(WriteResourceException);

enum ZFC_TAGGED(ZPropertyStringType) : int;

namespace zfc {
inline namespace ZFC_RELEASE {

using CodesetHandle = ::ZFC_TAGGED(ZCodesetHandle);
using FormatArg = ::ZFC_TAGGED(ZFormatArg);
using FormatContext = ::ZFC_TAGGED(ZFormatContext);
using FormatSpec = ::ZFC_TAGGED(ZFormatSpec);
using Free = ::ZFC_TAGGED(ZFree);
using PropItemType = ::ZFC_TAGGED(ZPROPItemType);
using PropOpenMode = ::ZFC_TAGGED(ZPROPOpenMode);
using PropReturnCode = ::ZFC_TAGGED(ZPROPReturnCode);
using PropertyStringType = ::ZFC_TAGGED(ZPropertyStringType);
using PropUpdate = ::ZFC_TAGGED(ZPROPUpdate);
using StzFileItem = ::ZFC_TAGGED(ZStzFileItem);
using WideChar = ::ZFC_TAGGED(ZWideChar);

ZFC_FUNCTION(zasprintf_free);
ZFC_FUNCTION(zconvert_UTF16_to_UTF8);
ZFC_FUNCTION(zdlclose);
ZFC_FUNCTION(zdlerror);
ZFC_FUNCTION(zdlopen);
ZFC_FUNCTION(zdlsym);
ZFC_FUNCTION(zfc_setup);
ZFC_FUNCTION(zfcFunction);
ZFC_FUNCTION(zfcVersion);
ZFC_FUNCTION(zgetLCSHandle);
ZFC_FUNCTION(zgetLocalCodesetName);
ZFC_FUNCTION(ZGetLocale);
ZFC_FUNCTION(zgetlocale);
ZFC_FUNCTION(zgetUTF8Handle);
ZFC_FUNCTION(zhex_dump);
ZFC_FUNCTION(zinet_ntop);
ZFC_FUNCTION(zinet_pton);
ZFC_FUNCTION(zisalpha);
ZFC_FUNCTION(zisspace);
ZFC_FUNCTION(ziswalnum);
ZFC_FUNCTION(ziswalpha);
ZFC_FUNCTION(ziswdigit);
ZFC_FUNCTION(ziswlower);
ZFC_FUNCTION(ziswspace);
ZFC_FUNCTION(ziswupper);
ZFC_FUNCTION(zlcs_from_utf8);
ZFC_FUNCTION(zlcs_mb_max);
ZFC_FUNCTION(zlcs_to_utf8);
ZFC_FUNCTION(zmblen);
ZFC_FUNCTION(zmbtowc);
ZFC_FUNCTION(zmessageText);
ZFC_FUNCTION(zreportUncaught);
ZFC_FUNCTION(zset_cs_dir);
ZFC_FUNCTION(zsetfileinheritance);
ZFC_FUNCTION(zstrchr);
ZFC_FUNCTION(zstrcount);
ZFC_FUNCTION(zstrcspn);
ZFC_FUNCTION(zstricmp);
ZFC_FUNCTION(zstrlower);
ZFC_FUNCTION(zstrncat);
ZFC_FUNCTION(zstrncpy);
ZFC_FUNCTION(zstrnicmp);
ZFC_FUNCTION(zstrpbrk);
ZFC_FUNCTION(zstrptime);
ZFC_FUNCTION(zstrrchr);
ZFC_FUNCTION(zstrspn);
ZFC_FUNCTION(zstrstr);
ZFC_FUNCTION(zstrtok);
ZFC_FUNCTION(zstrupper);
ZFC_FUNCTION(zstzPropAddFileComment);
ZFC_FUNCTION(zstzPropAddLineComment);
ZFC_FUNCTION(zstzPropAddStanzaComment);
ZFC_FUNCTION(zstzPropClose);
ZFC_FUNCTION(zstzPropCreate);
ZFC_FUNCTION(zstzPropExists);
ZFC_FUNCTION(zstzPropFree);
ZFC_FUNCTION(zstzPropFreeNames);
ZFC_FUNCTION(zstzPropFreeValuesList);
ZFC_FUNCTION(zstzPropGetBooleanValue);
ZFC_FUNCTION(zstzPropGetDoubleValue);
ZFC_FUNCTION(zstzPropGetInteger64Value);
ZFC_FUNCTION(zstzPropGetIntegerValue);
ZFC_FUNCTION(zstzPropGetKeyNames);
ZFC_FUNCTION(zstzPropGetStanzaNames);
ZFC_FUNCTION(zstzPropGetStringValue);
ZFC_FUNCTION(zstzPropGetValues);
ZFC_FUNCTION(zstzPropIter_addValue);
ZFC_FUNCTION(zstzPropIter_chgValue);
ZFC_FUNCTION(zstzPropIter_close);
ZFC_FUNCTION(zstzPropIter_getKey);
ZFC_FUNCTION(zstzPropIter_getValue);
ZFC_FUNCTION(zstzPropIter_init);
ZFC_FUNCTION(zstzPropIter_next);
ZFC_FUNCTION(zstzPropIter_numKeys);
ZFC_FUNCTION(zstzPropIter_numValues);
ZFC_FUNCTION(zstzPropIter_rmvValue);
ZFC_FUNCTION(zstzPropLastError);
ZFC_FUNCTION(zstzPropNumKeys);
ZFC_FUNCTION(zstzPropNumStanzas);
ZFC_FUNCTION(zstzPropNumValues);
ZFC_FUNCTION(zstzPropOpen);
ZFC_FUNCTION(zstzPropRemoveKey);
ZFC_FUNCTION(zstzPropRemoveStanza);
ZFC_FUNCTION(zstzPropSetBooleanValue);
ZFC_FUNCTION(zstzPropSetDoubleValue);
ZFC_FUNCTION(zstzPropSetInteger64Value);
ZFC_FUNCTION(zstzPropSetIntegerValue);
ZFC_FUNCTION(zstzPropSetStringValue);
ZFC_FUNCTION(zstzPropStore);
ZFC_FUNCTION(zstzPropUpdate);
ZFC_FUNCTION(zvasprintf);
ZFC_FUNCTION(zvsnprintf);
ZFC_FUNCTION(zvsnprintf_done);
ZFC_FUNCTION(zvsnprintf_parse);
ZFC_FUNCTION(zvsnprintf_render);
ZFC_FUNCTION(zvsprintf);

// Functions of their own, because no reference has compilers look at formats.
ZFC_PRINTF(3, 4) inline int zsnprintf(char* out, int size, char const* format, ...) {
    va_list list;
    va_start(list, format);
    int const length = zvsnprintf(out, size, format, list);
    va_end(list);
    return length;
}
ZFC_PRINTF(2, 3) inline int zsprintf(char** result, char const* format, ...) {
    va_list list;
    va_start(list, format);
    int const length = zvsprintf(result, format, list);
    va_end(list);
    return length;
}
ZFC_PRINTF(2, 3) inline int zasprintf(char** result, char const* format, ...) {
    va_list list;
    va_start(list, format);
    int const length = zvasprintf(result, format, list);
    va_end(list);
    return length;
}

}  // namespace ZFC_RELEASE
}  // namespace zfc

#undef ZFC_FUNCTION
#undef ZFC_RELEASE
#undef ZFC_CLASS
#undef ZFC_CLASS_AS

#endif
