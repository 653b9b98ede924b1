#!/usr/bin/env bash
# Builds the benchmarks after installing what is missing, and runs them; each shows ours beside the
# peers' in one run. Results count only on a machine that does nothing else.
# usage: bench.sh [NAME [BENCHMARK_OPTION...]]
#   NAME   one program of bench/, such as properties; without it all of them run
# Example: bench.sh properties --benchmark_filter=load
set -euo pipefail
# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

[[ ${1-} != -* ]] || die "usage: bench.sh [NAME [BENCHMARK_OPTION...]]"
wanted=${1:-*}
[[ $# -eq 0 ]] || shift
install_missing "${test_packages[@]}"
say "building in build/release ..."
configure_and_build release -DZFC_BUILD_BENCH=ON

export QCSDIR=$root/data/qcs
programs=0
for program in "$root"/build/release/bench/$wanted"_bench"; do
    [[ -x $program ]] || continue
    say "== $(basename "$program")"
    "$program" "$@"
    programs=$((programs + 1))
done
[[ $programs -gt 0 ]] || die "bench/ has no program \"${wanted}_bench\""
