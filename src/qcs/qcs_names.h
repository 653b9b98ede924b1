/// Names of codesets and locales: what is a name, other spellings, and what the environment asks
/// for.
#ifndef QCS_QCS_NAMES_H
#define QCS_QCS_NAMES_H

#include <optional>
#include <string>
#include <string_view>

namespace qcs {

/// True for a text that may be passed on as a codeset's name: letters, digits and "-_.:".
bool isName(std::string_view text);

/// The canonical spelling of a codeset's name, by built-in names, then by the alias table; the name
/// itself when neither knows it.
std::string canonicalCodeset(std::string_view name);

/// The canonical spelling of a locale's name; empty when it is none.
std::string canonicalLocale(std::string_view name);

/// Name of the locale that the environment asks for, as spelled there; "C" when there is none.
std::string environmentLocale();
/// Canonical name of that locale's codeset.
std::string environmentCodeset();

/// What is wrong with an alias file.
struct AliasFault {
    std::string path;
    std::string text;  // of the first line of another form
    int line;          // its number; 0: the file is too large or cannot be read
};
/// The fault that was found since the last call, if there is one.
std::optional<AliasFault> takeAliasFault();

/// Names the directory of the alias table, which is read at the next look-up that needs it.
void setAliasDirectory(char const* dir);

}  // namespace qcs

#endif
