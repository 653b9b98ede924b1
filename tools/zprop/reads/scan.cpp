#include "zprop/reads/scan.h"

#include <algorithm>
#include <set>

#include "Z/ZPropertiesImpl.h"
#include "zprop/shown.h"

namespace zprop {
namespace {

constexpr std::string_view blanks = " \t\v\f\r";
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
// What the reader takes at once of a line that is longer.
constexpr std::size_t longestPiece = ZPCategoryBasedCache::maxLine + 1;

std::string_view withoutTrailingBlanks(std::string_view text) {
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

std::string_view trimmed(std::string_view text) {
    std::size_t const start = text.find_first_not_of(blanks);
    return start == text.npos ? std::string_view() : withoutTrailingBlanks(text.substr(start));
}

class Scanner {
  public:
    explicit Scanner(std::string_view wholeText) : text(wholeText) {}
    Scanner(std::string_view wholeText, std::string_view ofStanza, std::string_view ofKey)
        : text(wholeText), wantedStanza(ofStanza), wantedKey(ofKey) {}

    Scan run() {
        scanLines();
        lookForOldLineEnds();
        return std::move(found);
    }
    std::vector<Assignment> assignments() {
        scanLines();
        return std::move(assigned);
    }

  private:
    void scanLines() {
        for (std::string_view left = text; !left.empty();) {
            std::size_t const length = left.find('\n');
            ++number;
            scanLine(left.substr(0, length));
            left.remove_prefix(length == left.npos ? left.size() : length + 1);
        }
    }

    /// One fault a line is enough: the pieces behind it are of the same making.
    void scanLine(std::string_view whole) {
        line = whole;
        std::size_t const before = found.faults.size();
        std::size_t at = 0;
        do {
            pieceStart = at;
            scanPiece(whole.substr(at, longestPiece));
            at += longestPiece;
        } while (at < whole.size() && found.faults.size() == before);
        if (found.faults.size() != before && whole.size() > longestPiece)
            found.faults.back().reason += "; a line of " + std::to_string(whole.size()) +
                                          " bytes is read in pieces of " +
                                          std::to_string(longestPiece);
    }

    void scanPiece(std::string_view piece) {
        std::size_t const nul = piece.find('\0');
        std::size_t const start = piece.find_first_not_of(blanks);
        if (nul != piece.npos) {
            fault("NUL byte", nul);
        } else if (start == piece.npos || piece[start] == '#') {
            return;
        } else if (piece[start] == '[') {
            scanHeader(withoutTrailingBlanks(piece), start);
        } else {
            scanKey(withoutTrailingBlanks(piece), start);
        }
    }

    void scanHeader(std::string_view piece, std::size_t start) {
        std::size_t const bracket = piece.find(']', start);
        // Whatever it is, the lines below are meant to be in it.
        isInStanza = true;
        stanza = {};
        if (bracket == piece.npos) return fault("stanza header without \"]\"", piece.size());
        std::string_view const name = piece.substr(start + 1, bracket - start - 1);
        isInStanza = !name.empty();
        stanza = name;
        if (!stanzas.emplace(name).second)
            return fault("this stanza stands in the file already", start + 1);
        if (bracket + 1 < piece.size()) {
            note(found.losses, "text behind the \"]\" of a header", bracket + 1);
            found.losses.back().stanza = name;
        }
    }

    void scanKey(std::string_view piece, std::size_t start) {
        std::size_t const equals = piece.find('=', start);
        if (piece.substr(start, byteOrderMark.size()) == byteOrderMark &&
            (!isInStanza || equals == piece.npos)) {
            // What stands behind it is meant to be what it would be without.
            isInStanza = isInStanza || piece.find('[', start) != piece.npos;
            return fault("byte order mark; the file must begin with its text", start);
        }
        if (equals == start) return fault("no key before \"=\"", start);
        if (equals == piece.npos)
            return fault("neither stanza header, comment nor key = value", start);
        if (!isInStanza) return fault("key line before the first stanza header", start);
        noteValue(trimmed(piece.substr(0, equals)), trimmed(piece.substr(equals + 1)));
    }

    void noteValue(std::string_view key, std::string_view value) {
        bool const isName = stanza == "configuration-database" && key == "file" && !value.empty();
        if (isName) found.companionLine = number;
        if (!wantedKey.empty() && stanza == wantedStanza && key == wantedKey)
            assigned.push_back({number, std::string(value)});
    }

    /// Carriage returns alone: all of the text is one line then.
    void lookForOldLineEnds() {
        std::size_t const feed = text.find('\n');
        std::size_t const end = text.find('\r');
        bool const isOneLine = feed == text.npos || feed + 1 == text.size();
        if (!isOneLine || end == text.npos || trimmed(text.substr(end, feed - end)).empty()) return;
        line = text.substr(0, end);
        pieceStart = 0;
        number = 1;
        note(found.losses, "carriage returns alone end no line; all of the file is one", end);
    }

    void note(std::vector<Finding>& list, char const* reason, std::size_t column) const {
        list.push_back({number, reason, std::string(withoutTrailingBlanks(line)),
                        pieceStart + column, std::string()});
    }
    void fault(char const* reason, std::size_t column) { note(found.faults, reason, column); }

    std::string_view text;
    std::string_view line;       // the current one
    std::size_t number = 0;      // its number
    std::size_t pieceStart = 0;  // of the current piece in the line
    bool isInStanza = false;     // a key line may stand here
    std::string_view stanza;     // its name
    std::string_view wantedStanza;
    std::string_view wantedKey;  // empty: none
    std::set<std::string, std::less<>> stanzas;
    Scan found;
    std::vector<Assignment> assigned;  // to the wanted key
};

/// As on a terminal, but with its tabs, so that the caret's line can have the same.
std::string shownWithTabs(std::string_view text) {
    std::string result;
    for (;;) {
        std::size_t const tab = text.find('\t');
        result += shown(text.substr(0, tab));
        if (tab == text.npos) return result;
        result += '\t';
        text.remove_prefix(tab + 1);
    }
}

/// Blanks as wide as the text: one for each character, and tabs for tabs.
std::string blanksBelow(std::string const& text) {
    std::string result;
    for (char const c : text) {
        bool const continues = (static_cast<unsigned char>(c) & 0xC0) == 0x80;
        if (!continues) result += c == '\t' ? '\t' : ' ';
    }
    return result;
}

}  // namespace

Scan scan(std::string_view text) { return Scanner(text).run(); }

std::vector<Assignment> assignmentsOf(std::string_view text, std::string_view stanza,
                                      std::string_view key) {
    return Scanner(text, stanza, key).assignments();
}

std::string pictureOf(Finding const& finding) {
    constexpr std::size_t longest = 200;  // of what is shown of a line
    constexpr std::size_t before = 100;   // of it, what stands before the fault
    std::size_t const column = std::min(finding.column, finding.text.size());
    std::size_t const start =
        finding.text.size() > longest && column > before ? column - before : 0;
    std::string const left =
        (start == 0 ? "" : "...") + shownWithTabs(finding.text.substr(start, column - start));
    bool const isCut = finding.text.size() > start + longest;
    std::string const right = shownWithTabs(finding.text.substr(column, start + longest - column));
    return std::to_string(finding.line) + ": " + finding.reason + "\n" + left + right +
           (isCut ? "..." : "") + "\n" + blanksBelow(left) + "^\n";
}

}  // namespace zprop
