#include "Z/ZException.h"

#include <cstdarg>
#include <cstdlib>

#include "Z/exceptions/messages.h"
#include "Z/exceptions/report.h"
#include "Z/zqcsutil.h"
#include "qcs/qcs.h"

namespace {

/// The name of the local codeset, and where the conversion of `text` stops.
ZLCString codesetAndPlace(ZAbstractString const& text,
                          long (*stop)(qcs_cs_handle, char const*, unsigned int)) {
    ZLCString name(zgetLocalCodesetName());
    long const place = stop(zgetLCSHandle(), text.getChars(), text.getLength());
    if (place >= 0) name = name + " (at offset " + ZLCString(place) + ')';
    return name;
}

}  // namespace

// ------------------------------------------------------------------------------------- the roots

ZException::ZException(unsigned long number, char const* className)
    : code(number), name(className) {}

ZException::~ZException() = default;

void ZException::addLocation(char const* source, unsigned long sourceLine) {
    file = source;
    line = static_cast<unsigned int>(sourceLine);
}

int ZException::location(int /*index*/, char const*& source, int& sourceLine) const {
    source = file;
    sourceLine = static_cast<int>(line);
    return 1;
}

int ZException::locationCount() const { return 1; }
char const* ZException::who() const { return file; }
int ZException::where() const { return static_cast<int>(line); }

ZLCString ZException::text() const { return zmessageText(*this); }

void ZException::dumpException() { ZMessageService::messageService()->outputException(*this); }

ZZException::ZZException(int number, char const* className)
    : ZException(static_cast<unsigned long>(number), className) {}

void ZZException::print() { printinternal(this); }

void ZZException::route(ZZException const* self, InsertKind const* kinds, int count, ...) {
    ZReportInserts const inserts{self, kinds, count};
    ZReportScope const scope(inserts);
    va_list args;
    va_start(args, count);
    if (!ZTextCatcher::caught(*self, args)) ZMessageService::routeZZException(self, args);
    va_end(args);
}

// ------------------------------------------------------------------------------- without inserts

ZOutOfMemoryException::ZOutOfMemoryException()
    : ZZException(numberOf(Message::outOfMemory), "ZOutOfMemoryException") {}

ZInvalidPlatformException::ZInvalidPlatformException()
    : ZZException(numberOf(Message::wrongPlatform), "ZInvalidPlatformException") {}

ZNotClonableException::ZNotClonableException()
    : ZZException(numberOf(Message::notCloneable), "ZNotClonableException") {}

ZInvalidParameterException::ZInvalidParameterException()
    : ZZException(numberOf(Message::invalidParameter), "ZInvalidParameterException") {}

ZNoQCSEnvironmentException::ZNoQCSEnvironmentException()
    : ZZException(numberOf(Message::noCodesetDirectory), "ZNoQCSEnvironmentException") {}

ZQCSMBLenException::ZQCSMBLenException()
    : ZZException(numberOf(Message::malformedCharacter), "ZQCSMBLenException") {}

ZUnsupportedException::ZUnsupportedException()
    : ZZException(numberOf(Message::unsupported), "ZUnsupportedException") {}

// ---------------------------------------------------------------------------- threads, general

ZThreadException::ZThreadException(int number, int result)
    : ZZException(number, "ZThreadException"), rc(result) {}
void ZThreadException::print() { printinternal(this, rc); }

ZConditionException::ZConditionException(int number, int result)
    : ZZException(number, "ZConditionException"), rc(result) {}
void ZConditionException::print() { printinternal(this, rc); }

// ------------------------------------------------------------------------ locks and lock files

ZResourceException::ZResourceException(int number, int result)
    : ZResourceException(number, "ZResourceException", result) {}
ZResourceException::ZResourceException(int number, char const* className, int result)
    : ZZException(number, className), rc(result) {}
void ZResourceException::print() { printinternal(this, rc); }

ZCreateResourceException::ZCreateResourceException(int number, int result)
    : ZResourceException(number, "ZCreateResourceException", result) {}

ZLockResourceException::ZLockResourceException(int number, int result)
    : ZResourceException(number, "ZLockResourceException", result) {}

ZUnlockResourceException::ZUnlockResourceException(int number, int result)
    : ZResourceException(number, "ZUnlockResourceException", result) {}

ZReadResourceException::ZReadResourceException(int number, int result)
    : ZResourceException(number, "ZReadResourceException", result) {}

ZWriteResourceException::ZWriteResourceException(int number, int result)
    : ZResourceException(number, "ZWriteResourceException", result) {}

ZOpenResourceException::ZOpenResourceException(int number, int result, char const* lockFileName)
    : ZResourceException(number, "ZOpenResourceException", result), lockFile(lockFileName) {}
