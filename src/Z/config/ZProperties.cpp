#include "Z/ZProperties.h"

#include <cstring>
#include <typeinfo>

#include "Z/ZException.h"
#include "Z/ZLCConstString.h"
#include "Z/ZUTF8ConstString.h"
#include "Z/ZUTF8String.h"
#include "Z/config/file_history.h"
#include "Z/config/properties_edit.h"
#include "Z/config/value_text.h"
#include "Z/containers/members.h"

namespace {

using zfc::config::isEmpty;
using zfc::containers::appendNew;

constexpr char sourceName[] = "src/Z/ZProperties";

void requireKey(char const* stanza, char const* key) {
    if (isEmpty(stanza) || isEmpty(key)) zraise(ZInvalidParameterException(), sourceName, __LINE__);
}

/// A required key has no default.
void refuseDefault(int required, bool hasDefault) {
    if (required != 0 && hasDefault) zraise(ZInvalidParameterException(), sourceName, __LINE__);
}

/// Copies text of the local codeset into a string of any codeset.
void copyText(char const* text, ZAbstractMutableString& out) {
    // Nearly always: there is nothing to convert, and nothing that can get lost.
    if (typeid(out) == typeid(ZLCString)) return out.setChars(text);
    out.setChars(ZLCConstString(text));
    if (out.isEmpty() && *text != '\0')
        zraise(ZToUTF8Exception(ZLCConstString(text)), sourceName, __LINE__);
}

/// Takes off what a failed operation appended to an empty list, owned or not.
void takeBack(ZArrayList& list) {
    for (unsigned int i = list.size(); i-- > 0;) {
        std::unique_ptr<ZObject> const mine(list.ownsMembers() != 0 ? nullptr : list.get(i));
        list.remove(i);
    }
}

}  // namespace

ZPropertiesInterface::~ZPropertiesInterface() = default;
ZPropertiesMutableInterface::~ZPropertiesMutableInterface() = default;
ZAbstractProperties::~ZAbstractProperties() = default;

ZAbstractProperties::ZPropResourceLock::ZPropResourceLock(ZLock& l) : guard(l) {
    ZForkedChild::requireWhole(l);
}

ZPropertyChanged::ZPropertyChanged(PropertyStyle ofStyle, PropertyChangeType ofType,
                                   char const* stanzaName, char const* keyName)
    : style(ofStyle), change(ofType), stanza(stanzaName), key(keyName) {}

ZProperties::ZProperties(ZPCategoryBasedCache* owned)
    : cache(owned), history(std::make_unique<FileHistory>(*this)) {}

ZProperties::~ZProperties() {
    if (!ZForkedChild::isLeftBehind(propLock)) return;
    // What is half changed cannot be taken apart.
    history->overFork.forget();
    static_cast<void>(cache.release());
    static_cast<void>(history.release());
}

// --------------------------------------------------------------------------------------- reading

bool ZProperties::exists(char const* stanza, char const* key) const {
    requireKey(stanza, key);
    ZPropResourceLock const hold(propLock);
    return cache->contains(stanza, key);
}

bool ZProperties::exists(char const* stanza) const {
    zfc::config::require(stanza, sourceName, __LINE__);
    ZPropResourceLock const hold(propLock);
    return cache->contains(stanza);
}

bool ZProperties::isObfuscated(char const* stanza, char const* key) const {
    requireKey(stanza, key);
    ZPropResourceLock const hold(propLock);
    return cache->isObfuscated(stanza, key);
}

bool ZProperties::isObfuscated(char const* stanza) const {
    zfc::config::require(stanza, sourceName, __LINE__);
    ZPropResourceLock const hold(propLock);
    return cache->isObfuscated(stanza);
}

/// The last value in file order stands for the key.
ZProperties::LastValue ZProperties::lastValue(char const* stanza, char const* key,
                                              int required) const {
    LastValue value;
    bool const found = cache->lastValue(stanza, key, value.text, value.length);
    if (!found && required != 0) {
        zraise(ZPropertiesMissingPropertyException(fileName.getChars(), stanza, key), sourceName,
               __LINE__);
    }
    return value;
}

