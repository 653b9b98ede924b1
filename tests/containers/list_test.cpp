#include "Z/ZList.h"

#include <algorithm>
#include <ctime>
#include <functional>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "Z/ZArray.h"
#include "Z/ZStack.h"
#include "support/objects.h"

using namespace testsupport;

namespace {

using Values = std::vector<int>;

void put(ZArray& array, unsigned int i, ZObject* object) { array.setNoCopy(i, object); }
void put(ZArrayList& list, unsigned int i, ZObject* object) { list.addNoCopy(i, object); }

/// Fills an empty row with numbers of its own.
template <class Row>
void fillRow(Row& row, Values const& values) {
    for (unsigned int i = 0; i < values.size(); ++i)
        put(row, i, values[i] == noNumber ? nullptr : new Number(values[i]));
}

template <class Row>
Values membersOf(Row const& row) {
    Values values;
    for (unsigned int i = 0; i < row.size(); ++i)
        values.push_back(valueOf(row.get(i)));
    return values;
}

/// What arrays and lists have in common.
template <class Row>
class RowTest : public ObjectsTest {};
using Rows = testing::Types<ZArray, ZArrayList>;
struct RowNames {
    template <class Row>
    static std::string GetName(int) {
        return std::is_same_v<Row, ZArray> ? "Array" : "List";
    }
};
TYPED_TEST_SUITE(RowTest, Rows, RowNames);

TYPED_TEST(RowTest, OwningHoldsClonesAndDeletesWhatItDrops) {
    TypeParam row(3, 1);
    fillRow(row, {1, 2, noNumber});
    Number seven(7);
    auto* const eight = new Number(8);
    row.set(0, &seven);
    row.setNoCopy(1, eight);
    EXPECT_NE(&seven, row.get(0));
    EXPECT_EQ(eight, row.get(1));
    row.set(2, eight);
    row.set(2, row.get(2));
    row.setNoCopy(2, row.get(2));
    row.set(0, nullptr);
    EXPECT_EQ((Values{noNumber, 8, 8}), membersOf(row));
    EXPECT_EQ(3, Number::alive);
    row.removeAll();
    EXPECT_EQ(1, Number::alive);
    fillRow(row, {1, 2, 3});  // for the destructor
}

TYPED_TEST(RowTest, SharingKeepsThePointersAndDeletesNothing) {
    Number one(1);
    Number two(2);
    {
        TypeParam row(2, 0);
        put(row, 0, &one);
        put(row, 1, &one);
        row.set(1, &two);
        EXPECT_EQ(&two, TypeParam(row).get(1));
        row.remove(0);
        EXPECT_EQ(0, row.ownsMembers());
    }
    EXPECT_EQ(2, Number::alive);
}

TYPED_TEST(RowTest, CopyOfAnOwningOneIsDeepOrFailsAndChangesNothing) {
    TypeParam row(2, 1);
    fillRow(row, {1, 2});
    TypeParam target(1, 1);
    fillRow(target, {5});
    Number::clonesLeft = 1;
    EXPECT_EQ(notClonable, thrownBy([&] { target = row; }));
    EXPECT_EQ(notClonable, thrownBy([&] { row.set(0, row.get(1)); }));
    EXPECT_EQ((Values{1, 2}), membersOf(row));
    EXPECT_EQ((Values{5}), membersOf(target));
    EXPECT_EQ(3, Number::alive);
    Number::clonesLeft = -1;
    std::unique_ptr<ZObject> const copy(row.clone());
    row.removeAll();
    TypeParam const& itself = target = dynamic_cast<TypeParam const&>(*copy);
    target = itself;
    EXPECT_EQ((Values{1, 2}), membersOf(target));
    EXPECT_EQ(1, target.ownsMembers());
}

TYPED_TEST(RowTest, FindsByTheEqualsOfTheObjectGiven) {
    TypeParam row(5, 1);
    fillRow(row, {noNumber, 1, 2, noNumber, 1});
    struct Search {
        int value, first, last;
    };
    for (Search const& search : {Search{1, 1, 4}, Search{2, 2, 2}, Search{3, -1, -1}}) {
        Number const probe(search.value);
        EXPECT_EQ(search.first, row.indexOf(&probe));
        EXPECT_EQ(search.last, row.lastIndexOf(&probe));
        EXPECT_EQ(search.first >= 0, row.contains(&probe));
    }
    ZObject const* const none = nullptr;
    EXPECT_EQ(0, row.indexOf(none));
    EXPECT_EQ(3, row.lastIndexOf(none));
    row.swap(1, 2);
    row.swap(4, 4);
    EXPECT_EQ((Values{noNumber, 2, 1, noNumber, 1}), membersOf(row));
}

class ArrayTest : public ObjectsTest {};
class ListTest : public ObjectsTest {};
class StackTest : public ObjectsTest {};
class ListIteratorTest : public ObjectsTest {};

TEST_F(ArrayTest, BadIndexOrLengthIsRefused) {
    ZArray array(2, 1);
    Number one(1);
    std::function<void()> const accesses[] = {
        [&] { static_cast<void>(array.get(2)); },
        [&] { array.set(2, &one); },
        [&] { array.setNoCopy(2, &one); },
        [&] { array.remove(~0U); },
        [&] { array.swap(0, 2); },
        [&] { array.swap(2, 0); },
        [&] { array.swap(2, 2); },
    };
    for (auto const& access : accesses)
        EXPECT_EQ(invalidParameter, thrownBy(access));
    EXPECT_EQ((Values{noNumber, noNumber}), membersOf(array));
    EXPECT_EQ(1U, ZArray(0, 0).size());
    for (unsigned int const length : {~0U, ~0U / 2 + 1})
        EXPECT_EQ(outOfMemory, thrownBy([&] { ZArray const tooLong(length, 0); }));
}

TEST_F(ListTest, GrowsByHalfOfItself) {
    ZArrayList list(0, 1);
    std::vector<unsigned int> capacities = {list.capacity()};
    for (int i = 0; i < 16; ++i) {
        list.addNoCopy(new Number(i));
        if (list.capacity() != capacities.back()) capacities.push_back(list.capacity());
    }
    EXPECT_EQ((std::vector<unsigned int>{1, 2, 3, 4, 6, 9, 13, 19}), capacities);
    EXPECT_EQ(4U, ZArrayList(4, 0).capacity());
    EXPECT_EQ(19U, ZArrayList(list).capacity());
}

TEST_F(ListTest, BadIndexAndTheMemberItselfChangeNothing) {
    ZArrayList list(2, 1);
    fill(list, {noNumber, 2});
    Number spare(3);
    for (unsigned int const bad : {3U, ~0U}) {
        list.set(bad, &spare);
        list.setNoCopy(bad, &spare);
        list.add(bad, &spare);
        list.addNoCopy(bad, &spare);
        list.remove(bad);
        list.swap(0, bad);
        list.swap(bad, 1);
        EXPECT_EQ(nullptr, list.get(bad));
    }
    list.remove(-1);
    EXPECT_EQ((Values{noNumber, 2}), valuesOf(list));
    list.add(list.get(1));
    list.remove(list.get(1));
    EXPECT_EQ((Values{noNumber, 2}), valuesOf(list));
    EXPECT_EQ(2, Number::alive);
}

/// One random step on list and model; the model knows the effect of every operation.
void step(ZArrayList& list, Values& model, std::mt19937& random) {
    Number number(static_cast<int>(random() % 8));
    auto const at = static_cast<unsigned int>(random() % (model.size() + 1));
    auto const place = model.begin() + at;
    struct {
        std::function<void()> onList, onModel;
    } const steps[] = {
        {[&] { list.add(&number); }, [&] { model.push_back(number.value); }},
        {[&] { list.add(at, &number); }, [&] { model.insert(place, number.value); }},
        {[&] { list.addNoCopy(at, new Number(9)); }, [&] { model.insert(place, 9); }},
        {[&] { list.set(at, &number); }, [&] { *place = number.value; }},
        {[&] { list.swap(at, 0); }, [&] { std::swap(*place, model.front()); }},
        {[&] { list.remove(at); }, [&] { model.erase(place); }},
        {[&] { list.remove(list.get(at)); },
         [&] { model.erase(std::find(model.begin(), model.end(), *place)); }},
    };
    auto const& chosen = steps[random() % (at < model.size() ? std::size(steps) : 3)];
    chosen.onList();
    chosen.onModel();
}

TEST_F(ListTest, DoesWhatAVectorDoes) {
    ZArrayList list(1, 1);
    Values model;
    std::mt19937 random(1);
    for (int i = 0; i < 5000; ++i) {
        step(list, model, random);
        ASSERT_EQ(model, valuesOf(list)) << "step " << i;
        ASSERT_EQ(static_cast<int>(model.size()), Number::alive);
        if (model.size() > 40) list.removeAll(), model.clear();
    }
}

TEST_F(ListTest, SubListIsCutToTheSize) {
    ZArrayList list(1, 1);
    fill(list, {0, 1, 2, 3});
    struct Row {
        unsigned int from, to;
        Values expected;
    };
    for (Row const& row : {Row{1, 3, {1, 2}}, Row{2, 99, {2, 3}}, Row{3, 1, {}}, Row{9, 12, {}}}) {
        ZArrayList out(1, 1);
        list.subList(out, row.from, row.to);
        EXPECT_EQ(row.expected, valuesOf(out));
    }
    list.subList(list, 0, 99);
    EXPECT_EQ((Values{0, 1, 2, 3, 0, 1, 2, 3}), valuesOf(list));
}

TEST_F(ListTest, FailedCloneLeavesTheListAsItWas) {
    ZArrayList list(1, 1);
    fill(list, {1, 2, 3});
    ZArrayList other(1, 1);
    fill(other, {7});
    Number spare(9);
    auto const failsAfter = [&](int clones, auto action) {
        Number::clonesLeft = clones;
        EXPECT_EQ(notClonable, thrownBy(action));
        EXPECT_EQ((Values{1, 2, 3}), valuesOf(list));
        EXPECT_EQ((Values{7}), valuesOf(other));
        EXPECT_EQ(5, Number::alive);
    };
    failsAfter(0, [&] { list.add(&spare); });
    failsAfter(0, [&] { list.add(1, &spare); });
    failsAfter(2, [&] { other.addList(list); });
    failsAfter(2, [&] { list.addList(list); });
    failsAfter(1, [&] { list.subList(other, 0, 2); });
}

TEST_F(ListTest, ShufflesOfOneSecondAreAlike) {
    Values all(50);
    std::iota(all.begin(), all.end(), 0);
    auto const shuffled = [&] {
        ZArrayList list(1, 1);
        fill(list, all);
        list.shuffle();
        return valuesOf(list);
    };
    Values first;
    Values second;
    std::time_t start = 0;
    do {
        start = std::time(nullptr);
        first = shuffled();
        second = shuffled();
    } while (std::time(nullptr) != start);
    EXPECT_EQ(first, second);
    EXPECT_NE(all, first);
    EXPECT_TRUE(std::is_permutation(all.begin(), all.end(), first.begin()));
    ZArrayList(1, 0).shuffle();
}

TEST_F(ListIteratorTest, WalksBacksUpRemovesAndFinds) {
    ZArrayList list(1, 1);
    fill(list, {1, 2, noNumber, 2, 4});
    ZListIterator iterator(list);
    Number const two(2);
    EXPECT_EQ(-1, iterator.indexOf());
    iterator.backUp();
    list.remove(iterator);
    EXPECT_EQ(1, valueOf(iterator.getNext()));
    EXPECT_EQ(list.get(1), iterator.findNext(two));
    EXPECT_EQ(1, list.indexOf(iterator));
    iterator.backUp();
    EXPECT_EQ(2, valueOf(iterator.getNext()));
    list.remove(iterator);
    EXPECT_EQ((Values{1, noNumber, 2, 4}), valuesOf(list));
    EXPECT_EQ(list.get(2), iterator.findNext(two));
    EXPECT_EQ(nullptr, iterator.findNext(two));
    EXPECT_FALSE(iterator.hasMore());
    EXPECT_EQ(nullptr, iterator.getNext());
    ZArrayList twin(list);
    twin.remove(iterator);
    EXPECT_EQ(4U, twin.size()) << "it walks another list";
    list.remove(3);
    list.remove(iterator);
    EXPECT_EQ((Values{1, noNumber, 2}), valuesOf(list)) << "its member is gone";
    iterator.reset();
    EXPECT_EQ(1, valueOf(iterator.getNext()));
}

TEST_F(StackTest, GivesTheLastFirstAndEndsAtANull) {
    Number one(1);
    Number two(2);
    ZArrayStack stack(0);
    EXPECT_EQ(nullptr, stack.pop());
    stack.push(&one);
    stack.push(&two);
    ZArrayStack const copy(stack);
    EXPECT_EQ(&two, stack.pop());
    EXPECT_EQ(&one, stack.pop());
    EXPECT_EQ(nullptr, stack.pop());
    stack = copy;
    stack.push(nullptr);
    stack.push(&one);
    stack.popall();
    EXPECT_EQ(2U, stack.size());
}

}  // namespace
