#include "Z/ZMap.h"

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "Z/ZKeyMap.h"
#include "support/objects.h"

using namespace testsupport;

namespace {

using Values = std::vector<int>;

class ArrayMapTest : public ObjectsTest {};
class HashMapTest : public ObjectsTest {};
class KeyEntryTest : public ObjectsTest {};
class KeyMapTest : public ObjectsTest {};
class MapIteratorTest : public ObjectsTest {};

void put(ZMap& map, Values const& values) {
    for (int const value : values) {
        Number number(value);
        map.putEntry(&number);
    }
}

Values listed(ZMap const& map) {
    ZArrayList list(1, 0);
    map.list(list);
    return valuesOf(list);
}

/// What holds for both kinds of map, owning ones.
void checkOwningMap(ZMap& map) {
    put(map, {1, 2, 3, 2, 1});
    EXPECT_EQ(3, Number::alive);
    Number two(2);
    Number nine(9);
    EXPECT_EQ(2, valueOf(map.getEntry(&two)));
    EXPECT_EQ(nullptr, map.getEntry(&nine));
    map.putEntry(map.getEntry(&two));
    map.removeEntry(&nine);
    map.removeEntry(map.getEntry(&two));
    EXPECT_FALSE(map.contains(&two));

    Number one(1);
    Number::clonesLeft = 0;
    for (Number* const entry : {&one, &two})
        EXPECT_EQ(notClonable, thrownBy([&] { map.putEntry(entry); }));
    Number::clonesLeft = -1;
    EXPECT_EQ((Values{1, 3}), listed(map));

    map.putEntry(nullptr);
    map.putEntry(nullptr);
    EXPECT_EQ(3U, map.size());
    EXPECT_TRUE(map.contains(nullptr));
    map.removeEntry(nullptr);
    map.putAll(map);
    EXPECT_EQ((Values{1, 3}), listed(map));
    map.removeAll();
    EXPECT_TRUE(map.isEmpty());
    put(map, {4, 5});  // for the destructor
}

TEST_F(HashMapTest, OwningHoldsOneCloneForEqualEntries) {
    ZHashMap map(4, 1);
    checkOwningMap(map);
}

TEST_F(ArrayMapTest, OwningHoldsOneCloneForEqualEntriesInTheirOrder) {
    ZArrayMap map(1, 1);
    checkOwningMap(map);
    put(map, {1, 4, 3});
    EXPECT_EQ((Values{4, 5, 1, 3}), listed(map));
    ZArrayMapIterator iterator(map);
    Number const one(1);
    EXPECT_EQ(map.getEntry(&one), iterator.findNext(one));
    EXPECT_EQ(2, map.getIndex(&one));
}

TEST_F(HashMapTest, HasOneAndAHalfTimesItsSizeInBuckets) {
    struct Row {
        unsigned int size;
        int buckets;
    };
    for (Row const& row : {Row{0, 3}, Row{1, 3}, Row{2, 3}, Row{3, 4}, Row{7, 10}, Row{100, 150}}) {
        // As many as there are buckets falls into the first one, one less into the last.
        ZHashMap map(row.size, 1);
        put(map, {row.buckets - 1, row.buckets});
        EXPECT_EQ((Values{row.buckets, row.buckets - 1}), listed(map)) << row.size;
    }
    // More than an index could tell. In 32 bits the last ones would come to a handful of buckets.
    for (unsigned int const size : {~0U, 1431655766U, 2863311531U, 2863311532U})
        EXPECT_EQ(outOfMemory, thrownBy([&] { ZHashMap const map(size, 0); }));
}

TEST_F(HashMapTest, NonOwningFindsByIdentityWhereObjectsHaveNoContent) {
    ZObject first;
    ZObject second;
    ZHashMap map(2, 0);
    for (ZObject* const entry : {&first, &second, &first})
        map.putEntry(entry);
    EXPECT_EQ(2U, map.size());
    EXPECT_EQ(&second, map.getEntry(&second));
}

TEST_F(HashMapTest, CopyAndPutAllHoldTheirOwnClones) {
    ZHashMap map(2, 1);
    put(map, {1, 2, 3, 4, 5});
    std::unique_ptr<ZObject> const copy(map.clone());
    auto& cloned = dynamic_cast<ZHashMap&>(*copy);
    ZArrayMap other(1, 1);
    other.putAll(map);
    EXPECT_EQ(15, Number::alive);
    map.removeAll();
    EXPECT_EQ(listed(other), listed(cloned));
    EXPECT_EQ(5U, cloned.size());
    map = cloned;
    EXPECT_EQ(5U, map.size());
    ZArrayList full(1, 1);
    Number::clonesLeft = 4;
    EXPECT_EQ(notClonable, thrownBy([&] { map.list(full); }));
    EXPECT_TRUE(full.isEmpty());
}

TEST_F(MapIteratorTest, WalksTheEntriesOfTheTimeItWasMade) {
    ZHashMap map(4, 1);
    put(map, {1, 2});
    ZMapIterator iterator(map);
    put(map, {3});
    EXPECT_EQ(1, valueOf(iterator.getNext()));
    EXPECT_EQ(2, valueOf(iterator.getNext()));
    EXPECT_FALSE(iterator.hasMore());
    EXPECT_EQ(nullptr, iterator.getNext());
    iterator.reset();
    EXPECT_EQ(1, valueOf(iterator.getNext()));
}

TEST_F(KeyEntryTest, ComparesKeysAlone) {
    Number one(1);
    Number two(2);
    ZKeyEntry const low(&one, &two, 0);
    ZKeyEntry const high(&two, nullptr, 0);
    ZKeyEntry const none(nullptr, &one, 0);
    EXPECT_LT(low.compare(high), 0);
    EXPECT_LT(none.compare(low), 0);
    EXPECT_GT(low.compare(none), 0);
    EXPECT_TRUE(none.equals(ZKeyEntry(nullptr, &two, 0)));
    EXPECT_TRUE(low.equals(ZKeyEntry(&one, nullptr, 0)));
    EXPECT_FALSE(low.equals(one));
    EXPECT_EQ(0U, none.hash());

    EXPECT_EQ(1U, low.hash());
    EXPECT_FALSE(low.equals(ZKeyEntry(&one, nullptr, 0))) << "hashes that are known differ";
    std::unique_ptr<ZObject> const copy(low.clone());
    EXPECT_TRUE(low.equals(*copy));
}

TEST_F(KeyEntryTest, CopyingHoldsClonesAndKeepsANullValue) {
    auto key = std::make_unique<Number>(1);
    ZKeyEntry entry(key.get(), nullptr, 1);
    key.reset();
    std::unique_ptr<ZObject> const copy(entry.clone());
    EXPECT_EQ(1, valueOf(dynamic_cast<ZKeyEntry&>(*copy).getKey()));
    EXPECT_EQ(nullptr, dynamic_cast<ZKeyEntry&>(*copy).getValue());
    EXPECT_EQ(2, Number::alive);
    Number two(2);
    ZKeyEntry const full(&two, &two, 1);
    for (int const clones : {0, 1}) {
        Number::clonesLeft = clones;
        EXPECT_EQ(notClonable, thrownBy([&] { entry = full; }));
    }
    EXPECT_EQ(1, valueOf(entry.getKey()));
    Number::clonesLeft = -1;
    entry = full;
    EXPECT_EQ(2, valueOf(entry.getValue()));
}

TEST_F(KeyMapTest, SharingGivesTheCallersPointersBackAndTakesNull) {
    Number value(10);
    ZHashKeyMap map(10, 0);
    map.putEntry(&value, &value);
    map.putEntry(nullptr, &value);
    EXPECT_EQ(&value, map.getEntry(&value));
    EXPECT_EQ(&value, map.getEntry(nullptr));
    map.putEntry(nullptr, nullptr);
    EXPECT_EQ(nullptr, map.getEntry(nullptr));
    EXPECT_TRUE(map.contains(nullptr));
    map.removeEntry(nullptr);
    EXPECT_EQ(1U, map.size());
}

TEST_F(KeyMapTest, FailedCloneLeavesTheMapAsItWas) {
    ZHashKeyMap map(2, 1);
    Number one(1);
    Number two(2);
    map.putEntry(&one, &one);
    for (int const clones : {0, 1}) {
        for (Number* const key : {&one, &two}) {
            Number::clonesLeft = clones;
            EXPECT_EQ(notClonable, thrownBy([&] { map.putEntry(key, &two); }));
        }
    }
    EXPECT_EQ(1U, map.size());
    EXPECT_EQ(1, valueOf(map.getEntry(&one)));
    EXPECT_EQ(4, Number::alive);
}

/// Expects the pairs of the model, in any order, each key beside its value.
void expectPairs(std::map<int, int> const& model, ZHashKeyMap const& map) {
    ZArrayList keys(1, 0);
    ZArrayList values(1, 0);
    map.listKeys(keys);
    map.listObjects(values);
    std::map<int, int> pairs;
    for (unsigned int i = 0; i < keys.size(); ++i)
        pairs[valueOf(keys.get(i))] = valueOf(values.get(i));
    EXPECT_EQ(model, pairs);
    EXPECT_EQ(model.size(), values.size());
}

/// Puts, removes and looks for numbers from a range in a map and in the standard one, and copies.
void checkAgainstStandardMap(unsigned int size, unsigned int range) {
    ZHashKeyMap map(size, 1);
    std::map<int, int> model;
    std::mt19937 random(3);
    auto const draw = [&] { return static_cast<int>(random() % range - range / 2); };
    for (int i = 0; i < 20000; ++i) {
        Number const key(draw());
        Number const value(i);
        if (random() % 3 != 0) {
            map.putEntry(&key, &value);
            model[key.value] = i;
        } else {
            map.removeEntry(&key);
            model.erase(key.value);
        }
        Number const probe(draw());
        auto const found = model.find(probe.value);
        ASSERT_EQ(found != model.end(), map.contains(&probe));
        ASSERT_EQ(found != model.end() ? found->second : noNumber, valueOf(map.getEntry(&probe)));
        ASSERT_EQ(model.size(), map.size());
    }
    ZHashKeyMap other(50, 1);
    other.putAll(map);
    other.putAll(other);
    std::unique_ptr<ZObject> const copy(other.clone());
    map.removeAll();
    EXPECT_TRUE(map.isEmpty());
    expectPairs(model, other);
    expectPairs(model, dynamic_cast<ZHashKeyMap&>(*copy));
}

TEST_F(KeyMapTest, DoesWhatAStandardMapDoes) { checkAgainstStandardMap(7, 200); }
TEST_F(KeyMapTest, DoesWhatAStandardMapDoesWithCrowdedBuckets) { checkAgainstStandardMap(2, 2000); }

TEST_F(HashMapTest, ACrowdedBucketKeepsTheOrderOfInsertionThroughRemovalsAndCopies) {
    ZHashMap map(2, 1);
    Values order;
    for (int i = 0; i < 300; i += 3)  // all in one of the three buckets
        order.push_back((i * 7) % 300);
    put(map, order);
    for (int const gone : {0, 150, 297, 21}) {
        Number number(gone);
        map.removeEntry(&number);
        order.erase(std::find(order.begin(), order.end(), gone));
    }
    put(map, {21, order.front()});
    order.push_back(21);
    EXPECT_EQ(order, listed(map));
    ZHashMap copy(map);
    map.removeAll();
    put(map, {9, 3});
    EXPECT_EQ((Values{9, 3}), listed(map));
    put(copy, {300});
    order.push_back(300);
    EXPECT_EQ(order, listed(copy));
    Number last(300);
    EXPECT_EQ(300, valueOf(copy.getEntry(&last)));
}

}  // namespace
