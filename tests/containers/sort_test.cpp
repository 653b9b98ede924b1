#include "Z/ZSort.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <functional>
#include <map>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "Z/ZList.h"
#include "support/objects.h"

using namespace testsupport;

namespace {

using Values = std::vector<int>;
constexpr auto ascending = ZSortCompare::ascending;
constexpr auto descending = ZSortCompare::descending;

class SortTest : public ObjectsTest {};

/// Counts, and asks a function of the two values.
class Comparator : public ZSortCompare {
  public:
    explicit Comparator(std::function<int(int, int)> function) : compare(std::move(function)) {}
    [[nodiscard]] int sortCompare(ZObject const* a, ZObject const* b) const override {
        ++comparisons;
        if (a == nullptr || b == nullptr) ADD_FAILURE() << "null was compared";
        return compare(valueOf(a), valueOf(b));
    }
    mutable long comparisons = 0;

  private:
    std::function<int(int, int)> compare;
};

/// A list that is sorted without knowledge of its storage.
class PlainList : public ZArrayList {
  public:
    using ZArrayList::ZArrayList;
    void sortPart(unsigned int lo, unsigned int hi) {
        quickSort(ZSortCompare::defaultSortCompare(), ascending, lo, hi);
    }

  protected:
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

Values randomValues(int count, int limit, unsigned int seed) {
    std::mt19937 random(seed);
    Values values = numbers(count);
    for (int& value : values)
        value = static_cast<int>(random() % static_cast<unsigned>(limit));
    return values;
}

Values sorted(Values values, ZSortCompare::sortorder order) {
    std::sort(values.begin(), values.end());
    if (order == descending) std::reverse(values.begin(), values.end());
    return values;
}

template <class List>
Values sortedByList(Values const& values, ZSortCompare const& cmp, ZSortCompare::sortorder order) {
    List list(1, 1);
    fill(list, values);
    list.sort(cmp, order);
    return valuesOf(list);
}

/// What n log2 n comparisons with the factor that the sort promises, and small parts, come to.
long bound(int count) { return std::lround(5.0 * count * std::log2(count)); }

TEST_F(SortTest, SortsWhateverOrderItIsGiven) {
    std::vector<Values> inputs = {{}, {1}, {2, 1}, {1, 1, 1}, numbers(1000), Values(1000, 7)};
    for (int const size : {3, 12, 13, 14, 100, 5000}) {
        inputs.push_back(randomValues(size, size, 1));
        inputs.push_back(randomValues(size, 4, 2));
        inputs.push_back(sorted(numbers(size), descending));
    }
    ZSortCompare const& byValue = ZSortCompare::defaultSortCompare();
    for (Values const& input : inputs) {
        for (auto const order : {ascending, descending, ZSortCompare::sortorder(7 & 1)}) {
            EXPECT_EQ(sorted(input, order), sortedByList<ZArrayList>(input, byValue, order));
            EXPECT_EQ(sorted(input, order), sortedByList<PlainList>(input, byValue, order));
        }
    }
}

TEST_F(SortTest, PartIsSortedUpToItsLastIndex) {
    struct Row {
        unsigned int lo, hi;
        Values expected;
    };
    for (Row const& row : {Row{1, 3, {5, 2, 3, 4, 1}}, Row{2, 9, {5, 4, 1, 2, 3}},
                           Row{0, ~0U, {1, 2, 3, 4, 5}}, Row{4, 2, {5, 4, 3, 2, 1}}}) {
        PlainList list(1, 1);
        fill(list, {5, 4, 3, 2, 1});
        list.sortPart(row.lo, row.hi);
        EXPECT_EQ(row.expected, valuesOf(list));
    }
}

TEST_F(SortTest, NullsGoBehindAndChangeNothingElse) {
    // Equal for the comparator when their tens are, so that their order shows how it was sorted.
    Comparator const byTens([](int a, int b) { return a / 10 - b / 10; });
    Values const input = randomValues(500, 300, 3);
    Values withNulls;
    for (std::size_t i = 0; i < input.size(); ++i) {
        withNulls.insert(withNulls.end(), i * 7 % 3, noNumber);
        withNulls.push_back(input[i]);
    }
    for (auto const order : {ascending, descending}) {
        Values expected = sortedByList<ZArrayList>(input, byTens, order);
        expected.resize(withNulls.size(), noNumber);
        EXPECT_EQ(expected, sortedByList<ZArrayList>(withNulls, byTens, order));
    }
    EXPECT_EQ(Values(5, noNumber),
              sortedByList<ZArrayList>(Values(5, noNumber), byTens, ascending));
}

TEST_F(SortTest, EndsForAnInconsistentComparatorAndKeepsEveryMember) {
    constexpr int count = 20000;
    std::mt19937 random(5);
    std::map<std::string, std::function<int(int, int)>> const comparators = {
        {"always before", [](int, int) { return -1; }},
        {"always behind", [](int, int) { return 1; }},
        {"always level", [](int, int) { return 0; }},
        {"random", [&](int, int) { return static_cast<int>(random() % 3) - 1; }},
        {"random without level", [&](int, int) { return random() % 2 != 0 ? 1 : -1; }},
        {"in a circle", [](int a, int b) { return (b - a + count) % count < count / 2 ? -1 : 1; }},
        {"the extremes", [](int a, int b) { return a < b ? INT_MIN : INT_MAX; }},
    };
    for (auto const& [name, function] : comparators) {
        for (auto const order : {ascending, descending}) {
            Comparator const comparator(function);
            Values result = sortedByList<ZArrayList>(numbers(count), comparator, order);
            EXPECT_EQ(numbers(count), sorted(result, ascending)) << name;
            EXPECT_LE(comparator.comparisons, bound(count)) << name;
        }
    }
}

/// The adversary of M. D. McIlroy, "A Killer Adversary for Quicksort" (Software: Practice and
/// Experience, 1999): decides what it is asked for as late as it can, so that every pivot turns out
/// to be among the smallest. Its answers agree with the order it ends with.
class Adversary {
  public:
    explicit Adversary(int count) : value(static_cast<std::size_t>(count), count) {}
    int operator()(int a, int b) {
        if (undecided(a) && undecided(b)) freeze(a == candidate ? a : b);
        if (undecided(a))
            candidate = a;
        else if (undecided(b))
            candidate = b;
        return at(a) - at(b);
    }
    /// Numbers in an order that makes the sort do again what it did when it was asked.
    [[nodiscard]] Values const& sequence() const { return value; }

