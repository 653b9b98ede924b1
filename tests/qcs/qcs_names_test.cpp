// link: static
// wrap: newlocale
#include <gtest/gtest.h>
#include <locale.h>
#include <sys/stat.h>

#include <array>
#include <cstdlib>
#include <new>
#include <string>
#include <string_view>

#include "qcs/qcs.h"
#include "support/processes.h"
#include "support/threads.h"

extern "C" decltype(newlocale) __real_newlocale;

static constexpr std::string_view longName = "de_DE.ISO-8859-15@with-a-long-modifier";
static int localesMade = 0;
static int allocationsLeft = -1;  // below 0: no limit

/// A system that has the locales de_DE, in UTF-8, and one of a long name beside its own ones.
extern "C" locale_t __wrap_newlocale(int mask, char const* name, locale_t base) {
    bool const isOurs = std::string_view(name) == "de_DE" || name == longName;
    locale_t const made = __real_newlocale(mask, isOurs ? "C.UTF-8" : name, base);
    localesMade += made != nullptr ? 1 : 0;
    return made;
}

// Not inlined: the compiler would take the calls of malloc() and free() for a mismatch.
[[gnu::noinline]] void* operator new(std::size_t size) {
    bool const fails = allocationsLeft >= 0 && allocationsLeft-- == 0;
    void* const block = fails ? nullptr : std::malloc(size);
    return block != nullptr ? block : throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* block) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept { std::free(block); }

