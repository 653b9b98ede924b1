// What a properties object answers, and what its edits do, without regard to files.
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <optional>

#include "Z/ZBuffer.h"
#include "Z/ZLCConstString.h"
#include "Z/ZUTF8ConstString.h"
#include "Z/ZUTF8String.h"
#include "support/properties.h"

namespace {

using testsupport::captureChild;
using testsupport::inChild;
using testsupport::raisedBy;
using testsupport::StanzaFile;
using testsupport::textsOf;
using testsupport::valueOf;
using testsupport::valuesOf;

using Texts = std::vector<std::string>;

constexpr char sample[] =
    "# about\n[net]\nport = 8080\nhost = a\nhost = b\nempty =\n\n# retries = 3\n\n[db]\nname = x\n";

// --------------------------------------------------------------------------------- typed reading

TEST(PropertiesReadTest, answersWithTheLastValueOrTheDefault) {
    StanzaFile const file(sample);
    ZStanzaFileProperties const properties(file.path().c_str(), 1);
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

TEST(PropertiesReadTest, namesTheRequiredKeyThatIsMissing) {
    StanzaFile const file(sample);
    ZStanzaFileProperties const properties(file.path().c_str(), 1);
    ZLCString out;
    for (char const* const key : {"none", "empty"}) {
        auto const e = raisedBy<ZPropertiesMissingPropertyException>(
            [&] { properties.getValue("net", key, out, 1); });
        ASSERT_TRUE(e);
        EXPECT_EQ(e->propFile(), file.path());
        EXPECT_STREQ(e->category(), "net");
        EXPECT_STREQ(e->key(), key);
        EXPECT_THROW((void)properties.getIntegerValue("net", key, 1),
                     ZPropertiesMissingPropertyException);
        EXPECT_THROW((void)properties.getBooleanValue("net", key, 1),
                     ZPropertiesMissingPropertyException);
    }
}

TEST(PropertiesReadTest, refusesARequiredKeyWithADefault) {
    StanzaFile const file(sample);
    ZStanzaFileProperties const properties(file.path().c_str(), 1);
    ZLCString out("kept");
    EXPECT_THROW(properties.getValue("net", "port", out, 1, ""), ZInvalidParameterException);
    EXPECT_THROW((void)properties.getIntegerValue("net", "port", 1, 1), ZInvalidParameterException);
    EXPECT_THROW((void)properties.getBooleanValue("net", "port", 1, 1), ZInvalidParameterException);
    EXPECT_EQ(out, "kept");
}

struct Number {
    char const* text;
    std::optional<unsigned int> value;
};

TEST(PropertiesReadTest, readsNumbersAs32BitStrtoul) {
    static Number const rows[] = {
        {"0", 0},
        {"0x10", 16},
        {"0XfF", 255},
        {"010", 8},
        {" \t7", 7},
        {"+7", 7},
        {"-1", 4294967295U},
        {"-0", 0},
        {"4294967295", 4294967295U},
        {"4294967296", 4294967295U},
        {"-4294967296", 4294967295U},
        {"99999999999999999999999", 4294967295U},
        {"-4294967295", 1},
        {"7 ", std::nullopt},
        {"09", std::nullopt},
        {"0x", std::nullopt},
        {"0xg", std::nullopt},
        {"--1", std::nullopt},
        {"- 1", std::nullopt},
        {"+", std::nullopt},
        {"1.5", std::nullopt},
        {"0b1", std::nullopt},
        {"4294967296x", std::nullopt},
        {"ten", std::nullopt},
        {"  ", std::nullopt},
    };
    ZStanzaFileProperties properties(1);
    for (Number const& row : rows) {
        SCOPED_TRACE(row.text);
        properties.setValue("s", "k", row.text);
        if (row.value) {
            EXPECT_EQ(properties.getIntegerValue("s", "k", 1), *row.value);
            continue;
        }
        auto const e = raisedBy<ZPropertiesInvalidNumValueException>(
            [&] { (void)properties.getIntegerValue("s", "k"); });
        ASSERT_TRUE(e);
        EXPECT_EQ(e->getCode(), 40U);
        EXPECT_STREQ(e->value(), row.text);
        EXPECT_STREQ(e->key(), "k");
        EXPECT_STREQ(e->category(), "s");
    }
}

TEST(PropertiesReadTest, readsTruthInAnyCaseOfLetters) {
    ZStanzaFileProperties properties(1);
    for (char const* const word : {"yes", "YES", "y", "Y", "true", "TRUE", "t", "1"}) {
        properties.setValue("s", "k", word);
        EXPECT_EQ(properties.getBooleanValue("s", "k", 1), 1) << word;
    }
    for (char const* const word : {"no", "No", "n", "false", "FALSE", "f", "0"}) {
        properties.setValue("s", "k", word);
        EXPECT_EQ(properties.getBooleanValue("s", "k", 0, 1), 0) << word;
    }
    for (char const* const word : {"on", "yess", "2", " yes", "00"}) {
        properties.setValue("s", "k", word);
        auto const e = raisedBy<ZPropertiesInvalidBoolValueException>(
            [&] { (void)properties.getBooleanValue("s", "k"); });
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
    StanzaFile const file(sample);
    ZStanzaFileProperties properties(file.path().c_str(), 1);
    properties.setValue("db", "secret", "hush", 1);
    auto const captured = captureChild([&] {
        properties.list();
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
        [](auto& p, auto s, auto k) { (void)p.exists(s, k); },
        [](auto& p, auto s, auto k) { (void)p.isObfuscated(s, k); },
        [](auto& p, auto s, auto k) { p.getValue(s, k, out); },
        [](auto& p, auto s, auto k) { (void)p.getIntegerValue(s, k); },
        [](auto& p, auto s, auto k) { (void)p.getBooleanValue(s, k); },
        [](auto& p, auto s, auto k) { p.getValues(s, k, list, zpropLocalCodeset); },
        [](auto& p, auto s, auto k) { (void)p.numValues(s, k); },
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
        [](auto& p, auto s, auto) { (void)p.exists(s); },
        [](auto& p, auto s, auto) { (void)p.isObfuscated(s); },
        [](auto& p, auto s, auto) { (void)p.numValues(s); },
        [](auto& p, auto s, auto) { (void)p.count(s); },
        [](auto& p, auto s, auto) { p.addStanza(s); },
        [](auto& p, auto s, auto) { p.deleteStanza(s); },
        [](auto& p, auto s, auto) { p.addStanzaComment(s, "c"); },
        [](auto& p, auto s, auto) { p.getStanza(s, pairs); },
        [](auto& p, auto s, auto) { (void)p.getKeys(s); },
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

TEST(PropertiesEditTest, setReplacesAllValuesAndCountsAsModified) {
    StanzaFile const file(sample);
    ZStanzaFileProperties properties(file.path().c_str(), 1);
    EXPECT_FALSE(properties.isModified());
    properties.setValue("net", "host", "c", 0);
    EXPECT_TRUE(properties.isModified());
    EXPECT_EQ(valuesOf(properties, "net", "host"), (Texts{"c"}));
    properties.setValue("net", "host", nullptr);
    EXPECT_TRUE(properties.exists("net", "host"));
    EXPECT_EQ(properties.numValues("net", "host"), 0U);
    properties.setIntegerValue("new", "n", UINT_MAX);
    EXPECT_EQ(valueOf(properties, "new", "n"), "4294967295");
    properties.setBooleanValue("new", "b", 2);
    EXPECT_EQ(valueOf(properties, "new", "b"), "yes");
    properties.setBooleanValue("new", "b", 0);
    EXPECT_EQ(valueOf(properties, "new", "b"), "no");
    properties.deleteKey("net", "host");
    EXPECT_FALSE(properties.exists("net", "host"));
}

TEST(PropertiesEditTest, takesStringsOfEveryKind) {
    ZStanzaFileProperties properties(1);
    properties.setValue("s", "k", ZLCString("one"), 0);
    EXPECT_EQ(valueOf(properties, "s", "k"), "one");
    properties.setValue("s", "k", ZUTF8String("zw\xc3\xb6lf"), 0);
    EXPECT_EQ(valueOf(properties, "s", "k"), "zw\xc3\xb6lf");
    properties.setValue("s", "k", ZLCConstString("three"), 0);
    EXPECT_EQ(valueOf(properties, "s", "k"), "three");
    properties.setValue("s", "k", ZUTF8ConstString("four"), 0);
    EXPECT_EQ(valueOf(properties, "s", "k"), "four");
    properties.setValue("s", "k", ZUTF8String(), 0);
    EXPECT_EQ(properties.numValues("s", "k"), 0U);

    ZLCString cut("front");
    cut.append('\0');
    cut.append("back");
    EXPECT_THROW(properties.setValue("s", "k", cut, 0), ZInvalidParameterException);
    EXPECT_EQ(properties.numValues("s", "k"), 0U);
}

TEST(PropertiesEditTest, refusesWhatWouldNotReadBack) {
    std::string const longest(8190 - 4, 'x');  // behind "k = "
    ZStanzaFileProperties properties(1);
    properties.setValue("s", "k", longest.c_str());
    properties.addStanza("t");
    struct Refused {
        char const* stanza;
        char const* key;
        std::string value;
    };
    Refused const rows[] = {
        {"a]b", "k", "v"},  {"a\nb", "k", "v"},        {"s", "a=b", "v"}, {"s", "#k", "v"},
        {"s", "[k", "v"},   {"s", "a\nb", "v"},        {"s", " k", "v"},  {"s", "k ", "v"},
        {"s", "k", "a\nb"}, {"s", "k", longest + "x"},
    };
    for (Refused const& row : rows) {
        SCOPED_TRACE(std::string(row.stanza) + "/" + row.key + "/" + row.value.substr(0, 20));
        EXPECT_THROW(properties.setValue(row.stanza, row.key, row.value.c_str()),
                     ZInvalidParameterException);
        EXPECT_THROW(properties.addValue(row.stanza, row.key, row.value.c_str()),
                     ZInvalidParameterException);
    }
    EXPECT_THROW(properties.addFileComment("a\nb"), ZInvalidParameterException);
    EXPECT_THROW(properties.addStanzaComment("s", "a\nb"), ZInvalidParameterException);
    EXPECT_THROW(properties.addEntryComment("s", "k", "a\nb"), ZInvalidParameterException);
    EXPECT_THROW(properties.addStanza("a]b"), ZInvalidParameterException);
    EXPECT_EQ(properties.count(), 2U);
    EXPECT_EQ(properties.count("s"), 1U);
    EXPECT_EQ(valuesOf(properties, "s", "k"), Texts{longest});
    properties.setValue("s", "secret", "two\nlines", 1);
    EXPECT_EQ(valueOf(properties, "s", "secret"), "two\nlines");
}

TEST(PropertiesEditTest, aKeyKeepsItsKindUntilItIsDeleted) {
    ZStanzaFileProperties properties(1);
    properties.setValue("s", "plain", "v");
    properties.setValue("s", "secret", "v", 1);
    EXPECT_THROW(properties.setValue("s", "plain", "w", 1), ZInvalidParameterException);
    EXPECT_THROW(properties.setValue("s", "secret", "w", 0), ZInvalidParameterException);
    EXPECT_THROW(properties.setIntegerValue("s", "secret", 1), ZInvalidParameterException);
    EXPECT_THROW(properties.setBooleanValue("s", "secret", 1), ZInvalidParameterException);
    EXPECT_THROW(properties.addValue("s", "plain", "w", 1), ZInvalidParameterException);
    EXPECT_EQ(valueOf(properties, "s", "plain"), "v");
    EXPECT_EQ(valueOf(properties, "s", "secret"), "v");
    EXPECT_TRUE(properties.isObfuscated("s", "secret"));
    EXPECT_TRUE(properties.isObfuscated("s"));
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
    EXPECT_EQ(valuesOf(properties, "s", "k"), (Texts{"1", "2", "3"}));
    EXPECT_THROW(properties.addValue("s", "k", ""), ZInvalidParameterException);
    for (ZObject* const bad :
         {static_cast<ZObject*>(nullptr), static_cast<ZObject*>(new ZLCString("a\nb")),
          static_cast<ZObject*>(new ZLCString), static_cast<ZObject*>(new ZBuffer)}) {
        more.addNoCopy(bad);
        EXPECT_THROW(properties.addValues("s", "k", more), ZInvalidParameterException);
        more.remove(2);
        EXPECT_EQ(properties.numValues("s", "k"), 3U);
    }
}

TEST(PropertiesEditTest, editsOfWhatIsNotThereChangeNothing) {
    StanzaFile const file(sample);
    ZStanzaFileProperties properties(file.path().c_str(), 1);
    properties.deleteKey("net", "none");
    properties.deleteKey("none", "none");
    properties.deleteStanza("none");
    properties.addStanza("net");
    properties.addValues("net", "host", ZArrayList(1, 1));
    EXPECT_THROW(properties.addStanzaComment("none", "c"), ZInvalidParameterException);
    EXPECT_THROW(properties.addEntryComment("net", "none", "c"), ZInvalidParameterException);
    EXPECT_FALSE(properties.isModified());
    properties.store();
    EXPECT_EQ(file.bytes(), sample);
}

TEST(PropertiesEditTest, commentsAndNewKeysFindTheirPlaces) {
    StanzaFile const file(sample);
    ZStanzaFileProperties properties(file.path().c_str(), 1);
    properties.addFileComment("second line");
    properties.addStanzaComment("net", "# the network");
    properties.addEntryComment("net", "host", "where");
    properties.setIntegerValue("net", "retries", 5);
    properties.setValue("db", "user", "me");
    properties.addStanza("last");
    EXPECT_TRUE(properties.isModified());
    properties.store();
    EXPECT_FALSE(properties.isModified());
    EXPECT_EQ(
        file.bytes(),
        "# about\n#second line\n[net]\n# the network\nport = 8080\n#where\nhost = a\nhost = b\n"
        "empty =\n\n# retries = 3\nretries = 5\n\n[db]\nname = x\nuser = me\n[last]\n");
}

TEST(PropertiesStanzaTest, tellsKeysAndPairsInFileOrder) {
    StanzaFile const file(sample);
    ZStanzaFileProperties properties(file.path().c_str(), 1);
    properties.setValue("net", "secret", "hush", 1);
    EXPECT_EQ(textsOf(*properties.getKeys("net")), (Texts{"port", "host", "empty", "secret"}));
    EXPECT_EQ(properties.getKeys("none")->size(), 0U);
    ZPropertiesKVList pairs(zpropUTF8);
    properties.getStanza("net", pairs);
    Texts told;
    for (unsigned int i = 0; i < pairs.getItemCount(); ++i)
        told.push_back(std::string(pairs.getItemKey(i)->getChars()) + "=" +
                       pairs.getItemValue(i)->getChars());
    EXPECT_EQ(told, (Texts{"port=8080", "host=a", "host=b", "empty=", "secret=hush"}));
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
    StanzaFile const file(sample);
    ZStanzaFileProperties properties(file.path().c_str(), 1);
    ZPropertiesIterator stanzas(properties);
    ZPropertiesIterator keys(properties, "net");
    properties.deleteKey("net", "port");
    properties.addStanza("later");
    EXPECT_EQ(stanzas.size(), 2U);
    EXPECT_THROW((void)stanzas.getName(), ZPropertiesIteratorException);
    EXPECT_EQ(namesOf(stanzas), (Texts{"net", "db"}));
    EXPECT_FALSE(stanzas.hasMore());
    EXPECT_FALSE(stanzas.next());
    auto const e = raisedBy<ZPropertiesIteratorException>([&] { (void)stanzas.getName(); });
    ASSERT_TRUE(e);
    EXPECT_EQ(e->propFile(), file.path());
    stanzas.reset();
    EXPECT_TRUE(stanzas.hasMore());
    EXPECT_EQ(namesOf(stanzas), (Texts{"net", "db"}));
    EXPECT_EQ(namesOf(keys), (Texts{"port", "host", "empty"}));
    EXPECT_EQ(namesOf(ZPropertiesIterator(properties, "none")), Texts{});
    EXPECT_EQ(namesOf(ZPropertiesIterator(ZStanzaFileProperties(1))), Texts{});
}

TEST(PropertiesIteratorTest, keysTellTheirFirstValue) {
    StanzaFile const file(sample);
    ZStanzaFileProperties properties(file.path().c_str(), 1);
    ZStanzaIterator walk(properties, "net");
    EXPECT_THROW((void)walk.getValue(), ZPropertiesIteratorException);
    ASSERT_TRUE(walk.next());
    EXPECT_STREQ(walk.getValue(), "8080");
    ASSERT_TRUE(walk.next());
    EXPECT_STREQ(walk.getValue(), "a");
    properties.deleteKey("net", "host");
    EXPECT_EQ(walk.getValue(), nullptr);
    ASSERT_TRUE(walk.next());
    EXPECT_EQ(walk.getValue(), nullptr);
    EXPECT_FALSE(walk.next());
}

TEST(PropertiesIteratorTest, valuesAreEditedInPlace) {
    for (int const obfuscated : {0, 1}) {
        ZStanzaFileProperties properties(1);
        for (char const* const v : {"1", "2", "3"})
            properties.addValue("s", "k", v, obfuscated);
        ZStanzaValueIterator walk(properties, "s", "k");
        EXPECT_THROW(walk.changeValue("x"), ZPropertiesIteratorException);
        ASSERT_TRUE(walk.next());
        walk.changeValue("one");
        EXPECT_STREQ(walk.getValue(), "one");
        ASSERT_TRUE(walk.next());
        walk.removeValue();
        EXPECT_THROW((void)walk.getValue(), ZPropertiesIteratorException);
        EXPECT_THROW(walk.removeValue(), ZPropertiesIteratorException);
        walk.addValue("4");
        ASSERT_TRUE(walk.next());
        EXPECT_STREQ(walk.getValue(), "3");
        ASSERT_TRUE(walk.next());
        EXPECT_STREQ(walk.getValue(), "4");
        EXPECT_FALSE(walk.next());
        EXPECT_THROW((void)walk.getValue(), ZPropertiesIteratorException);
        walk.addValue("5");
        ASSERT_TRUE(walk.next());
        EXPECT_STREQ(walk.getValue(), "5");
        EXPECT_EQ(walk.size(), 4U);
        EXPECT_EQ(valuesOf(properties, "s", "k"), (Texts{"one", "3", "4", "5"}));
        EXPECT_EQ(properties.isObfuscated("s", "k"), obfuscated != 0);
        EXPECT_THROW(walk.addValue(""), ZInvalidParameterException);
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
