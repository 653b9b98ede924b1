/// The configuration object: typed questions about settings, edits, and the file they live in.
///
/// A properties object holds the values of one file. It is empty, loaded (its file's name is known
/// and nothing has changed since), or modified (an edit since the last load or store). Destroying
/// it does not store it.
///
/// Threads. Every operation holds the object's own lock for its whole run, so an object can be
/// shared; several operations together are not one, but within updateFile(). Change notices go out
/// after the lock is released.
///
/// Forks. A fork waits up to 100 ms for operations of other threads, so that the child finds every
/// object whole. What another thread was in for longer, since it waits for a file or its edit
/// takes its time, is left behind: in the child each operation of that object raises
/// ZLockResourceException (message 5) with EOWNERDEAD, and getPropertiesFor() makes a new one.
///
/// Other processes. load() holds a shared record lock on the whole file, store() an exclusive one,
/// both of the open-file-description kind, both without waiting: whoever finds the file locked gets
/// ZPropertiesIOException with "fcntl()" and tries again when it likes. A store writes what the
/// object holds, whatever others have stored meanwhile; updateFile() waits for the lock, reads what
/// they stored, and loses nothing. The file is rewritten in place, because that lock is on this
/// very file. What others store is noticed when getPropertiesFor(), reloadChanged() or updateFile()
/// is called, by the modification time to the nanosecond, the size, the device and the inode. A
/// file that changed a moment before it was read is read once more, because its time may not move
/// with the next change. ZFileWatcher.h has files watched.
///
/// What was not read is not overwritten. After a load that failed for any reason but that there is
/// no such file, store() and updateFile() of that file raise the same failure again, until a load
/// or reload of it has succeeded or clear() was called.
///
/// Arguments. Stanzas, keys and texts are in the local codeset. A stanza or key that is null or
/// empty raises ZInvalidParameterException (message 22) before anything happens; so do names and
/// values that would not read back from the file as they are. Nothing of this is said again below.
#ifndef Z_ZPROPERTIES_H
#define Z_ZPROPERTIES_H

#include "Z/ztags.h"

#include <cstdio>
#include <memory>
#include <string_view>
#include <type_traits>

#include "Z/ZLCString.h"
#include "Z/ZList.h"
#include "Z/ZLock.h"
#include "Z/ZObject.h"
#include "Z/ZObserve.h"
#include "Z/ZPropertiesImpl.h"
#include "Z/ZUTF8String.h"
#include "Z/zexport.h"

class ZHashKeyMap;
class ZLCConstString;
class ZUTF8ConstString;

namespace zfc::config {
class FileSource;
class Notices;
class StoredValues;
}  // namespace zfc::config
namespace zfc::platform {
class LockedFile;
class Patience;
struct Status;
}  // namespace zfc::platform

/// The read operations. None raises more than its contract says and ZOutOfMemoryException.
class ZFC_API ZPropertiesInterface {
  public:
    ZPropertiesInterface() = default;
    ZPropertiesInterface(ZPropertiesInterface const&) = default;
    ZPropertiesInterface& operator=(ZPropertiesInterface const&) = default;
    virtual ~ZPropertiesInterface();

