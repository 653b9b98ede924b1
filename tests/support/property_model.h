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

using Texts = std::vector<std::string>;

class PropertyModel {
  public:
    struct Line {
        unsigned int kind;
        std::string text;  // of a key its name
    };
    using Lines = std::vector<Line>;
    struct Key {
        std::string name;
        Texts plain, secret;
        Texts& seen() { return plain.empty() ? secret : plain; }
    };
    struct Stanza {
        std::string name;
        std::vector<Key> keys;
        bool placed = false;  // it has a header
        Lines lines;          // below that
    };
    using Name = std::pair<std::string, std::string>;

    Lines opening;                // in front of the first header
    std::vector<Stanza> stanzas;  // those with a header in file order, then the others
    std::vector<Name> items;      // keys with obfuscated values

    Stanza* stanza(std::string const& name) { return find(stanzas, name); }
    Key* key(std::string const& s, std::string const& name) {
        return stanza(s) == nullptr ? nullptr : find(stanza(s)->keys, name);
    }
    // What the functions of these names do to a cache.

    void add(std::string const& s, std::string const& k, std::string const& value, bool secret) {
        Key& made = makeKey(s, k);
        if (value.empty()) return;
        (secret ? made.secret : made.plain).push_back(value);
        if (secret && made.secret.size() == 1) items.emplace_back(s, k);
    }
    void set(std::string const& s, std::string const& k, std::string const& value,
             bool secret = false) {
        makeKey(s, k) = Key{k, {}, {}};
        dropItem(s, k);
        add(s, k, value, secret);
    }
    void setObfuscated(std::string const& s, std::string const& k, std::string const& value) {
        set(s, k, value, true);
    }
    void addValue(std::string const& s, std::string const& k, std::string const& value,
                  bool secret) {
        add(s, k, value, secret);
        placeKey(s, k);
    }
    void addLine(std::string const& s, std::string const& k, std::string const& value,
                 bool secret) {
        set(s, k, value, secret);
        placeKey(s, k);
    }
    void addLine(std::string const& s, char const* k, int) {
        k == nullptr ? static_cast<void>(placeStanza(s)) : placeKey(s, k);
    }
    bool changeValue(std::string const& s, std::string const& k, std::size_t i, char const* value) {
        if (key(s, k) == nullptr || i >= key(s, k)->seen().size()) return false;
        key(s, k)->seen()[i] = value;
        return true;
    }
    bool removeValue(std::string const& s, std::string const& k, std::ptrdiff_t i) {
        if (!changeValue(s, k, static_cast<std::size_t>(i), "")) return false;
        Texts& values = key(s, k)->seen();
        values.erase(values.begin() + i);
        if (key(s, k)->secret.empty()) dropItem(s, k);
        return true;
    }
    void remove(std::string const& s, std::string const& k) {
        if (key(s, k) == nullptr) return;
        dropItem(s, k);
        delLine(s, k);
        moveToEnd(stanza(s)->keys, k);
        stanza(s)->keys.pop_back();
    }
    void remove(std::string const& s) {
        if (stanza(s) == nullptr) return;
        for (Key const& k : stanza(s)->keys)
            dropItem(s, k.name);
        moveToEnd(stanzas, s);
        stanzas.pop_back();
    }
    /// Keys without a line are listed behind the others, in the order of losing it; so are stanzas.
    void delLine(std::string const& s, std::string const& k) {
        if (key(s, k) == nullptr) return;
        Lines& lines = stanza(s)->lines;
        auto const at = keyLine(lines, k);
        if (at == lines.end()) return;
        lines.erase(at);
        moveToEnd(stanza(s)->keys, k);
    }
    void delLine(std::string const& s) {
        if (stanza(s) == nullptr || !stanza(s)->placed) return;
        for (Line const& line : std::exchange(stanza(s)->lines, {}))
            if (line.kind == ZPropLine::key) moveToEnd(stanza(s)->keys, line.text);
        stanza(s)->placed = false;
        moveToEnd(stanzas, s);
    }
    void addFileComment(std::string const& text) { insertBehindComments(opening, text); }
    void addLineComment(std::string const& s, std::string const& text) {
        insertBehindComments(placeStanza(s).lines, text);
    }
    void addLineComment(std::string const& s, std::string const& k, std::string const& text) {
        placeKey(s, k);
        Lines& lines = stanza(s)->lines;
        lines.insert(keyLine(lines, k), {ZPropLine::comment, text});
    }
    /// Reads valid lines, "[stanza]", "key = value", "#comment" and empty ones.
    void read(std::string const& text) {
        for (std::size_t at = 0; at < text.size(); at = text.find('\n', at) + 1)
            readLine(text.substr(at, text.find('\n', at) - at));
    }
    [[nodiscard]] std::string written() {
        std::string out;
        for (Line const& line : opening)
            out += line.text + "\n";
        for (Stanza& s : stanzas) {
            if (s.placed) out += "[" + s.name + "]\n";
            for (Line const& line : s.lines)
                out += line.kind == ZPropLine::key ? writtenKey(*find(s.keys, line.text))
                                                   : line.text + "\n";
        }
        return out;
    }
    /// In file order, then those without a line.
    [[nodiscard]] static Texts keyNames(Stanza& s) {
        Texts names;
        for (Line const& line : s.lines)
            if (line.kind == ZPropLine::key) names.push_back(line.text);
        for (Key const& k : s.keys)
            if (keyLine(s.lines, k.name) == s.lines.end()) names.push_back(k.name);
        return names;
    }

