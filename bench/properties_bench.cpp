// Stanza files beside GLib's GKeyFile and SimpleIni, on the same file: whole operations of the
// public interface, from 100 to 1000000 keys in stanzas of 1000, and peak memory. Times are per
// key. The floor is the least work that gives the same answers: an array of views into the file's
// text, found by an unkeyed hash.
//
// What the time goes into: a look-up takes and frees the object's lock (a fifth of its
// instructions) and copies the value; of 1000000 keys nearly all of it waits for memory, twice in a
// row. A store flushes the copy and the file, each with an entry in the directory.
#define SI_NO_CONVERSION  // bytes are kept as they are
#include <SimpleIni.h>
#include <fcntl.h>
#include <glib.h>
#include <unistd.h>

#include <cstring>
#include <string_view>

#include "Z/ZLCString.h"
#include "Z/ZStanzaFileProperties.h"
#include "properties_sample.h"
#include "run.h"

namespace {

using bench::Place;
using bench::Sample;
using bench::sampleOf;

// -------------------------------------------------------------------------------------- the sides

class Ours {
  public:
    static constexpr char const* name = "ours";
    Ours() : file(1) {}
    explicit Ours(std::string const& path) : file(path.c_str(), 1) {}
    std::size_t read(Place const& place) {
        file.getValue(place.stanza.c_str(), place.key.c_str(), value);
        return value.getLength();
    }
    void set(char const* stanza, char const* key, char const* text) {
        file.setValue(stanza, key, text);
    }
    void store(std::string const& path) { file.store(path.c_str()); }
    void makeNoCopy() { file.setAttributes(ZPCache::noRecoveryCopy, nullptr); }

  private:
    ZStanzaFileProperties file;
    ZLCString value;
};

class GLib {
  public:
    static constexpr char const* name = "glib";
    GLib() = default;
    explicit GLib(std::string const& path) {
        if (g_key_file_load_from_file(file.get(), path.c_str(), G_KEY_FILE_KEEP_COMMENTS,
                                      nullptr) == FALSE)
            std::abort();
    }
    std::size_t read(Place const& place) {
        char* const value =
            g_key_file_get_string(file.get(), place.stanza.c_str(), place.key.c_str(), nullptr);
        std::size_t const length = std::strlen(value);
        g_free(value);
        return length;
    }
    void set(char const* stanza, char const* key, char const* text) {
        g_key_file_set_value(file.get(), stanza, key, text);
    }
    void store(std::string const& path) {
        if (g_key_file_save_to_file(file.get(), path.c_str(), nullptr) == FALSE) std::abort();
    }

  private:
    struct Free {
        void operator()(GKeyFile* unused) const { g_key_file_free(unused); }
    };
    std::unique_ptr<GKeyFile, Free> file{g_key_file_new()};
};

class SimpleIni {
  public:
    static constexpr char const* name = "simpleini";
    SimpleIni() = default;
    explicit SimpleIni(std::string const& path) {
        if (file->LoadFile(path.c_str()) < 0) std::abort();
    }
    std::size_t read(Place const& place) {
        value = file->GetValue(place.stanza.c_str(), place.key.c_str());
        return value.size();
    }
    void set(char const* stanza, char const* key, char const* text) {
        file->SetValue(stanza, key, text);
    }
    /// Flushes nothing, so it is no peer of a store.

