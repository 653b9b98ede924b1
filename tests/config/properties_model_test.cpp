// What a properties object answers, and what its edits do, without regard to files.
#include <gtest/gtest.h>

#include <climits>
#include <utility>

#include "Z/ZBuffer.h"
#include "Z/ZLCConstString.h"
#include "Z/ZUTF8ConstString.h"
#include "Z/ZUTF8String.h"
#include "support/properties.h"

namespace {

using namespace std::string_literals;
using namespace testsupport;
using Invalid = ZInvalidParameterException;

constexpr char sample[] =
    "# about\n[net]\nport = 8080\nhost = a\nhost = b\nempty =\n\n# retries = 3\n\n[db]\nname = x\n";

TEST(PropertiesReadTest, answersWithTheLastValueOrTheDefault) {
    EditedFile const file(sample);
    ZProperties const& properties = file.properties;
    EXPECT_EQ(valueOf(properties, "net", "host"), "b");
    EXPECT_EQ(valuesOf(properties, "net", "host"), (Texts{"a", "b"}));
    EXPECT_EQ(properties.numValues("net", "host"), 2U);
    EXPECT_EQ(properties.numValues("net") + properties.count("net"), 6U);
    EXPECT_EQ(properties.count(), 2U);
    ZLCString out("old");
    properties.getValue("net", "none", out, 0, "given");
    EXPECT_EQ(out, "given");
    properties.getValue("net", "empty", out, 0, nullptr);
    EXPECT_EQ(out, "");
    EXPECT_TRUE(properties.exists("net", "empty"));
    EXPECT_FALSE(properties.exists("net", "none") || properties.exists("none"));
    EXPECT_EQ(properties.getIntegerValue("net", "empty", 0, 7), 7U);
    EXPECT_EQ(properties.getBooleanValue("none", "none", 0, 1), 1);
}

TEST(PropertiesReadTest, namesTheRequiredKeyThatIsMissingAndTakesNoDefaultForIt) {
    using Missing = ZPropertiesMissingPropertyException;
    EditedFile const file(sample);
    ZProperties const& properties = file.properties;
    ZLCString out("kept");
    for (char const* const key : {"none", "empty"}) {
        auto const e = raisedBy<Missing>([&] { properties.getValue("net", key, out, 1); });
        ASSERT_TRUE(e);
        EXPECT_EQ(e->propFile(), file.path());
        EXPECT_EQ(e->category() + "/"s + e->key(), "net/"s + key);
        EXPECT_THROW(static_cast<void>(properties.getIntegerValue("net", key, 1)), Missing);
        EXPECT_THROW(static_cast<void>(properties.getBooleanValue("net", key, 1)), Missing);
    }
    EXPECT_THROW(properties.getValue("net", "port", out, 1, ""), Invalid);
    EXPECT_THROW(static_cast<void>(properties.getIntegerValue("net", "port", 1, 1)), Invalid);
    EXPECT_THROW(static_cast<void>(properties.getBooleanValue("net", "port", 1, 1)), Invalid);
    EXPECT_EQ(out, "kept");
}

/// Each of these, as the value of a key, lets `read` raise the exception of this number, which
/// tells the place and the value.
template <class E, class Read>
void expectInvalid(unsigned int code, Read read, Texts const& texts) {
    ZStanzaFileProperties properties(1);
    for (std::string const& text : texts) {
        properties.setValue("s", "k", text.c_str());
        auto const e = raisedBy<E>([&] { static_cast<void>(read(properties)); });
        ASSERT_TRUE(e) << text;
        EXPECT_EQ(e->getCode(), code);
        EXPECT_EQ(e->category() + "/"s + e->key() + "/" + e->value(), "s/k/"s + text);
    }
}

TEST(PropertiesReadTest, readsNumbersAs32BitStrtoul) {
    ZStanzaFileProperties properties(1);
    std::pair<unsigned int, Texts> const rows[] = {
        {0, {"-0"}},
        {1, {"-4294967295"}},
        {8, {" \t8", "+8", "010", "0X8"}},
        {UINT_MAX, {"-1", "4294967295", "4294967296", "-4294967296", "99999999999999999999999"}}};
    for (auto const& [value, texts] : rows)
        for (std::string const& text : texts) {
            properties.setValue("s", "k", text.c_str());
            EXPECT_EQ(properties.getIntegerValue("s", "k", 1), value) << text;
        }
    expectInvalid<ZPropertiesInvalidNumValueException>(
        40, [](auto& p) { return p.getIntegerValue("s", "k"); },
        {"7 ", "09", "0x", "--1", "- 1", "+", "1.5", "4294967296x", "ten", "  "});
}

TEST(PropertiesReadTest, readsTruthInAnyCaseOfLetters) {
    ZStanzaFileProperties properties(1);
    std::pair<int, Texts> const rows[] = {{1, {"yes", "YES", "y", "Y", "true", "TRUE", "t", "1"}},
                                          {0, {"no", "No", "n", "false", "FALSE", "f", "0"}}};
    for (auto const& [truth, words] : rows)
        for (std::string const& word : words) {
            properties.setValue("s", "k", word.c_str());
            EXPECT_EQ(properties.getBooleanValue("s", "k", 0, 1 - truth), truth) << word;
        }
    expectInvalid<ZPropertiesInvalidBoolValueException>(
        41, [](auto& p) { return p.getBooleanValue("s", "k"); }, {"on", "yess", "2", " yes", "00"});
}

template <class String>
void expectValuesAs(ZPropertyStringType type) {
    EditedFile const file("[s]\nk = gr\xc3\xbc\xc3\x9f\nk = 2\n");
    ZArrayList values(1, 1);
    file.properties.getValues("s", "none", values, type);
    EXPECT_EQ(values.size(), 0U);
    EXPECT_THROW(file.properties.getValues("s", "k", values, static_cast<ZPropertyStringType>(5)),
                 Invalid);
    file.properties.getValues("s", "k", values, type);
    EXPECT_THROW(file.properties.getValues("s", "k", values, type), Invalid);
    EXPECT_EQ(textsOf(values), (Texts{"gr\xc3\xbc\xc3\x9f", "2"}));
    EXPECT_NE(dynamic_cast<String*>(values.get(1)), nullptr);
}

TEST(PropertiesReadTest, fillsAnEmptyListOfEitherCodeset) {
    expectValuesAs<ZLCString>(zpropLocalCodeset);
    expectValuesAs<ZUTF8String>(zpropUTF8);
}

/// Every call of a stanza and a key refuses these, those aside that hand them to the cache.
void expectRefused(ZStanzaFileProperties& p, char const* s, char const* k) {
    ZLCString out;
    ZArrayList list(1, 1);
    EXPECT_THROW(static_cast<void>(p.exists(s, k)), Invalid);
    EXPECT_THROW(static_cast<void>(p.isObfuscated(s, k)), Invalid);
    EXPECT_THROW(p.getValue(s, k, out), Invalid);
    EXPECT_THROW(static_cast<void>(p.getIntegerValue(s, k)), Invalid);
    EXPECT_THROW(static_cast<void>(p.getBooleanValue(s, k)), Invalid);
    EXPECT_THROW(p.getValues(s, k, list, zpropLocalCodeset), Invalid);
    EXPECT_THROW(static_cast<void>(p.numValues(s, k)), Invalid);
    EXPECT_THROW(p.deleteKey(s, k), Invalid);
    EXPECT_THROW(p.addValues(s, k, list), Invalid);
    EXPECT_THROW(ZStanzaValueIterator(p, s, k), Invalid);
}

TEST(PropertiesArgumentTest, refusesMissingNamesEverywhere) {
    ZStanzaFileProperties p(1);
    ZPropertiesKVList pairs;
    for (char const* const missing : {static_cast<char const*>(nullptr), ""}) {
        expectRefused(p, missing, "k");
        expectRefused(p, "s", missing);
        EXPECT_THROW(static_cast<void>(p.exists(missing)), Invalid);
        EXPECT_THROW(static_cast<void>(p.isObfuscated(missing)), Invalid);
        EXPECT_THROW(static_cast<void>(p.numValues(missing)), Invalid);
        EXPECT_THROW(static_cast<void>(p.count(missing)), Invalid);
        EXPECT_THROW(p.deleteStanza(missing), Invalid);
        EXPECT_THROW(p.getStanza(missing, pairs), Invalid);
        EXPECT_THROW(static_cast<void>(p.getKeys(missing)), Invalid);
        EXPECT_THROW(ZPropertiesIterator(p, missing), Invalid);
        EXPECT_THROW(p.addFileComment(missing), Invalid);
        EXPECT_THROW(p.load(missing), Invalid);
        EXPECT_THROW(p.reload(missing), Invalid);
        EXPECT_THROW(p.store(missing), Invalid);
    }
    EXPECT_FALSE(p.isModified());
    EXPECT_EQ(p.count(), 0U);
}

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
    EXPECT_THROW(properties.setValue("s", "k", cut, 0), Invalid);
    EXPECT_EQ(properties.numValues("s", "k"), 0U);
}

