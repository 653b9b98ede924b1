// link: static
// What the random comparison with the model (property_model_test) does not reach.
#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <set>
#include <tuple>
#include <vector>

#include "Z/ZUTF8String.h"
#include "support/properties.h"
#include "support/records_check.h"

namespace {

std::size_t sizeAsked = 0;  // of the first block since it was 0
std::size_t sizeRefused = 0;

}  // namespace

// In place of the standard ones, which the library uses; inline, g++ 12 would see a mismatch.
void* operator new(std::size_t size, std::nothrow_t const& /*none*/) noexcept {
    if (sizeAsked == 0) sizeAsked = size;
    return size == sizeRefused ? nullptr : std::malloc(size);
}
void* operator new(std::size_t size) {
    if (void* const block = std::malloc(size)) return block;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* block) noexcept { std::free(block); }
[[gnu::noinline]] void operator delete(void* block, std::size_t /*size*/) noexcept {
    std::free(block);
}

namespace {

using namespace testsupport;
using Cache = CheckedCache;

constexpr char const* null = nullptr;

char const* charsAt(ZArrayList const& list, unsigned int i) {
    return static_cast<ZLCString const*>(list.get(i))->getChars();
}

TEST(PropertyCacheTest, matchesACommentedOutKeyWhateverItsBlanks) {
    auto const matches = ZPCategoryBasedCache::isCommentWeWant;
    EXPECT_TRUE(matches("#key=", " #  k e y  = 5") && matches("", "anything"));
    for (char const* const line : {"#keys=5", "#key", "#\tkey="})
        EXPECT_FALSE(matches("#key=", line)) << line;
    EXPECT_FALSE(matches("#a b=", "#a b="));
}

TEST(PropertyCacheTest, listsPlainValuesBeforeObfuscatedOnesUntilAChange) {
    Cache cache("[s]\nboth = 1\nboth = 2\nempty =\n");
    cache.add("s", "both", "x", 1);
    cache.add("s", "secret", "y", 1);
    std::tuple<char const*, ZPCache::get_type_e, Texts> const rows[] = {
        {"both", ZPCache::plainElseObfuscated, {"1", "2"}},
        {"both", ZPCache::obfuscatedValues, {"x"}},
        {"secret", ZPCache::plainElseObfuscated, {"y"}},
        {"secret", ZPCache::plainValues, {}},
        {"empty", ZPCache::plainElseObfuscated, {}}};
    for (auto const& [key, type, values] : rows) {
        ZArrayList* const list = cache.get("s", key, type);
        ASSERT_NE(list, nullptr);
        EXPECT_EQ(textsOf(*list), values) << key << type;
        EXPECT_EQ(cache.get("s", key, type), list);
    }
    EXPECT_EQ(cache.get("s", "none", ZPCache::plainValues), nullptr);
    EXPECT_EQ(cache.get(nullptr, nullptr, ZPCache::plainValues), nullptr);
    ZPKVList const* const map = cache.get("s", ZPCache::obfuscatedValues);
    EXPECT_EQ(textsOf(map->getKeys()), (Texts{"both", "empty", "secret"}));
    EXPECT_EQ(textsOf(*map->getEntry("both")), Texts{"x"});
    cache.addValue("s", "both", "3", 0);
    EXPECT_EQ(textsOf(*cache.get("s", "both", ZPCache::plainValues)), (Texts{"1", "2", "3"}));
    char const* text = nullptr;
    unsigned int length = 0;
    EXPECT_TRUE(cache.lastValue("s", "both", text, length));
    EXPECT_EQ(std::string(text, length), "3");
    EXPECT_FALSE(cache.lastValue("s", "empty", text, length));
}

/// What the cache gave out can be given back to it.
TEST(PropertyCacheTest, argumentsMayLieInTheCache) {
    Cache cache("[s]\nk = value\n");
    auto const listed = [&] { return charsAt(*cache.get("s", "k", ZPCache::plainValues), 0); };
    cache.addLine("s", "k", listed(), 0);
    cache.addLine("s", "k", cache.valueAt("s", "k", 0), 0);
    cache.addValue("s", "k", cache.valueAt("s", "k", 0), 0);
    cache.changeValue("s", "k", 1, cache.valueAt("s", "k", 1));
    cache.addLine(cache.valueAt("s", "k", 0), cache.valueAt("s", "k", 0), listed(), 1);
    ZArrayList names(0, 1);
    cache.getNames(names);
    cache.remove(charsAt(names, 1));
    cache.remove("s", charsAt(*cache.getNames("s"), 0));
    EXPECT_EQ(cache.written(), "[s]\n");
}

/// A value that is no longer than the old one is written over it.
TEST(PropertyCacheTest, aValueMayBeATailOfTheOneItReplaces) {
    Cache cache("[s]\nk = abcdef\nl = 1\n");
    for (char const* const tail : {"bcdef", "f", "f", ""}) {
        char const* const old = cache.valueAt("s", "k", 0);
        cache.addLine("s", "k", old + (std::strlen(old) - std::strlen(tail)), 0);
        EXPECT_EQ(cache.written(),
                  "[s]\nk =" + (*tail == '\0' ? "" : std::string(" ") + tail) + "\nl = 1\n");
        cache.check();
    }
    for (char const* const text : {"a longer one than before", "short", "1"}) {
        cache.set("s", "l", text);
        EXPECT_EQ(cache.values("s", "l"), Texts{text});
        cache.check();
    }
}

TEST(PropertyCacheTest, everyByteOfANameCountsForItsHash) {
    std::set<std::uint32_t> hashes;
    std::size_t names = 0;
    for (std::size_t length = 0; length < 40; ++length) {
        for (std::size_t other = 0; other <= length; ++other) {
            std::vector<char> name(length, 'a');  // without a byte to spare behind it
            if (other < length) name[other] = 'b';
            hashes.insert(zfc::cache::hashName({name.data(), name.size()}));
            ++names;
        }
    }
    EXPECT_GE(hashes.size() + 1, names);  // two may meet by chance
}

TEST(PropertyCacheTest, knowsTheCompanionFileOfTheFileAndOfEdits) {
    char const* const database = "configuration-database";
    Cache cache("[other]\nfile = x\n[configuration-database]\nfile = a\nfile = b\nFile = c\n");
    EXPECT_STREQ(cache.getCompanionName(), "b");
    cache.addLine(database, "file", "/a", 0);
    cache.addValue(database, "file", "/b", 0);
    EXPECT_STREQ(cache.getCompanionName(), "/b");
    cache.changeValue(database, "file", 1, "/c");
    cache.remove(database, "file");
    EXPECT_STREQ(cache.getCompanionName(), "/c");
    cache.clear();
    EXPECT_STREQ(cache.getCompanionName(), "");
}

TEST(PropertyCacheTest, refusesWhatWouldNotReadBackAndChangesNothing) {
    std::string const text = "# c\n[s]\nk = v\n";
    Cache cache(text);
    auto const expectRefused = [&](std::function<void()> const& edit) {
        EXPECT_THROW(edit(), ZInvalidParameterException);
        ASSERT_EQ(cache.written(), text);
        ASSERT_EQ(cache.count() + cache.keyCount("s"), 2U);
    };
    std::string const x8189(8189, 'x');
    char const* const tooLong = x8189.c_str();  // for a name
    char const* const longest = tooLong + 1;
    struct {
        char const *stanza, *key, *value;
    } const entries[] = {{nullptr, "k", "v"}, {"", "k", "v"},         {"a]", "k", "v"},
                         {"a\nb", "k", "v"},  {"s", "", "v"},         {"s", nullptr, "v"},
                         {"s", "a=b", "v"},   {"s", "a\nb", "v"},     {"s", "#a", "v"},
                         {"s", "[a", "v"},    {"s", " a", "v"},       {"s", "a\r", "v"},
                         {"t", "k", "a\n"},   {tooLong, "k", "v"},    {"s", tooLong, ""},
                         {"s", longest, "v"}, {"s", "k", longest + 1}};
    for (auto const& e : entries) {
        SCOPED_TRACE(testing::PrintToString(&e - entries));
        expectRefused([&] { cache.addLine(e.stanza, e.key, e.value, 0); });
        expectRefused([&] { cache.set(e.stanza, e.key, e.value); });
        expectRefused([&] { cache.add(e.stanza, e.key, e.value, 0); });
    }
    expectRefused([&] { cache.setObfuscated("s", "a=b", "v"); });
    for (char const* const value : {null, "", "a\nb"}) {
        expectRefused([&] { cache.addValue("s", "k", value, 0); });
        expectRefused([&] { static_cast<void>(cache.changeValue("s", "k", 0, value)); });
    }
    std::string const longComment = "#" + x8189 + "x";
    for (char const* const comment : {null, "no sign", "# a\nb", longComment.c_str()}) {
        expectRefused([&] { cache.addFileComment(comment); });
        expectRefused([&] { cache.addLineComment("s", comment); });
        expectRefused([&] { cache.addLineComment("s", "k", comment); });
    }
    expectRefused([&] { cache.addLineComment("t", "# a"); });
    expectRefused([&] { cache.addLineComment("s", "none", "# a"); });
}

TEST(PropertyCacheTest, whatIsNotRefusedReadsBack) {
    std::string const longest(8188, 'x');
    std::string const value = "= # [x] \x01\xff\r\v\f." + std::string(8190 - 4 - 14, 'x');
    Cache cache;
    cache.addLine(longest.c_str(), longest.c_str(), "", 0);
    cache.addLine(" s [", "k", value.c_str(), 0);
    cache.addLine(" s [", "a#[b]", "", 0);
    cache.addLine(" s [", "secret", "a\nb", 1);
    cache.addFileComment(("#" + longest + "x").c_str());
    Cache again(cache.written());
    EXPECT_TRUE(again.contains(longest.c_str(), longest.c_str()) &&
                again.contains(" s [", "a#[b]"));
    EXPECT_TRUE(again.valueAt(" s [", "k", 0) == value);
    EXPECT_TRUE(again.written() == cache.written());
}

/// Their memory is used again, and few of them move what they do not touch.
TEST(PropertyCacheTest, yearsOfEditsDoNotGrowIt) {
    constexpr int edits = 20000;
    Cache cache("[s]\nfirst = 1\nkey = value\n# comment\n");
    std::string const value(1000, 'v');
    std::size_t bytes = 0;
    int moves = 0;
    for (int i = 0; i < edits; ++i) {
        if (i == edits / 20) bytes = mallinfo2().uordblks;
        char const* const first = cache.valueAt("s", "first", 0);
        std::string const key = "key" + std::to_string(i);
        cache.addLine("s", "key", (value + std::to_string(i)).c_str(), i % 2);
        cache.addLine("s", key.c_str(), value.c_str(), 0);
        cache.addValue("s", "first", "2", 0);
        cache.removeValue("s", "first", 1);
        cache.addLine(key.c_str(), nullptr, 0);
        cache.remove("s", key.c_str());
        cache.remove(key.c_str());
        moves += cache.valueAt("s", "first", 0) != first ? 1 : 0;
    }
    EXPECT_LT(mallinfo2().uordblks, bytes + 200000);
    EXPECT_LT(moves, edits / 10);
    cache.check();
}

TEST(PropertyCacheTest, yearsOfEditsThatFailForWantOfMemoryDoNotGrowIt) {
    // As many keys, and keys of several values, as are kept in one block: one more needs a block.
    std::string text = "[s]\nlast = 1\nkey0 = 0\n";
    for (int i = 0; i < 63; ++i)
        text += "key" + std::to_string(i) + " = 1\nkey" + std::to_string(i) + " = 2\n";
    void (*const edits[])(Cache&) = {[](Cache& cache) { cache.addValue("s", "last", "2", 0); },
                                     [](Cache& cache) { cache.addValue("s", "last", "2", 1); },
                                     [](Cache& cache) { cache.addLine("s", "k", "", 0); }};
    for (auto const& edit : edits) {
        SCOPED_TRACE(&edit - edits);
        Cache twin(text);
        Cache cache(text);
        for (Cache* const one : {&twin, &cache})
            one->add("s", "key0", "x", 1);
        sizeAsked = 0;
        edit(twin);
        std::size_t const bytes = mallinfo2().uordblks;
        for (int i = 0; i < 20000; ++i) {
            sizeRefused = sizeAsked;
            EXPECT_THROW(edit(cache), ZOutOfMemoryException);
            sizeRefused = 0;
        }
        EXPECT_LT(mallinfo2().uordblks, bytes + 150000);
        edit(cache);
        EXPECT_EQ(cache.written(), twin.written());
    }
}

TEST(PropertyCacheTest, linesAndItemsCompareByContent) {
    EXPECT_TRUE(ZPropLine(8, "a") == ZPropLine(8, "a") && ZPropLine(8, "a") < ZPropLine(8, "b"));
    EXPECT_LT(ZPropLine(1, "b"), ZPropLine(2, "a"));
    EXPECT_LT(ZObfuscatedItem("s", "z"), ZObfuscatedItem("t", "a"));
    EXPECT_GT(ZObfuscatedItem("s", "b"), ZObfuscatedItem("s", "a"));
}

TEST(PropertyCacheTest, flatNamesSplitAtTheirFirstDot) {
    ZLCString flat, stanza("s"), key("k");
    Cache().makeKey(flat, "a", "b.c");
    EXPECT_TRUE(ZPCategoryBasedCache::validateKey(flat.getChars(), stanza, key));
    EXPECT_TRUE(stanza == "a" && key == "b.c");
    for (char const* const bad : {"", "a", ".b", "a."})
        EXPECT_FALSE(ZPCategoryBasedCache::validateKey(bad, stanza, key)) << bad;
}

TEST(PropertyCacheTest, aKeyMapKeepsItsOrder) {
    ZPKVList map;
    ZArrayList values(0, 1);
    for (char const* const name : {"z", "a", "m", "z"}) {
        values.addNoCopy(new ZLCString(name));
        map.putEntry(name, values);
    }
    map.removeEntry("a");
    map.removeEntry("none");
    ZArrayList names(0, 1);
    map.listKeys(names);
    EXPECT_EQ(textsOf(*map.getEntry("z")), (Texts{"z", "a", "m", "z"}));
    EXPECT_EQ(map.getEntry("a"), nullptr);
    map.removeAll();
    EXPECT_EQ(map.size(), 0U);
    EXPECT_EQ(textsOf(names), (Texts{"z", "m"}));
}

TEST(PropertyCacheTest, pairsComeInTheChosenCodeset) {
    ZPropertiesKVList local;
    local.addItem("key", "value");
    EXPECT_NE(dynamic_cast<ZLCString const*>(local.getItemKey(0)), nullptr);
    ZPropertiesKVList pairs(zpropUTF8);
    pairs.addItem("key", "\xc3\xa4");
    pairs.addItem("empty", nullptr);
    auto const* const value = dynamic_cast<ZUTF8String const*>(pairs.getItemValue(0));
    EXPECT_TRUE(value != nullptr && *value == "\xc3\xa4");
    EXPECT_STREQ(pairs.getItemValue(1)->getChars(), "");
    EXPECT_EQ(pairs.getItemKey(2), nullptr);
    EXPECT_THROW(ZPropertiesKVList(static_cast<ZPropertyStringType>(7)),
                 ZInvalidParameterException);
}

}  // namespace
