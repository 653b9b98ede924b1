// Maps beside those of GLib, Qt and Abseil, with the same texts for keys: looked up in an order
// that is not that of insertion, and put in with a copy of key and value or by reference. A look-up
// is one iteration; a filling is a map made for the number of keys and filled, once more with its
// end. Peers are told the number where they can be.
//
// The described hash walks a key byte by byte and binds the look-ups in small maps. In large ones
// cache misses do: the line of the bucket, which has the text of its first key, and another line or
// two for the third of the keys that come later. What filling costs is the string objects, of 120
// bytes each, and the system's page faults for them.
#include <absl/container/flat_hash_map.h>
#include <benchmark/benchmark.h>
#include <glib.h>
#include <malloc.h>
#include <QByteArray>
#include <QHash>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "Z/ZKeyMap.h"
#include "Z/ZLCConstString.h"
#include "Z/ZLCString.h"
#include "Z/ZMap.h"

namespace {

/// Strings need a codeset directory; the one of this tree serves where none is given.
int const environment = setenv("QCSDIR", ZFC_BENCH_QCSDIR, 0);

/// `count` texts, and the same in another order, as each side has them.
struct Texts {
    explicit Texts(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i)
            keys.push_back("setting" + std::to_string(i));
        probes = keys;
        std::shuffle(probes.begin(), probes.end(), std::mt19937(1));
    }
    static Texts const& ofSize(std::int64_t count) {
        static std::map<std::int64_t, std::unique_ptr<Texts>> made;
        auto& texts = made[count];
        if (texts == nullptr) texts = std::make_unique<Texts>(static_cast<std::size_t>(count));
        return *texts;
    }
    std::vector<std::string> keys, probes;
};

template <class Text>
std::vector<Text> textsAs(std::vector<std::string> const& texts) {
    std::vector<Text> made;
    made.reserve(texts.size());
    for (auto const& text : texts)
        made.emplace_back(text.c_str());
    return made;
}

// Each side: what it takes for a key, and how a map of `count` is made, filled and asked.

struct Ours {
    using Key = ZLCString;
    ZHashKeyMap map;
    explicit Ours(std::size_t count, int copy = 1) : map(static_cast<unsigned int>(count), copy) {}
    void put(Key const& key) { map.putEntry(&key, &key); }
    [[nodiscard]] void const* find(Key const& key) const { return map.getEntry(&key); }
};
struct OursByReference : Ours {
    explicit OursByReference(std::size_t count) : Ours(count, 0) {}
};
struct OursByView : Ours {
    using Ours::Ours;
    [[nodiscard]] void const* find(Key const& key) const {
        ZLCConstString const view(key.getChars());
        return map.getEntry(&view);
    }
};
/// Entries without values.
struct OursOfEntries {
    using Key = ZLCString;
    ZHashMap map;
    explicit OursOfEntries(std::size_t count) : map(static_cast<unsigned int>(count), 1) {}
    void put(Key& key) { map.putEntry(&key); }
    [[nodiscard]] void const* find(Key const& key) const { return map.getEntry(&key); }
};

struct Glib {
    using Key = std::string;
    GHashTable* const map;
    explicit Glib(std::size_t, GDestroyNotify end = g_free)
        : map(g_hash_table_new_full(g_str_hash, g_str_equal, end, end)) {}
    Glib(Glib const&) = delete;
    Glib& operator=(Glib const&) = delete;
    ~Glib() { g_hash_table_destroy(map); }
    void put(Key const& key) {
        g_hash_table_insert(map, g_strdup(key.c_str()), g_strdup(key.c_str()));
    }
    [[nodiscard]] void const* find(Key const& key) const {
        return g_hash_table_lookup(map, key.c_str());
    }
};
struct GlibByReference : Glib {
    explicit GlibByReference(std::size_t count) : Glib(count, nullptr) {}
    void put(Key& key) { g_hash_table_insert(map, key.data(), key.data()); }
};
struct GlibOfEntries : Glib {
    explicit GlibOfEntries(std::size_t) : Glib(0, nullptr) {}
    void put(Key& key) { g_hash_table_add(map, key.data()); }
};

struct Qt {
    using Key = QByteArray;
    QHash<QByteArray, QByteArray> map;
    explicit Qt(std::size_t count) { map.reserve(static_cast<int>(count)); }
    /// Copies, which would share the bytes otherwise.
    void put(Key const& key) {
        map.insert(QByteArray(key.constData(), key.size()),
                   QByteArray(key.constData(), key.size()));
    }
    [[nodiscard]] void const* find(Key const& key) const { return &*map.constFind(key); }
};

struct Abseil {
    using Key = std::string;
    absl::flat_hash_map<std::string, std::string> map;
    explicit Abseil(std::size_t count) { map.reserve(count); }
    void put(Key const& key) { map.insert_or_assign(key, key); }
    [[nodiscard]] void const* find(Key const& key) const { return &map.find(key)->second; }
};
struct AbseilByReference {
    using Key = std::string;
    absl::flat_hash_map<std::string_view, void const*> map;
    explicit AbseilByReference(std::size_t count) { map.reserve(count); }
    void put(Key const& key) { map.insert_or_assign(key, key.data()); }
    [[nodiscard]] void const* find(Key const& key) const { return map.find(key)->second; }
};

