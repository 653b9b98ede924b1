// Edits of a file that others edit at the same time.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "support/properties.h"

namespace {

using namespace testsupport;

constexpr char sample[] = "[s]\nk = 1\n";

/// One more than the number of the key.
void count(ZStanzaFileProperties& properties, char const* key) {
    properties.setIntegerValue("s", key, properties.getIntegerValue("s", key, 1) + 1);
}

/// As an editor does that takes the lock and puts a new file in place of the old one.
void countByRename(std::string const& path, char const* key) {
    int holder = lockWhole(path, F_OFD_SETLKW, F_WRLCK);
    for (struct stat held{}; fstat(holder, &held) == 0 && held.st_ino != statusOf(path).st_ino;) {
        close(holder);
        holder = lockWhole(path, F_OFD_SETLKW, F_WRLCK);
    }
    std::string const fresh = path + ".new";
    writeFile(fresh, readFile(path));
    ZStanzaFileProperties edited(fresh.c_str(), 1);
    count(edited, key);
    edited.store();
    EXPECT_EQ(rename(fresh.c_str(), path.c_str()), 0);
    close(holder);
}

TEST(PropertiesUpdateTest, losesNoChangeOfAnyProgram) {
    constexpr int rounds = 150;
    // The length stays, so that time and inode alone tell one state from the next.
    EditedFile file("[s]\nall = 1000\na = 1000\nb = 1000\nrenamed = 1000\n");
    auto const repeat = [](auto round) {
        return [round](Companion&) {
            for (int i = 0; i < rounds; ++i)
                round();
            return testing::Test::HasFailure() ? 1 : 0;
        };
    };
    auto const program = [&](char const* own) {
        return repeat([&file, own] {
            auto const edit = [own](ZStanzaFileProperties& properties) {
                count(properties, "all");
                count(properties, own);
            };
            file.properties.updateFile(edit, 60000);
        });
    };
    Companion a(program("a")), b(program("b"));
    Companion editor(repeat([&file] { countByRename(file.path(), "renamed"); }));
    for (Companion* const one : {&a, &b, &editor})
        EXPECT_EQ(one->join(), 0);
    file.properties.reload();
    for (char const* const key : {"a", "b", "renamed"})
        EXPECT_EQ(valueOf(file.properties, "s", key), "1150") << key;
    EXPECT_EQ(valueOf(file.properties, "s", "all"), "1300");
}

TEST(PropertiesUpdateTest, isAllOrNothing) {
    EditedFile file(sample);
    ZStanzaFileProperties& properties = file.properties;
    auto const giveUp = [](ZStanzaFileProperties& edited) {
        edited.setValue("s", "k", "mine");
        edited.addFileComment("mine");
        throw ZOutOfMemoryException();
    };
    // Not even its blanks change.
    writeFile(file.path(), "[s]\nk=theirs\n");
    EXPECT_THROW(properties.updateFile(giveUp, 0), ZOutOfMemoryException);
    EXPECT_EQ(valueOf(properties, "s", "k"), "theirs") << "read before it was given up";
    properties.updateFile([](ZStanzaFileProperties& edited) { edited.deleteKey("s", "l"); }, 0);
    EXPECT_EQ(file.bytes(), "[s]\nk=theirs\n");
    EXPECT_FALSE(properties.isModified());

    bool wasCalled = false;
    auto const note = [&](ZProperties&) { wasCalled = true; };
    int const holder = lockWhole(file.path(), F_OFD_SETLK, F_RDLCK);
    EXPECT_EQ(ioFailure([&] { properties.updateFile(note, 30); }),
              ioText(file.path(), "fcntl()", EAGAIN));
    close(holder);
    writeFile(file.path(), "[s]\nk = 2\nnonsense\n");
    for (int i = 0; i < 2; ++i)
        EXPECT_THROW(properties.updateFile(note, 0), ZPropertiesInvalidDataException);
    EXPECT_THROW(properties.store(), ZPropertiesInvalidDataException);
    EXPECT_EQ(file.bytes(), "[s]\nk = 2\nnonsense\n");
    EXPECT_EQ(valueOf(properties, "s", "k"), "theirs");

    EXPECT_THROW(properties.updateFile(note, 0, "other"), ZInvalidParameterException);
    properties.setValue("s", "k", "not stored");
    EXPECT_THROW(properties.updateFile(note, 0), ZInvalidParameterException);
    EXPECT_EQ(valueOf(properties, "s", "k"), "not stored");
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

TEST(PropertiesUpdateTest, beginsWithWhatTheFileHolds) {
    for (std::string const other : {"[d]\nk = 1\n", "[d]\nk = 1\nnonsense\n", "locked"}) {
        SCOPED_TRACE(other);
        EditedFile file(sample);
        ZStanzaFileProperties& properties = file.properties;
        setTime(file.path(), 1000000000);  // or it would be read again in any case
        properties.reload();
        writeFile(file.beside("other"), other);
        int const holder = lockWhole(file.path(), F_OFD_SETLK, F_WRLCK);
        auto const load = [&] { properties.load(file.beside("other").c_str()); };
        if (other == "locked") {
            EXPECT_THROW(properties.reload(), ZPropertiesIOException);
        } else if (other.find("nonsense") != std::string::npos) {
            EXPECT_THROW(load(), ZPropertiesInvalidDataException);
        } else {
            load();
        }
        close(holder);
        properties.updateFile([](auto& edited) { edited.setValue("s", "l", "2"); }, 0);
        EXPECT_EQ(file.bytes(), "[s]\nk = 1\nl = 2\n");
    }
}

TEST(PropertiesUpdateTest, noticesAChangeOfSecretsAlone) {
    EditedFile file(sample);
    ZStanzaFileProperties other(1);
    auto const hide = [](char const* value) {
        return [value](auto& edited) { edited.setValue("s", "secret", value, 1); };
    };
    other.updateFile(hide("first"), 0, file.path().c_str());
    file.properties.updateFile([](auto&) {}, 0);
    setTime(file.path(), 1000000000);  // or it would be read again in any case
    file.properties.reload();
    other.updateFile(hide("second"), 0);
    file.properties.updateFile(
        [](auto& edited) { EXPECT_EQ(valueOf(edited, "s", "secret"), "second"); }, 0);
}

TEST(PropertiesUpdateTest, editsTheFileThatIsInPlaceAtTheEnd) {
    for (bool const isReplaced : {true, false}) {
        EditedFile file(sample);
        int calls = 0;
        auto const edit = [&](ZStanzaFileProperties& edited) {
            if (++calls == 1) {
                ASSERT_EQ(unlink(file.path().c_str()), 0);
                if (isReplaced) writeFile(file.path(), "[s]\nk = 5\n");
            }
            count(edited, "k");
        };
        file.properties.updateFile(edit, 0);
        EXPECT_EQ(calls, 2);
        EXPECT_EQ(file.bytes(), isReplaced ? "[s]\nk = 6\n" : "[s]\nk = 2\n");
    }
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

}  // namespace