    /// Whether the key is present, with or without values.
    [[nodiscard]] virtual bool exists(char const* stanza, char const* key) const = 0;
    /// Whether the stanza is present.
    [[nodiscard]] virtual bool exists(char const* stanza) const = 0;
    /// Whether the key holds obfuscated values; an absent key does not.
    [[nodiscard]] virtual bool isObfuscated(char const* stanza, char const* key) const = 0;
    /// Whether any key of the stanza does.
    [[nodiscard]] virtual bool isObfuscated(char const* stanza) const = 0;
    /// Puts the key's last value into `out`; without one, `defaultValue`, or with null empty text.
    /// With `required` not 0 there is no default: a non-null one raises ZInvalidParameterException
    /// (message 22) whatever the file holds, and a key that is absent or without values raises
    /// ZPropertiesMissingPropertyException (message 28). An `out` in UTF-8 is given the text
    /// converted; malformed text raises ZToUTF8Exception (message 49), but is copied as it is where
    /// the local codeset is UTF-8 itself.
    virtual void getValue(char const* stanza, char const* key, ZAbstractMutableString& out,
                          int required = 0, char const* defaultValue = nullptr) const = 0;
    /// The key's last value as a number, or `defaultValue`; `required` as for getValue(), with 0
    /// for no default. The text is read as `strtoul` (ISO C) with base 0 does where `unsigned long`
    /// has 32 bits: white space and a sign may lead, "0x" is hexadecimal, a leading 0 octal, a
    /// minus sign wraps, what is too large gives 4294967295. Text that is no number to its very end
    /// raises ZPropertiesInvalidNumValueException (message 40).
    [[nodiscard]] virtual unsigned int getIntegerValue(char const* stanza, char const* key,
                                                       int required = 0,
                                                       unsigned int defaultValue = 0) const = 0;
    /// 1 when the key's last value is yes, y, true, t or 1, and 0 when it is no, n, false, f or 0,
    /// in any case of letters; or `defaultValue`. `required` as for getValue(), with 0 for no
    /// default. Another value raises ZPropertiesInvalidBoolValueException (message 41).
    [[nodiscard]] virtual int getBooleanValue(char const* stanza, char const* key, int required = 0,
                                              int defaultValue = 0) const = 0;
    /// Appends all values of the key, in file order, to the empty list `values`: new ZLCString
    /// (type 0) or new ZUTF8String (type 8) objects, which belong to the list when it owns its
    /// members, else to the caller. Nothing for an absent key. A list that is not empty and another
    /// type raise ZInvalidParameterException (message 22), a value without UTF-8 form
    /// ZToUTF8Exception (message 49); the list is then as it was.
    virtual void getValues(char const* stanza, char const* key, ZArrayList& values,
                           ZPropertyStringType type) const = 0;
    /// Number of values in the stanza: the sum of what its keys answer below.
    [[nodiscard]] virtual unsigned int numValues(char const* stanza) const = 0;
    /// Number of values that getValues() gives: the plain ones, or the obfuscated ones of a key
    /// that has no others.
    [[nodiscard]] virtual unsigned int numValues(char const* stanza, char const* key) const = 0;
    /// Number of stanzas.
    [[nodiscard]] virtual unsigned int count() const = 0;
    /// Number of keys of the stanza.
    [[nodiscard]] virtual unsigned int count(char const* stanza) const = 0;
    /// Writes stanzas, keys and plain values to standard output.
    virtual void list() const = 0;
};

/// The edit operations.
///
/// A set replaces all values of its key and creates stanza and key when they are absent; a null or
/// empty value leaves the key without values. A key does not change between plain and obfuscated
/// through a set: where it exists in the other kind, a non-empty value raises
/// ZInvalidParameterException (message 22), and the key must be deleted first.
class ZFC_API ZPropertiesMutableInterface {
  public:
    ZPropertiesMutableInterface() = default;
    ZPropertiesMutableInterface(ZPropertiesMutableInterface const&) = default;
    ZPropertiesMutableInterface& operator=(ZPropertiesMutableInterface const&) = default;
    virtual ~ZPropertiesMutableInterface();

    /// Sets one value; with `obfuscated` not 0 one that is kept out of the readable file.
    virtual void setValue(char const* stanza, char const* key, char const* value,
                          int obfuscated) = 0;
    /// Sets a plain value.
    virtual void setValue(char const* stanza, char const* key, char const* value) = 0;
    /// The same from a string. Text behind a NUL inside it would be lost and raises
    /// ZInvalidParameterException (message 22); UTF-8 text without a form in the local codeset
    /// raises ZFromUTF8Exception (message 50).
    virtual void setValue(char const* stanza, char const* key, ZLCString const& value,
                          int obfuscated) = 0;
    virtual void setValue(char const* stanza, char const* key, ZUTF8String const& value,
                          int obfuscated) = 0;
    virtual void setValue(char const* stanza, char const* key, ZLCConstString const& value,
                          int obfuscated) = 0;
    virtual void setValue(char const* stanza, char const* key, ZUTF8ConstString const& value,
                          int obfuscated) = 0;
    /// A plain value from a string, as above.
    void setValue(char const* stanza, char const* key, ZAbstractString const& value) {
        if (value.getCodesetHandle() == zgetUTF8Handle())
            return setValue(stanza, key, ZUTF8String(value), 0);
        setValue(stanza, key, ZLCString(value), 0);
    }
    /// Sets the number in decimal, plain.
    virtual void setIntegerValue(char const* stanza, char const* key, unsigned int value) = 0;
    /// Sets "yes" for a value other than 0, else "no", plain.
    virtual void setBooleanValue(char const* stanza, char const* key, int value) = 0;
    /// Removes the key with all its values; one that is absent changes nothing.
    virtual void deleteKey(char const* stanza, char const* key) = 0;
    /// Adds a comment line behind the comments that open the file, or at its top. Null and empty
    /// text raises ZInvalidParameterException (message 22).
    virtual void addFileComment(char const* text) = 0;
    /// Adds a comment line directly above the key's line. Null or empty text and a key that does
    /// not exist raise ZInvalidParameterException (message 22).
    virtual void addEntryComment(char const* stanza, char const* key, char const* text) = 0;
};

