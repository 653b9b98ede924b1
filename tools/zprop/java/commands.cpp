#include "zprop/java/commands.h"

#include <iostream>
#include <unordered_map>

#include "zprop/reads/answers.h"
#include "zprop/reads/json_text.h"
#include "zprop/shown.h"

namespace zprop {
namespace {

using Pairs = std::vector<JavaPair>;

std::string named(std::string const& key) { return "key \"" + key + "\""; }

Pairs pairsIn(JavaName const& name, Deadline& deadline) {
    ZJavaPropertiesFile properties(name.file.c_str(), name.encoding);
    load(properties, deadline);
    return pairsOf(properties);
}

/// Refuses text that programs would take apart at another place than it ends.
void requireWhole(std::string const& file, std::string const& key, std::string const& text,
                  std::string_view separators) {
    if (text.find_first_of(separators) == text.npos) return;
    char const* const which = separators.size() > 1 ? "a line feed or NUL" : "a NUL";
    throw Failure(Exit::notThereOrInvalid, file + ": " + named(key) + " has " + which +
                                               ", which these answers have no form for");
}

constexpr std::string_view nulAlone("\0", 1);
constexpr std::string_view nulOrFeed("\0\n", 2);

/// What an answer in this style ends at, beside a line for people.
void requireAnswerable(std::string const& file, std::string const& key, std::string const& text,
                       Style style) {
    if (style != Style::lines) requireWhole(file, key, text, nulAlone);
}

void printLine(JavaPair const& pair) {
    std::cout << inEscapes(pair.key) << (pair.value.empty() ? " =" : " = ") << inEscapes(pair.value)
              << "\n";
}

void tellPair(char sign, JavaPair const& pair) {
    std::cout << sign;
    printLine(pair);
}

std::unordered_map<std::string, std::string> valuesByKey(Pairs const& pairs) {
    std::unordered_map<std::string, std::string> values;
    for (auto const& pair : pairs)
        values.emplace(pair.key, pair.value);
    return values;
}

}  // namespace

Exit getJava(GetRequest const& request, Encoding encoding, Deadline& deadline) {
    ZJavaPropertiesFile properties(request.file.c_str(), encoding);
    load(properties, deadline);
    auto const value = valueOf(properties, inUtf8(request.key));
    std::string const place = request.file + ": ";
    if (!value && !request.fallback)
        throw Failure(Exit::notThereOrInvalid, place + "there is no " + named(request.key));
    std::string const answer = value ? inLocal(*value) : *request.fallback;
    if (request.required && answer.empty())
        throw Failure(Exit::notThereOrInvalid, place + named(request.key) + " has no value");
    requireAnswerable(request.file, request.key, answer, request.style);
    printText(answer, request.style);
    return Exit::done;
}

Exit listJava(JavaName const& name, Style style, Deadline& deadline) {
    Assignments assignments;
    for (auto const& pair : pairsIn(name, deadline)) {
        if (style == Style::lines) {
            printLine(pair);
            continue;
        }
        std::string const key = inLocal(pair.key);
        std::string const value = inLocal(pair.value);
        requireWhole(name.file, key, key, style == Style::nul ? nulOrFeed : nulAlone);
        requireAnswerable(name.file, key, value, style);
        if (style == Style::nul)
            std::cout << key << "\n" << value << '\0';
        else
            assignments.print(key, named(key), {value});
    }
    return Exit::done;
}

Exit dumpJavaAsJson(JavaName const& name, Deadline& deadline) {
    Json pairs = Json::array();
    for (auto const& pair : pairsIn(name, deadline))
        pairs.push_back({{"key", pair.key}, {"value", pair.value}});
    Json const whole = {{"file", JsonText().of(name.file)}, {"pairs", pairs}};
    std::cout << whole.dump(2) << "\n";
    return Exit::done;
}

Exit namesJava(JavaName const& name, Style style, Deadline& deadline) {
    for (auto const& pair : pairsIn(name, deadline)) {
        std::string const key = style == Style::lines ? inEscapes(pair.key) : inLocal(pair.key);
        requireAnswerable(name.file, key, key, style);
        printText(key, style);
    }
    return Exit::done;
}

Exit diffJava(JavaName const& from, JavaName const& to, Deadline& deadline) {
    Pairs const older = pairsIn(from, deadline);
    Pairs const newer = pairsIn(to, deadline);
    auto const valuesBefore = valuesByKey(older);
    auto const valuesNow = valuesByKey(newer);
    bool differs = false;
    for (auto const& pair : older) {
        auto const now = valuesNow.find(pair.key);
        bool const isThere = now != valuesNow.end();
        if (isThere && now->second == pair.value) continue;
        tellPair('-', pair);
        if (isThere) tellPair('+', {pair.key, now->second});
        differs = true;
    }
    for (auto const& pair : newer) {
        if (valuesBefore.count(pair.key) != 0) continue;
        tellPair('+', pair);
        differs = true;
    }
    return differs ? Exit::notThereOrInvalid : Exit::done;
}

Exit checkJava(JavaName const& name, std::size_t& warnings, Deadline& deadline) {
    ZJavaPropertiesFile const properties(name.file.c_str(), name.encoding);
    auto const faults = faultsOf(properties, deadline);
    auto const tell = [&](unsigned int number, std::string const& reason, std::string const& text) {
        std::cout << shown(name.file) << ":" << number << ": " << reason << "\n"
                  << shown(text) << "\n";
    };
    for (auto const& fault : faults)
        tell(fault.number, fault.reason(), fault.text);
    if (!faults.empty()) return Exit::notThereOrInvalid;
    auto const lines = linesOf(name.file);
    for (auto const& line : passedLinesOf(name.file, deadline)) {
        bool const isThere = line.number != 0 && line.number <= lines.size();
        tell(line.number,
             std::string("warning: ") + line.reason() + "; the reader ZJavaProperties skips it",
             isThere ? lines[line.number - 1] : std::string());
        ++warnings;
    }
    return Exit::done;
}

}  // namespace zprop
