#include "qcs/qcs_names.h"

#include <fcntl.h>
#include <langinfo.h>
#include <locale.h>
#include <sys/auxv.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <unordered_map>
#include <utility>

#include "qcs/qcs_fork.h"

namespace qcs {
namespace {

constexpr std::size_t maxNameLength = 255;

struct Spelling {
    std::string_view key;
    std::string_view name;
};

/// Codesets that users spell in ways that iconv does not know, or whose spelling is shown. A key is
/// what nameKey() makes of the spelling: lower-case letters and digits alone.
constexpr std::array<Spelling, 40> spellings{{
    {"646", "US-ASCII"},
    {"ansix341968", "US-ASCII"},
    {"ansix341986", "US-ASCII"},
    {"ascii", "US-ASCII"},
    {"iso646us", "US-ASCII"},
    {"usascii", "US-ASCII"},
    {"utf8", "UTF-8"},
    {"isoir193", "UTF-8"},
    {"latin1", "ISO-8859-1"},
    {"latin2", "ISO-8859-2"},
    {"latin3", "ISO-8859-3"},
    {"latin4", "ISO-8859-4"},
    {"latin5", "ISO-8859-9"},
    {"latin6", "ISO-8859-10"},
    {"latin7", "ISO-8859-13"},
    {"latin8", "ISO-8859-14"},
    {"latin9", "ISO-8859-15"},
    {"latin10", "ISO-8859-16"},
    {"koi8r", "KOI8-R"},
    {"koi8u", "KOI8-U"},
    {"sjis", "Shift_JIS"},
    {"shiftjis", "Shift_JIS"},
    {"xsjis", "Shift_JIS"},
    {"eucjp", "EUC-JP"},
    {"ujis", "EUC-JP"},
    {"xeucjp", "EUC-JP"},
    {"euckr", "EUC-KR"},
    {"euccn", "GB2312"},
    {"gb2312", "GB2312"},
    {"gbk", "GBK"},
    {"gb18030", "GB18030"},
    {"big5", "BIG5"},
    {"bigfive", "BIG5"},
    {"big5hkscs", "BIG5-HKSCS"},
    {"euctw", "EUC-TW"},
    {"tis620", "TIS-620"},
    {"windows31j", "CP932"},
    {"ksc56011987", "EUC-KR"},
    {"uhc", "CP949"},
    {"cp65001", "UTF-8"},
}};

/// A family of numbered codesets: the prefix of the key, then digits.
struct Family {
    std::string_view prefix;
    std::string_view name;
    std::size_t maxDigits;
};
constexpr std::array<Family, 7> families{{
    {"iso8859", "ISO-8859-", 2},
    {"8859", "ISO-8859-", 2},
    {"windows", "CP", 5},
    {"win", "CP", 5},
    {"cp", "CP", 5},
    {"ms", "CP", 5},
    {"ibm", "IBM", 5},
}};

bool isDigits(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

std::string builtInCodeset(std::string const& key) {
    auto const same = [&](Spelling const& s) { return s.key == key; };
    auto const at = std::find_if(spellings.begin(), spellings.end(), same);
    if (at != spellings.end()) return std::string(at->name);
    for (auto const& family : families) {
        if (key.compare(0, family.prefix.size(), family.prefix) != 0) continue;
        std::string_view const number = std::string_view(key).substr(family.prefix.size());
        if (number.size() <= family.maxDigits && isDigits(number))
            return std::string(family.name).append(number);
    }
    return {};
}

bool isAlnum(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

/// A name as it is compared: letters and digits alone, letters in lower case.
std::string nameKey(std::string_view name) {
    std::string key;
    for (char const c : name) {
        // Not tolower(): in Turkish locales the small letter of I is another.
        if (isAlnum(c)) key += static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    }
    return key;
}

/// Takes the next word off the front of `line`; empty at its end.
std::string_view takeWord(std::string_view& line) {
    // By hand: the table is read at every program's start, and a search for one of a set is slow.
    auto const isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
    std::size_t start = 0;
    while (start < line.size() && isBlank(line[start]))
        ++start;
    std::size_t end = start;
    while (end < line.size() && !isBlank(line[end]))
        ++end;
    std::string_view const word = line.substr(start, end - start);
    line.remove_prefix(end);
    return word;
}

/// A file to read whole.
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
        struct statx status {};  // whatever the file's date: fstat(2) of 32 bits ends with 2038
        return descriptor >= 0 && statx(descriptor, "", AT_EMPTY_PATH, STATX_TYPE, &status) == 0 &&
               S_ISREG(status.stx_mode);
    }

    /// The whole content; nothing when it is longer than `limit` or cannot be read.
    [[nodiscard]] std::optional<std::string> content(std::size_t limit) const {
        std::string bytes;
        std::array<char, 4096> block{};
        // By reading, not by the size that the system tells: the file may grow meanwhile.
        while (bytes.size() <= limit) {
            ssize_t const got = read(descriptor, block.data(), block.size());
            if (got == 0) return bytes;
            if (got < 0 && errno != EINTR) break;
            if (got > 0) bytes.append(block.data(), static_cast<std::size_t>(got));
        }
        return std::nullopt;
    }

  private:
    int descriptor;
};

/// The alias table of the codeset data directory.
///
/// The file "aliases" has one alias a line: `codeset ALIAS NAME` or `locale ALIAS NAME`, words
/// separated by blanks; "#" begins a comment. Lines of another form are passed over; the first is
/// the file's fault.
class AliasTable {
  public:
    /// Reads the file; an empty table when it is no readable regular file of at most `maxFileSize`
    /// bytes. Does not wait. One that is there and is not of use as a whole is the `fault`.
    static AliasTable load(std::string const& path, std::optional<AliasFault>& fault);

