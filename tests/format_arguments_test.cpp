// link: static
// wrap: malloc,realloc
// Numbered arguments, the tables that hold them, and the memory and codeset behind a context.
#include "Z/zasprintf.h"
#include "qcs/qcs.h"
#include "support/formatting.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <string>

using testsupport::formatted;

namespace {
int allocationsLeft = INT_MAX;  // until malloc and realloc fail
int allocations = 0;
bool allocates() {
    ++allocations;
    return allocationsLeft > 0 && allocationsLeft-- > 0;
}
}  // namespace

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_realloc(void* block, std::size_t size);
void* __wrap_malloc(std::size_t size);
void* __wrap_realloc(void* block, std::size_t size);

void* __wrap_malloc(std::size_t size) { return allocates() ? __real_malloc(size) : nullptr; }
void* __wrap_realloc(void* block, std::size_t size) {
    return allocates() ? __real_realloc(block, size) : nullptr;
}
}

namespace {

/// A context on the stack, parsed and done by the test.
struct Parsed {
    ZFormatContext ctx{};
    int result = -1;

    Parsed(ZCodesetHandle codeset, char const* format, ...) {
        va_list list;
        va_start(list, format);
        result = zvsnprintf_parse(&ctx, codeset, format, list);
        va_end(list);
    }
    Parsed(Parsed const&) = delete;
    Parsed& operator=(Parsed const&) = delete;
    ~Parsed() {
        if (result == 0) zvsnprintf_done(&ctx);
    }

