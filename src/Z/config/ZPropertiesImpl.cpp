#include "Z/ZPropertiesImpl.h"

#include <cstring>
#include <functional>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "Z/ZException.h"
#include "Z/ZList.h"
#include "Z/ZUTF8String.h"
#include "Z/config/cache/table.h"
#include "Z/containers/members.h"

namespace {

using zfc::containers::appendNew;

constexpr char sourceName[] = "src/Z/ZPropertiesImpl";

int ordered(int difference) { return difference < 0 ? -1 : static_cast<int>(difference > 0); }

std::unique_ptr<ZObject> stringOf(ZPropertyStringType type, char const* text) {
    if (type == zpropLocalCodeset) return std::make_unique<ZLCString>(text);
    ZLCString const local(text);
    auto converted = std::make_unique<ZUTF8String>(local);
    // Nothing out of something: the text would vanish.
    if (converted->isEmpty() && !local.isEmpty())
        zraise(ZToUTF8Exception(local), sourceName, __LINE__);
    return converted;
}

struct NameHash {
    std::size_t operator()(std::string_view name) const { return zfc::cache::hashName(name); }
};

}  // namespace

// ---------------------------------------------------------------------- ZPropLine, ZObfuscatedItem

int ZPropLine::compare(ZObject const& other) const {
    auto const* const line = dynamic_cast<ZPropLine const*>(&other);
    if (line == nullptr) return ZObject::compare(other);
    if (kind != line->kind) return kind < line->kind ? -1 : 1;
    return ordered(std::strcmp(getText(), line->getText()));
}

int ZObfuscatedItem::compare(ZObject const& other) const {
    auto const* const item = dynamic_cast<ZObfuscatedItem const*>(&other);
    if (item == nullptr) return ZObject::compare(other);
    int const byStanza = std::strcmp(getStanza(), item->getStanza());
    return ordered(byStanza != 0 ? byStanza : std::strcmp(getKey(), item->getKey()));
}

// ---------------------------------------------------------------------------------------- ZPKVList

struct ZPKVList::Index : zfc::cache::Allocated {
    using Entry = std::pair<std::string_view const, std::unique_ptr<ZArrayList>>;
    // The names lie in the objects of `keys`.
    std::unordered_map<std::string_view, std::unique_ptr<ZArrayList>, NameHash, std::equal_to<>,
                       zfc::cache::Allocator<Entry>>
        values;
};

ZPKVList::ZPKVList() : keys(new ZArrayList(0, 1)), index(new Index) {}

ZPKVList::~ZPKVList() = default;

void ZPKVList::putEntry(char const* key, ZArrayList const& values) {
    if (key == nullptr) zraise(ZInvalidParameterException(), sourceName, __LINE__);
    auto copy = std::make_unique<ZArrayList>(0, 1);
    copy->addList(values);
    auto const known = index->values.find(key);
    if (known != index->values.end()) {
        known->second = std::move(copy);
        return;
    }
    auto name = std::make_unique<ZLCString>(key);
    // The index points at text in the string object, which stays where it is as the list's member.
    auto const entry = index->values.emplace(name->getChars(), std::move(copy)).first;
    try {
        appendNew(*keys, std::move(name));
    } catch (...) {
        index->values.erase(entry);
        throw;
    }
}

ZArrayList* ZPKVList::getEntry(char const* key) const {
    if (key == nullptr) return nullptr;
    auto const known = index->values.find(key);
    return known == index->values.end() ? nullptr : known->second.get();
}

void ZPKVList::removeEntry(char const* key) {
    // The index first: it points at the text of the name that goes below.
    if (key == nullptr || index->values.erase(key) == 0) return;
    ZLCString const name(key);
    keys->remove(&name);
}

void ZPKVList::removeAll() {
    // Before the names, which it points at.
    index->values.clear();
    keys->removeAll();
}

unsigned int ZPKVList::size() const { return keys->size(); }

ZArrayList const& ZPKVList::getKeys() const { return *keys; }

void ZPKVList::listKeys(ZList& out) const { out.addList(*keys); }

// ------------------------------------------------------------------------------- ZPropertiesKVList

ZPropertiesKVList::ZPropertiesKVList(ZPropertyStringType stringType)
    : keys(new ZArrayList(0, 1)), values(new ZArrayList(0, 1)), type(stringType) {
    if (type != zpropLocalCodeset && type != zpropUTF8)
        zraise(ZInvalidParameterException(), sourceName, __LINE__);
}

ZPropertiesKVList::~ZPropertiesKVList() = default;

unsigned int ZPropertiesKVList::getItemCount() const { return keys->size(); }

ZAbstractString const* ZPropertiesKVList::getItemKey(unsigned int i) const {
    return static_cast<ZAbstractString const*>(keys->get(i));
}

ZAbstractString const* ZPropertiesKVList::getItemValue(unsigned int i) const {
    return static_cast<ZAbstractString const*>(values->get(i));
}

void ZPropertiesKVList::addItem(char const* key, char const* value) {
    // Both are converted before either is added: half a pair would shift all behind it.
    auto keyString = stringOf(type, key);
    appendNew(*values, stringOf(type, value));
    try {
        appendNew(*keys, std::move(keyString));
    } catch (...) {
        values->remove(values->size() - 1);
        throw;
    }
}

void ZPropertiesKVList::clear() {
    keys->removeAll();
    values->removeAll();
}

// ----------------------------------------------------------------------------------------- ZPCache

ZPCache::~ZPCache() = default;
