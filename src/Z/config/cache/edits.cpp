/// ZPCategoryBasedCache, what changes it. Every edit is checked whole before it begins.
#include <string_view>

#include "Z/ZException.h"
#include "Z/ZPropertiesImpl.h"
#include "Z/config/cache/handed_out.h"
#include "Z/config/cache/records.h"
#include "Z/config/cache/storable.h"

using zfc::cache::findKey;
using zfc::cache::findStanza;
using zfc::cache::Index;
using zfc::cache::isEmpty;
using zfc::cache::Key;
using zfc::cache::Names;
using zfc::cache::none;
using zfc::cache::Obfuscated;
using zfc::cache::Records;
using zfc::cache::Values;

namespace {

constexpr char sourceName[] = "src/Z/ZPropertiesImpl";

/// No text, empty and without data, for null.
std::string_view viewOf(char const* text) {
    return text == nullptr ? std::string_view() : std::string_view(text);
}

enum class OldValues { keep, replace };
enum class Placing { leave, place };

/// What the cache has of a change's names. Those it has can be stored, because they were read from
/// lines or came with a change, and are spared the search for bytes that no line holds.
struct Known {
    Index stanza;
    Names::Sought key{none, 0};
    bool isStanzaFit;
    bool isKeyFit;

    Known(Records const& records, std::string_view stanzaName, std::string_view keyName)
        : stanza(records.names().findStanza(stanzaName)) {
        if (keyName.data() != nullptr) key = records.names().seekKey(stanza, keyName);
        bool const areFit = !records.lines().mayHaveUnfit();
        isStanzaFit = areFit && stanza != none;
        isKeyFit = areFit && key.key != none;
    }
};

}  // namespace

/// What an edit is asked to do.
struct ZPCategoryBasedCache::Change {
    std::string_view stanza;
    std::string_view key;    // without data: the stanza alone
    std::string_view value;  // empty: no value
    Obfuscated kind;
    OldValues oldValues;
    Placing placing;

    Change(char const* ofStanza, char const* ofKey, char const* newValue, int obfuscated,
           OldValues old, Placing place)
        : stanza(viewOf(ofStanza)),
          key(viewOf(ofKey)),
          value(viewOf(newValue)),
          kind(zfc::cache::kindOf(obfuscated)),
          oldValues(old),
          placing(place) {}

    [[nodiscard]] bool isOfStanza() const { return key.data() == nullptr; }
    [[nodiscard]] bool isStorable(Known const& known) const {
        bool const isNamed =
            known.isStanzaFit ? !stanza.empty() : zfc::cache::isStorableStanza(stanza);
        if (!isNamed) return false;
        // A value without a key has nowhere to go.
        if (isOfStanza()) return value.empty();
        if (!known.isKeyFit && !zfc::cache::isStorableKey(key)) return false;
        return value.empty() || zfc::cache::isStorableValue(key, value, kind);
    }
};

/// Drops the lists handed out when the edit is over: its arguments may lie in them.
class ZPCategoryBasedCache::Edit {
  public:
    explicit Edit(Lists& handedOut) : lists(handedOut) {}
    Edit(Edit const&) = delete;
    Edit& operator=(Edit const&) = delete;
    ~Edit() { lists.clear(); }

  private:
    Lists& lists;
};

// -------------------------------------------------------------------------------- values and lines

void ZPCategoryBasedCache::edit(Change const& change) {
    Known known(*records, change.stanza, change.key);
    // Before anything is added, so that what is refused leaves no trace.
    if (!change.isStorable(known)) zraise(ZInvalidParameterException(), sourceName, __LINE__);
    Edit const scope(*lists);
    if (known.stanza == none) known.stanza = records->addStanza(change.stanza);
    if (change.placing == Placing::place) records->lines().placeStanza(known.stanza);
    if (change.isOfStanza()) return;
    // Asked first: the texts of the change may lie where the new value goes.
    bool const isCompanion = zfc::cache::namesCompanion(change.stanza, change.key);
    unsigned int const key = editKey(known.stanza, known.key.key, known.key.hash, change);
    if (isCompanion) noteCompanion(key);
    records->tidy();
}

/// Edits the key of the name and hash given; `key` is it, if it is there. Which one it is then.
unsigned int ZPCategoryBasedCache::editKey(unsigned int stanza, unsigned int key, unsigned int hash,
                                           Change const& change) {
    bool const hasValue = !change.value.empty();
    bool const replaces = change.oldValues == OldValues::replace;
    bool const isWritten = key != none && replaces && change.kind == Obfuscated::no && hasValue &&
                           records->overwriteValue(key, change.value);
    // Copied before anything changes: no memory for a long value leaves the old ones.
    std::string_view const value =
        hasValue && !isWritten ? records->copyText(change.value) : std::string_view();
    if (key == none) key = records->addKey(stanza, change.key, hash);
    if (replaces && !isWritten) records->clearValues(key);
    if (hasValue && !isWritten) records->adoptValue(key, value, change.kind);
    if (change.placing == Placing::place) records->lines().placeKey(records->names().key(key));
    return key;
}

/// Keeps the name of the companion file up to date; it stays known when the key goes.
void ZPCategoryBasedCache::noteCompanion(unsigned int key) {
    std::string_view const value =
        records->values().last(records->names().key(key), Obfuscated::no);
    if (value.data() != nullptr) companionName = value.data();
}

void ZPCategoryBasedCache::add(char const* stanza, char const* key, char const* value,
                               int obfuscated) {
    edit({stanza, key, value, obfuscated, OldValues::keep, Placing::leave});
}

