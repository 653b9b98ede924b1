#include "Z/config/java/document.h"

#include <algorithm>

namespace zfc::java {
namespace {

Line lineOf(Document::Entry const& entry) {
    Line line;
    line.read(entry.bytes);
    return line;
}

}  // namespace

void Document::add(Lines const& lines) {
    Kind const kind = lines.line().kind;
    Entries one;
    one.push_back({kind, String(lines.line().bytes), kind == Kind::pair ? lines.key().text : ""});
    if (kind == Kind::pair) index[one.front().key].push_back(one.begin());
    entries.splice(entries.end(), one);
}

String Document::image() const {
    std::size_t size = 0;
    for (Entry const& entry : entries)
        size += entry.bytes.size();
    String image;
    image.reserve(size);
    for (Entry const& entry : entries)
        image += entry.bytes;
    return image;
}

Document::Place Document::find(std::string_view key) const {
    auto const found = index.find(key);
    return found == index.end() ? entries.end() : Place(found->second.back());
}

Plain Document::valueAt(Place pair) const { return unescape(lineOf(*pair).value(), encoding); }

String Document::bytesAbove(Place place) const {
    String bytes;
    for (Place above = entries.begin(); above != place; ++above)
        bytes += above->bytes;
    return bytes;
}

void Document::set(std::string_view key, std::string_view value) {
    auto const found = index.find(key);
    if (found == index.end()) return append(key, value);
    Entry& entry = *found->second.back();
    Line const line = lineOf(entry);
    // As it is when it says the same: other programs may have written it in their way.
    Plain const old = unescape(line.value(), encoding);
    if (old.fault == Fault::none && old.text == value) return;
    entry.bytes = withValue(line, value);
}

void Document::append(std::string_view key, std::string_view value) {
    Entries one;
    one.push_back({Kind::pair, lineFor(key, value, lineEnd), String(key)});
    auto const named = index.emplace(one.front().key, Places(1, one.begin())).first;
    try {
        insert(entries.end(), one);
    } catch (...) {
        index.erase(named);
        throw;
    }
}

/// Takes the one entry over.
void Document::insert(Place place, Entries& one) {
    if (place == entries.end() && !entries.empty())
        entries.back().bytes += missingEnd(lineOf(entries.back()), lineEnd);
    entries.splice(place, one);
}

bool Document::remove(std::string_view key) {
    auto const found = index.find(key);
    if (found == index.end()) return false;
    Places const places = std::move(found->second);
    index.erase(found);
    for (auto const place : places)
        entries.erase(place);
    return true;
}

void Document::addComment(std::string_view text) {
    auto const isComment = [](Entry const& entry) { return entry.kind == Kind::comment; };
    addCommentAbove(std::find_if_not(begin(), end(), isComment), text);
}

void Document::addCommentAbove(Place place, std::string_view text) {
    Entries one;
    one.push_back({Kind::comment, commentLine(text, encoding, lineEnd), String()});
    insert(place, one);
}

String Document::normalForm(Entry const& entry) const {
    if (entry.kind != Kind::pair || malformedAt(entry.key) != std::string_view::npos)
        return entry.bytes;
    Plain const value = unescape(lineOf(entry).value(), encoding);
    return value.fault == Fault::none ? lineFor(entry.key, value.text, lineEnd) : entry.bytes;
}

void Document::rewrite() {
    Vector<String> forms;
    forms.reserve(entries.size());
    for (Entry const& entry : entries)
        forms.push_back(normalForm(entry));
    auto form = forms.begin();
    for (Entry& entry : entries)
        entry.bytes.swap(*form++);
}

void Document::dropComments() {
    entries.remove_if([](Entry const& entry) { return entry.kind != Kind::pair; });
}

}  // namespace zfc::java
