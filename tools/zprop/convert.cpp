#include "zprop/convert.h"

#include <unistd.h>

#include <fstream>
#include <iostream>

#include "Z/ZList.h"
#include "zprop/java_file.h"

namespace zprop {
namespace {

constexpr char blanks[] = " \t\v\f\r";

/// What the target would not have.
class Losses {
  public:
    explicit Losses(std::string file) : source(std::move(file)) {}

    void add(std::string const& what) { lines.push_back(source + ": " + what); }
    void addKey(std::string const& key, std::string const& why) {
        add("key \"" + key + "\": " + why);
    }
    void addLine(std::size_t number, std::string const& why) {
        lines.push_back(source + ":" + std::to_string(number) + ": " + why);
    }
    /// Throws when there are any, behind a line for each.
    void refuse() const {
        if (lines.empty()) return;
        for (auto const& line : lines)
            std::cerr << "zprop: " << line << "\n";
        throw Failure(Exit::notThereOrInvalid,
                      source + ": not converted, since this would be lost");
    }

  private:
    std::string source;
    std::vector<std::string> lines;
};

// ------------------------------------------------------------------------------ to a stanza file

struct Place {
    std::string stanza;
    std::string key;
};

/// Where a key goes; an empty stanza when it has none.
Place placeOf(std::string const& key, ConvertRequest const& request) {
    if (!request.stanza.empty()) return {request.stanza, key};
    std::size_t const dot = key.find('.');
    if (dot == std::string::npos || dot + 1 == key.size()) return {"", key};
    return {key.substr(0, dot), key.substr(dot + 1)};
}

bool hasBlanksAround(std::string const& text) {
    return !text.empty() && (std::string(blanks).find(text.front()) != std::string::npos ||
                             std::string(blanks).find(text.back()) != std::string::npos);
}

/// Sets the pair, or tells why it cannot be kept; null when it is.
char const* put(ZStanzaFileProperties& properties, Place const& place, std::string const& value) {
    if (place.stanza.empty()) return "no stanza before a \".\"; --stanza puts all keys into one";
    if (hasBlanksAround(value)) return "blanks around its value";
    if (value.find('\0') != std::string::npos) return "a NUL in its value";
    try {
        properties.setValue(place.stanza.c_str(), place.key.c_str(), value.c_str());
        return nullptr;
    } catch (ZInvalidParameterException&) {
        return "key or value would not read back from a stanza file";
    }
}

char const* putPair(ZStanzaFileProperties& properties, ConvertRequest const& request,
                    JavaPair const& pair) {
    if (hasLoneSurrogate(pair.value)) return "half a surrogate pair in its value";
    try {
        return put(properties, placeOf(inLocal(pair.key), request), inLocal(pair.value));
    } catch (ZFromUTF8Exception&) {
        return "text that the local codeset does not have";
    }
}

/// The pairs of the source as stanzas.
std::unique_ptr<ZStanzaFileProperties> asStanzas(ConvertRequest const& request,
                                                 Deadline& deadline) {
    JavaFile const opened = openJavaFile(request.source, deadline);
    Losses losses(request.source);
    for (auto const& line : opened.faults())
        losses.addLine(line.number, line.reason());
    if (!request.dropComments) {
        for (auto const& line : opened.comments())
            losses.addLine(line.number, "comment; --drop-comments lets them go");
    }
    auto properties = std::make_unique<ZStanzaFileProperties>(1);
    for (auto const& pair : opened.pairs()) {
        char const* const why = putPair(*properties, request, pair);
        if (why != nullptr) losses.addKey(pair.key, why);
    }
    losses.refuse();
    return properties;
}

// -------------------------------------------------------------------------- to a properties file

/// Tells the comment lines of a stanza file.
void addComments(std::string const& file, Losses& losses) {
    std::ifstream stream(file, std::ios::binary);
    std::string line;
    for (std::size_t number = 1; std::getline(stream, line); ++number) {
        std::size_t const start = line.find_first_not_of(blanks);
        if (start != std::string::npos && line[start] == '#')
            losses.addLine(number, "comment; --drop-comments lets them go");
    }
}

class JavaWriter {
  public:
    JavaWriter(ConvertRequest const& asked, ZStanzaFileProperties const& from)
        : request(asked), source(from), losses(asked.source) {}

    ZJavaProperties convert() {
        if (!request.dropComments) addComments(request.source, losses);
        ZPropertiesIterator stanzas(source);
        while (stanzas.next())
            addStanza(stanzas.getName());
        losses.refuse();
        return target;
    }

  private:
    void addStanza(std::string const& stanza) {
        bool const isWhole = stanza == request.stanza;
        if (!request.stanza.empty() && !isWhole)
            return losses.add("stanza \"" + stanza + "\": not the one of --stanza");
        if (!isWhole && stanza.find('.') != std::string::npos)
            return losses.add("stanza \"" + stanza + "\": keys could not be told from its name");
        bool hasKeys = false;
        ZPropertiesIterator keys(source, stanza.c_str());
        for (; keys.next(); hasKeys = true)
            addKey(stanza, keys.getName(), isWhole ? "" : stanza + ".");
        if (!hasKeys) losses.add("stanza \"" + stanza + "\": has no keys");
    }

    void addKey(std::string const& stanza, std::string const& key, std::string const& prefix) {
        if (source.isObfuscated(stanza.c_str(), key.c_str()))
            return losses.addKey(prefix + key, "its value is obfuscated");
        ZArrayList values(1, 1);
        source.getValues(stanza.c_str(), key.c_str(), values, zpropUTF8);
        if (values.size() > 1) return losses.addKey(prefix + key, "has several values");
        ZUTF8String const name{ZLCString((prefix + key).c_str())};
        ZUTF8String text;
        if (values.size() == 1) text = static_cast<ZUTF8String const&>(*values.get(0));
        if (!ZJavaProperties::isStorable(name, text))
            return losses.addKey(prefix + key,
                                 "key or value would not read back from a properties file");
        target.setValue(name, text);
    }

    ConvertRequest const& request;
    ZStanzaFileProperties const& source;
    Losses losses;
    ZJavaProperties target;
};

/// Makes the target with `store`; nothing is left when that fails.
void write(std::string const& target, Deadline& deadline, std::function<void()> const& store) {
    if (access(target.c_str(), F_OK) == 0)
        throw Failure(Exit::notThereOrInvalid, target + ": is there already");
    editWith(
        target, Missing::create, deadline, [] {}, store);
}

}  // namespace

Exit convert(ConvertRequest const& request, Deadline& deadline) {
    if (request.from == Format::java) {
        auto const properties = asStanzas(request, deadline);
        write(request.target, deadline, [&] { properties->store(request.target.c_str()); });
        return Exit::done;
    }
    Properties const source = openForReading(request.source, deadline);
    ZJavaProperties const properties = JavaWriter(request, *source).convert();
    write(request.target, deadline, [&] { properties.store(request.target.c_str()); });
    return Exit::done;
}

}  // namespace zprop
