#include "qcs/qcs_aliases.h"

#include "qcs/qcs_names.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace qcs {
namespace {

class File {
  public:
    // Non-blocking, so that a FIFO in the file's place is passed over, not waited for.
    explicit File(std::string const& path)
        : descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {}
    ~File() {
        if (descriptor >= 0) close(descriptor);
    }
    File(File const&) = delete;
    File& operator=(File const&) = delete;

    [[nodiscard]] bool isRegular() const {
        struct stat status {};
        return descriptor >= 0 && fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    }

    /// The whole content; nothing when it is longer than `limit` or cannot be read.
    [[nodiscard]] std::string content(std::size_t limit) const {
        std::string bytes;
        std::array<char, 4096> block{};
        while (bytes.size() <= limit) {
            ssize_t const got = read(descriptor, block.data(), block.size());
            if (got == 0) return bytes;
            if (got < 0 && errno != EINTR) break;
            if (got > 0) bytes.append(block.data(), static_cast<std::size_t>(got));
        }
        return {};
    }

  private:
    int descriptor;
};

bool isAlnum(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

/// Takes the next word off the front of `line`; empty at its end.
std::string_view takeWord(std::string_view& line) {
    constexpr std::string_view blanks = " \t\r";
    line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
    std::string_view const word = line.substr(0, line.find_first_of(blanks));
    line.remove_prefix(word.size());
    return word;
}

std::string found(std::unordered_map<std::string, std::string> const& in, std::string_view alias) {
    auto const at = in.find(nameKey(alias));
    return at == in.end() ? std::string() : at->second;
}

}  // namespace

std::string nameKey(std::string_view name) {
    std::string key;
    for (char const c : name) {
        if (isAlnum(c)) key += static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    }
    return key;
}

AliasTable AliasTable::load(std::string const& path) {
    AliasTable table;
    File const file(path);
    if (!file.isRegular()) return table;
    std::string const content = file.content(maxFileSize);
    std::string_view rest = content;
    while (!rest.empty()) {
        std::string_view const line = rest.substr(0, rest.find('\n'));
        table.addLine(line.substr(0, line.find('#')));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    }
    return table;
}

void AliasTable::addLine(std::string_view line) {
    std::string_view const kind = takeWord(line);
    std::string_view const alias = takeWord(line);
    std::string_view const name = takeWord(line);
    if (!isName(alias) || !isName(name) || !takeWord(line).empty()) return;
    if (kind == "codeset") codesets.emplace(nameKey(alias), name);
    if (kind == "locale") locales.emplace(nameKey(alias), name);
}

std::string AliasTable::codeset(std::string_view alias) const { return found(codesets, alias); }

std::string AliasTable::locale(std::string_view alias) const { return found(locales, alias); }

}  // namespace qcs
