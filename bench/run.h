/// The end of a program that has registered its rows by itself.
#ifndef ZFC_BENCH_RUN_H
#define ZFC_BENCH_RUN_H

#include <benchmark/benchmark.h>

namespace bench {

/// Runs the rows as the options say; the program's exit status.
inline int run(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

}  // namespace bench

#endif