/// The described hash of the probe, and one comparison with the key, whose place is known.
struct Floor {
    using Key = std::string;
    std::vector<Key> keys;
    std::size_t next = 0;
    explicit Floor(std::size_t count) : keys(Texts::ofSize(static_cast<int>(count)).probes) {}
    void put(Key const&) {}
    [[nodiscard]] void const* find(Key const& key) {
        std::uint32_t hash = 5381;
        for (char const byte : key)
            hash = (hash * 33) ^ static_cast<unsigned char>(byte);
        benchmark::DoNotOptimize(hash);
        if (next == keys.size()) next = 0;
        return keys[next++] == key ? &key : nullptr;
    }
};
/// The copies alone.
struct FillFloor {
    using Key = std::string;
    std::vector<std::unique_ptr<char, decltype(&std::free)>> copies;
    explicit FillFloor(std::size_t count) { copies.reserve(2 * count); }
    void put(Key const& key) {
        for (int copy = 0; copy < 2; ++copy)
            copies.emplace_back(strdup(key.c_str()), &std::free);
    }
};

template <class Side>
void lookUp(benchmark::State& state) {
    Texts const& texts = Texts::ofSize(state.range(0));
    auto keys = textsAs<typename Side::Key>(texts.keys);
    auto const probes = textsAs<typename Side::Key>(texts.probes);
    Side side(keys.size());
    for (auto& key : keys)
        side.put(key);
    std::size_t next = 0;
    for (auto _ : state) {
        void const* const found = side.find(probes[next]);
        if (found == nullptr) state.SkipWithError("a key is missing");
        benchmark::DoNotOptimize(found);
        if (++next == probes.size()) next = 0;
    }
}

std::size_t bytesInUse() {
    struct mallinfo2 const use = mallinfo2();
    return use.uordblks + use.hblkhd;
}

template <class Side, bool timesEnd = false>
void fill(benchmark::State& state) {
    auto keys = textsAs<typename Side::Key>(Texts::ofSize(state.range(0)).keys);
    auto const fillOne = [&](Side& side) {
        for (auto& key : keys)
            side.put(key);
        benchmark::DoNotOptimize(&side);
    };
    for (auto _ : state) {
        auto side = std::make_unique<Side>(keys.size());
        fillOne(*side);
        if (!timesEnd) state.PauseTiming();
        side.reset();
        if (!timesEnd) state.ResumeTiming();
    }
    std::size_t const before = bytesInUse();
    Side side(keys.size());
    fillOne(side);
    state.counters["bytes_per_key"] =
        static_cast<double>(bytesInUse() - before) / static_cast<double>(keys.size());
}

constexpr std::int64_t small = 100;
constexpr std::int64_t middle = 10000;
constexpr std::int64_t large = 1000000;

#define ROW(function, name, Side) \
    BENCHMARK_TEMPLATE(function, Side)->Name(name)->Arg(small)->Arg(middle)->Arg(large)

ROW(lookUp, "look up a key, copied/ours", Ours);
ROW(lookUp, "look up a key, copied/glib", Glib);
ROW(lookUp, "look up a key, copied/qt", Qt);
ROW(lookUp, "look up a key, copied/absl", Abseil);
ROW(lookUp, "look up a key, copied/floor", Floor);
ROW(lookUp, "look up a key by a view/ours", OursByView);
ROW(lookUp, "look up a key by a view/ours by an object", Ours);
ROW(lookUp, "look up a key by a view/absl", Abseil);
ROW(lookUp, "look up a key by a view/floor", Floor);
ROW(lookUp, "look up a key, by reference/ours", OursByReference);
ROW(lookUp, "look up a key, by reference/glib", GlibByReference);
ROW(lookUp, "look up a key, by reference/absl", AbseilByReference);
ROW(lookUp, "look up a key, by reference/floor", Floor);
ROW(lookUp, "look up an entry/ours", OursOfEntries);
ROW(lookUp, "look up an entry/glib", GlibOfEntries);
ROW(lookUp, "look up an entry/absl", AbseilByReference);
ROW(lookUp, "look up an entry/floor", Floor);
ROW(fill, "fill a map, copied/ours", Ours);
ROW(fill, "fill a map, copied/glib", Glib);
ROW(fill, "fill a map, copied/qt", Qt);
ROW(fill, "fill a map, copied/absl", Abseil);
ROW(fill, "fill a map, copied/floor", FillFloor);
BENCHMARK_TEMPLATE(fill, Ours, true)->Name("fill and end a map/ours")->Arg(middle);
BENCHMARK_TEMPLATE(fill, Glib, true)->Name("fill and end a map/glib")->Arg(middle);
BENCHMARK_TEMPLATE(fill, Abseil, true)->Name("fill and end a map/absl")->Arg(middle);
BENCHMARK_TEMPLATE(fill, FillFloor, true)->Name("fill and end a map/floor")->Arg(middle);
ROW(fill, "fill a map, by reference/ours", OursByReference);
ROW(fill, "fill a map, by reference/glib", GlibByReference);
ROW(fill, "fill a map, by reference/absl", AbseilByReference);

}  // namespace
