/// Shared. The records of the property cache: stanzas, keys, values and lines, held compactly.
///
/// Records know each other by number; names and values are texts in one place (Texts). Here every
/// argument is a record or a text that is fit for it: the rules for callers are the cache's own.
#ifndef Z_CONFIG_CACHE_RECORDS_H
#define Z_CONFIG_CACHE_RECORDS_H

#include "Z/ZPropertiesImpl.h"
#include "Z/config/cache/pool.h"
#include "Z/config/cache/table.h"
#include "Z/config/cache/texts.h"

#include <cstdint>
#include <functional>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace zfc::cache {

enum class Obfuscated : bool { no, yes };
[[nodiscard]] constexpr Obfuscated kindOf(int obfuscated) {
    return obfuscated != 0 ? Obfuscated::yes : Obfuscated::no;
}

/// A line that the writer will produce. The lines between two blank lines are a segment; no edit
/// adds a blank line to a stanza, so a line stays in its segment, and two lines of a stanza that
/// are in different ones can be told apart in order at once.
struct Line {
    union {
        char const* text;  // of a comment
        Index owner;       // of a header: its stanza; of a key line: its key
    };
    Index prev;
    Index next;
    std::uint32_t segment;  // blank lines between the header and this line; or unplaced
    std::uint16_t length;   // of text
    std::uint16_t kind;     // a ZPropLine::Kind
};
/// The segment of a key line that has no place in the file: it is in its stanza's own chain.
constexpr std::uint32_t unplaced = 0xffffffff;

struct Value {
    char const* text;
    std::uint32_t length;
    Index next;  // none: the last one
};

/// The values of a key that its record has no room for.
struct ValueList {
    Index first;
    Index last;
    std::uint32_t count;  // never 0
    Index key;            // whose they are
    Index prev;           // obfuscated values: the chain of all such lists
    Index next;
};

struct Key {
    char const* name;
    char const* value;  // the first plain value; null: no plain values
    std::uint32_t nameLength;
    std::uint32_t valueLength;
    Index stanza;
    Index line;        // its line, placed or not
    Index more;        // further plain values, a ValueList; none: no more
    Index obfuscated;  // obfuscated values, a ValueList; none: none
};

struct Stanza {
    char const* name;
    std::uint32_t nameLength;
    Index header;                  // its header line; none: it has no place in the file
    Index tail;                    // with a header: no key line of the stanza lies behind this line
    Index commentEnd;              // with a header: a line of the run of header and comments
    std::uint32_t blankLines;      // its blank lines
    std::uint32_t comments;        // its comment lines
    std::uint32_t obfuscatedKeys;  // those of them with obfuscated values
    Chain unplaced;                // key lines without a place in the file
    Index prev;                    // the chain of stanzas with a header, or of those without
    Index next;
};

class Records : public Allocated {
  public:
    Records() = default;
    Records(Records const& other);
    Records& operator=(Records const&) = delete;

    // Reading.
    [[nodiscard]] Index findStanza(std::string_view name) const;
    [[nodiscard]] Index findKey(std::string_view stanza, std::string_view name) const;
    [[nodiscard]] std::string_view stanzaName(Index stanza) const {
        return {stanzas[stanza].name, stanzas[stanza].nameLength};
    }
    [[nodiscard]] std::string_view keyName(Index key) const {
        return {keys[key].name, keys[key].nameLength};
    }
    [[nodiscard]] std::uint32_t stanzaCount() const { return stanzaTable.size(); }
    [[nodiscard]] std::uint32_t keyCount(Index stanza) const { return keyTables[stanza].size(); }
    [[nodiscard]] std::uint32_t plainCount(Index key) const;
    [[nodiscard]] std::uint32_t obfuscatedCount(Index key) const;
    [[nodiscard]] Stanza const& stanza(Index i) const { return stanzas[i]; }
    [[nodiscard]] Key const& key(Index i) const { return keys[i]; }
    [[nodiscard]] Line const& line(Index i) const { return lines[i]; }
    [[nodiscard]] std::uint32_t obfuscatedKeys() const { return obfuscatedKeyCount; }

    // Visitors are called in file order, and what has no place in the file comes last.
    template <class Visit>  // visit(Index stanza)
    void eachStanza(Visit visit) const;
    template <class Visit>  // visit(Index key)
    void eachKey(Index stanza, Visit visit) const;
    template <class Visit>  // visit(Line const&)
    void eachLine(Visit visit) const;
    template <class Visit>  // visit(std::string_view value)
    void eachPlain(Index key, Visit visit) const;
    template <class Visit>  // visit(std::string_view value)
    void eachObfuscated(Index key, Visit visit) const;
    template <class Visit>  // visit(Index key), in the order in which they got the values
    void eachObfuscatedKey(Visit visit) const;
    /// Value number `i` of the kind; its data is null when there is none.
    [[nodiscard]] std::string_view valueAt(Index key, Obfuscated kind, std::uint32_t i) const;
    [[nodiscard]] std::string_view lastValue(Index key, Obfuscated kind) const;

