/// The property cache as it is described, without any cleverness: lists, walked from the front.
#ifndef ZFC_TESTS_SUPPORT_PROPERTY_MODEL_H
#define ZFC_TESTS_SUPPORT_PROPERTY_MODEL_H

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "Z/ZPropertiesImpl.h"

namespace testsupport {

using Text = std::string const&;
using Texts = std::vector<std::string>;

class PropertyModel {
  public:
    struct Line {
        unsigned int kind;
        std::string text;               // of a key its name
        bool placed = true;             // in the file; a key need not be
        Texts plain = {}, secret = {};  // of a key
        Texts& seen() { return plain.empty() ? secret : plain; }
    };
    using Lines = std::vector<Line>;  // in file order, then those without a place
    struct Stanza {
        std::string name;
        bool placed = false;  // it has a header
        Lines lines = {};     // below that
    };
    using Name = std::pair<std::string, std::string>;

    Lines opening;                // in front of the first header
    std::vector<Stanza> stanzas;  // those with a header in file order, then the others
    std::vector<Name> items;      // keys with obfuscated values

    Stanza* stanza(Text name) {
        auto const isThis = [&](Stanza const& x) { return x.name == name; };
        auto const at = std::find_if(stanzas.begin(), stanzas.end(), isThis);
        return at == stanzas.end() ? nullptr : &*at;
    }
    Line* key(Text s, Text name) {
        if (stanza(s) == nullptr) return nullptr;
        auto const at = keyIn(stanza(s)->lines, name);
        return at == stanza(s)->lines.end() ? nullptr : &*at;
    }

    // What the functions of these names do to a cache.

    void add(Text s, Text k, Text value, bool secret) {
        Line& made = makeKey(s, k);
        if (value.empty()) return;
        (secret ? made.secret : made.plain).push_back(value);
        if (secret && made.secret.size() == 1) items.emplace_back(s, k);
    }
    void set(Text s, Text k, Text value, bool secret = false) {
        Line& made = makeKey(s, k);
        made.plain.clear();
        made.secret.clear();
        dropItem(s, k);
        add(s, k, value, secret);
    }
    void setObfuscated(Text s, Text k, Text value) { set(s, k, value, true); }
    void addValue(Text s, Text k, Text value, bool secret) {
        add(s, k, value, secret);
        placeKey(s, k);
    }
    void addLine(Text s, Text k, Text value, bool secret) {
        set(s, k, value, secret);
        placeKey(s, k);
    }
    void addLine(Text s, char const* k, int) {
        k == nullptr ? static_cast<void>(placeStanza(s)) : placeKey(s, k);
    }
    bool changeValue(Text s, Text k, std::size_t i, char const* value) {
        if (key(s, k) == nullptr || i >= key(s, k)->seen().size()) return false;
        key(s, k)->seen()[i] = value;
        return true;
    }
    bool removeValue(Text s, Text k, std::ptrdiff_t i) {
        if (!changeValue(s, k, static_cast<std::size_t>(i), "")) return false;
        Texts& values = key(s, k)->seen();
        values.erase(values.begin() + i);
        if (key(s, k)->secret.empty()) dropItem(s, k);
        return true;
    }
    void remove(Text s, Text k) {
        if (key(s, k) == nullptr) return;
        dropItem(s, k);
        stanza(s)->lines.erase(keyIn(stanza(s)->lines, k));
    }
    void remove(Text s) {
        if (stanza(s) == nullptr) return;
        for (Line const& line : stanza(s)->lines)
            dropItem(s, line.text);
        moveToEnd(stanzas, stanza(s));
        stanzas.pop_back();
    }
    /// Keys without a line are listed behind the others, in the order of losing it; so are stanzas.
    void delLine(Text s, Text k) {
        if (key(s, k) == nullptr || !key(s, k)->placed) return;
        key(s, k)->placed = false;
        moveToEnd(stanza(s)->lines, key(s, k));
    }
    void delLine(Text s) {
        if (stanza(s) == nullptr || !stanza(s)->placed) return;
        Lines& lines = stanza(s)->lines;
        auto const isOther = [](Line const& x) { return x.kind != ZPropLine::key; };
        lines.erase(std::remove_if(lines.begin(), lines.end(), isOther), lines.end());
        std::rotate(lines.begin(), endOfFile(lines), lines.end());
        for (Line& line : lines)
            line.placed = false;
        stanza(s)->placed = false;
        moveToEnd(stanzas, stanza(s));
    }
    void addFileComment(Text text) { insertBehindComments(opening, text); }
    void addLineComment(Text s, Text text) { insertBehindComments(placeStanza(s).lines, text); }
    void addLineComment(Text s, Text k, Text text) {
        placeKey(s, k);
        Lines& lines = stanza(s)->lines;
        lines.insert(keyIn(lines, k), {ZPropLine::comment, text});
    }
    /// Reads valid lines, "[stanza]", "key = value", "#comment" and empty ones.
    void read(Text text) {
        for (std::size_t at = 0; at < text.size(); at = text.find('\n', at) + 1)
            readLine(text.substr(at, text.find('\n', at) - at));
    }

