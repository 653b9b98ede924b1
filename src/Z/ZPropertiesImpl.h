/// The in-memory form of a configuration file: stanzas, their keys, each key's values, and the
/// lines from which the file is written back in the order it was read.
///
/// Text is bytes of the local codeset. Names are compared byte for byte. Nothing here is locked,
/// and two threads may not even read at the same time: a properties object uses its cache under its
/// own lock. What a getter returns, lists and texts alike, belongs to the cache and lives until the
/// cache is changed next.
#ifndef Z_ZPROPERTIESIMPL_H
#define Z_ZPROPERTIESIMPL_H

#include "Z/ztags.h"

#include <cstdio>
#include <memory>
#include <type_traits>

#include "Z/ZLCString.h"
#include "Z/ZObject.h"
#include "Z/zexport.h"

class ZArrayList;
class ZBuffer;
class ZList;

namespace zfc::cache {
class Records;
}

/// The codeset of the strings that a list of values or pairs is filled with.
enum ZPropertyStringType : int {
    zpropLocalCodeset = 0,  ///< ZLCString
    zpropUTF8 = 8           ///< ZUTF8String
};

/// One line of a stanza file, as listed by ZPCategoryBasedCache::getLines().
class ZFC_API ZPropLine : public ZObject {
  public:
    /// What a line is, and what its text then tells.
    enum Kind : unsigned int {
        comment = 1,  ///< text: from its `#` to the end
        blank = 2,    ///< text: empty
        header = 4,   ///< text: the stanza name
        key = 8       ///< text: the key name; its values are the key's
    };

    /// A line of a Kind; the text is copied.
    ZPropLine(unsigned int lineKind, char const* lineText) : kind(lineKind), text(lineText) {}

    /// By kind, then by the bytes of the text; an object of another class as ZObject::compare().
    [[nodiscard]] int compare(ZObject const& other) const override;
    [[nodiscard]] ZObject* clone() const override { return new ZPropLine(*this); }

    /// One of Kind.
    [[nodiscard]] unsigned int getKind() const { return kind; }
    /// What Kind says; lives as long as the object.
    [[nodiscard]] char const* getText() const { return text.getChars(); }

  private:
    unsigned int kind;  // one of Kind
    ZLCString text;     // as Kind says
};

/// The name of a key that has obfuscated values, as listed by
/// ZPCategoryBasedCache::getObfuscatedItems().
class ZFC_API ZObfuscatedItem : public ZObject {
  public:
    /// Copies both names.
    ZObfuscatedItem(char const* stanzaName, char const* keyName)
        : stanza(stanzaName), key(keyName) {}

    /// By stanza name, then by key name, as bytes; an object of another class as
    /// ZObject::compare().
    [[nodiscard]] int compare(ZObject const& other) const override;
    [[nodiscard]] ZObject* clone() const override { return new ZObfuscatedItem(*this); }

    /// The stanza's name; lives as long as the object, as does the key's.
    [[nodiscard]] char const* getStanza() const { return stanza.getChars(); }
    /// The key's name.
    [[nodiscard]] char const* getKey() const { return key.getChars(); }

  private:
    ZLCString stanza;
    ZLCString key;
};

/// The key map of one stanza: key name to the key's value list. Keeps the order of entering.
class ZFC_API ZPKVList : public ZObject {
  public:
    ZPKVList();
    ZPKVList(ZPKVList const&) = delete;
    ZPKVList& operator=(ZPKVList const&) = delete;
    ~ZPKVList() override;

    /// Enters the key with a copy of the list's members; a key already there gets the new list.
    void putEntry(char const* key, ZArrayList const& values);
    /// The key's values (ZLCString), owned by the map; null when the key is not there.
    [[nodiscard]] ZArrayList* getEntry(char const* key) const;
    /// Drops the key, if it is there.
    void removeEntry(char const* key);
    /// Drops every key.
    void removeAll();
    /// Number of keys.
    [[nodiscard]] unsigned int size() const;
    /// The key names (ZLCString) in order; owned by the map.
    [[nodiscard]] ZArrayList const& getKeys() const;
    /// Appends the key names to `out`, through its add().
    void listKeys(ZList& out) const;

  private:
    struct Index;
    std::unique_ptr<ZArrayList> keys;  // the names, owning
    std::unique_ptr<Index> index;      // names to value lists
};

