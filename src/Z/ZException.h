/// The exception tree: everything that the library throws.
///
/// An exception carries a message number, which selects its text in the message service, its class
/// name, the place that threw it, and the values that the text inserts. Exceptions are thrown by
/// value and caught by reference. A throw site reads
///
///     zraise(ZThreadException(number, rc), sourceName, __LINE__);
///
/// Text arguments of the constructors are `char const*` in the local codeset; they are copied, and
/// null counts as empty. What a text accessor returns lives as long as the exception.
#ifndef Z_ZEXCEPTION_H
#define Z_ZEXCEPTION_H

#include "Z/ztags.h"

#include <exception>
#include <type_traits>

#include "Z/ZLCString.h"
#include "Z/ZObject.h"

/// Root of the tree.
class ZFC_API ZException : public ZObject {
  public:
    /// `name` is a static string: it is not copied.
    ZException(unsigned long code, char const* name);
    ZException(ZException const&) = default;
    ZException& operator=(ZException const&) = default;

    // in slot order: do not sort
    ~ZException() override;
    [[nodiscard]] ZObject* clone() const override = 0;
    /// Records the place of a throw; only the latest is kept. `source` is a static string or null.
    virtual void addLocation(char const* source, unsigned long sourceLine);
    // Layout: an index and a count, though one place is all that is kept: both have their slots.
    /// Stores the recorded place, whatever the index, and returns 1.
    virtual int location(int index, char const*& source, int& sourceLine) const;
    /// Returns 1 always.
    [[nodiscard]] virtual int locationCount() const;
    /// The recorded source file; null before addLocation().
    [[nodiscard]] virtual char const* who() const;
    /// The recorded line; 0 before addLocation().
    [[nodiscard]] virtual int where() const;
    /// Hands the exception with its inserts to the current message service.
    virtual void print() = 0;
    /// Records the place and throws a copy of this exception as its own class.
    virtual void throwException(char const* file, int line) = 0;
    /// Asks the current message service for the standard report.
    virtual void dumpException();

    /// The message number.
    [[nodiscard]] unsigned long getCode() const { return code; }
    /// The class name; not owned by the caller.
    [[nodiscard]] char const* getName() const { return name; }
    /// As zmessageText().
    [[nodiscard]] ZLCString text() const;

  protected:
    /// What clone() of every concrete class does.
    template <class E>
    [[nodiscard]] static ZObject* cloneOf(E const& self) {
        return new E(self);
    }
    /// What throwException() of every concrete class does.
    template <class E>
    [[noreturn]] static void throwSelf(E& self, char const* file, int line) {
        self.addLocation(file, static_cast<unsigned long>(line));
        throw E(self);
    }

    unsigned long code;          // message number
    char const* name;            // class name, a static string
    char const* file = nullptr;  // source of the throw; null until located
    unsigned int line = 0;       // its line; 0 until located
};

/// Base of the concrete exceptions.
class ZFC_API ZZException : public ZException {
  public:
    /// What an insert is. A report knows it of every insert and reads none as another kind.
    enum class InsertKind : unsigned char { text, number };

    /// `name` is a static string: it is not copied.
    ZZException(int code, char const* name);

    [[nodiscard]] ZObject* clone() const override = 0;
    /// Prints without inserts; a class that has some overrides it and calls printinternal().
    void print() override;
    void throwException(char const* file, int line) override = 0;

    /// Hands `self` and its inserts (`char const*` or `int`, in the order of the text) to the
    /// current message service.
    template <class... Inserts>
    void printinternal(ZZException const* self, Inserts... inserts) {
        // One more, so that the array is never empty.
        static constexpr InsertKind kinds[] = {kindOf<Inserts>()..., InsertKind::text};
        route(self, kinds, static_cast<int>(sizeof...(Inserts)), inserts...);
    }

  private:
    template <class Insert>
    static constexpr InsertKind kindOf() {
        constexpr bool isNumber = std::is_same_v<Insert, int>;
        static_assert(isNumber || std::is_convertible_v<Insert, char const*>,
                      "an insert is text (char const*) or a number (int)");
        return isNumber ? InsertKind::number : InsertKind::text;
    }
    static void route(ZZException const* self, InsertKind const* kinds, int count, ...);
};

/// The default text of the exception's number with its inserts; empty when the number has none. For
/// classes whose print() ends in printinternal(), as all of the library do. Throws
/// ZOutOfMemoryException (message 1).
[[nodiscard]] ZFC_API ZLCString zmessageText(ZException const& exception);

/// Has what nobody catches reported by the message service, before the process ends as it does
/// without. Once for all; later calls do nothing.
ZFC_API void zreportUncaught();

/// Throws `exception` from the place given; the one line of a throw site.
template <class E>
[[noreturn]] void zraise(E exception, char const* source, int line) {
    exception.throwException(source, line);
    std::terminate();  // throwException() does not return
}

