// What a properties object answers, and what its edits do, without regard to files.
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <utility>

#include "Z/ZBuffer.h"
#include "Z/ZLCConstString.h"
#include "Z/ZUTF8ConstString.h"
#include "Z/ZUTF8String.h"
#include "support/properties.h"

namespace {

using namespace std::string_literals;
using testsupport::captureChild;
using testsupport::raisedBy;
using testsupport::StanzaFile;
using testsupport::Texts;
using testsupport::textsOf;
using testsupport::valueOf;
using testsupport::valuesOf;

constexpr char sample[] =
    "# about\n[net]\nport = 8080\nhost = a\nhost = b\nempty =\n\n# retries = 3\n\n[db]\nname = x\n";

// --------------------------------------------------------------------------------- typed reading

/// The sample, loaded.
struct Sample {
    StanzaFile file{sample};
    ZStanzaFileProperties properties{file.path().c_str(), 1};
};

TEST(PropertiesReadTest, answersWithTheLastValueOrTheDefault) {
    Sample const scene;
    ZProperties const& properties = scene.properties;
    EXPECT_EQ(valueOf(properties, "net", "host"), "b");
    EXPECT_EQ(valuesOf(properties, "net", "host"), (Texts{"a", "b"}));
    EXPECT_EQ(properties.numValues("net", "host"), 2U);
    EXPECT_EQ(properties.numValues("net"), 3U);
    EXPECT_EQ(properties.count(), 2U);
    EXPECT_EQ(properties.count("net"), 3U);
    ZLCString out("old");
    properties.getValue("net", "none", out, 0, "given");
    EXPECT_EQ(out, "given");
    properties.getValue("net", "empty", out, 0, nullptr);
    EXPECT_EQ(out, "");
    EXPECT_TRUE(properties.exists("net", "empty"));
    EXPECT_FALSE(properties.exists("net", "none"));
    EXPECT_FALSE(properties.exists("none"));
    EXPECT_EQ(properties.getIntegerValue("net", "empty", 0, 7), 7U);
    EXPECT_EQ(properties.getBooleanValue("none", "none", 0, 1), 1);
}

TEST(PropertiesReadTest, namesTheRequiredKeyThatIsMissingAndTakesNoDefaultForIt) {
    using Missing = ZPropertiesMissingPropertyException;
    Sample const scene;
    ZProperties const& properties = scene.properties;
    ZLCString out("kept");
    for (char const* const key : {"none", "empty"}) {
        auto const e = raisedBy<Missing>([&] { properties.getValue("net", key, out, 1); });
        ASSERT_TRUE(e);
        EXPECT_EQ(e->propFile(), scene.file.path());
        EXPECT_EQ(e->category() + "/"s + e->key(), "net/"s + key);
        EXPECT_THROW(static_cast<void>(properties.getIntegerValue("net", key, 1)), Missing);
        EXPECT_THROW(static_cast<void>(properties.getBooleanValue("net", key, 1)), Missing);
    }
    EXPECT_THROW(properties.getValue("net", "port", out, 1, ""), ZInvalidParameterException);
    EXPECT_THROW(static_cast<void>(properties.getIntegerValue("net", "port", 1, 1)),
                 ZInvalidParameterException);
    EXPECT_THROW(static_cast<void>(properties.getBooleanValue("net", "port", 1, 1)),
                 ZInvalidParameterException);
    EXPECT_EQ(out, "kept");
}

TEST(PropertiesReadTest, readsNumbersAs32BitStrtoul) {
    constexpr unsigned int most = UINT_MAX;
    std::pair<char const*, unsigned int> const numbers[] = {{"0", 0},
                                                            {"0x10", 16},
                                                            {"0XfF", 255},
                                                            {"010", 8},
                                                            {" \t7", 7},
                                                            {"+7", 7},
                                                            {"-1", most},
                                                            {"-0", 0},
                                                            {"4294967295", most},
                                                            {"4294967296", most},
                                                            {"-4294967296", most},
                                                            {"-4294967295", 1},
                                                            {"99999999999999999999999", most}};
    ZStanzaFileProperties properties(1);
    for (auto const& [text, value] : numbers) {
        properties.setValue("s", "k", text);
        EXPECT_EQ(properties.getIntegerValue("s", "k", 1), value) << text;
    }
    for (char const* const text :
         {"7 ", "09", "0x", "0xg", "--1", "- 1", "+", "1.5", "0b1", "4294967296x", "ten", "  "}) {
        properties.setValue("s", "k", text);
        auto const e = raisedBy<ZPropertiesInvalidNumValueException>(
            [&] { static_cast<void>(properties.getIntegerValue("s", "k")); });
        ASSERT_TRUE(e) << text;
        EXPECT_EQ(e->getCode(), 40U);
        EXPECT_EQ(e->category() + "/"s + e->key() + "/" + e->value(), "s/k/"s + text);
    }
}

TEST(PropertiesReadTest, readsTruthInAnyCaseOfLetters) {
    ZStanzaFileProperties properties(1);
    std::pair<int, Texts> const rows[] = {{1, {"yes", "YES", "y", "Y", "true", "TRUE", "t", "1"}},
                                          {0, {"no", "No", "n", "false", "FALSE", "f", "0"}}};
    for (auto const& [truth, words] : rows) {
        for (std::string const& word : words) {
            properties.setValue("s", "k", word.c_str());
            EXPECT_EQ(properties.getBooleanValue("s", "k", 0, 1 - truth), truth) << word;
        }
    }
    for (char const* const word : {"on", "yess", "2", " yes", "00"}) {
        properties.setValue("s", "k", word);
        auto const e = raisedBy<ZPropertiesInvalidBoolValueException>(
            [&] { static_cast<void>(properties.getBooleanValue("s", "k")); });
        ASSERT_TRUE(e) << word;
        EXPECT_EQ(e->getCode(), 41U);
        EXPECT_STREQ(e->value(), word);
    }
}

TEST(PropertiesReadTest, fillsAnEmptyListOfEitherCodeset) {
    StanzaFile const file("[s]\nk = gr\xc3\xbc\xc3\x9f\nk = 2\n");
    ZStanzaFileProperties const properties(file.path().c_str(), 1);
    ZArrayList values(1, 1);
    properties.getValues("s", "none", values, zpropLocalCodeset);
    EXPECT_EQ(values.size(), 0U);
    properties.getValues("s", "k", values, zpropUTF8);
    EXPECT_EQ(textsOf(values), (Texts{"gr\xc3\xbc\xc3\x9f", "2"}));
    EXPECT_NE(dynamic_cast<ZUTF8String*>(values.get(0)), nullptr);
    EXPECT_THROW(properties.getValues("s", "k", values, zpropUTF8), ZInvalidParameterException);
    EXPECT_EQ(values.size(), 2U);
    values.removeAll();
    EXPECT_THROW(properties.getValues("s", "k", values, static_cast<ZPropertyStringType>(5)),
                 ZInvalidParameterException);

    ZArrayList borrowed(1, 0);
    properties.getValues("s", "k", borrowed, zpropLocalCodeset);
    ASSERT_EQ(borrowed.size(), 2U);
    EXPECT_NE(dynamic_cast<ZLCString*>(borrowed.get(1)), nullptr);
    for (unsigned int i = 0; i < borrowed.size(); ++i)
        delete borrowed.get(i);
}

TEST(PropertiesReadTest, listsToStandardOutputWithoutObfuscatedValues) {
    Sample scene;
    scene.properties.setValue("db", "secret", "hush", 1);
    auto const captured = captureChild([&] {
        scene.properties.list();
        return 0;
    });
    EXPECT_EQ(captured.out,
              "\n[net]\nport = 8080\nhost = a\nhost = b\nempty =\n\n[db]\nname = x\nsecret =\n");
}

TEST(PropertiesArgumentTest, refusesMissingNamesEverywhere) {
    using Call = std::function<void(ZStanzaFileProperties&, char const* stanza, char const* key)>;
    static ZLCString out;
    static ZArrayList list(1, 1);
    static ZPropertiesKVList pairs;
    Call const keyCalls[] = {
        [](auto& p, auto s, auto k) { static_cast<void>(p.exists(s, k)); },
        [](auto& p, auto s, auto k) { static_cast<void>(p.isObfuscated(s, k)); },
        [](auto& p, auto s, auto k) { p.getValue(s, k, out); },
        [](auto& p, auto s, auto k) { static_cast<void>(p.getIntegerValue(s, k)); },
        [](auto& p, auto s, auto k) { static_cast<void>(p.getBooleanValue(s, k)); },
        [](auto& p, auto s, auto k) { p.getValues(s, k, list, zpropLocalCodeset); },
        [](auto& p, auto s, auto k) { static_cast<void>(p.numValues(s, k)); },
        [](auto& p, auto s, auto k) { p.setValue(s, k, "v"); },
        [](auto& p, auto s, auto k) { p.setIntegerValue(s, k, 1); },
        [](auto& p, auto s, auto k) { p.setBooleanValue(s, k, 1); },
        [](auto& p, auto s, auto k) { p.deleteKey(s, k); },
        [](auto& p, auto s, auto k) { p.addEntryComment(s, k, "c"); },
        [](auto& p, auto s, auto k) { p.addValue(s, k, "v"); },
        [](auto& p, auto s, auto k) { p.addValues(s, k, list); },
        [](auto& p, auto s, auto k) { ZStanzaValueIterator const walk(p, s, k); },
    };
    Call const stanzaCalls[] = {
        [](auto& p, auto s, auto) { static_cast<void>(p.exists(s)); },
        [](auto& p, auto s, auto) { static_cast<void>(p.isObfuscated(s)); },
        [](auto& p, auto s, auto) { static_cast<void>(p.numValues(s)); },
        [](auto& p, auto s, auto) { static_cast<void>(p.count(s)); },
        [](auto& p, auto s, auto) { p.addStanza(s); },
        [](auto& p, auto s, auto) { p.deleteStanza(s); },
        [](auto& p, auto s, auto) { p.addStanzaComment(s, "c"); },
        [](auto& p, auto s, auto) { p.getStanza(s, pairs); },
        [](auto& p, auto s, auto) { static_cast<void>(p.getKeys(s)); },
        [](auto& p, auto s, auto) { ZPropertiesIterator const walk(p, s); },
        [](auto& p, auto s, auto) { ZStanzaIterator const walk(p, s); },
    };
    ZStanzaFileProperties properties(1);
    for (char const* const missing : {static_cast<char const*>(nullptr), ""}) {
        for (Call const& call : keyCalls) {
            EXPECT_THROW(call(properties, missing, "k"), ZInvalidParameterException);
            EXPECT_THROW(call(properties, "s", missing), ZInvalidParameterException);
        }
        for (Call const& call : stanzaCalls)
            EXPECT_THROW(call(properties, missing, ""), ZInvalidParameterException);
        EXPECT_THROW(properties.addFileComment(missing), ZInvalidParameterException);
        EXPECT_THROW(properties.load(missing), ZInvalidParameterException);
        EXPECT_THROW(properties.reload(missing), ZInvalidParameterException);
        EXPECT_THROW(properties.store(missing), ZInvalidParameterException);
    }
    EXPECT_FALSE(properties.isModified());
    EXPECT_EQ(properties.count(), 0U);
}

// --------------------------------------------------------------------------------------- editing

TEST(PropertiesEditTest, takesValuesOfEveryKind) {
    using Set = void (*)(ZStanzaFileProperties&);
    std::pair<Set, char const*> const rows[] = {
        {[](auto& p) { p.setValue("s", "k", ZLCString("one"), 0); }, "one"},
        {[](auto& p) { p.setValue("s", "k", ZUTF8String("zw\xc3\xb6lf"), 0); }, "zw\xc3\xb6lf"},
        {[](auto& p) { p.setValue("s", "k", ZLCConstString("three"), 0); }, "three"},
        {[](auto& p) { p.setValue("s", "k", ZUTF8ConstString("four"), 0); }, "four"},
        {[](auto& p) { p.setIntegerValue("s", "k", UINT_MAX); }, "4294967295"},
        {[](auto& p) { p.setBooleanValue("s", "k", 2); }, "yes"},
        {[](auto& p) { p.setBooleanValue("s", "k", 0); }, "no"},
        {[](auto& p) { p.setValue("s", "k", nullptr); }, ""}};
    ZStanzaFileProperties properties(1);
    EXPECT_FALSE(properties.isModified());
    for (auto const& [set, value] : rows) {
        set(properties);
        EXPECT_EQ(valueOf(properties, "s", "k"), value);
        EXPECT_TRUE(properties.isModified());
    }
    EXPECT_TRUE(properties.exists("s", "k")) << "without values";
    ZLCString cut("front");
    cut.append('\0');
    cut.append("back");
    EXPECT_THROW(properties.setValue("s", "k", cut, 0), ZInvalidParameterException);
    EXPECT_EQ(properties.numValues("s", "k"), 0U);
}

TEST(PropertiesEditTest, aKeyKeepsItsKindUntilItIsDeleted) {
    using Call = void (*)(ZStanzaFileProperties&);
    ZStanzaFileProperties properties(1);
    properties.setValue("s", "plain", "v");
    properties.setValue("s", "secret", "v", 1);
    for (Call const call : {Call([](auto& p) { p.setValue("s", "plain", "w", 1); }),
                            Call([](auto& p) { p.addValue("s", "plain", "w", 1); }),
                            Call([](auto& p) { p.addValues("s", "plain", ZArrayList(1, 1), 1); }),
                            Call([](auto& p) { p.setValue("s", "secret", "w", 0); }),
                            Call([](auto& p) { p.setIntegerValue("s", "secret", 1); }),
                            Call([](auto& p) { p.setBooleanValue("s", "secret", 1); })})
        EXPECT_THROW(call(properties), ZInvalidParameterException);
    EXPECT_EQ(valueOf(properties, "s", "plain") + valueOf(properties, "s", "secret"), "vv");
    EXPECT_TRUE(properties.isObfuscated("s", "secret") && properties.isObfuscated("s"));
    EXPECT_FALSE(properties.isObfuscated("s", "plain"));
    properties.deleteKey("s", "plain");
    properties.setValue("s", "plain", "w", 1);
    EXPECT_TRUE(properties.isObfuscated("s", "plain"));
}

TEST(PropertiesEditTest, addsValuesAllOrNone) {
    ZStanzaFileProperties properties(1);
    properties.addValue("s", "k", "1");
    ZArrayList more(2, 1);
    more.addNoCopy(new ZLCString("2"));
    more.addNoCopy(new ZUTF8String("3"));
    properties.addValues("s", "k", more);
    ZObject* const bad[] = {nullptr, new ZLCString("a\nb"), new ZLCString, new ZBuffer};
    for (ZObject* const object : bad) {
        more.addNoCopy(object);
        EXPECT_THROW(properties.addValues("s", "k", more), ZInvalidParameterException);
        more.remove(2);
    }
    EXPECT_EQ(valuesOf(properties, "s", "k"), (Texts{"1", "2", "3"}));
}

TEST(PropertiesEditTest, editsOfWhatIsNotThereChangeNothing) {
    Sample scene;
    ZStanzaFileProperties& properties = scene.properties;
    properties.deleteKey("net", "none");
    properties.deleteKey("none", "none");
    properties.deleteStanza("none");
    properties.addStanza("net");
    properties.addValues("net", "host", ZArrayList(1, 1));
    EXPECT_THROW(properties.addStanzaComment("none", "c"), ZInvalidParameterException);
    EXPECT_THROW(properties.addEntryComment("net", "none", "c"), ZInvalidParameterException);
    EXPECT_FALSE(properties.isModified());
    properties.store();
    EXPECT_EQ(scene.file.bytes(), sample);
}

TEST(PropertiesEditTest, commentsAndNewKeysFindTheirPlaces) {
    Sample scene;
    ZStanzaFileProperties& properties = scene.properties;
    properties.addFileComment("second line");
    properties.addStanzaComment("net", "# the network");
    properties.addEntryComment("net", "host", "where");
    properties.setIntegerValue("net", "retries", 5);
    properties.addStanza("last");
    properties.store();
    EXPECT_FALSE(properties.isModified());
    EXPECT_EQ(
        scene.file.bytes(),
        "# about\n#second line\n[net]\n# the network\nport = 8080\n#where\nhost = a\nhost = b\n"
        "empty =\n\n# retries = 3\nretries = 5\n\n[db]\nname = x\n[last]\n");
    properties.setValue("net", "secret", "hush", 1);
    ZPropertiesKVList pairs(zpropUTF8);
    properties.getStanza("net", pairs);
    std::string told;
    for (unsigned int i = 0; i < pairs.getItemCount(); ++i)
        told += pairs.getItemKey(i)->getChars() + "="s + pairs.getItemValue(i)->getChars() + " ";
    EXPECT_EQ(told, "port=8080 host=a host=b empty= retries=5 secret=hush ");
}

// ------------------------------------------------------------------------------------- iterators

template <class Walk>
Texts namesOf(Walk&& walk) {
    Texts names;
    while (walk.next())
        names.emplace_back(walk.getName());
    return names;
}

TEST(PropertiesIteratorTest, walksASnapshotOfNames) {
    Sample scene;
    ZStanzaFileProperties& properties = scene.properties;
    ZPropertiesIterator stanzas(properties);
    ZPropertiesIterator keys(properties, "net");
    ZStanzaIterator entries(properties, "net");
    properties.addStanza("later");
    for (int round = 0; round < 2; ++round) {
        auto const e =
            raisedBy<ZPropertiesIteratorException>([&] { static_cast<void>(stanzas.getName()); });
        ASSERT_TRUE(e);
        EXPECT_EQ(e->propFile(), scene.file.path());
        EXPECT_EQ(namesOf(stanzas), (Texts{"net", "db"}));
        EXPECT_FALSE(stanzas.hasMore());
        EXPECT_THROW(static_cast<void>(stanzas.getName()), ZPropertiesIteratorException);
        stanzas.reset();
        EXPECT_TRUE(stanzas.hasMore());
    }
    EXPECT_EQ(stanzas.size(), 2U);
    EXPECT_THROW(static_cast<void>(entries.getValue()), ZPropertiesIteratorException);
    ASSERT_TRUE(entries.next() && entries.next());
    EXPECT_STREQ(entries.getValue(), "a");
    properties.deleteKey("net", "host");
    EXPECT_EQ(entries.getValue(), nullptr);
    EXPECT_EQ(namesOf(keys), (Texts{"port", "host", "empty"}));
    EXPECT_EQ(textsOf(*properties.getKeys("net")), (Texts{"port", "empty"}));
    EXPECT_EQ(properties.getKeys("none")->size(), 0U);
    EXPECT_EQ(namesOf(ZPropertiesIterator(properties, "none")), Texts{});
}

Texts rest(ZStanzaValueIterator& walk) {
    Texts values;
    while (walk.next())
        values.emplace_back(walk.getValue());
    return values;
}

TEST(PropertiesIteratorTest, valuesAreEditedInPlace) {
    for (int const obfuscated : {0, 1}) {
        ZStanzaFileProperties properties(1);
        for (char const* const v : {"1", "2", "3", "4", "5"})
            properties.addValue("s", "k", v, obfuscated);
        ZStanzaValueIterator walk(properties, "s", "k");
        EXPECT_THROW(walk.changeValue("x"), ZPropertiesIteratorException);
        ASSERT_TRUE(walk.next());
        walk.changeValue("one");
        EXPECT_STREQ(walk.getValue(), "one");
        for (int i = 0; i < 2; ++i) {
            ASSERT_TRUE(walk.next());
            walk.removeValue();
            EXPECT_THROW(static_cast<void>(walk.getValue()), ZPropertiesIteratorException);
            EXPECT_THROW(walk.removeValue(), ZPropertiesIteratorException);
        }
        walk.addValue("6");
        ASSERT_TRUE(walk.next());
        walk.changeValue("four");
        EXPECT_EQ(rest(walk), (Texts{"5", "6"}));
        EXPECT_FALSE(walk.hasMore());
        EXPECT_THROW(static_cast<void>(walk.getValue()), ZPropertiesIteratorException);
        walk.addValue("7");
        EXPECT_EQ(rest(walk), Texts{"7"});
        EXPECT_EQ(walk.size(), 5U);
        walk.reset();
        ASSERT_TRUE(walk.next());
        walk.removeValue();
        EXPECT_EQ(rest(walk), (Texts{"four", "5", "6", "7"})) << "the walk of what is left";
        EXPECT_EQ(valuesOf(properties, "s", "k"), (Texts{"four", "5", "6", "7"}));
        EXPECT_EQ(properties.isObfuscated("s", "k"), obfuscated != 0);
        EXPECT_THROW(walk.addValue(""), ZInvalidParameterException);
        walk.reset();
        ASSERT_TRUE(walk.next());
        EXPECT_THROW(walk.changeValue(nullptr), ZInvalidParameterException);
    }
}

TEST(PropertiesIteratorTest, refusesToEditWhatSomebodyElseChanged) {
    ZStanzaFileProperties properties(1);
    properties.addValue("s", "k", "1");
    properties.addValue("s", "k", "2");
    ZStanzaValueIterator walk(properties, "s", "k");
    ASSERT_TRUE(walk.next());
    ASSERT_TRUE(walk.next());
    properties.setValue("s", "k", "other");
    EXPECT_STREQ(walk.getValue(), "2");
    EXPECT_THROW(walk.changeValue("x"), ZPropertiesIteratorException);
    EXPECT_THROW(walk.removeValue(), ZPropertiesIteratorException);
    EXPECT_EQ(valuesOf(properties, "s", "k"), Texts{"other"});
}

}  // namespace
