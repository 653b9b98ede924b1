// Loading and storing real files: what is refused, what survives, what is left behind.
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "support/properties.h"

namespace {

using namespace testsupport;

using Invalid = ZPropertiesInvalidDataException;

constexpr char sample[] = "# about\n\n[s]\nk = 1\nk = 2\n\n[t]\n# x = 1\n\ne =\n";

std::string storeFailure(ZProperties& properties, std::string const& path = "") {
    return ioFailure([&] { properties.store(path.c_str()); });
}

unsigned int permissionsOf(std::string const& path) { return statusOf(path).st_mode & 07777U; }

TEST(PropertiesLoadTest, namesTheFileOrDirectoryThatDeniesALoadOrAStore) {
    StanzaFile const file(sample);
    std::string const pipe = file.beside("pipe");
    struct {
        bool isLoad;
        std::string path, denied;
        char const* api;
        int error;
    } const rows[] = {{true, file.place(), file.place(), "fopen(r)", EISDIR},
                      {true, pipe, pipe, "fopen(r)", EINVAL},
                      {true, file.path(), file.path(), "fopen(r)", EACCES},
                      {false, "/tmp", "/tmp", "fopen(r+)", EISDIR},
                      {false, file.path(), file.path(), "access()", EACCES},
                      {false, file.beside("new"), file.place(), "access()", EACCES},
                      {false, file.beside("no/file"), file.beside("no"), "access()", ENOENT},
                      {false, "/no-such-file", "/", "access()", EACCES}};
    ASSERT_EQ(mkfifo(pipe.c_str(), 0644), 0);
    ASSERT_EQ(chmod(file.path().c_str(), 0), 0);
    ASSERT_EQ(chmod(file.place().c_str(), 0555), 0);
    expectInChild([&] {
        becomeNobody();
        int const before = openDescriptors();
        for (auto const& row : rows) {
            ZStanzaFileProperties properties(1);
            properties.setValue("s", "k", "3");
            auto const operation = row.isLoad ? &ZProperties::load : &ZProperties::store;
            EXPECT_EQ(ioFailure([&] { (properties.*operation)(row.path.c_str()); }),
                      ioText(row.denied, row.api, row.error));
            EXPECT_TRUE(properties.isModified());
        }
        EXPECT_EQ(openDescriptors(), before);
    });
    ASSERT_EQ(chmod(file.place().c_str(), 0755), 0);
}

TEST(PropertiesLoadTest, addsToWhatIsThereAndReloadReplacesIt) {
    StanzaFile const file("# a\n[a]\nk = 1\n");
    writeFile(file.beside("more"), "[b]\nk = 2\n");
    ZStanzaFileProperties properties(file.path().c_str(), 0);
    properties.load(file.beside("more").c_str());
    EXPECT_EQ(properties.count(), 2U);
    properties.setValue("a", "k", "3");
    properties.reload();
    EXPECT_EQ(properties.count(), 1U);
    EXPECT_EQ(valueOf(properties, "a", "k"), "1");
    EXPECT_FALSE(properties.isModified());

    properties.setValue("a", "k", "2");
    ASSERT_EQ(unlink(file.path().c_str()), 0);
    EXPECT_THROW(properties.reload(), ZPropertiesIOException);
    properties.store();
    EXPECT_EQ(file.bytes(), "[a]\nk = 2\n") << "no comments, and the edit outlives the reload";
}

TEST(PropertiesLoadTest, aHalfReadFileIsNeverWrittenBack) {
    StanzaFile const file("");
    std::string const link = file.beside("link");
    std::string const second = file.beside("second");
    ASSERT_EQ(symlink(file.path().c_str(), link.c_str()), 0);
    writeFile(second, "worst\n");
    ZStanzaFileProperties properties(1);
    auto const refusal = [&](auto operation, std::string const& path) {
        auto const e = raisedBy<Invalid>([&] { (properties.*operation)(path.c_str()); });
        return e ? std::to_string(e->badline()) + " " + e->baddata() : "";
    };
    // Each time it is refused with what was wrong the last time.
    for (std::string const bad : {"bad", "worse"}) {
        std::string const bytes = "[" + bad + "]\nk = 1\n" + bad + "\n[t]\nk = 2\n";
        writeFile(file.path(), bytes);
        EXPECT_EQ(refusal(&ZProperties::load, file.path()), "3 " + bad);
        EXPECT_EQ(refusal(&ZProperties::load, second), "1 worst");
        properties.setValue(bad.c_str(), "l", "2");
        for (std::string const& path : {file.path(), link, std::string()})
            EXPECT_EQ(refusal(&ZProperties::store, path), "3 " + bad);
        EXPECT_EQ(file.bytes(), bytes);
    }
    properties.store(file.beside("other").c_str());
    EXPECT_EQ(readFile(file.beside("other")), "[bad]\nk = 1\nl = 2\n[worse]\nk = 1\nl = 2\n");
    writeFile(file.path(), "[s]\nk = 4\n");
    properties.reload();
    properties.store();
    EXPECT_EQ(file.bytes(), "[s]\nk = 4\n");
}

TEST(PropertiesLoadTest, aFileThatCouldNotBeLockedIsNotOverwritten) {
    StanzaFile const file("");
    std::string const path = file.path();
    std::string const link = file.beside("link");
    ASSERT_EQ(symlink(path.c_str(), link.c_str()), 0);
    for (bool const isRead : {true, false}) {
        std::string const missing = file.beside(isRead ? "first" : "second");
        std::string const refusal = ioText(path, "fcntl()", EAGAIN);
        writeFile(path, sample);
        ZStanzaFileProperties properties(1);
        int const holder = lockWhole(path, F_OFD_SETLK, F_WRLCK);
        EXPECT_EQ(ioFailure([&] { properties.load(path.c_str()); }), refusal);
        close(holder);
        for (std::string const& name : {path, link, std::string()})
            EXPECT_EQ(storeFailure(properties, name), refusal) << "nobody knows what it holds";
        EXPECT_THROW(properties.load(missing.c_str()), ZPropertiesIOException);
        EXPECT_EQ(storeFailure(properties, missing), "") << "nothing is lost there";
        isRead ? properties.reload() : properties.clear();
        properties.store();
        EXPECT_EQ(file.bytes(), isRead ? sample : "");
    }
}

TEST(PropertiesLoadTest, aFailedReloadFromAnotherFileSpoilsNeither) {
    EditedFile file("[a]\nk = 1\n");
    ZStanzaFileProperties& properties = file.properties;
    std::string const link = file.beside("link");
    std::string const other = file.beside("other");
    ASSERT_EQ(symlink(file.path().c_str(), link.c_str()), 0);
    writeFile(other, "[b]\nk = 2\nnonsense\n");
    EXPECT_THROW(properties.reload(other.c_str()), Invalid);
    for (std::string const& path : {std::string(), file.path(), link, other})
        EXPECT_THROW(properties.store(path.c_str()), Invalid) << path;
    properties.load(file.path().c_str());
    properties.store();
    EXPECT_EQ(file.bytes(), "[b]\nk = 2\n[a]\nk = 1\n") << "its values are back";
    EXPECT_THROW(properties.store(other.c_str()), Invalid);
}

TEST(PropertiesStoreTest, writesWhatItReadAndLeavesEqualBytesAlone) {
    constexpr long once = 1000000000;
    StanzaFile const file(sample);
    std::string const link = file.beside("link");
    ASSERT_EQ(symlink(file.path().c_str(), link.c_str()), 0);
    setTime(file.path(), once);
    ZStanzaFileProperties properties(link.c_str(), 1);
    properties.setValue("s", "k", "1");
    properties.addValue("s", "k", "2");
    properties.store();
    EXPECT_EQ(file.bytes(), sample);
    EXPECT_EQ(statusOf(file.path()).st_mtime, once);
    properties.setValue("s", "k", "3");
    properties.store();
    EXPECT_EQ(file.bytes(), "# about\n\n[s]\nk = 3\n\n[t]\n# x = 1\n\ne =\n");
    EXPECT_NE(statusOf(file.path()).st_mtime, once);
    EXPECT_TRUE(std::filesystem::is_symlink(link));
}

TEST(PropertiesStoreTest, createsAFileAndTakesItsName) {
    StanzaFile const file(sample);
    ZStanzaFileProperties properties(1);
    mode_t const before = umask(002);
    for (char const* const name : {"new", "copy"}) {
        properties.store(file.beside(name).c_str());
        EXPECT_EQ(properties.getFileName(), file.beside("new").c_str());
        EXPECT_EQ(permissionsOf(file.beside(name)), 0664U) << "empty, but stored";
    }
    umask(before);
}

/// properties_failure_test has the same for every call that may find the disk full.
TEST(PropertiesStoreTest, aFileDatedBeyond2038IsNoError) {
    StanzaFile const file(sample);
    ASSERT_EQ(system(("touch -d 2100-01-01 '" + file.path() + "'").c_str()), 0);
    ZStanzaFileProperties properties(file.path().c_str(), 1);
    properties.setValue("s", "k", "3");
    properties.store();
}

TEST(PropertiesStoreTest, aFileSizeLimitLosesNothing) {
    EditedFile file(sample);
    file.properties.setValue("s", "k", std::string(8000, 'v').c_str());
    expectInChild([&] {
        rlimit const limit{5000, 5000};
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
        EXPECT_EQ(storeFailure(file.properties), ioText(file.path(), "write()", EFBIG));
    });
    EXPECT_EQ(file.bytes(), sample);
}

constexpr char secretive[] = "[s]\nk = 1\n";
constexpr char companionStanza[] = "configuration-database";

/// A file that gets the obfuscated value "hush".
struct SecretFile : EditedFile {
    SecretFile() : EditedFile(secretive) { properties.setValue("s", "secret", "hush", 1); }
    [[nodiscard]] std::string reread() const { return valueIn(path(), "s", "secret"); }
};

TEST(PropertiesCompanionTest, holdsObfuscatedValuesForTheNextReader) {
    SecretFile file;
    expectInChild([&] {
        ASSERT_EQ(chdir(file.place().c_str()), 0);
        file.properties.store("settings");
    });
    EXPECT_EQ(file.bytes(), std::string(secretive) + "[" + companionStanza +
                                "]\nfile = " + file.companion() + "\n")
        << "with its directory";
    EXPECT_EQ(readFile(file.companion()).find("hush"), std::string::npos);
    ZStanzaFileProperties reader(file.path().c_str(), 1);
    writeFile(file.beside("more"), "[more]\nk = 2\n");
    reader.load(file.beside("more").c_str());
    EXPECT_EQ(valuesOf(reader, "s", "secret"), Texts{"hush"}) << "read once";
    EXPECT_TRUE(reader.isObfuscated("s", "secret"));
    EXPECT_FALSE(reader.isModified());
    ASSERT_EQ(chmod(file.path().c_str(), 0640), 0);
    reader.setValue("s", "secret", "two\nlines", 1);
    reader.store();
    EXPECT_EQ(permissionsOf(file.companion()), 0640U);
    EXPECT_EQ(file.reread(), "two\nlines");
}

TEST(PropertiesCompanionTest, isOfTheFilesOwnerAndGroupAsFarAsItsMakerMay) {
    bool const isRoot = geteuid() == 0;  // who alone can give files away and be somebody else
    uid_t const owner = isRoot ? 1234 : geteuid();
    gid_t const shared = isRoot ? 4321 : getegid();
    struct {
        gid_t memberOf;  // another user who stores; 0: who runs the test
        uid_t owner;
        gid_t group;
        unsigned int permissions;
    } const rows[] = {
        {0, owner, shared, 0666}, {shared, nobody, shared, 0666}, {nobody, nobody, nobody, 0606}};
    for (auto const& row : rows) {
        if (!isRoot && row.memberOf != 0) continue;
        SecretFile file;
        ASSERT_EQ(chmod(file.place().c_str(), 0777), 0);
        ASSERT_EQ(chmod(file.path().c_str(), 0666), 0);
        ASSERT_EQ(chown(file.path().c_str(), owner, shared), 0);
        expectInChild([&] {
            if (row.memberOf != 0) becomeNobody(row.memberOf);
            file.properties.store();
        });
        EXPECT_EQ(statusOf(file.companion()).st_uid, row.owner);
        EXPECT_EQ(statusOf(file.companion()).st_gid, row.group);
        EXPECT_EQ(permissionsOf(file.companion()), row.permissions);
    }
}

TEST(PropertiesCompanionTest, goesWithTheLastObfuscatedValue) {
    SecretFile file;
    file.properties.store();
    std::string const left = std::string(secretive) + "[" + companionStanza + "]\n";
    file.properties.deleteKey("s", "secret");
    file.properties.store(file.beside("copy").c_str());
    EXPECT_EQ(readFile(file.beside("copy")), left);
    EXPECT_EQ(file.reread(), "hush") << "the file itself still names it";
    file.properties.store();
    EXPECT_FALSE(std::filesystem::exists(file.companion()));
    EXPECT_EQ(file.bytes(), left);
}

TEST(PropertiesCompanionTest, neverTouchesAFileThatIsNotItsOwn) {
    SecretFile file;
    std::string const companion = file.companion();
    std::string const victim = file.beside("victim");
    auto const refusal = [&](int error) { return ioText(companion, "fopen(w)", error); };
    writeFile(victim, "precious");
    writeFile(companion, "somebody's");
    EXPECT_EQ(storeFailure(file.properties), refusal(EEXIST));
    EXPECT_EQ(readFile(companion), "somebody's");
    EXPECT_EQ(file.bytes(), secretive);
    EXPECT_TRUE(file.properties.isModified());
    EXPECT_FALSE(file.properties.exists(companionStanza));

    ASSERT_EQ(unlink(companion.c_str()), 0);
    file.properties.store();
    file.properties.setValue("s", "secret", "changed", 1);
    ASSERT_EQ(unlink(companion.c_str()), 0);
    ASSERT_EQ(mkfifo(companion.c_str(), 0600), 0);
    EXPECT_EQ(storeFailure(file.properties), refusal(EINVAL));
    ASSERT_EQ(unlink(companion.c_str()), 0);
    ASSERT_EQ(symlink(victim.c_str(), companion.c_str()), 0);
    EXPECT_EQ(storeFailure(file.properties), refusal(ELOOP));
    file.properties.deleteKey("s", "secret");
    EXPECT_EQ(storeFailure(file.properties), ioText(companion, "unlink()", EINVAL));
    EXPECT_EQ(readFile(victim), "precious");
    ASSERT_EQ(unlink(companion.c_str()), 0);
    file.properties.store();  // nothing is left to be removed
}

TEST(PropertiesCompanionTest, aDamagedOrMissingOneFailsTheLoadAndIsNotOverwritten) {
    SecretFile file;
    file.properties.store();
    std::string const companion = file.companion();
    std::string const main = file.bytes();
    ZStanzaFileProperties properties(1);
    writeFile(companion, "damaged");
    EXPECT_THROW(properties.load(file.path().c_str()), Invalid);
    EXPECT_THROW(properties.store(), Invalid);
    EXPECT_EQ(readFile(companion), "damaged");
    std::string const refusal = ioText(companion, "mapFile()", EINVAL);
    writeFile(companion, "");
    EXPECT_EQ(ioFailure([&] { properties.reload(); }), refusal);
    ASSERT_EQ(unlink(companion.c_str()), 0);
    EXPECT_EQ(storeFailure(properties), refusal);
    EXPECT_EQ(file.bytes(), main);
}

}  // namespace
