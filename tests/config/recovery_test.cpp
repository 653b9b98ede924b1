// link: static
// wrap: pwrite64,pread64
// Stores whose process ends between two writes, and what whoever comes next makes of the files.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>

#include "Z/ZJavaPropertiesFile.h"
#include "Z/ZUTF8String.h"
#include "Z/utility/checksum.h"
#include "support/processes.h"
#include "support/properties.h"
#include "support/reports.h"

extern "C" decltype(pwrite64) __real_pwrite64;
extern "C" decltype(pread64) __real_pread64;

/// As a system may that is interrupted.
extern "C" ssize_t __wrap_pread64(int fd, void* bytes, size_t count, off64_t offset) {
    return __real_pread64(fd, bytes, std::min(count, size_t{7}), offset);
}

namespace {

using namespace testsupport;
namespace fs = std::filesystem;

// The file whose second piece is not written any more; 0: none.
ino_t lastFile = 0;
constexpr int broken = 77;

std::vector<Report> oneReport(int number) { return {{"ZPropertiesRecoveryException", number, {}}}; }

/// The generation that is stored first, and the one that is broken off.
std::string valueOfGeneration(char generation) { return std::string(60, generation); }
std::string const before = valueOfGeneration('o');
std::string const after = valueOfGeneration('n') + " and longer";

/// Stores under `store` until a part of `path` is written.
void breakOff(std::string const& path, std::function<void()> const& store) {
    EXPECT_EQ(inChild([&] {
                  lastFile = statusOf(path).st_ino;
                  store();
                  return 0;
              }),
              broken);
}

/// A file with a plain and an obfuscated value, and a store that was broken off in one of them.
struct Torn {
    StanzaFile file{"# about\n[s]\nk = " + before + "\n"};
    std::string copy = file.beside(".settings.zsave");
    std::string aside = copy + ".old";