    /// The name that an alias stands for; empty when it is no alias.
    [[nodiscard]] std::string codeset(std::string_view alias) const;
    [[nodiscard]] std::string locale(std::string_view alias) const;

    static constexpr std::size_t maxFileSize = 256UL * 1024;

  private:
    [[nodiscard]] bool addLine(std::string_view line);

    std::unordered_map<std::string, std::string> codesets;
    std::unordered_map<std::string, std::string> locales;
};

std::string found(std::unordered_map<std::string, std::string> const& in, std::string_view alias) {
    auto const at = in.find(nameKey(alias));
    return at == in.end() ? std::string() : at->second;
}

AliasTable AliasTable::load(std::string const& path, std::optional<AliasFault>& fault) {
    AliasTable table;
    File const file(path);
    if (!file.isRegular()) return table;
    auto const content = file.content(maxFileSize);
    if (!content) fault = AliasFault{path, "", 0};
    std::string_view rest = content ? std::string_view(*content) : std::string_view();
    for (int number = 1; !rest.empty(); ++number) {
        std::string_view const line = rest.substr(0, rest.find('\n'));
        bool const isUsable = table.addLine(line.substr(0, line.find('#')));
        if (!isUsable && !fault) fault = AliasFault{path, std::string(line), number};
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    }
    return table;
}

/// False for a line of another form.
bool AliasTable::addLine(std::string_view line) {
    std::string_view const kind = takeWord(line);
    std::string_view const alias = takeWord(line);
    std::string_view const name = takeWord(line);
    if (kind.empty()) return true;
    // A fourth word makes it a line of another form.
    if (!isName(alias) || !isName(name) || !takeWord(line).empty()) return false;
    // Of two lines for one alias the first counts.
    if (kind == "codeset") codesets.emplace(nameKey(alias), name);
    if (kind == "locale") locales.emplace(nameKey(alias), name);
    return kind == "codeset" || kind == "locale";
}

std::string AliasTable::codeset(std::string_view alias) const { return found(codesets, alias); }

std::string AliasTable::locale(std::string_view alias) const { return found(locales, alias); }

/// The alias table of the data directory that was named last, read when it is first needed. Made
/// and used under the layer's lock.
class Aliases {
  public:
    void setDirectory(char const* dir) {
        path = std::string(dir) + "/aliases";
        isLoaded = false;
    }
    std::string codeset(std::string_view alias) { return loaded().codeset(alias); }
    std::string locale(std::string_view alias) { return loaded().locale(alias); }
    std::optional<AliasFault> takeFault() { return std::exchange(fault, std::nullopt); }