// ---------------------------------------------------------------------------- without inserts

/// Memory is exhausted, or a length would not fit (message 1).
class ZFC_API ZOutOfMemoryException : public ZZException {
  public:
    ZOutOfMemoryException();
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }
};

/// The operation exists on another platform only (message 11).
class ZFC_API ZInvalidPlatformException : public ZZException {
  public:
    ZInvalidPlatformException();
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }
};

/// An owning container was given an object without a clone() (message 14).
class ZFC_API ZNotClonableException : public ZZException {
  public:
    ZNotClonableException();
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }
};

/// An argument is outside what the operation takes (message 22).
class ZFC_API ZInvalidParameterException : public ZZException {
  public:
    ZInvalidParameterException();
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }
};

/// The environment variable QCSDIR is not set (message 45).
class ZFC_API ZNoQCSEnvironmentException : public ZZException {
  public:
    ZNoQCSEnvironmentException();
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }
};

/// A multibyte character is malformed (message 46).
class ZFC_API ZQCSMBLenException : public ZZException {
  public:
    ZQCSMBLenException();
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }
};

/// The operation does not take these objects together (message 48).
class ZFC_API ZUnsupportedException : public ZZException {
  public:
    ZUnsupportedException();
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }
};

// ------------------------------------------------------------------ threads, conditions, locks

/// A thread operation failed; `rc` is the system's code (messages 3, 5 to 7, 10, 15 to 17, 20, 29,
/// 30).
class ZFC_API ZThreadException : public ZZException {
  public:
    ZThreadException(int number, int rc);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void print() override;
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }

    /// The system's code.
    [[nodiscard]] int threadRc() const { return rc; }

  private:
    int rc;
};

/// A condition operation failed; `rc` is the system's code (messages 7, 9, 10, 27).
class ZFC_API ZConditionException : public ZZException {
  public:
    ZConditionException(int number, int rc);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void print() override;
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }

    /// The system's code.
    [[nodiscard]] int conditionRc() const { return rc; }

  private:
    int rc;
};

/// A lock or a lock file failed; `rc` is the system's code, 0 for a misuse.
class ZFC_API ZResourceException : public ZZException {
  public:
    ZResourceException(int number, int rc);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void print() override;
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }

    /// The system's code; 0 for a misuse.
    [[nodiscard]] int resourceRc() const { return rc; }

  protected:
    /// For the classes below: `name` is a static string.
    ZResourceException(int number, char const* name, int rc);

    int rc;  // the system's code; 0 for a misuse
};

/// A lock could not be made (message 3).
class ZFC_API ZCreateResourceException : public ZResourceException {
  public:
    ZCreateResourceException(int number, int rc);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }
};

/// A lock could not be had (message 5; for a lock file 33).
class ZFC_API ZLockResourceException : public ZResourceException {
  public:
    ZLockResourceException(int number, int rc);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }
};

/// A lock could not be released, or is not the caller's to release (message 6; for a lock file
/// 34).
class ZFC_API ZUnlockResourceException : public ZResourceException {
  public:
    ZUnlockResourceException(int number, int rc);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }
};

/// A lock file could not be read (message 35).
class ZFC_API ZReadResourceException : public ZResourceException {
  public:
    ZReadResourceException(int number, int rc);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }
};

/// A lock file could not be written. Kept: its message is 33, that of a lock that could not be had.
class ZFC_API ZWriteResourceException : public ZResourceException {
  public:
    ZWriteResourceException(int number, int rc);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }
};

/// A lock file could not be opened (message 37).
class ZFC_API ZOpenResourceException : public ZResourceException {
  public:
    ZOpenResourceException(int number, int rc, char const* lockFile);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void print() override;
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }

    /// The path of the lock file.
    [[nodiscard]] char const* value() const { return lockFile.getChars(); }

  private:
    ZLCString lockFile;
};

/// A lock file could not be closed (message 38).
class ZFC_API ZCloseResourceException : public ZResourceException {
  public:
    ZCloseResourceException(int number, int rc, char const* lockFile);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void print() override;
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }

    /// The path of the lock file.
    [[nodiscard]] char const* value() const { return lockFile.getChars(); }

  private:
    ZLCString lockFile;
};

/// A lock is not in a state that allows the operation (message 32, rc -1).
class ZFC_API ZInvalidResourceStateException : public ZResourceException {
  public:
    explicit ZInvalidResourceStateException(char const* state);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void print() override;
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }

    /// The name of the state that the lock is in.
    [[nodiscard]] char const* value() const { return state.getChars(); }

  private:
    ZLCString state;
};

// -------------------------------------------------------------------- general, with inserts

