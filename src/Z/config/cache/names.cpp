#include "Z/config/cache/names.h"

namespace zfc::cache {

Names::Names(Names const& other, Texts& memory)
    : texts(memory),
      stanzas(other.stanzas),
      keys(other.keys),
      stanzaTable(other.stanzaTable),
      keyTables(other.keyTables) {}

Index Names::searchStanza(std::string_view name) const {
    recentStanza = stanzaTable.find(hashName(name), name.data(),
                                    [&](Index i) { return stanzaName(i) == name; });
    return recentStanza;
}

Index Names::findKey(std::string_view stanza, std::string_view name) const {
    Index const found = findStanza(stanza);
    return found == none ? none : findKey(found, name, hashName(name));
}

Names::Sought Names::seekKey(Index stanza, std::string_view name) const {
    bool const isAsked = stanza != none && asked.stanza == stanza && asked.name == name;
    if (isAsked) return asked.answer;
    std::uint32_t const hash = hashName(name);
    return {stanza == none ? none : findKey(stanza, name, hash), hash};
}

Index Names::findKeyToEdit(std::string_view stanza, std::string_view name) const {
    Index const found = findStanza(stanza);
    if (found == none) return none;
    // Void until all of it is there: the name may find no memory.
    asked.stanza = none;
    asked.name.assign(name.data(), name.size());
    asked.answer = seekKey(found, name);
    asked.stanza = found;
    return asked.answer.key;
}

Index Names::addStanza(std::string_view name) {
    // All that may fail comes before the first change.
    stanzaTable.makeRoom();
    if (stanzaCount() == keyTables.size()) keyTables.emplace_back();
    Index const i = stanzas.allocate();
    stanzas[i] = {name.data(), static_cast<std::uint32_t>(name.size())};
    stanzaTable.insert(hashName(name), i, name.data());
    texts.startUse(name.size());
    return i;
}

Index Names::addKey(Index stanza, std::string_view name, std::uint32_t hash, Index line) {
    Table& table = keyTables[stanza];
    table.makeRoom();
    // The last thing that can fail.
    Index const i = keys.allocate();
    auto const length = static_cast<std::uint32_t>(name.size());
    // It may have answered that there is no such key.
    asked.stanza = none;
    keys[i] = {name.data(), nullptr, length, 0, stanza, line, none, none};
    table.insert(hash, i, name.data());
    texts.startUse(name.size());
    return i;
}

void Names::removeKey(Index key) {
    Key const& record = keys[key];
    asked.stanza = none;
    texts.endUse(record.nameLength);
    keyTables[record.stanza].erase(hashName(record.getName()), key);
    // Last: it writes over the beginning of the record, where the name's address is.
    keys.release(key);
}

void Names::removeStanza(Index stanza) {
    recentStanza = asked.stanza = none;
    std::string_view const name = stanzaName(stanza);
    texts.endUse(name.size());
    stanzaTable.erase(hashName(name), stanza);
    // Gives the memory back; the number's next stanza begins with an empty one.
    keyTables[stanza] = Table();
    stanzas.release(stanza);
}

void Names::moveStanza(Texts& fresh, Index stanza) {
    fresh.moveIn(stanzas[stanza].name, stanzas[stanza].nameLength);
}

void Names::moveKey(Texts& fresh, Index key) { fresh.moveIn(keys[key].name, keys[key].nameLength); }

}  // namespace zfc::cache
