/// ZPCategoryBasedCache, what it answers: values, names, counts.
#include <cstdio>
#include <string_view>

#include "Z/ZException.h"
#include "Z/ZList.h"
#include "Z/ZPropertiesImpl.h"
#include "Z/config/cache/handed_out.h"
#include "Z/config/cache/records.h"
#include "Z/containers/members.h"

using zfc::cache::findKey;
using zfc::cache::findStanza;
using zfc::cache::Index;
using zfc::cache::Key;
using zfc::cache::none;
using zfc::cache::Obfuscated;
using zfc::cache::Records;
using zfc::cache::Values;
using zfc::containers::appendNew;

namespace {

constexpr char sourceName[] = "src/Z/ZPropertiesImpl";

std::uint32_t visibleCount(Records const& records, Index key) {
    Key const& record = records.names().key(key);
    return records.values().count(record, Values::visibleKind(record));
}

Obfuscated chosenKind(Key const& key, ZPCache::get_type_e type) {
    if (type == ZPCache::plainElseObfuscated) return Values::visibleKind(key);
    return type == ZPCache::plainValues ? Obfuscated::no : Obfuscated::yes;
}

template <class Visit>
void eachValue(Records const& records, Index key, ZPCache::get_type_e type, Visit visit) {
    Key const& record = records.names().key(key);
    records.values().each(record, chosenKind(record, type), visit);
}

void appendText(ZArrayList& list, std::string_view text) {
    appendNew(list, std::make_unique<ZLCString>(text.data()));
}

std::unique_ptr<ZArrayList> valueList(Records const& records, Index key, ZPCache::get_type_e type) {
    auto list = std::make_unique<ZArrayList>(0, 1);
    eachValue(records, key, type, [&](std::string_view value) { appendText(*list, value); });
    return list;
}

std::unique_ptr<ZPKVList> keyMap(Records const& records, Index stanza, ZPCache::get_type_e type) {
    auto map = std::make_unique<ZPKVList>();
    records.lines().eachKey(stanza, [&](Index key) {
        map->putEntry(records.names().keyName(key).data(), *valueList(records, key, type));
    });
    return map;
}

void appendKeyNames(Records const& records, Index stanza, ZArrayList& out) {
    records.lines().eachKey(stanza,
                            [&](Index key) { appendText(out, records.names().keyName(key)); });
}

/// A line's text as ZPropLine holds it.
char const* textOf(Records const& records, zfc::cache::Line const& line) {
    switch (line.kind) {
        case ZPropLine::comment:
            return line.text;
        case ZPropLine::header:
            return records.names().stanzaName(line.owner).data();
        case ZPropLine::key:
            return records.names().keyName(line.owner).data();
        default:
            return "";
    }
}

}  // namespace

// ------------------------------------------------------------------------------ the object itself

ZPCategoryBasedCache::ZPCategoryBasedCache() : records(new Records), lists(new Lists) {}

ZPCategoryBasedCache::ZPCategoryBasedCache(ZPCategoryBasedCache const& other)
    : ZPCache(other),
      records(new Records(*other.records)),
      // What was handed out belongs to the other one's callers.
      lists(new Lists),
      companionName(other.companionName),
      attributes(other.attributes),
      attributeData(other.attributeData) {
    lists->companionLimit = other.lists->companionLimit;
}

ZPCategoryBasedCache::~ZPCategoryBasedCache() = default;

void ZPCategoryBasedCache::setAttributes(unsigned long bits, void* data) {
    if ((bits & companionLimit) != 0) {
        if (data == nullptr) zraise(ZInvalidParameterException(), sourceName, __LINE__);
        lists->companionLimit = *static_cast<unsigned long const*>(data);
    }
    attributes |= bits;
    attributeData = data;
}

unsigned long ZPCategoryBasedCache::getCompanionLimit() const { return lists->companionLimit; }

void ZPCategoryBasedCache::makeKey(ZLCString& out, char const* stanza, char const* key) const {
    // Built apart: `out` may hold the text of either part.
    ZLCString flat(stanza);
    flat += ".";
    flat += key;
    out = flat;
}

// ----------------------------------------------------------------------------------- list objects

ZArrayList* ZPCategoryBasedCache::get(char const* stanza, char const* key, get_type_e type) {
    Index const found = findKey(records->names(), stanza, key);
    if (found == none) return nullptr;
    auto& list = lists->values[Lists::numberOf(found, type)];
    if (!list) list = valueList(*records, found, type);
    return list.get();
}

ZPKVList* ZPCategoryBasedCache::get(char const* stanza, get_type_e type) {
    Index const found = findStanza(records->names(), stanza);
    if (found == none) return nullptr;
    auto& map = lists->stanzas[Lists::numberOf(found, type)];
    if (!map) map = keyMap(*records, found, type);
    return map.get();
}

ZArrayList* ZPCategoryBasedCache::getNames(char const* stanza) {
    Index const found = findStanza(records->names(), stanza);
    if (found == none) return nullptr;
    auto& list = lists->names[found];
    if (list) return list.get();
    // Entered when it is whole: the next caller must not get one that an error cut short.
    auto fresh = std::make_unique<ZArrayList>(0, 1);
    appendKeyNames(*records, found, *fresh);
    list = std::move(fresh);
    return list.get();
}

void ZPCategoryBasedCache::getNames(ZArrayList& out) const {
    records->lines().eachStanza(
        [&](Index stanza) { appendText(out, records->names().stanzaName(stanza)); });
}

