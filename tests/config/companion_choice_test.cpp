// link: static
// Whose a companion file is, which one a file has, and what is said of one that cannot be read.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>

#include "Z/config/files/companion_choice.h"
#include "support/properties.h"

namespace {

using namespace std::string_literals;
using namespace testsupport;
using zfc::config::belongsToOther;

constexpr char companionLine[] = "[configuration-database]\nfile = ";

/// A file with the obfuscated value "first" in its companion.
struct Live : StanzaFile {
    Live() : StanzaFile("[s]\nk = 1\n") {
        ZStanzaFileProperties properties(path().c_str(), 1);
        properties.setValue("s", "secret", "first", 1);
        properties.store();
    }
    [[nodiscard]] std::string both() const { return bytes() + "|" + readFile(companion()); }
};

std::string secretOf(std::string const& path) { return valueIn(path, "s", "secret"); }

void edit(std::string const& path, char const* secret) {
    ZStanzaFileProperties properties(path.c_str(), 1);
    if (secret != nullptr) {
        properties.setValue("s", "secret", secret, 1);
    } else {
        properties.deleteKey("s", "secret");
    }
    properties.store();
}

void linkTo(std::string const& target, std::string const& link) {
    ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
}

// -------------------------------------------------------------------------------- whose it is

TEST(CompanionChoiceTest, aCopyGetsItsOwnAndNothingOfTheOriginalChanges) {
    Live live;
    std::string const before = live.both();
    std::string const copy = live.beside("copy");
    for (char const* const secret : {"changed", static_cast<char const*>(nullptr)}) {
        std::filesystem::copy_file(live.path(), copy,
                                   std::filesystem::copy_options::overwrite_existing);
        EXPECT_EQ(secretOf(copy), "first");
        edit(copy, secret);
        EXPECT_EQ(live.both(), before);
        EXPECT_EQ(secretOf(copy), secret != nullptr ? secret : "");
        edit(copy, nullptr);
        EXPECT_FALSE(std::filesystem::exists(copy + ".obf"));
    }
    ZStanzaFileProperties properties(live.path().c_str(), 1);
    properties.setValue("s", "secret", "second", 1);
    properties.store(copy.c_str());
    EXPECT_EQ(live.both(), before);
    EXPECT_EQ(valueIn(copy, "configuration-database", "file"), copy + ".obf");
    properties.setValue("s", "secret", "third", 1);
    properties.store();
    EXPECT_EQ(secretOf(live.path()) + secretOf(copy), "thirdsecond");
    EXPECT_EQ(valueIn(live.path(), "configuration-database", "file"), live.companion());
}

TEST(CompanionChoiceTest, belongsToTheFileOfItsNameThatNamesIt) {
    TempDir const place;
    std::string const owner = place.file("x"), companion = place.file("x.obf");
    std::string const other = place.file("other"), link = place.file("link.obf");
    std::string const same = place.file("same");
    writeFile(companion, "");
    writeFile(other, "");
    linkTo(companion, link);
    linkTo(owner, same);
    auto const answer = [&](std::string const& file) {
        return belongsToOther(companion.c_str(), file.c_str());
    };
    std::string many;
    for (int i = 0; i < 101; ++i)
        many += "file = /nowhere\n";
    struct {
        std::string text;
        bool names;
    } const rows[] = {
        {"", false},
        {"[s]\nfile = /elsewhere/x.obf\nfiles = " + companion + "\n#file = " + companion, false},
        {companionLine + companion, true},
        {"file=" + companion + "\r\n", true},
        {"[s]\n\tfile  =\t" + companion + " \n", true},
        {"file = " + link + "\n", true},
        {"file = sub/x.obf\n", true},  // of some directory
        {std::string(8191 - 3, ' ') + "#a\nfile = " + companion, true},
        {"#" + std::string(8190, 'a') + "file = " + companion, true},  // the reader cuts the line
        {many, true},                                                  // too many to look at
        {std::string((16 << 20) + 1, '\n'), true},                     // too large
    };
    for (auto const& row : rows) {
        writeFile(owner, row.text);
        EXPECT_EQ(answer(other), row.names) << row.text.substr(0, 200);
        EXPECT_FALSE(answer(owner) || answer(same)) << "it is the file itself";
    }
    writeFile(owner, "");
    expectInChild([&] {  // who may not read it cannot tell
        ASSERT_EQ(chmod(owner.c_str(), 0), 0);
        ASSERT_EQ(chmod(place.path().c_str(), 0755), 0);
        ASSERT_TRUE(geteuid() != 0 || setuid(65534) == 0);
        EXPECT_TRUE(answer(other));
    });
    ASSERT_EQ(unlink(owner.c_str()), 0);
    EXPECT_FALSE(answer(other));
    ASSERT_EQ(mkfifo(owner.c_str(), 0600), 0);
    EXPECT_FALSE(answer(other)) << "and does not wait";
}

TEST(CompanionChoiceTest, aFileThatWasMovedUsesTheOneBesideItAndNamesItInTheNextStore) {
    for (bool const isDirectory : {true, false}) {
        TempDir const place;
        std::string const old = place.file("old"), moved = place.file("new");
        std::string const name = isDirectory ? "/settings" : "";
        if (isDirectory) std::filesystem::create_directory(old);
        std::string const file = moved + name;
        ZStanzaFileProperties first(1);
        first.setValue("s", "secret", "first", 1);
        first.store((old + name).c_str());
        std::filesystem::rename(old, moved);
        if (!isDirectory) {
            EXPECT_EQ(secretOf(file), "first") << "of the name that stayed";
            std::filesystem::rename(old + ".obf", file + ".obf");
        }
        writeFile(place.file("more"), "[more]\nk = 2\n");
        ZStanzaFileProperties properties(file.c_str(), 1);
        properties.load(place.file("more").c_str());
        EXPECT_EQ(valuesOf(properties, "s", "secret"), Texts{"first"});
        properties.setValue("s", "secret", "second", 1);
        properties.store();
        EXPECT_FALSE(std::filesystem::exists(old + name + ".obf"));
        EXPECT_NE(readFile(file).find(companionLine + file + ".obf\n"), std::string::npos);
        EXPECT_EQ(secretOf(file), "second");
    }
}

// ------------------------------------------------------------------------------ what is taken over

/// What a first store with a secret answers where `path` has a companion that nobody names.
std::string firstStore(std::string const& path) {
    ZStanzaFileProperties properties(1);
    properties.setValue("s", "secret", "new", 1);
    return ioFailure([&] { properties.store(path.c_str()); });
}

TEST(CompanionChoiceTest, takesOverWhatAKilledStoreLeftAndNothingElse) {
    Live live;
    ZStanzaFileProperties large(live.path().c_str(), 1);
    for (int i = 0; i < 300; ++i)
        large.setValue("s", ("key" + std::to_string(i * i * 7919)).c_str(), "hush", 1);
    large.store();
    std::string const whole = readFile(live.companion());
    std::string const path = live.beside("first"), orphan = path + ".obf";
    std::vector<std::string> leftovers{whole, whole + "behind"};
    for (std::size_t length = 0; length < whole.size(); length += length < 40 ? 1 : 97)
        leftovers.push_back(whole.substr(0, length));
    leftovers.push_back(whole.substr(0, 400) + std::string(100, '\0'));
    for (std::string const& left : leftovers) {
        std::filesystem::remove(path);
        writeFile(orphan, left);
        ASSERT_EQ(firstStore(path), "") << left.size();
        ASSERT_EQ(secretOf(path), "new");
    }
    std::string const taken = ioText(orphan, "fopen(w)", EEXIST);
    std::filesystem::remove(path);
    for (std::string const& theirs : {"x^2\n"s, "somebody's"s, "\n"s, std::string(9, '\0')}) {
        writeFile(orphan, theirs);
        EXPECT_EQ(firstStore(path), taken) << theirs;
        EXPECT_EQ(readFile(orphan), theirs);
        EXPECT_FALSE(std::filesystem::exists(path));
    }
    for (auto const& make : std::vector<std::function<void()>>{
             [&] { std::filesystem::create_hard_link(live.companion(), orphan); },
             [&] { linkTo(live.companion(), orphan); }, [&] { mkfifo(orphan.c_str(), 0600); }}) {
        std::filesystem::remove(orphan);
        make();
        EXPECT_EQ(firstStore(path), taken);
        EXPECT_EQ(readFile(live.companion()), whole);
    }
    ZStanzaFileProperties elsewhere(1);  // under a name that is not the file's own
    std::filesystem::copy_file(live.companion(), live.beside("else.obf"));
    elsewhere.setValue("configuration-database", "file", live.beside("else.obf").c_str());
    elsewhere.setValue("s", "secret", "new", 1);
    EXPECT_EQ(ioFailure([&] { elsewhere.store(live.beside("third").c_str()); }),
              ioText(live.beside("else.obf"), "fopen(w)", EEXIST));
}

// --------------------------------------------------------------------------- what cannot be read

TEST(CompanionChoiceTest, aLoadThatFailsForItNamesBothFilesAndTheReason) {
    Live live;
    std::string const name = live.companion(), good = readFile(name);
    auto const remove = [&] { std::filesystem::remove(name); };
    auto const load = [&] { ZStanzaFileProperties const properties(live.path().c_str(), 1); };
    struct {
        std::function<void()> make;
        std::string reason;
        int error;
    } const unreadable[] = {
        {remove, "No such file or directory", EINVAL},
        {[&] { writeFile(name, ""); }, "It is empty", EINVAL},
        {[&] { remove(), linkTo(name, name); }, "Too many levels of symbolic links", ELOOP},
        {[&] { remove(), std::filesystem::create_directory(name); }, "Is a directory", EISDIR},
        {[&] { remove(), mkfifo(name.c_str(), 0600); }, "It is no regular file", EINVAL}};
    for (auto const& [make, reason, error] : unreadable) {
        make();
        auto const raised = raisedBy<ZPropertiesCompanionIOException>(load);
        ASSERT_TRUE(raised) << reason;
        EXPECT_EQ(ioText(raised->propFile(), raised->api(), raised->excerrno()),
                  ioText(name, "mapFile()", error));
        EXPECT_EQ(raised->configFile(), live.path());
        EXPECT_EQ(raised->reason(), reason);
    }
    remove();
    struct {
        std::string bytes, reason;
    } const damaged[] = {
        {good.substr(0, good.size() - 1), "it is cut off"},
        {good + "x", "something stands behind its end"},
        {"text", "it is no sound zlib stream"},
        {"\170\234\113\002\000\000\143\000\143"s, "it holds no records"},
        {std::string(9 << 20, '\0'), "it expands to more than the limit of 9 bytes"},
        {good, "it expands to more than the limit of 9 bytes"}};
    for (auto const& [bytes, reason] : damaged) {
        writeFile(name, bytes);
        ZStanzaFileProperties properties(1);
        unsigned long limit = reason.find("9") != std::string::npos ? 9 : 1000;
        properties.setAttributes(ZPCache::companionLimit, &limit);
        limit = 1;  // it was read at once
        auto const loadWithLimit = [&] { properties.load(live.path().c_str()); };
        auto const raised = raisedBy<ZPropertiesCompanionDataException>(loadWithLimit);
        ASSERT_TRUE(raised) << reason;
        EXPECT_EQ(raised->propFile() + "|"s + raised->configFile(), name + "|" + live.path());
        EXPECT_EQ(raised->reason(), reason);
        EXPECT_EQ(raised->baddata() + std::to_string(raised->badline()), "0");
        EXPECT_EQ(readFile(name), bytes);
    }
}

}  // namespace
