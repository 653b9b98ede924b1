// The Adler-32 checksum beside those of libdeflate and zlib. The floor reads every byte once.
#include <benchmark/benchmark.h>
#include <libdeflate.h>
#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <vector>

#include "Z/ZAdler32.h"

namespace {

using Bytes = std::vector<unsigned char>;

void ours(std::uint32_t& sum, Bytes const& bytes) {
    sum = static_cast<std::uint32_t>(
        ZAdler32::adler32(sum, bytes.data(), static_cast<unsigned int>(bytes.size())));
}
void libdeflate(std::uint32_t& sum, Bytes const& bytes) {
    sum = libdeflate_adler32(sum, bytes.data(), bytes.size());
}
void zlib(std::uint32_t& sum, Bytes const& bytes) {
    sum = static_cast<std::uint32_t>(
        ::adler32(sum, bytes.data(), static_cast<unsigned int>(bytes.size())));
}
void addWords(std::uint32_t& sum, Bytes const& bytes) {
    std::uint64_t all = sum;
    for (std::size_t i = 0; i + sizeof all <= bytes.size(); i += sizeof all) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes.data() + i, sizeof word);
        all += word;
    }
    sum = static_cast<std::uint32_t>(all);
}

template <void (*add)(std::uint32_t&, Bytes const&)>
void checksum(benchmark::State& state) {
    Bytes bytes(static_cast<std::size_t>(state.range(0)));
    std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(0));
    std::uint32_t sum = 1;
    for (auto _ : state) {
        add(sum, bytes);
        benchmark::DoNotOptimize(sum);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

#define ROW(side, function) \
    BENCHMARK(checksum<function>)->Name("Adler-32/" side)->Arg(16)->Arg(256)->Arg(1 << 20)

ROW("ours", ours);
ROW("deflate", libdeflate);
ROW("zlib", zlib);
ROW("floor", addWords);

}  // namespace
