// Lists beside GLib's GPtrArray and std::vector, and their sorting beside std::sort. Both sides
// hold the same objects by pointer and compare them through the same virtual functions, so what
// differs is the list. A list that is filled grows from nothing.
#include <benchmark/benchmark.h>
#include <glib.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "Z/ZList.h"
#include "Z/ZSort.h"

namespace {

class Number : public ZObject {
  public:
    explicit Number(unsigned int number) : value(number) {}
    [[nodiscard]] int compare(ZObject const& other) const override {
        unsigned int const right = static_cast<Number const&>(other).value;
        return (value > right) - (value < right);
    }

  private:
    unsigned int value;
};

enum class Order { ascending, descending, random };

/// `count` different numbers, side by side in memory.
class Objects {
  public:
    Objects(std::int64_t count, Order order) {
        for (std::int64_t i = 0; i < count; ++i)
            numbers.emplace_back(static_cast<unsigned int>(i));
        for (auto& number : numbers)
            members.push_back(&number);
        if (order == Order::random) std::shuffle(members.begin(), members.end(), std::mt19937(1));
        if (order == Order::descending) std::reverse(members.begin(), members.end());
    }
    std::vector<ZObject*> members;

  private:
    std::vector<Number> numbers;
};

// ------------------------------------------------------------------------------ what lists do

struct Ours {
    ZArrayList list{1, 0};
    void add(ZObject* object) { list.add(object); }
    template <class Action>
    void walk(Action action) {
        for (ZObject* const object : list)
            action(object);
    }
    [[nodiscard]] std::int64_t search(ZObject const* object) const { return list.indexOf(object); }
    void sort() { list.sort(ZSortCompare::defaultSortCompare(), ZSortCompare::ascending); }
};

/// The walk that lets the list change meanwhile.
struct OursByIterator : Ours {
    template <class Action>
    void walk(Action action) {
        for (ZListIterator iterator(list); iterator.hasMore();)
            action(iterator.getNext());
    }
};

int compareAtPointers(void const* a, void const* b) {
    return ZSortCompare::defaultSortCompare().sortCompare(*static_cast<ZObject* const*>(a),
                                                          *static_cast<ZObject* const*>(b));
}

struct Glib {
    GPtrArray* const list = g_ptr_array_new();
    Glib() = default;
    Glib(Glib const&) = delete;
    Glib& operator=(Glib const&) = delete;
    ~Glib() { g_ptr_array_free(list, TRUE); }
    void add(ZObject* object) { g_ptr_array_add(list, object); }
    template <class Action>
    void walk(Action action) {
        g_ptr_array_foreach(
            list,
            [](gpointer object, gpointer data) {
                (*static_cast<Action*>(data))(static_cast<ZObject*>(object));
            },
            &action);
    }
    [[nodiscard]] std::int64_t search(ZObject const* object) const {
        guint index = 0;
        auto const equals = [](gconstpointer a, gconstpointer b) -> gboolean {
            return static_cast<ZObject const*>(b)->equals(*static_cast<ZObject const*>(a));
        };
        return g_ptr_array_find_with_equal_func(list, object, equals, &index) ? index : -1;
    }
    void sort() { g_ptr_array_sort(list, compareAtPointers); }
};

struct Standard {
    std::vector<ZObject*> list;
    void add(ZObject* object) { list.push_back(object); }
    template <class Action>
    void walk(Action action) {
        std::for_each(list.begin(), list.end(), action);
    }
    [[nodiscard]] std::int64_t search(ZObject const* object) const {
        return std::find_if(list.begin(), list.end(),
                            [object](ZObject* each) { return object->equals(*each); }) -
               list.begin();
    }
    void sort() {
        ZSortCompare const& cmp = ZSortCompare::defaultSortCompare();
        std::sort(list.begin(), list.end(),
                  [&cmp](ZObject const* a, ZObject const* b) { return cmp.sortCompare(a, b) < 0; });
    }
};

// --------------------------------------------------------------------------------- what is timed

template <class Side>
void append(benchmark::State& state) {
    Objects const objects(state.range(0), Order::ascending);
    for (auto _ : state) {
        Side side;
        for (ZObject* const object : objects.members)
            side.add(object);
        benchmark::DoNotOptimize(&side);
    }
}

template <class Side>
void fillWith(Side& side, Objects const& objects) {
    for (ZObject* const object : objects.members)
        side.add(object);
}

template <class Side>
void walk(benchmark::State& state) {
    Objects const objects(state.range(0), Order::ascending);
    Side side;
    fillWith(side, objects);
    for (auto _ : state)
        side.walk([](ZObject* object) { benchmark::DoNotOptimize(object); });
}

template <class Side>
void search(benchmark::State& state) {
    Objects const objects(state.range(0), Order::random);
    Side side;
    fillWith(side, objects);
    for (auto _ : state)
        benchmark::DoNotOptimize(side.search(objects.members[objects.members.size() / 2]));
}

template <class Side, Order order>
void sort(benchmark::State& state) {
    Objects const objects(state.range(0), order);
    for (auto _ : state) {
        state.PauseTiming();
        auto side = std::make_unique<Side>();
        fillWith(*side, objects);
        state.ResumeTiming();
        side->sort();
        state.PauseTiming();
        side.reset();
        state.ResumeTiming();
    }
}

/// What it takes to see that all is in order.
template <Order order>
void compareNeighbours(benchmark::State& state) {
    Objects const objects(state.range(0), order);
    ZSortCompare const& cmp = ZSortCompare::defaultSortCompare();
    for (auto _ : state) {
        for (std::size_t i = 1; i < objects.members.size(); ++i)
            benchmark::DoNotOptimize(cmp.sortCompare(objects.members[i - 1], objects.members[i]));
    }
}

constexpr std::int64_t small = 100;
constexpr std::int64_t middle = 10000;
constexpr std::int64_t large = 1000000;

#define ROW(name, ...) BENCHMARK(__VA_ARGS__)->Name(name)->Arg(small)->Arg(middle)->Arg(large)

ROW("append to a list/ours", append<Ours>);
ROW("append to a list/glib", append<Glib>);
ROW("append to a list/floor", append<Standard>);
ROW("walk a list/ours", walk<Ours>);
ROW("walk a list by an iterator/ours", walk<OursByIterator>);
ROW("walk a list by an iterator/glib", walk<Glib>);
ROW("walk a list by an iterator/floor", walk<Standard>);
ROW("walk a list/glib", walk<Glib>);
ROW("walk a list/floor", walk<Standard>);
ROW("search a list/ours", search<Ours>);
ROW("search a list/glib", search<Glib>);
ROW("search a list/floor", search<Standard>);
ROW("sort, random/ours", sort<Ours, Order::random>);
ROW("sort, random/std", sort<Standard, Order::random>);
ROW("sort, random/glib", sort<Glib, Order::random>);
ROW("sort, sorted/ours", sort<Ours, Order::ascending>);
ROW("sort, sorted/std", sort<Standard, Order::ascending>);
ROW("sort, sorted/glib", sort<Glib, Order::ascending>);
ROW("sort, sorted/floor", compareNeighbours<Order::ascending>);
ROW("sort, reversed/ours", sort<Ours, Order::descending>);
ROW("sort, reversed/std", sort<Standard, Order::descending>);
ROW("sort, reversed/glib", sort<Glib, Order::descending>);
ROW("sort, reversed/floor", compareNeighbours<Order::descending>);

}  // namespace
