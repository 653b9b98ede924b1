#include "zprop/edits/words.h"

#include "zprop/failure.h"

namespace zprop {
namespace {

/// Reads one word at a time from a line.
class WordReader {
  public:
    explicit WordReader(std::string const& text) : line(text) {}

    /// Whether another word follows; stands at its first character then.
    bool findWord() {
        at = line.find_first_not_of(" \t\r", at);
        return at != std::string::npos && line[at] != '#';
    }

    std::string readWord() {
        std::string word;
        while (at < line.size() && !isBlank(line[at]))
            readPiece(word);
        return word;
    }

  private:
    static bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

    void readPiece(std::string& word) {
        char const c = line[at++];
        if (c == '\'')
            readLiteral(word);
        else if (c == '"')
            readQuoted(word);
        else
            word += c == '\\' ? protectedCharacter() : c;
    }

    void readLiteral(std::string& word) {
        std::size_t const end = line.find('\'', at);
        if (end == std::string::npos) throw Failure(Exit::wrongUsage, "open ' in the command");
        word.append(line, at, end - at);
        at = end + 1;
    }

    void readQuoted(std::string& word) {
        for (; at < line.size() && line[at] != '"'; ++at) {
            bool const protects = line[at] == '\\' && at + 1 < line.size() &&
                                  (line[at + 1] == '"' || line[at + 1] == '\\');
            if (protects) ++at;
            word += line[at];
        }
        if (at == line.size()) throw Failure(Exit::wrongUsage, "open \" in the command");
        ++at;
    }

    char protectedCharacter() {
        if (at == line.size())
            throw Failure(Exit::wrongUsage, "backslash at the end of the command");
        return line[at++];
    }

    std::string const& line;
    std::size_t at = 0;
};

}  // namespace

std::vector<std::string> splitWords(std::string const& line) {
    std::vector<std::string> words;
    WordReader reader(line);
    while (reader.findWord())
        words.push_back(reader.readWord());
    return words;
}

void atPlace(std::string const& place, std::function<void()> const& body) {
    try {
        body();
    } catch (Failure& e) {
        throw e.with(place);
    } catch (ZException& e) {
        throw failureOf(e).with(place);
    }
}

void forEachCommand(
    std::istream& input,
    std::function<void(std::vector<std::string> const&, std::string const&)> const& take) {
    std::string line;
    for (int number = 1; std::getline(input, line); ++number) {
        std::string const place = "standard input:" + std::to_string(number) + ": ";
        atPlace(place, [&] {
            if (line.find('\0') != std::string::npos) throw Failure(Exit::wrongUsage, "NUL byte");
            auto const words = splitWords(line);
            if (!words.empty()) take(words, place);
        });
    }
}

}  // namespace zprop