/// A list of (key, value) pairs in a chosen codeset.
class ZFC_API ZPropertiesKVList : public ZObject {
  public:
    /// Any other type than the two raises ZInvalidParameterException (message 22).
    explicit ZPropertiesKVList(ZPropertyStringType type = zpropLocalCodeset);
    ZPropertiesKVList(ZPropertiesKVList const&) = delete;
    ZPropertiesKVList& operator=(ZPropertiesKVList const&) = delete;
    ~ZPropertiesKVList() override;

    /// The codeset of the pairs.
    [[nodiscard]] ZPropertyStringType getType() const { return type; }
    /// Number of pairs.
    [[nodiscard]] unsigned int getItemCount() const;
    /// The key (the value) of pair `i`, a ZLCString or a ZUTF8String as the type says; owned by the
    /// list; null when `i` is beyond the end.
    [[nodiscard]] ZAbstractString const* getItemKey(unsigned int i) const;
    /// The value of pair `i`; see getItemKey().
    [[nodiscard]] ZAbstractString const* getItemValue(unsigned int i) const;
    /// Appends a pair given in the local codeset; null is empty text. Text that has no UTF-8 form
    /// raises ZToUTF8Exception (message 49) and nothing is added.
    void addItem(char const* key, char const* value);
    /// Drops every pair.
    void clear();

  private:
    std::unique_ptr<ZArrayList> keys;    // owning; as many as values
    std::unique_ptr<ZArrayList> values;  // owning
    ZPropertyStringType type;
};

/// What a properties object asks of its cache. The arguments are read during the call only.
class ZFC_API ZPCache : public ZObject {
  public:
    /// Which of a key's two value lists is meant.
    enum get_type_e {
        plainElseObfuscated = 0,  ///< the plain values if there are any, else the obfuscated ones
        plainValues = 1,          ///< the plain values alone
        obfuscatedValues = 2      ///< the obfuscated values alone
    };
    /// Attribute bit: comments and blank lines that are read are kept.
    static constexpr unsigned long keepComments = 1;
    /// Attribute bit: a store makes no recovery copy. It is faster, and a process that is killed
    /// inside of it may leave a part of the file old and a part new.
    static constexpr unsigned long noRecoveryCopy = 2;
    /// Attribute bit: a reload that fails leaves the values as they were.
    static constexpr unsigned long keepLastGood = 4;
    /// Attribute bit: the attribute data points to an `unsigned long`, read at once: how many bytes
    /// the content of the companion file may expand to, instead of defaultCompanionLimit.
    static constexpr unsigned long companionLimit = 8;
    static constexpr unsigned long defaultCompanionLimit = 64UL << 20;  // 64 MiB

