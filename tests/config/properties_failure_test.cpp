// link: static
// wrap: open64,fcntl64,fallocate64,pwrite64,pread64,ftruncate64,fsync,statx,unlink
// Every system call of a load and a store fails once, at every place where it is made.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "support/faults.h"
#include "support/properties.h"
#include "support/reports.h"

WRAP_VARIADIC(open64, char const*, mode_t)
WRAP_VARIADIC(fcntl64, int, void*)
WRAP(fallocate64, int, -1, (int fd, int mode, off64_t offset, off64_t length),
     (fd, mode, offset, length))
// In small pieces, so that a failure can come in the middle.
WRAP(pwrite64, ssize_t, -1, (int fd, void const* bytes, size_t count, off64_t offset),
     (fd, bytes, std::min(count, size_t{7}), offset))
WRAP(pread64, ssize_t, -1, (int fd, void* bytes, size_t count, off64_t offset),
     (fd, bytes, count, offset))
WRAP(ftruncate64, int, -1, (int fd, off64_t length), (fd, length))
WRAP(statx, int, -1, (int fd, char const* path, int flags, unsigned mask, struct statx* into),
     (fd, path, flags, mask, into))
WRAP(unlink, int, -1, (char const* path), (path))
// Hundreds of real ones would take their time.
extern "C" int __wrap_fsync(int) { return testsupport::fault.strikes("fsync") ? -1 : 0; }

namespace {

using namespace testsupport;

constexpr char const* everyCall[] = {"open64",      "fcntl64", "fallocate64", "pwrite64", "pread64",
                                     "ftruncate64", "fsync",   "statx",       "unlink"};

/// A file with a companion, and the object that edits both.
struct Scene {
    StanzaFile file{"# about\n[s]\nk = 1\nlong = " + std::string(60, 'l') + "\n"};
    ZStanzaFileProperties properties{file.path().c_str(), 1};

