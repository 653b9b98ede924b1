#include "zprop/reads/answers.h"

#include <iostream>

#include "Z/ZList.h"
#include "zprop/shown.h"

namespace zprop {
namespace {

bool isKeptBack(ZStanzaFileProperties const& properties, std::string const& stanza,
                std::string const& key, Secrets secrets) {
    return secrets != Secrets::revealed && properties.isObfuscated(stanza.c_str(), key.c_str());
}

/// The values as they are printed.
std::vector<std::string> toldValues(ZStanzaFileProperties const& properties,
                                    std::string const& stanza, std::string const& key,
                                    Secrets secrets) {
    bool const isHidden = isKeptBack(properties, stanza, key, secrets);
    if (isHidden && secrets == Secrets::leftOut) return {};
    auto values = valuesOf(properties, stanza, key);
    if (isHidden) values.assign(values.size(), hiddenText);
    return values;
}

/// A variable's name; the path may be empty.
std::string shellName(std::string name) {
    constexpr char allowed[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_";
    for (std::size_t at = 0; (at = name.find_first_not_of(allowed, at)) != name.npos;)
        name[at] = '_';
    bool const isName = !name.empty() && (name.front() < '0' || name.front() > '9');
    return isName ? name : "_" + name;
}

void printLines(std::string const& key, std::vector<std::string> const& values) {
    if (values.empty()) std::cout << shown(key) << " =\n";
    for (auto const& value : values)
        std::cout << shown(key) << " = " << shown(value) << "\n";
}

void printRecords(std::string const& stanza, std::string const& key,
                  std::vector<std::string> const& values) {
    std::string const place = stanza + "\n" + key;
    if (values.empty()) std::cout << place << '\0';
    for (auto const& value : values)
        std::cout << place << "\n" << value << '\0';
}

void printAssignment(Assignments& assignments, std::string const& stanza, std::string const& key,
                     std::vector<std::string> const& values) {
    assignments.print(stanza + "_" + key, "key \"" + key + "\" in stanza \"" + stanza + "\"",
                      values);
}

}  // namespace

void Assignments::print(std::string const& path, std::string const& place,
                        std::vector<std::string> const& values) {
    std::string const name = shellName(path);
    auto const [known, isNew] = places.emplace(name, place);
    if (!isNew)
        throw Failure(Exit::notThereOrInvalid,
                      known->second + " and " + place + " would both be " + name);
    std::string joined;
    for (auto const& value : values)
        joined += (&value == &values.front() ? "" : "\n") + value;
    std::cout << name << "=" << shellWord(joined) << "\n";
}

std::vector<std::string> valuesOf(ZPropertiesInterface const& properties, std::string const& stanza,
                                  std::string const& key) {
    ZArrayList list(1, 1);
    properties.getValues(stanza.c_str(), key.c_str(), list, zpropLocalCodeset);
    std::vector<std::string> values;
    for (unsigned int i = 0; i < list.size(); ++i)
        values.emplace_back(static_cast<ZAbstractString*>(list.get(i))->getChars());
    return values;
}

std::vector<std::string> stanzasOf(ZStanzaFileProperties const& properties) {
    std::vector<std::string> names;
    ZPropertiesIterator stanzas(properties);
    while (stanzas.next())
        names.emplace_back(stanzas.getName());
    return names;
}

std::vector<std::string> keysOf(ZStanzaFileProperties const& properties,
                                std::string const& stanza) {
    std::vector<std::string> names;
    if (stanza.empty()) return names;
    ZPropertiesIterator keys(properties, stanza.c_str());
    while (keys.next())
        names.emplace_back(keys.getName());
    return names;
}

void printStanzas(ZStanzaFileProperties const& properties, std::vector<std::string> const& stanzas,
                  char const* header, Secrets secrets, Style style) {
    Assignments assignments;
    for (auto const& stanza : stanzas) {
        if (style == Style::lines) std::cout << header << "[" << shown(stanza) << "]\n";
        for (auto const& key : keysOf(properties, stanza)) {
            auto const values = toldValues(properties, stanza, key, secrets);
            if (style == Style::lines) printLines(key, values);
            if (style == Style::nul) printRecords(stanza, key, values);
            // A script must not take what stands for a secret for its value.
            bool const isSet = !isKeptBack(properties, stanza, key, secrets);
            if (style == Style::shell && isSet) printAssignment(assignments, stanza, key, values);
        }
    }
}

void printPlaced(std::string const& place, std::string const& answer, Style style) {
    if (style == Style::shell) std::cout << shellWord(place) << ' ';
    if (style == Style::nul) std::cout << place << '\n';
    if (style == Style::lines) std::cout << shown(place) << ": ";
    printText(answer, style);
}

void printText(std::string const& text, Style style) {
    if (style == Style::shell)
        std::cout << shellWord(text) << "\n";
    else
        std::cout << text << (style == Style::nul ? '\0' : '\n');
}

}  // namespace zprop