    // Editing. Names and values are copied, but those of the adopting functions.
    // What is new has no place in the file.
    [[nodiscard]] Index findOrAddStanza(std::string_view name);
    [[nodiscard]] Index findOrAddKey(Index stanza, std::string_view name);
    void addValue(Index key, std::string_view value, Obfuscated kind) {
        adoptValue(key, texts.copy(value), kind);
    }
    /// Value number `i` must be there, here and for removeValue().
    void changeValue(Index key, Obfuscated kind, std::uint32_t i, std::string_view text);
    void removeValue(Index key, Obfuscated kind, std::uint32_t i);
    void clearValues(Index key);
    void removeKey(Index key);
    /// With its keys, and its lines up to the next header.
    void removeStanza(Index stanza);

    /// Gives the stanza a header line at the end of the file, if it has none.
    void addStanzaLine(Index stanza);
    /// Gives the key a line, and its stanza a header, where it has none: at the end of the block of
    /// the first comment that shows the key commented out, if a blank line ends that block; else
    /// behind the last key line of the stanza.
    void placeKey(Index key);
    /// The stanza's lines lose their places; its comments and blank lines are dropped.
    void dropLines(Index stanza);
    void dropLine(Index key);
    void addFileComment(std::string_view text);
    void addStanzaComment(Index stanza, std::string_view text);
    void addKeyComment(Index key, std::string_view text);

    // The reader's: texts that already lie in an adopted block, and lines at the end of the file.
    void adoptBlock(Block block, std::size_t bytes) { texts.adopt(std::move(block), bytes); }
    [[nodiscard]] std::string_view copyText(std::string_view text) { return texts.copy(text); }
    [[nodiscard]] Index adoptStanza(std::string_view name);
    /// The key of this name, new with a line at the end of the file if it is not there; `stanza` is
    /// the last one placed.
    [[nodiscard]] Index adoptKey(Index stanza, std::string_view name);
    void adoptValue(Index key, std::string_view text, Obfuscated kind);
    void adoptComment(std::string_view text);
    void addBlankLine();
    /// More lines are coming at the end of the file.
    void startAppending();
    /// A line was read that may be too long when it is written.
    void noteLongLine() { longLines = true; }
    [[nodiscard]] bool mayHaveLongLines() const { return longLines; }

    /// Copies the texts together when more than half of their memory is garbage and there is memory
    /// to do it. The old texts stay readable until then.
    void tidy();

  private:
    friend struct RecordsCheck;  // the tests' invariants

    struct NameHash {
        std::size_t operator()(String const& name) const { return hashName(name); }
    };
    /// Where a stanza's new keys go: made when the first one comes, dropped when lines are read.
    struct Templates {
        using Entry = std::pair<String const, std::uint32_t>;
        /// Key name to the first segment with a comment that shows the key commented out.
        std::unordered_map<String, std::uint32_t, NameHash, std::equal_to<>, Allocator<Entry>>
            segments;
        Vector<Index> blanks;  // the stanza's blank lines: number i ends segment i
    };
    /// A value of a list.
    struct Place {
        Index list = none;  // none: no value
        Index value = none;
        std::uint32_t number = 0;
    };
    using TemplatesOf = std::unordered_map<Index, Templates, std::hash<Index>, std::equal_to<>,
                                           Allocator<std::pair<Index const, Templates>>>;

    template <class Visit>
    void eachValue(Index list, Visit visit) const;
    [[nodiscard]] bool isRecent(std::string_view stanza) const {
        return recentStanza != none && stanzaName(recentStanza) == stanza;
    }
    [[nodiscard]] Index findHashed(Index stanza, std::string_view name, std::uint32_t hash) const;
    [[nodiscard]] Index newKey(Index stanza, std::string_view name, std::uint32_t hash);
    [[nodiscard]] Index newLine(std::uint16_t kind, std::uint32_t segment);
    [[nodiscard]] Index newComment(std::string_view text, std::uint32_t segment);

