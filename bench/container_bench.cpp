// The containers beside those of the C++ library, the sort beside std::sort, the checksum beside
// zlib's. Both sides hold the same objects by pointer and compare them through the same virtual
// functions, so what differs is the container.
#include <benchmark/benchmark.h>
#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <numeric>
#include <random>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "Z/ZAdler32.h"
#include "Z/ZKeyMap.h"
#include "Z/ZList.h"
#include "Z/ZMap.h"
#include "Z/ZSort.h"

namespace {

class Number : public ZObject {
  public:
    explicit Number(unsigned int number) : value(number) {}
    [[nodiscard]] unsigned long hash() const override { return value * 2654435761U; }
    [[nodiscard]] int compare(ZObject const& other) const override {
        unsigned int const right = static_cast<Number const&>(other).value;
        return (value > right) - (value < right);
    }
    [[nodiscard]] ZObject* clone() const override { return new Number(*this); }

  private:
    unsigned int value;
};

using Objects = std::vector<std::unique_ptr<Number>>;

/// `count` different numbers in random order.
Objects objects(std::int64_t count) {
    Objects made(static_cast<std::size_t>(count));
    unsigned int next = 0;
    for (auto& object : made)
        object = std::make_unique<Number>(next++);
    std::shuffle(made.begin(), made.end(), std::mt19937(1));
    return made;
}

struct Hash {
    std::size_t operator()(ZObject const* object) const { return object->hash(); }
};
struct Equal {
    bool operator()(ZObject const* a, ZObject const* b) const { return a->equals(*b); }
};
using StandardMap = std::unordered_map<ZObject const*, ZObject const*, Hash, Equal>;
using StandardSet = std::unordered_set<ZObject*, Hash, Equal>;

void perItem(benchmark::State& state, std::int64_t items) {
    state.SetItemsProcessed(state.iterations() * items);
}

// -------------------------------------------------------------------------------------- lists

template <class Append, class List>
void append(benchmark::State& state, List (*empty)(), Append add) {
    Objects const members = objects(state.range(0));
    for (auto _ : state) {
        List list = empty();
        for (auto const& member : members)
            add(list, member.get());
        benchmark::DoNotOptimize(list);
    }
    perItem(state, state.range(0));
}

void appendArrayList(benchmark::State& state) {
    append<void (*)(ZArrayList&, ZObject*), ZArrayList>(
        state, [] { return ZArrayList(1, 0); }, [](ZArrayList& list, ZObject* o) { list.add(o); });
}
void appendVector(benchmark::State& state) {
    append<void (*)(std::vector<ZObject*>&, ZObject*), std::vector<ZObject*>>(
        state, [] { return std::vector<ZObject*>(); },
        [](std::vector<ZObject*>& list, ZObject* o) { list.push_back(o); });
}

/// Finds the member in the middle.
void searchArrayList(benchmark::State& state) {
    Objects const members = objects(state.range(0));
    ZArrayList list(1, 0);
    for (auto const& member : members)
        list.add(member.get());
    for (auto _ : state)
        benchmark::DoNotOptimize(list.indexOf(list.get(list.size() / 2)));
    perItem(state, state.range(0) / 2);
}
void searchVector(benchmark::State& state) {
    Objects const members = objects(state.range(0));
    for (auto _ : state) {
        ZObject const* const probe = members[members.size() / 2].get();
        benchmark::DoNotOptimize(
            std::find_if(members.begin(), members.end(),
                         [probe](auto const& member) { return probe->equals(*member); }));
    }
    perItem(state, state.range(0) / 2);
}

// --------------------------------------------------------------------------------------- sort

void sortArrayList(benchmark::State& state) {
    Objects const members = objects(state.range(0));
    ZArrayList shuffled(1, 0);
    for (auto const& member : members)
        shuffled.add(member.get());
    for (auto _ : state) {
        ZArrayList list(shuffled);
        list.sort(ZSortCompare::defaultSortCompare(), ZSortCompare::ascending);
        benchmark::DoNotOptimize(list);
    }
    perItem(state, state.range(0));
}
void sortVector(benchmark::State& state) {
    Objects const members = objects(state.range(0));
    std::vector<ZObject*> shuffled;
    for (auto const& member : members)
        shuffled.push_back(member.get());
    ZSortCompare const& cmp = ZSortCompare::defaultSortCompare();
    for (auto _ : state) {
        std::vector<ZObject*> list(shuffled);
        std::sort(list.begin(), list.end(),
                  [&cmp](ZObject const* a, ZObject const* b) { return cmp.sortCompare(a, b) < 0; });
        benchmark::DoNotOptimize(list);
    }
    perItem(state, state.range(0));
}

// --------------------------------------------------------------------------------------- maps

void fillHashMap(benchmark::State& state) {
    Objects const members = objects(state.range(0));
    for (auto _ : state) {
        ZHashMap map(static_cast<unsigned int>(state.range(0)), 0);
        for (auto const& member : members)
            map.putEntry(member.get());
        benchmark::DoNotOptimize(map);
    }
    perItem(state, state.range(0));
}
void fillUnorderedSet(benchmark::State& state) {
    Objects const members = objects(state.range(0));
    for (auto _ : state) {
        StandardSet set(static_cast<std::size_t>(state.range(0)));
        for (auto const& member : members)
            set.insert(member.get());
        benchmark::DoNotOptimize(set);
    }
    perItem(state, state.range(0));
}

/// Keys and values are cloned, as a map of strings does.
void fillHashKeyMap(benchmark::State& state) {
    Objects const members = objects(state.range(0));
    for (auto _ : state) {
        ZHashKeyMap map(static_cast<unsigned int>(state.range(0)), 1);
        for (auto const& member : members)
            map.putEntry(member.get(), member.get());
        benchmark::DoNotOptimize(map);
    }
    perItem(state, state.range(0));
}
void fillUnorderedMap(benchmark::State& state) {
    using Owned = std::unique_ptr<ZObject>;
    Objects const members = objects(state.range(0));
    for (auto _ : state) {
        StandardMap map(static_cast<std::size_t>(state.range(0)));
        std::vector<Owned> owned;
        for (auto const& member : members) {
            owned.emplace_back(member->clone());
            owned.emplace_back(member->clone());
            map.emplace(owned[owned.size() - 2].get(), owned.back().get());
        }
        benchmark::DoNotOptimize(map);
    }
    perItem(state, state.range(0));
}

template <class Find>
void findAll(benchmark::State& state, Objects const& probes, Find find) {
    for (auto _ : state) {
        for (auto const& probe : probes)
            benchmark::DoNotOptimize(find(probe.get()));
    }
    perItem(state, state.range(0));
}

void findInHashKeyMap(benchmark::State& state) {
    Objects const members = objects(state.range(0));
    ZHashKeyMap map(static_cast<unsigned int>(state.range(0)), 0);
    for (auto const& member : members)
        map.putEntry(member.get(), member.get());
    findAll(state, members, [&map](ZObject const* key) { return map.getEntry(key); });
}
void findInUnorderedMap(benchmark::State& state) {
    Objects const members = objects(state.range(0));
    StandardMap map(static_cast<std::size_t>(state.range(0)));
    for (auto const& member : members)
        map.emplace(member.get(), member.get());
    findAll(state, members, [&map](ZObject const* key) { return map.find(key)->second; });
}

// ----------------------------------------------------------------------------------- checksum

using Checksum = unsigned long (*)(unsigned long, unsigned char const*, unsigned int);

void checksum(benchmark::State& state, Checksum sum) {
    std::vector<unsigned char> bytes(static_cast<std::size_t>(state.range(0)));
    std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(0));
    unsigned long adler = 1;
    for (auto _ : state)
        benchmark::DoNotOptimize(
            adler = sum(adler, bytes.data(), static_cast<unsigned int>(bytes.size())));
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
void checksumOurs(benchmark::State& state) { checksum(state, ZAdler32::adler32); }
void checksumZlib(benchmark::State& state) { checksum(state, ::adler32); }

constexpr std::int64_t small = 100;
constexpr std::int64_t middle = 10000;
constexpr std::int64_t large = 1000000;

BENCHMARK(appendArrayList)->Arg(small)->Arg(middle)->Arg(large);
BENCHMARK(appendVector)->Arg(small)->Arg(middle)->Arg(large);
BENCHMARK(searchArrayList)->Arg(small)->Arg(middle);
BENCHMARK(searchVector)->Arg(small)->Arg(middle);
BENCHMARK(sortArrayList)->Arg(small)->Arg(middle)->Arg(large);
BENCHMARK(sortVector)->Arg(small)->Arg(middle)->Arg(large);
BENCHMARK(fillHashMap)->Arg(small)->Arg(middle)->Arg(large);
BENCHMARK(fillUnorderedSet)->Arg(small)->Arg(middle)->Arg(large);
BENCHMARK(fillHashKeyMap)->Arg(small)->Arg(middle)->Arg(large);
BENCHMARK(fillUnorderedMap)->Arg(small)->Arg(middle)->Arg(large);
BENCHMARK(findInHashKeyMap)->Arg(small)->Arg(middle)->Arg(large);
BENCHMARK(findInUnorderedMap)->Arg(small)->Arg(middle)->Arg(large);
BENCHMARK(checksumOurs)->Arg(16)->Arg(256)->Arg(65536);
BENCHMARK(checksumZlib)->Arg(16)->Arg(256)->Arg(65536);

}  // namespace
