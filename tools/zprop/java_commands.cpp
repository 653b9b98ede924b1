#include "zprop/java_commands.h"

#include <nlohmann/json.hpp>

#include <iostream>

#include "Z/ZLCString.h"
#include "zprop/java_file.h"

namespace zprop {
namespace {

using Json = nlohmann::ordered_json;

std::string quoted(std::string const& text) { return "\"" + text + "\""; }

std::string atLine(std::string const& file, PassedLine const& line) {
    return file + ":" + std::to_string(line.number) + ": " + line.reason();
}

ZUTF8String inUtf8(std::string const& local) {
    ZUTF8String text{ZLCString(local.c_str())};
    if (text.isEmpty() && !local.empty()) zraise(ZToUTF8Exception(), "zprop", __LINE__);
    return text;
}

/// Throws when the file would not give back what is to be set.
void requireStorable(std::string const& file, std::string const& keyText, ZUTF8String const& key,
                     ZUTF8String const& value) {
    if (ZJavaProperties::isStorable(key, value)) return;
    bool const isKey = !ZJavaProperties::isStorable(key, ZUTF8String());
    throw Failure(Exit::notThereOrInvalid, file + ": cannot set key " + quoted(keyText) + ": " +
                                               (isKey ? "the key" : "the value") +
                                               " would not read back from the file as given");
}

void requireNothingLost(JavaFile const& opened) {
    auto const faults = opened.faults();
    if (faults.empty()) return;
    throw Failure(Exit::notThereOrInvalid,
                  atLine(opened.name, faults.front()) + "; storing would lose this line");
}

void sayCommentsWent(std::string const& file, std::size_t count) {
    if (count == 0) return;
    std::cerr << "zprop: " << file << ": " << count << (count == 1 ? " comment" : " comments")
              << " not kept, as this format keeps none\n";
}

}  // namespace

Exit getJava(std::string const& file, std::string const& key,
             std::optional<std::string> const& fallback, Deadline& deadline) {
    JavaFile const opened = openJavaFile(file, deadline);
    auto const value = opened.valueOf(inUtf8(key));
    if (!value && !fallback)
        throw Failure(Exit::notThereOrInvalid, file + ": there is no key " + quoted(key));
    std::cout << (value ? inLocal(*value) : *fallback) << "\n";
    return Exit::done;
}

Exit listJava(std::string const& file, Deadline& deadline) {
    for (auto const& pair : openJavaFile(file, deadline).pairs()) {
        std::string const value = inLocal(pair.value);
        std::cout << inLocal(pair.key) << (value.empty() ? " =" : " = ") << value << "\n";
    }
    return Exit::done;
}

Exit dumpJavaAsJson(std::string const& file, Deadline& deadline) {
    Json pairs = Json::array();
    for (auto const& pair : openJavaFile(file, deadline).pairs())
        pairs.push_back({{"key", pair.key}, {"value", pair.value}});
    Json const whole = {{"file", inUtf8(file).getChars()}, {"pairs", pairs}};
    try {
        std::cout << whole.dump(2) << "\n";
    } catch (Json::exception&) {  // bytes that are no UTF-8, or half a surrogate pair
        throw Failure(Exit::notThereOrInvalid, file + ": a value has no form in JSON");
    }
    return Exit::done;
}

Exit setJava(std::string const& file, std::string const& keyText, std::string const& valueText,
             Deadline& deadline) {
    ZUTF8String const key = inUtf8(keyText);
    ZUTF8String const value = inUtf8(valueText);
    requireStorable(file, keyText, key, value);
    JavaFile opened;
    std::size_t comments = 0;
    auto const edit = [&] {
        opened = openJavaFile(file, deadline);
        requireNothingLost(opened);
        comments = opened.comments().size();
        opened.properties.setValue(key, value);
    };
    editWith(file, Missing::create, deadline, edit, [&] { opened.properties.store(file.c_str()); });
    sayCommentsWent(file, comments);
    return Exit::done;
}

Exit checkJava(std::string const& file, Deadline& deadline) {
    auto const faults = openJavaFile(file, deadline).faults();
    if (faults.empty()) return Exit::done;
    auto const lines = javaLines(file);
    for (auto const& fault : faults) {
        std::cout << atLine(file, fault) << "\n";
        if (fault.number <= lines.size()) std::cout << lines[fault.number - 1] << "\n";
    }
    return Exit::notThereOrInvalid;
}

}  // namespace zprop