    explicit Torn(bool inCompanion = false, unsigned long attributes = 0) {
        ZStanzaFileProperties properties(file.path().c_str(), 1);
        properties.setValue("s", "secret", before.c_str(), 1);
        properties.store();
        breakOff(inCompanion ? file.companion() : file.path(), [&] {
            properties.setAttributes(attributes, nullptr);
            properties.setValue("s", "k", after.c_str());
            properties.setValue("s", "secret", after.c_str(), 1);
            properties.store();
        });
    }
};

/// Both values; what a load raises otherwise.
std::string valuesAt(std::string const& path) {
    try {
        ZStanzaFileProperties const properties(path.c_str(), 1);
        return valueOf(properties, "s", "k") + "|" + valueOf(properties, "s", "secret");
    } catch (ZException const& e) {
        return e.getName();
    }
}
std::string const oldValues = before + "|" + before;
std::string const newValues = after + "|" + after;

TEST(RecoveryTest, aStoreThatIsBrokenOffIsFinishedByWhoeverComesNext) {
    struct {
        char const* what;
        std::function<void(Torn const&)> come;
    } const rows[] = {
        {"a load", [](Torn const& torn) { EXPECT_EQ(valuesAt(torn.file.path()), newValues); }},
        {"a store",
         [](Torn const& torn) {
             ZStanzaFileProperties other(1);
             other.setValue("s", "secret", after.c_str(), 1);
             other.setValue("s", "k", after.c_str());
             other.store(torn.file.path().c_str());
         }},
        {"an update",
         [](Torn const& torn) {
             ZStanzaFileProperties other(1);
             other.updateFile(
                 [](ZProperties& found) { EXPECT_EQ(valueOf(found, "s", "secret"), after); }, 0,
                 torn.file.path().c_str());
         }},
        {"a load where they were moved to",
         [](Torn const& torn) {
             std::string const moved = torn.file.place() + "-moved";
             fs::rename(torn.file.place(), moved);
             EXPECT_EQ(valuesAt(moved + "/settings"), newValues);
             fs::rename(moved, torn.file.place());
         }},
        {"a load of a link",
         [](Torn const& torn) {
             fs::create_directory(torn.file.beside("links"));
             std::string const link = torn.file.beside("links/link");
             fs::create_symlink(torn.file.path(), link);
             EXPECT_EQ(valuesAt(link), newValues);
         }},
    };
    for (auto const& row : rows)
        for (bool const inCompanion : {false, true}) {
            SCOPED_TRACE(std::string(row.what) + (inCompanion ? ", companion torn" : ""));
            Torn const torn(inCompanion);
            std::string const bytes = torn.file.bytes();
            EXPECT_TRUE(fs::exists(torn.copy));
            row.come(torn);
            EXPECT_FALSE(fs::exists(torn.copy));
            EXPECT_NE(torn.file.bytes(), bytes);
            EXPECT_EQ(valuesAt(torn.file.path()), newValues);
        }
}

TEST(RecoveryTest, aCompanionThatComesOrGoesIsPartOfTheStore) {
    for (int i = 0; i < 8; ++i) {
        bool const comes = (i & 1) != 0;
        bool const isThere = (i & 2) != 0;
        bool const isDenied = (i & 4) != 0;
        SCOPED_TRACE(i);
        StanzaFile const file("[s]\nk = " + before + "\n");
        ZStanzaFileProperties properties(file.path().c_str(), 1);
        if (!comes) properties.setValue("s", "secret", before.c_str(), 1);
        properties.store();
        breakOff(file.path(), [&] {
            properties.setValue("s", "k", after.c_str());
            comes ? properties.setValue("s", "secret", after.c_str(), 1)
                  : properties.deleteKey("s", "secret");
            properties.store();
        });
        if (!isThere) fs::remove(file.companion());
        std::string const whole = after + "|" + (comes ? after : "");
        if (isDenied) {
            int const reader = lockWhole(file.path(), F_OFD_SETLK, F_RDLCK);
            EXPECT_EQ(valuesAt(file.path()), whole);
            close(reader);
        }
        EXPECT_EQ(valuesAt(file.path()), whole);
        EXPECT_EQ(fs::exists(file.companion()), comes);
    }
}

TEST(RecoveryTest, aCopiedDirectoryIsFinishedByItself) {
    Torn const torn;
    std::string const copied = torn.file.place() + "-copied";
    fs::copy(torn.file.place(), copied, fs::copy_options::recursive);
    std::string const companion = readFile(torn.file.companion());
    EXPECT_EQ(valuesAt(copied + "/settings"), newValues);
    EXPECT_EQ(readFile(torn.file.companion()), companion);
    EXPECT_TRUE(fs::exists(torn.copy));
    fs::remove_all(copied);
}

TEST(RecoveryTest, whoMayNotWriteReadsWhatWillBe) {
    for (bool const inCompanion : {false, true}) {
        Torn const torn(inCompanion);
        std::string const bytes = torn.file.bytes();
        std::string const companion = readFile(torn.file.companion());
        // Another reader is in the way of the exclusive lock.
        Companion reader([&](Companion& parent) {
            if (lockWhole(torn.file.path(), F_SETLK, F_RDLCK) < 0) return 1;
            parent.signal();
            return parent.await() ? 0 : 2;
        });
        ASSERT_TRUE(reader.await());
        EXPECT_EQ(valuesAt(torn.file.path()), newValues);
        EXPECT_EQ(torn.file.bytes(), bytes);
        EXPECT_EQ(readFile(torn.file.companion()), companion);
        reader.signal();
        EXPECT_EQ(reader.join(), 0);
        EXPECT_EQ(valuesAt(torn.file.path()), newValues);
        EXPECT_NE(torn.file.bytes() + readFile(torn.file.companion()), bytes + companion);
    }
}

TEST(RecoveryTest, anEditStaysAndTheCopyIsSetAside) {
    struct {
        char const* what;
        bool inCompanion;
        std::function<std::string(std::string)> edit;
    } const rows[] = {
        {"behind", false, [](std::string text) { return text + "[t]\n"; }},
        {"in front", false, [](std::string text) { return "#" + text; }},
        {"within, old", true, [](std::string text) { return text.replace(30, 1, "x"); }},
        {"shorter", false, [](std::string text) { return text.substr(0, 30); }},
        {"another file", true, [](std::string const&) { return "[s]\nk = by hand\n"; }},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.what);
        Torn const torn(row.inCompanion);
        std::string const edited = row.edit(torn.file.bytes());
        writeFile(torn.file.path(), edited);
        Reports reports;
        static_cast<void>(valuesAt(torn.file.path()));
        EXPECT_EQ(reports.take(), oneReport(58));
        EXPECT_EQ(torn.file.bytes(), edited);
        EXPECT_TRUE(fs::exists(torn.aside));
        EXPECT_FALSE(fs::exists(torn.copy));
        // A companion that is half new is made whole, as the file that was edited knew it.
        writeFile(torn.file.path(),
                  "[configuration-database]\nfile = " + torn.file.companion() + "\n");
        EXPECT_EQ(valuesAt(torn.file.path()), "|" + (row.inCompanion ? before : after));
    }
}

