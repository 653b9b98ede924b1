// One file and several processes, and one object and several callers.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <thread>

#include "support/properties.h"

namespace {

using testsupport::Companion;
using testsupport::ioFailure;
using testsupport::ioText;
using testsupport::openDescriptors;
using testsupport::StanzaFile;
using testsupport::valueOf;
using testsupport::writeFile;

constexpr char sample[] = "[s]\nk = 1\n";

/// Takes a lock on the whole file; the descriptor, or -1.
int lockWhole(std::string const& path, int command, short type) {
    int const fd = open(path.c_str(), O_RDWR);
    struct flock record {};
    record.l_type = type;
    record.l_whence = SEEK_SET;
    if (fcntl(fd, command, &record) == 0) return fd;
    close(fd);
    return -1;
}

// ------------------------------------------------------------------------------- other processes

TEST(PropertiesLockTest, aLockOfAnotherProcessOfEitherKindIsRefusedAtOnce) {
    std::pair<int, short> const rows[] = {
        {F_SETLK, F_RDLCK}, {F_SETLK, F_WRLCK}, {F_OFD_SETLK, F_RDLCK}, {F_OFD_SETLK, F_WRLCK}};
    for (auto const& [command, type] : rows) {
        SCOPED_TRACE(std::to_string(command) + "/" + std::to_string(type));
        StanzaFile const file(sample);
        ZStanzaFileProperties properties(file.path().c_str(), 1);
        properties.setValue("s", "k", "2");
        Companion other([&, c = command, t = type](Companion& parent) {
            if (lockWhole(file.path(), c, t) < 0) return 1;
            parent.signal();
            return parent.await() ? 0 : 2;
        });
        ASSERT_TRUE(other.await());
        int const before = openDescriptors();
        std::string const refusal = ioText(file.path(), "fcntl()", EAGAIN);
        EXPECT_EQ(ioFailure([&] { properties.store(); }), refusal);
        EXPECT_EQ(file.bytes(), sample) << "not cut off before it was locked";
        EXPECT_TRUE(properties.isModified());
        if (type == F_RDLCK) {
            ZStanzaFileProperties const reader(file.path().c_str(), 1);
        } else {
            EXPECT_EQ(ioFailure([&] { properties.reload(); }), refusal);
            EXPECT_EQ(valueOf(properties, "s", "k"), "2");
        }
        EXPECT_EQ(openDescriptors(), before);
        other.signal();
        EXPECT_EQ(other.join(), 0);
        properties.store();
        EXPECT_EQ(file.bytes(), "[s]\nk = 2\n");
    }
}

/// Tells, while a load or store runs under the object's hook, what another process can lock.
class Hooked : public ZStanzaFileProperties {
  public:
    Hooked() : ZStanzaFileProperties(1) {}
    std::function<void()> hook;

  protected:
    void postLoad(char const*) override {
        if (hook) hook();
    }
};

TEST(PropertiesLockTest, aLoadSharesTheFileAndKeepsWritersOut) {
    StanzaFile const file(sample);
    Companion other([&](Companion& parent) {
        int failures = 0;
        if (!parent.await()) return 9;
        if (lockWhole(file.path(), F_SETLK, F_WRLCK) >= 0) failures += 1;
        int const shared = lockWhole(file.path(), F_SETLK, F_RDLCK);
        if (shared < 0) failures += 2;
        close(shared);
        parent.signal();
        if (!parent.await()) return 9;
        if (lockWhole(file.path(), F_SETLK, F_WRLCK) < 0) failures += 4;
        return failures;
    });
    Hooked properties;
    std::string refusal;
    properties.hook = [&] {
        // Another part of the process closes the same file, which must not free the lock.
        close(open(file.path().c_str(), O_RDONLY));
        ZStanzaFileProperties second(file.path().c_str(), 1);
        second.setValue("s", "k", "2");
        refusal = ioFailure([&] { second.store(); });
        other.signal();
        EXPECT_TRUE(other.await());
    };
    properties.load(file.path().c_str());
    EXPECT_EQ(refusal, ioText(file.path(), "fcntl()", EAGAIN));
    EXPECT_EQ(file.bytes(), sample);
    other.signal();
    EXPECT_EQ(other.join(), 0);
}

TEST(PropertiesLockTest, noReaderEverSeesHalfAFile) {
    StanzaFile const file("[s]\na = 0\nb = 0\n");
    constexpr std::size_t rounds = 60;
    auto const isBusy = [](auto const& work) {
        try {
            work();
            return false;
        } catch (ZPropertiesIOException const&) {
            return true;
        }
    };
    Companion writer([&](Companion&) {
        ZStanzaFileProperties properties(file.path().c_str(), 1);
        for (std::size_t i = 1; i <= rounds; ++i) {
            // The length changes with the value, so that halves would not fit together.
            std::string const value(i * 37, 'x');
            properties.setValue("s", "a", value.c_str());
            properties.setValue("s", "b", value.c_str());
            while (isBusy([&] { properties.store(); }))
                continue;
        }
        return 0;
    });
    ZStanzaFileProperties reader(1);
    for (std::size_t length = 0; length < rounds * 37;) {
        if (isBusy([&] { reader.reload(file.path().c_str()); })) continue;
        std::string const value = valueOf(reader, "s", "a");
        ASSERT_EQ(value, valueOf(reader, "s", "b"));
        length = value.size();
    }
    EXPECT_EQ(writer.join(), 0);
}

TEST(PropertiesLockTest, aCancelledThreadFinishesItsFile) {
    StanzaFile const file(sample);
    auto const storeCancelled = [](void* path) -> void* {
        ZStanzaFileProperties properties(static_cast<std::string*>(path)->c_str(), 1);
        properties.setValue("s", "k", "2");
        pthread_cancel(pthread_self());
        properties.store();  // full of cancellation points
        pthread_testcancel();
        return nullptr;
    };
    std::string path = file.path();
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, storeCancelled, &path), 0);
    void* result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_EQ(file.bytes(), "[s]\nk = 2\n");
}