    [[nodiscard]] std::string written() {
        std::string out = writtenLines(opening);
        for (Stanza& s : stanzas)
            out += (s.placed ? "[" + s.name + "]\n" : "") + writtenLines(s.lines);
        return out;
    }

  private:
    static Lines::iterator keyIn(Lines& lines, Text k) {
        auto const isIt = [&](Line const& x) { return x.kind == ZPropLine::key && x.text == k; };
        return std::find_if(lines.begin(), lines.end(), isIt);
    }
    static Lines::iterator endOfFile(Lines& lines) {
        return std::find_if(lines.begin(), lines.end(), [](Line const& x) { return !x.placed; });
    }
    template <class Element>
    static void moveToEnd(std::vector<Element>& all, Element* element) {
        std::rotate(element, element + 1, all.data() + all.size());
    }
    Stanza& makeStanza(Text s) {
        if (stanza(s) == nullptr) stanzas.push_back({s});
        return *stanza(s);
    }
    Line& makeKey(Text s, Text k) {
        Lines& lines = makeStanza(s).lines;
        if (key(s, k) == nullptr) lines.push_back({ZPropLine::key, k, false});
        return *key(s, k);
    }
    Stanza& placeStanza(Text s) {
        makeStanza(s).placed = true;
        std::stable_partition(stanzas.begin(), stanzas.end(), [](Stanza& x) { return x.placed; });
        return *stanza(s);
    }
    void placeKey(Text s, Text k) {
        Lines& lines = placeStanza(s).lines;
        if (makeKey(s, k).placed) return;
        auto const at = keyIn(lines, k);
        std::rotate(placeFor(lines, k), at, at + 1);
        key(s, k)->placed = true;
    }
    void dropItem(Text s, Text k) {
        items.erase(std::remove(items.begin(), items.end(), Name(s, k)), items.end());
    }
    static void insertBehindComments(Lines& lines, Text text) {
        auto const isOther = [](Line const& x) { return x.kind != ZPropLine::comment; };
        lines.insert(std::find_if(lines.begin(), lines.end(), isOther), {ZPropLine::comment, text});
    }
    /// In front of the first blank line below a template; else behind the last key line.
    static Lines::iterator placeFor(Lines& lines, Text k) {
        bool templateSeen = false;
        auto place = lines.begin();
        for (auto at = lines.begin(); at != endOfFile(lines); ++at) {
            if (at->kind == ZPropLine::key) place = at + 1;
            if (at->kind == ZPropLine::comment) templateSeen |= isTemplate(at->text, k);
            if (at->kind == ZPropLine::blank && templateSeen) return at;
        }
        return place;
    }
    /// A comment that without its blanks begins as the key's line would, commented out; so a key
    /// with a blank inside has none.
    static bool isTemplate(std::string comment, Text k) {
        comment.erase(std::remove(comment.begin(), comment.end(), ' '), comment.end());
        return comment.rfind("#" + k + "=", 0) == 0;
    }
    void readLine(Text line) {
        auto const isPlaced = [](Stanza const& x) { return x.placed; };
        auto const last = std::find_if(stanzas.rbegin(), stanzas.rend(), isPlaced);
        Lines& lines = last == stanzas.rend() ? opening : last->lines;
        if (line.empty())
            lines.insert(endOfFile(lines), {ZPropLine::blank, ""});
        else if (line[0] == '#')
            lines.insert(endOfFile(lines), {ZPropLine::comment, line});
        else if (line[0] == '[')
            placeStanza(line.substr(1, line.size() - 2));
        else
            readKey(*last, line);
    }
    /// Of a stanza that is new.
    void readKey(Stanza const& s, Text line) {
        std::string const name = line.substr(0, line.find(" ="));
        std::string const value = line.substr(std::min(line.size(), name.size() + 3));
        add(s.name, name, stripped(value), false);
        key(s.name, name)->placed = true;
    }
    static std::string stripped(Text text) {
        std::size_t const from = std::min(text.find_first_not_of(' '), text.size());
        return text.substr(from, text.find_last_not_of(' ') + 1 - from);
    }
    static std::string writtenLines(Lines const& lines) {
        std::string out;
        for (Line const& line : lines) {
            if (!line.placed) continue;
            bool const isBare = line.plain.empty() && line.secret.empty();
            if (line.kind != ZPropLine::key || isBare)
                out += line.text + (line.kind == ZPropLine::key ? " =\n" : "\n");
            for (std::string const& value : line.plain)
                out += line.text + " = " + value + "\n";
        }
        return out;
    }
};

}  // namespace testsupport

#endif
