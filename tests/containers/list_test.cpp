// link: static
// wrap: calloc,realloc,time

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <memory>
#include <numeric>
#include <random>
#include <tuple>
#include <utility>
#include <vector>

#include "Z/ZArray.h"
#include "Z/ZList.h"
#include "Z/ZStack.h"
#include "support/objects.h"

using namespace testsupport;

WRAP(calloc, void*, nullptr, (std::size_t count, std::size_t size), (count, size))
WRAP(realloc, void*, nullptr, (void* block, std::size_t size), (block, size))
extern "C" std::time_t __wrap_time(std::time_t*) { return 1; }

namespace {

class ListTest : public ObjectsTest {};
class SortTest : public ObjectsTest {};

TEST_F(ListTest, OwningArrayHoldsClonesDeletesWhatItDropsAndIsCopiedDeeplyOrNotAtAll) {
    Number seven(7);
    auto* const eight = new Number(8);
    ZArray array(3, 1);
    array.setNoCopy(1, eight);
    array.setNoCopy(1, eight);
    EXPECT_EQ(eight, array.get(1));
    array.set(0, &seven);
    array.set(0, nullptr);
    array.set(2, array.get(1));
    array.set(2, array.get(2));
    Number::clonesLeft = 1;
    ZArray target(1, 1);
    target.set(0, &seven);
    EXPECT_EQ(notClonable, errorOf([&] { array.set(1, &seven); }));
    Number::clonesLeft = 1;
    EXPECT_EQ(notClonable, errorOf([&] { target = array; }));
    Number::clonesLeft = -1;
    EXPECT_EQ(outOfMemory, errorWithoutMemory([&] { target = array; }));
    EXPECT_EQ((Values{7}), valuesOf(target));
    std::unique_ptr<ZObject> const copy(array.clone());
    EXPECT_EQ(6, Number::alive);
    array.removeAll();
    EXPECT_EQ(4, Number::alive);
    ZArray const& itself = target = dynamic_cast<ZArray const&>(*copy);
    target = itself;
    EXPECT_EQ((Values{noNumber, 8, 8}), valuesOf(target));
    EXPECT_EQ(1, target.ownsMembers());
}

TEST_F(ListTest, BadIndexOrLengthOfAnArrayIsRefused) {
    ZArray array(2, 1);
    Number one(1);
    EXPECT_EQ(invalidParameter, errorOf([&] { static_cast<void>(array.get(2)); }));
    EXPECT_EQ(invalidParameter, errorOf([&] { array.set(2, &one); }));
    EXPECT_EQ(invalidParameter, errorOf([&] { array.swap(0, 2); }));
    EXPECT_EQ(invalidParameter, errorOf([&] { array.swap(2, 0); }));
    EXPECT_EQ(1U, ZArray(0, 0).size());
    EXPECT_EQ(outOfMemory, errorOf([] { ZArray const tooLong(~0U / 2 + 1, 0); }));
}

/// Finds by the equals() of the object given, and deletes no member that it shares.
template <class Row>
void checkSharing(Row row) {
    Number one(1);
    Number two(2);
    row.set(1, &one);
    row.set(2, &two);
    row.set(4, &one);
    for (auto const& [value, first, last] :
         {std::tuple(1, 1, 4), std::tuple(3, -1, -1), std::tuple(noNumber, 0, 3)}) {
        Number probe(value);
        EXPECT_EQ(first, row.indexOf(objectOf(probe)));
        EXPECT_EQ(last, row.lastIndexOf(objectOf(probe)));
        EXPECT_EQ(first >= 0, row.contains(objectOf(probe)));
    }
    row.swap(1, 2);
    EXPECT_EQ((Values{noNumber, 2, 1, noNumber, 1}), valuesOf(row));
    row.remove(0);
    row.set(1, nullptr);
    row.removeAll();
    EXPECT_EQ(2, Number::alive);
}

TEST_F(ListTest, SharingFindsMembersAndDeletesNone) {
    checkSharing(ZArray(5, 0));
    ZArrayList list(5, 0);
    fill(list, Values(5, noNumber));
    checkSharing(list);
}

/// One random call on the list, at times without a clone or memory; the model knows what it does.
void step(ZArrayList& list, Values& model, std::mt19937& random) {
    auto const size = static_cast<unsigned int>(model.size());
    auto const draw = [&] { return static_cast<unsigned int>(random() % (size + 2)); };
    unsigned int const at = random() % 16 == 0 ? ~0U : draw();
    unsigned int const to = draw();
    bool const isInside = at < size;
    Number number(random() % 8 == 0 ? noNumber : static_cast<int>(random() % 8));
    Number* const object = objectOf(number);
    auto own = std::make_unique<Number>(9);
    auto const place = model.begin() + std::min(at, size);
    auto const found = std::find(model.begin(), model.end(), isInside ? *place : noNumber);
    Values const all = model;
    Values const part(place, std::max(place, model.begin() + std::min(to, size)));
    struct {
        bool hasEffect;
        std::function<void()> onList, onModel;
    } const calls[] = {
        {true, [&] { list.add(object); }, [&] { model.push_back(number.value); }},
        {at <= size, [&] { list.add(at, object); }, [&] { model.insert(place, number.value); }},
        {at <= size, [&] { list.addNoCopy(at, own.get()); },
         [&] { model.insert(place, own.release()->value); }},
        {isInside, [&] { list.set(at, object); }, [&] { *place = number.value; }},
        {isInside, [&] { list.setNoCopy(at, own.get()); }, [&] { *place = own.release()->value; }},
        {false, [&] { list.set(at, list.get(at)), list.setNoCopy(at, list.get(at)); }, nullptr},
        {false, [&] { list = dynamic_cast<ZArrayList&>(*std::unique_ptr<ZObject>(list.clone())); },
         nullptr},
        {true, [&] { list.addList(list); },
         [&] { model.insert(model.end(), all.begin(), all.end()); }},
        {isInside && to < size, [&] { list.swap(at, to); }, [&] { std::swap(*place, model[to]); }},
        {isInside, [&] { list.remove(at); }, [&] { model.erase(place); }},
        {found != model.end(), [&] { list.remove(list.get(at)); }, [&] { model.erase(found); }},
        {true, [&] { list.subList(list, at, to); },
         [&] { model.insert(model.end(), part.begin(), part.end()); }},
    };
    auto const& call = calls[random() % std::size(calls)];
    if (errorAtTimes(random, call.onList) == 0 && call.hasEffect) call.onModel();
}

TEST_F(ListTest, DoesWhatAVectorDoesAndNothingWhenItFails) {
    ZArrayList list(0, 1);
    Values model;
    std::mt19937 random(1);
    for (int i = 0; i < 10000; ++i) {
        step(list, model, random);
        ASSERT_EQ(model, valuesOf(list)) << "step " << i;
        ASSERT_LE(model.size(), list.capacity());
        auto const nulls = std::count(model.begin(), model.end(), noNumber);
        ASSERT_EQ(static_cast<long>(model.size()) - nulls, Number::alive);
        if (model.size() < 40) continue;
        list = ZArrayList(0, 1);
        model.clear();
    }
}

TEST_F(ListTest, ShufflesOfOneSecondAreAlike) {
    Values const all = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    ZArrayList first(1, 1);
    fill(first, all);
    ZArrayList second(first);
    first.shuffle();
    second.shuffle();
    EXPECT_EQ(valuesOf(first), valuesOf(second));
    EXPECT_NE(all, valuesOf(first));
    EXPECT_TRUE(std::is_permutation(all.begin(), all.end(), valuesOf(first).begin()));
}

TEST_F(ListTest, IteratorWalksBacksUpRemovesAndFinds) {
    ZArrayList list(1, 1);
    fill(list, {1, 2, noNumber, 2, 4});
    ZListIterator iterator(list);
    Number const two(2);
    iterator.backUp();
    list.remove(iterator);
    Values walked;
    for (ZObject const* const member : list)
        walked.push_back(valueOf(member));
    EXPECT_EQ(valuesOf(list), walked);
    EXPECT_EQ(1, valueOf(iterator.getNext()));
    EXPECT_EQ(list.get(1), iterator.findNext(two));
    EXPECT_EQ(1, list.indexOf(iterator));
    iterator.backUp();
    EXPECT_EQ(2, valueOf(iterator.getNext()));
    list.remove(iterator);
    EXPECT_EQ((Values{1, noNumber, 2, 4}), valuesOf(list));
    EXPECT_EQ(list.get(2), iterator.findNext(two));
    EXPECT_EQ(nullptr, iterator.findNext(two));
    ZArrayList twin(list);
    twin.remove(iterator);
    EXPECT_EQ(4U, twin.size()) << "it walks another list";
    list.remove(3);
    list.remove(iterator);
    EXPECT_EQ((Values{1, noNumber, 2}), valuesOf(list)) << "its member is gone";
}

TEST_F(ListTest, StackGivesTheLastFirstAndEndsAtANull) {
    Number one(1);
    Number two(2);
    ZArrayStack stack(0);
    for (Number* const number : {&one, static_cast<Number*>(nullptr), &two, &two, &one})
        stack.push(number);
    EXPECT_EQ(&one, stack.pop());
    stack.popall();
    EXPECT_EQ(&one, stack.pop());
    EXPECT_EQ(nullptr, stack.pop());
}

constexpr auto ascending = ZSortCompare::ascending;
constexpr auto descending = ZSortCompare::descending;

/// Counts, and asks a function of the two values.
struct Comparator : ZSortCompare {
    explicit Comparator(std::function<int(int, int)> function) : compare(std::move(function)) {}
    [[nodiscard]] int sortCompare(ZObject const* a, ZObject const* b) const override {
        ++comparisons;
        if (a == nullptr || b == nullptr) ADD_FAILURE() << "null was compared";
        return compare(valueOf(a), valueOf(b));
    }
    std::function<int(int, int)> const compare;
    mutable long comparisons = 0;
};

/// A list that is sorted without knowledge of its storage.
class PlainList : public ZArrayList {
  public:
    using ZArrayList::ZArrayList;
    void quickSort(ZSortCompare const& cmp, ZSortCompare::sortorder order, unsigned int lo,
                   unsigned int hi) override {
        ZAbstractList::quickSort(cmp, order, lo, hi);
    }
};

Values numbers(int count) {
    Values values(static_cast<std::size_t>(count));
    std::iota(values.begin(), values.end(), 0);
    return values;
}

Values randomValues(int count, unsigned int limit) {
    std::mt19937 random(1);
    Values values(static_cast<std::size_t>(count));
    std::generate(values.begin(), values.end(), [&] { return static_cast<int>(random() % limit); });
    return values;
}

Values sorted(Values values, ZSortCompare::sortorder order = ascending) {
    std::sort(values.begin(), values.end());
    if (order == descending) std::reverse(values.begin(), values.end());
    return values;
}

template <class List = ZArrayList>
Values sortedByList(Values const& values, ZSortCompare const& cmp,
                    ZSortCompare::sortorder order = ascending) {
    List list(1, 1);
    fill(list, values);
    list.sort(cmp, order);
    return valuesOf(list);
}

/// The comparisons that it takes to sort these.
long comparisonsOf(Values const& values) {
    Comparator const counting([](int a, int b) { return a - b; });
    EXPECT_EQ(sorted(values), sortedByList(values, counting));
    return counting.comparisons;
}

/// What n log2 n comparisons with the factor that the sort promises, and small parts, come to.
constexpr int many = 20000;
long const bound = std::lround(5.0 * many * std::log2(many));

TEST_F(SortTest, SortsWhateverOrderItIsGivenAndPutsNullsBehind) {
    // Level with each other when their tens are, so that their order shows how they were sorted.
    Comparator const byTens([](int a, int b) { return a / 10 - b / 10; });
    ZSortCompare const& byValue = ZSortCompare::defaultSortCompare();
    std::vector<Values> inputs = {{}, {1}, {2, 1}, {1, 1, 1}, numbers(1000)};
    for (unsigned int const size : {3U, 12U, 13U, 14U, 100U, 5000U})
        for (unsigned int const limit : {size, 4U})
            inputs.push_back(randomValues(static_cast<int>(size), limit));
    for (Values const& input : inputs)
        for (auto const order : {ascending, descending}) {
            EXPECT_EQ(sorted(input, order), sortedByList(input, byValue, order));
            EXPECT_EQ(sorted(input, order), sortedByList<PlainList>(input, byValue, order));
            Values withNulls(3, noNumber);
            for (int const value : input) {
                withNulls.insert(withNulls.end(), withNulls.size() % 3, noNumber);
                withNulls.push_back(value);
            }
            Values expected = sortedByList(input, byTens, order);
            expected.resize(withNulls.size(), noNumber);
            EXPECT_EQ(expected, sortedByList(withNulls, byTens, order));
        }
}

TEST_F(SortTest, PartIsSortedUpToItsLastIndex) {
    for (auto const& [lo, hi, expected] :
         {std::tuple(1U, 3U, Values{5, 2, 3, 4, 1}), std::tuple(2U, ~0U, Values{5, 4, 1, 2, 3}),
          std::tuple(4U, 2U, Values{5, 4, 3, 2, 1})}) {
        PlainList list(1, 1);
        fill(list, {5, 4, 3, 2, 1});
        list.quickSort(ZSortCompare::defaultSortCompare(), ascending, lo, hi);
        EXPECT_EQ(expected, valuesOf(list));
    }
}

TEST_F(SortTest, EndsForAComparatorThatErrsOrThrowsAndKeepsEveryMember) {
    auto const expectEnd = [](char const* name, int error, std::function<int(int, int)> compare) {
        Comparator const comparator(std::move(compare));
        ZArrayList list(1, 1);
        fill(list, numbers(many));
        EXPECT_EQ(error, errorOf([&] { list.sort(comparator, ascending); })) << name;
        EXPECT_EQ(numbers(many), sorted(valuesOf(list))) << name;
        EXPECT_LE(comparator.comparisons, bound) << name;
    };
    expectEnd("always before", 0, [](int, int) { return -1; });
    expectEnd("always behind", 0, [](int, int) { return 1; });
    expectEnd("the extremes", 0, [](int a, int b) { return a < b ? INT_MIN : INT_MAX; });
    expectEnd("in a circle", 0, [](int a, int b) { return (b - a + many) % many - many / 2; });
    std::mt19937 random(5);
    expectEnd("random", 0, [&](int, int) { return static_cast<int>(random() % 3) - 1; });
    expectEnd("throwing", invalidParameter, [left = 50000](int a, int) mutable {
        return --left > 0 ? a % 7 - 3 : throw ZInvalidParameterException();
    });
}

template <class List>
void checkSortOfAChangingList() {
    std::mt19937 random(6);
    List list(1, 1);
    fill(list, numbers(3000));
    Values expected = numbers(3000);
    Comparator const comparator([&](int a, int b) {
        if (random() % 16 == 0 && list.size() > 0) {
            auto const at = static_cast<unsigned int>(random() % list.size());
            expected.erase(std::find(expected.begin(), expected.end(), valueOf(list.get(at))));
            list.remove(at);
        } else if (random() % 16 == 0) {
            list.addNoCopy(new Number(static_cast<int>(random() % 3000)));
            expected.push_back(valueOf(list.get(list.size() - 1)));
        }
        return a - b;
    });
    list.sort(comparator, ascending);
    EXPECT_EQ(sorted(expected), sorted(valuesOf(list)));
}

TEST_F(SortTest, ListThatItsComparatorChangesLosesNoMember) {
    checkSortOfAChangingList<ZArrayList>();
    checkSortOfAChangingList<PlainList>();
}

/// The adversary of M. D. McIlroy, "A Killer Adversary for Quicksort" (Software: Practice and
/// Experience, 1999): decides what it is asked for as late as it can, so that every pivot turns out
/// to be among the smallest. Its answers agree with the order it ends with.
TEST_F(SortTest, KillerSequenceStaysWithinNLogN) {
    Values killer(many, many);  // which is undecided
    int decided = 0;
    int candidate = -1;
    Comparator const hostile([&](int a, int b) {
        int& left = killer[static_cast<std::size_t>(a)];
        int& right = killer[static_cast<std::size_t>(b)];
        if (left == many && right == many) (a == candidate ? left : right) = decided++;
        if (left == many) candidate = a;
        if (right == many) candidate = b;
        return left - right;
    });
    sortedByList(numbers(many), hostile);
    EXPECT_LE(hostile.comparisons, bound);
    long const comparisons = comparisonsOf(killer);
    EXPECT_LE(comparisons, bound);
    EXPECT_GT(comparisons, 2.2 * many * std::log2(many)) << "the sequence kills nothing";
}

TEST_F(SortTest, WhatIsInOrderOrTheOtherWayRoundOrLevelIsCheap) {
    Values falling = numbers(many);
    std::reverse(falling.begin(), falling.end());
    for (Values const& run : {numbers(many), falling})
        EXPECT_LE(comparisonsOf(run), many);
    for (unsigned int const different : {1U, 2U, 5U})
        EXPECT_LE(comparisonsOf(randomValues(many, different)), 3L * many * different);
}

}  // namespace
