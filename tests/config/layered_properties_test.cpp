// Settings from files, a directory and the environment, and where each comes from.
#include <gtest/gtest.h>

#include <filesystem>

#include "Z/ZLayeredProperties.h"
#include "Z/ZTypedValues.h"
#include "support/properties.h"

namespace {

using namespace testsupport;

class LayeredPropertiesTest : public testing::Test {
  protected:
    LayeredPropertiesTest() {
        std::filesystem::create_directory(file.beside("d"));
        settings.addFile(file.path().c_str());
        settings.addDirectory(file.beside("d").c_str());
        settings.addDirectory(file.beside("none").c_str());
        settings.addFile(user.c_str(), ZLayeredProperties::Presence::optional);
        settings.addEnvironment("ZFCTEST_");
    }
    ~LayeredPropertiesTest() override {
        for (char const* const name : variables)
            unsetenv(name);
    }
    void set(char const* name, char const* value) {
        setenv(name, value, 1);
        variables.push_back(name);
    }
    [[nodiscard]] std::string valueAndOrigin(char const* stanza, char const* key) const {
        ZLCString value;
        settings.getValue(stanza, key, value);
        return std::string(value.getChars()) + " of " + settings.getOrigin(stanza, key).getChars();
    }

    StanzaFile file{"[s]\nk = system\nlist = 1\nlist = 2\nMax-Size = 3\nhidden = x\n[t]\n"};
    std::string user = file.beside("user");
    ZLayeredProperties settings;
    std::vector<char const*> variables;
};

TEST_F(LayeredPropertiesTest, laterPlacesWinKeyByKeyAndSayWhoTheyAre) {
    writeFile(file.beside("d/20.conf"), "[s]\nk = second\n");
    writeFile(file.beside("d/10.conf"), "[s]\nk = first\nlist = 3\nhidden =\n");
    for (char const* const other : {"d/.30.conf", "d/30.conf~", "d/30"})
        writeFile(file.beside(other), "[s]\nk = other\n");
    settings.load();
    EXPECT_EQ(valueAndOrigin("s", "k"), "second of " + file.beside("d/20.conf"));
    EXPECT_EQ(valueAndOrigin("s", "list"), "3 of " + file.beside("d/10.conf"));
    EXPECT_EQ(valueAndOrigin("s", "hidden"), " of " + file.beside("d/10.conf"));
    EXPECT_EQ(valueAndOrigin("s", "none"), " of ");
    EXPECT_EQ(settings.numValues("s", "list"), 1U);
    EXPECT_EQ(settings.count(), 2U);
    EXPECT_EQ(settings.count("s"), 4U);
    EXPECT_EQ(settings.numValues("s"), 3U);
    EXPECT_TRUE(settings.exists("t") && settings.exists("s", "hidden"));
    EXPECT_FALSE(settings.exists("u") || settings.isObfuscated("s"));
    EXPECT_EQ(settings.getBooleanValue("s", "none", 0, 1), 1);
    EXPECT_EQ(zfc::get<std::vector<int>>(settings, "s", "list"), std::vector{3});
    testing::internal::CaptureStdout();
    settings.list();
    EXPECT_NE(testing::internal::GetCapturedStdout().find("second"), std::string::npos);

    ZStanzaFileProperties secrets(1);
    secrets.setValue("s", "k", "hush", 1);
    secrets.store(user.c_str());
    set("ZFCTEST_S__MAX_SIZE", "4k");
    set("ZFCTEST_New_Stanza__A_key", "v");
    set("ZFCTEST_S__LIST", "");
    for (char const* const other : {"ZFCTEST_S_K", "ZFCTEST___K", "ZFCTEST_S__", "XZFCTEST_S__K"})
        set(other, "other");
    EXPECT_EQ(valueAndOrigin("s", "Max-Size"), "3 of " + file.path()) << "as it was loaded";
    settings.load();
    EXPECT_EQ(valueAndOrigin("s", "k"), "hush of " + user);
    EXPECT_TRUE(settings.isObfuscated("s", "k"));
    EXPECT_EQ(zfc::get<zfc::Size>(settings, "s", "Max-Size"), zfc::Size{4096});
    EXPECT_EQ(valueAndOrigin("new_stanza", "a_key"), "v of ZFCTEST_New_Stanza__A_key");
    EXPECT_EQ(valueAndOrigin("s", "list"), "3 of " + file.beside("d/10.conf"));
    EXPECT_EQ(settings.count(), 3U);
    auto const wrong = raisedBy<ZPropertiesUnexpectedValueException>(
        [&] { static_cast<void>(zfc::get<int>(settings, "s", "Max-Size")); });
    EXPECT_STREQ(wrong->propFile(), "ZFCTEST_S__MAX_SIZE");
}

TEST_F(LayeredPropertiesTest, aLoadThatFailsLeavesWhatWasRead) {
    settings.load();
    writeFile(user, "not a stanza file\n");
    raisedBy<ZPropertiesInvalidDataException>([&] { settings.load(); });
    EXPECT_EQ(valueAndOrigin("s", "k"), "system of " + file.path());
    std::filesystem::remove(user);
    std::filesystem::remove(file.path());
    EXPECT_EQ(ioFailure([&] { settings.load(); }), ioText(file.path(), "fopen(r)", ENOENT));
    settings.addDirectory(user.c_str());
    writeFile(user, "");
    writeFile(file.path(), "");
    EXPECT_EQ(ioFailure([&] { settings.load(); }), ioText(user, "opendir()", ENOTDIR));
    EXPECT_EQ(settings.getIntegerValue("s", "Max-Size"), 3U);
    raisedBy<ZInvalidParameterException>([&] { settings.addFile(""); });
}

}  // namespace
