#include "Z/ZException.h"
#include "Z/ZProperties.h"
#include "Z/zprop_arguments.h"

#include <cstring>

namespace {

constexpr char sourceName[] = "src/Z/ZProperties";
constexpr unsigned int expectedValues = 4;

}  // namespace

ZPropertiesIteratorInterface::~ZPropertiesIteratorInterface() = default;
ZPropertyValuesIteratorInterface::~ZPropertyValuesIteratorInterface() = default;

// ----------------------------------------------------------------------------------------- names

ZAbstractPropertiesIterator::ZAbstractPropertiesIterator(ZProperties const& properties,
                                                         char const* stanza) {
    auto const add = [this](char const* name, unsigned int length) {
        names.append(name, length);
        names.append('\0');
        ++count;
    };
    ZProperties::ZPropResourceLock const hold(properties.propLock);
    fileName = properties.fileName;
    if (stanza == nullptr) {
        properties.cache->forEachStanza(add);
    } else {
        zprop::require(stanza, sourceName, __LINE__);
        properties.cache->forEachKey(stanza, add);
    }
}

ZAbstractPropertiesIterator::~ZAbstractPropertiesIterator() = default;

bool ZAbstractPropertiesIterator::hasMore() const {
    if (current == noEntry) return count != 0;
    return current < names.getLength() &&
           current + std::strlen(names.getChars() + current) + 1 < names.getLength();
}

bool ZAbstractPropertiesIterator::next() {
    bool const found = hasMore();
    if (!found) {
        current = names.getLength();
    } else if (current == noEntry) {
        current = 0;
    } else {
        current += static_cast<unsigned int>(std::strlen(names.getChars() + current)) + 1;
    }
    return found;
}

void ZAbstractPropertiesIterator::reset() { current = noEntry; }

char const* ZAbstractPropertiesIterator::getName() const {
    if (current == noEntry || current >= names.getLength()) raiseInvalidState();
    return names.getChars() + current;
}

unsigned int ZAbstractPropertiesIterator::size() const { return count; }

void ZAbstractPropertiesIterator::raiseInvalidState() const {
    zraise(ZPropertiesIteratorException(fileName.getChars()), sourceName, __LINE__);
}

ZPropertiesIterator::ZPropertiesIterator(ZProperties const& properties)
    : ZAbstractPropertiesIterator(properties, nullptr) {}

ZPropertiesIterator::ZPropertiesIterator(ZProperties const& properties, char const* stanza)
    // Null would mean the stanzas; empty is refused as null should be.
    : ZAbstractPropertiesIterator(properties, stanza != nullptr ? stanza : "") {}

ZPropertiesIterator::~ZPropertiesIterator() = default;

// ---------------------------------------------------------------------------------------- values

ZAbstractPropertyValuesIterator::ZAbstractPropertyValuesIterator(ZProperties const& properties,
                                                                 char const* stanza,
                                                                 char const* key)
    : fileName(properties.getFileName()), found(expectedValues, 1) {
    properties.getValues(stanza, key, found, zpropLocalCodeset);
}

ZAbstractPropertyValuesIterator::~ZAbstractPropertyValuesIterator() = default;

bool ZAbstractPropertyValuesIterator::hasMore() const {
    return (isOnValue ? index + 1 : index) < found.size();
}

bool ZAbstractPropertyValuesIterator::next() {
    if (isOnValue) ++index;
    isOnValue = index < found.size();
    return isOnValue;
}

void ZAbstractPropertyValuesIterator::reset() {
    index = 0;
    isOnValue = false;
}

char const* ZAbstractPropertyValuesIterator::getValue() const {
    return static_cast<ZLCString const*>(found.get(currentIndex()))->getChars();
}

unsigned int ZAbstractPropertyValuesIterator::size() const { return found.size(); }

unsigned int ZAbstractPropertyValuesIterator::currentIndex() const {
    if (!isOnValue) raiseInvalidState();
    return index;
}

void ZAbstractPropertyValuesIterator::raiseInvalidState() const {
    zraise(ZPropertiesIteratorException(fileName.getChars()), sourceName, __LINE__);
}

void ZAbstractPropertyValuesIterator::valueAdded(char const* value) {
    ZLCString text(value);
    found.add(&text);
}

void ZAbstractPropertyValuesIterator::valueChanged(char const* value) {
    ZLCString text(value);
    found.set(index, &text);
}

void ZAbstractPropertyValuesIterator::valueRemoved() {
    found.remove(index);
    isOnValue = false;
}