// -------------------------------------------------------------------------------------- registry

/// A file in the registry under a factory of its own.
struct RegistryScene {
    StanzaFile file{sample};
    ZStanzaFileProperties::ZStanzaFilePropertiesFactory factory;

    ZProperties* get(int force = 0) {
        return ZProperties::getPropertiesFor(file.path().c_str(), factory, force);
    }
    /// What somebody else does to the file.
    void change(char const* value, long seconds) const {
        writeFile(file.path(), "[s]\nk = " + std::string(value) + "\n");
        testsupport::setTime(file.path(), seconds);
    }
};

constexpr long once = 1000000000;

TEST(PropertiesRegistryTest, handsOutOneObjectForEachFileAndFactory) {
    RegistryScene scene;
    RegistryScene other;
    ZProperties* const properties = scene.get();
    ASSERT_NE(properties, nullptr);
    EXPECT_EQ(scene.get(), properties);
    auto const byName = [&](char const* name) {
        return ZProperties::getPropertiesFor(name, other.factory);
    };
    EXPECT_NE(byName(scene.file.path().c_str()), properties);
    EXPECT_NE(byName(scene.file.beside("./settings").c_str()), byName(scene.file.path().c_str()))
        << "names are compared as they are given";
    for (char const* const none : {static_cast<char const*>(nullptr), ""})
        EXPECT_THROW(static_cast<void>(byName(none)), ZInvalidParameterException);
}

TEST(PropertiesRegistryTest, reloadsWhatOthersHaveChanged) {
    RegistryScene scene;
    scene.change("1", once);
    ZProperties* const properties = scene.get();
    scene.change("2", once);
    EXPECT_EQ(valueOf(*scene.get(), "s", "k"), "1") << "same second: not read again";
    EXPECT_EQ(valueOf(*scene.get(1), "s", "k"), "2");
    scene.change("3", once - 1);
    EXPECT_EQ(scene.get(), properties);
    EXPECT_EQ(valueOf(*properties, "s", "k"), "3") << "a file from a backup is older";

    properties->setValue("s", "k", "mine");
    scene.change("4", once + 1);
    EXPECT_EQ(valueOf(*scene.get(), "s", "k"), "mine") << "never behind its user's back";
    properties->store();
    EXPECT_EQ(scene.file.bytes(), "[s]\nk = mine\n");
    scene.change("5", testsupport::statusOf(scene.file.path()).st_mtime);
    EXPECT_EQ(valueOf(*scene.get(), "s", "k"), "mine") << "its own store is no change";
}

