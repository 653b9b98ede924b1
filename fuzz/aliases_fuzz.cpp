// Any bytes as an alias file, and any text as a name: what a name stands for, and the fault that is
// told of the file, are what a slow reader of lines and words says.
#include <array>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "fuzz_input.h"
#include "qcs/qcs.h"
#include "scratch.h"

namespace {

using fuzz::expect;
using fuzz::Input;
using fuzz::Scratch;

constexpr std::size_t largest = 256UL * 1024;

bool isName(std::string const& word) {
    auto const isAllowed = [](char c) {
        return (c >= '0' && c <= ':') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
               c == '-' || c == '_' || c == '.';
    };
    return !word.empty() && word.size() < 256 && std::all_of(word.begin(), word.end(), isAllowed);
}

/// What two spellings of one name have in common.
std::string keyOf(std::string const& name) {
    std::string key;
    for (char const c : name) {
        if (c >= 'A' && c <= 'Z') key += static_cast<char>(c | ' ');
        if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) key += c;
    }
    return key;
}

std::vector<std::string> wordsOf(std::string const& line) {
    std::vector<std::string> words;
    bool isInside = false;
    for (char const c : line.substr(0, line.find('#'))) {
        bool const isBlank = c == ' ' || c == '\t' || c == '\r';
        if (!isBlank && !isInside) words.emplace_back();
        if (!isBlank) words.back() += c;
        isInside = !isBlank;
    }
    return words;
}

struct Table {
    std::map<std::string, std::string> codesets, locales;
    int faultyLine = 0;  // 0: none
    std::string faultyText;

    explicit Table(std::string const& bytes) {
        std::istringstream stream(bytes);
        std::string line;
        for (int number = 1; std::getline(stream, line); ++number) {
            if (take(wordsOf(line)) || faultyLine != 0) continue;
            faultyLine = number;
            faultyText = line;
        }
    }
    bool take(std::vector<std::string> const& words) {
        if (words.empty()) return true;
        if (words.size() != 3 || !isName(words[1]) || !isName(words[2])) return false;
        if (words[0] != "codeset" && words[0] != "locale") return false;
        (words[0] == "codeset" ? codesets : locales).emplace(keyOf(words[1]), words[2]);
        return true;
    }
    [[nodiscard]] static std::string find(std::map<std::string, std::string> const& in,
                                          std::string const& name) {
        auto const at = in.find(keyOf(name));
        return at == in.end() ? std::string() : at->second;
    }
};

bool isLocaleName(std::string const& name) {
    std::size_t const at = name.find('@');
    return isName(name.substr(0, at)) && (at == name.npos || isName(name.substr(at + 1)));
}

/// "" when the library says that it is no name of a locale.
std::string canonical(std::string const& locale) {
    std::array<char, 1024> room{};
    return qcs_canonical_loc(locale.c_str(), room.data(), room.size()) == 0 ? room.data() : "";
}

/// As the library has it without aliases, which for these names read no file.
class BuiltIn {
  public:
    explicit BuiltIn(std::string const& emptyDirectory) : directory(emptyDirectory) {}
    [[nodiscard]] std::string codeset(std::string const& name) const {
        std::string const locale = canonical("x." + name);
        return locale.size() < 3 ? name : locale.substr(2);
    }
    void use() const { qcs_set_dir(directory.c_str()); }

  private:
    std::string directory;
};

/// The same by the table.
std::string expectedCodeset(BuiltIn const& builtIn, Table const& table, std::string const& name) {
    std::string const known = builtIn.codeset(name);
    if (known != name) return known;
    std::string const alias = Table::find(table.codesets, name);
    // A built-in name whose canonical spelling it is already is no alias.
    std::string const key = keyOf(name);
    bool const isBuiltIn = !key.empty() && key != name && builtIn.codeset(key) == name;
    return alias.empty() || isBuiltIn ? known : builtIn.codeset(alias);
}

std::string expectedLocale(BuiltIn const& builtIn, Table const& table, std::string const& name) {
    std::string const alias = Table::find(table.locales, name);
    std::string rest = alias.empty() ? name : alias;
    std::size_t const at = rest.find('@');
    std::string const modifier = at == rest.npos ? "" : rest.substr(at);
    rest.resize(std::min(at, rest.size()));
    std::size_t const dot = rest.find('.');
    std::string result = rest.substr(0, dot);
    if (result == "POSIX") result = "C";
    if (dot != rest.npos && dot + 1 < rest.size())
        result += "." + expectedCodeset(builtIn, table, rest.substr(dot + 1));
    return result + modifier;
}

void checkFault(std::string const& path, std::string const& bytes, Table const& table) {
    std::array<char, PATH_MAX> name{};
    std::array<char, 80> text{};
    int line = -1;
    bool const isTooLarge = bytes.size() > largest;
    bool const isTold = qcs_alias_fault(name.data(), name.size(), text.data(), text.size(), &line);
    expect(isTold == (isTooLarge || table.faultyLine != 0), "a fault that is, or is not, told");
    expect(qcs_alias_fault(name.data(), name.size(), text.data(), text.size(), &line) == 0,
           "a fault that is told twice");
    if (!isTold) return;
    expect(name.data() == path && line == (isTooLarge ? 0 : table.faultyLine), "another fault");
    std::string const start = isTooLarge ? "" : table.faultyText.substr(0, text.size() - 1);
    expect(std::string(text.data()) == start.c_str(), "another line");
}

}  // namespace

/// Names up to an empty one, by how many KiB the file is longer, and the file.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static Scratch const scratch;
    static Scratch const emptyScratch;
    Input input(data, size);
    std::vector<std::string> names;
    for (std::string name = input.text(); !name.empty(); name = input.text())
        names.push_back(name.substr(0, 200));
    std::string const padding(input.below(8) == 7 ? (200 + input.below(64)) * 1024UL : 0, '#');
    std::string const bytes = input.remainder() + padding;
    scratch.write("aliases", bytes);
    Table const table(bytes.size() > largest ? std::string() : bytes);

    std::vector<std::string> expected;
    BuiltIn const builtIn(emptyScratch.path());
    builtIn.use();
    for (auto const& name : names)
        expected.push_back(isLocaleName(name) ? expectedLocale(builtIn, table, name) : "");
    qcs_set_dir(scratch.path().c_str());
    for (std::size_t i = 0; i < names.size(); ++i)
        expect(canonical(names[i]) == expected[i], "another name");
    static_cast<void>(canonical("read-it"));
    checkFault(scratch.path("aliases"), bytes, table);
    return 0;
}
