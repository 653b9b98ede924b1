/// Random files and edits with every byte: whatever is taken has to come back.
#include <sys/wait.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>

#include "Z/ZException.h"
#include "torture/modes.h"
#include "torture/process.h"

namespace torture {
namespace {

std::string read(std::string const& path) {
    std::ostringstream bytes;
    bytes << std::ifstream(path, std::ios::binary).rdbuf();
    return bytes.str();
}

class RandomText {
  public:
    explicit RandomText(unsigned int seed) : random(seed) {}

    unsigned int below(unsigned int limit) { return static_cast<unsigned int>(random()) % limit; }

    /// Mostly what has a meaning in a file, else any byte.
    std::string text(unsigned int longest) {
        static std::string const special = " \t\r\n\v\f#[]=\\\"'\xc3\xa4\xff\x80\x01";
        std::string result;
        for (unsigned int length = below(longest + 1); length > 0; --length) {
            unsigned int const kind = below(3);
            if (kind == 0)
                result += special[below(static_cast<unsigned int>(special.size()))];
            else
                result += static_cast<char>(kind == 1 ? 'a' + below(3) : below(256));
        }
        return result;
    }

    /// A name that may well be there already.
    std::string name() { return below(4) != 0 ? std::string(1, "abcd"[below(4)]) : text(6); }

    /// At times as long as a line may be, and a little longer.
    std::string value() {
        unsigned int const kind = below(30);
        if (kind == 0) return std::string(8170 + below(40), 'x');
        return text(kind < 3 ? 300 : 12);
    }

    std::string file() {
        std::string bytes;
        for (unsigned int lines = below(12); lines > 0; --lines)
            bytes += line() + (below(12) == 0 ? "\r\n" : "\n");
        // Only a few are spoiled: most of the others would be refused for the same byte.
        for (unsigned int spoiled = below(5) == 0 ? below(4) : 0; spoiled > 0; --spoiled) {
            if (!bytes.empty())
                bytes[below(static_cast<unsigned int>(bytes.size()))] =
                    static_cast<char>(below(256));
        }
        return bytes;
    }

  private:
    std::string line() {
        switch (below(6)) {
            case 0:
                return "[" + name() + std::to_string(below(50)) + "]" + text(2);
            case 1:
                return "#" + text(20);
            case 2:
                return "";
            case 3:
                return "# " + name() + " = x";
            default:
                return text(1) + name() + " = " + value();
        }
    }

    std::mt19937 random;
};

/// What the format takes off a plain value's ends.
std::string stripped(std::string const& text) {
    constexpr char white[] = " \t\r\n\v\f";
    auto const begin = text.find_first_not_of(white);
    if (begin == std::string::npos) return "";
    return text.substr(begin, text.find_last_not_of(white) - begin + 1);
}

using Values = std::vector<std::string>;

struct Key {
    std::string stanza;
    std::string key;
};

/// The values of every key that is known, kinds told.
std::vector<Values> valuesOf(ZStanzaFileProperties const& properties,
                             std::vector<Key> const& keys) {
    std::vector<Values> all;
    for (Key const& key : keys) {
        ZArrayList list(1, 1);
        properties.getValues(key.stanza.c_str(), key.key.c_str(), list, zpropLocalCodeset);
        bool const isSecret = properties.isObfuscated(key.stanza.c_str(), key.key.c_str());
        Values values{isSecret ? "secret" : "plain"};
        for (unsigned int i = 0; i < list.size(); ++i) {
            std::string const text = dynamic_cast<ZLCString const&>(*list.get(i)).getChars();
            std::string const stored = isSecret ? text : stripped(text);
            if (!stored.empty()) values.push_back(stored);
        }
        all.push_back(values);
    }
    return all;
}

/// One file with some edits; what was refused is counted, what came back otherwise is told.
class Round {
  public:
    Round(std::string const& where, unsigned int seed)
        : text(seed), path(where + "/app.conf"), copy(where + "/again.conf") {}

    void run() {
        { std::ofstream(path, std::ios::binary) << text.file(); }
        std::unique_ptr<ZStanzaFileProperties> properties;
        try {
            properties = std::make_unique<ZStanzaFileProperties>(path.c_str(), 1);
            ++shared().filesRead;
        } catch (ZException const&) {
            refuseUnchanged();
            properties = std::make_unique<ZStanzaFileProperties>(1);
            std::ofstream(path, std::ios::trunc).flush();
            properties->load(path.c_str());
        }
        for (unsigned int edits = text.below(8); edits > 0; --edits)
            editOnce(*properties);
        storeAndCompare(*properties);
    }

