// Strings beside std::string: what programs do with them most, on short and on long text.
#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <string_view>

#include "Z/ZLCString.h"
#include "Z/ZStringIterator.h"
#include "Z/ZStringTokenizer.h"
#include "Z/ZUTF8String.h"

namespace {

using benchmark::DoNotOptimize;
using benchmark::State;

/// Text of that many bytes, words of a line's length with a comma behind each.
std::string textOf(std::int64_t bytes) {
    static char const word[] = "connection-timeout,";
    std::string text;
    while (text.size() < static_cast<std::size_t>(bytes))
        text += word;
    text.resize(static_cast<std::size_t>(bytes));
    return text;
}

/// Lengths that fit std::string's inline area, only ours, and none.
void lengths(benchmark::internal::Benchmark* run) { run->Arg(12)->Arg(60)->Arg(1000); }

template <class String>
void construct(State& state) {
    std::string const text = textOf(state.range(0));
    char const* source = text.c_str();
    for (auto _ : state) {
        DoNotOptimize(source);
        String string(source);
        DoNotOptimize(string);
    }
}
BENCHMARK_TEMPLATE(construct, ZLCString)->Apply(lengths);
BENCHMARK_TEMPLATE(construct, std::string)->Apply(lengths);

template <class String>
void copy(State& state) {
    String const original(textOf(state.range(0)).c_str());
    for (auto _ : state) {
        String string(original);
        DoNotOptimize(string);
    }
}
BENCHMARK_TEMPLATE(copy, ZLCString)->Apply(lengths);
BENCHMARK_TEMPLATE(copy, std::string)->Apply(lengths);

void numberOurs(State& state) {
    for (auto _ : state) {
        ZLCString string(static_cast<int>(state.iterations()));
        DoNotOptimize(string);
    }
}
BENCHMARK(numberOurs);

void numberStd(State& state) {
    for (auto _ : state)
        DoNotOptimize(std::to_string(static_cast<int>(state.iterations())));
}
BENCHMARK(numberStd);

template <class String>
void appendBytes(State& state) {
    for (auto _ : state) {
        String string;
        for (std::int64_t i = 0; i < state.range(0); ++i)
            string += 'x';
        DoNotOptimize(string);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK_TEMPLATE(appendBytes, ZLCString)->Arg(60)->Arg(100000);
BENCHMARK_TEMPLATE(appendBytes, std::string)->Arg(60)->Arg(100000);

template <class String>
void appendWords(State& state) {
    for (auto _ : state) {
        String string;
        for (int i = 0; i < 100; ++i)
            string += "connection";
        DoNotOptimize(string);
    }
}
BENCHMARK_TEMPLATE(appendWords, ZLCString);
BENCHMARK_TEMPLATE(appendWords, std::string);

template <class String>
void concatenate(State& state) {
    String const file("services.conf");
    String const line("1234");
    for (auto _ : state)
        DoNotOptimize(file + ":" + line + ": this line is no key");
}
BENCHMARK_TEMPLATE(concatenate, ZLCString);
BENCHMARK_TEMPLATE(concatenate, std::string);

void findOurs(State& state) {
    ZLCString const string((textOf(state.range(0)) + "needle").c_str());
    for (auto _ : state)
        DoNotOptimize(string.indexOf("needle"));
}
BENCHMARK(findOurs)->Apply(lengths);

void findStd(State& state) {
    std::string const string = textOf(state.range(0)) + "needle";
    for (auto _ : state)
        DoNotOptimize(string.find("needle"));
}
BENCHMARK(findStd)->Apply(lengths);

template <class String>
void equal(State& state) {
    String const a(textOf(state.range(0)).c_str());
    String const b(a);
    for (auto _ : state)
        DoNotOptimize(a == b);
}
BENCHMARK_TEMPLATE(equal, ZLCString)->Apply(lengths);
BENCHMARK_TEMPLATE(equal, std::string)->Apply(lengths);

void equalObjects(State& state) {
    ZLCString const a("connection-timeout");
    ZUTF8String const foreign("connection-timeout");
    ZObject const& other = state.range(0) == 0 ? static_cast<ZObject const&>(a) : foreign;
    for (auto _ : state)
        DoNotOptimize(a.equals(other));
}
BENCHMARK(equalObjects)->ArgName("other_class")->Arg(0)->Arg(1);

void hashOurs(State& state) {
    ZLCString const string(textOf(state.range(0)).c_str());
    for (auto _ : state)
        DoNotOptimize(string.hash());
}
BENCHMARK(hashOurs)->Apply(lengths);

void hashStd(State& state) {
    std::string const string = textOf(state.range(0));
    for (auto _ : state)
        DoNotOptimize(std::hash<std::string>()(string));
}
BENCHMARK(hashStd)->Apply(lengths);

void replaceOurs(State& state) {
    ZLCString const original(textOf(state.range(0)).c_str());
    for (auto _ : state) {
        ZLCString string(original);
        string.replace("time", "interval");
        DoNotOptimize(string);
    }
}
BENCHMARK(replaceOurs)->Apply(lengths);

void replaceStd(State& state) {
    std::string const original = textOf(state.range(0));
    for (auto _ : state) {
        std::string string(original);
        for (auto at = string.find("time"); at != std::string::npos;
             at = string.find("time", at + 8))
            string.replace(at, 4, "interval");
        DoNotOptimize(string);
    }
}
BENCHMARK(replaceStd)->Apply(lengths);

void charactersOurs(State& state) {
    ZUTF8String const source(textOf(state.range(0)).c_str());
    ZUTF8String character;
    for (auto _ : state) {
        ZStringIterator iterator(source, character);
        while (iterator.hasMore())
            DoNotOptimize(iterator.getNext());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(charactersOurs)->Arg(1000);

void tokensOurs(State& state) {
    ZLCString const source(textOf(state.range(0)).c_str());
    ZLCString token;
    ZLCString const delimiters(",-");
    for (auto _ : state) {
        ZStringTokenizer tokens(source, token, delimiters);
        while (tokens.hasMore())
            DoNotOptimize(tokens.getNext());
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(tokensOurs)->Arg(1000);

void tokensStd(State& state) {
    std::string const source = textOf(state.range(0));
    std::string token;
    for (auto _ : state) {
        for (std::size_t at = source.find_first_not_of(",-"); at != std::string::npos;) {
            std::size_t const end = source.find_first_of(",-", at);
            token.assign(source, at, end - at);
            DoNotOptimize(token);
            at = source.find_first_not_of(",-", end);
        }
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(tokensStd)->Arg(1000);

}  // namespace
