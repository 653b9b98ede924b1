#!/usr/bin/env bash
# Builds all fuzz targets with the address and undefined-behaviour sanitizers and runs each of them,
# after installing what is missing; stops at the first that finds something.
# usage: fuzz.sh [SECONDS]
#   SECONDS   how long each target runs; 60 without it
set -euo pipefail
# shellcheck source=scripts/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

seconds=${1-60}
[[ $# -le 1 && $seconds =~ ^[1-9][0-9]*$ ]] || die "usage: fuzz.sh [SECONDS]"

install_missing "${build_packages[@]}" clang-14 libclang-rt-14-dev
say "== building the fuzz targets"
configure_and_build fuzz
export QCSDIR=$root/data/qcs
cd "$root/build/fuzz/fuzz"

# fuzz TARGET: what it finds stays beside its corpus in build/fuzz/fuzz.
fuzz() {
    local target=$1 log=$1-fuzz.log
    mkdir -p "corpus/$target"
    "./${target}_fuzz" -max_total_time="$seconds" -timeout=20 -artifact_prefix="found-$target-" \
        "corpus/$target" "$root/fuzz/seeds/$target" >"$logs/$log" 2>&1 ||
        show_and_die "$log" "\"$target\" found something; build/fuzz/fuzz/found-$target-* has it"
    say "   $(sed -n 's/^Done \([0-9]*\) runs in \([0-9]*\) second.*/\1 runs in \2 s/p' "$logs/$log")"
}

for program in *_fuzz; do
    say "== ${program%_fuzz}, $seconds s"
    fuzz "${program%_fuzz}"
done
say
say "nothing found in $SECONDS s"