  private:
    Key& makeKey(std::string const& s, std::string const& name) {
        if (stanza(s) == nullptr) stanzas.push_back({s, {}, false, {}});
        if (key(s, name) == nullptr) stanza(s)->keys.push_back({name, {}, {}});
        return *key(s, name);
    }
    Stanza& placeStanza(std::string const& s) {
        if (stanza(s) == nullptr) stanzas.push_back({s, {}, false, {}});
        stanza(s)->placed = true;
        std::stable_partition(stanzas.begin(), stanzas.end(), [](Stanza& x) { return x.placed; });
        return *stanza(s);
    }
    void placeKey(std::string const& s, std::string const& k) {
        makeKey(s, k);
        Lines& lines = placeStanza(s).lines;
        if (keyLine(lines, k) == lines.end()) lines.insert(placeFor(lines, k), {ZPropLine::key, k});
    }
    void dropItem(std::string const& s, std::string const& k) {
        items.erase(std::remove(items.begin(), items.end(), Name(s, k)), items.end());
    }
    template <class Named>
    static Named* find(std::vector<Named>& all, std::string const& name) {
        auto const isThis = [&](Named const& x) { return x.name == name; };
        auto const at = std::find_if(all.begin(), all.end(), isThis);
        return at == all.end() ? nullptr : &*at;
    }
    template <class Named>
    static void moveToEnd(std::vector<Named>& all, std::string const& name) {
        Named* const at = find(all, name);
        std::rotate(at, at + 1, all.data() + all.size());
    }
    static void insertBehindComments(Lines& lines, std::string const& text) {
        auto const isOther = [](Line const& x) { return x.kind != ZPropLine::comment; };
        lines.insert(std::find_if(lines.begin(), lines.end(), isOther), {ZPropLine::comment, text});
    }
    static Lines::iterator keyLine(Lines& lines, std::string const& k) {
        auto const isIt = [&](Line const& x) { return x.kind == ZPropLine::key && x.text == k; };
        return std::find_if(lines.begin(), lines.end(), isIt);
    }
    /// In front of the first blank line below a template; else behind the last key line.
    static Lines::iterator placeFor(Lines& lines, std::string const& k) {
        bool templateSeen = false;
        auto place = lines.begin();
        for (auto at = lines.begin(); at != lines.end(); ++at) {
            if (at->kind == ZPropLine::key) place = at + 1;
            if (at->kind == ZPropLine::comment) templateSeen |= isTemplate(at->text, k);
            if (at->kind == ZPropLine::blank && templateSeen) return at;
        }
        return place;
    }
    /// A comment that without its blanks begins as the key's line would, commented out; so a key
    /// with a blank inside has none.
    static bool isTemplate(std::string comment, std::string const& k) {
        comment.erase(std::remove(comment.begin(), comment.end(), ' '), comment.end());
        return comment.rfind("#" + k + "=", 0) == 0;
    }
    Stanza* lastPlaced() {
        auto const isPlaced = [](Stanza const& x) { return x.placed; };
        auto const at = std::find_if(stanzas.rbegin(), stanzas.rend(), isPlaced);
        return at == stanzas.rend() ? nullptr : &*at;
    }
    void readLine(std::string const& line) {
        Stanza* const last = lastPlaced();
        Lines& lines = last == nullptr ? opening : last->lines;
        if (line.empty()) return lines.push_back({ZPropLine::blank, ""});
        if (line[0] == '#') return lines.push_back({ZPropLine::comment, line});
        if (line[0] != '[') return readKey(*last, line);
        placeStanza(line.substr(1, line.size() - 2));
    }
    void readKey(Stanza& s, std::string const& line) {
        std::string const name = line.substr(0, line.find(" ="));
        std::string const value = line.substr(std::min(line.size(), name.size() + 3));
        bool const isNew = find(s.keys, name) == nullptr;
        add(s.name, name, stripped(value), false);
        if (isNew) s.lines.push_back({ZPropLine::key, name});
    }
    static std::string stripped(std::string const& text) {
        std::size_t const from = std::min(text.find_first_not_of(' '), text.size());
        return text.substr(from, text.find_last_not_of(' ') + 1 - from);
    }
    static std::string writtenKey(Key const& k) {
        std::string out;
        for (std::string const& value : k.plain)
            out += k.name + " = " + value + "\n";
        return k.plain.empty() && k.secret.empty() ? k.name + " =\n" : out;
    }
};

}  // namespace testsupport

#endif
