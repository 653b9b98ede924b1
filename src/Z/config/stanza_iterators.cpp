#include "Z/ZException.h"
#include "Z/ZStanzaFileProperties.h"
#include "Z/config/properties_edit.h"

#include <cstring>

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
    value = first;
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
    properties.edit(ZPropertyChanged::valueSet, of, to, [&](ZPCategoryBasedCache& data) {
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
    properties.edit(ZPropertyChanged::valueSet, of, to, [&](ZPCategoryBasedCache& data) {
        char const* const now = data.valueAt(of, to, i);
        if (now == nullptr || std::strcmp(now, getValue()) != 0) raiseInvalidState();
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
