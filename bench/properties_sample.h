/// What the programs that measure configuration files share: a sample file, and how a row is told.
#ifndef ZFC_BENCH_PROPERTIES_SAMPLE_H
#define ZFC_BENCH_PROPERTIES_SAMPLE_H

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace bench {

constexpr std::size_t keysPerStanza = 1000;
constexpr char memoryDirectory[] = "/dev/shm";

/// Strings need a codeset directory; the one of this tree serves where none is given.
inline int const environment = setenv("QCSDIR", ZFC_BENCH_QCSDIR, 0);

struct Place {
    std::string stanza;
    std::string key;
    std::string flat;  // "stanza.key"
};

/// A file on the memory file system, so that no disk is measured, with its keys in random order;
/// beside it the same pairs as a properties file, under "stanza.key".
class Sample {
  public:
    explicit Sample(std::size_t count)
        : path(std::string(memoryDirectory) + "/properties_bench." + std::to_string(getpid()) +
               "." + std::to_string(count)) {
        std::ofstream file(path);
        std::ofstream java(javaPath);
        for (std::size_t i = 0; i < count; ++i) {
            places.push_back(placeOf(i, "setting"));
            Place const& place = places.back();
            if (i % keysPerStanza == 0) file << "[" << place.stanza << "]\n";
            file << place.key << " = value " << i << "\n";
            java << place.flat << " = value " << i << "\n";
            added.push_back("new" + std::to_string(i));
        }
        std::shuffle(places.begin(), places.end(), std::mt19937(1));
    }
    Sample(Sample const&) = delete;
    Sample& operator=(Sample const&) = delete;
    ~Sample() {
        std::remove(path.c_str());
        std::remove(javaPath.c_str());
    }

    std::string path;
    std::string javaPath = path + ".properties";
    std::vector<Place> places;       // of the keys in the file
    std::vector<std::string> added;  // as many that are not

  private:
    static Place placeOf(std::size_t i, char const* name) {
        Place place{"stanza" + std::to_string(i / keysPerStanza),
                    name + std::to_string(i % keysPerStanza), ""};
        place.flat = place.stanza + "." + place.key;
        return place;
    }
};

inline Sample const& sampleOf(benchmark::State const& state) {
    static std::map<std::int64_t, std::unique_ptr<Sample>> samples;
    auto& sample = samples[state.range(0)];
    if (!sample) sample = std::make_unique<Sample>(static_cast<std::size_t>(state.range(0)));
    return *sample;
}

/// How often one iteration repeats what handles few keys, so that stopping the clock between
/// iterations costs nothing beside it.
inline std::int64_t rounds(benchmark::State const& state) {
    constexpr std::int64_t enough = 20000;
    return std::max<std::int64_t>(1, enough / state.range(0));
}

/// A row's time is told per key; `times` as often an iteration handled all of them.
inline void tellPerKey(benchmark::State& state, std::int64_t times = 1) {
    state.counters["per"] = static_cast<double>(state.range(0) * times);
}

/// Runs `work(object)` on fresh objects that `make()` gives; making and dropping them is not
/// measured.
template <class Make, class Work>
void onFresh(benchmark::State& state, Make make, Work work) {
    std::vector<decltype(make())> objects;
    for (auto _ : state) {
        state.PauseTiming();
        objects.clear();
        for (std::int64_t i = 0; i < rounds(state); ++i)
            objects.push_back(make());
        state.ResumeTiming();
        for (auto& object : objects)
            work(object);
    }
    tellPerKey(state, rounds(state));
}

/// One row of a side: "ROW/SIDE", with its sizes.
template <class Run>
benchmark::internal::Benchmark* row(std::string const& name, char const* side, Run run,
                                    std::vector<std::int64_t> const& sizes) {
    auto* const made = benchmark::RegisterBenchmark((name + "/" + side).c_str(), run);
    for (std::int64_t const size : sizes)
        made->Arg(size);
    return made->Unit(benchmark::kMicrosecond);
}

}  // namespace bench

#endif
