// Strings beside std::string and those of other libraries: what programs do with them most, on
// short and on long text.
#include <Poco/String.h>
#include <absl/strings/str_replace.h>
#include <absl/strings/str_split.h>
#include <benchmark/benchmark.h>
#include <glib.h>

#include <QByteArray>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "Z/ZLCString.h"
#include "Z/ZStringIterator.h"
#include "Z/ZStringTokenizer.h"
#include "Z/ZUTF8String.h"

namespace {

using benchmark::DoNotOptimize;
using benchmark::State;

[[maybe_unused]] int const environment =
    setenv("QCSDIR", ZFC_BENCH_QCSDIR, 0) + setenv("LC_ALL", "C.UTF-8", 0);

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

// ------------------------------------------------------------------------------ rows of the report

constexpr std::size_t mebibyte = 1024 * 1024;

/// A MiB of words drawn at random, since branch prediction learns a text that repeats itself.
std::string longText() {
    std::vector<std::string> const words{"connection", "timeout,", "of",      "the",   "service",
                                         "in",         "seconds,", "retries", "until", "a",
                                         "message",    "is",       "written"};
    std::mt19937 random(7);
    std::string text;
    while (text.size() < mebibyte)
        text += words[random() % words.size()] + ' ';
    text.resize(mebibyte);
    return text;
}

template <class String>
void grow(State& state) {
    for (auto _ : state) {
        String string;
        for (std::int64_t i = 0; i < state.range(0); ++i)
            string += 'x';
        DoNotOptimize(string);
    }
}
BENCHMARK_TEMPLATE(grow, ZLCString)->Name("grow a string/ours")->Arg(mebibyte);
BENCHMARK_TEMPLATE(grow, std::string)->Name("grow a string/std")->Arg(mebibyte);
BENCHMARK_TEMPLATE(grow, QByteArray)->Name("grow a string/qt")->Arg(mebibyte);

// Ours asks whether there is one more, and copies each token. The peers show where it stands.

char const blankOrComma[] = " ,";

void tokeniseOurs(State& state) {
    ZLCString const source(longText().c_str());
    ZLCString const delimiters(blankOrComma);
    ZLCString token;
    for (auto _ : state) {
        ZStringTokenizer tokens(source, token, delimiters);
        while (tokens.hasMore())
            DoNotOptimize(tokens.getNext());
    }
}
BENCHMARK(tokeniseOurs)->Name("tokenise 1 MiB/ours");

void tokeniseStrtok(State& state) {  // destroys its text, so each run has a copy
    std::string const source = longText();
    for (auto _ : state) {
        std::string copy(source);
        char* rest = nullptr;
        for (char* token = strtok_r(copy.data(), blankOrComma, &rest); token != nullptr;
             token = strtok_r(nullptr, blankOrComma, &rest))
            DoNotOptimize(token);
    }
}
BENCHMARK(tokeniseStrtok)->Name("tokenise 1 MiB/strtok_r");

void tokeniseAbseil(State& state) {
    std::string const source = longText();
    for (auto _ : state)
        for (auto token : absl::StrSplit(source, absl::ByAnyChar(blankOrComma), absl::SkipEmpty()))
            DoNotOptimize(token);
}
BENCHMARK(tokeniseAbseil)->Name("tokenise 1 MiB/abseil");

void tokeniseGlib(State& state) {
    std::string const source = longText();
    for (auto _ : state)
        g_strfreev(g_strsplit_set(source.c_str(), blankOrComma, -1));
}
BENCHMARK(tokeniseGlib)->Name("tokenise 1 MiB/glib");

void tokeniseFloor(State& state) {  // looks at every byte once
    std::string const source = longText();
    for (auto _ : state) {
        char const* start = source.data();
        for (char const& byte : source)
            if (byte == ' ' || byte == ',') {
                if (start != &byte) DoNotOptimize(start);
                start = &byte + 1;
            }
    }
}
BENCHMARK(tokeniseFloor)->Name("tokenise 1 MiB/floor");

/// The text is all behind the place looked for.
std::string textBehindNeedle() { return "needles" + longText().substr(7); }

void lastOurs(State& state) {
    ZLCString const string(textBehindNeedle().c_str());
    for (auto _ : state)
        DoNotOptimize(string.lastIndexOf("needles"));
}
BENCHMARK(lastOurs)->Name("find the last occurrence of a text, 1 MiB/ours");

void lastGlib(State& state) {
    std::string const string = textBehindNeedle();
    for (auto _ : state)
        DoNotOptimize(g_strrstr(string.c_str(), "needles"));
}
BENCHMARK(lastGlib)->Name("find the last occurrence of a text, 1 MiB/glib");

void lastStd(State& state) {
    std::string const string = textBehindNeedle();
    for (auto _ : state)
        DoNotOptimize(string.rfind("needles"));
}
BENCHMARK(lastStd)->Name("find the last occurrence of a text, 1 MiB/std");

void lastQt(State& state) {
    QByteArray const string(textBehindNeedle().c_str());
    for (auto _ : state)
        DoNotOptimize(string.lastIndexOf("needles"));
}
BENCHMARK(lastQt)->Name("find the last occurrence of a text, 1 MiB/qt");

void lastFloor(State& state) {  // a byte that does not occur
    std::string const string = textBehindNeedle();
    for (auto _ : state)
        DoNotOptimize(memrchr(string.data(), '#', string.size()));
}
BENCHMARK(lastFloor)->Name("find the last occurrence of a text, 1 MiB/floor");

// In place in a copy, each of them. A word in thirteen is many, one text at either end few.

std::string textWithHits(bool few) {
    std::string text = longText();
    if (few) text.replace(100, 8, "#seldom#").replace(text.size() - 100, 8, "#seldom#");
    return text;
}
char const* hitOf(bool few) { return few ? "#seldom#" : "timeout"; }
constexpr char newText[] = "interval of time";

template <class String, class Replace>
void replaceIn(State& state, bool few, Replace&& replace) {
    String const original(textWithHits(few).c_str());
    for (auto _ : state) {
        String string(original);
        replace(string, hitOf(few));
        DoNotOptimize(string);
    }
}

void replaceEachOurs(State& state, bool few) {
    replaceIn<ZLCString>(state, few, [](auto& s, char const* hit) { s.replace(hit, newText); });
}
void replaceEachAbseil(State& state, bool few) {
    replaceIn<std::string>(state, few, [](auto& s, char const* hit) {
        absl::StrReplaceAll({{hit, newText}}, &s);
    });
}
void replaceEachPoco(State& state, bool few) {
    replaceIn<std::string>(state, few,
                           [](auto& s, char const* hit) { Poco::replaceInPlace(s, hit, newText); });
}
void replaceEachQt(State& state, bool few) {
    replaceIn<QByteArray>(state, few, [](auto& s, char const* hit) { s.replace(hit, newText); });
}
void replaceEachFloor(State& state, bool few) {  // copies the answer
    ZLCString answer(textWithHits(few).c_str());
    answer.replace(hitOf(few), newText);
    std::string const result(answer.getChars());
    for (auto _ : state) {
        std::string string(result);
        DoNotOptimize(string);
    }
}

[[maybe_unused]] int const replaceRows = [] {
    std::pair<char const*, void (*)(State&, bool)> const sides[] = {{"ours", replaceEachOurs},
                                                                    {"abseil", replaceEachAbseil},
                                                                    {"poco", replaceEachPoco},
                                                                    {"qt", replaceEachQt},
                                                                    {"floor", replaceEachFloor}};
    for (auto const& [side, body] : sides)
        for (bool const few : {true, false}) {
            std::string const row = few ? "replace all, few hits/" : "replace all, many hits/";
            benchmark::RegisterBenchmark((row + side).c_str(), body, few);
        }
    return 0;
}();

// What strcoll() takes is in ours too: a program may change the locale at any time.

char const oneText[] = "connection-timeout";
char const otherText[] = "connection-timer";

void compareOurs(State& state) {
    ZLCString const a(oneText);
    ZLCString const b(otherText);
    setlocale(LC_COLLATE, "C");
    for (auto _ : state)
        DoNotOptimize(a.compare(b));
}
BENCHMARK(compareOurs)->Name("compare in the C locale/ours");

void compareStrcoll(State& state) {
    std::string const a(oneText);
    std::string const b(otherText);
    setlocale(LC_COLLATE, "C");
    for (auto _ : state) {
        benchmark::ClobberMemory();  // it is a pure function
        DoNotOptimize(strcoll(a.c_str(), b.c_str()));
    }
}
BENCHMARK(compareStrcoll)->Name("compare in the C locale/strcoll");

void compareFloor(State& state) {
    std::string const a(oneText);
    std::string const b(otherText);
    for (auto _ : state) {
        benchmark::ClobberMemory();
        DoNotOptimize(std::strcmp(a.c_str(), b.c_str()));
    }
}
BENCHMARK(compareFloor)->Name("compare in the C locale/floor");

}  // namespace