    // in slot order: do not sort
    ~ZPCache() override;
    [[nodiscard]] ZObject* clone() const override = 0;
    /// The chosen values (ZLCString), empty when there are none of that kind; null when stanza or
    /// key is absent.
    [[nodiscard]] virtual ZArrayList* get(char const* stanza, char const* key, get_type_e type) = 0;
    /// The chosen values of every key of the stanza; null when the stanza is absent.
    [[nodiscard]] virtual ZPKVList* get(char const* stanza, get_type_e type) = 0;
    /// Creates stanza and key when absent and appends the value, unless it is null or empty, to the
    /// plain or (obfuscated non-zero) the obfuscated values. A null key creates the stanza only.
    virtual void add(char const* stanza, char const* key, char const* value, int obfuscated) = 0;
    /// The same without a value.
    virtual void add(char const* stanza, char const* key, int obfuscated) = 0;
    /// Creates stanza and key when absent and replaces all values, plain and obfuscated, by this
    /// one plain value; by none when it is null or empty. A null key creates the stanza only.
    virtual void set(char const* stanza, char const* key, char const* value) = 0;
    /// The same without a value.
    virtual void set(char const* stanza, char const* key) = 0;
    /// As set(), with the value as the only obfuscated one.
    virtual void setObfuscated(char const* stanza, char const* key, char const* value) = 0;
    /// The same without a value.
    virtual void setObfuscated(char const* stanza, char const* key) = 0;
    /// Drops the key with its values and its line; nothing when it is absent.
    virtual void remove(char const* stanza, char const* key) = 0;
    /// Drops the stanza with its keys and its lines up to the next header.
    virtual void remove(char const* stanza) = 0;
    /// How many values get() of type 0 yields for all keys of the stanza, for one key; 0 when
    /// absent.
    [[nodiscard]] virtual unsigned int countValues(char const* stanza) const = 0;
    [[nodiscard]] virtual unsigned int countValues(char const* stanza, char const* key) const = 0;
    /// Number of keys of the stanza; 0 when it is absent.
    [[nodiscard]] virtual unsigned int keyCount(char const* stanza) const = 0;
    /// Whether the stanza, or the key in it, exists, with or without values.
    [[nodiscard]] virtual bool contains(char const* stanza) const = 0;
    [[nodiscard]] virtual bool contains(char const* stanza, char const* key) const = 0;
    /// Whether any key of the stanza, whether this key, has obfuscated values.
    [[nodiscard]] virtual bool isObfuscated(char const* stanza) const = 0;
    [[nodiscard]] virtual bool isObfuscated(char const* stanza, char const* key) const = 0;
    /// Number of stanzas.
    [[nodiscard]] virtual unsigned int count() const = 0;
    /// Appends the stanza names (new ZLCString objects, through addNoCopy()) in file order; those
    /// without a header line follow at the end. The list owns them when it owns its members.
    virtual void getNames(ZArrayList& out) const = 0;
    /// Appends the key names of the stanza in the same way; nothing when it is absent.
    virtual void getNames(char const* stanza, ZArrayList& out) const = 0;
    /// The key names of the stanza; null when it is absent.
    [[nodiscard]] virtual ZArrayList* getNames(char const* stanza) = 0;
    /// Writes stanzas, keys and plain values for people: "\n[%s]\n", "%s = %s\n" for each value,
    /// "%s =\n" for a key without plain values.
    virtual void list(FILE* out) const = 0;
    /// Reads the file's format from `stream`, to what is already there; `fileName` is for errors.
    virtual void be_read(char const* fileName, FILE* stream) = 0;
    /// Writes the file's format to `stream`; the caller flushes and truncates.
    virtual void be_write(char const* fileName, FILE* stream) = 0;
    /// Reads the companion file's bytes, to what is already there.
    virtual void be_read_obfuscated(ZBuffer& in) = 0;
    /// Makes the companion file's bytes; with no obfuscated values `out` stays untouched.
    virtual void be_write_obfuscated(ZBuffer& out) = 0;
    /// Drops the header line of the stanza and its lines up to the next header; values stay.
    virtual void delLine(char const* stanza) = 0;
    /// Drops the line of the key; values stay.
    virtual void delLine(char const* stanza, char const* key) = 0;
    /// set() or (obfuscated non-zero) setObfuscated(), and a line for stanza and key where they
    /// have none. A null key makes the stanza and its header line only.
    virtual void addLine(char const* stanza, char const* key, char const* value,
                         int obfuscated) = 0;
    /// add() without a value, and a line for stanza and key where they have none.
    virtual void addLine(char const* stanza, char const* key, int obfuscated) = 0;
    /// Adds a comment behind those that open the file.
    virtual void addFileComment(char const* text) = 0;
    /// Adds a comment below the stanza's header, behind those already there.
    virtual void addLineComment(char const* stanza, char const* text) = 0;
    /// Adds a comment directly above the key's line.
    virtual void addLineComment(char const* stanza, char const* key, char const* text) = 0;
    /// Drops everything but the attributes.
    virtual void clear() = 0;
    /// Adds attribute bits, and replaces the attribute data, which stays the caller's. With the bit
    /// companionLimit, null data raises ZInvalidParameterException (message 22) and changes
    /// nothing.
    virtual void setAttributes(unsigned long attributes, void* data) = 0;
    /// out = stanza + "." + key.
    virtual void makeKey(ZLCString& out, char const* stanza, char const* key) const = 0;
};

/// The cache of a file with stanzas, without its file format.
///
/// What is written reads back as the same structure. An edit that would break that is refused with
/// ZInvalidParameterException (message 22) before anything changes; so is a null or empty stanza or
/// key, where the contract does not say otherwise. The rules are the isStorable functions.
class ZFC_API ZPCategoryBasedCache : public ZPCache {
  public:
    ZPCategoryBasedCache();
    ZPCategoryBasedCache& operator=(ZPCategoryBasedCache const&) = delete;

