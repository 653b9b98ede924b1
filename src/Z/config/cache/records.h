/// Shared. What the property cache holds of one file: names, values and lines, held compactly.
///
/// Each of the three is read by itself and counts in the same numbers of stanzas and keys; here is
/// what they do together. Records know each other by number; names, values and comments are texts
/// in one place (Texts). Every argument is a record or a text that is fit for it: the rules for
/// callers are the cache's own.
#ifndef Z_CONFIG_CACHE_RECORDS_H
#define Z_CONFIG_CACHE_RECORDS_H

#include <string_view>
#include <utility>

#include "Z/config/cache/lines.h"
#include "Z/config/cache/names.h"
#include "Z/config/cache/texts.h"
#include "Z/config/cache/values.h"

namespace zfc::cache {

class Records : public Allocated {
  public:
    Records() : allNames(texts), allValues(texts), allLines(texts) {}
    Records(Records const& other);
    Records& operator=(Records const&) = delete;

    [[nodiscard]] Names const& names() const { return allNames; }
    [[nodiscard]] Values const& values() const { return allValues; }
    [[nodiscard]] Lines const& lines() const { return allLines; }
    /// Lines are placed and dropped without the other two.
    [[nodiscard]] Lines& lines() { return allLines; }

    // Stanzas and keys. Names are copied; what is new has no place in the file.
    [[nodiscard]] Index findOrAddStanza(std::string_view name);
    [[nodiscard]] Index findOrAddKey(Index stanza, std::string_view name);
    /// Of a name that is not there yet.
    [[nodiscard]] Index addStanza(std::string_view name) { return adoptStanza(texts.copy(name)); }
    [[nodiscard]] Index addKey(Index stanza, std::string_view name, std::uint32_t hash);
    void removeKey(Index key);
    /// With its keys, and its lines up to the next header.
    void removeStanza(Index stanza);

    // Values are copied. Value number `i` must be there.
    void addValue(Index key, std::string_view value, Obfuscated kind) {
        adoptValue(key, texts.copy(value), kind);
    }
    void changeValue(Index key, Obfuscated kind, std::uint32_t i, std::string_view text) {
        allValues.change(allNames.key(key), kind, i, texts.copy(text));
    }
    void removeValue(Index key, Obfuscated kind, std::uint32_t i) {
        allValues.remove(allNames.key(key), kind, i);
    }
    void clearValues(Index key) { allValues.clear(allNames.key(key)); }
    /// Writes over the key's only value, a plain one, where the text fits into its place; else
    /// changes nothing and answers false.
    [[nodiscard]] bool overwriteValue(Index key, std::string_view text) {
        return allValues.overwrite(allNames.key(key), text);
    }

    // The reader's: texts that already lie in an adopted block.
    void adoptBlock(Block block, std::size_t bytes) { texts.adopt(std::move(block), bytes); }
    [[nodiscard]] std::string_view copyText(std::string_view text) { return texts.copy(text); }
    [[nodiscard]] Index adoptStanza(std::string_view name);
    /// The key of this name, new with a line at the end of the file if it is not there; `stanza` is
    /// the last one placed.
    [[nodiscard]] Index adoptKey(Index stanza, std::string_view name);
    void adoptValue(Index key, std::string_view text, Obfuscated kind) {
        allValues.add(allNames.key(key), key, text, kind);
    }

    /// Copies the texts together when more than half of their memory is garbage and there is memory
    /// to do it. The old texts stay readable until then.
    void tidy() {
        if (texts.isWasteful()) tryCompact();
    }

  private:
    friend struct RecordsCheck;  // the tests' invariants

    void tryCompact();
    void compact(std::size_t bytes);

    Texts texts;  // before the parts, which keep a reference
    Names allNames;
    Values allValues;
    Lines allLines;
};

}  // namespace zfc::cache

#endif