  private:
    int& at(int i) { return value[static_cast<std::size_t>(i)]; }
    bool undecided(int i) { return at(i) == static_cast<int>(value.size()); }
    void freeze(int i) { at(i) = frozen++; }

    Values value;
    int frozen = 0;
    int candidate = -1;
};

TEST_F(SortTest, KillerSequenceStaysWithinNLogN) {
    constexpr int count = 20000;
    Adversary adversary(count);
    Comparator const hostile(std::ref(adversary));
    sortedByList<ZArrayList>(numbers(count), hostile, ascending);
    EXPECT_LE(hostile.comparisons, bound(count));

    Comparator const counting([](int a, int b) { return a - b; });
    Values const killer = adversary.sequence();
    EXPECT_EQ(sorted(killer, ascending), sortedByList<ZArrayList>(killer, counting, ascending));
    EXPECT_LE(counting.comparisons, bound(count));
    EXPECT_GT(counting.comparisons, 2.2 * count * std::log2(count)) << "the sequence kills nothing";
}

TEST_F(SortTest, ManyMembersLevelWithEachOtherAreCheap) {
    constexpr int count = 20000;
    for (int const different : {1, 2, 5}) {
        Comparator const counting([](int a, int b) { return a - b; });
        Values const input = randomValues(count, different, 7);
        EXPECT_EQ(sorted(input, ascending), sortedByList<ZArrayList>(input, counting, ascending));
        EXPECT_LE(counting.comparisons, 3 * count * different) << different << " values";
    }
}

TEST_F(SortTest, ComparatorThatThrowsLosesNoMember) {
    for (long const limit : {0L, 1L, 50L, 2000L, 6000L}) {
        long left = limit;
        Comparator const failing([&](int a, int b) {
            if (left-- == 0) throw ZInvalidParameterException();
            return a - b;
        });
        ZArrayList list(1, 1);
        fill(list, randomValues(1000, 1 << 20, 9));
        Values const before = sorted(valuesOf(list), ascending);
        EXPECT_EQ(invalidParameter, thrownBy([&] { list.sort(failing, ascending); }));
        EXPECT_EQ(before, sorted(valuesOf(list), ascending));
    }
}

}  // namespace