void ZOpenResourceException::print() { printinternal(this, rc, lockFile.getChars()); }

ZCloseResourceException::ZCloseResourceException(int number, int result, char const* lockFileName)
    : ZResourceException(number, "ZCloseResourceException", result), lockFile(lockFileName) {}
void ZCloseResourceException::print() { printinternal(this, rc, lockFile.getChars()); }

ZInvalidResourceStateException::ZInvalidResourceStateException(char const* stateName)
    : ZResourceException(numberOf(Message::unexpectedLockState), "ZInvalidResourceStateException",
                         -1),
      state(stateName) {}
void ZInvalidResourceStateException::print() { printinternal(this, state.getChars()); }

// ------------------------------------------------------------------------ general, with inserts

ZAbstractNotImplementedException::ZAbstractNotImplementedException(char const* operation)
    : ZZException(numberOf(Message::notImplemented), "ZAbstractNotImplementedException"),
      what(operation) {}
void ZAbstractNotImplementedException::print() { printinternal(this, what.getChars()); }

// Kept: no print() of its own, so its texts show no values.
ZConverterException::ZConverterException(int number, int result, char const* from, char const* to)
    : ZZException(number, "ZConverterException"),
      error(result),
      fromCodepage(from),
      toCodepage(to) {}

ZCodesetException::ZCodesetException(char const* codesetName)
    : ZZException(numberOf(Message::codesetHandleFailed), "ZCodesetException"),
      codeset(codesetName),
      qcsdir(getenv("QCSDIR")) {}
void ZCodesetException::print() { printinternal(this, codeset.getChars(), qcsdir.getChars()); }

ZToUTF8Exception::ZToUTF8Exception()
    : ZZException(numberOf(Message::toUTF8Failed), "ZToUTF8Exception"),
      codeset(zgetLocalCodesetName()) {}
ZToUTF8Exception::ZToUTF8Exception(ZAbstractString const& text)
    : ZZException(numberOf(Message::toUTF8Failed), "ZToUTF8Exception"),
      codeset(codesetAndPlace(text, qcs_to_utf8_stop)) {}
void ZToUTF8Exception::print() { printinternal(this, codeset.getChars()); }

ZFromUTF8Exception::ZFromUTF8Exception()
    : ZZException(numberOf(Message::fromUTF8Failed), "ZFromUTF8Exception"),
      codeset(zgetLocalCodesetName()) {}
ZFromUTF8Exception::ZFromUTF8Exception(ZAbstractString const& text)
    : ZZException(numberOf(Message::fromUTF8Failed), "ZFromUTF8Exception"),
      codeset(codesetAndPlace(text, qcs_from_utf8_stop)) {}
void ZFromUTF8Exception::print() { printinternal(this, codeset.getChars()); }

ZUnexpectedEndOfFile::ZUnexpectedEndOfFile(char const* filePath)
    : ZZException(numberOf(Message::unexpectedEndOfFile), "ZUnexpectedEndOfFile"), path(filePath) {}
void ZUnexpectedEndOfFile::print() { printinternal(this, path.getChars()); }

ZJavaPropertyParseException::ZJavaPropertyParseException(char const* filePath)
    : ZZException(numberOf(Message::javaParserFailed), "ZJavaPropertyParseException"),
      path(filePath) {}
void ZJavaPropertyParseException::print() { printinternal(this, path.getChars()); }

// ------------------------------------------------------------------------------ shared libraries

ZSharedLibraryException::ZSharedLibraryException(int number, char const* className,
                                                 char const* libraryName, char const* text,
                                                 int result)
    : ZZException(number, className), library(libraryName), errorText(text), rc(result) {}
void ZSharedLibraryException::print() { printinternal(this, rc, errorText.getChars()); }

ZSharedLibraryLoadException::ZSharedLibraryLoadException(char const* libraryName, char const* text,
                                                         int result)
    : ZSharedLibraryException(numberOf(Message::libraryLoadFailed), "ZSharedLibraryLoadException",
                              libraryName, text, result) {}
void ZSharedLibraryLoadException::print() {
    printinternal(this, library.getChars(), rc, errorText.getChars());
}

ZSharedLibraryResolveException::ZSharedLibraryResolveException(char const* libraryName,
                                                               char const* symbolName,
                                                               char const* text, int result)
    : ZSharedLibraryException(numberOf(Message::symbolResolveFailed),
                              "ZSharedLibraryResolveException", libraryName, text, result),
      symbol(symbolName) {}
void ZSharedLibraryResolveException::print() {
    printinternal(this, library.getChars(), symbol.getChars(), rc, errorText.getChars());
}

// ----------------------------------------------------------------------------- configuration files