/// The notice that observers of a properties object get of a change.
class ZFC_API ZPropertyChanged : public ZObservedParm {
  public:
    /// How the property is named.
    enum PropertyStyle { stanzaAndKey = 0 };
    /// What happened.
    enum PropertyChangeType {
        stanzaAdded = 0,  ///< a new stanza
        deleted = 1,      ///< a key, or with no key a stanza
        valueSet = 2      ///< a key is new or has other values
    };

    /// Copies the names; `key` is null for a change of a whole stanza.
    ZPropertyChanged(PropertyStyle style, PropertyChangeType change, char const* stanza,
                     char const* key);

    [[nodiscard]] ZObject* clone() const override { return new ZPropertyChanged(*this); }

    /// How the property is named.
    [[nodiscard]] PropertyStyle getStyle() const { return style; }
    /// What happened.
    [[nodiscard]] PropertyChangeType getChangeType() const { return change; }
    /// Lives as long as the notice, as does the key.
    [[nodiscard]] char const* getStanza() const { return stanza.getChars(); }
    /// Null for a change of a whole stanza.
    [[nodiscard]] char const* getKey() const { return key.isEmpty() ? nullptr : key.getChars(); }

  private:
    PropertyStyle style;  // Layout: there is one style only
    PropertyChangeType change;
    ZLCString stanza;
    ZLCString key;  // empty: none
};

/// Base of the properties classes: the object's lock.
class ZFC_API ZAbstractProperties : public ZObject {
  public:
    /// Holds a lock from its construction to the end of its scope; see ZResourceLock.
    class ZFC_API ZSCOPED_CAPABILITY ZPropResourceLock {
      public:
        /// Takes the lock; throws what its lock() throws.
        [[nodiscard]] explicit ZPropResourceLock(ZLockInterface& l) ZACQUIRE(l) : guard(l) {}
        /// Throws also ZLockResourceException (message 5) with EOWNERDEAD, in the child of a fork,
        /// for the lock of an object that was left behind, with nothing held.
        [[nodiscard]] explicit ZPropResourceLock(ZLock& l) ZACQUIRE(l);
        ~ZPropResourceLock() ZRELEASE() = default;
        ZPropResourceLock(ZPropResourceLock const&) = delete;
        ZPropResourceLock& operator=(ZPropResourceLock const&) = delete;

      private:
        ZResourceLock guard;
    };

    ZAbstractProperties() = default;
    ZAbstractProperties(ZAbstractProperties const&) = delete;
    ZAbstractProperties& operator=(ZAbstractProperties const&) = delete;
    ~ZAbstractProperties() override;

  protected:
    mutable ZLock propLock;  // held by every public operation for its whole run
};

class ZAbstractPropertiesFactory;

