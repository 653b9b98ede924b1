/// What is stored again and again: contents that tell by themselves of which generation they are.
#ifndef ZFC_TORTURE_CELLS_H
#define ZFC_TORTURE_CELLS_H

#include <string>
#include <vector>

#include "Z/ZStanzaFileProperties.h"

namespace torture {

/// How an even generation differs from the odd one before it. Only these steps are killed; the way
/// back is stored in peace.
enum class Kind {
    longer,
    shorter,
    equal,        // a third of the file, in place
    everything,   // each value, all of them as long as before
    companion,    // values of both files
    hide,         // a plain value becomes a secret
    reveal,       // a secret becomes a plain value
    firstSecret,  // the companion is made
    lastSecret    // the companion goes
};
constexpr Kind allKinds[] = {Kind::longer,     Kind::shorter,     Kind::equal,
                             Kind::everything, Kind::companion,   Kind::hide,
                             Kind::reveal,     Kind::firstSecret, Kind::lastSecret};
constexpr unsigned int allSizes[] = {3000, 60000, 1000000};  // bytes of the main file, about

struct Cell {
    Kind kind;
    unsigned int size;
};

[[nodiscard]] char const* nameOf(Kind kind);
/// As "hide, 60 kB".
[[nodiscard]] std::string nameOf(Cell const& cell);

struct Item {
    std::string stanza;
    std::string key;
    std::string value;  // empty: the key is not there in this generation
    bool isSecret;
    bool moves;  // between the two files, or into and out of the second
};
/// The keys of a cell; the same ones, in the same order, in every generation.
using Content = std::vector<Item>;

[[nodiscard]] Content contentOf(Cell const& cell, unsigned int generation);

/// The generation that a value tells; 0: it is the same in all of them.
[[nodiscard]] unsigned int generationOf(std::string const& value);

/// Makes the object hold `to`, when it holds `from` (empty: nothing).
void change(ZStanzaFileProperties& properties, Content const& from, Content const& to);

}  // namespace torture

#endif
