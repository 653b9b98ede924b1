#include "Z/ZStanzaFileProperties.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "Z/ZException.h"
#include "Z/ZSCFData.h"
#include "Z/config/properties_edit.h"
#include "Z/config/value_text.h"
#include "Z/zproperties_c.h"

namespace {

constexpr char sourceName[] = "src/Z/ZStanzaFileProperties";
constexpr unsigned int expectedKeys = 10;

/// The members as texts of the local codeset, none of them empty.
ZArrayList localTexts(ZArrayList const& values) {
    ZArrayList texts(values.size(), 1);
    for (unsigned int i = 0; i < values.size(); ++i) {
        auto const* const value = dynamic_cast<ZAbstractString const*>(values.get(i));
        if (value == nullptr || value->isEmpty())
            zraise(ZInvalidParameterException(), sourceName, __LINE__);
        ZLCString text = zfc::config::localText(*value);
        texts.add(&text);
    }
    return texts;
}

char const* textAt(ZArrayList const& texts, unsigned int i) {
    return static_cast<ZLCString const*>(texts.get(i))->getChars();
}

/// A text of the C allocator.
char* copyOf(char const* text) {
    char* const copy = strdup(text);
    if (copy == nullptr) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    return copy;
}

/// An array of texts that ends with null, both of the C allocator.
class Texts {
  public:
    explicit Texts(std::size_t count)
        : array(static_cast<char**>(std::calloc(count + 1, sizeof(char*)))) {
        if (array == nullptr) zraise(ZOutOfMemoryException(), sourceName, __LINE__);
    }
    ~Texts() {
        if (array == nullptr) return;
        for (char** text = array; *text != nullptr; ++text)
            std::free(*text);
        std::free(array);
    }
    Texts(Texts const&) = delete;
    Texts& operator=(Texts const&) = delete;

    void add(char const* text) { array[used++] = copyOf(text); }
    [[nodiscard]] char** release() { return std::exchange(array, nullptr); }

  private:
    char** array;
    std::size_t used = 0;
};

/// So that a caller may free all answers whatever happens.
void clearAnswer(ZStzFileItem const& item) {
    if (item.result == nullptr) return;
    if (item.type == ZPROP_ITEM_STRING) *static_cast<char**>(item.result) = nullptr;
    if (item.type == ZPROP_ITEM_LIST) *static_cast<char***>(item.result) = nullptr;
}

}  // namespace

ZStanzaFileProperties::ZStanzaFileProperties(int keepComments) : ZProperties(new ZSCFData) {
    if (keepComments != 0) ZProperties::setAttributes(ZPCache::keepComments, nullptr);
}

ZStanzaFileProperties::ZStanzaFileProperties(char const* file, int keepComments)
    : ZStanzaFileProperties(keepComments) {
    ZProperties::load(file);
}

ZStanzaFileProperties::~ZStanzaFileProperties() = default;

void ZStanzaFileProperties::addValue(char const* stanza, char const* key, char const* value,
                                     int obfuscated) {
    for (char const* const text : {stanza, key, value})
        zfc::config::require(text, sourceName, __LINE__);
    Editing::run(*this, ZPropertyChanged::valueSet, stanza, key, [&](ZPCategoryBasedCache& data) {
        checkAccess(stanza, key, obfuscated);
        data.addValue(stanza, key, value, obfuscated);
        return true;
    });
}

void ZStanzaFileProperties::addValues(char const* stanza, char const* key, ZArrayList const& values,
                                      int obfuscated) {
    for (char const* const text : {stanza, key})
        zfc::config::require(text, sourceName, __LINE__);
    ZArrayList const texts = localTexts(values);
    // All before the first is added: a list is not refused in its midst.
    for (unsigned int i = 0; i < texts.size(); ++i) {
        if (!ZPCategoryBasedCache::isStorableValue(key, textAt(texts, i), obfuscated))
            zraise(ZInvalidParameterException(), sourceName, __LINE__);
    }
    Editing::run(*this, ZPropertyChanged::valueSet, stanza, key, [&](ZPCategoryBasedCache& data) {
        checkAccess(stanza, key, obfuscated);
        for (unsigned int i = 0; i < texts.size(); ++i)
            data.addValue(stanza, key, textAt(texts, i), obfuscated);
        return texts.size() != 0;
    });
}