/// The values of one file in a cache, whose flavour knows the file's format.
class ZFC_API ZProperties : public ZAbstractProperties,
                            public ZPropertiesInterface,
                            public ZPropertiesMutableInterface,
                            public ZAbstractObservable {
  public:
    // in slot order: do not sort
    ~ZProperties() override;
    [[nodiscard]] bool exists(char const* stanza, char const* key) const override;
    [[nodiscard]] bool exists(char const* stanza) const override;
    [[nodiscard]] bool isObfuscated(char const* stanza, char const* key) const override;
    [[nodiscard]] bool isObfuscated(char const* stanza) const override;
    void getValue(char const* stanza, char const* key, ZAbstractMutableString& out,
                  int required = 0, char const* defaultValue = nullptr) const override;
    [[nodiscard]] unsigned int getIntegerValue(char const* stanza, char const* key,
                                               int required = 0,
                                               unsigned int defaultValue = 0) const override;
    [[nodiscard]] int getBooleanValue(char const* stanza, char const* key, int required = 0,
                                      int defaultValue = 0) const override;
    void getValues(char const* stanza, char const* key, ZArrayList& values,
                   ZPropertyStringType type) const override;
    [[nodiscard]] unsigned int numValues(char const* stanza) const override;
    [[nodiscard]] unsigned int numValues(char const* stanza, char const* key) const override;
    [[nodiscard]] unsigned int count() const override;
    [[nodiscard]] unsigned int count(char const* stanza) const override;
    /// Adds what `file` holds to the values here. Null and empty mean this object's file; an object
    /// without one takes the name, and where there is no name at all raises
    /// ZInvalidParameterException (message 22).
    ///
    /// A file that cannot be used raises ZPropertiesIOException (message 43) with "fopen(r)" (no
    /// regular file counts too), with "fcntl()" for a lock that is taken, with "fread()", or with
    /// the companion file's name and "mapFile()". The first line that is not of the format raises
    /// ZPropertiesInvalidDataException (message 44).
    /// What was read before a failure stays in the cache.
    ///
    /// A store of the file that was broken off, by a kill or a loss of power, is finished first
    /// from its recovery copy, ".NAME.zsave" beside the file: in the files where they are this
    /// user's and nobody reads them, else in what is read. While there is a copy, a lock that is
    /// taken is waited for up to two seconds. A copy that cannot be read raises
    /// ZPropertiesIOException (message 43) with its name; one that does not count is reported
    /// (messages 57 and 58).
    virtual void load(char const* file = nullptr);
    /// As load(), with the values here dropped first; not before the file is open and locked. When
    /// a reload from another file fails, this object's own file is not stored to either until a
    /// reload has succeeded: what it held is not here any more.
    ///
    /// With the attribute bit ZPCache::keepLastGood the file is read aside, and the values here are
    /// exchanged for its own when all of it was read, its companion and postLoad() included; a
    /// failure leaves this object as it was, but for the rule above.
    ///
    /// Observers are told what the reload has changed: of each key that went (deleted) and of each
    /// stanza that went, behind its keys (deleted, without a key), both in the order of the old
    /// file; then of each new stanza (stanzaAdded), and of each key that is new or has other values
    /// (valueSet), in the order of the new one. What an observer throws ends this and passes.
    virtual void reload(char const* file = nullptr);
    /// Writes the values to `file`, with the obfuscated ones in the companion file that it names,
    /// and flushes both to the device. Null and empty as for load(); an object that has no name
    /// takes this one when it was stored. A file whose bytes would not change is not written. While
    /// it is written there is a recovery copy, but with the attribute bit ZPCache::noRecoveryCopy.
    ///
    /// What fails raises ZPropertiesIOException (message 43) with its operation: "access()" with
    /// the file or directory that denies it, "fopen(r+)", "fcntl()" for a lock that is taken,
    /// "fread()", "fallocate()" for no space, "write()" (EFBIG for a file size limit),
    /// "ftruncate()", "fsync()"; with the companion file's name also "fopen(w)", for one that
    /// exists and was neither read nor written by this object or is no regular file, "fchmod()" for
    /// one that is open to more than the file, and "unlink()"; with the recovery copy's name
    /// "fopen(r)", "fopen(w)", "write()", "fsync()", "rename()" and "unlink()"; and "store()" with
    /// ESTALE when somebody without a lock has put another file in place meanwhile. A line that no
    /// reader would get back whole raises ZPropertiesInvalidDataException (message 44). Whatever
    /// fails, the object still counts as modified, and the files hold their old bytes, as far as
    /// the device lets them be put back; but where "unlink()" fails, for a companion that is needed
    /// no more, the file itself is stored.
    virtual void store(char const* file = nullptr);
    void list() const override;
    using ZPropertiesMutableInterface::setValue;
    void setValue(char const* stanza, char const* key, char const* value, int obfuscated) override;
    void setValue(char const* stanza, char const* key, char const* value) override;
    void setValue(char const* stanza, char const* key, ZLCString const& value,
                  int obfuscated) override;
    void setValue(char const* stanza, char const* key, ZUTF8String const& value,
                  int obfuscated) override;
    void setValue(char const* stanza, char const* key, ZLCConstString const& value,
                  int obfuscated) override;
    void setValue(char const* stanza, char const* key, ZUTF8ConstString const& value,
                  int obfuscated) override;
    void setIntegerValue(char const* stanza, char const* key, unsigned int value) override;
    void setBooleanValue(char const* stanza, char const* key, int value) override;
    void deleteKey(char const* stanza, char const* key) override;
    void addFileComment(char const* text) override;
    void addEntryComment(char const* stanza, char const* key, char const* text) override;

  protected:
    /// Called by load(), reload() and updateFile() when everything was read, under the lock, which
    /// its thread may take again: reads answer with the new values. Does nothing here; an override
    /// refuses values by throwing. Then the load has failed with that, and what the attribute bit
    /// ZPCache::keepLastGood promises of failures holds; what is none of the library's exceptions
    /// passes as well, but a later store raises ZPropertiesInvalidDataException (message 44) in its
    /// place. The file is not to be loaded, stored or updated in here. A constructor that loads a
    /// file calls this one, not an override.
    virtual void postLoad(char const* file);
    /// Called with each new comment to make it one of the format; does nothing here.
    virtual void checkComment(ZLCString& comment) const;

  public:
    /// Adds `attributes` to those of the cache (1: keep comments and blank lines) and keeps `data`.
    virtual void setAttributes(unsigned long attributes, void* data);

  protected:
    /// Raises ZInvalidParameterException (message 22) when the key exists and is not of the kind,
    /// plain or obfuscated, that a set asks for.
    virtual void checkAccess(char const* stanza, char const* key, int obfuscated) const;

  public:
    /// The one object for `file` that `factory` keeps, made and loaded by the first call. It
    /// belongs to the factory, is shared by all callers and lives as long as the factory; null is
    /// never returned. A later call reloads it when `forceReload` is not 0, or when the file has
    /// changed and the object is not modified; within its updateFile() never. Names are compared as
    /// they are given. A load that fails passes its exception on; a new object is then forgotten,
    /// an old one that is not modified is tried again by the next call.
    static ZProperties* getPropertiesFor(char const* file, ZAbstractPropertiesFactory& factory,
                                         int forceReload = 0);

    /// The file's name; empty before the first load() or store() that gives one.
    [[nodiscard]] ZLCString getFileName() const;
    /// Whether there was an edit since the last load or store that succeeded.
    [[nodiscard]] bool isModified() const;

    /// Drops all values and comments, as an edit does of which observers are told as of a reload's,
    /// and forgets the loads that failed: a store writes over their files from now on.
    void clear();

    /// What reloadChanged() found.
    enum class Freshness {
        current,   ///< no setting is another one than before
        reloaded,  ///< the object has other settings than before
        conflict,  ///< the file has changed, and edits here are not stored: nothing was read
        missing    ///< there is no such file; the values stay
    };
    /// Reloads when the file is not what this object has read or stored last, or the last load of
    /// it failed; in its updateFile() and postLoad() never. Observers are told, and whatever fails
    /// is raised, as by reload(); an object without a file is `missing` one.
    Freshness reloadChanged();

    /// Edits the file so that no change by anybody who respects its lock is lost: locks it
    /// exclusively, reads it when it has changed since this object read or stored it, calls `edit`
    /// as `edit(*this)`, stores when something was changed, releases the file.
    ///
    /// `file`: null and empty mean this object's file; an object without one takes the name. A
    /// missing file is made, with the values here, and goes again when nothing is stored. A lock
    /// that is taken is waited for, up to `milliseconds`; with 0 it is tried for once. When the
    /// time is up, ZPropertiesIOException (message 43) with "fcntl()" and EAGAIN.
    ///
    /// The object's lock is held for the whole time, the wait included: `edit` must not wait for a
    /// thread that uses the object. Observers are told of what was read and edited after it is
    /// released. In `edit` this object cannot be loaded, stored or
    /// updated: ZInvalidParameterException (message 22). The same is raised for an object with
    /// edits that are not stored, which reading would drop; for a name that is not the object's;
    /// and from within postLoad().
    ///
    /// Whatever is thrown, by `edit` or as by load() and store(), passes. Then nothing is stored,
    /// the edit is undone, and the object holds what was read; but when "unlink()" fails for a
    /// companion that is needed no more, all else is stored. When somebody without a lock puts
    /// another file in place meanwhile, the edit is undone and `edit` called again for that one. A
    /// thread is not cancelled in here.
    template <class Edit>
    void updateFile(Edit&& edit, unsigned int milliseconds, char const* file = nullptr) {
        using Callable = std::remove_reference_t<Edit>;
        update({&callEdit<Callable>, const_cast<void*>(addressOf(edit))}, milliseconds, file);
    }

  protected:
    /// Takes the cache over, which is not null.
    explicit ZProperties(ZPCategoryBasedCache* owned);

    struct Editing;  // how the library's own classes edit
    /// The values; what is handed out lives until the lock is released.
    [[nodiscard]] ZPCategoryBasedCache& values() const ZREQUIRES(propLock) { return *cache; }

  private:
    friend class ZAbstractPropertiesIterator;
    friend class ZAbstractPropertyValuesIterator;
    struct FileHistory;
    class LoadingFlag;
    enum class Values { kept, cleared, exchanged };

    /// What updateFile() calls.
    struct FileEdit {
        void (*call)(void* edit, ZProperties& object);
        void* edit;
    };
    template <class Edit>
    static void callEdit(void* edit, ZProperties& object) {
        (*static_cast<Edit*>(edit))(object);
    }
    template <class Edit>
    static void const* addressOf(Edit& edit) {
        return std::addressof(edit);
    }
    void update(FileEdit const& edit, unsigned int milliseconds, char const* file);
    [[nodiscard]] bool updateOnce(ZLCString const& name, FileEdit const& edit,
                                  zfc::platform::Patience& patience) ZREQUIRES(propLock);
    void updateHeld(FileEdit const& edit, unsigned int milliseconds, char const* file)
        ZREQUIRES(propLock);
    void readAgain(char const* file, zfc::config::FileSource& source) ZREQUIRES(propLock);
    void runEdit(FileEdit const& edit) ZREQUIRES(propLock);

    /// The last value of a key; null text when there is none.
    struct LastValue {
        char const* text = nullptr;
        unsigned int length = 0;
    };

    [[nodiscard]] LastValue lastValue(char const* stanza, char const* key, int required) const
        ZREQUIRES(propLock);
    template <class Text>
    void setText(char const* stanza, char const* key, Text const& value, int obfuscated);
    void notify(ZPropertyChanged::PropertyChangeType type, char const* stanza, char const* key);

    [[nodiscard]] ZLCString resolved(char const* file) const ZREQUIRES(propLock);
    void loadFrom(ZLCString const& file, Values values) ZREQUIRES(propLock);
    void readFrom(char const* file, zfc::config::FileSource& source, Values values)
        ZREQUIRES(propLock);
    void readValues(char const* file, zfc::config::FileSource& source) ZREQUIRES(propLock);
    void readAnew(char const* file, zfc::config::FileSource& source, Values values)
        ZREQUIRES(propLock);
    void readAside(char const* file, zfc::config::FileSource& source, bool comesBack)
        ZREQUIRES(propLock);
    [[nodiscard]] std::unique_ptr<ZPCategoryBasedCache> emptyCache() ZREQUIRES(propLock);
    void leaveOwnFile(char const* file) ZREQUIRES(propLock);
    void readCompanion(char const* file, zfc::config::FileSource const& source) ZREQUIRES(propLock);
    [[nodiscard]] ZLCString droppedCompanion(char const* name, char const* file) const
        ZREQUIRES(propLock);
    void storeTo(ZLCString const& name, zfc::platform::LockedFile* held) ZREQUIRES(propLock);
    void storeInto(zfc::platform::LockedFile& target, zfc::config::StoredValues& stored,
                   std::string_view image, std::string_view companionImage) ZREQUIRES(propLock);
    void settle(char const* file, zfc::platform::Status const& status) ZREQUIRES(propLock);
    void refresh(int forceReload);
    [[nodiscard]] Freshness freshness() const ZREQUIRES(propLock);
    [[nodiscard]] bool comparesValues() const ZREQUIRES(propLock);
    [[nodiscard]] bool isOutdated(int forceReload) const ZREQUIRES(propLock);
    static ZProperties* findOrLoad(char const* file, ZAbstractPropertiesFactory& factory,
                                   bool& isNew);
    [[nodiscard]] bool defersNotice(ZPropertyChanged::PropertyChangeType type, char const* stanza,
                                    char const* key) ZREQUIRES(propLock);
    void tell(zfc::config::Notices const& notices);

    // Guarded by propLock. Declared order.
    std::unique_ptr<ZPCategoryBasedCache> cache ZPT_GUARDED_BY(propLock);  // never null
    ZLCString fileName ZGUARDED_BY(propLock);  // empty before the first load or store with a name
    int modified ZGUARDED_BY(propLock) = 0;    // set by an edit, cleared by a load or store
    int loading ZGUARDED_BY(propLock) = 0;     // set while a load runs: no notices
    long fileTime ZGUARDED_BY(propLock) = 0;   // modification time of fileName at the last load or
                                               // store, in whole seconds; 0 before. Layout: the
                                               // history knows it better
    std::unique_ptr<FileHistory> history ZPT_GUARDED_BY(propLock);  // never null
};

