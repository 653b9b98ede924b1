// link: static
// wrap: open64,fcntl64,fallocate64,pwrite64,pread64,ftruncate64,fsync,statx,unlink
// Every system call of a load and a store fails once, at every place where it is made.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <filesystem>

#include "support/properties.h"

namespace {

enum Call { opening, locking, reserving, writing, reading, cutting, flushing, examining, removing };

/// Which call fails, and how.
struct Fault {
    int call = -1;
    int number = 0;  // the how-manieth call, from 1
    int error = 0;
    bool lasts = false;  // the calls behind it fail as well
    int seen = 0;

    bool strikes(Call made) {
        if (made != call) return false;
        ++seen;
        return seen == number || (lasts && seen > number);
    }
};
Fault fault;

/// -1 with errno when the call is to fail, else what the real one answers.
template <class Real>
auto unlessFaulty(Call made, Real real) -> decltype(real()) {
    if (!fault.strikes(made)) return real();
    errno = fault.error;
    return -1;
}

}  // namespace

extern "C" {
int __real_open64(char const* path, int flags, ...);
int __real_fcntl64(int fd, int command, ...);
int __real_fallocate64(int fd, int mode, int64_t offset, int64_t length);
ssize_t __real_pwrite64(int fd, void const* bytes, size_t count, int64_t offset);
ssize_t __real_pread64(int fd, void* bytes, size_t count, int64_t offset);
int __real_ftruncate64(int fd, int64_t length);
int __real_statx(int fd, char const* path, int flags, unsigned int mask, struct statx* into);
int __real_unlink(char const* path);

int __wrap_open64(char const* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    mode_t const mode = va_arg(rest, mode_t);
    va_end(rest);
    return unlessFaulty(opening, [&] { return __real_open64(path, flags, mode); });
}
int __wrap_fcntl64(int fd, int command, ...) {
    va_list rest;
    va_start(rest, command);
    void* const record = va_arg(rest, void*);
    va_end(rest);
    return unlessFaulty(locking, [&] { return __real_fcntl64(fd, command, record); });
}
int __wrap_fallocate64(int fd, int mode, int64_t offset, int64_t length) {
    return unlessFaulty(reserving, [&] { return __real_fallocate64(fd, mode, offset, length); });
}
ssize_t __wrap_pwrite64(int fd, void const* bytes, size_t count, int64_t offset) {
    // In small pieces, so that a failure can come in the middle.
    size_t const piece = count > 7 ? 7 : count;
    return unlessFaulty(writing, [&] { return __real_pwrite64(fd, bytes, piece, offset); });
}
ssize_t __wrap_pread64(int fd, void* bytes, size_t count, int64_t offset) {
    return unlessFaulty(reading, [&] { return __real_pread64(fd, bytes, count, offset); });
}
int __wrap_ftruncate64(int fd, int64_t length) {
    return unlessFaulty(cutting, [&] { return __real_ftruncate64(fd, length); });
}
int __wrap_fsync(int) {
    return unlessFaulty(flushing, [] { return 0; });  // hundreds of real ones would take their time
}
int __wrap_statx(int fd, char const* path, int flags, unsigned int mask, struct statx* into) {
    return unlessFaulty(examining, [&] { return __real_statx(fd, path, flags, mask, into); });
}
int __wrap_unlink(char const* path) {
    return unlessFaulty(removing, [&] { return __real_unlink(path); });
}
}

namespace {

using testsupport::ioText;
using testsupport::openDescriptors;
using testsupport::readFile;
using testsupport::StanzaFile;
using testsupport::valueOf;
using testsupport::writeFile;

constexpr Call everyCall[] = {opening, locking,  reserving, writing, reading,
                              cutting, flushing, examining, removing};

/// The bytes of both files; "none" for one that is not there.
std::string stateOf(StanzaFile const& file) {
    bool const hasCompanion = std::filesystem::exists(file.companion());
    return file.bytes() + "|" + (hasCompanion ? readFile(file.companion()) : "none");
}

/// A file with a companion, and the object that edits both.
struct Scene {
    StanzaFile file{"# about\n[s]\nk = 1\nlong = " + std::string(60, 'l') + "\n"};
    ZStanzaFileProperties properties{file.path().c_str(), 1};

