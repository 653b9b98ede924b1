#include "Z/config/cache/lines.h"

#include <algorithm>

namespace zfc::cache {

Lines::Lines(Lines const& other, Texts& memory)
    : texts(memory),
      lines(other.lines),
      sections(other.sections),
      file(other.file),
      placedStanzas(other.placedStanzas),
      unplacedStanzas(other.unplacedStanzas),
      openingEnd(other.openingEnd),
      hasUnfit(other.hasUnfit) {}

void Lines::moveComments(Texts& fresh) {
    // Every comment has a place in the file; only keys can lack one.
    for (Index i = file.first; i != none; i = lines[i].next) {
        if (lines[i].kind == ZPropLine::comment) fresh.moveIn(lines[i].text, lines[i].length);
    }
}

Index Lines::newLine(std::uint16_t kind, std::uint32_t segment) {
    Index const i = lines.allocate();
    Line& line = lines[i];
    line.kind = kind;
    line.segment = segment;
    return i;
}

Index Lines::newComment(std::string_view text, std::uint32_t segment) {
    Index const i = newLine(ZPropLine::comment, segment);
    lines[i].text = text.data();
    // No comment is longer than a line, and no line than 8 KiB.
    lines[i].length = static_cast<std::uint16_t>(text.size());
    texts.startUse(text.size());
    return i;
}

// ----------------------------------------------------------------- coming and going with others

void Lines::addSection(Index stanza) {
    Section& section = sections[stanza];
    // The number may have been another stanza's.
    section = Section{};
    section.header = section.tail = section.commentEnd = none;
    linkLast(sections, unplacedStanzas, stanza);
}

void Lines::leaveUnplaced(Index stanza, Index line, Index key) {
    lines[line].owner = key;
    linkLast(lines, sections[stanza].unplaced, line);
}

void Lines::appendKey(Index stanza, Index line, Index key) {
    Section& section = sections[stanza];
    Line& record = lines[line];
    record.owner = key;
    record.segment = section.blankLines;
    section.tail = line;
    linkLast(lines, file, line);
}

void Lines::removeKey(Key const& key) {
    unlinkKeyLine(key.stanza, key.line);
    lines.release(key.line);
}

// ------------------------------------------------------------------------------------- reading

void Lines::startAppending() {
    // What is read next goes to that stanza and is not noted there.
    if (lastPlacedStanza() != none) templates.erase(lastPlacedStanza());
}

void Lines::appendComment(std::string_view text) {
    Index const stanza = lastPlacedStanza();
    std::uint32_t const segment = stanza == none ? 0 : sections[stanza].blankLines;
    linkLast(lines, file, newComment(text, segment));
    if (stanza != none) ++sections[stanza].comments;
}

void Lines::appendBlank() {
    Index const stanza = lastPlacedStanza();
    std::uint32_t const segment = stanza == none ? 0 : sections[stanza].blankLines++;
    linkLast(lines, file, newLine(ZPropLine::blank, segment));
}

// ------------------------------------------------------------------------------------- placing

void Lines::placeStanza(Index stanza) {
    Section& section = sections[stanza];
    if (section.header != none) return;
    // All that can fail; the rest only links.
    section.header = newLine(ZPropLine::header, 0);
    section.tail = section.commentEnd = section.header;
    lines[section.header].owner = stanza;
    linkLast(lines, file, section.header);
    unlink(sections, unplacedStanzas, stanza);
    linkLast(sections, placedStanzas, stanza);
}

void Lines::placeKey(Key const& key) {
    Index const line = key.line;
    if (isPlaced(line)) return;
    Index const stanza = key.stanza;
    placeStanza(stanza);
    Section& section = sections[stanza];
    // Asked before the line leaves its chain, because it may need memory.
    Index const blank = blankBelowTemplate(key);
    Index const behind = blank != none ? lines[blank].prev : lastKeyLine(stanza);
    unlink(lines, section.unplaced, line);
    linkBehind(lines, file, behind, line);
    lines[line].segment = lines[blank != none ? blank : behind].segment;
    // A key goes to the end of its segment, or behind the last key: nothing of its own segment
    // that is a key lies behind it.
    if (lines[line].segment >= lines[section.tail].segment) section.tail = line;
    // The comments that stood below the header now stand below the key.
    if (behind == section.header) section.commentEnd = section.header;
}

/// The last key line of the stanza, or its header. Deleting keys only notes where to look for it.
Index Lines::lastKeyLine(Index stanza) {
    Section& section = sections[stanza];
    while (lines[section.tail].kind != ZPropLine::key && section.tail != section.header)
        section.tail = lines[section.tail].prev;
    return section.tail;
}

/// The blank line that ends the block with the key's commented-out example; none: there is no such
/// comment, or no blank line behind it.
Index Lines::blankBelowTemplate(Key const& key) {
    if (sections[key.stanza].comments == 0) return none;
    Templates const& noted = templatesOf(key.stanza);
    auto const found = noted.segments.find(String(key.getName()));
    if (found == noted.segments.end() || found->second >= noted.blanks.size()) return none;
    return noted.blanks[found->second];
}

Lines::Templates& Lines::templatesOf(Index stanza) {
    auto const known = templates.find(stanza);
    if (known != templates.end()) return known->second;
    Templates fresh;
    Index const end = endOf(stanza);
    for (Index i = lines[sections[stanza].header].next; i != end; i = lines[i].next) {
        Line const& line = lines[i];
        if (line.kind == ZPropLine::blank) fresh.blanks.push_back(i);
        if (line.kind == ZPropLine::comment)
            noteTemplate(fresh, {line.text, line.length}, line.segment);
    }
    return templates.emplace(stanza, std::move(fresh)).first->second;
}

/// Notes what ZPCategoryBasedCache::isCommentWeWant() would find in the comment: the bytes between
/// `#` and `=`, blanks apart. Of several the one in the first segment counts; which one of that
/// segment makes no difference, as the same blank line ends it.
void Lines::noteTemplate(Templates& noted, std::string_view text, std::uint32_t segment) {
    std::size_t const equals = text.find('=');
    if (equals == std::string_view::npos) return;
    // A comment begins with "#", so the sign is not at 0.
    String key(text.substr(1, equals - 1));
    key.erase(std::remove(key.begin(), key.end(), ' '), key.end());
    auto const [entry, isNew] = noted.segments.emplace(std::move(key), segment);
    if (!isNew) entry->second = std::min(entry->second, segment);
}

// ------------------------------------------------------------------------------------ dropping

/// Takes the line of a key that is about to go out of the chain it is in.
void Lines::unlinkKeyLine(Index stanza, Index line) {
    Section& section = sections[stanza];
    if (!isPlaced(line)) {
        unlink(lines, section.unplaced, line);
        return;
    }
    // No more than a line behind which there is no key; lastKeyLine() looks for the key when asked.
    if (section.tail == line) section.tail = lines[line].prev;
    unlink(lines, file, line);
}

void Lines::unplaceKey(Key const& key) {
    Index const line = key.line;
    if (!isPlaced(line)) return;
    unlinkKeyLine(key.stanza, line);
    // Behind the unlinking, which tells by the segment which chain the line is in.
    lines[line].segment = unplaced;
    linkLast(lines, sections[key.stanza].unplaced, line);
}

void Lines::dropInnerLine(Index stanza, Index line) {
    unlink(lines, file, line);
    if (lines[line].kind == ZPropLine::key) {
        lines[line].segment = unplaced;
        linkLast(lines, sections[stanza].unplaced, line);
        return;
    }
    if (lines[line].kind == ZPropLine::comment) texts.endUse(lines[line].length);
    lines.release(line);
}

void Lines::unplaceStanza(Index stanza) {
    Section& section = sections[stanza];
    if (section.header == none) return;
    Index const end = endOf(stanza);
    // From the front, so that the keys keep their order in the chain of those without a place.
    while (lines[section.header].next != end)
        dropInnerLine(stanza, lines[section.header].next);
    unlink(lines, file, section.header);
    lines.release(section.header);
    unlink(sections, placedStanzas, stanza);
    linkLast(sections, unplacedStanzas, stanza);
    section.header = section.tail = section.commentEnd = none;
    section.blankLines = section.comments = 0;
    templates.erase(stanza);
}

// ------------------------------------------------------------------------------------ comments

/// The last comment of the run that begins at or behind `line`.
Index Lines::endOfComments(Index line) const {
    while (lines[line].next != none && lines[lines[line].next].kind == ZPropLine::comment)
        line = lines[line].next;
    return line;
}

void Lines::insertComment(Index stanza, std::string_view text, Index behind,
                          std::uint32_t segment) {
    Index const line = newComment(texts.copy(text), segment);
    linkBehind(lines, file, behind, line);
    if (stanza == none) return;
    ++sections[stanza].comments;
    auto const known = templates.find(stanza);
    if (known != templates.end()) noteTemplate(known->second, text, segment);
}

void Lines::addFileComment(std::string_view text) {
    bool const opens = file.first != none && lines[file.first].kind == ZPropLine::comment;
    // On from where the last one went, so that adding many takes no walk over all each time.
    if (opens) openingEnd = endOfComments(openingEnd == none ? file.first : openingEnd);
    insertComment(none, text, openingEnd, 0);
    openingEnd = openingEnd == none ? file.first : lines[openingEnd].next;
}

void Lines::addStanzaComment(Index stanza, std::string_view text) {
    placeStanza(stanza);
    Section& section = sections[stanza];
    section.commentEnd = endOfComments(section.commentEnd);
    insertComment(stanza, text, section.commentEnd, 0);
    section.commentEnd = lines[section.commentEnd].next;
}

void Lines::addKeyComment(Key const& key, std::string_view text) {
    placeKey(key);
    Line const& line = lines[key.line];
    insertComment(key.stanza, text, line.prev, line.segment);
}

}  // namespace zfc::cache