// ------------------------------------------------------------------------------------- registry

/// Holds the lock that serialises the use of all factories' maps, for the lifetime of the guard.
class ZFC_API ZSCOPED_CAPABILITY ZPropRegistry {
  public:
    [[nodiscard]] ZPropRegistry() ZACQUIRE(registryLock());
    ~ZPropRegistry() ZRELEASE();
    ZPropRegistry(ZPropRegistry const&) = delete;
    ZPropRegistry& operator=(ZPropRegistry const&) = delete;

    /// The lock itself, one in the process and never destroyed.
    [[nodiscard]] static ZLock& registryLock();

  private:
    ZResourceLock guard;
};

/// Makes properties objects of one kind.
class ZFC_API ZPropertiesFactoryInterface {
  public:
    ZPropertiesFactoryInterface() = default;
    ZPropertiesFactoryInterface(ZPropertiesFactoryInterface const&) = default;
    ZPropertiesFactoryInterface& operator=(ZPropertiesFactoryInterface const&) = default;

    // in slot order: do not sort
    virtual ~ZPropertiesFactoryInterface();
    /// A new empty object, owned by the caller; not null.
    [[nodiscard]] virtual ZProperties* makePropertiesInstance() = 0;
};

/// A factory with the objects that ZProperties::getPropertiesFor() made with it. They are destroyed
/// with the factory.
class ZFC_API ZAbstractPropertiesFactory : public ZObject, public ZPropertiesFactoryInterface {
  public:
    ZAbstractPropertiesFactory();
    ZAbstractPropertiesFactory(ZAbstractPropertiesFactory const&) = delete;
    ZAbstractPropertiesFactory& operator=(ZAbstractPropertiesFactory const&) = delete;
    ~ZAbstractPropertiesFactory() override;

