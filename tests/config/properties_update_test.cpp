// Edits of a file that others edit at the same time.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <vector>

#include "support/properties.h"

namespace {

using namespace testsupport;

constexpr char sample[] = "[s]\nk = 1\n";
constexpr unsigned int minute = 60000;

/// One more than the number of the key.
void count(ZStanzaFileProperties& properties, char const* key) {
    properties.setIntegerValue("s", key, properties.getIntegerValue("s", key, 1) + 1);
}

/// As an editor does that takes the lock and puts a new file in place of the old one.
void countByRename(std::string const& path, char const* key) {
    ZStanzaFileProperties edited(1);
    int holder = -1;
    for (;;) {
        holder = lockWhole(path, F_OFD_SETLKW, F_WRLCK);
        struct stat held {};
        if (fstat(holder, &held) == 0 && held.st_ino == statusOf(path).st_ino) break;
        close(holder);
    }
    writeFile(path + ".new", readFile(path));
    edited.load((path + ".new").c_str());
    count(edited, key);
    edited.store();
    EXPECT_EQ(rename((path + ".new").c_str(), path.c_str()), 0);
    close(holder);
}

TEST(PropertiesUpdateTest, losesNoChangeOfAnyProgram) {
    constexpr unsigned int start = 1000;  // as long as every later number
    constexpr unsigned int rounds = 150;
    EditedFile file("[s]\nall = 1000\na = 1000\nb = 1000\nrenamed = 1000\n");
    std::string const path = file.path();
    std::vector<std::unique_ptr<Companion>> programs;
    for (char const* const key : {"a", "b"})
        programs.push_back(std::make_unique<Companion>([&file, key](Companion&) {
            for (unsigned int i = 0; i < rounds; ++i)
                file.properties.updateFile(
                    [&](ZStanzaFileProperties& properties) {
                        count(properties, "all");
                        count(properties, key);
                    },
                    minute);
            return testing::Test::HasFailure() ? 1 : 0;
        }));
    programs.push_back(std::make_unique<Companion>([&path](Companion&) {
        for (unsigned int i = 0; i < rounds; ++i)
            countByRename(path, "renamed");
        return testing::Test::HasFailure() ? 1 : 0;
    }));
    for (auto& program : programs)
        EXPECT_EQ(program->join(), 0);
    for (auto const& [key, most] : {std::pair("all", 2 * rounds), std::pair("a", rounds),
                                    std::pair("b", rounds), std::pair("renamed", rounds)})
        EXPECT_EQ(valueIn(path, "s", key), std::to_string(start + most)) << key;
}

TEST(PropertiesUpdateTest, isAllOrNothing) {
    EditedFile file(sample);
    ZStanzaFileProperties& properties = file.properties;
    auto const giveUp = [](ZStanzaFileProperties& edited) {
        edited.setValue("s", "k", "mine");
        edited.addFileComment("mine");
        throw ZUnexpectedEndOfFile("enough");
    };
    writeFile(file.path(), "[s]\nk = theirs\n");
    EXPECT_THROW(properties.updateFile(giveUp, 0), ZUnexpectedEndOfFile);
    EXPECT_EQ(valueOf(properties, "s", "k"), "theirs") << "read before it was given up";
    EXPECT_FALSE(properties.isModified());
    EXPECT_EQ(file.bytes(), "[s]\nk = theirs\n");

    // Nothing to be stored: not even blanks change.
    writeFile(file.path(), "[s]\nk=theirs\n");
    properties.updateFile([](ZStanzaFileProperties& edited) { edited.deleteKey("s", "l"); }, 0);
    EXPECT_EQ(file.bytes(), "[s]\nk=theirs\n");

    std::string const broken = "[s]\nk = 2\nnonsense\n";
    writeFile(file.path(), broken);
    bool wasCalled = false;
    auto const note = [&](ZProperties&) { wasCalled = true; };
    for (int i = 0; i < 2; ++i)
        EXPECT_THROW(properties.updateFile(note, 0), ZPropertiesInvalidDataException);
    EXPECT_THROW(properties.store(), ZPropertiesInvalidDataException);
    EXPECT_EQ(file.bytes(), broken);
    EXPECT_EQ(valueOf(properties, "s", "k"), "theirs");

    writeFile(file.path(), sample);
    properties.reload();
    int const holder = lockWhole(file.path(), F_OFD_SETLK, F_RDLCK);
    for (unsigned int const limit : {0U, 30U})
        EXPECT_EQ(ioFailure([&] { properties.updateFile(note, limit); }),
                  ioText(file.path(), "fcntl()", EAGAIN));
    close(holder);
    properties.setValue("s", "k", "not stored");
    EXPECT_THROW(properties.updateFile(note, 0), ZInvalidParameterException);
    EXPECT_EQ(valueOf(properties, "s", "k"), "not stored");
    properties.store();
    EXPECT_THROW(properties.updateFile(note, 0, file.beside("other").c_str()),
                 ZInvalidParameterException);
    EXPECT_FALSE(wasCalled);
}

TEST(PropertiesUpdateTest, makesAMissingFileOnlyToStoreIt) {
    StanzaFile const file(sample);
    std::string const path = file.beside("new");
    ZStanzaFileProperties properties(1);
    properties.updateFile([](auto&) {}, 0, path.c_str());
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_THROW(properties.updateFile([](auto&) { throw ZOutOfMemoryException(); }, 0),
                 ZOutOfMemoryException);
    EXPECT_FALSE(std::filesystem::exists(path));
    auto const set = [](auto& edited) { edited.setValue("s", "k", "2"); };
    properties.updateFile(set, 0);
    EXPECT_EQ(readFile(path), "[s]\nk = 2\n");
    ASSERT_EQ(unlink(path.c_str()), 0);
    properties.updateFile([](auto& edited) { edited.addValue("s", "k", "3"); }, 0);
    EXPECT_EQ(readFile(path), "[s]\nk = 2\nk = 3\n") << "what it held is not lost";
}

TEST(PropertiesUpdateTest, storesNoValueOfAnotherFile) {
    EditedFile file(sample);
    writeFile(file.beside("defaults"), "[d]\nk = 1\n");
    file.properties.load(file.beside("defaults").c_str());
    file.properties.updateFile([](auto& edited) { edited.setValue("s", "l", "2"); }, 0);
    EXPECT_EQ(file.bytes(), "[s]\nk = 1\nl = 2\n");
}

TEST(PropertiesUpdateTest, editsTheFileThatIsInPlaceAtTheEnd) {
    EditedFile file(sample);
    std::string const path = file.path();
    int calls = 0;
    file.properties.updateFile(
        [&](ZStanzaFileProperties& edited) {
            if (++calls == 1) {
                writeFile(file.beside("new"), "[s]\nk = 5\n");
                ASSERT_EQ(rename(file.beside("new").c_str(), path.c_str()), 0);
            }
            count(edited, "k");
        },
        0);
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(file.bytes(), "[s]\nk = 6\n");
}

TEST(PropertiesUpdateTest, refusesToBeginAnotherOneWithin) {
    EditedFile file(sample);
    file.properties.updateFile(
        [](ZStanzaFileProperties& edited) {
            for (auto const operation :
                 {&ZProperties::load, &ZProperties::reload, &ZProperties::store})
                EXPECT_THROW((edited.*operation)(nullptr), ZInvalidParameterException);
            EXPECT_THROW(edited.updateFile([](auto&) {}, 0), ZInvalidParameterException);
            edited.clear();
            edited.setValue("t", "k", "2");
        },
        0);
    EXPECT_EQ(file.bytes(), "[t]\nk = 2\n");
}

/// Counts the notices, and looks whether the object is free.
struct Witness : ZObserverInterface {
    void update(ZAbstractObservable* source, ZObservedParm const& parm) override {
        auto const& notice = dynamic_cast<ZPropertyChanged const&>(parm);
        char const* const key = notice.getKey();
        told += std::to_string(notice.getChangeType()) + (key != nullptr ? key : "-") + " ";
        EXPECT_FALSE(dynamic_cast<ZProperties&>(*source).isModified()) << "stored by now";
    }
    std::string told;
};

TEST(PropertiesUpdateTest, tellsAtItsEndWhatWasReadAndEdited) {
    EditedFile file(sample);
    Witness witness;
    file.properties.addObserver(&witness);
    writeFile(file.path(), "[s]\nread = 1\n");
    auto const edit = [&](ZStanzaFileProperties& edited) {
        edited.setValue("s", "edited", "1");
        EXPECT_EQ(witness.told, "");
    };
    file.properties.updateFile(edit, 0);
    EXPECT_EQ(witness.told, "1k 2read 2edited ");
    witness.told.clear();
    writeFile(file.path(), sample);
    auto const giveUp = [&](ZStanzaFileProperties& edited) {
        edit(edited);
        throw ZOutOfMemoryException();
    };
    EXPECT_THROW(file.properties.updateFile(giveUp, 0), ZOutOfMemoryException);
    EXPECT_EQ(witness.told, "1read 1edited 2k ") << "nothing of what was undone";
    file.properties.deleteObservers();
}

}  // namespace
