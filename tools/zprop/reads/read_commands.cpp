#include "zprop/reads/read_commands.h"

#include <algorithm>
#include <iostream>

#include "zprop/reads/answers.h"
#include "zprop/reads/json_text.h"
#include "zprop/reads/sources.h"
#include "zprop/shown.h"

namespace zprop {
namespace {

std::string place(GetRequest const& request) {
    return "key \"" + request.key + "\" in stanza \"" + request.stanza + "\"";
}

/// The value of a key that has one, as its type prints it.
std::string typedValue(ZPropertiesInterface const& properties, char const* stanza, char const* key,
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

/// The library's message shows the value, which may be a secret.
std::string hiddenValue(ZPropertiesInterface const& properties, GetRequest const& request) {
    try {
        static_cast<void>(
            typedValue(properties, request.stanza.c_str(), request.key.c_str(), request.type));
        return hiddenText;
    } catch (ZPropertiesInvalidValueException&) {
        throw Failure(Exit::notThereOrInvalid,
                      request.file + ": the obfuscated value of " + place(request) + " is no " +
                          (request.type == ValueType::boolean ? "boolean" : "number"));
    }
}

/// What `get` prints for a key that has values.
std::vector<std::string> answers(ZPropertiesInterface const& properties,
                                 GetRequest const& request) {
    char const* const stanza = request.stanza.c_str();
    char const* const key = request.key.c_str();
    bool const isHidden = !request.reveal && properties.isObfuscated(stanza, key);
    if (request.all) {
        auto values = valuesOf(properties, request.stanza, request.key);
        if (isHidden) values.assign(values.size(), hiddenText);
        return values;
    }
    if (isHidden) return {hiddenValue(properties, request)};
    return {typedValue(properties, stanza, key, request.type)};
}

/// What `get` prints for a key that has none, or is not there.
std::vector<std::string> answersWithoutValue(Sources const& sources, GetRequest const& request,
                                             std::string const& fallback) {
    bool const isThere = sources.values().exists(request.stanza.c_str(), request.key.c_str());
    // Without its companion file nobody knows.
    if (!isThere && sources.trouble())
        throw Failure(sources.trouble()->exitCode(),
                      request.file + ": " + place(request) +
                          " is none of the plain ones, and may be an obfuscated one");
    if (request.fallback) return {fallback};
    if (!isThere)
        zraise(ZPropertiesMissingPropertyException(sources.name().c_str(), request.stanza.c_str(),
                                                   request.key.c_str()),
               "zprop", __LINE__);
    if (request.required)
        throw Failure(Exit::notThereOrInvalid,
                      sources.name() + ": " + place(request) + " has no value");
    return std::vector<std::string>(request.all ? 0 : 1);
}

/// As answers(), with the place of a value that is not of its type.
std::vector<std::string> answersWithValue(Sources const& sources, GetRequest const& request) {
    try {
        return answers(sources.values(), request);
    } catch (ZPropertiesInvalidValueException const& e) {
        bool const isBool = request.type == ValueType::boolean;
        throw Failure(Exit::notThereOrInvalid,
                      sources.placesOf(request.stanza, request.key).back() + ": value \"" +
                          e.value() + "\" of " + place(request) + " is no " +
                          (isBool ? "boolean" : "number"));
    }
}

void printWithPlaces(std::vector<std::string> const& answers, Sources const& sources,
                     GetRequest const& request) {
    // Those of all values; of fewer answers the last ones.
    auto const places = sources.placesOf(request.stanza, request.key);
    std::size_t at = places.size() - std::min(places.size(), answers.size());
    for (auto const& answer : answers)
        printPlaced(places[at++], answer, request.style);
}

void dumpAsJson(Document const& properties, DumpRequest const& request) {
    JsonText text;
    Json stanzaList = Json::array();
    for (auto const& stanza : stanzasOf(properties)) {
        Json keyList = Json::array();
        for (auto const& key : keysOf(properties, stanza)) {
            bool const obfuscated = properties.isObfuscated(stanza.c_str(), key.c_str());
            Json values;
            if (request.reveal || !obfuscated) values = text.of(valuesOf(properties, stanza, key));
            keyList.push_back(
                {{"name", text.of(key)}, {"values", values}, {"obfuscated", obfuscated}});
        }
        stanzaList.push_back({{"name", text.of(stanza)}, {"keys", keyList}});
    }
    Json const whole = {{"file", text.of(request.file)}, {"stanzas", stanzaList}};
    std::cout << whole.dump(2) << "\n";
    if (text.hasReplaced())
        warn("warning: " + request.file + ": bytes that are no text are \\uFFFD in JSON");
}

void requireStanza(Document const& properties, ListRequest const& request) {
    if (!request.stanza.empty() && !properties.exists(request.stanza.c_str()))
        throw Failure(Exit::notThereOrInvalid,
                      request.file + ": there is no stanza \"" + request.stanza + "\"");
}

}  // namespace

Exit get(GetRequest const& request, Deadline& deadline) {
    std::string const fallback = request.fallback ? typedFallback(request) : std::string();
    Sources const sources(request, deadline);
    bool const hasValue =
        sources.values().numValues(request.stanza.c_str(), request.key.c_str()) != 0;
    auto const found = hasValue ? answersWithValue(sources, request)
                                : answersWithoutValue(sources, request, fallback);
    if (request.origin) {
        printWithPlaces(found, sources, request);
        return Exit::done;
    }
    for (auto const& answer : found)
        printText(answer, request.style);
    return Exit::done;
}

Exit list(ListRequest const& request, Deadline& deadline) {
    Properties const properties = openForAnswers(request.file, deadline);
    requireStanza(*properties, request);
    auto const stanzas =
        request.stanza.empty() ? stanzasOf(*properties) : std::vector{request.stanza};
    printStanzas(*properties, stanzas, "\n", Secrets::leftOut, request.style);
    return Exit::done;
}

Exit dump(DumpRequest const& request, Deadline& deadline) {
    Properties const properties = openForAnswers(request.file, deadline);
    if (request.json)
        dumpAsJson(*properties, request);
    else
        printStanzas(*properties, stanzasOf(*properties), "",
                     request.reveal ? Secrets::revealed : Secrets::hidden, request.style);
    return Exit::done;
}

Exit names(ListRequest const& request, Deadline& deadline) {
    Properties const properties = openForAnswers(request.file, deadline);
    requireStanza(*properties, request);
    for (auto const& name :
         request.stanza.empty() ? stanzasOf(*properties) : keysOf(*properties, request.stanza))
        printText(name, request.style);
    return Exit::done;
}

}  // namespace zprop