  private:
    friend class ZProperties;

    [[nodiscard]] ZProperties* find(char const* file) const;
    void enter(char const* file, std::unique_ptr<ZProperties> properties);

    // File name (ZLCString) to object (ZProperties); both are owned here, because the map clones
    // what it owns and a properties object has no clone. Guarded by ZPropRegistry.
    std::unique_ptr<ZHashKeyMap> objects;
};

// ------------------------------------------------------------------------------------ iterators
// An iterator stands before its first entry when it is made and after reset(). It walks a copy of
// the names or values taken when it was made, which later edits do not reach. Iterators are used by
// one thread at a time.

/// A walk over names.
class ZFC_API ZPropertiesIteratorInterface {
  public:
    ZPropertiesIteratorInterface() = default;
    ZPropertiesIteratorInterface(ZPropertiesIteratorInterface const&) = default;
    ZPropertiesIteratorInterface& operator=(ZPropertiesIteratorInterface const&) = default;

    // in slot order: do not sort
    virtual ~ZPropertiesIteratorInterface();
    /// Whether next() will find an entry.
    [[nodiscard]] virtual bool hasMore() const = 0;
    /// Moves to the next entry; false at the end, where the iterator stays.
    virtual bool next() = 0;
    /// Back before the first entry.
    virtual void reset() = 0;
    /// The current name; lives as long as the iterator. Before the first entry and behind the last
    /// raises ZPropertiesIteratorException (message 42).
    [[nodiscard]] virtual char const* getName() const = 0;
    /// Number of entries of the whole walk.
    [[nodiscard]] virtual unsigned int size() const = 0;
};

