#include <cstring>

#include "Z/ZException.h"
#include "Z/ZProperties.h"
#include "Z/config/properties_edit.h"

namespace {

constexpr char sourceName[] = "src/Z/ZProperties";
constexpr unsigned int expectedValues = 4;

}  // namespace

ZPropertiesIteratorInterface::~ZPropertiesIteratorInterface() = default;
ZPropertyValuesIteratorInterface::~ZPropertyValuesIteratorInterface() = default;

// ----------------------------------------------------------------------------------------- names

ZAbstractPropertiesIterator::ZAbstractPropertiesIterator(ZProperties const& properties,
                                                         char const* stanza) {
    auto const enter = [this](char const* name, unsigned int length) { add(name, length); };
    ZProperties::ZPropResourceLock const hold(properties.propLock);
    fileName = properties.fileName;
    if (stanza == nullptr) {
        properties.cache->forEachStanza(enter);
    } else {
        zfc::config::require(stanza, sourceName, __LINE__);
        properties.cache->forEachKey(stanza, enter);
    }
}

ZAbstractPropertiesIterator::~ZAbstractPropertiesIterator() = default;

void ZAbstractPropertiesIterator::add(char const* name, unsigned int length) {
    // One behind the other in one string: many names cost no objects.
    names.append(name, length);
    names.append('\0');
    ++count;
}

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
    return (isOnValue ? position + 1 : position) < found.size();
}

bool ZAbstractPropertyValuesIterator::next() {
    if (isOnValue) ++position;
    isOnValue = position < found.size();
    return isOnValue;
}

/// Closes the gaps that removed values left; once for a walk, so that a walk that removes many
/// values takes no longer than another.
void ZAbstractPropertyValuesIterator::reset() {
    unsigned int kept = 0;
    for (unsigned int i = 0; i < found.size(); ++i) {
        if (found.get(i) != nullptr) found.swap(kept++, i);
    }
    while (found.size() > kept)
        found.remove(found.size() - 1);
    position = 0;
    gaps = 0;
    isOnValue = false;
}

char const* ZAbstractPropertyValuesIterator::getValue() const {
    if (!isOnValue) raiseInvalidState();
    return static_cast<ZLCString const*>(found.get(position))->getChars();
}

unsigned int ZAbstractPropertyValuesIterator::size() const { return found.size() - gaps; }

unsigned int ZAbstractPropertyValuesIterator::currentIndex() const {
    if (!isOnValue) raiseInvalidState();
    return position - gaps;
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
    found.set(position, &text);
}

void ZAbstractPropertyValuesIterator::valueRemoved() {
    // A gap, not removed: moving up what is behind would cost a walk each time.
    found.set(position++, nullptr);
    ++gaps;
    isOnValue = false;
}
