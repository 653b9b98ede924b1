#include "Z/ZStanzaFileProperties.h"

#include "Z/ZException.h"
#include "Z/ZSCFData.h"
#include "Z/config/arguments.h"
#include "Z/config/properties_edit.h"
#include "Z/config/value_text.h"

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
    edit(ZPropertyChanged::valueSet, stanza, key, [&](ZPCategoryBasedCache& data) {
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
    for (unsigned int i = 0; i < texts.size(); ++i) {
        if (!ZPCategoryBasedCache::isStorableValue(key, textAt(texts, i), obfuscated))
            zraise(ZInvalidParameterException(), sourceName, __LINE__);
    }
    edit(ZPropertyChanged::valueSet, stanza, key, [&](ZPCategoryBasedCache& data) {
        checkAccess(stanza, key, obfuscated);
        for (unsigned int i = 0; i < texts.size(); ++i)
            data.addValue(stanza, key, textAt(texts, i), obfuscated);
        return texts.size() != 0;
    });
}

void ZStanzaFileProperties::addStanza(char const* stanza) {
    zfc::config::require(stanza, sourceName, __LINE__);
    edit(ZPropertyChanged::stanzaAdded, stanza, nullptr, [&](ZPCategoryBasedCache& data) {
        if (data.contains(stanza)) return false;
        data.addLine(stanza, nullptr, nullptr, 0);
        return true;
    });
}

void ZStanzaFileProperties::deleteStanza(char const* stanza) {
    zfc::config::require(stanza, sourceName, __LINE__);
    edit(ZPropertyChanged::deleted, stanza, nullptr, [&](ZPCategoryBasedCache& data) {
        if (!data.contains(stanza)) return false;
        data.remove(stanza);
        return true;
    });
}

void ZStanzaFileProperties::addStanzaComment(char const* stanza, char const* text) {
    zfc::config::require(stanza, sourceName, __LINE__);
    addComment(text, [&](ZPCategoryBasedCache& data, char const* comment) {
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

ZStanzaFileProperties::ZStanzaFilePropertiesFactory::ZStanzaFilePropertiesFactory() = default;

ZStanzaFileProperties::ZStanzaFilePropertiesFactory::~ZStanzaFilePropertiesFactory() = default;

ZProperties* ZStanzaFileProperties::ZStanzaFilePropertiesFactory::makePropertiesInstance() {
    return new ZStanzaFileProperties(1);
}