/// An abstract operation was reached (message 31, whose text does not show it).
class ZFC_API ZAbstractNotImplementedException : public ZZException {
  public:
    explicit ZAbstractNotImplementedException(char const* operation);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void print() override;
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }

    /// The name of the operation.
    [[nodiscard]] char const* value() const { return what.getChars(); }

  private:
    ZLCString what;
};

/// A codepage converter could not be opened (message 2). Prints without inserts.
class ZFC_API ZConverterException : public ZZException {
  public:
    ZConverterException(int number, int error, char const* fromCodepage, char const* toCodepage);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }

  private:
    ZLCString error;  // the error number as decimal text
    ZLCString fromCodepage;
    ZLCString toCodepage;
};

/// A codeset handle cannot be had (message 47); keeps the value of QCSDIR at construction.
class ZFC_API ZCodesetException : public ZZException {
  public:
    explicit ZCodesetException(char const* codeset);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void print() override;
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }

  private:
    ZLCString codeset;
    ZLCString qcsdir;
};

/// Local text has no UTF-8 form (message 49).
class ZFC_API ZToUTF8Exception : public ZZException {
  public:
    ZToUTF8Exception();
    /// Its text names the place in `text` where the conversion stops, as an offset in bytes.
    explicit ZToUTF8Exception(ZAbstractString const& text);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void print() override;
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }

  private:
    ZLCString codeset;  // name of the local codeset
};

/// UTF-8 text has no form in the local codeset (message 50).
class ZFC_API ZFromUTF8Exception : public ZZException {
  public:
    ZFromUTF8Exception();
    /// Its text names the place in `text` where the conversion stops, as an offset in bytes.
    explicit ZFromUTF8Exception(ZAbstractString const& text);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void print() override;
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }

  private:
    ZLCString codeset;  // name of the local codeset
};

/// A file ended, or could not be read, where more was expected (message 53).
class ZFC_API ZUnexpectedEndOfFile : public ZZException {
  public:
    explicit ZUnexpectedEndOfFile(char const* path);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void print() override;
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }

  private:
    ZLCString path;
};

/// The parser of Java-style properties files met a state without a handler (message 54).
class ZFC_API ZJavaPropertyParseException : public ZZException {
  public:
    explicit ZJavaPropertyParseException(char const* path);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void print() override;
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }

  private:
    ZLCString path;
};

/// A shared library failed; prints `rc` and the loader's text.
class ZFC_API ZSharedLibraryException : public ZZException {
  public:
    ZSharedLibraryException(int number, char const* name, char const* library,
                            char const* errorText, int rc);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void print() override;
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }

  protected:
    ZLCString library;    // its name as the caller gave it
    ZLCString errorText;  // what the loader said
    int rc;               // the loader's code
};

/// A library could not be loaded, initialised or unloaded (message 51).
class ZFC_API ZSharedLibraryLoadException : public ZSharedLibraryException {
  public:
    ZSharedLibraryLoadException(char const* library, char const* errorText, int rc);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void print() override;
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }

  private:
    ZLCString symbol;  // always empty here
};

/// A symbol could not be resolved (message 52).
class ZFC_API ZSharedLibraryResolveException : public ZSharedLibraryException {
  public:
    ZSharedLibraryResolveException(char const* library, char const* symbol, char const* errorText,
                                   int rc);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void print() override;
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }

  private:
    ZLCString symbol;
};

// ------------------------------------------------------------------------ configuration files

/// A configuration file failed; base of the classes below.
class ZFC_API ZPropertiesException : public ZZException {
  public:
    ZPropertiesException(int number, char const* name, char const* propFile);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void print() override;
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }

    /// The file's name as the caller gave it.
    [[nodiscard]] char const* propFile() const { return file_.getChars(); }

  private:
    ZLCString file_;
};

/// A required key is absent (message 28).
class ZFC_API ZPropertiesMissingPropertyException : public ZPropertiesException {
  public:
    ZPropertiesMissingPropertyException(char const* propFile, char const* category,
                                        char const* key);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void print() override;
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }

    /// The stanza.
    [[nodiscard]] char const* category() const { return category_.getChars(); }
    /// The key.
    [[nodiscard]] char const* key() const { return key_.getChars(); }

  private:
    ZLCString category_;
    ZLCString key_;
};

/// A value is not of the type asked for (message 39).
class ZFC_API ZPropertiesInvalidValueException : public ZPropertiesException {
  public:
    ZPropertiesInvalidValueException(char const* propFile, char const* category, char const* key,
                                     char const* value);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void print() override;
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }

    /// The stanza.
    [[nodiscard]] char const* category() const { return category_.getChars(); }
    /// The key.
    [[nodiscard]] char const* key() const { return key_.getChars(); }
    /// The value as it stands in the file.
    [[nodiscard]] char const* value() const { return value_.getChars(); }

  private:
    ZLCString category_;
    ZLCString key_;
    ZLCString value_;
};