    [[nodiscard]] Index newValue(std::string_view text);
    [[nodiscard]] Index newList(Index key);
    void append(Index list, Index value);
    void replaceText(Index list, std::uint32_t i, std::string_view text);
    /// Takes value number `i` out; the list itself stays, even when it is empty then.
    void takeOut(Index list, std::uint32_t i);
    void dropList(Index list);
    [[nodiscard]] std::string_view textOf(Index value) const;
    [[nodiscard]] Index valueNumber(Index list, std::uint32_t i) const;
    [[nodiscard]] Index valueBefore(Index list, std::uint32_t i) const;
    void setFirstPlain(Index key, std::string_view text);
    void shiftPlain(Index key);
    void addPlain(Index key, std::string_view text);
    void removeFurther(Index key, std::uint32_t i);
    void addObfuscated(Index key, std::string_view text);
    void clearPlain(Index key);
    void clearObfuscated(Index key);

    [[nodiscard]] bool isPlaced(Index line) const { return lines[line].segment != unplaced; }
    /// The stanza whose lines are at the end of the file; none before the first header.
    [[nodiscard]] Index lastPlacedStanza() const { return placedStanzas.last; }
    /// The line that ends the placed stanza's lines; none: the end of the file.
    [[nodiscard]] Index endOfLines(Index stanza) const;
    void unlinkKeyLine(Index stanza, Index line);
    void dropInnerLine(Index stanza, Index line);
    [[nodiscard]] Index lastKeyLine(Index stanza);
    [[nodiscard]] Index blankBelowTemplate(Index stanza, Index key);
    [[nodiscard]] Templates& templatesOf(Index stanza);
    static void noteTemplate(Templates& noted, std::string_view text, std::uint32_t segment);
    void insertComment(Index stanza, std::string_view text, Index behind, std::uint32_t segment);
    [[nodiscard]] Index endOfComments(Index line) const;

    void compact(std::size_t bytes);
    void compactKey(Texts& fresh, Index key);
    void compactValues(Texts& fresh, Index list);

    Texts texts;
    Pool<Stanza> stanzas;
    Pool<Key> keys;
    Pool<Line> lines;
    Pool<Value> values;
    Pool<ValueList> lists;
    mutable Index recentStanza = none;     // found last: programs ask for key after key of one
    mutable Place recentValue;             // found last: programs walk from value to value
    Table stanzaTable;                     // all stanzas
    Vector<Table> keyTables;               // by stanza, its keys: close together, as they are used
    Chain file;                            // all lines with a place, in file order
    Chain placedStanzas;                   // in the order of their headers
    Chain unplacedStanzas;                 // in the order of their coming
    Chain obfuscatedLists;                 // in the order of their coming
    std::uint32_t obfuscatedKeyCount = 0;  // members of obfuscatedLists
    Index openingEnd = none;               // a line of the comments that open the file; none: first
    bool longLines = false;                // noteLongLine() was called
    TemplatesOf templates;                 // by stanza, where they were needed
};

template <class Visit>
void Records::eachStanza(Visit visit) const {
    for (Chain const& chain : {placedStanzas, unplacedStanzas}) {
        for (Index i = chain.first; i != none; i = stanzas[i].next)
            visit(i);
    }
}

template <class Visit>
void Records::eachKey(Index stanza, Visit visit) const {
    Stanza const& record = stanzas[stanza];
    if (record.header != none) {
        Index const end = endOfLines(stanza);
        for (Index i = lines[record.header].next; i != end; i = lines[i].next) {
            if (lines[i].kind == ZPropLine::key) visit(lines[i].owner);
        }
    }
    for (Index i = record.unplaced.first; i != none; i = lines[i].next)
        visit(lines[i].owner);
}

template <class Visit>
void Records::eachLine(Visit visit) const {
    for (Index i = file.first; i != none; i = lines[i].next)
        visit(lines[i]);
}

template <class Visit>
void Records::eachValue(Index list, Visit visit) const {
    if (list == none) return;
    for (Index i = lists[list].first; i != none; i = values[i].next)
        visit(std::string_view(values[i].text, values[i].length));
}

template <class Visit>
void Records::eachPlain(Index key, Visit visit) const {
    Key const& record = keys[key];
    if (record.value == nullptr) return;
    visit(std::string_view(record.value, record.valueLength));
    eachValue(record.more, visit);
}

template <class Visit>
void Records::eachObfuscated(Index key, Visit visit) const {
    eachValue(keys[key].obfuscated, visit);
}

template <class Visit>
void Records::eachObfuscatedKey(Visit visit) const {
    for (Index i = obfuscatedLists.first; i != none; i = lists[i].next)
        visit(lists[i].key);
}

}  // namespace zfc::cache

#endif
