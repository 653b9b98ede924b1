#include "zprop/edits/edits.h"

#include "Z/ZList.h"
#include "zprop/edits/words.h"

namespace zprop {
namespace {

std::string place(std::string const& stanza, std::string const& key) {
    std::string text = "stanza \"" + stanza + "\"";
    return key.empty() ? text : "key \"" + key + "\" in " + text;
}

void requirePresent(Document& properties, std::string const& file, std::string const& stanza,
                    std::string const& key) {
    bool const present = key.empty() ? properties.exists(stanza.c_str())
                                     : properties.exists(stanza.c_str(), key.c_str());
    if (!present)
        throw Failure(Exit::notThereOrInvalid, file + ": there is no " + place(stanza, key));
}

/// Runs an edit of the library; a refused one says what was asked and `reason`.
template <class Edit>
void guarded(std::string const& file, std::string const& what, std::string const& reason,
             Edit edit) {
    try {
        edit();
    } catch (ZInvalidParameterException&) {
        throw Failure(Exit::notThereOrInvalid, file + ": " + what + ": " + reason);
    }
}

bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

bool hasBlankEnds(std::string const& value) {
    return !value.empty() && (isBlank(value.front()) || isBlank(value.back()));
}

/// Why a value that the library takes is not set all the same; empty: it is.
std::string lossOf(Document& properties, SetEdit const& edit) {
    if (!edit.obfuscate && hasBlankEnds(edit.value))
        return "the file does not keep blanks at the ends of a value; --obfuscate does";
    bool const isWhole = !edit.add && !edit.replaceAll && !edit.replace;
    unsigned int const count = properties.numValues(edit.stanza.c_str(), edit.key.c_str());
    if (!isWhole || count < 2) return {};
    return "it has " + std::to_string(count) +
           " values; --replace-all replaces them by this one, --replace OLD one of them, and --add "
           "adds one";
}

/// Why the library refuses to set a value; it looks at the key's kind before the text.
std::string refusalOf(Document& properties, SetEdit const& edit) {
    bool const exists = properties.exists(edit.stanza.c_str(), edit.key.c_str());
    if (exists && !edit.value.empty()) {
        bool const obfuscated = properties.isObfuscated(edit.stanza.c_str(), edit.key.c_str());
        if (obfuscated != edit.obfuscate)
            return obfuscated ? "its values are obfuscated; give --obfuscate, or unset it first"
                              : "its values are plain; unset it first to obfuscate them";
    }
    if ((edit.add || edit.replace) && edit.value.empty())
        return "a value among others cannot be empty";
    return "stanza, key or value would not read back from the file as given";
}

/// The key gets these values, of the kind that the edit says, and keeps its place.
void takeValues(Document& properties, SetEdit const& edit, ZArrayList& values) {
    char const* const stanza = edit.stanza.c_str();
    char const* const key = edit.key.c_str();
    int const obfuscated = edit.obfuscate ? 1 : 0;
    bool const isOtherKind = properties.numValues(stanza, key) != 0 && values.size() != 0 &&
                             properties.isObfuscated(stanza, key) != edit.obfuscate;
    if (isOtherKind) zraise(ZInvalidParameterException(), "zprop", __LINE__);
    if (edit.obfuscate)
        properties.deleteKey(stanza, key);
    else
        properties.setValue(stanza, key, "", 0);
    if (values.size() != 0) properties.addValues(stanza, key, values, obfuscated);
}

/// Sets one value of several, or removes it when there is no `value`.
void changeValue(Document& properties, std::string const& file, std::string const& stanza,
                 std::string const& key, std::string const& old, char const* value) {
    requirePresent(properties, file, stanza, key);
    ZStanzaValueIterator values(properties, stanza.c_str(), key.c_str());
    bool isFound = false;
    while (values.next()) {
        if (old != values.getValue()) continue;
        isFound = true;
        if (value != nullptr)
            values.changeValue(value);
        else
            values.removeValue();
    }
    // Without the value, which may be a secret.
    if (!isFound)
        throw Failure(Exit::notThereOrInvalid,
                      file + ": " + place(stanza, key) + " has no such value");
}

}  // namespace

void apply(Document& properties, std::string const& file, SetEdit const& edit) {
    std::string const what = "cannot set " + place(edit.stanza, edit.key);
    std::string const loss = lossOf(properties, edit);
    if (!loss.empty()) throw Failure(Exit::notThereOrInvalid, file + ": " + what + ": " + loss);
    std::string const reason = refusalOf(properties, edit);
    char const* const stanza = edit.stanza.c_str();
    char const* const key = edit.key.c_str();
    int const obfuscated = edit.obfuscate ? 1 : 0;
    guarded(file, what, reason, [&] {
        if (edit.replace) {
            bool const isOtherKind = (properties.isObfuscated(stanza, key) ? 1 : 0) != obfuscated;
            if (isOtherKind) zraise(ZInvalidParameterException(), "zprop", __LINE__);
            changeValue(properties, file, edit.stanza, edit.key, *edit.replace, edit.value.c_str());
        } else if (edit.add) {
            properties.addValue(stanza, key, edit.value.c_str(), obfuscated);
        } else {
            properties.setValue(stanza, key, edit.value.c_str(), obfuscated);
        }
    });
}

void apply(Document& properties, std::string const& file, UnsetEdit const& edit) {
    char const* const stanza = edit.stanza.c_str();
    char const* const key = edit.key.c_str();
    requirePresent(properties, file, edit.stanza, edit.key);
    if (edit.value) changeValue(properties, file, edit.stanza, edit.key, *edit.value, nullptr);
    if (edit.key.empty())
        properties.deleteStanza(stanza);
    else if (!edit.value || properties.numValues(stanza, key) == 0)
        properties.deleteKey(stanza, key);
}

void apply(Document& properties, std::string const& file, CommentEdit const& edit) {
    if (!edit.stanza.empty()) requirePresent(properties, file, edit.stanza, edit.key);
    guarded(file, "cannot add the comment", "it would not read back from the file as given", [&] {
        if (edit.stanza.empty())
            properties.addFileComment(edit.text.c_str());
        else if (edit.key.empty())
            properties.addStanzaComment(edit.stanza.c_str(), edit.text.c_str());
        else
            properties.addEntryComment(edit.stanza.c_str(), edit.key.c_str(), edit.text.c_str());
    });
}

void merge(Document& properties, std::string const& file, Document const& other,
           std::string const& otherFile) {
    ZPropertiesIterator stanzas(other);
    while (stanzas.next()) {
        std::string const stanza = stanzas.getName();
        if (stanza.empty() || stanza == "configuration-database") continue;
        properties.addStanza(stanza.c_str());
        ZPropertiesIterator keys(other, stanza.c_str());
        while (keys.next()) {
            char const* const key = keys.getName();
            ZArrayList values(1, 1);
            other.getValues(stanza.c_str(), key, values, zpropLocalCodeset);
            SetEdit edit;
            edit.stanza = stanza;
            edit.key = key;
            edit.value = values.size() == 0 ? "" : "a value";
            edit.obfuscate = other.isObfuscated(stanza.c_str(), key);
            std::string const reason = refusalOf(properties, edit);
            guarded(file, "cannot take " + place(stanza, key) + " from " + otherFile, reason,
                    [&] { takeValues(properties, edit, values); });
        }
    }
}

std::vector<Change> readChanges(std::istream& input) {
    std::vector<Change> changes;
    forEachCommand(input, [&](std::vector<std::string> const& words, std::string const& place) {
        Edit const edit = parseEdit(words);
        changes.emplace_back([edit, place](Document& properties, std::string const& file) {
            auto const change = [&](auto const& one) { apply(properties, file, one); };
            atPlace(place, [&] { std::visit(change, edit); });
        });
    });
    return changes;
}

}  // namespace zprop
