#include "Z/ZSort.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <functional>
#include <numeric>
#include <random>
#include <tuple>
#include <utility>
#include <vector>

#include "support/objects.h"

using namespace testsupport;

namespace {

constexpr auto ascending = ZSortCompare::ascending;
constexpr auto descending = ZSortCompare::descending;

class SortTest : public ObjectsTest {};

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

Values randomValues(int count, unsigned int limit, unsigned int seed) {
    std::mt19937 random(seed);
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
    for (unsigned int const size : {3, 12, 13, 14, 100, 5000})
        for (unsigned int const limit : {size, 4U})
            inputs.push_back(randomValues(static_cast<int>(size), limit, 1));
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

TEST_F(SortTest, ManyMembersLevelWithEachOtherAreCheap) {
    for (unsigned int const different : {1, 2, 5})
        EXPECT_LE(comparisonsOf(randomValues(many, different, 7)), 3L * many * different);
}

}  // namespace
