#include "torture/cells.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace torture {
namespace {

constexpr unsigned int stanzas = 10;

/// Longer ones in a large file, which else takes longer to look through than to store.
unsigned int bytesPerLine(Cell const& cell) { return cell.size > 100000 ? 400 : 60; }

/// A value of one generation, or (0) of all.
std::string valueOf(unsigned int generation, unsigned int number, std::size_t length) {
    char head[40];
    if (generation == 0)
        std::snprintf(head, sizeof head, "always %05u ", number);
    else
        std::snprintf(head, sizeof head, "g%06u %05u ", generation, number);
    std::string value = head;
    value.append(length, static_cast<char>('a' + number % 26));
    return value;
}

/// About ten values in the middle third of the file.
bool isInMiddle(unsigned int number, unsigned int count) {
    unsigned int const step = std::max(1U, count / 30);
    return number >= count / 3 && number <= 2 * count / 3 && number % step == 0;
}

std::size_t extraLength(Cell const& cell, bool isEven) {
    bool const isLong =
        (cell.kind == Kind::longer && isEven) || (cell.kind == Kind::shorter && !isEven);
    // A line has to stay below 8 kB, which is as much as one read takes.
    return isLong ? std::clamp<std::size_t>(cell.size / 100, 100, 4000) : 0;
}

Item ordinaryItem(Cell const& cell, unsigned int number, unsigned int generation) {
    unsigned int const count = cell.size / bytesPerLine(cell);
    bool const isSecret = cell.kind == Kind::companion && number % 5 == 4;
    bool const changes = isSecret || cell.kind == Kind::everything || isInMiddle(number, count);
    char key[20];
    std::snprintf(key, sizeof key, "k%05u", number);
    std::size_t const length =
        bytesPerLine(cell) - 24 + (changes ? extraLength(cell, generation % 2 == 0) : 0);
    return {"s" + std::to_string(number * stanzas / count), key,
            valueOf(changes ? generation : 0, number, length), isSecret, false};
}

/// What the last four kinds are about, in the middle of the file; `keeper` holds the companion.
void addMover(Content& content, Cell const& cell, unsigned int generation) {
    if (cell.kind < Kind::hide) return;
    bool const isEven = generation % 2 == 0;
    bool const comes = cell.kind == Kind::hide || cell.kind == Kind::firstSecret;
    bool const isSecret = isEven == comes;
    bool const isAlways = cell.kind == Kind::hide || cell.kind == Kind::reveal;
    if (isAlways) content.push_back({"s4", "keeper", valueOf(generation, 1, 30), true, false});
    bool const isThere = isAlways || isSecret;
    content.push_back({"s5", "mover", isThere ? valueOf(generation, 2, 200) : "", isSecret, true});
}

}  // namespace

char const* nameOf(Kind kind) {
    static char const* const names[] = {"longer",          "shorter",        "equal length",
                                        "all changed",     "with companion", "plain to secret",
                                        "secret to plain", "first secret",   "last secret"};
    return names[static_cast<int>(kind)];
}

std::string nameOf(Cell const& cell) {
    return std::string(nameOf(cell.kind)) + ", " + std::to_string(cell.size / 1000) + " kB";
}

Content contentOf(Cell const& cell, unsigned int generation) {
    Content content;
    unsigned int const count = cell.size / bytesPerLine(cell);
    content.reserve(count + 2);
    for (unsigned int number = 0; number < count; ++number) {
        if (number == count / 2) addMover(content, cell, generation);
        content.push_back(ordinaryItem(cell, number, generation));
    }
    return content;
}

unsigned int generationOf(std::string const& value) {
    bool const isOfOne = value.size() > 1 && value[0] == 'g';
    return isOfOne ? static_cast<unsigned int>(std::strtoul(value.c_str() + 1, nullptr, 10)) : 0;
}

void change(ZStanzaFileProperties& properties, Content const& from, Content const& to) {
    for (std::size_t i = 0; i < to.size(); ++i) {
        Item const& item = to[i];
        Item const* const old = from.empty() ? nullptr : &from[i];
        if (old != nullptr && old->value == item.value && old->isSecret == item.isSecret) continue;
        bool const goes = old != nullptr && (old->isSecret != item.isSecret || item.value.empty());
        if (goes) properties.deleteKey(item.stanza.c_str(), item.key.c_str());
        if (item.value.empty()) continue;
        properties.setValue(item.stanza.c_str(), item.key.c_str(), item.value.c_str(),
                            item.isSecret ? 1 : 0);
    }
}

}  // namespace torture
