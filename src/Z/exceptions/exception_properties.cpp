/// The properties family of the exception tree: configuration files.
#include "Z/ZException.h"

ZPropertiesException::ZPropertiesException(int number, char const* className, char const* propFile)
    : ZZException(number, className), file_(propFile) {}
void ZPropertiesException::print() { printinternal(this, propFile()); }

ZPropertiesMissingPropertyException::ZPropertiesMissingPropertyException(char const* propFile,
                                                                         char const* category,
                                                                         char const* key)
    : ZPropertiesException(28, "ZPropertiesMissingPropertyException", propFile),
      category_(category),
      key_(key) {}
void ZPropertiesMissingPropertyException::print() {
    printinternal(this, propFile(), key(), category());
}

ZPropertiesInvalidValueException::ZPropertiesInvalidValueException(char const* propFile,
                                                                   char const* category,
                                                                   char const* key,
                                                                   char const* value)
    : ZPropertiesException(39, "ZPropertiesInvalidValueException", propFile),
      category_(category),
      key_(key),
      value_(value) {}
void ZPropertiesInvalidValueException::print() {
    printinternal(this, propFile(), value(), key(), category());
}

// Kept: both subclasses change the number alone; reports show their base's name.
ZPropertiesInvalidNumValueException::ZPropertiesInvalidNumValueException(char const* propFile,
                                                                         char const* category,
                                                                         char const* key,
                                                                         char const* value)
    : ZPropertiesInvalidValueException(propFile, category, key, value) {
    code = 40;
}

ZPropertiesInvalidBoolValueException::ZPropertiesInvalidBoolValueException(char const* propFile,
                                                                           char const* category,
                                                                           char const* key,
                                                                           char const* value)
    : ZPropertiesInvalidValueException(propFile, category, key, value) {
    code = 41;
}

ZPropertiesIteratorException::ZPropertiesIteratorException(char const* propFile)
    : ZPropertiesException(42, "ZPropertiesIteratorException", propFile) {}

ZPropertiesIOException::ZPropertiesIOException(char const* propFile, char const* api, int result)
    : ZPropertiesException(43, "ZPropertiesIOException", propFile), api_(api), error(result) {}
void ZPropertiesIOException::print() { printinternal(this, propFile(), api(), error); }

ZPropertiesInvalidDataException::ZPropertiesInvalidDataException(char const* propFile,
                                                                 char const* badData, int number)
    : ZPropertiesException(44, "ZPropertiesInvalidDataException", propFile),
      data(badData),
      lineNumber(number) {}
void ZPropertiesInvalidDataException::print() {
    printinternal(this, propFile(), badline(), baddata());
}