/// The walk itself; a derived class enters the names.
class ZFC_API ZAbstractPropertiesIterator : public ZObject, public ZPropertiesIteratorInterface {
  public:
    // in slot order: do not sort
    ~ZAbstractPropertiesIterator() override;
    [[nodiscard]] bool hasMore() const override;
    bool next() override;
    void reset() override;
    [[nodiscard]] char const* getName() const override;
    [[nodiscard]] unsigned int size() const override;

  protected:
    /// Over the stanzas, or with a stanza over its keys, which are none when it is absent. The
    /// properties object is not needed afterwards.
    ZAbstractPropertiesIterator(ZProperties const& properties, char const* stanza);
    /// What getName() raises where there is no entry.
    [[noreturn]] void raiseInvalidState() const;

  private:
    static constexpr unsigned int noEntry = static_cast<unsigned int>(-1);

    void add(char const* name, unsigned int length);

    ZLCString fileName;              // for errors
    ZLCString names;                 // each with its NUL, end to end
    unsigned int count = 0;          // how many
    unsigned int current = noEntry;  // offset in names of the current one; their length: at the end
};

/// Over the stanzas of a properties object, or over the keys of one stanza, in file order.
class ZFC_API ZPropertiesIterator : public ZAbstractPropertiesIterator {
  public:
    /// Over the stanzas.
    explicit ZPropertiesIterator(ZProperties const& properties);
    /// An absent stanza has no keys.
    ZPropertiesIterator(ZProperties const& properties, char const* stanza);
    ~ZPropertiesIterator() override;
};

