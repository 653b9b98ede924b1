#include "zprop/reads/difference.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace zprop {
namespace {

using Lines = std::vector<std::string_view>;

/// With their line feeds: a last line without one is another line than one with it.
Lines linesOf(std::string_view text) {
    Lines lines;
    while (!text.empty()) {
        std::size_t const feed = text.find('\n');
        std::size_t const length = feed == text.npos ? text.size() : feed + 1;
        lines.push_back(text.substr(0, length));
        text.remove_prefix(length);
    }
    return lines;
}

/// One line of the way from the old text to the new one.
struct Step {
    char kind;  // ' ', '-' or '+'
    std::string_view line;
};

/// The shortest way, after E. W. Myers, "An O(ND) Difference Algorithm and Its Variations" (1986).
class Way {
  public:
    Way(Lines const& oldLines, Lines const& newLines) : a(oldLines), b(newLines) {}

    std::vector<Step> steps() {
        skipCommonEnds();
        if (!findWay()) replaceAll();
        std::vector<Step> way;
        for (std::size_t i = 0; i < start; ++i)
            way.push_back({' ', a[i]});
        way.insert(way.end(), middle.rbegin(), middle.rend());
        for (std::size_t i = endA; i < a.size(); ++i)
            way.push_back({' ', a[i]});
        return way;
    }

  private:
    using Row = std::vector<long>;  // for each diagonal how far a way comes in the old text

    void skipCommonEnds() {
        endA = a.size();
        endB = b.size();
        while (start < endA && start < endB && a[start] == b[start])
            ++start;
        while (endA > start && endB > start && a[endA - 1] == b[endB - 1]) {
            --endA;
            --endB;
        }
    }

    [[nodiscard]] std::string_view oldLine(long i) const {
        return a[start + static_cast<std::size_t>(i)];
    }
    [[nodiscard]] std::string_view newLine(long i) const {
        return b[start + static_cast<std::size_t>(i)];
    }

    /// False when the texts have so little in common that the way takes too long to find.
    bool findWay() {
        constexpr long most = 1000;
        long const n = static_cast<long>(endA - start);
        long const m = static_cast<long>(endB - start);
        std::vector<Row> rows;
        for (long d = 0; d <= std::min(n + m, most); ++d) {
            rows.push_back(nextRow(rows, d, n, m));
            if (n - m >= -d && n - m <= d && at(rows.back(), d, n - m) >= n) {
                walkBack(rows, n, m);
                return true;
            }
        }
        return false;
    }

    static long at(Row const& row, long d, long k) { return row[static_cast<std::size_t>(k + d)]; }

    /// Whether the way on diagonal k comes from the one above: by a line of the new text.
    static bool comesDown(Row const& before, long d, long k) {
        return k == -d || (k != d && at(before, d - 1, k - 1) < at(before, d - 1, k + 1));
    }

    [[nodiscard]] Row nextRow(std::vector<Row> const& rows, long d, long n, long m) const {
        Row row(static_cast<std::size_t>(2 * d + 1));
        for (long k = -d; k <= d; k += 2) {
            long x = 0;
            if (d > 0)
                x = comesDown(rows.back(), d, k) ? at(rows.back(), d - 1, k + 1)
                                                 : at(rows.back(), d - 1, k - 1) + 1;
            while (x < n && x - k < m && oldLine(x) == newLine(x - k))
                ++x;
            row[static_cast<std::size_t>(k + d)] = x;
        }
        return row;
    }

    void walkBack(std::vector<Row> const& rows, long x, long y) {
        for (long d = static_cast<long>(rows.size()) - 1; d > 0; --d) {
            Row const& before = rows[static_cast<std::size_t>(d - 1)];
            long const k = x - y;
            bool const down = comesDown(before, d, k);
            long const fromK = down ? k + 1 : k - 1;
            long const fromX = at(before, d - 1, fromK);
            for (long const stop = down ? fromX : fromX + 1; x > stop; --x, --y)
                middle.push_back({' ', oldLine(x - 1)});
            middle.push_back(down ? Step{'+', newLine(y - 1)} : Step{'-', oldLine(x - 1)});
            x = fromX;
            y = fromX - fromK;
        }
        for (; x > 0; --x)
            middle.push_back({' ', oldLine(x - 1)});
    }

    void replaceAll() {
        for (std::size_t i = endB; i > start; --i)
            middle.push_back({'+', b[i - 1]});
        for (std::size_t i = endA; i > start; --i)
            middle.push_back({'-', a[i - 1]});
    }

    Lines const& a;
    Lines const& b;
    std::size_t start = 0;  // lines that both begin with
    std::size_t endA = 0;   // where the lines begin that both end with
    std::size_t endB = 0;
    std::vector<Step> middle;  // from the last to the first
};

std::string rangeOf(std::size_t before, std::size_t count) {
    return std::to_string(count == 0 ? before : before + 1) + "," + std::to_string(count);
}

/// The steps from `first` to `last` with their head; `oldBefore` lines of the old text, and
/// `newBefore` of the new one, stand before them.
std::string hunk(std::vector<Step> const& steps, std::size_t first, std::size_t last,
                 std::size_t oldBefore, std::size_t newBefore) {
    std::string body;
    std::size_t oldCount = 0;
    std::size_t newCount = 0;
    for (std::size_t i = first; i < last; ++i) {
        if (steps[i].kind != '+') ++oldCount;
        if (steps[i].kind != '-') ++newCount;
        (body += steps[i].kind) += steps[i].line;
        if (steps[i].line.back() != '\n') body += "\n\\ No newline at end of file\n";
    }
    return "@@ -" + rangeOf(oldBefore, oldCount) + " +" + rangeOf(newBefore, newCount) + " @@\n" +
           body;
}

}  // namespace

std::string difference(std::string const& oldName, std::string const& newName,
                       std::string const& oldText, std::string const& newText) {
    constexpr std::size_t around = 3;
    Lines const oldLines = linesOf(oldText);
    Lines const newLines = linesOf(newText);
    std::vector<Step> const steps = Way(oldLines, newLines).steps();
    std::string result;
    std::size_t counts[2] = {0, 0};  // lines of either text before `at`
    std::size_t at = 0;
    auto const isChange = [](Step const& step) { return step.kind != ' '; };
    auto const next = [&](std::size_t from) {
        auto const begin = steps.begin() + static_cast<std::ptrdiff_t>(from);
        return static_cast<std::size_t>(std::find_if(begin, steps.end(), isChange) - steps.begin());
    };
    auto const goTo = [&](std::size_t to) {
        for (; at < to; ++at) {
            if (steps[at].kind != '+') ++counts[0];
            if (steps[at].kind != '-') ++counts[1];
        }
    };
    for (std::size_t change = next(0); change < steps.size(); change = next(at)) {
        goTo(std::max(at, change - std::min(change, around)));
        std::size_t last = change + 1;  // behind the last change of the hunk
        while (next(last) < steps.size() && next(last) - last <= 2 * around)
            last = next(last) + 1;
        last = std::min(last + around, steps.size());
        result += hunk(steps, at, last, counts[0], counts[1]);
        goTo(last);
    }
    return result.empty() ? result : "--- " + oldName + "\n+++ " + newName + "\n" + result;
}

}  // namespace zprop
