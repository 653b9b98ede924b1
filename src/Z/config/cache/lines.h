/// Shared. The lines of one file: where headers, keys and comments stand, and where new ones go.
///
/// What has no place in the file (what an edit made without a line, and what comes from the
/// companion file) is kept in the order of its coming, behind what has one. Stanzas and keys are
/// the numbers and records of Names.
#ifndef Z_CONFIG_CACHE_LINES_H
#define Z_CONFIG_CACHE_LINES_H

#include <cstdint>
#include <functional>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "Z/ZPropertiesImpl.h"
#include "Z/config/cache/names.h"
#include "Z/config/cache/pool.h"
#include "Z/config/cache/texts.h"

namespace zfc::cache {

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

/// The lines of a stanza: those from its header to the next one.
struct Section {
    Index header;              // its header line; none: it has no place in the file
    Index tail;                // with a header: no key line of the stanza lies behind this line
    Index commentEnd;          // with a header: a line of the run of header and comments
    std::uint32_t blankLines;  // its blank lines
    std::uint32_t comments;    // its comment lines
    Chain unplaced;            // key lines without a place in the file
    Index prev;                // the chain of stanzas with a header, or of those without
    Index next;
};

class Lines {
  public:
    /// The texts of comments lie in `memory`, whose use is counted there.
    explicit Lines(Texts& memory) : texts(memory) {}
    /// A copy whose comments lie where the other's do, until they are moved.
    Lines(Lines const& other, Texts& memory);
    Lines(Lines const&) = delete;
    Lines& operator=(Lines const&) = delete;

    // Visitors are called in file order, and what has no place in the file comes last.
    template <class Visit>  // visit(Line const&)
    void each(Visit visit) const;
    template <class Visit>  // visit(Index stanza)
    void eachStanza(Visit visit) const;
    template <class Visit>  // visit(Index key)
    void eachKey(Index stanza, Visit visit) const;

    // Placing. Without memory nothing is changed but for a header that a key came to need.

    /// Gives the stanza a header line at the end of the file, if it has none.
    void placeStanza(Index stanza);
    /// Gives the key a line, and its stanza a header, where it has none: at the end of the block of
    /// the first comment that shows the key commented out, if a blank line ends that block; else
    /// behind the last key line of the stanza.
    void placeKey(Key const& key);
    /// The stanza's lines lose their places; its comments and blank lines are dropped.
    void unplaceStanza(Index stanza);
    void unplaceKey(Key const& key);
    // Comments, whose texts are copied.

    /// Behind the comments that open the file.
    void addFileComment(std::string_view text);
    /// Behind the comments below the stanza's header.
    void addStanzaComment(Index stanza, std::string_view text);
    /// In front of the key's line.
    void addKeyComment(Key const& key, std::string_view text);

    // The reader's: lines at the end of the file.

    /// More lines are coming.
    void startAppending();
    /// The comment's text lies in the memory.
    void appendComment(std::string_view text);
    void appendBlank();
    /// Something was read that may be refused when it is set or written: a line that is too long, a
    /// name that only a companion file can have.
    void noteUnfit() { hasUnfit = true; }
    [[nodiscard]] bool mayHaveUnfit() const { return hasUnfit; }

  private:
    friend class Records;        // what comes and goes with a stanza or a key
    friend struct RecordsCheck;  // the tests' invariants

    /// Where a stanza's new keys go: made when the first one comes, dropped when lines are read.
    struct Templates {
        using Entry = std::pair<String const, std::uint32_t>;
        struct Hash {
            std::size_t operator()(String const& name) const { return hashName(name); }
        };
        /// Key name to the first segment with a comment that shows the key commented out.
        std::unordered_map<String, std::uint32_t, Hash, std::equal_to<>, Allocator<Entry>> segments;
        Vector<Index> blanks;  // the stanza's blank lines: number i ends segment i
    };
    using TemplatesOf = std::unordered_map<Index, Templates, std::hash<Index>, std::equal_to<>,
                                           Allocator<std::pair<Index const, Templates>>>;

    void reserveSection(Index stanza) { sections.reach(stanza); }
    /// For a new stanza, for which reserveSection() was called.
    void addSection(Index stanza);
    /// The stanza has neither keys nor a header.
    void removeSection(Index stanza) { unlink(sections, unplacedStanzas, stanza); }
    /// A line for a new key, in no chain yet. Apart from the two below, which cannot fail.
    [[nodiscard]] Index newKeyLine() { return newLine(ZPropLine::key, unplaced); }
    void leaveUnplaced(Index stanza, Index line, Index key);
    /// The stanza is the last one with a header.
    void appendKey(Index stanza, Index line, Index key);
    void removeKey(Key const& key);
    /// A key of the stanza without a place in the file; none: all have one.
    [[nodiscard]] Index firstUnplaced(Index stanza) const {
        Index const line = sections[stanza].unplaced.first;
        return line == none ? none : lines[line].owner;
    }
    void moveComments(Texts& fresh);

    [[nodiscard]] Index newLine(std::uint16_t kind, std::uint32_t segment);
    [[nodiscard]] Index newComment(std::string_view text, std::uint32_t segment);
    [[nodiscard]] bool isPlaced(Index line) const { return lines[line].segment != unplaced; }
    /// The stanza whose lines are at the end of the file; none before the first header.
    [[nodiscard]] Index lastPlacedStanza() const { return placedStanzas.last; }
    /// The line that ends the placed stanza's lines; none: the end of the file.
    [[nodiscard]] Index endOf(Index stanza) const {
        Index const next = sections[stanza].next;
        return next == none ? none : sections[next].header;
    }
    void unlinkKeyLine(Index stanza, Index line);
    void dropInnerLine(Index stanza, Index line);
    [[nodiscard]] Index lastKeyLine(Index stanza);
    [[nodiscard]] Index blankBelowTemplate(Key const& key);
    [[nodiscard]] Templates& templatesOf(Index stanza);
    static void noteTemplate(Templates& noted, std::string_view text, std::uint32_t segment);
    void insertComment(Index stanza, std::string_view text, Index behind, std::uint32_t segment);
    [[nodiscard]] Index endOfComments(Index line) const;

    Texts& texts;
    Pool<Line> lines;
    Pool<Section, 16> sections;  // by stanza; few in most files
    Chain file;                  // all lines with a place, in file order
    Chain placedStanzas;         // in the order of their headers
    Chain unplacedStanzas;       // in the order of their coming
    Index openingEnd = none;     // a line of the comments that open the file; none: first
    bool hasUnfit = false;       // noteUnfit() was called
    TemplatesOf templates;       // by stanza, where they were needed
};

template <class Visit>
void Lines::each(Visit visit) const {
    for (Index i = file.first; i != none; i = lines[i].next)
        visit(lines[i]);
}

template <class Visit>
void Lines::eachStanza(Visit visit) const {
    for (Chain const& chain : {placedStanzas, unplacedStanzas}) {
        for (Index i = chain.first; i != none; i = sections[i].next)
            visit(i);
    }
}

template <class Visit>
void Lines::eachKey(Index stanza, Visit visit) const {
    Section const& section = sections[stanza];
    if (section.header != none) {
        Index const end = endOf(stanza);
        for (Index i = lines[section.header].next; i != end; i = lines[i].next) {
            if (lines[i].kind == ZPropLine::key) visit(lines[i].owner);
        }
    }
    for (Index i = section.unplaced.first; i != none; i = lines[i].next)
        visit(lines[i].owner);
}

}  // namespace zfc::cache

#endif