void ZStanzaFileProperties::addStanza(char const* stanza) {
    zfc::config::require(stanza, sourceName, __LINE__);
    Editing::run(*this, ZPropertyChanged::stanzaAdded, stanza, nullptr,
                 [&](ZPCategoryBasedCache& data) {
                     if (data.contains(stanza)) return false;
                     data.addLine(stanza, nullptr, nullptr, 0);
                     return true;
                 });
}

void ZStanzaFileProperties::deleteStanza(char const* stanza) {
    zfc::config::require(stanza, sourceName, __LINE__);
    Editing::run(*this, ZPropertyChanged::deleted, stanza, nullptr,
                 [&](ZPCategoryBasedCache& data) {
                     if (!data.contains(stanza)) return false;
                     data.remove(stanza);
                     return true;
                 });
}

void ZStanzaFileProperties::addStanzaComment(char const* stanza, char const* text) {
    zfc::config::require(stanza, sourceName, __LINE__);
    Editing::addComment(*this, text, [&](ZPCategoryBasedCache& data, char const* comment) {
        data.addLineComment(stanza, comment);
    });
}

void ZStanzaFileProperties::getStanza(char const* stanza, ZPropertiesKVList& pairs) const {
    zfc::config::require(stanza, sourceName, __LINE__);
    ZPropResourceLock const hold(propLock);
    ZPCategoryBasedCache const& data = values();
    data.forEachKey(stanza, [&](char const* key, unsigned int) {
        if (data.countValues(stanza, key) == 0) pairs.addItem(key, "");
        data.forEachValue(stanza, key, ZPCache::plainElseObfuscated,
                          [&](char const* value, unsigned int) { pairs.addItem(key, value); });
    });
}

std::unique_ptr<ZArrayList> ZStanzaFileProperties::getKeys(char const* stanza) const {
    zfc::config::require(stanza, sourceName, __LINE__);
    auto keys = std::make_unique<ZArrayList>(expectedKeys, 1);
    ZPropResourceLock const hold(propLock);
    values().getNames(stanza, *keys);
    return keys;
}

void ZStanzaFileProperties::checkComment(ZLCString& comment) const {
    if (!comment.beginsWith("#")) comment.prepend("#");
}

// ----------------------------------------------------------------------------- many values at once

void ZStanzaFileProperties::getItems(ZStzFileItem* items, int count) const {
    if (count < 0 || (items == nullptr && count != 0))
        zraise(ZInvalidParameterException(), sourceName, __LINE__);
    for (int i = 0; i < count; ++i)
        clearAnswer(items[i]);
    ZPropResourceLock const hold(propLock);
    // All under one lock, so that the answers are of one state of the file.
    for (int i = 0; i < count; ++i)
        answer(items[i]);
}

void ZStanzaFileProperties::answer(ZStzFileItem const& item) const {
    if (item.result == nullptr) zraise(ZInvalidParameterException(), sourceName, __LINE__);
    int const required = item.optional == 1 ? 0 : 1;
    switch (item.type) {
        case ZPROP_ITEM_BOOLEAN:
            *static_cast<int*>(item.result) = getBooleanValue(item.stanza, item.key, required);
            break;
        case ZPROP_ITEM_INTEGER:
            *static_cast<int*>(item.result) =
                static_cast<int>(getIntegerValue(item.stanza, item.key, required));
            break;
        case ZPROP_ITEM_STRING:
            answerText(item, required);
            break;
        case ZPROP_ITEM_LIST:
            answerList(item, required);
            break;
        default:
            zraise(ZInvalidParameterException(), sourceName, __LINE__);
    }
}

void ZStanzaFileProperties::answerText(ZStzFileItem const& item, int required) const {
    ZLCString text;
    getValue(item.stanza, item.key, text, required);
    if (!text.isEmpty()) *static_cast<char**>(item.result) = copyOf(text.getChars());
}