void ZPCategoryBasedCache::add(char const* stanza, char const* key, int obfuscated) {
    edit({stanza, key, nullptr, obfuscated, OldValues::keep, Placing::leave});
}

void ZPCategoryBasedCache::set(char const* stanza, char const* key, char const* value) {
    edit({stanza, key, value, 0, OldValues::replace, Placing::leave});
}

void ZPCategoryBasedCache::set(char const* stanza, char const* key) {
    edit({stanza, key, nullptr, 0, OldValues::replace, Placing::leave});
}

void ZPCategoryBasedCache::setObfuscated(char const* stanza, char const* key, char const* value) {
    edit({stanza, key, value, 1, OldValues::replace, Placing::leave});
}

void ZPCategoryBasedCache::setObfuscated(char const* stanza, char const* key) {
    edit({stanza, key, nullptr, 1, OldValues::replace, Placing::leave});
}

void ZPCategoryBasedCache::addLine(char const* stanza, char const* key, char const* value,
                                   int obfuscated) {
    edit({stanza, key, value, obfuscated, OldValues::replace, Placing::place});
}

void ZPCategoryBasedCache::addLine(char const* stanza, char const* key, int obfuscated) {
    edit({stanza, key, nullptr, obfuscated, OldValues::keep, Placing::place});
}

void ZPCategoryBasedCache::addValue(char const* stanza, char const* key, char const* value,
                                    int obfuscated) {
    if (key == nullptr || isEmpty(value))
        zraise(ZInvalidParameterException(), sourceName, __LINE__);
    edit({stanza, key, value, obfuscated, OldValues::keep, Placing::place});
}

bool ZPCategoryBasedCache::changeValue(char const* stanza, char const* key, unsigned int i,
                                       char const* value) {
    Index const found = findKey(records->names(), stanza, key);
    if (isEmpty(value)) zraise(ZInvalidParameterException(), sourceName, __LINE__);
    if (found == none) return false;
    Key const& record = records->names().key(found);
    Obfuscated const kind = Values::visibleKind(record);
    // The rest works by number alone, and takes the value for granted.
    if (i >= records->values().count(record, kind)) return false;
    if (!zfc::cache::isStorableValue(key, value, kind))
        zraise(ZInvalidParameterException(), sourceName, __LINE__);
    Edit const scope(*lists);
    records->changeValue(found, kind, i, value);
    if (zfc::cache::namesCompanion(stanza, key)) noteCompanion(found);
    records->tidy();
    return true;
}

bool ZPCategoryBasedCache::removeValue(char const* stanza, char const* key, unsigned int i) {
    Index const found = findKey(records->names(), stanza, key);
    if (found == none) return false;
    Key const& record = records->names().key(found);
    Obfuscated const kind = Values::visibleKind(record);
    if (i >= records->values().count(record, kind)) return false;
    Edit const scope(*lists);
    records->removeValue(found, kind, i);
    if (zfc::cache::namesCompanion(stanza, key)) noteCompanion(found);
    records->tidy();
    return true;
}

// ---------------------------------------------------------------------------------------- dropping

void ZPCategoryBasedCache::remove(char const* stanza, char const* key) {
    Index const found = findKey(records->names(), stanza, key);
    if (found == none) return;
    Edit const scope(*lists);
    records->removeKey(found);
    records->tidy();
}

void ZPCategoryBasedCache::remove(char const* stanza) {
    Index const found = findStanza(records->names(), stanza);
    if (found == none) return;
    Edit const scope(*lists);
    records->removeStanza(found);
    records->tidy();
}

void ZPCategoryBasedCache::delLine(char const* stanza) {
    Index const found = findStanza(records->names(), stanza);
    if (found == none) return;
    Edit const scope(*lists);
    records->lines().unplaceStanza(found);
    records->tidy();
}

void ZPCategoryBasedCache::delLine(char const* stanza, char const* key) {
    Index const found = findKey(records->names(), stanza, key);
    if (found == none) return;
    Edit const scope(*lists);
    // No tidying: the line keeps all its texts.
    records->lines().unplaceKey(records->names().key(found));
}

void ZPCategoryBasedCache::clear() {
    // Made first: without memory for it everything stays.
    auto fresh = std::make_unique<Records>();
    lists->clear();
    records = std::move(fresh);
    companionName.clear();
}

// ---------------------------------------------------------------------------------------- comments

void ZPCategoryBasedCache::addFileComment(char const* text) {
    if (text == nullptr || !isStorableComment(text))
        zraise(ZInvalidParameterException(), sourceName, __LINE__);
    Edit const scope(*lists);
    records->lines().addFileComment(text);
}

void ZPCategoryBasedCache::addLineComment(char const* stanza, char const* text) {
    Index const found = findStanza(records->names(), stanza);
    if (found == none || text == nullptr || !isStorableComment(text) || !isStorableStanza(stanza))
        zraise(ZInvalidParameterException(), sourceName, __LINE__);
    Edit const scope(*lists);
    records->lines().addStanzaComment(found, text);
}

void ZPCategoryBasedCache::addLineComment(char const* stanza, char const* key, char const* text) {
    Index const found = findKey(records->names(), stanza, key);
    if (found == none || text == nullptr || !isStorableComment(text) || !isStorableStanza(stanza) ||
        !isStorableKey(key))
        zraise(ZInvalidParameterException(), sourceName, __LINE__);
    Edit const scope(*lists);
    records->lines().addKeyComment(records->names().key(found), text);
}
