/// Properties files of the Java platform, edited as text.
#ifndef Z_ZJAVAPROPERTIESFILE_H
#define Z_ZJAVAPROPERTIESFILE_H

#include "Z/ztags.h"

#include <functional>
#include <memory>

#include "Z/ZList.h"
#include "Z/ZObject.h"
#include "Z/ZUTF8String.h"
#include "Z/zexport.h"

/// One properties file. It is read as the platform's `java.util.Properties` reads it, every escape
/// and every line included, and a line that is not edited keeps every byte: comments, blank lines,
/// order, CR LF, the way a text is escaped, and a last line without an end.
///
/// A key on several lines has the value of the last one. Text is given and returned in UTF-8, or
/// converted to and from the codeset of the string; any text can be a key or a value, with line
/// ends, a NUL, or nothing at all. What is written is ASCII: other characters become \u escapes,
/// two for one beyond the Basic Multilingual Plane. Malformed text raises ZToUTF8Exception (message
/// 49). Whatever fails leaves the object as it was.
///
/// An object is used by one thread at a time; other processes are kept out by a lock on the file
/// while it is open. Failures of the system are ZPropertiesIOException (message 43) with the path,
/// the operation and its errno, "fcntl()" when another process has the file locked. All may throw
/// ZOutOfMemoryException (message 1).
class ZFC_API ZJavaPropertiesFile : public ZObject {
  public:
    /// What the bytes of the file are.
    enum class Encoding {
        utf8,
        latin1  // ISO 8859-1: every byte is the character with its number
    };

    /// What may be wrong with a line.
    enum class Fault {
        encoding,       // it is not UTF-8; it may be ISO 8859-1
        unicodeEscape,  // \u without four hexadecimal digits
        halfSurrogate   // a \u escape of half a surrogate pair, which is no character
    };

    /// Is told of every line that has a fault.
    class FaultyLines {
      public:
        virtual ~FaultyLines() = default;
        /// `line` counts from 1 as an editor does. `text` is the line in the file's encoding,
        /// without its end, up to the first NUL; it lives during the call.
        virtual void faulty(unsigned int line, char const* text, Fault what) = 0;
    };

    /// Of the file of this path, which is not touched yet. Throws ZInvalidParameterException
    /// (message 22) for a null or empty path.
    explicit ZJavaPropertiesFile(char const* path, Encoding encoding = Encoding::utf8);

    // in slot order: do not sort
    ~ZJavaPropertiesFile() override;

    ZJavaPropertiesFile(ZJavaPropertiesFile const&) = delete;
    ZJavaPropertiesFile& operator=(ZJavaPropertiesFile const&) = delete;

    /// The path as the constructor got it; lives as long as the object.
    [[nodiscard]] char const* getPath() const;

    /// Reads the file in place of what the object holds. Never waits for a lock. Throws
    /// ZPropertiesInvalidDataException (message 44) with the first line that is not UTF-8, or has
    /// "\u" without four hexadecimal digits, and "fopen(r)" when the file cannot be opened or is no
    /// regular file. After any failure but that there is no such file (ENOENT), store() raises the
    /// same until a load has succeeded, or clear() was called.
    void load();
    /// Reads the file anew, aside, and tells of each line with a fault, one for a line and those
    /// that continue it. Throws as load() does, but not for these faults.
    void check(FaultyLines& lines) const;

    /// Writes the file: created when missing, else rewritten in place under an exclusive lock, and
    /// flushed to the device; when that fails it keeps its old bytes. Never waits for the lock. A
    /// file that holds something else than was loaded or stored here last is not overwritten:
    /// "store()" with ESTALE, or with EEXIST when nothing was loaded.
    void store();
    /// Holds the file locked from reading to writing, so that no change of another program is lost:
    /// waits for the lock up to `milliseconds`, loads the file if it is not what was loaded or
    /// stored here last, calls `edit`, and stores if something changed. A missing file is an empty
    /// one, and made only when something is stored. `edit` must not call load(), store() or
    /// updateFile(); what it throws passes, and the object is as before it. Edits made earlier that
    /// were not stored are stored with it; when the file has changed since they were made, nothing
    /// is: "store()" with ESTALE. Else throws as load() and store() do.
    void updateFile(std::function<void(ZJavaPropertiesFile&)> const& edit,
                    unsigned int milliseconds);
    /// Whether a store makes a recovery copy, ".NAME.zsave", from which one that is killed is
    /// finished by whoever opens the file next; at first it does. Without, a store is faster, and a
    /// kill inside of it may leave a part of the file old and a part new.
    void setRecoveryCopy(bool isMade);
    /// Without pairs and comments, and the next store() may overwrite whatever the file holds.
    void clear();

    /// Empties `out`, then gives it the value of the key, converted to its codeset; it stays empty
    /// when there is no such key, or no such text in that codeset. Throws
    /// ZPropertiesInvalidDataException (message 44) when the value has half a surrogate pair: it
    /// stays in the file, but is no text.
    void getValue(ZAbstractString const& key, ZAbstractMutableString& out) const;
    /// Whether the object has the key.
    [[nodiscard]] bool contains(ZAbstractString const& key) const;
    /// Every key once, a ZUTF8String, in the order of the lines that count, in a new list that owns
    /// them. Throws ZPropertiesInvalidDataException (message 44) for a key with half a surrogate
    /// pair.
    [[nodiscard]] std::unique_ptr<ZArrayList> getKeys() const;

    /// Replaces the value in the last line of the key, whose other bytes stay, or appends a line
    /// "key = value". A line that has this value already stays as it is.
    void setValue(ZAbstractString const& key, ZAbstractString const& value);
    /// Removes all lines of the key; false when there is none.
    bool deleteKey(ZAbstractString const& key);

    /// Adds a comment line to the file, below the comments that it begins with. "#" is put in front
    /// of a text that begins with neither "#" nor "!". Throws ZInvalidParameterException (message
    /// 22) for a text that is empty or has a line end.
    void addComment(ZAbstractString const& text);
    /// The same above the last line of the key, which must be there.
    void addComment(ZAbstractString const& key, ZAbstractString const& text);

    /// Writes every pair anew, as "key = value"; a line with half a surrogate pair stays as it is.
    /// With `keepComments` 0 comments and blank lines are dropped.
    void rewrite(int keepComments);

  private:
    struct State;
    std::unique_ptr<State> state;
};

#endif
