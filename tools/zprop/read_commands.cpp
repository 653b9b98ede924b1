#include "zprop/read_commands.h"

#include <nlohmann/json.hpp>

#include <iostream>

#include "Z/ZList.h"
#include "Z/ZUTF8String.h"

namespace zprop {
namespace {

constexpr char hidden[] = "(obfuscated)";

using Json = nlohmann::ordered_json;

/// The values of a key in order, in the codeset of `type`.
std::vector<std::string> valuesOf(ZStanzaFileProperties const& properties, char const* stanza,
                                  char const* key, ZPropertyStringType type) {
    ZArrayList list(1, 1);
    properties.getValues(stanza, key, list, type);
    std::vector<std::string> values;
    for (unsigned int i = 0; i < list.size(); ++i)
        values.emplace_back(static_cast<ZAbstractString*>(list.get(i))->getChars());
    return values;
}

/// The names of a stanza's keys; the nameless stanza has none.
std::vector<std::string> keysOf(ZStanzaFileProperties const& properties, char const* stanza) {
    std::vector<std::string> names;
    if (*stanza == '\0') return names;
    ZPropertiesIterator keys(properties, stanza);
    while (keys.next())
        names.emplace_back(keys.getName());
    return names;
}

/// Names go into JSON as UTF-8; one that has no UTF-8 form is an error, not an empty name.
std::string inUtf8(char const* local) {
    ZUTF8String const text{ZLCString(local)};
    if (text.isEmpty() && *local != '\0') zraise(ZToUTF8Exception(), "zprop", __LINE__);
    return text.getChars();
}

/// The value of a key that has one, as its type prints it.
std::string typedValue(ZStanzaFileProperties const& properties, char const* stanza, char const* key,
                       ValueType type) {
    if (type == ValueType::integer)
        return std::to_string(properties.getIntegerValue(stanza, key, 1, 0));
    if (type == ValueType::boolean)
        return properties.getBooleanValue(stanza, key, 1, 0) != 0 ? "yes" : "no";
    ZLCString value;
    properties.getValue(stanza, key, value, 1, nullptr);
    return value.getChars();
}

/// The default as a typed read prints it; text that is not of the type is wrong usage.
std::string typedFallback(GetRequest const& request) {
    std::string const& text = *request.fallback;
    if (request.type == ValueType::string || text.empty()) return text;
    try {
        ZStanzaFileProperties reader(0);
        reader.setValue("command line", "default", text.c_str(), 1);
        return typedValue(reader, "command line", "default", request.type);
    } catch (ZPropertiesInvalidValueException&) {
        throw Failure(Exit::wrongUsage, "--default \"" + text + "\" is not of the type asked for");
    }
}

/// What `get` prints for a key that has values.
std::vector<std::string> answers(ZStanzaFileProperties const& properties,
                                 GetRequest const& request) {
    char const* const stanza = request.stanza.c_str();
    char const* const key = request.key.c_str();
    bool const isHidden = !request.reveal && properties.isObfuscated(stanza, key);
    if (request.all) {
        auto values = valuesOf(properties, stanza, key, zpropLocalCodeset);
        if (isHidden) values.assign(values.size(), hidden);
        return values;
    }
    std::string const value = typedValue(properties, stanza, key, request.type);
    return {isHidden ? hidden : value};
}

/// Prints "key = value" for each value, or "key =" where there is none.
void printKey(std::string const& key, std::vector<std::string> const& values) {
    if (values.empty()) std::cout << key << " =\n";
    for (auto const& value : values)
        std::cout << key << " = " << value << "\n";
}

void dumpAsText(ZStanzaFileProperties const& properties, bool reveal) {
    ZPropertiesIterator stanzas(properties);
    while (stanzas.next()) {
        std::cout << "[" << stanzas.getName() << "]\n";
        for (auto const& key : keysOf(properties, stanzas.getName())) {
            auto values = valuesOf(properties, stanzas.getName(), key.c_str(), zpropLocalCodeset);
            if (!reveal && properties.isObfuscated(stanzas.getName(), key.c_str()))
                values.assign(values.size(), hidden);
            printKey(key, values);
        }
    }
}

Json keyAsJson(ZStanzaFileProperties const& properties, char const* stanza, char const* key,
               bool reveal) {
    bool const obfuscated = properties.isObfuscated(stanza, key);
    Json values;
    if (reveal || !obfuscated) values = valuesOf(properties, stanza, key, zpropUTF8);
    return {{"name", inUtf8(key)}, {"values", values}, {"obfuscated", obfuscated}};
}

void dumpAsJson(ZStanzaFileProperties const& properties, DumpRequest const& request) {
    Json stanzaList = Json::array();
    ZPropertiesIterator stanzas(properties);
    while (stanzas.next()) {
        Json keyList = Json::array();
        for (auto const& key : keysOf(properties, stanzas.getName()))
            keyList.push_back(
                keyAsJson(properties, stanzas.getName(), key.c_str(), request.reveal));
        stanzaList.push_back({{"name", inUtf8(stanzas.getName())}, {"keys", keyList}});
    }
    Json const whole = {{"file", inUtf8(request.file.c_str())}, {"stanzas", stanzaList}};
    try {
        std::cout << whole.dump(2) << "\n";
    } catch (Json::exception&) {  // bytes that are no UTF-8, where that is the local codeset
        zraise(ZToUTF8Exception(), "zprop", __LINE__);
    }
}

/// The cache's listing of one stanza: plain values alone.
void listStanza(ZStanzaFileProperties const& properties, char const* stanza) {
    std::cout << "\n[" << stanza << "]\n";
    for (auto const& key : keysOf(properties, stanza)) {
        std::vector<std::string> values;
        if (!properties.isObfuscated(stanza, key.c_str()))
            values = valuesOf(properties, stanza, key.c_str(), zpropLocalCodeset);
        printKey(key, values);
    }
}

}  // namespace

Exit get(GetRequest const& request, Deadline& deadline) {
    std::string const fallback = request.fallback ? typedFallback(request) : std::string();
    Properties const properties = openForReading(request.file, deadline);
    if (properties->numValues(request.stanza.c_str(), request.key.c_str()) == 0) {
        if (!request.fallback)
            zraise(ZPropertiesMissingPropertyException(request.file.c_str(), request.stanza.c_str(),
                                                       request.key.c_str()),
                   "zprop", __LINE__);
        std::cout << fallback << "\n";
        return Exit::done;
    }
    for (auto const& answer : answers(*properties, request))
        std::cout << answer << "\n";
    return Exit::done;
}

Exit list(std::string const& file, std::string const& stanza, Deadline& deadline) {
    Properties const properties = openForReading(file, deadline);
    if (stanza.empty()) {
        properties->list();
        return Exit::done;
    }
    if (!properties->exists(stanza.c_str()))
        throw Failure(Exit::notThereOrInvalid, file + ": there is no stanza \"" + stanza + "\"");
    listStanza(*properties, stanza.c_str());
    return Exit::done;
}

Exit dump(DumpRequest const& request, Deadline& deadline) {
    Properties const properties = openForReading(request.file, deadline);
    if (request.json)
        dumpAsJson(*properties, request);
    else
        dumpAsText(*properties, request.reveal);
    return Exit::done;
}

}  // namespace zprop