namespace {

using namespace testsupport;

template <class Function, class... Name>
std::string named(Function* function, Name... name) {
    std::array<char, 512> room{};
    return function(name..., room.data(), room.size()) == 0 ? room.data() : "failed";
}
std::string canonical(char const* locale) { return named(qcs_canonical_loc, locale); }

/// Null leaves a variable unset.
void setEnvironment(char const* all, char const* ctype, char const* lang) {
    char const* const variables[][2] = {{"LC_ALL", all}, {"LC_CTYPE", ctype}, {"LANG", lang}};
    for (auto const& [name, value] : variables)
        value == nullptr ? unsetenv(name) : setenv(name, value, 1);
}

TEST(EnvironmentTest, NamesTheLocaleAndItsCodeset) {
    std::string const endless(100000, 'x');
    char const* const rows[][5] = {
        {"C.UTF-8", "xx_XX.KOI8-R", "xx_XX.GBK", "C.UTF-8", "UTF-8"},  // the first that is set
        {"", "xx_XX.KOI8-R", "xx_XX.GBK", "xx_XX.KOI8-R", "KOI8-R"},
        {nullptr, nullptr, "xx_XX.GBK", "xx_XX.GBK", "GBK"},
        {nullptr, nullptr, nullptr, "C", "US-ASCII"},
        {endless.c_str(), "", "C.utf8", "C", "US-ASCII"},
        {"POSIX", "", "", "POSIX", "US-ASCII"},
        {"de_DE", "", "", "de_DE", "UTF-8"},
        {"xx_XX.ISO8859-2", "", "", "xx_XX.ISO8859-2", "ISO-8859-2"},  // no such locale here
        {"xx_XX", "", "", "xx_XX", "US-ASCII"},
        {"../../etc/x.UTF-8", "", "", "C", "US-ASCII"},
        {"xx_XX.UTF-8@../x", "", "", "C", "US-ASCII"},
    };
    for (auto const& [all, ctype, lang, locale, codeset] : rows) {
        setEnvironment(all, ctype, lang);
        EXPECT_EQ(named(qcs_os_lang_name), locale);
        EXPECT_EQ(named(qcs_os_cs_name), codeset) << locale;
    }
    setEnvironment("xx_XX.KOI8-R", "", "");
    std::array<char, 13> room{};  // nothing is written beyond it
    EXPECT_EQ(qcs_os_lang_name(room.data(), 12), -1);
    EXPECT_EQ(qcs_os_lang_name(room.data(), 13), 0);
    EXPECT_EQ(qcs_os_cs_name(room.data(), 6), -1);
    EXPECT_EQ(qcs_canonical_loc("C", room.data(), 1), -1);
}

TEST(LocaleNameTest, HasACanonicalSpelling) {
    EXPECT_EQ(canonical("de_DE.iso88591@euro"), "de_DE.ISO-8859-1@euro");
    EXPECT_EQ(canonical("POSIX"), "C");
    EXPECT_EQ(canonical("xx.strange"), "xx.strange");
    for (char const* const none : std::array<char const*, 4>{"", "a/b", "de_DE.UTF-8@", nullptr})
        EXPECT_EQ(canonical(none), "failed");
    EXPECT_NE(qcs_loc_new("C.UTF-8"), 0U);
    EXPECT_EQ(qcs_loc_new("C.utf8"), qcs_loc_new("C.UTF-8"));
    EXPECT_EQ(qcs_loc_new("xx_XX.UTF-8") + qcs_loc_new("../C.UTF-8") + qcs_loc_new(nullptr), 0U);
}

TEST(LocaleNameTest, MakesNoLocaleThatItHasNoMemoryToKeep) {
    qcs_loc_handle handle = 0;
    for (int allowed = 0; handle == 0; ++allowed) {
        localesMade = 0;
        allocationsLeft = allowed;
        handle = qcs_loc_new(longName.data());
        allocationsLeft = -1;
        ASSERT_EQ(localesMade, handle != 0 ? 1 : 0) << allowed;
    }
}

/// Gives the library a data directory with this alias table.
void useAliases(TempDir const& directory, std::string const& aliases) {
    writeFile(directory.file("aliases"), aliases);
    qcs_set_dir(directory.path().c_str());
}

TEST(AliasTest, AddsNamesToTheBuiltInOnes) {
    EXPECT_EQ(qcs_cs_new("house-latin"), 0U);
    TempDir const directory;
    useAliases(directory,
               "codeset House_Latin iso885915  # the house's own\n"
               "locale ruritanian de_DE.house-latin\nlocale german de_DE\r\n"
               "codeset UTF-8 ISO-8859-1\n"
               "codeset loop1 loop2\ncodeset loop2 loop1\n"
               "codeset toomany UTF-8 UTF-8\n"
               "codeset KOI8-RU no-such-codeset\n"
               "codeset azAZ09 KOI8-R\n"
               "nonsense\ncodeset\ncodeset x\n\n\r\n"
               "codeset last KOI8-R");
    EXPECT_EQ(qcs_cs_new("houselatin"), qcs_cs_new("ISO8859-15"));
    EXPECT_EQ(qcs_cs_new("last"), qcs_cs_new("KOI8-R"));
    EXPECT_NE(qcs_cs_new("KOI8-RU"), 0U) << "as iconv knows it, not the table";
    EXPECT_EQ(canonical("ruritanian"), "de_DE.ISO-8859-15");
    EXPECT_EQ(qcs_mb_max(qcs_cs_new("utf8")), 4) << "built-in names stay";
    EXPECT_EQ(qcs_cs_new("loop1") + qcs_cs_new("toomany"), 0U);
    EXPECT_EQ(qcs_cs_new("AZaz-09"), qcs_cs_new("KOI8-R"));
    for (char const* const cutShort : {"zAZ09", "aAZ09", "azZ09", "azA09", "azAZ9", "azAZ0"})
        EXPECT_EQ(qcs_cs_new(cutShort), 0U) << cutShort;
    qcs_set_dir(nullptr);
    EXPECT_EQ(canonical("ruritanian"), "de_DE.ISO-8859-15") << "null changes nothing";
    setEnvironment("german", nullptr, nullptr);
    EXPECT_EQ(named(qcs_os_cs_name), "UTF-8") << "the system knows its canonical name alone";
}

TEST(AliasTest, AnythingButASmallRegularFileIsPassedOver) {
    TempDir const directory;
    std::string const line = "locale hugealias C.UTF-8\n";
    auto const works = [] { return canonical("hugealias") == "C.UTF-8"; };
    useAliases(directory, line + std::string(300 * 1024, '#'));
    EXPECT_FALSE(works());
    useAliases(directory, line);
    EXPECT_TRUE(works());
    std::string const path = directory.file("aliases");
    EXPECT_TRUE(remove(path.c_str()) == 0 && mkfifo(path.c_str(), 0700) == 0);
    qcs_set_dir(directory.path().c_str());
    EXPECT_FALSE(works());
}

TEST(AliasTest, TheInstalledTableIsAllUsable) {
    qcs_set_dir(getenv("QCSDIR"));
    EXPECT_EQ(qcs_cs_new("x-mac-roman"), qcs_cs_new("MACINTOSH"));
    EXPECT_EQ(canonical("japanese.euc"), "ja_JP.EUC-JP");
}

TEST(CancellationTest, AThreadThatIsBeingCancelledGetsItsHandles) {
    TempDir const directory;
    useAliases(directory, "codeset house-koi KOI8-U\n");
    qcs_cs_handle codeset = 0;
    qcs_loc_handle locale = 0;
    Doomed const thread([&] {
        pthread_cancel(pthread_self());
        codeset = qcs_cs_new("house-koi");
        locale = qcs_loc_new("C");
        pthread_testcancel();
    });
    EXPECT_TRUE(thread.cancel());
    EXPECT_TRUE(codeset != 0 && locale != 0);
}

}  // namespace
