// link: static
// wrap: munmap,fallocate64

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <limits>
#include <string>
#include <utility>

#include "Z/ZFileMap.h"
#include "Z/zfileinherit.h"
#include "support/faults.h"
#include "support/processes.h"

using namespace testsupport;

WRAP(munmap, int, -1, (void* address, std::size_t length), (address, length))
WRAP(fallocate64, int, -1, (int fd, int mode, off64_t offset, off64_t length),
     (fd, mode, offset, length))

namespace {

constexpr auto readOnly = ZAbstractFileMap::readOnly;
constexpr auto readWrite = ZAbstractFileMap::readWrite;

/// A directory with a file, and a map for reading it.
class FileMapTest : public testing::Test {
  protected:
    FileMapTest() { writeFile(path("file"), "12345"); }
    [[nodiscard]] std::string path(char const* name) const { return directory.file(name); }
    [[nodiscard]] ZLCString named(char const* name) const { return {path(name).c_str()}; }

    TempDir directory;
    ZUnixFileMap map{named("file"), readOnly, 0};
    int rc = 99;
    int const descriptors = openDescriptors();  // before a test opens any
};

TEST_F(FileMapTest, MapsOrIsRefusedWithACodeAndLeavesNothingOpen) {
    writeFile(path("empty"), "");
    ASSERT_EQ(symlink("loop", path("loop").c_str()), 0);
    ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
    // `seen` bytes of the file are in the map, or are its size when it was written.
    auto const expectMap = [&](char const* name, ZAbstractFileMap::zmapmode mode,
                               unsigned long length, int error, std::size_t seen) {
        SCOPED_TRACE(std::string(name) + (mode == readOnly ? " to read " : " to write ") +
                     std::to_string(length));
        ZUnixFileMap mapped(named(name), mode, 0);
        auto* const memory = static_cast<char*>(mapped.mapfile(&rc, length));
        EXPECT_EQ(rc, error);
        ASSERT_EQ(memory != nullptr, error == 0);
        if (memory != nullptr && mode == readWrite) {
            memory[length - 1] = 'Z';
            EXPECT_EQ(readFile(path(name)).size(), seen);
            EXPECT_EQ(readFile(path(name))[length - 1], 'Z');
        } else if (memory != nullptr) {
            EXPECT_EQ(std::string(memory, seen), readFile(path("file")).substr(0, seen));
        }
        for (int i = 0; i < 2; ++i)
            mapped.unmapfile(&rc);
        EXPECT_EQ(rc, error) << "written on failure only";
        EXPECT_EQ(openDescriptors(), descriptors);
    };
    expectMap("file", readOnly, 0, 0, 5);
    expectMap("file", readOnly, 3, 0, 3);
    expectMap("file", readWrite, 3, 0, 5);
    expectMap("file", readWrite, 8, 0, 8);
    expectMap("new", readWrite, 4096, 0, 4096);
    expectMap("empty", readOnly, 10, 0, 0);
    expectMap("empty", readOnly, 0, EINVAL, 0);
    expectMap("missing", readWrite, 0, EINVAL, 0);
    expectMap("missing", readOnly, 10, ENOENT, 0);
    expectMap("loop", readOnly, 10, ELOOP, 0);
    expectMap("fifo", readOnly, 10, ENODEV, 0);  // does not wait for a writer
    expectMap(".", readWrite, 0, EISDIR, 0);
    // More than pointers can tell apart is refused; files with no more than a hole.
    int const tooLong = sizeof(void*) < 8 ? EOVERFLOW : 0;
    for (auto const& [size, error] : {std::pair(1ULL << 31U, tooLong), {1ULL << 32U, EOVERFLOW}}) {
        writeFile(path("hole"), "");
        std::filesystem::resize_file(path("hole"), size);
        expectMap("hole", readOnly, 0, error, 0);
        if (error != 0) expectMap("hole", readWrite, 0, error, 0);
    }
    expectMap("file", readOnly, 1UL << 31U, tooLong, 5);
    expectMap("file", readOnly, std::numeric_limits<unsigned long>::max(), EOVERFLOW, 0);
    EXPECT_EQ(readFile(path("file")), std::string("12Z45\0\0Z", 8));
    struct stat status {};
    ASSERT_EQ(stat(path("new").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(FileMapTest, TheLimitOnFileSizesIsACodeToo) {
    EXPECT_EQ(0, inChild([this] {
                  rlimit const limit{4096, 4096};
                  if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return 1;
                  ZUnixFileMap growing(named("new"), readWrite, 0);
                  if (growing.mapfile(&rc, 4096) == nullptr) return 2;
                  if (growing.mapfile(&rc, 4097) != nullptr) return 3;
                  return rc == EFBIG ? 0 : 4;
              }));
}

TEST_F(FileMapTest, AWriteMapHasItsRoomOrTheErrorOfAFullDevice) {
    constexpr unsigned long bytes = 1 << 20;
    ASSERT_EQ(truncate(path("file").c_str(), bytes), 0);  // all but its first bytes is a hole
    for (int const error : {ENOSPC, EOPNOTSUPP, 0})
        for (char const* const name : {"file", "new"}) {
            SCOPED_TRACE(std::string(name) + ", " + std::to_string(error));
            ZUnixFileMap writing(named(name), readWrite, 0);
            fault = {"fallocate64", error == 0 ? 0 : 1, error};
            EXPECT_EQ(writing.mapfile(&rc, bytes) == nullptr, error == ENOSPC);
            EXPECT_EQ(rc, error == ENOSPC ? ENOSPC : 0);
            struct stat status {};
            ASSERT_EQ(stat(path(name).c_str(), &status), 0);
            bool const isWhole = *name == 'f' || error != ENOSPC;
            EXPECT_EQ(status.st_size, isWhole ? static_cast<off_t>(bytes) : 0);
            bool const hasRoom = status.st_blocks * 512 >= static_cast<long>(bytes);
            EXPECT_TRUE(hasRoom || error == ENOSPC || (error != 0 && *name == 'f'));
        }
}

TEST_F(FileMapTest, FailuresToUnmapAreReportedAndADescriptorIsGivenUpOnce) {
    int const next = dup(0);
    close(next);
    ASSERT_NE(map.mapfile(&rc, 0), nullptr);
    close(next);
    map.unmapfile(&rc);
    EXPECT_EQ(rc, EBADF);
    rc = 99;
    map.unmapfile(&rc);
    EXPECT_EQ(rc, 99);
    for (bool const again : {false, true}) {
        ASSERT_NE(map.mapfile(&rc, 0), nullptr);
        fault = {"munmap", 1, ENOMEM};
        if (again)
            EXPECT_EQ(map.mapfile(&rc, 0), nullptr);
        else
            map.unmapfile(&rc);
        fault = {};
        EXPECT_EQ(rc, ENOMEM);
        EXPECT_EQ(openDescriptors(), descriptors);
    }
}

TEST_F(FileMapTest, AssignmentMapsItsOwnFileWhenTheOtherIsMappedAndTheEndUnmaps) {
    ZUnixFileMap other(named("file"), readOnly, 0);
    map = other;
    EXPECT_EQ(openDescriptors(), descriptors);
    {
        ZUnixFileMap ending(named("file"), readOnly, 0);
        for (int i = 0; i < 2; ++i) {
            EXPECT_NE(ending.mapfile(nullptr, 0), nullptr) << "maps anew";
            map = ending;
            EXPECT_EQ(openDescriptors(), descriptors + 2);
        }
    }
    EXPECT_EQ(openDescriptors(), descriptors + 1);
}

TEST_F(FileMapTest, KeepsNoDescriptorOfTheStandardStreamsAndNoneOverExec) {
    EXPECT_EQ(0, inChild([this] {
                  int const lowestFree = fcntl(0, F_DUPFD, 3);
                  for (int fd : {lowestFree, 0, 1, 2})
                      close(fd);
                  if (map.mapfile(&rc, 0) == nullptr) return 1;
                  for (int fd : {0, 1, 2})
                      if (fcntl(fd, F_GETFD) != -1) return 2;
                  return fcntl(lowestFree, F_GETFD) == FD_CLOEXEC ? 0 : 3;
              }));
}

TEST(FileInheritanceTest, SetsAndClearsCloseOnExec) {
    int const fd = dup(0);
    for (int const inherits : {0, 1}) {
        EXPECT_EQ(zsetfileinheritance(fd, inherits), 1);
        EXPECT_EQ(fcntl(fd, F_GETFD), inherits == 0 ? FD_CLOEXEC : 0);
    }
    close(fd);
    EXPECT_EQ(zsetfileinheritance(fd, 1), 0);
    EXPECT_EQ(errno, EBADF);
}

}  // namespace
