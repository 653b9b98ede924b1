// link: static
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>

#include <array>
#include <cstdlib>
#include <string>

#include "qcs/qcs.h"
#include "support/processes.h"

namespace {

template <class Function, class... Name>
std::string named(Function* function, Name... name) {
    std::array<char, 512> room{};
    return function(name..., room.data(), room.size()) == 0 ? room.data() : "failed";
}

std::string langName() { return named(qcs_os_lang_name); }
std::string codesetName() { return named(qcs_os_cs_name); }
std::string canonical(const char* locale) { return named(qcs_canonical_loc, locale); }

class EnvironmentTest : public testing::Test {
  protected:
    ~EnvironmentTest() override { set("C.UTF-8", "", ""); }
    static void set(const char* all, const char* ctype = "", const char* lang = "") {
        setenv("LC_ALL", all, 1);
        setenv("LC_CTYPE", ctype, 1);
        setenv("LANG", lang, 1);
    }
};

TEST_F(EnvironmentTest, TheFirstVariableThatIsSetDecides) {
    set("C.UTF-8", "xx_XX.KOI8-R", "xx_XX.GBK");
    EXPECT_EQ(langName(), "C.UTF-8");
    set("", "xx_XX.KOI8-R", "xx_XX.GBK");
    EXPECT_EQ(langName(), "xx_XX.KOI8-R");
    unsetenv("LC_ALL");
    unsetenv("LC_CTYPE");
    EXPECT_EQ(langName(), "xx_XX.GBK");
    unsetenv("LANG");
    EXPECT_EQ(langName(), "C");
    set("", "", "");
    EXPECT_EQ(langName(), "C");
    set(std::string(100000, 'x').c_str());
    EXPECT_EQ(langName(), "C");
}

TEST_F(EnvironmentTest, CodesetOfTheLocale) {
    struct {
        const char *locale, *codeset;
    } const rows[] = {
        {"C.utf8", "UTF-8"},
        {"C", "US-ASCII"},
        {"POSIX", "US-ASCII"},
        {"xx_XX.ISO8859-2", "ISO-8859-2"},  // no such locale here: the name after the dot
        {"xx_XX.utf8@modifier", "UTF-8"},
        {"xx_XX", "US-ASCII"},
        {"xx_XX.strange", "strange"},
        {"../../etc/x.UTF-8", "US-ASCII"},
        {"xx XX.UTF-8", "US-ASCII"},
        {"xx_XX.UTF-8@../x", "US-ASCII"},
        {"%s%n.UTF-8", "US-ASCII"},
    };
    for (auto const& row : rows) {
        set(row.locale);
        EXPECT_EQ(codesetName(), row.codeset) << row.locale;
    }
}

TEST_F(EnvironmentTest, NeverWritesBeyondItsRoom) {
    set("xx_XX.KOI8-R");
    std::array<char, 13> room{};
    EXPECT_EQ(qcs_os_lang_name(room.data(), 12), -1);
    EXPECT_EQ(qcs_os_lang_name(room.data(), 13), 0);
    EXPECT_STREQ(room.data(), "xx_XX.KOI8-R");
    EXPECT_EQ(qcs_os_cs_name(room.data(), 6), -1);
    EXPECT_EQ(qcs_os_cs_name(room.data(), 7), 0);
    EXPECT_EQ(qcs_os_cs_name(nullptr, 0), -1);
    EXPECT_EQ(qcs_canonical_loc("C", room.data(), 1), -1);
}

TEST(LocaleNameTest, HasACanonicalSpelling) {
    EXPECT_EQ(canonical("de_DE.utf8"), "de_DE.UTF-8");
    EXPECT_EQ(canonical("de_DE.iso88591@euro"), "de_DE.ISO-8859-1@euro");
    EXPECT_EQ(canonical("de_DE"), "de_DE");
    EXPECT_EQ(canonical("POSIX"), "C");
    EXPECT_EQ(canonical("xx.strange"), "xx.strange");
    for (const char* const wrong : {"", "a/b", "de_DE.UTF-8@", "@euro"})
        EXPECT_EQ(canonical(wrong), "failed") << wrong;
    EXPECT_EQ(canonical(nullptr), "failed");
}

TEST(LocaleNameTest, TheSameNameIsTheSameLocale) {
    qcs_loc_handle const locale = qcs_loc_new("C.UTF-8");
    EXPECT_NE(locale, 0U);
    EXPECT_EQ(qcs_loc_new("C.utf8"), locale);
    EXPECT_EQ(qcs_loc_new("xx_XX.UTF-8"), 0U);
    EXPECT_EQ(qcs_loc_new("../C.UTF-8"), 0U);
    EXPECT_EQ(qcs_loc_new(nullptr), 0U);
}

/// A data directory that holds `aliases`, in force as long as this lives.
class DataDirectory {
  public:
    explicit DataDirectory(const std::string& aliases) {
        testsupport::writeFile(directory.file("aliases"), aliases);
        qcs_set_dir(directory.path().c_str());
    }
    ~DataDirectory() { qcs_set_dir("/nonexistent"); }
    DataDirectory(const DataDirectory&) = delete;
    DataDirectory& operator=(const DataDirectory&) = delete;

