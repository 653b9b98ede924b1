// Stanza files beside GLib's GKeyFile, on the same file: whole operations of the public interface,
// from 100 to 1000000 keys in stanzas of 1000, and peak memory. Properties files in the manner of
// the Java platform hold the same pairs, under "stanza.key".
//
// Every time is given per key (the counter ns_per_key), memory as bytes_per_key.
#include <benchmark/benchmark.h>
#include <glib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Z/ZJavaProperties.h"
#include "Z/ZLCString.h"
#include "Z/ZStanzaFileProperties.h"

namespace {

constexpr std::size_t keysPerStanza = 1000;

/// Strings need a codeset directory; the one of this tree serves where none is given.
int const environment = setenv("QCSDIR", ZFC_BENCH_QCSDIR, 0);

struct Place {
    std::string stanza;
    std::string key;
};

/// A file on the memory file system, so that no disk is measured, with its keys in random order.
class Sample {
  public:
    explicit Sample(std::size_t count)
        : path("/dev/shm/properties_bench." + std::to_string(getpid()) + "." +
               std::to_string(count)) {
        std::ofstream file(path);
        std::ofstream java(javaPath);
        for (std::size_t i = 0; i < count; ++i) {
            Place place{"stanza" + std::to_string(i / keysPerStanza),
                        "setting" + std::to_string(i % keysPerStanza)};
            if (i % keysPerStanza == 0) file << "[" << place.stanza << "]\n";
            file << place.key << " = value " << i << "\n";
            java << place.stanza << "." << place.key << " = value " << i << "\n";
            places.push_back(std::move(place));
            added.push_back({places.back().stanza, "new" + std::to_string(i)});
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
    std::vector<Place> places;  // of the keys in the file
    std::vector<Place> added;   // of as many that are not
};

Sample const& sampleOf(benchmark::State const& state) {
    static std::map<std::int64_t, std::unique_ptr<Sample>> samples;
    auto& sample = samples[state.range(0)];
    if (!sample) sample = std::make_unique<Sample>(static_cast<std::size_t>(state.range(0)));
    return *sample;
}

// -------------------------------------------------------------------------------------- the sides

class Ours {
  public:
    static constexpr char const* name = "zfc";
    explicit Ours(std::string const& path) : file(path.c_str(), 1) {}
    std::size_t read(Place const& place) {
        file.getValue(place.stanza.c_str(), place.key.c_str(), value);
        return value.getLength();
    }
    void append(Place const& place) {
        file.setValue(place.stanza.c_str(), place.key.c_str(), "some value");
    }
    void store(std::string const& path) { file.store(path.c_str()); }

  private:
    ZStanzaFileProperties file;
    ZLCString value;
};

class OursInJava {
  public:
    explicit OursInJava(std::string const& path) {
        if (file.load((path + ".properties").c_str()) != 1) std::abort();
    }
    std::size_t read(Place const& place) {
        file.getValue(keyOf(place), value);
        return value.getLength();
    }
    void append(Place const& place) { file.setValue(keyOf(place), ZLCString("some value")); }
    void store(std::string const& path) { file.store(path.c_str()); }

  private:
    ZUTF8String const& keyOf(Place const& place) {
        key = place.stanza.c_str();
        key += ".";
        return key += place.key.c_str();
    }

    ZJavaProperties file;
    ZUTF8String key;
    ZUTF8String value;
};

class Peer {
  public:
    static constexpr char const* name = "glib";
    explicit Peer(std::string const& path) : file(g_key_file_new()) {
        if (g_key_file_load_from_file(file, path.c_str(), G_KEY_FILE_KEEP_COMMENTS, nullptr) ==
            FALSE)
            std::abort();
    }
    Peer(Peer const&) = delete;
    Peer& operator=(Peer const&) = delete;
    ~Peer() { g_key_file_free(file); }
    std::size_t read(Place const& place) {
        char* const value =
            g_key_file_get_string(file, place.stanza.c_str(), place.key.c_str(), nullptr);
        std::size_t const length = std::strlen(value);
        g_free(value);
        return length;
    }
    void append(Place const& place) {
        g_key_file_set_value(file, place.stanza.c_str(), place.key.c_str(), "some value");
    }
    void store(std::string const& path) {
        if (g_key_file_save_to_file(file, path.c_str(), nullptr) == FALSE) std::abort();
    }

  private:
    GKeyFile* file;
};

// ------------------------------------------------------------------------------------ the measures

/// Processor time of this process, in seconds: other programs on the machine do not count.
double processorTime() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// Runs `work` once for each iteration, behind `prepare`, which is not measured.
template <class Prepare, class Work>
void measure(benchmark::State& state, Prepare prepare, Work work) {
    double seconds = 0;
    for (auto _ : state) {
        auto const prepared = prepare();
        double const start = processorTime();
        work(*prepared);
        double const taken = processorTime() - start;
        state.SetIterationTime(taken);
        seconds += taken;
    }
    double const keys = static_cast<double>(state.range(0));
    state.counters["ns_per_key"] = seconds * 1e9 / keys / static_cast<double>(state.iterations());
}

template <class Side>
void load(benchmark::State& state) {
    Sample const& sample = sampleOf(state);
    // The object goes when the next one is made, outside the measure.
    auto const nothing = [] { return std::make_unique<std::unique_ptr<Side>>(); };
    measure(state, nothing, [&](auto& side) { side = std::make_unique<Side>(sample.path); });
}

template <class Side>
void read(benchmark::State& state) {
    Sample const& sample = sampleOf(state);
    auto side = std::make_shared<Side>(sample.path);
    measure(
        state, [&] { return side; },
        [&](Side& loaded) {
            for (Place const& place : sample.places)
                benchmark::DoNotOptimize(loaded.read(place));
        });
}

template <class Side>
void append(benchmark::State& state) {
    Sample const& sample = sampleOf(state);
    measure(
        state, [&] { return std::make_unique<Side>(sample.path); },
        [&](Side& loaded) {
            for (Place const& place : sample.added)
                loaded.append(place);
        });
}

template <class Side>
void store(benchmark::State& state) {
    Sample const& sample = sampleOf(state);
    std::string const target = sample.path + ".stored";
    measure(
        state, [&] { return std::make_unique<Side>(sample.path); },
        [&](Side& loaded) { loaded.store(target); });
    std::remove(target.c_str());
}

/// Changes every second of the values of one key, and removes the others. The peer has no such
/// walk.
void walk(benchmark::State& state) {
    auto const filled = [&] {
        auto file = std::make_unique<ZStanzaFileProperties>(0);
        for (std::int64_t i = 0; i < state.range(0); ++i)
            file->addValue("stanza", "key", "value");
        return file;
    };
    measure(state, filled, [](ZStanzaFileProperties& file) {
        ZStanzaValueIterator values(file, "stanza", "key");
        while (values.next()) {
            values.changeValue("changed");
            if (values.next()) values.removeValue();
        }
    });
}

/// A number in kilobytes from /proc/self/status.
double kilobytes(char const* name) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        double number = 0;
        if (word == name && status >> number) return number;
    }
    return 0;
}

/// The most memory that loading the file adds, in bytes; for a process that does nothing else.
template <class Side>
double peakOfLoad(std::string const& path) {
    ZLCString const warm("codesets are set up once in a process");
    double const before = kilobytes("VmRSS:");
    std::ofstream("/proc/self/clear_refs") << 5 << std::flush;  // the peak starts here
    Side const side(path);
    return (kilobytes("VmHWM:") - before) * 1024;
}

constexpr char const* peakOption = "--peak-of-load=";

template <class Side>
void memory(benchmark::State& state) {
    Sample const& sample = sampleOf(state);
    std::string const command =
        "/proc/" + std::to_string(getpid()) + "/exe " + peakOption + Side::name + " " + sample.path;
    double peak = 0;
    for (auto _ : state) {
        std::unique_ptr<FILE, int (*)(FILE*)> const output(popen(command.c_str(), "r"), pclose);
        if (std::fscanf(output.get(), "%lf", &peak) != 1) std::abort();
    }
    state.counters["bytes_per_key"] = peak / static_cast<double>(state.range(0));
}

#define SIDE_BY_SIDE(operation)                                         \
    BENCHMARK_TEMPLATE(operation, Ours)->Apply(sizes)->UseManualTime(); \
    BENCHMARK_TEMPLATE(operation, Peer)->Apply(sizes)->UseManualTime()

void sizes(benchmark::internal::Benchmark* registered) {
    registered->Arg(100)->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
}

SIDE_BY_SIDE(load);
SIDE_BY_SIDE(read);
SIDE_BY_SIDE(append);
SIDE_BY_SIDE(store);
BENCHMARK(walk)->Arg(1000)->Arg(100000)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(load, OursInJava)->Apply(sizes)->UseManualTime();
BENCHMARK_TEMPLATE(read, OursInJava)->Apply(sizes)->UseManualTime();
BENCHMARK_TEMPLATE(append, OursInJava)->Apply(sizes)->UseManualTime();
BENCHMARK_TEMPLATE(store, OursInJava)->Apply(sizes)->UseManualTime();
BENCHMARK_TEMPLATE(memory, Ours)->Apply(sizes)->Iterations(1);
BENCHMARK_TEMPLATE(memory, Peer)->Apply(sizes)->Iterations(1);

}  // namespace

int main(int argc, char** argv) {
    std::string const option = argc == 3 ? argv[1] : "";
    if (option.rfind(peakOption, 0) == 0) {
        bool const isOurs = option == std::string(peakOption) + Ours::name;
        return std::printf("%f\n", isOurs ? peakOfLoad<Ours>(argv[2]) : peakOfLoad<Peer>(argv[2])) <
               0;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