    Scene() {
        properties.setValue("s", "secret", "first", 1);
        properties.store();
    }
    /// The bytes of both files; "none" for one that is not there.
    [[nodiscard]] std::string state() const {
        bool const hasCompanion = std::filesystem::exists(file.companion());
        return file.bytes() + "|" + (hasCompanion ? readFile(file.companion()) : "none");
    }
    [[nodiscard]] std::string secret() const { return valueIn(file.path(), "s", "secret"); }
};

/// All values.
std::string generation(ZStanzaFileProperties const& properties) {
    std::string values;
    for (char const* const key : {"k", "long", "secret"})
        values += valueOf(properties, "s", key) + ";";
    return values;
}

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

/// What `body` raises under the fault, as ioFailure() has it; empty: nothing.
template <class Body>
std::string failureUnder(Fault const& planned, Body body) {
    fault = planned;
    std::string failure = ioFailure(body);
    fault.first = 0;
    return failure;
}

/// Lets every call of `attempt` on a scene fail, one in each scene, or `count` from there on; the
/// number of calls.
template <class Attempt>
int failInScenes(Attempt attempt, long count = 1) {
    Reports const dropped;
    return failEverywhere(everyCall, EIO, [&](Fault planned) {
        planned.count = count;
        SCOPED_TRACE(std::string(planned.function) + " number " + std::to_string(planned.first));
        Scene scene;
        int const descriptors = openDescriptors();
        attempt(scene, planned.function, [&](auto body) {
            std::string const failure = failureUnder(planned, body);
            EXPECT_EQ(failure.substr(failure.rfind(' ') + 1), failure.empty() ? "" : "5");
            return !failure.empty();
        });
        EXPECT_EQ(openDescriptors(), descriptors);
    });
}

/// Makes the edit once with a failure, and then without.
void failOnceAnywhere(Edit edit, bool updates) {
    int const places = failInScenes([&](Scene& scene, auto call, auto fails) {
        ZStanzaFileProperties& properties = scene.properties;
        std::string const before = scene.state();
        auto const make = [&] { updates ? properties.updateFile(edit, 0) : properties.store(); };
        if (!updates) edit(properties);
        bool const failed = fails(make);
        EXPECT_EQ(properties.isModified(), failed && !updates);
        // The removal of a companion comes when the main file is already stored.
        if (failed && call != "unlink") {
            EXPECT_EQ(scene.state(), before);
            EXPECT_EQ(scene.secret() == valueOf(properties, "s", "secret"), updates);
        }
        make();  // the lock is free, and nothing is missing
        EXPECT_NE(scene.state(), before);
        EXPECT_EQ(scene.secret(), valueOf(properties, "s", "secret"));
    });
    EXPECT_GT(places, 10);
}

TEST(PropertiesFailureTest, aStoreOrUpdateThatFailsOnceAnywhereLosesNothing) {
    for (Edit const edit : {grow, shrink, forgetSecret})
        for (bool const updates : {false, true})
            failOnceAnywhere(edit, updates);
}

TEST(PropertiesFailureTest, whatFailsFromThereOnLeavesTheOldOrTheNewFiles) {
    for (Edit const edit : {grow, shrink, forgetSecret}) {
        int const places = failInScenes(
            [&](Scene& scene, auto, auto fails) {
                ZStanzaFileProperties& properties = scene.properties;
                std::string const before = generation(properties);
                edit(properties);
                bool const failed = fails([&] { properties.store(); });
                EXPECT_EQ(properties.isModified(), failed);
                std::string const after = generation(properties);
                std::string const found =
                    generation(ZStanzaFileProperties(scene.file.path().c_str(), 1));
                EXPECT_TRUE(found == after || (failed && found == before)) << found;
                properties.store();
                EXPECT_EQ(generation(ZStanzaFileProperties(scene.file.path().c_str(), 1)), after);
            },
            everyone);
        EXPECT_GT(places, 10);
    }
}

TEST(PropertiesFailureTest, aStoreToANewNameThatFailsLeavesNoFiles) {
    int const places = failInScenes([](Scene& scene, auto call, auto fails) {
        ZStanzaFileProperties fresh(1);
        fresh.setValue("s", "secret", "hush", 1);
        std::string const name = scene.file.beside("new");
        bool const failed = fails([&] { fresh.store(name.c_str()); });
        // What could not be locked may be somebody else's by now.
        bool const mayStay = call == "unlink" || call == "fcntl64";
        EXPECT_TRUE(mayStay || failed != std::filesystem::exists(name));
        EXPECT_NE(failed, std::filesystem::exists(name + ".obf"));
        EXPECT_NE(failed, fresh.exists("configuration-database"));
        fresh.store(name.c_str());
        EXPECT_EQ(valueIn(name, "s", "secret"), "hush");
    });
    EXPECT_GT(places, 10);
}

TEST(PropertiesFailureTest, aLoadThatFailsAnywhereCanBeRepeated) {
    int const places = failInScenes([](Scene& scene, auto, auto fails) {
        ZStanzaFileProperties properties(1);
        static_cast<void>(fails([&] { properties.load(scene.file.path().c_str()); }));
        properties.reload(scene.file.path().c_str());
        EXPECT_EQ(valueOf(properties, "s", "secret"), "first");
    });
    EXPECT_GT(places, 3);
}

TEST(PropertiesFailureTest, whatFailsForLongLosesNothing) {
    struct {
        Fault fault;
        Edit edit;
        char const* api;  // null: the store succeeds
        char const* file = "settings.obf";
    } const rows[] = {
        {{"fallocate64", 1, ENOSPC, everyone}, grow, "fallocate()"},
        // A disk that reserves nothing runs full before old bytes are touched.
        {{"pwrite64", 1, ENOSPC, everyone}, grow, "write()", ".settings.zsave"},
        {{"fallocate64", 1, EOPNOTSUPP, everyone}, grow, nullptr},
        {{"fsync", 1, EINVAL, everyone}, grow, nullptr},  // there is nothing to flush to
        // An older kernel, where classic locks serve.
        {{"fcntl64", 1, EINVAL}, shrink, nullptr},
    };
    for (auto const& [planned, edit, api, file] : rows) {
        SCOPED_TRACE(std::string(planned.function) + " " + std::to_string(planned.error));
        Scene scene;
        std::string const before = scene.state();
        edit(scene.properties);
        std::string const failure = failureUnder(planned, [&] { scene.properties.store(); });
        EXPECT_GE(fault.seen, planned.first + (api == nullptr ? 1 : 0));
        EXPECT_EQ(failure, api ? ioText(scene.file.beside(file), api, planned.error) : "");
        EXPECT_EQ(scene.properties.isModified(), api != nullptr);
        if (edit == grow) {
            EXPECT_EQ(scene.state() == before, api != nullptr);
        }
        scene.properties.store();
        EXPECT_EQ(scene.secret(), valueOf(scene.properties, "s", "secret"));
    }
}

}  // namespace
