// The printf engine beside the C library's, on the formats that programs use most.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>

#include "Z/zasprintf.h"
#include "Z/zsnprintf.h"

namespace {

constexpr auto ours = [](char* out, auto... args) { return zsnprintf(out, 256, args...); };
constexpr auto theirs = [](char* out, auto... args) { return snprintf(out, 256, args...); };

/// Formats `args`, hidden from the compiler, which would fold them into the C library's calls.
template <class Format, class... Args>
void format(benchmark::State& state, Format call, char const* text, Args... args) {
    char out[256];
    for (auto _ : state) {
        (benchmark::DoNotOptimize(args), ...);
        benchmark::DoNotOptimize(text);
        benchmark::DoNotOptimize(call(out, text, args...));
        benchmark::ClobberMemory();
    }
}

// One format, run by both engines. A macro because benchmarks are registered by macros.
#define FORMAT_BENCHMARK(name, ...)                           \
    BENCHMARK_CAPTURE(format, name##_zfc, ours, __VA_ARGS__); \
    BENCHMARK_CAPTURE(format, name##_libc, theirs, __VA_ARGS__)

FORMAT_BENCHMARK(literal, "a line of text that holds no specification at all\n");
FORMAT_BENCHMARK(key_value, "%s=%d", "connection-timeout", 86400);
FORMAT_BENCHMARK(log_line, "%s:%d: %s (rc %d, thread %lu)\n", "src/server.cpp", 1234,
                 "the connection was closed", 104, 140234567UL);
FORMAT_BENCHMARK(one_int, "%d", 7);
FORMAT_BENCHMARK(long_number, "%lld", 1234567890123456789LL);
FORMAT_BENCHMARK(padded, "%-20s|%08d|%5x", "name", 42, 255U);
FORMAT_BENCHMARK(hexadecimal, "%#x %08X", 0xCAFEU, 0xBEEFU);
FORMAT_BENCHMARK(numbered, "%2$s=%1$d", 86400, "connection-timeout");
FORMAT_BENCHMARK(twelve_ints, "%d %d %d %d %d %d %d %d %d %d %d %d", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10,
                 11, 12);
FORMAT_BENCHMARK(floating, "%.3f", 12345.6789);

void allocate(benchmark::State& state, int (*call)(char**, char const*, ...)) {
    for (auto _ : state) {
        char* text = nullptr;
        benchmark::DoNotOptimize(call(&text, "%s=%d", "connection-timeout", 86400));
        benchmark::DoNotOptimize(text);
        std::free(text);
    }
}
BENCHMARK_CAPTURE(allocate, zfc, zasprintf);
BENCHMARK_CAPTURE(allocate, libc, asprintf);

}  // namespace