ZPropertiesException::ZPropertiesException(int number, char const* className, char const* propFile)
    : ZZException(number, className), file_(propFile) {}
void ZPropertiesException::print() { printinternal(this, propFile()); }

ZPropertiesMissingPropertyException::ZPropertiesMissingPropertyException(char const* propFile,
                                                                         char const* category,
                                                                         char const* key)
    : ZPropertiesException(numberOf(Message::missingProperty),
                           "ZPropertiesMissingPropertyException", propFile),
      category_(category),
      key_(key) {}
void ZPropertiesMissingPropertyException::print() {
    printinternal(this, propFile(), key(), category());
}

ZPropertiesInvalidValueException::ZPropertiesInvalidValueException(char const* propFile,
                                                                   char const* category,
                                                                   char const* key,
                                                                   char const* value)
    : ZPropertiesException(numberOf(Message::invalidValue), "ZPropertiesInvalidValueException",
                           propFile),
      category_(category),
      key_(key),
      value_(value) {}
void ZPropertiesInvalidValueException::print() {
    printinternal(this, propFile(), value(), key(), category());
}

// Kept: the subclasses change the number alone; reports show their base's name.
ZPropertiesInvalidNumValueException::ZPropertiesInvalidNumValueException(char const* propFile,
                                                                         char const* category,
                                                                         char const* key,
                                                                         char const* value)
    : ZPropertiesInvalidValueException(propFile, category, key, value) {
    code = numberOf(Message::invalidNumber);
}

ZPropertiesInvalidBoolValueException::ZPropertiesInvalidBoolValueException(char const* propFile,
                                                                           char const* category,
                                                                           char const* key,
                                                                           char const* value)
    : ZPropertiesInvalidValueException(propFile, category, key, value) {
    code = numberOf(Message::invalidBoolean);
}

ZPropertiesUnexpectedValueException::ZPropertiesUnexpectedValueException(char const* propFile,
                                                                         char const* category,
                                                                         char const* key,
                                                                         char const* value,
                                                                         char const* expected)
    : ZPropertiesInvalidValueException(propFile, category, key, value), expected_(expected) {
    code = numberOf(Message::unexpectedValue);
}
void ZPropertiesUnexpectedValueException::print() {
    printinternal(this, propFile(), value(), key(), category(), expected());
}

ZPropertiesIteratorException::ZPropertiesIteratorException(char const* propFile)
    : ZPropertiesException(numberOf(Message::invalidIterator), "ZPropertiesIteratorException",
                           propFile) {}

ZPropertiesIOException::ZPropertiesIOException(char const* propFile, char const* api, int result)
    : ZPropertiesException(numberOf(Message::fileAccessFailed), "ZPropertiesIOException", propFile),
      api_(api),
      error(result) {}
void ZPropertiesIOException::print() { printinternal(this, propFile(), api(), error); }

ZPropertiesInvalidDataException::ZPropertiesInvalidDataException(char const* propFile,
                                                                 char const* badData, int number)
    : ZPropertiesException(numberOf(Message::invalidData), "ZPropertiesInvalidDataException",
                           propFile),
      data(badData),
      lineNumber(number) {}
void ZPropertiesInvalidDataException::print() {
    printinternal(this, propFile(), badline(), baddata());
}

ZPropertiesCompanionIOException::ZPropertiesCompanionIOException(char const* companion,
                                                                 char const* propFile,
                                                                 char const* why, int result,
                                                                 int errorCause)
    : ZPropertiesIOException(companion, "mapFile()", result),
      configFile_(propFile),
      reason_(why),
      cause(errorCause) {
    code = numberOf(Message::companionAccessFailed);
    name = "ZPropertiesCompanionIOException";
}
void ZPropertiesCompanionIOException::print() {
    printinternal(this, propFile(), configFile(), reason(), cause);
}

ZPropertiesCompanionDataException::ZPropertiesCompanionDataException(char const* companion,
                                                                     char const* propFile,
                                                                     char const* why)
    : ZPropertiesInvalidDataException(companion, "", 0), configFile_(propFile), reason_(why) {
    code = numberOf(Message::companionDamaged);
    name = "ZPropertiesCompanionDataException";
}
void ZPropertiesCompanionDataException::print() {
    printinternal(this, propFile(), configFile(), reason());
}

ZPropertiesRecoveryException::ZPropertiesRecoveryException(int number, char const* copy,
                                                           char const* propFile, char const* why)
    : ZPropertiesException(number, "ZPropertiesRecoveryException", copy),
      configFile_(propFile),
      reason_(why) {}
void ZPropertiesRecoveryException::print() {
    printinternal(this, propFile(), configFile(), reason());
}
