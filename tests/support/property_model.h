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
        std::string text;
    };
    struct Key {
        std::string name;
        Texts plain, secret;
        Texts& seen() { return plain.empty() ? secret : plain; }
    };
    struct Stanza {
        std::string name;
        std::vector<Key> keys;
    };
    using Name = std::pair<std::string, std::string>;

    std::vector<Line> lines;
    std::vector<Stanza> stanzas;  // those with a header in file order, then the others
    std::vector<Name> items;      // keys with obfuscated values

    // ------------------------------------------------------------------------ stanzas and keys

    Stanza* stanza(std::string const& name) {
        for (Stanza& s : stanzas)
            if (s.name == name) return &s;
        return nullptr;
    }
    Key* key(std::string const& s, std::string const& name) {
        if (stanza(s) == nullptr) return nullptr;
        for (Key& k : stanza(s)->keys)
            if (k.name == name) return &k;
        return nullptr;
    }
    void makeStanza(std::string const& name) {
        if (stanza(name) == nullptr) stanzas.push_back({name, {}});
    }
    Key& makeKey(std::string const& s, std::string const& name) {
        makeStanza(s);
        if (key(s, name) == nullptr) stanza(s)->keys.push_back({name, {}, {}});
        return *key(s, name);
    }
    void addValue(std::string const& s, std::string const& k, std::string const& value,
                  bool secret) {
        Key& made = makeKey(s, k);
        if (value.empty()) return;
        (secret ? made.secret : made.plain).push_back(value);
        if (secret && made.secret.size() == 1) items.emplace_back(s, k);
    }
    void clearValues(std::string const& s, std::string const& k) {
        makeKey(s, k) = Key{k, {}, {}};
        dropItem(s, k);
    }
    void dropItem(std::string const& s, std::string const& k) {
        items.erase(std::remove(items.begin(), items.end(), Name(s, k)), items.end());
    }
    void removeKey(std::string const& s, std::string const& k) {
        if (key(s, k) == nullptr) return;
        dropItem(s, k);
        dropKeyLine(s, k);
        moveToEnd(s, k);
        stanza(s)->keys.pop_back();
    }
    void removeStanza(std::string const& s) {
        if (stanza(s) == nullptr) return;
        dropLines(s);
        for (Key const& k : stanza(s)->keys)
            dropItem(s, k.name);
        moveToEnd(s);
        stanzas.pop_back();
    }

    // ----------------------------------------------------------------------------------- lines

    /// Index of the header line; the number of lines when there is none.
    [[nodiscard]] std::size_t header(std::string const& s) const {
        std::size_t i = 0;
        while (i < lines.size() && (lines[i].kind != ZPropLine::header || lines[i].text != s))
            ++i;
        return i;
    }
    [[nodiscard]] std::size_t endOf(std::string const& s) const {
        std::size_t i = std::min(header(s) + 1, lines.size());
        while (i < lines.size() && lines[i].kind != ZPropLine::header)
            ++i;
        return i;
    }
    /// Index of the key's line; the number of lines when there is none.
    [[nodiscard]] std::size_t keyLine(std::string const& s, std::string const& k) const {
        for (std::size_t i = header(s); i < endOf(s); ++i)
            if (lines[i].kind == ZPropLine::key && lines[i].text == k) return i;
        return lines.size();
    }
    void insert(std::size_t at, unsigned int kind, std::string const& text) {
        lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(at), Line{kind, text});
    }
    void erase(std::size_t at) { lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(at)); }

    void placeStanza(std::string const& s) {
        if (header(s) < lines.size()) return;
        auto const isThis = [&](Stanza const& x) { return x.name == s; };
        auto const isWithout = [&](Stanza const& x) { return header(x.name) == lines.size(); };
        auto const first = std::find_if(stanzas.begin(), stanzas.end(), isWithout);
        auto const at = std::find_if(stanzas.begin(), stanzas.end(), isThis);
        std::rotate(first, at, at + 1);
        lines.push_back({ZPropLine::header, s});
    }
    void placeKey(std::string const& s, std::string const& k) {
        placeStanza(s);
        if (keyLine(s, k) == lines.size()) insert(placeFor(s, k), ZPropLine::key, k);
    }
    /// The described scan.
    [[nodiscard]] std::size_t placeFor(std::string const& s, std::string const& k) const {
        std::string const wanted = "#" + k + "=";
        bool templateSeen = false;
        std::size_t place = header(s) + 1;
        for (std::size_t i = header(s) + 1; i < endOf(s); ++i) {
            char const* const text = lines[i].text.c_str();
            if (lines[i].kind == ZPropLine::key) place = i + 1;
            if (lines[i].kind == ZPropLine::comment)
                templateSeen |= ZPCategoryBasedCache::isCommentWeWant(wanted.c_str(), text);
            if (lines[i].kind == ZPropLine::blank && templateSeen) return i;
        }
        return place;
    }

    void dropKeyLine(std::string const& s, std::string const& k) {
        std::size_t const i = keyLine(s, k);
        if (i == lines.size()) return;
        erase(i);
        moveToEnd(s, k);
    }
    void dropLines(std::string const& s) {
        if (header(s) == lines.size()) return;
        while (endOf(s) > header(s) + 1) {
            Line const line = lines[header(s) + 1];
            erase(header(s) + 1);
            if (line.kind == ZPropLine::key) moveToEnd(s, line.text);
        }
        erase(header(s));
        moveToEnd(s);
    }
    /// Keys without a line are listed behind the others, in the order of losing it; so are stanzas.
    void moveToEnd(std::string const& s, std::string const& k) {
        std::vector<Key>& keys = stanza(s)->keys;
        auto const isThis = [&](Key const& x) { return x.name == k; };
        auto const at = std::find_if(keys.begin(), keys.end(), isThis);
        std::rotate(at, at + 1, keys.end());
    }
    void moveToEnd(std::string const& s) {
        auto const isThis = [&](Stanza const& x) { return x.name == s; };
        auto const at = std::find_if(stanzas.begin(), stanzas.end(), isThis);
        std::rotate(at, at + 1, stanzas.end());
    }

    // -------------------------------------------------------------------------------- comments

    void insertBehindComments(std::size_t at, std::string const& text) {
        while (at < lines.size() && lines[at].kind == ZPropLine::comment)
            ++at;
        insert(at, ZPropLine::comment, text);
    }
    void addFileComment(std::string const& text) { insertBehindComments(0, text); }
    void addStanzaComment(std::string const& s, std::string const& text) {
        placeStanza(s);
        insertBehindComments(header(s) + 1, text);
    }
    void addKeyComment(std::string const& s, std::string const& k, std::string const& text) {
        placeKey(s, k);
        insert(keyLine(s, k), ZPropLine::comment, text);
    }

    // -------------------------------------------------------------------------- reading, writing

    /// Reads valid lines, "[stanza]", "key = value", "#comment" and empty ones.
    void read(std::string const& text) {
        std::string current;
        for (std::size_t at = 0; at < text.size(); at = text.find('\n', at) + 1)
            readLine(text.substr(at, text.find('\n', at) - at), current);
    }
    [[nodiscard]] std::string written() {
        std::string out, current;
        for (Line const& line : lines) {
            if (line.kind == ZPropLine::header) {
                current = line.text;
                out += "[" + current + "]\n";
            } else if (line.kind == ZPropLine::key) {
                out += writtenKey(*key(current, line.text));
            } else {
                out += line.text + "\n";
            }
        }
        return out;
    }
    [[nodiscard]] Texts stanzaNames() const {
        Texts names;
        for (Stanza const& s : stanzas)
            names.push_back(s.name);
        return names;
    }
    /// In file order, then those without a line.
    [[nodiscard]] Texts keyNames(std::string const& s) {
        Texts names;
        for (std::size_t i = header(s); i < endOf(s); ++i)
            if (lines[i].kind == ZPropLine::key) names.push_back(lines[i].text);
        for (Key const& k : stanza(s)->keys)
            if (keyLine(s, k.name) == lines.size()) names.push_back(k.name);
        return names;
    }

  private:
    void readLine(std::string const& line, std::string& current) {
        if (line.empty()) return lines.push_back({ZPropLine::blank, ""});
        if (line[0] == '#') return lines.push_back({ZPropLine::comment, line});
        if (line[0] != '[') return readKey(current, line);
        current = line.substr(1, line.size() - 2);
        makeStanza(current);
        placeStanza(current);
    }
    void readKey(std::string const& s, std::string const& line) {
        std::string const name = line.substr(0, line.find(" ="));
        std::string const value = line.substr(std::min(line.size(), name.size() + 3));
        bool const isNew = key(s, name) == nullptr;
        addValue(s, name, stripped(value), false);
        if (isNew) lines.push_back({ZPropLine::key, name});
    }
    static std::string stripped(std::string const& text) {
        std::size_t const from = text.find_first_not_of(' ');
        return from == std::string::npos ? ""
                                         : text.substr(from, text.find_last_not_of(' ') + 1 - from);
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
