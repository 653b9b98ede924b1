#include "Z/config/cache/records.h"

#include <utility>

#include "Z/ZException.h"
#include "Z/utility/undo.h"

namespace zfc::cache {
namespace {

constexpr char sourceName[] = "src/Z/ZPropertiesImpl";

}  // namespace

void raiseFull() { zraise(ZOutOfMemoryException(), sourceName, __LINE__); }

// ------------------------------------------------------------------------------------ copying

Records::Records(Records const& other)
    : allNames(other.allNames, texts),
      allValues(other.allValues, texts),
      allLines(other.allLines, texts) {
    compact(other.texts.bytesUsed());
}

/// Copies every text in use into one block of `bytes`, in the order in which a walk over the file
/// reads them. That block is all that can fail, so the texts move together or not at all.
void Records::compact(std::size_t bytes) {
    Texts fresh;
    fresh.reserve(bytes);
    allLines.moveComments(fresh);
    allLines.eachStanza([&](Index stanza) {
        allNames.moveStanza(fresh, stanza);
        allLines.eachKey(stanza, [&](Index key) {
            allNames.moveKey(fresh, key);
            allValues.move(fresh, allNames.key(key));
        });
    });
    // Last, with nothing left that points into the old blocks.
    texts = std::move(fresh);
}

void Records::tryCompact() {
    try {
        compact(texts.bytesUsed());
    } catch (ZOutOfMemoryException const&) {
        return;  // what was asked for is done; the garbage can wait
    }
}

// ---------------------------------------------------------------------------- stanzas and keys

Index Records::findOrAddStanza(std::string_view name) {
    Index const known = allNames.findStanza(name);
    return known != none ? known : addStanza(name);
}

Index Records::adoptStanza(std::string_view name) {
    // Before the name is there: no memory for its lines must not leave it without them. No number
    // given out is above the count.
    allLines.reserveSection(allNames.stanzaCount());
    Index const stanza = allNames.addStanza(name);
    allLines.addSection(stanza);
    return stanza;
}

Index Records::findOrAddKey(Index stanza, std::string_view name) {
    Names::Sought const known = allNames.seekKey(stanza, name);
    return known.key != none ? known.key : addKey(stanza, name, known.hash);
}

Index Records::addKey(Index stanza, std::string_view name, std::uint32_t hash) {
    std::string_view const copy = texts.copy(name);
    // Before the key, which is never without one.
    Index const line = allLines.newKeyLine();
    ZUndo releasing([&] { allLines.lines.release(line); });
    Index const key = allNames.addKey(stanza, copy, hash, line);
    releasing.keep();
    allLines.leaveUnplaced(stanza, line, key);
    return key;
}

Index Records::adoptKey(Index stanza, std::string_view name) {
    std::uint32_t const hash = hashName(name);
    Index const known = allNames.findKey(stanza, name, hash);
    if (known != none) return known;
    Index const line = allLines.newKeyLine();
    ZUndo releasing([&] { allLines.lines.release(line); });
    Index const key = allNames.addKey(stanza, name, hash, line);
    releasing.keep();
    allLines.appendKey(stanza, line, key);
    return key;
}

void Records::removeKey(Index key) {
    clearValues(key);
    allLines.removeKey(allNames.key(key));
    allNames.removeKey(key);  // last: the others read its record
}

void Records::removeStanza(Index stanza) {
    // Without places all key lines of the stanza are in one chain.
    allLines.unplaceStanza(stanza);
    for (Index key = none; (key = allLines.firstUnplaced(stanza)) != none;)
        removeKey(key);
    allLines.removeSection(stanza);
    allNames.removeStanza(stanza);
}

}  // namespace zfc::cache
