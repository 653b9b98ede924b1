/// What a loaded stanza file holds, as the commands print it.
#ifndef ZFC_TOOLS_ZPROP_READS_ANSWERS_H
#define ZFC_TOOLS_ZPROP_READS_ANSWERS_H

#include <map>
#include <string>
#include <vector>

#include "zprop/open.h"
#include "zprop/reads/read_commands.h"

namespace zprop {

constexpr char hiddenText[] = "(obfuscated)";

/// The values of a key in order, as bytes of the local codeset.
[[nodiscard]] std::vector<std::string> valuesOf(ZPropertiesInterface const& properties,
                                                std::string const& stanza, std::string const& key);
/// The stanzas, the keys of a stanza (the nameless one has none), in file order.
[[nodiscard]] std::vector<std::string> stanzasOf(ZStanzaFileProperties const& properties);
[[nodiscard]] std::vector<std::string> keysOf(ZStanzaFileProperties const& properties,
                                              std::string const& stanza);

/// What becomes of the values that are obfuscated.
enum class Secrets { leftOut, hidden, revealed };

/// The assignments of a shell, each name once.
class Assignments {
  public:
    /// Prints the values, joined by line feeds, for the variable that the path names, as well as
    /// one can. Throws Failure when an earlier one has this name; `place` is for that.
    void print(std::string const& path, std::string const& place,
               std::vector<std::string> const& values);

  private:
    std::map<std::string, std::string> places;  // of each name
};

/// Prints stanzas, keys and values, in the styles "lines" (with `header` in front of each stanza's
/// name), "nul" (records "STANZA\nKEY\nVALUE", or "STANZA\nKEY" for a key without a value) and
/// "shell" (STANZA_KEY='VALUE', several values joined by line feeds). Throws Failure where two keys
/// would have one name of the shell.
void printStanzas(ZStanzaFileProperties const& properties, std::vector<std::string> const& stanzas,
                  char const* header, Secrets secrets, Style style);

/// Prints where an answer comes from and the answer: "PLACE: ANSWER", both with a line feed between
/// them and a NUL behind, or as two words.
void printPlaced(std::string const& place, std::string const& answer, Style style);

/// Prints one text: its line, with a NUL behind it, or as a word.
void printText(std::string const& text, Style style);

}  // namespace zprop

#endif