    [[nodiscard]] std::string text() const {
        char room[1024];
        int const length = zvsnprintf_render(&ctx, room, sizeof(room));
        return length < 0 ? "<error>" : std::string(room, static_cast<std::size_t>(length));
    }
};

TEST(FormatArgumentsTest, AreTakenByTheirNumbersOrFollowTheLastTaken) {
    EXPECT_EQ(formatted("%2$s %1$s %s", "a", "b"), "b a b");
    EXPECT_EQ(formatted("%s %1$s %s", "a", "b"), "a a b");
    EXPECT_EQ(formatted("%1$*2$d|%1$-*2$.*3$d|", 7, 5, 3), "    7|007  |");
    EXPECT_EQ(formatted("%2$d %3$s %1$Lf", 1.5L, 2, "three"), "2 three 1.500000");
    EXPECT_EQ(formatted("%1$d %*d", 1, 4, 2), "1    2");
    EXPECT_EQ(formatted("%1$*d|", 7, 9), "      7|") << "the plain * takes 1 as well";
    EXPECT_EQ(formatted("%2147483647$%%1$s%*%|", "a", 3), "%a  %|") << "%% takes no argument";
}

TEST(FormatArgumentsTest, HaveNoGaps) {
    for (char const* format :
         {"%2$d", "%3$d %1$d", "%s %2$s", "%2$s %s", "%1$*3$d", "%1$d %2147483647$d"})
        EXPECT_EQ(formatted(format, "a", "b", "c", "d"), "<error>") << format;
}

TEST(FormatArgumentsTest, UsedTwiceAgreeOrConvert) {
    EXPECT_EQ(formatted("%1$d %1$u %1$hd %1$hx %1$c", 65601), "65601 65601 65 41 A");
    EXPECT_EQ(formatted("%1$d %1$u %1$llx", -1), "-1 4294967295 ffffffffffffffff");
    EXPECT_EQ(formatted("%1$lld %1$d", (1LL << 40) + 3), "1099511627779 3");
    EXPECT_EQ(formatted("%1$u%1$*1$d|", 3U), "3  3|");
    EXPECT_EQ(formatted("%1$f %1$g", 1.5), "1.500000 1.5");
    static char const shown[] = "text";
    EXPECT_EQ(formatted("%1$p %1$s %1$p", shown), formatted("%p %s %p", shown, shown, shown));
    for (char const* format : {"%1$s %1$d", "%1$d %1$s", "%1$p %1$d", "%1$s %1$S", "%1$p %1$s %1$S",
                               "%1$f %1$d", "%1$d %1$f", "%1$f %1$Lf", "%1$s%1$*1$s"})
        EXPECT_EQ(formatted(format, "a"), "<error>") << format;
}

TEST(FormatArgumentsTest, MayBeMany) {
    std::string format;
    std::string expected;
    for (int i = 0; i < 1000; ++i) {
        format += "%1$d,%2$s;";
        expected += "7,x;";
    }
    EXPECT_EQ(formatted(format.c_str(), 7, "x"), expected);
    EXPECT_EQ(formatted("%d%d%d%d%d%d%d%d%d%d%d%s%g", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, "x", 0.5),
              "1234567891011x0.5");
}

int allocationsOf(char const* format) {
    int const before = allocations;
    EXPECT_GE(zsnprintf(nullptr, 0, format, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11), 0) << format;
    return allocations - before;
}

TEST(FormatContextTest, HoldsTenSpecificationsAndNineArgumentsInline) {
    zgetLCSHandle();
    EXPECT_EQ(allocationsOf("%d%d%d%d%d%d%d%d%d%%"), 0);
    EXPECT_EQ(allocationsOf("%%%%%%%%%%%%%%%%%%%%%%"), 1) << "an eleventh specification";
    EXPECT_EQ(allocationsOf("%d%d%d%d%d%d%d%d%d%d"), 1) << "a tenth argument";
    EXPECT_EQ(allocationsOf("%*.*d%*.*d%*.*d"), 0);
}

TEST(FormatContextTest, IsRenderedAsOftenAsWantedAndInlineAgainWhenDone) {
    Parsed parsed(zgetLCSHandle(), "%%%11$d %10$d %9$d %8$d %7$d %6$d %5$d %4$d %3$d %2$d %1$d", 1,
                  2, 3, 4, 5, 6, 7, 8, 9, 10, 11);
    ASSERT_EQ(parsed.result, 0);
    EXPECT_EQ(zvsnprintf_render(&parsed.ctx, nullptr, 0), 24);
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(parsed.text(), "%11 10 9 8 7 6 5 4 3 2 1");
    for (int i = 0; i < 2; ++i) {
        zvsnprintf_done(&parsed.ctx);
        EXPECT_EQ(parsed.ctx.specs, parsed.ctx.inlineSpecs);
        EXPECT_EQ(parsed.ctx.args, parsed.ctx.inlineArgs);
    }
    zvsnprintf_done(nullptr);
}

TEST(FormatContextTest, ConvertsToItsOwnCodeset) {
    constexpr ZWideChar katakana[] = {0x30A2, 'x', 0};
    ZCodesetHandle const shiftJis = qcs_cs_new("Shift_JIS");
    ZCodesetHandle const latin = qcs_cs_new("ISO8859-1");
    EXPECT_EQ(Parsed(shiftJis, "%4S|%.1S|%C", katakana, katakana, 0x30A2).text(),
              " \x83\x41x||\x83\x41");
    EXPECT_EQ(Parsed(latin, "%S", katakana).text(), "<error>");
    EXPECT_EQ(Parsed(latin, "%C", 0xE4).text(), "\xE4");
    qcs_cs_free(shiftJis);
    qcs_cs_free(latin);
}

/// A parse that fails after its tables moved to the heap; the leak check sees to the rest.
TEST(FormatContextTest, FailedParseLeavesNothingBehind) {
    EXPECT_EQ(formatted("%d%d%d%d%d%d%d%d%d%d%d%y"), "<error>");
    EXPECT_EQ(formatted("%1$d%2$d%3$d%4$d%5$d%6$d%7$d%8$d%9$d%10$d%11$d%12$d%1$s"), "<error>");
}

TEST(FormatContextTest, ExhaustedMemoryIsAnError) {
    zgetLCSHandle();
    for (int left = 0; left < 2; ++left) {
        allocationsLeft = left;
        int const length =
            zsnprintf(nullptr, 0, "%d%d%d%d%d%d%d%d%d%d%d", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11);
        allocationsLeft = INT_MAX;
        EXPECT_EQ(length, -1) << left << " allocations succeed";
    }
    for (auto* function : {&zsprintf, &zasprintf}) {
        char mark = 0;
        char* text = &mark;
        allocationsLeft = 0;
        int const length = function(&text, "%d", 1);
        allocationsLeft = INT_MAX;
        EXPECT_EQ(length, -1);
        EXPECT_EQ(text, nullptr);
    }
}

}  // namespace