TEST(RecoveryTest, aCopyThatDoesNotCountIsIgnoredAndReported) {
    struct {
        char const* what;
        std::function<void(std::string const&)> change;
        bool stays = true;
    } const rows[] = {
        {"cut off", [](auto const& copy) { fs::resize_file(copy, 100); }, false},
        {"empty", [](auto const& copy) { fs::resize_file(copy, 0); }, false},
        {"longer", [](auto const& copy) { fs::resize_file(copy, fs::file_size(copy) + 1); }},
        {"damaged",
         [](auto const& copy) {
             std::string bytes = readFile(copy);
             bytes[bytes.size() / 2] ^= 1;
             writeFile(copy, bytes);
         }},
        {"foreign", [](auto const& copy) { writeFile(copy, "[s]\nk = v\n"); }},
        {"wider", [](auto const& copy) { fs::permissions(copy, fs::perms(0666)); }},
        {"two names", [](auto const& copy) { fs::create_hard_link(copy, copy + "2"); }},
        {"a link",
         [](auto const& copy) {
             fs::rename(copy, copy + "2");
             fs::create_symlink(copy + "2", copy);
         }},
        {"a pipe",
         [](auto const& copy) {
             fs::remove(copy);
             EXPECT_EQ(mkfifo(copy.c_str(), 0600), 0);
         }},
        {"a directory",
         [](auto const& copy) {
             fs::remove(copy);
             fs::create_directory(copy);
         }},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.what);
        Torn const torn;
        std::string const bytes = torn.file.bytes();
        row.change(torn.copy);
        Reports reports;
        EXPECT_NE(valuesAt(torn.file.path()), newValues);
        EXPECT_EQ(reports.take(), oneReport(57));
        EXPECT_EQ(torn.file.bytes(), bytes);
        EXPECT_EQ(fs::symlink_status(torn.copy).type() != fs::file_type::not_found, row.stays);
        // Whoever stores next does not need it.
        ZStanzaFileProperties other(1);
        other.setValue("s", "k", "v");
        other.store(torn.file.path().c_str());
        EXPECT_EQ(valueIn(torn.file.path(), "s", "k"), "v");
    }
}

/// Where a copy has its numbers behind the checksum: eight bytes each, texts behind their length.
std::vector<std::size_t> numbersIn(std::string const& copy) {
    std::vector<std::size_t> places;
    std::size_t at = 24;
    auto const next = [&] {
        std::uint64_t number = 0;
        std::memcpy(&number, &copy.at(at), sizeof number);
        places.push_back(at);
        at += sizeof number;
        return static_cast<std::size_t>(number);
    };
    auto const skip = [&](int numbers, int texts) {
        while (numbers-- > 0)
            next();
        while (texts-- > 0)
            at += next();
    };
    skip(4, 0);
    for (std::size_t files = next(); files > 0; --files) {
        skip(0, 1);
        skip(7, 2);
    }
    return places;
}

