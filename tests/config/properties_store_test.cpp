// Loading and storing real files: what is refused, what survives, what is left behind.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "support/properties.h"

namespace {

using testsupport::inChild;
using testsupport::ioFailure;
using testsupport::ioText;
using testsupport::openDescriptors;
using testsupport::raisedBy;
using testsupport::readFile;
using testsupport::setTime;
using testsupport::StanzaFile;
using testsupport::statusOf;
using testsupport::TempDir;
using testsupport::Texts;
using testsupport::valueOf;
using testsupport::valuesOf;
using testsupport::writeFile;

constexpr uid_t nobody = 65534;
constexpr char sample[] = "# about\n\n[s]\nk = 1\nk = 2\n\n[t]\n# x = 1\n\ne =\n";

/// Runs `body` in a child that may do what anybody may.
int asNobody(std::function<int()> const& body) {
    return inChild([&] {
        if (setgid(nobody) != 0 || setuid(nobody) != 0) return geteuid() == 0 ? 98 : body();
        return body();
    });
}

// --------------------------------------------------------------------------------------- loading

TEST(PropertiesLoadTest, refusesWhatIsNoReadableRegularFile) {
    StanzaFile const file(sample);
    std::string const directory = std::filesystem::path(file.path()).parent_path();
    std::string const pipe = file.beside("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0644), 0);
    ASSERT_EQ(chmod(file.path().c_str(), 0), 0);
    ASSERT_EQ(chmod(directory.c_str(), 0755), 0);
    std::pair<std::string, int> const rows[] = {{directory, EISDIR},
                                                {pipe, EINVAL},
                                                {"/dev/zero", EINVAL},
                                                {file.beside("none"), ENOENT},
                                                {file.path(), EACCES}};
    EXPECT_EQ(asNobody([&] {
                  ZStanzaFileProperties properties(1);
                  int const before = openDescriptors();
                  for (auto const& [path, error] : rows) {
                      if (ioFailure([&, p = path] { properties.load(p.c_str()); }) !=
                          ioText(path, "fopen(r)", error))
                          return error;
                  }
                  return openDescriptors() - before;
              }),
              0);
}

TEST(PropertiesLoadTest, addsToWhatIsThereAndReloadReplacesIt) {
    StanzaFile const file("# a\n[a]\nk = 1\n");
    writeFile(file.beside("more"), "[b]\nk = 2\n");
    ZStanzaFileProperties properties(file.path().c_str(), 0);
    properties.load(file.beside("more").c_str());
    EXPECT_EQ(properties.count(), 2U);
    EXPECT_EQ(properties.getFileName(), file.path().c_str());
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
    std::string const bad = "[s]\nk = 1\nnonsense\n[t]\nk = 2\n";
    StanzaFile const file(bad);
    std::string const link = file.beside("link");
    ASSERT_EQ(symlink(file.path().c_str(), link.c_str()), 0);
    ZStanzaFileProperties properties(1);
    EXPECT_THROW(properties.load(file.path().c_str()), ZPropertiesInvalidDataException);
    EXPECT_EQ(valueOf(properties, "s", "k"), "1");
    properties.setValue("s", "k", "3");
    for (std::string const& path : {file.path(), link}) {
        auto const e =
            raisedBy<ZPropertiesInvalidDataException>([&] { properties.store(path.c_str()); });
        ASSERT_TRUE(e);
        EXPECT_EQ(e->badline(), 3);
        EXPECT_STREQ(e->baddata(), "nonsense");
    }
    EXPECT_EQ(file.bytes(), bad);
    properties.store(file.beside("other").c_str());
    EXPECT_EQ(readFile(file.beside("other")), "[s]\nk = 3\n");
    writeFile(file.beside("second"), "nonsense\n");
    EXPECT_THROW(properties.load(file.beside("second").c_str()), ZPropertiesInvalidDataException);
    EXPECT_THROW(properties.store(), ZPropertiesInvalidDataException) << "the first is half-read";
    EXPECT_EQ(file.bytes(), bad);

    writeFile(file.path(), "[s]\nk = 4\n");
    properties.reload();
    properties.setValue("s", "k", "5");
    properties.store();
    EXPECT_EQ(file.bytes(), "[s]\nk = 5\n");
}

TEST(PropertiesLoadTest, aFailedReloadFromAnotherFileSpoilsNeither) {
    StanzaFile const file("[a]\nk = 1\n");
    std::string const link = file.beside("link");
    std::string const other = file.beside("other");
    ASSERT_EQ(symlink(file.path().c_str(), link.c_str()), 0);
    writeFile(other, "[b]\nk = 2\nnonsense\n");
    ZStanzaFileProperties properties(file.path().c_str(), 1);
    EXPECT_THROW(properties.reload(other.c_str()), ZPropertiesInvalidDataException);
    for (std::string const& path : {std::string(), file.path(), link, other})
        EXPECT_THROW(properties.store(path.c_str()), ZPropertiesInvalidDataException) << path;
    EXPECT_EQ(file.bytes(), "[a]\nk = 1\n");
    properties.load(file.path().c_str());
    properties.store();
    EXPECT_EQ(file.bytes(), "[b]\nk = 2\n[a]\nk = 1\n") << "its values are back";
    EXPECT_THROW(properties.store(other.c_str()), ZPropertiesInvalidDataException);
    writeFile(other, "[b]\nk = 3\n");
    properties.reload(other.c_str());
    properties.store();
    EXPECT_EQ(file.bytes(), "[b]\nk = 3\n");
}

// --------------------------------------------------------------------------------------- storing

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
    TempDir const directory;
    ZStanzaFileProperties properties(1);
    properties.setValue("s", "k", "v");
    for (char const* const name : {"new", "copy"}) {
        properties.store(directory.file(name).c_str());
        EXPECT_EQ(properties.getFileName(), directory.file("new").c_str());
        EXPECT_EQ(readFile(directory.file(name)), "[s]\nk = v\n");
    }
    ZStanzaFileProperties(1).store(directory.file("empty").c_str());
    EXPECT_EQ(readFile(directory.file("empty")), "") << "it was stored, and stays";
}

TEST(PropertiesStoreTest, namesThePathThatDeniesAccess) {
    StanzaFile const file(sample);
    std::string const directory = std::filesystem::path(file.path()).parent_path();
    ASSERT_EQ(chmod(directory.c_str(), 0555), 0);
    ASSERT_EQ(chmod(file.path().c_str(), 0444), 0);
    EXPECT_EQ(asNobody([&] {
                  ZStanzaFileProperties properties(file.path().c_str(), 1);
                  properties.setValue("s", "k", "3");
                  auto const store = [&](std::string const& path) {
                      return ioFailure([&] { properties.store(path.c_str()); });
                  };
                  if (store(file.path()) != ioText(file.path(), "access()", EACCES)) return 1;
                  if (store(file.beside("new")) != ioText(directory, "access()", EACCES)) return 2;
                  if (store("/no-such-file") != ioText("/", "access()", EACCES)) return 3;
                  return properties.isModified() ? 0 : 4;
              }),
              0);
    ASSERT_EQ(chmod(directory.c_str(), 0755), 0);
    ZStanzaFileProperties properties(file.path().c_str(), 1);
    std::string const missing = directory + "/none";
    EXPECT_EQ(ioFailure([&] { properties.store((missing + "/file").c_str()); }),
              ioText(missing, "access()", ENOENT));
    EXPECT_EQ(ioFailure([&] { properties.store(directory.c_str()); }),
              ioText(directory, "fopen(r+)", EISDIR));
}

TEST(PropertiesStoreTest, aFileDatedBeyond2038IsNoError) {
    StanzaFile const file(sample);
    ASSERT_EQ(system(("touch -d 2100-01-01 '" + file.path() + "'").c_str()), 0);
    ZStanzaFileProperties properties(file.path().c_str(), 1);
    properties.setValue("s", "k", "3");
    properties.store();
    EXPECT_EQ(valueOf(ZStanzaFileProperties(file.path().c_str(), 1), "s", "k"), "3");
}

TEST(PropertiesStoreTest, neverKeepsAStandardStreamsDescriptor) {
    StanzaFile const file(sample);
    EXPECT_EQ(inChild([&] {
                  for (int const fd : {0, 1, 2})
                      close(fd);
                  ZStanzaFileProperties properties(file.path().c_str(), 1);
                  properties.setValue("s", "secret", "hush", 1);
                  properties.store();
                  for (int const fd : {0, 1, 2})
                      if (fcntl(fd, F_GETFD) != -1) return 1;
                  return valueOf(ZStanzaFileProperties(file.path().c_str(), 1), "s", "secret") ==
                                 "hush"
                             ? 0
                             : 2;
              }),
              0);
}

// ------------------------------------------------------------------------------- where it is full

/// Stores much to `file` where that cannot succeed, then little where it can: 0 when all is well.
int storeWhereItIsFull(std::string const& path, int error, char const* api) {
    std::string const before = readFile(path);
    int const descriptors = openDescriptors();
    ZStanzaFileProperties properties(path.c_str(), 1);
    for (int i = 0; i < 40; ++i)
        properties.setValue("s", ("n" + std::to_string(i)).c_str(), std::string(8000, 'v').c_str());
    if (ioFailure([&] { properties.store(); }) != ioText(path, api, error)) return 1;
    if (readFile(path) != before) return 2;
    if (!properties.isModified() || openDescriptors() != descriptors) return 3;
    properties.reload();
    properties.setValue("s", "k", "little");
    properties.store();
    return readFile(path).find("k = little\n") != std::string::npos ? 0 : 4;
}

TEST(PropertiesFullTest, aFileSizeLimitLosesNothing) {
    StanzaFile const file(sample);
    EXPECT_EQ(inChild([&] {
                  rlimit const limit{100000, 100000};
                  if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return 97;
                  return storeWhereItIsFull(file.path(), EFBIG, "write()");
              }),
              0);
}

/// A disk of 128 kB that this process alone sees; without the right to mount one the process takes
/// it in a user namespace of its own. False when the system allows neither.
bool mountSmallDisk(std::string const& path) {
    std::string const user = std::to_string(geteuid());
    std::string const group = std::to_string(getegid());
    bool const isRoot = geteuid() == 0;
    if (unshare(isRoot ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER) != 0) return false;
    if (!isRoot) {
        writeFile("/proc/self/setgroups", "deny");
        writeFile("/proc/self/uid_map", "0 " + user + " 1");
        writeFile("/proc/self/gid_map", "0 " + group + " 1");
    }
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("none", path.c_str(), "tmpfs", 0, "size=128k") == 0;
}

/// On a real disk; properties_failure_test has the same everywhere.
TEST(PropertiesFullTest, aFullDiskLosesNothing) {
    TempDir const directory;
    int const status = inChild([&] {
        if (!mountSmallDisk(directory.path())) return 97;
        writeFile(directory.file("settings"), sample);
        return storeWhereItIsFull(directory.file("settings"), ENOSPC, "fallocate()");
    });
    if (status == 97) GTEST_SKIP() << "no right to mount a small disk";
    EXPECT_EQ(status, 0);
}

// ------------------------------------------------------------------------------------- companion

constexpr char secretive[] = "[s]\nk = 1\n";

/// A file with the obfuscated value "hush", and the object that made it.
struct SecretScene {
    StanzaFile file{secretive};
    ZStanzaFileProperties properties{file.path().c_str(), 1};

