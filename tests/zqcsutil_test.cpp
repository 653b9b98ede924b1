#include "Z/zqcsutil.h"

#include <gtest/gtest.h>

#include <array>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "Z/ZException.h"
#include "Z/ZLCString.h"
#include "Z/ZMessage.h"
#include "support/processes.h"

namespace {

using testsupport::captureChild;
using testsupport::inChild;

// Nothing in this process asks for a codeset: every test sets the library up in a child of its own.
using Body = std::function<int()>;

Body inLocale(const char* locale, const Body& body) {
    return [=] {
        setenv("LC_ALL", locale, 1);
        return body();
    };
}

Body withoutQcsdir(const Body& body) {
    return [=] {
        unsetenv("QCSDIR");
        return body();
    };
}

int occurrences(const std::string& text, const std::string& sub) {
    int count = 0;
    for (auto at = text.find(sub); at != std::string::npos; at = text.find(sub, at + 1))
        ++count;
    return count;
}

constexpr char noEnvironment[] = "The QCSDIR environment variable is not set.";

TEST(CodesetSetUpTest, TakesTheCodesetOfTheEnvironment) {
    struct {
        const char* locale;
        const char* name;
        const char* codeset;
        int greatest;
    } const rows[] = {{"C.UTF-8", "C.UTF-8", "UTF-8", 4},
                      {"C", "C", "US-ASCII", 1},
                      {"xx_XX.eucJP", "xx_XX.EUC-JP", "EUC-JP", 3},
                      {"xx_XX.iso88591", "xx_XX.ISO-8859-1", "ISO-8859-1", 1},
                      {"xx_XX", "xx_XX", "US-ASCII", 1}};
    for (auto const& row : rows) {
        auto const child = captureChild(inLocale(row.locale, [&] {
            if (strcmp(zgetlocale(), row.name) != 0) return 1;
            if (strcmp(zgetLocalCodesetName(), row.codeset) != 0) return 2;
            if (zlcs_mb_max() != row.greatest) return 3;
            bool const same = zgetLCSHandle() == zgetUTF8Handle();
            return same == (strcmp(row.codeset, "UTF-8") == 0) ? 0 : 4;
        }));
        EXPECT_EQ(child.status, 0) << row.locale;
        EXPECT_EQ(child.err, "") << row.locale;
    }
}

TEST(CodesetSetUpTest, MakesTheEnvironmentsLocaleTheProcesss) {
    EXPECT_EQ(inChild([] {
                  zgetUTF8Handle();
                  return strcmp(setlocale(LC_ALL, nullptr), "C.UTF-8") == 0 ? 0 : 1;
              }),
              0);
}

TEST(CodesetSetUpTest, GivesAllThreadsTheSame) {
    EXPECT_EQ(inChild([] {
                  std::array<ZCodesetHandle, 8> handles{};
                  std::vector<std::thread> threads;
                  threads.reserve(handles.size());
                  for (auto& handle : handles)
                      threads.emplace_back([&handle] { handle = zgetLCSHandle(); });
                  for (auto& thread : threads)
                      thread.join();
                  for (auto const handle : handles) {
                      if (handle == 0 || handle != handles[0]) return 1;
                  }
                  return 0;
              }),
              0);
}

TEST(NoQcsdirTest, HandleGettersReportAndAbort) {
    const std::vector<Body> bodies{[] { return static_cast<int>(zgetLCSHandle()); },
                                   [] { return static_cast<int>(zgetUTF8Handle()); },
                                   [] { return zlcs_mb_max(); },
                                   [] { return static_cast<int>(ZLCString("text").getLength()); }};
    for (auto const& body : bodies) {
        auto const child = captureChild(withoutQcsdir(body));
        EXPECT_EQ(child.status, -SIGABRT);
        EXPECT_EQ(occurrences(child.err, "Exception: "), 1) << child.err;
        EXPECT_EQ(child.err.rfind("Exception: ZNoQCSEnvironmentException\n File: "
                                  "\"src/Z/zqcsutil\" ",
                                  0),
                  0U)
            << child.err;
        EXPECT_EQ(occurrences(child.err, noEnvironment), 1) << child.err;
    }
}

TEST(NoQcsdirTest, NameGettersReportAndReturnNull) {
    auto const child = captureChild(withoutQcsdir([] {
        if (zgetLocalCodesetName() != nullptr) return 1;
        return zgetlocale() == nullptr ? 0 : 2;
    }));
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(occurrences(child.err, noEnvironment), 2) << "each call reports: " << child.err;
}

TEST(NoQcsdirTest, AChosenDirectoryDoesNotStandInForIt) {
    auto const child = captureChild(withoutQcsdir([] {
        zset_cs_dir("/tmp");
        return zgetLocalCodesetName() == nullptr ? 0 : 1;
    }));
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(occurrences(child.err, noEnvironment), 1);
}

TEST(BadCodesetTest, ReportsOnceAndAborts) {
    auto const child = captureChild(inLocale("xx_XX.UTF-16", [] {
        setenv("QCSDIR", "/some/dir", 1);
        return static_cast<int>(ZLCString("text").getLength());
    }));
    EXPECT_EQ(child.status, -SIGABRT);
    EXPECT_EQ(occurrences(child.err, "Exception: ZCodesetException\n"), 1) << child.err;
    EXPECT_EQ(occurrences(child.err,
                          "Codeset handle create failed for codeset \"UTF-16\".  "
                          "QCSDIR is \"/some/dir\""),
              1)
        << child.err;
    EXPECT_EQ(occurrences(child.err, "Exception: "), 1) << child.err;
}

/// A service that works with strings while it reports.
class StringyService : public ZDefaultMessageService {
  public:
    void outputException(ZZException const* e, va_list) const override {
        ZLCString text("report of ");
        text.append(e->getName());
        text.upper();
        fprintf(stderr, "%s: %u\n", text.getChars(), zgetLCSHandle());
    }
};

TEST(BadCodesetTest, LeavesStringsUsableWhileItIsReported) {
    auto const child = captureChild(inLocale("xx_XX.nosuchset", [] {
        static StringyService const service;
        ZMessageService::setMessageService(&service);
        if (zgetLocalCodesetName() != nullptr) return 1;
        return zgetlocale() == nullptr ? 0 : 2;
    }));
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(occurrences(child.err, "report of ZCodesetException: 0\n"), 2) << child.err;
}

TEST(BadCodesetTest, ANameThatIsTooLongIsReportedWithoutIt) {
    auto const child = captureChild(inLocale("xx_XX.a-codeset-whose-name-is-beyond-all-measure",
                                             [] { return static_cast<int>(zgetLCSHandle()); }));
    EXPECT_EQ(child.status, -SIGABRT);
    EXPECT_EQ(occurrences(child.err, "create failed for codeset \"\"."), 1) << child.err;
}

TEST(DirectoryTest, TheChosenOneGoesBeforeTheEnvironments) {
    testsupport::TempDir const chosen;
    testsupport::writeFile(chosen.file("aliases"), "codeset house-set KOI8-R\n");
    EXPECT_EQ(inChild(inLocale("xx_XX.House-Set",
                               [&] {
                                   zset_cs_dir(chosen.path().c_str());
                                   zset_cs_dir(nullptr);
                                   const char* const name = zgetLocalCodesetName();
                                   return name != nullptr && strcmp(name, "KOI8-R") == 0 ? 0 : 1;
                               })),
              0);
}

TEST(LocalConversionTest, GoesBothWays) {
    EXPECT_EQ(inChild(inLocale("xx_XX.ISO8859-15",
                               [] {
                                   std::array<char, 8> utf8{};
                                   std::array<char, 8> local{};
                                   if (zlcs_to_utf8("\xA4", 2, utf8.data(), 8) != 4) return 1;
                                   if (strcmp(utf8.data(), "\xE2\x82\xAC") != 0) return 2;
                                   if (zlcs_from_utf8(utf8.data(), 4, local.data(), 8) != 2)
                                       return 3;
                                   if (strcmp(local.data(), "\xA4") != 0) return 4;
                                   if (zlcs_from_utf8("\xE6\x97\xA5", 3, local.data(), 8) != -1)
                                       return 5;
                                   return zlcs_to_utf8("\xA4\xA4", 2, utf8.data(), 5) == -1 ? 0 : 6;
                               })),
              0);
}

TEST(LocalConversionTest, NothingIsNotAskedOfTheCodesets) {
    auto const child = captureChild(withoutQcsdir([] {
        std::array<char, 4> room{};
        int result = 0;
        for (auto* const convert : {zlcs_to_utf8, zlcs_from_utf8}) {
            result |= convert("a", 1, room.data(), 0) | convert("a", 0, room.data(), 4);
            result |= convert(nullptr, 1, room.data(), 4) | convert("a", 1, nullptr, 4);
        }
        return result;
    }));
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(child.err, "");
}

TEST(CharacterTest, EveryByteOfASingleByteLocalCodesetIsOne) {
    EXPECT_EQ(inChild(inLocale("C",
                               [] {
                                   ZCodesetHandle const local = zgetLCSHandle();
                                   if (zmblen(local, "\xE9", 1) != 1) return 1;
                                   if (zmblen(local, "", 1) != 0 || zmblen(local, "a", 0) != 0)
                                       return 2;
                                   if (zstrcount(local, "caf\xC3\xA9!") != 6) return 3;
                                   return zmblen(zgetUTF8Handle(), "\xE9", 1) == -1 ? 0 : 4;
                               })),
              0);
}

TEST(CharacterTest, OfTheUtf8Codeset) {
    EXPECT_EQ(inChild([] {
                  ZCodesetHandle const utf8 = zgetUTF8Handle();
                  ZWideChar wide = 0;
                  if (zmbtowc(utf8, &wide, "\xE2\x82\xAC", 3) != 3 || wide != 0x20AC) return 1;
                  if (zmblen(utf8, "\xE2\x82\xAC", 2) != -1) return 2;
                  if (zstrcount(utf8, "\xE2\x82\xAC \xF0\x9F\x98\x80") != 3) return 3;
                  if (zstrcount(utf8, "ab\xFF") != 2 || zstrcount(utf8, nullptr) != 0) return 4;
                  if (zisspace(utf8, "\xE3\x80\x80", 3) != 3 || zisspace(utf8, "x", 1) != 0)
                      return 5;
                  if (zisalpha(utf8, "\xC3\xA9", 2) != 2 || zisalpha(utf8, "1", 1) != 0) return 6;
                  if (zisalpha(utf8, "\xC3\xA9", 1) != 0 || zisspace(utf8, nullptr, 1) != 0)
                      return 7;
                  return 0;
              }),
              0);
}

TEST(CharacterTest, FunctionsReachTheCodesetLayer) {
    EXPECT_EQ(inChild([] {
                  ZCodesetHandle const cs = zgetUTF8Handle();
                  std::string text = "\xC3\xA9t\xC3\xA9 = x";
                  char* const s = text.data();
                  if (zstrchr(cs, s, 0xE9) != s || zstrrchr(cs, s, 0xE9) != s + 3) return 1;
                  if (zstrstr(cs, s, "= ") != s + 6 || zstrpbrk(cs, s, "=x") != s + 6) return 2;
                  if (zstrspn(cs, s, "t\xC3\xA9") != 5 || zstrcspn(cs, s, " ") != 5) return 3;
                  if (strcmp(zstrupper(cs, s), "\xC3\x89T\xC3\x89 = X") != 0) return 4;
                  if (zstricmp(cs, s, "\xC3\xA9t\xC3\x89 = x") != 0) return 5;
                  if (zstrnicmp(cs, s, "\xC3\xA9t\xC3\xA9?", 5) != 0) return 6;
                  if (strcmp(zstrlower(cs, s), "\xC3\xA9t\xC3\xA9 = x") != 0) return 7;
                  std::array<char, 4> copy{};
                  if (strcmp(zstrncpy(cs, copy.data(), s, 4), "\xC3\xA9t") != 0) return 8;
                  copy[0] = 0;
                  if (strcmp(zstrncat(cs, copy.data(), s, 1), "") != 0) return 9;
                  char* state = nullptr;
                  if (strcmp(zstrtok(cs, s, " =", &state), "\xC3\xA9t\xC3\xA9") != 0) return 10;
                  if (strcmp(zstrtok(cs, nullptr, " =", &state), "x") != 0) return 11;
                  struct tm tm {};
                  if (zstrptime(cs, "12:34", "%H:%M", &tm) == nullptr || tm.tm_min != 34) return 12;
                  if (ziswupper('A') == 0 || ziswlower('A') != 0 || ziswspace(0x3000) == 0)
                      return 13;
                  return ziswdigit('7') != 0 && ziswalpha('7') == 0 && ziswalnum('7') != 0 ? 0 : 14;
              }),
              0);
}

}  // namespace