TEST(PropertiesEditTest, aKeyKeepsItsKindUntilItIsDeleted) {
    ZStanzaFileProperties p(1);
    p.setValue("s", "plain", "v");
    p.setValue("s", "secret", "v", 1);
    EXPECT_THROW(p.setValue("s", "plain", "w", 1), Invalid);
    EXPECT_THROW(p.addValue("s", "plain", "w", 1), Invalid);
    EXPECT_THROW(p.addValues("s", "plain", ZArrayList(1, 1), 1), Invalid);
    EXPECT_THROW(p.setIntegerValue("s", "secret", 1), Invalid);
    EXPECT_THROW(p.setBooleanValue("s", "secret", 1), Invalid);
    EXPECT_EQ(valueOf(p, "s", "plain") + valueOf(p, "s", "secret"), "vv");
    EXPECT_TRUE(p.isObfuscated("s", "secret") && p.isObfuscated("s"));
    EXPECT_FALSE(p.isObfuscated("s", "plain"));
    p.deleteKey("s", "plain");
    p.setValue("s", "plain", "w", 1);
    EXPECT_TRUE(p.isObfuscated("s", "plain"));
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
        EXPECT_THROW(properties.addValues("s", "k", more), Invalid);
        more.remove(2);
    }
    EXPECT_EQ(valuesOf(properties, "s", "k"), (Texts{"1", "2", "3"}));
}