    Scene() {
        properties.setValue("s", "secret", "first", 1);
        properties.store();
    }
};

using Edit = void (*)(ZStanzaFileProperties&);

void grow(ZStanzaFileProperties& properties) {
    properties.setValue("s", "k", "a value that is longer than it was");
    properties.setValue("s", "secret", "second, and longer than the first one was", 1);
}
void shrink(ZStanzaFileProperties& properties) {
    properties.deleteKey("s", "long");
    properties.setValue("s", "secret", "2", 1);
}
void forgetSecret(ZStanzaFileProperties& properties) { properties.deleteKey("s", "secret"); }

/// Whether `body` raises the fault.
template <class Body>
bool fails(Body body) {
    try {
        body();
        return false;
    } catch (ZPropertiesIOException const& e) {
        EXPECT_EQ(e.excerrno(), EIO) << e.api();
        return true;
    }
}

std::string secretOf(Scene const& scene) {
    return valueOf(ZStanzaFileProperties(scene.file.path().c_str(), 1), "s", "secret");
}

/// Lets every call of `attempt` on a scene fail, one in each scene; the number of calls.
template <class Attempt>
int failEverywhere(Attempt attempt) {
    int places = 0;
    for (int const call : everyCall) {
        bool reached = true;
        int number = 0;
        while (reached) {
            ++number;
            SCOPED_TRACE("call " + std::to_string(call) + " number " + std::to_string(number));
            Scene scene;
            int const descriptors = openDescriptors();
            attempt(scene, call, [&](auto body) {
                fault = {call, number, EIO, false, 0};
                bool const failed = fails(body);
                reached = fault.seen >= number;
                fault = {};
                return failed;
            });
            EXPECT_EQ(openDescriptors(), descriptors);
            places += reached ? 1 : 0;
        }
    }
    return places;
}

TEST(PropertiesFailureTest, aStoreThatFailsOnceAnywhereLosesNothing) {
    for (Edit const edit : {grow, shrink, forgetSecret}) {
        int const places = failEverywhere([&](Scene& scene, int call, auto underFault) {
            std::string const before = stateOf(scene.file);
            edit(scene.properties);
            bool const failed = underFault([&] { scene.properties.store(); });
            EXPECT_EQ(scene.properties.isModified(), failed);
            // The removal of a companion comes when the main file is already stored.
            if (failed && call != removing) {
                EXPECT_EQ(stateOf(scene.file), before);
            }
            scene.properties.store();  // the lock is free, and nothing is missing
            EXPECT_NE(stateOf(scene.file), before);
            EXPECT_EQ(secretOf(scene), valueOf(scene.properties, "s", "secret"));
        });
        EXPECT_GT(places, 10);
    }
}

TEST(PropertiesFailureTest, aStoreToANewNameThatFailsLeavesNoFiles) {
    int const places = failEverywhere([](Scene& scene, int call, auto underFault) {
        ZStanzaFileProperties fresh(1);
        fresh.setValue("s", "secret", "hush", 1);
        std::string const name = scene.file.beside("new");
        bool const failed = underFault([&] { fresh.store(name.c_str()); });
        // What could not be locked may be somebody else's by now.
        bool const mayStay = call == removing || call == locking;
        EXPECT_TRUE(mayStay || failed != std::filesystem::exists(name));
        EXPECT_NE(failed, std::filesystem::exists(name + ".obf"));
        EXPECT_NE(failed, fresh.exists("configuration-database"));
        fresh.store(name.c_str());
        EXPECT_EQ(valueOf(ZStanzaFileProperties(name.c_str(), 1), "s", "secret"), "hush");
    });
    EXPECT_GT(places, 10);
}

TEST(PropertiesFailureTest, aLoadThatFailsAnywhereCanBeRepeated) {
    int const places = failEverywhere([](Scene& scene, int, auto underFault) {
        ZStanzaFileProperties properties(1);
        static_cast<void>(underFault([&] { properties.load(scene.file.path().c_str()); }));
        properties.reload(scene.file.path().c_str());
        EXPECT_EQ(valueOf(properties, "s", "secret"), "first");
    });
    EXPECT_GT(places, 3);
}

TEST(PropertiesFailureTest, aFullDiskLosesNothing) {
    struct Full {
        Fault fault;
        char const* api;
    };
    for (Full const& full : {Full{{reserving, 1, ENOSPC, true, 0}, "fallocate()"},
                             // It reserves nothing, and runs full before old bytes are touched;
                             // and still is when they are to be put back.
                             Full{{writing, 1, ENOSPC, true, 0}, "write()"}}) {
        Scene scene;
        std::string const before = stateOf(scene.file);
        grow(scene.properties);
        fault = full.fault;
        std::string const failure = testsupport::ioFailure([&] { scene.properties.store(); });
        fault = {};
        EXPECT_EQ(failure, ioText(scene.file.companion(), full.api, ENOSPC));
        EXPECT_EQ(stateOf(scene.file), before);
        EXPECT_TRUE(scene.properties.isModified());
    }
    Scene scene;
    std::string const before = stateOf(scene.file);
    grow(scene.properties);
    fault = {reserving, 1, EOPNOTSUPP, true, 0};
    scene.properties.store();
    fault = {};
    EXPECT_NE(stateOf(scene.file), before) << "a file system that reserves nothing, with room";
}

TEST(PropertiesFailureTest, whatCannotBePutBackIsReportedAndKeptInMemory) {
    Scene scene;
    shrink(scene.properties);
    fault = {writing, 2, EIO, true, 0};
    EXPECT_TRUE(fails([&] { scene.properties.store(); }));
    fault = {};
    EXPECT_TRUE(scene.properties.isModified());
    scene.properties.store();
    EXPECT_EQ(secretOf(scene), "2");
}

TEST(PropertiesFailureTest, classicLocksServeAnOlderKernel) {
    Scene scene;
    shrink(scene.properties);
    fault = {locking, 1, EINVAL, false, 0};
    scene.properties.store();
    EXPECT_EQ(fault.seen, 2);
    fault = {};
    EXPECT_EQ(secretOf(scene), "2");
}

}  // namespace