/// A value is no number (message 40). Its name is its base's.
class ZFC_API ZPropertiesInvalidNumValueException : public ZPropertiesInvalidValueException {
  public:
    ZPropertiesInvalidNumValueException(char const* propFile, char const* category, char const* key,
                                        char const* value);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }
};

/// A value is no boolean (message 41). Its name is its base's.
class ZFC_API ZPropertiesInvalidBoolValueException : public ZPropertiesInvalidValueException {
  public:
    ZPropertiesInvalidBoolValueException(char const* propFile, char const* category,
                                         char const* key, char const* value);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }
};

/// A value is not of the C++ type asked for, or beyond its range (message 59). Its name is its
/// base's.
class ZFC_API ZPropertiesUnexpectedValueException : public ZPropertiesInvalidValueException {
  public:
    /// `expected` says what the value should be.
    ZPropertiesUnexpectedValueException(char const* propFile, char const* category, char const* key,
                                        char const* value, char const* expected);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void print() override;
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }

    /// What the value should be, in words.
    [[nodiscard]] char const* expected() const { return expected_.getChars(); }

  private:
    ZLCString expected_;
};

/// An iterator is asked for an entry before the first or behind the last (message 42).
class ZFC_API ZPropertiesIteratorException : public ZPropertiesException {
  public:
    explicit ZPropertiesIteratorException(char const* propFile);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }
};

/// A file cannot be used (message 43).
class ZFC_API ZPropertiesIOException : public ZPropertiesException {
  public:
    ZPropertiesIOException(char const* propFile, char const* api, int error);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void print() override;
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }

    /// The operation that failed, such as "fopen(r)".
    [[nodiscard]] char const* api() const { return api_.getChars(); }
    /// Its `errno`.
    [[nodiscard]] int excerrno() const { return error; }

  private:
    ZLCString api_;
    int error;
};

/// A file's content is not of its format (message 44).
class ZFC_API ZPropertiesInvalidDataException : public ZPropertiesException {
  public:
    ZPropertiesInvalidDataException(char const* propFile, char const* data, int line);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void print() override;
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }

    /// The offending line without its trailing white space.
    [[nodiscard]] char const* baddata() const { return data.getChars(); }
    /// Its number, counted from 1; 0 where the data has no lines.
    [[nodiscard]] int badline() const { return lineNumber; }

  private:
    ZLCString data;
    int lineNumber;
};

/// The companion file of a configuration file cannot be read (message 55). propFile() is the
/// companion, api() "mapFile()", and excerrno() what a map of the file answers: EINVAL where the
/// companion is missing or empty.
class ZFC_API ZPropertiesCompanionIOException : public ZPropertiesIOException {
  public:
    /// `error` is the code of a map, `cause` the `errno` that the text shows.
    ZPropertiesCompanionIOException(char const* companion, char const* configFile,
                                    char const* reason, int error, int cause);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void print() override;
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }

    /// The file that names the companion.
    [[nodiscard]] char const* configFile() const { return configFile_.getChars(); }
    /// Why, in words.
    [[nodiscard]] char const* reason() const { return reason_.getChars(); }

  private:
    ZLCString configFile_;
    ZLCString reason_;
    int cause;
};

/// The companion file of a configuration file is damaged, or expands to more than is allowed
/// (message 56). propFile() is the companion, baddata() empty, badline() 0.
class ZFC_API ZPropertiesCompanionDataException : public ZPropertiesInvalidDataException {
  public:
    ZPropertiesCompanionDataException(char const* companion, char const* configFile,
                                      char const* reason);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void print() override;
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }

    /// The file that names the companion.
    [[nodiscard]] char const* configFile() const { return configFile_.getChars(); }
    /// Why, in words.
    [[nodiscard]] char const* reason() const { return reason_.getChars(); }

  private:
    ZLCString configFile_;
    ZLCString reason_;
};

/// Reported, not thrown: a recovery copy of a configuration file, ".NAME.zsave", is left alone
/// because it is damaged or nobody vouches for it (message 57), or was set aside because the file
/// was edited since (message 58). propFile() is the copy, under its new name when it was set aside.
class ZFC_API ZPropertiesRecoveryException : public ZPropertiesException {
  public:
    ZPropertiesRecoveryException(int number, char const* copy, char const* configFile,
                                 char const* reason);
    [[nodiscard]] ZObject* clone() const override { return cloneOf(*this); }
    void print() override;
    void throwException(char const* f, int l) override { throwSelf(*this, f, l); }

    /// The file that the copy was made for.
    [[nodiscard]] char const* configFile() const { return configFile_.getChars(); }
    /// Why, in words.
    [[nodiscard]] char const* reason() const { return reason_.getChars(); }

  private:
    ZLCString configFile_;
    ZLCString reason_;
};

#endif
