#include "Z/ZFileMap.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "Z/zfileinherit.h"
#include "support/processes.h"

namespace {

using testsupport::inChild;
using testsupport::openDescriptors;
using testsupport::readFile;
using testsupport::TempDir;
using testsupport::writeFile;

constexpr auto readOnly = ZAbstractFileMap::readOnly;
constexpr auto readWrite = ZAbstractFileMap::readWrite;

class FileMapTest : public testing::Test {
  protected:
    [[nodiscard]] std::string path(char const* name) const { return directory.file(name); }
    [[nodiscard]] ZLCString named(char const* name) const { return {path(name).c_str()}; }

    TempDir directory;
    int rc = 99;
    int const descriptors = openDescriptors();  // before a test opens any
};

TEST_F(FileMapTest, MapsAWholeFileToRead) {
    std::string const bytes(100, 'x');
    writeFile(path("file"), bytes);
    ZUnixFileMap map(named("file"), readOnly, 0);
    auto const* const memory = static_cast<char const*>(map.mapfile(&rc, 0));
    ASSERT_NE(memory, nullptr);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(std::string(memory, bytes.size()), bytes);
}

TEST_F(FileMapTest, CreatesAMissingFileToWriteForItsOwnerAlone) {
    ZUnixFileMap map(named("new"), readWrite, 0);
    auto* const memory = static_cast<char*>(map.mapfile(&rc, 4096));
    ASSERT_NE(memory, nullptr);
    EXPECT_EQ(rc, 0);
    std::memcpy(memory, "written", 7);
    map.unmapfile(&rc);
    std::string const bytes = readFile(path("new"));
    EXPECT_EQ(bytes.size(), 4096U);
    EXPECT_EQ(bytes.substr(0, 8), std::string("written\0", 8));
    struct stat status {};
    ASSERT_EQ(stat(path("new").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(FileMapTest, ExtendsAShorterFileAndLeavesALongerOne) {
    writeFile(path("file"), "12345");
    ZUnixFileMap map(named("file"), readWrite, 0);
    auto* memory = static_cast<char*>(map.mapfile(&rc, 3));
    ASSERT_NE(memory, nullptr);
    memory[0] = 'A';
    EXPECT_EQ(readFile(path("file")), "A2345");
    memory = static_cast<char*>(map.mapfile(&rc, 8));
    ASSERT_NE(memory, nullptr) << "maps anew";
    memory[7] = 'Z';
    EXPECT_EQ(readFile(path("file")), std::string("A2345\0\0Z", 8));
    map.unmapfile(&rc);
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(FileMapTest, ANewFileAndAnEmptyOneAreTheSameToAWriteMap) {
    writeFile(path("empty"), "");
    for (char const* name : {"empty", "missing"}) {
        ZUnixFileMap map(named(name), readWrite, 0);
        EXPECT_NE(map.mapfile(&rc, 10), nullptr) << name;
        EXPECT_EQ(rc, 0);
        EXPECT_EQ(readFile(path(name)).size(), 10U);
    }
}

TEST_F(FileMapTest, AnEmptyFileIsMappedToReadWhenALengthIsGiven) {
    writeFile(path("empty"), "");
    ZUnixFileMap map(named("empty"), readOnly, 0);
    EXPECT_NE(map.mapfile(&rc, 10), nullptr);
    EXPECT_EQ(rc, 0);
}

struct Refusal {
    char const* name;
    ZAbstractFileMap::zmapmode mode;
    unsigned long length;
    int rc;
};

std::ostream& operator<<(std::ostream& out, Refusal const& row) {
    return out << row.name << " to " << (row.mode == readOnly ? "read" : "write");
}

TEST_F(FileMapTest, AFailureIsACodeAndLeavesNothingOpen) {
    writeFile(path("empty"), "");
    writeFile(path("file"), "12345");
    ASSERT_EQ(symlink("loop", path("loop").c_str()), 0);
    ASSERT_EQ(mkdir(path("directory").c_str(), 0700), 0);
    ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
    std::vector<Refusal> rows{
        {"missing", readOnly, 0, EINVAL},   {"missing", readWrite, 0, EINVAL},
        {"missing", readOnly, 10, ENOENT},  {"empty", readOnly, 0, EINVAL},
        {"empty", readWrite, 0, EINVAL},    {"loop", readOnly, 10, ELOOP},
        {"directory", readOnly, 0, ENODEV}, {"directory", readWrite, 0, EISDIR},
        {"fifo", readWrite, 10, ESPIPE},    {"missing/file", readWrite, 10, ENOENT},
    };
    if constexpr (sizeof(unsigned long) > sizeof(unsigned int))
        rows.push_back({"file", readOnly, std::numeric_limits<unsigned long>::max(), EOVERFLOW});
    for (Refusal const& row : rows) {
        ZUnixFileMap map(named(row.name), row.mode, 0);
        EXPECT_EQ(map.mapfile(&rc, row.length), nullptr) << row;
        EXPECT_EQ(rc, row.rc) << row;
        EXPECT_EQ(openDescriptors(), descriptors) << row;
    }
    EXPECT_EQ(readFile(path("file")), "12345");
}

TEST_F(FileMapTest, TheLimitOnFileSizesIsACodeToo) {
    EXPECT_EQ(inChild([this] {
                  rlimit const limit{4096, 4096};
                  if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return 1;
                  ZUnixFileMap map(named("new"), readWrite, 0);
                  if (map.mapfile(&rc, 4096) == nullptr) return 2;
                  if (map.mapfile(&rc, 4097) != nullptr) return 3;
                  return rc == EFBIG ? 0 : 4;
              }),
              0);
}

TEST_F(FileMapTest, UnmappingTwiceAndMappingAgainAreFine) {
    writeFile(path("file"), "12345");
    ZUnixFileMap map(named("file"), readOnly, 0);
    for (int i = 0; i < 2; ++i) {
        EXPECT_NE(map.mapfile(nullptr, 0), nullptr);
        rc = 99;
        map.unmapfile(&rc);
        map.unmapfile(&rc);
        EXPECT_EQ(rc, 99) << "written on failure only";
    }
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(FileMapTest, ItsEndUnmaps) {
    writeFile(path("file"), "12345");
    {
        std::unique_ptr<ZAbstractFileMap> const map =
            std::make_unique<ZUnixFileMap>(named("file"), readOnly, 0);
        ASSERT_NE(map->mapfile(&rc, 0), nullptr);
        EXPECT_EQ(openDescriptors(), descriptors + 1);
    }
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(FileMapTest, ADescriptorClosedByOthersIsReportedAndNotClosedTwice) {
    writeFile(path("file"), "12345");
    ZUnixFileMap map(named("file"), readOnly, 0);
    int const next = dup(0);
    close(next);
    ASSERT_NE(map.mapfile(&rc, 0), nullptr);
    close(next);
    map.unmapfile(&rc);
    EXPECT_EQ(rc, EBADF);
    rc = 99;
    map.unmapfile(&rc);
    EXPECT_EQ(rc, 99);
}

TEST_F(FileMapTest, AssignmentMapsItsOwnFile) {
    writeFile(path("file"), "12345");
    writeFile(path("other"), "other");
    ZUnixFileMap map(named("file"), readOnly, 0);
    ZUnixFileMap other(named("other"), readOnly, 0);
    map = other;
    EXPECT_EQ(openDescriptors(), descriptors) << "the other is not mapped";
    ASSERT_NE(other.mapfile(&rc, 0), nullptr);
    map = other;
    EXPECT_EQ(openDescriptors(), descriptors + 2);
    ZUnixFileMap& itself = map;
    map = itself;
    map = other;
    EXPECT_EQ(openDescriptors(), descriptors + 2) << "the first mapping went";
}

TEST_F(FileMapTest, KeepsNoDescriptorOfTheStandardStreamsAndNoneOverExec) {
    writeFile(path("file"), "12345");
    EXPECT_EQ(inChild([this] {
                  ZUnixFileMap map(named("file"), readOnly, 0);
                  int const lowestFree = fcntl(0, F_DUPFD, 3);
                  for (int fd : {lowestFree, 0, 1, 2})
                      close(fd);
                  auto const* const memory = static_cast<char const*>(map.mapfile(&rc, 0));
                  if (memory == nullptr || memory[4] != '5') return 1;
                  for (int fd : {0, 1, 2})
                      if (fcntl(fd, F_GETFD) != -1) return 2;
                  return fcntl(lowestFree, F_GETFD) == FD_CLOEXEC ? 0 : 3;
              }),
              0);
}

TEST(FileInheritanceTest, SetsAndClearsCloseOnExec) {
    int const fd = dup(0);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(zsetfileinheritance(fd, 0), 1);
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(zsetfileinheritance(fd, 1), 1);
    EXPECT_EQ(fcntl(fd, F_GETFD), 0);
    close(fd);
    EXPECT_EQ(zsetfileinheritance(fd, 1), 0);
    EXPECT_EQ(errno, EBADF);
}

}  // namespace
