/// The properties object of a stanza file.
#ifndef Z_ZSTANZAFILEPROPERTIES_H
#define Z_ZSTANZAFILEPROPERTIES_H

#include "Z/ztags.h"

#include <memory>

#include "Z/ZProperties.h"
#include "Z/zexport.h"

struct ZStzFileItem;

/// A stanza file: sections headed by `[name]`, each with `key = value` lines, `#` comments and
/// blank lines. A key on several lines has several values; obfuscated values live in a companion
/// file. What holds for every operation is said in ZProperties.h.
class ZFC_API ZStanzaFileProperties : public ZProperties {
  public:
    /// Empty, without a file. With `keepComments` 0 the comments and blank lines of a file that is
    /// loaded are dropped, and so are lost from it by a store.
    explicit ZStanzaFileProperties(int keepComments);
    /// Loads `file` at once; throws what load() throws.
    ZStanzaFileProperties(char const* file, int keepComments);
    ~ZStanzaFileProperties() override;

    /// Adds one more value to the key, where a set would replace them all; creates stanza and key
    /// when absent. Raises ZInvalidParameterException (message 22) for a null or empty value and
    /// for a key of the other kind, plain or obfuscated.
    void addValue(char const* stanza, char const* key, char const* value, int obfuscated = 0);
    /// Adds every member of `values`, strings of either family, in order: all of them or, when one
    /// is refused, none. A member that is null or no string raises ZInvalidParameterException
    /// (message 22), one without a form in the local codeset ZFromUTF8Exception (message 50).
    void addValues(char const* stanza, char const* key, ZArrayList const& values,
                   int obfuscated = 0);
    /// Adds a stanza without keys at the end of the file; one that exists changes nothing.
    void addStanza(char const* stanza);
    /// Removes the stanza with its keys and its lines up to the next header; one that is absent
    /// changes nothing.
    void deleteStanza(char const* stanza);
    /// Adds a comment line below the stanza's header, behind the comments already there. Null or
    /// empty text and a stanza that does not exist raise ZInvalidParameterException (message 22).
    void addStanzaComment(char const* stanza, char const* text);
    /// Appends a pair for each value of each key of the stanza to `pairs`, in file order; a key
    /// without values gives one pair with an empty value. Nothing for an absent stanza. Text
    /// without UTF-8 form raises ZToUTF8Exception (message 49) when the list is one of UTF-8.
    void getStanza(char const* stanza, ZPropertiesKVList& pairs) const;
    /// The key names of the stanza (ZLCString) in file order, in a new list that owns them; empty
    /// when the stanza is absent.
    [[nodiscard]] std::unique_ptr<ZArrayList> getKeys(char const* stanza) const;
    /// Answers `count` requests (zproperties_c.h) in their order, under one lock. A request whose
    /// `optional` is not 1 is required. Texts and lists are blocks of the C allocator that the
    /// caller frees. Raises ZInvalidParameterException (message 22) for a null array with a count,
    /// a negative count, an unknown type and a null place for the answer, and what the typed reads
    /// raise; the requests before the failing one keep their answers, and texts and lists of the
    /// others are null.
    void getItems(ZStzFileItem* items, int count) const;

    /// As ZProperties::updateFile(); `edit` is called as `edit(ZStanzaFileProperties&)`.
    template <class Edit>
    void updateFile(Edit&& edit, unsigned int milliseconds, char const* file = nullptr) {
        // What the base hands out is this very object.
        ZProperties::updateFile([&](ZProperties&) { edit(*this); }, milliseconds, file);
    }

    /// Makes objects for ZProperties::getPropertiesFor(); they keep comments, and are
    /// ZStanzaFileProperties.
    class ZFC_API ZStanzaFilePropertiesFactory : public ZAbstractPropertiesFactory {
      public:
        ZStanzaFilePropertiesFactory();
        ~ZStanzaFilePropertiesFactory() override;
        [[nodiscard]] ZProperties* makePropertiesInstance() override;
    };

    /// As ZProperties::getPropertiesFor(), which hands out the same object. A factory derived from
    /// this one that has made another kind for the file raises ZInvalidParameterException (message
    /// 22).
    static ZStanzaFileProperties* getStanzaPropertiesFor(char const* file,
                                                         ZStanzaFilePropertiesFactory& factory,
                                                         int forceReload = 0);

  protected:
    /// Puts "#" in front of a text that does not begin with it.
    void checkComment(ZLCString& comment) const override;

  private:
    friend class ZStanzaValueIterator;
    friend class ZStanzaIterator;

    void answer(ZStzFileItem const& item) const ZREQUIRES(propLock);
    void answerText(ZStzFileItem const& item, int required) const ZREQUIRES(propLock);
    void answerList(ZStzFileItem const& item, int required) const ZREQUIRES(propLock);
};

/// A walk over the keys of one stanza, in file order, that also tells each key's first value.
class ZFC_API ZStanzaIterator : public ZAbstractPropertiesIterator {
  public:
    /// `properties` is not owned and must outlive the iterator. An absent stanza has no keys.
    ZStanzaIterator(ZStanzaFileProperties& properties, char const* stanza);
    ~ZStanzaIterator() override;

    /// The first value that the current key has now; null when it has none or is gone. Lives until
    /// the next call or the end of the iterator. Raises as getName() does.
    [[nodiscard]] char const* getValue();

  private:
    ZStanzaFileProperties& properties;
    ZLCString stanza;
    ZLCString value;  // the last answer of getValue()
};

/// A walk over the values of one key of a stanza file.
class ZFC_API ZStanzaValueIterator : public ZAbstractPropertyValuesIterator {
  public:
    /// `properties` is not owned and must outlive the iterator. An absent key has no values.
    ZStanzaValueIterator(ZStanzaFileProperties& properties, char const* stanza, char const* key);

    // in slot order: do not sort
    ~ZStanzaValueIterator() override;
    void addValue(char const* value) override;
    void changeValue(char const* value) override;
    void removeValue() override;

  private:
    template <class Change>
    void editCurrent(Change change);

    ZStanzaFileProperties& properties;
    ZLCString stanza;
    ZLCString key;
};

#endif