    // in slot order: do not sort
    ~ZPCategoryBasedCache() override;
    [[nodiscard]] ZArrayList* get(char const* stanza, char const* key, get_type_e type) override;
    [[nodiscard]] ZPKVList* get(char const* stanza, get_type_e type) override;
    void add(char const* stanza, char const* key, char const* value, int obfuscated) override;
    void add(char const* stanza, char const* key, int obfuscated) override;
    void set(char const* stanza, char const* key, char const* value) override;
    void set(char const* stanza, char const* key) override;
    void setObfuscated(char const* stanza, char const* key, char const* value) override;
    void setObfuscated(char const* stanza, char const* key) override;
    void remove(char const* stanza, char const* key) override;
    void remove(char const* stanza) override;
    [[nodiscard]] unsigned int countValues(char const* stanza) const override;
    [[nodiscard]] unsigned int countValues(char const* stanza, char const* key) const override;
    [[nodiscard]] unsigned int keyCount(char const* stanza) const override;
    [[nodiscard]] bool contains(char const* stanza) const override;
    [[nodiscard]] bool contains(char const* stanza, char const* key) const override;
    [[nodiscard]] bool isObfuscated(char const* stanza) const override;
    [[nodiscard]] bool isObfuscated(char const* stanza, char const* key) const override;
    [[nodiscard]] unsigned int count() const override;
    void getNames(ZArrayList& out) const override;
    void getNames(char const* stanza, ZArrayList& out) const override;
    [[nodiscard]] ZArrayList* getNames(char const* stanza) override;
    void list(FILE* out) const override;
    void delLine(char const* stanza) override;
    void delLine(char const* stanza, char const* key) override;
    void addLine(char const* stanza, char const* key, char const* value, int obfuscated) override;
    void addLine(char const* stanza, char const* key, int obfuscated) override;
    void addFileComment(char const* text) override;
    void addLineComment(char const* stanza, char const* text) override;
    void addLineComment(char const* stanza, char const* key, char const* text) override;
    void clear() override;
    void setAttributes(unsigned long bits, void* data) override;
    void makeKey(ZLCString& out, char const* stanza, char const* key) const override;

    // Values without string objects. Texts end with a NUL; lengths are bytes without it. Visitors
    // are called in order and must not change the cache.

    /// The last value of get() type 0. False, and nothing stored, when stanza or key is absent or
    /// the key has no values.
    [[nodiscard]] bool lastValue(char const* stanza, char const* key, char const*& text,
                                 unsigned int& length) const;
    /// Whether the key is there and, plain where obfuscated ones are asked for or the other way
    /// round, not of the kind to take a value of `obfuscated`.
    [[nodiscard]] bool isOfOtherKind(char const* stanza, char const* key, int obfuscated) const;
    /// Value number `i` of get() type 0, counted from 0; null when there is none.
    [[nodiscard]] char const* valueAt(char const* stanza, char const* key, unsigned int i) const;
    /// Calls visitor(char const* text, unsigned int length) for each chosen value of the key.
    template <class Visitor>
    void forEachValue(char const* stanza, char const* key, get_type_e type,
                      Visitor&& visitor) const {
        using Object = std::remove_reference_t<Visitor>;
        visitValues(stanza, key, type, &callVisitor<Object>, const_cast<void*>(addressOf(visitor)));
    }
    /// Calls visitor(char const* name, unsigned int length) for each stanza, in getNames() order.
    template <class Visitor>
    void forEachStanza(Visitor&& visitor) const {
        using Object = std::remove_reference_t<Visitor>;
        visitStanzas(&callVisitor<Object>, const_cast<void*>(addressOf(visitor)));
    }
    /// Calls visitor(char const* name, unsigned int length) for each key, in getNames() order.
    template <class Visitor>
    void forEachKey(char const* stanza, Visitor&& visitor) const {
        using Object = std::remove_reference_t<Visitor>;
        visitKeys(stanza, &callVisitor<Object>, const_cast<void*>(addressOf(visitor)));
    }