    SecretScene() {
        EXPECT_EQ(chmod(file.path().c_str(), 0640), 0);
        properties.setValue("s", "secret", "hush", 1);
        properties.store();
    }
    [[nodiscard]] std::string reread() const {
        return valueOf(ZStanzaFileProperties(file.path().c_str(), 1), "s", "secret");
    }
};

TEST(PropertiesCompanionTest, holdsObfuscatedValuesForTheNextReader) {
    SecretScene const scene;
    StanzaFile const& file = scene.file;
    EXPECT_EQ(file.bytes(), std::string(secretive) +
                                "[configuration-database]\nfile = " + file.companion() + "\n");
    EXPECT_EQ(statusOf(file.companion()).st_mode & 07777U, 0640U);
    EXPECT_EQ(readFile(file.companion()).find("hush"), std::string::npos);
    ZStanzaFileProperties reader(file.path().c_str(), 1);
    writeFile(file.beside("more"), "[more]\nk = 2\n");
    reader.load(file.beside("more").c_str());
    EXPECT_EQ(valuesOf(reader, "s", "secret"), Texts{"hush"}) << "read once";
    EXPECT_TRUE(reader.isObfuscated("s", "secret"));
    EXPECT_FALSE(reader.isModified());

    ASSERT_EQ(chmod(file.path().c_str(), 0600), 0);
    reader.setValue("s", "secret", "two\nlines", 1);
    reader.store();
    EXPECT_EQ(statusOf(file.companion()).st_mode & 07777U, 0600U);
    EXPECT_EQ(scene.reread(), "two\nlines");
}

TEST(PropertiesCompanionTest, goesWithTheLastObfuscatedValue) {
    SecretScene scene;
    StanzaFile const& file = scene.file;
    std::string const left = std::string(secretive) + "[configuration-database]\n";
    scene.properties.deleteKey("s", "secret");
    scene.properties.store(file.beside("copy").c_str());
    EXPECT_EQ(readFile(file.beside("copy")), left);
    EXPECT_EQ(scene.reread(), "hush") << "the file itself still names it";
    scene.properties.store();
    EXPECT_FALSE(std::filesystem::exists(file.companion()));
    EXPECT_EQ(file.bytes(), left);
}

TEST(PropertiesCompanionTest, isMadeInTheWorkingDirectoryOfARelativeFile) {
    StanzaFile const file(secretive);
    EXPECT_EQ(inChild([&] {
                  if (chdir(std::filesystem::path(file.path()).parent_path().c_str()) != 0)
                      return 97;
                  ZStanzaFileProperties properties("settings", 1);
                  properties.setValue("s", "secret", "hush", 1);
                  properties.store();
                  return valueOf(properties, "configuration-database", "file") == file.companion()
                             ? 0
                             : 1;
              }),
              0);
    EXPECT_EQ(valueOf(ZStanzaFileProperties(file.path().c_str(), 1), "s", "secret"), "hush");
}

TEST(PropertiesCompanionTest, neverTouchesAFileThatIsNotItsOwn) {
    StanzaFile const file(secretive);
    ZStanzaFileProperties properties(file.path().c_str(), 1);
    properties.setValue("s", "secret", "hush", 1);
    auto const refusal = [&](int error) { return ioText(file.companion(), "fopen(w)", error); };
    auto const store = [&] { properties.store(); };

    writeFile(file.companion(), "somebody's");
    EXPECT_EQ(ioFailure(store), refusal(EEXIST));
    EXPECT_EQ(readFile(file.companion()), "somebody's");
    ASSERT_EQ(unlink(file.companion().c_str()), 0);
    writeFile(file.beside("victim"), "precious");
    ASSERT_EQ(symlink(file.beside("victim").c_str(), file.companion().c_str()), 0);
    EXPECT_EQ(ioFailure(store), refusal(EEXIST));
    EXPECT_EQ(file.bytes(), secretive);
    EXPECT_TRUE(properties.isModified());
    EXPECT_FALSE(properties.exists("configuration-database"));

    ASSERT_EQ(unlink(file.companion().c_str()), 0);
    properties.store();
    properties.setValue("s", "secret", "changed", 1);
    ASSERT_EQ(unlink(file.companion().c_str()), 0);
    ASSERT_EQ(symlink(file.beside("victim").c_str(), file.companion().c_str()), 0);
    EXPECT_EQ(ioFailure(store), refusal(ELOOP));
    properties.deleteKey("s", "secret");
    EXPECT_EQ(ioFailure(store), ioText(file.companion(), "unlink()", EINVAL));
    EXPECT_EQ(readFile(file.beside("victim")), "precious");
}

TEST(PropertiesCompanionTest, aDamagedOrMissingOneFailsTheLoadAndIsNotOverwritten) {
    SecretScene const scene;
    std::string const companion = scene.file.companion();
    std::string const whole = readFile(companion);
    std::string const main = scene.file.bytes();
    ZStanzaFileProperties properties(1);
    int const before = openDescriptors();
    for (std::size_t length = 1; length < whole.size(); ++length) {
        writeFile(companion, whole.substr(0, length));
        auto const e = raisedBy<ZPropertiesInvalidDataException>(
            [&] { properties.reload(scene.file.path().c_str()); });
        ASSERT_TRUE(e);
        EXPECT_EQ(e->propFile(), companion);
        EXPECT_EQ(e->badline(), 0);
        EXPECT_THROW(properties.store(), ZPropertiesInvalidDataException);
        EXPECT_EQ(readFile(companion), whole.substr(0, length));
    }
    std::string const refusal = ioText(companion, "mapFile()", EINVAL);
    writeFile(companion, "");
    EXPECT_EQ(ioFailure([&] { properties.reload(); }), refusal);
    ASSERT_EQ(unlink(companion.c_str()), 0);
    EXPECT_EQ(ioFailure([&] { properties.store(); }), refusal);
    EXPECT_EQ(scene.file.bytes(), main);
    EXPECT_EQ(openDescriptors(), before);
    writeFile(companion, whole);
    EXPECT_EQ(scene.reread(), "hush");
}

}  // namespace
