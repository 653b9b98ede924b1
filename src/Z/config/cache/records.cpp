#include "Z/config/cache/records.h"

#include "Z/ZException.h"

#include <utility>

namespace zfc::cache {
namespace {

constexpr char sourceName[] = "src/Z/ZPropertiesImpl";

/// Moves one text that is in use.
void moveText(Texts& fresh, char const*& text, std::size_t length) {
    text = fresh.copy({text, length}).data();
    fresh.startUse(length);
}

}  // namespace

void raiseFull() { zraise(ZOutOfMemoryException(), sourceName, __LINE__); }

// ------------------------------------------------------------------------------------ copying

Records::Records(Records const& other)
    : stanzas(other.stanzas),
      keys(other.keys),
      lines(other.lines),
      values(other.values),
      lists(other.lists),
      stanzaTable(other.stanzaTable),
      keyTables(other.keyTables),
      file(other.file),
      placedStanzas(other.placedStanzas),
      unplacedStanzas(other.unplacedStanzas),
      obfuscatedLists(other.obfuscatedLists),
      obfuscatedKeyCount(other.obfuscatedKeyCount),
      openingEnd(other.openingEnd),
      longLines(other.longLines) {
    compact(other.texts.bytesUsed());
}

/// Copies every text in use into one block of `bytes`. That block is all that can fail, so the
/// texts move together or not at all.
void Records::compact(std::size_t bytes) {
    Texts fresh;
    fresh.reserve(bytes);
    for (Index i = file.first; i != none; i = lines[i].next) {
        if (lines[i].kind == ZPropLine::comment) moveText(fresh, lines[i].text, lines[i].length);
    }
    eachStanza([&](Index i) {
        moveText(fresh, stanzas[i].name, stanzas[i].nameLength);
        eachKey(i, [&](Index key) { compactKey(fresh, key); });
    });
    texts = std::move(fresh);
}

void Records::tidy() {
    if (!texts.isWasteful()) return;
    try {
        compact(texts.bytesUsed());
    } catch (ZOutOfMemoryException const&) {
        return;  // what was asked for is done; the garbage can wait
    }
}

void Records::compactKey(Texts& fresh, Index key) {
    Key& record = keys[key];
    moveText(fresh, record.name, record.nameLength);
    if (record.value != nullptr) moveText(fresh, record.value, record.valueLength);
    compactValues(fresh, record.more);
    compactValues(fresh, record.obfuscated);
}

void Records::compactValues(Texts& fresh, Index list) {
    if (list == none) return;
    for (Index i = lists[list].first; i != none; i = values[i].next)
        moveText(fresh, values[i].text, values[i].length);
}

// ---------------------------------------------------------------------------- stanzas and keys

Index Records::findStanza(std::string_view name) const {
    if (isRecent(name)) return recentStanza;
    recentStanza = stanzaTable.find(hashName(name), name.data(),
                                    [&](Index i) { return stanzaName(i) == name; });
    return recentStanza;
}

Index Records::findKey(std::string_view stanza, std::string_view name) const {
    Index const found = findStanza(stanza);
    return found == none ? none : findHashed(found, name, hashName(name));
}

Index Records::findHashed(Index stanza, std::string_view name, std::uint32_t hash) const {
    return keyTables[stanza].find(hash, stanzas[stanza].name,
                                  [&](Index i) { return keyName(i) == name; });
}

Index Records::adoptStanza(std::string_view name) {
    stanzaTable.makeRoom();
    if (stanzaCount() == keyTables.size()) keyTables.emplace_back();
    Index const i = stanzas.allocate();
    Stanza& record = stanzas[i];
    record.name = name.data();
    record.nameLength = static_cast<std::uint32_t>(name.size());
    record.header = record.tail = record.commentEnd = none;
    stanzaTable.insert(hashName(name), i, name.data());
    linkLast(stanzas, unplacedStanzas, i);
    texts.startUse(name.size());
    return i;
}

/// A key whose line is in no chain yet.
Index Records::newKey(Index stanza, std::string_view name, std::uint32_t hash) {
    keyTables[stanza].makeRoom();
    Index const line = newLine(ZPropLine::key, unplaced);
    Index const i = keys.allocate();
    Key& record = keys[i];
    record.name = name.data();
    record.nameLength = static_cast<std::uint32_t>(name.size());
    record.stanza = stanza;
    record.line = line;
    record.more = record.obfuscated = none;
    lines[line].owner = i;
    keyTables[stanza].insert(hash, i, name.data());
    texts.startUse(name.size());
    return i;
}

Index Records::findOrAddStanza(std::string_view name) {
    Index const known = findStanza(name);
    return known != none ? known : adoptStanza(texts.copy(name));
}

Index Records::findOrAddKey(Index stanza, std::string_view name) {
    std::uint32_t const hash = hashName(name);
    Index const known = findHashed(stanza, name, hash);
    if (known != none) return known;
    Index const key = newKey(stanza, texts.copy(name), hash);
    linkLast(lines, stanzas[stanza].unplaced, keys[key].line);
    return key;
}

void Records::removeKey(Index key) {
    clearValues(key);
    Key const& record = keys[key];
    unlinkKeyLine(record.stanza, record.line);
    lines.release(record.line);
    texts.endUse(record.nameLength);
    keyTables[record.stanza].erase(hashName(keyName(key)), key);
    keys.release(key);
}

void Records::removeStanza(Index stanza) {
    dropLines(stanza);
    recentStanza = none;
    Stanza const& record = stanzas[stanza];
    while (record.unplaced.first != none)
        removeKey(lines[record.unplaced.first].owner);
    unlink(stanzas, unplacedStanzas, stanza);
    texts.endUse(record.nameLength);
    stanzaTable.erase(hashName(stanzaName(stanza)), stanza);
    keyTables[stanza] = Table();
    stanzas.release(stanza);
}

}  // namespace zfc::cache