void ZProperties::getValue(char const* stanza, char const* key, ZAbstractMutableString& out,
                           int required, char const* defaultValue) const {
    requireKey(stanza, key);
    refuseDefault(required, defaultValue != nullptr);
    ZPropResourceLock const hold(propLock);
    LastValue const value = lastValue(stanza, key, required);
    // Under the lock: the text goes with the next edit.
    if (value.text != nullptr) return copyText(value.text, out);
    copyText(defaultValue != nullptr ? defaultValue : "", out);
}

unsigned int ZProperties::getIntegerValue(char const* stanza, char const* key, int required,
                                          unsigned int defaultValue) const {
    requireKey(stanza, key);
    refuseDefault(required, defaultValue != 0);
    ZPropResourceLock const hold(propLock);
    LastValue const value = lastValue(stanza, key, required);
    if (value.text == nullptr) return defaultValue;
    if (auto const number = zfc::config::parseNumber({value.text, value.length})) return *number;
    zraise(ZPropertiesInvalidNumValueException(fileName.getChars(), stanza, key, value.text),
           sourceName, __LINE__);
}

int ZProperties::getBooleanValue(char const* stanza, char const* key, int required,
                                 int defaultValue) const {
    requireKey(stanza, key);
    refuseDefault(required, defaultValue != 0);
    ZPropResourceLock const hold(propLock);
    LastValue const value = lastValue(stanza, key, required);
    if (value.text == nullptr) return defaultValue;
    if (auto const truth = zfc::config::parseBoolean(value.text)) return *truth ? 1 : 0;
    zraise(ZPropertiesInvalidBoolValueException(fileName.getChars(), stanza, key, value.text),
           sourceName, __LINE__);
}

void ZProperties::getValues(char const* stanza, char const* key, ZArrayList& values,
                            ZPropertyStringType type) const {
    requireKey(stanza, key);
    bool const isUTF8 = type == zpropUTF8;
    if (values.size() != 0 || (type != zpropLocalCodeset && !isUTF8))
        zraise(ZInvalidParameterException(), sourceName, __LINE__);
    auto const append = [&](char const* text, unsigned int length) {
        if (!isUTF8) return appendNew(values, std::make_unique<ZLCString>(text, length));
        auto converted = std::make_unique<ZUTF8String>();
        copyText(text, *converted);
        appendNew(values, std::move(converted));
    };
    ZPropResourceLock const hold(propLock);
    try {
        cache->forEachValue(stanza, key, ZPCache::plainElseObfuscated, append);
    } catch (...) {
        takeBack(values);
        throw;
    }
}

unsigned int ZProperties::numValues(char const* stanza) const {
    zfc::config::require(stanza, sourceName, __LINE__);
    ZPropResourceLock const hold(propLock);
    return cache->countValues(stanza);
}

unsigned int ZProperties::numValues(char const* stanza, char const* key) const {
    requireKey(stanza, key);
    ZPropResourceLock const hold(propLock);
    return cache->countValues(stanza, key);
}

unsigned int ZProperties::count() const {
    ZPropResourceLock const hold(propLock);
    return cache->count();
}

unsigned int ZProperties::count(char const* stanza) const {
    zfc::config::require(stanza, sourceName, __LINE__);
    ZPropResourceLock const hold(propLock);
    return cache->keyCount(stanza);
}

void ZProperties::list() const {
    ZPropResourceLock const hold(propLock);
    cache->list(stdout);
}

ZLCString ZProperties::getFileName() const {
    ZPropResourceLock const hold(propLock);
    return fileName;
}

bool ZProperties::isModified() const {
    ZPropResourceLock const hold(propLock);
    return modified != 0;
}

// --------------------------------------------------------------------------------------- editing

