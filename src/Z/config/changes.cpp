#include "Z/config/changes.h"

#include <string_view>

#include "Z/utility/undo.h"

namespace zfc::config {
namespace {

using Change = ZPropertyChanged::PropertyChangeType;
using TextsOfKey = zfc::cache::Vector<std::string_view>;

/// Two states of the values of one file.
class Comparison {
  public:
    Comparison(ZPCategoryBasedCache const& old, ZPCategoryBasedCache const& fresh, Notices& into)
        : before(old), after(fresh), notices(into) {}

    void addGone() {
        before.forEachStanza([this](char const* stanza, unsigned int) { addGone(stanza); });
    }
    void addNew() {
        after.forEachStanza([this](char const* stanza, unsigned int) { addNew(stanza); });
    }

  private:
    void addGone(char const* stanza) {
        before.forEachKey(stanza, [&](char const* key, unsigned int) {
            if (!after.contains(stanza, key)) notices.add(Change::deleted, stanza, key);
        });
        if (!after.contains(stanza)) notices.add(Change::deleted, stanza, nullptr);
    }

    void addNew(char const* stanza) {
        if (!before.contains(stanza)) notices.add(Change::stanzaAdded, stanza, nullptr);
        after.forEachKey(stanza, [&](char const* key, unsigned int) {
            if (!isSame(stanza, key)) notices.add(Change::valueSet, stanza, key);
        });
    }

    [[nodiscard]] bool isSame(char const* stanza, char const* key) {
        if (!before.contains(stanza, key)) return false;
        return hasSame(stanza, key, ZPCache::plainValues) &&
               hasSame(stanza, key, ZPCache::obfuscatedValues);
    }

    [[nodiscard]] bool hasSame(char const* stanza, char const* key, ZPCache::get_type_e kind) {
        collect(before, stanza, key, kind, oldTexts);
        collect(after, stanza, key, kind, newTexts);
        return oldTexts == newTexts;
    }

    static void collect(ZPCategoryBasedCache const& values, char const* stanza, char const* key,
                        ZPCache::get_type_e kind, TextsOfKey& texts) {
        texts.clear();
        values.forEachValue(stanza, key, kind, [&](char const* text, unsigned int length) {
            texts.emplace_back(text, length);
        });
    }

    ZPCategoryBasedCache const& before;
    ZPCategoryBasedCache const& after;
    Notices& notices;
    TextsOfKey oldTexts;  // of one key, kept for their memory
    TextsOfKey newTexts;
};

}  // namespace

void Notices::addDifferences(ZPCategoryBasedCache const& before,
                             ZPCategoryBasedCache const& after) {
    ZUndo undo([this, count = size()] { cut(count); });
    Comparison comparison(before, after, *this);
    comparison.addGone();
    comparison.addNew();
    undo.keep();
}

}  // namespace zfc::config