TEST(PropertiesEditTest, editsOfWhatIsNotThereChangeNothing) {
    EditedFile file(sample);
    ZStanzaFileProperties& properties = file.properties;
    properties.deleteKey("net", "none");
    properties.deleteKey("none", "none");
    properties.deleteStanza("none");
    properties.addStanza("net");
    properties.addValues("net", "host", ZArrayList(1, 1));
    EXPECT_THROW(properties.addStanzaComment("none", "c"), Invalid);
    EXPECT_THROW(properties.addEntryComment("net", "none", "c"), Invalid);
    EXPECT_FALSE(properties.isModified());
    properties.store();
    EXPECT_EQ(file.bytes(), sample);
}

TEST(PropertiesEditTest, pairsHoldEveryValueOfAStanza) {
    EditedFile file(sample);
    file.properties.setValue("net", "secret", "hush", 1);
    ZPropertiesKVList pairs(zpropUTF8);
    file.properties.getStanza("net", pairs);
    std::string told;
    for (unsigned int i = 0; i < pairs.getItemCount(); ++i)
        told += pairs.getItemKey(i)->getChars() + "="s + pairs.getItemValue(i)->getChars() + " ";
    EXPECT_EQ(told, "port=8080 host=a host=b empty= secret=hush ");
}

using Misplaced = ZPropertiesIteratorException;

template <class Walk>
Texts namesOf(Walk&& walk) {
    Texts names;
    while (walk.next())
        names.emplace_back(walk.getName());
    return names;
}

TEST(PropertiesIteratorTest, walksASnapshotOfNames) {
    EditedFile file(sample);
    ZStanzaFileProperties& properties = file.properties;
    ZPropertiesIterator stanzas(properties);
    ZPropertiesIterator keys(properties, "net");
    ZStanzaIterator entries(properties, "net");
    properties.addStanza("later");
    auto const e = raisedBy<Misplaced>([&] { static_cast<void>(stanzas.getName()); });
    ASSERT_TRUE(e);
    EXPECT_EQ(e->propFile(), file.path());
    EXPECT_EQ(namesOf(stanzas), (Texts{"net", "db"}));
    EXPECT_FALSE(stanzas.hasMore());
    EXPECT_THROW(static_cast<void>(stanzas.getName()), Misplaced);
    stanzas.reset();
    EXPECT_EQ(namesOf(stanzas), (Texts{"net", "db"}));
    EXPECT_EQ(stanzas.size(), 2U);
    EXPECT_THROW(static_cast<void>(entries.getValue()), Misplaced);
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
        for (char const* const v : {"1", "2", "3", "4"})
            properties.addValue("s", "k", v, obfuscated);
        ZStanzaValueIterator walk(properties, "s", "k");
        EXPECT_THROW(walk.changeValue("x"), Misplaced);
        ASSERT_TRUE(walk.next());
        walk.changeValue("one");
        EXPECT_STREQ(walk.getValue(), "one");
        EXPECT_THROW(walk.changeValue(nullptr), Invalid);
        for (int i = 0; i < 2; ++i) {
            ASSERT_TRUE(walk.next());
            walk.removeValue();
            EXPECT_THROW(static_cast<void>(walk.getValue()), Misplaced);
            EXPECT_THROW(walk.removeValue(), Misplaced);
        }
        walk.addValue("5");
        EXPECT_THROW(walk.addValue(""), Invalid);
        EXPECT_EQ(rest(walk), (Texts{"4", "5"}));
        EXPECT_FALSE(walk.hasMore());
        EXPECT_THROW(static_cast<void>(walk.getValue()), Misplaced);
        walk.addValue("6");
        EXPECT_EQ(rest(walk), Texts{"6"});
        EXPECT_EQ(walk.size(), 4U);
        walk.reset();
        ASSERT_TRUE(walk.next());
        walk.removeValue();
        EXPECT_EQ(rest(walk), (Texts{"4", "5", "6"})) << "the walk of what is left";
        EXPECT_EQ(valuesOf(properties, "s", "k"), (Texts{"4", "5", "6"}));
        EXPECT_EQ(properties.isObfuscated("s", "k"), obfuscated != 0);
    }
}

TEST(PropertiesIteratorTest, refusesToEditWhatSomebodyElseChanged) {
    EditedFile file(sample);
    ZStanzaValueIterator walk(file.properties, "net", "host");
    ASSERT_TRUE(walk.next() && walk.next());
    file.properties.setValue("net", "host", "other");
    EXPECT_STREQ(walk.getValue(), "b");
    EXPECT_THROW(walk.changeValue("x"), Misplaced);
    EXPECT_THROW(walk.removeValue(), Misplaced);
    EXPECT_EQ(valueOf(file.properties, "net", "host"), "other");
}

}  // namespace