TEST(PropertiesRegistryTest, aFailedLoadIsTriedAgain) {
    using Invalid = ZPropertiesInvalidDataException;
    RegistryScene scene;
    writeFile(scene.file.path(), "nonsense\n");
    EXPECT_THROW(static_cast<void>(scene.get()), Invalid);
    scene.change("1", once);
    ZProperties* const properties = scene.get();
    scene.change("2\nnonsense again", once + 1);
    for (int i = 0; i < 2; ++i)
        EXPECT_THROW(static_cast<void>(scene.get()), Invalid);
    scene.change("3", once + 1);
    EXPECT_EQ(scene.get(), properties);
    scene.change("4\nnonsense", once + 1);
    EXPECT_THROW(static_cast<void>(scene.get(1)), Invalid);
    EXPECT_THROW(static_cast<void>(scene.get()), Invalid) << "the time has not moved";
    scene.change("5", once + 1);
    EXPECT_EQ(valueOf(*scene.get(), "s", "k"), "5");
    ASSERT_EQ(unlink(scene.file.path().c_str()), 0);
    EXPECT_EQ(scene.get(), properties) << "a file that is gone has not changed";
}

// --------------------------------------------------------------------------------------- notices

/// Writes down every notice, and can look at the object, which must not be locked.
class Recorder : public ZObserverInterface {
  public:
    void update(ZAbstractObservable* source, ZObservedParm const& parm) override {
        std::unique_ptr<ZObject> const kept(parm.clone());
        auto const& notice = dynamic_cast<ZPropertyChanged const&>(*kept);
        char const* const key = notice.getKey();
        notices.push_back(std::to_string(notice.getChangeType()) + notice.getStanza() + "/" +
                          (key != nullptr ? key : "-"));
        EXPECT_EQ(notice.getStyle(), 0);
        if (inspect) inspect(dynamic_cast<ZProperties&>(*source));
    }
    std::vector<std::string> notices;
    std::function<void(ZProperties&)> inspect;
};

TEST(PropertiesNoticeTest, tellsOfEveryChangeOnce) {
    StanzaFile const file(sample);
    ZStanzaFileProperties properties(file.path().c_str(), 1);
    Recorder recorder;
    properties.addObserver(&recorder);
    properties.setValue("s", "k", "2");
    properties.setIntegerValue("s", "n", 1);
    properties.setBooleanValue("new", "b", 1);
    properties.addValue("s", "k", "3");
    properties.addStanza("t");
    properties.deleteKey("s", "n");
    properties.deleteStanza("t");
    ZStanzaValueIterator walk(properties, "s", "k");
    EXPECT_TRUE(walk.next());
    walk.changeValue("x");
    walk.removeValue();
    testsupport::Texts const told{"2s/k", "2s/n", "2new/b", "2s/k", "0t/-",
                                  "1s/n", "1t/-", "2s/k",   "2s/k"};
    EXPECT_EQ(recorder.notices, told);
    properties.addFileComment("a comment is no setting");
    properties.deleteKey("s", "none");
    properties.addStanza("s");
    EXPECT_THROW(properties.setValue("s", "a=b", "v"), ZInvalidParameterException);
    properties.store();
    properties.reload();
    properties.deleteObserver(&recorder);
    properties.setValue("s", "k", "2");
    EXPECT_EQ(recorder.notices, told);
}

TEST(PropertiesNoticeTest, comesWhenTheObjectIsFreeAgainAndNotWhileALoadRuns) {
    StanzaFile const file(sample);
    Hooked properties;
    Recorder recorder;
    properties.addObserver(&recorder);
    properties.hook = [&] { properties.setValue("s", "default", "1"); };
    properties.load(file.path().c_str());
    EXPECT_EQ(recorder.notices, std::vector<std::string>{});
    EXPECT_EQ(valueOf(properties, "s", "default"), "1");

    std::string seen;
    recorder.inspect = [&](ZProperties& source) {
        std::thread([&] { seen = valueOf(source, "s", "k"); }).join();
    };
    properties.setValue("s", "k", "v");
    EXPECT_EQ(seen, "v");
    recorder.inspect = [](ZProperties&) { throw ZOutOfMemoryException(); };
    EXPECT_THROW(properties.setValue("s", "k", "w"), ZOutOfMemoryException);
    EXPECT_EQ(valueOf(properties, "s", "k"), "w");
    properties.deleteObservers();
}

TEST(PropertiesThreadTest, manyThreadsShareAnObject) {
    StanzaFile const file(sample);
    ZStanzaFileProperties properties(file.path().c_str(), 1);
    auto const work = [&](char const* key) {
        for (unsigned int i = 1; i <= 500; ++i) {
            properties.setIntegerValue("s", key, i);
            if (properties.getIntegerValue("s", key, 1) != i) ADD_FAILURE() << key << " " << i;
        }
    };
    std::thread first(work, "a");
    std::thread second(work, "b");
    first.join();
    second.join();
    EXPECT_EQ(properties.count("s"), 3U);
}

}  // namespace