  private:
    AliasTable const& loaded() {
        // Whoever starts a set-user-id program chooses its environment, but not its files.
        bool const readable = !path.empty() && getauxval(AT_SECURE) == 0;
        if (!isLoaded) table = readable ? AliasTable::load(path, fault) : AliasTable();
        isLoaded = true;
        return table;
    }

    std::string path;
    AliasTable table;
    std::optional<AliasFault> fault;  // that nobody was told of
    bool isLoaded = false;
};

Aliases& aliases() {
    static auto& instance =
        *new Aliases;  // never destroyed: reports may need names at the very end
    return instance;
}

/// A locale's name taken apart: language and territory, codeset, modifier.
struct LocaleName {
    std::string_view base;
    std::string_view codeset;
    std::string_view modifier;
};

LocaleName splitLocale(std::string_view name) {
    LocaleName parts{};
    std::size_t const at = name.find('@');
    if (at != std::string_view::npos) parts.modifier = name.substr(at + 1);
    name = name.substr(0, at);
    std::size_t const dot = name.find('.');
    if (dot != std::string_view::npos) parts.codeset = name.substr(dot + 1);
    parts.base = name.substr(0, dot);
    return parts;
}

bool isLocaleName(std::string_view name) {
    std::size_t const at = name.find('@');
    return isName(name.substr(0, at)) &&
           (at == std::string_view::npos || isName(name.substr(at + 1)));
}

/// The system's name for the codeset of a locale; empty when it has no such locale.
std::string systemCodeset(std::string const& locale) {
    Guard const guard;
    locale_t const handle = newlocale(LC_CTYPE_MASK, locale.c_str(), nullptr);
    if (handle == nullptr) return {};
    std::string codeset = nl_langinfo_l(CODESET, handle);
    freelocale(handle);
    return codeset;
}

}  // namespace

bool isName(std::string_view text) {
    return !text.empty() && text.size() <= maxNameLength &&
           text.find_first_not_of(
               "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
               "0123456789-_.:") == std::string_view::npos;
}

std::string canonicalCodeset(std::string_view name) {
    // Built-in names first: for them no file is read.
    std::string builtIn = builtInCodeset(nameKey(name));
    if (!builtIn.empty()) return builtIn;
    Guard const guard;
    std::string const alias = aliases().codeset(name);
    if (alias.empty()) return std::string(name);
    // Not as an alias again: two lines could lead to each other for ever.
    std::string const known = builtInCodeset(nameKey(alias));
    return known.empty() ? alias : known;
}

std::string canonicalLocale(std::string_view name) {
    if (!isLocaleName(name)) return {};
    Guard const guard;
    std::string const alias = aliases().locale(name);
    LocaleName const parts = splitLocale(alias.empty() ? name : alias);
    std::string canonical(parts.base == "POSIX" ? "C" : parts.base);
    if (!parts.codeset.empty()) canonical.append(".").append(canonicalCodeset(parts.codeset));
    if (!parts.modifier.empty()) canonical.append("@").append(parts.modifier);
    return canonical;
}

std::string environmentLocale() {
    // The order of POSIX, where an empty one counts as not set.
    for (char const* const variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        char const* const value = getenv(variable);
        if (value != nullptr && *value != 0) return isLocaleName(value) ? value : "C";
    }
    return "C";
}

std::string environmentCodeset() {
    std::string const name = environmentLocale();
    std::string const canonical = canonicalLocale(name);
    // As spelled first: a system may have the locale under that spelling alone.
    std::string codeset = systemCodeset(name);
    if (codeset.empty()) codeset = systemCodeset(canonical);
    if (codeset.empty()) codeset = splitLocale(canonical).codeset;
    return codeset.empty() ? "US-ASCII" : canonicalCodeset(codeset);
}

std::optional<AliasFault> takeAliasFault() {
    Guard const guard;
    return aliases().takeFault();
}

void setAliasDirectory(char const* dir) {
    Guard const guard;
    aliases().setDirectory(dir);
}

}  // namespace qcs