void ZPCategoryBasedCache::getNames(char const* stanza, ZArrayList& out) const {
    Index const found = findStanza(records->names(), stanza);
    if (found != none) appendKeyNames(*records, found, out);
}

void ZPCategoryBasedCache::getLines(ZArrayList& out) const {
    records->lines().each([&](zfc::cache::Line const& line) {
        appendNew(out, std::make_unique<ZPropLine>(line.kind, textOf(*records, line)));
    });
}

void ZPCategoryBasedCache::getObfuscatedItems(ZArrayList& out) const {
    records->values().eachObfuscatedKey([&](Index key) {
        appendNew(out, std::make_unique<ZObfuscatedItem>(
                           records->names().stanzaName(records->names().key(key).stanza).data(),
                           records->names().keyName(key).data()));
    });
}

// ------------------------------------------------------------------------------------------ counts

unsigned int ZPCategoryBasedCache::countValues(char const* stanza) const {
    Index const found = findStanza(records->names(), stanza);
    if (found == none) return 0;
    unsigned int sum = 0;
    records->lines().eachKey(found, [&](Index key) { sum += visibleCount(*records, key); });
    return sum;
}

unsigned int ZPCategoryBasedCache::countValues(char const* stanza, char const* key) const {
    Index const found = findKey(records->names(), stanza, key);
    return found == none ? 0 : visibleCount(*records, found);
}

unsigned int ZPCategoryBasedCache::keyCount(char const* stanza) const {
    Index const found = findStanza(records->names(), stanza);
    return found == none ? 0 : records->names().keyCount(found);
}

unsigned int ZPCategoryBasedCache::count() const { return records->names().stanzaCount(); }

unsigned int ZPCategoryBasedCache::obfuscatedCount() const {
    return records->values().obfuscatedKeys();
}

bool ZPCategoryBasedCache::contains(char const* stanza) const {
    return findStanza(records->names(), stanza) != none;
}

bool ZPCategoryBasedCache::contains(char const* stanza, char const* key) const {
    return findKey(records->names(), stanza, key) != none;
}

bool ZPCategoryBasedCache::isObfuscated(char const* stanza) const {
    Index const found = findStanza(records->names(), stanza);
    return found != none && records->values().obfuscatedKeys(found) > 0;
}

bool ZPCategoryBasedCache::isObfuscated(char const* stanza, char const* key) const {
    Index const found = findKey(records->names(), stanza, key);
    return found != none && Values::isObfuscated(records->names().key(found));
}

bool ZPCategoryBasedCache::isOfOtherKind(char const* stanza, char const* key,
                                         int obfuscated) const {
    // Nearly always: a file without secrets, and a value that is to be none.
    if (obfuscated == 0 && records->values().obfuscatedKeys() == 0) return false;
    Index const found = zfc::cache::findKeyToEdit(records->names(), stanza, key);
    return found != none && Values::isObfuscated(records->names().key(found)) != (obfuscated != 0);
}

// -------------------------------------------------------------------------- values without objects

bool ZPCategoryBasedCache::lastValue(char const* stanza, char const* key, char const*& text,
                                     unsigned int& length) const {
    Index const found = findKey(records->names(), stanza, key);
    if (found == none) return false;
    Key const& record = records->names().key(found);
    std::string_view const value = records->values().last(record, Values::visibleKind(record));
    if (value.data() == nullptr) return false;
    text = value.data();
    length = static_cast<unsigned int>(value.size());
    return true;
}

char const* ZPCategoryBasedCache::valueAt(char const* stanza, char const* key,
                                          unsigned int i) const {
    Index const found = findKey(records->names(), stanza, key);
    if (found == none) return nullptr;
    Key const& record = records->names().key(found);
    return records->values().at(record, Values::visibleKind(record), i).data();
}

void ZPCategoryBasedCache::visitValues(char const* stanza, char const* key, get_type_e type,
                                       Visit visit, void* visitor) const {
    Index const found = findKey(records->names(), stanza, key);
    if (found == none) return;
    eachValue(*records, found, type, [&](std::string_view value) {
        visit(visitor, value.data(), static_cast<unsigned int>(value.size()));
    });
}

void ZPCategoryBasedCache::visitStanzas(Visit visit, void* visitor) const {
    records->lines().eachStanza([&](Index stanza) {
        std::string_view const name = records->names().stanzaName(stanza);
        visit(visitor, name.data(), static_cast<unsigned int>(name.size()));
    });
}

void ZPCategoryBasedCache::visitKeys(char const* stanza, Visit visit, void* visitor) const {
    Index const found = findStanza(records->names(), stanza);
    if (found == none) return;
    records->lines().eachKey(found, [&](Index key) {
        std::string_view const name = records->names().keyName(key);
        visit(visitor, name.data(), static_cast<unsigned int>(name.size()));
    });
}

// ----------------------------------------------------------------------------------------- listing

void ZPCategoryBasedCache::list(FILE* out) const {
    records->lines().eachStanza([&](Index stanza) {
        std::fprintf(out, "\n[%s]\n", records->names().stanzaName(stanza).data());
        records->lines().eachKey(stanza, [&](Index key) {
            char const* const name = records->names().keyName(key).data();
            Key const& record = records->names().key(key);
            if (record.value == nullptr) std::fprintf(out, "%s =\n", name);
            records->values().each(record, Obfuscated::no, [&](std::string_view value) {
                std::fprintf(out, "%s = %s\n", name, value.data());
            });
        });
    });
}