TEST(RecoveryTest, aCopyWithAWrongNumberMakesNothingThatNoStoreMade) {
    constexpr std::size_t headSize = 24;
    constexpr std::uint64_t numbers[] = {0, 1, 2, 3, 46, std::uint64_t{1} << 40U, ~std::uint64_t{}};
    for (bool const inCompanion : {false, true}) {
        Torn const torn(inCompanion);
        std::string const companion = torn.file.companion();
        std::string const bytes[] = {torn.file.bytes(), readFile(companion)};
        std::string const copy = readFile(torn.copy);
        auto const put = [&](std::string const& changed) {
            writeFile(torn.file.path(), bytes[0]);
            writeFile(companion, bytes[1]);
            writeFile(torn.copy, changed);
        };
        static_cast<void>(valuesAt(torn.file.path()));
        std::string const whole[] = {torn.file.bytes(), readFile(companion)};
        for (std::size_t const place : numbersIn(copy))
            for (std::uint64_t const number : numbers) {
                SCOPED_TRACE(std::to_string(place) + ": " + std::to_string(number));
                std::string changed = copy;
                std::memcpy(&changed[place], &number, sizeof number);
                std::uint64_t const sum = zfc::checksum(std::string_view(changed).substr(headSize));
                std::memcpy(&changed[headSize - sizeof sum], &sum, sizeof sum);
                put(changed);
                Reports const dropped;
                std::string const values = valuesAt(torn.file.path());
                std::string const now = torn.file.bytes();
                EXPECT_TRUE(now == bytes[0] || now == whole[0]) << now;
                EXPECT_TRUE(now == bytes[0] || values == newValues) << values;
            }
    }
}

TEST(RecoveryTest, isOfTheFilesOwnerAsFarAsItsMakerMayAndCountsOfNobodyElse) {
    bool const isRoot = geteuid() == 0;  // who alone can give files away and be somebody else
    uid_t const owner = isRoot ? 1234 : geteuid();
    gid_t const group = isRoot ? 4321 : getegid();
    auto const given = [&](std::string const& path, uid_t to, mode_t mode) {
        EXPECT_EQ(chown(path.c_str(), to, group), 0);
        EXPECT_EQ(chmod(path.c_str(), mode), 0);
    };
    struct {
        uid_t maker;  // another user who stores; 0: who runs the test
        gid_t memberOf;
        uid_t owner;
        unsigned int permissions;  // 0: there is none
    } const makers[] = {{0, 0, owner, 0660},
                        {owner, group, owner, 0660},
                        {owner, nobody, owner, 0600},
                        {nobody, group, 0, 0}};
    for (auto const& row : makers) {
        if (!isRoot && row.maker != 0) continue;
        SCOPED_TRACE(row.maker);
        StanzaFile const file("[s]\nk = " + before + "\n");
        ASSERT_EQ(chmod(file.place().c_str(), 0777), 0);
        given(file.path(), owner, 0660);
        breakOff(file.path(), [&] {
            if (row.maker != 0) becomeNobody(row.memberOf, row.maker);
            ZStanzaFileProperties properties(file.path().c_str(), 1);
            properties.setValue("s", "k", after.c_str());
            properties.store();
        });
        std::string const copy = file.beside(".settings.zsave");
        EXPECT_EQ(fs::exists(copy), row.permissions != 0);
        if (!fs::exists(copy)) continue;
        EXPECT_EQ(statusOf(copy).st_uid, row.owner);
        EXPECT_EQ(statusOf(copy).st_mode & 0777U, row.permissions);
    }
    struct {
        uid_t owner;
        gid_t group;
        mode_t mode;
        bool counts;
    } const copies[] = {{0, 0, 0600, true},
                        {owner, 0, 0600, true},
                        {owner, group, 0660, true},
                        {owner, 0, 0640, false},
                        {nobody, group, 0600, false}};
    for (auto const& row : copies) {
        if (!isRoot && (row.owner != owner || row.group != group)) continue;
        SCOPED_TRACE(row.mode);
        Torn const torn;
        given(torn.file.path(), owner, 0660);
        given(torn.file.companion(), owner, 0660);
        given(torn.copy, row.owner, row.mode);
        ASSERT_EQ(chown(torn.copy.c_str(), row.owner, row.group), 0);
        Reports reports;
        EXPECT_EQ(valuesAt(torn.file.path()) == newValues, row.counts);
        EXPECT_EQ(reports.take().empty(), row.counts);
    }
}

