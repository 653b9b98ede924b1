/// The edits of properties files.
#include "Z/ZException.h"
#include "zprop/edits/words.h"
#include "zprop/java/commands.h"

namespace zprop {
namespace {

Failure missingKey(std::string const& file, std::string const& key) {
    return {Exit::notThereOrInvalid, file + ": there is no key \"" + key + "\""};
}

JavaEdit setting(std::string const& key, std::string const& value) {
    return [key = inUtf8(key), value = inUtf8(value)](ZJavaPropertiesFile& properties,
                                                      std::string const&) {
        properties.setValue(key, value);
    };
}

JavaEdit unsetting(std::string const& key) {
    return
        [name = key, key = inUtf8(key)](ZJavaPropertiesFile& properties, std::string const& file) {
            if (!properties.deleteKey(key)) throw missingKey(file, name);
        };
}

JavaEdit commenting(std::string const& text, std::string const& key) {
    return [=](ZJavaPropertiesFile& properties, std::string const& file) {
        ZUTF8String const name = inUtf8(key);
        if (!key.empty() && !properties.contains(name)) throw missingKey(file, key);
        try {
            if (key.empty())
                properties.addComment(inUtf8(text));
            else
                properties.addComment(name, inUtf8(text));
        } catch (ZInvalidParameterException&) {
            throw Failure(Exit::notThereOrInvalid,
                          file + ": cannot add the comment: it would not read back as one line");
        }
    };
}

void requireNoStanza(bool isMissing) {
    if (!isMissing)
        throw Failure(Exit::wrongUsage, "a .properties file has no stanzas: KEY alone, or --key");
}

}  // namespace

JavaEdit javaEdit(SetEdit const& edit) {
    if (edit.add || edit.replaceAll || edit.replace || edit.obfuscate)
        throw Failure(Exit::wrongUsage,
                      "--add, --replace, --replace-all and --obfuscate are for stanza files");
    return setting(edit.key, edit.value);
}

JavaEdit javaEdit(UnsetEdit const& edit) {
    if (edit.value) throw Failure(Exit::wrongUsage, "--value is for stanza files");
    requireNoStanza(edit.key.empty());
    return unsetting(edit.stanza);
}

JavaEdit javaEdit(CommentEdit const& edit) {
    requireNoStanza(edit.stanza.empty());
    return commenting(edit.text, edit.key);
}

JavaEdit javaMerge(JavaName const& other, Deadline& deadline) {
    ZJavaPropertiesFile source(other.file.c_str(), other.encoding);
    load(source, deadline);
    return [pairs = pairsOf(source)](ZJavaPropertiesFile& properties, std::string const&) {
        for (auto const& pair : pairs)
            properties.setValue(stringOf(pair.key), stringOf(pair.value));
    };
}

JavaEdit readJavaEdits(std::istream& input) {
    std::vector<JavaEdit> edits;
    forEachCommand(input, [&](std::vector<std::string> const& words, std::string const& place) {
        JavaEdit const edit =
            std::visit([](auto const& one) { return javaEdit(one); }, parsePairEdit(words));
        edits.emplace_back([edit, place](ZJavaPropertiesFile& properties, std::string const& file) {
            atPlace(place, [&] { edit(properties, file); });
        });
    });
    return [edits](ZJavaPropertiesFile& properties, std::string const& file) {
        for (auto const& edit : edits)
            edit(properties, file);
    };
}

JavaEdit javaRewrite(Comments comments) {
    return [comments](ZJavaPropertiesFile& properties, std::string const&) {
        properties.rewrite(comments == Comments::keep ? 1 : 0);
    };
}

}  // namespace zprop