    /// add(), and a line for stanza and key where they have none. The value is not null or empty,
    /// else ZInvalidParameterException (message 22).
    void addValue(char const* stanza, char const* key, char const* value, int obfuscated);
    /// Replaces value number `i` of get() type 0; false, and no change, when there is none. A null
    /// or empty value is refused as addValue() does.
    bool changeValue(char const* stanza, char const* key, unsigned int i, char const* value);
    /// Drops value number `i` of get() type 0; false when there is none. The key stays.
    bool removeValue(char const* stanza, char const* key, unsigned int i);

    // Whether the text, not null, would be read back as it is from the file it is written to.

    /// Not empty, no `]`, no line feed, and the header line fits.
    [[nodiscard]] static bool isStorableStanza(char const* stanza);
    /// Not empty, no `=`, no line feed, no `#` or `[` in front, no white space at either end, and
    /// the line without a value fits.
    [[nodiscard]] static bool isStorableKey(char const* key);
    /// Obfuscated values are free; a plain one has no line feed, and its line fits behind the key.
    [[nodiscard]] static bool isStorableValue(char const* key, char const* value, int obfuscated);
    /// Begins with `#`, has no line feed, and fits a line.
    [[nodiscard]] static bool isStorableComment(char const* text);
    /// The longest line that is read whole, in bytes, without its line feed.
    static constexpr unsigned int maxLine = 8190;

    /// Whether the comment `line` is a commented-out line that begins with `wanted` ("#key="):
    /// every byte of `wanted` matches, blanks of `line` apart; the rest of `line` is free.
    [[nodiscard]] static bool isCommentWeWant(char const* wanted, char const* line);
    /// Splits a name made by makeKey() at its first "."; false, and both untouched, when it has
    /// none or a part is empty.
    static bool validateKey(char const* flat, ZLCString& stanza, ZLCString& key);

    /// Appends the lines of the file as ZPropLine objects, through addNoCopy().
    void getLines(ZArrayList& out) const;
    /// Appends the keys with obfuscated values as ZObfuscatedItem objects, through addNoCopy(), in
    /// the order in which they got them.
    void getObfuscatedItems(ZArrayList& out) const;
    /// Number of keys with obfuscated values.
    [[nodiscard]] unsigned int obfuscatedCount() const;

    /// The file that holds the obfuscated values: the last plain value given to the key "file" of
    /// the stanza "configuration-database", by the reader or by an edit; empty when there was none.
    [[nodiscard]] char const* getCompanionName() const { return companionName.getChars(); }
    /// Says where the obfuscated values are kept from now on; null for nowhere.
    void setCompanionName(char const* file) { companionName = file; }
    /// The attribute bits that are set.
    [[nodiscard]] unsigned long getAttributes() const { return attributes; }
    /// What the attribute bits were set with; not owned.
    [[nodiscard]] void* getAttributeData() const { return attributeData; }
    /// Bytes that the content of the companion file may expand to.
    [[nodiscard]] unsigned long getCompanionLimit() const;

  protected:
    /// Copies everything but the lists handed out.
    ZPCategoryBasedCache(ZPCategoryBasedCache const& other);

    // What get() and getNames() handed out since the last change. Layout: and the companion's limit
    struct Lists;
    std::unique_ptr<zfc::cache::Records> records;  // stanzas, keys, values and lines; never null
    std::unique_ptr<Lists> lists;                  // never null
    ZLCString companionName;                       // empty: none known
    unsigned long attributes = 0;                  // attribute bits
    void* attributeData = nullptr;                 // the caller's. Layout: nothing here uses it

  private:
    struct Change;
    class Edit;
    void edit(Change const& change);
    unsigned int editKey(unsigned int stanza, unsigned int key, unsigned int hash,
                         Change const& change);
    void noteCompanion(unsigned int key);

    using Visit = void (*)(void* visitor, char const* text, unsigned int length);
    template <class Object>
    static void callVisitor(void* visitor, char const* text, unsigned int length) {
        (*static_cast<Object*>(visitor))(text, length);
    }
    template <class Object>
    static void const* addressOf(Object& visitor) {
        return std::addressof(visitor);
    }
    void visitValues(char const* stanza, char const* key, get_type_e type, Visit visit,
                     void* visitor) const;
    void visitStanzas(Visit visit, void* visitor) const;
    void visitKeys(char const* stanza, Visit visit, void* visitor) const;
};

#endif
