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
    std::function<void()> hook = [] {};

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
    void change(std::string const& value, timespec time) const {
        writeFile(file.path(), "[s]\nk = " + value + "\n");
        timespec const times[] = {time, time};
        EXPECT_EQ(utimensat(AT_FDCWD, file.path().c_str(), times, 0), 0);
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
    constexpr timespec once{1000000000, 5}, later{1000000000, 6};
    struct {
        char const* written;
        timespec time;
        int force;
        char const* found;  // empty: refused
    } const steps[] = {
        {"\nnonsense", once, 0, ""},
        {"1", once, 0, "1"},
        {"2", once, 0, "1"},  // the same in all that is looked at: not read again
        {"2", once, 1, "2"},
        {"3", later, 0, "3"},
        {"3a", later, 0, "3a"},  // another size
        {"3", once, 0, "3"},     // a file from a backup is older
        {"4\nnonsense", once, 1, ""},
        {"4\nnonsense", once, 0, ""},  // tried again, though nothing has changed
        {"5", once, 0, "5"},
    };
    RegistryScene scene;
    for (auto const& step : steps) {
        scene.change(step.written, step.time);
        EXPECT_EQ(scene.value(step.force), step.found) << &step - steps;
    }
    std::string const path = scene.file.path();
    scene.change("6", once);
    ASSERT_EQ(rename(path.c_str(), scene.file.beside("6").c_str()), 0);
    scene.change("5", once);
    EXPECT_EQ(scene.value(), "5");
    ASSERT_EQ(rename(scene.file.beside("6").c_str(), path.c_str()), 0);
    EXPECT_EQ(scene.value(), "6") << "another file of this name";
    ZProperties* const properties = scene.get(path);
    properties->setValue("s", "k", "mine");
    scene.change("7", later);
    EXPECT_EQ(scene.value(), "mine") << "never behind its user's back";
    properties->store();
    // Within the tick of the file system's clock, where no time moves.
    timespec const stored = statusOf(path).st_mtim;
    scene.change("next", stored);
    EXPECT_EQ(scene.value(), "next");
    ASSERT_EQ(unlink(path.c_str()), 0);
    EXPECT_EQ(scene.value(), "next") << "one that is gone has not changed";
    EXPECT_EQ(ZStanzaFileProperties::getStanzaPropertiesFor(path.c_str(), scene.factory),
              properties);
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

TEST(PropertiesNoticeTest, tellsWhatAReloadHasChanged) {
    char const before[] = "[a]\nsame = 1\nother = 1\ngone = 1\n[b]\nk = 1\n[s]\nx = 1\nx = 2\n";
    char const after[] = "[s]\nx = 2\nx = 1\n[new]\nk =\n# why\n[a]\nother = 2\nsame = 1\n";
    Texts const changes{"1a/gone", "1b/k", "1b/-", "2s/x", "0new/-", "2new/k", "2a/other"};
    Texts const clearing{"1s/x", "1s/-", "1new/k", "1new/-", "1a/other", "1a/same", "1a/-"};
    for (unsigned long const attribute : {0UL, ZPCache::keepLastGood}) {
        EditedFile file(before);
        ZStanzaFileProperties& properties = file.properties;
        properties.setAttributes(attribute, nullptr);
        Recorder recorder;
        recorder.inspect = [](ZProperties& source) {
            EXPECT_EQ(onThread([&] { return source.count(); }), source.count());
        };
        properties.addObserver(&recorder);
        writeFile(file.path(), std::string(after) + "nonsense\n");
        EXPECT_THROW(properties.reload(), ZPropertiesInvalidDataException);
        EXPECT_EQ(recorder.notices, Texts{});
        writeFile(file.path(), after);
        properties.reload();
        EXPECT_EQ(recorder.notices, changes);
        recorder.notices.clear();
        properties.reload();
        EXPECT_EQ(recorder.notices, Texts{});
        properties.clear();
        EXPECT_EQ(recorder.notices, clearing);
        properties.deleteObservers();
    }
}

TEST(PropertiesNoticeTest, tellsAtTheEndOfAnUpdateWhatWasReadAndEdited) {
    EditedFile file(sample);
    Recorder recorder;
    file.properties.addObserver(&recorder);
    for (bool const fails : {true, false}) {
        writeFile(file.path(), fails ? "[s]\nread = 1\n" : sample);
        auto const edit = [&](ZProperties& edited) {
            edited.setValue("s", "edited", "1");
            EXPECT_EQ(recorder.notices, Texts{});
            if (fails) throw ZOutOfMemoryException();
        };
        auto const update = [&] { file.properties.updateFile(edit, 0); };
        if (fails) {
            EXPECT_THROW(update(), ZOutOfMemoryException);
        } else {
            update();
        }
        EXPECT_EQ(recorder.notices,
                  fails ? Texts({"1s/k", "2s/read"}) : Texts({"1s/read", "2s/k", "2s/edited"}));
        recorder.notices.clear();
    }
    file.properties.deleteObservers();
}

TEST(PropertiesReloadTest, keepsTheLastGoodValuesWhenAskedTo) {
    using Invalid = ZPropertiesInvalidDataException;
    StanzaFile const file(sample);
    Hooked properties;
    properties.load(file.path().c_str());
    properties.setValue("s", "secret", "hush", 1);
    properties.store();
    properties.setAttributes(ZPCache::keepLastGood, nullptr);
    std::string const main = file.bytes();
    std::string const companion = readFile(file.companion());
    struct {
        std::string main, companion;
        std::function<void()> hook;
        int line;  // of the failure
    } const rows[] = {{"[s]\nk = 2\n[t]\nbroken\n", companion, [] {}, 4},
                      {main + "[t]\n", "damaged", [] {}, 0},
                      {"[s]\nk = 2\n", companion, [] { throw Invalid("settings", "", 7); }, 7}};
    for (auto const& row : rows) {
        writeFile(file.path(), row.main);
        writeFile(file.companion(), row.companion);
        properties.hook = row.hook;
        for (auto const operation : {&ZProperties::reload, &ZProperties::store}) {
            auto const failure = raisedBy<Invalid>([&] { (properties.*operation)(nullptr); });
            EXPECT_EQ(failure ? failure->badline() : -1, row.line);
        }
        EXPECT_EQ(file.bytes(), row.main);
        EXPECT_EQ(valueOf(properties, "s", "k") + valueOf(properties, "s", "secret"), "1hush");
        EXPECT_FALSE(properties.exists("t"));
    }
    properties.hook = [] {};
    writeFile(file.path(), main + "[t]\n");
    properties.reload();
    EXPECT_TRUE(properties.exists("t"));
    properties.setValue("s", "secret", "changed", 1);
    properties.store();  // the companion is still known as its own
    EXPECT_EQ(valuesOf(properties, "s", "secret"), Texts{"changed"});
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