TEST(RecoveryTest, oneThatMayNotBeReadFailsTheLoadUnlessItIsEmptyYet) {
    for (bool const isEmpty : {false, true}) {
        Torn const torn;
        if (isEmpty) fs::resize_file(torn.copy, 0);
        ASSERT_EQ(chmod(torn.copy.c_str(), 0), 0);
        ASSERT_EQ(chmod(torn.file.place().c_str(), 0755), 0);
        expectInChild([&] {
            becomeNobody();
            Reports reports;
            EXPECT_EQ(ioFailure([&] { valueIn(torn.file.path(), "s", "k"); }),
                      isEmpty ? "" : ioText(torn.copy, "fopen(r)", EACCES));
            EXPECT_EQ(reports.take().size(), isEmpty ? 1U : 0U);
        });
    }
}

TEST(RecoveryTest, thereIsNoneWhereItIsNotWantedOrCannotBe) {
    Torn const torn(false, ZPCache::noRecoveryCopy);
    EXPECT_FALSE(fs::exists(torn.copy));
    EXPECT_NE(valuesAt(torn.file.path()), newValues);

    std::string const longName = torn.file.beside(std::string(250, 'n'));
    ZStanzaFileProperties properties(1);
    properties.setValue("s", "k", "v");
    properties.store(longName.c_str());
    EXPECT_EQ(valueIn(longName, "s", "k"), "v");
}

TEST(RecoveryTest, nobodyMayReadItWhoMayNotReadBothFiles) {
    StanzaFile const file("[s]\nk = " + before + "\n");
    ZStanzaFileProperties properties(file.path().c_str(), 1);
    ASSERT_EQ(chmod(file.path().c_str(), 0644), 0);
    properties.setValue("s", "secret", before.c_str(), 1);
    properties.store();
    EXPECT_EQ(statusOf(file.companion()).st_mode & 0777U, 0644U) << "made as the file is";
    ASSERT_EQ(chmod(file.path().c_str(), 0664), 0);
    ASSERT_EQ(chmod(file.companion().c_str(), 0640), 0);
    properties.setValue("s", "secret", after.c_str(), 1);
    breakOff(file.companion(), [&] { properties.store(); });
    EXPECT_EQ(statusOf(file.beside(".settings.zsave")).st_mode & 0777U, 0640U);
    // Narrowed before a secret is written.
    ASSERT_EQ(chmod(file.path().c_str(), 0600), 0);
    Reports const dropped;  // the copy is wider than the file by now
    breakOff(file.companion(), [&] { properties.store(); });
    EXPECT_EQ(statusOf(file.companion()).st_mode & 0777U, 0600U);
}

TEST(RecoveryTest, propertiesFilesHaveOneToo) {
    for (bool const wanted : {true, false}) {
        TempDir const directory;
        std::string const path = directory.file("app.properties");
        writeFile(path, "k = " + before + "\n");
        breakOff(path, [&] {
            ZJavaPropertiesFile file(path.c_str());
            file.setRecoveryCopy(wanted);
            file.updateFile(
                [](auto& found) { found.setValue(ZUTF8String("k"), ZUTF8String(after.c_str())); },
                0);
        });
        ZJavaPropertiesFile file(path.c_str());
        file.load();
        ZUTF8String value;
        file.getValue(ZUTF8String("k"), value);
        EXPECT_EQ(value.getChars() == after, wanted);
        EXPECT_FALSE(fs::exists(directory.file(".app.properties.zsave")));
    }
}

}  // namespace

/// In pieces of a few bytes.
extern "C" ssize_t __wrap_pwrite64(int fd, void const* bytes, size_t count, off64_t offset) {
    static int pieces = 0;
    struct stat status {};
    bool const isLast = lastFile != 0 && fstat(fd, &status) == 0 && status.st_ino == lastFile;
    if (isLast && ++pieces == 2) _exit(broken);
    return __real_pwrite64(fd, bytes, std::min(count, size_t{4}), offset);
}
