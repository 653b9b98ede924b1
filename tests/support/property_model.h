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

    // ------------------------------------------------------------------------ stanzas and keys

    Stanza* stanza(std::string const& name) { return find(stanzas, name); }
    Key* key(std::string const& s, std::string const& name) {
        return stanza(s) == nullptr ? nullptr : find(stanza(s)->keys, name);
    }
    Stanza& makeStanza(std::string const& name) {
        if (stanza(name) == nullptr) stanzas.push_back({name, {}, false, {}});
        return *stanza(name);
    }
    Key& makeKey(std::string const& s, std::string const& name) {
        std::vector<Key>& keys = makeStanza(s).keys;
        if (find(keys, name) == nullptr) keys.push_back({name, {}, {}});
        return *find(keys, name);
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
        dropItem(s, k);
        dropKeyLine(s, k);
        moveToEnd(stanza(s)->keys, k);
        stanza(s)->keys.pop_back();
    }
    void removeStanza(std::string const& s) {
        for (Key const& k : stanza(s)->keys)
            dropItem(s, k.name);
        moveToEnd(stanzas, s);
        stanzas.pop_back();
    }

    // ----------------------------------------------------------------------------------- lines

    Stanza& placeStanza(std::string const& s) {
        makeStanza(s).placed = true;
        std::stable_partition(stanzas.begin(), stanzas.end(), [](Stanza& x) { return x.placed; });
        return *stanza(s);
    }
    void placeKey(std::string const& s, std::string const& k) {
        makeKey(s, k);
        Lines& lines = placeStanza(s).lines;
        if (keyLine(lines, k) == lines.size())
            insert(lines, placeFor(lines, k), {ZPropLine::key, k});
    }
    /// Keys without a line are listed behind the others, in the order of losing it; so are stanzas.
    void dropKeyLine(std::string const& s, std::string const& k) {
        Lines& lines = stanza(s)->lines;
        std::size_t const i = keyLine(lines, k);
        if (i == lines.size()) return;
        lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(i));
        moveToEnd(stanza(s)->keys, k);
    }
    void dropLines(std::string const& s) {
        if (!stanza(s)->placed) return;
        for (Line const& line : std::exchange(stanza(s)->lines, {}))
            if (line.kind == ZPropLine::key) moveToEnd(stanza(s)->keys, line.text);
        stanza(s)->placed = false;
        moveToEnd(stanzas, s);
    }
    void addFileComment(std::string const& text) { insertBehindComments(opening, text); }
    void addStanzaComment(std::string const& s, std::string const& text) {
        insertBehindComments(placeStanza(s).lines, text);
    }
    void addKeyComment(std::string const& s, std::string const& k, std::string const& text) {
        placeKey(s, k);
        Lines& lines = stanza(s)->lines;
        insert(lines, keyLine(lines, k), {ZPropLine::comment, text});
    }

    // -------------------------------------------------------------------------- reading, writing

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
    [[nodiscard]] static Texts keyNames(Stanza const& s) {
        Texts names;
        for (Line const& line : s.lines)
            if (line.kind == ZPropLine::key) names.push_back(line.text);
        for (Key const& k : s.keys)
            if (keyLine(s.lines, k.name) == s.lines.size()) names.push_back(k.name);
        return names;
    }

  private:
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
    static void insert(Lines& lines, std::size_t at, Line const& line) {
        lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(at), line);
    }
    static void insertBehindComments(Lines& lines, std::string const& text) {
        std::size_t at = 0;
        while (at < lines.size() && lines[at].kind == ZPropLine::comment)
            ++at;
        insert(lines, at, {ZPropLine::comment, text});
    }
    /// Index of the key's line; the number of lines when there is none.
    static std::size_t keyLine(Lines const& lines, std::string const& k) {
        auto const isIt = [&](Line const& x) { return x.kind == ZPropLine::key && x.text == k; };
        auto const at = std::find_if(lines.begin(), lines.end(), isIt);
        return static_cast<std::size_t>(at - lines.begin());
    }
    /// In front of the first blank line below a template; else behind the last key line.
    static std::size_t placeFor(Lines const& lines, std::string const& k) {
        bool templateSeen = false;
        std::size_t place = 0;
        for (std::size_t i = 0; i < lines.size(); ++i) {
            if (lines[i].kind == ZPropLine::key) place = i + 1;
            if (lines[i].kind == ZPropLine::comment) templateSeen |= isTemplate(lines[i].text, k);
            if (lines[i].kind == ZPropLine::blank && templateSeen) return i;
        }
        return place;
    }
    /// A comment that without its blanks begins as the key's line would, commented out; so a key
    /// with a blank inside has none.
    static bool isTemplate(std::string comment, std::string const& k) {
        comment.erase(std::remove(comment.begin(), comment.end(), ' '), comment.end());
        return comment.rfind("#" + k + "=", 0) == 0;
    }
    /// Of the last stanza in the file.
    Lines& lastLines() { return lastPlaced() == nullptr ? opening : lastPlaced()->lines; }
    Stanza* lastPlaced() {
        Stanza* last = nullptr;
        for (Stanza& s : stanzas)
            if (s.placed) last = &s;
        return last;
    }
    void readLine(std::string const& line) {
        if (line.empty()) return lastLines().push_back({ZPropLine::blank, ""});
        if (line[0] == '#') return lastLines().push_back({ZPropLine::comment, line});
        if (line[0] != '[') return readKey(*lastPlaced(), line);
        placeStanza(line.substr(1, line.size() - 2));
    }
    void readKey(Stanza& s, std::string const& line) {
        std::string const name = line.substr(0, line.find(" ="));
        std::string const value = line.substr(std::min(line.size(), name.size() + 3));
        bool const isNew = find(s.keys, name) == nullptr;
        addValue(s.name, name, stripped(value), false);
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