void ZStanzaFileProperties::answerList(ZStzFileItem const& item, int required) const {
    ZLCString last;
    getValue(item.stanza, item.key, last, required);  // raises where nothing is there
    // The caller holds the lock: there will not be more of them below.
    Texts texts(numValues(item.stanza, item.key));
    values().forEachValue(item.stanza, item.key, ZPCache::plainElseObfuscated,
                          [&](char const* text, unsigned int) { texts.add(text); });
    *static_cast<char***>(item.result) = texts.release();
}

// ----------------------------------------------------------------------------------------- factory

ZStanzaFileProperties::ZStanzaFilePropertiesFactory::ZStanzaFilePropertiesFactory() = default;

ZStanzaFileProperties::ZStanzaFilePropertiesFactory::~ZStanzaFilePropertiesFactory() = default;

ZProperties* ZStanzaFileProperties::ZStanzaFilePropertiesFactory::makePropertiesInstance() {
    return new ZStanzaFileProperties(1);
}

ZStanzaFileProperties* ZStanzaFileProperties::getStanzaPropertiesFor(
    char const* file, ZStanzaFilePropertiesFactory& factory, int forceReload) {
    auto* const found =
        dynamic_cast<ZStanzaFileProperties*>(getPropertiesFor(file, factory, forceReload));
    if (found == nullptr) zraise(ZInvalidParameterException(), sourceName, __LINE__);
    return found;
}

// --------------------------------------------------------------------------------------- iterators

ZStanzaIterator::ZStanzaIterator(ZStanzaFileProperties& ofFile, char const* ofStanza)
    // Null would mean the stanzas; empty is refused as null should be.
    : ZAbstractPropertiesIterator(ofFile, ofStanza != nullptr ? ofStanza : ""),
      properties(ofFile),
      stanza(ofStanza) {}

ZStanzaIterator::~ZStanzaIterator() = default;

char const* ZStanzaIterator::getValue() {
    char const* const key = getName();
    ZProperties::ZPropResourceLock const hold(properties.propLock);
    char const* const first = properties.values().valueAt(stanza.getChars(), key, 0);
    if (first == nullptr) return nullptr;
    value = first;  // a copy: the cache's text goes with the next edit
    return value.getChars();
}

ZStanzaValueIterator::ZStanzaValueIterator(ZStanzaFileProperties& ofFile, char const* ofStanza,
                                           char const* ofKey)
    : ZAbstractPropertyValuesIterator(ofFile, ofStanza, ofKey),
      properties(ofFile),
      stanza(ofStanza),
      key(ofKey) {}

ZStanzaValueIterator::~ZStanzaValueIterator() = default;

void ZStanzaValueIterator::addValue(char const* value) {
    char const* const of = stanza.getChars();
    char const* const to = key.getChars();
    ZStanzaFileProperties::Editing::run(
        properties, ZPropertyChanged::valueSet, of, to, [&](ZPCategoryBasedCache& data) {
            data.addValue(of, to, value, data.isObfuscated(of, to) ? 1 : 0);
            valueAdded(value);
            return true;
        });
}

/// `change` is called as `void change(ZPCategoryBasedCache&, unsigned int index)`, when the key
/// still has the walk's current value there.
template <class Change>
void ZStanzaValueIterator::editCurrent(Change change) {
    unsigned int const i = currentIndex();
    char const* const of = stanza.getChars();
    char const* const to = key.getChars();
    ZStanzaFileProperties::Editing::run(properties, ZPropertyChanged::valueSet, of, to,
                                        [&](ZPCategoryBasedCache& data) {
                                            char const* const now = data.valueAt(of, to, i);
                                            if (now == nullptr || std::strcmp(now, getValue()) != 0)
                                                raiseInvalidState();
                                            change(data, i);
                                            return true;
                                        });
}

void ZStanzaValueIterator::changeValue(char const* value) {
    editCurrent([&](ZPCategoryBasedCache& data, unsigned int i) {
        data.changeValue(stanza.getChars(), key.getChars(), i, value);
        valueChanged(value);
    });
}

void ZStanzaValueIterator::removeValue() {
    editCurrent([&](ZPCategoryBasedCache& data, unsigned int i) {
        data.removeValue(stanza.getChars(), key.getChars(), i);
        valueRemoved();
    });
}
