// One file and several processes, and one object and several callers.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <memory>

#include "support/properties.h"
#include "support/threads.h"

namespace {

using namespace testsupport;

constexpr char sample[] = "[s]\nk = 1\n";

/// Does something in the middle of a load.
class Hooked : public ZStanzaFileProperties {
  public:
    Hooked() : ZStanzaFileProperties(1) {}
    std::function<void()> hook;

  protected:
    void postLoad(char const*) override { hook(); }
};

TEST(PropertiesLockTest, aLockOfAnotherProcessOfEitherKindIsRefusedAtOnce) {
    std::pair<int, short> const rows[] = {{F_SETLK, F_RDLCK}, {F_OFD_SETLK, F_WRLCK}};
    for (auto const& row : rows) {
        SCOPED_TRACE(row.second);
        EditedFile file(sample);
        file.properties.setValue("s", "k", "2");
        int const holder = lockWhole(file.path(), row.first, row.second);
        expectInChild([&] {
            std::string const refusal = ioText(file.path(), "fcntl()", EAGAIN);
            int const before = openDescriptors();
            EXPECT_EQ(ioFailure([&] { file.properties.store(); }), refusal);
            EXPECT_EQ(file.bytes(), sample) << "not cut off before it was locked";
            EXPECT_TRUE(file.properties.isModified());
            EXPECT_EQ(ioFailure([&] { static_cast<void>(valueIn(file.path(), "s", "k")); }),
                      row.second == F_RDLCK ? "" : refusal);
            EXPECT_EQ(openDescriptors(), before);
        });
        close(holder);
        file.properties.store();
        EXPECT_EQ(file.bytes(), "[s]\nk = 2\n");
    }
}

TEST(PropertiesLockTest, aLoadSharesTheFileAndKeepsWritersOut) {
    EditedFile file(sample);
    auto const mayLock = [&](short type) {
        return inChild([&] { return lockWhole(file.path(), F_SETLK, type) >= 0 ? 1 : 0; });
    };
    Hooked properties;
    properties.hook = [&] {
        // Another part of the process closes the same file, which must not free the lock.
        close(open(file.path().c_str(), O_RDONLY));
        EXPECT_NE(ioFailure([&] { file.properties.store(); }), "");
        EXPECT_FALSE(mayLock(F_WRLCK));
        EXPECT_TRUE(mayLock(F_RDLCK));
    };
    properties.load(file.path().c_str());
    EXPECT_TRUE(mayLock(F_WRLCK));
}

TEST(PropertiesLockTest, noReaderEverSeesHalfAFile) {
    EditedFile file("[s]\na = 0\nb = 0\n");
    constexpr std::size_t rounds = 60;
    auto const untilFree = [](auto const& work) {
        while (!ioFailure(work).empty())  // the other one has it
            continue;
    };
    Companion writer([&](Companion&) {
        for (std::size_t i = 1; i <= rounds; ++i) {
            // The length changes with the value, so that halves would not fit together.
            for (char const* const key : {"a", "b"})
                file.properties.setValue("s", key, std::string(i * 37, 'x').c_str());
            untilFree([&] { file.properties.store(); });
        }
        return 0;
    });
    for (std::string value; value.size() < rounds * 37;) {
        untilFree([&] { file.properties.reload(); });
        value = valueOf(file.properties, "s", "a");
        ASSERT_EQ(value, valueOf(file.properties, "s", "b"));
    }
    EXPECT_EQ(writer.join(), 0);
}

TEST(PropertiesLockTest, aCancelledThreadFinishesItsFile) {
    EditedFile file(sample);
    file.properties.setValue("s", "k", "2");
    Doomed const thread([&] {
        pthread_cancel(pthread_self());
        file.properties.store();  // full of cancellation points
        pthread_testcancel();
    });
    EXPECT_TRUE(thread.cancel());
    EXPECT_EQ(file.bytes(), "[s]\nk = 2\n");
}

/// A file in the registry under a factory of its own.
struct RegistryScene {
    StanzaFile file{sample};
    ZStanzaFileProperties::ZStanzaFilePropertiesFactory factory;