/// A walk over the values of one key, which can edit them.
class ZFC_API ZPropertyValuesIteratorInterface {
  public:
    ZPropertyValuesIteratorInterface() = default;
    ZPropertyValuesIteratorInterface(ZPropertyValuesIteratorInterface const&) = default;
    ZPropertyValuesIteratorInterface& operator=(ZPropertyValuesIteratorInterface const&) = default;

    // in slot order: do not sort
    virtual ~ZPropertyValuesIteratorInterface();
    /// Whether next() will find a value.
    [[nodiscard]] virtual bool hasMore() const = 0;
    /// Moves to the next value; false at the end, where the iterator stays.
    virtual bool next() = 0;
    /// Back before the first value.
    virtual void reset() = 0;
    /// The current value; lives until the iterator moves or edits. Before the first value, behind
    /// the last and after removeValue() raises ZPropertiesIteratorException (message 42).
    [[nodiscard]] virtual char const* getValue() const = 0;
    /// Number of values of the whole walk.
    [[nodiscard]] virtual unsigned int size() const = 0;
    /// Adds a value behind the key's others, of their kind, plain for a new key; the walk will come
    /// to it. Null and empty text raises ZInvalidParameterException (message 22).
    virtual void addValue(char const* value) = 0;
    /// Replaces the current value; `value` as for addValue(). Raises ZPropertiesIteratorException
    /// (message 42) where getValue() does, and when the value is no longer where the walk found it,
    /// because somebody else has changed the key.
    virtual void changeValue(char const* value) = 0;
    /// Removes the current value; next() moves to the one behind it. Raises as changeValue().
    virtual void removeValue() = 0;
};

/// The walk itself; a derived class makes the edits.
class ZFC_API ZAbstractPropertyValuesIterator : public ZObject,
                                                public ZPropertyValuesIteratorInterface {
  public:
    // in slot order: do not sort
    ~ZAbstractPropertyValuesIterator() override;
    [[nodiscard]] bool hasMore() const override;
    bool next() override;
    void reset() override;
    [[nodiscard]] char const* getValue() const override;
    [[nodiscard]] unsigned int size() const override;

  protected:
    /// Over the values that ZProperties::getValues() gives.
    ZAbstractPropertyValuesIterator(ZProperties const& properties, char const* stanza,
                                    char const* key);
    /// The index of the current value among the key's; raises as getValue() does.
    [[nodiscard]] unsigned int currentIndex() const;
    /// What getValue() raises where there is no value.
    [[noreturn]] void raiseInvalidState() const;

    ///@{
    /// The walk follows an edit that was made.
    void valueAdded(char const* value);
    void valueChanged(char const* value);
    void valueRemoved();
    ///@}

  private:
    ZLCString fileName;         // for errors
    ZArrayList found;           // the values of the walk (ZLCString), owned; null: a removed one
    unsigned int position = 0;  // in found, of the current value, or of the next when there is none
    unsigned int gaps = 0;      // nulls in found, all of them before the position
    bool isOnValue = false;     // whether there is a current value
};

#endif