  private:
    std::unique_ptr<CSimpleIniA> file = std::make_unique<CSimpleIniA>();
    std::string value;
};

/// Its pairs are views of the text as it was read, and of what was added behind it.
class Floor {
  public:
    static constexpr char const* name = "floor";
    Floor() { grow(); }
    explicit Floor(std::string const& path) : Floor() {
        std::FILE* const file = std::fopen(path.c_str(), "r");
        text.resize(static_cast<std::size_t>(lseek(fileno(file), 0, SEEK_END)));
        lseek(fileno(file), 0, SEEK_SET);
        if (std::fread(text.data(), 1, text.size(), file) != text.size()) std::abort();
        std::fclose(file);
        std::string_view stanza;
        for (std::string_view rest = text; !rest.empty();) {
            std::string_view const line = rest.substr(0, rest.find('\n'));
            rest.remove_prefix(line.size() + 1);
            std::size_t const equals = line.front() == '[' ? 0 : line.find(" = ");
            if (equals == 0)
                stanza = line.substr(1, line.size() - 2);
            else
                enter({stanza, line.substr(0, equals), line.substr(equals + 3)});
        }
    }
    std::size_t read(Place const& place) {
        std::string_view const found = slots[find(place.stanza, place.key)].value;
        value.assign(found.data(), found.size());
        return value.size();
    }
    void set(char const* stanza, char const* key, char const* newText) {
        std::size_t const at = find(stanza, key);
        if (slots[at].key.data() == nullptr) return enter({keep(stanza), keep(key), keep(newText)});
        slots[at].value = keep(newText);
    }
    void store(std::string const& path) {
        std::string image;
        std::string_view stanza;
        for (std::size_t const at : order) {
            Pair const& pair = slots[at];
            if (pair.stanza != stanza) image.append("[").append(stanza = pair.stanza).append("]\n");
            image.append(pair.key).append(" = ").append(pair.value).append("\n");
        }
        int const fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
        if (write(fd, image.data(), image.size()) < 0 || fsync(fd) != 0) std::abort();
        close(fd);
    }

  private:
    struct Pair {
        std::string_view stanza, key, value;
    };

    static std::size_t hash(std::string_view bytes, std::size_t seed) {
        for (char const c : bytes)
            seed = (seed ^ static_cast<unsigned char>(c)) * 1099511628211U;
        return seed;
    }
    /// The pair's slot, or the free one where it would be.
    [[nodiscard]] std::size_t find(std::string_view stanza, std::string_view key) const {
        std::size_t const hashed = hash(key, hash(stanza, 14695981039346656037U));
        for (std::size_t at = hashed ^ (hashed >> 32U);; ++at) {
            Pair const& pair = slots[at &= slots.size() - 1];
            if (pair.key.data() == nullptr || (pair.key == key && pair.stanza == stanza)) return at;
        }
    }
    void enter(Pair const& pair) {
        if (order.size() * 2 >= slots.size()) grow();
        std::size_t const at = find(pair.stanza, pair.key);
        slots[at] = pair;
        order.push_back(at);
    }
    void grow() {
        std::size_t const room = slots.empty() ? 64 : slots.size() * 2;
        std::vector<Pair> const old = std::exchange(slots, std::vector<Pair>(room));
        for (std::size_t& at : order) {
            Pair const& pair = old[at];
            slots[at = find(pair.stanza, pair.key)] = pair;
        }
    }
    std::string_view keep(std::string_view bytes) {
        constexpr std::size_t blockSize = 65536;
        if (blocks.empty() || blocks.back().size() + bytes.size() > blockSize) {
            blocks.emplace_back();
            blocks.back().reserve(blockSize);
        }
        std::string& block = blocks.back();
        std::size_t const start = block.size();
        return std::string_view(block.append(bytes)).substr(start);
    }