    std::string failure;  // empty: none

  private:
    /// A file that was refused stays as it is, also when its name is stored to.
    void refuseUnchanged() {
        std::string const bytes = read(path);
        ZStanzaFileProperties properties(1);
        try {
            properties.load(path.c_str());
        } catch (ZException const&) {
            failure.clear();
        }
        try {
            properties.store();
            failure = "a file that was not read was stored";
        } catch (ZException const&) {
            if (read(path) != bytes) failure = "a refused file was changed";
        }
    }

    void editOnce(ZStanzaFileProperties& properties) {
        Key const key{text.name(), text.name()};
        std::string const value = text.value();
        char const* const stanza = key.stanza.c_str();
        try {
            switch (text.below(7)) {
                case 0:
                    properties.addStanzaComment(stanza, value.c_str());
                    break;
                case 1:
                    properties.addFileComment(value.c_str());
                    break;
                case 2:
                    properties.addEntryComment(stanza, key.key.c_str(), value.c_str());
                    break;
                case 3:
                    properties.deleteKey(stanza, key.key.c_str());
                    break;
                case 4:
                    properties.addValue(stanza, key.key.c_str(), value.c_str());
                    break;
                case 5:
                    properties.setValue(stanza, key.key.c_str(), value.c_str(), 1);
                    break;
                default:
                    properties.setValue(stanza, key.key.c_str(), value.c_str());
                    break;
            }
            ++shared().editsMade;
        } catch (ZInvalidParameterException const&) {
            ++shared().editsRefused;  // the key must be as it was
        }
        // Nobody may ask for a key without a name.
        if (*stanza != '\0' && *key.key.c_str() != '\0') keys.push_back(key);
    }

    void storeAndCompare(ZStanzaFileProperties& properties) {
        for (char const a : std::string("abcd")) {
            for (char const b : std::string("abcd"))
                keys.push_back({std::string(1, a), std::string(1, b)});
        }
        auto const expected = valuesOf(properties, keys);
        try {
            properties.store();
        } catch (ZPropertiesInvalidDataException const&) {
            return;  // refused
        }
        ZStanzaFileProperties again(path.c_str(), 1);
        if (valuesOf(again, keys) != expected) failure = "other values came back";
        if (again.count() != properties.count()) failure = "other stanzas came back";
        storeAnew(again);
        std::string const stored = read(path);
        ZStanzaFileProperties last(path.c_str(), 1);
        storeAnew(last);
        if (read(path) != stored) failure = "what was loaded is stored otherwise";
        if (valuesOf(last, keys) != expected) failure = "other values came back the second time";
    }

    /// Over nothing, which is written for sure. Keeps what was there for the report.
    void storeAnew(ZStanzaFileProperties& properties) const {
        { std::ofstream(copy, std::ios::binary | std::ios::trunc) << read(path); }
        std::ofstream(path, std::ios::trunc).flush();
        properties.store();
    }

    RandomText text;
    std::string path;
    std::string copy;
    std::vector<Key> keys;
};

/// Runs the rounds of a second in a process of its own.
std::string roundsFrom(std::string const& where, unsigned int& seed) {
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    shared().reason[0] = '\0';
    int const status = inChild([&] {
        while (shared().reason[0] == '\0' && std::chrono::steady_clock::now() < end) {
            shared().entered = ++seed;
            putFiles(where, {});
            Round round(where, seed);
            round.run();
            shared().tell(round.failure);
        }
    });
    seed = shared().entered;
    if (status != 0 && shared().reason[0] == '\0') return "status " + std::to_string(status);
    return shared().reason;
}

}  // namespace

bool runRandomFiles(Options const& options) {
    Directory const directory(options.directories.front());
    auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(options.seconds);
    unsigned int seed = options.seed;
    unsigned int found = 0;
    while (std::chrono::steady_clock::now() < end && found < 10) {
        std::string const failure = roundsFrom(directory.path(), seed);
        if (failure.empty()) continue;
        ++found;
        std::printf("round %u: %s\n%s----\n", seed, failure.c_str(),
                    read(directory.path() + "/again.conf").c_str());
    }
    std::printf("random files: %u rounds, %u files read, %u edits made, %u refused; %u failures\n",
                seed - options.seed, shared().filesRead.load(), shared().editsMade.load(),
                shared().editsRefused.load(), found);
    return found == 0;
}

}  // namespace torture