    ZProperties* get(std::string const& path, int force = 0) {
        return ZProperties::getPropertiesFor(path.c_str(), factory, force);
    }
    /// What its user finds; empty when the file is refused.
    std::string value(int force = 0) {
        try {
            return valueOf(*get(file.path(), force), "s", "k");
        } catch (ZPropertiesInvalidDataException const&) {
            return "";
        }
    }
    /// What somebody else does to the file.
    void change(std::string const& value, long seconds) const {
        writeFile(file.path(), "[s]\nk = " + value + "\n");
        setTime(file.path(), seconds);
    }
};

TEST(PropertiesRegistryTest, handsOutOneObjectForEachFileAndFactory) {
    RegistryScene scene, other;
    std::string const path = scene.file.path();
    ZProperties* const properties = scene.get(path);
    EXPECT_EQ(scene.get(path), properties);
    EXPECT_NE(scene.get(scene.file.beside("./settings")), properties) << "names are compared";
    EXPECT_NE(other.get(path), properties);
    EXPECT_THROW(other.get(""), ZInvalidParameterException);
}

TEST(PropertiesRegistryTest, reloadsWhatOthersHaveChanged) {
    constexpr long once = 1000000000;
    struct {
        char const* written;
        long time;
        int force;
        char const* found;  // empty: refused
    } const steps[] = {
        {"\nnonsense", once, 0, ""},
        {"1", once, 0, "1"},
        {"2", once, 0, "1"},  // the same second: not read again
        {"2", once, 1, "2"},
        {"3", once - 1, 0, "3"},  // a file from a backup is older
        {"4\nnonsense", once - 1, 1, ""},
        {"4\nnonsense", once - 1, 0, ""},  // tried again, though the time has not moved
        {"5", once - 1, 0, "5"},
    };
    RegistryScene scene;
    for (auto const& step : steps) {
        scene.change(step.written, step.time);
        EXPECT_EQ(scene.value(step.force), step.found) << &step - steps;
    }
    ZProperties* const properties = scene.get(scene.file.path());
    properties->setValue("s", "k", "mine");
    scene.change("6", once + 1);
    EXPECT_EQ(scene.value(), "mine") << "never behind its user's back";
    properties->store();
    scene.change("7", statusOf(scene.file.path()).st_mtime);
    EXPECT_EQ(scene.value(), "mine") << "its own store is no change";
    ASSERT_EQ(unlink(scene.file.path().c_str()), 0);
    EXPECT_EQ(scene.value(), "mine") << "one that is gone has not changed";
}

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
    Texts notices;
    std::function<void(ZProperties&)> inspect;
};

TEST(PropertiesNoticeTest, tellsOfEveryChangeOnce) {
    EditedFile file(sample);
    ZStanzaFileProperties& properties = file.properties;
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
    Texts const told{"2s/k", "2s/n", "2new/b", "2s/k", "0t/-", "1s/n", "1t/-", "2s/k", "2s/k"};
    EXPECT_EQ(recorder.notices, told);
    properties.addFileComment("a comment is no setting");
    properties.deleteKey("s", "none");
    properties.addStanza("s");
    EXPECT_THROW(properties.setValue("s", "a=b", "v"), ZInvalidParameterException);
    properties.store();
    properties.reload();
    EXPECT_EQ(recorder.notices, told);
    properties.deleteObservers();
}

TEST(PropertiesNoticeTest, comesWhenTheObjectIsFreeAgainAndNotWhileALoadRuns) {
    StanzaFile const file(sample);
    Hooked properties;
    Recorder recorder;
    properties.addObserver(&recorder);
    properties.hook = [&] { properties.setValue("s", "default", "1"); };
    properties.load(file.path().c_str());
    EXPECT_EQ(recorder.notices, Texts{});
    EXPECT_EQ(valueOf(properties, "s", "default"), "1");

    recorder.inspect = [&](ZProperties& source) {
        EXPECT_EQ(onThread([&] { return valueOf(source, "s", "k"); }), "v");
        throw ZOutOfMemoryException();
    };
    EXPECT_THROW(properties.setValue("s", "k", "v"), ZOutOfMemoryException);
    EXPECT_EQ(valueOf(properties, "s", "k"), "v");
    properties.deleteObservers();
}

TEST(PropertiesThreadTest, manyThreadsShareAnObject) {
    EditedFile file(sample);
    Crew crew;
    for (char const* const key : {"a", "b"})
        crew.add([&properties = file.properties, key] {
            for (unsigned int i = 1; i <= 500; ++i) {
                properties.setIntegerValue("s", key, i);
                EXPECT_EQ(properties.getIntegerValue("s", key, 1), i) << key;
            }
        });
    crew.join();
}

}  // namespace