    std::string text;
    std::vector<std::string> blocks;  // each with its room, so that none moves
    std::vector<Pair> slots;          // a power of two of them, half free
    std::vector<std::size_t> order;
    std::string value;
};

// ------------------------------------------------------------------------------------ the measures

template <class Side>
void load(benchmark::State& state) {
    std::string const& path = sampleOf(state).path;
    bench::onFresh(
        state, [] { return std::unique_ptr<Side>(); },
        [&](auto& side) { side = std::make_unique<Side>(path); });
}

template <class Side>
void get(benchmark::State& state) {
    Sample const& sample = sampleOf(state);
    Side side(sample.path);
    for (auto _ : state) {
        for (Place const& place : sample.places)
            benchmark::DoNotOptimize(side.read(place));
    }
    bench::tellPerKey(state);
}

template <class Side>
void set(benchmark::State& state) {
    Sample const& sample = sampleOf(state);
    Side side(sample.path);
    for (auto _ : state) {
        for (Place const& place : sample.places)
            side.set(place.stanza.c_str(), place.key.c_str(), "some value");
    }
    bench::tellPerKey(state);
}

template <class Side>
void append(benchmark::State& state) {
    Sample const& sample = sampleOf(state);
    bench::onFresh(
        state, [] { return std::make_unique<Side>(); },
        [&](auto& side) {
            for (std::string const& key : sample.added)
                side->set("stanza", key.c_str(), "some value");
        });
}

/// Stores a file in which every byte moves each time, because the first value gets longer or
/// shorter.
template <class Side>
void store(benchmark::State& state, Side& side, std::string const& target) {
    char const* const stanza = "stanza0";
    char const* const key = "setting0";
    side.store(target);
    bool isLong = false;
    for (auto _ : state) {
        side.set(stanza, key, (isLong = !isLong) ? "a longer value" : "a value");
        side.store(target);
    }
    std::remove(target.c_str());
    bench::tellPerKey(state);
}

template <class Side>
void storeInMemory(benchmark::State& state) {
    Side side(sampleOf(state).path);
    store(state, side, sampleOf(state).path + ".stored");
}

template <class Side>
void storeOnDisk(benchmark::State& state) {
    char const* const directory = std::getenv("TMPDIR");
    Side side(sampleOf(state).path);
    store(state, side,
          std::string(directory != nullptr ? directory : "/var/tmp") + "/properties_bench." +
              std::to_string(getpid()));
}

void storeWithoutCopy(benchmark::State& state) {
    Ours side(sampleOf(state).path);
    side.makeNoCopy();
    store(state, side, sampleOf(state).path + ".stored");
}

/// Changes every second of the values of one key, and removes the others. The peers have no such
/// walk.
void walk(benchmark::State& state) {
    auto const filled = [&] {
        auto file = std::make_unique<ZStanzaFileProperties>(0);
        for (std::int64_t i = 0; i < state.range(0); ++i)
            file->addValue("stanza", "key", "value");
        return file;
    };
    bench::onFresh(state, filled, [](auto& file) {
        ZStanzaValueIterator values(*file, "stanza", "key");
        while (values.next()) {
            values.changeValue("changed");
            if (values.next()) values.removeValue();
        }
    });
}

// ------------------------------------------------------------------------------------------ memory

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

/// Of a row's own iterations none is counted: the load is another process's.
template <class Side>
double peakPerKey(benchmark::State const& state) {
    std::string const command = "/proc/" + std::to_string(getpid()) + "/exe " + peakOption +
                                Side::name + " " + sampleOf(state).path;
    double peak = 0;
    std::unique_ptr<FILE, int (*)(FILE*)> const output(popen(command.c_str(), "r"), pclose);
    if (std::fscanf(output.get(), "%lf", &peak) != 1) std::abort();
    return peak / static_cast<double>(state.range(0));
}

template <class Side>
void loadWithMemory(benchmark::State& state) {
    load<Side>(state);
    state.counters["bytes_per_key"] = peakPerKey<Side>(state);
}

template <class... Sides>
bool tellPeak(std::string const& option, char const* path) {
    bool const isTold = ((option == std::string(peakOption) + Sides::name &&
                          std::printf("%f\n", peakOfLoad<Sides>(path)) > 0) ||
                         ...);
    return isTold;
}

// -------------------------------------------------------------------------------------------- rows

template <class... Sides>
void addRows() {
    (bench::row("stanza file, load", Sides::name, loadWithMemory<Sides>, {100, 10000, 1000000}),
     ...);
    (bench::row("stanza file, get a key", Sides::name, get<Sides>, {100, 10000, 1000000}), ...);
    (bench::row("stanza file, set a key", Sides::name, set<Sides>, {100, 10000, 1000000}), ...);
    (bench::row("stanza file, append keys", Sides::name, append<Sides>, {1000, 100000, 1000000}),
     ...);
}

template <class... Sides>
void addStores() {
    (bench::row("stanza file, store", Sides::name, storeInMemory<Sides>, {100, 10000, 1000000}),
     ...);
    bench::row("stanza file, store without a copy", "ours", storeWithoutCopy, {10000, 1000000});
    (bench::row("stanza file, store on a disk", Sides::name, storeOnDisk<Sides>, {10000, 1000000}),
     ...);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && tellPeak<Ours, GLib, SimpleIni, Floor>(argv[1], argv[2])) return 0;
    addRows<Ours, GLib, SimpleIni, Floor>();
    addStores<Ours, GLib, Floor>();
    benchmark::RegisterBenchmark("walk", walk)->Arg(1000)->Arg(100000);
    return bench::run(argc, argv);
}
