// link: static
// wrap: calloc,realloc

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>

#include "Z/ZKeyMap.h"
#include "Z/ZLCConstString.h"
#include "Z/ZMap.h"
#include "Z/ZUTF8String.h"
#include "support/objects.h"

using namespace testsupport;

WRAP(calloc, void*, nullptr, (std::size_t count, std::size_t size), (count, size))
WRAP(realloc, void*, nullptr, (void* block, std::size_t size), (block, size))

namespace {

class MapTest : public ObjectsTest {};

template <class Map>
void put(Map& map, Values const& values) {
    for (int const value : values)
        map.putEntryNoCopy(new Number(value));
}

Values listed(ZMap const& map) {
    ZArrayList list(1, 0);
    map.list(list);
    return valuesOf(list);
}
Values listed(ZKeyMap const& map) {
    ZArrayList list(1, 0);
    map.listKeys(list);
    return valuesOf(list);
}

TEST_F(MapTest, ListsBucketByBucketOfOneAndAHalfTimesItsSizeOrNothing) {
    ZHashMap map(100, 1);
    put(map, {149, 150});  // the last and the first bucket
    EXPECT_EQ((Values{150, 149}), listed(map));
    ZArrayList full(1, 1);
    Number::clonesLeft = 1;
    EXPECT_EQ(notClonable, errorOf([&] { map.list(full); }));
    EXPECT_TRUE(full.isEmpty());
    // More than an index could tell. In 32 bits the last one would come to two buckets.
    for (unsigned int const size : {~0U, 2863311532U})
        EXPECT_EQ(outOfMemory, errorOf([&] { ZHashMap const tooLarge(size, 0); }));
}

TEST_F(MapTest, IteratorWalksTheEntriesOfTheTimeItWasMade) {
    ZArrayMap row(1, 1);
    put(row, {4, 5, 1});
    EXPECT_EQ(row.get(2), ZArrayMapIterator(row).findNext(Number(1)));
    ZHashMap map(4, 1);
    put(map, {1, 2});
    ZMapIterator iterator(map);
    put(map, {3});
    for (int walk = 0; walk < 2; ++walk, iterator.reset()) {
        EXPECT_EQ(1, valueOf(iterator.getNext()));
        EXPECT_EQ(2, valueOf(iterator.getNext()));
        EXPECT_FALSE(iterator.hasMore());
        EXPECT_EQ(nullptr, iterator.getNext());
    }
}

TEST_F(MapTest, KeyEntriesCompareKeysAloneAndAreAssignedWholeOrNotAtAll) {
    Number one(1);
    Number two(2);
    ZKeyEntry const low(&one, &two, 1);
    ZKeyEntry const none(nullptr, &one, 0);
    EXPECT_LT(low.compare(ZKeyEntry(&two, nullptr, 0)), 0);
    EXPECT_LT(none.compare(low), 0);
    EXPECT_GT(low.compare(none), 0);
    EXPECT_TRUE(none.equals(ZKeyEntry(nullptr, &two, 0)));
    EXPECT_EQ(1U, low.hash());
    EXPECT_FALSE(low.equals(ZKeyEntry(&one, nullptr, 0))) << "hashes that are known differ";
    EXPECT_TRUE(low.equals(ZKeyEntry(low)));
    ZKeyEntry entry(&two, nullptr, 1);
    Number::clonesLeft = 1;
    EXPECT_EQ(notClonable, errorOf([&] { entry = low; }));
    EXPECT_EQ((std::pair(2, noNumber)),
              std::pair(valueOf(entry.getKey()), valueOf(entry.getValue())));
    Number::clonesLeft = 2;
    entry = low;
    EXPECT_EQ((std::pair(1, 2)), std::pair(valueOf(entry.getKey()), valueOf(entry.getValue())));
}

TEST_F(MapTest, SharingGivesTheCallersPointersBackAndTakesNullValues) {
    Number value(10);
    ZHashKeyMap map(10, 0);
    map.putEntry(&value, &value);
    EXPECT_EQ(&value, map.getEntry(&value));
    map.putEntry(&value, nullptr);
    EXPECT_EQ(nullptr, map.getEntry(&value));
    EXPECT_TRUE(map.contains(&value));
    ZObject first;
    ZObject second;
    ZHashMap alike(2, 0);
    for (ZObject* const entry : {&first, &second, &first})
        alike.putEntry(entry);
    EXPECT_EQ(2U, alike.size()) << "objects without a content of their own are not equal";
}

TEST_F(MapTest, KeyMapListsItsPairsAndCopiesThem) {
    ZHashKeyMap map(2, 1);
    std::map<int, int> model;
    for (int i = 0; i < 300; ++i) {
        Number key(i % 30 == 0 ? noNumber : i % 70);
        Number const value(i);
        map.putEntry(objectOf(key), &value);
        model[key.value] = i;
    }
    ZHashKeyMap other(50, 1);
    other.putAll(map);
    std::unique_ptr<ZObject> const copy(other.clone());
    map.removeAll();
    EXPECT_TRUE(map.isEmpty() && map.ZAbstractKeyMap::isEmpty());
    for (auto const* const each : {&other, dynamic_cast<ZHashKeyMap*>(copy.get())}) {
        ZArrayList keys(1, 0);
        ZArrayList values(1, 0);
        each->listKeys(keys);
        each->listObjects(values);
        ASSERT_EQ(model.size(), keys.size());
        ASSERT_EQ(model.size(), values.size());
        for (unsigned int i = 0; i < keys.size(); ++i)
            EXPECT_EQ(model[valueOf(keys.get(i))], valueOf(values.get(i)));
    }
}

/// A text that counts its comparisons with others.
class CountedText : public ZUTF8String {
  public:
    explicit CountedText(std::string const& text) : ZUTF8String(text.c_str()) {}
    [[nodiscard]] ZUTF8String* clone() const override { return new CountedText(*this); }
    [[nodiscard]] bool equals(ZObject const& other) const override {
        ++comparisons;
        return ZUTF8String::equals(other);
    }
    inline static long comparisons = 0;
};

/// Texts of one hash: in each step a choice of two that lead to the same number.
std::vector<std::string> textsOfOneHash(std::size_t steps) {
    std::vector<std::string> texts{""};
    for (std::size_t i = 0; i < steps; ++i) {
        std::map<unsigned long, std::string> ends;  // what leads to a number
        std::string one, other;
        for (int c = 0; c < 26 * 90 && other.empty(); ++c) {
            one = {static_cast<char>('a' + c / 90), static_cast<char>('!' + c % 90)};
            auto const place = ends.emplace(ZUTF8String((texts[0] + one).c_str()).hash(), one);
            if (!place.second) other = place.first->second;
        }
        for (std::size_t j = texts.size(); j-- > 0; texts[j] += one)
            texts.push_back(texts[j] + other);
    }
    return texts;
}

TEST_F(MapTest, TextsOfOneHashAreFoundWithoutAWalkThroughThemAndListedAsTheyCame) {
    std::vector<std::string> const texts = textsOfOneHash(11);
    ASSERT_EQ(std::set<std::string>(texts.begin(), texts.end()).size(), 2048U);
    ASSERT_EQ(CountedText(texts.front()).hash(), CountedText(texts.back()).hash());
    ZHashKeyMap map(10, 1);
    for (std::string const& text : texts) {
        CountedText const key(text);
        map.putEntry(&key, &key);
    }
    EXPECT_LT(CountedText::comparisons, 2048);
    CountedText::comparisons = 0;
    ZHashMap few(2, 1);
    for (int i = 0; i < 12; ++i)
        few.putEntry(std::make_unique<CountedText>(std::to_string(i)).get());
    EXPECT_EQ(0, CountedText::comparisons) << "texts that hash differently";
    EXPECT_EQ(map.size(), 2048U);
    ZArrayList keys(1, 0);
    map.listKeys(keys);
    for (unsigned int i = 0; i < keys.size(); ++i)
        ASSERT_EQ(dynamic_cast<ZUTF8String&>(*keys.get(i)), texts[i].c_str());
}

TEST_F(MapTest, TextsAreFoundByViewsOfEitherFamilyWhileTheFirstOfABucketComesAndGoes) {
    std::mt19937 random(3);
    ZHashKeyMap map(2, 1);
    std::map<std::string, int> model;
    auto const draw = [&] {
        return std::string(random() % 6 * 11, static_cast<char>('a' + random() % 3));
    };
    for (int i = 0; i < 3000; ++i) {
        std::string const text = draw();
        ZUTF8String const key(text.c_str());
        Number const value(i);
        if (random() % 2 == 0) {
            map.putEntry(&key, &value);
            model[text] = i;
        } else {
            map.removeEntry(&key);
            model.erase(text);
        }
        std::string const asked = draw();
        ZLCConstString const view(asked.c_str());
        ASSERT_EQ(model.count(asked) != 0 ? model[asked] : noNumber, valueOf(map.getEntry(&view)));
    }
}

std::unique_ptr<ZLCString> makeText(std::string const& text) {
    return std::make_unique<ZLCString>(text.c_str());
}

/// The map's own clones, of which it may have the only one, are put again, dropped and copied.
TEST_F(MapTest, OwnClonesOfTextsArePutAgainWithoutALossAndEndOnce) {
    ZHashMap map(20, 1);
    for (unsigned int const round : {0U, 1U, 2U}) {
        for (unsigned int i = 0; i <= 40 * round; ++i)
            map.putEntry(makeText(std::string(40 * round, 'x') + std::to_string(i)).get());
        ZArrayList entries(1, 0);
        map.list(entries);
        for (unsigned int i = 0; i < entries.size(); ++i) {
            map.putEntryNoCopy(entries.get(i));
            ASSERT_EQ(entries.get(i), map.getEntry(entries.get(i)));
        }
        ZHashMap const copy(map);
        EXPECT_EQ(map.size(), copy.size());
        map.putAll(map);
        EXPECT_EQ(copy.size(), map.size());
        if (round == 1) map.removeAll();
        for (unsigned int i = 0; i < entries.size() && round != 1; i += 2)
            map.removeEntry(ZMapIterator(map).getNext());
    }
}

/// Takes texts for equal whatever their case, and has a hash that agrees.
class CaselessText : public ZLCString {
  public:
    explicit CaselessText(std::string const& text) : ZLCString(text.c_str()) {}
    [[nodiscard]] ZLCString* clone() const override { return new CaselessText(*this); }
    [[nodiscard]] unsigned long hash() const override {
        ZLCString lower(*this);
        return lower.lower(), lower.hash();
    }
    [[nodiscard]] bool equals(ZObject const& other) const override {
        return compareignorecase(dynamic_cast<ZLCString const&>(other).getChars()) == 0;
    }
    CaselessText* me() { return this; }
};

TEST_F(MapTest, CrowdedTextsOfAClassWithAnEqualityOfItsOwnAreFoundByIt) {
    for (int const firstCaseless : {0, 200}) {
        ZHashMap map(2, 1);
        for (int i = 0; i < 300; ++i) {
            std::string const text = (i % 2 == 0 ? "key" : "KEY") + std::to_string(i);
            std::string const lower = "key" + std::to_string(i);
            map.putEntryNoCopy(i < firstCaseless ? new ZLCString(lower.c_str())
                                                 : new CaselessText(text));
            for (int const j : {0, i / 2, i})
                ASSERT_TRUE(map.contains(CaselessText("KeY" + std::to_string(j)).me())) << j;
        }
        for (int i = 0; i < 300; ++i)
            map.removeEntry(CaselessText("kEY" + std::to_string(i)).me());
        EXPECT_TRUE(map.isEmpty());
    }
}

/// A number that throws when it is asked too often, and whose end changes a map.
class Hostile : public Number {
  public:
    using Number::Number;
    ~Hostile() override {
        if (endsLeft-- > 0) atEnd();
    }
    [[nodiscard]] unsigned long hash() const override { return ask(), Number::hash(); }
    [[nodiscard]] bool equals(ZObject const& other) const override {
        return ask(), Number::equals(other);
    }
    [[nodiscard]] ZObject* clone() const override { return ask(), new Hostile(*this); }
    static void ask() {
        if (callsLeft-- == 0) throw ZInvalidParameterException();
    }
    inline static int callsLeft = -1;
    inline static int endsLeft = 0;
    inline static std::function<void()> atEnd;
};

template <class Map>
void putInto(Map& map, Number* entry, bool copied) {
    if constexpr (std::is_base_of_v<ZKeyMap, Map>) return map.putEntry(entry, entry);
    if constexpr (std::is_base_of_v<ZMap, Map>) {
        if (copied || entry == nullptr) return map.putEntry(entry);
        auto own = std::make_unique<Hostile>(entry->value);
        map.putEntryNoCopy(own.get());
        static_cast<void>(own.release());
    }
}

/// What happens to a map of one bucket, with null in it, by hostile members and without memory
/// happens to a row of values alike.
template <class Map>
void checkHostileMembers() {
    Values model;
    std::mt19937 random(4);
    Map map(2, 1);
    auto const placeOf = [&](int value) { return std::find(model.begin(), model.end(), value); };
    auto const put = [&](int value) {
        bool const isNew = placeOf(value) == model.end();
        if (isNew) model.push_back(value);
        Hostile entry(value);
        bool const copied = random() % 2 == 0;
        if (errorOf([&] { putInto(map, objectOf(entry), copied); }) != 0 && isNew)
            model.erase(placeOf(value));
    };
    auto const remove = [&](int value) {
        Values const before = model;
        model.erase(std::remove(model.begin(), model.end(), value), model.end());
        Hostile probe(value);
        if (errorOf([&] { map.removeEntry(objectOf(probe)); }) != 0) model = before;
    };
    auto const draw = [&](unsigned int from, unsigned int count) {
        return random() % 32 == 0 && from == 0 ? noNumber
                                               : 3 * static_cast<int>(from + random() % count);
    };
    Hostile::atEnd = [&] {
        int const calls = std::exchange(Hostile::callsLeft, -1);
        int const ends = std::exchange(Hostile::endsLeft, 0);
        int const value = draw(300, 100);  // not that which is being put
        random() % 3 == 0 ? remove(value) : put(value);
        Hostile::callsLeft = calls;
        Hostile::endsLeft = ends;
    };
    for (int i = 0; i < 2000; ++i) {
        auto const kind = random() % 100;
        Hostile::callsLeft = random() % 4 == 0 ? static_cast<int>(random() % 40) : -1;
        Hostile::endsLeft = random() % 4 == 0 ? static_cast<int>(random() % 40) : 0;
        if (random() % 8 == 0) fault = {"", 1, ENOMEM, everyone};
        if (kind == 0) {
            map.removeAll();
            model.clear();
        } else if (kind == 1) {
            static_cast<void>(errorOf([&] { map = Map(map); }));
        } else {
            kind < 50 ? remove(draw(0, 400)) : put(draw(0, 300));
        }
        Hostile::callsLeft = -1;
        Hostile::endsLeft = 0;
        fault = {};
        ASSERT_EQ(model, listed(map)) << "step " << i;
        Hostile probe(draw(0, 400));
        bool const isMember = placeOf(probe.value) != model.end();
        ASSERT_EQ(isMember, map.contains(objectOf(probe)));
        ASSERT_EQ(isMember ? probe.value : noNumber, valueOf(map.getEntry(objectOf(probe))));
    }
    std::unique_ptr<ZObject> const copy(map.clone());
    Map other(1, 1);
    other.putAll(map);
    EXPECT_EQ(model, listed(other));
    EXPECT_EQ(model, listed(dynamic_cast<Map&>(*copy)));
    Hostile::endsLeft = 500;  // while the map ends
}

TEST_F(MapTest, MembersThatThrowOrComeBackIntoTheMapLoseNoEntryAndNoOrder) {
    for (int const perHash : {1, 100000}) {
        Number::perHash = perHash;
        checkHostileMembers<ZArrayMap>();
        checkHostileMembers<ZHashMap>();
        checkHostileMembers<ZHashKeyMap>();
    }
    Hostile::endsLeft = 0;
}

/// Does something to the map whenever it is compared.
class Meddler : public Number {
  public:
    using Number::Number;
    [[nodiscard]] bool equals(ZObject const& other) const override {
        bool const isEqual = Number::equals(other);
        return action(), isEqual;
    }
    inline static std::function<void()> action;
};

TEST_F(MapTest, ProbeThatChangesTheMapWhileItIsComparedFindsWhatIsStillThere) {
    Number::perHash = 1000;
    for (int const count : {3, 100}) {
        for (Values const& left : {Values{}, Values{1, 2}}) {
            ZHashMap map(2, 1);
            for (int i = 0; i < count; ++i)
                put(map, {i});
            Meddler::action = [&] { map.removeAll(), put(map, left); };
            EXPECT_EQ(nullptr, map.getEntry(std::make_unique<Meddler>(count).get()));
            EXPECT_EQ(left, listed(map));
        }
        ZHashMap map(2, 1);
        put(map, {0});
        Meddler::action = [&] {
            for (int i = 1; i < count; ++i)
                put(map, {i});
        };
        EXPECT_EQ(0, valueOf(map.getEntry(std::make_unique<Meddler>(0).get())));
        EXPECT_EQ(static_cast<unsigned int>(count), map.size());
    }
}

/// What walks over the bucket for each removal does not come to an end within the test's time.
TEST_F(MapTest, RemovalFromACrowdedBucketComesToAnEndInAnyOrder) {
    constexpr int count = 100000;
    Number::perHash = 3;  // of the bucket of 0
    for (int const kind : {0, 1, 2}) {
        ZHashMap map(1, 1);
        Values order;
        for (int i = 0; i < count; ++i) {
            order.push_back(9 * i);
            map.putEntryNoCopy(new Number(9 * i));
        }
        if (kind == 1) std::reverse(order.begin(), order.end());
        if (kind == 2) std::shuffle(order.begin(), order.end(), std::mt19937(7));
        for (int const value : order)
            map.removeEntry(std::make_unique<Number>(value).get());
        EXPECT_TRUE(map.isEmpty()) << "order " << kind;
    }
}

}  // namespace
