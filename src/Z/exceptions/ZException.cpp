#include "Z/ZException.h"

#include <cstdarg>
#include <cstdlib>

#include "Z/ZMessage.h"
#include "Z/exceptions/messages.h"
#include "Z/zqcsutil.h"

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

void ZException::dumpException() { ZMessageService::messageService()->outputException(*this); }

ZZException::ZZException(int number, char const* className)
    : ZException(static_cast<unsigned long>(number), className) {}

void ZZException::print() { printinternal(this); }

void ZZException::route(ZZException const* self, InsertKind const* kinds, int count, ...) {
    ZReportInserts const inserts{self, kinds, count};
    ZReportScope const scope(inserts);
    va_list args;
    va_start(args, count);
    ZMessageService::routeZZException(self, args);
    va_end(args);
}

// ------------------------------------------------------------------------------- without inserts

ZOutOfMemoryException::ZOutOfMemoryException() : ZZException(1, "ZOutOfMemoryException") {}

ZInvalidPlatformException::ZInvalidPlatformException()
    : ZZException(11, "ZInvalidPlatformException") {}

ZNotClonableException::ZNotClonableException() : ZZException(14, "ZNotClonableException") {}

ZInvalidParameterException::ZInvalidParameterException()
    : ZZException(22, "ZInvalidParameterException") {}

ZNoQCSEnvironmentException::ZNoQCSEnvironmentException()
    : ZZException(45, "ZNoQCSEnvironmentException") {}

ZQCSMBLenException::ZQCSMBLenException() : ZZException(46, "ZQCSMBLenException") {}

ZUnsupportedException::ZUnsupportedException() : ZZException(48, "ZUnsupportedException") {}

// ---------------------------------------------------------------------------- threads, general

ZThreadException::ZThreadException(int number, int result)
    : ZZException(number, "ZThreadException"), rc(result) {}
void ZThreadException::print() { printinternal(this, rc); }

ZConditionException::ZConditionException(int number, int result)
    : ZZException(number, "ZConditionException"), rc(result) {}
void ZConditionException::print() { printinternal(this, rc); }

ZAbstractNotImplementedException::ZAbstractNotImplementedException(char const* operation)
    : ZZException(31, "ZAbstractNotImplementedException"), what(operation) {}
void ZAbstractNotImplementedException::print() { printinternal(this, what.getChars()); }

// Kept: no print() of its own, so its texts show no values.
ZConverterException::ZConverterException(int number, int result, char const* from, char const* to)
    : ZZException(number, "ZConverterException"),
      error(result),
      fromCodepage(from),
      toCodepage(to) {}

ZCodesetException::ZCodesetException(char const* codesetName)
    : ZZException(47, "ZCodesetException"), codeset(codesetName), qcsdir(getenv("QCSDIR")) {}
void ZCodesetException::print() { printinternal(this, codeset.getChars(), qcsdir.getChars()); }

ZToUTF8Exception::ZToUTF8Exception()
    : ZZException(49, "ZToUTF8Exception"), codeset(zgetLocalCodesetName()) {}
void ZToUTF8Exception::print() { printinternal(this, codeset.getChars()); }

ZFromUTF8Exception::ZFromUTF8Exception()
    : ZZException(50, "ZFromUTF8Exception"), codeset(zgetLocalCodesetName()) {}
void ZFromUTF8Exception::print() { printinternal(this, codeset.getChars()); }

ZUnexpectedEndOfFile::ZUnexpectedEndOfFile(char const* filePath)
    : ZZException(53, "ZUnexpectedEndOfFile"), path(filePath) {}
void ZUnexpectedEndOfFile::print() { printinternal(this, path.getChars()); }

ZJavaPropertyParseException::ZJavaPropertyParseException(char const* filePath)
    : ZZException(54, "ZJavaPropertyParseException"), path(filePath) {}
void ZJavaPropertyParseException::print() { printinternal(this, path.getChars()); }

// ------------------------------------------------------------------------------ shared libraries

ZSharedLibraryException::ZSharedLibraryException(int number, char const* className,
                                                 char const* libraryName, char const* text,
                                                 int result)
    : ZZException(number, className), library(libraryName), errorText(text), rc(result) {}
void ZSharedLibraryException::print() { printinternal(this, rc, errorText.getChars()); }

ZSharedLibraryLoadException::ZSharedLibraryLoadException(char const* libraryName, char const* text,
                                                         int result)
    : ZSharedLibraryException(51, "ZSharedLibraryLoadException", libraryName, text, result) {}
void ZSharedLibraryLoadException::print() {
    printinternal(this, library.getChars(), rc, errorText.getChars());
}

ZSharedLibraryResolveException::ZSharedLibraryResolveException(char const* libraryName,
                                                               char const* symbolName,
                                                               char const* text, int result)
    : ZSharedLibraryException(52, "ZSharedLibraryResolveException", libraryName, text, result),
      symbol(symbolName) {}
void ZSharedLibraryResolveException::print() {
    printinternal(this, library.getChars(), symbol.getChars(), rc, errorText.getChars());
}
