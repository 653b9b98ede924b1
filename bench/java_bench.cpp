// Properties files in the manner of the Java platform: whole operations of the public interface,
// per key. The peer, java.util.Properties, is another program.
#include "Z/ZJavaProperties.h"
#include "properties_sample.h"
#include "run.h"

namespace {

using bench::Place;
using bench::sampleOf;

/// The keys as the caller has them, in the order in which they are asked for.
std::vector<ZUTF8String> keysOf(benchmark::State const& state) {
    std::vector<ZUTF8String> keys;
    for (Place const& place : sampleOf(state).places)
        keys.emplace_back(place.flat.c_str());
    return keys;
}

std::unique_ptr<ZJavaProperties> loaded(benchmark::State const& state) {
    auto file = std::make_unique<ZJavaProperties>();
    if (file->load(sampleOf(state).javaPath.c_str()) != 1) std::abort();
    return file;
}

void load(benchmark::State& state) {
    static_cast<void>(sampleOf(state));  // written now, not in the time that counts
    bench::onFresh(
        state, [] { return std::unique_ptr<ZJavaProperties>(); },
        [&](auto& file) { file = loaded(state); });
}

void get(benchmark::State& state) {
    auto const file = loaded(state);
    auto const keys = keysOf(state);
    ZUTF8String value;
    for (auto _ : state) {
        for (ZUTF8String const& key : keys) {
            file->getValue(key, value);
            benchmark::DoNotOptimize(value.getLength());
        }
    }
    bench::tellPerKey(state);
}

void set(benchmark::State& state) {
    auto const file = loaded(state);
    auto const keys = keysOf(state);
    ZUTF8String const value("some value");
    for (auto _ : state) {
        for (ZUTF8String const& key : keys)
            file->setValue(key, value);
    }
    bench::tellPerKey(state);
}

void addRows() {
    bench::row("properties file, load", "ours", load, {10000, 100000, 1000000});
    bench::row("properties file, get a key", "ours", get, {10000, 1000000});
    bench::row("properties file, set a key", "ours", set, {10000, 1000000});
}

}  // namespace

int main(int argc, char** argv) {
    addRows();
    return bench::run(argc, argv);
}
