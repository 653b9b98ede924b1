/// The lines of the file: where headers, keys and comments stand, and where new ones go.
#include "Z/config/cache/records.h"

#include <algorithm>

namespace zfc::cache {

Index Records::newLine(std::uint16_t kind, std::uint32_t segment) {
    Index const i = lines.allocate();
    lines[i].kind = kind;
    lines[i].segment = segment;
    return i;
}

Index Records::newComment(std::string_view text, std::uint32_t segment) {
    Index const i = newLine(ZPropLine::comment, segment);
    lines[i].text = text.data();
    lines[i].length = static_cast<std::uint16_t>(text.size());
    texts.startUse(text.size());
    return i;
}

Index Records::endOfLines(Index stanza) const {
    Index const next = stanzas[stanza].next;
    return next == none ? none : stanzas[next].header;
}

// ------------------------------------------------------------------------------------- reading

void Records::startAppending() {
    if (lastPlacedStanza() != none) templates.erase(lastPlacedStanza());
}

Index Records::adoptKey(Index stanza, std::string_view name) {
    std::uint32_t const hash = hashName(name);
    Index const known = findHashed(stanza, name, hash);
    if (known != none) return known;
    Index const key = newKey(stanza, name, hash);
    Index const line = keys[key].line;
    lines[line].segment = stanzas[stanza].blankLines;
    stanzas[stanza].tail = line;
    linkLast(lines, file, line);
    return key;
}

void Records::adoptComment(std::string_view text) {
    Index const stanza = lastPlacedStanza();
    std::uint32_t const segment = stanza == none ? 0 : stanzas[stanza].blankLines;
    linkLast(lines, file, newComment(text, segment));
    if (stanza != none) ++stanzas[stanza].comments;
}

void Records::addBlankLine() {
    Index const stanza = lastPlacedStanza();
    std::uint32_t const segment = stanza == none ? 0 : stanzas[stanza].blankLines++;
    linkLast(lines, file, newLine(ZPropLine::blank, segment));
}

// ------------------------------------------------------------------------------------- placing

void Records::addStanzaLine(Index stanza) {
    Stanza& record = stanzas[stanza];
    if (record.header != none) return;
    record.header = newLine(ZPropLine::header, 0);
    record.tail = record.commentEnd = record.header;
    lines[record.header].owner = stanza;
    linkLast(lines, file, record.header);
    unlink(stanzas, unplacedStanzas, stanza);
    linkLast(stanzas, placedStanzas, stanza);
}

void Records::placeKey(Index key) {
    Index const line = keys[key].line;
    if (isPlaced(line)) return;
    Index const stanza = keys[key].stanza;
    addStanzaLine(stanza);
    Stanza& record = stanzas[stanza];
    Index const blank = blankBelowTemplate(stanza, key);
    Index const behind = blank != none ? lines[blank].prev : lastKeyLine(stanza);
    unlink(lines, record.unplaced, line);
    linkBehind(lines, file, behind, line);
    lines[line].segment = lines[blank != none ? blank : behind].segment;
    // A key goes to the end of its segment, or behind the last key: nothing of its own segment
    // that is a key lies behind it.
    if (lines[line].segment >= lines[record.tail].segment) record.tail = line;
    // The comments that stood below the header now stand below the key.
    if (behind == record.header) record.commentEnd = record.header;
}

/// The last key line of the stanza, or its header. Deleting keys only notes where to look for it.
Index Records::lastKeyLine(Index stanza) {
    Stanza& record = stanzas[stanza];
    while (lines[record.tail].kind != ZPropLine::key && record.tail != record.header)
        record.tail = lines[record.tail].prev;
    return record.tail;
}

/// The blank line that ends the block with the key's commented-out example; none: there is no such
/// comment, or no blank line behind it.
Index Records::blankBelowTemplate(Index stanza, Index key) {
    if (stanzas[stanza].comments == 0) return none;
    Templates const& noted = templatesOf(stanza);
    auto const found = noted.segments.find(String(keyName(key)));
    if (found == noted.segments.end() || found->second >= noted.blanks.size()) return none;
    return noted.blanks[found->second];
}

Records::Templates& Records::templatesOf(Index stanza) {
    auto const known = templates.find(stanza);
    if (known != templates.end()) return known->second;
    Templates fresh;
    Index const end = endOfLines(stanza);
    for (Index i = lines[stanzas[stanza].header].next; i != end; i = lines[i].next) {
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
void Records::noteTemplate(Templates& noted, std::string_view text, std::uint32_t segment) {
    std::size_t const equals = text.find('=');
    if (equals == std::string_view::npos) return;
    String key(text.substr(1, equals - 1));
    key.erase(std::remove(key.begin(), key.end(), ' '), key.end());
    auto const [entry, isNew] = noted.segments.emplace(std::move(key), segment);
    if (!isNew) entry->second = std::min(entry->second, segment);
}

// ------------------------------------------------------------------------------------ dropping

/// Takes the line of a key that is about to go out of the chain it is in.
void Records::unlinkKeyLine(Index stanza, Index line) {
    Stanza& record = stanzas[stanza];
    if (!isPlaced(line)) {
        unlink(lines, record.unplaced, line);
        return;
    }
    if (record.tail == line) record.tail = lines[line].prev;
    unlink(lines, file, line);
}

void Records::dropLine(Index key) {
    Index const line = keys[key].line;
    if (!isPlaced(line)) return;
    unlinkKeyLine(keys[key].stanza, line);
    lines[line].segment = unplaced;
    linkLast(lines, stanzas[keys[key].stanza].unplaced, line);
}

void Records::dropInnerLine(Index stanza, Index line) {
    unlink(lines, file, line);
    if (lines[line].kind == ZPropLine::key) {
        lines[line].segment = unplaced;
        linkLast(lines, stanzas[stanza].unplaced, line);
        return;
    }
    if (lines[line].kind == ZPropLine::comment) texts.endUse(lines[line].length);
    lines.release(line);
}

void Records::dropLines(Index stanza) {
    Stanza& record = stanzas[stanza];
    if (record.header == none) return;
    Index const end = endOfLines(stanza);
    while (lines[record.header].next != end)
        dropInnerLine(stanza, lines[record.header].next);
    unlink(lines, file, record.header);
    lines.release(record.header);
    unlink(stanzas, placedStanzas, stanza);
    linkLast(stanzas, unplacedStanzas, stanza);
    record.header = record.tail = record.commentEnd = none;
    record.blankLines = record.comments = 0;
    templates.erase(stanza);
}

// ------------------------------------------------------------------------------------ comments

/// The last comment of the run that begins at or behind `line`.
Index Records::endOfComments(Index line) const {
    while (lines[line].next != none && lines[lines[line].next].kind == ZPropLine::comment)
        line = lines[line].next;
    return line;
}

void Records::insertComment(Index stanza, std::string_view text, Index behind,
                            std::uint32_t segment) {
    Index const line = newComment(texts.copy(text), segment);
    linkBehind(lines, file, behind, line);
    if (stanza == none) return;
    ++stanzas[stanza].comments;
    auto const known = templates.find(stanza);
    if (known != templates.end()) noteTemplate(known->second, text, segment);
}

void Records::addFileComment(std::string_view text) {
    bool const opens = file.first != none && lines[file.first].kind == ZPropLine::comment;
    if (opens) openingEnd = endOfComments(openingEnd == none ? file.first : openingEnd);
    insertComment(none, text, openingEnd, 0);
    openingEnd = openingEnd == none ? file.first : lines[openingEnd].next;
}

void Records::addStanzaComment(Index stanza, std::string_view text) {
    addStanzaLine(stanza);
    Stanza& record = stanzas[stanza];
    record.commentEnd = endOfComments(record.commentEnd);
    insertComment(stanza, text, record.commentEnd, 0);
    record.commentEnd = lines[record.commentEnd].next;
}

void Records::addKeyComment(Index key, std::string_view text) {
    placeKey(key);
    Line const& line = lines[keys[key].line];
    insertComment(keys[key].stanza, text, line.prev, line.segment);
}

}  // namespace zfc::cache
