/// The edits that the text of a file is better for than its values, because the line has a place:
/// rename and uncomment.
#include <string_view>

#include "zprop/edits/edits.h"

namespace zprop {
namespace {

/// The lines of a text as the library writes it, and which of them a stanza has.
class NormalText {
  public:
    explicit NormalText(std::string const& text) {
        for (std::size_t at = 0; at < text.size();) {
            std::size_t const feed = text.find('\n', at);
            lines.push_back(text.substr(at, feed - at));
            at = feed + 1;
        }
    }

    /// Calls edit(line) for each line below the header until it answers true.
    template <class Edit>
    bool anyOf(std::string const& stanza, Edit edit) {
        bool isInside = false;
        for (std::string& line : lines) {
            if (!line.empty() && line.front() == '[')
                isInside = line == "[" + stanza + "]";
            else if (isInside && edit(line))
                return true;
        }
        return false;
    }

    [[nodiscard]] std::string text() const {
        std::string text;
        for (std::string const& line : lines)
            (text += line) += '\n';
        return text;
    }

  private:
    std::vector<std::string> lines;
};

std::string atKey(std::string const& file, std::string const& stanza, std::string const& key,
                  std::string const& reason) {
    return file + ": key \"" + key + "\" in stanza \"" + stanza + "\": " + reason;
}

/// Of the first comment that, but for blanks, begins with "#KEY=".
bool isTemplate(std::string const& line, std::string const& key) {
    return ZPCategoryBasedCache::isCommentWeWant(("#" + key + "=").c_str(), line.c_str());
}

std::string asKeyLine(std::string const& comment, std::string const& key) {
    std::string const value = comment.substr(comment.find('=') + 1);
    std::size_t const start = value.find_first_not_of(" \t\v\f\r");
    return key + " =" + (start == value.npos ? "" : " " + value.substr(start));
}

void renameObfuscated(Document& properties, RenameEdit const& edit) {
    ZArrayList values(1, 1);
    properties.getValues(edit.stanza.c_str(), edit.key.c_str(), values, zpropLocalCodeset);
    properties.deleteKey(edit.stanza.c_str(), edit.key.c_str());
    properties.addValues(edit.stanza.c_str(), edit.name.c_str(), values, 1);
}

/// Each line of the key at its place.
void renamePlain(Document& properties, RenameEdit const& edit) {
    NormalText text(properties.text());
    std::string const start = edit.key + " =";
    text.anyOf(edit.stanza, [&](std::string& line) {
        if (line.compare(0, start.size(), start) == 0) line.replace(0, edit.key.size(), edit.name);
        return false;
    });
    properties.setText(text.text());
}

}  // namespace

void apply(Document& properties, std::string const& file, RenameEdit const& edit) {
    char const* const stanza = edit.stanza.c_str();
    auto const refuse = [&](std::string const& reason) {
        throw Failure(Exit::notThereOrInvalid, atKey(file, edit.stanza, edit.key, reason));
    };
    if (!properties.exists(stanza, edit.key.c_str())) refuse("is not there");
    if (properties.exists(stanza, edit.name.c_str()))
        refuse("\"" + edit.name + "\" is there already");
    if (!ZPCategoryBasedCache::isStorableKey(edit.name.c_str()))
        refuse("\"" + edit.name + "\" would not read back from the file as a key");
    if (properties.isObfuscated(stanza, edit.key.c_str()))
        return renameObfuscated(properties, edit);
    bool fits = true;
    ZStanzaValueIterator values(properties, stanza, edit.key.c_str());
    while (values.next())
        fits &= ZPCategoryBasedCache::isStorableValue(edit.name.c_str(), values.getValue(), 0);
    if (!fits) refuse("the line would be too long to be read back");
    renamePlain(properties, edit);
}

void apply(Document& properties, std::string const& file, UncommentEdit const& edit) {
    auto const refuse = [&](char const* reason) {
        throw Failure(Exit::notThereOrInvalid, atKey(file, edit.stanza, edit.key, reason));
    };
    if (properties.exists(edit.stanza.c_str(), edit.key.c_str())) refuse("is set already");
    NormalText text(properties.text());
    std::string line;
    bool const isFound = text.anyOf(edit.stanza, [&](std::string& comment) {
        if (!isTemplate(comment, edit.key)) return false;
        line = comment = asKeyLine(comment, edit.key);
        return true;
    });
    if (!isFound) refuse("the stanza has no commented-out line \"# KEY = ...\" of it");
    bool const isStorable = ZPCategoryBasedCache::isStorableKey(edit.key.c_str()) &&
                            line.size() <= ZPCategoryBasedCache::maxLine;
    if (!isStorable) refuse("the line would not read back from the file as that key");
    properties.setText(text.text());
}

}  // namespace zprop
