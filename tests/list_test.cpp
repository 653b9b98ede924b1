#include "Z/ZList.h"

#include <algorithm>
#include <ctime>
#include <functional>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

#include "Z/ZStack.h"
#include "support/objects.h"

using namespace testsupport;

namespace {

class ListTest : public ObjectsTest {};
class StackTest : public ObjectsTest {};
class ListIteratorTest : public ObjectsTest {};

using Values = std::vector<int>;

TEST_F(ListTest, GrowsByHalfOfItself) {
    ZArrayList list(0, 1);
    std::vector<unsigned int> capacities = {list.capacity()};
    for (int i = 0; i < 16; ++i) {
        list.addNoCopy(new Number(i));
        if (list.capacity() != capacities.back()) capacities.push_back(list.capacity());
    }
    EXPECT_EQ((std::vector<unsigned int>{1, 2, 3, 4, 6, 9, 13, 19}), capacities);
    EXPECT_EQ(4U, ZArrayList(4, 0).capacity());
}

TEST_F(ListTest, SharingKeepsThePointersAndDeletesNothing) {
    Number one(1);
    Number two(2);
    {
        ZArrayList list(1, 0);
        list.add(&one);
        list.add(0, &two);
        list.set(0, &one);
        list.remove(0);
        list.addList(list);
        EXPECT_EQ(&one, ZArrayList(list).get(1));
        list.removeAll();
        list.add(&two);
    }
    EXPECT_EQ(2, Number::alive);
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
    list.set(1, list.get(1));
    list.setNoCopy(1, list.get(1));
    EXPECT_EQ(0, list.indexOf(static_cast<ZObject const*>(nullptr)));
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
        Number const probe(3);
        auto const first = std::find(model.begin(), model.end(), 3);
        auto const last = std::find(model.rbegin(), model.rend(), 3);
        ASSERT_EQ(first == model.end() ? -1 : first - model.begin(), list.indexOf(&probe));
        ASSERT_EQ(model.rend() - last - 1, list.lastIndexOf(&probe));
        ASSERT_EQ(first != model.end(), list.contains(&probe));
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
    failsAfter(0, [&] { list.set(1, &spare); });
    failsAfter(2, [&] { other.addList(list); });
    failsAfter(2, [&] { list.addList(list); });
    failsAfter(1, [&] { list.subList(other, 0, 2); });
    failsAfter(2, [&] { other = list; });
    failsAfter(2, [&] { ZArrayList const copy(list); });
}

TEST_F(ListTest, CopyOfAnOwningOneIsDeep) {
    ZArrayList owning(7, 1);
    fill(owning, {1, 2, noNumber});
    std::unique_ptr<ZObject> const copy(owning.clone());
    auto const& cloned = dynamic_cast<ZArrayList const&>(*copy);
    EXPECT_EQ(7U, cloned.capacity());
    owning.removeAll();
    owning = cloned;
    EXPECT_EQ((Values{1, 2, noNumber}), valuesOf(owning));
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
