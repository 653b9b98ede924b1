#include "zprop/java_commands.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <iostream>

#include "Z/ZException.h"
#include "zprop/words.h"

namespace zprop {
namespace {

using Json = nlohmann::ordered_json;
using Edit = std::function<void(ZJavaPropertiesFile&)>;

std::string quoted(std::string const& text) { return "\"" + text + "\""; }

Failure missingKey(std::string const& file, std::string const& key) {
    return {Exit::notThereOrInvalid, file + ": there is no key " + quoted(key)};
}

// -------------------------------------------------------------------------------------- the edits

Edit setting(std::string const& key, std::string const& value) {
    return [key = inUtf8(key), value = inUtf8(value)](ZJavaPropertiesFile& properties) {
        properties.setValue(key, value);
    };
}

Edit unsetting(std::string const& key) {
    return [name = key, key = inUtf8(key)](ZJavaPropertiesFile& properties) {
        if (!properties.deleteKey(key)) throw missingKey(properties.getPath(), name);
    };
}

Edit commenting(std::string const& text, std::string const& key) {
    return [=](ZJavaPropertiesFile& properties) {
        ZUTF8String const name = inUtf8(key);
        if (!key.empty() && !properties.contains(name)) throw missingKey(properties.getPath(), key);
        try {
            if (key.empty())
                properties.addComment(inUtf8(text));
            else
                properties.addComment(name, inUtf8(text));
        } catch (ZInvalidParameterException&) {
            throw Failure(Exit::notThereOrInvalid,
                          std::string(properties.getPath()) +
                              ": cannot add the comment: it would not read back as one line");
        }
    };
}

/// One line of `zprop edit`.
class EditLine {
  public:
    EditLine() : app("one edit", "zprop edit") {
        app.require_subcommand(1);
        app.set_help_flag();
        auto* const set = app.add_subcommand("set");
        addKey(*set)->required();
        set->add_option("VALUE", text)->required();
        addKey(*app.add_subcommand("unset"))->required();
        auto* const comment = app.add_subcommand("comment");
        comment->add_option("TEXT", text)->required();
        requireText(comment->add_option("--key", key));
    }

    Edit parse(std::vector<std::string> words) {
        std::reverse(words.begin(), words.end());  // CLI11 takes them from the back
        app.parse(words);
        if (app.got_subcommand("set")) return setting(key, text);
        if (app.got_subcommand("unset")) return unsetting(key);
        return commenting(text, key);
    }

  private:
    CLI::Option* addKey(CLI::App& command) { return requireText(command.add_option("KEY", key)); }

    CLI::App app;
    std::string key;
    std::string text;
};

/// Runs `body` for a line of standard input; what fails tells the line.
template <class Body>
auto atLine(int number, Body body) {
    std::string const place = "standard input:" + std::to_string(number) + ": ";
    try {
        return body();
    } catch (CLI::ParseError& e) {
        throw Failure(Exit::wrongUsage, place + e.what());
    } catch (Failure& e) {
        throw Failure(e.exitCode(), place + e.what());
    }
}

std::vector<Edit> readEdits(std::istream& input) {
    std::vector<Edit> edits;
    std::string line;
    for (int number = 1; std::getline(input, line); ++number) {
        auto const words = atLine(number, [&] { return splitWords(line); });
        if (words.empty()) continue;
        Edit const edit = atLine(number, [&] { return EditLine().parse(words); });
        edits.emplace_back(
            [=](ZJavaPropertiesFile& properties) { atLine(number, [&] { edit(properties); }); });
    }
    return edits;
}

}  // namespace

Exit getJava(JavaName const& name, std::string const& key,
             std::optional<std::string> const& fallback, Deadline& deadline) {
    ZJavaPropertiesFile properties(name.file.c_str(), name.encoding);
    load(properties, deadline);
    auto const value = valueOf(properties, inUtf8(key));
    if (!value && !fallback) throw missingKey(name.file, key);
    std::cout << (value ? inLocal(*value) : *fallback) << "\n";
    return Exit::done;
}

Exit listJava(JavaName const& name, Deadline& deadline) {
    ZJavaPropertiesFile properties(name.file.c_str(), name.encoding);
    load(properties, deadline);
    for (auto const& pair : pairsOf(properties))
        std::cout << shown(pair.key) << (pair.value.empty() ? " =" : " = ") << shown(pair.value)
                  << "\n";
    return Exit::done;
}

Exit dumpJavaAsJson(JavaName const& name, Deadline& deadline) {
    ZJavaPropertiesFile properties(name.file.c_str(), name.encoding);
    load(properties, deadline);
    Json pairs = Json::array();
    for (auto const& pair : pairsOf(properties))
        pairs.push_back({{"key", pair.key}, {"value", pair.value}});
    Json const whole = {{"file", inUtf8(name.file).getChars()}, {"pairs", pairs}};
    std::cout << whole.dump(2) << "\n";
    return Exit::done;
}

Exit setJava(JavaName const& name, std::string const& key, std::string const& value,
             Deadline& deadline) {
    editJavaFile(name, Missing::create, deadline, setting(key, value));
    return Exit::done;
}

Exit editJava(JavaName const& name, UnsetEdit const& edit, Deadline& deadline) {
    if (!edit.key.empty())
        throw Failure(Exit::wrongUsage,
                      name.file + ": a properties file has no stanzas; needs KEY");
    editJavaFile(name, Missing::isAnError, deadline, unsetting(edit.stanza));
    return Exit::done;
}

Exit editJava(JavaName const& name, CommentEdit const& edit, Deadline& deadline) {
    if (!edit.stanza.empty())
        throw Failure(Exit::wrongUsage, name.file + ": a properties file has no stanzas");
    editJavaFile(name, Missing::isAnError, deadline, commenting(edit.text, edit.key));
    return Exit::done;
}

Exit editJavaByLines(JavaName const& name, std::istream& input, Deadline& deadline) {
    auto const edits = readEdits(input);
    editJavaFile(name, Missing::create, deadline, [&](ZJavaPropertiesFile& properties) {
        for (auto const& edit : edits)
            edit(properties);
    });
    return Exit::done;
}

Exit rewriteJava(JavaName const& name, Comments comments, Deadline& deadline) {
    editJavaFile(name, Missing::isAnError, deadline, [&](ZJavaPropertiesFile& properties) {
        properties.rewrite(comments == Comments::keep ? 1 : 0);
    });
    return Exit::done;
}

Exit checkJava(JavaName const& name, Deadline& deadline) {
    ZJavaPropertiesFile const properties(name.file.c_str(), name.encoding);
    auto const faults = faultsOf(properties, deadline);
    for (auto const& fault : faults)
        std::cout << name.file << ":" << fault.number << ": " << fault.reason() << "\n"
                  << fault.text << "\n";
    return faults.empty() ? Exit::done : Exit::notThereOrInvalid;
}

}  // namespace zprop