void ZProperties::setValue(char const* stanza, char const* key, char const* value, int obfuscated) {
    requireKey(stanza, key);
    Editing::run(*this, ZPropertyChanged::valueSet, stanza, key, [&](ZPCategoryBasedCache& data) {
        // Without a value, values of both kinds go, and none can be of the wrong one.
        if (!isEmpty(value)) checkAccess(stanza, key, obfuscated);
        data.addLine(stanza, key, value, obfuscated);
        return true;
    });
}

void ZProperties::setValue(char const* stanza, char const* key, char const* value) {
    setValue(stanza, key, value, 0);
}

template <class Text>
void ZProperties::setText(char const* stanza, char const* key, Text const& value, int obfuscated) {
    setValue(stanza, key, zfc::config::localText(value).getChars(), obfuscated);
}

void ZProperties::setValue(char const* stanza, char const* key, ZLCString const& value,
                           int obfuscated) {
    setText(stanza, key, value, obfuscated);
}

void ZProperties::setValue(char const* stanza, char const* key, ZUTF8String const& value,
                           int obfuscated) {
    setText(stanza, key, value, obfuscated);
}

void ZProperties::setValue(char const* stanza, char const* key, ZLCConstString const& value,
                           int obfuscated) {
    setText(stanza, key, value, obfuscated);
}

void ZProperties::setValue(char const* stanza, char const* key, ZUTF8ConstString const& value,
                           int obfuscated) {
    setText(stanza, key, value, obfuscated);
}

void ZProperties::setIntegerValue(char const* stanza, char const* key, unsigned int value) {
    setValue(stanza, key, ZLCString(value).getChars(), 0);
}

void ZProperties::setBooleanValue(char const* stanza, char const* key, int value) {
    setValue(stanza, key, zfc::config::booleanText(value != 0), 0);
}

void ZProperties::deleteKey(char const* stanza, char const* key) {
    requireKey(stanza, key);
    Editing::run(*this, ZPropertyChanged::deleted, stanza, key, [&](ZPCategoryBasedCache& data) {
        if (!data.contains(stanza, key)) return false;
        data.remove(stanza, key);
        return true;
    });
}

void ZProperties::addFileComment(char const* text) {
    Editing::addComment(*this, text, [](ZPCategoryBasedCache& data, char const* comment) {
        data.addFileComment(comment);
    });
}

void ZProperties::addEntryComment(char const* stanza, char const* key, char const* text) {
    requireKey(stanza, key);
    Editing::addComment(*this, text, [&](ZPCategoryBasedCache& data, char const* comment) {
        data.addLineComment(stanza, key, comment);
    });
}

void ZProperties::postLoad(char const*) {}

void ZProperties::checkComment(ZLCString&) const {}

void ZProperties::setAttributes(unsigned long attributes, void* data) {
    ZPropResourceLock const hold(propLock);
    cache->setAttributes(attributes, data);
}

void ZProperties::checkAccess(char const* stanza, char const* key, int obfuscated) const {
    ZPropResourceLock const hold(propLock);
    // Edits ask this while they hold the lock, which the same thread may take again.
    if (cache->isOfOtherKind(stanza, key, obfuscated))
        zraise(ZInvalidParameterException(), sourceName, __LINE__);
}

void ZProperties::notify(ZPropertyChanged::PropertyChangeType type, char const* stanza,
                         char const* key) {
    // Spares the notice, which copies both names.
    if (countObservers() == 0) return;
    notifyObservers(ZPropertyChanged(ZPropertyChanged::stanzaAndKey, type, stanza, key));
}

/// Within updateFile() observers are told at its end, when it is known whether the edit stays.
bool ZProperties::defersNotice(ZPropertyChanged::PropertyChangeType type, char const* stanza,
                               char const* key) {
    if (!history->isUpdating) return false;
    if (mayBeObserved()) history->notices.add(type, stanza, key);
    return true;
}

void ZProperties::tell(zfc::config::Notices const& notices) {
    for (ZPropertyChanged const& notice : notices)
        notifyObservers(notice);
}