  private:
    testsupport::TempDir directory;
};

TEST(AliasTest, AddsNamesToTheBuiltInOnes) {
    EXPECT_EQ(qcs_cs_new("house-latin"), 0U);
    DataDirectory const data(
        "# comment\n"
        "codeset House_Latin iso885915  # the house's own\n"
        "locale ruritanian de_DE.house-latin\n"
        "codeset UTF-8 ISO-8859-1\n"
        "codeset loop1 loop2\ncodeset loop2 loop1\n"
        "codeset bad/name UTF-8\ncodeset toomany UTF-8 UTF-8\n"
        "nonsense\ncodeset\ncodeset x\n\n\r\n"
        "codeset last KOI8-R");
    EXPECT_EQ(qcs_cs_new("houselatin"), qcs_cs_new("ISO8859-15"));
    EXPECT_EQ(qcs_cs_new("last"), qcs_cs_new("KOI8-R"));
    EXPECT_EQ(canonical("ruritanian"), "de_DE.ISO-8859-15");
    EXPECT_EQ(qcs_mb_max(qcs_cs_new("utf8")), 4) << "built-in names stay";
    EXPECT_EQ(qcs_cs_new("loop1"), 0U);
    EXPECT_EQ(qcs_cs_new("toomany"), 0U);
    qcs_set_dir(nullptr);
    EXPECT_EQ(canonical("ruritanian"), "de_DE.ISO-8859-15") << "null changes nothing";
}

TEST(AliasTest, AnythingButASmallRegularFileIsPassedOver) {
    testsupport::TempDir const directory;
    std::string const path = directory.file("aliases");
    auto const works = [&] {
        qcs_set_dir(directory.path().c_str());
        return canonical("hugealias") == "C.UTF-8";
    };
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_FALSE(works());
    ASSERT_EQ(remove(path.c_str()), 0);
    ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
    EXPECT_FALSE(works());
    ASSERT_EQ(remove(path.c_str()), 0);
    std::string const line = "locale hugealias C.UTF-8\n";
    testsupport::writeFile(path, line + std::string(300 * 1024, '#'));
    EXPECT_FALSE(works());
    testsupport::writeFile(path, line);
    EXPECT_TRUE(works());
    qcs_set_dir("/nonexistent");
}

TEST(AliasTest, TheInstalledTableIsAllUsable) {
    const char* const directory = getenv("QCSDIR");
    ASSERT_NE(directory, nullptr);
    qcs_set_dir(directory);
    EXPECT_EQ(qcs_cs_new("x-mac-roman"), qcs_cs_new("MACINTOSH"));
    EXPECT_NE(qcs_cs_new("IBM-eucJP"), 0U);
    EXPECT_EQ(canonical("japanese.euc"), "ja_JP.EUC-JP");
    qcs_set_dir("/nonexistent");
}

TEST(CancellationTest, AThreadThatIsBeingCancelledGetsItsHandles) {
    testsupport::TempDir const directory;
    testsupport::writeFile(directory.file("aliases"), "codeset house-koi KOI8-U\n");
    struct Answers {
        std::string directory;
        qcs_cs_handle codeset = 0;
        qcs_loc_handle locale = 0;
    } answers{directory.path(), 0, 0};
    pthread_t thread{};
    ASSERT_EQ(pthread_create(
                  &thread, nullptr,
                  [](void* argument) -> void* {
                      auto& mine = *static_cast<Answers*>(argument);
                      pthread_cancel(pthread_self());
                      qcs_set_dir(mine.directory.c_str());
                      mine.codeset = qcs_cs_new("house-koi");
                      mine.locale = qcs_loc_new("C");
                      pthread_testcancel();
                      return nullptr;
                  },
                  &answers),
              0);
    void* result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_NE(answers.codeset, 0U);
    EXPECT_NE(answers.locale, 0U);
    qcs_set_dir("/nonexistent");
}

}  // namespace
